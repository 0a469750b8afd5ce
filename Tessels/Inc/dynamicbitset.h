// CDynamicBitSet: a set of small non-negative integers as bits in 32-bit
// words, the first word inside the object so that sets of up to 32 members
// never allocate. Used for language sets and the like.
#pragma once

#include <stdint.h>
#include <string.h>

#include "array.h"

namespace Tsl {

// The word-level work of every bit set, independent of the allocator.
namespace BitSetWords {
// Set bits in `count` words, by a table over bytes taken two at a time.
int32_t CountBits(const uint32_t* words, int32_t count);
// The first set bit after bit `position` (-1 searches from bit 0) in
// `count` words, or -1 when there is none.
int32_t FindNext(const uint32_t* words, int32_t count, int32_t position);
}  // namespace BitSetWords

template <class Allocator = CurrentMemoryManager>
class CDynamicBitSet {
 public:
  CDynamicBitSet() : inlineWord(0), words(&inlineWord), wordCount(0), wordCapacity(1) {}
  CDynamicBitSet(const CDynamicBitSet& other)
      : inlineWord(0), words(&inlineWord), wordCount(0), wordCapacity(1) {
    *this = other;
  }
  ~CDynamicBitSet() {
    if (words != &inlineWord) Allocator::Free(words);
  }
  CDynamicBitSet& operator=(const CDynamicBitSet& other) {
    if (&other == this) return *this;
    if (other.wordCount > wordCount) SetWordCount(other.wordCount);
    memcpy(words, other.words, size_t(other.wordCount) * sizeof(uint32_t));
    memset(words + other.wordCount, 0, size_t(wordCount - other.wordCount) * sizeof(uint32_t));
    return *this;
  }

  int32_t GetWordCount() const { return wordCount; }
  int32_t GetWordCapacity() const { return wordCapacity; }
  // Bit positions that can be tested without growing: 32 per word in use.
  int32_t GetBitCount() const { return wordCount * 32; }
  const uint32_t* GetWords() const { return words; }

  // Adds `bit` (not negative), growing the set as needed.
  void SetBit(int32_t bit) {
    TSL_ASSERT(bit >= 0, L"dynamicbitset", 49);
    if (bit < 0) return;
    int32_t word = bit >> 5;
    if (word >= wordCount) SetWordCount(word + 1);
    words[word] |= 1u << (bit & 31);
  }
  // Removes `bit`; a bit beyond the set is absent already.
  void ClearBit(int32_t bit) {
    if (bit < 0 || (bit >> 5) >= wordCount) return;
    words[bit >> 5] &= ~(1u << (bit & 31));
  }
  void SetBit(int32_t bit, bool value) {
    if (value)
      SetBit(bit);
    else
      ClearBit(bit);
  }
  bool TestBit(int32_t bit) const {
    if (bit < 0 || (bit >> 5) >= wordCount) return false;
    return (words[bit >> 5] >> (bit & 31) & 1) != 0;
  }

  // This set minus `other`: keeps this set's word count and clears the bits
  // that `other` has, over the shorter of the two.
  void Subtract(const CDynamicBitSet& other) {
    int32_t common = wordCount < other.wordCount ? wordCount : other.wordCount;
    for (int32_t i = 0; i < common; ++i) words[i] &= ~other.words[i];
  }
  // This set with every bit of `other`; grows to `other`'s word count.
  void Union(const CDynamicBitSet& other) {
    if (other.wordCount > wordCount) SetWordCount(other.wordCount);
    for (int32_t i = 0; i < other.wordCount; ++i) words[i] |= other.words[i];
  }

  int32_t CountBits() const { return BitSetWords::CountBits(words, wordCount); }
  bool IsEmpty() const {
    for (int32_t i = 0; i < wordCount; ++i)
      if (words[i] != 0) return false;
    return true;
  }
  // The first member after `position`; -1 starts from the beginning. -1 when
  // there is none.
  int32_t FindNextElement(int32_t position) const {
    return BitSetWords::FindNext(words, wordCount, position);
  }

  // Clears every bit; keeps the words.
  void ClearAll() { memset(words, 0, size_t(wordCount) * sizeof(uint32_t)); }

  // Raises the word count to `count`, which must be above the present one.
  // The capacity grows by the greater of what is missing and half the
  // capacity (at least 1); the new words are zero. Up to one word the inline
  // word serves.
  void SetWordCount(int32_t count) {
    TSL_ASSERT(count > wordCount, L"dynamicbitset", 103);
    if (count <= wordCount) return;
    if (count > wordCapacity) {
      if (count <= 1) {
        words = &inlineWord;
        wordCapacity = 1;
      } else {
        int32_t newCapacity = GrowCapacity(wordCapacity, count, 1);
        uint32_t* fresh =
            static_cast<uint32_t*>(Allocator::Alloc(ArrayBytes(newCapacity, sizeof(uint32_t))));
        memcpy(fresh, words, size_t(wordCount) * sizeof(uint32_t));
        if (words != &inlineWord) Allocator::Free(words);
        words = fresh;
        wordCapacity = newCapacity;
      }
    }
    memset(words + wordCount, 0, size_t(count - wordCount) * sizeof(uint32_t));
    wordCount = count;
  }

  bool operator==(const CDynamicBitSet& other) const {
    const CDynamicBitSet& longer = wordCount >= other.wordCount ? *this : other;
    int32_t common = wordCount < other.wordCount ? wordCount : other.wordCount;
    if (memcmp(words, other.words, size_t(common) * sizeof(uint32_t)) != 0) return false;
    for (int32_t i = common; i < longer.wordCount; ++i)
      if (longer.words[i] != 0) return false;
    return true;
  }
  bool operator!=(const CDynamicBitSet& other) const { return !(*this == other); }

 private:
  uint32_t inlineWord;   // storage for the first 32 bits
  uint32_t* words;       // the inline word, or a buffer from the allocator
  int32_t wordCount;     // words in use
  int32_t wordCapacity;  // words allocated; 1 for the inline word
};

}  // namespace Tsl
