// Page-file mappings: views at unaligned offsets, views to the end, several
// views of one region, resizing, attaching a foreign mapping, and failures
// that leave as the memory error or the platform's.
#include "filemapping.h"

#include "FileTestHelpers.h"

using namespace FileTest;

namespace {

TEST(FileMapping, AViewAtAnyOffsetPointsAtItsByte) {
  const uint32_t granule = GetAllocationGranularity();
  CMemoryMapping mapping(1, 4 * int64_t(granule));
  char* whole = static_cast<char*>(mapping.MapView(FILE_MAP_WRITE, 0, 0));
  whole[4 * granule - 1] = 'e';  // bytes 0 maps to the end
  char* odd = static_cast<char*>(mapping.MapView(FILE_MAP_WRITE, granule + 1, 10));
  EXPECT_EQ(1u, uintptr_t(odd) % granule) << "base plus the offset's remainder";
  odd[0] = 'o';
  EXPECT_EQ('o', whole[granule + 1]) << "two views of one region share their bytes";
  EXPECT_EQ(2, mapping.GetViewCount());
  mapping.UnmapView(odd);
  EXPECT_EQ(1, mapping.GetViewCount());
  EXPECT_EQ('e', whole[4 * granule - 1]) << "the other view stays";
  EXPECT_NE(nullptr, dynamic_cast<CInternalError*>(Catch([&] { mapping.UnmapView(odd); }).get()))
      << "a pointer unmapped already";
  mapping.UnmapView(whole);
  EXPECT_EQ(0, mapping.GetViewCount());
}

TEST(FileMapping, ResizeStartsAfreshWithoutViews) {
  CMemoryMapping mapping(1, 65536);
  char* view = static_cast<char*>(mapping.MapView(FILE_MAP_WRITE, 0, 16));
  view[0] = 'x';
  mapping.MapView(FILE_MAP_READ, 100, 1);
  mapping.Resize(3 * 65536);
  EXPECT_EQ(0, mapping.GetViewCount());
  char* fresh = static_cast<char*>(mapping.MapView(FILE_MAP_READ, 0, 0));
  EXPECT_EQ(0, fresh[0]) << "the page file's content is gone";
  EXPECT_EQ(0, fresh[3 * 65536 - 1]);
  EXPECT_NE(nullptr, dynamic_cast<CInternalError*>(Catch([&] { mapping.Resize(0); }).get()));
  mapping.Close();
  EXPECT_FALSE(mapping.IsOpen());
  EXPECT_EQ(0, mapping.GetViewCount());
}

TEST(FileMapping, AnAttachedMappingIsReadOnly) {
  HANDLE handle = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr);
  ASSERT_NE(nullptr, handle);
  char* writer = static_cast<char*>(MapViewOfFile(handle, FILE_MAP_WRITE, 0, 0, 0));
  memcpy(writer, "seen", 4);
  UnmapViewOfFile(writer);
  CVirtualMemoryMapping mapping(handle);
  EXPECT_EQ(0u, mapping.GetAccessMode());
  EXPECT_EQ(handle, mapping.GetMappingHandle());
  const char* view = static_cast<const char*>(mapping.MapView(FILE_MAP_READ, 2, 2));
  EXPECT_EQ("en", std::string(view, 2));
  EXPECT_NE(nullptr, dynamic_cast<CInternalError*>(Catch([&] { mapping.Attach(handle); }).get()))
      << "attaching over an open mapping";
}

TEST(FileMapping, FailuresAreTheMemoryErrorOrThePlatforms) {
  struct Row {
    const char* what;
    int64_t size;
  } rows[] = {
      {"no bytes", 0},
      {"more than any page file", int64_t(1) << 52},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::unique_ptr<CException> failure = Catch([&] { CMapping mapping(1, row.size); });
    ASSERT_NE(nullptr, failure);
    EXPECT_TRUE(dynamic_cast<CMemoryException*>(failure.get()) || dynamic_cast<CLastErrorException*>(failure.get()))
        << N(failure->GetMessageText());
  }
  CMemoryMapping mapping(1, 65536);
  EXPECT_NE(nullptr, Catch([&] { mapping.MapView(FILE_MAP_READ, 10 * 65536, 1); })) << "beyond the mapping";
}

}  // namespace
