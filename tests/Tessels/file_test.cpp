// Tests of CFile and the whole-file text operations: failed opens and sharing
// violations, the hidden/system rule, a failing close, every byte order mark
// and none, a file that ends early, line splitting.
#include "FileTestHelpers.h"
#include "memoryfile.h"
#include "nativefile.h"
#include "services.h"

using namespace FileTest;

namespace {

const uint32_t ReadDenyWrite = CFile::ModeRead | CFile::ShareDenyWrite;
const uint32_t CreateExclusive = CFile::ModeCreate | CFile::ModeWrite | CFile::ShareExclusive;

// The bytes of a literal, zeros inside included.
template <size_t Size>
std::string Bytes(const char (&text)[Size]) {
  return std::string(text, Size - 1);
}

// What the machine's ANSI page makes of `bytes`: unmarked text is read in it.
std::wstring Ansi(const std::string& bytes) {
  std::wstring text(bytes.size(), L'\0');
  int size = int(bytes.size());
  text.resize(size_t(MultiByteToWideChar(CP_ACP, 0, bytes.data(), size, &text[0], size)));
  return text;
}

// Closes the handle of an open CFile behind its back, so its own close fails.
void PullHandleFrom(CFile& file) {
  CloseHandle(dynamic_cast<CNativeFile&>(*file.GetImplementation()).GetHandle());
}

}  // namespace

TEST(File, FailedOpensNameTheFullPathAndLeaveTheObjectReusable) {
  ScratchFolder folder;
  CFile file;
  std::wstring name;
  auto openGone = [&] { file.Open(U(folder / L"sub\\..\\gone.txt"), ReadDenyWrite); };
  EXPECT_EQ(FE_NotFound, FileErrorKind(openGone, &name));
  EXPECT_EQ(folder / L"gone.txt", name);
  EXPECT_FALSE(file.IsOpen());

  // Another handle holds the file exclusively. Without a catalogue the text
  // is the message's name, a blank and the file's full name.
  CFile holder(U(folder / L"held.txt"), CreateExclusive);
  auto error = Catch([&] { file.Open(U(folder / L"held.txt"), ReadDenyWrite); });
  auto* fileError = dynamic_cast<CFileException*>(error.get());
  ASSERT_NE(nullptr, fileError);
  EXPECT_EQ(FE_SharingViolation, fileError->kind);
  EXPECT_EQ(L"ERR_FILE_SHARING_VIOLATION " + (folder / L"held.txt"),
            W(fileError->GetMessageText()));
  holder.Close();
  file.Open(U(folder / L"held.txt"), ReadDenyWrite);
  EXPECT_TRUE(file.IsOpen());
}

// The platform refuses to replace a hidden or system file unless the new
// attributes carry the same bits: the write must succeed, keep them, and
// leave nothing of the longer old content.
TEST(File, WriteTextReplacesAHiddenOrSystemFileAndKeepsItsBits) {
  ScratchFolder folder;
  const DWORD mask = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  for (DWORD bits : {DWORD(FILE_ATTRIBUTE_HIDDEN), DWORD(FILE_ATTRIBUTE_SYSTEM), mask}) {
    SCOPED_TRACE(bits);
    std::wstring path = folder / (L"kept" + std::to_wstring(bits));
    ASSERT_TRUE(WriteBytes(path, "old content"));
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), bits));
    WriteTextFile(U(path), L"n\x20AC");
    EXPECT_EQ(Bytes("\xFF\xFE\x6E\0\xAC\x20"), ReadBytes(path));
    EXPECT_EQ(bits, GetFileAttributesW(path.c_str()) & mask);
  }
}

TEST(File, AFailingCloseLeavesTheObjectClosedAndTheDestructorReportsIt) {
  ScratchFolder folder;
  CFile file(U(folder / L"pulled.bin"), CreateExclusive);
  PullHandleFrom(file);
  std::wstring name;
  EXPECT_GT(FileErrorKind([&] { file.Close(); }, &name), 0);
  EXPECT_EQ(folder / L"pulled.bin", name);
  EXPECT_FALSE(file.IsOpen());

  struct CRecorder : IFoundationServices {
    bool GetMessageText(const wchar_t*, CUnicodeString&) override { return false; }
    int ShowMessage(const CUnicodeString&, uint32_t) override { return IDOK; }
    void ReportException(CException* exception) override {
      reported += W(exception->GetMessageText());
    }
    std::wstring reported;
  } recorder;
  IFoundationServices* previous = BindFoundationServices(&recorder);
  auto error = Catch([&] {
    CFile doomed(U(folder / L"pulled.bin"), CreateExclusive);
    PullHandleFrom(doomed);
  });
  BindFoundationServices(previous);
  EXPECT_EQ(nullptr, error);
  EXPECT_NE(std::wstring::npos, recorder.reported.find(folder / L"pulled.bin"));
}

TEST(TextFile, EachMarkAndNoneDecodeAndOddUtf16IsABadTextFile) {
  struct Row {
    const char* what;
    std::string bytes;
    std::wstring text;
  } rows[] = {
      // clang-format off
      {"empty", "", L""},              {"one byte skips both mark tests", "A", L"A"},
      {"little-endian mark alone", "\xFF\xFE", L""},
      {"little-endian", Bytes("\xFF\xFE\x41\0\xAC\x20"), L"A\x20AC"},
      {"big-endian", Bytes("\xFE\xFF\0\x41\x20\xAC"), L"A\x20AC"},
      {"UTF-16 zero unit", Bytes("\xFF\xFE\x61\0\0\0\x62\0"), L"a b"},
      {"UTF-8", "\xEF\xBB\xBFh\xC3\xA9\xE2\x82\xAC", L"h\xE9\x20AC"},
      {"UTF-8 zero byte", Bytes("\xEF\xBB\xBF\x61\0\x62"), L"a b"},
      {"unmarked UTF-8 is ANSI", "\xEF\xBB", Ansi("\xEF\xBB")},
      {"ANSI with a zero byte", Bytes("caf\xE9\0"), Ansi("caf\xE9 ")},
      // clang-format on
  };
  ScratchFolder folder;
  std::wstring path = folder / L"text.txt";
  for (const Row& row : rows) {
    ASSERT_TRUE(WriteBytes(path, row.bytes)) << row.what;
    EXPECT_EQ(Narrow(row.text), N(ReadTextFile(U(path)))) << row.what;
  }
  ASSERT_TRUE(WriteBytes(path, Bytes("\xFE\xFF\0\x41\0")));
  auto error = Catch([&] { ReadTextFile(U(path)); });
  auto* check = dynamic_cast<CCheckException*>(error.get());
  ASSERT_NE(nullptr, check);
  EXPECT_STREQ(L"ERR_BAD_TEXT_FILE", check->messageName);
  EXPECT_EQ(path, W(check->params[0]));
}

// A file may get shorter between the question for its length and the read.
TEST(TextFile, AFileThatEndsEarlyRaisesEndOfFileWithItsName) {
  struct CShrinkingFile : CMemoryFile {
    int64_t GetLength() const override { return CMemoryFile::GetLength() + 2; }
  } file;
  file.Write("\xFF\xFE\x61\0", 4);
  file.SeekToBegin();
  std::wstring name;
  EXPECT_EQ(FE_EndOfFile, FileErrorKind([&] { ReadText(file); }, &name));
  EXPECT_EQ(W(file.GetFileName()), name);
}

TEST(TextFile, LinesBreakAtEachSeparatorWithCrLfAsOne) {
  struct Row {
    std::wstring text;
    std::vector<std::wstring> lines;
  } rows[] = {
      // clang-format off
      {L"", {}}, {L"a\r\n", {L"a", L""}}, {L"a\n\rb", {L"a", L"", L"b"}},
      {L"a\r\rb\r\n\r\nc", {L"a", L"", L"b", L"", L"c"}},
      {L"1\v2\f3\u20284\u20295\n6\r7", {L"1", L"2", L"3", L"4", L"5", L"6", L"7"}},
      {L"tab\tand\x0085stay", {L"tab\tand\x0085stay"}},
      // clang-format on
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
