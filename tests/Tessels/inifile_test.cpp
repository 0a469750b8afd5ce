// Tests of CIniFile: the loader's line rules as a table, errors with their
// line numbers, every encoding on real files, the canonical saved form and
// its byte-exact round trip, the setter's invariants, and a deterministic
// fuzz of random files checked against an independent model of the rules.
#include "inifile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "basefile.h"
#include "errors.h"
#include "filesystem.h"

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

CCheckException* AsCheck(const std::unique_ptr<CException>& e) {
  return dynamic_cast<CCheckException*>(e.get());
}

void LoadText(CIniFile& ini, const std::wstring& text) {
  CArray<CUnicodeString> lines;
  SplitTextLines(U(text), lines);
  ini.LoadFromLines(lines);
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

// FF FE and the text in UTF-16 little-endian: what a save must produce.
std::string Utf16File(const std::wstring& text) {
  std::string bytes("\xFF\xFE", 2);
  for (wchar_t unit : text) {
    bytes += char(unit & 0xFF);
    bytes += char(unit >> 8);
  }
  return bytes;
}

const CUnicodeString NoFile(L"C:\\nowhere\\memory.ini");

}  // namespace

struct LookupCase {
  const wchar_t* text;     // the file's text
  const wchar_t* section;  // looked up
  const wchar_t* key;
  const wchar_t* expected;  // null: the default comes back
};

TEST(IniFileLineRules, EachLineFormGivesItsKeyAndValue) {
  const LookupCase cases[] = {
      {L"[ Sec ]\na=1\n[sec]\nb=2", L"SEC", L"a", L"1"},
      {L"[ Sec ]\na=1\n[sec]\nb=2", L"SEC", L"b", L"2"},
      {L"k=v\n[s]\nx=1", L"s", L"k", nullptr},
      {L"a=b=c", L"", L"a", L"b=c"},
      {L"=x", L"", L"", L"x"},
      {L"[x]y=1\nz=2", L"x", L"z", L"2"},
      {L"[x]y=1\nz=2", L"x", L"y", nullptr},
      {L"[x=1", L"", L"[x", L"1"},
      {L"/x=1", L"", L"/x", L"1"},
      {L"\t a = b c \t", L"", L"A", L"b c"},
      {L";k=1\n//k=2\n  \nk=3", L"", L"k", L"3"},
      {L"[a]\n[b]\nk=1", L"a", L"k", nullptr},
      {L"[s]\rk=v\x2028j=w", L"s", L"j", L"w"},
      {L"k=v;not a comment", L"", L"k", L"v;not a comment"},
  };
  for (const LookupCase& c : cases) {
    CIniFile ini(NoFile);
    LoadText(ini, c.text);
    ASSERT_TRUE(ini.IsLoaded()) << Narrow(c.text);
    std::wstring expected = c.expected ? c.expected : L"<default>";
    EXPECT_EQ(W(ini.GetValue(c.section, c.key, L"<default>")), expected)
        << Narrow(c.text) << " / " << Narrow(c.section) << " / " << Narrow(c.key);
  }
}

TEST(IniFileErrors, LineWithoutEqualsNamesFileAndLineFromZero) {
  const struct {
    const wchar_t* text;
    const wchar_t* line;
  } cases[] = {
      {L"[x", L"0"},
      {L"a=1\n\n;c\nbad", L"3"},
      {L"a=1\r\n  \r\n//c\r\n[s]\r\nb=2\r\nno equals here", L"5"},
      {L"k=1\n#", L"1"},
  };
  for (const auto& c : cases) {
    CIniFile ini(NoFile);
    auto e = Catch([&] { LoadText(ini, c.text); });
    CCheckException* check = AsCheck(e);
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
  const struct {
    const char* name;
    std::string bytes;
    wchar_t acute;
  } cases[] = {
      {"utf16le", Utf16File(L"[z]\r\nb=\xE9\r\n[a]\r\nk=v"), 0xE9},
      {"utf16be",
       std::string("\xFE\xFF\0", 3) + Utf16File(L"[z]\r\nb=\xE9\r\n[a]\r\nk=v").substr(2, 35),
       0xE9},
      {"utf8", "\xEF\xBB\xBF[z]\r\nb=\xC3\xA9\r\n[a]\r\nk=v", 0xE9},
      {"ansi", "[z]\r\nb=\xE9\r\n[a]\r\nk=v", ansiAcute},
  };
  ScratchFolder folder;
  for (const auto& c : cases) {
    std::wstring path = folder / (TestSupport::Widen(c.name) + L".ini");
    ASSERT_TRUE(TestSupport::WriteBytes(path, c.bytes)) << c.name;
    {
      CIniFile ini(path.c_str());
      EXPECT_EQ(W(ini.GetValue(L"Z", L"B", L"")), std::wstring(1, c.acute)) << c.name;
      EXPECT_EQ(W(ini.GetValue(L"a", L"k", L"")), L"v") << c.name;
      ini.Save();
    }
    std::wstring canonical = std::wstring(L"[a]\r\nk=v\r\n\r\n[z]\r\nb=") + c.acute + L"\r\n\r\n";
    EXPECT_EQ(ReadBytes(path), Utf16File(canonical)) << c.name;
  }
}

TEST(IniFileSaving, SaveAndReloadIsByteExact) {
  ScratchFolder folder;
  std::wstring path = folder / L"round.ini";
  ASSERT_TRUE(TestSupport::WriteBytes(
      path,
      "; header comment\r\nlone = top\r\n[ Zeta ]\r\nk = \"quoted\" value\r\n[alpha]\r\n"
      "x=1=2\r\n//c\r\n[zeta]\r\nK2 = [v]\r\n=empty key\r\nempty=\r\n"));
  { CIniFile(path.c_str()).Save(); }
  std::string first = ReadBytes(path);
  { CIniFile(path.c_str()).Save(); }
  EXPECT_EQ(ReadBytes(path), first);
  CIniFile again(path.c_str());
  EXPECT_EQ(W(again.GetValue(L"ZETA", L"k", L"")), L"\"quoted\" value");
  EXPECT_EQ(W(again.GetValue(L"zeta", L"", L"")), L"empty key");
  EXPECT_EQ(W(again.GetValue(L"zeta", L"empty", L"default")), L"");
  EXPECT_EQ(W(again.GetValue(L"alpha", L"x", L"")), L"1=2");
}

TEST(IniFileSaving, OnlyAChangedFileIsSavedOnDestruction) {
  ScratchFolder folder;
  std::wstring path = folder / L"keep.ini";
  const std::string original = "; keep me\r\n[s]\r\nk=1\r\n";
  ASSERT_TRUE(TestSupport::WriteBytes(path, original));
  {
    CIniFile ini(path.c_str());
    EXPECT_EQ(W(ini.GetValue(L"s", L"k", L"")), L"1");
  }
  EXPECT_EQ(ReadBytes(path), original);
  {
    CIniFile ini(path.c_str());
    ini.SetValue(L" s ", L" new ", L"  2 ");
    EXPECT_TRUE(ini.IsChanged());
  }
  EXPECT_EQ(ReadBytes(path), Utf16File(L"[s]\r\nk=1\r\nnew=2\r\n\r\n"));
  // A file that is not there yet is created; the last spelling of a key wins.
  std::wstring fresh = folder / L"new.ini";
  {
    CIniFile ini(fresh.c_str());
    ini.SetValue(L"", L"top", L"1");
    ini.SetValue(L"Debug", L"Log", L"on");
    ini.SetValue(L"DEBUG", L"LOG", L"off");
  }
  EXPECT_EQ(ReadBytes(fresh), Utf16File(L"top=1\r\n\r\n[Debug]\r\nLOG=off\r\n\r\n"));
}

// Random files from fragments that hit every rule, checked against a model
// written from the rules alone: lookups, key spellings, error line numbers,
// and that the canonical text parses back to itself.

namespace {

std::wstring Lower(std::wstring text) {
  for (wchar_t& unit : text) unit = wchar_t(towlower(unit));
  return text;
}

std::wstring Trimmed(const std::wstring& text) {
  size_t first = text.find_first_not_of(L" \t");
  if (first == std::wstring::npos) return std::wstring();
  size_t last = text.find_last_not_of(L" \t");
  return text.substr(first, last - first + 1);
}

struct ModelSection {
  std::wstring spelling;
  std::map<std::wstring, std::pair<std::wstring, std::wstring>> keys;  // lower -> spelling, value
};

struct Model {
  int errorLine = -1;
  std::map<std::wstring, ModelSection> sections;  // lower name -> section
};

Model Parse(const std::vector<std::wstring>& lines) {
  Model model;
  std::wstring current;
  for (size_t n = 0; n < lines.size(); ++n) {
    std::wstring line = Trimmed(lines[n]);
    if (line.empty() || line[0] == L';' || line.compare(0, 2, L"//") == 0) continue;
    if (line[0] == L'[' && line.find(L']') != std::wstring::npos) {
      current = Trimmed(line.substr(1, line.find(L']') - 1));
      continue;
    }
    size_t equals = line.find(L'=');
    if (equals == std::wstring::npos) {
      model.errorLine = int(n);
      return model;
    }
    auto inserted = model.sections.insert({Lower(current), ModelSection{current, {}}});
    std::wstring key = Trimmed(line.substr(0, equals));
    inserted.first->second.keys[Lower(key)] = {key, Trimmed(line.substr(equals + 1))};
  }
  return model;
}

std::wstring RandomLine(std::mt19937& random) {
  static const wchar_t* const names[] = {L"a", L"A", L"b", L"B", L"ab", L"aB", L"x y", L"", L"Z"};
  static const wchar_t* const values[] = {L"",    L"1", L"v",  L"=",     L"a=b",
                                          L"[s]", L";", L"//", L"\"q\"", L"#"};
  static const wchar_t* const spaces[] = {L"", L" ", L"\t", L"  \t"};
  auto pick = [&](auto& table) {
    return std::wstring(table[random() % (sizeof table / sizeof table[0])]);
  };
  auto space = [&] { return pick(spaces); };
  switch (random() % 12) {
    case 0:
      return space();
    case 1:
      return space() + L";" + pick(values) + L"=" + pick(names);
    case 2:
      return space() + L"//" + pick(names);
    case 3:
    case 4:
      return space() + L"[" + space() + pick(names) + space() + L"]" + pick(values);
    case 5:
      return L"[" + pick(names) + L"=" + pick(values);
    case 6:
      // Rare: a line the loader refuses (when it has no "=").
      return random() % 4 == 0 ? space() + pick(names) + L"]"
                               : L"/" + pick(names) + L"=" + pick(values);
    default:
      return space() + pick(names) + space() + L"=" + space() + pick(values) + space();
  }
}

}  // namespace

TEST(IniFileFuzz, RandomFilesFollowTheModelAndSaveCanonically) {
  std::mt19937 random(20240611);
  CIniFile ini(NoFile);
  CIniFile reloaded(NoFile);
  int errors = 0;
  for (int file = 0; file < 10000; ++file) {
    std::vector<std::wstring> lines(random() % 14);
    CArray<CUnicodeString> array;
    for (std::wstring& line : lines) {
      line = RandomLine(random);
      array.Add(U(line));
    }
    Model model = Parse(lines);
    auto e = Catch([&] { ini.LoadFromLines(array); });
    std::string where = "file " + std::to_string(file);
    if (model.errorLine >= 0) {
      ++errors;
      ASSERT_NE(AsCheck(e), nullptr) << where;
      ASSERT_EQ(W(AsCheck(e)->params[1]), std::to_wstring(model.errorLine)) << where;
      continue;
    }
    ASSERT_EQ(e, nullptr) << where;

    CArray<CUnicodeString> names;
    ini.GetSectionNames(names);
    ASSERT_EQ(size_t(names.GetSize()), model.sections.size()) << where;
    for (const auto& section : model.sections) {
      ini.GetKeyNames(U(section.second.spelling), names);
      ASSERT_EQ(size_t(names.GetSize()), section.second.keys.size()) << where;
      for (const auto& key : section.second.keys) {
        CUnicodeString value =
            ini.GetValue(U(section.second.spelling), U(key.second.first), L"<none>");
        ASSERT_EQ(W(value), key.second.second) << where;
      }
    }

    // The canonical text is a fixed point of load and save.
    CUnicodeString canonical = ini.GetCanonicalText();
    CArray<CUnicodeString> canonicalLines;
    SplitTextLines(canonical, canonicalLines);
    reloaded.LoadFromLines(canonicalLines);
    ASSERT_EQ(W(reloaded.GetCanonicalText()), W(canonical)) << where;
  }
  // The generator must reach both outcomes often enough to mean something.
  EXPECT_GT(errors, 500);
  EXPECT_LT(errors, 7000);
}
