// Tests of CIniFile: the loader's line rules as a table, errors with their
// line numbers, every encoding on real files, the canonical saved form and
// its byte-exact round trip, and a deterministic fuzz of random files checked
// against an independent model of the rules.
#include "inifile.h"

#include <map>
#include <random>

#include "FileTestHelpers.h"
#include "TextFileBytes.h"
#include "filesystem.h"

using namespace FileTest;
using TextFileBytes::ReadAll;
using TextFileBytes::Utf16WithMark;

namespace {

void LoadText(CIniFile& ini, const std::wstring& text) {
  CArray<CUnicodeString> lines;
  SplitTextLines(U(text), lines);
  ini.LoadFromLines(lines);
}

const CUnicodeString NoFile(L"C:\\nowhere\\memory.ini");

// A model of the line rules written without the loader, for the fuzz.
std::wstring Lower(std::wstring text) {
  for (wchar_t& unit : text) unit = wchar_t(towlower(unit));
  return text;
}

std::wstring Trimmed(const std::wstring& text) {
  size_t first = text.find_first_not_of(L" \t");
  if (first == std::wstring::npos) return std::wstring();
  return text.substr(first, text.find_last_not_of(L" \t") - first + 1);
}

// Lower section name -> lower key -> value; returns the bad line or -1.
using Sections = std::map<std::wstring, std::map<std::wstring, std::wstring>>;
int Parse(const std::vector<std::wstring>& lines, Sections& sections) {
  std::wstring current;
  for (size_t n = 0; n < lines.size(); ++n) {
    std::wstring line = Trimmed(lines[n]);
    size_t close = line.find(L']'), equals = line.find(L'=');
    if (line.empty() || line[0] == L';' || line.compare(0, 2, L"//") == 0) continue;
    if (line[0] == L'[' && close != std::wstring::npos)
      current = Lower(Trimmed(line.substr(1, close - 1)));
    else if (equals == std::wstring::npos)
      return int(n);
    else
      sections[current][Lower(Trimmed(line.substr(0, equals)))] = Trimmed(line.substr(equals + 1));
  }
  return -1;
}

std::wstring RandomLine(std::mt19937& random) {
  // clang-format off
  static const wchar_t* const heads[] = {L"", L"", L" ", L"\t", L";", L"//", L"/", L"[", L" [ "};
  static const wchar_t* const words[] = {L"", L"a", L"A", L"aB", L"x y", L" b ", L"=", L"[s]", L"\"q\"", L"#"};
  static const wchar_t* const tails[] = {L"", L"", L" ", L"]", L" ] v"};
  // clang-format on
  std::wstring line = heads[random() % 9] + std::wstring(words[random() % 10]);
  line += (random() % 8 ? L"=" : L"") + std::wstring(words[random() % 10]);
  return line + tails[random() % 5];
}

}  // namespace

TEST(IniFileLineRules, EachLineFormGivesItsKeyAndValue) {
  // Text, section and key looked up, expected value (null: the default).
  // clang-format off
  const struct { const wchar_t *text, *section, *key, *expected; } cases[] = {
      {L"[ Sec ]\na=1\n[sec]\nb=2", L"SEC", L"a", L"1"},
      {L"[ Sec ]\na=1\n[sec]\nb=2", L"SEC", L"b", L"2"},
      {L"a=b=c", L"", L"a", L"b=c"},
      {L"[x]y=1\nz=2", L"x", L"y", nullptr},
      {L"[x=1", L"", L"[x", L"1"},
      {L"\t a = b c \t", L"", L"A", L"b c"},
      {L"[s]\rk=v\x2028j=w", L"s", L"j", L"w"},
      {L"k=v;not a comment", L"", L"k", L"v;not a comment"},
  };
  // clang-format on
  for (const auto& c : cases) {
    CIniFile ini(NoFile);
    LoadText(ini, c.text);
    EXPECT_EQ(W(ini.GetValue(c.section, c.key, L"-")), c.expected ? c.expected : L"-")
        << Narrow(c.text) << " / " << Narrow(c.section) << " / " << Narrow(c.key);
  }
}

TEST(IniFileErrors, LineWithoutEqualsNamesFileAndLineFromZero) {
  // clang-format off
  const struct { const wchar_t *text, *line; } cases[] = {
      {L"[x", L"0"}, {L"a=1\n\n;c\nbad", L"3"}, {L"k=1\n#", L"1"},
      {L"a=1\r\n  \r\n//c\r\n[s]\r\nb=2\r\nno equals here", L"5"},
  };
  // clang-format on
  for (const auto& c : cases) {
    CIniFile ini(NoFile);
    auto e = Catch([&] { LoadText(ini, c.text); });
    auto* check = dynamic_cast<CCheckException*>(e.get());
    ASSERT_NE(check, nullptr) << Narrow(c.text);
    EXPECT_STREQ(check->messageName, L"ERR_BAD_INI_FILE");
    EXPECT_EQ(W(check->params[0]), W(ini.GetFileName()));
    EXPECT_EQ(W(check->params[1]), c.line) << Narrow(c.text);
  }
}

TEST(IniFileEncodings, EveryEncodingIsReadAndSavedAsSortedUtf16) {
  // e acute: one unit in UTF-16, two bytes in UTF-8, one byte in the
  // Western ANSI page (the text is what the machine's ANSI page gives).
  wchar_t ansiAcute = 0;
  MultiByteToWideChar(CP_ACP, 0, "\xE9", 1, &ansiAcute, 1);
  const std::string le = Utf16WithMark(L"[z]\r\nb=\xE9\r\n[a]\r\nk=v");
  // clang-format off
  const struct { const char* name; std::string bytes; wchar_t acute; } cases[] = {
      {"utf16le", le, 0xE9},
      {"utf16be", std::string("\xFE\xFF\0", 3) + le.substr(2, 35), 0xE9},
      {"utf8", "\xEF\xBB\xBF[z]\r\nb=\xC3\xA9\r\n[a]\r\nk=v", 0xE9},
      {"ansi", "[z]\r\nb=\xE9\r\n[a]\r\nk=v", ansiAcute},
  };
  // clang-format on
  ScratchFolder folder;
  for (const auto& c : cases) {
    std::wstring path = folder / (TestSupport::Widen(c.name) + L".ini");
    ASSERT_TRUE(WriteBytes(path, c.bytes)) << c.name;
    {
      CIniFile ini(path.c_str());
      EXPECT_EQ(W(ini.GetValue(L"Z", L"B", L"")), std::wstring(1, c.acute)) << c.name;
      EXPECT_EQ(W(ini.GetValue(L"a", L"k", L"")), L"v") << c.name;
      ini.Save();
    }
    std::wstring canonical = std::wstring(L"[a]\r\nk=v\r\n\r\n[z]\r\nb=") + c.acute + L"\r\n\r\n";
    EXPECT_EQ(ReadAll(path), Utf16WithMark(canonical)) << c.name;
  }
}

// Absolute is a drive with a separator or two separators, as written; all
// else is a name below the program's folder.
TEST(IniFilePaths, OnlyADriveWithASeparatorOrTwoSeparatorsAtTheStartAreAbsolute) {
  // clang-format off
  const struct { const wchar_t *path, *absolute; } cases[] = {
      {L"C:\\a\\..\\x.ini ", L"C:\\x.ini"}, {L"\\\\srv\\share\\x.ini", L"\\\\srv\\share\\x.ini"},
      {L" C:\\x.ini", nullptr}, {L"C:x.ini", nullptr}, {L"\\x.ini", nullptr},
  };
  // clang-format on
  for (const auto& c : cases) {
    CUnicodeString relative(c.path);
    relative.Trim();
    CUnicodeString expected = c.absolute ? CUnicodeString(c.absolute)
                                         : ConcatPath(GetExecutableFolder(), relative);
    EXPECT_EQ(W(CIniFile(c.path).GetFileName()), W(expected)) << Narrow(c.path);
  }
}

TEST(IniFileSaving, SaveReloadIsByteExactAndOnlyChangesAreSaved) {
  ScratchFolder folder;
  std::wstring path = folder / L"round.ini";
  ASSERT_TRUE(WriteBytes(path,
                         "; header\r\nlone = top\r\n[ Zeta ]\r\nk = \"quoted\" value\r\n[alpha]\r\n"
                         "x=1=2\r\n//c\r\n[zeta]\r\nK2 = [v]\r\n=empty key\r\nempty=\r\n"));
  { CIniFile(path.c_str()).Save(); }
  std::string first = ReadAll(path);
  { CIniFile(path.c_str()).Save(); }
  EXPECT_EQ(ReadAll(path), first);
  CIniFile again(path.c_str());
  EXPECT_EQ(W(again.GetValue(L"ZETA", L"k", L"")), L"\"quoted\" value");
  EXPECT_EQ(W(again.GetValue(L"zeta", L"", L"")), L"empty key");

  // An unchanged file keeps its comments; a new one is created on
  // destruction, trimmed, and the last spelling of a key wins.
  std::wstring keep = folder / L"keep.ini", fresh = folder / L"new.ini";
  ASSERT_TRUE(WriteBytes(keep, "; keep me\r\n[s]\r\nk=1\r\n"));
  { CIniFile(keep.c_str()).GetValue(L"s", L"k", L""); }
  EXPECT_EQ(ReadAll(keep), "; keep me\r\n[s]\r\nk=1\r\n");
  {
    CIniFile ini(fresh.c_str());
    ini.SetValue(L"", L" top ", L"  1 ");
    ini.SetValue(L"Debug", L"Log", L"on");
    ini.SetValue(L"DEBUG", L"LOG", L"off");
  }
  EXPECT_EQ(ReadAll(fresh), Utf16WithMark(L"top=1\r\n\r\n[Debug]\r\nLOG=off\r\n\r\n"));

  // Saving a file that was never read and isn't there raises what reading it
  // raises, and makes no file.
  std::wstring absent = folder / L"absent.ini";
  auto e = Catch([&] { CIniFile(absent.c_str()).Save(); });
  auto* fileError = dynamic_cast<CFileException*>(e.get());
  ASSERT_NE(fileError, nullptr);
  EXPECT_EQ(fileError->kind, FE_NotFound);
  EXPECT_EQ(GetFileAttributesW(absent.c_str()), INVALID_FILE_ATTRIBUTES);
}

// Random files checked against the model: lookups, key counts, error line
// numbers, and that the canonical text parses back to itself.
TEST(IniFileFuzz, RandomFilesFollowTheModelAndSaveCanonically) {
  std::mt19937 random(20240611);
  CIniFile ini(NoFile), reloaded(NoFile);
  int errors = 0;
  for (int file = 0; file < 10000; ++file) {
    std::vector<std::wstring> lines(random() % 14);
    CArray<CUnicodeString> array, names;
    for (std::wstring& line : lines) array.Add(U(line = RandomLine(random)));
    Sections model;
    int errorLine = Parse(lines, model);
    auto e = Catch([&] { ini.LoadFromLines(array); });
    std::string where = "file " + std::to_string(file);
    auto* check = dynamic_cast<CCheckException*>(e.get());
    if (errorLine >= 0) {
      ++errors;
      ASSERT_NE(check, nullptr) << where;
      ASSERT_EQ(W(check->params[1]), std::to_wstring(errorLine)) << where;
      continue;
    }
    ASSERT_EQ(e, nullptr) << where;
    ini.GetSectionNames(names);
    ASSERT_EQ(size_t(names.GetSize()), model.size()) << where;
    for (const auto& [section, keys] : model) {
      ini.GetKeyNames(U(section), names);
      ASSERT_EQ(size_t(names.GetSize()), keys.size()) << where;
      for (const auto& [key, value] : keys)
        ASSERT_EQ(W(ini.GetValue(U(section), U(key), L"-")), value) << where;
    }
    std::wstring canonical = W(ini.GetCanonicalText());
    LoadText(reloaded, canonical);
    ASSERT_EQ(W(reloaded.GetCanonicalText()), canonical) << where;
  }
  // The generator must reach both outcomes often enough to mean something.
  EXPECT_GT(errors, 500);
  EXPECT_LT(errors, 7000);
}
