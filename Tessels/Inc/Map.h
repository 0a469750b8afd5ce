// CMap: the associative container from key to value, on the hash index of
// hashtable.h. Entries are the key and then the value, fixed-size records in
// the table's pool; string keys hold one reference each.
#pragma once

#include <utility>

#include "hashtable.h"

namespace Tsl {

template <class Key, class Value>
struct CMapEntry {
  Key key;
  Value value;
};

// Template arguments: key and value, how the key hashes and compares
// (CHashKeyTraits, or CNoCaseKeyTraits for case-insensitive strings), and
// where the index and the pool come from.
//
// Keys are assumed to come from trusted sources. The string hash is fixed
// (files and other programs depend on it) and easy to collide: keys made of
// pieces that share a hash ("AB" and "B!" joined in any order) all land in
// one chain, and each look-up then walks it, so n such keys cost n squared.
// Keys from a hostile source need a bound on their number first.
template <class Key, class Value, class Traits = CHashKeyTraits<Key>,
          class Allocator = CurrentMemoryManager>
class CMap : public CHashContainer<CMapEntry<Key, Value>, Key, Traits, Allocator> {
  typedef CHashContainer<CMapEntry<Key, Value>, Key, Traits, Allocator> Base;

 public:
  typedef CMapEntry<Key, Value> Entry;

  // `expectedCount` 0: hash size 31 at the first insertion. Otherwise the
  // smallest table prime at or above it, and a first pool page that holds
  // that many. `firstPageEntries`: entries in the pool's first page.
  explicit CMap(int32_t expectedCount = 0,
                int32_t firstPageEntries = CHashIndex::DefaultFirstPageEntries)
      : Base(expectedCount, firstPageEntries) {}

  // The value of `key`, or null when absent.
  Value* Find(const Key& key) {
    int32_t position = this->FindPosition(key);
    return position >= 0 ? &this->EntryOf(position)->value : nullptr;
  }
  const Value* Find(const Key& key) const {
    int32_t position = this->FindPosition(key);
    return position >= 0 ? &this->EntryOf(position)->value : nullptr;
  }
  // Copies the value of `key` out; false (and `value` untouched) when absent.
  bool Lookup(const Key& key, Value& value) const {
    const Value* found = Find(key);
    if (found == nullptr) return false;
    value = *found;
    return true;
  }

  // The value of a key that must be present: an absent key is an internal
  // error (and, should that return, a default value stands in).
  Value& Get(const Key& key) {
    Value* found = Find(key);
    TSL_ASSERT(found != nullptr, L"Map", 352);
    return found != nullptr ? *found : Missing();
  }
  const Value& Get(const Key& key) const { return const_cast<CMap*>(this)->Get(key); }

  // The value of `key`, added with a default value when absent.
  Value& GetOrCreate(const Key& key) {
    uint32_t hash = Traits::Hash(key);
    int32_t position = this->FindPosition(key, hash);
    if (position >= 0) return this->EntryOf(position)->value;
    return this->AddEntry(hash, [&](void* room) { new (room) Entry{key, Value()}; })->value;
  }

  // Removes every entry with `key`, then adds one: while only Set adds, a
  // key stands at most once. Returns the stored value.
  Value& Set(const Key& key, const Value& value) {
    uint32_t hash = Traits::Hash(key);
    if (this->FindPosition(key, hash) >= 0) {
      // The arguments may live in an entry about to go.
      Key keptKey(key);
      Value keptValue(value);
      this->Remove(keptKey);
      return Insert(hash, keptKey, std::move(keptValue));
    }
    return Insert(hash, key, value);
  }
  // Adds without looking: the caller knows the key is absent, or means to
  // keep several entries for it (found by FindPosition, FindNextPosition).
  Value& Insert(const Key& key, const Value& value) {
    return Insert(Traits::Hash(key), key, value);
  }

  Value& GetValueAt(int32_t position) { return this->EntryOf(position)->value; }
  const Value& GetValueAt(int32_t position) const { return this->EntryOf(position)->value; }

 private:
  template <class V>
  Value& Insert(uint32_t hash, const Key& key, V&& value) {
    return this->AddEntry(hash,
                          [&](void* room) {
                            new (room) Entry{key, std::forward<V>(value)};
                          })
        ->value;
  }
  static Value& Missing() {
    static Value none;
    none = Value();
    return none;
  }
};

}  // namespace Tsl
