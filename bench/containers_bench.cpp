// Benchmarks of the containers against the standard library: CMap of string
// to integer (lookups that hit and that miss, and the memory per entry), and
// appending to CArray.
#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "Bench.h"
#include "Map.h"
#include "array.h"

using namespace Tsl;

namespace {

// Counts the bytes a standard container has out.
size_t countedBytes = 0;
template <class T>
struct CountingAllocator {
  typedef T value_type;
  CountingAllocator() = default;
  template <class U>
  CountingAllocator(const CountingAllocator<U>&) {}
  T* allocate(size_t n) {
    countedBytes += n * sizeof(T);
    return static_cast<T*>(::operator new(n * sizeof(T)));
  }
  void deallocate(T* p, size_t n) {
    countedBytes -= n * sizeof(T);
    ::operator delete(p);
  }
  template <class U>
  bool operator==(const CountingAllocator<U>&) const {
    return true;
  }
  template <class U>
  bool operator!=(const CountingAllocator<U>&) const {
    return false;
  }
};

typedef std::unordered_map<std::wstring, int, std::hash<std::wstring>, std::equal_to<std::wstring>,
                           CountingAllocator<std::pair<const std::wstring, int>>>
    CStdMap;

// Names like those of settings and atoms: a prefix and a number.
std::wstring KeyText(const wchar_t* prefix, uint32_t n) { return prefix + std::to_wstring(n); }

std::string Format(const char* format, double a, double b) {
  char text[200];
  std::snprintf(text, sizeof(text), format, a, b);
  return text;
}

void RunMapSize(int n) {
  std::mt19937 random(n);
  std::vector<uint32_t> numbers(n);
  for (int i = 0; i < n; ++i) numbers[i] = uint32_t(i) * 7919u + 13u;
  std::shuffle(numbers.begin(), numbers.end(), random);

  // Lookup keys are built apart from the stored ones, so that no lookup
  // meets its own buffer.
  std::vector<std::wstring> stdKeys, stdHits, stdMisses;
  std::vector<CUnicodeString> keys, hits, misses;
  for (int i = 0; i < n; ++i) {
    stdKeys.push_back(KeyText(L"item_", numbers[i]));
    stdHits.push_back(KeyText(L"item_", numbers[(i * 31 + 7) % n]));
    stdMisses.push_back(KeyText(L"item_", numbers[i] + 1));
    keys.push_back(CUnicodeString(stdKeys.back().c_str()));
    hits.push_back(CUnicodeString(stdHits.back().c_str()));
    misses.push_back(CUnicodeString(stdMisses.back().c_str()));
  }
  int rounds = std::max(1, 1000000 / n);  // about 10^6 lookups per measurement

  Bench::Timing oursBuild = Bench::Time(
      [&] {
        CMap<CUnicodeString, int> map;
        for (int i = 0; i < n; ++i) map.Set(keys[i], i);
        Bench::Keep(map.GetCount());
      });
  Bench::Timing stdBuild = Bench::Time(
      [&] {
        CStdMap map;
        for (int i = 0; i < n; ++i) map[stdKeys[i]] = i;
        Bench::Keep(map.size());
      });
  Bench::Report("CMap<string,int> insert n=" + std::to_string(n), oursBuild, stdBuild, "info");

  CMap<CUnicodeString, int> map;
  for (int i = 0; i < n; ++i) map.Set(keys[i], i);
  countedBytes = 0;
  CStdMap stdMap;
  for (int i = 0; i < n; ++i) stdMap[stdKeys[i]] = i;

  Bench::Timing oursHit = Bench::Time([&] {
    int64_t sum = 0;
    for (int r = 0; r < rounds; ++r)
      for (int i = 0; i < n; ++i) sum += *map.Find(hits[i]);
    Bench::Keep(sum);
  });
  Bench::Timing stdHit = Bench::Time([&] {
    int64_t sum = 0;
    for (int r = 0; r < rounds; ++r)
      for (int i = 0; i < n; ++i) sum += stdMap.find(stdHits[i])->second;
    Bench::Keep(sum);
  });
  Bench::Report("CMap<string,int> lookup hit n=" + std::to_string(n), oursHit, stdHit, "<= 1.0");

  Bench::Timing oursMiss = Bench::Time([&] {
    int found = 0;
    for (int r = 0; r < rounds; ++r)
      for (int i = 0; i < n; ++i) found += map.Find(misses[i]) != nullptr;
    Bench::Keep(found);
  });
  Bench::Timing stdMiss = Bench::Time([&] {
    int found = 0;
    for (int r = 0; r < rounds; ++r)
      for (int i = 0; i < n; ++i) found += stdMap.find(stdMisses[i]) != stdMap.end();
    Bench::Keep(found);
  });
  Bench::Report("CMap<string,int> lookup miss n=" + std::to_string(n), oursMiss, stdMiss, "<= 1.0");

  // Container bytes: index and pool for CMap, nodes and buckets for the
  // standard map; the key text (string buffers) is counted apart.
  double oursText = 0, stdText = 0;
  for (int i = 0; i < n; ++i) {
    oursText += keys[i].Capacity();
    if (stdKeys[i].capacity() > 7) stdText += (stdKeys[i].capacity() + 1) * sizeof(wchar_t);
  }
  Bench::Note(Format("bytes per entry, container: CMap %.1f  std %.1f",
                     double(map.GetAllocatedBytes()) / n, double(countedBytes) / n) +
              Format("; key text: CMap %.1f  std %.1f", oursText / n, stdText / n) +
              "; CMap hash size " + std::to_string(map.GetHashSize()) + ", index size " +
              std::to_string(map.GetIndexSize()));
}

}  // namespace

BENCH(Map) {
  for (int n : {1000, 100000, 1000000}) RunMapSize(n);
}

BENCH(Array) {
  const int n = 1000000;
  Bench::Timing ours = Bench::Time(
      [&] {
        CArray<int> array;
        for (int i = 0; i < n; ++i) array.Add(i);
        Bench::Keep(array.GetSize());
      },
      9);
  Bench::Timing base = Bench::Time(
      [&] {
        std::vector<int> vector;
        for (int i = 0; i < n; ++i) vector.push_back(i);
        Bench::Keep(vector.size());
      },
      9);
  Bench::Report("CArray<int> append 10^6", ours, base, "<= 1.2");
}
