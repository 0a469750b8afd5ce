// Tests of the bit set: its growth, the inline word, the byte-table search
// across byte and word edges, counting and subtraction.
#include "dynamicbitset.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace Tsl;

namespace {

struct CountingHeap {
  static int blocks;
  static void* Alloc(size_t size) {
    ++blocks;
    return malloc(size);
  }
  static void Free(void* block) {
    if (block != nullptr) --blocks;
    free(block);
  }
};
int CountingHeap::blocks = 0;

typedef CDynamicBitSet<CountingHeap> CBits;

std::vector<int32_t> Members(const CBits& bits) {
  std::vector<int32_t> members;
  for (int32_t bit = bits.FindNextElement(-1); bit >= 0; bit = bits.FindNextElement(bit))
    members.push_back(bit);
  return members;
}

}  // namespace

TEST(DynamicBitSet, UpTo32BitsAllocatesNothing) {
  CBits bits;
  for (int32_t bit = 0; bit < 32; bit += 3) bits.SetBit(bit);
  bits.SetBit(31);
  EXPECT_EQ(0, CountingHeap::blocks);
  EXPECT_EQ(1, bits.GetWordCapacity());
  CBits copy(bits);
  EXPECT_EQ(0, CountingHeap::blocks);
  EXPECT_TRUE(copy == bits);
}

TEST(DynamicBitSet, WordCapacityGrowsByHalfAtLeastOne) {
  struct Row {
    int32_t bit, words, capacity;
  } rows[] = {{0, 1, 1},   {32, 2, 2},  {64, 3, 3},     {96, 4, 4},
              {128, 5, 6}, {200, 7, 9}, {1000, 32, 32}, {1024, 33, 48}};
  CBits bits;
  for (const Row& row : rows) {
    bits.SetBit(row.bit);
    EXPECT_EQ(row.words, bits.GetWordCount()) << "bit " << row.bit;
    EXPECT_EQ(row.capacity, bits.GetWordCapacity()) << "bit " << row.bit;
  }
  for (const Row& row : rows) EXPECT_TRUE(bits.TestBit(row.bit)) << "bit " << row.bit;
  EXPECT_EQ(int32_t(sizeof(rows) / sizeof(rows[0])), bits.CountBits());
  EXPECT_EQ(1, CountingHeap::blocks);
}

TEST(DynamicBitSet, RaisingTheWordCountToItselfIsAnInternalError) {
  CBits bits;
  bits.SetWordCount(3);
  try {
    bits.SetWordCount(3);
    ADD_FAILURE() << "no internal error";
  } catch (CInternalError* e) {
    EXPECT_STREQ(L"dynamicbitset", e->file);
    EXPECT_EQ(103, e->line);
    delete e;
  }
  EXPECT_EQ(3, bits.GetWordCount());
}

TEST(DynamicBitSet, FindNextElementCrossesBytesAndWords) {
  CBits bits;
  for (int32_t bit : {0, 7, 8, 15, 31, 32, 63, 64, 95}) bits.SetBit(bit);
  EXPECT_EQ((std::vector<int32_t>{0, 7, 8, 15, 31, 32, 63, 64, 95}), Members(bits));
  struct Row {
    int32_t after, next;
  } rows[] = {
      {-1, 0},   {0, 7},   {6, 7},   {7, 8},  // the last bit of a byte: the whole next byte counts
      {9, 15},   {16, 31}, {31, 32}, {33, 63}, {94, 95}, {95, -1},  // the last position of the set
      {400, -1},
  };
  for (const Row& row : rows)
    EXPECT_EQ(row.next, bits.FindNextElement(row.after)) << "after " << row.after;
  CBits empty;
  EXPECT_EQ(-1, empty.FindNextElement(-1));
}

TEST(DynamicBitSet, CountAndSearchAgreeWithAPlainModel) {
  std::mt19937 random(7);
  CBits bits;
  std::vector<bool> model(700, false);
  for (int i = 0; i < 400; ++i) {
    int32_t bit = int32_t(random() % 700);
    bool value = random() % 3 != 0;
    bits.SetBit(bit, value);
    model[bit] = value;
  }
  std::vector<int32_t> expected;
  for (int32_t bit = 0; bit < 700; ++bit)
    if (model[bit]) expected.push_back(bit);
  EXPECT_EQ(expected, Members(bits));
  EXPECT_EQ(int32_t(expected.size()), bits.CountBits());
}

TEST(DynamicBitSet, SubtractKeepsTheLeftWordCount) {
  CBits wide, narrow;
  for (int32_t bit : {1, 2, 40, 90}) wide.SetBit(bit);
  for (int32_t bit : {2, 3}) narrow.SetBit(bit);
  CBits left(wide);
  left.Subtract(narrow);  // only the common first word is touched
  EXPECT_EQ(3, left.GetWordCount());
  EXPECT_EQ((std::vector<int32_t>{1, 40, 90}), Members(left));
  narrow.Subtract(wide);
  EXPECT_EQ(1, narrow.GetWordCount());
  EXPECT_EQ((std::vector<int32_t>{3}), Members(narrow));
  narrow.Union(wide);
  EXPECT_EQ((std::vector<int32_t>{1, 2, 3, 40, 90}), Members(narrow));
  narrow.ClearBit(90);
  narrow.ClearBit(5000);  // beyond the set: nothing to clear
  EXPECT_FALSE(narrow.TestBit(90));
  EXPECT_FALSE(narrow == wide);
}
