// Tests of CTime: local parts to UTC ticks and back in whatever zone the
// suite runs in (east and west of Greenwich alike), formatting past the
// first buffer, and the decimal text form at the edges of 64 bits.
#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "TesselsTestKit.h"
#include "tsltime.h"

using namespace Tsl;
using TestKit::W;

namespace {

// Minutes to add to local time to get UTC, as the zone stands now: the
// conversion applies today's bias to every date, summer or winter.
int32_t CurrentBiasMinutes() {
  TIME_ZONE_INFORMATION zone;
  DWORD state = ::GetTimeZoneInformation(&zone);
  if (state == TIME_ZONE_ID_DAYLIGHT) return zone.Bias + zone.DaylightBias;
  if (state == TIME_ZONE_ID_STANDARD) return zone.Bias + zone.StandardBias;
  return zone.Bias;
}

TEST(Time, LocalPartsRoundTripThroughUtcTicks) {
  const std::vector<std::vector<int32_t>> cases = {{1601, 1, 2, 0, 0, 0, 0},
                                                   {2000, 2, 29, 23, 59, 59, 999},
                                                   {2024, 7, 15, 12, 30, 45, 500},
                                                   {30827, 12, 31, 23, 59, 59, 0}};
  for (const auto& p : cases) {
    SYSTEMTIME back = CTime(p[0], p[1], p[2], p[3], p[4], p[5], p[6]).GetLocalParts();
    EXPECT_EQ(p, (std::vector<int32_t>{back.wYear, back.wMonth, back.wDay, back.wHour, back.wMinute,
                                       back.wSecond, back.wMilliseconds}));
  }
  // 2001-01-10 00:00 UTC is 126,235,584,000,000,000 ticks after 1601; local
  // midnight is off by the zone's bias. Microseconds may run past a second.
  CTime midnight(2001, 1, 10, 0, 0, 0);
  EXPECT_EQ(126235584000000000LL + int64_t(CurrentBiasMinutes()) * 60 * CTime::TicksPerSecond,
            midnight.GetTicks());
  EXPECT_EQ(CTime(2001, 1, 10, 0, 0, 2), CTime(2001, 1, 10, 0, 0, 0, 0, 2000000));
  EXPECT_EQ(L"time", TestKit::InternalErrorOf([] { CTime(2001, 2, 30, 0, 0, 0); }).first);
}

TEST(Time, FormatGrowsItsBufferAsOftenAsNeeded) {
  CTime time(2024, 7, 17, 8, 5, 9);  // a Wednesday
  EXPECT_EQ(L"2024-07-17 08:05:09 ", W(time.Format(L"%Y-%m-%d %H:%M:%S ")));
  EXPECT_EQ(L"", W(time.Format(L"")));
  // Format starts with four units of room per unit of format; a hundred years
  // need it to grow more than once.
  std::wstring format, expected;
  for (int i = 0; i < 100; ++i) format += L"%Y", expected += L"2024";
  EXPECT_EQ(expected, W(time.Format(format.c_str())));
}

TEST(Time, TextIsASignedDecimalTickCountWithin64Bits) {
  const struct {
    const wchar_t* text;
    bool parses;
    int64_t value;
  } cases[] = {{L"  +42\t", true, 42},
               {L"\r\n-42\n", true, -42},
               {L"9223372036854775807", true, INT64_MAX},
               {L"-9223372036854775808", true, INT64_MIN},
               {L"9223372036854775808", false, 0},
               {L"-9223372036854775809", false, 0},
               {L"18446744073709551616", false, 0},
               {L"", false, 0},
               {L"- 5", false, 0},
               {L"4 2", false, 0}};
  for (const auto& c : cases) {
    CTime value(7);
    EXPECT_EQ(c.parses, CTime::FromText(c.text, value)) << c.text;
    EXPECT_EQ(c.parses ? c.value : 7, value.GetTicks()) << c.text;
  }
  for (int64_t ticks : {INT64_MIN, int64_t(-1), int64_t(0), INT64_MAX}) {
    CTime back(12345);
    EXPECT_TRUE(CTime::FromText(CTime(ticks).ToText(), back) && back.GetTicks() == ticks) << ticks;
  }
}

}  // namespace
