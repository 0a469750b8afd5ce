// CPointerArray: a growing array of pointers that owns what they point to.
// Removing a slot deletes its object; destroying the array deletes them all.
// Used wherever a collection owns polymorphic objects (mappings, modules).
#pragma once

#include "array.h"

namespace Tsl {

template <class T, class Allocator = CurrentMemoryManager>
class CPointerArray {
 public:
  CPointerArray() {}
  ~CPointerArray() { DeleteAll(); }
  CPointerArray(const CPointerArray&) = delete;
  CPointerArray& operator=(const CPointerArray&) = delete;

  int32_t GetSize() const { return pointers.GetSize(); }
  bool IsEmpty() const { return pointers.IsEmpty(); }
  int32_t GetCapacity() const { return pointers.GetCapacity(); }
  // Plain access: the caller keeps `index` within 0..size-1.
  T* operator[](int32_t index) const { return pointers[index]; }
  T* Get(int32_t index) const { return pointers[index]; }
  T* GetLast() const { return pointers.GetLast(); }
  T* const* begin() const { return pointers.begin(); }
  T* const* end() const { return pointers.end(); }

  // Takes ownership of `object`; returns its position.
  int32_t Add(T* object) { return pointers.Add(object); }
  // Takes ownership of `object` and places it at `position` (0..size).
  void InsertAt(int32_t position, T* object) { pointers.InsertAt(position, object); }
  // Deletes the object at `index` and takes ownership of `object` in its place.
  void SetAt(int32_t index, T* object) {
    T* old = pointers[index];
    pointers[index] = object;
    delete old;
  }
  // Gives up ownership: the slot is removed and its object returned alive.
  T* Detach(int32_t index) {
    T* object = pointers[index];
    pointers.DeleteAt(index, 1);
    return object;
  }
  int32_t Find(const T* object) const {
    for (int32_t i = 0; i < pointers.GetSize(); ++i)
      if (pointers[i] == object) return i;
    return -1;
  }
  void Reserve(int32_t count) { pointers.Reserve(count); }

  // Deletes `count` objects from `position` and closes the gap. Position and
  // count are checked first, in the order: position not negative, position
  // not above the size, count not negative, their sum not above the size.
  // Each slot is emptied before its object dies, in ascending order, so a
  // destructor that looks back into this array finds no dangling pointer.
  void DeleteAt(int32_t position, int32_t count = 1) {
    int32_t size = pointers.GetSize();
    TSL_ASSERT(position >= 0, L"pointerarray", 61);
    TSL_ASSERT(position <= size, L"pointerarray", 62);
    TSL_ASSERT(count >= 0, L"pointerarray", 63);
    TSL_ASSERT(position + count <= size, L"pointerarray", 64);
    if (position < 0 || position > size || count <= 0 || position + count > size) return;
    for (int32_t i = position; i < position + count; ++i) {
      T* object = pointers[i];
      pointers[i] = nullptr;
      delete object;
    }
    pointers.DeleteAt(position, count);
  }

  // Deletes every object (ascending) and keeps the buffer.
  void DeleteAll() { DeleteAt(0, pointers.GetSize()); }

  // Deletes every object and gives the buffer back.
  void FreeBuffer() {
    DeleteAll();
    pointers.FreeBuffer();
  }

 private:
  CArray<T*, Allocator> pointers;
};

}  // namespace Tsl
