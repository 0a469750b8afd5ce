// Thread objects: each thread's own value, the collection of the values of
// ended threads by the next thread that comes, and first use by many threads
// at once.
#include "threadobject.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using Tsl::CThreadObject;

TEST(ThreadObject, EachThreadHasItsOwnValueOfEachObject) {
  CThreadObject<int32_t> counter(-1);
  counter.Get() = 5;
  int32_t seenThere = 0;
  std::thread([&] {
    seenThere = counter.Get();
    counter.Get() = 7;
  }).join();
  EXPECT_EQ(seenThere, -1);
  EXPECT_EQ(counter.Get(), 5);
  // More objects than a thread's first array holds: it grows under the values.
  std::vector<CThreadObject<int32_t>> objects(40);
  for (int i = 0; i < 40; ++i) objects[i].Get() = i;
  for (int i = 0; i < 40; ++i) EXPECT_EQ(objects[i].Get(), i);
}

// A joined thread has ended as far as the system is concerned.
TEST(ThreadObject, AnEndedThreadsValueStaysUntilAnotherThreadFirstUsesTheObject) {
  CThreadObject<int32_t> object;
  object.Get() = 1;
  std::thread([&] { object.Get() = 2; }).join();
  EXPECT_EQ(object.GetHolderCount(), 2);
  // A thread that has its value already takes the fast road and sweeps nothing.
  EXPECT_EQ(object.Get(), 1);
  EXPECT_EQ(object.GetHolderCount(), 2);
  // The next newcomer collects it; another object's newcomers don't.
  std::thread([&] { EXPECT_EQ(object.Get(), 0); }).join();
  EXPECT_EQ(object.GetHolderCount(), 2);
  CThreadObject<int32_t> other;
  std::thread([&] { other.Get(); }).join();
  EXPECT_EQ(object.GetHolderCount(), 2);
}

TEST(ThreadObject, ManyThreadsCanMakeTheirFirstValueAtOnce) {
  CThreadObject<int32_t> object;
  std::atomic<int> ready(0), wrong(0);
  std::vector<std::thread> running;
  for (int t = 0; t < 16; ++t) {
    running.emplace_back([&] {
      for (++ready; ready < 16;) std::this_thread::yield();
      int32_t& value = object.Get();
      for (int i = 0; i < 1000; ++i) ++object.Get();
      wrong += value != 1000 || &object.Get() != &value;
    });
  }
  for (std::thread& thread : running) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_LE(object.GetHolderCount(), 16);
}
