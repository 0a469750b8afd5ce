// Paths as the file layer sees them: classification, split and join, the
// separator rules, the equality of paths, routing to the file systems, the
// system folders and the temporary files.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "basefile.h"
#include "errors.h"
#include "filesystem.h"
#include "nativefilesystem.h"
#include "tessels.h"

using namespace Tsl;
using TestSupport::Narrow;

namespace {

std::string N(const CUnicodeString& text) { return Narrow(text.Text()); }
CUnicodeString U(const std::wstring& text) { return CUnicodeString(text.c_str()); }

std::vector<std::wstring> Parts(const CPathComponents& parts) {
  std::vector<std::wstring> result;
  for (int32_t i = 0; i < parts.GetSize(); ++i) result.push_back(parts[i].Text());
  return result;
}

// Runs `action` and returns the kind of the CFileException it throws (0
// when it throws none); the file name goes to `name`.
template <class Action>
int32_t FileErrorKind(Action action, std::wstring* name = nullptr) {
  try {
    action();
  } catch (CFileException* failure) {
    int32_t kind = failure->kind;
    if (name) *name = failure->fileName.Text();
    delete failure;
    return kind;
  }
  return 0;
}

template <class Action>
bool ThrowsInternalError(Action action) {
  try {
    action();
  } catch (CInternalError* failure) {
    delete failure;
    return true;
  }
  return false;
}

TEST(PathKinds, ClassifyByTheFirstThreeCharacters) {
  struct Row {
    const wchar_t* path;
    EPathKind kind;
  } rows[] = {
      {L"", PathRelative},          {L"a", PathRelative},          {L"a\\b", PathRelative},
      {L"\\", PathRooted},          {L"/x", PathRooted},           {L"\\/x", PathRooted},
      {L"/\\x", PathRooted},        {L"\\\\", PathUnc},            {L"//s/h", PathUnc},
      {L"\\\\s\\h\\x", PathUnc},    {L"C:", PathDriveRelative},    {L"C:x", PathDriveRelative},
      {L"1:x", PathDriveRelative},  {L"C:\\", PathDriveAbsolute},  {L"c:/x", PathDriveAbsolute},
      {L":", PathRelative},
  };
  for (const Row& row : rows) EXPECT_EQ(row.kind, ClassifyPath(row.path)) << Narrow(row.path);
}

TEST(PathComponents, SplitAndJoinRoundTrip) {
  struct Row {
    const wchar_t* path;
    EPathKind kind;
    std::vector<std::wstring> parts;
    const wchar_t* joined;  // what joining the parts gives back
  } rows[] = {
      {L"C:\\a\\b", PathDriveAbsolute, {L"C:", L"a", L"b"}, L"C:\\a\\b"},
      {L"\\\\s\\h\\x", PathUnc, {L"s", L"h", L"x"}, L"\\\\s\\h\\x"},
      {L"C:x\\y", PathDriveRelative, {L"C:", L"x", L"y"}, L"C:x\\y"},
      {L"C:", PathDriveRelative, {L"C:"}, L"C:"},
      {L"C:\\", PathDriveAbsolute, {L"C:"}, L"C:\\"},
      {L"\\a//b\\", PathRooted, {L"a", L"b"}, L"\\a\\b"},
      {L"  a/b  ", PathRelative, {L"a", L"b"}, L"a\\b"},
      {L"", PathRelative, {}, L""},
      {L"\\", PathRooted, {}, L"\\"},
      {L"\\\\", PathUnc, {}, L"\\\\"},
  };
  for (const Row& row : rows) {
    CPathComponents parts;
    parts.Add(L"left over");
    EXPECT_EQ(row.kind, SplitPathComponents(row.path, parts)) << Narrow(row.path);
    EXPECT_EQ(row.parts, Parts(parts)) << Narrow(row.path);
    EXPECT_EQ(Narrow(row.joined), N(JoinPathComponents(parts, row.kind))) << Narrow(row.path);
  }
}

TEST(PathComponents, JoinOfAnUnknownKindIsAnInternalError) {
  CPathComponents parts;
  parts.Add(L"a");
  EXPECT_TRUE(ThrowsInternalError([&] { JoinPathComponents(parts, EPathKind(7)); }));
}

TEST(PathSeparators, AddKeepsTheStyleThePathUses) {
  struct Row {
    const wchar_t* path;
    const wchar_t* expected;
  } rows[] = {
      {L"", L"\\"},          {L"a", L"a\\"},         {L"\\a", L"\\a\\"},    {L"a/b", L"a/b/"},
      {L"a\\b/c", L"a\\b/c/"}, {L"a\\", L"a\\"},     {L"a/", L"a/"},        {L"C:", L"C:\\"},
  };
  for (const Row& row : rows) EXPECT_EQ(Narrow(row.expected), N(AddTrailingSeparator(row.path))) << Narrow(row.path);
}

TEST(PathSeparators, StripLeavesRootsUsable) {
  struct Row {
    const wchar_t* path;
    const wchar_t* expected;
  } rows[] = {
      {L"C:", L"C:\\"},   {L"C:\\", L"C:\\"}, {L"c:/", L"c:/"},   {L"\\", L"\\"},   {L"\\\\", L"\\"},
      {L"a\\", L"a"},     {L"a\\\\", L"a\\"}, {L"a/b/", L"a/b"},  {L"a", L"a"},     {L"", L""},
      {L"1:", L"1:"},     {L"1:\\", L"1:"},
  };
  for (const Row& row : rows) {
    CUnicodeString path(row.path);
    StripTrailingSeparator(path);
    EXPECT_EQ(Narrow(row.expected), N(path)) << Narrow(row.path);
  }
}

TEST(PathJoining, ConcatPutsExactlyOneSeparatorBetween) {
  struct Row {
    const wchar_t* left;
    const wchar_t* right;
    const wchar_t* expected;
  } rows[] = {
      {L"a\\", L"\\b", L"a\\b"}, {L"a", L"", L"a\\"},     {L"", L"b", L"b"},       {L"a", L"b", L"a\\b"},
      {L"a/", L"b", L"a/b"},     {L"a", L"/b", L"a/b"},   {L"x/a", L"b", L"x/a/b"}, {L"a/", L"\\b", L"a\\b"},
  };
  for (const Row& row : rows)
    EXPECT_EQ(Narrow(row.expected), N(ConcatPath(row.left, row.right))) << Narrow(row.left) << " + " << Narrow(row.right);
}

TEST(PathJoining, ResolveByTheKindOfThePath) {
  EXPECT_EQ("C:\\base\\x", N(ResolvePath(L"C:\\base", L"x")));
  EXPECT_EQ("C:\\x", N(ResolvePath(L"C:\\base\\", L"\\x")));
  EXPECT_EQ("\\\\s\\h\\x", N(ResolvePath(L"\\\\s\\h\\base", L"\\x")));
  EXPECT_EQ("D:\\y", N(ResolvePath(L"C:\\base", L"D:\\y")));
  EXPECT_EQ("\\\\s\\h", N(ResolvePath(L"C:\\base", L"\\\\s\\h")));
  EXPECT_EQ("C:\\base\\b", N(ResolveFullPath(L"C:\\base", L"a\\..\\b")));
}

TEST(PathJoining, MergeKeepsOnlyTheNameOfTheFileSpec) {
  EXPECT_EQ("C:\\d\\n.e", N(MergePath(L" C:\\d ", L"x\\y\\n.e")));
  EXPECT_EQ("C:/d/*", N(MergePath(L"C:/d", L"*")));
  EXPECT_EQ("C:\\d\\n.e", N(MergePath(L"C:\\d\\", L"n", L".e")));
  EXPECT_EQ("C:\\d\\n.e", N(MergePath(L"C:\\d", L"n", L"e")));
}

TEST(PathParts, SplitIntoDriveDirectoryNameAndExtension) {
  struct Row {
    const wchar_t* path;
    const wchar_t* drive;
    const wchar_t* directory;
    const wchar_t* name;
    const wchar_t* extension;
  } rows[] = {
      {L"C:\\a\\b\\n.tar.gz", L"C:", L"\\a\\b\\", L"n.tar", L".gz"},
      {L"n", L"", L"", L"n", L""},
      {L"\\\\s\\h\\n.e", L"", L"\\\\s\\h\\", L"n", L".e"},
      {L"a/b/", L"", L"a/b/", L"", L""},
      {L".profile", L"", L"", L"", L".profile"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Narrow(row.drive), N(GetDrive(row.path))) << Narrow(row.path);
    EXPECT_EQ(Narrow(row.directory), N(GetDirectory(row.path))) << Narrow(row.path);
    EXPECT_EQ(Narrow(row.name), N(GetName(row.path))) << Narrow(row.path);
    EXPECT_EQ(Narrow(row.extension), N(GetExtension(row.path))) << Narrow(row.path);
    EXPECT_EQ(Narrow(std::wstring(row.drive) + row.directory), N(GetDriveAndDirectory(row.path)));
    EXPECT_EQ(Narrow(std::wstring(row.name) + row.extension), N(GetNameWithExtension(row.path)));
    // Making the path from its parts gives it back.
    EXPECT_EQ(Narrow(row.path), N(MakePath(row.drive, row.directory, row.name, row.extension)));
  }
}

TEST(PathParts, SplitAndMakeHandlePathsLongerThanTheClassicLimit) {
  std::wstring directory = L"\\" + std::wstring(300, L'd') + L"\\";
  CUnicodeString made = MakePath(L"C:", U(directory), L"n", L"e");
  EXPECT_EQ(Narrow(L"C:" + directory + L"n.e"), N(made));
  EXPECT_EQ(Narrow(directory), N(GetDirectory(made)));
  EXPECT_EQ("n.e", N(GetNameWithExtension(made)));
}

TEST(PathParts, ReplaceExtensionKeepsTheRest) {
  CUnicodeString path(L"C:\\a.b\\n.old");
  ReplaceExtension(path, L".new");
  EXPECT_EQ("C:\\a.b\\n.new", N(path));
  ReplaceExtension(path, L"txt");
  EXPECT_EQ("C:\\a.b\\n.txt", N(path));
}

TEST(PathParts, RootsOfEveryKind) {
  struct Row {
    const wchar_t* path;
    const wchar_t* root;
  } rows[] = {
      {L"C:\\a\\b", L"C:\\"},         {L"C:x", L"C:\\"},           {L"\\a\\b", L"\\"},
      {L"a\\b", L"\\"},               {L"\\\\s\\h\\x\\y", L"\\\\s\\h\\"}, {L"\\\\s\\h", L"\\\\s\\h\\"},
      {L"//s/h/x", L"//s/h/"},        {L"\\\\s", L"\\\\s\\"},      {L"  C:\\a ", L"C:\\"},
  };
  for (const Row& row : rows) EXPECT_EQ(Narrow(row.root), N(GetPathRoot(row.path))) << Narrow(row.path);
}

TEST(PathParts, ParentSeparatorStopsAtRoots) {
  struct Row {
    const wchar_t* path;
    int32_t index;
  } rows[] = {
      {L"a", -1},       {L"\\a", -1},         {L"C:\\", -1},        {L"C:\\a", -1},      {L"\\\\s", -1},
      {L"a\\b", 1},     {L"C:\\a\\b", 4},     {L"\\\\s\\h", 3},     {L"a/b/c", 3},        {L"ab\\", 2},
  };
  for (const Row& row : rows) EXPECT_EQ(row.index, FindParentSeparator(row.path)) << Narrow(row.path);
}

TEST(PathParts, ToBackslashesLeavesSharedCopiesAlone) {
  CUnicodeString original(L"a/b\\c/");
  CUnicodeString copy = original;
  ToBackslashes(copy);
  EXPECT_EQ("a\\b\\c\\", N(copy));
  EXPECT_EQ("a/b\\c/", N(original));
}

// Every pair of the table: equal under ComparePaths exactly when in the same
// group, equal groups hash equal, and the order is antisymmetric.
TEST(PathEquality, CompareAndHashAgreeOnEveryPair) {
  struct Row {
    const wchar_t* path;
    int group;
  } rows[] = {
      {L"a\\b", 1},   {L"A/B\\", 1},    {L"a/b//", 1},  {L"a\\B", 1},
      {L"a\\bc", 2},  {L"a\\b\\c", 3},  {L"A/b/C/", 3},
      {L"", 4},       {L"\\", 4},       {L"//", 4},
      {L"C:\\Tavix\\File.TXT", 5},      {L"c:/tavix/file.txt", 5},
      {L"a", 6},      {L"a_", 7},       {L"a\\_", 8},   {L"ab", 9},
  };
  for (const Row& x : rows) {
    for (const Row& y : rows) {
      int forward = ComparePaths(x.path, y.path);
      int backward = ComparePaths(y.path, x.path);
      std::string pair = Narrow(x.path) + " | " + Narrow(y.path);
      EXPECT_EQ(x.group == y.group, forward == 0) << pair;
      EXPECT_EQ(forward < 0, backward > 0) << pair;
      if (x.group == y.group) {
        EXPECT_EQ(HashPath(x.path), HashPath(y.path)) << pair;
      }
    }
  }
  EXPECT_EQ(0u, HashPath(L"\\\\"));
}

TEST(Routing, VirtualRootDecidesWithItsLastSeparator) {
  struct Row {
    const wchar_t* path;
    bool isVirtual;
  } rows[] = {
      {L"\\\\Tavix\\Tessels\\VirtualFiles$\\", true},
      {L"\\\\tavix\\tessels\\virtualfiles$\\a", true},
      {L"\\\\TAVIX\\TESSELS\\VIRTUALFILES$\\dir\\file.txt", true},
      {L"\\\\Tavix\\Tessels\\VirtualFiles$", false},
      {L"//Tavix/Tessels/VirtualFiles$/a", false},
      {L"\\\\Tavix\\Tessels\\VirtualFiles\\a", false},
      {L"C:\\Tavix\\Tessels\\VirtualFiles$\\a", false},
      {L"", false},
  };
  for (const Row& row : rows) EXPECT_EQ(row.isVirtual, IsVirtualPath(row.path)) << Narrow(row.path);
  EXPECT_EQ("\\\\Tavix\\Tessels\\VirtualFiles$\\", N(GetVirtualRootPath()));
}

TEST(Routing, NonVirtualPathsGoToTheNativeFileSystem) {
  CFileSystemBase* native = &GetNativeFileSystemObject();
  EXPECT_EQ(native, GetNativeFileSystem());
  EXPECT_EQ(native, GetFileSystem(L"C:\\a"));
  EXPECT_EQ(native, GetFileSystem(L"\\\\Tavix\\Tessels\\VirtualFiles$"));
  EXPECT_EQ(native, GetFileSystem(L"relative"));
}

TEST(Routing, VirtualPathWithoutAnInMemoryFileSystemFails) {
  ASSERT_EQ(nullptr, GetVirtualFileSystem());
  try {
    GetFileSystem(L"\\\\Tavix\\Tessels\\VirtualFiles$\\a.txt");
    ADD_FAILURE() << "routed to a file system that does not exist";
  } catch (CInternalError* failure) {
    EXPECT_EQ("filesystem", Narrow(failure->file));
    EXPECT_EQ(108, failure->line);
    delete failure;
  }
  EXPECT_TRUE(ThrowsInternalError([] { DirectoryExists(L"\\\\tavix\\tessels\\virtualfiles$\\"); }));
}

TEST(Normalize, TrimsAndResolvesDots) {
  CUnicodeString path(L"  C:\\a\\.\\b\\..\\c  ");
  NormalizePath(path);
  EXPECT_EQ("C:\\a\\c", N(path));
  CUnicodeString empty(L"   ");
  NormalizePath(empty);
  EXPECT_TRUE(empty.IsEmpty());
  // Longer than the first buffer: the second call gets the size needed.
  std::wstring longPath = L"C:\\" + std::wstring(400, L'x') + L"\\..\\y";
  CUnicodeString normalized = U(longPath);
  NormalizePath(normalized);
  EXPECT_EQ("C:\\y", N(normalized));
}

TEST(Normalize, RelativePathTakesTheCurrentFolder) {
  TestSupport::ScratchFolder scratch;
  wchar_t saved[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, saved);
  ASSERT_TRUE(SetCurrentDirectoryW(scratch.Path().c_str()));
  CUnicodeString path(L"sub\\f.txt");
  NormalizePath(path);
  SetCurrentDirectoryW(saved);
  EXPECT_EQ(0, ComparePaths(U(scratch / L"sub\\f.txt"), path)) << N(path);
}

TEST(TruePath, ComponentsTakeTheSpellingOnDisk) {
  TestSupport::ScratchFolder scratch;
  ASSERT_TRUE(CreateDirectoryW((scratch / L"MixedCase").c_str(), nullptr));
  ASSERT_TRUE(TestSupport::WriteBytes(scratch / L"MixedCase\\ReadMe.TXT", "x"));
  CUnicodeString truePath = GetTruePath(U(scratch / L"mixedcase\\readme.txt"));
  EXPECT_EQ(Narrow(L"MixedCase\\ReadMe.TXT"), N(truePath.Right(20)));
  // What does not exist stays as written, separators included.
  CUnicodeString missing = GetTruePath(U(scratch / L"mixedcase/NoSuch/x"));
  EXPECT_EQ("MixedCase/NoSuch/x", N(missing.Right(18)));
  CUnicodeString virtualPath(L"\\\\tavix\\tessels\\virtualfiles$\\ABC");
  EXPECT_EQ(N(virtualPath), N(GetTruePath(virtualPath)));
}

TEST(SystemFolders, WindowsTempAndExecutable) {
  CUnicodeString windows = GetWindowsFolder();
  EXPECT_TRUE(DirectoryExists(windows)) << N(windows);
  CUnicodeString temp = GetSystemTempPath();
  ASSERT_GT(temp.Length(), 3);
  EXPECT_FALSE(IsPathSeparator(temp[temp.Length() - 1])) << N(temp);
  EXPECT_TRUE(DirectoryExists(temp));
  CUnicodeString executable = GetExecutablePath();
  EXPECT_EQ(0, ComparePaths(L".exe", GetExtension(executable)));
  EXPECT_TRUE(FileExists(executable, CFile::ModeExistenceOnly));
  CUnicodeString folder = GetExecutableFolder();
  EXPECT_EQ(N(executable), N(folder + GetNameWithExtension(executable)));
  EXPECT_EQ(N(executable), N(GetModuleFilePath(GetModuleHandleW(nullptr))));
}

TEST(Listing, FileNamesSortedWithoutHiddenOnesOrFolders) {
  TestSupport::ScratchFolder scratch;
  for (const wchar_t* name : {L"b.txt", L"A.txt", L"c.log", L"hidden.txt"})
    ASSERT_TRUE(TestSupport::WriteBytes(scratch / name, "x"));
  ASSERT_TRUE(SetFileAttributesW((scratch / L"hidden.txt").c_str(), FILE_ATTRIBUTE_HIDDEN));
  ASSERT_TRUE(CreateDirectoryW((scratch / L"dir.txt").c_str(), nullptr));
  CPathComponents names;
  names.Add(L"stale");
  ListDirectory(U(scratch.Path()), names, L"*.txt;*.TXT");
  EXPECT_EQ((std::vector<std::wstring>{L"A.txt", L"b.txt"}), Parts(names));
}

TEST(TempFiles, FolderFallsBackWhenTheConfiguredOneIsMissing) {
  TestSupport::ScratchFolder scratch;
  SetTempFolder(U(scratch.Path()));
  EXPECT_EQ(Narrow(scratch.Path()), N(GetTempFolder()));
  SetTempFolder(U(scratch / L"missing"));
  EXPECT_EQ(N(GetSystemTempPath()), N(GetTempFolder()));
  SetTempFolder(L"");
}

TEST(TempFiles, RegisteredFilesAndFoldersGoAtTheEnd) {
  TestSupport::ScratchFolder scratch;
  SetTempFolder(U(scratch.Path()));
  CUnicodeString file = CreateTempFile(L"tsl");
  CUnicodeString folder = CreateTempDirectory(L"tsl");
  EXPECT_EQ(0, ComparePaths(U(scratch.Path()), GetDriveAndDirectory(file)));
  ASSERT_TRUE(TestSupport::WriteBytes(std::wstring(folder.Text()) + L"\\inner.txt", "x"));
  // Registered twice under another spelling: still one entry.
  CUnicodeString otherSpelling = file;
  ToBackslashes(otherSpelling);
  RegisterTempFile(otherSpelling + L"");
  ClearTempFiles();
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(file.Text()));
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(folder.Text()));
  // The configured folder is forgotten with them.
  EXPECT_EQ(N(GetSystemTempPath()), N(GetTempFolder()));
}

TEST(TempFiles, KeepFlagLeavesThemOnDiskAndFailuresAreSwallowed) {
  TestSupport::ScratchFolder scratch;
  SetTempFolder(U(scratch.Path()));
  CUnicodeString kept = CreateTempFile(L"tsl");
  uint32_t savedFlags = GetDebugFlags();
  SetDebugFlags(savedFlags | DF_KeepTempFiles);
  ClearTempFiles();
  SetDebugFlags(savedFlags);
  EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(kept.Text()));
  // Forgotten: a second pass does not delete it either.
  ClearTempFiles();
  EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(kept.Text()));
  RegisterTempFile(U(scratch / L"never-made.tmp"));
  EXPECT_NO_THROW(ClearTempFiles());
}

}  // namespace
