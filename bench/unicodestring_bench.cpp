// Speed of the text type where the system leans on it most: making and
// dropping short strings (the pools against the runtime heap and the standard
// string), and copying a long string (one interlocked increment).
#include <stdlib.h>
#include <string.h>

#include <new>
#include <string>
#include <vector>

#include "Bench.h"
#include "unicodestring.h"

namespace {

const int BatchSize = 1000;  // strings alive at once, as a burst of real work makes them
const int Batches = 200;

// Lengths 1 to 25 units, mixed so that both the 32- and the 64-byte pool work.
std::vector<int32_t> ShortLengths() {
  std::vector<int32_t> lengths(BatchSize);
  uint32_t seed = 12345;
  for (int32_t& length : lengths) {
    seed = seed * 1103515245 + 12345;
    length = int32_t(1 + (seed >> 16) % 25);
  }
  return lengths;
}

}  // namespace

BENCH(String) {
  const std::vector<int32_t> lengths = ShortLengths();
  const std::wstring source(64, L'x');

  // (a) Make a burst of short strings, then drop them all.
  alignas(Tsl::CUnicodeString) static unsigned char storage[BatchSize * sizeof(Tsl::CUnicodeString)];
  Tsl::CUnicodeString* strings = reinterpret_cast<Tsl::CUnicodeString*>(storage);
  Bench::Timing ours = Bench::Time([&] {
    for (int b = 0; b < Batches; ++b) {
      for (int i = 0; i < BatchSize; ++i) new (&strings[i]) Tsl::CUnicodeString(source.c_str(), lengths[size_t(i)]);
      Bench::Keep(strings[BatchSize / 2]);
      for (int i = 0; i < BatchSize; ++i) strings[i].~CUnicodeString();
    }
  });

  // The same bytes (header, text, terminator) from the runtime heap.
  std::vector<void*> blocks(BatchSize);
  Bench::Timing heap = Bench::Time([&] {
    for (int b = 0; b < Batches; ++b) {
      for (int i = 0; i < BatchSize; ++i) {
        int32_t length = lengths[size_t(i)];
        void* block = malloc(size_t(length) * 2 + 14);
        memcpy(static_cast<char*>(block) + 12, source.c_str(), size_t(length) * 2);
        blocks[size_t(i)] = block;
      }
      Bench::Keep(blocks[BatchSize / 2]);
      for (int i = 0; i < BatchSize; ++i) free(blocks[size_t(i)]);
    }
  });

  alignas(std::wstring) static unsigned char wideStorage[BatchSize * sizeof(std::wstring)];
  std::wstring* wides = reinterpret_cast<std::wstring*>(wideStorage);
  Bench::Timing standard = Bench::Time([&] {
    for (int b = 0; b < Batches; ++b) {
      for (int i = 0; i < BatchSize; ++i) new (&wides[i]) std::wstring(source.c_str(), size_t(lengths[size_t(i)]));
      Bench::Keep(wides[BatchSize / 2]);
      for (int i = 0; i < BatchSize; ++i) wides[i].~basic_string();
    }
  });
  Bench::Report("short strings (1-25 units) made and dropped, vs malloc/free", ours, heap, "<= 1.0");
  Bench::Report("short strings (1-25 units) made and dropped, vs std::wstring", ours, standard, "report");

  // (b) Copy a string of 1,000 units.
  const int Copies = 200000;
  Tsl::CUnicodeString longText(std::wstring(1000, L'y').c_str());
  std::wstring longWide(1000, L'y');
  Bench::Timing copyOurs = Bench::Time([&] {
    for (int i = 0; i < Copies; ++i) {
      Tsl::CUnicodeString copy(longText);
      Bench::Keep(copy);
    }
  });
  Bench::Timing copyStandard = Bench::Time([&] {
    for (int i = 0; i < Copies; ++i) {
      std::wstring copy(longWide);
      Bench::Keep(copy);
    }
  });
  Bench::Report("copy of a 1,000-unit string, vs std::wstring", copyOurs, copyStandard, "<= 0.1");
}
