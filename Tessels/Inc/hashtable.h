// The hash containers' shared index scheme and CHashTable, the set of keys.
// One array of cells: a primary cell per hash position, then overflow groups
// of four cells reached through links stored in the cells. Entries live in a
// paged pool, so a table allocates rarely and frees nothing one by one.
// CMap (Map.h) is the same scheme with a value beside each key.
#pragma once

#include <stdint.h>
#include <string.h>

#include <new>
#include <type_traits>

#include "alloc.h"
#include "errors.h"
#include "unicodestring.h"

namespace Tsl {

// The first prime of the table of 27 hash sizes (31 to 1610612741) strictly
// greater than `n`. Beyond the table: internal error, and 0x7FFFFFFF.
int32_t UpperPrimeNumber(int32_t n);

// How keys hash and compare. Integers, enumerations and handles are their
// own hash; the position is that hash modulo the hash size.
template <class Key>
struct CHashKeyTraits {
  static uint32_t Hash(const Key& key) { return uint32_t(key); }
  static bool IsEqual(const Key& a, const Key& b) { return a == b; }
};
template <class Pointee>
struct CHashKeyTraits<Pointee*> {
  static uint32_t Hash(Pointee* key) { return uint32_t(uintptr_t(key)); }
  static bool IsEqual(Pointee* a, Pointee* b) { return a == b; }
};
namespace HashDetail {
// HashKey's rule (the first unit as seed, then h * 33 + unit), inlined here
// because it is half the cost of a lookup; the string's own HashKey must
// give the same value.
template <class Unit>
inline uint32_t HashUnits(const Unit* text, int32_t length) {
  if (length == 0) return 0;
  typedef typename std::make_unsigned<Unit>::type Unsigned;
  uint32_t hash = Unsigned(text[0]);
  for (int32_t i = 1; i < length; ++i) hash = hash * 33 + Unsigned(text[i]);
  return hash;
}
// Equality of two runs of bytes, eight at a time: keys are short, and a
// library call costs more than the comparison.
inline bool SameBytes(const void* a, const void* b, size_t size) {
  const char* left = static_cast<const char*>(a);
  const char* right = static_cast<const char*>(b);
  for (; size >= 8; size -= 8, left += 8, right += 8) {
    uint64_t x, y;
    memcpy(&x, left, 8);
    memcpy(&y, right, 8);
    if (x != y) return false;
  }
  for (; size > 0; --size)
    if (*left++ != *right++) return false;
  return true;
}
}  // namespace HashDetail

// Strings hash with HashKey and are equal when their units are.
template <>
struct CHashKeyTraits<CUnicodeString> {
  static uint32_t Hash(const CUnicodeString& key) {
    return HashDetail::HashUnits(key.Text(), key.Length());
  }
  static bool IsEqual(const CUnicodeString& a, const CUnicodeString& b) {
    int32_t length = a.Length();
    return length == b.Length() &&
           (a.Text() == b.Text() ||
            HashDetail::SameBytes(a.Text(), b.Text(), size_t(length) * sizeof(wchar_t)));
  }
};
template <>
struct CHashKeyTraits<CString> {
  static uint32_t Hash(const CString& key) {
    return HashDetail::HashUnits(key.Text(), key.Length());
  }
  static bool IsEqual(const CString& a, const CString& b) {
    int32_t length = a.Length();
    return length == b.Length() &&
           (a.Text() == b.Text() || HashDetail::SameBytes(a.Text(), b.Text(), size_t(length)));
  }
};
// Case-insensitive string keys: the hash folds towards upper case and the
// compare (the runtime's) towards lower case. Both are part of the stored
// behaviour of the ini file's tables and must not be aligned with each other.
struct CNoCaseKeyTraits {
  static uint32_t Hash(const CUnicodeString& key) { return key.HashKeyNoCase(); }
  static bool IsEqual(const CUnicodeString& a, const CUnicodeString& b) {
    return a.CompareNoCase(b.Text()) == 0;
  }
};

// What the index needs to know of one instantiation: the entry size, where
// memory comes from, and how to hash and end an entry.
struct CHashScheme {
  int32_t entrySize;  // bytes, a multiple of the pointer size
  void* (*alloc)(size_t size);
  void (*release)(void* block);
  uint32_t (*hashOfEntry)(const void* entry);
  void (*destroyEntry)(void* entry);
};

// The growable array of cells. A cell is 0 (free), an entry's address
// (even), or a link to the first cell of an overflow group (cell * 2 + 1).
struct CHashCells {
  typedef uintptr_t Cell;
  int32_t size;  // cells in use; 0 means no index yet
  Cell* cells;
  int32_t capacity;  // cells allocated
};

// The index and the entry pool, independent of key and value types: every
// table instantiation shares this code. Positions are cell numbers; -1 is
// none.
class CHashIndex {
 public:
  typedef CHashCells::Cell Cell;

  int32_t GetCount() const { return valuesCount; }
  bool IsEmpty() const { return valuesCount == 0; }
  // Primary cells; 0 until the first insertion.
  int32_t GetHashSize() const { return hashSize; }
  // Cells in use: the primary ones and every overflow group.
  int32_t GetIndexSize() const { return index.size; }

  // Iteration by cell: the first entry's cell, the next one after
  // `position`, -1 at the end. The order is hash order, then overflow groups
  // in the order they were made, and any rehash changes it.
  int32_t GetFirstPosition() const { return GetNextPosition(-1); }
  int32_t GetNextPosition(int32_t position) const;

  // Bytes taken from the allocator: the index and the pool's pages.
  int64_t GetAllocatedBytes() const;

 protected:
  static const int32_t DefaultFirstPageEntries = 16;
  static const int32_t MaximumPageSize = 0x100000;

  // `expectedCount` (0: none) sets the first hash size to the smallest table
  // prime at or above it and lets the pool's first page hold that many.
  CHashIndex(int32_t expectedCount, int32_t firstPageBytes, int32_t entrySize);
  ~CHashIndex() {}
  CHashIndex(const CHashIndex&) = delete;
  CHashIndex& operator=(const CHashIndex&) = delete;

  static bool IsEntry(Cell cell) { return cell != 0 && (cell & 1) == 0; }
  void* EntryAt(int32_t position) const {
    Cell cell = index.cells[position];
    return IsEntry(cell) ? reinterpret_cast<void*>(cell) : nullptr;
  }

  // hash modulo hash size. The 64-bit build multiplies by a reciprocal
  // kept with the hash size, which is exact for 32-bit operands and spares
  // a division on every lookup.
  int32_t PrimaryPosition(uint32_t hash) const {
#if defined(__SIZEOF_INT128__)
    return int32_t((unsigned __int128)(hashReciprocal * hash) * uint32_t(hashSize) >> 64);
#else
    return int32_t(hash % uint32_t(hashSize));
#endif
  }
  // The first cell to look at for `hash`, a link in it followed; -1 when
  // there is no index.
  int32_t FindStart(uint32_t hash) const {
    if (index.size == 0) return -1;
    int32_t position = PrimaryPosition(hash);
    Cell cell = index.cells[position];
    return (cell & 1) ? int32_t(cell >> 1) : position;
  }
  // The next cell of the chain after `position`, or -1 where the chain ends:
  // at a primary cell or the last cell of a group. Free cells are passed
  // over, not stops: deletion leaves holes inside groups.
  int32_t FindContinue(int32_t position) const {
    if (position < hashSize || ((position - hashSize + 1) & 3) == 0) return -1;
    ++position;
    Cell cell = index.cells[position];
    return (cell & 1) ? int32_t(cell >> 1) : position;
  }

  // A free cell for a new entry of `hash`, making the index first, and
  // rehashing when the chain cannot grow: at the same size when the table
  // is sparse (only the overflow area is used up), else to larger primes.
  int32_t PrepareCell(uint32_t hash, const CHashScheme& scheme);
  // An entry's room from the pool: the free list, the newest page, or a new
  // page of the next page size (doubling up to 1 MB).
  void* NewEntry(const CHashScheme& scheme);
  // Returns unconstructed room to the free list (a failed construction).
  void DiscardEntry(void* entry) {
    *static_cast<void**>(entry) = freeList;
    freeList = entry;
  }
  // Files a constructed entry in a cell that PrepareCell gave.
  void StoreEntry(int32_t position, void* entry) {
    index.cells[position] = reinterpret_cast<Cell>(entry);
    ++valuesCount;
  }
  // Frees the cell, ends its entry and puts the room on the free list.
  void DeleteCell(int32_t position, const CHashScheme& scheme);
  // Ends every entry and frees every cell; keeps the primary cells, the
  // allocation and the pool's pages.
  void DeleteAllEntries(const CHashScheme& scheme);
  // Ends every entry and gives all memory back: the state before the first
  // insertion, with the pool's first page size again.
  void FreeAll(const CHashScheme& scheme);

 private:
  void Rehash(int32_t size, const CHashScheme& scheme);
  void SetHashSize(int32_t size);

  CHashCells index;         // index size, index, index capacity
  int32_t valuesCount;      // entries stored
  int32_t hashSize;         // primary cells; a table prime, or 0 without index
  int32_t initialHashSize;  // taken at the first insertion
  void* pageList;           // the pool's pages, newest first
  void* freeList;           // freed entries, linked through their first word
  int32_t usedInPage;       // bytes used in the newest page
  int32_t nextPageSize;     // data bytes of the next page
  int32_t firstPageSize;    // what nextPageSize returns to on FreeAll
  uint64_t hashReciprocal;  // 2^64 / hash size, rounded up (PrimaryPosition)
};

// The key operations shared by sets and maps over an entry type whose first
// member is `key`.
template <class Entry, class Key, class Traits, class Allocator>
class CHashContainer : public CHashIndex {
 public:
  // The cell of the first entry with `key`, or -1. Works without an index.
  int32_t FindPosition(const Key& key) const {
    if (GetIndexSize() == 0) return -1;
    return Scan(key, FindStart(Traits::Hash(key)));
  }
  // The same with the hash already computed.
  int32_t FindPosition(const Key& key, uint32_t hash) const { return Scan(key, FindStart(hash)); }
  // The next entry with `key` after `position` (a cell FindPosition gave).
  int32_t FindNextPosition(const Key& key, int32_t position) const {
    return Scan(key, FindContinue(position));
  }
  bool Has(const Key& key) const { return FindPosition(key) >= 0; }

  // Removes the entry with `key`; an absent key is an internal error.
  void Delete(const Key& key) {
    int32_t position = FindPosition(key);
    TSL_ASSERT(position >= 0, L"Map", 371);
    if (position >= 0) DeleteCell(position, scheme);
  }
  // Removes every entry with `key`, walking the whole chain; returns how
  // many there were (none is fine).
  int32_t Remove(const Key& key) {
    int32_t removed = 0;
    for (int32_t position = FindPosition(key); position >= 0;
         position = FindNextPosition(key, position)) {
      DeleteCell(position, scheme);
      ++removed;
    }
    return removed;
  }
  // Removes the entry at a position of the iteration; the positions of the
  // other entries stay valid.
  void DeleteAt(int32_t position) {
    TSL_ASSERT(position >= 0 && position < GetIndexSize() && EntryAt(position) != nullptr, L"Map",
               389);
    if (position >= 0 && position < GetIndexSize() && EntryAt(position) != nullptr)
      DeleteCell(position, scheme);
  }
  // Nothing when empty; otherwise every entry goes, the overflow groups are
  // dropped (the allocation stays) and the table keeps its hash size.
  void DeleteAll() { DeleteAllEntries(scheme); }
  // Back to the state before the first insertion; all memory given back.
  void FreeBuffer() { FreeAll(scheme); }

  const Key& GetKeyAt(int32_t position) const { return EntryOf(position)->key; }

  // Range iteration over the entries in cell order.
  class CIterator {
   public:
    CIterator(const CHashContainer* table, int32_t position) : table(table), position(position) {}
    Entry& operator*() const { return *table->EntryOf(position); }
    Entry* operator->() const { return table->EntryOf(position); }
    CIterator& operator++() {
      position = table->GetNextPosition(position);
      return *this;
    }
    bool operator!=(const CIterator& other) const { return position != other.position; }
    int32_t GetPosition() const { return position; }

   private:
    const CHashContainer* table;
    int32_t position;
  };
  CIterator begin() const { return CIterator(this, GetFirstPosition()); }
  CIterator end() const { return CIterator(this, -1); }

 protected:
  // Entries are padded to pointers: the free list links through the first
  // word, and cells tell entries from links by the low bit.
  static constexpr int32_t EntrySize =
      int32_t((sizeof(Entry) < sizeof(void*) ? sizeof(void*) : sizeof(Entry)) + sizeof(void*) - 1) &
      ~int32_t(sizeof(void*) - 1);
  static_assert(alignof(Entry) <= 2 * sizeof(void*), "pool pages align entries to two pointers");

  static uint32_t HashOfEntry(const void* entry) {
    return Traits::Hash(static_cast<const Entry*>(entry)->key);
  }
  static void DestroyEntry(void* entry) { static_cast<Entry*>(entry)->~Entry(); }
  static constexpr CHashScheme scheme = {EntrySize, &Allocator::Alloc, &Allocator::Free,
                                         &HashOfEntry, &DestroyEntry};

  CHashContainer(int32_t expectedCount, int32_t firstPageEntries)
      : CHashIndex(expectedCount, firstPageEntries * EntrySize, EntrySize) {}
  ~CHashContainer() { FreeAll(scheme); }

  Entry* EntryOf(int32_t position) const { return static_cast<Entry*>(EntryAt(position)); }

  // Makes an entry for `hash` with `make(room)` constructing it in place.
  // The cell is taken only after the entry exists, so a failure on the way
  // leaves the table as it was.
  template <class Maker>
  Entry* AddEntry(uint32_t hash, const Maker& make) {
    int32_t position = PrepareCell(hash, scheme);
    void* room = NewEntry(scheme);
    try {
      make(room);
    } catch (...) {
      DiscardEntry(room);
      throw;
    }
    StoreEntry(position, room);
    return static_cast<Entry*>(room);
  }

 private:
  int32_t Scan(const Key& key, int32_t position) const {
    for (; position >= 0; position = FindContinue(position)) {
      const Entry* entry = EntryOf(position);
      if (entry != nullptr && Traits::IsEqual(entry->key, key)) return position;
    }
    return -1;
  }
};

template <class Key>
struct CHashSetEntry {
  Key key;
};

// A set of keys. Template arguments: the key, how it hashes and compares,
// and where the index and pool come from.
template <class Key, class Traits = CHashKeyTraits<Key>, class Allocator = CurrentMemoryManager>
class CHashTable : public CHashContainer<CHashSetEntry<Key>, Key, Traits, Allocator> {
  typedef CHashContainer<CHashSetEntry<Key>, Key, Traits, Allocator> Base;
  typedef CHashSetEntry<Key> Entry;

 public:
  // `expectedCount` 0: hash size 31 at the first insertion. Otherwise the
  // smallest table prime at or above it. `firstPageEntries`: entries in the
  // pool's first page.
  explicit CHashTable(int32_t expectedCount = 0,
                      int32_t firstPageEntries = CHashIndex::DefaultFirstPageEntries)
      : Base(expectedCount, firstPageEntries) {}

  // Adds `key` when it is absent; returns true when it was added.
  bool Add(const Key& key) {
    uint32_t hash = Traits::Hash(key);
    if (this->FindPosition(key, hash) >= 0) return false;
    this->AddEntry(hash, [&](void* room) { new (room) Entry{key}; });
    return true;
  }
  // Adds `key` without looking for it: the caller knows it is absent, or
  // wants it twice.
  void Insert(const Key& key) {
    this->AddEntry(Traits::Hash(key), [&](void* room) { new (room) Entry{key}; });
  }
  const Key& GetAt(int32_t position) const { return this->GetKeyAt(position); }
};

}  // namespace Tsl
