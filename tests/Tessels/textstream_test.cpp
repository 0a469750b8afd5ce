// Tests of CTextStream (the byte order mark rule on files and archives, the
// conversions between narrow and wide text, line ends left alone) and of the
// line-by-line text writer that goes through an archive.
#include "textstream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "TextFileBytes.h"
#include "archive.h"
#include "memoryfile.h"

using namespace Tsl;
using TextFileBytes::Utf16WithMark;

static std::string Content(const CMemoryFile& file) {
  return std::string(reinterpret_cast<const char*>(file.GetBufferData()), size_t(file.GetLength()));
}

TEST(TextStreamMark, OnlyAtAnEmptyFileOrArchivePositionZeroAndNeverNarrow) {
  CMemoryFile file;
  CTextStream first(&file, TE_Utf16);
  EXPECT_FALSE(first.IsMarkDone());
  first.WriteText(L"ab", 2);
  first.WriteText(L"c", 1);
  // A second stream appends to a file that has content: no second mark.
  CTextStream(&file, TE_Utf16).WriteText(L"d", 1);
  EXPECT_EQ(Content(file), Utf16WithMark(L"abcd"));

  CMemoryFile narrow;
  CTextStream(&narrow, TE_Narrow).WriteText("ab", 2);
  EXPECT_EQ(Content(narrow), "ab");

  // An archive that begins in the middle of a file is at its position 0;
  // once it has moved on, another stream writes no mark.
  CMemoryFile middle;
  middle.Write("head", 4);
  {
    CArchive archive(&middle, CArchive::Store);
    CTextStream(&archive, TE_Utf16).WriteText(L"a", 1);
    CTextStream(&archive, TE_Utf16).WriteText(L"b", 1);
    archive.Close();
  }
  EXPECT_EQ(Content(middle), "head" + Utf16WithMark(L"ab"));
}

TEST(TextStreamConversion, EachPairOfTextAndEncodingGivesItsBytes) {
  // clang-format off
  const struct {
    const char* name; int32_t encoding; uint32_t codePage;
    const wchar_t* wide;  // null: `narrow` is written instead
    const char* narrow; std::string expected;
  } cases[] = {
      {"wide as utf16", TE_Utf16, 0, L"a\x20AC\r\n", "", Utf16WithMark(L"a\x20AC\r\n")},
      {"narrow 1252 to utf16", TE_Utf16, 1252, nullptr, "a\xE9\x80", Utf16WithMark(L"a\xE9\x20AC")},
      {"wide to utf8", TE_Narrow, CP_UTF8, L"\xE9\x20AC", "", "\xC3\xA9\xE2\x82\xAC"},
      {"narrow as is", TE_Narrow, CP_UTF8, nullptr, "\xFF\xFE raw", "\xFF\xFE raw"},
      // Line ends are the caller's: a lone LF stays a lone LF.
      {"no line translation", TE_Narrow, 1252, L"a\nb\r", "", "a\nb\r"},
  };
  // clang-format on
  for (const auto& c : cases) {
    CMemoryFile file;
    CTextStream stream(&file, c.encoding, c.codePage);
    if (c.wide)
      stream.WriteText(c.wide, int32_t(wcslen(c.wide)));
    else
      stream.WriteText(c.narrow, int32_t(strlen(c.narrow)));
    EXPECT_EQ(Content(file), c.expected) << c.name;
  }
}

TEST(TextFileLines, EveryLineButTheLastEndsWithCrLf) {
  // clang-format off
  const struct { std::vector<std::wstring> lines; std::wstring text; } cases[] = {
      {{}, L""},
      {{L"a", L""}, L"a\r\n"},
      {{L"", L"", L"b"}, L"\r\n\r\nb"},
      {{L"key=value", L"\x00E9\x2028"}, L"key=value\r\n\x00E9\x2028"},
  };
  // clang-format on
  TestSupport::ScratchFolder folder;
  std::wstring path = folder / L"lines.txt";
  for (const auto& c : cases) {
    CArray<CUnicodeString> lines;
    for (const std::wstring& line : c.lines) lines.Add(CUnicodeString(line.c_str()));
    WriteTextFileLines(path.c_str(), lines);
    EXPECT_EQ(TextFileBytes::ReadAll(path), Utf16WithMark(c.text)) << c.lines.size();
  }
}
