// The native file system on a real tree: existence probes, directories made
// and removed, copy, move and delete, enumeration (also beyond 260 units),
// collection and sorting, file status, and the special folders.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "basefile.h"
#include "errors.h"
#include "filesystem.h"
#include "nativefile.h"
#include "nativefilesystem.h"

using namespace Tsl;
using TestSupport::Narrow;
using TestSupport::ScratchFolder;
using TestSupport::WriteBytes;

namespace {

std::string N(const CUnicodeString& text) { return Narrow(text.Text()); }
CUnicodeString U(const std::wstring& text) { return CUnicodeString(text.c_str()); }

CNativeFileSystem& Native() { return GetNativeFileSystemObject(); }

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

bool Exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::string ReadAll(const std::wstring& path) {
  HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  if (h == INVALID_HANDLE_VALUE) return "<missing>";
  char buffer[256];
  DWORD read = 0;
  ReadFile(h, buffer, sizeof buffer, &read, nullptr);
  CloseHandle(h);
  return std::string(buffer, read);
}

// The names of `entries`, sorted, with a trailing "/" for folders.
std::vector<std::string> Names(const CFileStatusArray& entries) {
  std::vector<std::string> names;
  for (int32_t i = 0; i < entries.GetSize(); ++i)
    names.push_back(N(entries[i].Name) + ((entries[i].Attributes & FILE_ATTRIBUTE_DIRECTORY) ? "/" : ""));
  std::sort(names.begin(), names.end());
  return names;
}

// a.txt, b.log, hidden.txt (hidden), sub/c.txt, sub/deep/d.txt, skip/e.txt
void MakeTree(const ScratchFolder& scratch) {
  ASSERT_TRUE(CreateDirectoryW((scratch / L"sub").c_str(), nullptr));
  ASSERT_TRUE(CreateDirectoryW((scratch / L"sub\\deep").c_str(), nullptr));
  ASSERT_TRUE(CreateDirectoryW((scratch / L"skip").c_str(), nullptr));
  for (const wchar_t* name : {L"a.txt", L"b.log", L"hidden.txt", L"sub\\c.txt", L"sub\\deep\\d.txt", L"skip\\e.txt"})
    ASSERT_TRUE(WriteBytes(scratch / name, Narrow(name)));
  ASSERT_TRUE(SetFileAttributesW((scratch / L"hidden.txt").c_str(), FILE_ATTRIBUTE_HIDDEN));
}

TEST(Existence, DirectoryProbes) {
  ScratchFolder scratch;
  ASSERT_TRUE(CreateDirectoryW((scratch / L"empty").c_str(), nullptr));
  ASSERT_TRUE(WriteBytes(scratch / L"file.txt", "x"));
  struct Row {
    std::wstring path;
    bool exists;
  } rows[] = {
      {scratch / L"empty", true},  // an empty folder shows its "." entry
      {scratch / L"empty\\", true},
      {scratch / L"empty\\..\\empty", true},
      {scratch / L"missing", false},
      {scratch / L"file.txt", false},
      {scratch / L"bad|name", false},
      {L"", false},
      {L"C:\\", true},
      {L"c:", true},
      {L"Q:\\", false},
      {L"\\\\no-such-server-here\\share", false},
  };
  for (const Row& row : rows) EXPECT_EQ(row.exists, Native().DirectoryExists(U(row.path))) << Narrow(row.path);
}

TEST(Existence, FileProbesByModeOrExistenceOnly) {
  ScratchFolder scratch;
  ASSERT_TRUE(WriteBytes(scratch / L"file.txt", "x"));
  const uint32_t existence = CFile::ModeExistenceOnly;
  EXPECT_TRUE(Native().FileExists(L"C:\\*", existence));
  EXPECT_TRUE(Native().FileExists(U(scratch.Path()), existence));
  EXPECT_TRUE(Native().FileExists(U(scratch / L"*.txt"), existence));
  EXPECT_FALSE(Native().FileExists(U(scratch / L"*.doc"), existence));
  EXPECT_FALSE(Native().FileExists(L"", existence));
  EXPECT_TRUE(Native().FileExists(U(scratch / L"file.txt"), CFile::ShareDenyWrite));
  EXPECT_FALSE(Native().FileExists(U(scratch / L"missing.txt"), CFile::ShareDenyWrite));
  // An open that conflicts with a holder of the file answers false.
  HANDLE holder = CreateFileW((scratch / L"file.txt").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, holder);
  EXPECT_FALSE(Native().FileExists(U(scratch / L"file.txt"), CFile::ShareDenyWrite));
  CloseHandle(holder);
  EXPECT_TRUE(ThrowsInternalError([&] { Native().FileExists(U(scratch / L"file.txt"), CFile::ModeRead); }));
}

TEST(Directories, CreateMakesTheWholeChain) {
  ScratchFolder scratch;
  Native().CreateDirectory(U(scratch / L"a\\b\\c"), true);
  EXPECT_TRUE(Exists(scratch / L"a\\b\\c"));
  Native().CreateDirectory(U(scratch / L"x/y/z/"), true);
  EXPECT_TRUE(Exists(scratch / L"x\\y\\z"));
  // Existing: quiet unless asked to fail.
  EXPECT_EQ(0, FileErrorKind([&] { Native().CreateDirectory(U(scratch / L"a\\b"), false); }));
  std::wstring name;
  EXPECT_EQ(FE_AlreadyExists, FileErrorKind([&] { Native().CreateDirectory(U(scratch / L"a\\b"), true); }, &name));
  EXPECT_EQ(scratch / L"a\\b", name);
  // The forwarder routes by path.
  CreateDirectory(U(scratch / L"via\\router"), false);
  EXPECT_TRUE(Exists(scratch / L"via\\router"));
}

TEST(Directories, ForbiddenCharactersAndMissingDrivesFail) {
  ScratchFolder scratch;
  std::wstring name;
  EXPECT_NE(0, FileErrorKind([&] { Native().CreateDirectory(U(scratch / L"bad|name\\x"), false); }, &name));
  EXPECT_FALSE(Exists(scratch / L"bad|name"));
  EXPECT_NE(0, FileErrorKind([&] { Native().CreateDirectory(L"Q:\\no\\drive", false); }));
  EXPECT_EQ(FE_BadPath, FileErrorKind([&] { Native().RemoveDirectory(U(scratch / L"missing\\x")); }));
}

TEST(Enumeration, EntriesWithStatusWithoutDots) {
  ScratchFolder scratch;
  MakeTree(scratch);
  CFileStatusArray entries;
  entries.Add(CFileStatus());
  Native().EnumerateFiles(U(scratch.Path()), entries, L"*");
  EXPECT_EQ((std::vector<std::string>{"a.txt", "b.log", "hidden.txt", "skip/", "sub/"}), Names(entries));
  for (int32_t i = 0; i < entries.GetSize(); ++i) {
    const CFileStatus& entry = entries[i];
    EXPECT_EQ(Narrow(scratch / entry.Name.Text()), N(entry.FullName));
    EXPECT_NE(NullTime, entry.LastWriteTime);
    if (entry.Name == L"a.txt") {
      EXPECT_EQ(5, entry.Length);
    }
  }
}

TEST(Enumeration, NoMatchIsEmptyAndAMissingFolderIsABadPath) {
  ScratchFolder scratch;
  MakeTree(scratch);
  CFileStatusArray entries;
  Native().EnumerateFiles(U(scratch.Path()), entries, L"*.none");
  EXPECT_EQ(0, entries.GetSize());
  std::wstring name;
  EXPECT_EQ(FE_BadPath, FileErrorKind([&] { Native().EnumerateFiles(U(scratch / L"missing"), entries, L"*"); }, &name));
  EXPECT_EQ(scratch / L"missing", name);
}

TEST(LongPaths, PrefixFormsAndDotCollapsing) {
  std::wstring longTail = std::wstring(260, L'x');
  struct Row {
    std::wstring path;
    std::wstring expected;
  } rows[] = {
      {L"C:\\a\\..\\b", L"C:\\a\\..\\b"},  // short: unchanged
      {L"C:\\" + longTail + L"\\.\\y\\..\\z", L"\\\\?\\C:\\" + longTail + L"\\z"},
      {L"C:\\..\\..\\" + longTail, L"\\\\?\\C:\\" + longTail},
      {L"\\\\s\\h\\..\\" + longTail, L"\\\\?\\UNC\\s\\h\\" + longTail},
      {L"C:/" + longTail + L"/q", L"\\\\?\\C:\\" + longTail + L"\\q"},
      {L"\\\\?\\C:\\" + longTail + L"\\..", L"\\\\?\\C:\\" + longTail + L"\\.."},
      {L"rel\\" + longTail, L"rel\\" + longTail},
  };
  for (const Row& row : rows) EXPECT_EQ(Narrow(row.expected), N(ToLongPath(U(row.path)))) << Narrow(row.path);
  EXPECT_EQ("\\\\s\\h\\b", N(CollapseDots(L"\\\\s\\h\\a\\..\\.\\b", PathUnc)));
  EXPECT_TRUE(ThrowsInternalError([] { CollapseDots(L"a\\b", PathRelative); }));
}

// Removes a tree that may be too deep for the ordinary calls.
void RemoveLongTree(const std::wstring& path) {
  std::wstring prefixed = L"\\\\?\\" + path;
  WIN32_FIND_DATAW data;
  HANDLE find = FindFirstFileW((prefixed + L"\\*").c_str(), &data);
  if (find != INVALID_HANDLE_VALUE) {
    do {
      std::wstring name = data.cFileName;
      if (name == L"." || name == L"..") continue;
      if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
        RemoveLongTree(path + L"\\" + name);
      else
        DeleteFileW((prefixed + L"\\" + name).c_str());
    } while (FindNextFileW(find, &data));
    FindClose(find);
  }
  RemoveDirectoryW(prefixed.c_str());
}

TEST(LongPaths, EnumerationWorksBeyond260Units) {
  ScratchFolder scratch;
  std::wstring deep = scratch.Path();
  for (int i = 0; i < 3; ++i) {
    deep += L"\\" + std::wstring(90, wchar_t(L'a' + i));
    ASSERT_TRUE(CreateDirectoryW((L"\\\\?\\" + deep).c_str(), nullptr));
  }
  ASSERT_GT(deep.size(), 260u);
  ASSERT_TRUE(WriteBytes(L"\\\\?\\" + deep + L"\\inside.txt", "x"));
  CFileStatusArray entries;
  // Through a ".." component, which the prefixed form cannot carry.
  std::wstring viaDots = deep + L"\\..\\" + std::wstring(90, L'c');
  Native().EnumerateFiles(U(viaDots), entries, L"*.txt");
  ASSERT_EQ(1, entries.GetSize());
  EXPECT_EQ("inside.txt", N(entries[0].Name));
  EXPECT_EQ(Narrow(viaDots + L"\\inside.txt"), N(entries[0].FullName));
  RemoveLongTree(scratch.Path() + L"\\" + std::wstring(90, L'a'));
}

TEST(SingleFiles, CopyMoveRenameAndDelete) {
  ScratchFolder scratch;
  ASSERT_TRUE(WriteBytes(scratch / L"src.txt", "source"));
  Native().CopyFile(U(scratch / L"copy.txt"), U(scratch / L"src.txt"));
  EXPECT_EQ("source", ReadAll(scratch / L"copy.txt"));
  ASSERT_TRUE(WriteBytes(scratch / L"other.txt", "other"));
  Native().MoveFile(U(scratch / L"copy.txt"), U(scratch / L"other.txt"));  // replaces
  EXPECT_EQ("other", ReadAll(scratch / L"copy.txt"));
  EXPECT_FALSE(Exists(scratch / L"other.txt"));
  ASSERT_TRUE(WriteBytes(scratch / L"third.txt", "third"));
  Native().MoveFileReplace(U(scratch / L"copy.txt"), U(scratch / L"third.txt"));
  EXPECT_EQ("third", ReadAll(scratch / L"copy.txt"));
  Native().RenameFile(U(scratch / L"copy.txt"), U(scratch / L"renamed.txt"));
  EXPECT_EQ("third", ReadAll(scratch / L"renamed.txt"));
  std::wstring name;
  // Renaming onto an existing file fails and names the destination.
  EXPECT_NE(0, FileErrorKind([&] { Native().RenameFile(U(scratch / L"src.txt"), U(scratch / L"renamed.txt")); },
                             &name));
  EXPECT_EQ(scratch / L"renamed.txt", name);
  Native().DeleteFile(U(scratch / L"renamed.txt"));
  EXPECT_FALSE(Exists(scratch / L"renamed.txt"));
  EXPECT_EQ(FE_NotFound, FileErrorKind([&] { Native().DeleteFile(U(scratch / L"renamed.txt")); }));
  EXPECT_FALSE(Native().TryDeleteFile(U(scratch / L"renamed.txt")));
  EXPECT_TRUE(Native().TryDeleteFile(U(scratch / L"src.txt")));
}

TEST(SingleFiles, CopyFailuresNameTheCause) {
  ScratchFolder scratch;
  ASSERT_TRUE(WriteBytes(scratch / L"src.txt", "source"));
  std::wstring name;
  EXPECT_EQ(FE_NotFound,
            FileErrorKind([&] { Native().CopyFile(U(scratch / L"dst.txt"), U(scratch / L"missing.txt")); }, &name));
  EXPECT_EQ(scratch / L"missing.txt", name);
  EXPECT_EQ(FE_BadPath,
            FileErrorKind([&] { Native().CopyFile(U(scratch / L"no\\dst.txt"), U(scratch / L"src.txt")); }, &name));
  EXPECT_EQ(scratch / L"no\\", name);
  // A target that another handle holds cannot be written: access denied,
  // and the target is left as it was.
  ASSERT_TRUE(WriteBytes(scratch / L"held.txt", "old"));
  HANDLE holder = CreateFileW((scratch / L"held.txt").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, holder);
  EXPECT_EQ(FE_AccessDenied,
            FileErrorKind([&] { Native().CopyFile(U(scratch / L"held.txt"), U(scratch / L"src.txt")); }, &name));
  EXPECT_EQ(scratch / L"held.txt", name);
  CloseHandle(holder);
  EXPECT_EQ("old", ReadAll(scratch / L"held.txt"));
  // Once free, the copy replaces it.
  Native().CopyFile(U(scratch / L"held.txt"), U(scratch / L"src.txt"));
  EXPECT_EQ("source", ReadAll(scratch / L"held.txt"));
}

TEST(SingleFiles, AttributesRoundTrip) {
  ScratchFolder scratch;
  ASSERT_TRUE(WriteBytes(scratch / L"f.txt", "x"));
  CUnicodeString path = U(scratch / L"f.txt");
  Native().SetFileAttributes(path, FILE_ATTRIBUTE_HIDDEN);
  EXPECT_EQ(uint32_t(FILE_ATTRIBUTE_HIDDEN), Native().GetFileAttributes(path) & FILE_ATTRIBUTE_HIDDEN);
  EXPECT_EQ(FE_NotFound, FileErrorKind([&] { Native().GetFileAttributes(U(scratch / L"missing")); }));
  EXPECT_GT(Native().GetFreeSpace(path), 0);
  EXPECT_GT(Native().GetFreeSpace(L"c:/"), 0);
}

TEST(Trees, DeleteTreeClearsReadOnlyOnlyWhenAsked) {
  ScratchFolder scratch;
  std::wstring root = scratch / L"tree";
  ASSERT_TRUE(CreateDirectoryW(root.c_str(), nullptr));
  ASSERT_TRUE(CreateDirectoryW((root + L"\\inner").c_str(), nullptr));
  ASSERT_TRUE(WriteBytes(root + L"\\inner\\ro.txt", "x"));
  ASSERT_TRUE(WriteBytes(root + L"\\plain.txt", "x"));
  ASSERT_TRUE(SetFileAttributesW((root + L"\\inner\\ro.txt").c_str(), FILE_ATTRIBUTE_READONLY));
  ASSERT_TRUE(SetFileAttributesW((root + L"\\inner").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY));
  EXPECT_EQ(FE_AccessDenied, FileErrorKind([&] { Native().DeleteTree(U(root), false); }));
  EXPECT_TRUE(Exists(root + L"\\inner\\ro.txt"));
  Native().DeleteTree(U(root), true);
  EXPECT_FALSE(Exists(root));
}

TEST(Collecting, FlagsMasksAndRecursion) {
  ScratchFolder scratch;
  MakeTree(scratch);
  CUnicodeString root = U(scratch.Path());
  struct Row {
    const wchar_t* masks;
    uint32_t flags;
    std::vector<std::string> names;
  } rows[] = {
      {L"*.txt", CF_Files, {"a.txt"}},
      {L"*.txt", CF_Files | CF_HiddenAndSystem, {"a.txt", "hidden.txt"}},
      {L"*.txt; *.log", CF_Files, {"a.txt", "b.log"}},
      {L"*", CF_Directories, {"skip/", "sub/"}},
      {L"*", CF_Files | CF_Directories, {"a.txt", "b.log", "skip/", "sub/"}},
      {L"*.txt", CF_Files | CF_Recursive, {"a.txt", "c.txt", "d.txt", "e.txt"}},
      {L"*", CF_Directories | CF_Recursive, {"deep/", "skip/", "sub/"}},
      // A mask listed twice yields its entries twice.
      {L"*.log;*.log", CF_Files, {"b.log", "b.log"}},
      {L"", CF_Files, {}},
  };
  for (const Row& row : rows) {
    CFileStatusArray result;
    Native().CollectFiles(root, result, row.masks, row.flags, nullptr);
    EXPECT_EQ(row.names, Names(result)) << Narrow(row.masks) << " flags " << row.flags;
  }
}

TEST(Collecting, FilterSkipsWholeSubtrees) {
  ScratchFolder scratch;
  MakeTree(scratch);
  struct SkipNamed : IDirectoryFilter {
    std::vector<std::string> seen;
    bool AcceptDirectory(const CUnicodeString& directory) override {
      seen.push_back(N(GetNameWithExtension(directory)));
      return GetNameWithExtension(directory) != L"sub";
    }
  } filter;
  CFileStatusArray result;
  Native().CollectFiles(U(scratch.Path()), result, L"*.txt", CF_Files | CF_Recursive, &filter);
  EXPECT_EQ((std::vector<std::string>{"a.txt", "e.txt"}), Names(result));
  // "deep" lies under the rejected folder and is never asked about.
  EXPECT_EQ(0, std::count(filter.seen.begin(), filter.seen.end(), "deep"));
}

TEST(Collecting, SortOrdersAsPathsAndDropsDuplicates) {
  const wchar_t* names[] = {L"C:\\b", L"c:\\A", L"C:/a", L"C:\\a\\", L"C:\\c", L"C:\\B\\x", L"C:\\b",
                            L"C:\\d", L"C:\\e", L"C:\\f", L"C:\\g", L"C:\\h", L"C:\\A", L"C:\\i"};
  CFileStatusArray items;
  for (const wchar_t* name : names) items[items.Add(CFileStatus())].FullName = name;
  CFileSystemBase::SortFileStatus(items);
  std::vector<std::string> sorted;
  for (int32_t i = 0; i < items.GetSize(); ++i) sorted.push_back(N(items[i].FullName));
  ASSERT_EQ(10u, sorted.size());
  for (size_t i = 1; i < sorted.size(); ++i)
    EXPECT_LT(ComparePaths(U(TestSupport::Widen(sorted[i - 1])), U(TestSupport::Widen(sorted[i]))), 0) << i;
  CFileStatusArray single;
  CFileSystemBase::SortFileStatus(single);
  EXPECT_EQ(0, single.GetSize());
}

TEST(Status, GetAndSetTimesAndAttributes) {
  ScratchFolder scratch;
  ASSERT_TRUE(WriteBytes(scratch / L"f.txt", "12345"));
  CUnicodeString path = U(scratch / L"sub\\..\\f.txt");
  CFileStatus status;
  Native().GetFileStatus(path, status);
  EXPECT_EQ(Narrow(scratch / L"f.txt"), N(status.FullName));
  EXPECT_EQ("f.txt", N(status.Name));
  EXPECT_EQ(5, status.Length);
  const CTime stamp(int64_t(130000000000000000));  // a day in 2012
  CFileStatus change;
  change.LastWriteTime = stamp;
  change.Attributes = FILE_ATTRIBUTE_READONLY;
  Native().SetFileStatus(path, change);
  Native().GetFileStatus(path, status);
  EXPECT_EQ(stamp, status.LastWriteTime);
  EXPECT_NE(0u, status.Attributes & FILE_ATTRIBUTE_READONLY);
  // A read-only file takes new times too: the bit goes first.
  change.LastWriteTime = CTime(stamp.GetTicks() + 20000000);
  change.Attributes = FILE_ATTRIBUTE_ARCHIVE;
  Native().SetFileStatus(path, change);
  Native().GetFileStatus(path, status);
  EXPECT_EQ(change.LastWriteTime, status.LastWriteTime);
  EXPECT_EQ(0u, status.Attributes & FILE_ATTRIBUTE_READONLY);
  // Without any time, new attributes of a writable file are not set.
  CFileStatus attributesOnly;
  attributesOnly.Attributes = FILE_ATTRIBUTE_HIDDEN;
  Native().SetFileStatus(path, attributesOnly);
  EXPECT_EQ(0u, Native().GetFileAttributes(path) & FILE_ATTRIBUTE_HIDDEN);
  std::wstring name;
  EXPECT_EQ(FE_NotFound, FileErrorKind([&] { Native().GetFileStatus(U(scratch / L"missing"), status); }, &name));
  EXPECT_EQ(scratch / L"missing", name);
}

TEST(Opening, CreateFileMakesANativeFileAndCloseFileDeletesIt) {
  ScratchFolder scratch;
  CUnicodeString path = U(scratch / L"made.bin");
  CBaseFile* file = Native().CreateFile(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                        nullptr, 0, 0, nullptr);
  ASSERT_NE(nullptr, dynamic_cast<CNativeFile*>(file));
  file->Write("abc", 3);
  Native().CloseFile(file, false);
  EXPECT_EQ("abc", ReadAll(scratch / L"made.bin"));
  file = Native().CreateFile(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                             nullptr, 0, 0, nullptr);
  Native().CloseFile(file, true);
  EXPECT_EQ(FE_BadPath, FileErrorKind([&] {
              Native().CreateFile(U(scratch / L"no\\such.bin"), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr, 0, 0, nullptr);
            }));
  EXPECT_TRUE(ThrowsInternalError([] { GetNativeFileSystemObject().CloseFile(nullptr, false); }));
}

TEST(SpecialFolders, PathsEndWithASeparatorAndDataPathsFollow) {
  CUnicodeString appData = GetSpecialFolder(SF_AppData);
  ASSERT_FALSE(appData.IsEmpty());
  EXPECT_TRUE(IsPathSeparator(appData[appData.Length() - 1]));
  EXPECT_TRUE(DirectoryExists(appData));
  CUnicodeString windows = GetSpecialFolder(SF_Windows);
  EXPECT_EQ(0, ComparePaths(GetWindowsFolder(), windows)) << N(windows);
  InitDataPaths(L"Tavix\\Program");
  EXPECT_EQ(N(appData + L"Tavix\\Program"), N(GetDataPath(DataPathApplication)));
  EXPECT_EQ(N(GetSpecialFolder(SF_LocalAppData) + L"Tavix\\Program"), N(GetDataPath(DataPathLocal)));
  EXPECT_EQ(N(GetSpecialFolder(SF_CommonAppData) + L"Tavix\\Program"), N(GetDataPath(DataPathCommon)));
  // The table empties at the end of the file layer and fills again on use.
  ClearSpecialFolders();
  EXPECT_EQ(N(appData), N(GetSpecialFolder(SF_AppData)));
  EXPECT_TRUE(ThrowsInternalError([] { GetSpecialFolder(ESpecialFolder(43)); }));
  EXPECT_TRUE(ThrowsInternalError([] { SetDataPath(EDataPathKind(3), L"x"); }));
}

}  // namespace
