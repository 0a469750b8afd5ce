// The native file system on a real tree: existence probes, directories made
// and removed, copy, move and delete, enumeration (also beyond 260 units),
// collection and sorting.
#include "nativefilesystem.h"

#include <algorithm>

#include "FileTestHelpers.h"
#include "filesystem.h"

using namespace FileTest;

namespace {

CNativeFileSystem& Native() { return GetNativeFileSystemObject(); }

// The names of `entries`, sorted, with a trailing "/" for folders.
std::vector<std::string> Names(const CFileStatusArray& entries) {
  std::vector<std::string> names;
  for (const CFileStatus& entry : entries)
    names.push_back(N(entry.Name) + ((entry.Attributes & FILE_ATTRIBUTE_DIRECTORY) ? "/" : ""));
  std::sort(names.begin(), names.end());
  return names;
}

// a.txt, b.log, hidden.txt (hidden), sub/c.txt, sub/deep/d.txt, skip/e.txt; each file
// holds its own relative path.
void MakeTree(const ScratchFolder& scratch) {
  for (const wchar_t* folder : {L"sub", L"sub\\deep", L"skip"})
    ASSERT_TRUE(CreateDirectoryW((scratch / folder).c_str(), nullptr));
  for (const wchar_t* name :
       {L"a.txt", L"b.log", L"hidden.txt", L"sub\\c.txt", L"sub\\deep\\d.txt", L"skip\\e.txt"})
    ASSERT_TRUE(WriteBytes(scratch / name, Narrow(name)));
  ASSERT_TRUE(SetFileAttributesW((scratch / L"hidden.txt").c_str(), FILE_ATTRIBUTE_HIDDEN));
}

TEST(NativeFileSystem, ProbesForFoldersAndFiles) {
  ScratchFolder scratch;
  ASSERT_TRUE(CreateDirectoryW((scratch / L"empty").c_str(), nullptr));
  ASSERT_TRUE(WriteBytes(scratch / L"file.txt", "x"));
  struct Row {
    std::wstring path;
    bool folder, found;  // DirectoryExists; FileExists for existence only
  } rows[] = {
      // clang-format off
      {scratch / L"empty", true, true},  // an empty folder shows its "." entry
      {scratch / L"empty\\..\\empty\\", true, false}, {scratch / L"missing", false, false},
      {scratch / L"file.txt", false, true},           {scratch / L"*.txt", false, true},
      {scratch / L"*.doc", false, false},             {scratch / L"bad|name", false, false},
      {L"", false, false}, {L"c:", true, false},      {L"Q:\\", false, false},
      {L"\\\\no-such-server-here\\share", false, false},
      // clang-format on
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(Narrow(row.path));
    EXPECT_EQ(row.folder, Native().DirectoryExists(U(row.path)));
    EXPECT_EQ(row.found, Native().FileExists(U(row.path), CFile::ModeExistenceOnly));
  }
}

TEST(NativeFileSystem, CreateDirectoryMakesTheChainAndFailsOnBadPaths) {
  ScratchFolder scratch;
  Native().CreateDirectory(U(scratch / L"a\\b/c/"), true);
  EXPECT_TRUE(Exists(scratch / L"a\\b\\c"));
  EXPECT_EQ(0, FileErrorKind([&] { Native().CreateDirectory(U(scratch / L"a\\b"), false); }));
  std::wstring name;
  auto again = [&] { Native().CreateDirectory(U(scratch / L"a\\b"), true); };
  EXPECT_EQ(FE_AlreadyExists, FileErrorKind(again, &name));
  EXPECT_EQ(scratch / L"a\\b", name);
  auto forbidden = [&] { Native().CreateDirectory(U(scratch / L"bad|name\\x"), false); };
  EXPECT_GT(FileErrorKind(forbidden), 0);
  EXPECT_FALSE(Exists(scratch / L"bad|name"));
  EXPECT_EQ(FE_BadPath, FileErrorKind([&] { Native().RemoveDirectory(U(scratch / L"no\\x")); }));
}

TEST(NativeFileSystem, EnumerationGivesStatusWithoutDotsAndFailsOnAMissingFolder) {
  ScratchFolder scratch;
  MakeTree(scratch);
  CFileStatusArray entries;
  entries.Add(CFileStatus());
  Native().EnumerateFiles(U(scratch.Path()), entries, L"*");
  EXPECT_EQ((std::vector<std::string>{"a.txt", "b.log", "hidden.txt", "skip/", "sub/"}),
            Names(entries));
  for (const CFileStatus& entry : entries) {
    EXPECT_EQ(Narrow(scratch / W(entry.Name)), N(entry.FullName));
    EXPECT_NE(NullTime, entry.LastWriteTime);
    bool folder = (entry.Attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    EXPECT_EQ(folder ? 0 : entry.Name.Length(), entry.Length);
  }
  Native().EnumerateFiles(U(scratch.Path()), entries, L"*.none");
  EXPECT_EQ(0, entries.GetSize());
  std::wstring name;
  auto missing = [&] { Native().EnumerateFiles(U(scratch / L"missing"), entries, L"*"); };
  EXPECT_EQ(FE_BadPath, FileErrorKind(missing, &name));
  EXPECT_EQ(scratch / L"missing", name);
}

TEST(NativeFileSystem, EnumerationBeyond260UnitsTakesThePrefixedFormWithDotsCollapsed) {
  const std::wstring tail(260, L'x');
  struct Row {
    std::wstring path, expected;
  } rows[] = {
      {L"C:\\a\\..\\b", L"C:\\a\\..\\b"},  // short: unchanged
      {L"C:/" + tail + L"/.\\y\\..\\z", L"\\\\?\\C:\\" + tail + L"\\z"},
      {L"\\\\s\\h\\..\\" + tail, L"\\\\?\\UNC\\s\\h\\" + tail},  // the share stays
      {L"\\\\?\\C:\\" + tail + L"\\..", L"\\\\?\\C:\\" + tail + L"\\.."},
  };
  for (const Row& row : rows)
    EXPECT_EQ(Narrow(row.expected), N(ToLongPath(U(row.path)))) << Narrow(row.path);

  ScratchFolder scratch;
  std::wstring deep = scratch.Path();
  for (wchar_t letter : {L'a', L'b', L'c'}) {
    deep += L"\\" + std::wstring(90, letter);
    ASSERT_TRUE(CreateDirectoryW((L"\\\\?\\" + deep).c_str(), nullptr));
  }
  ASSERT_TRUE(WriteBytes(L"\\\\?\\" + deep + L"\\inside.txt", "x"));
  CFileStatusArray entries;
  std::wstring viaDots = deep + L"\\..\\" + std::wstring(90, L'c');
  Native().EnumerateFiles(U(viaDots), entries, L"*.txt");
  ASSERT_EQ(1, entries.GetSize());
  EXPECT_EQ(Narrow(viaDots + L"\\inside.txt"), N(entries[0].FullName));
  // Too deep for the scratch folder's own cleanup.
  DeleteFileW((L"\\\\?\\" + deep + L"\\inside.txt").c_str());
  for (; deep.size() > scratch.Path().size(); deep.resize(deep.rfind(L'\\')))
    RemoveDirectoryW((L"\\\\?\\" + deep).c_str());
}

TEST(NativeFileSystem, CopyMoveRenameAndDeleteSingleFiles) {
  ScratchFolder scratch;
  auto path = [&](const wchar_t* name) { return U(scratch / name); };
  for (const wchar_t* name : {L"src.txt", L"other.txt", L"held.txt"})
    ASSERT_TRUE(WriteBytes(scratch / name, Narrow(name)));
  Native().CopyFile(path(L"copy.txt"), path(L"src.txt"));
  Native().MoveFile(path(L"copy.txt"), path(L"other.txt"));  // replaces the copy
  EXPECT_FALSE(Exists(scratch / L"other.txt"));
  Native().RenameFile(path(L"copy.txt"), path(L"renamed.txt"));
  EXPECT_EQ("other.txt", ReadBytes(scratch / L"renamed.txt"));
  std::wstring name;
  auto renameOnto = [&] { Native().RenameFile(path(L"src.txt"), path(L"renamed.txt")); };
  EXPECT_EQ(FE_AlreadyExists, FileErrorKind(renameOnto, &name));
  EXPECT_EQ(scratch / L"renamed.txt", name);
  Native().DeleteFile(path(L"renamed.txt"));
  EXPECT_EQ(FE_NotFound, FileErrorKind([&] { Native().DeleteFile(path(L"renamed.txt")); }));

  auto copyMissing = [&] { Native().CopyFile(path(L"x.txt"), path(L"gone.txt")); };
  EXPECT_EQ(FE_NotFound, FileErrorKind(copyMissing, &name));
  EXPECT_EQ(scratch / L"gone.txt", name);
  // A target that another handle holds can't be written, and stays as it was.
  HANDLE holder = CreateFileW((scratch / L"held.txt").c_str(), GENERIC_READ, FILE_SHARE_READ,
                              nullptr, OPEN_EXISTING, 0, nullptr);
  auto copyOntoHeld = [&] { Native().CopyFile(path(L"held.txt"), path(L"src.txt")); };
  EXPECT_EQ(FE_AccessDenied, FileErrorKind(copyOntoHeld, &name));
  EXPECT_EQ(scratch / L"held.txt", name);
  CloseHandle(holder);
  EXPECT_EQ("held.txt", ReadBytes(scratch / L"held.txt"));
}

TEST(NativeFileSystem, DeleteTreeClearsReadOnlyFilesOnlyWhenAsked) {
  ScratchFolder scratch;
  MakeTree(scratch);
  ASSERT_TRUE(SetFileAttributesW((scratch / L"sub\\deep\\d.txt").c_str(), FILE_ATTRIBUTE_READONLY));
  ASSERT_TRUE(SetFileAttributesW((scratch / L"sub").c_str(), FILE_ATTRIBUTE_READONLY));
  auto keepReadOnly = [&] { Native().DeleteTree(U(scratch / L"sub"), false); };
  EXPECT_EQ(FE_AccessDenied, FileErrorKind(keepReadOnly));
  EXPECT_TRUE(Exists(scratch / L"sub\\deep\\d.txt"));
  Native().DeleteTree(U(scratch.Path()), true);
  EXPECT_FALSE(Exists(scratch.Path()));
}

TEST(NativeFileSystem, CollectFilesByFlagsMasksAndRecursion) {
  ScratchFolder scratch;
  MakeTree(scratch);
  CUnicodeString root = U(scratch.Path());
  struct Row {
    const wchar_t* masks;
    uint32_t flags;
    std::vector<std::string> names;
  } rows[] = {
      {L"*.txt", CF_Files | CF_HiddenAndSystem, {"a.txt", "hidden.txt"}},
      {L"*.txt; *.log", CF_Files, {"a.txt", "b.log"}},
      {L"*", CF_Directories, {"skip/", "sub/"}},
      {L"*.txt", CF_Files | CF_Recursive, {"a.txt", "c.txt", "d.txt", "e.txt"}},
      {L"*", CF_Directories | CF_Recursive, {"deep/", "skip/", "sub/"}},
      {L"*.log;*.log", CF_Files, {"b.log", "b.log"}},  // a mask given twice counts twice
  };
  for (const Row& row : rows) {
    CFileStatusArray result;
    Native().CollectFiles(root, result, row.masks, row.flags, nullptr);
    EXPECT_EQ(row.names, Names(result)) << Narrow(row.masks) << " flags " << row.flags;
  }
}

TEST(NativeFileSystem, SortOrdersAsPathsAndDropsDuplicates) {
  CFileStatusArray items;
  for (const wchar_t* name :
       {L"C:\\b", L"c:\\A", L"C:/a", L"C:\\a\\", L"C:\\c", L"C:\\B\\x", L"C:\\b", L"C:\\d",
        L"C:\\e", L"C:\\f", L"C:\\g", L"C:\\h", L"C:\\A", L"C:\\i"})
    items[items.Add(CFileStatus())].FullName = name;
  CFileSystemBase::SortFileStatus(items);
  ASSERT_EQ(10, items.GetSize());
  for (int32_t i = 1; i < items.GetSize(); ++i)
    EXPECT_LT(ComparePaths(items[i - 1].FullName, items[i].FullName), 0) << N(items[i].FullName);
}

}  // namespace
