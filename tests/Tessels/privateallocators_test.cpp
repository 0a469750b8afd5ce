// Tests of the private allocators: the block pool's geometry, reuse and reset,
// the counting heap and its leak report, virtual memory, and the string
// allocator's choice of pool, its lock and its lifetime around static objects.
#include <gtest/gtest.h>
#include <windows.h>
#include <stdint.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestSupport.h"
#include "alloc.h"
#include "errors.h"
#include "privateallocators.h"
#include "tessels.h"

using namespace Tsl;

namespace {

// A chunk source over the runtime heap that counts its calls.
class CCountingManager : public IMemoryManager {
 public:
  void* Alloc(size_t size) override {
    ++allocs;
    lastSize = size;
    return malloc(size);
  }
  void Free(void* block) override {
    ++frees;
    free(block);
  }
  std::atomic<int> allocs{0};
  std::atomic<int> frees{0};
  size_t lastSize = 0;
};

std::vector<std::pair<EAllocatorOutput, std::wstring>> captured;

int Capture(EAllocatorOutput output, const wchar_t* text) {
  captured.emplace_back(output, text);
  return IDOK;
}

// Binds the capturing sink and sets debug flags for the test's life.
class CCaptureOutput {
 public:
  explicit CCaptureOutput(uint32_t flags) : previous(BindAllocatorOutputSink(Capture)), savedFlags(GetDebugFlags()) {
    captured.clear();
    SetDebugFlags(flags);
  }
  ~CCaptureOutput() {
    SetDebugFlags(savedFlags);
    BindAllocatorOutputSink(previous);
  }

 private:
  AllocatorOutputSink previous;
  uint32_t savedFlags;
};

std::wstring PointerText(const void* address) {
  wchar_t text[32];
  _snwprintf(text, 32, L"%p", address);
  text[31] = L'\0';
  return text;
}

}  // namespace

// ---------------------------------------------------------------------------
// CBlockManager

TEST(BlockManager, GeometryFollowsTheBlockSize) {
  const int32_t header = static_cast<int32_t>(2 * sizeof(void*));
  struct {
    int32_t block, aligned, usable, chunk;
  } const rows[] = {
      {1, 8, 65536 - header, 65536},
      {4, 8, 65536 - header, 65536},
      {9, 16, 65536 - 16, 65536},
      {32, 32, 65504, 65536},
      {64, 64, 65472, 65536},
      {128, 128, 65408, 65536},
      {100000, 100000, 100000, 100000 + header},
  };
  for (const auto& row : rows) {
    CBlockManager pool(row.block);
    EXPECT_EQ(row.aligned, pool.GetAlignedBlockSize()) << "block " << row.block;
    EXPECT_EQ(row.usable, pool.GetUsableChunkSize()) << "block " << row.block;
    EXPECT_EQ(row.chunk, pool.GetChunkSize()) << "block " << row.block;
    // Chunks of 64 KiB and more are whole pages straight from the system.
    EXPECT_EQ(GetVirtualMemoryManager(), pool.GetBackingManager()) << "block " << row.block;
  }
}

// After the last free the next burst starts at the first block of the kept
// chunk; the free list alone would have given the block freed last.
TEST(BlockManager, LastFreeResetsAndTheNextBurstReusesTheChunkFromItsStart) {
  CCountingManager chunks;
  CBlockManager pool(32, &chunks);
  void* first = pool.Alloc(32);
  void* second = pool.Alloc(32);
  pool.Free(first);
  pool.Free(second);
  EXPECT_EQ(0, pool.GetBytesInUse());
  EXPECT_EQ(0, pool.GetFreeBytes());
  EXPECT_EQ(0, pool.GetChunkCount());
  EXPECT_EQ(1, pool.GetFreeChunkCount());
  EXPECT_EQ(first, pool.Alloc(32));
  EXPECT_EQ(second, pool.Alloc(32));
  EXPECT_EQ(1, chunks.allocs);
  EXPECT_EQ(1, pool.GetChunkCount());
  EXPECT_EQ(0, pool.GetFreeChunkCount());
}

// Destruction gives back the chunks of both lists, the kept ones too, whatever
// is still handed out.
TEST(BlockManager, OneBlockMoreThanAChunkHoldsTakesASecondChunk) {
  CCountingManager chunks;
  {
    CBlockManager pool(128, &chunks);
    const int perChunk = pool.GetUsableChunkSize() / pool.GetAlignedBlockSize();
    ASSERT_EQ(511, perChunk);
    std::vector<void*> blocks;
    for (int i = 0; i < perChunk; ++i) blocks.push_back(pool.Alloc(128));
    EXPECT_EQ(1, pool.GetChunkCount());
    blocks.push_back(pool.Alloc(128));
    EXPECT_EQ(2, pool.GetChunkCount());
    EXPECT_EQ(2, chunks.allocs);
    EXPECT_EQ(65536u, chunks.lastSize);
    for (void* block : blocks) pool.Free(block);
    EXPECT_EQ(2, pool.GetFreeChunkCount());
    pool.Alloc(128);
    EXPECT_EQ(1, pool.GetChunkCount());
    EXPECT_EQ(1, pool.GetFreeChunkCount());
  }
  EXPECT_EQ(2, chunks.allocs);
  EXPECT_EQ(2, chunks.frees);
}

TEST(BlockManager, RequestAboveTheBlockSizeIsAnInternalError) {
  CBlockManager pool(32);
  CInternalError* caught = nullptr;
  try {
    pool.Alloc(33);
  } catch (CInternalError* error) {
    caught = error;
  } catch (CException* other) {
    delete other;
  }
  ASSERT_NE(nullptr, caught);
  EXPECT_STREQ(L"privateallocators", caught->file);
  EXPECT_EQ(80, caught->line);
  delete caught;
  EXPECT_EQ(0, pool.GetBytesInUse());
}

// ---------------------------------------------------------------------------
// CHeapManager

TEST(HeapManager, CountsFollowAllocAndFreeAndFreeOfNullChangesNothing) {
  CHeapManager heap(0x10000, true);
  void* ten = heap.Alloc(10);
  void* twenty = heap.Alloc(20);
  EXPECT_EQ(2, heap.GetBlockCount());
  EXPECT_EQ(30, heap.GetByteCount());
  heap.Free(nullptr);
  EXPECT_EQ(2, heap.GetBlockCount());
  EXPECT_EQ(30, heap.GetByteCount());
  heap.Free(ten);
  EXPECT_EQ(1, heap.GetBlockCount());
  EXPECT_EQ(20, heap.GetByteCount());
  heap.Free(twenty);
}

TEST(HeapManager, EmptyHeapReportsNothingEvenWithEveryFlag) {
  int32_t reportsBefore = GetHeapLeakReportCount();
  {
    CCaptureOutput capture(0xFFFFFFFF);
    {
      CHeapManager heap(0x10000, true);
      heap.Free(heap.Alloc(40));
    }
    EXPECT_TRUE(captured.empty());
  }
  EXPECT_EQ(reportsBefore, GetHeapLeakReportCount());
}

TEST(HeapManager, LeakIsReportedWithEveryBusyBlockAndTheBox) {
  int32_t reportsBefore = GetHeapLeakReportCount();
  CCaptureOutput capture(DefaultDebugFlags | DF_WalkLeakedBlocks | DF_ShowHeapMemoryLeaks);
  HANDLE handle;
  void* blocks[2];
  {
    CHeapManager heap(0x10000, true);
    handle = heap.GetHeap();
    blocks[0] = heap.Alloc(16);
    blocks[1] = heap.Alloc(300);
  }
  EXPECT_EQ(reportsBefore + 1, GetHeapLeakReportCount());
  std::vector<std::wstring> traces;
  std::vector<std::wstring> boxes;
  for (const auto& output : captured) (output.first == AO_MessageBox ? boxes : traces).push_back(output.second);
  for (void* block : blocks) {
    std::wstring line = L"Undeleted memory block in heap manager. Address: " + PointerText(block) + L"\n";
    EXPECT_NE(traces.end(), std::find(traces.begin(), traces.end(), line)) << TestSupport::Narrow(line);
  }
  ASSERT_EQ(1u, boxes.size());
  std::wstring expectedStart =
      L"Internal error: memory leak.\n\nHeap 0x" + PointerText(handle) + L" ( CHeapManager object at 0x";
  EXPECT_EQ(expectedStart, boxes[0].substr(0, expectedStart.size())) << TestSupport::Narrow(boxes[0]);
  EXPECT_EQ(L" ) is not empty.", boxes[0].substr(boxes[0].size() - 16));
}

TEST(HeapManager, LeakWithDefaultFlagsIsCountedButShowsNothing) {
  int32_t reportsBefore = GetHeapLeakReportCount();
  CCaptureOutput capture(DefaultDebugFlags);
  {
    CHeapManager heap(0x10000, true);
    heap.Alloc(8);
  }
  EXPECT_EQ(reportsBefore + 1, GetHeapLeakReportCount());
  EXPECT_TRUE(captured.empty());
}

TEST(HeapManager, KeptHeapWithBlocksLeftSurvivesItsObject) {
  CCaptureOutput capture(DefaultDebugFlags);
  HANDLE handle;
  char* block;
  {
    CHeapManager heap(0x10000, false);
    handle = heap.GetHeap();
    block = static_cast<char*>(heap.Alloc(64));
  }
  block[63] = 'x';
  EXPECT_TRUE(HeapValidate(handle, 0, block));
  EXPECT_TRUE(HeapFree(handle, 0, block));
  EXPECT_TRUE(HeapDestroy(handle));
}

// ---------------------------------------------------------------------------
// CVirtualMemoryManager

TEST(VirtualMemoryManager, RoundTripGivesCommittedPagesAndReleasesThem) {
  IMemoryManager* pages = GetVirtualMemoryManager();
  char* block = static_cast<char*>(pages->Alloc(10000));
  EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(block) % GetSystemPageSize());
  for (int i = 0; i < 10000; i += 512) block[i] = static_cast<char>(i);
  MEMORY_BASIC_INFORMATION region;
  ASSERT_EQ(sizeof region, VirtualQuery(block, &region, sizeof region));
  EXPECT_EQ(static_cast<DWORD>(MEM_COMMIT), region.State);
  EXPECT_EQ(static_cast<DWORD>(PAGE_READWRITE), region.Protect);
  EXPECT_GE(region.RegionSize, 10000u);
  pages->Free(block);
  ASSERT_EQ(sizeof region, VirtualQuery(block, &region, sizeof region));
  EXPECT_EQ(static_cast<DWORD>(MEM_FREE), region.State);
  pages->Free(nullptr);
}

// ---------------------------------------------------------------------------
// The string allocator

namespace {

struct CStringCounts {
  int32_t pool32, pool64, pool128, heapBlocks, heapBytes;
  bool operator==(const CStringCounts& other) const {
    return pool32 == other.pool32 && pool64 == other.pool64 && pool128 == other.pool128 &&
           heapBlocks == other.heapBlocks && heapBytes == other.heapBytes;
  }
};

CStringCounts TakeStringCounts() {
  const CStringAllocator& strings = GetStringAllocator();
  return {strings.GetPool32().GetBytesInUse(), strings.GetPool64().GetBytesInUse(),
          strings.GetPool128().GetBytesInUse(), strings.GetHeap().GetBlockCount(), strings.GetHeap().GetByteCount()};
}

}  // namespace

TEST(StringAllocator, PicksThePoolBySizeAndReportsItsCapacity) {
  struct {
    int32_t size, capacity;
    CStringCounts change;  // what one block adds to the counts
  } const rows[] = {
      {0, 32, {32, 0, 0, 0, 0}},      {1, 32, {32, 0, 0, 0, 0}},      {32, 32, {32, 0, 0, 0, 0}},
      {33, 64, {0, 64, 0, 0, 0}},     {64, 64, {0, 64, 0, 0, 0}},     {65, 128, {0, 0, 128, 0, 0}},
      {128, 128, {0, 0, 128, 0, 0}},  {129, 129, {0, 0, 0, 1, 129}},  {5000, 5000, {0, 0, 0, 1, 5000}},
  };
  for (const auto& row : rows) {
    CStringCounts before = TakeStringCounts();
    int32_t capacity = -1;
    void* block = AllocStringBlock(row.size, capacity);
    CStringCounts during = TakeStringCounts();
    memset(block, 0xAB, static_cast<size_t>(capacity));
    FreeStringBlock(block, capacity);
    CStringCounts after = TakeStringCounts();
    EXPECT_EQ(row.capacity, capacity) << "size " << row.size;
    CStringCounts change = {during.pool32 - before.pool32, during.pool64 - before.pool64,
                            during.pool128 - before.pool128, during.heapBlocks - before.heapBlocks,
                            during.heapBytes - before.heapBytes};
    EXPECT_TRUE(row.change == change) << "size " << row.size;
    EXPECT_TRUE(before == after) << "size " << row.size;
  }
}

// Without the allocator's lock the pools' free lists and counts tear apart
// under threads that allocate and free at once: a block handed out twice
// shows as a mark overwritten by another thread.
TEST(StringAllocator, ThreadsAllocatingAtOnceNeverShareABlockAndLeaveTheCountsBalanced) {
  const int threadCount = 4;
  CStringCounts before = TakeStringCounts();
  std::atomic<int> waiting{threadCount};
  std::atomic<int> overwritten{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < threadCount; ++t) {
    threads.emplace_back([t, &waiting, &overwritten] {
      const int32_t sizes[] = {8, 40, 100, 300};
      int* held[16] = {};
      int32_t capacities[16] = {};
      int marks[16] = {};
      --waiting;
      while (waiting > 0) {
      }
      for (int i = 0; i < 100000; ++i) {
        int slot = (i * 7 + t) % 16;
        if (held[slot]) {
          if (*held[slot] != marks[slot]) ++overwritten;
          FreeStringBlock(held[slot], capacities[slot]);
        }
        held[slot] = static_cast<int*>(AllocStringBlock(sizes[(i + t) % 4], capacities[slot]));
        marks[slot] = t << 24 | i;
        *held[slot] = marks[slot];
      }
      for (int slot = 0; slot < 16; ++slot) FreeStringBlock(held[slot], capacities[slot]);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, overwritten);
  EXPECT_TRUE(before == TakeStringCounts());
}

namespace {

bool reportStringAllocatorAtExit = false;

// A static object of the program that holds a string block from static
// initialisation to static destruction, as a static string would. Its priority
// makes it the first static object built after the library's own whatever the
// link order, which otherwise decides which of two unprioritised objects in
// different units is built first.
struct CStaticStringHolder {
  CStaticStringHolder() : block(AllocStringBlock(40, capacity)), aliveAtStart(IsStringAllocatorAlive()) {}
  ~CStaticStringHolder() {
    bool aliveAtEnd = IsStringAllocatorAlive();
    FreeStringBlock(block, capacity);
    if (!reportStringAllocatorAtExit) return;
    const char* text = aliveAtEnd ? "alive at exit\n" : "gone at exit\n";
    DWORD written;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text, static_cast<DWORD>(strlen(text)), &written, nullptr);
  }
  int32_t capacity = 0;
  void* block;
  bool aliveAtStart;
};
CStaticStringHolder staticStringHolder __attribute__((init_priority(200)));

}  // namespace

MIRDAL_CHILD_ROLE(StaticStringHolder) {
  reportStringAllocatorAtExit = true;
  return staticStringHolder.aliveAtStart ? 0 : 1;
}

TEST(StringAllocator, OutlivesStaticObjectsAtBothEnds) {
  TestSupport::ChildResult child = TestSupport::RunChild("StaticStringHolder");
  EXPECT_EQ(0u, child.exitCode);
  EXPECT_NE(std::string::npos, child.output.find("alive at exit")) << child.output;
}
