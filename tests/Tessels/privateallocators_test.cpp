// Tests of the private allocators: the block pool's reuse and reset, the
// counting heap's leak report, and the string allocator's choice of pool and
// its lock.
#include "privateallocators.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "AllocatorFakes.h"
#include "TestSupport.h"

using namespace Tsl;
using AllocatorFakes::CCapturedOutput;
using AllocatorFakes::CCountingManager;

namespace {

std::wstring PointerText(const void* address) {
  wchar_t text[32] = {};
  _snwprintf(text, 31, L"%p", address);
  return text;
}

// ---------------------------------------------------------------------------
// The block pool

// After the last free the next burst starts at the first block of the kept
// chunk; the free list alone would have given the block freed last.
TEST(BlockManager, LastFreeResetsAndTheNextBurstReusesTheChunkFromItsStart) {
  CCountingManager chunks;
  CBlockManager pool(32, &chunks);
  void* first = pool.Alloc(32);
  void* second = pool.Alloc(32);
  pool.Free(first);
  pool.Free(second);
  EXPECT_EQ(0, pool.GetBytesInUse() + pool.GetFreeBytes() + pool.GetChunkCount());
  EXPECT_EQ(first, pool.Alloc(32));
  EXPECT_EQ(second, pool.Alloc(32));
  EXPECT_EQ(1, chunks.allocs);
}

// Destruction gives back the chunks of both lists, the kept ones too,
// whatever is still handed out.
TEST(BlockManager, OneBlockMoreThanAChunkHoldsTakesASecondChunkAndAllGoBackAtTheEnd) {
  CCountingManager chunks;
  {
    CBlockManager pool(128, &chunks);
    std::vector<void*> blocks;
    for (int i = 0; i < 511; ++i) blocks.push_back(pool.Alloc(128));
    EXPECT_EQ(1, pool.GetChunkCount());
    blocks.push_back(pool.Alloc(128));
    EXPECT_EQ(2, pool.GetChunkCount());
    EXPECT_EQ(65536u, chunks.lastSize);
    for (void* block : blocks) pool.Free(block);
    pool.Alloc(128);
    EXPECT_EQ(1, pool.GetChunkCount());
    EXPECT_EQ(1, pool.GetFreeChunkCount());
  }
  EXPECT_EQ(2, chunks.allocs);
  EXPECT_EQ(2, chunks.frees);
}

// ---------------------------------------------------------------------------
// The counting heap

TEST(HeapManager, LeakReportFiresOnlyForBlocksLeftAndShowsWhatTheFlagsAsk) {
  const int32_t reportsBefore = GetHeapLeakReportCount();
  {
    CCapturedOutput capture(0xFFFFFFFF);
    {
      CHeapManager heap(0x10000, true);
      void* ten = heap.Alloc(10);
      heap.Free(nullptr);  // must not count as a block given back
      heap.Free(ten);
    }
    EXPECT_TRUE(capture.Lines().empty());  // every flag set, and still nothing to say
  }
  EXPECT_EQ(reportsBefore, GetHeapLeakReportCount());
  CCapturedOutput capture(DefaultDebugFlags | DF_WalkLeakedBlocks | DF_ShowHeapMemoryLeaks);
  HANDLE handle;
  void* blocks[2];
  {
    CHeapManager heap(0x10000, true);
    handle = heap.GetHeap();
    blocks[0] = heap.Alloc(16);
    blocks[1] = heap.Alloc(300);
  }
  EXPECT_EQ(reportsBefore + 1, GetHeapLeakReportCount());
  // Each busy block is traced, and one box names the heap and its object.
  std::wstring box;
  int traced = 0;
  for (const auto& line : capture.Lines()) {
    if (line.first == AO_MessageBox) box += line.second;
    for (void* block : blocks)
      traced += line.second ==
                L"Undeleted memory block in heap manager. Address: " + PointerText(block) + L"\n";
  }
  EXPECT_EQ(2, traced);
  EXPECT_EQ(0u, box.find(L"Internal error: memory leak.\n\nHeap 0x" + PointerText(handle) +
                         L" ( CHeapManager object at 0x"))
      << TestSupport::Narrow(box);
  EXPECT_EQ(box.size() - 16, box.rfind(L" ) is not empty.")) << TestSupport::Narrow(box);
}

// ---------------------------------------------------------------------------
// The string allocator

// Bytes in use in the pools of 32, 64 and 128 bytes and in the heap, in that order.
std::vector<int32_t> StringBytes() {
  const CStringAllocator& strings = GetStringAllocator();
  return {strings.GetPool32().GetBytesInUse(), strings.GetPool64().GetBytesInUse(),
          strings.GetPool128().GetBytesInUse(), strings.GetHeap().GetByteCount()};
}

TEST(StringAllocator, PicksThePoolBySizeAndReportsItsCapacity) {
  const struct {
    int32_t size, capacity, where;  // where: the index in StringBytes
  } rows[] = {{0, 32, 0},   {32, 32, 0},   {33, 64, 1},   {64, 64, 1},
              {65, 128, 2}, {128, 128, 2}, {129, 129, 3}, {5000, 5000, 3}};
  for (const auto& row : rows) {
    std::vector<int32_t> before = StringBytes(), during = before;
    during[size_t(row.where)] += row.capacity;
    int32_t capacity = -1;
    void* block = AllocStringBlock(row.size, capacity);
    EXPECT_EQ(row.capacity, capacity) << "size " << row.size;
    EXPECT_EQ(during, StringBytes()) << "size " << row.size;
    memset(block, 0xAB, size_t(capacity));
    FreeStringBlock(block, capacity);
    EXPECT_EQ(before, StringBytes()) << "size " << row.size;
  }
}

// Without the allocator's lock the pools' free lists and counts tear apart
// under threads that allocate and free at once: a block handed out twice
// shows as a mark overwritten by another thread.
TEST(StringAllocator, ThreadsAllocatingAtOnceNeverShareABlockAndLeaveTheCountsBalanced) {
  std::vector<int32_t> before = StringBytes();
  std::atomic<int> waiting{4}, overwritten{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t, &waiting, &overwritten] {
      int* held[16] = {};
      int32_t capacities[16] = {}, marks[16] = {};
      for (--waiting; waiting > 0;) {
      }
      for (int i = 0; i < 100000; ++i) {
        int slot = (i * 7 + t) % 16;
        if (held[slot] && *held[slot] != marks[slot]) ++overwritten;
        if (held[slot]) FreeStringBlock(held[slot], capacities[slot]);
        const int32_t sizes[] = {8, 40, 100, 300};
        held[slot] = static_cast<int*>(AllocStringBlock(sizes[(i + t) % 4], capacities[slot]));
        *held[slot] = marks[slot] = t << 24 | i;
      }
      for (int slot = 0; slot < 16; ++slot) FreeStringBlock(held[slot], capacities[slot]);
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, overwritten);
  EXPECT_EQ(before, StringBytes());
}

}  // namespace
