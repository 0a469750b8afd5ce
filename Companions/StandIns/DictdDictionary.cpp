// Reading dictd dictionaries: the index is scanned in memory, since the
// demonstration looks up one word per chord and the largest index in use is
// a few megabytes; entries are read from the data file at their offsets.
#include "DictdDictionary.h"

#include <windows.h>

namespace {

// Index numbers are written in this alphabet, six bits per character.
int DictdDigit(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Reads a whole file into a new zero-terminated block. Null on any failure.
char* ReadWholeFile(const wchar_t* path, int32_t& length) {
  HANDLE file = ::CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return nullptr;
  LARGE_INTEGER size;
  char* block = nullptr;
  // Indexes far beyond any real dictionary's are refused rather than loaded.
  if (::GetFileSizeEx(file, &size) && size.QuadPart < 256 * 1024 * 1024) {
    length = static_cast<int32_t>(size.QuadPart);
    block = new char[length + 1];
    DWORD read = 0;
    if (!::ReadFile(file, block, static_cast<DWORD>(length), &read, nullptr) ||
        read != static_cast<DWORD>(length)) {
      delete[] block;
      block = nullptr;
    } else {
      block[length] = 0;
    }
  }
  ::CloseHandle(file);
  return block;
}

Tsl::CUnicodeString FromUtf8(const char* text, int32_t length) {
  return Tsl::CUnicodeString(text, length, CP_UTF8);
}

// One parsed line of the index; `word` points into the index block.
struct IndexLine {
  const char* word;
  int32_t wordLength;
  uint32_t offset;
  uint32_t length;
};

// Parses the line starting at `line` (ending before `end` or at a newline) and
// returns the start of the next one. `parsed` is false for a line that is not
// "word<TAB>offset<TAB>length".
const char* ParseIndexLine(const char* line, const char* end, IndexLine& out, bool& parsed) {
  const char* stop = line;
  while (stop < end && *stop != '\n') ++stop;
  const char* next = stop < end ? stop + 1 : end;
  if (stop > line && stop[-1] == '\r') --stop;
  parsed = false;
  const char* tab1 = line;
  while (tab1 < stop && *tab1 != '\t') ++tab1;
  if (tab1 == stop) return next;
  const char* tab2 = tab1 + 1;
  while (tab2 < stop && *tab2 != '\t') ++tab2;
  if (tab2 == stop) return next;
  out.word = line;
  out.wordLength = static_cast<int32_t>(tab1 - line);
  parsed = DecodeDictdNumber(tab1 + 1, static_cast<int32_t>(tab2 - tab1 - 1), out.offset) &&
           DecodeDictdNumber(tab2 + 1, static_cast<int32_t>(stop - tab2 - 1), out.length);
  return next;
}

// The dictionary's own records (name, licence, alphabet) are headwords that
// start with "00database" or "00-database".
bool IsDatabaseRecord(const IndexLine& line) {
  return line.wordLength >= 2 && line.word[0] == '0' && line.word[1] == '0';
}

}  // namespace

bool DecodeDictdNumber(const char* text, int32_t length, uint32_t& value) {
  if (length <= 0) return false;
  uint64_t result = 0;
  for (int32_t i = 0; i < length; ++i) {
    int digit = DictdDigit(text[i]);
    if (digit < 0) return false;
    result = (result << 6) | static_cast<uint64_t>(digit);
    if (result > 0xFFFFFFFFull) return false;
  }
  value = static_cast<uint32_t>(result);
  return true;
}

CDictdDictionary::CDictdDictionary() : index(nullptr), indexLength(0) {}

CDictdDictionary::~CDictdDictionary() { Close(); }

void CDictdDictionary::Close() {
  delete[] index;
  index = nullptr;
  indexLength = 0;
}

bool CDictdDictionary::Open(const wchar_t* indexPath, const wchar_t* dictPath) {
  Close();
  if (::GetFileAttributesW(dictPath) == INVALID_FILE_ATTRIBUTES) return false;
  index = ReadWholeFile(indexPath, indexLength);
  dataPath = dictPath;
  return index != nullptr;
}

bool CDictdDictionary::ReadEntry(uint32_t offset, uint32_t length,
                                 Tsl::CUnicodeString& entry) const {
  // An entry is a few lines; a length beyond this is a broken index.
  if (length > 1024 * 1024) return false;
  HANDLE file = ::CreateFileW(dataPath.Text(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  LARGE_INTEGER position;
  position.QuadPart = offset;
  char* bytes = new char[length + 1];
  DWORD read = 0;
  bool ok = ::SetFilePointerEx(file, position, nullptr, FILE_BEGIN) &&
            ::ReadFile(file, bytes, length, &read, nullptr) && read == length;
  ::CloseHandle(file);
  if (ok) entry = FromUtf8(bytes, static_cast<int32_t>(length));
  delete[] bytes;
  return ok;
}

bool CDictdDictionary::Lookup(const wchar_t* word, Tsl::CUnicodeString& entries,
                              int32_t maxEntries) const {
  if (index == nullptr || word == nullptr || *word == 0) return false;
  // The key is compared in UTF-8, folded to lower case: indexes hold their
  // headwords in UTF-8 and mostly in lower case already.
  Tsl::CUnicodeString lowered(word);
  lowered.MakeLower();
  Tsl::CString key = lowered.ToNarrow(CP_UTF8);
  const char* end = index + indexLength;
  int32_t found = 0;
  for (const char* line = index; line < end && found < maxEntries;) {
    IndexLine parsed;
    bool ok = false;
    line = ParseIndexLine(line, end, parsed, ok);
    if (!ok || parsed.wordLength != key.Length()) continue;
    int32_t i = 0;
    while (i < parsed.wordLength && AsciiLower(parsed.word[i]) == key.Text()[i]) ++i;
    if (i != parsed.wordLength) continue;
    Tsl::CUnicodeString entry;
    if (!ReadEntry(parsed.offset, parsed.length, entry)) return false;
    entry.TrimRight();
    if (found > 0) entries += L"\r\n\r\n";
    entries += entry;
    ++found;
  }
  return found > 0;
}

bool CDictdDictionary::HeadwordAt(uint32_t number, Tsl::CUnicodeString& headword) const {
  if (index == nullptr) return false;
  const char* end = index + indexLength;
  uint32_t words = 0;
  for (const char* line = index; line < end;) {
    IndexLine parsed;
    bool ok = false;
    line = ParseIndexLine(line, end, parsed, ok);
    if (ok && !IsDatabaseRecord(parsed) && parsed.wordLength > 0) ++words;
  }
  if (words == 0) return false;
  uint32_t wanted = number % words;
  for (const char* line = index; line < end;) {
    IndexLine parsed;
    bool ok = false;
    line = ParseIndexLine(line, end, parsed, ok);
    if (!ok || IsDatabaseRecord(parsed) || parsed.wordLength == 0) continue;
    if (wanted-- == 0) {
      headword = FromUtf8(parsed.word, parsed.wordLength);
      return true;
    }
  }
  return false;
}

CDictdShelf::~CDictdShelf() {
  for (int32_t i = 0; i < count; ++i) delete dictionaries[i];
}

int32_t CDictdShelf::OpenFolder(const wchar_t* folder) {
  Tsl::CUnicodeString base(folder);
  if (!base.IsEmpty() && base[base.Length() - 1] != L'\\') base += L'\\';
  WIN32_FIND_DATAW found;
  HANDLE search = ::FindFirstFileW((base + L"*.index").Text(), &found);
  if (search == INVALID_HANDLE_VALUE) return count;
  do {
    if (count == MaxDictionaries) break;
    Tsl::CUnicodeString name(found.cFileName);
    name = name.Left(name.Length() - 6);  // without ".index"
    CDictdDictionary* dictionary = new CDictdDictionary;
    if (dictionary->Open((base + found.cFileName).Text(), (base + name + L".dict").Text())) {
      names[count] = name;
      dictionaries[count++] = dictionary;
    } else {
      delete dictionary;
    }
  } while (::FindNextFileW(search, &found));
  ::FindClose(search);
  return count;
}

bool CDictdShelf::Lookup(const wchar_t* word, Tsl::CUnicodeString& entries) const {
  bool any = false;
  for (int32_t i = 0; i < count; ++i) {
    Tsl::CUnicodeString entry;
    if (!dictionaries[i]->Lookup(word, entry)) continue;
    if (any) entries += L"\r\n\r\n";
    entries += L"[" + names[i] + L"]\r\n" + entry;
    any = true;
  }
  return any;
}

bool CDictdShelf::WordOfDay(uint32_t day, Tsl::CUnicodeString& word) const {
  // A large odd step spreads consecutive days over the whole index.
  return count > 0 && dictionaries[0]->HeadwordAt(day * 7919u, word);
}
