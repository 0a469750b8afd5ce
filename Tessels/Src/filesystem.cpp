// The file layer's front end: routing of paths to the native or the in-memory
// file system, the string work on paths, the system folders and the
// temporary files that the library deletes at its end.
#include "filesystem.h"

#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <wctype.h>

#include "alloc.h"
#include "errors.h"
#include "hashtable.h"
#include "nativefilesystem.h"
#include "tessels.h"
#include "virtualfilesystem.h"

namespace Tsl {

namespace {

// Both file systems are static objects that register themselves before
// main; the pointers are zero until then.
CFileSystemBase* nativeFileSystem = nullptr;
CFileSystemBase* virtualFileSystem = nullptr;

bool IsLetter(wchar_t unit) { return (unit >= L'A' && unit <= L'Z') || (unit >= L'a' && unit <= L'z'); }

// Index of the last separator of `path`, or -1.
int32_t LastSeparator(const CUnicodeString& path) {
  for (int32_t i = path.Length() - 1; i >= 0; --i)
    if (IsPathSeparator(path[i])) return i;
  return -1;
}

CUnicodeString Trimmed(const CUnicodeString& path) {
  CUnicodeString copy(path);
  copy.TrimRight();
  copy.Trim();
  return copy;
}

// The temporary files' state: the configured folder and the two sets of
// what the library deletes at its end, under one lock. Made at first use so
// that no order of static construction matters.
struct CTempState {
  CRITICAL_SECTION lock;
  CUnicodeString folder;  // may be empty: then the system's folder is used
  CHashTable<CUnicodeString, CPathKeyTraits, RuntimeHeap> files;
  CHashTable<CUnicodeString, CPathKeyTraits, RuntimeHeap> directories;

  CTempState() { ::InitializeCriticalSection(&lock); }
  ~CTempState() { ::DeleteCriticalSection(&lock); }
};

CTempState& TempState() {
  static CTempState state;
  return state;
}

// The temporary files' lock together with the runtime heap: the state is
// process-wide and outlives whatever manager the calling thread has.
class CTempLock {
 public:
  CTempLock() : state(TempState()) { ::EnterCriticalSection(&state.lock); }
  ~CTempLock() { ::LeaveCriticalSection(&state.lock); }
  CTempLock(const CTempLock&) = delete;
  CTempLock& operator=(const CTempLock&) = delete;
  CTempState& state;

 private:
  CRuntimeHeapSwitch heap;
};

// The library's debug trace. Shipped builds are built without it.
void TraceWithName(const wchar_t* format, const CUnicodeString& name) {
#ifdef NDEBUG
  (void)format;
  (void)name;
#else
  if (IsDebugFlagSet(DF_QuietDebugTrace)) return;
  CUnicodeString text;
  text.Format(format, name.Text());
  ::OutputDebugStringW(text.Text());
#endif
}

}  // namespace

// ---- Choosing a file system ------------------------------------------------

const CUnicodeString& GetVirtualRootPath() {
  static const CUnicodeString root(L"\\\\Tavix\\Tessels\\VirtualFiles$\\");
  return root;
}

bool IsVirtualPath(const CUnicodeString& path) {
  const CUnicodeString& root = GetVirtualRootPath();
  // The root's last separator belongs to the test: the bare share name
  // "\\Tavix\Tessels\VirtualFiles$" is an ordinary network path.
  return path.Length() >= root.Length() && _wcsnicmp(path.Text(), root.Text(), size_t(root.Length())) == 0;
}

CFileSystemBase* GetFileSystem(const CUnicodeString& path) {
  if (IsVirtualPath(path)) {
    // The in-memory file system is there from before main to its static
    // end; a virtual path after that end names nothing that exists.
    if (virtualFileSystem == nullptr) GenerateFileErrorOfKind(FE_BadPath, path);
    return virtualFileSystem;
  }
  // The native file system registers itself before main.
  TSL_ASSERT(nativeFileSystem != nullptr, L"filesystem", 113);
  if (nativeFileSystem == nullptr) GenerateFileErrorOfKind(FE_BadPath, path);
  return nativeFileSystem;
}

void SetNativeFileSystem(CFileSystemBase* fileSystem) {
  TSL_ASSERT(nativeFileSystem == nullptr, L"filesystem", 119);
  nativeFileSystem = fileSystem;
}

void SetVirtualFileSystem(CFileSystemBase* fileSystem) {
  TSL_ASSERT(fileSystem == nullptr || virtualFileSystem == nullptr, L"filesystem", 124);
  virtualFileSystem = fileSystem;
}

CFileSystemBase* GetNativeFileSystem() { return nativeFileSystem; }
CFileSystemBase* GetVirtualFileSystem() { return virtualFileSystem; }

bool DirectoryExists(const CUnicodeString& path) { return GetFileSystem(path)->DirectoryExists(path); }

bool FileExists(const CUnicodeString& path, uint32_t mode) { return GetFileSystem(path)->FileExists(path, mode); }

void CreateDirectory(const CUnicodeString& path, bool failIfExists) {
  GetFileSystem(path)->CreateDirectory(path, failIfExists);
}

// ---- Classification, split and join ----------------------------------------

EPathKind ClassifyPath(const CUnicodeString& path) {
  int32_t length = path.Length();
  if (length == 0) return PathRelative;
  if (IsPathSeparator(path[0])) return length >= 2 && path[1] == path[0] ? PathUnc : PathRooted;
  if (length >= 2 && path[1] == L':')
    return length >= 3 && IsPathSeparator(path[2]) ? PathDriveAbsolute : PathDriveRelative;
  return PathRelative;
}

EPathKind SplitPathComponents(const CUnicodeString& path, CPathComponents& parts) {
  CUnicodeString rest = Trimmed(path);
  EPathKind kind = ClassifyPath(rest);
  parts.DeleteAll();
  // Cut from the back; the parts come out last first and are reversed below.
  int32_t end = rest.Length();
  while (end > 0) {
    int32_t separator = end - 1;
    while (separator >= 0 && !IsPathSeparator(rest[separator])) --separator;
    if (end - separator - 1 > 0) parts.Add(rest.Mid(separator + 1, end - separator - 1));
    end = separator < 0 ? 0 : separator;
  }
  for (int32_t i = 0, j = parts.GetSize() - 1; i < j; ++i, --j) {
    CUnicodeString swap = parts[i];
    parts[i] = parts[j];
    parts[j] = swap;
  }
  if (kind == PathDriveRelative && parts.GetSize() > 0) {
    // "C:x" is the drive and a first component run together.
    int32_t colon = parts[0].Find(L':');
    TSL_ASSERT(colon >= 0, L"filesystem", 170);
    if (colon >= 0 && colon + 1 < parts[0].Length()) {
      CUnicodeString first = parts[0];
      parts[0] = first.Left(colon + 1);
      parts.InsertAt(1, first.Mid(colon + 1));
    }
  }
  return kind;
}

CUnicodeString JoinPathComponents(const CPathComponents& parts, EPathKind kind) {
  CUnicodeString result;
  switch (kind) {
    case PathRooted: result = L"\\"; break;
    case PathUnc: result = L"\\\\"; break;
    case PathRelative:
    case PathDriveRelative:
    case PathDriveAbsolute: break;
    default: TSL_INTERNAL_ERROR(L"filesystem", 188); break;
  }
  for (int32_t i = 0; i < parts.GetSize(); ++i) {
    // A drive-relative path has no separator between drive and first part.
    if (i > 0 && !(kind == PathDriveRelative && i == 1)) result += L'\\';
    result += parts[i];
  }
  if (kind == PathDriveAbsolute && parts.GetSize() == 1 && parts[0].Length() > 0 &&
      parts[0][parts[0].Length() - 1] == L':')
    result += L'\\';
  return result;
}

// ---- The C runtime's split and make ------------------------------------------

void SplitPath(const CUnicodeString& path, CUnicodeString* drive, CUnicodeString* directory,
               CUnicodeString* name, CUnicodeString* extension) {
  // Each part is at most the whole path long.
  int32_t size = path.Length() + 1;
  wchar_t* driveBuffer = drive ? drive->GetBuffer(size) : nullptr;
  wchar_t* directoryBuffer = directory ? directory->GetBuffer(size) : nullptr;
  wchar_t* nameBuffer = name ? name->GetBuffer(size) : nullptr;
  wchar_t* extensionBuffer = extension ? extension->GetBuffer(size) : nullptr;
  errno_t failed = _wsplitpath_s(path.Text(), driveBuffer, drive ? size : 0, directoryBuffer,
                                 directory ? size : 0, nameBuffer, name ? size : 0, extensionBuffer,
                                 extension ? size : 0);
  TSL_ASSERT(failed == 0, L"filesystem", 214);
  CUnicodeString* outputs[4] = {drive, directory, name, extension};
  for (CUnicodeString* output : outputs)
    if (output) output->SetBufferLength(failed == 0 ? int32_t(wcslen(output->Text())) : 0);
}

CUnicodeString MakePath(const CUnicodeString& drive, const CUnicodeString& directory,
                        const CUnicodeString& name, const CUnicodeString& extension) {
  // The runtime may add a colon, a separator and a dot, and the terminator.
  int32_t size = drive.Length() + directory.Length() + name.Length() + extension.Length() + 4;
  if (size < 260) size = 260;
  CUnicodeString result;
  wchar_t* buffer = result.GetBuffer(size);
  errno_t failed = _wmakepath_s(buffer, size_t(size), drive.Text(), directory.Text(), name.Text(), extension.Text());
  TSL_ASSERT(failed == 0, L"filesystem", 228);
  result.SetBufferLength(failed == 0 ? int32_t(wcslen(buffer)) : 0);
  return result;
}

CUnicodeString GetDrive(const CUnicodeString& path) {
  CUnicodeString drive;
  SplitPath(path, &drive, nullptr, nullptr, nullptr);
  return drive;
}

CUnicodeString GetDirectory(const CUnicodeString& path) {
  CUnicodeString directory;
  SplitPath(path, nullptr, &directory, nullptr, nullptr);
  return directory;
}

CUnicodeString GetName(const CUnicodeString& path) {
  CUnicodeString name;
  SplitPath(path, nullptr, nullptr, &name, nullptr);
  return name;
}

CUnicodeString GetExtension(const CUnicodeString& path) {
  CUnicodeString extension;
  SplitPath(path, nullptr, nullptr, nullptr, &extension);
  return extension;
}

CUnicodeString GetDriveAndDirectory(const CUnicodeString& path) {
  CUnicodeString drive, directory;
  SplitPath(path, &drive, &directory, nullptr, nullptr);
  return drive + directory;
}

CUnicodeString GetNameWithExtension(const CUnicodeString& path) {
  CUnicodeString name, extension;
  SplitPath(path, nullptr, nullptr, &name, &extension);
  return name + extension;
}

void ReplaceExtension(CUnicodeString& path, const CUnicodeString& extension) {
  CUnicodeString drive, directory, name;
  SplitPath(path, &drive, &directory, &name, nullptr);
  path = MakePath(drive, directory, name, extension);
}

// ---- Joining ---------------------------------------------------------------

CUnicodeString MergePath(const CUnicodeString& directory, const CUnicodeString& fileSpec) {
  return AddTrailingSeparator(Trimmed(directory)) + GetNameWithExtension(fileSpec);
}

CUnicodeString MergePath(const CUnicodeString& directory, const CUnicodeString& name,
                         const CUnicodeString& extension) {
  CUnicodeString result = AddTrailingSeparator(Trimmed(directory)) + name;
  if (!extension.IsEmpty() && extension[0] != L'.') result += L'.';
  return result + extension;
}

CUnicodeString ConcatPath(const CUnicodeString& left, const CUnicodeString& right) {
  if (left.IsEmpty()) return right;
  int count = 0;
  if (IsPathSeparator(left[left.Length() - 1])) {
    ++count;
    if (!right.IsEmpty() && IsPathSeparator(right[0])) ++count;
  } else if (!right.IsEmpty() && IsPathSeparator(right[0])) {
    ++count;
  }
  if (count == 0) return AddTrailingSeparator(left) + right;
  if (count == 1) return left + right;
  return left.Left(left.Length() - 1) + right;
}

CUnicodeString ResolvePath(const CUnicodeString& base, const CUnicodeString& path) {
  switch (ClassifyPath(path)) {
    case PathRelative: return ConcatPath(base, path);
    case PathRooted: return ConcatPath(GetPathRoot(base), path);
    case PathDriveRelative: {
      // The drive's current folder is the process's, not `base`.
      CUnicodeString full(path);
      NormalizePath(full);
      return full;
    }
    default: return path;
  }
}

CUnicodeString ResolveFullPath(const CUnicodeString& base, const CUnicodeString& path) {
  CUnicodeString result = ResolvePath(base, path);
  NormalizePath(result);
  return result;
}

// ---- Separators --------------------------------------------------------------

void StripTrailingSeparator(CUnicodeString& path) {
  int32_t length = path.Length();
  // A drive's root keeps its separator: "C:" alone means the drive's current
  // folder, not its root.
  if (length == 3 && IsLetter(path[0]) && path[1] == L':' && IsPathSeparator(path[2])) return;
  if (length == 2 && IsLetter(path[0]) && path[1] == L':') {
    path += L'\\';
    return;
  }
  if (length < 2) return;
  if (IsPathSeparator(path[length - 1])) path = path.Left(length - 1);
}

CUnicodeString AddTrailingSeparator(const CUnicodeString& path) {
  int32_t last = LastSeparator(path);
  if (last < 0) return path + L'\\';
  if (last == path.Length() - 1) return path;
  // The path keeps the separator style it already uses.
  return path + path[last];
}

void ToBackslashes(CUnicodeString& path) {
  if (path.Find(L'/') < 0) return;
  wchar_t* text = path.GetBuffer(path.Length());
  for (int32_t i = 0; text[i] != 0; ++i)
    if (text[i] == L'/') text[i] = L'\\';
}

int32_t FindParentSeparator(const CUnicodeString& path) {
  int32_t last = LastSeparator(path);
  if (last < 1) return -1;
  // "\\server" and "C:\" have no parent; "\x" at index 1 of "a\x" does.
  if (last == 1 && ClassifyPath(path) == PathUnc) return -1;
  if (last == 2 && path[1] == L':') return -1;
  return last;
}

// ---- Full paths and roots --------------------------------------------------

// A failed call with no error recorded is a name the platform would not take.
static void GenerateFullPathError(const CUnicodeString& path) {
  DWORD error = ::GetLastError();
  GenerateFileError(error != 0 ? error : ERROR_INVALID_NAME, path);
}

void NormalizePath(CUnicodeString& path) {
  path.TrimRight();
  path.Trim();
  if (path.IsEmpty()) return;
  // The platform would read such a text only up to its zero and answer for
  // a different path, or fail without saying why.
  if (int32_t(wcslen(path.Text())) != path.Length()) GenerateFileError(ERROR_INVALID_NAME, path);
  DWORD size = 261;
  CUnicodeString full;
  ::SetLastError(0);
  DWORD result = ::GetFullPathNameW(path.Text(), size, full.GetBuffer(int32_t(size)), nullptr);
  if (result == 0) GenerateFullPathError(path);
  if (result > size) {
    // A result beyond the buffer is the size needed. A one-character path
    // ("." or a bare name) resolves against the current folder, which another
    // thread may lengthen between the two calls: it gets a margin.
    size = path.Length() == 1 ? result + 260 : result;
    ::SetLastError(0);
    result = ::GetFullPathNameW(path.Text(), size, full.GetBuffer(int32_t(size)), nullptr);
    if (result == 0) GenerateFullPathError(path);
  }
  TSL_ASSERT(result < size, L"filesystem", 379);
  full.SetBufferLength(result < size ? int32_t(result) : 0);
  path = full;
}

CUnicodeString GetPathRoot(const CUnicodeString& path) {
  CUnicodeString trimmed = Trimmed(path);
  if (ClassifyPath(trimmed) == PathUnc) {
    int32_t first = 2;
    while (first < trimmed.Length() && !IsPathSeparator(trimmed[first])) ++first;
    int32_t second = first + 1;
    while (second < trimmed.Length() && !IsPathSeparator(trimmed[second])) ++second;
    if (second < trimmed.Length()) return trimmed.Left(second + 1);
    return AddTrailingSeparator(trimmed);
  }
  return AddTrailingSeparator(GetDrive(trimmed));
}

// ---- Equality of paths ------------------------------------------------------

int ComparePaths(const CUnicodeString& a, const CUnicodeString& b) {
  const wchar_t* x = a.Text();
  const wchar_t* y = b.Text();
  for (; *x != 0 && *y != 0; ++x, ++y) {
    wchar_t cx = *x == L'/' ? L'\\' : *x;
    wchar_t cy = *y == L'/' ? L'\\' : *y;
    int result = _wcsnicmp(&cx, &cy, 1);
    if (result != 0) return result;
  }
  // One side ended: separators left on the other are a trailing separator.
  while (IsPathSeparator(*x)) ++x;
  while (IsPathSeparator(*y)) ++y;
  if (*x == 0 && *y == 0) return 0;
  return *x == 0 ? -1 : 1;
}

uint32_t HashPath(const CUnicodeString& path) {
  int32_t length = path.Length();
  while (length > 0 && IsPathSeparator(path[length - 1])) --length;
  uint32_t hash = 0;
  for (int32_t i = 0; i < length; ++i) {
    wchar_t unit = path[i] == L'/' ? L'\\' : path[i];
    hash = hash * 33 + uint32_t(towupper(unit));
  }
  return hash;
}

uint32_t CPathKeyTraits::Hash(const CUnicodeString& key) { return HashPath(key); }
bool CPathKeyTraits::IsEqual(const CUnicodeString& a, const CUnicodeString& b) { return ComparePaths(a, b) == 0; }

// ---- The disk's spelling ---------------------------------------------------

// The spelling of `component` in the folder `folder` (which ends with its
// separator or is empty), or the component itself when it is not found.
static CUnicodeString TrueComponent(const CUnicodeString& folder, const CUnicodeString& component) {
  // Not looked up, though the disk would answer: a wildcard would be replaced
  // by whichever entry the disk lists first, and "." or ".." by the name of
  // the folder they resolve to ("C:\a\b\.." would become "C:\a\b\a"),
  // both naming something else than the caller's path.
  if (component.Find(L'*') >= 0 || component.Find(L'?') >= 0 || component == L"." || component == L"..")
    return component;
  WIN32_FIND_DATAW data;
  HANDLE find = ::FindFirstFileW((folder + component).Text(), &data);
  if (find == INVALID_HANDLE_VALUE) return component;
  ::FindClose(find);
  return CUnicodeString(data.cFileName);
}

CUnicodeString GetTruePath(const CUnicodeString& path) {
  if (IsVirtualPath(path)) return path;
  CUnicodeString result;
  int32_t length = path.Length();
  int32_t position = 0;
  if (ClassifyPath(path) == PathUnc) {
    // Server and share are taken as written: they cannot be looked up.
    position = 2;
    for (int separators = 0; position < length && separators < 2; ++position)
      if (IsPathSeparator(path[position])) ++separators;
    result = path.Left(position);
  } else if (length >= 2 && IsLetter(path[0]) && path[1] == L':') {
    position = 2;
    result = path.Left(2);
  }
  while (position < length) {
    int32_t end = position;
    while (end < length && !IsPathSeparator(path[end])) ++end;
    CUnicodeString component = path.Mid(position, end - position);
    if (!component.IsEmpty()) component = TrueComponent(result, component);
    result += component;
    if (end < length) result += path[end];
    position = end + 1;
  }
  return result;
}

// ---- System folders ----------------------------------------------------------

// Asks a platform call that reports its size when given no buffer.
static CUnicodeString QueryFolder(UINT (*query)(LPWSTR buffer, UINT size)) {
  UINT size = query(nullptr, 0);
  if (size < 1) GenerateFileError(::GetLastError(), CUnicodeString());
  CUnicodeString result;
  UINT written = query(result.GetBuffer(int32_t(size)), size);
  if (written == 0) GenerateFileError(::GetLastError(), CUnicodeString());
  TSL_ASSERT(written < size, L"filesystem", 480);
  result.SetBufferLength(written < size ? int32_t(written) : 0);
  return result;
}

static UINT QueryWindowsDirectory(LPWSTR buffer, UINT size) { return ::GetWindowsDirectoryW(buffer, size); }
static UINT QueryTempPath(LPWSTR buffer, UINT size) { return ::GetTempPathW(size, buffer); }

CUnicodeString GetWindowsFolder() { return QueryFolder(QueryWindowsDirectory); }

CUnicodeString GetSystemTempPath() {
  CUnicodeString path = QueryFolder(QueryTempPath);
  StripTrailingSeparator(path);
  return path;
}

CUnicodeString GetModuleFilePath(HMODULE module) {
  for (DWORD size = 260;; size *= 2) {
    CUnicodeString result;
    wchar_t* buffer = result.GetBuffer(int32_t(size) + 1);
    DWORD written = ::GetModuleFileNameW(module, buffer, size + 1);
    if (written == 0) GenerateFileError(::GetLastError(), CUnicodeString());
    if (written <= size) {
      result.SetBufferLength(int32_t(written));
      return result;
    }
  }
}

CUnicodeString GetExecutablePath() { return GetModuleFilePath(nullptr); }

CUnicodeString GetExecutableFolder() { return GetDriveAndDirectory(GetExecutablePath()); }

void ListDirectory(const CUnicodeString& path, CPathComponents& names, const CUnicodeString& mask) {
  names.DeleteAll();
  CFileStatusArray found;
  GetFileSystem(path)->CollectFiles(path, found, mask, CF_Files, nullptr);
  CFileSystemBase::SortFileStatus(found);
  for (int32_t i = 0; i < found.GetSize(); ++i) names.Add(found[i].Name);
}

// ---- Temporary files ---------------------------------------------------------

CUnicodeString GetTempFolder() {
  CTempLock locked;
  CUnicodeString folder = locked.state.folder;
  if (!folder.IsEmpty() && DirectoryExists(folder)) return folder;
  try {
    folder = GetSystemTempPath();
    if (DirectoryExists(folder)) return folder;
  } catch (CException* failure) {
    delete failure;
  }
  return GetWindowsFolder();
}

void SetTempFolder(const CUnicodeString& path) {
  CTempLock locked;
  // A private copy: the caller's buffer may belong to another heap.
  locked.state.folder = CUnicodeString(path.Text(), path.Length());
}

void LoadTempFolderSetting() {
  // Read with the raw registry calls until the typed settings unit takes
  // this over: HKLM "Software\Tavix\Tessels", value "Temp", 32-bit view.
  HKEY key = nullptr;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Tavix\\Tessels", 0, KEY_READ | KEY_WOW64_32KEY, &key) !=
      ERROR_SUCCESS)
    return;
  wchar_t buffer[1024];
  DWORD type = 0;
  DWORD bytes = sizeof buffer - sizeof(wchar_t);
  LONG status = ::RegQueryValueExW(key, L"Temp", nullptr, &type, reinterpret_cast<BYTE*>(buffer), &bytes);
  ::RegCloseKey(key);
  if (status != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) return;
  buffer[bytes / sizeof(wchar_t)] = 0;
  CUnicodeString value(buffer);
  if (!value.IsEmpty()) SetTempFolder(value);
}

void RegisterTempFile(const CUnicodeString& path) {
  CTempLock locked;
  locked.state.files.Add(CUnicodeString(path.Text(), path.Length()));
}

void RegisterTempDirectory(const CUnicodeString& path) {
  CTempLock locked;
  locked.state.directories.Add(CUnicodeString(path.Text(), path.Length()));
}

CUnicodeString CreateTempFile(const CUnicodeString& prefix) {
  CUnicodeString folder = GetTempFolder();
  CUnicodeString name;
  if (::GetTempFileNameW(folder.Text(), prefix.Text(), 0, name.GetBuffer(MAX_PATH)) == 0) {
    GenerateCheckError(L"ERR_CREATE_TEMP_FILE", folder, CUnicodeString());
    return CUnicodeString();
  }
  name.SetBufferLength(int32_t(wcslen(name.Text())));
  RegisterTempFile(name);
  return name;
}

CUnicodeString CreateTempDirectory(const CUnicodeString& prefix) {
  CUnicodeString folder = GetTempFolder();
  static volatile LONG counter = 0;
  // The process id and a process-wide counter make the name unique among
  // the processes that share the folder; a leftover of an earlier process
  // with the same id is stepped over.
  for (int attempt = 0; attempt < 100; ++attempt) {
    CUnicodeString name;
    name.Format(L"%s%lx_%lx", prefix.Text(), ::GetCurrentProcessId(), ::InterlockedIncrement(&counter));
    CUnicodeString path = ConcatPath(folder, name);
    if (::CreateDirectoryW(path.Text(), nullptr)) {
      RegisterTempDirectory(path);
      return path;
    }
    if (::GetLastError() != ERROR_ALREADY_EXISTS) break;
  }
  GenerateCheckError(L"ERR_CREATE_TEMP_FILE", folder, CUnicodeString());
  return CUnicodeString();
}

void ClearTempFiles() {
  CTempLock locked;
  CTempState& state = locked.state;
  state.folder.Empty();
  if (!IsDebugFlagSet(DF_KeepTempFiles)) {
    for (const auto& entry : state.files) {
      try {
        GetFileSystem(entry.key)->DeleteFile(entry.key);
      } catch (CException* failure) {
        delete failure;
        TraceWithName(L"Warning: Can't delete temporary file %s\n", entry.key);
      }
    }
    for (const auto& entry : state.directories) {
      try {
        GetFileSystem(entry.key)->DeleteTree(entry.key, false);
      } catch (CException* failure) {
        delete failure;
        TraceWithName(L"Warning: Can't delete temporary directory %s\n", entry.key);
      }
    }
  }
  state.files.FreeBuffer();
  state.directories.FreeBuffer();
}

void TerminateFileSystems() {
  TSL_ASSERT(nativeFileSystem != nullptr, L"filesystem", 629);
  ClearSpecialFolders();
  TerminateVirtualFileSystem();
}

}  // namespace Tsl
