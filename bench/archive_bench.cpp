// Speed of the archive on the kind of record the system stores: numbers and
// short strings through a memory file, against the same bytes written and
// parsed by hand in a std::vector<char>.
#include <string.h>

#include <string>
#include <vector>

#include "Bench.h"
#include "archive.h"
#include "memoryfile.h"

namespace {

const int Records = 20000;

struct Record {
  int32_t id;
  std::wstring name;  // 3 to 20 units
  double weight;
  int64_t stamp;
  bool flag;
  int32_t count;  // a compact number, mostly one byte
};

std::vector<Record> MakeRecords() {
  std::vector<Record> records(Records);
  uint32_t seed = 4242;
  for (int i = 0; i < Records; ++i) {
    seed = seed * 1103515245 + 12345;
    Record& r = records[size_t(i)];
    r.id = i;
    r.name.assign(3 + (seed >> 16) % 18, wchar_t(L'a' + i % 26));
    r.weight = i * 0.25;
    r.stamp = int64_t(seed) << 20;
    r.flag = (seed & 1) != 0;
    r.count = (seed >> 8) % 8 == 0 ? 1000 : int32_t(seed >> 24) % 200;
  }
  return records;
}

// The hand-written encoding: the archive's bytes, with no buffer and no file.
void Put(std::vector<char>& out, const void* data, size_t size) {
  const char* bytes = static_cast<const char*>(data);
  out.insert(out.end(), bytes, bytes + size);
}
void PutCount(std::vector<char>& out, int32_t value) {
  if (uint32_t(value) < 0xFF) {
    out.push_back(char(value));
  } else {
    out.push_back(char(0xFF));
    Put(out, &value, 4);
  }
}
// The hand-written reader checks every step against the end, as any reader
// of bytes from another process must; running past it ends the parse.
struct Cursor {
  const char* in;
  const char* end;
  void Need(size_t size) {
    if (size_t(end - in) < size) throw 0;
  }
};
template <class T>
void Take(Cursor& c, T& value) {
  c.Need(sizeof(T));
  memcpy(&value, c.in, sizeof(T));
  c.in += sizeof(T);
}
int32_t TakeCount(Cursor& c) {
  uint8_t first;
  Take(c, first);
  if (first != 0xFF) return first;
  int32_t value;
  Take(c, value);
  return value;
}

}  // namespace

BENCH(Archive) {
  const std::vector<Record> records = MakeRecords();
  std::vector<Tsl::CUnicodeString> names;
  for (const Record& r : records) names.emplace_back(r.name.c_str());

  Tsl::CMemoryFile stored;
  Bench::Timing ours = Bench::Time([&] {
    Tsl::CMemoryFile file;
    Tsl::CArchive archive(&file, Tsl::CArchive::Store);
    for (size_t i = 0; i < records.size(); ++i) {
      const Record& r = records[i];
      archive << r.id << names[i] << r.weight << r.stamp << r.flag;
      archive.WriteCount(r.count);
    }
    archive.Close();
    Bench::Keep(file.GetLength());
  });
  std::vector<char> encoded;
  Bench::Timing base = Bench::Time([&] {
    std::vector<char> out;
    for (const Record& r : records) {
      Put(out, &r.id, 4);
      PutCount(out, int32_t(r.name.size()));
      Put(out, r.name.data(), r.name.size() * 2);
      Put(out, &r.weight, 8);
      Put(out, &r.stamp, 8);
      out.push_back(char(r.flag ? 1 : 0));
      PutCount(out, r.count);
    }
    Bench::Keep(out.size());
    encoded.swap(out);
  });
  Bench::Report("store 20,000 records through a memory file", ours, base, "<= 1.5");

  {
    Tsl::CArchive archive(&stored, Tsl::CArchive::Store);
    for (size_t i = 0; i < records.size(); ++i) {
      const Record& r = records[i];
      archive << r.id << names[i] << r.weight << r.stamp << r.flag;
      archive.WriteCount(r.count);
    }
  }
  if (stored.GetLength() != int64_t(encoded.size()) ||
      memcmp(stored.GetBufferData(), encoded.data(), encoded.size()) != 0)
    Bench::Note("the two encodings differ: the comparison is void");

  int64_t sum = 0;
  ours = Bench::Time([&] {
    stored.SeekToBegin();
    Tsl::CArchive archive(&stored, Tsl::CArchive::Load);
    Tsl::CUnicodeString name;
    int32_t id;
    double weight;
    int64_t stamp;
    bool flag;
    for (int i = 0; i < Records; ++i) {
      archive >> id >> name >> weight >> stamp >> flag;
      sum += id + name.Length() + stamp + flag + archive.ReadCount() + int64_t(weight);
    }
  });
  base = Bench::Time([&] {
    Cursor c = {encoded.data(), encoded.data() + encoded.size()};
    std::wstring name;
    int32_t id;
    double weight;
    int64_t stamp;
    char flag;
    for (int i = 0; i < Records; ++i) {
      Take(c, id);
      int32_t length = TakeCount(c);
      c.Need(size_t(length) * 2);
      name.assign(reinterpret_cast<const wchar_t*>(c.in), size_t(length));
      c.in += length * 2;
      Take(c, weight);
      Take(c, stamp);
      Take(c, flag);
      sum += id + int64_t(name.size()) + stamp + (flag != 0) + TakeCount(c) + int64_t(weight);
    }
  });
  Bench::Keep(sum);
  Bench::Report("load 20,000 records from a memory file", ours, base, "<= 1.5");
}
