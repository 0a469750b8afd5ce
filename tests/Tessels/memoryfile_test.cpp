// Tests of the memory file: geometric growth, seek limits and the bad-seek
// error, the unzeroed gap, SetLength, and who frees the buffer after Close,
// Abort and destruction.
#include "memoryfile.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "alloc.h"
#include "errors.h"

using namespace Tsl;

namespace {

// Counts live blocks. It keeps no container: while it is current even the
// global operator new comes here. What a test leaves behind on purpose is
// freed when the manager goes.
class CCountingManager : public IMemoryManager {
 public:
  ~CCountingManager() override {
    for (void* block : live) free(block);
  }
  void* Alloc(size_t size) override {
    void* block = malloc(size ? size : 1);
    for (void*& slot : live)
      if (slot == nullptr) return slot = block;
    return block;
  }
  void Free(void* block) override {
    for (void*& slot : live)
      if (slot == block) slot = nullptr;
    free(block);
  }
  int Live() const {
    int count = 0;
    for (void* block : live) count += block != nullptr;
    return count;
  }

 private:
  void* live[64] = {};
};

void WriteFill(CBaseFile& file, int32_t count) {
  file.Write(std::string(size_t(count), 'x').data(), count);
}

}  // namespace

TEST(MemoryFile, GrowthIsHalfAgainOrTheNeedRoundedToTheStep) {
  CMemoryFile ones;
  std::vector<int32_t> capacities;
  for (int i = 0; i < 5000; ++i) {
    WriteFill(ones, 1);
    if (capacities.empty() || capacities.back() != ones.GetCapacity())
      capacities.push_back(ones.GetCapacity());
  }
  EXPECT_EQ((std::vector<int32_t>{1024, 2048, 3072, 4608, 6912}), capacities);

  struct Row {
    int32_t growBy, first, second, capacity;
  } rows[] = {
      {1024, 1, 1023, 1024},    // exactly the capacity: no growth
      {1024, 3000, 100, 4608},  // half again above the rounded need (4096)
      {1024, 10, 5000, 5120},   // the rounded need above half again (1536)
      {1, 7, 1, 10},
  };
  for (const Row& row : rows) {
    CMemoryFileEx<CurrentMemoryManager> file(row.growBy);
    WriteFill(file, row.first);
    WriteFill(file, row.second);
    EXPECT_EQ(row.capacity, file.GetCapacity())
        << row.growBy << ": " << row.first << " then " << row.second;
  }
}

TEST(MemoryFile, SeekOutside31BitsThrowsBadSeekNamingTheMemoryFileAndResetsThePosition) {
  struct Row {
    int64_t offset;
    int32_t origin;
  } rows[] = {{-1, SeekBegin},
              {0x80000000LL, SeekBegin},
              {-11, SeekCurrent},
              {-6, SeekEnd},
              {INT64_MAX, SeekCurrent}};
  for (const Row& row : rows) {
    CMemoryFile file;
    WriteFill(file, 5);
    file.Seek(10, SeekBegin);
    try {
      file.Seek(row.offset, row.origin);
      ADD_FAILURE() << "no exception for " << row.offset;
    } catch (CFileException* error) {
      EXPECT_EQ(FE_BadSeek, error->kind);
      EXPECT_EQ(L"MSG_MEMORY_FILE", std::wstring(error->fileName.Text()));  // no catalogue bound
      delete error;
    }
    EXPECT_EQ(0, file.GetPosition()) << row.offset;
  }
  CMemoryFile file;
  EXPECT_EQ(0x7FFFFFFF, file.Seek(0x7FFFFFFF, SeekBegin));  // the largest offset is legal
}

TEST(MemoryFile, WritingPastTheEndLeavesTheGapAsTheBufferHeldIt) {
  CMemoryFile file;
  EXPECT_EQ(10, file.Seek(10, SeekBegin));
  char byte = 0;
  EXPECT_EQ(0, file.Read(&byte, 1));
  EXPECT_EQ(0, file.GetLength());  // seeking doesn't lengthen
  WriteFill(file, 1);
  EXPECT_EQ(11, file.GetLength());
  EXPECT_EQ(1024, file.GetCapacity());

  CMemoryFile reused;
  reused.Write("abcdef", 6);
  reused.SetLength(0);
  reused.Seek(8, SeekBegin);
  reused.Write("x", 1);
  EXPECT_EQ(0, memcmp(reused.GetBufferData(), "abcdef", 6));  // not zero-filled
}

TEST(MemoryFile, SetLengthMovesOnlyAPositionBeyondItAndNeverShrinksTheCapacity) {
  CMemoryFile file;
  WriteFill(file, 2000);
  file.SetLength(0);
  EXPECT_EQ(0, file.GetPosition());
  EXPECT_EQ(2048, file.GetCapacity());
  file.Seek(5, SeekBegin);
  file.SetLength(5000);
  EXPECT_EQ(5, file.GetPosition());
  EXPECT_EQ(5120, file.GetCapacity());
}

TEST(MemoryFile, CloseAndAbortFreeWhateverStandsTheDestructorOnlyWhatItOwns) {
  CCountingManager manager;
  CMemoryFile other;  // grown under the counting manager, freed without it
  int afterClose = -1, afterAbort = -1, afterOwned = -1, afterReused = -1;
  {
    CMemoryManagerSwitch use(&manager);
    WriteFill(other, 1500);
    CMemoryFile closed, aborted;
    WriteFill(closed, 10);
    WriteFill(aborted, 10);
    closed.Close();
    afterClose = manager.Live();
    aborted.Abort();
    afterAbort = manager.Live();
    {
      CMemoryFile owned;
      WriteFill(owned, 10);
    }
    afterOwned = manager.Live();
    {
      CMemoryFile reused;
      WriteFill(reused, 10);
      reused.Close();
      WriteFill(reused, 10);  // a fresh buffer the object no longer owns
    }
    afterReused = manager.Live();
  }
  EXPECT_EQ(2, afterClose);  // `other` and `aborted`
  EXPECT_EQ(1, afterAbort);
  EXPECT_EQ(1, afterOwned);
  EXPECT_EQ(2, afterReused);  // left to the caller, who should have closed again
  other.Close();              // the block goes back to the manager that gave it
  EXPECT_EQ(1, manager.Live());
}
