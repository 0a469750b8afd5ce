// The process-wide part of the thread objects: one thread-local slot that
// holds each thread's array of holder pointers (indexed by the objects' slot
// numbers), and the counter that gives the numbers out. All of it lives on
// the process heap, not on a memory manager, so that any thread may use it
// whatever manager it has current.
#include "threadobject.h"

namespace Tsl {
namespace ThreadObjectDetail {
namespace {

const wchar_t Unit[] = L"threadobject";

// Lines of this unit's internal errors; they identify the check.
const int32_t NoThreadSlotLine = 61;
const int32_t ThreadQueryFailedLine = 120;
const int32_t ThreadHandleRefusedLine = 133;

// One thread's holders, by slot number. A thread that used any thread object
// has one; it is reached through the thread-local slot, and also through the
// process-wide list so that it can be freed once its thread has ended (its
// own thread is the only one that ever reads it).
struct CThreadArray {
  int32_t count;        // entries in `data`
  void** data;          // holder pointers; null where the thread has none
  HANDLE thread;        // the owning thread
  CThreadArray* next;   // the process-wide list
};

// Built at the first use of any thread object, and never destroyed: thread
// objects may be used until the last static destructor has run.
struct CGlobals {
  CGlobals() : tlsIndex(::TlsAlloc()), nextSlot(0), arrays(nullptr) {
    ::InitializeCriticalSection(&lock);
    TSL_ASSERT(tlsIndex != TLS_OUT_OF_INDEXES, Unit, NoThreadSlotLine);
  }
  CRITICAL_SECTION lock;  // guards nextSlot and the list of arrays
  DWORD tlsIndex;         // the thread-local slot holding each CThreadArray
  int32_t nextSlot;       // the next slot number to give out
  CThreadArray* arrays;   // every thread's array, newest first
};

CGlobals& Globals() {
  static CGlobals globals;
  return globals;
}

// The calling thread's array, or null. The thread's last error stays as it
// was: TlsGetValue clears it, and callers of Get() may be between a failed
// call and its GetLastError.
CThreadArray* CurrentArray() {
  CGlobals& globals = Globals();
  DWORD saved = ::GetLastError();
  CThreadArray* array = static_cast<CThreadArray*>(::TlsGetValue(globals.tlsIndex));
  ::SetLastError(saved);
  return array;
}

void FreeArray(CThreadArray* array) {
  ProcessHeap::Free(array->data);
  ::CloseHandle(array->thread);
  ProcessHeap::Free(array);
}

// Frees the arrays of threads that have ended. Called under the lock.
void SweepArrays(CGlobals& globals) {
  CThreadArray** link = &globals.arrays;
  while (*link != nullptr) {
    CThreadArray* array = *link;
    if (HasThreadEnded(array->thread)) {
      *link = array->next;
      FreeArray(array);
    } else {
      link = &array->next;
    }
  }
}

// Makes the calling thread's array, empty, and files it.
CThreadArray* NewArray() {
  CGlobals& globals = Globals();
  CThreadArray* array = static_cast<CThreadArray*>(ProcessHeap::Alloc(sizeof(CThreadArray)));
  array->count = 0;
  array->data = nullptr;
  array->thread = nullptr;
  array->next = nullptr;
  try {
    array->thread = DuplicateCurrentThread();
  } catch (...) {
    ProcessHeap::Free(array);
    throw;
  }
  {
    CScopedLock held(globals.lock);
    SweepArrays(globals);
    array->next = globals.arrays;
    globals.arrays = array;
  }
  ::TlsSetValue(globals.tlsIndex, array);
  return array;
}

}  // namespace

int32_t TakeSlotNumber() {
  CGlobals& globals = Globals();
  CScopedLock held(globals.lock);
  return globals.nextSlot++;
}

void* FindHolder(int32_t slot) {
  CThreadArray* array = CurrentArray();
  if (array == nullptr || slot >= array->count) return nullptr;
  return array->data[slot];
}

void StoreHolder(int32_t slot, void* holder) {
  CThreadArray* array = CurrentArray();
  if (array == nullptr) array = NewArray();
  if (slot >= array->count) {
    // The library's growth rule, so that a thread meeting new objects one
    // by one reallocates rarely.
    int32_t count = GrowCapacity(array->count, slot + 1, 8);
    void** data = static_cast<void**>(ProcessHeap::Alloc(ArrayBytes(count, sizeof(void*))));
    for (int32_t i = 0; i < count; ++i) data[i] = i < array->count ? array->data[i] : nullptr;
    ProcessHeap::Free(array->data);
    array->data = data;
    array->count = count;
  }
  array->data[slot] = holder;
}

void ForgetHolder(int32_t slot) {
  CThreadArray* array = CurrentArray();
  if (array != nullptr && slot < array->count) array->data[slot] = nullptr;
}

HANDLE DuplicateCurrentThread() {
  HANDLE thread = nullptr;
  BOOL made = ::DuplicateHandle(::GetCurrentProcess(), ::GetCurrentThread(), ::GetCurrentProcess(), &thread, 0,
                                FALSE, DUPLICATE_SAME_ACCESS);
  TSL_ASSERT(made, Unit, ThreadHandleRefusedLine);
  return made ? thread : nullptr;
}

bool HasThreadEnded(HANDLE thread) {
  DWORD code = 0;
  BOOL asked = ::GetExitCodeThread(thread, &code);
  TSL_ASSERT(asked, Unit, ThreadQueryFailedLine);
  // A thread that returned 259 looks alive for ever; its holder then stays
  // until the object goes, which loses nothing.
  return asked && code != STILL_ACTIVE;
}

void* AllocHolder(size_t size) { return ProcessHeap::Alloc(size); }

void FreeHolder(void* holder) { ProcessHeap::Free(holder); }

}  // namespace ThreadObjectDetail
}  // namespace Tsl
