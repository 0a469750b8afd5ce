// The file layer's front end: the choice of file system for a path, the
// string work on paths (classification, split and join, normalisation, the
// equality of paths), the system folders, and the bookkeeping of temporary
// files. Everything that takes a path goes through here.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "array.h"
#include "tsltime.h"
#include "unicodestring.h"

// The platform's headers rename these to their wide forms; here they are the
// names of our own operations, and the platform is called by the W names.
#undef CreateFile
#undef DeleteFile
#undef CopyFile
#undef MoveFile
#undef GetFileAttributes
#undef SetFileAttributes
#undef CreateDirectory
#undef RemoveDirectory
#undef GetFreeSpace

namespace Tsl {

class CBaseFile;
class CFile;

// One directory entry. A time equal to the null time (0) means "no time": as
// input to SetFileStatus it leaves that time of the file unchanged.
struct CFileStatus {
  CTime CreationTime;
  CTime LastWriteTime;
  CTime LastAccessTime;
  int64_t Length;
  uint32_t Attributes;     // the platform's FILE_ATTRIBUTE_* bits
  CUnicodeString FullName;
  CUnicodeString Name;     // name and extension

  CFileStatus() : Length(0), Attributes(0) {}
};

typedef CArray<CFileStatus> CFileStatusArray;
// Components of a path, names of a listing.
typedef CArray<CUnicodeString> CPathComponents;

// Hash and equality of path keys for the hash containers: HashPath and
// ComparePaths, so that two spellings of one path are one key.
struct CPathKeyTraits {
  static uint32_t Hash(const CUnicodeString& key);
  static bool IsEqual(const CUnicodeString& a, const CUnicodeString& b);
};

// Conversions between the platform's file times and CTime. A file time that
// would be negative as a count is an internal error and gives the null time.
CTime TimeFromFileTime(const FILETIME& fileTime);
FILETIME FileTimeFromTime(const CTime& time);

// Flags of CFileSystemBase::CollectFiles.
enum ECollectFlags : uint32_t {
  CF_Recursive = 0x1,        // go into subdirectories
  CF_HiddenAndSystem = 0x2,  // take hidden and system entries too
  CF_Files = 0x4,            // take files
  CF_Directories = 0x8,      // take directories
};

// Decides, for CollectFiles, whether a directory and everything below it is
// looked at.
class IDirectoryFilter {
 public:
  virtual ~IDirectoryFilter() {}
  virtual bool AcceptDirectory(const CUnicodeString& directory) = 0;
};

// The abstract file system. The native one serves every path that is not
// under the virtual root; the in-memory one serves the rest. The order of the
// virtual operations is part of the design: implementations keep it.
class CFileSystemBase {
 public:
  virtual ~CFileSystemBase() {}

  // Makes and opens the implementation object of a CFile. `access`, `share`,
  // `disposition` and `attributes` are the platform's values; the initial
  // size is used by the in-memory file system only; `owner` is the CFile.
  virtual CBaseFile* CreateFile(const CUnicodeString& path, uint32_t access, uint32_t share,
                                LPSECURITY_ATTRIBUTES security, uint32_t disposition,
                                uint32_t attributes, HANDLE templateFile, uint32_t initialSizeLow,
                                uint32_t initialSizeHigh, CFile* owner) = 0;
  // Closes (or with `abort`, aborts) a file this file system made, and
  // deletes it, also when the close throws.
  virtual void CloseFile(CBaseFile* file, bool abort) = 0;
  // False rather than an exception for bad paths.
  virtual bool DirectoryExists(const CUnicodeString& path) = 0;
  // `mode` is an open-flag word of CFile, or CFile::ModeExistenceOnly.
  virtual bool FileExists(const CUnicodeString& path, uint32_t mode) = 0;
  virtual void SetFileAttributes(const CUnicodeString& path, uint32_t attributes) = 0;
  virtual uint32_t GetFileAttributes(const CUnicodeString& path) = 0;
  virtual void DeleteFile(const CUnicodeString& path) = 0;
  // No exception: returns success.
  virtual bool TryDeleteFile(const CUnicodeString& path) = 0;
  virtual void CopyFile(const CUnicodeString& destination, const CUnicodeString& source) = 0;
  // Replaces an existing destination; may copy across volumes.
  virtual void MoveFile(const CUnicodeString& destination, const CUnicodeString& source) = 0;
  virtual void MoveFileReplace(const CUnicodeString& destination, const CUnicodeString& source) = 0;
  // Note the order: source first, unlike the two above.
  virtual void RenameFile(const CUnicodeString& source, const CUnicodeString& destination) = 0;
  // KB available to the caller on the volume of `path`; 0x7FFFFFFF when more.
  virtual int32_t GetFreeSpace(const CUnicodeString& path) = 0;
  // Makes missing parents too.
  virtual void CreateDirectory(const CUnicodeString& path, bool failIfExists) = 0;
  virtual void RemoveDirectory(const CUnicodeString& path) = 0;
  // The entries of `directory` matching `mask`, without "." and "..", in the
  // file system's order. A mask without a match gives an empty result.
  virtual void EnumerateFiles(const CUnicodeString& directory, CFileStatusArray& result,
                              const CUnicodeString& mask) = 0;
  virtual void GetFileStatus(const CUnicodeString& path, CFileStatus& status) = 0;
  // Sets attributes and the times that are not null.
  virtual void SetFileStatus(const CUnicodeString& path, const CFileStatus& status) = 0;

  // Deletes `path` and everything below it. Read-only files are an error
  // unless `clearReadOnly`; a read-only directory is always cleared.
  void DeleteTree(const CUnicodeString& path, bool clearReadOnly);
  // Appends to `result` the entries of `directory` that match any of the
  // ";"-separated `masks` and that `flags` (ECollectFlags) allow. `filter`
  // may be null. Duplicates are possible; SortFileStatus removes them.
  void CollectFiles(const CUnicodeString& directory, CFileStatusArray& result,
                    const CUnicodeString& masks, uint32_t flags, IDirectoryFilter* filter);
  // Sorts by full name as paths compare and removes equal neighbours.
  static void SortFileStatus(CFileStatusArray& result);
};

// What a path looks like at its start. The first character of a drive path
// is not tested to be a letter.
enum EPathKind : int32_t {
  PathRelative = 0,       // none of the others; also the empty path
  PathRooted = 1,         // one separator first; also a mixed "\/" start
  PathUnc = 2,            // two equal separators first
  PathDriveRelative = 3,  // "X:" with no separator behind
  PathDriveAbsolute = 4,  // "X:" and a separator
};

// ---- Choosing a file system ----------------------------------------------

// The text "\\Tavix\Tessels\VirtualFiles$\": paths that start with it, in any
// case and spelled with backslashes, belong to the in-memory file system.
const CUnicodeString& GetVirtualRootPath();
// True when `path` starts with the whole virtual root, last separator
// included (compared without regard to case). No normalising takes place.
bool IsVirtualPath(const CUnicodeString& path);
// The file system that owns `path`. A virtual path after the in-memory file
// system's end raises a bad-path file error.
CFileSystemBase* GetFileSystem(const CUnicodeString& path);
// Registration of the two file systems by their static objects. Registering
// the native one twice is an internal error; the virtual one may be unset
// again with null at its end of life.
void SetNativeFileSystem(CFileSystemBase* fileSystem);
void SetVirtualFileSystem(CFileSystemBase* fileSystem);
CFileSystemBase* GetNativeFileSystem();
CFileSystemBase* GetVirtualFileSystem();

// Forwarders to the file system of the path.
bool DirectoryExists(const CUnicodeString& path);
bool FileExists(const CUnicodeString& path, uint32_t mode);
void CreateDirectory(const CUnicodeString& path, bool failIfExists);

// ---- String work on paths -------------------------------------------------
// Both '\' and '/' are separators wherever one is looked for. None of these
// touch the disk unless said so, and none keep state.

inline bool IsPathSeparator(wchar_t unit) { return unit == L'\\' || unit == L'/'; }

EPathKind ClassifyPath(const CUnicodeString& path);
// Cuts the trimmed path at its separators into `parts` (empty components
// vanish) and returns its kind. "C:x\y" gives "C:", "x", "y"; "\\s\h\x"
// gives "s", "h", "x".
EPathKind SplitPathComponents(const CUnicodeString& path, CPathComponents& parts);
// Puts parts back together under `kind`; the inverse of the split.
CUnicodeString JoinPathComponents(const CPathComponents& parts, EPathKind kind);

// The C runtime's split and make. Each output may be null when not wanted.
void SplitPath(const CUnicodeString& path, CUnicodeString* drive, CUnicodeString* directory,
               CUnicodeString* name, CUnicodeString* extension);
CUnicodeString MakePath(const CUnicodeString& drive, const CUnicodeString& directory,
                        const CUnicodeString& name, const CUnicodeString& extension);
// `directory` (trimmed, with a trailing separator) followed by the name and
// extension of `fileSpec`; any folder in `fileSpec` is dropped.
CUnicodeString MergePath(const CUnicodeString& directory, const CUnicodeString& fileSpec);
CUnicodeString MergePath(const CUnicodeString& directory, const CUnicodeString& name,
                         const CUnicodeString& extension);
// `left` and `right` with exactly one separator between.
CUnicodeString ConcatPath(const CUnicodeString& left, const CUnicodeString& right);
// `path` seen from the folder `base`. A drive-relative path takes the drive's
// current folder from the process. Throws CFileException only in that case.
CUnicodeString ResolvePath(const CUnicodeString& base, const CUnicodeString& path);
// ResolvePath, then NormalizePath.
CUnicodeString ResolveFullPath(const CUnicodeString& base, const CUnicodeString& path);
// In place: "C:" becomes "C:\", "C:\" and one-character paths stay, and
// otherwise one trailing separator is cut.
void StripTrailingSeparator(CUnicodeString& path);
// Ends the path with a separator: the one the path already uses last, or '\'.
CUnicodeString AddTrailingSeparator(const CUnicodeString& path);
// In place: trims white space, then makes the path full by the platform
// (current folder, "." and ".."). Empty stays empty. Throws CFileException.
void NormalizePath(CUnicodeString& path);
// The root with a trailing separator: "\\server\share\", "C:\" or "\".
CUnicodeString GetPathRoot(const CUnicodeString& path);
CUnicodeString GetDrive(const CUnicodeString& path);
CUnicodeString GetDirectory(const CUnicodeString& path);
CUnicodeString GetName(const CUnicodeString& path);
CUnicodeString GetExtension(const CUnicodeString& path);  // with its dot
CUnicodeString GetDriveAndDirectory(const CUnicodeString& path);
CUnicodeString GetNameWithExtension(const CUnicodeString& path);
// In place: the extension (with or without its dot) replaced.
void ReplaceExtension(CUnicodeString& path, const CUnicodeString& extension);
// Index of the separator before the last component, or -1 when the path has
// no parent (a root such as "\", "C:\" or "\\server").
int32_t FindParentSeparator(const CUnicodeString& path);
// In place: every '/' becomes '\'.
void ToBackslashes(CUnicodeString& path);
// The equality of paths: case-insensitive, '/' equal to '\', trailing
// separators of the longer side ignored. Negative, zero or positive.
int ComparePaths(const CUnicodeString& a, const CUnicodeString& b);
// A hash that agrees with ComparePaths: equal paths hash equal.
uint32_t HashPath(const CUnicodeString& path);
// Reads the disk: each component as the disk spells it (case, long names).
// Components that do not exist stay as given; virtual paths come back as
// they are.
CUnicodeString GetTruePath(const CUnicodeString& path);

// ---- System folders and executables ---------------------------------------
// Each throws CFileException with an empty name when the platform fails.

CUnicodeString GetWindowsFolder();
CUnicodeString GetSystemTempPath();  // without trailing separator
CUnicodeString GetModuleFilePath(HMODULE module);
CUnicodeString GetExecutablePath();
CUnicodeString GetExecutableFolder();  // drive and directory, trailing separator
// The names (name and extension) of the files in the folder `path` that
// match `mask`, sorted as paths, without duplicates. Reads through the file
// system of `path`.
void ListDirectory(const CUnicodeString& path, CPathComponents& names, const CUnicodeString& mask);

// ---- Temporary files ------------------------------------------------------

// The folder for temporary files: the configured one if it exists, else the
// system's temporary folder if it exists, else the Windows folder.
CUnicodeString GetTempFolder();
void SetTempFolder(const CUnicodeString& path);
// Reads the machine-wide `Temp` setting of the foundation and, when it is not
// empty, makes it the temporary folder. The library's start calls it.
void LoadTempFolderSetting();
// Makes a new, empty, uniquely named file (or folder) in the temporary folder
// and registers it for deletion at the end of the library. `prefix` starts
// the name (up to three characters are used for a file). A failure is a check
// error ERR_CREATE_TEMP_FILE naming the folder.
CUnicodeString CreateTempFile(const CUnicodeString& prefix);
CUnicodeString CreateTempDirectory(const CUnicodeString& prefix);
// Registers a file or folder made elsewhere for deletion at the end.
void RegisterTempFile(const CUnicodeString& path);
void RegisterTempDirectory(const CUnicodeString& path);
// At the library's end: deletes every registered file and folder (unless the
// debug flag KeepTempFiles is set) and forgets them. Failures are traced only.
void ClearTempFiles();

// At the library's end, after ClearTempFiles: empties the special-folder
// table and clears the in-memory file system (closing the virtual files
// left open).
void TerminateFileSystems();

}  // namespace Tsl
