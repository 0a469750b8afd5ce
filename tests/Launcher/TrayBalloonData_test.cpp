// Tests of the balloon request: the exact bytes that other programs send,
// reading them back as the agent does, and blocks that hold something else.
#include "TrayBalloonData.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "classregistry.h"
#include "errors.h"
#include "memoryfile.h"

using namespace Tsl;

namespace {

typedef std::vector<uint8_t> Bytes;

class COtherRecord : public virtual IObject {
  void Serialize(CArchive&) override {}
};
TSL_REGISTER_CLASS(COtherRecord);

void AppendText(Bytes& bytes, const std::wstring& text) {
  bytes.push_back(uint8_t(text.size()));
  for (wchar_t unit : text) {
    bytes.push_back(uint8_t(unit & 0xFF));
    bytes.push_back(uint8_t(unit >> 8));
  }
}

template <class F>
Bytes Store(F write) {
  CMemoryFile file;
  CArchive archive(&file, CArchive::Store);
  write(archive);
  archive.Close();
  return Bytes(file.GetBufferData(), file.GetBufferData() + file.GetLength());
}

// Reads a block the way the agent reads a MDDB copy: a memory file at its
// start, a loading archive with a buffer of 4096 bytes. Returns the failure's
// message name, or "none".
std::string ReadBlock(const Bytes& block, CPtr<CTrayBalloonData>& balloon) {
  CMemoryFile file;
  if (!block.empty()) file.Write(block.data(), int32_t(block.size()));
  file.SeekToBegin();
  try {
    CArchive archive(&file, CArchive::Load, 4096);
    balloon = ReadTrayBalloonData(archive);
  } catch (CException* exception) {
    std::string kind = "other";
    if (auto* check = dynamic_cast<CCheckException*>(exception))
      kind = CUnicodeString(check->messageName).ToNarrow().Text();
    delete exception;
    return kind;
  }
  return "none";
}

}  // namespace

TEST(TrayBalloonData, TheBlockIsTheClassNameThreeStringsAndFourRawBytes) {
  CPtr<CTrayBalloonData> balloon(
      new CTrayBalloonData(L"Title", L"Word \x00E9t\x00E9", L"", 0x11223344));
  // The first class name of the stream, then the fields.
  Bytes expected = {0x01, 16,  'C', 'T', 'r', 'a', 'y', 'B', 'a',
                    'l',  'l', 'o', 'o', 'n', 'D', 'a', 't', 'a'};
  AppendText(expected, L"Title");
  AppendText(expected, L"Word \x00E9t\x00E9");
  AppendText(expected, L"");
  expected.insert(expected.end(), {0x44, 0x33, 0x22, 0x11});
  EXPECT_EQ(expected, Store([&](CArchive& a) { a << balloon; }));

  CPtr<CTrayBalloonData> read;
  ASSERT_EQ("none", ReadBlock(expected, read));
  EXPECT_TRUE(read->caption == L"Title" && read->text == balloon->text && read->extra.IsEmpty());
  EXPECT_EQ(0x11223344, read->infoFlags);
}

TEST(TrayBalloonData, ABlockWithoutABalloonIsABadArchive) {
  CPtr<COtherRecord> other(new COtherRecord);
  struct Row {
    const char* what;
    Bytes block;
    std::string failure;
  } rows[] = {
      {"a null pointer", Store([](CArchive& a) { a.WriteObject(nullptr); }), "ERR_BAD_ARCHIVE"},
      {"another class", Store([&](CArchive& a) { a << other; }), "ERR_BAD_ARCHIVE"},
      {"a class this program lacks", {0x01, 0x04, 'C', 'N', 'e', 'w'}, "ERR_BAD_ARCHIVE_VERSION"},
  };
  for (const Row& row : rows) {
    CPtr<CTrayBalloonData> read;
    EXPECT_EQ(row.failure, ReadBlock(row.block, read)) << row.what;
    EXPECT_TRUE(read.IsNull()) << row.what;
  }
}
