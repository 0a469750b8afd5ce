// The allocation front end: the per-thread current manager in a TLS slot, the
// owner's header in front of every block of the current-manager path, the
// allocation policies, the global operator new and delete, the scoped
// switches, and the diagnostics the allocators share.
#include "alloc.h"

#include <windows.h>
#include <stdarg.h>
#include <stdlib.h>
#include <wchar.h>

#include <new>

#include "errors.h"
#include "privateallocators.h"
#include "tessels.h"

namespace Tsl {

namespace {

// The runtime-heap manager is constant-initialised, so it exists before any
// static initialiser runs, and it sits in a union whose destructor does not
// destroy it: code that runs after the static destructors (the runtime's own
// exit handlers, a detached thread) may still allocate and free through it.
union CRuntimeHeapHolder {
  constexpr CRuntimeHeapHolder() : manager() {}
  ~CRuntimeHeapHolder() {}
  CRuntimeHeapManager manager;
};
CRuntimeHeapHolder runtimeHeap;

// The TLS slot of the current manager. It reads as "no slot" until the
// initialiser below has run; every reader treats "no slot" as an empty slot,
// which is the runtime heap, so allocation during early static initialisation
// works without a slot.
DWORD volatile managerSlot = TLS_OUT_OF_INDEXES;

// Allocates the slot before any ordinary static initialiser of the program
// (priority 101 runs ahead of all unprioritised ones), so that no static
// object can switch managers before the slot exists, and frees it after the
// last static destructor. A failed TlsAlloc leaves the process without
// per-thread managers: everything then runs on the runtime heap.
struct CManagerSlotLifetime {
  CManagerSlotLifetime() {
    DWORD slot = ::TlsAlloc();
    if (slot == TLS_OUT_OF_INDEXES) ::OutputDebugStringW(L"Not enough TLS indices\n");
    managerSlot = slot;
  }
  ~CManagerSlotLifetime() {
    DWORD slot = managerSlot;
    managerSlot = TLS_OUT_OF_INDEXES;
    if (slot != TLS_OUT_OF_INDEXES) ::TlsFree(slot);
  }
};
CManagerSlotLifetime managerSlotLifetime __attribute__((init_priority(101)));

// Reads the slot. TlsGetValue clears the thread's last error on success;
// operator new runs between a failing system call and the GetLastError that
// reads it often enough that it must leave the error alone.
inline IMemoryManager* ReadSlot() {
  DWORD slot = managerSlot;
  if (slot == TLS_OUT_OF_INDEXES) return nullptr;
  DWORD error = ::GetLastError();
  void* value = ::TlsGetValue(slot);
  ::SetLastError(error);
  return static_cast<IMemoryManager*>(value);
}

inline void WriteSlot(IMemoryManager* manager) {
  DWORD slot = managerSlot;
  if (slot != TLS_OUT_OF_INDEXES) ::TlsSetValue(slot, manager);
}

// The owner's header: the manager, and the start of what the manager gave.
// That is the header itself, except in blocks aligned beyond the header's
// alignment, where the user's block lies at some distance into it.
struct COwnerHeader {
  IMemoryManager* owner;
  void* start;
};
static_assert(sizeof(COwnerHeader) == OwnerHeaderSize, "the header is two pointer-sized words");

// Allocates `size` bytes from the current manager behind an owner's header.
// Fails with the memory error, also when the size with its header overflows.
void* AllocWithOwner(size_t size) {
  IMemoryManager* manager = GetCurrentMemoryManager();
  if (size > SIZE_MAX - OwnerHeaderSize) GenerateMemoryError();
  COwnerHeader* header = static_cast<COwnerHeader*>(manager->Alloc(size + OwnerHeaderSize));
  if (!header) GenerateMemoryError();
  header->owner = manager;
  header->start = header;
  return header + 1;
}

// Gives a block of the current-manager path back to the manager that made it,
// whichever manager is current now and on whichever thread.
void FreeWithOwner(void* block) {
  if (!block) return;
  COwnerHeader* header = static_cast<COwnerHeader*>(block) - 1;
  header->owner->Free(header->start);
}

// The same for alignments above the header's: the manager is asked for enough
// room to place an aligned block behind a header anywhere in it.
void* AllocAlignedWithOwner(size_t size, size_t alignment) {
  if (alignment <= OwnerHeaderSize) return AllocWithOwner(size);
  IMemoryManager* manager = GetCurrentMemoryManager();
  if (size > SIZE_MAX - OwnerHeaderSize - alignment) GenerateMemoryError();
  void* start = manager->Alloc(size + OwnerHeaderSize + alignment);
  if (!start) GenerateMemoryError();
  uintptr_t user = (reinterpret_cast<uintptr_t>(start) + OwnerHeaderSize + alignment - 1) & ~(alignment - 1);
  COwnerHeader* header = reinterpret_cast<COwnerHeader*>(user) - 1;
  header->owner = manager;
  header->start = start;
  return reinterpret_cast<void*>(user);
}

// The nothrow forms of operator new keep their promise to callers written for
// them (the standard library's temporary buffers, for one): an exhausted
// manager gives null, not the system's memory exception. The memory error
// switched the thread to the runtime heap and marked it as being in error;
// both are undone, since nobody will see this failure as an error.
template <class Allocate>
void* AllocOrNull(Allocate allocate) noexcept {
  IMemoryManager* slot = ReadSlot();
  bool wasInError = GetThreadErrorState().inError;
  try {
    return allocate();
  } catch (CMemoryException* exception) {
    delete exception;
    WriteSlot(slot);
    GetThreadErrorState().inError = wasInError;
    return nullptr;
  }
}

}  // namespace

IMemoryManager* GetRuntimeHeapManager() { return &runtimeHeap.manager; }

IMemoryManager* GetCurrentMemoryManager() {
  IMemoryManager* manager = ReadSlot();
  return manager ? manager : &runtimeHeap.manager;
}

IMemoryManager* GetCurrentMemoryManagerSlot() { return ReadSlot(); }

void SetCurrentMemoryManager(IMemoryManager* manager) { WriteSlot(manager); }

IMemoryManager* GetBlockOwner(const void* block) {
  TSL_ASSERT(block != nullptr, L"alloc", 110);
  if (!block) return nullptr;
  return (static_cast<const COwnerHeader*>(block) - 1)->owner;
}

void* CurrentMemoryManager::Alloc(size_t size) { return AllocWithOwner(size); }
void CurrentMemoryManager::Free(void* block) { FreeWithOwner(block); }

void* RuntimeHeap::Alloc(size_t size) { return runtimeHeap.manager.Alloc(size); }
void RuntimeHeap::Free(void* block) { runtimeHeap.manager.Free(block); }

void* ProcessHeap::Alloc(size_t size) {
  void* block = ::HeapAlloc(::GetProcessHeap(), 0, size);
  if (!block) GenerateMemoryError();
  return block;
}

void ProcessHeap::Free(void* block) {
  if (!block) return;
  BOOL freed = ::HeapFree(::GetProcessHeap(), 0, block);
  TSL_ASSERT_LAST_ERROR(freed, L"alloc", 130);
}

// An empty slot is saved as the runtime-heap manager itself, so after the
// scope the slot holds that manager's address rather than null; both read the
// same.
CRuntimeHeapSwitch::CRuntimeHeapSwitch() : saved(GetCurrentMemoryManager()) {
  WriteSlot(&runtimeHeap.manager);
}
CRuntimeHeapSwitch::~CRuntimeHeapSwitch() { WriteSlot(saved); }

// Consults no debug flag: DF_EnableHeapSwitching is kept for the registry's
// sake, and switching is always on.
CMemoryManagerSwitch::CMemoryManagerSwitch(IMemoryManager* manager) : saved(GetCurrentMemoryManager()) {
  WriteSlot(manager);
}
CMemoryManagerSwitch::~CMemoryManagerSwitch() { WriteSlot(saved); }

uint32_t GetSystemPageSize() {
  static uint32_t volatile pageSize = 0;  // 0 until first asked; a race only asks twice
  uint32_t size = pageSize;
  if (size == 0) {
    SYSTEM_INFO info;
    ::GetSystemInfo(&info);
    size = info.dwPageSize;
    TSL_ASSERT(size != 0, L"alloc", 140);
    // Past a failed check the common page size keeps the callers' arithmetic sane.
    if (size == 0) size = 4096;
    pageSize = size;
  }
  return size;
}

// ---------------------------------------------------------------------------
// Diagnostics

namespace {

AllocatorOutputSink volatile outputSink = nullptr;
LONG volatile leakReportCount = 0;

// A text formatted into a stack buffer of 512 units, or when that is too
// small into runtime-heap buffers of twice the size each time. A text that
// cannot be formatted at all (or would pass a million units) is cut.
class CFormattedText {
 public:
  CFormattedText(const wchar_t* format, va_list arguments) : heapBuffer(nullptr) {
    wchar_t* buffer = stackBuffer;
    size_t capacity = StackUnits;
    for (;;) {
      va_list copy;
      va_copy(copy, arguments);
      int written = ::_vsnwprintf(buffer, capacity, format, copy);
      va_end(copy);
      if (written >= 0 && static_cast<size_t>(written) < capacity) break;
      // The bounded formatter leaves a cut text without its terminator.
      buffer[capacity - 1] = L'\0';
      if (capacity >= MaxUnits) break;
      wchar_t* larger = static_cast<wchar_t*>(::malloc(capacity * 2 * sizeof(wchar_t)));
      if (!larger) break;  // no memory left: the cut text is the best there is
      ::free(heapBuffer);
      heapBuffer = larger;
      buffer = larger;
      capacity *= 2;
    }
    text = buffer;
  }
  ~CFormattedText() { ::free(heapBuffer); }
  CFormattedText(const CFormattedText&) = delete;
  CFormattedText& operator=(const CFormattedText&) = delete;

  const wchar_t* Text() const { return text; }

 private:
  static const size_t StackUnits = 512;
  static const size_t MaxUnits = 1 << 20;
  wchar_t stackBuffer[StackUnits];
  wchar_t* heapBuffer;
  const wchar_t* text;
};

// Hands a finished text to the bound sink or to the system.
int Emit(EAllocatorOutput output, const wchar_t* text) {
  AllocatorOutputSink sink = outputSink;
  if (sink) return sink(output, text);
  if (output == AO_MessageBox) return ::MessageBoxW(nullptr, text, L"Tessels", MB_OKCANCEL | MB_ICONSTOP);
  ::OutputDebugStringW(text);
  return IDOK;
}

// A box of OK and Cancel; Cancel is the way into the debugger.
void ShowBox(const wchar_t* text) {
  if (Emit(AO_MessageBox, text) == IDCANCEL) ::DebugBreak();
}

void TraceText(const wchar_t* text) {
  if (IsDebugFlagSet(DF_ReportMemoryErrorInMessageBox))
    ShowBox(text);
  else if (!IsDebugFlagSet(DF_QuietDebugTrace))
    Emit(AO_DebugOutput, text);
}

// Writes "0x" and the address, and " (" module file ")" when the address lies
// in committed memory of a loaded module, into `out` of `units` units.
void DescribeAddress(const void* address, wchar_t* out, size_t units) {
  ::_snwprintf(out, units, L"0x%p", address);
  out[units - 1] = L'\0';
  MEMORY_BASIC_INFORMATION region;
  if (::VirtualQuery(address, &region, sizeof region) != sizeof region || region.State != MEM_COMMIT) return;
  wchar_t moduleName[261];
  DWORD length = ::GetModuleFileNameW(static_cast<HMODULE>(region.AllocationBase), moduleName, 261);
  if (length == 0 || length >= 261) return;
  size_t used = ::wcslen(out);
  ::_snwprintf(out + used, units - used, L" (%ls)", moduleName);
  out[units - 1] = L'\0';
}

// Unlocks a locked heap however the walk ends.
class CHeapLockHolder {
 public:
  explicit CHeapLockHolder(HANDLE heap) : heap(heap) {}
  ~CHeapLockHolder() { ::HeapUnlock(heap); }
  CHeapLockHolder(const CHeapLockHolder&) = delete;
  CHeapLockHolder& operator=(const CHeapLockHolder&) = delete;

 private:
  HANDLE heap;
};

void TraceBusyBlocks(HANDLE heap) {
  BOOL locked = ::HeapLock(heap);
  TSL_ASSERT_LAST_ERROR(locked, L"alloc", 150);
  if (!locked) return;
  CHeapLockHolder unlockAtEnd(heap);
  PROCESS_HEAP_ENTRY entry;
  entry.lpData = nullptr;
  while (::HeapWalk(heap, &entry)) {
    if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY)
      TraceAllocatorMessage(L"Undeleted memory block in heap manager. Address: %p\n", entry.lpData);
  }
}

}  // namespace

void TraceAllocatorMessage(const wchar_t* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  CFormattedText text(format, arguments);
  va_end(arguments);
  TraceText(text.Text());
}

AllocatorOutputSink BindAllocatorOutputSink(AllocatorOutputSink sink) {
  AllocatorOutputSink previous = outputSink;
  outputSink = sink;
  return previous;
}

// Runs inside a switch to the runtime heap: the heap being reported is about
// to go, and nothing the report makes may land in it or in any other private
// heap of the thread.
void ReportHeapLeaks(void* heap, const void* manager, int32_t blockCount) {
  if (blockCount == 0) return;
  CRuntimeHeapSwitch onRuntimeHeap;
  ::InterlockedIncrement(&leakReportCount);
  if (IsDebugFlagSet(DF_WalkLeakedBlocks)) TraceBusyBlocks(heap);
  if (IsDebugFlagSet(DF_ShowHeapMemoryLeaks)) {
    wchar_t where[300];
    DescribeAddress(manager, where, 300);
    wchar_t text[400];
    ::_snwprintf(text, 400, L"Internal error: memory leak.\n\nHeap 0x%p ( CHeapManager object at %ls ) is not empty.",
                 heap, where);
    text[399] = L'\0';
    ShowBox(text);
  }
}

int32_t GetHeapLeakReportCount() { return leakReportCount; }

// HeapSetInformation is looked up by name so that the library still loads on
// a system whose kernel lacks it; systems before NT 5.1 have no
// low-fragmentation mode at all and are left alone.
void RequestLowFragmentationHeap(void* heap) {
  DWORD version = ::GetVersion();
  bool isNt = (version & 0x80000000) == 0;
  DWORD major = LOBYTE(LOWORD(version));
  DWORD minor = HIBYTE(LOWORD(version));
  if (!isNt || major < 5 || (major == 5 && minor < 1)) return;
  typedef BOOL(WINAPI * SetHeapInformation)(HANDLE, int, void*, SIZE_T);
  HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
  FARPROC function = kernel ? ::GetProcAddress(kernel, "HeapSetInformation") : nullptr;
  TSL_ASSERT(function != nullptr, L"alloc", 160);
  if (!function) return;
  ULONG mode = 2;                      // the low-fragmentation heap
  const int compatibilityClass = 0;    // HeapCompatibilityInformation
  reinterpret_cast<SetHeapInformation>(reinterpret_cast<void*>(function))(heap, compatibilityClass, &mode,
                                                                           sizeof mode);
}

}  // namespace Tsl

// ---------------------------------------------------------------------------
// The global operators: every plain new of the program goes through the
// thread's current manager, and every delete back to the manager recorded in
// the block, so objects may be freed on any thread under any manager.

void* operator new(size_t size) { return Tsl::AllocWithOwner(size); }
void* operator new[](size_t size) { return Tsl::AllocWithOwner(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return Tsl::AllocOrNull([size] { return Tsl::AllocWithOwner(size); });
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return Tsl::AllocOrNull([size] { return Tsl::AllocWithOwner(size); });
}
void operator delete(void* block) noexcept { Tsl::FreeWithOwner(block); }
void operator delete[](void* block) noexcept { Tsl::FreeWithOwner(block); }
void operator delete(void* block, size_t) noexcept { Tsl::FreeWithOwner(block); }
void operator delete[](void* block, size_t) noexcept { Tsl::FreeWithOwner(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { Tsl::FreeWithOwner(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { Tsl::FreeWithOwner(block); }

void* operator new(size_t size, std::align_val_t alignment) {
  return Tsl::AllocAlignedWithOwner(size, static_cast<size_t>(alignment));
}
void* operator new[](size_t size, std::align_val_t alignment) {
  return Tsl::AllocAlignedWithOwner(size, static_cast<size_t>(alignment));
}
void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return Tsl::AllocOrNull([=] { return Tsl::AllocAlignedWithOwner(size, static_cast<size_t>(alignment)); });
}
void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return Tsl::AllocOrNull([=] { return Tsl::AllocAlignedWithOwner(size, static_cast<size_t>(alignment)); });
}
void operator delete(void* block, std::align_val_t) noexcept { Tsl::FreeWithOwner(block); }
void operator delete[](void* block, std::align_val_t) noexcept { Tsl::FreeWithOwner(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { Tsl::FreeWithOwner(block); }
void operator delete[](void* block, size_t, std::align_val_t) noexcept { Tsl::FreeWithOwner(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  Tsl::FreeWithOwner(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  Tsl::FreeWithOwner(block);
}
