// The hash containers' shared index: the prime table, finding and making
// cells, overflow groups, rehashing and the entry pool. Key and value types
// reach this code only through CHashScheme, so every table shares it.
#include "hashtable.h"

#include "array.h"

namespace Tsl {

namespace {

const int32_t primes[27] = {
    31,      53,       97,       193,      389,       769,       1543,      3079,      6151,
    12289,   24593,    49157,    98317,    196613,    393241,    786433,    1572869,   3145739,
    6291469, 12582917, 25165843, 50331653, 100663319, 201326611, 402653189, 805306457, 1610612741,
};

typedef CHashCells::Cell Cell;

// A page of the entry pool: two words of header, then the entries.
struct CPoolPage {
  CPoolPage* next;    // the page made before this one
  intptr_t dataSize;  // bytes of entries that follow
};

bool IsLastOfGroup(int32_t position, int32_t hashSize) {
  return position < hashSize || ((position - hashSize + 1) & 3) == 0;
}

// Grows the cell array to `newSize` cells, the new ones free. Allocation
// follows the arrays' rule: the greater of what is missing and half the
// capacity, at least 8.
void GrowCells(CHashCells& index, int32_t newSize, const CHashScheme& scheme) {
  if (newSize > index.capacity) {
    int32_t newCapacity = GrowCapacity(index.capacity, newSize, 8);
    Cell* fresh = static_cast<Cell*>(scheme.alloc(ArrayBytes(newCapacity, sizeof(Cell))));
    if (index.size > 0) memcpy(fresh, index.cells, size_t(index.size) * sizeof(Cell));
    if (index.cells != nullptr) scheme.release(index.cells);
    index.cells = fresh;
    index.capacity = newCapacity;
  }
  memset(index.cells + index.size, 0, size_t(newSize - index.size) * sizeof(Cell));
  index.size = newSize;
}

// The overflow area may grow to about half the primary area, in whole
// groups: with hash size 31 that is 16 cells, four groups.
int32_t OverflowLimit(int32_t hashSize) {
  int32_t half = hashSize / 2;
  return hashSize + (half >= 1 ? (half + 3) / 4 * 4 : half / 4 * 4);
}

// A free cell for an entry of `hash` in `index` with `hashSize` primary
// cells, or -1 when its chain is full and the overflow area is used up. A
// full chain gets a new group of four: the entry of its last cell moves to
// the group's first cell, that last cell becomes the link, and the new
// entry goes to the group's second cell.
int32_t FindFreeCell(CHashCells& index, int32_t hashSize, uint32_t hash,
                     const CHashScheme& scheme) {
  int32_t position = int32_t(hash % uint32_t(hashSize));
  if (index.cells[position] & 1) position = int32_t(index.cells[position] >> 1);
  int32_t last;
  for (;;) {
    Cell cell = index.cells[position];
    if (cell == 0) return position;
    // A link stands only in a primary cell or a group's last cell, and the
    // walk follows those before it gets here. The index scheme's errors
    // carry the map's unit.
    TSL_ASSERT((cell & 1) == 0, L"Map", 173);
    if (cell & 1) return -1;
    last = position;
    if (IsLastOfGroup(position, hashSize)) break;
    ++position;
    if (index.cells[position] & 1) position = int32_t(index.cells[position] >> 1);
  }
  int32_t n = index.size;
  if (n + 4 > OverflowLimit(hashSize)) return -1;
  GrowCells(index, n + 4, scheme);
  index.cells[n] = index.cells[last];
  index.cells[last] = Cell(n) * 2 + 1;
  return n + 1;
}

// Frees a cell array that a rehash was building, unless it was taken over.
struct CCellsHolder {
  CHashCells cells;
  const CHashScheme& scheme;
  explicit CCellsHolder(const CHashScheme& scheme) : cells{0, nullptr, 0}, scheme(scheme) {}
  ~CCellsHolder() {
    if (cells.cells != nullptr) scheme.release(cells.cells);
  }
};

}  // namespace

int32_t UpperPrimeNumber(int32_t n) {
  for (int32_t prime : primes)
    if (prime > n) return prime;
  TSL_INTERNAL_ERROR(L"hashtable", 40);
  return 0x7FFFFFFF;
}

// The first page doubles until it would hold the expected entries, and
// stops once it passes the largest page size.
CHashIndex::CHashIndex(int32_t expectedCount, int32_t firstPageBytes, int32_t entrySize)
    : index{0, nullptr, 0},
      valuesCount(0),
      hashSize(0),
      initialHashSize(UpperPrimeNumber(expectedCount - 1)),
      pageList(nullptr),
      freeList(nullptr),
      usedInPage(0),
      nextPageSize(firstPageBytes),
      firstPageSize(firstPageBytes),
      hashReciprocal(0) {
  int64_t expectedBytes = int64_t(expectedCount) * entrySize;
  while (nextPageSize < expectedBytes && nextPageSize <= MaximumPageSize) nextPageSize *= 2;
}

int32_t CHashIndex::GetNextPosition(int32_t position) const {
  for (int32_t i = position + 1; i < index.size; ++i)
    if (IsEntry(index.cells[i])) return i;
  return -1;
}

int64_t CHashIndex::GetAllocatedBytes() const {
  int64_t bytes = int64_t(index.capacity) * sizeof(Cell);
  for (CPoolPage* page = static_cast<CPoolPage*>(pageList); page != nullptr; page = page->next)
    bytes += sizeof(CPoolPage) + page->dataSize;
  return bytes;
}

// Adding: make the index on first use; a failed search on a sparse table
// means the overflow area is spent on holes and dead chains, so a rehash at
// the same size recovers it. Otherwise grow through the primes until the
// entry finds a cell.
int32_t CHashIndex::PrepareCell(uint32_t hash, const CHashScheme& scheme) {
  if (index.size == 0) {
    SetHashSize(initialHashSize);
    GrowCells(index, hashSize, scheme);
  }
  int32_t position = FindFreeCell(index, hashSize, hash, scheme);
  if (position >= 0) return position;
  if (valuesCount + 1 < hashSize / 4) {
    Rehash(hashSize, scheme);
    position = FindFreeCell(index, hashSize, hash, scheme);
    if (position >= 0) return position;
  }
  do {
    Rehash(UpperPrimeNumber(hashSize), scheme);
    position = FindFreeCell(index, hashSize, hash, scheme);
  } while (position < 0);
  return position;
}

// Refills a new index of the smallest table prime at or above `size`,
// walking the old one from cell 0. Should an entry find no cell, the next
// prime is tried from the start. Entries stay where they are; only the
// pointers to them move.
void CHashIndex::Rehash(int32_t size, const CHashScheme& scheme) {
  size = UpperPrimeNumber(size - 1);
  CCellsHolder fresh(scheme);
  for (;;) {
    fresh.cells.size = 0;
    GrowCells(fresh.cells, size, scheme);
    bool complete = true;
    for (int32_t i = 0; i < index.size; ++i) {
      Cell cell = index.cells[i];
      if (!IsEntry(cell)) continue;
      int32_t position = FindFreeCell(fresh.cells, size,
                                      scheme.hashOfEntry(reinterpret_cast<void*>(cell)), scheme);
      if (position < 0) {
        complete = false;
        break;
      }
      fresh.cells.cells[position] = cell;
    }
    if (complete) break;
    size = UpperPrimeNumber(size);
  }
  if (index.cells != nullptr) scheme.release(index.cells);
  index = fresh.cells;
  fresh.cells = CHashCells{0, nullptr, 0};
  SetHashSize(size);
}

void CHashIndex::SetHashSize(int32_t size) {
  hashSize = size;
  hashReciprocal = size > 0 ? UINT64_MAX / uint32_t(size) + 1 : 0;
}

void* CHashIndex::NewEntry(const CHashScheme& scheme) {
  if (freeList != nullptr) {
    void* entry = freeList;
    freeList = *static_cast<void**>(entry);
    return entry;
  }
  CPoolPage* page = static_cast<CPoolPage*>(pageList);
  if (page != nullptr && usedInPage + scheme.entrySize <= page->dataSize) {
    void* entry = reinterpret_cast<char*>(page + 1) + usedInPage;
    usedInPage += scheme.entrySize;
    return entry;
  }
  int32_t dataSize = nextPageSize < scheme.entrySize ? scheme.entrySize : nextPageSize;
  CPoolPage* fresh = static_cast<CPoolPage*>(scheme.alloc(sizeof(CPoolPage) + size_t(dataSize)));
  fresh->next = page;
  fresh->dataSize = dataSize;
  pageList = fresh;
  usedInPage = scheme.entrySize;
  nextPageSize = nextPageSize >= MaximumPageSize / 2 ? MaximumPageSize : nextPageSize * 2;
  return fresh + 1;
}

void CHashIndex::DeleteCell(int32_t position, const CHashScheme& scheme) {
  void* entry = reinterpret_cast<void*>(index.cells[position]);
  index.cells[position] = 0;
  --valuesCount;
  scheme.destroyEntry(entry);
  DiscardEntry(entry);
}

void CHashIndex::DeleteAllEntries(const CHashScheme& scheme) {
  if (valuesCount == 0) return;
  for (int32_t i = 0; i < index.size; ++i) {
    Cell cell = index.cells[i];
    if (IsEntry(cell)) {
      scheme.destroyEntry(reinterpret_cast<void*>(cell));
      DiscardEntry(reinterpret_cast<void*>(cell));
    }
  }
  memset(index.cells, 0, size_t(index.size) * sizeof(Cell));
  index.size = hashSize;
  valuesCount = 0;
}

void CHashIndex::FreeAll(const CHashScheme& scheme) {
  for (int32_t i = 0; i < index.size; ++i)
    if (IsEntry(index.cells[i])) scheme.destroyEntry(reinterpret_cast<void*>(index.cells[i]));
  valuesCount = 0;
  if (index.cells != nullptr) scheme.release(index.cells);
  index = CHashCells{0, nullptr, 0};
  CPoolPage* page = static_cast<CPoolPage*>(pageList);
  while (page != nullptr) {
    CPoolPage* next = page->next;
    scheme.release(page);
    page = next;
  }
  pageList = nullptr;
  freeList = nullptr;
  usedInPage = 0;
  nextPageSize = firstPageSize;
  SetHashSize(0);
}

}  // namespace Tsl
