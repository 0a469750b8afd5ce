// The word-level work of the bit sets: counting members and finding the next
// member, both byte by byte through 256-entry tables, which keeps them free of
// processor-specific instructions and equally fast in both builds.
#include "dynamicbitset.h"

namespace Tsl {

namespace {

// Set bits and lowest set bit of every byte value, built by the compiler.
struct CByteTables {
  uint8_t bitCount[256];
  int8_t lowestBit[256];  // -1 for the byte 0, which is never looked up
  constexpr CByteTables() : bitCount(), lowestBit() {
    for (int value = 0; value < 256; ++value) {
      int count = 0;
      int lowest = -1;
      for (int bit = 7; bit >= 0; --bit) {
        if (value >> bit & 1) {
          ++count;
          lowest = bit;
        }
      }
      bitCount[value] = uint8_t(count);
      lowestBit[value] = int8_t(lowest);
    }
  }
};
constexpr CByteTables byteTables;

// The bits above position p within its byte, by p & 7. For 7 the search has
// moved on to the next byte already, and all of that byte counts.
const uint8_t bitsAbove[8] = {0xFE, 0xFC, 0xF8, 0xF0, 0xE0, 0xC0, 0x80, 0xFF};

}  // namespace

namespace BitSetWords {

int32_t CountBits(const uint32_t* words, int32_t count) {
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(words);
  int32_t byteCount = count * 4;
  int32_t total = 0;
  for (int32_t i = 0; i < byteCount; i += 2)
    total += byteTables.bitCount[bytes[i]] + byteTables.bitCount[bytes[i + 1]];
  return total;
}

// Bit n lies in byte n / 8 at bit n & 7: the words are little-endian, so the
// byte view and the word view agree.
int32_t FindNext(const uint32_t* words, int32_t count, int32_t position) {
  int32_t lastBit = count * 32 - 1;
  if (position >= lastBit || position < -1) return -1;
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(words);
  int32_t byteCount = count * 4;
  int32_t b = (position + 1) / 8;
  uint8_t masked = bytes[b] & bitsAbove[position & 7];
  if (masked != 0) return b * 8 + byteTables.lowestBit[masked];
  for (++b; b < byteCount; ++b) {
    if (bytes[b] != 0) return b * 8 + byteTables.lowestBit[bytes[b]];
  }
  return -1;
}

}  // namespace BitSetWords

}  // namespace Tsl
