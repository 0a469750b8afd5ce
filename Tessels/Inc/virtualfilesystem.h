// The in-memory file system: every path under "\\Tavix\Tessels\VirtualFiles$\"
// reaches a tree of directories and files that live in page-file mappings
// and die with the process. One static object, made before main, serves all
// threads under one lock.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "Map.h"
#include "filesystem.h"
#include "hashtable.h"
#include "tree.h"
#include "virtualfile.h"

namespace Tsl {

class CVirtualDirectory : public CTree<CVirtualDirectory, CVirtualDirectory, CVirtualDirectory>,
                          public CVirtualFileBase {
 public:
  explicit CVirtualDirectory(const CUnicodeString& name);
  // Deletes its files; the subdirectories go with the tree node.
  ~CVirtualDirectory() override;

  // The direct subdirectory `component`, or null.
  CVirtualDirectory* FindChild(const CUnicodeString& component);

  // Names (name and extension) to files, and components to subdirectories,
  // both compared as paths: without regard to case, '/' equal to '\'.
  CMap<CUnicodeString, CVirtualFileData*, CPathKeyTraits, RuntimeHeap> files;
  CMap<CUnicodeString, CVirtualDirectory*, CPathKeyTraits, RuntimeHeap> directories;
};

class CVirtualFileSystem : public CFileSystemBase {
 public:
  CVirtualFileSystem();
  // Closes what is still open, cleans the tree and unregisters.
  ~CVirtualFileSystem() override;

  // `templateFile` is a mapping handle: a file made over it is read-only.
  // The initial size is the size of the first block of a new file; `owner`
  // is the CFile that the end of life closes if it is still open.
  CBaseFile* CreateFile(const CUnicodeString& path, uint32_t access, uint32_t share,
                        LPSECURITY_ATTRIBUTES security, uint32_t disposition, uint32_t attributes,
                        HANDLE templateFile, uint32_t initialSizeLow, uint32_t initialSizeHigh,
                        CFile* owner) override;
  void CloseFile(CBaseFile* file, bool abort) override;
  bool DirectoryExists(const CUnicodeString& path) override;
  bool FileExists(const CUnicodeString& path, uint32_t mode) override;
  void SetFileAttributes(const CUnicodeString& path, uint32_t attributes) override;
  uint32_t GetFileAttributes(const CUnicodeString& path) override;
  void DeleteFile(const CUnicodeString& path) override;
  bool TryDeleteFile(const CUnicodeString& path) override;
  // Either end may be native, not both.
  void CopyFile(const CUnicodeString& destination, const CUnicodeString& source) override;
  void MoveFile(const CUnicodeString& destination, const CUnicodeString& source) override;
  void MoveFileReplace(const CUnicodeString& destination, const CUnicodeString& source) override;
  void RenameFile(const CUnicodeString& source, const CUnicodeString& destination) override;
  // The free page file, not a disk's.
  int32_t GetFreeSpace(const CUnicodeString& path) override;
  void CreateDirectory(const CUnicodeString& path, bool failIfExists) override;
  void RemoveDirectory(const CUnicodeString& path) override;
  // Appends to `result` (which is not emptied) the matching files, then the
  // matching directories. A missing directory adds nothing.
  void EnumerateFiles(const CUnicodeString& directory, CFileStatusArray& result,
                      const CUnicodeString& mask) override;
  void GetFileStatus(const CUnicodeString& path, CFileStatus& status) override;
  void SetFileStatus(const CUnicodeString& path, const CFileStatus& status) override;

  // The end of life: closes every file still open through its CFile,
  // traces and deletes every entry left in the tree. The file system stays
  // usable, empty.
  void ClearVirtualFileSystem();
  CUnicodeString GetVirtualRoot() const;
  // Open files, for the end-of-life tests.
  int32_t GetOpenFileCount();

 private:
  friend class CVirtualLock;
  typedef CHashTable<CVirtualFile*, CHashKeyTraits<CVirtualFile*>, RuntimeHeap> COpenFileSet;
  struct COpenSet : public CAllocatedOn<RuntimeHeap> {
    COpenSet() : files(0, 64) {}
    COpenFileSet files;
  };

  CVirtualDirectory* FindDirectory(const CUnicodeString& path);
  CVirtualDirectory* EnsureDirectory(const CUnicodeString& path);
  CVirtualFileData* FindFile(const CUnicodeString& path);
  CVirtualFileData* CreateFileData(const CUnicodeString& path, uint32_t attributes, HANDLE mapping,
                                   int64_t size);
  bool DeleteFileData(const CUnicodeString& path);
  bool DeleteDirectory(const CUnicodeString& path);
  CVirtualFileBase* FindEntry(const CUnicodeString& path);
  void RemoveOpenFile(CVirtualFile* file);
  void AddOpenFile(CVirtualFile* file, CFile* owner);
  void CleanDirectory(CVirtualDirectory* directory);
  void Enumerate(CVirtualDirectory* directory, CFileStatusArray& result, const CUnicodeString& mask);

  CRITICAL_SECTION lock;
  CVirtualDirectory* root;
  CMap<CUnicodeString, COpenSet*, CPathKeyTraits, RuntimeHeap> openPaths;
  CMap<CVirtualFile*, CFile*, CHashKeyTraits<CVirtualFile*>, RuntimeHeap> openFiles;
};

// The process's in-memory file system.
CVirtualFileSystem& GetVirtualFileSystemObject();

// The library's end: closes the virtual files left open and empties the
// in-memory tree.
void TerminateVirtualFileSystem();

// Whether `name` matches `mask` as the in-memory file system matches:
// "*" and "*.*" match all; otherwise name and extension each match their
// part of the mask, case-sensitively, where '?' is any one character and
// '*' ends the test with a match.
bool MatchesVirtualMask(const CUnicodeString& name, const CUnicodeString& mask);

}  // namespace Tsl
