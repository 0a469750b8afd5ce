// Tests of the memory file: geometric growth, seek limits and the bad-seek
// error, and who frees the buffer.
#include "memoryfile.h"

#include <stdlib.h>

#include "FileTestHelpers.h"

using namespace FileTest;

static void WriteFill(CBaseFile& file, int32_t count) {
  file.Write(std::string(size_t(count), 'x').data(), count);
}

TEST(MemoryFile, GrowthIsHalfAgainOrTheNeedRoundedToTheStep) {
  struct Row {
    int32_t growBy, first, second, capacity;
  } rows[] = {
      {1024, 1, 1023, 1024},    // exactly the capacity: no growth
      {1024, 1025, 1, 2048},    // the rounded need
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

TEST(MemoryFile, SeekOutside31BitsIsABadSeekNamingTheMemoryFileAndResetsThePosition) {
  struct Row {
    int64_t offset;
    int32_t origin;
  } rows[] = {
      // clang-format off
      {-1, SeekBegin}, {0x80000000LL, SeekBegin}, {-11, SeekCurrent}, {-6, SeekEnd},
      {INT64_MAX, SeekCurrent},
      // clang-format on
  };
  for (const Row& row : rows) {
    CMemoryFile file;
    WriteFill(file, 5);
    file.Seek(10, SeekBegin);
    std::wstring name;
    EXPECT_EQ(FE_BadSeek, FileErrorKind([&] { file.Seek(row.offset, row.origin); }, &name));
    EXPECT_EQ(L"MSG_MEMORY_FILE", name) << row.offset;  // no catalogue bound
    EXPECT_EQ(0, file.GetPosition()) << row.offset;
  }
  CMemoryFile file;
  EXPECT_EQ(0x7FFFFFFF, file.Seek(0x7FFFFFFF, SeekBegin));  // the largest offset is legal
}

TEST(MemoryFile, CloseAndDestructorFreeTheBufferThroughTheManagerThatGaveIt) {
  // While it is current even the global operator new comes here, so nothing
  // under it records more than integers.
  struct CCountingManager : IMemoryManager {
    void* Alloc(size_t size) override { return ++live, malloc(size ? size : 1); }
    void Free(void* block) override { --live, free(block); }
    int live = 0;
  } manager;
  CMemoryFile other;  // grown under the counting manager, closed without it
  int afterClose = -1;
  {
    CMemoryManagerSwitch use(&manager);
    WriteFill(other, 1500);
    CMemoryFile closed, owned;
    WriteFill(closed, 10);
    WriteFill(owned, 10);
    closed.Close();
    afterClose = manager.live;
  }
  EXPECT_EQ(2, afterClose);    // `other` and `owned`
  EXPECT_EQ(1, manager.live);  // `owned` went with its destructor
  other.Close();
  EXPECT_EQ(0, manager.live);
}
