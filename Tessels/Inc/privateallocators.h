// The memory managers behind the allocation front end: the runtime heap, whole
// pages of virtual memory, a private heap that counts its blocks, and a pool
// of fixed-size blocks. The string allocator combines three pools and a heap
// and is where every string buffer comes from.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "alloc.h"

namespace Tsl {

// The C runtime's heap. One global object (GetRuntimeHeapManager), usable from
// any thread and before any static initialiser has run; it is never destroyed,
// so that code running at the very end of the process can still allocate.
class CRuntimeHeapManager : public IMemoryManager {
 public:
  constexpr CRuntimeHeapManager() {}
  void* Alloc(size_t size) override;  // the memory error when the heap is exhausted
  void Free(void* block) override;    // null does nothing
};

// Committed read-write pages straight from the system, for chunks of 64 KiB
// and more. One global object (GetVirtualMemoryManager), safe on any thread.
class CVirtualMemoryManager : public IMemoryManager {
 public:
  constexpr CVirtualMemoryManager() {}
  void* Alloc(size_t size) override;  // whole pages; the memory error on failure
  void Free(void* block) override;    // releases the whole range; null does nothing
};

IMemoryManager* GetVirtualMemoryManager();

// A private heap that counts what it hands out, so that a heap that is not
// empty when it goes can be reported. No lock of its own: the owner's lock
// covers the counts.
class CHeapManager : public IMemoryManager {
 public:
  // Creates a growable heap of `initialSize` bytes to start with; a heap the
  // system refuses is the memory error. When blocks are left at destruction
  // the heap is reported and then destroyed if `destroyWhenNotEmpty`, or else
  // left alive, so that blocks still in use by someone stay valid.
  CHeapManager(size_t initialSize, bool destroyWhenNotEmpty);
  ~CHeapManager() override;
  CHeapManager(const CHeapManager&) = delete;
  CHeapManager& operator=(const CHeapManager&) = delete;

  void* Alloc(size_t size) override;
  void Free(void* block) override;  // null does nothing

  // Asks the system for its low-fragmentation mode on this heap.
  void EnableLowFragmentation();

  HANDLE GetHeap() const { return heap; }
  int32_t GetBlockCount() const { return blockCount; }
  int32_t GetByteCount() const { return byteCount; }

 private:
  void Destroy();

  HANDLE heap;                // null once destroyed
  bool destroyWhenNotEmpty;
  int32_t blockCount;         // blocks handed out and not freed
  int32_t byteCount;          // sizes asked for, less sizes freed
};

// A pool of fixed-size blocks carved from 64 KiB chunks. Freed blocks go on a
// free list; when the last block in use is freed the whole pool resets, and
// its chunks are handed out again from their start. Chunks go back to the
// backing manager only when the pool is destroyed. No lock of its own: the
// owner serialises every call.
class CBlockManager : public IMemoryManager {
 public:
  // Blocks of `blockSize` bytes (more than 0), aligned to 8. Chunks come from
  // `backing`, or when that is null from the runtime heap for chunks below a
  // page and from virtual memory otherwise.
  explicit CBlockManager(int32_t blockSize, IMemoryManager* chunkSource = nullptr);
  ~CBlockManager() override;
  CBlockManager(const CBlockManager&) = delete;
  CBlockManager& operator=(const CBlockManager&) = delete;

  // A block of the pool; `size` above the block size is an internal error.
  void* Alloc(size_t size) override;
  // Gives a block of this pool back; null does nothing. A block freed twice
  // is not detected: it corrupts the free list.
  void Free(void* block) override;
  // Forgets every block handed out and keeps all chunks for reuse.
  void Reset();

  int32_t GetBlockSize() const { return blockSize; }
  int32_t GetAlignedBlockSize() const { return alignedBlockSize; }
  int32_t GetUsableChunkSize() const { return usableChunkSize; }  // bytes for blocks in one chunk
  int32_t GetChunkSize() const { return chunkSize; }              // bytes asked of the backing manager
  int32_t GetBytesInUse() const { return bytesInUse; }            // block size times blocks handed out
  int32_t GetFreeBytes() const { return freeBytes; }              // block size times blocks on the free list
  int32_t GetChunkCount() const;                                  // chunks in use
  int32_t GetFreeChunkCount() const;                              // empty chunks kept for reuse
  IMemoryManager* GetBackingManager() const { return backing; }

 private:
  struct CChunk;
  static int32_t CountChunks(const CChunk* chunk);
  void* FirstBlockOfNewChunk();

  IMemoryManager* backing;
  void* freeList;          // freed blocks, linked through their first word
  CChunk* chunks;          // chunks in use, newest first
  CChunk* freeChunks;      // empty chunks kept for the next burst
  int32_t usedInChunk;     // bytes handed out from the newest chunk
  int32_t freeBytes;
  int32_t blockSize;
  int32_t alignedBlockSize;
  int32_t usableChunkSize;
  int32_t bytesInUse;
  int32_t chunkSize;
};

// The string allocator: pools of 32, 64 and 128 bytes for the short texts
// that make up most of the system's allocations, and a private heap above
// that. One process-wide object behind AllocStringBlock and FreeStringBlock;
// every call takes its lock.
class CStringAllocator {
 public:
  CStringAllocator();
  ~CStringAllocator();
  CStringAllocator(const CStringAllocator&) = delete;
  CStringAllocator& operator=(const CStringAllocator&) = delete;

  // A block of at least `size` bytes; `capacity` receives its true size.
  void* Alloc(int32_t size, int32_t& capacity);
  // `capacity` must be what Alloc reported: it alone says where the block came from.
  void Free(void* block, int32_t capacity);

  // For diagnostics and tests; read them only while no other thread allocates strings.
  const CBlockManager& GetPool32() const { return pool32; }
  const CBlockManager& GetPool64() const { return pool64; }
  const CBlockManager& GetPool128() const { return pool128; }
  const CHeapManager& GetHeap() const { return heap; }

 private:
  // Members are taken down in reverse order, which is the order the end of the
  // process needs: the heap with its leak report, then the pools' chunks, and
  // the lock last.
  struct CLock {
    CLock() { ::InitializeCriticalSection(&section); }
    ~CLock() { ::DeleteCriticalSection(&section); }
    CRITICAL_SECTION section;
  };
  CLock lock;
  CBlockManager pool32;
  CBlockManager pool64;
  CBlockManager pool128;
  CHeapManager heap;
};

// The process's string allocator. It is built before the first static object
// of the program and taken down after the last; IsStringAllocatorAlive tells
// whether that moment has passed.
CStringAllocator& GetStringAllocator();
bool IsStringAllocatorAlive();

}  // namespace Tsl
