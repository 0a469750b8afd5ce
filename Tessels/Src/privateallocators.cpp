// The memory managers behind the allocation front end, and the string
// allocator that every string buffer of the system comes from: pools of 32,
// 64 and 128 bytes for short texts, a private heap for the rest.
#include "privateallocators.h"

#include <windows.h>
#include <stdlib.h>

#include <new>

#include "errors.h"
#include "scopedlock.h"
#include "services.h"
#include "tessels.h"

namespace Tsl {

namespace {

// Catches what a destructor's work throws: destructors let no exception out.
template <class Work>
void RunWithoutThrowing(Work work) {
  try {
    work();
  } catch (CException* exception) {
    ReportException(exception);
    delete exception;
  }
}

// Constant-initialised and never destroyed, like the runtime-heap manager:
// pools of static objects still give chunks back through it at the very end.
union CVirtualMemoryHolder {
  constexpr CVirtualMemoryHolder() : manager() {}
  ~CVirtualMemoryHolder() {}
  CVirtualMemoryManager manager;
};
CVirtualMemoryHolder virtualMemory;

}  // namespace

IMemoryManager* GetVirtualMemoryManager() { return &virtualMemory.manager; }

// ---------------------------------------------------------------------------
// CRuntimeHeapManager

// A request for 0 bytes still gets a block of its own, so that null can only
// mean an exhausted heap.
void* CRuntimeHeapManager::Alloc(size_t size) {
  void* block = ::malloc(size ? size : 1);
  if (!block) GenerateMemoryError();
  return block;
}

void CRuntimeHeapManager::Free(void* block) { ::free(block); }

// ---------------------------------------------------------------------------
// CVirtualMemoryManager

// Reserves and commits in one call: a range without an address has to be
// reserved anyway.
void* CVirtualMemoryManager::Alloc(size_t size) {
  void* block = ::VirtualAlloc(nullptr, size ? size : 1, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
  if (!block) GenerateMemoryError();
  return block;
}

void CVirtualMemoryManager::Free(void* block) {
  if (!block) return;
  BOOL released = ::VirtualFree(block, 0, MEM_RELEASE);
  TSL_ASSERT_LAST_ERROR(released, L"privateallocators", 40);
}

// ---------------------------------------------------------------------------
// CHeapManager

CHeapManager::CHeapManager(size_t initialSize, bool destroyWhenNotEmpty)
    : heap(::HeapCreate(0, initialSize, 0)), destroyWhenNotEmpty(destroyWhenNotEmpty), blockCount(0), byteCount(0) {
  if (!heap) GenerateMemoryError();
}

CHeapManager::~CHeapManager() {
  RunWithoutThrowing([this] { Destroy(); });
}

// Reports a heap that still holds blocks, then destroys it, unless blocks are
// left and the owner asked to keep such a heap: then the heap outlives this
// object, and whoever still holds its blocks may go on using them.
void CHeapManager::Destroy() {
  if (!heap) return;
  ReportHeapLeaks(heap, this, blockCount);
  if (blockCount != 0 && !destroyWhenNotEmpty) return;
  HANDLE doomed = heap;
  heap = nullptr;
  blockCount = 0;
  byteCount = 0;
  BOOL destroyed = ::HeapDestroy(doomed);
  TSL_ASSERT_LAST_ERROR(destroyed, L"privateallocators", 50);
}

void* CHeapManager::Alloc(size_t size) {
  TSL_ASSERT(heap != nullptr, L"privateallocators", 60);
  if (!heap) GenerateMemoryError();
  void* block = ::HeapAlloc(heap, 0, size);
  if (!block) GenerateMemoryError();
  byteCount += static_cast<int32_t>(size);
  ++blockCount;
  return block;
}

// The size freed is the heap's own record of the block; a heap that cannot
// tell (HeapSize fails) leaves the byte count as it is.
void CHeapManager::Free(void* block) {
  if (!block) return;
  TSL_ASSERT(heap != nullptr, L"privateallocators", 61);
  if (!heap) return;
  SIZE_T size = ::HeapSize(heap, 0, block);
  if (size != static_cast<SIZE_T>(-1)) byteCount -= static_cast<int32_t>(size);
  ::HeapFree(heap, 0, block);
  --blockCount;
}

void CHeapManager::EnableLowFragmentation() {
  TSL_ASSERT(heap != nullptr, L"privateallocators", 62);
  if (heap) RequestLowFragmentationHeap(heap);
}

// ---------------------------------------------------------------------------
// CBlockManager

// A chunk starts with two pointer-sized words, the link to the next chunk and
// a word kept at 0; its blocks follow.
struct CBlockManager::CChunk {
  CChunk* next;
  void* zero;
};

namespace {

const int32_t ChunkTarget = 65536;  // a chunk is 64 KiB, header included
const int32_t ChunkHeader = static_cast<int32_t>(sizeof(void*) * 2);
// Larger blocks would overflow the geometry; no pool of the system comes near.
const int32_t MaxBlockSize = 1 << 30;

inline char* BlocksOf(void* chunk) { return static_cast<char*>(chunk) + ChunkHeader; }

// A block size the geometry can work with; past a failed check, 1.
int32_t CheckedBlockSize(int32_t size) {
  TSL_ASSERT(size > 0 && size <= MaxBlockSize, L"privateallocators", 70);
  return size > 0 && size <= MaxBlockSize ? size : 1;
}

}  // namespace

// Blocks are at least 4 bytes (the free list's link lives in their first
// word) and a multiple of 8. A chunk holds as many blocks as fit in 64 KiB
// after its header, or one block where a block is larger than that.
CBlockManager::CBlockManager(int32_t size, IMemoryManager* chunkSource)
    : backing(chunkSource),
      freeList(nullptr),
      chunks(nullptr),
      freeChunks(nullptr),
      usedInChunk(0),
      freeBytes(0),
      blockSize(CheckedBlockSize(size)),
      bytesInUse(0) {
  int32_t atLeastALink = blockSize < 4 ? 4 : blockSize;
  alignedBlockSize = (atLeastALink + 7) & ~7;
  int32_t room = alignedBlockSize > ChunkTarget - ChunkHeader ? alignedBlockSize : ChunkTarget - ChunkHeader;
  usableChunkSize = alignedBlockSize * (room / alignedBlockSize);
  chunkSize = usableChunkSize + ChunkHeader > ChunkTarget ? usableChunkSize + ChunkHeader : ChunkTarget;
  if (!backing) {
    bool belowAPage = static_cast<uint32_t>(chunkSize) < GetSystemPageSize();
    backing = belowAPage ? GetRuntimeHeapManager() : GetVirtualMemoryManager();
  }
}

// Gives back every chunk, whether or not blocks of it are still handed out.
CBlockManager::~CBlockManager() {
  RunWithoutThrowing([this] {
    CChunk* lists[2] = {chunks, freeChunks};
    chunks = freeChunks = nullptr;
    freeList = nullptr;
    for (CChunk* chunk : lists) {
      while (chunk) {
        CChunk* next = chunk->next;
        backing->Free(chunk);
        chunk = next;
      }
    }
  });
}

// A block from the free list, else the next one of the newest chunk, else
// the first of a kept or a new chunk.
void* CBlockManager::Alloc(size_t size) {
  TSL_ASSERT(size <= static_cast<size_t>(blockSize), L"privateallocators", 80);
  // A block too small for the request must never be handed out.
  if (size > static_cast<size_t>(blockSize)) GenerateMemoryError();
  void* block;
  if (freeList) {
    block = freeList;
    freeList = *static_cast<void**>(block);
    freeBytes -= blockSize;
  } else if (chunks && usedInChunk + alignedBlockSize <= usableChunkSize) {
    block = BlocksOf(chunks) + usedInChunk;
    usedInChunk += alignedBlockSize;
  } else {
    block = FirstBlockOfNewChunk();
  }
  bytesInUse += blockSize;
  return block;
}

void* CBlockManager::FirstBlockOfNewChunk() {
  CChunk* chunk = freeChunks;
  if (chunk) {
    freeChunks = chunk->next;
  } else {
    chunk = static_cast<CChunk*>(backing->Alloc(static_cast<size_t>(chunkSize)));
    chunk->zero = nullptr;
  }
  chunk->next = chunks;
  chunks = chunk;
  usedInChunk = alignedBlockSize;
  return BlocksOf(chunk);
}

// The last block in use coming back resets the pool, so that a burst of
// allocations wholly released leaves its chunks ready, in order from their
// start, for the next burst.
void CBlockManager::Free(void* block) {
  if (!block) return;
  *static_cast<void**>(block) = freeList;
  freeList = block;
  freeBytes += blockSize;
  bytesInUse -= blockSize;
  if (bytesInUse == 0) Reset();
}

void CBlockManager::Reset() {
  freeList = nullptr;
  freeBytes = 0;
  usedInChunk = 0;
  bytesInUse = 0;
  if (!chunks) return;
  CChunk* last = chunks;
  while (last->next) last = last->next;
  last->next = freeChunks;
  freeChunks = chunks;
  chunks = nullptr;
}

int32_t CBlockManager::CountChunks(const CChunk* chunk) {
  int32_t count = 0;
  for (; chunk; chunk = chunk->next) ++count;
  return count;
}

int32_t CBlockManager::GetChunkCount() const { return CountChunks(chunks); }
int32_t CBlockManager::GetFreeChunkCount() const { return CountChunks(freeChunks); }

// ---------------------------------------------------------------------------
// CStringAllocator

namespace {

// Pool sizes; a block's capacity names its pool when it comes back.
const int32_t SmallBlock = 32;
const int32_t MediumBlock = 64;
const int32_t LargeBlock = 128;
const size_t StringHeapInitialSize = 0x20000;

}  // namespace

CStringAllocator::CStringAllocator()
    : pool32(SmallBlock), pool64(MediumBlock), pool128(LargeBlock), heap(StringHeapInitialSize, true) {
  heap.EnableLowFragmentation();
}

// Strings still alive are not looked at. Entering the lock once waits for a
// thread that is inside; the members then go in reverse order: the heap with
// its leak report, the pools with their chunks, the lock.
CStringAllocator::~CStringAllocator() {
  { CScopedLock waitForTheLastCall(lock.section); }
  pool32.Reset();
  pool64.Reset();
  pool128.Reset();
}

void* CStringAllocator::Alloc(int32_t size, int32_t& capacity) {
  TSL_ASSERT(size >= 0, L"privateallocators", 90);
  if (size < 0) size = 0;
  CScopedLock hold(lock.section);
  if (size <= SmallBlock) {
    capacity = SmallBlock;
    return pool32.Alloc(SmallBlock);
  }
  if (size <= MediumBlock) {
    capacity = MediumBlock;
    return pool64.Alloc(MediumBlock);
  }
  if (size > LargeBlock) {
    void* block = heap.Alloc(static_cast<size_t>(size));
    capacity = size;
    return block;
  }
  capacity = LargeBlock;
  return pool128.Alloc(LargeBlock);
}

void CStringAllocator::Free(void* block, int32_t capacity) {
  if (!block) return;
  CScopedLock hold(lock.section);
  if (capacity <= SmallBlock)
    pool32.Free(block);
  else if (capacity <= MediumBlock)
    pool64.Free(block);
  else if (capacity <= LargeBlock)
    pool128.Free(block);
  else
    heap.Free(block);
}

// The one string allocator lives in static room of its own and is built by
// an initialiser of priority 102: after the manager slot (101) and before
// every unprioritised static object of the program, which is every object
// that can hold a string. Destructors run in reverse order of construction,
// so it is also taken down after the last of them. A call that still comes
// in before it is built (from another prioritised initialiser) builds it; a
// call after it is gone finds its memory released wholesale: a late Free does
// nothing and a late Alloc is served by the runtime heap, never to be freed.
namespace {

enum EStringAllocatorState { SA_NotBuilt, SA_Alive, SA_Gone };

alignas(CStringAllocator) unsigned char stringAllocatorRoom[sizeof(CStringAllocator)];
// Changed only during static initialisation and termination, on one thread.
EStringAllocatorState stringAllocatorState = SA_NotBuilt;

CStringAllocator& TheStringAllocator() {
  if (stringAllocatorState == SA_NotBuilt) {
    new (stringAllocatorRoom) CStringAllocator();
    stringAllocatorState = SA_Alive;
  }
  return *reinterpret_cast<CStringAllocator*>(stringAllocatorRoom);
}

struct CStringAllocatorLifetime {
  CStringAllocatorLifetime() { TheStringAllocator(); }
  ~CStringAllocatorLifetime() {
    if (stringAllocatorState != SA_Alive) return;
    stringAllocatorState = SA_Gone;
    TheStringAllocator().~CStringAllocator();
  }
};
CStringAllocatorLifetime stringAllocatorLifetime __attribute__((init_priority(102)));

}  // namespace

CStringAllocator& GetStringAllocator() { return TheStringAllocator(); }

bool IsStringAllocatorAlive() { return stringAllocatorState == SA_Alive; }

void* AllocStringBlock(int32_t size, int32_t& capacity) {
  if (stringAllocatorState == SA_Gone) {
    capacity = size > LargeBlock ? size : size > MediumBlock ? LargeBlock : size > SmallBlock ? MediumBlock : SmallBlock;
    return RuntimeHeap::Alloc(static_cast<size_t>(capacity));
  }
  return TheStringAllocator().Alloc(size, capacity);
}

void FreeStringBlock(void* block, int32_t capacity) {
  if (stringAllocatorState == SA_Gone) return;
  TheStringAllocator().Free(block, capacity);
}

}  // namespace Tsl
