// Tests of the native file on real files: the full path as its name, positions
// and lengths beyond 32 bits on a sparse file (with the 0xFFFFFFFF length that
// looks like a failure), SetLength and the position, and the runtime heap.
#include "nativefile.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <windows.h>
#include <winioctl.h>

#include <memory>
#include <string>

#include "TestSupport.h"
#include "errors.h"

using namespace Tsl;
using TestSupport::ScratchFolder;

namespace {

std::wstring W(const CUnicodeString& text) { return std::wstring(text.Text(), text.Length()); }

void OpenReadWrite(CNativeFile& file, const std::wstring& path,
                   uint32_t disposition = CREATE_ALWAYS) {
  file.Open(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
            disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

TEST(NativeFile, NameIsTheFullPathWhileOpenAndAfterAFailedOpen) {
  ScratchFolder folder;
  wchar_t saved[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, saved);
  ASSERT_TRUE(SetCurrentDirectoryW(folder.Path().c_str()));
  CNativeFile file, missing;
  OpenReadWrite(file, L"  .\\named.bin ");
  CFileException* error = nullptr;
  try {
    OpenReadWrite(missing, L"gone.bin", OPEN_EXISTING);
  } catch (CFileException* caught) {
    error = caught;
  }
  SetCurrentDirectoryW(saved);
  EXPECT_EQ(folder / L"named.bin", W(file.GetFileName()));
  ASSERT_NE(nullptr, error);
  EXPECT_EQ(folder / L"gone.bin", W(error->fileName));
  delete error;
  EXPECT_FALSE(missing.IsOpen());
  EXPECT_EQ(folder / L"gone.bin", W(missing.GetFileName()));

  file.Close();
  EXPECT_EQ(L"", W(file.GetFileName()));
  file.Close();  // the second close does nothing
}

TEST(NativeFile, ReadAtTheEndGivesZeroAndSeekBeforeTheStartIsABadSeek) {
  ScratchFolder folder;
  CNativeFile file;
  OpenReadWrite(file, folder / L"data.bin");
  file.Write("hello", 5);
  char buffer[8] = {};
  EXPECT_TRUE(file.IsEndOfFile());
  EXPECT_EQ(0, file.Read(buffer, 8));
  file.Seek(2, SeekBegin);
  EXPECT_EQ(3, file.Read(buffer, 8));  // short reads tell by their count
  try {
    file.Seek(-6, SeekCurrent);
    ADD_FAILURE() << "no exception";
  } catch (CFileException* error) {
    EXPECT_EQ(uint32_t(ERROR_NEGATIVE_SEEK), error->systemCode);
    EXPECT_EQ(FE_BadSeek, error->kind);
    delete error;
  }
}

TEST(NativeFile, PositionsAndLengthsBeyond32Bits) {
  ScratchFolder folder;
  CNativeFile file;
  OpenReadWrite(file, folder / L"sparse.bin");
  // Sparse, so that far positions cost no disk; without that they would.
  DWORD returned = 0;
  if (!DeviceIoControl(file.GetHandle(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned,
                       nullptr))
    GTEST_SKIP() << "the volume has no sparse files";

  const int64_t beyond = 0x100000005LL;  // the low half alone would be 5
  EXPECT_EQ(beyond, file.Seek(beyond, SeekBegin));
  file.Write("Z", 1);
  EXPECT_EQ(beyond + 1, file.GetLength());
  EXPECT_EQ(beyond + 1, file.GetPosition());
  EXPECT_EQ(beyond, file.Seek(-1, SeekEnd));
  char byte = 0;
  EXPECT_EQ(1, file.Read(&byte, 1));
  EXPECT_EQ('Z', byte);
  EXPECT_EQ(6, file.Seek(-0x100000000LL, SeekCurrent));  // a negative high half

  // A low half of 0xFFFFFFFF is what failure looks like; it isn't one here.
  for (int64_t length : {0xFFFFFFFFLL, 0x1FFFFFFFFLL}) {
    file.SetLength(length);
    EXPECT_EQ(length, file.GetLength()) << std::hex << length;
    EXPECT_EQ(length, file.GetPosition()) << std::hex << length;
  }
}

TEST(NativeFile, SetLengthBelowThePositionMovesItAndWritesAppendThere) {
  ScratchFolder folder;
  CNativeFile file;
  OpenReadWrite(file, folder / L"cut.bin");
  file.Write("0123456789", 10);
  file.SetLength(4);
  EXPECT_EQ(4, file.GetPosition());
  file.Write("xy", 2);
  file.SeekToBegin();
  char buffer[8] = {};
  EXPECT_EQ(6, file.Read(buffer, 8));
  EXPECT_STREQ("0123xy", buffer);
}

TEST(NativeFile, ObjectsLiveOnTheRuntimeHeapWhateverManagerIsCurrent) {
  struct CWatchedManager : IMemoryManager {
    void* Alloc(size_t size) override { return ++calls, malloc(size ? size : 1); }
    void Free(void* block) override { ++calls, free(block); }
    int calls = 0;
  } watched;
  {
    CMemoryManagerSwitch use(&watched);
    delete new CNativeFile();
  }
  EXPECT_EQ(0, watched.calls);
}
