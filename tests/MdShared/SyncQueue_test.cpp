// Tests of the blocking queue between threads: blocking and release by a put
// or the stop, delivery after the stop, order and growth, and no element lost
// or doubled with many threads on both ends.
#include "Tools/SyncQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "errors.h"

using namespace Tsl;

namespace {

// Long enough for a released thread to finish on a loaded machine; a wait
// this long only ever runs out when the queue is broken.
const DWORD ReleaseTimeoutMs = 20000;

// The line of the internal error of unit SyncQueue that `body` raises; 0 when
// nothing was raised, -1 for any other failure.
template <class Body>
int InternalErrorLine(Body body) {
  try {
    body();
  } catch (CException* failure) {
    auto* internal = dynamic_cast<CInternalError*>(failure);
    int line = internal && std::wstring(internal->file) == L"SyncQueue" ? internal->line : -1;
    delete failure;
    return line;
  }
  return 0;
}

// Runs one call on its own thread. A thread that never returns is killed at
// the end, so that a broken queue (say, a consumer sleeping with the lock
// held) fails the test instead of hanging it.
class CThreadCall {
 public:
  explicit CThreadCall(std::function<void()> call) : call(std::move(call)) {
    thread = ::CreateThread(nullptr, 0, &CThreadCall::Run, this, 0, nullptr);
  }
  ~CThreadCall() {
    if (!Finished()) ::TerminateThread(thread, 1);
    ::CloseHandle(thread);
  }
  bool Finished(DWORD timeoutMs = ReleaseTimeoutMs) {
    return ::WaitForSingleObject(thread, timeoutMs) == WAIT_OBJECT_0;
  }

 private:
  static DWORD WINAPI Run(void* self) { return static_cast<CThreadCall*>(self)->call(), 0; }
  std::function<void()> call;
  HANDLE thread;
};

// A Get on another thread, with its result.
struct CGetter {
  CGetter(CSyncQueue<int>& queue, int initial)
      : value(initial), call([this, &queue] { result = queue.Get(value); }) {}
  int value;
  bool result = false;
  CThreadCall call;
};

}  // namespace

TEST(SyncQueue, GetBlocksUntilAPutOrTheStopWhichWakesEveryWaiterForGood) {
  CSyncQueue<int> queue;
  CGetter first(queue, -1);
  EXPECT_FALSE(first.call.Finished(200));
  // Put from a third thread: a consumer asleep with the lock held blocks it.
  ASSERT_TRUE(CThreadCall([&] { queue.Put(42); }).Finished());
  ASSERT_TRUE(first.call.Finished());
  EXPECT_TRUE(first.result && first.value == 42) << first.value;

  std::vector<std::unique_ptr<CGetter>> getters;
  for (int i = 0; i < 4; ++i) getters.push_back(std::make_unique<CGetter>(queue, i));
  EXPECT_FALSE(getters[0]->call.Finished(200));
  ASSERT_TRUE(CThreadCall([&] { queue.Stop(); }).Finished());
  // The fifth comes after the stop and falls through as well.
  getters.push_back(std::make_unique<CGetter>(queue, 4));
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(getters[i]->call.Finished()) << "waiter " << i;
    EXPECT_TRUE(!getters[i]->result && getters[i]->value == i) << "waiter " << i;
  }
}

TEST(SyncQueue, StopDropsNothingAndRefusesALaterPutOrStop) {
  CSyncQueue<int> queue;
  for (int i = 1; i <= 3; ++i) queue.Put(i);
  queue.Stop();
  EXPECT_EQ(91, InternalErrorLine([&] { queue.Put(4); }));
  EXPECT_EQ(74, InternalErrorLine([&] { queue.Stop(); }));
  // Another thread still gets in: the failures gave the lock back.
  std::vector<int> got;
  CThreadCall drain([&] {
    for (int value = 0; queue.Get(value);) got.push_back(value);
  });
  ASSERT_TRUE(drain.Finished());
  EXPECT_EQ((std::vector<int>{1, 2, 3}), got);
}

TEST(SyncQueue, GrowsByHalfAtLeastEightAndKeepsOrder) {
  CSyncQueue<int> queue;
  std::vector<int32_t> capacities{queue.GetCapacity()};
  for (int i = 0; i < 60; ++i) {
    queue.Put(i);
    if (capacities.back() != queue.GetCapacity()) capacities.push_back(queue.GetCapacity());
  }
  EXPECT_EQ((std::vector<int32_t>{0, 8, 16, 24, 36, 54, 81}), capacities);
  int value = -1;
  for (int i = 0; i < 30; ++i) ASSERT_TRUE(queue.TryGet(value) && value == i) << i;
  for (int i = 60; i < 100; ++i) queue.Put(i);
  for (int i = 30; i < 100; ++i) ASSERT_TRUE(queue.Get(value) && value == i) << i;
  EXPECT_FALSE(queue.TryGet(value));
  EXPECT_EQ(81, queue.GetCapacity());
}

TEST(SyncQueue, ManyProducersAndConsumersLoseNothingAndKeepEachProducersOrder) {
  // One consumer is the agent's case; several sleeping side by side are
  // where two puts meeting one set event must still wake two of them.
  const int producers = 4, perProducer = 15000, total = producers * perProducer;
  for (int consumers : {1, 3}) {
    SCOPED_TRACE(std::to_string(consumers) + " consumers");
    CSyncQueue<int> queue;
    std::atomic<int> received(0), outOfOrder(0);
    std::vector<std::atomic<int>> seen(total);
    HANDLE allReceived = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::vector<std::thread> threads;
    for (int c = 0; c < consumers; ++c)
      threads.emplace_back([&] {
        // Each producer's numbers must reach every consumer in the order put.
        std::vector<int> last(producers, -1);
        int value = 0;
        while (queue.Get(value)) {
          ++seen[value];
          if (last[value / perProducer] >= value % perProducer) ++outOfOrder;
          last[value / perProducer] = value % perProducer;
          if (++received == total) ::SetEvent(allReceived);
        }
      });
    for (int p = 0; p < producers; ++p)
      threads.emplace_back([&, p] {
        for (int i = 0; i < perProducer; ++i) {
          queue.Put(p * perProducer + i);
          if (i % 997 == 0) ::Sleep(1);  // lets the consumers run dry and sleep
        }
      });
    // The stop comes only after every element arrived: it would wake a
    // stranded consumer and hide a lost wake-up.
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(allReceived, ReleaseTimeoutMs)) << received;
    ::CloseHandle(allReceived);
    queue.Stop();
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(total, std::count(seen.begin(), seen.end(), 1));  // none lost, none doubled
    EXPECT_EQ(0, outOfOrder);
  }
}
