// Tests of CTextStream (the byte order mark rule on files and archives, the
// conversions between narrow and wide text, line ends left alone) and of the
// line-by-line text writer that goes through an archive.
#include "textstream.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "archive.h"
#include "basefile.h"
#include "memoryfile.h"

using namespace Tsl;
using TestSupport::ScratchFolder;

namespace {

std::string Content(const CMemoryFile& file) {
  return std::string(reinterpret_cast<const char*>(file.GetBufferData()), size_t(file.GetLength()));
}

std::string ReadBytes(const std::wstring& path) {
  HANDLE handle =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  std::string bytes;
  char buffer[4096];
  DWORD read = 0;
  while (ReadFile(handle, buffer, sizeof buffer, &read, nullptr) && read > 0)
    bytes.append(buffer, read);
  CloseHandle(handle);
  return bytes;
}

std::string Utf16(const std::wstring& text) {
  std::string bytes;
  for (wchar_t unit : text) {
    bytes += char(unit & 0xFF);
    bytes += char(unit >> 8);
  }
  return bytes;
}

const std::string Mark("\xFF\xFE", 2);

}  // namespace

TEST(TextStreamMark, Utf16IntoAnEmptyFileStartsWithOneMark) {
  CMemoryFile file;
  CTextStream first(&file, TE_Utf16);
  EXPECT_FALSE(first.IsMarkDone());
  first.WriteText(L"ab", 2);
  first.WriteText(L"c", 1);
  EXPECT_TRUE(first.IsMarkDone());
  // A second stream appends to a file that has content: no second mark.
  CTextStream second(&file, TE_Utf16);
  second.WriteText(L"d", 1);
  EXPECT_TRUE(second.IsMarkDone());
  EXPECT_EQ(Content(file), Mark + Utf16(L"abcd"));
  // Narrow output never has one, even into an empty file.
  CMemoryFile narrow;
  CTextStream(&narrow, TE_Narrow).WriteText("ab", 2);
  EXPECT_EQ(Content(narrow), "ab");
}

TEST(TextStreamMark, ArchivePositionDecidesNotTheFileLength) {
  // An archive that begins in the middle of a file is at its position 0.
  CMemoryFile file;
  file.Write("head", 4);
  {
    CArchive archive(&file, CArchive::Store);
    CTextStream stream(&archive, TE_Utf16);
    stream.WriteText(L"a", 1);
    // Once the archive has moved on, another stream writes no mark.
    CTextStream later(&archive, TE_Utf16);
    later.WriteText(L"b", 1);
    archive.Close();
  }
  EXPECT_EQ(Content(file), "head" + Mark + Utf16(L"ab"));
}

TEST(TextStreamConversion, EachPairOfTextAndEncodingGivesItsBytes) {
  const struct {
    const char* name;
    int32_t encoding;
    uint32_t codePage;
    bool wide;  // wide or narrow input
    std::wstring wideText;
    std::string narrowText;
    std::string expected;  // after the mark, if any
  } cases[] = {
      {"wide as utf16", TE_Utf16, 0, true, L"a\x20AC\r\n", "", Mark + Utf16(L"a\x20AC\r\n")},
      {"narrow 1252 to utf16", TE_Utf16, 1252, false, L"", "a\xE9\x80",
       Mark + Utf16(L"a\xE9\x20AC")},
      {"wide to utf8", TE_Narrow, CP_UTF8, true, L"\xE9\x20AC", "", "\xC3\xA9\xE2\x82\xAC"},
      {"narrow as is", TE_Narrow, CP_UTF8, false, L"", "\xFF\xFE raw", "\xFF\xFE raw"},
      // Line ends are the caller's: a lone LF stays a lone LF.
      {"no line translation", TE_Narrow, 1252, true, L"a\nb\r", "", "a\nb\r"},
  };
  for (const auto& c : cases) {
    CMemoryFile file;
    CTextStream stream(&file, c.encoding, c.codePage);
    if (c.wide)
      stream.WriteText(c.wideText.data(), int32_t(c.wideText.size()));
    else
      stream.WriteText(c.narrowText.data(), int32_t(c.narrowText.size()));
    EXPECT_EQ(Content(file), c.expected) << c.name;
  }
}

TEST(TextFileLines, EveryLineButTheLastEndsWithCrLf) {
  const struct {
    std::vector<std::wstring> lines;
    std::wstring text;  // after the mark
  } cases[] = {
      {{}, L""},
      {{L"a", L""}, L"a\r\n"},
      {{L"", L"", L"b"}, L"\r\n\r\nb"},
      {{L"key=value", L"\x00E9\x2028"}, L"key=value\r\n\x00E9\x2028"},
  };
  ScratchFolder folder;
  std::wstring path = folder / L"lines.txt";
  for (const auto& c : cases) {
    CArray<CUnicodeString> lines;
    for (const std::wstring& line : c.lines) lines.Add(CUnicodeString(line.c_str()));
    WriteTextFileLines(path.c_str(), lines);
    EXPECT_EQ(ReadBytes(path), Mark + Utf16(c.text)) << c.lines.size();
  }
}
