// The in-memory file system against the native one: one table of operations
// that runs on a scratch folder on disk and on a virtual folder, with the
// places where the two are meant to differ marked; then the virtual tree's
// own rules (masks, sharing, copies across the two), its lock under several
// threads, and its end of life with files left open.
#include "virtualfilesystem.h"

#include <algorithm>
#include <thread>
#include <vector>

#include "FileTestHelpers.h"
#include "filesystem.h"
#include "nativefilesystem.h"

using namespace FileTest;

namespace {

const std::wstring VirtualRoot = L"\\\\Tavix\\Tessels\\VirtualFiles$";

CVirtualFileSystem& Virtual() { return GetVirtualFileSystemObject(); }

// A fresh virtual folder for each use, so cases never see each other.
std::wstring NewVirtualFolder() {
  static int counter = 0;
  std::wstring folder = VirtualRoot + L"\\case" + std::to_wstring(++counter);
  Virtual().CreateDirectory(U(folder), false);
  return folder;
}

// A folder on one of the two file systems, with the operations the table uses.
struct Place {
  std::wstring root;
  CFileSystemBase* fs;

  CUnicodeString P(const std::wstring& relative) const { return U(root + L"\\" + relative); }
};

// "ok", or "E" and the file error's kind, or "other" for another exception.
template <class Action>
std::string Outcome(Action action) {
  int32_t kind = FileErrorKind(action);
  return kind == 0 ? "ok" : kind < 0 ? "other" : "E" + std::to_string(kind);
}

std::string Put(const Place& at, const std::wstring& relative, const std::string& bytes,
                uint32_t flags = CFile::ModeCreate | CFile::ModeWrite) {
  // Writers deny writing to others unless told otherwise.
  if ((flags & CFile::ShareMask) == 0) flags |= CFile::ShareDenyWrite;
  return Outcome([&] {
    CFile file(at.P(relative), flags);
    file.Write(bytes.data(), int32_t(bytes.size()));
  });
}

// The whole content, or the outcome of the failed open.
std::string Get(const Place& at, const std::wstring& relative) {
  std::string content;
  std::string outcome = Outcome([&] {
    CFile file(at.P(relative), CFile::ModeRead | CFile::ShareDenyNone);
    content.resize(size_t(file.GetLength()));
    if (!content.empty()) file.Read(&content[0], int32_t(content.size()));
  });
  return outcome == "ok" ? content : outcome;
}

// Entry names of a listing, sorted, folders with a trailing "/".
std::string Listing(const Place& at, const std::wstring& relative, const wchar_t* mask) {
  CFileStatusArray entries;
  std::string outcome = Outcome([&] { at.fs->EnumerateFiles(at.P(relative), entries, mask); });
  if (outcome != "ok") return outcome;
  std::vector<std::string> names;
  for (const CFileStatus& entry : entries)
    names.push_back(N(entry.Name) + ((entry.Attributes & FILE_ATTRIBUTE_DIRECTORY) ? "/" : ""));
  std::sort(names.begin(), names.end());
  std::string joined;
  for (const std::string& name : names) joined += name + " ";
  return joined;
}

std::string Bool(bool value) { return value ? "true" : "false"; }

const uint32_t ReadShared = CFile::ModeRead | CFile::ShareDenyWrite;

struct Case {
  const char* name;
  std::string (*run)(const Place& at);
  const char* expected;
  // What the in-memory file system gives where it is meant to differ; null
  // when both agree.
  const char* virtualExpected;
};

// clang-format off
const Case cases[] = {
    {"written bytes read back", [](const Place& at) {
       Put(at, L"a.txt", "hello");
       return Get(at, L"a.txt");
     }, "hello", nullptr},
    {"a missing file does not open", [](const Place& at) { return Get(at, L"none.txt"); }, "E2", nullptr},
    {"create-new over an existing name", [](const Place& at) {
       Put(at, L"a.txt", "x");
       return Put(at, L"a.txt", "y", CFile::ModeCreateNew | CFile::ModeWrite);
     }, "E5", nullptr},
    {"open-always keeps and create-always truncates", [](const Place& at) {
       Put(at, L"a.txt", "abc");
       Put(at, L"a.txt", "X", CFile::ModeCreate | CFile::ModeNoTruncate | CFile::ModeWrite);
       std::string kept = Get(at, L"a.txt");
       Put(at, L"a.txt", "", CFile::ModeCreate | CFile::ModeWrite);
       return kept + "|" + Get(at, L"a.txt");
     }, "Xbc|", nullptr},
    {"deleting an open file is a sharing violation", [](const Place& at) {
       Put(at, L"a.txt", "x");
       CFile open(at.P(L"a.txt"), ReadShared);
       return Outcome([&] { at.fs->DeleteFile(at.P(L"a.txt")); });
     }, "E11", nullptr},
    {"delete, try-delete and existence", [](const Place& at) {
       Put(at, L"a.txt", "x");
       std::string missing = Outcome([&] { at.fs->DeleteFile(at.P(L"none.txt")); });
       bool tried = at.fs->TryDeleteFile(at.P(L"a.txt"));
       return missing + " " + Bool(tried) + " " + Bool(at.fs->TryDeleteFile(at.P(L"a.txt"))) + " " +
              Bool(at.fs->FileExists(at.P(L"a.txt"), CFile::ModeExistenceOnly));
     }, "E2 true false false", nullptr},
    {"a probe with a real mode leaves the file free", [](const Place& at) {
       Put(at, L"a.txt", "x");
       bool found = at.fs->FileExists(at.P(L"a.txt"), CFile::ModeRead | CFile::ShareDenyNone);
       return Bool(found) + " " + Outcome([&] { at.fs->DeleteFile(at.P(L"a.txt")); });
     }, "true ok", nullptr},
    {"a folder is found by existence only on disk", [](const Place& at) {
       at.fs->CreateDirectory(at.P(L"d"), false);
       return Bool(at.fs->FileExists(at.P(L"d"), CFile::ModeExistenceOnly));
     }, "true", "false"},  // a directory is no file in memory
    {"nested folders with trailing separators and mixed case", [](const Place& at) {
       at.fs->CreateDirectory(at.P(L"a\\b/c\\"), false);
       return Bool(at.fs->DirectoryExists(at.P(L"a\\b"))) + Bool(at.fs->DirectoryExists(at.P(L"A\\B\\C\\"))) +
              Bool(at.fs->DirectoryExists(at.P(L"a\\x")));
     }, "truetruefalse", nullptr},
    {"removing an empty folder, a missing one, a full one", [](const Place& at) {
       at.fs->CreateDirectory(at.P(L"e"), false);
       at.fs->RemoveDirectory(at.P(L"e"));
       at.fs->CreateDirectory(at.P(L"f"), false);
       Put(at, L"f\\x.txt", "x");
       return Bool(at.fs->DirectoryExists(at.P(L"e"))) + " " +
              Outcome([&] { at.fs->RemoveDirectory(at.P(L"missing")); }) + " " +
              Outcome([&] { at.fs->RemoveDirectory(at.P(L"f")); });
     }, "false E2 E7", "false ok E11"},  // in memory: silence, and in use
    {"listing by mask", [](const Place& at) {
       Put(at, L"a.txt", "1");
       Put(at, L"b.log", "2");
       at.fs->CreateDirectory(at.P(L"sub"), false);
       return Listing(at, L"", L"*.txt") + "|" + Listing(at, L"", L"*") + "|" + Listing(at, L"", L"?.log");
     }, "a.txt |a.txt b.log sub/ |b.log ", nullptr},
    {"a mask is case-sensitive only in memory", [](const Place& at) {
       Put(at, L"a.txt", "1");
       return Listing(at, L"", L"*.TXT");
     }, "a.txt ", ""},
    {"status of a file and of a folder", [](const Place& at) {
       Put(at, L"a.txt", "hello");
       at.fs->CreateDirectory(at.P(L"d"), false);
       CFileStatus file, folder;
       at.fs->GetFileStatus(at.P(L"a.txt"), file);
       at.fs->GetFileStatus(at.P(L"d"), folder);
       std::string seen = N(file.Name) + " " + std::to_string(file.Length) + " " +
                          Bool(file.CreationTime != NullTime) + " " + N(folder.Name) + " " +
                          Bool((folder.Attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) + " ";
       return seen + Outcome([&] { at.fs->GetFileStatus(at.P(L"none"), file); });
     }, "a.txt 5 true d true E2", nullptr},
    {"times set by status come back", [](const Place& at) {
       Put(at, L"a.txt", "x");
       CFileStatus status;
       at.fs->GetFileStatus(at.P(L"a.txt"), status);
       status.LastWriteTime = CTime(int64_t(130000000000000000));
       at.fs->SetFileStatus(at.P(L"a.txt"), status);
       at.fs->GetFileStatus(at.P(L"a.txt"), status);
       return std::to_string(status.LastWriteTime.GetTicks());
     }, "130000000000000000", nullptr},
    {"two readers sharing reading, then a writer", [](const Place& at) {
       Put(at, L"a.txt", "x");
       CFile one(at.P(L"a.txt"), ReadShared);
       CFile two(at.P(L"a.txt"), ReadShared);
       return Get(at, L"a.txt") + " " + Put(at, L"a.txt", "y", CFile::ModeWrite | CFile::ModeCreate | CFile::ModeNoTruncate);
     }, "x E11", nullptr},
    {"an exclusive writer keeps a reader out", [](const Place& at) {
       CFile writer(at.P(L"a.txt"), CFile::ModeCreate | CFile::ModeWrite | CFile::ShareExclusive);
       return Get(at, L"a.txt");
     }, "E11", nullptr},
    {"copy, move and rename", [](const Place& at) {
       Put(at, L"a.txt", "abc");
       at.fs->CopyFile(at.P(L"b.txt"), at.P(L"a.txt"));
       at.fs->MoveFile(at.P(L"c.txt"), at.P(L"b.txt"));
       at.fs->RenameFile(at.P(L"c.txt"), at.P(L"d.txt"));
       return Get(at, L"a.txt") + Get(at, L"b.txt") + Get(at, L"c.txt") + Get(at, L"d.txt");
     }, "abcE2E2abc", nullptr},
    {"seeking, reading past the end and writing beyond it", [](const Place& at) {
       CFile file(at.P(L"a.txt"), CFile::ModeCreate | CFile::ModeReadWrite | CFile::ShareDenyWrite);
       file.Write("ab", 2);
       std::string bad = Outcome([&] { file.Seek(-1, SeekBegin); });
       int64_t afterBad = file.GetPosition();
       char buffer[8];
       int32_t atEnd = (file.Seek(0, SeekEnd), file.Read(buffer, 8));
       file.Seek(5, SeekBegin);
       file.Write("cd", 2);
       file.Close();
       std::string content = Get(at, L"a.txt");
       for (char& c : content) if (c == 0) c = '0';
       return bad + " " + std::to_string(afterBad) + " " + std::to_string(atEnd) + " " + content;
     }, "E9 2 0 ab000cd", "E9 0 0 ab000cd"},  // a bad seek rewinds a virtual file
    {"a shorter length", [](const Place& at) {
       CFile file(at.P(L"a.txt"), CFile::ModeCreate | CFile::ModeReadWrite | CFile::ShareDenyWrite);
       file.Write("abcdef", 6);
       file.SetLength(2);
       file.Close();
       return Get(at, L"a.txt");
     }, "ab", nullptr},
    {"wildcards don't name a file", [](const Place& at) {
       return Put(at, L"x*.txt", "1") + " " + Put(at, L"y?.txt", "1");
     }, "E3 E3", nullptr},
    {"dots and case in paths", [](const Place& at) {
       at.fs->CreateDirectory(at.P(L"d"), false);
       Put(at, L"d\\..\\Mixed.TXT", "m");
       return Get(at, L"mixed.txt") + Get(at, L".\\d\\..\\MIXED.txt");
     }, "mm", nullptr},
    {"a file can't stand for a folder", [](const Place& at) {
       Put(at, L"f.txt", "x");
       return Put(at, L"f.txt\\g.txt", "y");
     }, "E3", nullptr},
    {"a folder can't open as a file", [](const Place& at) {
       at.fs->CreateDirectory(at.P(L"d"), false);
       return Get(at, L"d");
     }, "E5", nullptr},
    {"a file in a missing folder", [](const Place& at) {
       return Put(at, L"new\\x.txt", "x");
     }, "E3", "ok"},  // in memory the folders appear with the file
};
// clang-format on

TEST(VirtualFileSystem, OperationsAgreeWithTheNativeFileSystem) {
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    ScratchFolder scratch;
    Place native{scratch.Path(), &GetNativeFileSystemObject()};
    Place memory{NewVirtualFolder(), &Virtual()};
    EXPECT_EQ(row.expected, row.run(native)) << "native";
    EXPECT_EQ(row.virtualExpected ? row.virtualExpected : row.expected, row.run(memory)) << "virtual";
  }
  EXPECT_EQ(0, Virtual().GetOpenFileCount());
}

TEST(VirtualFileSystem, APathOutsideTheRootIsMisuse) {
  EXPECT_NE(nullptr, dynamic_cast<CInternalError*>(Catch([] { Virtual().DeleteFile(L"C:\\x.txt"); }).get()));
  EXPECT_FALSE(Virtual().DirectoryExists(L"C:\\"));
}

TEST(VirtualFileSystem, WritingADeepFileMakesItsFoldersInCreationOrder) {
  std::wstring folder = NewVirtualFolder();
  Place at{folder, &Virtual()};
  ASSERT_EQ("ok", Put(at, L"a\\b\\c.txt", "c"));
  EXPECT_TRUE(Virtual().DirectoryExists(at.P(L"a")));
  EXPECT_TRUE(Virtual().DirectoryExists(at.P(L"a\\b")));
  EXPECT_EQ("b/ ", Listing(at, L"a", L"*.*"));
  CFileStatus status;
  Virtual().GetFileStatus(at.P(L"A\\B\\C.TXT"), status);
  EXPECT_EQ(folder + L"\\a\\b\\c.txt", W(status.FullName));
  EXPECT_EQ(L"c.txt", W(status.Name));
  // A listing appends: files first, then folders.
  CFileStatusArray entries;
  entries.Add(CFileStatus());
  Put(at, L"a\\z.txt", "z");
  Virtual().EnumerateFiles(at.P(L"a"), entries, L"*");
  ASSERT_EQ(3, entries.GetSize());
  EXPECT_EQ(L"z.txt", W(entries[1].Name));
  EXPECT_EQ(L"b", W(entries[2].Name));
  // The root itself is no file and can't go.
  EXPECT_EQ(FE_AccessDenied, FileErrorKind([&] { Virtual().RemoveDirectory(U(VirtualRoot + L"\\")); }));
}

TEST(VirtualFileSystem, MasksMatchNameAndExtensionCaseSensitively) {
  struct Row {
    const wchar_t* name;
    const wchar_t* mask;
    bool matches;
  } rows[] = {
      {L"a.txt", L"*.*", true},    {L"noext", L"*", true},      {L"a.txt", L"*.txt", true},
      {L"a.txt", L"*.TXT", false}, {L"abc", L"ab*", true},      {L"abcd", L"ab*", true},
      {L"ab", L"ab*", false},      {L"a", L"ab*", false},       {L"a.txt", L"?.txt", true},
      {L"ab.txt", L"?.txt", false}, {L"abc.txt", L"a*", false}, {L"a.txt", L"a.t?t", true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(Narrow(row.name) + " " + Narrow(row.mask));
    EXPECT_EQ(row.matches, MatchesVirtualMask(U(VirtualRoot + L"\\d\\" + row.name), row.mask));
  }
}

TEST(VirtualFileSystem, OnlyTheNewOpensAccessMeetsTheOlderShareMasks) {
  Place at{NewVirtualFolder(), &Virtual()};
  Put(at, L"a.txt", "x");
  const uint32_t writeNoTruncate = CFile::ModeWrite | CFile::ModeCreate | CFile::ModeNoTruncate;
  struct Row {
    const char* what;
    uint32_t first, second;
    const char* outcome;
  } rows[] = {
      {"writer sharing nothing, then a reader sharing all", writeNoTruncate | CFile::ShareExclusive,
       CFile::ModeRead | CFile::ShareDenyNone, "E11"},
      {"writer sharing all, then a reader sharing nothing", writeNoTruncate | CFile::ShareDenyNone,
       CFile::ModeRead | CFile::ShareExclusive, "ok"},
      {"reader denying writes, then a writer", CFile::ModeRead | CFile::ShareDenyWrite,
       writeNoTruncate | CFile::ShareDenyNone, "E11"},
      {"create-always over an open file", CFile::ModeRead | CFile::ShareDenyNone,
       CFile::ModeCreate | CFile::ModeWrite | CFile::ShareDenyNone, "E11"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CFile first(at.P(L"a.txt"), row.first);
    EXPECT_EQ(row.outcome, Outcome([&] { CFile second(at.P(L"a.txt"), row.second); }));
  }
  EXPECT_EQ("x", Get(at, L"a.txt"));
  // A read-only file that nobody holds refuses a writer in the same words.
  Virtual().SetFileAttributes(at.P(L"a.txt"), FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(uint32_t(FILE_ATTRIBUTE_READONLY), Virtual().GetFileAttributes(at.P(L"a.txt")));
  EXPECT_EQ("E11", Put(at, L"a.txt", "y", writeNoTruncate));
  Virtual().SetFileAttributes(at.P(L"a.txt"), FILE_ATTRIBUTE_NORMAL);
  EXPECT_EQ("ok", Put(at, L"a.txt", "y", writeNoTruncate));
}

TEST(VirtualFileSystem, CreateAlwaysOnAClosedFileDropsContentAndTimes) {
  Place at{NewVirtualFolder(), &Virtual()};
  Put(at, L"a.txt", "old");
  CFileStatus status;
  Virtual().GetFileStatus(at.P(L"a.txt"), status);
  const CTime past(int64_t(120000000000000000));
  status.CreationTime = status.LastWriteTime = status.LastAccessTime = past;
  Virtual().SetFileStatus(at.P(L"a.txt"), status);
  Put(at, L"a.txt", "");
  Virtual().GetFileStatus(at.P(L"a.txt"), status);
  EXPECT_EQ(0, status.Length);
  EXPECT_NE(past, status.CreationTime);
  EXPECT_NE(past, status.LastWriteTime);
}

TEST(VirtualFileSystem, CopiesAndMovesAcrossTheTwoFileSystemsKeepEveryByte) {
  ScratchFolder scratch;
  Place native{scratch.Path(), &GetNativeFileSystemObject()};
  Place memory{NewVirtualFolder(), &Virtual()};
  // Several views long, and not a whole number of them.
  std::string content(300001, '\0');
  for (size_t i = 0; i < content.size(); ++i) content[i] = char(i * 7 + i / 251);
  ASSERT_TRUE(WriteBytes(native.root + L"\\source.bin", content));
  auto readAll = [](const CUnicodeString& path) {
    CFile file(path, CFile::ModeRead | CFile::ShareDenyNone);
    std::string bytes(size_t(file.GetLength()), '\0');
    if (!bytes.empty()) file.Read(&bytes[0], int32_t(bytes.size()));
    return bytes;
  };
  Virtual().CopyFile(memory.P(L"in.bin"), native.P(L"source.bin"));
  EXPECT_TRUE(readAll(memory.P(L"in.bin")) == content);
  Virtual().CopyFile(memory.P(L"twice.bin"), memory.P(L"in.bin"));
  EXPECT_TRUE(readAll(memory.P(L"twice.bin")) == content);
  Virtual().MoveFile(native.P(L"back.bin"), memory.P(L"twice.bin"));
  EXPECT_TRUE(readAll(native.P(L"back.bin")) == content);
  EXPECT_FALSE(Virtual().FileExists(memory.P(L"twice.bin"), CFile::ModeExistenceOnly));
  Virtual().MoveFile(memory.P(L"moved.bin"), native.P(L"back.bin"));
  EXPECT_FALSE(Exists(native.root + L"\\back.bin"));
  EXPECT_TRUE(readAll(memory.P(L"moved.bin")) == content);
  // A copy whose source is held for writing is refused, and nothing is lost.
  CFile writer(memory.P(L"in.bin"), CFile::ModeWrite | CFile::ModeCreate | CFile::ModeNoTruncate | CFile::ShareExclusive);
  EXPECT_EQ(FE_SharingViolation, FileErrorKind([&] { Virtual().CopyFile(memory.P(L"x.bin"), memory.P(L"in.bin")); }));
}

TEST(VirtualFileSystem, AFileOverAForeignMappingIsReadOnly) {
  Place at{NewVirtualFolder(), &Virtual()};
  HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr);
  ASSERT_NE(nullptr, mapping);
  char* view = static_cast<char*>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0));
  memcpy(view, "shared", 6);
  UnmapViewOfFile(view);
  // The file takes over the handle and closes it with its storage.
  CBaseFile* file = Virtual().CreateFile(at.P(L"m.bin"), GENERIC_READ, FILE_SHARE_READ, nullptr, CREATE_NEW,
                                         FILE_ATTRIBUTE_NORMAL, mapping, 6, 0, nullptr);
  char buffer[8] = {};
  EXPECT_EQ(6, file->Read(buffer, 8));
  EXPECT_EQ("shared", std::string(buffer, 6));
  Virtual().CloseFile(file, false);
  EXPECT_TRUE((Virtual().GetFileAttributes(at.P(L"m.bin")) & FILE_ATTRIBUTE_READONLY) != 0);
  EXPECT_EQ("E11", Put(at, L"m.bin", "x", CFile::ModeWrite | CFile::ModeCreate | CFile::ModeNoTruncate));
  EXPECT_EQ("shared", Get(at, L"m.bin"));
}

// Four threads, each writing its own files in its own folder and one shared
// folder, while listing the shared folder: every byte and entry survives.
TEST(VirtualFileSystem, TheLockKeepsFourThreadsWhole) {
  const std::wstring shared = NewVirtualFolder();
  const int Threads = 4, Files = 40;
  std::vector<std::wstring> folders;
  for (int t = 0; t < Threads; ++t) folders.push_back(NewVirtualFolder());
  std::vector<std::string> failures(Threads);
  auto work = [&](int t) {
    try {
      CUnicodeString sharedFolder = U(shared);
      int32_t seen = 0;
      for (int i = 0; i < Files; ++i) {
        std::string content(size_t(1000 + 997 * i + t), char('a' + t));
        for (const std::wstring& folder : {folders[size_t(t)], shared}) {
          CFile file(U(folder + L"\\f" + std::to_wstring(t) + L"_" + std::to_wstring(i) + L".bin"),
                     CFile::ModeCreate | CFile::ModeWrite | CFile::ShareDenyWrite);
          file.Write(content.data(), int32_t(content.size()));
        }
        // Files are only ever added: a listing never shrinks.
        CFileStatusArray entries;
        Virtual().EnumerateFiles(sharedFolder, entries, L"*.bin");
        if (entries.GetSize() < seen) failures[size_t(t)] = "a listing lost entries";
        seen = entries.GetSize();
      }
    } catch (CException* failure) {
      failures[size_t(t)] = N(failure->GetMessageText());
      delete failure;
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < Threads; ++t) threads.emplace_back(work, t);
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < Threads; ++t) EXPECT_EQ("", failures[size_t(t)]) << "thread " << t;
  CFileStatusArray entries;
  Virtual().EnumerateFiles(U(shared), entries, L"*");
  EXPECT_EQ(Threads * Files, entries.GetSize());
  for (int t = 0; t < Threads; ++t)
    for (int i = 0; i < Files; i += 13) {
      std::string expected(size_t(1000 + 997 * i + t), char('a' + t));
      CFile file(U(folders[size_t(t)] + L"\\f" + std::to_wstring(t) + L"_" + std::to_wstring(i) + L".bin"),
                 CFile::ModeRead | CFile::ShareDenyNone);
      std::string bytes(size_t(file.GetLength()), '\0');
      file.Read(&bytes[0], int32_t(bytes.size()));
      EXPECT_TRUE(bytes == expected) << t << " " << i;
    }
}

TEST(VirtualFileSystem, TheEndClosesFilesLeftOpenAndEmptiesTheTree) {
  Place at{NewVirtualFolder(), &Virtual()};
  CFile writer(at.P(L"open\\w.txt"), CFile::ModeCreate | CFile::ModeWrite | CFile::ShareDenyWrite);
  writer.Write("abc", 3);
  CFile reader(at.P(L"open\\w.txt"), CFile::ModeRead | CFile::ShareDenyNone);
  // An open made without a CFile is closed by the file system itself.
  CBaseFile* bare = Virtual().CreateFile(at.P(L"bare.txt"), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                         FILE_ATTRIBUTE_NORMAL, nullptr, 0, 0, nullptr);
  bare->Write("x", 1);
  EXPECT_EQ(3, Virtual().GetOpenFileCount());
  TerminateFileSystems();
  EXPECT_FALSE(writer.IsOpen());
  EXPECT_FALSE(reader.IsOpen());
  EXPECT_EQ(0, Virtual().GetOpenFileCount());
  EXPECT_FALSE(Virtual().DirectoryExists(U(at.root)));
  // The file system stays usable, empty.
  EXPECT_EQ("ok", Put(at, L"again.txt", "new"));
  EXPECT_EQ("new", Get(at, L"again.txt"));
}

// Leaves a file open and a tree full at the end of the process: the static
// end closes and frees them, and the process ends cleanly.
MIRDAL_CHILD_ROLE(LeaveVirtualFilesOpen) {
  CFile* leaked = new CFile(U(VirtualRoot + L"\\left\\open.txt"), CFile::ModeCreate | CFile::ModeWrite | CFile::ShareDenyWrite);
  leaked->Write("left", 4);
  WriteTextFile(U(VirtualRoot + L"\\left\\closed.txt"), L"closed");
  return 7;
}

TEST(VirtualFileSystem, AProcessEndsCleanlyWithVirtualFilesLeftOpen) {
  TestSupport::ChildResult child = TestSupport::RunChild("LeaveVirtualFilesOpen");
  EXPECT_FALSE(child.timedOut);
  EXPECT_EQ(7u, child.exitCode) << child.output;
}

}  // namespace
