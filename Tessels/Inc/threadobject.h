// Thread objects: one small private value per thread and per object, without
// a thread-local variable per use and without an exit hook. A thread's values
// are collected by the next thread that makes its first value in the same
// object, once the owner has ended. Everything lives on the process heap.
#pragma once

#include <windows.h>
#include <stdint.h>

#include <new>

#include "alloc.h"
#include "array.h"
#include "errors.h"
#include "scopedlock.h"

namespace Tsl {
namespace ThreadObjectDetail {

// A new slot number for a thread object: 0, 1, 2... for the process's life.
// Numbers are never given back, so a slot can't be read by a later object.
int32_t TakeSlotNumber();
// The calling thread's holder at `slot`, or null. Takes no lock.
void* FindHolder(int32_t slot);
// Files `holder` at `slot` in the calling thread's array, growing it.
void StoreHolder(int32_t slot, void* holder);
// Empties `slot` in the calling thread's array, if the array reaches it.
// Never allocates, so it may run while a failure passes.
void ForgetHolder(int32_t slot);
// A handle of the calling thread that is good in every thread; an internal
// error of unit threadobject when the system refuses one.
HANDLE DuplicateCurrentThread();
// Whether the thread of `thread` has ended; a failed query is an internal
// error of unit threadobject (and reads as still running).
bool HasThreadEnded(HANDLE thread);
// Holder memory from the process heap; failure is the memory error.
void* AllocHolder(size_t size);
void FreeHolder(void* holder);

}  // namespace ThreadObjectDetail

// One value of type T per thread, made at the thread's first Get() from the
// initial value given to the constructor. T is meant to be a few bytes of
// plain data (flags, a counter). Declare one process-wide instance per use;
// it is safe for any thread, and Get() of a thread that has its value takes
// no lock.
template <class T>
class CThreadObject {
 public:
  explicit CThreadObject(const T& initial = T()) : slot(-1), initial(initial) {
    ::InitializeCriticalSection(&lock);
  }
  // Releases every holder still here, with its thread handle.
  ~CThreadObject() {
    for (int32_t i = holders.GetSize() - 1; i >= 0; --i) Release(holders[i]);
    ::DeleteCriticalSection(&lock);
  }
  CThreadObject(const CThreadObject&) = delete;
  CThreadObject& operator=(const CThreadObject&) = delete;

  // The calling thread's value, made at its first call.
  T& Get() {
    int32_t number = GetSlot();
    CHolder* holder = static_cast<CHolder*>(ThreadObjectDetail::FindHolder(number));
    if (holder != nullptr) return holder->value;
    return MakeHolder(number)->value;
  }

  // Holders kept for threads, living or ended and not yet collected.
  int32_t GetHolderCount() {
    CScopedLock held(lock);
    return holders.GetSize();
  }

 private:
  struct CHolder {
    T value;
    HANDLE threadHandle;  // the owning thread, to learn when it has ended
  };

  // The slot number, taken at the first use of the object.
  int32_t GetSlot() {
    if (slot < 0) {
      CScopedLock held(lock);
      if (slot < 0) ::InterlockedExchange(&slot, ThreadObjectDetail::TakeSlotNumber());
    }
    return slot;
  }

  // The calling thread's first value: collects the holders of ended threads,
  // then files a new one both in the thread's own array and in `holders`.
  CHolder* MakeHolder(int32_t number) {
    Sweep();
    CHolder* holder = static_cast<CHolder*>(ThreadObjectDetail::AllocHolder(sizeof(CHolder)));
    new (holder) CHolder{initial, nullptr};
    try {
      holder->threadHandle = ThreadObjectDetail::DuplicateCurrentThread();
      ThreadObjectDetail::StoreHolder(number, holder);
      CScopedLock held(lock);
      holders.Add(holder);
    } catch (...) {
      // Out of memory filing it: the thread's array may already point at the
      // holder, so take it out before the holder goes.
      ThreadObjectDetail::ForgetHolder(number);
      Release(holder);
      throw;
    }
    return holder;
  }

  // Releases the holders of threads that have ended, from last to first.
  void Sweep() {
    CScopedLock held(lock);
    for (int32_t i = holders.GetSize() - 1; i >= 0; --i) {
      // A holder without a handle (the system refused one, and the failure
      // returned) can't be asked about; it stays until the object goes.
      HANDLE thread = holders[i]->threadHandle;
      if (thread == nullptr || !ThreadObjectDetail::HasThreadEnded(thread)) continue;
      Release(holders[i]);
      holders.DeleteAt(i);
    }
  }

  static void Release(CHolder* holder) {
    if (holder->threadHandle != nullptr) ::CloseHandle(holder->threadHandle);
    holder->~CHolder();
    ThreadObjectDetail::FreeHolder(holder);
  }

  volatile LONG slot;                      // -1 until the first use
  CArray<CHolder*, ProcessHeap> holders;   // every holder made and not collected
  CRITICAL_SECTION lock;                   // guards `slot`'s first setting and `holders`
  T initial;                               // what a thread's value starts as
};

}  // namespace Tsl
