// The text types: buffer management shared by the wide and the narrow string
// (one template over the unit type), then the wide string's own operations
// (substitution, formatting, numbers, resources, code pages), the narrow
// string, and the character sets.
#include "unicodestring.h"

#include <errno.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <type_traits>
#include <wchar.h>
#include <wctype.h>

#include "alloc.h"
#include "archive.h"
#include "errors.h"
#include "message.h"
#include "privateallocators.h"
#include "tessels.h"

namespace Tsl {

// The shared empty buffers. Static data, ready before any code runs. Their
// count starts at 2 so that no balanced sequence of copies and releases can
// free them or make a string believe it owns one alone; their capacity of 2
// is below any room test, so they are never written.
namespace {
struct CWideEmptyBuffer {
  CStringHeader header;
  wchar_t text[1];
};
struct CNarrowEmptyBuffer {
  CStringHeader header;
  char text[1];
};
CWideEmptyBuffer wideEmpty = {{2, 0, 2}, {0}};
CNarrowEmptyBuffer narrowEmpty = {{2, 0, 2}, {0}};
static_assert(offsetof(CWideEmptyBuffer, text) == sizeof(CStringHeader), "text follows the header");
static_assert(offsetof(CNarrowEmptyBuffer, text) == sizeof(CStringHeader), "text follows the header");
static_assert(sizeof(CStringHeader) == 12, "three words of header");

const wchar_t* const unitName = L"unicodestring";
const int32_t HeaderBytes = sizeof(CStringHeader);
// Above this, the room rule grows by a fifth of the length instead of
// allocating exactly: short strings stay in the pools, long ones grow gently.
const int32_t ExactGrowthLimit = 128;

inline size_t UnitLength(const wchar_t* text) { return wcslen(text); }
inline size_t UnitLength(const char* text) { return strlen(text); }

// Buffer management common to both strings. `Unit` is wchar_t or char; the
// room needed for n units is n units, the header and a terminator.
template <class Unit>
struct Core {
  // Keeps every byte size computed below within a signed 32-bit value.
  static const int32_t MaxLength = (0x7FFFFFF0 - HeaderBytes) / int32_t(sizeof(Unit)) - 1;

  static CStringHeader* EmptyBuffer();
  static bool IsSpace(Unit unit);

  static Unit* TextOf(CStringHeader* buffer) { return reinterpret_cast<Unit*>(buffer + 1); }
  static int32_t BytesFor(int32_t length) { return length * int32_t(sizeof(Unit)) + HeaderBytes + int32_t(sizeof(Unit)); }
  static bool Fits(int32_t length, const CStringHeader* buffer) { return BytesFor(length) <= buffer->capacity; }

  static CStringHeader* ShareEmpty() {
    CStringHeader* buffer = EmptyBuffer();
    ::InterlockedIncrement(&buffer->references);
    return buffer;
  }

  static void Release(CStringHeader* buffer) {
    // No test against zero or for the empty buffer: its count never gets here.
    if (::InterlockedDecrement(&buffer->references) < 1) FreeStringBlock(buffer, buffer->capacity);
  }

  // A new exclusive buffer with room for `length` units, holding empty text.
  static CStringHeader* Allocate(int32_t length) {
    TSL_ASSERT(length >= 0 && length <= MaxLength, unitName, 101);
    if (length < 0) length = 0;
    if (length > MaxLength) GenerateMemoryError();
    int32_t capacity = 0;
    CStringHeader* buffer = static_cast<CStringHeader*>(AllocStringBlock(BytesFor(length), capacity));
    buffer->references = 1;
    buffer->length = 0;
    buffer->capacity = capacity;  // what the allocator gave, which may exceed what was asked
    TextOf(buffer)[0] = 0;
    return buffer;
  }

  // A buffer holding `length` units of `text`, or the empty buffer.
  static CStringHeader* FromText(const Unit* text, int32_t length) {
    if (length < 1) return ShareEmpty();
    CStringHeader* buffer = Allocate(length);
    memcpy(TextOf(buffer), text, size_t(length) * sizeof(Unit));
    TextOf(buffer)[length] = 0;
    buffer->length = length;
    return buffer;
  }

  static CStringHeader* Join(const Unit* left, int32_t leftLength, const Unit* right, int32_t rightLength) {
    int32_t length = leftLength + rightLength;
    if (length < 1) return ShareEmpty();
    CStringHeader* buffer = Allocate(length);
    Unit* text = TextOf(buffer);
    memcpy(text, left, size_t(leftLength) * sizeof(Unit));
    memcpy(text + leftLength, right, size_t(rightLength) * sizeof(Unit));
    text[length] = 0;
    buffer->length = length;
    return buffer;
  }

  // Moves the text to a new exclusive buffer for the greater of `length` and
  // the present length. The old buffer goes only after the copy, since the
  // caller's data may live in it.
  static void Reallocate(CStringHeader*& buffer, int32_t length) {
    CStringHeader* old = buffer;
    int32_t present = old->length;
    CStringHeader* fresh = Allocate(length > present ? length : present);
    memcpy(TextOf(fresh), TextOf(old), size_t(present + 1) * sizeof(Unit));
    fresh->length = present;
    buffer = fresh;
    Release(old);
  }

  // The room rule behind every write: afterwards the buffer is exclusive and
  // holds `length` units. Growth past the pools is by a fifth of the present
  // length, never a doubling.
  static void MakeRoom(CStringHeader*& buffer, int32_t length) {
    TSL_ASSERT(length >= 0 && length <= MaxLength, unitName, 102);
    if (length < 0) length = 0;
    if (length > MaxLength) GenerateMemoryError();
    if (Fits(length, buffer)) {
      if (buffer->references != 1) Reallocate(buffer, length);
      return;
    }
    if (BytesFor(length) <= ExactGrowthLimit) {
      Reallocate(buffer, length);
      return;
    }
    int32_t present = buffer->length;
    int64_t grown = int64_t(present) + present / 5;
    if (grown > MaxLength) grown = MaxLength;
    Reallocate(buffer, length > grown ? length : int32_t(grown));
  }

  static Unit* GetBuffer(CStringHeader*& buffer, int32_t length) {
    MakeRoom(buffer, length);
    if (length < 0) length = 0;
    Unit* text = TextOf(buffer);
    text[length] = 0;
    return text;
  }

  static void SetLength(CStringHeader*& buffer, int32_t length) {
    MakeRoom(buffer, length);
    if (length < 0) length = 0;
    buffer->length = length;
    TextOf(buffer)[length] = 0;
  }

  static void Reserve(CStringHeader*& buffer, int32_t length) {
    TSL_ASSERT(length >= 0, unitName, 103);
    if (length < 0) return;
    if (!Fits(length, buffer)) Reallocate(buffer, length);
  }

  static void Empty(CStringHeader*& buffer) {
    if (buffer->references == 1) {
      buffer->length = 0;
      TextOf(buffer)[0] = 0;
      return;
    }
    CStringHeader* old = buffer;
    buffer = ShareEmpty();
    Release(old);
  }

  static void Assign(CStringHeader*& buffer, const Unit* text, int32_t length) {
    TSL_ASSERT(length >= 0 && (text != nullptr || length == 0), unitName, 104);
    if (length < 0 || text == nullptr) length = 0;
    if (buffer->references == 1 && Fits(length, buffer)) {
      // memmove: the text may be a part of this very string.
      memmove(TextOf(buffer), text, size_t(length) * sizeof(Unit));
      buffer->length = length;
      TextOf(buffer)[length] = 0;
      return;
    }
    // Here the buffer is shared or too small; if shared, `text` stays alive
    // in the other holder, and if too small it cannot be inside the buffer.
    Release(buffer);
    buffer = FromText(text, length);
  }

  static void Append(CStringHeader*& buffer, const Unit* text, int32_t length) {
    if (length < 1) return;
    // Text from inside this buffer is kept alive across a reallocation.
    const Unit* own = TextOf(buffer);
    CStringHeader* kept = nullptr;
    if (text >= own && text <= own + buffer->length) {
      kept = buffer;
      ::InterlockedIncrement(&kept->references);
    }
    int32_t present = buffer->length;
    TSL_ASSERT(length <= MaxLength - present, unitName, 105);
    Unit* target = GetBuffer(buffer, present + length);
    memcpy(target + present, text, size_t(length) * sizeof(Unit));
    buffer->length = present + length;
    target[present + length] = 0;
    if (kept) Release(kept);
  }

  static CStringHeader* Mid(CStringHeader* buffer, int32_t from, int32_t count) {
    return FromText(TextOf(buffer) + from, count);
  }

  static void TrimRight(CStringHeader*& buffer) {
    const Unit* text = TextOf(buffer);
    int32_t length = buffer->length;
    while (length > 0 && IsSpace(text[length - 1])) --length;
    if (length != buffer->length) SetLength(buffer, length);
  }

  static int32_t Span(const CStringHeader* buffer, int32_t from) {
    const Unit* text = TextOf(const_cast<CStringHeader*>(buffer));
    int32_t length = buffer->length;
    if (from < 0 || from >= length) return 0;
    int32_t end = from;
    while (end < length && IsSpace(text[end])) ++end;
    return end - from;
  }

  static void Trim(CStringHeader*& buffer) {
    TrimRight(buffer);
    int32_t lead = Span(buffer, 0);
    if (lead == 0) return;
    int32_t rest = buffer->length - lead;  // TrimRight left a non-space last unit
    if (rest < 0) rest = 0;
    Unit* text = GetBuffer(buffer, buffer->length);
    memmove(text, text + lead, size_t(rest) * sizeof(Unit));
    SetLength(buffer, rest);
  }

  static int32_t Find(const CStringHeader* buffer, Unit unit, int32_t from) {
    const Unit* text = TextOf(const_cast<CStringHeader*>(buffer));
    for (int32_t i = from < 0 ? 0 : from; i < buffer->length; ++i)
      if (text[i] == unit) return i;
    return -1;
  }

  static int32_t FindText(const CStringHeader* buffer, const Unit* pattern, int32_t from) {
    if (pattern == nullptr) return -1;
    const Unit* text = TextOf(const_cast<CStringHeader*>(buffer));
    int32_t length = buffer->length;
    int32_t patternLength = int32_t(UnitLength(pattern));
    if (from < 0) from = 0;
    for (int32_t i = from; i + patternLength <= length; ++i)
      if (memcmp(text + i, pattern, size_t(patternLength) * sizeof(Unit)) == 0) return i;
    return -1;
  }

  // Unit by unit as unsigned values up to the terminator.
  static int Compare(const CStringHeader* buffer, const Unit* other) {
    const Unit* text = TextOf(const_cast<CStringHeader*>(buffer));
    if (other == text) return 0;
    if (other == nullptr) other = TextOf(EmptyBuffer());
    typedef typename std::make_unsigned<Unit>::type Unsigned;
    for (;; ++text, ++other) {
      Unsigned a = Unsigned(*text), b = Unsigned(*other);
      if (a != b) return a < b ? -1 : 1;
      if (a == 0) return 0;
    }
  }

  // h = h*33 + c, seeded with the first unit; no initial constant.
  template <class Fold>
  static uint32_t Hash(const CStringHeader* buffer, Fold fold) {
    const Unit* text = TextOf(const_cast<CStringHeader*>(buffer));
    int32_t length = buffer->length;
    if (length == 0) return 0;
    typedef typename std::make_unsigned<Unit>::type Unsigned;
    uint32_t hash = fold(Unsigned(text[0]));
    for (int32_t i = 1; i < length; ++i) hash = hash * 33 + fold(Unsigned(text[i]));
    return hash;
  }

  // At most `count` units, stopping at a zero unit; keeps the room for count.
  static CStringHeader* FromBounded(const Unit* text, int32_t count) {
    TSL_ASSERT(count >= 0, unitName, 106);
    if (count < 0) count = 0;
    CStringHeader* buffer = Allocate(count);
    Unit* target = TextOf(buffer);
    int32_t copied = 0;
    if (text != nullptr)
      while (copied < count && text[copied] != 0) {
        target[copied] = text[copied];
        ++copied;
      }
    target[copied] = 0;
    buffer->length = int32_t(UnitLength(target));
    return buffer;
  }
};

template <>
CStringHeader* Core<wchar_t>::EmptyBuffer() { return &wideEmpty.header; }
template <>
CStringHeader* Core<char>::EmptyBuffer() { return &narrowEmpty.header; }
template <>
bool Core<wchar_t>::IsSpace(wchar_t unit) { return IsWhitespace(unit); }
template <>
bool Core<char>::IsSpace(char unit) { return IsNarrowWhitespace(unit); }

typedef Core<wchar_t> Wide;
typedef Core<char> Narrow;

// Code pages whose converters refuse any flags.
bool TakesNoConversionFlags(UINT codePage) {
  switch (codePage) {
    case 42: case 50220: case 50221: case 50222: case 50225: case 50227: case 50229:
    case 52936: case 54936: case 65000: case 65001:
      return true;
    default:
      return codePage >= 57002 && codePage <= 57011;
  }
}
}  // namespace

CUnicodeString Concatenate(const wchar_t* left, int32_t leftLength, const wchar_t* right, int32_t rightLength);
CString Concatenate(const char* left, int32_t leftLength, const char* right, int32_t rightLength);

// ---------------------------------------------------------------------------
// CUnicodeString: construction, sharing and buffer access

CUnicodeString::CUnicodeString() : header(Wide::ShareEmpty()) {}

CUnicodeString::CUnicodeString(const wchar_t* text)
    : header(Wide::FromText(text, text ? int32_t(wcslen(text)) : 0)) {}

CUnicodeString::CUnicodeString(const wchar_t* text, int32_t length) : header(nullptr) {
  TSL_ASSERT(length >= 0 && (text != nullptr || length == 0), unitName, 110);
  header = Wide::FromText(text, text ? length : 0);
}

CUnicodeString::CUnicodeString(CUnicodeString&& other) noexcept : header(other.header) {
  other.header = Wide::ShareEmpty();
}

CUnicodeString& CUnicodeString::operator=(const CUnicodeString& other) {
  // Increment first: assigning a string to itself must not free its buffer.
  CStringHeader* taken = other.header;
  ::InterlockedIncrement(&taken->references);
  Wide::Release(header);
  header = taken;
  return *this;
}

CUnicodeString& CUnicodeString::operator=(CUnicodeString&& other) noexcept {
  if (this != &other) {
    CStringHeader* old = header;
    header = other.header;
    other.header = Wide::ShareEmpty();
    Wide::Release(old);
  }
  return *this;
}

CUnicodeString& CUnicodeString::operator=(const wchar_t* text) {
  Assign(text, text ? int32_t(wcslen(text)) : 0);
  return *this;
}

CUnicodeString CUnicodeString::FromBounded(const wchar_t* text, int32_t count) {
  return CUnicodeString(Wide::FromBounded(text, count));
}

void CUnicodeString::FreeBuffer(CStringHeader* buffer) { FreeStringBlock(buffer, buffer->capacity); }

wchar_t* CUnicodeString::GetBuffer(int32_t length) { return Wide::GetBuffer(header, length); }
void CUnicodeString::SetBufferLength(int32_t length) { Wide::SetLength(header, length); }
void CUnicodeString::Reserve(int32_t length) { Wide::Reserve(header, length); }
void CUnicodeString::Empty() { Wide::Empty(header); }
void CUnicodeString::Assign(const wchar_t* text, int32_t length) { Wide::Assign(header, text, length); }

void CUnicodeString::Append(const wchar_t* text, int32_t length) {
  TSL_ASSERT(text != nullptr || length < 1, unitName, 111);
  if (text == nullptr) return;
  Wide::Append(header, text, length);
}

void CUnicodeString::Append(const wchar_t* text) {
  if (text != nullptr) Wide::Append(header, text, int32_t(wcslen(text)));
}

void CUnicodeString::Append(const CUnicodeString& text) {
  if (text.Length() < 1) return;
  // A reference of our own, so that a string may be appended to itself.
  CUnicodeString kept(text);
  Wide::Append(header, kept.Text(), kept.Length());
}

void CUnicodeString::Append(wchar_t unit) { Wide::Append(header, &unit, 1); }

CUnicodeString Concatenate(const wchar_t* left, int32_t leftLength, const wchar_t* right, int32_t rightLength) {
  return CUnicodeString(Wide::Join(left, leftLength, right, rightLength));
}

CUnicodeString operator+(const CUnicodeString& left, const CUnicodeString& right) {
  return Concatenate(left.Text(), left.Length(), right.Text(), right.Length());
}
CUnicodeString operator+(const CUnicodeString& left, const wchar_t* right) {
  return Concatenate(left.Text(), left.Length(), right ? right : L"", right ? int32_t(wcslen(right)) : 0);
}
CUnicodeString operator+(const wchar_t* left, const CUnicodeString& right) {
  return Concatenate(left ? left : L"", left ? int32_t(wcslen(left)) : 0, right.Text(), right.Length());
}
CUnicodeString operator+(const CUnicodeString& left, wchar_t right) {
  return Concatenate(left.Text(), left.Length(), &right, 1);
}
CUnicodeString operator+(wchar_t left, const CUnicodeString& right) {
  return Concatenate(&left, 1, right.Text(), right.Length());
}

// ---------------------------------------------------------------------------
// CUnicodeString: parts, trimming, searching, comparing

CUnicodeString CUnicodeString::Mid(int32_t from, int32_t count) const {
  return CUnicodeString(Wide::Mid(header, from, count));
}
CUnicodeString CUnicodeString::Mid(int32_t from) const { return Mid(from, Length() - from); }
CUnicodeString CUnicodeString::Left(int32_t count) const { return Mid(0, count); }
CUnicodeString CUnicodeString::Right(int32_t count) const { return Mid(Length() - count, count); }

void CUnicodeString::TrimRight() { Wide::TrimRight(header); }
void CUnicodeString::Trim() { Wide::Trim(header); }
int32_t CUnicodeString::SpanOfWhitespace(int32_t from) const { return Wide::Span(header, from); }

void CUnicodeString::MakeLower() {
  int32_t length = Length();
  if (length == 0) return;  // nothing to lower: the empty buffer stays shared
  wchar_t* text = GetBuffer(length);
  // The runtime's locale-aware folding; in the "C" locale only A to Z change.
  _wcslwr(text);
  SetBufferLength(length);
}

int32_t CUnicodeString::Find(wchar_t unit, int32_t from) const { return Wide::Find(header, unit, from); }
int32_t CUnicodeString::Find(const wchar_t* text, int32_t from) const { return Wide::FindText(header, text, from); }

int32_t CUnicodeString::ReverseFind(wchar_t unit) const {
  const wchar_t* text = Text();
  for (int32_t i = Length() - 1; i >= 0; --i)
    if (text[i] == unit) return i;
  return -1;
}

int32_t CUnicodeString::FindNoCase(const wchar_t* text, int32_t from) const {
  if (text == nullptr || from > Length()) return -1;
  // Private copies: the search must not change the sharing of either side.
  CUnicodeString haystack(*this), pattern(text);
  haystack.MakeLower();
  pattern.MakeLower();
  return haystack.Find(pattern.Text(), from);
}

int CUnicodeString::Compare(const wchar_t* text) const { return Wide::Compare(header, text); }

int CUnicodeString::CompareNoCase(const wchar_t* text) const {
  if (text == nullptr) return 0x7FFFFFFF;
  return _wcsicmp(Text(), text);
}

uint32_t CUnicodeString::HashKey() const {
  return Wide::Hash(header, [](uint32_t unit) { return unit; });
}

// Folds towards upper case, while case-insensitive comparing folds towards
// lower case; tables keyed by this hash rely on exactly this folding.
uint32_t CUnicodeString::HashKeyNoCase() const {
  return Wide::Hash(header, [](uint32_t unit) { return uint32_t(uint16_t(towupper(wchar_t(unit)))); });
}

// ---------------------------------------------------------------------------
// CUnicodeString: parameter substitution

// Scans for %N markers. A marker whose digits do not make a number in range
// of a long is kept literally; a valid number outside 0..count-1 drops the
// marker. There is no escape: "%%" is two plain percent signs unless digits
// follow the second one.
CUnicodeString CUnicodeString::SubstParam(const wchar_t* const* params, int32_t count) const {
  TSL_ASSERT(count >= 0 && (params != nullptr || count == 0), unitName, 120);
  // A developer's aid: texts whose markers don't match the parameters given.
  if (IsDebugFlagSet(DF_CheckMessagesParamsCount)) CheckParams(*this, count);
  CUnicodeString result;
  const wchar_t* text = Text();
  int32_t length = Length();
  if (length == 0) return result;
  result.Reserve(length);
  int32_t scan = 0;
  for (;;) {
    int32_t percent = Find(L'%', scan);
    if (percent < 0 || percent == length - 1) {
      result.Append(text + scan, length - scan);
      return result;
    }
    result.Append(text + scan, percent - scan);
    int32_t runEnd = percent + 1;
    while (runEnd < length && IsDecimalDigit(text[runEnd])) ++runEnd;
    bool isMarker = runEnd > percent + 1;
    long number = 0;
    if (isMarker) {
      wchar_t* end = nullptr;
      errno = 0;
      number = wcstol(text + percent + 1, &end, 10);
      isMarker = errno != ERANGE && end == text + runEnd;
    }
    if (!isMarker) {
      result.Append(text + percent, runEnd - percent);
    } else if (number >= 0 && number < count && params[number] != nullptr) {
      result.Append(params[number]);
    }
    scan = runEnd;
    if (scan >= length) return result;
  }
}

CUnicodeString CUnicodeString::SubstParam(const CUnicodeString& p0) const {
  const wchar_t* params[1] = {p0.Text()};
  return SubstParam(params, 1);
}

CUnicodeString CUnicodeString::SubstParam(const CUnicodeString& p0, const CUnicodeString& p1) const {
  const wchar_t* params[2] = {p0.Text(), p1.Text()};
  return SubstParam(params, 2);
}

CUnicodeString CUnicodeString::SubstParam(const CUnicodeString& p0, const CUnicodeString& p1,
                                          const CUnicodeString& p2) const {
  const wchar_t* params[3] = {p0.Text(), p1.Text(), p2.Text()};
  return SubstParam(params, 3);
}

CUnicodeString CUnicodeString::SubstParamArray(const CUnicodeString* params, int32_t count) const {
  TSL_ASSERT(count >= 0 && (params != nullptr || count == 0), unitName, 121);
  if (count <= 0 || params == nullptr) return SubstParam(static_cast<const wchar_t* const*>(nullptr), 0);
  const int32_t onStack = 16;
  const wchar_t* local[onStack];
  const wchar_t** texts = local;
  if (count > onStack) texts = static_cast<const wchar_t**>(RuntimeHeap::Alloc(sizeof(wchar_t*) * size_t(count)));
  for (int32_t i = 0; i < count; ++i) texts[i] = params[i].Text();
  struct CFreeTexts {
    const wchar_t** texts;
    const wchar_t** local;
    ~CFreeTexts() {
      if (texts != local) RuntimeHeap::Free(texts);
    }
  } freeTexts = {texts, local};
  return SubstParam(texts, count);
}

// ---------------------------------------------------------------------------
// CUnicodeString: formatting and numbers

void CUnicodeString::Format(const wchar_t* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  FormatV(format, arguments);
  va_end(arguments);
}

// Formats into 256 units first and doubles the room while the runtime's
// bounded formatter reports truncation by a negative result. That formatter
// writes no terminator when the text fills the room exactly, which is why the
// terminator is always set afterwards.
void CUnicodeString::FormatV(const wchar_t* format, va_list arguments) {
  TSL_ASSERT(format != nullptr, unitName, 130);
  // The old text stays alive until the end: an argument may point into it.
  CUnicodeString previous(static_cast<CUnicodeString&&>(*this));
  if (format == nullptr) return;
  // Far beyond any text of this system; only a format the runtime cannot
  // render at all gets here, and endless doubling would not help it.
  const int32_t hopeless = 0x4000000;
  int32_t room = 256;
  for (;;) {
    wchar_t* text = GetBuffer(room);
    va_list attempt;
    va_copy(attempt, arguments);
    int written = _vsnwprintf(text, size_t(room), format, attempt);
    va_end(attempt);
    if (written >= 0) {
      SetBufferLength(written);
      return;
    }
    if (room >= hopeless) {
      TSL_INTERNAL_ERROR(unitName, 131);
      SetBufferLength(0);
      return;
    }
    room *= 2;
  }
}

CUnicodeString CUnicodeString::FromNumber(int64_t value) {
  CUnicodeString result;
  // 40 units of room and the terminator make the 41 units the conversion may use.
  wchar_t* text = result.GetBuffer(40);
  _i64tow_s(value, text, 41, 10);
  result.SetBufferLength(int32_t(wcslen(text)));
  return result;
}

CUnicodeString CUnicodeString::FromNumber(int32_t value, int radix) {
  TSL_ASSERT(radix >= 2 && radix <= 36, unitName, 132);
  if (radix < 2 || radix > 36) radix = 10;
  CUnicodeString result;
  wchar_t* text = result.GetBuffer(40);
  _itow_s(value, text, 41, radix);
  result.SetBufferLength(int32_t(wcslen(text)));
  return result;
}

CUnicodeString CUnicodeString::FromNumber(uint32_t value, int radix) {
  TSL_ASSERT(radix >= 2 && radix <= 36, unitName, 133);
  if (radix < 2 || radix > 36) radix = 10;
  CUnicodeString result;
  wchar_t* text = result.GetBuffer(40);
  _ultow_s(value, text, 41, radix);
  result.SetBufferLength(int32_t(wcslen(text)));
  return result;
}

CUnicodeString CUnicodeString::FromBool(bool value) { return CUnicodeString(value ? L"true" : L"false"); }

bool CUnicodeString::ToBool(bool& value) const {
  static const wchar_t* const truths[] = {L"true", L"on", L"yes", L"1"};
  static const wchar_t* const falsehoods[] = {L"false", L"off", L"no", L"0"};
  CUnicodeString word(*this);
  word.TrimRight();
  const wchar_t* start = word.Text() + word.SpanOfWhitespace(0);
  for (const wchar_t* truth : truths)
    if (_wcsicmp(start, truth) == 0) {
      value = true;
      return true;
    }
  for (const wchar_t* falsehood : falsehoods)
    if (_wcsicmp(start, falsehood) == 0) {
      value = false;
      return true;
    }
  return false;
}

CUnicodeString CUnicodeString::FromPointer(const void* address) {
  CUnicodeString result;
  result.Format(L"0x%p", address);
  MEMORY_BASIC_INFORMATION region;
  if (::VirtualQuery(address, &region, sizeof region) != sizeof region || region.State != MEM_COMMIT)
    return result;
  wchar_t path[261];
  DWORD length = ::GetModuleFileNameW(static_cast<HMODULE>(region.AllocationBase), path, 261);
  if (length == 0 || length >= 261) return result;  // not a module, or a path cut short
  result.Append(L" (", 2);
  result.Append(path, int32_t(length));
  result.Append(L')');
  return result;
}

// ---------------------------------------------------------------------------
// CUnicodeString: resources and code pages

// Offers the resource call only half of the buffer on each pass (127 units
// of 254 first), and doubles the buffer until the answer is clearly shorter
// than that half, so a text that exactly fills the half is never taken as
// whole.
bool CUnicodeString::LoadString(HMODULE module, UINT id) {
  int32_t room = 254;
  int32_t length = 0;
  for (;;) {
    wchar_t* text = GetBuffer(room);
    length = ::LoadStringW(module, id, text, room / 2);
    TSL_ASSERT(length < room, unitName, 140);
    if (length < 0 || length >= room) length = 0;
    if (length < room / 2 - 1) break;
    room *= 2;
  }
  if (length == 0) {
    *this = CUnicodeString();
    return false;
  }
  SetBufferLength(length);
  return true;
}

// Invalid input in a page with flags is a failed conversion: the empty string.
CUnicodeString::CUnicodeString(const char* text, int32_t length, UINT codePage) : header(Wide::ShareEmpty()) {
  if (text == nullptr || length == 0) return;
  DWORD flags = TakesNoConversionFlags(codePage) ? 0 : MB_PRECOMPOSED | MB_ERR_INVALID_CHARS;
  int needed = ::MultiByteToWideChar(codePage, flags, text, length, nullptr, 0);
  if (needed <= 0) return;
  wchar_t* target = GetBuffer(needed);
  int converted = ::MultiByteToWideChar(codePage, flags, text, length, target, needed);
  if (converted <= 0) {
    *this = CUnicodeString();
    return;
  }
  target[needed] = 0;
  // Remeasured: a zero byte inside the input ends the string there.
  SetBufferLength(int32_t(wcslen(target)));
}

CString CUnicodeString::ToNarrow(UINT codePage) const {
  CString result;
  if (IsEmpty()) return result;
  DWORD flags = TakesNoConversionFlags(codePage) ? 0 : WC_COMPOSITECHECK | WC_SEPCHARS;
  int needed = ::WideCharToMultiByte(codePage, flags, Text(), Length(), nullptr, 0, nullptr, nullptr);
  if (needed <= 0) return result;
  char* target = result.GetBuffer(needed);
  int converted = ::WideCharToMultiByte(codePage, flags, Text(), Length(), target, needed, nullptr, nullptr);
  if (converted <= 0) return CString();
  target[needed] = 0;
  result.SetBufferLength(int32_t(strlen(target)));
  return result;
}

// ---------------------------------------------------------------------------
// CString, the narrow twin

CString::CString() : header(Narrow::ShareEmpty()) {}
CString::CString(const char* text) : header(Narrow::FromText(text, text ? int32_t(strlen(text)) : 0)) {}

CString::CString(const char* text, int32_t length) : header(nullptr) {
  TSL_ASSERT(length >= 0 && (text != nullptr || length == 0), unitName, 150);
  header = Narrow::FromText(text, text ? length : 0);
}

CString::CString(CString&& other) noexcept : header(other.header) { other.header = Narrow::ShareEmpty(); }

CString& CString::operator=(const CString& other) {
  CStringHeader* taken = other.header;
  ::InterlockedIncrement(&taken->references);
  Narrow::Release(header);
  header = taken;
  return *this;
}

CString& CString::operator=(CString&& other) noexcept {
  if (this != &other) {
    CStringHeader* old = header;
    header = other.header;
    other.header = Narrow::ShareEmpty();
    Narrow::Release(old);
  }
  return *this;
}

CString& CString::operator=(const char* text) {
  Assign(text, text ? int32_t(strlen(text)) : 0);
  return *this;
}

CString CString::FromBounded(const char* text, int32_t count) { return CString(Narrow::FromBounded(text, count)); }
void CString::FreeBuffer(CStringHeader* buffer) { FreeStringBlock(buffer, buffer->capacity); }

char* CString::GetBuffer(int32_t length) { return Narrow::GetBuffer(header, length); }
void CString::SetBufferLength(int32_t length) { Narrow::SetLength(header, length); }
void CString::Reserve(int32_t length) { Narrow::Reserve(header, length); }
void CString::Empty() { Narrow::Empty(header); }
void CString::Assign(const char* text, int32_t length) { Narrow::Assign(header, text, length); }

void CString::Append(const char* text, int32_t length) {
  TSL_ASSERT(text != nullptr || length < 1, unitName, 151);
  if (text != nullptr) Narrow::Append(header, text, length);
}
void CString::Append(const char* text) {
  if (text != nullptr) Narrow::Append(header, text, int32_t(strlen(text)));
}
void CString::Append(const CString& text) {
  if (text.Length() < 1) return;
  CString kept(text);
  Narrow::Append(header, kept.Text(), kept.Length());
}
void CString::Append(char unit) { Narrow::Append(header, &unit, 1); }

CString Concatenate(const char* left, int32_t leftLength, const char* right, int32_t rightLength) {
  return CString(Narrow::Join(left, leftLength, right, rightLength));
}
CString operator+(const CString& left, const CString& right) {
  return Concatenate(left.Text(), left.Length(), right.Text(), right.Length());
}
CString operator+(const CString& left, const char* right) {
  return Concatenate(left.Text(), left.Length(), right ? right : "", right ? int32_t(strlen(right)) : 0);
}
CString operator+(const char* left, const CString& right) {
  return Concatenate(left ? left : "", left ? int32_t(strlen(left)) : 0, right.Text(), right.Length());
}

CString CString::Mid(int32_t from, int32_t count) const { return CString(Narrow::Mid(header, from, count)); }
CString CString::Mid(int32_t from) const { return Mid(from, Length() - from); }
CString CString::Left(int32_t count) const { return Mid(0, count); }
CString CString::Right(int32_t count) const { return Mid(Length() - count, count); }

void CString::TrimRight() { Narrow::TrimRight(header); }
void CString::Trim() { Narrow::Trim(header); }
int32_t CString::SpanOfWhitespace(int32_t from) const { return Narrow::Span(header, from); }
int32_t CString::Find(char unit, int32_t from) const { return Narrow::Find(header, unit, from); }
int32_t CString::Find(const char* text, int32_t from) const { return Narrow::FindText(header, text, from); }
int CString::Compare(const char* text) const { return Narrow::Compare(header, text); }
uint32_t CString::HashKey() const {
  return Narrow::Hash(header, [](uint32_t unit) { return unit; });
}

CString CString::FromNumber(uint32_t value) {
  CString result;
  char* text = result.GetBuffer(40);
  _ultoa_s(value, text, 41, 10);
  result.SetBufferLength(int32_t(strlen(text)));
  return result;
}

CUnicodeString CString::ToUnicode(UINT codePage) const { return CUnicodeString(Text(), Length(), codePage); }

// ---------------------------------------------------------------------------
// Character sets

namespace {
// Pages of every character set: 128-byte blocks of one pool under one lock
// for the process. The sets are built at start and live to the end, so their
// pages are few and never come back before the pool goes.
class CSetPageSource {
 public:
  CSetPageSource() : pool(PageBytes) { ::InitializeCriticalSection(&lock); }
  ~CSetPageSource() { ::DeleteCriticalSection(&lock); }
  CSetPageSource(const CSetPageSource&) = delete;
  CSetPageSource& operator=(const CSetPageSource&) = delete;

  uint32_t* Alloc() {
    CLockScope scope(lock);
    void* page = pool.Alloc(PageBytes);
    memset(page, 0, PageBytes);  // pool blocks come back with old contents
    return static_cast<uint32_t*>(page);
  }
  void Free(uint32_t* page) {
    CLockScope scope(lock);
    pool.Free(page);
  }

  static const int32_t PageBytes = 1024 / 8;

 private:
  struct CLockScope {
    explicit CLockScope(CRITICAL_SECTION& section) : section(section) { ::EnterCriticalSection(&section); }
    ~CLockScope() { ::LeaveCriticalSection(&section); }
    CRITICAL_SECTION& section;
  };
  CRITICAL_SECTION lock;
  CBlockManager pool;
};

// Made on first use, before any set, so it is destroyed after every set.
CSetPageSource& SetPages() {
  static CSetPageSource source;
  return source;
}
}  // namespace

CCharacterSet::CCharacterSet() : pages() { SetPages(); }

CCharacterSet::CCharacterSet(const wchar_t* members) : pages() {
  SetPages();
  AddText(members);
}

CCharacterSet::~CCharacterSet() {
  for (uint32_t*& page : pages) {
    if (page != nullptr) SetPages().Free(page);
    page = nullptr;  // a late test from another static's destructor finds no member
  }
}

void CCharacterSet::Add(wchar_t unit) {
  uint32_t*& page = pages[unit >> 10];
  if (page == nullptr) page = SetPages().Alloc();
  page[(unit & 1023) >> 5] |= uint32_t(1) << (unit & 31);
}

void CCharacterSet::AddRange(wchar_t first, wchar_t last) {
  for (uint32_t unit = first; unit <= last; ++unit) Add(wchar_t(unit));
}

void CCharacterSet::AddText(const wchar_t* members) {
  if (members == nullptr) return;
  for (; *members != 0; ++members) Add(*members);
}

namespace {
const CCharacterSet& WhitespaceSet() {
  static const CCharacterSet set(L"\x0009\x000A\x000B\x000C\x000D\x0020\x0085\x00A0\x1680"
                                 L"\x2000\x2001\x2002\x2003\x2004\x2005\x2006\x2007\x2008\x2009\x200A"
                                 L"\x2028\x2029\x202F\x3000");
  return set;
}

const CCharacterSet& DecimalDigitSet() {
  static const CCharacterSet set(L"0123456789");
  return set;
}

struct CFileNameSet : CCharacterSet {
  CFileNameSet() : CCharacterSet(L"*?<>:\"|\\/") { AddRange(0x0001, 0x001F); }
};
const CCharacterSet& ForbiddenInFileNameSet() {
  static const CFileNameSet set;
  return set;
}

// The narrow sets are plain 256-bit tables.
struct CNarrowSet {
  uint32_t bits[8];
  bool Contains(char unit) const {
    unsigned char u = static_cast<unsigned char>(unit);
    return (bits[u >> 5] >> (u & 31) & 1) != 0;
  }
};
// Space, tab, line feed, vertical tab, form feed, carriage return.
const CNarrowSet narrowWhitespace = {{(1u << 9) | (1u << 10) | (1u << 11) | (1u << 12) | (1u << 13), 1u << 0, 0, 0, 0, 0, 0, 0}};
const CNarrowSet narrowDigits = {{0, 0x03FF0000u, 0, 0, 0, 0, 0, 0}};
}  // namespace

bool IsWhitespace(wchar_t unit) { return WhitespaceSet().Contains(unit); }
bool IsDecimalDigit(wchar_t unit) { return DecimalDigitSet().Contains(unit); }
bool IsForbiddenInFileName(wchar_t unit) { return ForbiddenInFileNameSet().Contains(unit); }
bool IsNarrowWhitespace(char unit) { return narrowWhitespace.Contains(unit); }
bool IsNarrowDecimalDigit(char unit) { return narrowDigits.Contains(unit); }

// The archive form. The length comes from another process or a file: one
// past any possible string is the memory error before anything is asked of
// the string allocator, and a length the stream can't back is the archive's
// end-of-file error after the buffer was taken.
CArchive& operator<<(CArchive& archive, const CUnicodeString& text) {
  int32_t length = text.Length();
  archive.WriteCount(length);
  archive.Write(text.Text(), length * int32_t(sizeof(wchar_t)));
  return archive;
}

CArchive& operator>>(CArchive& archive, CUnicodeString& text) {
  text.Empty();
  int32_t length = archive.ReadCount();
  if (length < 0) {
    archive.GenerateBadArchiveError();
    return archive;
  }
  if (length == 0) return archive;
  if (length > Core<wchar_t>::MaxLength) GenerateMemoryError();
  wchar_t* target = text.GetBuffer(length);
  archive.Read(target, length * int32_t(sizeof(wchar_t)));
  text.SetBufferLength(length);
  return archive;
}

}  // namespace Tsl
