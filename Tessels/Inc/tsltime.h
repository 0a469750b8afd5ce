// The time unit: CTime, a point in time as 100-ns ticks since 1601 in UTC,
// with the conversions to and from local time that everything said to a
// person goes through, and the decimal text form that settings store.
// The header is not called time.h: that name would hide the C runtime's
// <time.h> from every file of the library.
#pragma once

#include <stdint.h>
#include <windows.h>

#include "unicodestring.h"

// The platform's headers define GetCurrentTime as a macro for the tick
// count; here it is the name of CTime's clock.
#undef GetCurrentTime

namespace Tsl {

// A value: compares as its tick count; a difference in seconds is a division
// by TicksPerSecond. No other arithmetic: the unit is fixed.
class CTime {
 public:
  static const int64_t TicksPerSecond = 10000000;

  constexpr CTime() : ticks(0) {}
  constexpr explicit CTime(int64_t value) : ticks(value) {}
  // From local time. Parts out of range (year 1601..65535, month 1..12,
  // day 1..31, hour 0..23, minute and second 0..59, millisecond 0..999,
  // microsecond 0 and up) are internal errors, as are a date the system
  // cannot convert and a result before 1601 in UTC; where the errors return,
  // the value is made regardless. Microseconds may run past a second.
  CTime(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute, int32_t second,
        int32_t millisecond = 0, int32_t microsecond = 0);

  // Now: the local clock converted to UTC by the same rule as the parts.
  static CTime GetCurrentTime();

  int64_t GetTicks() const { return ticks; }
  // The time in local parts. A time the system cannot convert is an
  // internal error and gives a zeroed record.
  SYSTEMTIME GetLocalParts() const;
  // The local time through the runtime's wide strftime-style formatter. An
  // empty format gives the empty string without any conversion.
  CUnicodeString Format(const wchar_t* format) const;

  // The tick count in decimal: what a setting stores.
  CUnicodeString ToText() const;
  // Parses a signed decimal tick count: optional blanks, one optional sign,
  // digits, optional blanks, nothing else; the value must fit in 64 bits
  // signed. Returns false and leaves `value` alone on anything else.
  static bool FromText(const CUnicodeString& text, CTime& value);

  bool operator==(const CTime& other) const { return ticks == other.ticks; }
  bool operator!=(const CTime& other) const { return ticks != other.ticks; }
  bool operator<(const CTime& other) const { return ticks < other.ticks; }
  bool operator<=(const CTime& other) const { return ticks <= other.ticks; }
  bool operator>(const CTime& other) const { return ticks > other.ticks; }
  bool operator>=(const CTime& other) const { return ticks >= other.ticks; }

 private:
  int64_t ticks;  // 100-ns units since 1 January 1601 UTC; 0 is the null time
};

// No time at all: the default of a time setting, and in file-attribute
// operations the mark of a time that stays unchanged.
extern const CTime NullTime;

}  // namespace Tsl
