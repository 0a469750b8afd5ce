// Tests of the balloon request: what a sender stores reads back as the agent
// reads it, and a block holding something else is refused.
#include "TrayBalloonData.h"

#include <gtest/gtest.h>

#include <string>

#include "classregistry.h"
#include "errors.h"
#include "memoryfile.h"

using namespace Tsl;

namespace {

class COtherRecord : public virtual IObject {
  void Serialize(CArchive&) override {}
};
TSL_REGISTER_CLASS(COtherRecord);

// Stores a block as a sender does, then reads it as the agent does: from the
// start of a memory file, with a buffer of 4096 bytes. Returns the failure's
// message name, or "none".
template <class F>
std::string SendAndRead(F write, CPtr<CTrayBalloonData>& balloon) {
  CMemoryFile file;
  CArchive store(&file, CArchive::Store);
  write(store);
  store.Close();
  file.SeekToBegin();
  try {
    CArchive load(&file, CArchive::Load, 4096);
    balloon = ReadTrayBalloonData(load);
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

TEST(TrayBalloonData, ABalloonReadsBackAndAnythingElseIsABadArchive) {
  CPtr<CTrayBalloonData> sent(
      new CTrayBalloonData(L"Title", L"Word \x00E9t\x00E9", L"", 0x11223344));
  CPtr<CTrayBalloonData> read;
  ASSERT_EQ("none", SendAndRead([&](CArchive& a) { a << sent; }, read));
  EXPECT_TRUE(read->caption == L"Title" && read->text == sent->text && read->extra.IsEmpty());
  EXPECT_EQ(0x11223344, read->infoFlags);

  CPtr<COtherRecord> other(new COtherRecord);
  CPtr<CTrayBalloonData> none;
  EXPECT_EQ("ERR_BAD_ARCHIVE", SendAndRead([](CArchive& a) { a.WriteObject(nullptr); }, none));
  EXPECT_EQ("ERR_BAD_ARCHIVE", SendAndRead([&](CArchive& a) { a << other; }, none));
  EXPECT_TRUE(none.IsNull());
}
