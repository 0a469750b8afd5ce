// Tests of the native file on real files: the full path as its name, short
// reads and bad seeks, SetLength and the position, and positions and lengths
// beyond 32 bits on a sparse file.
#include "nativefile.h"

#include <winioctl.h>

#include "FileTestHelpers.h"

using namespace FileTest;

static void OpenReadWrite(CNativeFile& file, const std::wstring& path) {
  file.Open(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
            CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

TEST(NativeFile, NamedByItsFullPathItReadsShortAndSetLengthPullsThePositionBack) {
  ScratchFolder folder;
  CNativeFile file;
  OpenReadWrite(file, L"  " + folder / L"sub\\..\\named.bin ");
  EXPECT_EQ(folder / L"named.bin", W(file.GetFileName()));
  file.Write("0123456789", 10);
  char buffer[12] = {};
  EXPECT_TRUE(file.IsEndOfFile());
  EXPECT_EQ(0, file.Read(buffer, 8));
  file.Seek(7, SeekBegin);
  EXPECT_EQ(3, file.Read(buffer, 8));
  EXPECT_EQ(FE_BadSeek, FileErrorKind([&] { file.Seek(-11, SeekCurrent); }));
  file.SetLength(4);
  EXPECT_EQ(4, file.GetPosition());
  file.Write("xy", 2);
  file.SeekToBegin();
  EXPECT_EQ(6, file.Read(buffer, 8));
  EXPECT_STREQ("0123xy", buffer);
}

TEST(NativeFile, PositionsAndLengthsBeyond32Bits) {
  ScratchFolder folder;
  CNativeFile file;
  OpenReadWrite(file, folder / L"sparse.bin");
  // Sparse, so that far positions cost no disk.
  DWORD returned = 0;
  if (!DeviceIoControl(file.GetHandle(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned,
                       nullptr))
    GTEST_SKIP() << "the volume has no sparse files";

  const int64_t beyond = 0x100000005LL;  // the low half alone would be 5
  EXPECT_EQ(beyond, file.Seek(beyond, SeekBegin));
  file.Write("Z", 1);
  EXPECT_EQ(beyond + 1, file.GetLength());
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
