// Tests of the bit set: its growth after the inline word, the byte-table
// search across byte and word edges, and subtraction.
#include "dynamicbitset.h"

#include <gtest/gtest.h>

#include <vector>

#include "TesselsTestKit.h"

using namespace Tsl;
using TestKit::CountingHeap;

namespace {

typedef CDynamicBitSet<CountingHeap> CBits;

std::vector<int32_t> Members(const CBits& bits) {
  std::vector<int32_t> members;
  for (int32_t bit = bits.FindNextElement(-1); bit >= 0; bit = bits.FindNextElement(bit))
    members.push_back(bit);
  return members;
}

}  // namespace

TEST(DynamicBitSet, InlineWordFirstThenGrowsByHalfAtLeastOneWord) {
  const struct {
    int32_t bit, words, capacity;
  } rows[] = {{0, 1, 1},   {31, 1, 1},  {32, 2, 2},     {64, 3, 3},    {96, 4, 4},
              {128, 5, 6}, {200, 7, 9}, {1000, 32, 32}, {1024, 33, 48}};
  CBits bits;
  for (const auto& row : rows) {
    bits.SetBit(row.bit);
    EXPECT_EQ(row.words, bits.GetWordCount()) << "bit " << row.bit;
    EXPECT_EQ(row.capacity, bits.GetWordCapacity()) << "bit " << row.bit;
    EXPECT_EQ(row.bit < 32 ? 0 : 1, CountingHeap::blocks) << "bit " << row.bit;
  }
  for (const auto& row : rows) EXPECT_TRUE(bits.TestBit(row.bit)) << "bit " << row.bit;
  EXPECT_EQ(9, bits.CountBits());
  EXPECT_EQ(TestKit::Place(L"dynamicbitset", 103),
            TestKit::InternalErrorOf([&] { bits.SetWordCount(33); }));  // not above the present
}

TEST(DynamicBitSet, FindNextElementCrossesBytesAndWords) {
  CBits bits;
  for (int32_t bit : {0, 7, 8, 15, 31, 32, 63, 64, 95}) bits.SetBit(bit);
  // From each member to the next: after the last bit of a byte the whole
  // next byte counts, and after the last position there is nothing.
  EXPECT_EQ((std::vector<int32_t>{0, 7, 8, 15, 31, 32, 63, 64, 95}), Members(bits));
  const struct { int32_t after, next; } rows[] = {{6, 7}, {9, 15}, {16, 31}, {33, 63}, {400, -1}};
  for (const auto& row : rows)
    EXPECT_EQ(row.next, bits.FindNextElement(row.after)) << "after " << row.after;
}

TEST(DynamicBitSet, SubtractKeepsTheLeftWordCount) {
  CBits wide, narrow;
  for (int32_t bit : {1, 2, 40, 90}) wide.SetBit(bit);
  for (int32_t bit : {2, 3}) narrow.SetBit(bit);
  CBits left(wide), right(narrow);
  left.Subtract(narrow);  // only the common first word is touched
  EXPECT_EQ(3, left.GetWordCount());
  EXPECT_EQ((std::vector<int32_t>{1, 40, 90}), Members(left));
  right.Subtract(wide);
  right.ClearBit(5000);  // beyond the set: nothing to clear
  EXPECT_EQ(1, right.GetWordCount());
  EXPECT_EQ((std::vector<int32_t>{3}), Members(right));
  EXPECT_TRUE(narrow.TestBit(2)) << "a copy of an inline set has its own word";
}
