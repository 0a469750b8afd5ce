// The allocation front end: memory managers, the per-thread current manager,
// the allocation policies that containers and classes are parameterised by,
// scoped switches of the current manager, and the string allocator's entry.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace Tsl {

// A source of memory. Alloc never returns null: failure is the memory error.
class IMemoryManager {
 public:
  virtual ~IMemoryManager() {}
  virtual void* Alloc(size_t size) = 0;
  virtual void Free(void* block) = 0;
};

// The calling thread's current manager; an empty slot reads as the runtime heap.
IMemoryManager* GetCurrentMemoryManager();
void SetCurrentMemoryManager(IMemoryManager* manager);
// The process's default manager over the C runtime's heap.
IMemoryManager* GetRuntimeHeapManager();

// Allocation policies: template arguments of containers and of CAllocatedOn.
struct CurrentMemoryManager {  // owner's header + current manager; freed by the recorded owner
  static void* Alloc(size_t size);
  static void Free(void* block);
};
struct RuntimeHeap {  // the C runtime's heap
  static void* Alloc(size_t size);
  static void Free(void* block);
};
struct ProcessHeap {  // the process heap, for tables held for the process's life
  static void* Alloc(size_t size);
  static void Free(void* block);
};

// A base class without data that gives a class its own operator new and
// delete from `Policy`, whatever manager is current.
template <class Policy>
class CAllocatedOn {
 public:
  static void* operator new(size_t size) { return Policy::Alloc(size); }
  static void operator delete(void* block) { Policy::Free(block); }
  static void* operator new(size_t, void* place) { return place; }
  static void operator delete(void*, void*) {}
};

// Switches the thread to the runtime-heap manager for the scope's life.
class CRuntimeHeapSwitch {
 public:
  CRuntimeHeapSwitch();
  ~CRuntimeHeapSwitch();
  CRuntimeHeapSwitch(const CRuntimeHeapSwitch&) = delete;
  CRuntimeHeapSwitch& operator=(const CRuntimeHeapSwitch&) = delete;

 private:
  IMemoryManager* saved;
};

// Switches the thread to a given manager for the scope's life.
class CMemoryManagerSwitch {
 public:
  explicit CMemoryManagerSwitch(IMemoryManager* manager);
  ~CMemoryManagerSwitch();
  CMemoryManagerSwitch(const CMemoryManagerSwitch&) = delete;
  CMemoryManagerSwitch& operator=(const CMemoryManagerSwitch&) = delete;

 private:
  IMemoryManager* saved;
};

// The string allocator: every string buffer comes from here, never from the
// current manager. `capacity` receives the block's true size (32, 64 or 128
// for the pools, the size itself above 128), which the buffer records; Free
// picks the pool from that capacity alone.
void* AllocStringBlock(int32_t size, int32_t& capacity);
void FreeStringBlock(void* block, int32_t capacity);

}  // namespace Tsl
