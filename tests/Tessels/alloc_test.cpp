// Tests of the allocation front end: which manager a block comes from and goes
// back to, on which thread, what the scoped switches leave in the slot, and
// how an exhausted manager or an impossible size shows.
#include "alloc.h"

#include <gtest/gtest.h>

#include <new>
#include <thread>

#include "AllocatorFakes.h"
#include "errors.h"

using namespace Tsl;
using AllocatorFakes::CCountingManager;

namespace {

// A manager that is always exhausted.
struct CExhaustedManager : IMemoryManager {
  void* Alloc(size_t) override { GenerateMemoryError(); }
  void Free(void*) override {}
};

TEST(CurrentManager, DeleteGoesToTheRecordedOwnerOnAnyThreadAndNullTouchesNoManager) {
  CCountingManager owner, other;
  int* block;
  {
    CMemoryManagerSwitch useOwner(&owner);
    block = new int(7);
  }
  EXPECT_EQ(&owner, GetBlockOwner(block));
  std::thread([&] {
    CMemoryManagerSwitch useOther(&other);
    delete block;
    int* volatile nothing = nullptr;
    delete nothing;
    ::operator delete(nothing, std::align_val_t(64));
    CurrentMemoryManager::Free(nothing);
  }).join();
  EXPECT_EQ(1, owner.allocs);
  EXPECT_EQ(1, owner.frees);
  EXPECT_EQ(0, other.allocs + other.frees);
}

// A new thread's slot is empty and it allocates from the runtime heap; the
// switches read an empty slot back as the runtime manager's address.
TEST(CurrentManager, NewThreadStartsOnTheRuntimeHeapAndSwitchesPutTheSlotBack) {
  CCountingManager elsewhere, outer, inner;
  CMemoryManagerSwitch mainThreadIsElsewhere(&elsewhere);
  std::vector<IMemoryManager*> seen;
  std::thread([&] {
    seen.push_back(GetCurrentMemoryManagerSlot());
    int* block = new int(1);
    seen.push_back(GetCurrentMemoryManager());
    seen.push_back(GetBlockOwner(block));
    delete block;
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
  }).join();
  IMemoryManager* runtime = GetRuntimeHeapManager();
  EXPECT_EQ((std::vector<IMemoryManager*>{nullptr, runtime, runtime, runtime, runtime, &inner,
                                          &outer, runtime}),
            seen);
}

TEST(OwnerHeader, BlocksKeepTheHeapsAlignmentWiderOnesAreHonouredAndRuntimeClassesStayThere) {
  void* block = ::operator new(17);
  EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(block) % (sizeof(void*) == 8 ? 16 : 8));
  ::operator delete(block);
  struct alignas(64) CWide {};
  struct CSurvivor : CAllocatedOn<RuntimeHeap> {};
  CCountingManager counting;
  {
    CMemoryManagerSwitch useCounting(&counting);
    CWide* wide = new CWide;
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(wide) % 64);
    EXPECT_EQ(&counting, GetBlockOwner(wide));
    delete wide;
    delete new CSurvivor;
  }
  EXPECT_EQ(1, counting.allocs);
  EXPECT_EQ(1, counting.frees);
}

// An exhausted manager, and a size that would wrap around with the header
// (it must not reach the manager as a tiny request), raise the memory error,
// which leaves the thread on the runtime heap.
TEST(MemoryError, ExhaustionAndOverflowThrowAndLeaveTheRuntimeHeapButNothrowFormsGiveNull) {
  // A thread of its own: the slot and the error mark it leaves behind stay there.
  std::thread([] {
    CExhaustedManager exhausted;
    CCountingManager counting;
    const struct {
      IMemoryManager* manager;
      size_t size, alignment;
    } rows[] = {
        {&exhausted, sizeof(int), 0},
        {&counting, SIZE_MAX, 0},
        {&counting, SIZE_MAX - OwnerHeaderSize + 1, 0},
        {&counting, SIZE_MAX - 32, 64},
    };
    for (const auto& row : rows) {
      CMemoryException* caught = nullptr;
      SetCurrentMemoryManager(row.manager);
      try {
        // A block that comes back here is leaked: the test has failed anyway.
        (void)(row.alignment ? ::operator new(row.size, std::align_val_t(row.alignment))
                             : ::operator new(row.size));
      } catch (CMemoryException* exception) {
        caught = exception;
      }
      EXPECT_NE(nullptr, caught) << "size " << row.size;
      EXPECT_EQ(GetRuntimeHeapManager(), GetCurrentMemoryManager()) << "size " << row.size;
      delete caught;
    }
    EXPECT_EQ(0, counting.allocs);
    // The nothrow forms give null instead and undo the error route.
    GetThreadErrorState().inError = false;
    SetCurrentMemoryManager(&exhausted);
    void* plain = ::operator new(16, std::nothrow);
    void* aligned = ::operator new(16, std::align_val_t(64), std::nothrow);
    EXPECT_TRUE(plain == nullptr && aligned == nullptr);
    EXPECT_EQ(&exhausted, GetCurrentMemoryManagerSlot());
    EXPECT_FALSE(GetThreadErrorState().inError);
  }).join();
}

}  // namespace
