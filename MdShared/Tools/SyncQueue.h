// A blocking first-in first-out queue between threads, with a stop protocol
// that wakes every consumer for good. The agent's window thread puts hook
// reports on one and its worker thread takes them off; it has no bound, so a
// hanging consumer costs memory, never the producer's time.
#pragma once

#include <windows.h>
#include <stdint.h>

#include <atomic>

#include "alloc.h"
#include "array.h"
#include "errors.h"

namespace SyncQueueDetail {

// Holds a critical section for the scope's life and leaves it also when an
// exception passes (an internal error, or the memory error while growing).
class CSectionLock {
 public:
  explicit CSectionLock(CRITICAL_SECTION& section) : section(section) { ::EnterCriticalSection(&section); }
  ~CSectionLock() { ::LeaveCriticalSection(&section); }
  CSectionLock(const CSectionLock&) = delete;
  CSectionLock& operator=(const CSectionLock&) = delete;

 private:
  CRITICAL_SECTION& section;
};

}  // namespace SyncQueueDetail

// Any number of threads may put and get. Elements are copied in and assigned
// out; the agent's are reference-counted pointers, so a put costs one
// interlocked increment and no copy of the record.
template <class T>
class CSyncQueue {
 public:
  CSyncQueue() : stopped(false), available(0), waiters(0), wakeUpPending(false) {
    ::InitializeCriticalSectionAndSpinCount(&section, SectionSpinCount);
    // The results aren't checked. Without events a consumer's wait fails at
    // once and it comes round again: it polls instead of sleeping, and
    // nothing is lost.
    dataEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);  // auto-reset: one put wakes one consumer
    stopEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);   // manual-reset: stays set for every consumer
  }

  // Only after Stop and after every thread that calls the queue has returned
  // from its call: the owner stops the queue, waits for its worker without a
  // time-out, and only then destroys it. What is still queued goes with the
  // queue, unread.
  ~CSyncQueue() {
    if (dataEvent != nullptr) ::CloseHandle(dataEvent);
    if (stopEvent != nullptr) ::CloseHandle(stopEvent);
    ::DeleteCriticalSection(&section);
    // The array's own end then drops the elements and frees the buffer.
  }

  CSyncQueue(const CSyncQueue&) = delete;
  CSyncQueue& operator=(const CSyncQueue&) = delete;

  // Appends a copy of `item` and wakes one waiting consumer. Putting after
  // the stop is a programming error (internal error SyncQueue 91) and the
  // item is not taken. Growth follows the arrays' rule (8, 16, 24, 36, 54...)
  // and failing to grow is the memory error; the lock is released either way.
  void Put(const T& item) {
    SyncQueueDetail::CSectionLock lock(section);
    TSL_ASSERT(!stopped.load(std::memory_order_relaxed), L"SyncQueue", 91);
    if (stopped.load(std::memory_order_relaxed)) return;
    // The array grows by allocate, bytewise move of the old elements where
    // the element type allows it, free. Its buffer comes from the runtime
    // heap: the current memory manager is a per-thread choice, and two
    // threads touch this block.
    elements.Add(item);
    available.store(elements.GetSize(), std::memory_order_relaxed);
    // Set while the section is held: once a producer lets go of it, it
    // touches the queue no more, so a consumer that takes this element may
    // stop and destroy the queue at once. The woken consumer meets the held
    // section only for the few instructions left, and spins over them.
    if (TakeWakeUp()) ::SetEvent(dataEvent);
  }

  // Takes the front element into `out`, blocking while the queue is empty
  // and running. After the stop it goes on delivering what is queued, and
  // returns false (leaving `out` untouched) only when stopped and empty.
  bool Get(T& out) {
    SyncQueueDetail::CSectionLock lock(section);
    // The test is repeated after every wake: an auto-reset event can be left
    // set by a put whose element another consumer took already, and a failed
    // wait simply comes round again.
    while (elements.GetSize() == 0 && !stopped.load(std::memory_order_relaxed)) {
      WaitUnlocked();
    }
    // The section is recursive and TryGet takes it again on purpose: the
    // element is taken under the same hold that saw it there.
    bool taken = TryGet(out);
    // Puts that come while a woken consumer is still on its way in don't set
    // the event again, so one wake-up may stand for several elements. The
    // consumer that woke hands it on to the next sleeper.
    if (taken && elements.GetSize() > 0 && TakeWakeUp()) ::SetEvent(dataEvent);
    return taken;
  }

  // Takes the front element into `out` if there is one; never blocks. The
  // rest moves one place down: the queue holds the few reports a hook makes,
  // and a plain array at the front of its buffer is all it needs.
  bool TryGet(T& out) {
    SyncQueueDetail::CSectionLock lock(section);
    if (elements.GetSize() == 0) return false;
    // `out` gains the new reference before it drops the one it held.
    out = elements[0];
    elements.DeleteAt(0, 1);
    available.store(elements.GetSize(), std::memory_order_relaxed);
    return true;
  }

  // Wakes every consumer, present and future, for good. Stopping drops
  // nothing. Stopping twice is a programming error (internal error
  // SyncQueue 74).
  void Stop() {
    SyncQueueDetail::CSectionLock lock(section);
    TSL_ASSERT(!stopped.load(std::memory_order_relaxed), L"SyncQueue", 74);
    stopped.store(true, std::memory_order_release);
    ::SetEvent(stopEvent);
  }

  // Whether Stop was called. Takes no lock: the worker asks before every Get
  // and ends at once, leaving whatever is still queued unread.
  bool IsStopped() const { return stopped.load(std::memory_order_acquire); }

  // Elements queued now; a snapshot for diagnostics.
  int32_t GetCount() const {
    SyncQueueDetail::CSectionLock lock(section);
    return elements.GetSize();
  }

  // Elements room is allocated for. It only grows while the queue lives.
  int32_t GetCapacity() const {
    SyncQueueDetail::CSectionLock lock(section);
    return elements.GetCapacity();
  }

 private:
  // Spinning a little before sleeping on the section keeps a put and a get
  // that meet from both paying for a kernel wait.
  static const DWORD SectionSpinCount = 4000;
  // Rounds a consumer that found the queue empty watches for a put before it
  // goes to sleep: a wake-up through the kernel costs far more than this
  // when the producer is busy on another processor, and little is lost when
  // it isn't.
  static const int32_t WaitSpinRounds = 256;

  // Whether a put (or a consumer handing on) must set `dataEvent`: someone
  // sleeps and no wake-up is on its way to them. Claims that wake-up. Called
  // with the section held. A put that finds nobody waiting has nobody to
  // wake, so while the consumer keeps up no element costs a kernel call; a
  // consumer counts itself in `waiters` before it lets go of the section, so
  // no put that it needs can pass it by.
  bool TakeWakeUp() {
    if (waiters == 0 || wakeUpPending) return false;
    wakeUpPending = true;
    return true;
  }

  // Called with the section held exactly once and the queue empty and
  // running. Watches briefly for a put, then lets go of the section, waits
  // for a put or the stop without a time-out, and takes the section again.
  // The section is never held across either, so a sleeping consumer never
  // blocks a producer. The caller retests its condition in every case.
  void WaitUnlocked() {
    ::LeaveCriticalSection(&section);
    for (int32_t round = 0; round < WaitSpinRounds; ++round) {
      if (available.load(std::memory_order_relaxed) > 0 || stopped.load(std::memory_order_relaxed)) break;
      YieldProcessor();
    }
    ::EnterCriticalSection(&section);
    if (elements.GetSize() > 0 || stopped.load(std::memory_order_relaxed)) return;
    ++waiters;
    ::LeaveCriticalSection(&section);
    HANDLE events[2] = {dataEvent, stopEvent};
    // The result isn't looked at: after a failed wait the caller retests.
    ::WaitForMultipleObjects(2, events, FALSE, INFINITE);
    ::EnterCriticalSection(&section);
    --waiters;
    // A sleeper is back in, so the next put may set the event again. If the
    // stop or a failed wait woke this one instead, the data signal is still
    // set: the next sleeper falls through it and retests, nothing is lost.
    wakeUpPending = false;
  }

  // count, buffer and capacity: the library's array over the runtime heap,
  // guarded by `section`.
  Tsl::CArray<T, Tsl::RuntimeHeap> elements;
  mutable CRITICAL_SECTION section;  // recursive; guards the fields below but the events
  HANDLE dataEvent;                  // auto-reset, unnamed, initially clear
  HANDLE stopEvent;                  // manual-reset, unnamed, initially clear; set once by Stop
  // Set once under the section, never cleared; read without it by IsStopped.
  std::atomic<bool> stopped;
  // The element count again, written under the section and read without it
  // by a consumer watching for a put.
  std::atomic<int32_t> available;
  int32_t waiters;     // consumers between deciding to sleep and taking the section back
  bool wakeUpPending;  // `dataEvent` was set for a sleeper that hasn't come back in yet
};
