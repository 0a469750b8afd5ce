// The storage of the in-memory file system: each file's content is a run of
// page-file mappings (CVirtualFileData), and each open of a file is a
// CVirtualFile with its own position and a small cache of mapped views, so a
// file of any size costs address space only for a few views at a time.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "alloc.h"
#include "array.h"
#include "basefile.h"
#include "filemapping.h"
#include "list.h"
#include "tsltime.h"
#include "unicodestring.h"

namespace Tsl {

// Size of one view, and the alignment of views in a file: the platform's
// allocation granularity.
int64_t GetVirtualViewSize();
// Mappings of a file are made in multiples of this, the same granularity.
int64_t GetVirtualMappingGranularity();

// A named entry of the in-memory tree: a file or a directory.
class CVirtualFileBase : public CAllocatedOn<RuntimeHeap> {
 public:
  // `name` is the entry's full path and must not be empty. All three times
  // are now, and stay so until set: reading and writing do not touch them.
  CVirtualFileBase(const CUnicodeString& name, uint32_t attributes);
  virtual ~CVirtualFileBase() {}
  CVirtualFileBase(const CVirtualFileBase&) = delete;
  CVirtualFileBase& operator=(const CVirtualFileBase&) = delete;

  CUnicodeString name;
  uint32_t attributes;  // the platform's FILE_ATTRIBUTE_* bits
  CTime creationTime;
  CTime lastAccessTime;
  CTime lastWriteTime;
  int64_t size;
};

// One mapping of a file's content, covering [fileOffset, fileOffset + mappingSize).
class CVirtualMapping : public CListNode<CVirtualMapping>, public CAllocatedOn<RuntimeHeap> {
 public:
  CVirtualMapping(CMemoryMapping* mapping, int64_t fileOffset, int64_t mappingSize)
      : mapping(mapping), fileOffset(fileOffset), mappingSize(mappingSize) {}
  ~CVirtualMapping() override { delete mapping; }

  CMemoryMapping* mapping;  // owned
  int64_t fileOffset;
  int64_t mappingSize;
};

// The content of one file. Mappings are sorted by file offset, without gaps,
// and never move or merge: growing a file never copies what it holds.
class CVirtualFileData : public CVirtualFileBase {
 public:
  // An empty file. Its first mapping, made at the first access, holds
  // `initialSize` bytes (at least one granule).
  CVirtualFileData(const CUnicodeString& name, uint32_t attributes, bool readOnly, int64_t initialSize);
  // A read-only file over a mapping made elsewhere, `size` bytes long.
  CVirtualFileData(const CUnicodeString& name, uint32_t attributes, HANDLE mappingHandle, int64_t size);
  ~CVirtualFileData() override;

  // The mapping that holds `offset`; the file grows to reach it.
  CVirtualMapping* GetMapping(int64_t offset);

  bool IsWritable() const { return writable; }
  int64_t GetAllocatedSize() const { return allocatedSize; }
  int32_t GetMappingCount() const { return mappings.GetSize(); }
  const CVirtualMapping* GetMappingAt(int32_t index) const { return mappings[index]; }

 private:
  CVirtualMapping* AddMapping(int64_t size);

  bool writable;          // the access of its mappings
  int64_t initialSize;    // size of the first mapping
  int64_t allocatedSize;  // sum of the mappings' sizes; never shrinks
  CArray<CVirtualMapping*, RuntimeHeap> mappings;  // owned
};

// One mapped view of a mapping, `viewBytes` long from `offsetInMapping`.
class CVirtualView : public CListNode<CVirtualView>, public CAllocatedOn<RuntimeHeap> {
 public:
  CVirtualView(CVirtualMapping* owner, char* data, int64_t offsetInMapping, int64_t viewBytes)
      : owner(owner), data(data), offsetInMapping(offsetInMapping), viewBytes(viewBytes) {}
  int64_t GetFileOffset() const { return owner->fileOffset + offsetInMapping; }

  CVirtualMapping* owner;  // not owned
  char* data;              // the mapped bytes
  int64_t offsetInMapping;
  int64_t viewBytes;
};

// One open of a virtual file, for one thread. Several opens of the same file
// share its bytes, but each keeps the length it saw at open.
class CVirtualFile : public CBaseFile, public CAllocatedOn<RuntimeHeap> {
 public:
  // The ten most recently used views stay mapped.
  static constexpr int32_t MaximumViews = 10;

  CVirtualFile(CVirtualFileData* data, uint32_t access, uint32_t share);
  ~CVirtualFile() override;

  CUnicodeString GetFileName() const override;
  int32_t Read(void* buffer, int32_t count) override;
  void Write(const void* buffer, int32_t count) override;
  int64_t GetPosition() const override { return position; }
  int64_t Seek(int64_t offset, int32_t origin) override;
  void SetLength(int64_t size) override;
  int64_t GetLength() const override { return length; }
  void Abort() override;
  void Flush() override {}
  void Close() override;

  // The view that holds `offset`, mapped on demand and moved to the front.
  CVirtualView* GetView(int64_t offset);
  // The whole content into `destination`, which is set to this length and
  // rewound first; this file's position stays.
  void SaveTo(CBaseFile& destination);
  // The whole content of `source` into this file, which takes its length;
  // `source` gets its position back.
  void LoadFrom(CBaseFile& source);

  CVirtualFileData* GetData() const { return data; }
  uint32_t GetAccess() const { return access; }
  uint32_t GetShare() const { return share; }
  bool IsOpen() const { return isOpen; }
  int32_t GetViewCount() const { return views.GetCount(); }
  const CVirtualView* GetFirstView() const { return views.GetFirst(); }

 private:
  void DropView(CVirtualView* view);

  uint32_t access;  // GENERIC_READ, GENERIC_WRITE
  uint32_t share;   // FILE_SHARE_* of this open
  CVirtualFileData* data;  // not owned
  bool isOpen;
  CList<CVirtualView> views;  // most recently used first
  int64_t length;    // the file's length as this open sees it
  int64_t position;
};

}  // namespace Tsl
