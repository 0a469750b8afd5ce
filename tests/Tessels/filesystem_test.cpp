// Paths as the file layer sees them: classification, split and join, the
// separator rules, the equality of paths, routing to the file systems, the
// true spelling on disk, listing, and the temporary files.
#include "filesystem.h"

#include "FileTestHelpers.h"
#include "nativefilesystem.h"

using namespace FileTest;

namespace {

std::vector<std::wstring> Parts(const CPathComponents& parts) {
  std::vector<std::wstring> result;
  for (int32_t i = 0; i < parts.GetSize(); ++i) result.push_back(W(parts[i]));
  return result;
}

TEST(Paths, ClassifySplitAndJoinRoundTrip) {
  struct Row {
    const wchar_t* path;
    EPathKind kind;
    std::vector<std::wstring> parts;
    const wchar_t* joined;  // what joining the parts gives back
  } rows[] = {
      {L"C:\\a\\b", PathDriveAbsolute, {L"C:", L"a", L"b"}, L"C:\\a\\b"},
      {L"c:/", PathDriveAbsolute, {L"c:"}, L"c:\\"},
      {L"\\\\s\\h\\x", PathUnc, {L"s", L"h", L"x"}, L"\\\\s\\h\\x"},
      {L"//s/h", PathUnc, {L"s", L"h"}, L"\\\\s\\h"},
      {L"\\\\", PathUnc, {}, L"\\\\"},
      {L"C:x\\y", PathDriveRelative, {L"C:", L"x", L"y"}, L"C:x\\y"},
      {L"\\a//b\\", PathRooted, {L"a", L"b"}, L"\\a\\b"},
      {L"/\\x", PathRooted, {L"x"}, L"\\x"},  // unequal separators start no UNC path
      {L"  a/b  ", PathRelative, {L"a", L"b"}, L"a\\b"},
      {L":", PathRelative, {L":"}, L":"},
      {L"", PathRelative, {}, L""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(Narrow(row.path));
    EXPECT_EQ(row.kind, ClassifyPath(row.path));
    CPathComponents parts;
    parts.Add(L"left over");
    EXPECT_EQ(row.kind, SplitPathComponents(row.path, parts));
    EXPECT_EQ(row.parts, Parts(parts));
    EXPECT_EQ(Narrow(row.joined), N(JoinPathComponents(parts, row.kind)));
  }
}

TEST(Paths, TrailingSeparatorsKeepTheStyleAndLeaveRootsUsable) {
  struct Row {
    const wchar_t *path, *added, *stripped;
  } rows[] = {
      // clang-format off
      {L"", L"\\", L""},                  {L"a", L"a\\", L"a"},   {L"a/b", L"a/b/", L"a/b"},
      {L"a\\b/c", L"a\\b/c/", L"a\\b/c"}, {L"a\\", L"a\\", L"a"}, {L"a\\\\", L"a\\\\", L"a\\"},
      {L"C:", L"C:\\", L"C:\\"},          {L"c:/", L"c:/", L"c:/"}, {L"\\\\", L"\\\\", L"\\"},
      {L"1:\\", L"1:\\", L"1:"},
      // clang-format on
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(Narrow(row.path));
    EXPECT_EQ(Narrow(row.added), N(AddTrailingSeparator(row.path)));
    CUnicodeString path(row.path);
    StripTrailingSeparator(path);
    EXPECT_EQ(Narrow(row.stripped), N(path));
  }
}

TEST(Paths, PartsRootsAndParents) {
  const std::wstring longDirectory = L"\\" + std::wstring(300, L'd') + L"\\";
  struct Row {
    std::wstring path, drive, directory, name, extension, root;
    int32_t parent;  // the separator before the last component, -1 at a root
  } rows[] = {
      {L"C:\\a\\b\\n.tar.gz", L"C:", L"\\a\\b\\", L"n.tar", L".gz", L"C:\\", 6},
      {L"n", L"", L"", L"n", L"", L"\\", -1},
      {L"\\\\s\\h\\n.e", L"", L"\\\\s\\h\\", L"n", L".e", L"\\\\s\\h\\", 5},
      {L"//s/h/x", L"", L"//s/h/", L"x", L"", L"//s/h/", 5},
      {L"\\\\s\\h", L"", L"\\\\s\\", L"h", L"", L"\\\\s\\h\\", 3},
      {L"\\\\s", L"", L"\\\\", L"s", L"", L"\\\\s\\", -1},
      {L"a/b/", L"", L"a/b/", L"", L"", L"\\", 3},
      {L"\\.profile", L"", L"\\", L"", L".profile", L"\\", -1},
      {L"C:" + longDirectory + L"n.e", L"C:", longDirectory, L"n", L".e", L"C:\\", 303},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(Narrow(row.path.substr(0, 40)));
    CUnicodeString path = U(row.path);
    EXPECT_EQ(Narrow(row.drive + row.directory), N(GetDriveAndDirectory(path)));
    EXPECT_EQ(Narrow(row.name + row.extension), N(GetNameWithExtension(path)));
    EXPECT_EQ(Narrow(row.extension), N(GetExtension(path)));
    EXPECT_EQ(Narrow(row.path),
              N(MakePath(U(row.drive), U(row.directory), U(row.name), U(row.extension))));
    EXPECT_EQ(Narrow(row.root), N(GetPathRoot(path)));
    EXPECT_EQ(row.parent, FindParentSeparator(path));
  }
}

// Every pair of the table: equal under ComparePaths exactly when in the same
// group, equal groups hash equal, and the order is antisymmetric.
TEST(Paths, CompareAndHashAgreeOnEveryPair) {
  struct Row {
    const wchar_t* path;
    int group;
  } rows[] = {
      // clang-format off
      {L"a\\b", 1},    {L"A/B\\", 1},    {L"a/b//", 1}, {L"a\\B", 1}, {L"a\\bc", 2},
      {L"a\\b\\c", 3}, {L"A/b/C/", 3},   {L"", 4},      {L"\\", 4},   {L"//", 4},
      {L"C:\\Tavix\\File.TXT", 5},       {L"c:/tavix/file.txt", 5},
      {L"a", 6},       {L"a_", 7},       {L"a\\_", 8},  {L"ab", 9},
      // clang-format on
  };
  for (const Row& x : rows) {
    for (const Row& y : rows) {
      SCOPED_TRACE(Narrow(x.path) + " | " + Narrow(y.path));
      int forward = ComparePaths(x.path, y.path);
      EXPECT_EQ(x.group == y.group, forward == 0);
      EXPECT_EQ(forward < 0, 0 < ComparePaths(y.path, x.path));
      if (x.group == y.group) {
        EXPECT_EQ(HashPath(x.path), HashPath(y.path));
      }
    }
  }
}

TEST(Paths, VirtualRootRoutesOnlyWithItsLastSeparator) {
  struct Row {
    const wchar_t* path;
    bool isVirtual;
  } rows[] = {
      {L"\\\\Tavix\\Tessels\\VirtualFiles$\\", true},
      {L"\\\\TAVIX\\TESSELS\\VIRTUALFILES$\\dir\\file.txt", true},
      {L"\\\\Tavix\\Tessels\\VirtualFiles$", false},
      {L"//Tavix/Tessels/VirtualFiles$/a", false},
      {L"\\\\Tavix\\Tessels\\VirtualFiles\\a", false},
      {L"C:\\Tavix\\Tessels\\VirtualFiles$\\a", false},
  };
  // The in-memory file system registers itself before main.
  ASSERT_NE(nullptr, GetVirtualFileSystem());
  for (const Row& row : rows) {
    SCOPED_TRACE(Narrow(row.path));
    EXPECT_EQ(row.isVirtual, IsVirtualPath(row.path));
    CFileSystemBase* owner = nullptr;
    auto error = Catch([&] { owner = GetFileSystem(row.path); });
    EXPECT_EQ(nullptr, error.get());
    EXPECT_EQ(row.isVirtual ? GetVirtualFileSystem() : &GetNativeFileSystemObject(), owner);
  }
}

TEST(Paths, NormalizeTruePathAndListingOnDisk) {
  // Longer than the first buffer, and with blanks around.
  CUnicodeString path = U(L"  C:\\" + std::wstring(400, L'x') + L"\\.\\..\\y  ");
  NormalizePath(path);
  EXPECT_EQ("C:\\y", N(path));
  // A zero inside the text is a bad path, whatever error a call before left.
  for (DWORD stale : {DWORD(0), DWORD(ERROR_ALREADY_EXISTS)}) {
    for (const std::wstring& text : {std::wstring(L"C:\\a\0b", 6), std::wstring(L"\0x", 2)}) {
      CUnicodeString withZero(text.c_str(), int32_t(text.size()));
      SetLastError(stale);
      EXPECT_EQ(FE_BadPath, FileErrorKind([&] { NormalizePath(withZero); }))
          << text.size() << " units, last error " << stale;
    }
  }

  ScratchFolder scratch;
  ASSERT_TRUE(CreateDirectoryW((scratch / L"MixedCase").c_str(), nullptr));
  ASSERT_TRUE(CreateDirectoryW((scratch / L"MixedCase\\dir.txt").c_str(), nullptr));
  for (const wchar_t* name : {L"ReadMe.TXT", L"b.txt", L"c.log", L"hidden.txt"})
    ASSERT_TRUE(WriteBytes(scratch / L"MixedCase\\" + name, "x"));
  ASSERT_TRUE(
      SetFileAttributesW((scratch / L"MixedCase\\hidden.txt").c_str(), FILE_ATTRIBUTE_HIDDEN));
  CUnicodeString truePath = GetTruePath(U(scratch / L"mixedcase\\readme.txt"));
  EXPECT_EQ("MixedCase\\ReadMe.TXT", N(truePath.Right(20)));

  CPathComponents names;
  names.Add(L"stale");
  ListDirectory(U(scratch / L"MixedCase"), names, L"*.txt;*.TXT");
  EXPECT_EQ((std::vector<std::wstring>{L"b.txt", L"ReadMe.TXT"}), Parts(names));
}

TEST(TempFiles, RegisteredFilesGoAtTheEndAndTheFolderFallsBack) {
  ScratchFolder scratch;
  SetTempFolder(U(scratch.Path()));
  CUnicodeString file = CreateTempFile(L"tsl");
  EXPECT_EQ(0, ComparePaths(U(scratch.Path()), GetDriveAndDirectory(file)));
  RegisterTempFile(U(scratch / L"never-made.tmp"));  // its failure is swallowed
  EXPECT_NO_THROW(ClearTempFiles());
  EXPECT_FALSE(Exists(W(file)));
  EXPECT_EQ(N(GetSystemTempPath()), N(GetTempFolder()));  // the setting goes with them
  SetTempFolder(U(scratch / L"missing"));
  EXPECT_EQ(N(GetSystemTempPath()), N(GetTempFolder()));
}

}  // namespace
