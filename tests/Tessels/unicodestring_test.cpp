// Tests of the text types: the sharing and copy-on-write rules, the room rule
// and its growth, substitution, hashing, parsing, number and code-page
// conversions, formatting, the character sets and the
// narrow twin.
#include "unicodestring.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"

using Tsl::CString;
using Tsl::CUnicodeString;

namespace Tsl {
// Readable failure messages.
void PrintTo(const CUnicodeString& text, std::ostream* out) {
  *out << '"' << TestSupport::Narrow(std::wstring(text.Text(), size_t(text.Length()))) << '"';
}
}  // namespace Tsl

namespace {

// Bytes of a buffer holding n units: the three-word header, the text and its terminator.
int32_t BytesFor(int32_t units) { return units * 2 + 14; }

CUnicodeString Repeat(wchar_t unit, int32_t count) {
  return std::wstring(size_t(count), unit).c_str();
}

// ---------------------------------------------------------------------------
// Sharing and copy-on-write

TEST(UnicodeStringSharing, CopiesShareOneBufferAndEveryWriterCopiesItFirst) {
  EXPECT_EQ(CUnicodeString().Text(), CUnicodeString().Text());  // the shared empty buffer
  CUnicodeString text(L"  Shared Text");
  CUnicodeString buffer(text), lower(text), trimmed(text), untouched(text);
  EXPECT_TRUE(text.IsShared());
  buffer.GetBuffer(buffer.Length())[2] = L's';
  lower.MakeLower();
  trimmed.Trim();
  // Writers with nothing to write leave the sharing alone.
  untouched.Append(nullptr);
  untouched += L"";
  untouched.TrimRight();
  EXPECT_EQ(L"  shared Text", buffer);
  EXPECT_EQ(L"  shared text", lower);
  EXPECT_EQ(L"Shared Text", trimmed);
  EXPECT_EQ(text.Text(), untouched.Text());
  EXPECT_EQ(L"  Shared Text", text);
  CUnicodeString big = Repeat(L'z', 300);
  big.Append(big.Text(), big.Length());  // the buffer moves while its own text is read
  EXPECT_EQ(Repeat(L'z', 600), big);
}

TEST(UnicodeStringSharing, EmptyKeepsAnExclusiveBufferAndLeavesASharedOne) {
  CUnicodeString exclusive = Repeat(L'x', 100);
  const wchar_t* buffer = exclusive.Text();
  exclusive.Empty();
  EXPECT_TRUE(exclusive.IsEmpty());
  EXPECT_EQ(buffer, exclusive.Text());
  EXPECT_EQ(BytesFor(100), exclusive.Capacity());
  CUnicodeString shared = Repeat(L'y', 100), holder(shared);
  shared.Empty();
  EXPECT_EQ(CUnicodeString().Text(), shared.Text());
  EXPECT_EQ(Repeat(L'y', 100), holder);
}

TEST(UnicodeStringSharing, CopiesInOtherThreadsKeepTheCountExact) {
  CUnicodeString text(L"shared between threads");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&text] {
      for (int i = 0; i < 100000; ++i) {
        CUnicodeString copy(text), other;
        other = copy;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(text.IsShared());  // a lost increment or decrement shows here
  EXPECT_EQ(L"shared between threads", text);
}

// ---------------------------------------------------------------------------
// The room rule

// Short strings fill the string allocator's pool blocks of 32, 64 and 128
// bytes; beyond them a buffer grows by a fifth, or to exactly what is needed
// when that is more, and never doubles.
TEST(UnicodeStringRoom, ShortStringsFillThePoolBlocksAndLongOnesGrowByAFifth) {
  const int32_t steps[][2] = {{9, 32},   {10, 64},  {25, 64},           {26, 128},
                              {57, 128}, {58, 150}, {68, BytesFor(68)}, {69, BytesFor(81)}};
  CUnicodeString text;
  for (const auto& step : steps) {
    while (text.Length() < step[0]) text += L'a';
    EXPECT_EQ(step[1], text.Capacity()) << "length " << step[0];
  }
  text.Append(Repeat(L'e', 500));
  EXPECT_EQ(BytesFor(569), text.Capacity());
  // A write copies a shared buffer, under the same rule; Reserve within the
  // room writes nothing and leaves it shared.
  CUnicodeString holder(text);
  text.Reserve(10);
  EXPECT_EQ(holder.Text(), text.Text());
  text.GetBuffer(1000);
  EXPECT_EQ(BytesFor(1000), text.Capacity());
  EXPECT_EQ(holder, text);
  EXPECT_EQ(BytesFor(200), CUnicodeString::FromBounded(L"abc\0def", 200).Capacity());
}

// ---------------------------------------------------------------------------
// Parts, searching, comparing, hashing

TEST(UnicodeStringText, PartsSearchesComparisonsAndHashes) {
  CUnicodeString text(L"Path\\To\\FILE.txt");
  EXPECT_EQ(L"To", text.Mid(5, 2));
  EXPECT_EQ(CUnicodeString().Text(), text.Mid(4, 0).Text());  // the shared empty buffer
  EXPECT_EQ(8, text.FindNoCase(L"file"));
  EXPECT_EQ(-1, text.FindNoCase(L"file", 9));
  // Units compare unsigned, with results -1, 0 and 1.
  EXPECT_EQ(1, CUnicodeString(L"\xFFFF").Compare(L"a"));
  EXPECT_EQ(-1, CUnicodeString(L"ab").Compare(L"abc"));
  EXPECT_EQ(0, CUnicodeString(L"Hello").CompareNoCase(L"hELLO"));
  EXPECT_EQ(0x7FFFFFFF, text.CompareNoCase(nullptr));
  // The hash is seeded with the first unit and wraps.
  EXPECT_EQ(65u, CUnicodeString(L"A").HashKey());
  EXPECT_EQ(65u * 33 + 66, CUnicodeString(L"AB").HashKey());
  EXPECT_EQ(0xBF44F159u, CUnicodeString(L"\xFFFF\xFFFF\xFFFF\xFFFF\xFFFF\xFFFF\xFFFF").HashKey());
  EXPECT_EQ(CUnicodeString(L"AB").HashKey(), CUnicodeString(L"aB").HashKeyNoCase());
}

// ---------------------------------------------------------------------------
// Parameter substitution and truth values

TEST(UnicodeStringSubst, MarkersAreReplacedDroppedOrKept) {
  const wchar_t* params[] = {L"P0", L"P1", L"P2"};
  const struct {
    const wchar_t* text;
    int32_t count;
    const wchar_t* expected;
  } cases[] = {
      {L"%0 of %1", 1, L"P0 of "},           {L"100%", 0, L"100%"},      {L"%%0", 1, L"%P0"},
      {L"a%1b%0c%2", 3, L"aP1bP0cP2"},       {L"%00", 1, L"P0"},         {L"%5 left", 1, L" left"},
      {L"%x and %", 1, L"%x and %"},         {L"%2147483647!", 1, L"!"},  // no such parameter
      {L"%2147483648!", 1, L"%2147483648!"},  // overflows a long: kept as it stands
      {L"%\xFF10", 1, L"%\xFF10"},            // full-width digits are no digits here
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.expected, CUnicodeString(c.text).SubstParam(params, c.count))
        << TestSupport::Narrow(c.text);
  std::vector<CUnicodeString> many;
  for (int i = 0; i < 20; ++i) many.push_back(CUnicodeString::FromNumber(int64_t(i)));
  EXPECT_EQ(L"19 0", CUnicodeString(L"%19 %0").SubstParamArray(many.data(), 20));
}

TEST(UnicodeStringBool, TruthValuesAreTrimmedAndCaseInsensitive) {
  const struct {
    const wchar_t* text;
    bool parses, value;
  } cases[] = {
      {L" YES \t", true, true}, {L"true", true, true},   {L"On", true, true},
      {L"1", true, true},       {L"FALSE", true, false}, {L"\x3000no", true, false},
      {L"0\r\n", true, false},  {L"y", false, false},    {L"", false, false},
      {L"truex", false, false}, {L"1 1", false, false},
  };
  for (const auto& c : cases) {
    bool value = !c.value;  // what a failed parse must leave untouched
    EXPECT_EQ(c.parses, CUnicodeString(c.text).ToBool(value)) << TestSupport::Narrow(c.text);
    EXPECT_EQ(c.parses ? c.value : !c.value, value) << TestSupport::Narrow(c.text);
  }
}

// ---------------------------------------------------------------------------
// Numbers, formatting, pointers, code pages

TEST(UnicodeStringFormat, NumbersAndFormatsBeyondTheFirst256Units) {
  EXPECT_EQ(L"-9223372036854775808", CUnicodeString::FromNumber(INT64_MIN));
  EXPECT_EQ(L"zz", CUnicodeString::FromNumber(int32_t(36 * 36 - 1), 36));
  EXPECT_EQ(std::wstring(32, L'1'), CUnicodeString::FromNumber(0xFFFFFFFFu, 2).Text());
  for (int32_t length : {255, 256, 257, 512, 5000}) {
    std::wstring expected(size_t(length), L'q');
    CUnicodeString text(L"old text");
    text.Format(L"%s", expected.c_str());
    EXPECT_EQ(expected, text.Text()) << length;
  }
  CUnicodeString self(L"me");
  self.Format(L"%s and %s", self.Text(), self.Text());  // arguments from the string itself
  EXPECT_EQ(L"me and me", self);
}

TEST(UnicodeStringConvert, CodePagesBothWays) {
  EXPECT_EQ(L"ab", CUnicodeString("ab\0cd", 5, CP_UTF8));  // a zero byte ends the text
  EXPECT_EQ(L"Gr\x00F6\x00DF", CUnicodeString("Gr\xC3\xB6\xC3\x9F", 6, CP_UTF8));
  EXPECT_EQ(L"\x20AC", CUnicodeString("\x80", 1, 1252));
  // UTF-8 takes no flags, so invalid bytes become replacement characters; a
  // page with flags refuses invalid input, which gives the empty string.
  EXPECT_EQ(L"a\uFFFDb", CUnicodeString("a\377b", 3, CP_UTF8));
  EXPECT_TRUE(CUnicodeString("\x82", 1, 932).IsEmpty());
  CUnicodeString text(L"Gr\u00F6\u00DF \u20AC");
  EXPECT_EQ(CString("Gr\xC3\xB6\xC3\x9F \xE2\x82\xAC"), text.ToNarrow(CP_UTF8));
  EXPECT_EQ(CString("Gr\xF6\xDF \x80"), text.ToNarrow(1252));
  EXPECT_EQ(CString("?"), CUnicodeString(L"\x4E2D").ToNarrow(1252));  // not in the page
}

// ---------------------------------------------------------------------------
// Character sets and the narrow twin

TEST(CharacterSets, TrimmingUsesTheProgramsWhitespaceAndSetsSpanPages) {
  CUnicodeString text(L"\x3000\x00A0 \tword one\x2028\x200A\r\n\x0085\x1680\x202F");
  text.Trim();
  EXPECT_EQ(L"word one", text);
  Tsl::CCharacterSet set;
  set.AddRange(0x03FE, 0x0401);  // across a page boundary
  for (wchar_t unit : {0x03FE, 0x0401}) EXPECT_TRUE(set.Contains(unit)) << unit;
  for (wchar_t unit : {0x03FD, 0x0402}) EXPECT_FALSE(set.Contains(unit)) << unit;
}

TEST(NarrowString, FollowsTheSameRulesWithItsOwnWhitespace) {
  EXPECT_EQ(CString().Text(), CString().Text());
  CString text(" \tword\xA0 \r\n"), holder(text);
  text.Trim();
  EXPECT_EQ(CString("word\xA0"), text);  // 0xA0 is no whitespace in narrow text
  EXPECT_EQ(CString(" \tword\xA0 \r\n"), holder);
  text += text;
  EXPECT_EQ(CString("word\xA0word\xA0"), text);
  EXPECT_EQ(1, CString("\xFF").Compare("a"));                    // unsigned bytes
  EXPECT_EQ(64, CString("twenty characters, more").Capacity());  // a header of 13 bytes
}

}  // namespace
