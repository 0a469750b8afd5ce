// Tests of CMap with string keys: the operations' contracts, references held
// by entries, case-insensitive keys, the checked lookup, and agreement with a
// plain map through growth and deletion.
#include "Map.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

using namespace Tsl;

namespace {

typedef CMap<CUnicodeString, int32_t> CCounts;

CUnicodeString Text(const std::wstring& text) { return CUnicodeString(text.c_str()); }

}  // namespace

TEST(Map, SetReplacesGetOrCreateAddsDefaults) {
  CCounts map;
  EXPECT_EQ(nullptr, map.Find(L"one"));
  map.Set(L"one", 1);
  map.Set(L"two", 2);
  map.Set(L"one", 11);
  EXPECT_EQ(2, map.GetCount());
  EXPECT_EQ(11, map.Get(L"one"));
  int32_t& created = map.GetOrCreate(L"three");
  EXPECT_EQ(0, created);
  created = 3;
  ++map.GetOrCreate(L"three");
  EXPECT_EQ(4, map.Get(L"three"));
  int32_t value = -1;
  EXPECT_FALSE(map.Lookup(L"four", value));
  EXPECT_EQ(-1, value);
  EXPECT_TRUE(map.Lookup(L"two", value));
  EXPECT_EQ(2, value);
}

TEST(Map, GetOfAnAbsentKeyIsTheCheckedLookupError) {
  CCounts map;
  map.Set(L"present", 1);
  try {
    map.Get(L"absent");
    ADD_FAILURE() << "no internal error";
  } catch (CInternalError* e) {
    EXPECT_STREQ(L"Map", e->file);
    EXPECT_EQ(352, e->line);
    EXPECT_EQ(IE_Assert, e->kind);
    delete e;
  }
}

TEST(Map, EntriesHoldOneReferenceOnKeysAndValues) {
  CUnicodeString key(L"a key of some length");
  CUnicodeString value(L"a value of some length");
  {
    CMap<CUnicodeString, CUnicodeString> map;
    map.Set(key, value);
    EXPECT_TRUE(key.IsShared());
    EXPECT_TRUE(value.IsShared());
    map.Delete(key);
    EXPECT_FALSE(key.IsShared());
    EXPECT_FALSE(value.IsShared());
    map.Set(key, value);
    map.DeleteAll();
    EXPECT_FALSE(key.IsShared());
    map.Set(key, value);
    map.FreeBuffer();
    EXPECT_FALSE(value.IsShared());
    map.Set(key, value);  // released by the destructor
  }
  EXPECT_FALSE(key.IsShared());
  EXPECT_FALSE(value.IsShared());
}

TEST(Map, SetMayTakeItsArgumentsFromTheEntryItReplaces) {
  CMap<CUnicodeString, CUnicodeString> map;
  map.Set(L"name", L"old");
  int32_t position = map.FindPosition(L"name");
  map.Set(map.GetKeyAt(position), map.GetValueAt(position) + L"er");
  EXPECT_EQ(1, map.GetCount());
  EXPECT_EQ(CUnicodeString(L"older"), map.Get(L"name"));
}

TEST(Map, KeyHashIsTheStringsOwnHash) {
  for (const wchar_t* text : {L"", L"A", L"AB", L"item_123456789", L"\xFFFF\x8000z"}) {
    CUnicodeString key(text);
    EXPECT_EQ(key.HashKey(), CHashKeyTraits<CUnicodeString>::Hash(key)) << key.Length();
    EXPECT_EQ(key.HashKeyNoCase(), CNoCaseKeyTraits::Hash(key));
  }
  EXPECT_EQ(65u * 33 + 66, CHashKeyTraits<CUnicodeString>::Hash(L"AB"));
}

TEST(Map, NoCaseKeysFoldForHashAndCompare) {
  CMap<CUnicodeString, int32_t, CNoCaseKeyTraits> map;
  map.Set(L"Section", 1);
  map.Set(L"SECTION", 2);
  map.Set(L"section", 3);
  EXPECT_EQ(1, map.GetCount());
  EXPECT_EQ(3, map.Get(L"sEcTiOn"));
  EXPECT_FALSE(map.Has(L"Section2"));
  CCounts exact;
  exact.Set(L"Section", 1);
  EXPECT_FALSE(exact.Has(L"section"));
}

TEST(Map, SeveralEntriesOfOneKeyAreFoundAndRemovedTogether) {
  CCounts map;
  map.Insert(L"k", 1);
  map.Insert(L"other", 0);
  map.Insert(L"k", 2);
  int32_t sum = 0, found = 0;
  for (int32_t p = map.FindPosition(L"k"); p >= 0; p = map.FindNextPosition(L"k", p), ++found)
    sum += map.GetValueAt(p);
  EXPECT_EQ(2, found);
  EXPECT_EQ(3, sum);
  map.Set(L"k", 9);  // Set leaves one entry of its key
  EXPECT_EQ(2, map.GetCount());
  EXPECT_EQ(9, map.Get(L"k"));
  map.Insert(L"k", 10);
  EXPECT_EQ(2, map.Remove(L"k"));
  EXPECT_EQ(0, map.Remove(L"k"));  // the tolerant form
  try {
    map.Delete(L"k");  // the checked form
    ADD_FAILURE() << "no internal error";
  } catch (CInternalError* e) {
    EXPECT_STREQ(L"Map", e->file);
    EXPECT_EQ(371, e->line);
    delete e;
  }
  EXPECT_EQ(1, map.GetCount());
}

TEST(Map, DeletingWhileIteratingVisitsEveryEntryOnce) {
  CCounts map;
  for (int32_t i = 0; i < 200; ++i) map.Set(CUnicodeString::FromNumber(int64_t(i)), i);
  int32_t visited = 0;
  for (int32_t p = map.GetFirstPosition(); p >= 0; p = map.GetNextPosition(p)) {
    ++visited;
    if (map.GetValueAt(p) % 2 == 0) map.DeleteAt(p);
  }
  EXPECT_EQ(200, visited);
  EXPECT_EQ(100, map.GetCount());
  for (const auto& entry : map) EXPECT_EQ(1, entry.value % 2);
}

TEST(Map, AgreesWithAPlainMapThroughGrowthAndDeletion) {
  std::mt19937 random(3);
  CCounts map;
  std::map<std::wstring, int32_t> model;
  for (int i = 0; i < 40000; ++i) {
    uint32_t r = random();
    std::wstring key = L"key" + std::to_wstring(r % 9000);
    switch (r % 7) {
      case 0:
        EXPECT_EQ(int32_t(model.erase(key)), map.Remove(Text(key)));
        break;
      case 1:
        EXPECT_EQ(model.count(key) != 0, map.Has(Text(key)));
        break;
      default:
        model[key] = int32_t(i);
        map.Set(Text(key), int32_t(i));
    }
  }
  EXPECT_EQ(int32_t(model.size()), map.GetCount());
  std::map<std::wstring, int32_t> seen;
  for (const auto& entry : map) seen[entry.key.Text()] = entry.value;
  EXPECT_EQ(model, seen);
}
