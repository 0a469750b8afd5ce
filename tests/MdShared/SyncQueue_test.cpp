// Tests of the blocking queue between threads: blocking and release by a put
// or the stop, delivery after the stop, order and growth, element lifetimes,
// the lock given back when a failure passes, and no element lost or doubled
// with many threads on both ends.
#include "Tools/SyncQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "errors.h"

using namespace Tsl;

namespace {

// Long enough for a released thread to finish on a loaded machine; a wait
// this long only ever runs out when the queue is broken.
const DWORD ReleaseTimeoutMs = 20000;
// How long a thread that must stay blocked is watched.
const DWORD BlockedWindowMs = 200;

// "internal:<line>" for an internal error of unit SyncQueue, "none" when
// nothing was raised, "other" for anything else.
template <class Body>
std::string Raised(Body body) {
  try {
    body();
    return "none";
  } catch (CException* failure) {
    std::string what = "other";
    if (auto* internal = dynamic_cast<CInternalError*>(failure))
      if (std::wstring(internal->file) == L"SyncQueue") what = "internal:" + std::to_string(internal->line);
    delete failure;
    return what;
  }
}

// Runs one call on its own thread, tells when the call is about to start and
// when it has returned. A thread that never returns is killed at the end, so
// that a broken queue fails the test instead of hanging it.
class CThreadCall {
 public:
  explicit CThreadCall(std::function<void()> call) : call(std::move(call)) {
    started = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    finished = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    thread = ::CreateThread(nullptr, 0, &CThreadCall::Run, this, 0, nullptr);
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(started, ReleaseTimeoutMs));
  }
  ~CThreadCall() {
    if (!Finished(ReleaseTimeoutMs)) ::TerminateThread(thread, 1);
    ::WaitForSingleObject(thread, INFINITE);
    ::CloseHandle(thread);
    ::CloseHandle(started);
    ::CloseHandle(finished);
  }
  bool Finished(DWORD timeoutMs) { return ::WaitForSingleObject(finished, timeoutMs) == WAIT_OBJECT_0; }
  // Whether the call is still inside after the watch window.
  bool StaysBlocked() { return !Finished(BlockedWindowMs); }

 private:
  static DWORD WINAPI Run(void* self) {
    auto* me = static_cast<CThreadCall*>(self);
    ::SetEvent(me->started);
    me->call();
    ::SetEvent(me->finished);
    return 0;
  }
  std::function<void()> call;
  HANDLE started;
  HANDLE finished;
  HANDLE thread;
};

// Runs `call` on a thread of its own and tells whether it came back in time:
// for calls that a broken queue would block forever.
bool ReturnsInTime(std::function<void()> call) {
  CThreadCall thread(std::move(call));
  return thread.Finished(ReleaseTimeoutMs);
}

// A Get on another thread, with its result.
struct CGetter {
  CGetter(CSyncQueue<int>& queue, int initial)
      : value(initial), call([this, &queue] { result = queue.Get(value); }) {}
  int value;
  bool result = false;
  CThreadCall call;
};

// An element whose copy throws on demand, as a failed growth or copy would.
struct CFragile {
  static bool failCopies;
  int value = 0;
  CFragile(int value = 0) : value(value) {}
  CFragile(const CFragile& other) : value(other.value) {
    if (failCopies) throw 7;
  }
  CFragile& operator=(const CFragile&) = default;
};
bool CFragile::failCopies = false;

}  // namespace

TEST(SyncQueue, GetBlocksUntilAPutFromAnotherThreadAndTakesThatElement) {
  CSyncQueue<int> queue;
  CGetter getter(queue, -1);
  EXPECT_TRUE(getter.call.StaysBlocked());
  // Put from a third thread: a consumer that sleeps holding the lock would
  // block it, and that must fail the test rather than hang it.
  ASSERT_TRUE(ReturnsInTime([&] { queue.Put(42); }));
  ASSERT_TRUE(getter.call.Finished(ReleaseTimeoutMs));
  EXPECT_TRUE(getter.result);
  EXPECT_EQ(42, getter.value);
  EXPECT_EQ(0, queue.GetCount());
}

TEST(SyncQueue, StopWakesEveryWaiterAndEveryLaterGetWithFalseKeepingTheirValues) {
  CSyncQueue<int> queue;
  std::vector<std::unique_ptr<CGetter>> getters;
  for (int i = 0; i < 4; ++i) getters.push_back(std::make_unique<CGetter>(queue, i));
  EXPECT_TRUE(getters[0]->call.StaysBlocked());
  ASSERT_TRUE(ReturnsInTime([&] { queue.Stop(); }));
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(getters[i]->call.Finished(ReleaseTimeoutMs)) << "waiter " << i;
    EXPECT_FALSE(getters[i]->result) << "waiter " << i;
    EXPECT_EQ(i, getters[i]->value) << "waiter " << i;
  }
  // A consumer that comes after the stop falls through as well.
  CGetter late(queue, 9);
  ASSERT_TRUE(late.call.Finished(ReleaseTimeoutMs));
  EXPECT_FALSE(late.result);
  EXPECT_EQ(9, late.value);
}

TEST(SyncQueue, StopDropsNothingGetDeliversTheRestInOrderThenFalse) {
  CSyncQueue<int> queue;
  EXPECT_FALSE(queue.IsStopped());
  queue.Put(1);
  queue.Put(2);
  queue.Put(3);
  queue.Stop();
  EXPECT_TRUE(queue.IsStopped());
  std::vector<int> got;
  std::vector<bool> results;
  CThreadCall drain([&] {
    int value = 0;
    for (int i = 0; i < 4; ++i) {
      value = -1;
      results.push_back(queue.Get(value));
      got.push_back(value);
    }
  });
  ASSERT_TRUE(drain.Finished(ReleaseTimeoutMs));
  EXPECT_EQ((std::vector<bool>{true, true, true, false}), results);
  EXPECT_EQ((std::vector<int>{1, 2, 3, -1}), got);
  int value = 8;
  EXPECT_FALSE(queue.TryGet(value));
  EXPECT_EQ(8, value);
}

TEST(SyncQueue, PutAfterStopAndSecondStopAreInternalErrorsAndLeaveTheLockFree) {
  CSyncQueue<int> queue;
  queue.Put(1);
  queue.Stop();
  EXPECT_EQ("internal:91", Raised([&] { queue.Put(2); }));
  EXPECT_EQ("internal:74", Raised([&] { queue.Stop(); }));
  EXPECT_TRUE(queue.IsStopped());
  // The refused element was not taken, and another thread still gets in:
  // the failures gave the section back on their way out.
  std::vector<int> got;
  CThreadCall drain([&] {
    int value = 0;
    while (queue.Get(value)) got.push_back(value);
  });
  ASSERT_TRUE(drain.Finished(ReleaseTimeoutMs));
  EXPECT_EQ((std::vector<int>{1}), got);
}

TEST(SyncQueue, FailedCopyInPutLeavesTheQueueUnchangedAndUnlocked) {
  CSyncQueue<CFragile> queue;
  queue.Put(CFragile(1));
  CFragile::failCopies = true;
  bool threw = false;
  try {
    queue.Put(CFragile(2));
  } catch (int) {
    threw = true;
  }
  CFragile::failCopies = false;
  EXPECT_TRUE(threw);
  CFragile out;
  bool taken = false;
  CThreadCall other([&] { taken = queue.TryGet(out) && !queue.TryGet(out); });
  ASSERT_TRUE(other.Finished(ReleaseTimeoutMs));
  EXPECT_TRUE(taken);
  EXPECT_EQ(1, out.value);
}

TEST(SyncQueue, GrowsByHalfAtLeastEightKeepsOrderAndNeverShrinks) {
  CSyncQueue<int> queue;
  EXPECT_EQ(0, queue.GetCapacity());
  std::vector<int32_t> capacities;
  for (int i = 0; i < 60; ++i) {
    queue.Put(i);
    if (capacities.empty() || capacities.back() != queue.GetCapacity()) capacities.push_back(queue.GetCapacity());
  }
  EXPECT_EQ((std::vector<int32_t>{8, 16, 24, 36, 54, 81}), capacities);
  // Taking some and putting more crosses no boundary twice: the room only grows.
  int value = -1;
  for (int i = 0; i < 30; ++i) {
    ASSERT_TRUE(queue.TryGet(value));
    EXPECT_EQ(i, value);
  }
  for (int i = 60; i < 100; ++i) queue.Put(i);
  EXPECT_EQ(81, queue.GetCapacity());
  for (int i = 30; i < 100; ++i) {
    ASSERT_TRUE(queue.Get(value));
    ASSERT_EQ(i, value);
  }
  EXPECT_FALSE(queue.TryGet(value));
  EXPECT_EQ(81, queue.GetCapacity());
}

TEST(SyncQueue, HoldsOneReferencePerQueuedElementAndDropsThemAtItsEnd) {
  auto first = std::make_shared<int>(1);
  auto second = std::make_shared<int>(2);
  {
    CSyncQueue<std::shared_ptr<int>> queue;
    // Enough elements to grow twice, so that the moves of growth and of
    // taking from the front are crossed by elements that own something.
    for (int i = 0; i < 10; ++i) queue.Put(first);
    for (int i = 0; i < 10; ++i) queue.Put(second);
    EXPECT_EQ(11, first.use_count());
    std::shared_ptr<int> out = second;
    ASSERT_TRUE(queue.TryGet(out));
    EXPECT_EQ(first, out);
    EXPECT_EQ(11, first.use_count());   // one left the queue, one is in `out`
    EXPECT_EQ(11, second.use_count());  // `out` gave its old one back
    queue.Stop();
  }
  // The queue went with elements still in it; nothing kept them alive.
  EXPECT_EQ(1, first.use_count());
  EXPECT_EQ(1, second.use_count());
}

// Runs `producers` threads putting `perProducer` numbers each against
// `consumers` threads getting, and returns what each consumer took. The stop
// comes only after every element arrived: it would wake a stranded consumer
// and hide a lost wake-up.
static std::vector<std::vector<int>> ProduceAndConsume(int producers, int consumers, int perProducer) {
  const int total = producers * perProducer;
  CSyncQueue<int> queue;
  std::atomic<int> received(0);
  HANDLE allReceived = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::vector<std::vector<int>> taken(consumers);
  std::vector<std::thread> threads;
  for (int c = 0; c < consumers; ++c)
    threads.emplace_back([&, c] {
      int value = 0;
      while (queue.Get(value)) {
        taken[c].push_back(value);
        if (++received == total) ::SetEvent(allReceived);
      }
    });
  for (int p = 0; p < producers; ++p)
    threads.emplace_back([&queue, p, perProducer] {
      for (int i = 0; i < perProducer; ++i) {
        queue.Put(p * perProducer + i);
        // Pauses now and then let the consumers run dry and sleep.
        if (i % 997 == 0) ::Sleep(1);
      }
    });
  EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(allReceived, ReleaseTimeoutMs)) << received << " of " << total;
  ::CloseHandle(allReceived);
  queue.Stop();
  for (auto& thread : threads) thread.join();
  return taken;
}

TEST(SyncQueue, ManyProducersAndConsumersLoseNothingAndKeepEachProducersOrder) {
  // One consumer is the agent's case; several sleeping side by side are
  // where two puts meeting one set event must still wake two of them.
  const int producers = 4, perProducer = 15000;
  for (int consumers : {1, 3}) {
    auto taken = ProduceAndConsume(producers, consumers, perProducer);
    std::set<int> distinct;
    size_t count = 0;
    bool inOrder = true;
    for (auto& part : taken) {
      std::vector<int> last(producers, -1);
      for (int value : part) {
        if (last[value / perProducer] >= value % perProducer) inOrder = false;
        last[value / perProducer] = value % perProducer;
      }
      distinct.insert(part.begin(), part.end());
      count += part.size();
    }
    EXPECT_EQ(size_t(producers * perProducer), count) << consumers << " consumers";
    EXPECT_EQ(count, distinct.size()) << consumers << " consumers";
    EXPECT_TRUE(inOrder) << consumers << " consumers";
  }
}
