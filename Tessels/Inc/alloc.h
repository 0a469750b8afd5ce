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
// Null empties the slot, which is the same as the runtime heap.
void SetCurrentMemoryManager(IMemoryManager* manager);
// The slot itself, null when empty: for diagnostics and tests.
IMemoryManager* GetCurrentMemoryManagerSlot();
// The process's default manager over the C runtime's heap.
IMemoryManager* GetRuntimeHeapManager();

// Bytes in front of every block of the CurrentMemoryManager path (and of the
// global operator new): the owning manager, and the start of the manager's
// block, which differs from the header only in over-aligned blocks. Two
// pointer-sized words keep the user's block at the alignment the runtime heap
// gives: 8 bytes in the 32-bit build, and 16 in the 64-bit one, where the
// compiler and 16-byte vector moves count on every new block having it.
const size_t OwnerHeaderSize = 2 * sizeof(void*);
// The manager recorded in front of a block of the CurrentMemoryManager path.
IMemoryManager* GetBlockOwner(const void* block);

// The system's page size, asked once and kept.
uint32_t GetSystemPageSize();

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
  static void* operator new[](size_t size) { return Policy::Alloc(size); }
  static void operator delete[](void* block) { Policy::Free(block); }
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

// Diagnostics of the allocators. A trace goes to a message box (OK and
// Cancel, where Cancel breaks into the debugger) while the debug flag
// DF_ReportMemoryErrorInMessageBox is set, otherwise to the debug output
// unless DF_QuietDebugTrace silences it. `format` is a printf format of wide
// text (%ls for a wide string); the text may be of any length.
void TraceAllocatorMessage(const wchar_t* format, ...);

// Where the allocators' traces and message boxes end up. Normally the debug
// output and real boxes; a test binds a sink to see them, and no box appears.
enum EAllocatorOutput : int32_t {
  AO_DebugOutput = 0,
  AO_MessageBox = 1,  // flags 0x11 (OK and Cancel, stop icon), title "Tessels"
};
// Receives one finished text; for a box its result is taken as the box's
// answer (IDOK or IDCANCEL). Returns the sink it replaced; null unbinds.
typedef int (*AllocatorOutputSink)(EAllocatorOutput output, const wchar_t* text);
AllocatorOutputSink BindAllocatorOutputSink(AllocatorOutputSink sink);

// The leak report of a private heap that still holds `blockCount` blocks as
// its owner `manager` goes: traces every busy block when DF_WalkLeakedBlocks
// is set, and shows a box when DF_ShowHeapMemoryLeaks is set. Nothing at all
// for a count of 0.
void ReportHeapLeaks(void* heap, const void* manager, int32_t blockCount);
// Leak reports made so far in the process (those with blocks left).
int32_t GetHeapLeakReportCount();

// Asks the system to run `heap` in its low-fragmentation mode, where the
// system has one; the answer is not looked at.
void RequestLowFragmentationHeap(void* heap);

}  // namespace Tsl
