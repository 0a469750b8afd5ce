// The native file system on a real tree: existence probes, directories made
// and removed, copy, move and delete, enumeration (also beyond 260 units),
// and collection.
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

TEST(NativeFileSystem, ProbesAndDirectoriesMadeOrRefused) {
  ScratchFolder scratch;
  ASSERT_TRUE(CreateDirectoryW((scratch / L"empty").c_str(), nullptr));
  ASSERT_TRUE(WriteBytes(scratch / L"file.txt", "x"));
  struct Row {
    std::wstring path;
    bool folder, found;  // DirectoryExists; FileExists for existence only
  } rows[] = {
      // clang-format off
      {scratch / L"empty", true, true},  // an empty folder shows its "." entry
      {scratch / L"missing", false, false},   {scratch / L"file.txt", false, true},
      {scratch / L"*.txt", false, true},      {scratch / L"bad|name", false, false},
      {L"", false, false}, {L"c:", true, false},      {L"\\\\no-such-server-here\\share", false, false},
      // clang-format on
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(Narrow(row.path));
    EXPECT_EQ(row.folder, Native().DirectoryExists(U(row.path)));
    EXPECT_EQ(row.found, Native().FileExists(U(row.path), CFile::ModeExistenceOnly));
  }
  Native().CreateDirectory(U(scratch / L"a\\b/c/"), true);
  EXPECT_TRUE(Exists(scratch / L"a\\b\\c"));
  std::wstring name;
  auto again = [&] { Native().CreateDirectory(U(scratch / L"a\\b"), true); };
  EXPECT_EQ(FE_AlreadyExists, FileErrorKind(again, &name));
  EXPECT_EQ(scratch / L"a\\b", name);
  auto forbidden = [&] { Native().CreateDirectory(U(scratch / L"bad|name\\x"), false); };
  EXPECT_GT(FileErrorKind(forbidden), 0);
  EXPECT_EQ(FE_BadPath, FileErrorKind([&] { Native().RemoveDirectory(U(scratch / L"no\\x")); }));
}

TEST(NativeFileSystem, EnumerateCollectAndDeleteATree) {
  ScratchFolder scratch;
  MakeTree(scratch);
  CFileStatusArray entries;
  entries.Add(CFileStatus());
  Native().EnumerateFiles(U(scratch.Path()), entries, L"*");
  EXPECT_EQ((std::vector<std::string>{"a.txt", "b.log", "hidden.txt", "skip/", "sub/"}),
            Names(entries));
  for (const CFileStatus& entry : entries)
    EXPECT_EQ(Narrow(scratch / W(entry.Name)), N(entry.FullName));
  std::wstring name;
  auto missing = [&] { Native().EnumerateFiles(U(scratch / L"missing"), entries, L"*"); };
  EXPECT_EQ(FE_BadPath, FileErrorKind(missing, &name));
  EXPECT_EQ(scratch / L"missing", name);
  struct Row {
    const wchar_t* masks;
    uint32_t flags;
    std::vector<std::string> names;
  } rows[] = {
      {L"*.txt", CF_Files | CF_HiddenAndSystem, {"a.txt", "hidden.txt"}},
      {L"*.txt; *.log;", CF_Files, {"a.txt"}},  // the blank belongs to the second mask
      {L"*.txt", CF_Files | CF_Recursive, {"a.txt", "c.txt", "d.txt", "e.txt"}},
      {L"*", CF_Directories | CF_Recursive, {"deep/", "skip/", "sub/"}},
  };
  for (const Row& row : rows) {
    CFileStatusArray result;
    Native().CollectFiles(U(scratch.Path()), result, row.masks, row.flags, nullptr);
    EXPECT_EQ(row.names, Names(result)) << Narrow(row.masks) << " flags " << row.flags;
  }
  ASSERT_TRUE(SetFileAttributesW((scratch / L"sub\\deep\\d.txt").c_str(), FILE_ATTRIBUTE_READONLY));
  ASSERT_TRUE(SetFileAttributesW((scratch / L"sub").c_str(), FILE_ATTRIBUTE_READONLY));
  auto keepReadOnly = [&] { Native().DeleteTree(U(scratch / L"sub"), false); };
  EXPECT_EQ(FE_AccessDenied, FileErrorKind(keepReadOnly));
  EXPECT_TRUE(Exists(scratch / L"sub\\deep\\d.txt"));
  Native().DeleteTree(U(scratch.Path()), true);
  EXPECT_FALSE(Exists(scratch.Path()));
}

TEST(NativeFileSystem, EnumerationBeyond260UnitsTakesThePrefixedFormWithDotsCollapsed) {
  const std::wstring tail(260, L'x');
  struct Row {
    std::wstring path, expected;
  } rows[] = {
      {L"C:\\a\\..\\b", L"C:\\a\\..\\b"},  // short: unchanged
      {L"C:/" + tail + L"/.\\y\\..\\z", L"\\\\?\\C:\\" + tail + L"\\z"},
      {L"\\\\s\\h\\..\\" + tail, L"\\\\?\\UNC\\s\\h\\" + tail},  // the share stays
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
  for (const wchar_t* name : {L"src.txt", L"other.txt"})
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
}

}  // namespace
