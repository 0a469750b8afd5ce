// Tests of typed settings against the real registry: what each value type
// makes of what may stand there, writes and their errors, the root and key
// of every source kind, and the colour names.
#include "setup.h"

#include <gtest/gtest.h>
#include <stdint.h>

#include <string>

#include "RegistryTestKit.h"

using namespace Tsl;
using TestKit::W;

namespace {

class SetupTest : public TestKit::RegistryTest {
 protected:
  CUnicodeString Path(const wchar_t* below = L"") const { return (path + below).c_str(); }
};

// One stored value read by settings of each type. Each row gives the reads of
// a bool defaulting to true, one defaulting to false, a text defaulting to
// "dflt" and a time defaulting to 5, joined by '|'.
TEST_F(SetupTest, EachTypeReadsItsTextOrFallsBackToItsDefault) {
  CSetup<bool> yes(Path(), L"V", SS_CurrentUser, true), no(Path(), L"V", SS_CurrentUser, false);
  CSetup<CUnicodeString> text(Path(), L"V", SS_CurrentUser, L"dflt");
  CSetup<CTime> time(Path(), L"V", SS_CurrentUser, CTime(5));
  const struct {
    DWORD type;  // REG_NONE: nothing stored
    std::wstring units;
    const wchar_t* reads;
  } cases[] = {{REG_SZ, std::wstring(L"off", 4), L"false|false|off|5"},
               {REG_SZ, std::wstring(L" YeS\t", 6), L"true|true| YeS\t|5"},
               {REG_SZ, std::wstring(L"2", 2), L"true|false|2|2"},  // 2 is no word for a bool
               {REG_SZ, L"on", L"true|true|on|5"},  // no terminator: all units count
               {REG_SZ, std::wstring(1, L'\0'), L"true|false||5"},  // the empty text is a value
               {REG_EXPAND_SZ, std::wstring(L"%TEMP%", 7), L"true|false|%TEMP%|5"},
               {REG_DWORD, std::wstring(2, L'\0'), L"true|false|dflt|5"},
               {REG_NONE, L"", L"true|false|dflt|5"}};
  for (const auto& c : cases) {
    ::RegDeleteValueW(raw, L"V");
    if (c.type != REG_NONE) Put(L"V", c.type, c.units);
    std::wstring reads = W(yes.ToText(yes.Get()) + L"|" + no.ToText(no.Get()) + L"|" + text.Get() +
                           L"|" + time.Get().ToText());
    EXPECT_EQ(c.reads, reads);
  }
}

// A write that cannot happen is never silently lost.
TEST_F(SetupTest, SetToAKeyThatCannotBeCreatedRaisesTheRegistryErrorNamingTheKey) {
  try {
    CSetup<bool>(Path(L"\\Volatile\\Child"), L"Flag", SS_CurrentUser, true).Set(false);
    ADD_FAILURE() << "no error";
  } catch (CCheckException* error) {
    EXPECT_EQ(L"ERR_CANT_WRITE_TO_REGISTRY", std::wstring(error->messageName));
    EXPECT_EQ(L"HKEY_CURRENT_USER\\" + path + L"\\Volatile\\Child", W(error->params[0]));
    delete error;
  }
}

// Each absolute kind reads and writes below its own root at the key path as
// given. The machine's rows tell the process it runs on the 32-bit layer,
// where the machine's software key is split in two and the view picks a side.
TEST_F(SetupTest, EachSourceKindUsesItsRootAndPath) {
  const struct {
    ESetupSource source;
    int32_t view;
    HKEY root;
    std::wstring key;
    REGSAM side, otherSide;
  } cases[] = {
      {SS_LocalMachine, RV_Default, HKEY_LOCAL_MACHINE, path, KEY_WOW64_32KEY, KEY_WOW64_64KEY},
      {SS_LocalMachine, RV_64, HKEY_LOCAL_MACHINE, path + L"\\Wide", KEY_WOW64_64KEY,
       KEY_WOW64_32KEY},
      {SS_CurrentUser, RV_Default, HKEY_CURRENT_USER, path + L"\\User", 0, 0},
      {SS_Users, RV_Default, HKEY_USERS, L".DEFAULT\\" + path, 0, 0},
      {SS_ClassesRoot, RV_Default, HKEY_CLASSES_ROOT, ClassKey(), 0, 0},
      {SS_CurrentConfig, RV_Default, HKEY_CURRENT_CONFIG, path, 0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE("kind " + std::to_string(c.source) + ", view " + std::to_string(c.view));
    CRegistryKey::OverrideWow64Answer(c.side != 0);
    CSetup<CUnicodeString> setting(c.key.c_str(), L"Where", c.source, L"dflt", c.view);
    EXPECT_EQ(c.root, setting.GetRoot());
    setting.Set(L"inside");
    EXPECT_EQ(std::make_pair(DWORD(REG_SZ), std::wstring(L"inside", 7)),  // terminated
              Get(c.root, c.key, L"Where", c.side));
    EXPECT_EQ(0u, c.side ? Get(c.root, c.key, L"Where", c.otherSide).first : 0u) << "one side";
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              ::RegOpenKeyExW(c.root, c.key.c_str(), 0, KEY_SET_VALUE | c.side, &key));
    ::RegSetValueExW(key, L"Where", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"outside"), 16);
    ::RegCloseKey(key);
    EXPECT_EQ(L"outside", W(setting.Get()));
  }
  // The relative kinds put the library's key in front; it exists only while
  // the library runs, and these tests never start it.
  EXPECT_EQ(L"Lib\\Options|Lib", W(CSetupBase::JoinKeyPath(L"Lib", L"Options") + L"|" +
                                   CSetupBase::JoinKeyPath(L"Lib", L"")));
  CSetup<bool> user(L"Options", L"Flag", SS_UserSettings, true);
  EXPECT_EQ(HKEY_CURRENT_USER, user.GetRoot());
  EXPECT_EQ(TestKit::Place(L"tessels", 426), TestKit::InternalErrorOf([&] { user.Get(); }));
}

TEST(SetupColors, NamesFindTheSystemsColourNumbersInAnyCase) {
  int32_t number = -1;
  EXPECT_TRUE(FindColorByName(L"btnHighlight", number) && number == COLOR_BTNHIGHLIGHT);
  EXPECT_FALSE(FindColorByName(L"HOTLIGHT", number));
  EXPECT_EQ(COLOR_BTNHIGHLIGHT, number) << "a failed search leaves the number alone";
}

}  // namespace
