// Tests of CFile and the whole-file text operations on real files: flags,
// failed opens, sharing violations, the hidden/system rule, a failing close
// (also in the destructor), every byte order mark and none, files that end
// early or are too long, line splitting and writing.
#include <gtest/gtest.h>
#include <windows.h>
#include <winioctl.h>

#include <memory>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "basefile.h"
#include "errors.h"
#include "nativefile.h"
#include "services.h"

using namespace Tsl;
using TestSupport::Narrow;
using TestSupport::ScratchFolder;

namespace {

std::wstring W(const CUnicodeString& text) { return std::wstring(text.Text(), text.Length()); }
CUnicodeString U(const std::wstring& text) { return CUnicodeString(text.c_str()); }

template <class F>
std::unique_ptr<CException> Catch(F action) {
  try {
    action();
  } catch (CException* exception) {
    return std::unique_ptr<CException>(exception);
  }
  return nullptr;
}

// The bytes of a literal, zeros inside included.
template <size_t N>
std::string Bytes(const char (&text)[N]) {
  return std::string(text, N - 1);
}

std::string ReadBytes(const std::wstring& path) {
  HANDLE handle =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  char buffer[256];
  DWORD read = 0;
  ReadFile(handle, buffer, sizeof buffer, &read, nullptr);
  CloseHandle(handle);
  return std::string(buffer, read);
}

// What the machine's ANSI page makes of `bytes`: unmarked text is read in it.
std::wstring Ansi(const std::string& bytes) {
  std::wstring text(bytes.size(), L'\0');
  text.resize(size_t(
      MultiByteToWideChar(CP_ACP, 0, bytes.data(), int(bytes.size()), &text[0], int(text.size()))));
  return text;
}

// Closes the handle of an open CFile behind its back, so its own close fails.
void PullHandleFrom(CFile& file) {
  CloseHandle(dynamic_cast<CNativeFile&>(*file.GetImplementation()).GetHandle());
}

}  // namespace

TEST(File, FlagsGiveAccessShareAndDisposition) {
  struct Row {
    uint32_t flags, access, share, disposition;
  } rows[] = {
      {0x20, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING},
      {0x1021, GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS},
      {0x1011, GENERIC_WRITE, 0, CREATE_ALWAYS},
      {0x32, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_WRITE, OPEN_EXISTING},
      {0x3040, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_ALWAYS},
      {0x4040, GENERIC_READ, 3, CREATE_NEW},
      {0x2040, GENERIC_READ, 3, OPEN_EXISTING},  // no-truncate alone is ignored
      {0x5040, GENERIC_READ, 3, CREATE_ALWAYS},  // create-new with create is ignored
  };
  for (const Row& row : rows) {
    EXPECT_EQ(row.access, CFile::AccessOfFlags(row.flags)) << std::hex << row.flags;
    EXPECT_EQ(row.share, CFile::ShareOfFlags(row.flags)) << std::hex << row.flags;
    EXPECT_EQ(row.disposition, CFile::DispositionOfFlags(row.flags)) << std::hex << row.flags;
  }
}

TEST(File, ClosedFileIgnoresEmptyTransfersAndAssertsOnUse) {
  CFile file;
  EXPECT_EQ(0, file.Read(nullptr, 0));
  file.Close();
  file.Abort();
  EXPECT_NE(nullptr, dynamic_cast<CInternalError*>(Catch([&] { file.GetLength(); }).get()));
}

TEST(File, FailedOpenNamesTheFullPathAndLeavesTheObjectReusable) {
  ScratchFolder folder;
  CFile file;
  auto error =
      Catch([&] { file.Open(U(folder / L"sub\\..\\missing.txt"), CFile::ShareDenyWrite); });
  auto* fileError = dynamic_cast<CFileException*>(error.get());
  ASSERT_NE(nullptr, fileError);
  EXPECT_EQ(FE_NotFound, fileError->kind);
  EXPECT_EQ(folder / L"missing.txt", W(fileError->fileName));
  EXPECT_FALSE(file.IsOpen());
  ASSERT_TRUE(TestSupport::WriteBytes(folder / L"there.txt", "x"));
  file.Open(U(folder / L"there.txt"), CFile::ShareDenyWrite);
  EXPECT_TRUE(file.IsOpen());
}

TEST(File, ExclusiveHolderMakesASecondOpenASharingViolationNamingTheFile) {
  ScratchFolder folder;
  CFile holder(U(folder / L"held.txt"), 0x1011);
  CFile second;
  auto error = Catch([&] { second.Open(U(folder / L"held.txt"), 0x20); });
  auto* fileError = dynamic_cast<CFileException*>(error.get());
  ASSERT_NE(nullptr, fileError);
  EXPECT_EQ(FE_SharingViolation, fileError->kind);
  // No catalogue: the message's name, a blank and the file's full name.
  EXPECT_EQ(L"ERR_FILE_SHARING_VIOLATION " + (folder / L"held.txt"),
            W(fileError->GetMessageText()));
}

// Windows refuses to replace a hidden or system file unless the new
// attributes carry the same bits; the open must succeed and keep them.
TEST(File, ReplacingAHiddenOrSystemFileKeepsItsBits) {
  ScratchFolder folder;
  const DWORD mask = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  for (DWORD bits : {DWORD(FILE_ATTRIBUTE_HIDDEN), DWORD(FILE_ATTRIBUTE_SYSTEM), mask}) {
    std::wstring path = folder / (L"kept" + std::to_wstring(bits));
    ASSERT_TRUE(TestSupport::WriteBytes(path, "old content"));
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), bits));
    WriteTextFile(U(path), L"new");
    EXPECT_EQ(Bytes("\xFF\xFE\x6E\0\x65\0\x77\0"), ReadBytes(path)) << bits;
    EXPECT_EQ(bits, GetFileAttributesW(path.c_str()) & mask) << bits;
  }
}

TEST(File, AFailingCloseLeavesTheObjectClosedAndTheDestructorReportsIt) {
  ScratchFolder folder;
  CFile file(U(folder / L"pulled.bin"), 0x1011);
  PullHandleFrom(file);
  auto error = Catch([&] { file.Close(); });
  auto* fileError = dynamic_cast<CFileException*>(error.get());
  ASSERT_NE(nullptr, fileError);
  EXPECT_EQ(uint32_t(ERROR_INVALID_HANDLE), fileError->systemCode);
  EXPECT_EQ(folder / L"pulled.bin", W(fileError->fileName));
  EXPECT_FALSE(file.IsOpen());

  struct CRecorder : IFoundationServices {
    bool GetMessageText(const wchar_t*, CUnicodeString&) override { return false; }
    int ShowMessage(const CUnicodeString&, uint32_t) override { return IDOK; }
    void ReportException(CException* exception) override {
      reported.push_back(W(exception->GetMessageText()));
    }
    std::vector<std::wstring> reported;
  } recorder;
  IFoundationServices* previous = BindFoundationServices(&recorder);
  error = Catch([&] {
    CFile doomed(U(folder / L"pulled.bin"), 0x1011);
    PullHandleFrom(doomed);
  });
  BindFoundationServices(previous);
  EXPECT_EQ(nullptr, error);
  ASSERT_EQ(1u, recorder.reported.size());
  EXPECT_NE(std::wstring::npos, recorder.reported[0].find(folder / L"pulled.bin"));
}

TEST(TextFile, EachMarkAndNoneDecodeAsTheyShould) {
  struct Row {
    const char* what;
    std::string bytes;
    std::wstring text;
  } rows[] = {
      {"empty", "", L""},
      {"one byte skips both mark tests", "A", L"A"},
      {"little-endian mark alone", "\xFF\xFE", L""},
      {"little-endian", Bytes("\xFF\xFE\x41\0\xAC\x20"), L"A\x20AC"},
      {"big-endian", Bytes("\xFE\xFF\0\x41\x20\xAC"), L"A\x20AC"},
      {"UTF-16 zero unit", Bytes("\xFF\xFE\x61\0\0\0\x62\0"), L"a b"},
      {"UTF-8 mark alone", "\xEF\xBB\xBF", L""},
      {"UTF-8", "\xEF\xBB\xBFh\xC3\xA9\xE2\x82\xAC", L"h\xE9\x20AC"},
      {"UTF-8 zero byte", Bytes("\xEF\xBB\xBF\x61\0\x62"), L"a b"},
      {"unmarked UTF-8 is ANSI", "\xEF\xBB", Ansi("\xEF\xBB")},
      {"ANSI", "caf\xE9", Ansi("caf\xE9")},
      {"only zero bytes", Bytes("\0\0\0"), L"   "},
  };
  ScratchFolder folder;
  for (const Row& row : rows) {
    std::wstring path = folder / L"text.txt";
    ASSERT_TRUE(TestSupport::WriteBytes(path, row.bytes)) << row.what;
    EXPECT_EQ(Narrow(row.text), Narrow(W(ReadTextFile(U(path))))) << row.what;
  }
}

TEST(TextFile, OddLengthUtf16IsABadTextFile) {
  ScratchFolder folder;
  std::wstring path = folder / L"odd.txt";
  for (const std::string& bytes : {Bytes("\xFF\xFE\x41"), Bytes("\xFE\xFF\0\x41\0")}) {
    ASSERT_TRUE(TestSupport::WriteBytes(path, bytes));
    auto error = Catch([&] { ReadTextFile(U(path)); });
    auto* check = dynamic_cast<CCheckException*>(error.get());
    ASSERT_NE(nullptr, check) << bytes.size();
    EXPECT_STREQ(L"ERR_BAD_TEXT_FILE", check->messageName);
    EXPECT_EQ(path, W(check->params[0]));
  }
}

namespace {

// A real file that gets shorter while it is read: asked for its length, it
// answers and then cuts the file to `keep` bytes through a second handle.
class CShrinkingFile : public CNativeFile {
 public:
  CShrinkingFile(const std::wstring& path, int64_t keep) : path(path), keep(keep) {
    Open(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
         nullptr);
  }
  int64_t GetLength() const override {
    int64_t length = CNativeFile::GetLength();
    HANDLE cutter = CreateFileW(path.c_str(), GENERIC_WRITE, 3, nullptr, OPEN_EXISTING, 0, nullptr);
    SetFilePointer(cutter, LONG(keep), nullptr, FILE_BEGIN);
    SetEndOfFile(cutter);
    CloseHandle(cutter);
    return length;
  }

 private:
  std::wstring path;
  int64_t keep;
};

}  // namespace

TEST(TextFile, AFileThatEndsEarlyRaisesEndOfFileWithItsName) {
  struct Row {
    const char* what;
    std::string bytes;
    int64_t keep;
  } rows[] = {
      {"UTF-16 units", Bytes("\xFF\xFE\x61\0\x62\0\x63\0"), 5},
      {"UTF-16 mark", Bytes("\xFF\xFE\x61\0"), 1},
      {"UTF-8 mark", "\xEF\xBB\xBF\x61\x62\x63", 2},
      {"UTF-8 text", "\xEF\xBB\xBF\x61\x62\x63", 4},
      {"ANSI text", "plain text", 6},
  };
  ScratchFolder folder;
  std::wstring path = folder / L"shrinking.txt";
  for (const Row& row : rows) {
    ASSERT_TRUE(TestSupport::WriteBytes(path, row.bytes)) << row.what;
    CShrinkingFile file(path, row.keep);
    auto error = Catch([&] { ReadText(file); });
    auto* fileError = dynamic_cast<CFileException*>(error.get());
    ASSERT_NE(nullptr, fileError) << row.what;
    EXPECT_EQ(FE_EndOfFile, fileError->kind) << row.what;
    EXPECT_EQ(path, W(fileError->fileName)) << row.what;
  }
}

TEST(TextFile, TwoGigabytesOrMoreIsAnAssertionNotATruncation) {
  ScratchFolder folder;
  std::wstring path = folder / L"huge.txt";
  for (int64_t length : {0x80000000LL, 0x100000001LL}) {
    {
      CFile file(U(path), 0x1011);
      DWORD returned = 0;
      if (!DeviceIoControl(dynamic_cast<CNativeFile&>(*file.GetImplementation()).GetHandle(),
                           FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr))
        GTEST_SKIP() << "the volume has no sparse files";
      file.SetLength(length);
    }
    auto error = Catch([&] { ReadTextFile(U(path)); });
    auto* internal = dynamic_cast<CInternalError*>(error.get());
    ASSERT_NE(nullptr, internal) << length;
    EXPECT_STREQ(L"file", internal->file);
  }
}

TEST(TextFile, LinesBreakAtEachSeparatorWithCrLfAsOne) {
  struct Row {
    std::wstring text;
    std::vector<std::wstring> lines;
  } rows[] = {
      {L"", {}},
      {L"a", {L"a"}},
      {L"a\r\n", {L"a", L""}},
      {L"a\n\rb", {L"a", L"", L"b"}},
      {L"a\r\rb\r\n\r\nc", {L"a", L"", L"b", L"", L"c"}},
      {L"1\v2\f3\x2028"
       L"4\x2029"
       L"5\n6\r7",
       {L"1", L"2", L"3", L"4", L"5", L"6", L"7"}},
      {L"tab\tand\x0085stay", {L"tab\tand\x0085stay"}},
  };
  CArray<CUnicodeString> lines;
  for (const Row& row : rows) {
    lines.Add(CUnicodeString(L"left over"));  // the array is emptied first
    SplitTextLines(row.text.c_str(), lines);
    std::vector<std::wstring> got;
    for (const CUnicodeString& line : lines) got.push_back(W(line));
    EXPECT_EQ(row.lines, got) << Narrow(row.text);
  }
}

TEST(TextFile, WriteReplacesTheFileWithTheMarkAndTheUnits) {
  ScratchFolder folder;
  std::wstring path = folder / L"out.txt";
  ASSERT_TRUE(TestSupport::WriteBytes(path, std::string(100, 'z')));
  WriteTextFile(U(path), L"A\x20AC\r\n");
  EXPECT_EQ(Bytes("\xFF\xFE\x41\0\xAC\x20\r\0\n\0"), ReadBytes(path));
  CArray<CUnicodeString> lines;
  ReadTextFileLines(U(path), lines);
  ASSERT_EQ(2, lines.GetSize());
  EXPECT_EQ(L"A\x20AC", W(lines[0]));
}
