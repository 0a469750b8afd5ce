// Tests of the dictd reader of the demonstration main program: the index's
// numbers, lookups that ignore case and survive broken lines, and the shelf of
// one folder's dictionaries.
#include "DictdDictionary.h"

#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"

namespace {

TEST(DictdDictionary, IndexNumbersDecodeInTheirAlphabet) {
  struct Row {
    const char* text;
    bool ok;
    uint32_t value;
  } rows[] = {{"A", true, 0},         {"B", true, 1},        {"/", true, 63},
              {"BA", true, 64},       {"C4G", true, 11782},  {"D/////", true, 0xFFFFFFFFu},
              {"EAAAAA", false, 0},   {"", false, 0},        {"A=", false, 0},
              {"A B", false, 0}};
  for (const Row& row : rows) {
    uint32_t value = 0;
    bool ok = DecodeDictdNumber(row.text, static_cast<int32_t>(strlen(row.text)), value);
    EXPECT_EQ(row.ok, ok) << row.text;
    if (row.ok) {
      EXPECT_EQ(row.value, value) << row.text;
    }
  }
}

class DictdFiles : public testing::Test {
 protected:
  // Entries at known offsets: "abyss" twice, "Word" with a capital, a broken
  // line, a CRLF line, an entry beyond the data, and a last line without end.
  void SetUp() override {
    const std::string data = "abyss\nBezdna\n" "abyss\nAbgrund\n" "word\nslovo\n" "tree\nderevo\n";
    const std::string index =
        "00databaseshort\tA\tB\n"
        "abyss\tA\tN\n"
        "abyss\tN\tO\n"
        "broken line without tabs\n"
        "Word\tb\tL\r\n"
        "far\tBAAA\tK\n"
        "tree\tm\tM";
    ASSERT_TRUE(TestSupport::WriteBytes(scratch / L"one.index", index));
    ASSERT_TRUE(TestSupport::WriteBytes(scratch / L"one.dict", data));
  }
  TestSupport::ScratchFolder scratch;
};

TEST_F(DictdFiles, LookupFindsEveryEntryOfAWordWhateverItsCase) {
  CDictdDictionary dictionary;
  ASSERT_TRUE(dictionary.Open((scratch / L"one.index").c_str(), (scratch / L"one.dict").c_str()));
  struct Row {
    const wchar_t* word;
    bool found;
    const wchar_t* entries;
  } rows[] = {{L"ABYSS", true, L"abyss\nBezdna\r\n\r\nabyss\nAbgrund"},
              {L"word", true, L"word\nslovo"},
              {L"tree", true, L"tree\nderevo"},
              {L"far", false, L""},
              {L"abys", false, L""},
              {L"", false, L""}};
  for (const Row& row : rows) {
    Tsl::CUnicodeString entries;
    EXPECT_EQ(row.found, dictionary.Lookup(row.word, entries)) << TestSupport::Narrow(row.word);
    if (row.found) {
      EXPECT_STREQ(row.entries, entries.Text()) << TestSupport::Narrow(row.word);
    }
  }
}

TEST_F(DictdFiles, TheWordOfTheDayComesRoundTheHeadwordsAndNeverTheDatabaseRecords) {
  CDictdShelf shelf;
  ASSERT_TRUE(TestSupport::WriteBytes(scratch / L"nodata.index", "lonely\tA\tB\n"));
  EXPECT_EQ(1, shelf.OpenFolder(scratch.Path().c_str())) << "an index without data is no dictionary";
  // Five headwords: abyss, abyss, Word, far, tree.
  const wchar_t* expected[] = {L"abyss", L"abyss", L"Word", L"far", L"tree", L"abyss"};
  CDictdDictionary dictionary;
  ASSERT_TRUE(dictionary.Open((scratch / L"one.index").c_str(), (scratch / L"one.dict").c_str()));
  for (uint32_t n = 0; n < 6; ++n) {
    Tsl::CUnicodeString word;
    ASSERT_TRUE(dictionary.HeadwordAt(n, word));
    EXPECT_STREQ(expected[n], word.Text()) << n;
  }
  Tsl::CUnicodeString entries;
  ASSERT_TRUE(shelf.Lookup(L"tree", entries));
  EXPECT_STREQ(L"[one]\r\ntree\nderevo", entries.Text());
}

}  // namespace
