// The file system of the operating system, the enumeration helpers that work
// on any file system, the long-path form for enumeration, and the special
// folders with the application's data folders.
#include "nativefilesystem.h"

#include <shlobj.h>

#include <utility>

#include "errors.h"
#include "nativefile.h"

namespace Tsl {

namespace {

// Folder number to the platform's CSIDL value, in the order of their names.
const int specialFolderCsidl[] = {
    48, 29, 26, 10, 47, 30, 35, 25, 46, 31, 23, 22, 24, 45, 3,  33, 0,  16, 17, 6,  20, 34,
    1,  32, 28, 13, 39, 19, 18, 5,  4,  27, 40, 38, 43, 2,  8,  9,  11, 7,  37, 21, 36,
};
const int32_t specialFolderCount = sizeof specialFolderCsidl / sizeof specialFolderCsidl[0];

// The native lock guards the special-folder table and the three data
// folders. The table is filled once under it and read without it after.
struct CFolderState {
  CRITICAL_SECTION lock;
  bool tableFilled;
  int table[specialFolderCount];
  CUnicodeString dataPaths[3];

  CFolderState() : tableFilled(false), table() { ::InitializeCriticalSection(&lock); }
  ~CFolderState() { ::DeleteCriticalSection(&lock); }
};

CFolderState& FolderState() {
  static CFolderState state;
  return state;
}

class CFolderLock {
 public:
  CFolderLock() : state(FolderState()) { ::EnterCriticalSection(&state.lock); }
  ~CFolderLock() { ::LeaveCriticalSection(&state.lock); }
  CFolderLock(const CFolderLock&) = delete;
  CFolderLock& operator=(const CFolderLock&) = delete;
  CFolderState& state;
};

// The process's one native file system, registered with the router before main.
struct CNativeFileSystemHolder {
  CNativeFileSystem fileSystem;
  CNativeFileSystemHolder() { SetNativeFileSystem(&fileSystem); }
};
CNativeFileSystemHolder nativeFileSystemHolder;

// A probe of a drive that has no disk must not ask the user to insert one.
class CQuietErrorMode {
 public:
  CQuietErrorMode() : saved(::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX)) {
    ::SetErrorMode(saved | SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
  }
  ~CQuietErrorMode() { ::SetErrorMode(saved); }
  CQuietErrorMode(const CQuietErrorMode&) = delete;
  CQuietErrorMode& operator=(const CQuietErrorMode&) = delete;

 private:
  UINT saved;
};

// True when FindFirstFileW finds anything for `pattern`.
bool ProbeFind(const CUnicodeString& pattern) {
  CQuietErrorMode quiet;
  WIN32_FIND_DATAW data;
  HANDLE find = ::FindFirstFileW(pattern.Text(), &data);
  if (find == INVALID_HANDLE_VALUE) return false;
  ::FindClose(find);
  return true;
}

// A search handle; the destructor closes it on the failure paths, where a
// failing close has nothing to add.
class CFindHandle {
 public:
  explicit CFindHandle(HANDLE handle) : handle(handle) {}
  ~CFindHandle() {
    if (handle != INVALID_HANDLE_VALUE) ::FindClose(handle);
  }
  CFindHandle(const CFindHandle&) = delete;
  CFindHandle& operator=(const CFindHandle&) = delete;
  // Closes now; false when the platform refused.
  bool Close() {
    HANDLE closing = handle;
    handle = INVALID_HANDLE_VALUE;
    return ::FindClose(closing) != FALSE;
  }
  HANDLE handle;
};

bool IsDotOrDotDot(const wchar_t* name) {
  return name[0] == L'.' && (name[1] == 0 || (name[1] == L'.' && name[2] == 0));
}

bool IsDirectory(const CFileStatus& status) { return (status.Attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }

// Whether CollectFiles takes an entry with `flags`.
bool FlagsAllow(const CFileStatus& status, uint32_t flags) {
  if ((status.Attributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) != 0 && (flags & CF_HiddenAndSystem) == 0)
    return false;
  return (flags & (IsDirectory(status) ? CF_Directories : CF_Files)) != 0;
}

void FillTable(CFolderState& state) {
  for (int32_t i = 0; i < specialFolderCount; ++i) state.table[i] = specialFolderCsidl[i];
  state.tableFilled = true;
}

}  // namespace

// ---- Times -----------------------------------------------------------------

CTime TimeFromFileTime(const FILETIME& fileTime) {
  int64_t ticks = int64_t((uint64_t(fileTime.dwHighDateTime) << 32) | fileTime.dwLowDateTime);
  TSL_ASSERT(ticks >= 0, L"nativefilesystem", 124);
  return CTime(ticks >= 0 ? ticks : 0);
}

FILETIME FileTimeFromTime(const CTime& time) {
  FILETIME result;
  result.dwLowDateTime = DWORD(uint64_t(time.GetTicks()) & 0xFFFFFFFFu);
  result.dwHighDateTime = DWORD(uint64_t(time.GetTicks()) >> 32);
  return result;
}

// ---- Opening and closing ---------------------------------------------------

CBaseFile* CNativeFileSystem::CreateFile(const CUnicodeString& path, uint32_t access, uint32_t share,
                                         LPSECURITY_ATTRIBUTES security, uint32_t disposition,
                                         uint32_t attributes, HANDLE templateFile, uint32_t, uint32_t, CFile*) {
  CNativeFile* file = new CNativeFile();
  try {
    file->Open(path, access, share, security, disposition, attributes, templateFile);
  } catch (...) {
    delete file;
    throw;
  }
  return file;
}

void CNativeFileSystem::CloseFile(CBaseFile* file, bool abort) {
  TSL_ASSERT(file != nullptr, L"nativefilesystem", 151);
  if (file == nullptr) return;
  try {
    if (abort)
      file->Abort();
    else
      file->Close();
  } catch (...) {
    delete file;
    throw;
  }
  delete file;
}

// ---- Existence ---------------------------------------------------------------

bool CNativeFileSystem::DirectoryExists(const CUnicodeString& path) {
  if (path.IsEmpty()) return false;
  try {
    CUnicodeString full(path);
    NormalizePath(full);
    // Only a full path can be probed: a drive path or a UNC path.
    if (full.Length() < 3 || (ClassifyPath(full) != PathUnc && full[1] != L':')) return false;
    if (full.Length() == 3 && full[1] == L':' && IsPathSeparator(full[2])) {
      CQuietErrorMode quiet;
      return ::GetDriveTypeW(full.Text()) != DRIVE_NO_ROOT_DIR;
    }
    // An empty folder still shows its "." entry.
    return ProbeFind(MergePath(full, L"*"));
  } catch (CFileException* failure) {
    delete failure;
    return false;
  }
}

bool CNativeFileSystem::FileExists(const CUnicodeString& path, uint32_t mode) {
  if (path.IsEmpty()) return false;
  // Existence alone: also true for a directory and for a wildcard match.
  if (mode == CFile::ModeExistenceOnly) return ProbeFind(path);
  TSL_ASSERT((mode & CFile::ShareMask) != 0, L"nativefilesystem", 190);
  HANDLE handle = ::CreateFileW(path.Text(), CFile::AccessOfFlags(mode), CFile::ShareOfFlags(mode), nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  ::CloseHandle(handle);
  return true;
}

// ---- Attributes and single files -------------------------------------------

void CNativeFileSystem::SetFileAttributes(const CUnicodeString& path, uint32_t attributes) {
  if (!::SetFileAttributesW(path.Text(), attributes)) GenerateFileError(::GetLastError(), path);
}

uint32_t CNativeFileSystem::GetFileAttributes(const CUnicodeString& path) {
  DWORD attributes = ::GetFileAttributesW(path.Text());
  if (attributes == INVALID_FILE_ATTRIBUTES) GenerateFileError(::GetLastError(), path);
  return attributes;
}

void CNativeFileSystem::DeleteFile(const CUnicodeString& path) {
  if (!::DeleteFileW(path.Text())) GenerateFileError(::GetLastError(), path);
}

bool CNativeFileSystem::TryDeleteFile(const CUnicodeString& path) { return ::DeleteFileW(path.Text()) != FALSE; }

// Throws unless a copy may be written to `destination`: its folder must
// exist when it is new, and it must open for writing when it exists.
static void CheckWritable(CNativeFileSystem& fileSystem, const CUnicodeString& destination) {
  if (!fileSystem.FileExists(destination, CFile::ModeExistenceOnly)) {
    CUnicodeString full(destination);
    NormalizePath(full);
    CUnicodeString folder = GetDriveAndDirectory(full);
    if (!fileSystem.DirectoryExists(folder)) GenerateFileErrorOfKind(FE_BadPath, folder);
  } else if (!fileSystem.FileExists(destination, CFile::ModeWrite | CFile::ShareExclusive)) {
    GenerateFileErrorOfKind(FE_AccessDenied, destination);
  }
}

void CNativeFileSystem::CopyFile(const CUnicodeString& destination, const CUnicodeString& source) {
  if (::CopyFileW(source.Text(), destination.Text(), FALSE)) return;
  if (!FileExists(source, CFile::ShareDenyWrite)) GenerateFileError(::GetLastError(), source);
  // The target may be what stood in the way (a read-only or hidden file the
  // platform refuses to overwrite): it goes, and the copy is tried once more.
  CheckWritable(*this, destination);
  if (FileExists(destination, CFile::ModeExistenceOnly)) DeleteFile(destination);
  if (!::CopyFileW(source.Text(), destination.Text(), FALSE)) GenerateFileError(::GetLastError(), destination);
}

void CNativeFileSystem::MoveFile(const CUnicodeString& destination, const CUnicodeString& source) {
  const DWORD flags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED | MOVEFILE_WRITE_THROUGH;
  if (!::MoveFileExW(source.Text(), destination.Text(), flags)) GenerateFileError(::GetLastError(), destination);
}

void CNativeFileSystem::MoveFileReplace(const CUnicodeString& destination, const CUnicodeString& source) {
  if (!::MoveFileExW(source.Text(), destination.Text(), MOVEFILE_REPLACE_EXISTING))
    GenerateFileError(::GetLastError(), destination);
}

void CNativeFileSystem::RenameFile(const CUnicodeString& source, const CUnicodeString& destination) {
  if (!::MoveFileW(source.Text(), destination.Text())) GenerateFileError(::GetLastError(), destination);
}

int32_t CNativeFileSystem::GetFreeSpace(const CUnicodeString& path) {
  CUnicodeString root = GetPathRoot(path);
  ToBackslashes(root);
  ULARGE_INTEGER available;
  if (!::GetDiskFreeSpaceExW(root.Text(), &available, nullptr, nullptr)) GenerateFileError(::GetLastError(), path);
  // Kilobytes in 31 bits: anything from 2 TB up reads as the largest count.
  uint64_t kilobytes = available.QuadPart >> 10;
  if (available.HighPart > 1023 || kilobytes > 0x7FFFFFFF) return 0x7FFFFFFF;
  return int32_t(kilobytes);
}

// ---- Directories ---------------------------------------------------------------

void CNativeFileSystem::CreateDirectory(const CUnicodeString& path, bool failIfExists) {
  DWORD error = ::CreateDirectoryW(path.Text(), nullptr) ? 0 : ::GetLastError();
  if (error == ERROR_PATH_NOT_FOUND || error == ERROR_FILE_NOT_FOUND) {
    // The parent is missing: make it first (through the virtual call, so
    // the whole chain), then try once more.
    CUnicodeString parent(path);
    if (!parent.IsEmpty() && IsPathSeparator(parent[parent.Length() - 1])) parent = parent.Left(parent.Length() - 1);
    int32_t separator = parent.IsEmpty() ? -1 : FindParentSeparator(parent);
    if (separator >= 0) {
      CreateDirectory(parent.Left(separator), false);
      error = ::CreateDirectoryW(path.Text(), nullptr) ? 0 : ::GetLastError();
    }
  }
  if (error == 0) return;
  // Also when the retry says so: another program (a second agent making the
  // same log folder) may have made the folder between the two calls, and a
  // caller that doesn't mind its existing must not fail for that race.
  if (error == ERROR_ALREADY_EXISTS && !failIfExists) return;
  GenerateFileError(error, path);
}

void CNativeFileSystem::RemoveDirectory(const CUnicodeString& path) {
  if (!::RemoveDirectoryW(path.Text())) GenerateFileError(::GetLastError(), path);
}

void CNativeFileSystem::EnumerateFiles(const CUnicodeString& directory, CFileStatusArray& result,
                                       const CUnicodeString& mask) {
  result.DeleteAll();
  CUnicodeString search = ToLongPath(MergePath(directory, mask));
  WIN32_FIND_DATAW data;
  CFindHandle find(::FindFirstFileW(search.Text(), &data));
  if (find.handle == INVALID_HANDLE_VALUE) {
    DWORD error = ::GetLastError();
    // No match is an empty listing; a missing folder is an error.
    if (error == ERROR_NO_MORE_FILES || error == ERROR_FILE_NOT_FOUND) return;
    GenerateFileError(error, directory);
  }
  do {
    if (IsDotOrDotDot(data.cFileName)) continue;
    CFileStatus& status = result[result.Add(CFileStatus())];
    status.Name = data.cFileName;
    status.FullName = ResolvePath(directory, status.Name);
    status.CreationTime = TimeFromFileTime(data.ftCreationTime);
    status.LastWriteTime = TimeFromFileTime(data.ftLastWriteTime);
    status.LastAccessTime = TimeFromFileTime(data.ftLastAccessTime);
    status.Length = int64_t((uint64_t(data.nFileSizeHigh) << 32) | data.nFileSizeLow);
    status.Attributes = data.dwFileAttributes;
  } while (::FindNextFileW(find.handle, &data));
  DWORD error = ::GetLastError();
  if (error != ERROR_NO_MORE_FILES && error != ERROR_FILE_NOT_FOUND) {
    find.Close();
    GenerateFileError(error, directory);
  }
  if (!find.Close()) GenerateFileError(::GetLastError(), directory);
}

// ---- Status ----------------------------------------------------------------------

void CNativeFileSystem::GetFileStatus(const CUnicodeString& path, CFileStatus& status) {
  status.FullName = path;
  status.Name = GetNameWithExtension(status.FullName);
  NormalizePath(status.FullName);
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!::GetFileAttributesExW(status.FullName.Text(), GetFileExInfoStandard, &data))
    GenerateFileError(::GetLastError(), path);
  status.CreationTime = TimeFromFileTime(data.ftCreationTime);
  status.LastWriteTime = TimeFromFileTime(data.ftLastWriteTime);
  status.LastAccessTime = TimeFromFileTime(data.ftLastAccessTime);
  status.Length = int64_t((uint64_t(data.nFileSizeHigh) << 32) | data.nFileSizeLow);
  status.Attributes = data.dwFileAttributes;
}

void CNativeFileSystem::SetFileStatus(const CUnicodeString& path, const CFileStatus& status) {
  DWORD current = ::GetFileAttributesW(path.Text());
  if (current == INVALID_FILE_ATTRIBUTES) GenerateFileError(::GetLastError(), path);
  bool attributesDiffer = current != status.Attributes;
  bool wasReadOnly = (current & FILE_ATTRIBUTE_READONLY) != 0;
  // A read-only file takes its new attributes first, or it could not be
  // opened for its times.
  if (attributesDiffer && wasReadOnly) SetFileAttributes(path, status.Attributes);
  bool hasCreation = status.CreationTime != NullTime;
  bool hasAccess = status.LastAccessTime != NullTime;
  bool hasWrite = status.LastWriteTime != NullTime;
  // Without any time the call ends here, and new attributes of a writable
  // file are not set: callers rely on a status without times being a no-op.
  if (!hasCreation && !hasAccess && !hasWrite) return;
  HANDLE handle = ::CreateFileW(path.Text(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) GenerateFileError(::GetLastError(), path);
  FILETIME creation = FileTimeFromTime(status.CreationTime);
  FILETIME access = FileTimeFromTime(status.LastAccessTime);
  FILETIME write = FileTimeFromTime(status.LastWriteTime);
  if (!::SetFileTime(handle, hasCreation ? &creation : nullptr, hasAccess ? &access : nullptr,
                     hasWrite ? &write : nullptr)) {
    DWORD error = ::GetLastError();
    ::CloseHandle(handle);
    GenerateFileError(error, path);
  }
  if (!::CloseHandle(handle)) GenerateFileError(::GetLastError(), path);
  // A file that becomes read-only gets the bit last, after its times.
  if (attributesDiffer && !wasReadOnly) SetFileAttributes(path, status.Attributes);
}

// ---- Helpers on any file system ----------------------------------------------

void CFileSystemBase::DeleteTree(const CUnicodeString& path, bool clearReadOnly) {
  CFileStatusArray entries;
  EnumerateFiles(path, entries, L"*.*");
  for (int32_t i = 0; i < entries.GetSize(); ++i) {
    const CFileStatus& entry = entries[i];
    if (IsDirectory(entry)) {
      // A link to a folder goes as a link, not followed: the tree it points
      // to is not ours, and may hold this very folder.
      if ((entry.Attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        RemoveDirectory(entry.FullName);
      else
        DeleteTree(entry.FullName, clearReadOnly);
      continue;
    }
    if (clearReadOnly && (entry.Attributes & FILE_ATTRIBUTE_READONLY) != 0)
      SetFileAttributes(entry.FullName, entry.Attributes & ~uint32_t(FILE_ATTRIBUTE_READONLY));
    DeleteFile(entry.FullName);
  }
  uint32_t attributes = GetFileAttributes(path);
  // The folder itself loses its read-only bit whatever the caller asked.
  if ((attributes & FILE_ATTRIBUTE_READONLY) != 0)
    SetFileAttributes(path, attributes & ~uint32_t(FILE_ATTRIBUTE_READONLY));
  RemoveDirectory(path);
}

void CFileSystemBase::CollectFiles(const CUnicodeString& directory, CFileStatusArray& result,
                                   const CUnicodeString& masks, uint32_t flags, IDirectoryFilter* filter) {
  if (filter != nullptr && !filter->AcceptDirectory(directory)) return;
  CFileStatusArray entries;
  for (int32_t start = 0; start <= masks.Length();) {
    int32_t end = masks.Find(L';', start);
    if (end < 0) end = masks.Length();
    // Each piece as written: a blank belongs to the names it matches. An
    // empty piece (";;", a closing ";") matches no name and is not asked.
    CUnicodeString mask = masks.Mid(start, end - start);
    start = end + 1;
    if (mask.IsEmpty()) continue;
    EnumerateFiles(directory, entries, mask);
    for (int32_t i = 0; i < entries.GetSize(); ++i)
      if (FlagsAllow(entries[i], flags)) result.Add(entries[i]);
  }
  if ((flags & CF_Recursive) == 0) return;
  EnumerateFiles(directory, entries, L"*");
  uint32_t directoryFlags = (flags & CF_HiddenAndSystem) | CF_Directories;
  for (int32_t i = 0; i < entries.GetSize(); ++i) {
    // A link to a folder is not followed: it may lead back up the tree, and
    // the files behind it belong to another tree.
    if (!FlagsAllow(entries[i], directoryFlags) || (entries[i].Attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
      continue;
    CUnicodeString below = entries[i].FullName;
    StripTrailingSeparator(below);
    CollectFiles(below, result, masks, flags, filter);
  }
}

// The array's quicksort: the middle element as pivot, a selection sort for
// short runs.
static void SortByPath(CFileStatusArray& items, int32_t low, int32_t high) {
  while (high - low + 1 > 8) {
    CUnicodeString pivot = items[low + (high - low) / 2].FullName;
    int32_t i = low, j = high;
    while (i <= j) {
      while (ComparePaths(items[i].FullName, pivot) < 0) ++i;
      while (ComparePaths(items[j].FullName, pivot) > 0) --j;
      if (i <= j) std::swap(items[i++], items[j--]);
    }
    // Recurse into the smaller side, loop on the larger: the stack stays shallow.
    if (j - low < high - i) {
      SortByPath(items, low, j);
      low = i;
    } else {
      SortByPath(items, i, high);
      high = j;
    }
  }
  for (int32_t i = low; i < high; ++i) {
    int32_t least = i;
    for (int32_t k = i + 1; k <= high; ++k)
      if (ComparePaths(items[k].FullName, items[least].FullName) < 0) least = k;
    if (least != i) std::swap(items[i], items[least]);
  }
}

void CFileSystemBase::SortFileStatus(CFileStatusArray& result) {
  if (result.GetSize() < 2) return;
  SortByPath(result, 0, result.GetSize() - 1);
  int32_t kept = 1;
  for (int32_t i = 1; i < result.GetSize(); ++i) {
    if (ComparePaths(result[i].FullName, result[kept - 1].FullName) == 0) continue;
    if (i != kept) result[kept] = result[i];
    ++kept;
  }
  result.SetSize(kept);
}

// ---- Long paths ------------------------------------------------------------------

CUnicodeString CollapseDots(const CUnicodeString& path, EPathKind kind) {
  TSL_ASSERT(kind == PathDriveAbsolute || kind == PathUnc, L"nativefilesystem", 464);
  CPathComponents parts;
  SplitPathComponents(path, parts);
  TSL_ASSERT(parts.GetSize() > 0, L"nativefilesystem", 467);
  // The drive, or server and share, are never climbed above.
  int32_t fixed = kind == PathUnc ? 2 : 1;
  int32_t written = 0;
  for (int32_t i = 0; i < parts.GetSize(); ++i) {
    if (i >= fixed) {
      if (parts[i] == L".") continue;
      if (parts[i] == L"..") {
        if (written > fixed) --written;
        continue;
      }
    }
    if (written != i) parts[written] = parts[i];
    ++written;
  }
  parts.SetSize(written);
  return JoinPathComponents(parts, kind);
}

CUnicodeString ToLongPath(const CUnicodeString& path) {
  if (path.Length() <= MAX_PATH) return path;
  // A path that has the prefix already is taken as the caller wrote it.
  if (path.Length() >= 4 && path[0] == L'\\' && path[1] == L'\\' && path[2] == L'?' && path[3] == L'\\') return path;
  switch (ClassifyPath(path)) {
    case PathUnc: return L"\\\\?\\UNC\\" + CollapseDots(path, PathUnc).Mid(2);
    case PathDriveAbsolute: return L"\\\\?\\" + CollapseDots(path, PathDriveAbsolute);
    default: return path;
  }
}

// ---- Special folders ---------------------------------------------------------------

CUnicodeString GetSpecialFolder(ESpecialFolder folder) {
  int csidl = 0;
  {
    CFolderLock locked;
    if (!locked.state.tableFilled) FillTable(locked.state);
    bool known = folder >= 0 && folder < specialFolderCount;
    TSL_ASSERT(known, L"nativefilesystem", 505);
    if (known) csidl = locked.state.table[folder];
  }
  CUnicodeString result;
  wchar_t* buffer = result.GetBuffer(MAX_PATH);
  buffer[0] = 0;
  HRESULT status = ::SHGetFolderPathW(nullptr, csidl, nullptr, 0, buffer);
  if (status < 0) {
    // Folders without a path of their own in the newer call are reached
    // through their item list.
    buffer[0] = 0;
    LPITEMIDLIST items = nullptr;
    HRESULT located = ::SHGetSpecialFolderLocation(nullptr, csidl, &items);
    if (located < 0) GenerateComError(located);
    if (!::SHGetPathFromIDListW(items, buffer)) buffer[0] = 0;
    ::CoTaskMemFree(items);
  }
  result.SetBufferLength(int32_t(wcslen(buffer)));
  // No path stays empty, where the separator rule would give "\": a caller
  // can tell a folder the system doesn't have, and a lone separator would
  // resolve to the root of whatever drive is current and put the caller's
  // data there.
  return result.IsEmpty() ? result : AddTrailingSeparator(result);
}

void SetDataPath(EDataPathKind kind, const CUnicodeString& path) {
  CFolderLock locked;
  bool known = kind >= DataPathApplication && kind <= DataPathCommon;
  TSL_ASSERT(known, L"nativefilesystem", 530);
  if (known) locked.state.dataPaths[kind] = CUnicodeString(path.Text(), path.Length());
}

CUnicodeString GetDataPath(EDataPathKind kind) {
  CFolderLock locked;
  bool known = kind >= DataPathApplication && kind <= DataPathCommon;
  TSL_ASSERT(known, L"nativefilesystem", 537);
  return known ? locked.state.dataPaths[kind] : CUnicodeString();
}

void InitDataPaths(const CUnicodeString& relativePath) {
  // The folder queries may be slow and take their own lock: only the store
  // happens under the native lock.
  SetDataPath(DataPathLocal, ResolvePath(GetSpecialFolder(SF_LocalAppData), relativePath));
  SetDataPath(DataPathApplication, ResolvePath(GetSpecialFolder(SF_AppData), relativePath));
  SetDataPath(DataPathCommon, ResolvePath(GetSpecialFolder(SF_CommonAppData), relativePath));
}

void ClearSpecialFolders() {
  CFolderLock locked;
  locked.state.tableFilled = false;
}

CNativeFileSystem& GetNativeFileSystemObject() { return nativeFileSystemHolder.fileSystem; }

}  // namespace Tsl
