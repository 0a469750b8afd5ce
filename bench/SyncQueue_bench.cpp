// Benchmarks of the blocking queue between two threads against a queue built
// from the standard mutex, condition variable and deque: a stream of elements
// with a bounded number in flight, and single elements bounced back and forth.
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "Tools/SyncQueue.h"
#include "Bench.h"

namespace {

// The baseline: the usual standard-library blocking queue, notifying outside
// the lock so that a woken consumer doesn't meet a held mutex.
template <class T>
class CStdQueue {
 public:
  void Put(const T& item) {
    {
      std::lock_guard<std::mutex> hold(lock);
      items.push_back(item);
    }
    ready.notify_one();
  }
  bool Get(T& out) {
    std::unique_lock<std::mutex> hold(lock);
    ready.wait(hold, [this] { return !items.empty() || stopped; });
    if (items.empty()) return false;
    out = items.front();
    items.pop_front();
    return true;
  }
  void Stop() {
    {
      std::lock_guard<std::mutex> hold(lock);
      stopped = true;
    }
    ready.notify_all();
  }

 private:
  std::mutex lock;
  std::condition_variable ready;
  std::deque<T> items;
  bool stopped = false;
};

// Hands `count` integers from a producer thread to this thread. The consumer
// acknowledges every `window` elements on a second queue, and the producer
// stays at most two windows ahead: the queue under test takes from its front
// by moving the rest, which is meant for the few elements a hook makes, not
// for a backlog of a million.
template <class Queue>
void Stream(int count, int window) {
  Queue data, acks;
  std::thread producer([&] {
    int ack = 0;
    for (int i = 0; i < count; ++i) {
      if (i % window == 0 && i >= 2 * window) acks.Get(ack);
      data.Put(i);
    }
  });
  int value = 0;
  long long sum = 0;
  for (int received = 1; received <= count; ++received) {
    data.Get(value);
    sum += value;
    if (received % window == 0) acks.Put(received);
  }
  producer.join();
  Bench::Keep(sum);
}

// Bounces one integer `count` times between this thread and a worker: every
// element finds its consumer asleep, so each trip pays for two wake-ups.
template <class Queue>
void PingPong(int count) {
  Queue there, back;
  std::thread worker([&] {
    int value = 0;
    while (there.Get(value)) back.Put(value + 1);
  });
  int value = 0;
  for (int i = 0; i < count; ++i) {
    there.Put(value);
    back.Get(value);
  }
  there.Stop();
  worker.join();
  Bench::Keep(value);
}


}  // namespace

BENCH(Queue) {
  const int streamed = 1000000;
  for (int window : {16, 64, 256}) {
    Bench::Timing ours = Bench::Time([&] { Stream<CSyncQueue<int>>(streamed, window); });
    Bench::Timing base = Bench::Time([&] { Stream<CStdQueue<int>>(streamed, window); });
    Bench::Report("stream " + std::to_string(streamed) + " ints, <= " + std::to_string(2 * window) + " in flight", ours, base, "<= 1.0");
  }
  const int trips = 20000;
  Bench::Timing ours = Bench::Time([&] { PingPong<CSyncQueue<int>>(trips); });
  Bench::Timing base = Bench::Time([&] { PingPong<CStdQueue<int>>(trips); });
  Bench::Report("ping-pong " + std::to_string(trips) + " round trips", ours, base, "<= 1.0");
}
