// CIniFile: the loader's line rules, the section tables, and the canonical
// saving. The parser is our own; the platform's profile functions are never
// used, so the rules below are the only ones that apply to these files.
#include "inifile.h"

#include "basefile.h"
#include "errors.h"
#include "filesystem.h"
#include "services.h"

namespace Tsl {

static const wchar_t* const Unit = L"inifile";

// The first pool page of every ini table holds 128 bytes of entries.
static const int32_t FirstPageBytes = 128;

template <class Entry>
static int32_t EntriesInFirstPage() {
  int32_t entries = FirstPageBytes / int32_t(sizeof(Entry));
  return entries > 0 ? entries : 1;
}

CIniSection::CIniSection()
    : CMap<CUnicodeString, CUnicodeString, CIniKeyTraits, RuntimeHeap>(
          0, EntriesInFirstPage<CMapEntry<CUnicodeString, CUnicodeString>>()) {}

// ---- Sorting ---------------------------------------------------------------

static void SwapStrings(CUnicodeString& a, CUnicodeString& b) {
  CUnicodeString kept(static_cast<CUnicodeString&&>(a));
  a = static_cast<CUnicodeString&&>(b);
  b = static_cast<CUnicodeString&&>(kept);
}

static void SelectionSort(CUnicodeString* items, int32_t count) {
  for (int32_t i = 0; i + 1 < count; ++i) {
    int32_t least = i;
    for (int32_t j = i + 1; j < count; ++j)
      if (items[j].Compare(items[least]) < 0) least = j;
    if (least != i) SwapStrings(items[i], items[least]);
  }
}

// Splits items[0..count) around the element that stood in the middle and
// returns the pivot's final place: smaller ones before it, the rest after.
static int32_t Partition(CUnicodeString* items, int32_t count) {
  SwapStrings(items[0], items[count / 2]);
  int32_t last = 0;
  for (int32_t i = 1; i < count; ++i)
    if (items[i].Compare(items[0]) < 0) SwapStrings(items[++last], items[i]);
  SwapStrings(items[0], items[last]);
  return last;
}

// Quicksort without recursion. The larger part is pushed and the smaller one
// worked on next, so 32 levels are enough for any array that fits in memory.
void SortStringsByUnits(CArray<CUnicodeString>& strings) {
  struct CRange {
    int32_t first;
    int32_t count;
  };
  CRange stack[32];
  int32_t depth = 0;
  CUnicodeString* items = strings.GetData();
  CRange range = {0, strings.GetSize()};
  for (;;) {
    if (range.count <= 8) {
      SelectionSort(items + range.first, range.count);
      if (depth == 0) return;
      range = stack[--depth];
      continue;
    }
    int32_t pivot = Partition(items + range.first, range.count);
    CRange below = {range.first, pivot};
    CRange above = {range.first + pivot + 1, range.count - pivot - 1};
    bool belowSmaller = below.count < above.count;
    TSL_ASSERT(depth < 32, Unit, 78);
    if (depth >= 32) return;
    stack[depth++] = belowSmaller ? above : below;
    range = belowSmaller ? below : above;
  }
}

// ---- Names -----------------------------------------------------------------

// The one normalisation of section names and keys before any compare.
static CUnicodeString Normalized(const CUnicodeString& name) {
  CUnicodeString result(name);
  result.Trim();
  return result;
}

static bool HoldsCrLf(const CUnicodeString& text) { return text.Find(L"\r\n") >= 0; }

static bool IsLineBreak(wchar_t unit) {
  return unit == 10 || unit == 13 || unit == 11 || unit == 12 || unit == 0x2028 || unit == 0x2029;
}

static bool HoldsLineBreak(const CUnicodeString& text) {
  for (int32_t i = 0; i < text.Length(); ++i)
    if (IsLineBreak(text[i])) return true;
  return false;
}

// Whether the loader would read `line` as a comment.
static bool IsComment(const CUnicodeString& line) {
  return line.Length() > 0 && (line[0] == L';' || (line.Length() > 1 && line[0] == L'/' && line[1] == L'/'));
}

// Whether a trimmed key would come back from a saved file as the same key:
// the loader ends a key at the first "=", and takes lines starting with ";",
// "//" or a bracketed header for something else.
static bool IsStorableKey(const CUnicodeString& key) {
  if (HoldsLineBreak(key) || key.Find(L'=') >= 0 || IsComment(key)) return false;
  return !(key.Length() > 0 && key[0] == L'[' && key.Find(L']') >= 0);
}

static bool IsStorableSectionName(const CUnicodeString& name) {
  return !HoldsLineBreak(name) && name.Find(L']') < 0;
}

// Two separators of either kind, or any unit, a colon and a separator. One
// separator alone, or "X:" without one, is relative to the executable.
static bool IsAbsoluteIniPath(const CUnicodeString& path) {
  if (path.Length() >= 2 && IsPathSeparator(path[0]) && IsPathSeparator(path[1])) return true;
  return path.Length() >= 3 && path[1] == L':' && IsPathSeparator(path[2]);
}

// ---- CIniFile --------------------------------------------------------------

CIniFile::CIniFile(const CUnicodeString& path)
    : loaded(false),
      changed(false),
      sectionIndex(0, EntriesInFirstPage<CMapEntry<CUnicodeString, CIniSection*>>()) {
  CUnicodeString trimmed(path);
  trimmed.Trim();
  // The form is judged as written: " C:\x.ini" does not begin with a drive,
  // so it is a name below the program's folder.
  if (IsAbsoluteIniPath(path)) {
    NormalizePath(trimmed);
    fileName = trimmed;
  } else {
    fileName = ConcatPath(GetExecutableFolder(), trimmed);
  }
}

CIniFile::~CIniFile() {
  if (changed) {
    try {
      Save();
    } catch (CException* exception) {
      ReportException(exception);
      delete exception;
    }
  }
  DropSections();
}

void CIniFile::DropSections() {
  // The index goes first: it points into the sections that the array owns.
  sectionIndex.DeleteAll();
  sections.DeleteAll();
}

CIniSection* CIniFile::FindSection(const CUnicodeString& name) const {
  CIniSection* const* found = sectionIndex.Find(name);
  return found != nullptr ? *found : nullptr;
}

// A new, empty section; `name` is normalised and not in the index yet.
CIniSection* CIniFile::CreateSection(const CUnicodeString& name) {
  TSL_ASSERT(!HoldsCrLf(name), Unit, 171);
  TSL_ASSERT(!sectionIndex.Has(name), Unit, 172);
  CIniSection* section = new CIniSection;
  sections.Add(section);
  sectionIndex.Insert(name, section);
  return section;
}

void CIniFile::EnsureLoaded() {
  if (!loaded) Load();
}

// For writing: a file that is not there yet is a new, empty file.
void CIniFile::EnsureLoadedOrNew() {
  if (loaded) return;
  if (!FileExists(fileName, CFile::ModeExistenceOnly)) {
    DropSections();
    loaded = true;
    return;
  }
  Load();
}

void CIniFile::Load() {
  CArray<CUnicodeString> lines;
  DropSections();
  loaded = false;
  changed = false;
  ReadTextFileLines(fileName, lines);
  ParseLines(lines);
}

void CIniFile::LoadFromLines(const CArray<CUnicodeString>& lines) {
  DropSections();
  loaded = false;
  changed = false;
  ParseLines(lines);
}

// The line rules. A header only names the current section; the section is
// made when its first key arrives, so a header with nothing behind it leaves
// nothing. A second header of the same name (in any case) adds to the first.
void CIniFile::ParseLines(const CArray<CUnicodeString>& lines) {
  CUnicodeString current;  // section of the lines that follow
  for (int32_t number = 0; number < lines.GetSize(); ++number) {
    CUnicodeString line(lines[number]);
    line.Trim();
    if (line.IsEmpty() || IsComment(line)) continue;
    if (line[0] == L'[') {
      int32_t close = line.Find(L']', 1);
      if (close > 0) {
        // Whatever follows the bracket is ignored.
        current = Normalized(line.Mid(1, close - 1));
        continue;
      }
      // "[x=1" has no header: it is a key "[x" like any other line.
    }
    int32_t equals = line.Find(L'=');
    if (equals < 0) {
      GenerateCheckError(L"ERR_BAD_INI_FILE", fileName, CUnicodeString::FromNumber(int64_t(number)));
      return;
    }
    // No quoting and no escapes: quote marks belong to the value.
    CUnicodeString key = Normalized(line.Left(equals));
    CUnicodeString value = line.Mid(equals + 1);
    value.Trim();
    CIniSection* section = FindSection(current);
    if (section == nullptr) section = CreateSection(current);
    // The last occurrence wins, in its own spelling.
    section->Set(key, value);
  }
  loaded = true;
}

CUnicodeString CIniFile::GetValue(const CUnicodeString& section, const CUnicodeString& key,
                                  const CUnicodeString& defaultValue) {
  TSL_ASSERT(!HoldsCrLf(section) && !HoldsCrLf(key), Unit, 247);
  EnsureLoaded();
  CIniSection* found = FindSection(Normalized(section));
  if (found == nullptr) return defaultValue;
  const CUnicodeString* value = found->Find(Normalized(key));
  return value != nullptr ? *value : defaultValue;
}

void CIniFile::GetSectionNames(CArray<CUnicodeString>& names) {
  names.DeleteAll();
  EnsureLoaded();
  for (const auto& entry : sectionIndex) names.Add(entry.key);
}

void CIniFile::GetKeyNames(const CUnicodeString& section, CArray<CUnicodeString>& names) {
  TSL_ASSERT(!HoldsCrLf(section), Unit, 262);
  names.DeleteAll();
  EnsureLoaded();
  CIniSection* found = FindSection(Normalized(section));
  if (found == nullptr) return;
  for (const auto& entry : *found) names.Add(entry.key);
}

void CIniFile::SetValue(const CUnicodeString& section, const CUnicodeString& key,
                        const CUnicodeString& value) {
  CUnicodeString name = Normalized(section);
  CUnicodeString trimmedKey = Normalized(key);
  CUnicodeString trimmedValue(value);
  trimmedValue.Trim();
  TSL_ASSERT(IsStorableSectionName(name), Unit, 276);
  TSL_ASSERT(IsStorableKey(trimmedKey), Unit, 277);
  TSL_ASSERT(!HoldsLineBreak(trimmedValue), Unit, 278);
  if (!IsStorableSectionName(name) || !IsStorableKey(trimmedKey) || HoldsLineBreak(trimmedValue)) return;
  EnsureLoadedOrNew();
  CIniSection* found = FindSection(name);
  if (found == nullptr) found = CreateSection(name);
  found->Set(trimmedKey, trimmedValue);
  changed = true;
}

bool CIniFile::DeleteKey(const CUnicodeString& section, const CUnicodeString& key) {
  TSL_ASSERT(!HoldsCrLf(section) && !HoldsCrLf(key), Unit, 288);
  EnsureLoaded();
  CUnicodeString name = Normalized(section);
  CIniSection* found = FindSection(name);
  if (found == nullptr || found->Remove(Normalized(key)) == 0) return false;
  // A section is never empty, as none comes from a file: saved empty, its
  // header would not come back.
  if (found->IsEmpty()) RemoveSection(name, found);
  changed = true;
  return true;
}

bool CIniFile::DeleteSection(const CUnicodeString& section) {
  TSL_ASSERT(!HoldsCrLf(section), Unit, 301);
  EnsureLoaded();
  CUnicodeString name = Normalized(section);
  CIniSection* found = FindSection(name);
  if (found == nullptr) return false;
  RemoveSection(name, found);
  changed = true;
  return true;
}

void CIniFile::RemoveSection(const CUnicodeString& name, CIniSection* section) {
  sectionIndex.Remove(name);
  sections.DeleteAt(sections.Find(section));
}

// key=value lines of one section, keys in code-unit order, no blanks around
// the "=".
static void AppendSectionLines(const CIniSection& section, CUnicodeString& text) {
  CArray<CUnicodeString> keys;
  keys.Reserve(section.GetCount());
  for (const auto& entry : section) keys.Add(entry.key);
  SortStringsByUnits(keys);
  for (const CUnicodeString& key : keys) {
    text += key;
    text += L'=';
    text += *section.Find(key);
    text += L"\r\n";
  }
}

CUnicodeString CIniFile::GetCanonicalText() const {
  CUnicodeString text;
  // The keys before any header come first and have no header of their own.
  CIniSection* unnamed = FindSection(CUnicodeString());
  if (unnamed != nullptr) {
    AppendSectionLines(*unnamed, text);
    text += L"\r\n";
  }
  CArray<CUnicodeString> names;
  names.Reserve(sectionIndex.GetCount());
  for (const auto& entry : sectionIndex) names.Add(entry.key);
  SortStringsByUnits(names);
  for (const CUnicodeString& name : names) {
    if (name.IsEmpty()) continue;
    text += L'[';
    text += name;
    text += L"]\r\n";
    AppendSectionLines(*FindSection(name), text);
    text += L"\r\n";
  }
  return text;
}

// Saving what was never read keeps what the file holds: it is read first, and
// a file that isn't there raises what the file layer raises. Only a file
// given values by SetValue may be new.
void CIniFile::Save() {
  EnsureLoaded();
  WriteTextFile(fileName, GetCanonicalText());
  changed = false;
}

}  // namespace Tsl
