// The file system of the operating system: one static object serves every
// path that is not under the virtual root. Also the long-path form used by
// enumeration and the table of the platform's special folders with the
// application's three data folders.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "filesystem.h"
#include "unicodestring.h"

namespace Tsl {

class CNativeFileSystem : public CFileSystemBase {
 public:
  CNativeFileSystem() {}
  ~CNativeFileSystem() override {}

  // Makes a CNativeFile and opens it; the template, initial size and owner
  // are not used here.
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
  void CopyFile(const CUnicodeString& destination, const CUnicodeString& source) override;
  void MoveFile(const CUnicodeString& destination, const CUnicodeString& source) override;
  void MoveFileReplace(const CUnicodeString& destination, const CUnicodeString& source) override;
  void RenameFile(const CUnicodeString& source, const CUnicodeString& destination) override;
  int32_t GetFreeSpace(const CUnicodeString& path) override;
  void CreateDirectory(const CUnicodeString& path, bool failIfExists) override;
  void RemoveDirectory(const CUnicodeString& path) override;
  void EnumerateFiles(const CUnicodeString& directory, CFileStatusArray& result,
                      const CUnicodeString& mask) override;
  void GetFileStatus(const CUnicodeString& path, CFileStatus& status) override;
  void SetFileStatus(const CUnicodeString& path, const CFileStatus& status) override;
};

// ---- Long paths -------------------------------------------------------------

// The form of `path` that the platform accepts beyond 260 units: "\\?\" for
// a drive path, "\\?\UNC\" for a UNC path, with "." and ".." resolved here
// because the platform does not resolve them behind these prefixes. Paths of
// 260 units or fewer, and other kinds, come back unchanged.
CUnicodeString ToLongPath(const CUnicodeString& path);
// Resolves "." and ".." components of a drive-absolute or UNC path without
// climbing above the drive, or above server and share.
CUnicodeString CollapseDots(const CUnicodeString& path, EPathKind kind);

// ---- Special folders ----------------------------------------------------------

// The platform's special folders, numbered in the order of their names.
enum ESpecialFolder : int32_t {
  SF_AdminTools = 0,
  SF_AltStartup = 1,
  SF_AppData = 2,
  SF_BitBucket = 3,
  SF_CommonAdminTools = 4,
  SF_CommonAltStartup = 5,
  SF_CommonAppData = 6,
  SF_CommonDesktopDirectory = 7,
  SF_CommonDocuments = 8,
  SF_CommonFavorites = 9,
  SF_CommonPrograms = 10,
  SF_CommonStartMenu = 11,
  SF_CommonStartup = 12,
  SF_CommonTemplates = 13,
  SF_Controls = 14,
  SF_Cookies = 15,
  SF_Desktop = 16,
  SF_DesktopDirectory = 17,
  SF_Drives = 18,
  SF_Favorites = 19,
  SF_Fonts = 20,
  SF_History = 21,
  SF_Internet = 22,
  SF_InternetCache = 23,
  SF_LocalAppData = 24,
  SF_MyMusic = 25,
  SF_MyPictures = 26,
  SF_NetHood = 27,
  SF_Network = 28,
  SF_Personal = 29,
  SF_Printers = 30,
  SF_PrintHood = 31,
  SF_Profile = 32,
  SF_ProgramFiles = 33,
  SF_ProgramFilesCommon = 34,
  SF_Programs = 35,
  SF_Recent = 36,
  SF_SendTo = 37,
  SF_StartMenu = 38,
  SF_Startup = 39,
  SF_System = 40,
  SF_Templates = 41,
  SF_Windows = 42,
};

// The path of a special folder with a trailing separator; empty when the
// platform has none. Throws CCOMException when the platform refuses.
CUnicodeString GetSpecialFolder(ESpecialFolder folder);

// The three data folders of the application.
enum EDataPathKind : int32_t {
  DataPathApplication = 0,  // roaming application data
  DataPathLocal = 1,        // local application data
  DataPathCommon = 2,       // application data common to all users
};
// Sets one of the three data folders; another kind is an internal error.
void SetDataPath(EDataPathKind kind, const CUnicodeString& path);
// The data folder of `kind`, empty until set.
CUnicodeString GetDataPath(EDataPathKind kind);
// Sets the three data folders to `relativePath` under the local, roaming and
// common application data folders. The library's start calls it.
void InitDataPaths(const CUnicodeString& relativePath);
// Empties the special-folder table (a later query fills it again). Part of
// TerminateFileSystems.
void ClearSpecialFolders();

// The process's native file system, the object GetFileSystem hands out for
// every non-virtual path.
CNativeFileSystem& GetNativeFileSystemObject();

}  // namespace Tsl
