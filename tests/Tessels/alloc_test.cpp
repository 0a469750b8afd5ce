// Tests of the allocation front end: which manager a block comes from and goes
// back to, on which thread, what the scoped switches leave in the slot, how an
// exhausted manager shows, and where the allocators' diagnostics go.
#include <gtest/gtest.h>
#include <windows.h>
#include <stdint.h>

#include <atomic>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "alloc.h"
#include "errors.h"
#include "tessels.h"

using namespace Tsl;

namespace {

// A manager over the runtime heap that counts its calls, from any thread.
class CCountingManager : public IMemoryManager {
 public:
  void* Alloc(size_t size) override {
    ++allocs;
    return malloc(size);
  }
  void Free(void* block) override {
    ++frees;
    free(block);
  }
  std::atomic<int> allocs{0};
  std::atomic<int> frees{0};
};

// A manager that is always exhausted.
class CExhaustedManager : public IMemoryManager {
 public:
  void* Alloc(size_t) override { GenerateMemoryError(); }
  void Free(void*) override {}
};

// Puts the thread's slot, error mark and debug flags back after a test.
class CThreadStateGuard {
 public:
  ~CThreadStateGuard() {
    SetCurrentMemoryManager(slot);
    GetThreadErrorState().inError = inError;
    SetDebugFlags(flags);
  }
  IMemoryManager* slot = GetCurrentMemoryManagerSlot();
  bool inError = GetThreadErrorState().inError;
  uint32_t flags = GetDebugFlags();
};

// Runs `work` on a thread of its own and waits for it.
template <class Work>
void OnNewThread(Work work) {
  std::thread thread(work);
  thread.join();
}

}  // namespace

TEST(CurrentManager, DeleteGoesToTheRecordedOwnerOnAnyThreadUnderAnyManager) {
  CCountingManager owner, other;
  int* block;
  {
    CMemoryManagerSwitch useOwner(&owner);
    block = new int(7);
  }
  EXPECT_EQ(1, owner.allocs);
  EXPECT_EQ(&owner, GetBlockOwner(block));
  OnNewThread([&] {
    CMemoryManagerSwitch useOther(&other);
    delete block;
  });
  EXPECT_EQ(1, owner.frees);
  EXPECT_EQ(0, other.allocs + other.frees);
}

TEST(CurrentManager, DeleteOfNullTouchesNoManager) {
  CCountingManager counting;
  {
    CMemoryManagerSwitch useCounting(&counting);
    int* volatile nothing = nullptr;
    delete nothing;
    ::operator delete(nothing);
    ::operator delete[](nothing);
    ::operator delete(nothing, sizeof(int));
    ::operator delete(nothing, std::align_val_t(64));
    CurrentMemoryManager::Free(nothing);
  }
  EXPECT_EQ(0, counting.allocs + counting.frees);
}

TEST(CurrentManager, NewThreadAllocatesFromTheRuntimeHeap) {
  CCountingManager counting;
  CMemoryManagerSwitch mainThreadIsElsewhere(&counting);
  IMemoryManager* slot = &counting;
  IMemoryManager* current = nullptr;
  IMemoryManager* owner = nullptr;
  std::thread thread([&] {
    slot = GetCurrentMemoryManagerSlot();
    current = GetCurrentMemoryManager();
    int* block = new int(1);
    owner = GetBlockOwner(block);
    delete block;
  });
  thread.join();
  EXPECT_EQ(nullptr, slot);
  EXPECT_EQ(GetRuntimeHeapManager(), current);
  EXPECT_EQ(GetRuntimeHeapManager(), owner);
}

TEST(ScopedSwitch, EmptySlotComesBackAsTheRuntimeManagersAddress) {
  CCountingManager outer, inner;
  std::vector<IMemoryManager*> seen;
  OnNewThread([&] {
    seen.reserve(6);
    seen.push_back(GetCurrentMemoryManagerSlot());
    {
      CRuntimeHeapSwitch onRuntimeHeap;
      seen.push_back(GetCurrentMemoryManagerSlot());
    }
    seen.push_back(GetCurrentMemoryManagerSlot());
    SetCurrentMemoryManager(nullptr);
    {
      CMemoryManagerSwitch useOuter(&outer);
      {
        CMemoryManagerSwitch useInner(&inner);
        seen.push_back(GetCurrentMemoryManagerSlot());
      }
      seen.push_back(GetCurrentMemoryManagerSlot());
    }
    seen.push_back(GetCurrentMemoryManagerSlot());
  });
  IMemoryManager* runtime = GetRuntimeHeapManager();
  std::vector<IMemoryManager*> expected = {nullptr, runtime, runtime, &inner, &outer, runtime};
  EXPECT_EQ(expected, seen);
}

TEST(OwnerHeader, BlocksKeepTheRuntimeHeapsAlignmentAndWiderAlignmentsAreHonoured) {
  const uintptr_t heapAlignment = sizeof(void*) == 8 ? 16 : 8;
  for (size_t size : {0u, 1u, 8u, 15u, 16u, 17u, 100u, 4096u}) {
    void* block = ::operator new(size);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(block) % heapAlignment) << "size " << size;
    ::operator delete(block);
  }
  struct alignas(64) CWide {
    char bytes[64];
  };
  CCountingManager counting;
  CWide* wide;
  {
    CMemoryManagerSwitch useCounting(&counting);
    wide = new CWide;
  }
  EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(wide) % 64);
  EXPECT_EQ(&counting, GetBlockOwner(wide));
  delete wide;
  EXPECT_EQ(1, counting.allocs);
  EXPECT_EQ(1, counting.frees);
}

TEST(OwnerHeader, ClassesOnTheRuntimeHeapIgnoreTheCurrentManager) {
  struct CSurvivor : CAllocatedOn<RuntimeHeap> {
    int value = 3;
  };
  CCountingManager counting;
  CSurvivor* survivor;
  {
    CMemoryManagerSwitch useCounting(&counting);
    survivor = new CSurvivor;
    delete survivor;
    survivor = new CSurvivor[2];
    delete[] survivor;
  }
  EXPECT_EQ(0, counting.allocs + counting.frees);
}

TEST(MemoryError, ExhaustedManagerThrowsTheMemoryExceptionAndLeavesTheThreadOnTheRuntimeHeap) {
  CThreadStateGuard restore;
  CExhaustedManager exhausted;
  CMemoryException* caught = nullptr;
  SetCurrentMemoryManager(&exhausted);
  try {
    void* never = ::operator new(sizeof(int));
    ::operator delete(never);
  } catch (CMemoryException* exception) {
    caught = exception;
  }
  IMemoryManager* afterwards = GetCurrentMemoryManager();
  SetCurrentMemoryManager(nullptr);
  ASSERT_NE(nullptr, caught);
  delete caught;
  EXPECT_EQ(GetRuntimeHeapManager(), afterwards);
}

TEST(MemoryError, NothrowNewGivesNullAndUndoesTheErrorRoute) {
  CThreadStateGuard restore;
  CExhaustedManager exhausted;
  GetThreadErrorState().inError = false;
  SetCurrentMemoryManager(&exhausted);
  void* plain = ::operator new(16, std::nothrow);
  void* array = ::operator new[](16, std::nothrow);
  void* aligned = ::operator new(16, std::align_val_t(64), std::nothrow);
  IMemoryManager* afterwards = GetCurrentMemoryManagerSlot();
  SetCurrentMemoryManager(nullptr);
  EXPECT_EQ(nullptr, plain);
  EXPECT_EQ(nullptr, array);
  EXPECT_EQ(nullptr, aligned);
  EXPECT_EQ(&exhausted, afterwards);
  EXPECT_FALSE(GetThreadErrorState().inError);
}

// A size whose header would wrap around must not reach the manager as a tiny
// request.
TEST(MemoryError, SizesThatOverflowWithTheHeaderAreTheMemoryError) {
  CThreadStateGuard restore;
  const size_t sizes[] = {SIZE_MAX, SIZE_MAX - OwnerHeaderSize + 1};
  for (size_t size : sizes) {
    CCountingManager counting;
    CMemoryException* caught = nullptr;
    SetCurrentMemoryManager(&counting);
    try {
      void* never = ::operator new(size);
      ::operator delete(never);
    } catch (CMemoryException* exception) {
      caught = exception;
    }
    try {
      void* never = ::operator new(size - 32, std::align_val_t(64));
      ::operator delete(never, std::align_val_t(64));
    } catch (CMemoryException* exception) {
      delete caught;
      caught = exception;
    }
    SetCurrentMemoryManager(nullptr);
    EXPECT_NE(nullptr, caught) << "size " << size;
    EXPECT_EQ(0, counting.allocs) << "size " << size;
    delete caught;
  }
}

TEST(Policies, ProcessHeapBlocksComeFromTheProcessHeap) {
  void* block = ProcessHeap::Alloc(24);
  EXPECT_TRUE(HeapValidate(GetProcessHeap(), 0, block));
  EXPECT_EQ(24u, HeapSize(GetProcessHeap(), 0, block));
  ProcessHeap::Free(block);
  ProcessHeap::Free(nullptr);
}

// ---------------------------------------------------------------------------
// Diagnostics

namespace {

std::vector<std::pair<EAllocatorOutput, std::wstring>> captured;

int Capture(EAllocatorOutput output, const wchar_t* text) {
  captured.emplace_back(output, text);
  return IDOK;
}

class CCaptureOutput {
 public:
  CCaptureOutput() : previous(BindAllocatorOutputSink(Capture)) { captured.clear(); }
  ~CCaptureOutput() { BindAllocatorOutputSink(previous); }

 private:
  AllocatorOutputSink previous;
};

}  // namespace

TEST(Diagnostics, TraceGoesWhereTheFlagsSay) {
  struct {
    uint32_t flags;
    size_t outputs;
    EAllocatorOutput output;
  } const rows[] = {
      {DefaultDebugFlags, 1, AO_DebugOutput},
      {DefaultDebugFlags | DF_QuietDebugTrace, 0, AO_DebugOutput},
      {DefaultDebugFlags | DF_ReportMemoryErrorInMessageBox, 1, AO_MessageBox},
      {DefaultDebugFlags | DF_ReportMemoryErrorInMessageBox | DF_QuietDebugTrace, 1, AO_MessageBox},
  };
  CThreadStateGuard restore;
  CCaptureOutput capture;
  for (const auto& row : rows) {
    captured.clear();
    SetDebugFlags(row.flags);
    TraceAllocatorMessage(L"block %d of %ls\n", 3, L"heap");
    SetDebugFlags(restore.flags);
    ASSERT_EQ(row.outputs, captured.size()) << "flags " << std::hex << row.flags;
    if (row.outputs) {
      EXPECT_EQ(row.output, captured[0].first) << "flags " << std::hex << row.flags;
      EXPECT_EQ(L"block 3 of heap\n", captured[0].second);
    }
  }
}

TEST(Diagnostics, LongTracesAreNotCut) {
  CThreadStateGuard restore;
  SetDebugFlags(DefaultDebugFlags);
  CCaptureOutput capture;
  std::wstring longText(3000, L'x');
  TraceAllocatorMessage(L"[%ls]", longText.c_str());
  ASSERT_EQ(1u, captured.size());
  EXPECT_EQ(L"[" + longText + L"]", captured[0].second);
}
