// Tests of the archive and of reference-counted objects: the bytes of the
// format's elements, the class name table, the file calls of the buffering on
// both sides, and hostile streams (truncated, mutated) that must end in a
// documented failure without a leak.
#include "archive.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "classregistry.h"
#include "memoryfile.h"
#include "privateallocators.h"

using namespace Tsl;

namespace {

typedef std::vector<uint8_t> Bytes;

int live = 0;  // test objects alive

class CTestPoint : public virtual IObject {
 public:
  CTestPoint(int32_t x = 0, int32_t y = 0) : x(x), y(y) { ++live; }
  ~CTestPoint() override { --live; }
  void Serialize(CArchive& archive) override {
    if (archive.IsLoading())
      archive >> x >> y;
    else
      archive << x << y;
  }
  int32_t x, y;
  CPtr<CTestPoint> next;  // an object this one keeps alive
};
TSL_REGISTER_CLASS(CTestPoint);

// A memory file that records the archive's calls.
class CRecordingFile : public CMemoryFile {
 public:
  int32_t Read(void* data, int32_t count) override {
    calls += " R" + std::to_string(count);
    return CMemoryFile::Read(data, count);
  }
  void Write(const void* data, int32_t count) override {
    calls += " W" + std::to_string(count);
    CMemoryFile::Write(data, count);
  }
  int64_t Seek(int64_t offset, int32_t origin) override {
    calls += " S" + std::to_string(offset);
    return CMemoryFile::Seek(offset, origin);
  }
  std::string calls;
};

template <class F>
Bytes Store(F write) {
  CMemoryFile file;
  CArchive archive(&file, CArchive::Store);
  write(archive);
  archive.Close();
  return Bytes(file.GetBufferData(), file.GetBufferData() + file.GetLength());
}

void Fill(CMemoryFile& file, const Bytes& bytes) {
  if (!bytes.empty()) file.Write(bytes.data(), int32_t(bytes.size()));
  file.SeekToBegin();
}

// The failure's kind, "internal <line>", or "none". Allocates nothing, so
// that callers can count blocks.
template <class F>
const char* Attempt(F action) {
  static char internalAt[32];
  const char* kind = "none";
  try {
    action();
  } catch (CException* exception) {
    kind = "other";
    if (auto* check = dynamic_cast<CCheckException*>(exception)) {
      if (wcscmp(check->messageName, L"ERR_BAD_ARCHIVE") == 0) kind = "ERR_BAD_ARCHIVE";
      if (wcscmp(check->messageName, L"ERR_BAD_ARCHIVE_VERSION") == 0)
        kind = "ERR_BAD_ARCHIVE_VERSION";
    } else if (auto* file = dynamic_cast<CFileException*>(exception)) {
      kind = file->kind == FE_EndOfFile ? "end of file" : "other file error";
    } else if (dynamic_cast<CMemoryException*>(exception)) {
      kind = "memory";
    } else if (auto* internal = dynamic_cast<CInternalError*>(exception)) {
      snprintf(internalAt, sizeof internalAt, "internal %d", int(internal->line));
      kind = internalAt;
    }
    delete exception;
  }
  return kind;
}

template <class F>
std::string Load(const Bytes& bytes, F read) {
  CMemoryFile file;
  Fill(file, bytes);
  return Attempt([&] {
    CArchive archive(&file, CArchive::Load);
    read(archive);
  });
}

}  // namespace

TEST(Archive, ValuesAndLengthsHaveTheirExactBytes) {
  // A length below 255 is one byte; from 255 on, FF and four bytes. Units
  // follow, low byte first.
  for (int32_t units : {254, 255}) {
    CUnicodeString text(std::wstring(size_t(units), L'\x0102').c_str(), units), wideBack;
    CString narrow(std::string(size_t(units), 'n').c_str(), units), narrowBack;
    Bytes wide = Store([&](CArchive& a) { a << text; });
    Bytes bytes = Store([&](CArchive& a) { a << narrow; });
    Bytes prefix = units < 255 ? Bytes{0xFE} : Bytes{0xFF, 0xFF, 0, 0, 0};
    ASSERT_EQ(prefix.size() + size_t(units) * 2, wide.size()) << units;
    ASSERT_EQ(prefix.size() + size_t(units), bytes.size()) << units;
    EXPECT_TRUE(std::equal(prefix.begin(), prefix.end(), bytes.begin()) && wide.back() == 0x01);
    EXPECT_EQ("none", Load(wide, [&](CArchive& a) { a >> wideBack; }));
    EXPECT_EQ("none", Load(bytes, [&](CArchive& a) { a >> narrowBack; }));
    EXPECT_TRUE(wideBack == text && narrowBack == narrow) << units;
  }
  EXPECT_EQ((Bytes{0x01, 0xFE, 0xFF, 0xAC, 0x20, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}),
            Store([](CArchive& a) { a << true << int16_t(-2) << wchar_t(0x20AC) << 1.0; }));
}

TEST(Archive, ClassNamesAreWrittenOnceAndNullIsTheEmptyName) {
  CPtr<CTestPoint> first(new CTestPoint(1, 2)), second(new CTestPoint(3, 4));
  Bytes bytes = Store([&](CArchive& a) {
    a << first;
    a.WriteObject(nullptr);
    a << second;
  });
  Bytes expected = {0x01, 0x0A, 'C', 'T', 'e', 's', 't', 'P', 'o', 'i', 'n', 't',  // new name 0
                    1,    0,    0,   0,   2,   0,   0,   0,                        // first's data
                    0x03, 0x00,  // new name 1: the empty one
                    0x00,        // name 0 again
                    3,    0,    0,   0,   4,   0,   0,   0};
  EXPECT_EQ(expected, bytes);
  CPtr<IObject> read[3];
  EXPECT_EQ("none", Load(bytes, [&](CArchive& a) {
              for (auto& object : read) object = a.ReadObject();
            }));
  EXPECT_TRUE(read[1].IsNull() && read[2].DynamicCast<CTestPoint>()->y == 4);
}

TEST(Archive, MalformedStreamsEndInTheirOwnFailure) {
  // clang-format off
  const struct { const char* what; Bytes bytes; const char* kind; } rows[] = {
      {"code 5 with one name known", {0x03, 0x00, 0x05, 0x00}, "ERR_BAD_ARCHIVE"},
      {"negative name length", {0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, "ERR_BAD_ARCHIVE"},
      {"name of no class", {0x01, 0x03, 'C', 'N', 'o'}, "ERR_BAD_ARCHIVE_VERSION"},
  };
  // clang-format on
  for (const auto& row : rows)
    EXPECT_EQ(row.kind, Load(row.bytes, [](CArchive& a) { a.ReadObject(), a.ReadObject(); }))
        << row.what;
  // A string too long for memory fails as such, not as a crash.
  EXPECT_EQ("memory", Load({0xFF, 0xF0, 0xFF, 0xFF, 0x7F}, [](CArchive& a) {
              CUnicodeString text;
              a >> text;
            }));
}

TEST(Archive, AStoreBufferIsNeverLeftFull) {
  const int32_t size = CArchive::InlineBufferSize;
  std::vector<char> data(size_t(size), 'd');
  CRecordingFile file;
  CArchive archive(&file, CArchive::Store);
  archive.Write(data.data(), size);
  EXPECT_EQ(" W4096", file.calls) << "a whole buffer into an empty one goes straight on";
  archive.Write(data.data(), size - 1);
  archive.Write(data.data(), 1);
  EXPECT_EQ(" W4096 W4096", file.calls) << "the byte that fills it flushes the full buffer";
  archive.Flush();
  EXPECT_EQ(2 * size, file.GetLength());
}

TEST(Archive, LoadFillsWholeBuffersAndFlushStepsTheFileBack) {
  const int32_t size = CArchive::InlineBufferSize;
  Bytes source(size_t(size) * 3);
  for (size_t i = 0; i < source.size(); ++i) source[i] = uint8_t(i * 7 + i / 256);
  CRecordingFile file;
  Fill(file, source);
  file.calls.clear();
  CArchive archive(&file, CArchive::Load);
  Bytes target(source.size());
  archive.Read(&target[0], 10);
  archive.Read(&target[10], size - 10);
  EXPECT_EQ(" R4096", file.calls) << "the second read comes from the buffer";
  archive.Read(&target[size], size + 5);
  EXPECT_EQ(" R4096 R4101", file.calls) << "a whole buffer or more goes straight to the caller";
  archive.Read(&target[2 * size + 5], 10);
  archive.Flush();
  EXPECT_EQ(" R4096 R4101 R4096 S-4081", file.calls);
  EXPECT_EQ(2 * size + 15, file.GetPosition()) << "the file stands where the reader stands";
  archive.Read(&target[2 * size + 15], size - 15);
  EXPECT_EQ(source, target);
  EXPECT_STREQ("end of file", Attempt([&] { archive.Read(&target[0], 1); }));
}

TEST(Object, TheLastPointerDeletesAndCountsHoldAcrossThreads) {
  {
    CPtr<CTestPoint> moved(new CTestPoint);
    moved = moved;
    EXPECT_EQ(1, live) << "self-assignment keeps the object";
    // Assigning the object that the old one alone keeps alive.
    moved->next.Assign(new CTestPoint);
    moved = moved->next;
    EXPECT_EQ(1, live);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&moved] {
        for (int i = 0; i < 100000; ++i) CPtr<CTestPoint> copy(moved);
      });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(1, moved->GetReferenceCount());
  }
  EXPECT_EQ(0, live);
  EXPECT_STREQ("internal 268", Attempt([] { CPtr<IObject>()->GetReferenceCount(); }));
}

namespace {

// One stream with every kind of element, and its reader. A mutated stream is
// read by the same reader: whatever the bytes say, it must end in success or
// in a failure that a caller can catch and expect.
Bytes SampleStream() {
  CPtr<CTestPoint> point(new CTestPoint(-1, 1)), other(new CTestPoint(5, 6));
  return Store([&](CArchive& a) {
    a << int32_t(42) << CUnicodeString(L"short") << CString("narrow") << point;
    a.WriteObject(nullptr);
    a << other << 3.25 << CUnicodeString(std::wstring(255, L'w').c_str()) << other << point;
  });
}

const char* ReadHostile(const Bytes& bytes) {
  CMemoryFile file;
  Fill(file, bytes);
  return Attempt([&] {
    CArchive a(&file, CArchive::Load);
    int32_t number;
    CUnicodeString text;
    CString narrow;
    double real;
    a >> number >> text >> narrow;
    for (int i = 0; i < 3; ++i) a.ReadObject();
    a >> real >> text;
    for (int i = 0; i < 2; ++i) a.ReadObject();
  });
}

// A byte changed (at random, or to one that means something to a length or
// a code), bytes inserted, a run deleted, or noise.
Bytes Mutate(Bytes bytes, std::mt19937& random) {
  auto pick = [&](size_t limit) { return limit == 0 ? 0 : size_t(random() % limit); };
  static const uint8_t meaningful[] = {0x00, 0x01, 0x02, 0x03, 0x05, 0x7F, 0x80, 0xFE, 0xFF};
  size_t at = pick(bytes.size()), kind = random() % 4;
  if (kind == 0 && !bytes.empty())
    bytes[at] = random() % 2 ? uint8_t(random()) : meaningful[pick(9)];
  else if (kind == 1)
    bytes.insert(bytes.begin() + ptrdiff_t(at), 1 + pick(8), uint8_t(random()));
  else if (kind == 2)
    bytes.erase(bytes.begin() + ptrdiff_t(at),
                bytes.begin() + ptrdiff_t(std::min(bytes.size(), at + 1 + pick(32))));
  else
    for (uint8_t& b : bytes = Bytes(pick(600))) b = uint8_t(random());
  return bytes;
}

}  // namespace

TEST(Archive, EveryTruncationOfAValidStreamEndsAtTheEndOfFile) {
  Bytes sample = SampleStream();
  ASSERT_STREQ("none", ReadHostile(sample));
  for (size_t cut = 0; cut < sample.size(); ++cut)
    ASSERT_STREQ("end of file", ReadHostile(Bytes(sample.begin(), sample.begin() + ptrdiff_t(cut))))
        << cut;
  EXPECT_EQ(0, live);
}

TEST(Archive, MutatedAndRandomStreamsFailCleanlyWithoutLeaks) {
  const uint32_t seed = 20240611;
  std::mt19937 random(seed);
  Bytes sample = SampleStream();
  // Error reporting caches what it reads once per process: a first round on
  // the ordinary heap lets it, before anything is counted.
  for (int i = 0; i < 300; ++i) ReadHostile(Mutate(sample, random));
  auto stringBytes = [] {
    const CStringAllocator& allocator = GetStringAllocator();
    return int64_t(allocator.GetPool32().GetBytesInUse()) + allocator.GetPool64().GetBytesInUse() +
           allocator.GetPool128().GetBytesInUse() + allocator.GetHeap().GetByteCount();
  };
  const int64_t strings = stringBytes();
  // The archive's buffer and tables, the objects and the memory file come
  // from the thread's current manager: this counting heap.
  CHeapManager heap(0, true);
  std::set<std::string> seen;
  for (int i = 0; i < 50000; ++i) {
    Bytes stream = Mutate(sample, random);
    const char* kind;
    {
      CMemoryManagerSwitch onHeap(&heap);
      kind = ReadHostile(stream);
    }
    seen.insert(kind);
    ASSERT_TRUE(seen.size() <= 5 && strncmp(kind, "internal", 8) && strncmp(kind, "other", 5))
        << "stream " << i << " of seed " << seed << " ends in " << kind;
    ASSERT_TRUE(live == 0 && heap.GetBlockCount() == 0 && strings == stringBytes())
        << "leak in stream " << i;
  }
  // Each ending must occur, or the mutations miss a path.
  EXPECT_EQ(5u, seen.size());
}
