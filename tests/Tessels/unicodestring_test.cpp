// Tests of the text types: the sharing and copy-on-write rules, the room rule
// and its growth, substitution, hashing, parsing, number and code-page
// conversions, formatting, string resources and the character sets.
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
void PrintTo(const CString& text, std::ostream* out) { *out << '"' << text.Text() << '"'; }
}  // namespace Tsl

static_assert(sizeof(CUnicodeString) == sizeof(void*), "a string is one pointer");
static_assert(sizeof(CString) == sizeof(void*), "a string is one pointer");

namespace {

std::string Show(const CUnicodeString& text) { return TestSupport::Narrow(std::wstring(text.Text(), text.Length())); }

// Bytes of a buffer holding n units: the three-word header, the text and its terminator.
int32_t BytesFor(int32_t units) { return units * 2 + 14; }

CUnicodeString Repeat(wchar_t unit, int32_t count) {
  std::wstring text(size_t(count), unit);
  return CUnicodeString(text.c_str(), count);
}

// ---------------------------------------------------------------------------
// Sharing and copy-on-write

TEST(UnicodeStringSharing, DefaultStringsShareTheEmptyBufferUntilOneIsWritten) {
  CUnicodeString a, b;
  EXPECT_EQ(a.Text(), b.Text());
  EXPECT_TRUE(a.IsShared());
  wcscpy(a.GetBuffer(3), L"abc");
  a.SetBufferLength(3);
  EXPECT_EQ(L"abc", a);
  EXPECT_TRUE(b.IsEmpty());
  EXPECT_EQ(0, b.Text()[0]);
  EXPECT_EQ(CUnicodeString().Text(), b.Text());
}

TEST(UnicodeStringSharing, GetBufferOnASharedBufferCopiesAndLeavesTheOtherHolderAlone) {
  CUnicodeString a(L"shared text");
  a.Reserve(40);
  CUnicodeString b(a);
  EXPECT_EQ(a.Text(), b.Text());
  EXPECT_TRUE(a.IsShared());
  wchar_t* text = b.GetBuffer(b.Length());
  EXPECT_NE(a.Text(), b.Text());
  EXPECT_EQ(11, b.Length());
  EXPECT_EQ(L"shared text", b);
  text[0] = L'S';
  EXPECT_EQ(L"shared text", a);
  EXPECT_EQ(L"Shared text", b);
  EXPECT_FALSE(a.IsShared());
  EXPECT_FALSE(b.IsShared());
}

TEST(UnicodeStringSharing, EmptyKeepsAnExclusiveBufferAndLeavesASharedOne) {
  CUnicodeString exclusive = Repeat(L'x', 100);
  const wchar_t* buffer = exclusive.Text();
  int32_t capacity = exclusive.Capacity();
  exclusive.Empty();
  EXPECT_TRUE(exclusive.IsEmpty());
  EXPECT_EQ(buffer, exclusive.Text());
  EXPECT_EQ(capacity, exclusive.Capacity());

  CUnicodeString shared = Repeat(L'y', 100);
  CUnicodeString holder(shared);
  shared.Empty();
  EXPECT_EQ(CUnicodeString().Text(), shared.Text());
  EXPECT_EQ(100, holder.Length());
  EXPECT_FALSE(holder.IsShared());
}

TEST(UnicodeStringSharing, AppendingNothingChangesNeitherBufferNorSharing) {
  CUnicodeString a(L"123456789");
  CUnicodeString b(a);
  const wchar_t* buffer = a.Text();
  a.Append(L"");
  a.Append(L"ignored", 0);
  a.Append(nullptr);
  a.Append(CUnicodeString());
  a += L"";
  EXPECT_EQ(buffer, a.Text());
  EXPECT_TRUE(a.IsShared());
  EXPECT_EQ(9, a.Length());
}

TEST(UnicodeStringSharing, AStringMayBeAppendedToItself) {
  CUnicodeString a(L"abc");
  a += a;
  EXPECT_EQ(L"abcabc", a);
  a.Append(a.Text() + 1, 2);  // raw text from inside the buffer
  EXPECT_EQ(L"abcabcbc", a);
  CUnicodeString big = Repeat(L'z', 300);
  big.Append(big.Text(), big.Length());
  EXPECT_EQ(600, big.Length());
  EXPECT_EQ(Repeat(L'z', 600), big);
}

TEST(UnicodeStringSharing, AssignMayTakeAPartOfTheStringItself) {
  CUnicodeString a(L"0123456789");
  const wchar_t* buffer = a.Text();
  a.Assign(a.Text() + 3, 4);
  EXPECT_EQ(L"3456", a);
  EXPECT_EQ(buffer, a.Text());
  a = a;  // self-assignment must not free the buffer
  EXPECT_EQ(L"3456", a);
  a.Assign(L"", 0);
  EXPECT_TRUE(a.IsEmpty());
}

TEST(UnicodeStringSharing, CopiesInOtherThreadsKeepTheCountExact) {
  CUnicodeString text(L"shared between threads");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&text] {
      for (int i = 0; i < 100000; ++i) {
        CUnicodeString copy(text);
        CUnicodeString other;
        other = copy;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(text.IsShared());  // a lost increment or decrement shows here
  EXPECT_EQ(L"shared between threads", text);
}

// ---------------------------------------------------------------------------
// The room rule

// The capacities are the string allocator's pool block sizes; leaving the
// last pool, 58 units take the greater of 58 and 57 + 57/5.
TEST(UnicodeStringRoom, ShortStringsFillThePoolBlocksBeforeMoving) {
  const int32_t steps[][2] = {{1, 32}, {9, 32}, {10, 64}, {25, 64}, {26, 128}, {57, 128}, {58, BytesFor(68)}};
  CUnicodeString text;
  for (const auto& step : steps) {
    while (text.Length() < step[0]) text += L'a';
    EXPECT_EQ(step[1], text.Capacity()) << "length " << step[0];
  }
  EXPECT_EQ(32, CString("nineteen characters").Capacity());  // narrow: 19 + 13 bytes
  EXPECT_EQ(64, CString("twenty characters, more").Capacity());
}

TEST(UnicodeStringRoom, LongStringsGrowByAFifthNeverByDoubling) {
  CUnicodeString text = Repeat(L'a', 100);
  EXPECT_EQ(BytesFor(100), text.Capacity());
  text += L'b';
  EXPECT_EQ(BytesFor(120), text.Capacity());
  while (text.Length() < 120) text += L'c';
  EXPECT_EQ(BytesFor(120), text.Capacity());
  text += L'd';
  EXPECT_EQ(BytesFor(144), text.Capacity());
  text.Append(Repeat(L'e', 500));  // more than a fifth: exactly what is needed
  EXPECT_EQ(BytesFor(621), text.Capacity());
  EXPECT_EQ(621, text.Length());
}

TEST(UnicodeStringRoom, SharedBuffersAreCopiedToTheExactSizeAndReserveLeavesThemShared) {
  CUnicodeString text = Repeat(L'a', 200);
  CUnicodeString holder(text);
  text.Reserve(150);
  EXPECT_EQ(holder.Text(), text.Text());
  text.GetBuffer(250);
  EXPECT_EQ(BytesFor(250), text.Capacity());
  EXPECT_EQ(200, text.Length());
  EXPECT_EQ(holder, text);
}

TEST(UnicodeStringRoom, BoundedTextKeepsTheRoomOfTheCount) {
  CUnicodeString cut = CUnicodeString::FromBounded(L"abc\0def", 200);
  EXPECT_EQ(L"abc", cut);
  EXPECT_EQ(BytesFor(200), cut.Capacity());
  EXPECT_EQ(L"ab", CUnicodeString::FromBounded(L"abcdef", 2));
}

// ---------------------------------------------------------------------------
// Parts, trimming, searching, comparing, hashing

TEST(UnicodeStringText, ConcatenationBuildsOneBufferOfTheExactLength) {
  CUnicodeString left = Repeat(L'a', 100), right = Repeat(L'b', 50);
  CUnicodeString joined = left + right;
  EXPECT_EQ(150, joined.Length());
  EXPECT_EQ(BytesFor(150), joined.Capacity());
  EXPECT_EQ(L"x!", L'x' + CUnicodeString(L"!"));
  EXPECT_EQ(CUnicodeString().Text(), (CUnicodeString() + L"").Text());
}

TEST(UnicodeStringText, PartsAreTerminatedAndEmptyPartsShareTheEmptyBuffer) {
  CUnicodeString text(L"0123456789");
  EXPECT_EQ(L"345", text.Mid(3, 3));
  EXPECT_EQ(L"789", text.Mid(7));
  EXPECT_EQ(L"89", text.Right(2));
  EXPECT_EQ(CUnicodeString().Text(), text.Mid(4, 0).Text());
}

TEST(UnicodeStringText, TrimmingUsesTheWholeWhitespaceSet) {
  CUnicodeString text(L"\x3000\x00A0 \tword one\x2028\x200A\r\n\x0085");
  text.Trim();
  EXPECT_EQ(L"word one", text);
  CUnicodeString blank(L" \t\x2000 ");
  blank.Trim();
  EXPECT_TRUE(blank.IsEmpty());
  CUnicodeString kept(L"x\x200B");  // zero width space is not whitespace here
  kept.Trim();
  EXPECT_EQ(2, kept.Length());
}

TEST(UnicodeStringText, TrimRightWritesOnlyWhenSomethingIsCut) {
  CUnicodeString text(L"  clean");
  CUnicodeString holder(text);
  text.TrimRight();
  EXPECT_EQ(holder.Text(), text.Text());
  text += L"  ";
  text.TrimRight();
  EXPECT_EQ(L"  clean", text);
  EXPECT_EQ(2, text.SpanOfWhitespace(0));
  EXPECT_EQ(0, text.SpanOfWhitespace(7));
  EXPECT_EQ(0, text.SpanOfWhitespace(50));
}

TEST(UnicodeStringText, MakeLowerWritesAPrivateCopy) {
  CUnicodeString text(L"MiXeD Case");
  CUnicodeString holder(text);
  text.MakeLower();
  EXPECT_EQ(L"mixed case", text);
  EXPECT_EQ(L"MiXeD Case", holder);
}

TEST(UnicodeStringText, FindNoCaseGivesTheIndexInTheOriginal) {
  CUnicodeString text(L"Path\\To\\FILE.txt");
  EXPECT_EQ(8, text.FindNoCase(L"file"));
  EXPECT_EQ(-1, text.FindNoCase(L"file", 9));
  EXPECT_EQ(-1, text.FindNoCase(L"nothing"));
  EXPECT_EQ(-1, text.FindNoCase(L"a", 100));
  EXPECT_EQ(L"Path\\To\\FILE.txt", text);
  EXPECT_EQ(7, text.ReverseFind(L'\\'));
}

TEST(UnicodeStringText, ComparingIsByUnsignedUnitsWithResultsMinusOneZeroOne) {
  CUnicodeString high(L"\xFFFF"), low(L"a");
  EXPECT_EQ(1, high.Compare(low));
  EXPECT_EQ(-1, low.Compare(high));
  EXPECT_EQ(-1, CUnicodeString(L"ab").Compare(L"abc"));
  EXPECT_EQ(1, CUnicodeString(L"b").Compare(L"abc"));
  EXPECT_EQ(0, CUnicodeString().Compare(nullptr));
  EXPECT_TRUE(low < high);
  EXPECT_EQ(0, CUnicodeString(L"Hello").CompareNoCase(L"hELLO"));
  EXPECT_EQ(0x7FFFFFFF, low.CompareNoCase(nullptr));
  EXPECT_LT(CUnicodeString(L"apple").CompareNoCase(L"BANANA"), 0);
}

TEST(UnicodeStringText, HashesSeedWithTheFirstUnit) {
  EXPECT_EQ(0u, CUnicodeString().HashKey());
  EXPECT_EQ(65u, CUnicodeString(L"A").HashKey());
  EXPECT_EQ(65u * 33 + 66, CUnicodeString(L"AB").HashKey());
  EXPECT_EQ(0xBF44F159u, CUnicodeString(L"\xFFFF\xFFFF\xFFFF\xFFFF\xFFFF\xFFFF\xFFFF").HashKey());  // wraps
  EXPECT_EQ(CUnicodeString(L"AB").HashKey(), CUnicodeString(L"ab").HashKeyNoCase());
  EXPECT_EQ(CUnicodeString(L"ab").HashKeyNoCase(), CUnicodeString(L"aB").HashKeyNoCase());
}

// ---------------------------------------------------------------------------
// Parameter substitution and truth values

TEST(UnicodeStringSubst, MarkersAreReplacedDroppedOrKept) {
  struct Case {
    const wchar_t* text;
    int32_t count;
    const wchar_t* expected;
  };
  const wchar_t* params[] = {L"P0", L"P1", L"P2"};
  const Case cases[] = {
      {L"%0 of %1", 1, L"P0 of "},
      {L"100%", 0, L"100%"},
      {L"%%0", 1, L"%P0"},
      {L"%", 3, L"%"},
      {L"", 3, L""},
      {L"a%1b%0c%2", 3, L"aP1bP0cP2"},
      {L"%00", 1, L"P0"},
      {L"%5 left", 1, L" left"},
      {L"%x and %", 1, L"%x and %"},
      {L"%2147483647!", 1, L"!"},                   // a valid long, but no such parameter
      {L"%2147483648!", 1, L"%2147483648!"},        // overflows a long: kept as it stands
      {L"%99999999999999999999", 1, L"%99999999999999999999"},
      {L"%\xFF10", 1, L"%\xFF10"},                  // full-width digits are no digits here
      {L"no markers", 3, L"no markers"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(c.expected, CUnicodeString(c.text).SubstParam(params, c.count)) << TestSupport::Narrow(c.text);
}

TEST(UnicodeStringSubst, ConvenienceFormsTakeStrings) {
  CUnicodeString pattern(L"%2-%1-%0");
  EXPECT_EQ(L"--a", pattern.SubstParam(CUnicodeString(L"a")));
  EXPECT_EQ(L"-b-a", pattern.SubstParam(L"a", L"b"));
  EXPECT_EQ(L"c-b-a", pattern.SubstParam(L"a", L"b", L"c"));
  std::vector<CUnicodeString> many;
  for (int i = 0; i < 20; ++i) many.push_back(CUnicodeString::FromNumber(int64_t(i)));
  EXPECT_EQ(L"19 0", CUnicodeString(L"%19 %0").SubstParamArray(many.data(), 20));
}

TEST(UnicodeStringBool, TruthValuesAreTrimmedAndCaseInsensitive) {
  struct Case {
    const wchar_t* text;
    bool parses;
    bool value;
  };
  const Case cases[] = {
      {L"  YES \t", true, true}, {L"true", true, true}, {L"On", true, true},   {L"1", true, true},
      {L"FALSE", true, false},   {L"off", true, false}, {L"\x3000no", true, false}, {L"0\r\n", true, false},
      {L"y", false, false},      {L"", false, false},   {L"truex", false, false},    {L"1 1", false, false},
  };
  for (const Case& c : cases) {
    bool value = !c.value;
    bool untouched = value;
    EXPECT_EQ(c.parses, CUnicodeString(c.text).ToBool(value)) << TestSupport::Narrow(c.text);
    EXPECT_EQ(c.parses ? c.value : untouched, value) << TestSupport::Narrow(c.text);
  }
  EXPECT_EQ(L"true", CUnicodeString::FromBool(true));
  EXPECT_EQ(L"false", CUnicodeString::FromBool(false));
}

// ---------------------------------------------------------------------------
// Numbers, formatting, pointers

TEST(UnicodeStringNumbers, NumbersInEveryForm) {
  EXPECT_EQ(L"-9223372036854775808", CUnicodeString::FromNumber(INT64_MIN));
  EXPECT_EQ(L"0", CUnicodeString::FromNumber(int64_t(0)));
  EXPECT_EQ(L"ff", CUnicodeString::FromNumber(int32_t(255), 16));
  EXPECT_EQ(L"-255", CUnicodeString::FromNumber(int32_t(-255), 10));
  EXPECT_EQ(L"zz", CUnicodeString::FromNumber(int32_t(36 * 36 - 1), 36));
  EXPECT_EQ(std::wstring(32, L'1'), CUnicodeString::FromNumber(uint32_t(0xFFFFFFFF), 2).Text());
  EXPECT_EQ(L"4294967295", CUnicodeString::FromNumber(uint32_t(0xFFFFFFFF), 10));
  EXPECT_EQ(CString("4294967295"), CString::FromNumber(0xFFFFFFFFu));
}

TEST(UnicodeStringFormat, GrowsBeyondTheFirst256Units) {
  for (int32_t length : {0, 255, 256, 257, 511, 512, 513, 5000}) {
    std::wstring expected(size_t(length), L'q');
    CUnicodeString text(L"old text");
    text.Format(L"%s", expected.c_str());
    EXPECT_EQ(length, text.Length()) << length;
    EXPECT_EQ(expected, text.Text()) << length;
  }
  CUnicodeString self(L"me");
  self.Format(L"%s and %s", self.Text(), self.Text());  // arguments from the string itself
  EXPECT_EQ(L"me and me", self);
  CUnicodeString mixed;
  mixed.Format(L"%d-%ls-%08X-%I64d", -5, L"wide", 0xBEEFu, int64_t(1) << 40);
  EXPECT_EQ(L"-5-wide-0000BEEF-1099511627776", mixed);
}

int MarkerFunction() { return 7; }

TEST(UnicodeStringFormat, PointersNameTheirModule) {
  CUnicodeString inModule = CUnicodeString::FromPointer(reinterpret_cast<const void*>(&MarkerFunction));
  EXPECT_EQ(0, inModule.Find(L"0x")) << Show(inModule);
  EXPECT_NE(-1, inModule.FindNoCase(L"unicodestring_test.exe)")) << Show(inModule);
  CUnicodeString outside = CUnicodeString::FromPointer(nullptr);
  EXPECT_EQ(2 + int32_t(sizeof(void*)) * 2, outside.Length()) << Show(outside);
  EXPECT_EQ(-1, outside.Find(L'('));
}

// ---------------------------------------------------------------------------
// Code pages

TEST(UnicodeStringConvert, NarrowTextFromCodePages) {
  EXPECT_EQ(L"ab", CUnicodeString("ab\0cd", 5, CP_UTF8));      // a zero byte ends the text
  EXPECT_EQ(L"ab", CUnicodeString("ab\0cd", 5, 1252));
  EXPECT_EQ(L"Gr\x00F6\x00DF" L"e", CUnicodeString("Gr\xC3\xB6\xC3\x9F" "e", 7, CP_UTF8));
  EXPECT_EQ(L"\x20AC", CUnicodeString("\x80", 1, 1252));
  EXPECT_TRUE(CUnicodeString(nullptr, 4, CP_UTF8).IsEmpty());
  EXPECT_TRUE(CUnicodeString("abc", 0, CP_UTF8).IsEmpty());
  EXPECT_EQ(L"term", CUnicodeString("term", -1, CP_UTF8));
  // UTF-8 takes no flags, so invalid bytes become replacement characters.
  EXPECT_EQ(L"a\xFFFD" L"b", CUnicodeString("a\xFF" "b", 3, CP_UTF8));
  // A page with flags refuses invalid input, which gives the empty string.
  EXPECT_TRUE(CUnicodeString("\x82", 1, 932).IsEmpty());
}

TEST(UnicodeStringConvert, WideTextToCodePages) {
  CUnicodeString text(L"Gr\x00F6\x00DF" L"e \x20AC");
  EXPECT_EQ(CString("Gr\xC3\xB6\xC3\x9F" "e \xE2\x82\xAC"), text.ToNarrow(CP_UTF8));
  EXPECT_EQ(CString("Gr\xF6\xDF" "e \x80"), text.ToNarrow(1252));
  EXPECT_EQ(CString("?"), CUnicodeString(L"\x4E2D").ToNarrow(1252));  // no such character in the page
  EXPECT_TRUE(CUnicodeString().ToNarrow(CP_UTF8).IsEmpty());
  EXPECT_EQ(text, text.ToNarrow(CP_UTF8).ToUnicode(CP_UTF8));
}

// ---------------------------------------------------------------------------
// String resources

// Copies this executable and gives the copy a string table with entries 16
// to 20, so that the resource loading can be seen at work on known texts.
class StringResources : public ::testing::Test {
 protected:
  void SetUp() override {
    wchar_t self[MAX_PATH];
    ASSERT_NE(0u, GetModuleFileNameW(nullptr, self, MAX_PATH));
    path = folder / L"strings.exe";
    ASSERT_TRUE(CopyFileW(self, path.c_str(), FALSE));
    texts = {L"", std::wstring(125, L'a'), std::wstring(126, L'b'), std::wstring(1000, L'c'), L"Hello"};
    std::vector<WORD> block;
    for (int i = 0; i < 16; ++i) {
      std::wstring text = i < int(texts.size()) ? texts[size_t(i)] : L"";
      block.push_back(WORD(text.size()));
      block.insert(block.end(), text.begin(), text.end());
    }
    HANDLE update = BeginUpdateResourceW(path.c_str(), FALSE);
    ASSERT_NE(nullptr, update);
    ASSERT_TRUE(UpdateResourceW(update, MAKEINTRESOURCEW(6), MAKEINTRESOURCEW(2), 0, block.data(),
                                DWORD(block.size() * sizeof(WORD))));
    ASSERT_TRUE(EndUpdateResourceW(update, FALSE));
    module = LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(nullptr, module);
  }
  void TearDown() override {
    if (module) FreeLibrary(module);
  }

  TestSupport::ScratchFolder folder;
  std::wstring path;
  std::vector<std::wstring> texts;
  HMODULE module = nullptr;
};

TEST_F(StringResources, TextsOfAnyLengthLoadWhole) {
  CUnicodeString text(L"previous");
  EXPECT_TRUE(text.LoadString(module, 20));
  EXPECT_EQ(L"Hello", text);
  for (UINT id : {17u, 18u, 19u}) {
    EXPECT_TRUE(text.LoadString(module, id));
    EXPECT_EQ(texts[id - 16], text.Text()) << id;
  }
}

TEST_F(StringResources, EmptyOrMissingTextsGiveFalseAndAnEmptyString) {
  CUnicodeString text(L"previous");
  EXPECT_FALSE(text.LoadString(module, 16));
  EXPECT_TRUE(text.IsEmpty());
  text = L"again";
  EXPECT_FALSE(text.LoadString(module, 4000));
  EXPECT_TRUE(text.IsEmpty());
}

TEST_F(StringResources, OnlyHalfTheBufferIsOfferedOnEachPass) {
  CUnicodeString fits, fills;
  ASSERT_TRUE(fits.LoadString(module, 17));   // 125 units: done in the first buffer of 254
  ASSERT_TRUE(fills.LoadString(module, 18));  // 126 units fill the half: one more pass, 508
  EXPECT_EQ(BytesFor(254), fits.Capacity());
  EXPECT_EQ(BytesFor(508), fills.Capacity());
  CUnicodeString large;
  ASSERT_TRUE(large.LoadString(module, 19));  // 1,000 units: 254, 508, 1016, 2032
  EXPECT_EQ(BytesFor(2032), large.Capacity());
}

// ---------------------------------------------------------------------------
// Character sets and the narrow twin

TEST(CharacterSets, MembersOfTheProgramsSets) {
  const wchar_t spaces[] = L"\t\n\v\f\r \x0085\x00A0\x1680\x2000\x2005\x200A\x2028\x2029\x202F\x3000";
  for (const wchar_t* unit = spaces; *unit; ++unit) EXPECT_TRUE(Tsl::IsWhitespace(*unit)) << int(*unit);
  const wchar_t others[] = L"\x0008\x000E\x001F!a\x00A1\x180E\x200B\x2030\xFEFF\xFFFF";
  for (const wchar_t* unit = others; *unit; ++unit) EXPECT_FALSE(Tsl::IsWhitespace(*unit)) << int(*unit);
  EXPECT_FALSE(Tsl::IsWhitespace(0));

  for (wchar_t unit = L'0'; unit <= L'9'; ++unit) EXPECT_TRUE(Tsl::IsDecimalDigit(unit));
  EXPECT_FALSE(Tsl::IsDecimalDigit(L'/'));
  EXPECT_FALSE(Tsl::IsDecimalDigit(L':'));
  EXPECT_FALSE(Tsl::IsDecimalDigit(L'\x0661'));  // other scripts' digits are not digits here

  for (const wchar_t* unit = L"*?<>:\"|\\/\x0001\x001F"; *unit; ++unit)
    EXPECT_TRUE(Tsl::IsForbiddenInFileName(*unit)) << int(*unit);
  for (const wchar_t* unit = L" .-_a\x00E9\x0020"; *unit; ++unit)
    EXPECT_FALSE(Tsl::IsForbiddenInFileName(*unit)) << int(*unit);
  EXPECT_FALSE(Tsl::IsForbiddenInFileName(0));

  EXPECT_TRUE(Tsl::IsNarrowWhitespace('\v'));
  EXPECT_FALSE(Tsl::IsNarrowWhitespace('\xA0'));
  EXPECT_FALSE(Tsl::IsNarrowWhitespace('\x85'));
  EXPECT_TRUE(Tsl::IsNarrowDecimalDigit('7'));
  EXPECT_FALSE(Tsl::IsNarrowDecimalDigit('a'));
}

TEST(CharacterSets, RangesAcrossPageBoundaries) {
  Tsl::CCharacterSet set;
  set.AddRange(0x03FE, 0x0401);
  set.Add(0xFFFF);
  for (wchar_t unit : {0x03FE, 0x03FF, 0x0400, 0x0401, 0xFFFF}) EXPECT_TRUE(set.Contains(wchar_t(unit))) << unit;
  for (wchar_t unit : {0x03FD, 0x0402, 0x0000, 0xFFFE, 0x07FE}) EXPECT_FALSE(set.Contains(wchar_t(unit))) << unit;
}

TEST(NarrowString, FollowsTheSameRulesWithItsOwnWhitespace) {
  CString a, b;
  EXPECT_EQ(a.Text(), b.Text());
  CString text(" \tbytes\xA0 \r\n");
  CString holder(text);
  text.Trim();
  EXPECT_EQ(CString("bytes\xA0"), text);
  EXPECT_EQ(CString(" \tbytes\xA0 \r\n"), holder);
  EXPECT_EQ(1, CString("\xFF").Compare("a"));  // unsigned bytes
  text += text;
  EXPECT_EQ(CString("bytes\xA0" "bytes\xA0"), text);
  EXPECT_EQ(CString("tes"), text.Mid(2, 3));
  EXPECT_EQ(CString("ab"), CString("a") + "b");
  EXPECT_EQ(65u * 33 + 66, CString("AB").HashKey());
  EXPECT_EQ(CString("ab"), CString::FromBounded("ab\0c", 10));
}

}  // namespace
