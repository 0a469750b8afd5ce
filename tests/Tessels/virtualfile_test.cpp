// Virtual files on their own: how a file's mappings grow, where views stand
// and which ones the cache keeps, reads and writes across view boundaries and
// beyond beyond 4 GB, and the whole-content copies with other streams.
#include "virtualfile.h"

#include <vector>

#include "FileTestHelpers.h"
#include "memoryfile.h"

using namespace FileTest;

namespace {

const int64_t Granule = 65536;

// An open of a fresh file with its own data, as the file system makes it.
struct Fixture {
  CVirtualFileData data;
  CVirtualFile file;
  explicit Fixture(int64_t initialSize = 0, uint32_t access = GENERIC_READ | GENERIC_WRITE)
      : data(L"\\\\Tavix\\Tessels\\VirtualFiles$\\t.bin", FILE_ATTRIBUTE_NORMAL, false, initialSize),
        file(&data, access, FILE_SHARE_READ) {}

  std::vector<int64_t> MappingSizes() const {
    std::vector<int64_t> sizes;
    for (int32_t i = 0; i < data.GetMappingCount(); ++i) sizes.push_back(data.GetMappingAt(i)->mappingSize);
    return sizes;
  }
  // File offsets of the cached views, most recently used first.
  std::vector<int64_t> ViewOffsets() const {
    std::vector<int64_t> offsets;
    for (const CVirtualView* view = file.GetFirstView(); view; view = view->GetNext())
      offsets.push_back(view->GetFileOffset());
    return offsets;
  }
};

// Byte `i` of the test pattern: not periodic in any power of two.
char PatternAt(int64_t i) { return char((i * 31 + i / 4099) & 0xFF); }

TEST(VirtualFile, MappingsGrowByHalfAndOnlyWhenReached) {
  struct Row {
    const char* what;
    int64_t initialSize;
    int64_t writeUpTo;  // bytes written from 0, or a single byte at -writeUpTo
    std::vector<int64_t> sizes;
  } rows[] = {
      {"a fresh file has no mapping", 0, 0, {}},
      {"a first byte takes one granule", 0, 1, {Granule}},
      {"running through 150000 bytes", 0, 150000, {Granule, Granule, Granule}},
      {"an initial size is the first block, rounded up", 200000, 1, {262144}},
      {"growth doubles", 0, 4 * Granule + 1, {Granule, Granule, Granule, 2 * Granule}},
      // A jump that ends on a granule boundary still gets a mapping that holds it.
      {"a jump beyond ahead is one mapping", 0, -(3 * Granule), {Granule, 3 * Granule}},
      {"a jump past half of what is held", 0, -(Granule + 40000), {Granule, Granule}},
  };
  ASSERT_EQ(Granule, GetVirtualViewSize()) << "the sizes here assume the usual granule";
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Fixture f(row.initialSize);
    if (row.writeUpTo > 0) {
      std::vector<char> bytes(size_t(row.writeUpTo), 'x');
      f.file.Write(bytes.data(), int32_t(bytes.size()));
    } else if (row.writeUpTo < 0) {
      f.file.Write("x", 1);  // the first granule
      f.file.Seek(-row.writeUpTo, SeekBegin);
      f.file.Write("y", 1);
      f.file.Seek(-row.writeUpTo, SeekBegin);
      char back = 0;
      EXPECT_EQ(1, f.file.Read(&back, 1));
      EXPECT_EQ('y', back);
    }
    EXPECT_EQ(row.sizes, f.MappingSizes());
  }
}

TEST(VirtualFile, ViewsStandOnGranuleBoundariesAndSpanThemCorrectly) {
  Fixture f;
  const int64_t size = 5 * Granule + 123;
  std::vector<char> bytes(static_cast<size_t>(size));
  for (int64_t i = 0; i < size; ++i) bytes[size_t(i)] = PatternAt(i);
  f.file.Write(bytes.data(), int32_t(size));
  // Reads that start just before, on and after each boundary, and cross it.
  for (int64_t boundary = Granule; boundary < size; boundary += Granule)
    for (int64_t start : {boundary - 3, boundary, boundary + 1}) {
      SCOPED_TRACE(start);
      char buffer[7];
      f.file.Seek(start, SeekBegin);
      ASSERT_EQ(7, f.file.Read(buffer, 7));
      for (int64_t k = 0; k < 7; ++k) EXPECT_EQ(PatternAt(start + k), buffer[k]);
      const CVirtualView* front = f.file.GetFirstView();
      EXPECT_EQ(0, front->GetFileOffset() % Granule);
      EXPECT_EQ(Granule, front->viewBytes);
      EXPECT_EQ(front->GetFileOffset(), (start + 6) / Granule * Granule) << "the last view used is in front";
    }
  EXPECT_LE(f.file.GetViewCount(), CVirtualFile::MaximumViews);
}

TEST(VirtualFile, TheCacheKeepsTheTenMostRecentlyUsedViews) {
  Fixture f;
  f.file.SetLength(12 * Granule);
  char byte;
  // Forward through ten granules, then back to the first: it moves to the front.
  for (int64_t g = 0; g < 10; ++g) f.file.Seek(g * Granule, SeekBegin), f.file.Read(&byte, 1);
  EXPECT_EQ(10, f.file.GetViewCount());
  CVirtualView* first = f.file.GetView(5);
  EXPECT_EQ(0, first->GetFileOffset());
  EXPECT_EQ(first, f.file.GetFirstView());
  EXPECT_EQ(10, f.file.GetViewCount()) << "a hit maps nothing";
  // The eleventh distinct view evicts the least recently used one: granule 1.
  f.file.GetView(10 * Granule);
  std::vector<int64_t> offsets = f.ViewOffsets();
  EXPECT_EQ(10u, offsets.size());
  EXPECT_EQ(10 * Granule, offsets.front());
  EXPECT_EQ(std::find(offsets.begin(), offsets.end(), Granule), offsets.end());
  EXPECT_NE(std::find(offsets.begin(), offsets.end(), 0), offsets.end());
  // Going back behind the front view maps that region a second time; both
  // views show the same bytes.
  f.file.Seek(3 * Granule, SeekBegin);
  f.file.Write("Q", 1);
  CVirtualView* again = f.file.GetView(3 * Granule);
  EXPECT_EQ('Q', again->data[0]);
}

TEST(VirtualFile, AFileGrowingAcrossManyViewsKeepsEveryByte) {
  Fixture f;
  const int64_t size = 3 * 1024 * 1024 + 17;
  std::vector<char> chunk;
  // Odd-sized writes, so that no write lines up with a view.
  for (int64_t done = 0; done < size;) {
    int64_t n = std::min<int64_t>(7777, size - done);
    chunk.resize(size_t(n));
    for (int64_t k = 0; k < n; ++k) chunk[size_t(k)] = PatternAt(done + k);
    f.file.Write(chunk.data(), int32_t(n));
    done += n;
  }
  EXPECT_EQ(size, f.file.GetLength());
  EXPECT_LE(f.file.GetViewCount(), CVirtualFile::MaximumViews);
  EXPECT_LE(f.data.GetMappingCount(), 12) << "growth by half keeps the run of mappings short";
  int64_t covered = 0;
  for (int64_t s : f.MappingSizes()) covered += s;
  EXPECT_EQ(f.data.GetAllocatedSize(), covered);
  f.file.SeekToBegin();
  std::vector<char> back(static_cast<size_t>(size));
  ASSERT_EQ(int32_t(size), f.file.Read(back.data(), int32_t(size)));
  int64_t wrong = 0;
  for (int64_t i = 0; i < size; ++i) wrong += back[size_t(i)] != PatternAt(i);
  EXPECT_EQ(0, wrong);
}

TEST(VirtualFile, PositionsBeyondFourGigabytes) {
  Fixture f;
  const int64_t beyond = (int64_t(5) << 30) + 12345;
  f.file.Write("head", 4);
  f.file.Seek(beyond, SeekBegin);
  std::unique_ptr<CException> failure = Catch([&] { f.file.Write("tail", 4); });
  // Where the page file can't hold such a mapping, the failure is the memory
  // error or the platform's, never a crash.
  if (failure) {
    bool expected = dynamic_cast<CMemoryException*>(failure.get()) || dynamic_cast<CLastErrorException*>(failure.get());
    EXPECT_TRUE(expected) << N(failure->GetMessageText());
    GTEST_SKIP() << "the platform refused a mapping of 5 GB";
  }
  EXPECT_EQ(beyond + 4, f.file.GetLength());
  char back[4];
  f.file.Seek(beyond, SeekBegin);
  EXPECT_EQ(4, f.file.Read(back, 4));
  EXPECT_EQ("tail", std::string(back, 4));
  f.file.Seek(beyond - 2, SeekBegin);
  EXPECT_EQ(4, f.file.Read(back, 4));
  EXPECT_EQ(std::string("\0\0ta", 4), std::string(back, 4));
  f.file.SeekToBegin();
  EXPECT_EQ(4, f.file.Read(back, 4));
  EXPECT_EQ("head", std::string(back, 4));
}

TEST(VirtualFile, LengthsPositionsAndAccess) {
  {
    Fixture f;
    f.file.SetLength(10);
    f.file.Seek(5, SeekBegin);
    char buffer[10];
    EXPECT_EQ(5, f.file.Read(buffer, 10));
    EXPECT_EQ(0, f.file.Read(buffer, 10)) << "at the end";
    EXPECT_EQ(FE_BadSeek, FileErrorKind([&] { f.file.Seek(-1, SeekBegin); }));
    EXPECT_EQ(0, f.file.GetPosition());
    EXPECT_EQ(25, f.file.Seek(15, SeekEnd)) << "past the end is allowed";
    EXPECT_EQ(10, f.file.GetLength());
  }
  {
    Fixture f(0, GENERIC_READ);
    EXPECT_EQ(FE_SharingViolation, FileErrorKind([&] { f.file.Write("x", 0); })) << "also for nothing";
    EXPECT_EQ(FE_SharingViolation, FileErrorKind([&] { f.file.Write("x", 1); }));
  }
}

TEST(VirtualFile, ContentOutlivesItsOpensAndAReaderDoesNotCutIt) {
  CVirtualFileData data(L"\\\\Tavix\\Tessels\\VirtualFiles$\\d.bin", FILE_ATTRIBUTE_NORMAL, false, 0);
  auto reader = std::make_unique<CVirtualFile>(&data, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  {
    CVirtualFile writer(&data, GENERIC_WRITE, FILE_SHARE_READ);
    writer.Write("persist", 7);
    EXPECT_EQ(0, reader->GetLength()) << "each open keeps the length it saw";
  }
  EXPECT_EQ(7, data.size);
  reader->Close();
  EXPECT_EQ(7, data.size);
  CVirtualFile again(&data, GENERIC_READ, FILE_SHARE_READ);
  char buffer[8];
  EXPECT_EQ(7, again.Read(buffer, 8));
  EXPECT_EQ("persist", std::string(buffer, 7));
}

// A stream that claims more than it holds.
class CShortStream : public CMemoryFile {
 public:
  int64_t GetLength() const override { return CMemoryFile::GetLength() + 100; }
};

TEST(VirtualFile, WholeContentCopiesWithOtherStreams) {
  CMemoryFile source;
  std::vector<char> bytes(size_t(2 * Granule + 99));
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = PatternAt(int64_t(i));
  source.Write(bytes.data(), int32_t(bytes.size()));
  source.Seek(17, SeekBegin);
  Fixture f;
  f.file.LoadFrom(source);
  EXPECT_EQ(17, source.GetPosition()) << "the source keeps its place";
  EXPECT_EQ(int64_t(bytes.size()), f.file.GetPosition());
  CMemoryFile copy;
  f.file.Seek(5, SeekBegin);
  f.file.SaveTo(copy);
  EXPECT_EQ(5, f.file.GetPosition());
  ASSERT_EQ(int64_t(bytes.size()), copy.GetLength());
  std::vector<char> back(bytes.size());
  copy.SeekToBegin();
  copy.Read(back.data(), int32_t(back.size()));
  EXPECT_TRUE(back == bytes);
  // A source that ends early raises end of file rather than spinning.
  CShortStream liar;
  liar.Write("abc", 3);
  Fixture g;
  EXPECT_EQ(FE_EndOfFile, FileErrorKind([&] { g.file.LoadFrom(liar); }));
}

}  // namespace
