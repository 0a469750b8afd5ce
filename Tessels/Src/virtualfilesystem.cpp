// The in-memory file system: a tree of directories whose files live in
// page-file mappings, the share rules between its open files, copies to and
// from the native file system, and the end of life that closes what callers
// left open.
#include "virtualfilesystem.h"

#include "errors.h"
#include "services.h"
#include "tessels.h"

namespace Tsl {

namespace {

const wchar_t* const Unit = L"virtualfilesystem";

// Components of the root "\\Tavix\Tessels\VirtualFiles$\": server, share
// and the folder of the in-memory files.
const int32_t RootComponents = 3;

// The process's one in-memory file system, registered with the router
// before main and taken down as a static object at the very end.
CVirtualFileSystem virtualFileSystem;

// The name of a path as the tree stores it: components joined by '\',
// "." and ".." resolved without climbing above the root, no trailing
// separator. False for a path outside the root.
bool Canonicalize(const CUnicodeString& path, CPathComponents& parts) {
  if (!IsVirtualPath(path)) return false;
  SplitPathComponents(path, parts);
  if (parts.GetSize() < RootComponents) return false;
  int32_t written = RootComponents;
  for (int32_t i = RootComponents; i < parts.GetSize(); ++i) {
    if (parts[i] == L".") continue;
    if (parts[i] == L"..") {
      if (written > RootComponents) --written;
      continue;
    }
    if (written != i) parts[written] = parts[i];
    ++written;
  }
  parts.SetSize(written);
  return true;
}

// Characters the platform refuses in a name; a wildcard can't name a file.
bool HasInvalidName(const CPathComponents& parts) {
  for (int32_t i = RootComponents; i < parts.GetSize(); ++i)
    for (int32_t k = 0; k < parts[i].Length(); ++k) {
      wchar_t unit = parts[i][k];
      if (unit == L'*' || unit == L'?' || unit == L'<' || unit == L'>' || unit == L'|' || unit == L'"' ||
          unit == L':' || unit < 32)
        return true;
    }
  return false;
}

// A path that isn't under the root is misuse: the router never sends one.
// Where the internal error returns, the file error stands in.
void CheckedParts(const CUnicodeString& path, CPathComponents& parts, int32_t line) {
  bool virtualPath = Canonicalize(path, parts);
  TSL_ASSERT(virtualPath, Unit, line);
  if (!virtualPath) GenerateFileErrorOfKind(FE_BadPath, path);
}

// One part of a mask against one part of a name, case-sensitively: '?' is
// any one character, '*' ends the test with a match.
bool MatchesPart(const CUnicodeString& text, const CUnicodeString& pattern) {
  if (pattern.IsEmpty()) return text.IsEmpty();
  if (text.IsEmpty() || pattern.Length() > text.Length()) return false;
  for (int32_t i = 0; i < pattern.Length(); ++i) {
    if (pattern[i] == L'*') return true;
    if (pattern[i] != L'?' && pattern[i] != text[i]) return false;
  }
  return pattern.Length() == text.Length();
}

void FillStatus(const CVirtualFileBase& entry, CFileStatus& status) {
  status.FullName = entry.name;
  status.Name = GetNameWithExtension(entry.name);
  status.CreationTime = entry.creationTime;
  status.LastAccessTime = entry.lastAccessTime;
  status.LastWriteTime = entry.lastWriteTime;
  status.Length = entry.size;
  status.Attributes = entry.attributes;
}

void TraceUndeleted(const CUnicodeString& name) {
  if (IsDebugFlagSet(DF_QuietDebugTrace)) return;
  CUnicodeString text;
  text.Format(L"Undeleted object in virtual file sustem: %s\n", name.Text());
  ::OutputDebugStringW(text.Text());
}

}  // namespace

// The file system's lock, with the runtime heap for everything made under
// it: the tree is process-wide and outlives any thread's manager. The
// critical section is recursive, and that is used: a move copies under it,
// and a copy opens files through the router, which comes back here.
class CVirtualLock {
 public:
  explicit CVirtualLock(CVirtualFileSystem& fileSystem) : section(fileSystem.lock) {
    ::EnterCriticalSection(&section);
  }
  ~CVirtualLock() { ::LeaveCriticalSection(&section); }
  CVirtualLock(const CVirtualLock&) = delete;
  CVirtualLock& operator=(const CVirtualLock&) = delete;

 private:
  CRITICAL_SECTION& section;
  CRuntimeHeapSwitch heap;
};

bool MatchesVirtualMask(const CUnicodeString& name, const CUnicodeString& mask) {
  if (mask == L"*" || mask == L"*.*") return true;
  return MatchesPart(GetName(name), GetName(mask)) && MatchesPart(GetExtension(name), GetExtension(mask));
}

// ---- Directories of the tree ---------------------------------------------------

CVirtualDirectory::CVirtualDirectory(const CUnicodeString& name)
    : CVirtualFileBase(name, FILE_ATTRIBUTE_DIRECTORY), files(0, 128), directories(0, 128) {}

CVirtualDirectory::~CVirtualDirectory() {
  for (const auto& entry : files) delete entry.value;
  files.FreeBuffer();
}

CVirtualDirectory* CVirtualDirectory::FindChild(const CUnicodeString& component) {
  CVirtualDirectory** found = directories.Find(component);
  if (found == nullptr) return nullptr;
  TSL_ASSERT((*found)->GetParent() == this, Unit, 143);
  return *found;
}

// ---- The file system object ----------------------------------------------------

CVirtualFileSystem::CVirtualFileSystem() : root(nullptr), openPaths(0, 128), openFiles(0, 128) {
  ::InitializeCriticalSection(&lock);
  {
    CVirtualLock locked(*this);
    root = new CVirtualDirectory(GetVirtualRootPath());
    SetVirtualFileSystem(this);
  }
}

CVirtualFileSystem::~CVirtualFileSystem() {
  {
    CVirtualLock locked(*this);
    try {
      ClearVirtualFileSystem();
    } catch (CException* failure) {
      ReportException(failure);
      delete failure;
    }
    SetVirtualFileSystem(nullptr);
    delete root;
    root = nullptr;
  }
  ::DeleteCriticalSection(&lock);
}

CUnicodeString CVirtualFileSystem::GetVirtualRoot() const { return root->name; }

int32_t CVirtualFileSystem::GetOpenFileCount() {
  CVirtualLock locked(*this);
  return openFiles.GetCount();
}

// ---- Walking the tree (under the lock) -------------------------------------------

CVirtualDirectory* CVirtualFileSystem::FindDirectory(const CUnicodeString& path) {
  CPathComponents parts;
  if (!Canonicalize(path, parts)) return nullptr;
  // The first components are the root's, which the router has tested.
  CVirtualDirectory* directory = root;
  for (int32_t i = RootComponents; i < parts.GetSize() && directory != nullptr; ++i)
    directory = directory->FindChild(parts[i]);
  return directory;
}

// A component that names a file can't become a directory too: the path is
// then as missing as on a disk.
CVirtualDirectory* CVirtualFileSystem::EnsureDirectory(const CUnicodeString& path) {
  CPathComponents parts;
  CheckedParts(path, parts, 196);
  CVirtualDirectory* directory = root;
  for (int32_t i = RootComponents; i < parts.GetSize(); ++i) {
    CVirtualDirectory* child = directory->FindChild(parts[i]);
    if (child == nullptr) {
      if (directory->files.Find(parts[i]) != nullptr) GenerateFileError(ERROR_PATH_NOT_FOUND, path);
      child = new CVirtualDirectory(ConcatPath(directory->name, parts[i]));
      directory->AddChild(child);
      try {
        directory->directories.Set(parts[i], child);
      } catch (...) {
        delete child;
        throw;
      }
    }
    directory = child;
  }
  return directory;
}

CVirtualFileData* CVirtualFileSystem::FindFile(const CUnicodeString& path) {
  CPathComponents parts;
  if (!Canonicalize(path, parts) || parts.GetSize() <= RootComponents) return nullptr;
  CVirtualDirectory* directory = root;
  for (int32_t i = RootComponents; i + 1 < parts.GetSize() && directory != nullptr; ++i)
    directory = directory->FindChild(parts[i]);
  if (directory == nullptr) return nullptr;
  CVirtualFileData** found = directory->files.Find(parts[parts.GetSize() - 1]);
  return found != nullptr ? *found : nullptr;
}

CVirtualFileBase* CVirtualFileSystem::FindEntry(const CUnicodeString& path) {
  CVirtualFileData* file = FindFile(path);
  if (file != nullptr) return file;
  return FindDirectory(path);
}

CVirtualFileData* CVirtualFileSystem::CreateFileData(const CUnicodeString& path, uint32_t attributes,
                                                     HANDLE mapping, int64_t size) {
  CVirtualFileData* existing = FindFile(path);
  if (existing != nullptr) return existing;
  CPathComponents parts;
  CheckedParts(path, parts, 237);
  CUnicodeString name = parts[parts.GetSize() - 1];
  // Parents appear as a side effect of making a file.
  CVirtualDirectory* directory = EnsureDirectory(GetDriveAndDirectory(JoinPathComponents(parts, PathUnc)));
  CVirtualFileData* data;
  if (mapping != nullptr)
    data = new CVirtualFileData(ConcatPath(directory->name, name), attributes | FILE_ATTRIBUTE_READONLY, mapping,
                                size);
  else
    data = new CVirtualFileData(ConcatPath(directory->name, name), attributes,
                                (attributes & FILE_ATTRIBUTE_READONLY) != 0, size);
  try {
    directory->files.Set(name, data);
  } catch (...) {
    delete data;
    throw;
  }
  return data;
}

bool CVirtualFileSystem::DeleteFileData(const CUnicodeString& path) {
  CVirtualFileData* data = FindFile(path);
  if (data == nullptr) return false;
  CVirtualDirectory* directory = FindDirectory(GetDriveAndDirectory(data->name));
  TSL_ASSERT(directory != nullptr, Unit, 263);
  if (directory != nullptr) directory->files.Remove(GetNameWithExtension(data->name));
  delete data;
  return true;
}

bool CVirtualFileSystem::DeleteDirectory(const CUnicodeString& path) {
  CVirtualDirectory* directory = FindDirectory(path);
  if (directory == nullptr) return false;
  TSL_ASSERT(directory != root, Unit, 272);
  if (directory == root) return false;
  CVirtualDirectory* parent = directory->GetParent();
  if (parent != nullptr) parent->directories.Remove(GetNameWithExtension(directory->name));
  delete directory;  // with all it still holds; it leaves the parent's children itself
  return true;
}

// ---- Open files -------------------------------------------------------------------

void CVirtualFileSystem::AddOpenFile(CVirtualFile* file, CFile* owner) {
  const CUnicodeString& path = file->GetData()->name;
  COpenSet** found = openPaths.Find(path);
  COpenSet* set;
  if (found != nullptr) {
    set = *found;
  } else {
    set = new COpenSet;
    try {
      openPaths.Set(path, set);
    } catch (...) {
      delete set;
      throw;
    }
  }
  try {
    set->files.Add(file);
    openFiles.Set(file, owner);
  } catch (...) {
    RemoveOpenFile(file);
    throw;
  }
}

void CVirtualFileSystem::RemoveOpenFile(CVirtualFile* file) {
  CVirtualLock locked(*this);
  openFiles.Remove(file);
  const CUnicodeString& path = file->GetData()->name;
  COpenSet** found = openPaths.Find(path);
  if (found == nullptr) return;
  COpenSet* set = *found;
  set->files.Remove(file);
  if (!set->files.IsEmpty()) return;
  openPaths.Remove(path);
  delete set;
}

CBaseFile* CVirtualFileSystem::CreateFile(const CUnicodeString& path, uint32_t access, uint32_t share,
                                          LPSECURITY_ATTRIBUTES, uint32_t disposition, uint32_t attributes,
                                          HANDLE templateFile, uint32_t initialSizeLow, uint32_t initialSizeHigh,
                                          CFile* owner) {
  CVirtualLock locked(*this);
  CPathComponents parts;
  CheckedParts(path, parts, 313);
  if (HasInvalidName(parts)) GenerateFileError(ERROR_INVALID_NAME, path);
  // Neither the root nor a directory can be opened as a file.
  if (parts.GetSize() == RootComponents || FindDirectory(path) != nullptr) GenerateFileError(ERROR_ACCESS_DENIED, path);
  int64_t initialSize = int64_t((uint64_t(initialSizeHigh) << 32) | initialSizeLow);
  CVirtualFileData* data = FindFile(path);
  switch (disposition) {
    case CREATE_NEW:
      // An existing name reports access denied, not "already exists".
      if (data != nullptr) GenerateFileError(ERROR_ACCESS_DENIED, path);
      data = CreateFileData(path, attributes | FILE_ATTRIBUTE_ARCHIVE, templateFile, initialSize);
      break;
    case CREATE_ALWAYS:
      if (openPaths.Find(data != nullptr ? data->name : path) != nullptr)
        GenerateFileError(ERROR_SHARING_VIOLATION, path);
      // The old entry goes with its content and its times.
      if (data != nullptr) DeleteFileData(path);
      data = CreateFileData(path, attributes | FILE_ATTRIBUTE_ARCHIVE, templateFile, initialSize);
      break;
    case OPEN_EXISTING:
      if (data == nullptr) GenerateFileError(ERROR_FILE_NOT_FOUND, path);
      break;
    case OPEN_ALWAYS:
      if (data == nullptr) data = CreateFileData(path, attributes, templateFile, initialSize);
      break;
    default:
      TSL_INTERNAL_ERROR(Unit, 341);
      GenerateFileErrorOfKind(FE_Generic, path);
  }

  // Only the new open's access is held against the older opens' share
  // masks; its own mask is not held against what they do.
  COpenSet** open = openPaths.Find(data->name);
  if (open != nullptr) {
    uint32_t mask = FILE_SHARE_READ | FILE_SHARE_WRITE;
    for (const auto& entry : (*open)->files) mask &= entry.key->GetShare();
    if ((access & GENERIC_READ) != 0 && (mask & FILE_SHARE_READ) == 0)
      GenerateFileError(ERROR_SHARING_VIOLATION, data->name);
    if ((access & GENERIC_WRITE) != 0 && mask < FILE_SHARE_WRITE) GenerateFileError(ERROR_SHARING_VIOLATION, data->name);
  } else if ((data->attributes & FILE_ATTRIBUTE_READONLY) != 0 && (access & GENERIC_WRITE) != 0) {
    // A write to a read-only file reports a sharing violation here.
    GenerateFileError(ERROR_SHARING_VIOLATION, path);
  }

  // A new object every time, also on the same data: each open has its own
  // position and views.
  CVirtualFile* file = new CVirtualFile(data, access, share);
  try {
    AddOpenFile(file, owner);
  } catch (...) {
    delete file;
    throw;
  }
  return file;
}

void CVirtualFileSystem::CloseFile(CBaseFile* file, bool abort) {
  TSL_ASSERT(file != nullptr, Unit, 374);
  CVirtualFile* virtualFile = dynamic_cast<CVirtualFile*>(file);
  TSL_ASSERT(virtualFile != nullptr, Unit, 376);
  if (virtualFile == nullptr) return;
  // The flag is taken the other way round from the native file system: an
  // ordinary close of a virtual file reports a failure and goes on, while an
  // abort lets it pass. Either way the file leaves the tables and dies.
  try {
    if (abort)
      virtualFile->Close();
    else
      virtualFile->Abort();
  } catch (...) {
    RemoveOpenFile(virtualFile);
    delete virtualFile;
    throw;
  }
  RemoveOpenFile(virtualFile);
  delete virtualFile;
}

// ---- Existence and attributes ------------------------------------------------------

bool CVirtualFileSystem::DirectoryExists(const CUnicodeString& path) {
  CVirtualLock locked(*this);
  return FindDirectory(path) != nullptr;
}

bool CVirtualFileSystem::FileExists(const CUnicodeString& path, uint32_t mode) {
  if (path.IsEmpty()) return false;
  CVirtualLock locked(*this);
  // A directory is no file here.
  if (mode == CFile::ModeExistenceOnly) return FindFile(path) != nullptr;
  TSL_ASSERT((mode & CFile::ShareMask) != 0, Unit, 406);
  try {
    CBaseFile* probe = CreateFile(path, CFile::AccessOfFlags(mode), CFile::ShareOfFlags(mode), nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr, 0, 0, nullptr);
    // The probe leaves through the tables like any file: a later delete of
    // the path must not find it still open.
    CloseFile(probe, true);
    return true;
  } catch (CFileException* failure) {
    delete failure;
    return false;
  }
}

void CVirtualFileSystem::SetFileAttributes(const CUnicodeString& path, uint32_t attributes) {
  CVirtualLock locked(*this);
  CPathComponents parts;
  CheckedParts(path, parts, 424);
  CVirtualFileBase* entry = FindEntry(path);
  if (entry == nullptr) GenerateFileError(ERROR_FILE_NOT_FOUND, path);
  // "Normal" alone stays as it is; beside any other bit it means nothing.
  uint32_t stored = attributes == FILE_ATTRIBUTE_NORMAL ? attributes : attributes & ~uint32_t(FILE_ATTRIBUTE_NORMAL);
  // The directory bit follows the kind of entry, not the caller.
  if (FindFile(path) != nullptr)
    stored &= ~uint32_t(FILE_ATTRIBUTE_DIRECTORY);
  else
    stored = (stored & ~uint32_t(FILE_ATTRIBUTE_NORMAL)) | FILE_ATTRIBUTE_DIRECTORY;
  entry->attributes = stored;
}

uint32_t CVirtualFileSystem::GetFileAttributes(const CUnicodeString& path) {
  CVirtualLock locked(*this);
  CPathComponents parts;
  CheckedParts(path, parts, 440);
  CVirtualFileBase* entry = FindEntry(path);
  if (entry == nullptr) GenerateFileError(ERROR_FILE_NOT_FOUND, path);
  return entry->attributes;
}

// ---- Single files ------------------------------------------------------------------

void CVirtualFileSystem::DeleteFile(const CUnicodeString& path) {
  CVirtualLock locked(*this);
  CPathComponents parts;
  CheckedParts(path, parts, 451);
  CVirtualFileData* data = FindFile(path);
  if (data != nullptr && openPaths.Find(data->name) != nullptr) GenerateFileError(ERROR_SHARING_VIOLATION, path);
  if (!DeleteFileData(path)) GenerateFileError(ERROR_FILE_NOT_FOUND, path);
}

bool CVirtualFileSystem::TryDeleteFile(const CUnicodeString& path) {
  CVirtualLock locked(*this);
  CVirtualFileData* data = FindFile(path);
  if (data == nullptr || openPaths.Find(data->name) != nullptr) return false;
  return DeleteFileData(path);
}

void CVirtualFileSystem::CopyFile(const CUnicodeString& destination, const CUnicodeString& source) {
  CVirtualLock locked(*this);
  bool sourceVirtual = IsVirtualPath(source);
  bool destinationVirtual = IsVirtualPath(destination);
  TSL_ASSERT(sourceVirtual || destinationVirtual, Unit, 469);
  if (!sourceVirtual && !destinationVirtual) GenerateFileErrorOfKind(FE_BadPath, destination);
  // Both ends open through CFile, so that the share rules hold as for any
  // caller. The destination is declared last and so closes first.
  CFile from;
  from.Open(source, CFile::ShareDenyWrite, FILE_ATTRIBUTE_READONLY, 0);
  int64_t length = from.GetLength();
  CFile to;
  // A virtual destination takes the whole file in its first block.
  to.Open(destination, CFile::ModeCreate | CFile::ShareExclusive | CFile::ModeWrite, FILE_ATTRIBUTE_NORMAL,
          destinationVirtual ? length : 0);
  if (sourceVirtual) {
    CVirtualFile* content = dynamic_cast<CVirtualFile*>(from.GetImplementation());
    TSL_ASSERT(content != nullptr, Unit, 482);
    if (content != nullptr) content->SaveTo(*to.GetImplementation());
  } else {
    CVirtualFile* content = dynamic_cast<CVirtualFile*>(to.GetImplementation());
    TSL_ASSERT(content != nullptr, Unit, 486);
    if (content != nullptr) content->LoadFrom(*from.GetImplementation());
  }
}

void CVirtualFileSystem::MoveFile(const CUnicodeString& destination, const CUnicodeString& source) {
  CVirtualLock locked(*this);
  TSL_ASSERT(IsVirtualPath(source) || IsVirtualPath(destination), Unit, 493);
  CopyFile(destination, source);
  GetFileSystem(source)->DeleteFile(source);
}

void CVirtualFileSystem::MoveFileReplace(const CUnicodeString& destination, const CUnicodeString& source) {
  MoveFile(destination, source);
}

void CVirtualFileSystem::RenameFile(const CUnicodeString& source, const CUnicodeString& destination) {
  MoveFile(destination, source);
}

int32_t CVirtualFileSystem::GetFreeSpace(const CUnicodeString& path) {
  CPathComponents parts;
  CheckedParts(path, parts, 508);
  MEMORYSTATUSEX memory;
  memory.dwLength = sizeof memory;
  if (!::GlobalMemoryStatusEx(&memory)) GenerateFileError(::GetLastError(), path);
  // Kilobytes in 31 bits, as for a disk: more reads as the largest count.
  uint64_t kilobytes = memory.ullAvailPageFile >> 10;
  return kilobytes > 0x7FFFFFFF ? 0x7FFFFFFF : int32_t(kilobytes);
}

// ---- Directories ---------------------------------------------------------------------

// Existing is no error, whatever `failIfExists` says.
void CVirtualFileSystem::CreateDirectory(const CUnicodeString& path, bool) {
  CVirtualLock locked(*this);
  CPathComponents parts;
  CheckedParts(path, parts, 523);
  if (HasInvalidName(parts)) GenerateFileError(ERROR_INVALID_NAME, path);
  // A file of that name is already there: as on a disk, nothing more is made.
  if (FindFile(path) != nullptr) return;
  EnsureDirectory(path);
}

void CVirtualFileSystem::RemoveDirectory(const CUnicodeString& path) {
  CVirtualLock locked(*this);
  CPathComponents parts;
  CheckedParts(path, parts, 533);
  if (parts.GetSize() == RootComponents) GenerateFileError(ERROR_ACCESS_DENIED, path);
  CVirtualDirectory* directory = FindDirectory(path);
  // A missing directory passes in silence.
  if (directory == nullptr) return;
  // A directory with anything in it is in use, as far as callers are told.
  if (!directory->files.IsEmpty() || !directory->directories.IsEmpty())
    GenerateFileError(ERROR_SHARING_VIOLATION, path);
  DeleteDirectory(path);
}

void CVirtualFileSystem::Enumerate(CVirtualDirectory* directory, CFileStatusArray& result,
                                   const CUnicodeString& mask) {
  for (const auto& entry : directory->files)
    if (MatchesVirtualMask(entry.value->name, mask)) FillStatus(*entry.value, result[result.Add(CFileStatus())]);
  for (const auto& entry : directory->directories)
    if (MatchesVirtualMask(entry.value->name, mask)) FillStatus(*entry.value, result[result.Add(CFileStatus())]);
}

void CVirtualFileSystem::EnumerateFiles(const CUnicodeString& directory, CFileStatusArray& result,
                                        const CUnicodeString& mask) {
  CVirtualLock locked(*this);
  CPathComponents parts;
  CheckedParts(directory, parts, 556);
  CVirtualDirectory* found = FindDirectory(directory);
  if (found != nullptr) Enumerate(found, result, mask);
}

// ---- Status ----------------------------------------------------------------------------

// Under the lock, unlike what the name suggests is cheap: another thread may
// be creating in the same directory, and a lookup must not meet a table in
// the middle of its growth.
void CVirtualFileSystem::GetFileStatus(const CUnicodeString& path, CFileStatus& status) {
  CVirtualLock locked(*this);
  CPathComponents parts;
  CheckedParts(path, parts, 569);
  CVirtualFileBase* entry = FindEntry(path);
  if (entry == nullptr) GenerateFileError(ERROR_FILE_NOT_FOUND, path);
  FillStatus(*entry, status);
}

// The size stays; a null time leaves that time as it was.
void CVirtualFileSystem::SetFileStatus(const CUnicodeString& path, const CFileStatus& status) {
  CVirtualLock locked(*this);
  CPathComponents parts;
  CheckedParts(path, parts, 579);
  CVirtualFileBase* entry = FindEntry(path);
  if (entry == nullptr) GenerateFileError(ERROR_FILE_NOT_FOUND, path);
  uint32_t kind = entry->attributes & FILE_ATTRIBUTE_DIRECTORY;
  entry->attributes = (status.Attributes & ~uint32_t(FILE_ATTRIBUTE_DIRECTORY)) | kind;
  if (status.CreationTime != NullTime) entry->creationTime = status.CreationTime;
  if (status.LastAccessTime != NullTime) entry->lastAccessTime = status.LastAccessTime;
  if (status.LastWriteTime != NullTime) entry->lastWriteTime = status.LastWriteTime;
}

// ---- End of life -------------------------------------------------------------------------

void CVirtualFileSystem::CleanDirectory(CVirtualDirectory* directory) {
  for (const auto& entry : directory->files) {
    TraceUndeleted(entry.value->name);
    delete entry.value;
  }
  directory->files.FreeBuffer();
  for (const auto& entry : directory->directories) {
    TraceUndeleted(entry.value->name);
    CleanDirectory(entry.value);
  }
  directory->directories.FreeBuffer();
  directory->DeleteChildren();
}

void CVirtualFileSystem::ClearVirtualFileSystem() {
  CVirtualLock locked(*this);
  // Files left open are closed through their CFile, which then stands closed
  // for its owner too; a file without a CFile is closed here.
  while (!openFiles.IsEmpty()) {
    auto first = openFiles.begin();
    CVirtualFile* file = first->key;
    CFile* owner = first->value;
    if (owner != nullptr && owner->GetImplementation() == file) {
      try {
        owner->Close();
      } catch (CException* failure) {
        ReportException(failure);
        delete failure;
      }
    }
    if (openFiles.Find(file) != nullptr) {
      file->Abort();
      RemoveOpenFile(file);
      delete file;
    }
  }
  for (const auto& entry : openPaths) delete entry.value;
  TSL_ASSERT(openPaths.IsEmpty(), Unit, 629);
  openPaths.FreeBuffer();
  openFiles.FreeBuffer();
  CleanDirectory(root);
}

CVirtualFileSystem& GetVirtualFileSystemObject() { return virtualFileSystem; }

void TerminateVirtualFileSystem() { virtualFileSystem.ClearVirtualFileSystem(); }

}  // namespace Tsl
