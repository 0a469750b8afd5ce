// CTime: conversion between the UTC tick count and local parts, formatting
// through the runtime's wide strftime, and the decimal tick text that
// settings store. Every failure here is a failure of a system conversion,
// reported as an internal error; there is no user-level error.
#include <errno.h>
#include <string.h>
#include <time.h>
#include <wchar.h>

#include "errors.h"
#include "tsltime.h"

namespace Tsl {

static const wchar_t* const Unit = L"time";

// Constant-initialised: valid before any constructor of the program runs.
const CTime NullTime;

static FILETIME FileTimeOfTicks(int64_t ticks) {
  FILETIME fileTime;
  fileTime.dwLowDateTime = static_cast<DWORD>(static_cast<uint64_t>(ticks));
  fileTime.dwHighDateTime = static_cast<DWORD>(static_cast<uint64_t>(ticks) >> 32);
  return fileTime;
}

static int64_t TicksOfFileTime(const FILETIME& fileTime) {
  return static_cast<int64_t>(static_cast<uint64_t>(fileTime.dwHighDateTime) << 32 |
                              fileTime.dwLowDateTime);
}

// Local parts (day of the week ignored) to UTC ticks. A failed conversion
// gives 0 once its internal error has returned. A local time before 1601 in
// UTC, such as the first hour of 1601 east of Greenwich, is negative.
static int64_t TicksOfLocalParts(const SYSTEMTIME& parts) {
  FILETIME local = {};
  BOOL converted = ::SystemTimeToFileTime(&parts, &local);
  TSL_ASSERT_LAST_ERROR(converted, Unit, 38);
  if (!converted) return 0;
  FILETIME utc = {};
  converted = ::LocalFileTimeToFileTime(&local, &utc);
  TSL_ASSERT_LAST_ERROR(converted, Unit, 42);
  if (!converted) return 0;
  int64_t ticks = TicksOfFileTime(utc);
  TSL_ASSERT(ticks >= 0, Unit, 45);
  return ticks;
}

CTime::CTime(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute, int32_t second,
             int32_t millisecond, int32_t microsecond)
    : ticks(0) {
  TSL_ASSERT(year >= 1601 && year <= 65535, Unit, 52);
  TSL_ASSERT(month >= 1 && month <= 12, Unit, 53);
  TSL_ASSERT(day >= 1 && day <= 31, Unit, 54);
  TSL_ASSERT(hour >= 0 && hour <= 23, Unit, 55);
  TSL_ASSERT(minute >= 0 && minute <= 59, Unit, 56);
  TSL_ASSERT(second >= 0 && second <= 59, Unit, 57);
  TSL_ASSERT(millisecond >= 0 && millisecond <= 999, Unit, 58);
  TSL_ASSERT(microsecond >= 0, Unit, 59);

  SYSTEMTIME parts = {};
  parts.wYear = static_cast<WORD>(year);
  parts.wMonth = static_cast<WORD>(month);
  parts.wDay = static_cast<WORD>(day);
  parts.wHour = static_cast<WORD>(hour);
  parts.wMinute = static_cast<WORD>(minute);
  parts.wSecond = static_cast<WORD>(second);
  parts.wMilliseconds = static_cast<WORD>(millisecond);
  // Microseconds are added to the ticks, not to the parts: they may run past
  // a second, and the system's record has no place for them.
  ticks = TicksOfLocalParts(parts) + static_cast<int64_t>(microsecond) * 10;
}

CTime CTime::GetCurrentTime() {
  SYSTEMTIME parts;
  ::GetLocalTime(&parts);
  return CTime(TicksOfLocalParts(parts));
}

SYSTEMTIME CTime::GetLocalParts() const {
  SYSTEMTIME parts = {};
  FILETIME utc = FileTimeOfTicks(ticks);
  FILETIME local = {};
  BOOL converted = ::FileTimeToLocalFileTime(&utc, &local);
  TSL_ASSERT_LAST_ERROR(converted, Unit, 85);
  if (!converted) return parts;
  converted = ::FileTimeToSystemTime(&local, &parts);
  TSL_ASSERT_LAST_ERROR(converted, Unit, 88);
  if (!converted) {
    SYSTEMTIME zeroed = {};
    return zeroed;
  }
  return parts;
}

// ---- Formatting -----------------------------------------------------------------

static struct tm RuntimeTimeOfParts(const SYSTEMTIME& parts) {
  struct tm fields;
  memset(&fields, 0, sizeof fields);
  fields.tm_year = parts.wYear - 1900;
  fields.tm_mon = parts.wMonth - 1;
  fields.tm_mday = parts.wDay;
  fields.tm_hour = parts.wHour;
  fields.tm_min = parts.wMinute;
  fields.tm_sec = parts.wSecond;
  fields.tm_wday = parts.wDayOfWeek;
  fields.tm_yday = 0;
  // Whether daylight saving applies is left unknown: the parts are local
  // already, and only the zone name could show it.
  fields.tm_isdst = -1;
  return fields;
}

CUnicodeString CTime::Format(const wchar_t* format) const {
  TSL_ASSERT(format != nullptr, Unit, 116);
  if (format == nullptr || format[0] == L'\0') return CUnicodeString();

  struct tm fields = RuntimeTimeOfParts(GetLocalParts());
  size_t formatLength = wcslen(format);
  // Room for the format and a dozen more units covers most formats at once.
  size_t size = formatLength + 12 > 48 ? formatLength + 12 : 48;
  CUnicodeString result;
  for (;;) {
    wchar_t* buffer = result.GetBuffer(static_cast<int32_t>(size));
    errno = 0;
    size_t written = wcsftime(buffer, size, format, &fields);
    // A complete answer leaves room for its terminator. Some runtimes hand
    // back a full buffer of truncated text instead of 0 and ERANGE; that
    // too is a buffer too small.
    if (written > 0 && written < size) {
      result.SetBufferLength(static_cast<int32_t>(written));
      return result;
    }
    // 0 is either a buffer too small (ERANGE) or an answer that is empty.
    if (written >= size || errno == ERANGE) {
      size += size / 4;
      continue;
    }
    if (errno != 0) TSL_INTERNAL_ERROR(Unit, 140);
    result.SetBufferLength(0);
    return result;
  }
}

// ---- Text -------------------------------------------------------------------------

CUnicodeString CTime::ToText() const { return CUnicodeString::FromNumber(ticks); }

static bool IsBlank(char unit) { return IsNarrowWhitespace(unit); }

// Signed 64-bit decimal over [text, end): blanks, one optional sign, digits
// up to a blank or the end, blanks, the end. False on anything else,
// including a value out of range.
static bool ParseSignedTicks(const char* text, const char* end, int64_t& value) {
  while (text < end && IsBlank(*text)) ++text;
  bool negative = false;
  if (text < end && (*text == '+' || *text == '-')) {
    negative = *text == '-';
    ++text;
  }
  if (text == end || IsBlank(*text)) return false;

  uint64_t magnitude = 0;
  for (; text < end && !IsBlank(*text); ++text) {
    if (*text < '0' || *text > '9') return false;
    uint32_t digit = static_cast<uint32_t>(*text - '0');
    if (magnitude > (UINT64_MAX - digit) / 10) return false;
    magnitude = magnitude * 10 + digit;
  }
  // -2^63 is the one value whose magnitude exceeds INT64_MAX.
  const uint64_t limit = negative ? uint64_t(1) << 63 : (uint64_t(1) << 63) - 1;
  if (magnitude > limit) return false;

  while (text < end && IsBlank(*text)) ++text;
  if (text != end) return false;
  // Negated through magnitude - 1 so that 2^63 is never a signed value;
  // "-0" comes out as 0.
  value = negative ? -static_cast<int64_t>(magnitude - 1) - 1 : static_cast<int64_t>(magnitude);
  return true;
}

bool CTime::FromText(const CUnicodeString& text, CTime& value) {
  // Settings hold the count as text in the system's ANSI code page.
  CString narrow = text.ToNarrow(0);
  int64_t parsed = 0;
  if (!ParseSignedTicks(narrow.Text(), narrow.Text() + narrow.Length(), parsed)) return false;
  value.ticks = parsed;
  return true;
}

}  // namespace Tsl
