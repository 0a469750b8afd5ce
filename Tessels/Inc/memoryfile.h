// A growable byte buffer behind the CBaseFile interface, so that whatever can
// be serialised to a file can go to memory (archives of hook messages, tray
// balloons). Offsets are 31-bit: the interface is 64-bit, the buffer is not.
#pragma once

#include <stdint.h>

#include "alloc.h"
#include "basefile.h"
#include "unicodestring.h"

namespace Tsl {

// The buffer comes from allocation policy `Policy`. Needs no opening; after
// Close it is usable again (see Close for who frees the new buffer).
template <class Policy>
class CMemoryFileEx : public CBaseFile {
 public:
  // `growBy` is the rounding step of each growth, at least 1.
  explicit CMemoryFileEx(int32_t growBy = 1024);
  // Frees the buffer only when this object still owns it.
  ~CMemoryFileEx() override;
  CMemoryFileEx(const CMemoryFileEx&) = delete;
  CMemoryFileEx& operator=(const CMemoryFileEx&) = delete;

  // The catalogue's display name of a memory file, not a path.
  CUnicodeString GetFileName() const override;
  // A position at or past the length reads nothing.
  int32_t Read(void* buffer, int32_t count) override;
  // Grows as needed; a gap between the length and a position past it keeps
  // whatever the buffer held there.
  void Write(const void* buffer, int32_t count) override;
  int64_t GetPosition() const override { return position; }
  // Targets outside 0..0x7FFFFFFF throw ERR_FILE_BAD_SEEK with the position
  // reset to 0. Seeking past the length doesn't change the length.
  int64_t Seek(int64_t offset, int32_t origin) override;
  // The capacity never shrinks; a growing length shows unwritten bytes.
  void SetLength(int64_t length) override;
  int64_t GetLength() const override { return length; }
  void Abort() override { Close(); }
  void Flush() override {}
  // Frees whatever buffer stands, owned or not, and gives up ownership: a
  // buffer grown after Close is the caller's to free by a second Close.
  void Close() override;

  // The allocation policy's two operations.
  virtual void FreeBuffer(void* block);
  // A new block of `newSize` (> oldSize) holding the first `oldSize` bytes of
  // `block`, which is freed.
  virtual void* ReallocBuffer(void* block, int32_t oldSize, int32_t newSize);

  // For diagnostics and tests.
  int32_t GetCapacity() const { return capacity; }
  const uint8_t* GetBufferData() const { return buffer; }

 protected:
  void Grow(int32_t required);

  uint8_t* buffer;   // null until the first growth
  int32_t capacity;  // bytes allocated
  int32_t length;    // bytes of content; length <= capacity
  int32_t growBy;    // rounding step, at least 1
  int32_t position;  // may stand past length
  bool ownsBuffer;
};

// Instantiated for these policies in the memory file's unit.
extern template class CMemoryFileEx<CurrentMemoryManager>;
extern template class CMemoryFileEx<RuntimeHeap>;
extern template class CMemoryFileEx<ProcessHeap>;

// The memory file of the system: buffers from the thread's current memory
// manager, each recording its manager so that any thread can free it.
class CMemoryFile : public CMemoryFileEx<CurrentMemoryManager> {
 public:
  CMemoryFile() : CMemoryFileEx<CurrentMemoryManager>(1024) {}
};

}  // namespace Tsl
