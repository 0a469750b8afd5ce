// Tests of version information: string values under the first translation,
// and the empty answers of a file without a block or a missing value.
#include "versioninfo.h"

#include <gtest/gtest.h>

#include <string>

#include "TesselsTestKit.h"

using namespace Tsl;
using TestKit::W;

TEST(VersionInfo, ReadsStringsOfTheFirstTranslation) {
  CVersionInfo version;
  version.Load((std::wstring(MIRDAL_DEMO_DIR) + L"TstResRussian.dll").c_str());
  EXPECT_TRUE(version.IsValid());
  EXPECT_EQ(L"resource dll", W(version.GetStringValue(L"FileDescription")));
  EXPECT_EQ(L"1.0.0.0", W(version.GetStringValue(L"FileVersion")));
  EXPECT_EQ(L"", W(version.GetStringValue(L"NoSuchValue")));
}

TEST(VersionInfo, FileWithoutBlockIsInvalidAndEveryValueEmpty) {
  wchar_t self[MAX_PATH];
  ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  CVersionInfo version;
  version.Load(self);
  EXPECT_FALSE(version.IsValid());
  EXPECT_EQ(L"", W(version.GetStringValue(L"FileDescription")));
  version.Load(L"C:\\absent\\none.dll");
  EXPECT_FALSE(version.IsValid());
}

TEST(VersionInfo, PathOfAValueCarriesLanguageAndCodePageInLowerCaseHex) {
  EXPECT_EQ(L"\\StringFileInfo\\040904b0\\FileDescription",
            W(CVersionInfo::StringValuePath(0x0409, 0x04B0, L"FileDescription")));
}
