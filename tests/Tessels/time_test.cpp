// Tests of CTime: parts to ticks and back in whatever zone the suite runs in
// (it is meant to pass under TZ=UTC, east and west of Greenwich alike), the
// range checks, formatting past the first buffer, and the decimal parser at
// the edges of 64 bits.
#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "errors.h"
#include "tsltime.h"

using namespace Tsl;
using TestSupport::Narrow;

namespace {

std::wstring W(const CUnicodeString& text) { return std::wstring(text.Text(), text.Length()); }

// The unit of the internal error that `action` raises; empty when none.
template <class F>
std::wstring InternalErrorUnitOf(F action) {
  try {
    action();
  } catch (CInternalError* error) {
    std::wstring unit = error->file;
    delete error;
    return unit;
  }
  return L"";
}

int64_t SystemNow() {
  FILETIME now;
  ::GetSystemTimeAsFileTime(&now);
  return static_cast<int64_t>(static_cast<uint64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime);
}

// Minutes to add to local time to get UTC, as the zone stands now: the
// conversion applies today's bias to every date, summer or winter.
int32_t CurrentBiasMinutes() {
  TIME_ZONE_INFORMATION zone;
  DWORD state = ::GetTimeZoneInformation(&zone);
  if (state == TIME_ZONE_ID_DAYLIGHT) return zone.Bias + zone.DaylightBias;
  if (state == TIME_ZONE_ID_STANDARD) return zone.Bias + zone.StandardBias;
  return zone.Bias;
}

TEST(TimeParts, LocalPartsRoundTripThroughTicks) {
  const std::vector<std::vector<int32_t>> cases = {
      {1601, 1, 2, 0, 0, 0, 0},        {1970, 1, 1, 0, 0, 0, 0},
      {2000, 2, 29, 23, 59, 59, 999},  {2024, 7, 15, 12, 30, 45, 500},
      {9999, 12, 31, 23, 59, 59, 999}, {30827, 12, 31, 23, 59, 59, 0},
  };
  for (const auto& p : cases) {
    SYSTEMTIME back = CTime(p[0], p[1], p[2], p[3], p[4], p[5], p[6]).GetLocalParts();
    std::vector<int32_t> parts = {back.wYear,   back.wMonth,  back.wDay,         back.wHour,
                                  back.wMinute, back.wSecond, back.wMilliseconds};
    EXPECT_EQ(p, parts) << "year " << p[0];
  }
}

TEST(TimeParts, TicksCountHundredNanosecondsInUtc) {
  CTime midnight(2001, 1, 10, 0, 0, 0);
  // 2001-01-10 00:00 UTC is 126,235,584,000,000,000 ticks after 1601; local
  // midnight is off by the zone's present bias.
  EXPECT_EQ(126235584000000000LL + int64_t(CurrentBiasMinutes()) * 60 * CTime::TicksPerSecond,
            midnight.GetTicks());
  EXPECT_EQ(86400 * CTime::TicksPerSecond,
            CTime(2001, 1, 11, 0, 0, 0).GetTicks() - midnight.GetTicks());
  EXPECT_EQ(10000, CTime(2001, 1, 10, 0, 0, 0, 1).GetTicks() - midnight.GetTicks());
  EXPECT_EQ(10, CTime(2001, 1, 10, 0, 0, 0, 0, 1).GetTicks() - midnight.GetTicks());
  // Microseconds may run past the second.
  EXPECT_EQ(CTime(2001, 1, 10, 0, 0, 2), CTime(2001, 1, 10, 0, 0, 0, 0, 2000000));
}

TEST(TimeParts, PartsOutOfRangeAreInternalErrors) {
  struct Case {
    const char* what;
    int32_t parts[8];
  };
  const Case cases[] = {
      {"year 1600", {1600, 1, 1, 0, 0, 0, 0, 0}},    {"month 0", {2000, 0, 1, 0, 0, 0, 0, 0}},
      {"month 13", {2000, 13, 1, 0, 0, 0, 0, 0}},    {"day 0", {2000, 1, 0, 0, 0, 0, 0, 0}},
      {"day 32", {2000, 1, 32, 0, 0, 0, 0, 0}},      {"hour 24", {2000, 1, 1, 24, 0, 0, 0, 0}},
      {"minute 60", {2000, 1, 1, 0, 60, 0, 0, 0}},   {"second 60", {2000, 1, 1, 0, 0, 60, 0, 0}},
      {"ms 1000", {2000, 1, 1, 0, 0, 0, 1000, 0}},   {"negative us", {2000, 1, 1, 0, 0, 0, 0, -1}},
      {"30 February", {2001, 2, 30, 0, 0, 0, 0, 0}},
  };
  for (const Case& c : cases) {
    const int32_t* p = c.parts;
    EXPECT_EQ(L"time",
              InternalErrorUnitOf([&] { CTime(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]); }))
        << c.what;
  }
}

// The first hour of 1601 in local time lies before the epoch in UTC only
// east of Greenwich; run the suite with TZ set east to see the error.
TEST(TimeParts, FirstHourOf1601IsAnErrorOnlyEastOfGreenwich) {
  std::wstring unit = InternalErrorUnitOf([] { CTime(1601, 1, 1, 0, 0, 0); });
  if (CurrentBiasMinutes() < 0)
    EXPECT_EQ(L"time", unit);
  else
    EXPECT_EQ(L"", unit);
}

TEST(TimeClock, CurrentTimeIsUtc) {
  int64_t before = SystemNow();
  int64_t now = CTime::GetCurrentTime().GetTicks();
  int64_t after = SystemNow();
  // The local clock has milliseconds only: allow that much below.
  EXPECT_GE(now, before - 10000);
  EXPECT_LE(now, after);
}

TEST(TimeFormat, FormatsLocalTimeAndGrowsItsBuffer) {
  CTime time(2024, 7, 17, 8, 5, 9);  // a Wednesday
  EXPECT_EQ(L"2024-07-17 08:05:09", W(time.Format(L"%Y-%m-%d %H:%M:%S")));
  EXPECT_EQ(L"08:05:09 ", W(time.Format(L"%H:%M:%S "))) << "the trailing blank stays";
  EXPECT_EQ(L"", W(time.Format(L""))) << "nothing to format";

  // Twelve units of format start with 48 units of room; six day names need more.
  CUnicodeString days = time.Format(L"%A%A%A%A%A%A");
  EXPECT_EQ(L"WednesdayWednesdayWednesdayWednesdayWednesdayWednesday", W(days));
  // Several growths in a row.
  std::wstring manyYears;
  for (int i = 0; i < 100; ++i) manyYears += L"%Y";
  CUnicodeString years = time.Format(manyYears.c_str());
  ASSERT_EQ(400, years.Length());
  for (int i = 0; i < 100; ++i) EXPECT_EQ(L"2024", W(years.Mid(i * 4, 4))) << "at " << i;
}

TEST(TimeText, ParsesSignedDecimalTicksOnly) {
  struct Case {
    const wchar_t* text;
    bool parses;
    int64_t value;
  };
  const Case cases[] = {
      {L"42", true, 42},
      {L"  42\t", true, 42},
      {L"\r\n42\n", true, 42},
      {L"+42", true, 42},
      {L"-42", true, -42},
      {L"-0", true, 0},
      {L"9223372036854775807", true, INT64_MAX},
      {L"-9223372036854775808", true, INT64_MIN},
      {L"9223372036854775808", false, 0},
      {L"+9223372036854775808", false, 0},
      {L"-9223372036854775809", false, 0},
      {L"18446744073709551615", false, 0},
      {L"18446744073709551616", false, 0},
      {L"-18446744073709551616", false, 0},
      {L"4 2", false, 0},
      {L"", false, 0},
      {L"   ", false, 0},
      {L"+", false, 0},
      {L"- 5", false, 0},
      {L"--5", false, 0},
      {L"+-5", false, 0},
      {L"0x10", false, 0},
      {L"42x", false, 0},
      {L"1e3", false, 0},
  };
  for (const Case& c : cases) {
    CTime value(7);
    bool parsed = CTime::FromText(c.text, value);
    EXPECT_EQ(c.parses, parsed) << "'" << Narrow(c.text) << "'";
    EXPECT_EQ(c.parses ? c.value : 7, value.GetTicks()) << "'" << Narrow(c.text) << "'";
  }
}

TEST(TimeText, TextRoundTripsEveryEdge) {
  for (int64_t ticks : {INT64_MIN, int64_t(-1), int64_t(0), INT64_MAX}) {
    CTime back(12345);
    ASSERT_TRUE(CTime::FromText(CTime(ticks).ToText(), back)) << ticks;
    EXPECT_EQ(ticks, back.GetTicks());
  }
}

}  // namespace
