// The memory file: a growable buffer behind CBaseFile. Growth is geometric
// (half as much again, rounded up to the growth step), so a run of small
// writes costs few copies. Instantiated here for the library's policies.
#include "memoryfile.h"

#include <string.h>

#include "errors.h"
#include "services.h"

namespace Tsl {

static const wchar_t* const Unit = L"memoryfile";
static const int64_t MaxOffset = 0x7FFFFFFF;

// The display name of a memory file: the catalogue's text, or the message's
// own name while the catalogue has none.
static CUnicodeString MemoryFileDisplayName() {
  CUnicodeString text;
  if (GetMessageText(L"MSG_MEMORY_FILE", text)) return text;
  return CUnicodeString(L"MSG_MEMORY_FILE");
}

template <class Policy>
CMemoryFileEx<Policy>::CMemoryFileEx(int32_t growStep)
    : buffer(nullptr), capacity(0), length(0), growBy(growStep), position(0), ownsBuffer(true) {
  TSL_ASSERT(growStep >= 1, Unit, 30);
  if (growBy < 1) growBy = 1;
}

template <class Policy>
CMemoryFileEx<Policy>::~CMemoryFileEx() {
  // A buffer grown after Close belongs to the caller (who closes again).
  if (ownsBuffer && buffer != nullptr) FreeBuffer(buffer);
  buffer = nullptr;
  capacity = length = position = 0;
  ownsBuffer = false;
}

template <class Policy>
CUnicodeString CMemoryFileEx<Policy>::GetFileName() const {
  return MemoryFileDisplayName();
}

template <class Policy>
int32_t CMemoryFileEx<Policy>::Read(void* target, int32_t count) {
  if (count == 0) return 0;
  TSL_ASSERT(target != nullptr && count >= 1, Unit, 50);
  if (target == nullptr || count < 1) return 0;
  int32_t available = length - position;
  int32_t n = count < available ? count : available;
  // A position past the length reads nothing.
  if (n < 1) return 0;
  memcpy(target, buffer + position, size_t(n));
  position += n;
  return n;
}

template <class Policy>
void CMemoryFileEx<Policy>::Write(const void* source, int32_t count) {
  if (count == 0) return;
  TSL_ASSERT(source != nullptr && count >= 1, Unit, 64);
  if (source == nullptr || count < 1) return;
  int64_t end = int64_t(position) + count;
  // The buffer is addressed by 31-bit offsets: content beyond them can't be
  // held, as if memory had run out.
  if (end > MaxOffset) GenerateMemoryError();
  if (end > capacity) Grow(int32_t(end));
  if (end > capacity) return;  // only after a failed check that returned
  // The gap between the length and a position past it is not zeroed: it
  // shows what the buffer held.
  memcpy(buffer + position, source, size_t(count));
  position = int32_t(end);
  if (position > length) length = position;
}

template <class Policy>
int64_t CMemoryFileEx<Policy>::Seek(int64_t offset, int32_t origin) {
  int64_t base;
  switch (origin) {
    case SeekBegin:
      base = 0;
      break;
    case SeekCurrent:
      base = position;
      break;
    case SeekEnd:
      base = GetLength();
      break;
    default:
      TSL_INTERNAL_ERROR(Unit, 87);
      base = position;
      offset = 0;
      break;
  }
  int64_t target;
  if (__builtin_add_overflow(base, offset, &target) || target < 0 || target > MaxOffset) {
    position = 0;
    GenerateFileErrorOfKind(FE_BadSeek, GetFileName());
  }
  position = int32_t(target);
  return target;
}

template <class Policy>
void CMemoryFileEx<Policy>::SetLength(int64_t size) {
  TSL_ASSERT(size >= 0 && size <= MaxOffset, Unit, 104);
  if (size < 0 || size > MaxOffset) return;
  if (size > capacity) Grow(int32_t(size));
  length = int32_t(size);
  if (length < position) position = length;
}

template <class Policy>
void CMemoryFileEx<Policy>::Close() {
  // Unlike the destructor, frees whatever stands, owned or not; from here on
  // the object owns no buffer, not even one it grows later.
  if (buffer != nullptr) FreeBuffer(buffer);
  buffer = nullptr;
  capacity = length = position = 0;
  ownsBuffer = false;
}

template <class Policy>
void CMemoryFileEx<Policy>::FreeBuffer(void* block) {
  Policy::Free(block);
}

template <class Policy>
void* CMemoryFileEx<Policy>::ReallocBuffer(void* block, int32_t oldSize, int32_t newSize) {
  TSL_ASSERT(newSize > oldSize, Unit, 131);
  // The allocation throws before anything changes, so a failure leaves the
  // old buffer and the sizes as they were.
  void* grown = Policy::Alloc(size_t(newSize));
  if (oldSize > 0) memcpy(grown, block, size_t(oldSize));
  if (block != nullptr) FreeBuffer(block);
  return grown;
}

// Makes room for `required` bytes: rounded up to the growth step, and at
// least half as much again as now. The whole capacity is copied, not only the
// length, so bytes past the length survive a growth.
template <class Policy>
void CMemoryFileEx<Policy>::Grow(int32_t required) {
  TSL_ASSERT(growBy >= 1, Unit, 146);
  int64_t step = growBy >= 1 ? growBy : 1;
  int64_t rounded = required;
  if (rounded > 0) rounded = (rounded + step - 1) / step * step;
  int64_t geometric = int64_t(capacity) + capacity / 2;
  int64_t newCapacity = rounded > geometric ? rounded : geometric;
  // Near the 31-bit limit the rounding stops at the largest offset; the
  // required size itself always fits.
  if (newCapacity > MaxOffset) newCapacity = MaxOffset;
  void* grown = ReallocBuffer(buffer, capacity, int32_t(newCapacity));
  TSL_ASSERT(grown != nullptr, Unit, 156);
  if (grown == nullptr) return;
  buffer = static_cast<uint8_t*>(grown);
  capacity = int32_t(newCapacity);
}

template class CMemoryFileEx<CurrentMemoryManager>;
template class CMemoryFileEx<RuntimeHeap>;
template class CMemoryFileEx<ProcessHeap>;

}  // namespace Tsl
