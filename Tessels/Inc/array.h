// The growing arrays under everything else: CArray (size, buffer, capacity
// over an allocation policy) and CFastArray (the same with inline room for a
// fixed number of elements in front). Both grow by the greater of what is
// missing and half the capacity, so appends cost amortised constant time.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <new>
#include <type_traits>
#include <utility>

#include "alloc.h"
#include "errors.h"
#include "unicodestring.h"

namespace Tsl {

// Elements that may be moved by copying their bytes: nothing in them points
// at themselves. The strings are one pointer to a shared buffer, so moving
// them bytewise saves a reference-count round trip per element.
template <class T>
struct CIsRelocatable : std::integral_constant<bool, std::is_trivially_copyable<T>::value> {};
template <>
struct CIsRelocatable<CUnicodeString> : std::true_type {};
template <>
struct CIsRelocatable<CString> : std::true_type {};

// The growth rule shared by every array of the library: the new capacity is
// the old one plus the greater of what is missing and half the old capacity,
// the half being at least `minimumHalf`. From 0 by ones with a minimum of 8
// this gives 8, 16, 24, 36, 54... A capacity beyond 32 bits is the memory
// error: sizes and counts are signed 32-bit throughout the library.
inline int32_t GrowCapacity(int32_t capacity, int32_t needed, int32_t minimumHalf) {
  int64_t missing = int64_t(needed) - capacity;
  int64_t half = capacity / 2;
  if (half < minimumHalf) half = minimumHalf;
  int64_t grown = int64_t(capacity) + (missing > half ? missing : half);
  // Near the 32-bit limit the rule stops at the largest count; `needed`
  // itself always fits, being a 32-bit count.
  if (grown > INT32_MAX) grown = INT32_MAX;
  return int32_t(grown);
}

// Bytes for `count` elements of `elementSize`; the memory error when that
// cannot be addressed (only reachable in the 32-bit build).
inline size_t ArrayBytes(int32_t count, size_t elementSize) {
  if (count < 0 || uint64_t(count) * elementSize > uint64_t(SIZE_MAX) / 2) GenerateMemoryError();
  return size_t(count) * elementSize;
}

namespace ArrayDetail {

// Moves `count` elements from `from` to uninitialised `to` and ends the
// sources; the ranges must not overlap.
template <class T>
inline void Relocate(T* to, T* from, int32_t count) {
  if (count <= 0) return;
  if (CIsRelocatable<T>::value) {
    memcpy(static_cast<void*>(to), static_cast<const void*>(from), size_t(count) * sizeof(T));
  } else {
    for (int32_t i = 0; i < count; ++i) {
      new (to + i) T(std::move(from[i]));
      from[i].~T();
    }
  }
}

// Moves `count` elements within one buffer; overlap-safe in both directions.
template <class T>
inline void RelocateOverlapping(T* to, T* from, int32_t count) {
  if (count <= 0 || to == from) return;
  if (CIsRelocatable<T>::value) {
    memmove(static_cast<void*>(to), static_cast<const void*>(from), size_t(count) * sizeof(T));
  } else if (to < from) {
    for (int32_t i = 0; i < count; ++i) {
      new (to + i) T(std::move(from[i]));
      from[i].~T();
    }
  } else {
    for (int32_t i = count - 1; i >= 0; --i) {
      new (to + i) T(std::move(from[i]));
      from[i].~T();
    }
  }
}

// Ends elements from the highest position down: the string arrays give
// their references back in that order.
template <class T>
inline void DestroyDescending(T* elements, int32_t count) {
  if (std::is_trivially_destructible<T>::value) return;
  for (int32_t i = count - 1; i >= 0; --i) elements[i].~T();
}

// Value-initialises: plain types come out zeroed, classes default-constructed.
template <class T>
inline void ConstructDefault(T* elements, int32_t count) {
  if (count <= 0) return;
  if (std::is_trivially_default_constructible<T>::value) {
    memset(static_cast<void*>(elements), 0, size_t(count) * sizeof(T));
  } else {
    for (int32_t i = 0; i < count; ++i) new (elements + i) T();
  }
}

}  // namespace ArrayDetail

// The common body of the arrays. `Derived` says where its inline room lies
// (InlineBuffer, InlineCount) and what the least growth is (MinimumHalf).
// Fields in this order: size, buffer, capacity.
template <class T, class Allocator, class Derived>
class CArrayBase {
 public:
  typedef T ElementType;

  int32_t GetSize() const { return size; }
  bool IsEmpty() const { return size == 0; }
  int32_t GetCapacity() const { return capacity; }
  T* GetData() { return buffer; }
  const T* GetData() const { return buffer; }

  // Plain access: the caller keeps `index` within 0..size-1.
  T& operator[](int32_t index) { return buffer[index]; }
  const T& operator[](int32_t index) const { return buffer[index]; }
  T& Get(int32_t index) { return buffer[index]; }
  const T& Get(int32_t index) const { return buffer[index]; }
  T& GetLast() { return buffer[size - 1]; }
  const T& GetLast() const { return buffer[size - 1]; }

  T* begin() { return buffer; }
  T* end() { return buffer + size; }
  const T* begin() const { return buffer; }
  const T* end() const { return buffer + size; }

  // Appends a copy of `element`, which may be an element of this array.
  // Returns its position.
  int32_t Add(const T& element) {
    if (size == capacity) {
      if (&element >= buffer && &element < buffer + size) {
        T copy(element);
        return Add(std::move(copy));
      }
      GrowFor(size + 1);
    }
    new (buffer + size) T(element);
    return size++;
  }
  int32_t Add(T&& element) {
    if (size == capacity) {
      if (&element >= buffer && &element < buffer + size) {
        T moved(std::move(element));
        GrowFor(size + 1);
        new (buffer + size) T(std::move(moved));
        return size++;
      }
      GrowFor(size + 1);
    }
    new (buffer + size) T(std::move(element));
    return size++;
  }
  // Appends `count` elements from `elements` (not from this array).
  void Append(const T* elements, int32_t count) {
    TSL_ASSERT(count >= 0, L"array", 141);
    if (count <= 0) return;
    if (size + count > capacity) GrowFor(size + count);
    for (int32_t i = 0; i < count; ++i) new (buffer + size + i) T(elements[i]);
    size += count;
  }

  // New size: growing adds zeroed or default-constructed elements, cutting
  // ends the elements past `newSize` and keeps the memory.
  void SetSize(int32_t newSize) {
    TSL_ASSERT(newSize >= 0, L"array", 152);
    if (newSize < 0) return;
    if (newSize > size) {
      if (newSize > capacity) GrowFor(newSize);
      ArrayDetail::ConstructDefault(buffer + size, newSize - size);
    } else {
      ArrayDetail::DestroyDescending(buffer + newSize, size - newSize);
    }
    size = newSize;
  }

  // Makes room for `count` elements in all without changing the size.
  void Reserve(int32_t count) {
    if (count > capacity) Reallocate(count);
  }

  // Sets the allocation to exactly `newCapacity` elements (never below the
  // size). A request for nothing gives the buffer back.
  void SetCapacity(int32_t newCapacity) {
    TSL_ASSERT(newCapacity >= size, L"array", 172);
    if (newCapacity < size) return;
    Reallocate(newCapacity);
  }

  // Opens a gap of `count` default elements at `position` (0..size).
  void InsertAt(int32_t position, int32_t count) {
    TSL_ASSERT(position >= 0 && position <= size, L"array", 179);
    TSL_ASSERT(count >= 0, L"array", 180);
    if (position < 0 || position > size || count <= 0) return;
    if (size + count > capacity) GrowFor(size + count);
    ArrayDetail::RelocateOverlapping(buffer + position + count, buffer + position, size - position);
    ArrayDetail::ConstructDefault(buffer + position, count);
    size += count;
  }
  // Inserts one copy of `element` (which may lie in this array) at `position`.
  void InsertAt(int32_t position, const T& element) {
    T copy(element);
    InsertAt(position, 1);
    if (position >= 0 && position < size) buffer[position] = std::move(copy);
  }

  // Removes `count` elements from `position`; the rest moves down. Position
  // and count are checked first: position not negative, not above the size,
  // count not negative, their sum not above the size.
  void DeleteAt(int32_t position, int32_t count = 1) {
    TSL_ASSERT(position >= 0, L"array", 197);
    TSL_ASSERT(position <= size, L"array", 198);
    TSL_ASSERT(count >= 0, L"array", 199);
    TSL_ASSERT(position + count <= size, L"array", 200);
    if (position < 0 || position > size || count <= 0 || position + count > size) return;
    ArrayDetail::DestroyDescending(buffer + position, count);
    ArrayDetail::RelocateOverlapping(buffer + position, buffer + position + count,
                                     size - position - count);
    size -= count;
  }

  // Size 0; the buffer stays for the next use.
  void DeleteAll() {
    ArrayDetail::DestroyDescending(buffer, size);
    size = 0;
  }

  // Size 0 and the buffer given back (a fast array returns to its inline room).
  void FreeBuffer() {
    DeleteAll();
    Reallocate(0);
  }

  // Position of the first element equal to `element`, or -1.
  int32_t Find(const T& element) const {
    for (int32_t i = 0; i < size; ++i)
      if (buffer[i] == element) return i;
    return -1;
  }

 protected:
  CArrayBase(T* initialBuffer, int32_t initialCapacity)
      : size(0), buffer(initialBuffer), capacity(initialCapacity) {}
  ~CArrayBase() {
    ArrayDetail::DestroyDescending(buffer, size);
    if (buffer != Self().InlineBuffer()) Allocator::Free(buffer);
  }

  // Grows by the library's rule so that `needed` elements fit.
  void GrowFor(int32_t needed) { Reallocate(GrowCapacity(capacity, needed, Derived::MinimumHalf)); }

  // Allocates `newCapacity`, moves the elements, releases the old buffer.
  // Up to the inline count the elements go back to the inline room; a plain
  // array asked for nothing ends with a null buffer.
  void Reallocate(int32_t newCapacity) {
    T* inlineBuffer = Self().InlineBuffer();
    if (newCapacity <= Derived::InlineCount) {
      if (buffer != inlineBuffer) {
        // A plain array comes here only empty: it has no room to move to.
        if constexpr (Derived::InlineCount > 0) ArrayDetail::Relocate(inlineBuffer, buffer, size);
        Allocator::Free(buffer);
        buffer = inlineBuffer;
      }
      capacity = Derived::InlineCount;
      return;
    }
    T* fresh = static_cast<T*>(Allocator::Alloc(ArrayBytes(newCapacity, sizeof(T))));
    ArrayDetail::Relocate(fresh, buffer, size);
    if (buffer != inlineBuffer) Allocator::Free(buffer);
    buffer = fresh;
    capacity = newCapacity;
  }

  // Replaces the content with copies of `other`'s elements.
  void CopyFrom(const CArrayBase& other) {
    if (&other == this) return;
    DeleteAll();
    if (other.size > capacity) Reallocate(other.size);
    for (int32_t i = 0; i < other.size; ++i) new (buffer + i) T(other.buffer[i]);
    size = other.size;
  }

  Derived& Self() { return static_cast<Derived&>(*this); }

  int32_t size;      // elements in use
  T* buffer;         // the elements; null when nothing was allocated
  int32_t capacity;  // elements allocated
};

// The basic growing array. Buffers through CurrentMemoryManager carry the
// owner's header, so an array may be freed under any current manager.
template <class T, class Allocator = CurrentMemoryManager>
class CArray : public CArrayBase<T, Allocator, CArray<T, Allocator>> {
  typedef CArrayBase<T, Allocator, CArray<T, Allocator>> Base;
  friend Base;

 public:
  CArray() : Base(nullptr, 0) {}
  CArray(const CArray& other) : Base(nullptr, 0) { this->CopyFrom(other); }
  CArray(CArray&& other) noexcept : Base(other.buffer, other.capacity) {
    this->size = other.size;
    other.size = 0;
    other.buffer = nullptr;
    other.capacity = 0;
  }
  CArray& operator=(const CArray& other) {
    this->CopyFrom(other);
    return *this;
  }
  CArray& operator=(CArray&& other) noexcept {
    if (&other != this) {
      this->FreeBuffer();
      this->size = other.size;
      this->buffer = other.buffer;
      this->capacity = other.capacity;
      other.size = 0;
      other.buffer = nullptr;
      other.capacity = 0;
    }
    return *this;
  }

 private:
  static constexpr int32_t InlineCount = 0;
  static constexpr int32_t MinimumHalf = 8;
  T* InlineBuffer() { return nullptr; }
};

namespace ArrayDetail {
// The inline room of a fast array, a base so that it lies in front of the
// array's own fields.
template <class T, int32_t Count>
struct CInlineRoom {
  alignas(T) unsigned char room[sizeof(T) * Count];
};
}  // namespace ArrayDetail

// A growing array with room for `Count` elements inside the object: no
// allocation until the array outgrows it, and the least growth is the inline
// count. Shrinking to the inline count or below returns to the inline room.
// In use with 1 (bit sets of one word), 20, 512 (debug text) and 4,096 (the
// archive buffer).
template <class T, int32_t Count, class Allocator = CurrentMemoryManager>
class CFastArray : private ArrayDetail::CInlineRoom<T, Count>,
                   public CArrayBase<T, Allocator, CFastArray<T, Count, Allocator>> {
  static_assert(Count > 0, "a fast array needs inline room");
  typedef CArrayBase<T, Allocator, CFastArray<T, Count, Allocator>> Base;
  friend Base;

 public:
  CFastArray() : Base(InlineBuffer(), Count) {}
  CFastArray(const CFastArray& other) : Base(InlineBuffer(), Count) { this->CopyFrom(other); }
  CFastArray& operator=(const CFastArray& other) {
    this->CopyFrom(other);
    return *this;
  }

 private:
  static constexpr int32_t InlineCount = Count;
  static constexpr int32_t MinimumHalf = Count;
  T* InlineBuffer() { return reinterpret_cast<T*>(this->room); }
};

}  // namespace Tsl
