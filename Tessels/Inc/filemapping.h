// Operating-system file mappings together with the views made from them. The
// virtual files keep their content in page-file mappings of this kind; the
// class hides the platform's alignment of views from its callers.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "Map.h"
#include "alloc.h"

namespace Tsl {

// The platform's allocation granularity (in practice 65536), read once.
// Views start on multiples of it.
uint32_t GetAllocationGranularity();

// A mapping and its views. Closed (no mapping handle) only after Close or
// while a derived class waits for Attach; open otherwise. Not for more than
// one thread at a time: the view table has no lock.
class CMapping {
 public:
  // A page-file mapping of `size` bytes; `accessMode` 0 is read-only, 1 read
  // and write. Fails by the failure rule (see MapView).
  CMapping(uint32_t accessMode, int64_t size);
  // Closes; a failure on the way is reported, never thrown.
  virtual ~CMapping();
  CMapping(const CMapping&) = delete;
  CMapping& operator=(const CMapping&) = delete;

  // Writes every view back to its file.
  virtual void Flush();
  // Unmaps every view and closes the mapping.
  virtual void Close();
  // A new mapping of `size` bytes in place of the old one, with the same
  // backing file and mode. All views die first; for the page file the old
  // content is gone.
  virtual void Resize(int64_t size);

  // Takes over an existing mapping handle for read-only use; nothing may be
  // open yet.
  void Attach(HANDLE mapping);
  bool IsOpen() const { return mappingHandle != nullptr; }
  HANDLE GetMappingHandle() const { return mappingHandle; }
  uint32_t GetAccessMode() const { return accessMode; }
  int32_t GetViewCount() const { return views.GetCount(); }

  // A pointer to the byte at `offset`, with `bytes` bytes behind it (0: up
  // to the mapping's end). `desiredAccess` is FILE_MAP_READ or FILE_MAP_WRITE.
  // Any offset may be asked for. A platform failure with "not enough memory"
  // raises the memory error, any other a CLastErrorException.
  void* MapView(uint32_t desiredAccess, int64_t offset, int32_t bytes);
  // Unmaps a view by the pointer MapView gave.
  void UnmapView(void* pointer);

 protected:
  // A closed object, opened later by Attach.
  CMapping();
  void Create(int64_t size);
  void UnmapAll();

 private:
  struct CViewRecord {
    void* callerPointer;  // what MapView returned
    void* basePointer;    // what the platform returned, on a granularity boundary
  };

  HANDLE fileHandle;     // 0 while closed, INVALID_HANDLE_VALUE for the page file
  uint32_t accessMode;   // 0 read-only, 1 read and write
  HANDLE mappingHandle;  // null while closed
  CMap<void*, CViewRecord, CHashKeyTraits<void*>, RuntimeHeap> views;
};

class CMemoryMapping : public CMapping {
 public:
  CMemoryMapping(uint32_t accessMode, int64_t size) : CMapping(accessMode, size) {}
  // A memory mapping of no bytes is meaningless: the size must be above 0.
  void Resize(int64_t size) override;

 protected:
  CMemoryMapping() {}
};

// The storage of virtual files: on the runtime heap, since the files are
// process-wide and outlive whatever manager a thread has.
class CVirtualMemoryMapping : public CMemoryMapping, public CAllocatedOn<RuntimeHeap> {
 public:
  CVirtualMemoryMapping(uint32_t accessMode, int64_t size) : CMemoryMapping(accessMode, size) {}
  // Read-only use of a mapping made elsewhere.
  explicit CVirtualMemoryMapping(HANDLE mapping) { Attach(mapping); }
};

}  // namespace Tsl
