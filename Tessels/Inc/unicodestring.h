// The text type of the system: CUnicodeString, 16-bit units in a shared,
// reference-counted, copy-on-write buffer from the string allocator, and its
// narrow twin CString for text on its way to and from code pages. Also the
// character sets (whitespace, digits, characters a file name cannot hold).
#pragma once

#include <windows.h>
#include <stdarg.h>
#include <stdint.h>

namespace Tsl {

// The three-word header in front of every string buffer; the text follows
// directly, `length` units and a zero unit, with room up to `capacity` bytes
// (header included, as the string allocator reported it).
struct CStringHeader {
  volatile LONG references;  // changed only by interlocked operations
  int32_t length;            // units, without the terminator
  int32_t capacity;          // bytes of the whole block
};

class CString;

// A text of 16-bit units. The object is one pointer; copying costs one
// interlocked increment. Every empty string shares one static buffer, which is
// never written and never freed. A single object is not safe for concurrent
// writing; two objects sharing a buffer may live in different threads.
class CUnicodeString {
 public:
  CUnicodeString();
  // Measures `text`; null counts as empty.
  CUnicodeString(const wchar_t* text);
  // `text[length]` must be the terminator: it is copied with the text.
  CUnicodeString(const wchar_t* text, int32_t length);
  // From narrow text in `codePage` (0 the ANSI page, 1 the OEM page). A null
  // text, length 0 or a failed conversion give the empty string; a zero byte
  // inside the text ends it.
  CUnicodeString(const char* text, int32_t length, UINT codePage = 0);
  CUnicodeString(const CUnicodeString& other) : header(other.header) { ::InterlockedIncrement(&header->references); }
  CUnicodeString(CUnicodeString&& other) noexcept;
  ~CUnicodeString() { Release(header); }

  CUnicodeString& operator=(const CUnicodeString& other);
  CUnicodeString& operator=(CUnicodeString&& other) noexcept;
  CUnicodeString& operator=(const wchar_t* text);

  // At most `count` units of `text`, stopping early at a zero unit; the
  // buffer keeps the room for `count` units.
  static CUnicodeString FromBounded(const wchar_t* text, int32_t count);

  int32_t Length() const { return header->length; }
  bool IsEmpty() const { return header->length == 0; }
  // The first unit; always terminated, valid until the string is changed.
  const wchar_t* Text() const { return reinterpret_cast<const wchar_t*>(header + 1); }
  // Unchecked: the caller keeps `index` within 0..Length().
  wchar_t operator[](int32_t index) const { return Text()[index]; }

  // Size in bytes of the buffer and whether another string holds it too:
  // for diagnostics and tests.
  int32_t Capacity() const { return header->capacity; }
  bool IsShared() const { return header->references != 1; }

  // Makes the buffer exclusive with room for `length` units, writes a
  // terminator at `length` and returns the writable text. Follow it with
  // SetBufferLength once the text is written.
  wchar_t* GetBuffer(int32_t length);
  // Sets the length after writing through GetBuffer; writes the terminator.
  void SetBufferLength(int32_t length);
  // Makes room for `length` units without changing the text.
  void Reserve(int32_t length);
  // Exclusive buffer: keeps it with length 0. Shared: takes the empty buffer.
  void Empty();
  // Replaces the text; `text` may point into this string itself.
  void Assign(const wchar_t* text, int32_t length);

  // Appending nothing changes nothing, not even the sharing.
  void Append(const wchar_t* text, int32_t length);
  void Append(const wchar_t* text);
  void Append(const CUnicodeString& text);  // may be the string itself
  void Append(wchar_t unit);
  CUnicodeString& operator+=(const CUnicodeString& text) { Append(text); return *this; }
  CUnicodeString& operator+=(const wchar_t* text) { Append(text); return *this; }
  CUnicodeString& operator+=(wchar_t unit) { Append(unit); return *this; }

  // Parts of the text. Bounds are unchecked: the caller guarantees
  // 0 <= from, 0 <= count and from + count <= Length().
  CUnicodeString Mid(int32_t from, int32_t count) const;
  CUnicodeString Mid(int32_t from) const;
  CUnicodeString Left(int32_t count) const;
  CUnicodeString Right(int32_t count) const;

  // Whitespace is the set tested by IsWhitespace.
  void TrimRight();
  void Trim();
  // Whitespace units in a row from `from`; 0 at or past the end.
  int32_t SpanOfWhitespace(int32_t from) const;
  // Lower-cases in place by the runtime's locale rules.
  void MakeLower();

  // Index of the first match at or after `from`, or -1.
  int32_t Find(wchar_t unit, int32_t from = 0) const;
  int32_t Find(const wchar_t* text, int32_t from = 0) const;
  int32_t ReverseFind(wchar_t unit) const;
  // Case-insensitive search (both sides lower-cased); index in this string or -1.
  int32_t FindNoCase(const wchar_t* text, int32_t from = 0) const;

  // Unit by unit as unsigned 16-bit values: -1, 0 or 1. Null compares as empty.
  int Compare(const wchar_t* text) const;
  int Compare(const CUnicodeString& text) const { return Compare(text.Text()); }
  // The runtime's case-insensitive compare: 0 when equal; 0x7FFFFFFF for null.
  int CompareNoCase(const wchar_t* text) const;

  // h = h*33 + c from the first unit as seed; 0 for the empty string.
  uint32_t HashKey() const;
  // The same over the upper-cased units.
  uint32_t HashKeyNoCase() const;

  // A new string with each marker %N replaced by params[N], markers with N
  // outside 0..count-1 removed and anything else kept as it stands.
  CUnicodeString SubstParam(const wchar_t* const* params, int32_t count) const;
  CUnicodeString SubstParam(const CUnicodeString& p0) const;
  CUnicodeString SubstParam(const CUnicodeString& p0, const CUnicodeString& p1) const;
  CUnicodeString SubstParam(const CUnicodeString& p0, const CUnicodeString& p1, const CUnicodeString& p2) const;
  CUnicodeString SubstParamArray(const CUnicodeString* params, int32_t count) const;

  // printf-style formatting with the runtime's wide formatter, replacing the
  // text; grows without limit.
  void Format(const wchar_t* format, ...);
  void FormatV(const wchar_t* format, va_list arguments);

  static CUnicodeString FromNumber(int64_t value);  // radix 10
  static CUnicodeString FromNumber(int32_t value, int radix);
  static CUnicodeString FromNumber(uint32_t value, int radix);
  static CUnicodeString FromBool(bool value);  // "true" or "false"
  // Accepts, trimmed and in any case, "true", "on", "yes", "1" and "false",
  // "off", "no", "0". Returns false and leaves `value` alone on anything else.
  bool ToBool(bool& value) const;
  // "0x" and the hexadecimal address, followed by " (module path)" when the
  // address lies in a loaded module.
  static CUnicodeString FromPointer(const void* address);

  // Loads a string resource of `module`. Returns false (and leaves the string
  // empty) when there is none or it is empty.
  bool LoadString(HMODULE module, UINT id);

  // To narrow text in `codePage` (0 the ANSI page, 1 the OEM page); a failed
  // conversion gives the empty string.
  CString ToNarrow(UINT codePage = 0) const;

 private:
  explicit CUnicodeString(CStringHeader* adopted) : header(adopted) {}
  static void Release(CStringHeader* buffer) {
    if (::InterlockedDecrement(&buffer->references) < 1) FreeBuffer(buffer);
  }
  static void FreeBuffer(CStringHeader* buffer);
  wchar_t* MutableText() { return reinterpret_cast<wchar_t*>(header + 1); }

  CStringHeader* header;

  friend CUnicodeString Concatenate(const wchar_t*, int32_t, const wchar_t*, int32_t);
};

CUnicodeString operator+(const CUnicodeString& left, const CUnicodeString& right);
CUnicodeString operator+(const CUnicodeString& left, const wchar_t* right);
CUnicodeString operator+(const wchar_t* left, const CUnicodeString& right);
CUnicodeString operator+(const CUnicodeString& left, wchar_t right);
CUnicodeString operator+(wchar_t left, const CUnicodeString& right);

inline bool operator==(const CUnicodeString& a, const CUnicodeString& b) { return a.Compare(b) == 0; }
inline bool operator!=(const CUnicodeString& a, const CUnicodeString& b) { return a.Compare(b) != 0; }
inline bool operator<(const CUnicodeString& a, const CUnicodeString& b) { return a.Compare(b) < 0; }
inline bool operator<=(const CUnicodeString& a, const CUnicodeString& b) { return a.Compare(b) <= 0; }
inline bool operator>(const CUnicodeString& a, const CUnicodeString& b) { return a.Compare(b) > 0; }
inline bool operator>=(const CUnicodeString& a, const CUnicodeString& b) { return a.Compare(b) >= 0; }
inline bool operator==(const CUnicodeString& a, const wchar_t* b) { return a.Compare(b) == 0; }
inline bool operator!=(const CUnicodeString& a, const wchar_t* b) { return a.Compare(b) != 0; }
inline bool operator<(const CUnicodeString& a, const wchar_t* b) { return a.Compare(b) < 0; }
inline bool operator<=(const CUnicodeString& a, const wchar_t* b) { return a.Compare(b) <= 0; }
inline bool operator>(const CUnicodeString& a, const wchar_t* b) { return a.Compare(b) > 0; }
inline bool operator>=(const CUnicodeString& a, const wchar_t* b) { return a.Compare(b) >= 0; }
inline bool operator==(const wchar_t* a, const CUnicodeString& b) { return b.Compare(a) == 0; }
inline bool operator!=(const wchar_t* a, const CUnicodeString& b) { return b.Compare(a) != 0; }
inline bool operator<(const wchar_t* a, const CUnicodeString& b) { return b.Compare(a) > 0; }
inline bool operator<=(const wchar_t* a, const CUnicodeString& b) { return b.Compare(a) >= 0; }
inline bool operator>(const wchar_t* a, const CUnicodeString& b) { return b.Compare(a) < 0; }
inline bool operator>=(const wchar_t* a, const CUnicodeString& b) { return b.Compare(a) <= 0; }

// The narrow twin: 8-bit units, the same buffer shape and sharing rules, its
// own shared empty buffer. Whitespace here is space, tab, CR, LF, FF and VT.
class CString {
 public:
  CString();
  CString(const char* text);                  // null counts as empty
  CString(const char* text, int32_t length);  // `text[length]` must be the terminator
  CString(const CString& other) : header(other.header) { ::InterlockedIncrement(&header->references); }
  CString(CString&& other) noexcept;
  ~CString() { Release(header); }

  CString& operator=(const CString& other);
  CString& operator=(CString&& other) noexcept;
  CString& operator=(const char* text);

  static CString FromBounded(const char* text, int32_t count);

  int32_t Length() const { return header->length; }
  bool IsEmpty() const { return header->length == 0; }
  const char* Text() const { return reinterpret_cast<const char*>(header + 1); }
  char operator[](int32_t index) const { return Text()[index]; }
  int32_t Capacity() const { return header->capacity; }
  bool IsShared() const { return header->references != 1; }

  char* GetBuffer(int32_t length);
  void SetBufferLength(int32_t length);
  void Reserve(int32_t length);
  void Empty();
  void Assign(const char* text, int32_t length);

  void Append(const char* text, int32_t length);
  void Append(const char* text);
  void Append(const CString& text);
  void Append(char unit);
  CString& operator+=(const CString& text) { Append(text); return *this; }
  CString& operator+=(const char* text) { Append(text); return *this; }
  CString& operator+=(char unit) { Append(unit); return *this; }

  CString Mid(int32_t from, int32_t count) const;
  CString Mid(int32_t from) const;
  CString Left(int32_t count) const;
  CString Right(int32_t count) const;

  void TrimRight();
  void Trim();
  int32_t SpanOfWhitespace(int32_t from) const;

  int32_t Find(char unit, int32_t from = 0) const;
  int32_t Find(const char* text, int32_t from = 0) const;

  // Byte by byte as unsigned values: -1, 0 or 1. Null compares as empty.
  int Compare(const char* text) const;
  int Compare(const CString& text) const { return Compare(text.Text()); }
  uint32_t HashKey() const;

  static CString FromNumber(uint32_t value);  // radix 10

  // To wide text from `codePage`; the same as the wide narrow-text constructor.
  CUnicodeString ToUnicode(UINT codePage = 0) const;

 private:
  explicit CString(CStringHeader* adopted) : header(adopted) {}
  static void Release(CStringHeader* buffer) {
    if (::InterlockedDecrement(&buffer->references) < 1) FreeBuffer(buffer);
  }
  static void FreeBuffer(CStringHeader* buffer);
  char* MutableText() { return reinterpret_cast<char*>(header + 1); }

  CStringHeader* header;

  friend CString Concatenate(const char*, int32_t, const char*, int32_t);
};

CString operator+(const CString& left, const CString& right);
CString operator+(const CString& left, const char* right);
CString operator+(const char* left, const CString& right);

inline bool operator==(const CString& a, const CString& b) { return a.Compare(b) == 0; }
inline bool operator!=(const CString& a, const CString& b) { return a.Compare(b) != 0; }
inline bool operator<(const CString& a, const CString& b) { return a.Compare(b) < 0; }
inline bool operator==(const CString& a, const char* b) { return a.Compare(b) == 0; }
inline bool operator!=(const CString& a, const char* b) { return a.Compare(b) != 0; }
inline bool operator==(const char* a, const CString& b) { return b.Compare(a) == 0; }
inline bool operator!=(const char* a, const CString& b) { return b.Compare(a) != 0; }

// A set of 16-bit code units, sparse: 64 pages of 1,024 bits each, a page
// made only where a member lies. Built once, then only read, so it may be
// tested from any thread.
class CCharacterSet {
 public:
  CCharacterSet();
  // Members: every unit of `members`.
  explicit CCharacterSet(const wchar_t* members);
  ~CCharacterSet();
  CCharacterSet(const CCharacterSet&) = delete;
  CCharacterSet& operator=(const CCharacterSet&) = delete;

  void Add(wchar_t unit);
  void AddRange(wchar_t first, wchar_t last);  // both ends included
  void AddText(const wchar_t* members);
  bool Contains(wchar_t unit) const {
    const uint32_t* page = pages[unit >> 10];
    return page != nullptr && (page[(unit & 1023) >> 5] >> (unit & 31) & 1) != 0;
  }

 private:
  uint32_t* pages[64];
};

// The program's sets.
bool IsWhitespace(wchar_t unit);
bool IsDecimalDigit(wchar_t unit);
bool IsForbiddenInFileName(wchar_t unit);  // *?<>:"|\/ and U+0001..U+001F
bool IsNarrowWhitespace(char unit);        // space, tab, CR, LF, FF, VT
bool IsNarrowDecimalDigit(char unit);

// The archive form of a string: its length in units as a compact number (one
// byte up to 254, else 0xFF and 32 bits), then the units, no terminator.
// Reading empties the string first; a negative length is ERR_BAD_ARCHIVE and
// one beyond any possible string the memory error.
class CArchive;
CArchive& operator<<(CArchive& archive, const CUnicodeString& text);
CArchive& operator>>(CArchive& archive, CUnicodeString& text);

}  // namespace Tsl
