// Tests of typed settings against the real registry: what each value type
// makes of what may stand in the registry, writes and their errors, the root
// and key of every source kind, and the colour names. Test keys live below
// ...\Software\Tavix\TesselsTest\<pid> (and one class key) and are removed.
#include "setup.h"

#include <gtest/gtest.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "errors.h"

using namespace Tsl;
using TestSupport::Narrow;

namespace {

std::wstring W(const CUnicodeString& text) { return std::wstring(text.Text(), text.Length()); }
CUnicodeString U(const std::wstring& text) {
  return CUnicodeString(text.c_str(), static_cast<int32_t>(text.size()));
}

std::wstring Pid() { return std::to_wstring(::GetCurrentProcessId()); }

template <class F>
std::pair<std::wstring, int32_t> InternalErrorOf(F action) {
  try {
    action();
  } catch (CInternalError* error) {
    std::pair<std::wstring, int32_t> where(error->file, error->line);
    delete error;
    return where;
  }
  return {L"", 0};
}

// A raw value to put in place before a read: its type and its units as
// they are stored, a terminator only where listed.
struct Stored {
  DWORD type;
  std::wstring units;
};
Stored Raw(DWORD type, const std::wstring& units) { return {type, units}; }
Stored Text(const std::wstring& text) { return Raw(REG_SZ, text + L'\0'); }
Stored Absent() { return Raw(REG_NONE, L""); }

// Every test gets an empty key of its own under HKEY_CURRENT_USER. What it
// made under any root goes afterwards, and the parents too once no other
// test process uses them (a key with sub-keys is never deleted).
class SetupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path = L"Software\\Tavix\\TesselsTest\\" + Pid();
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0,
                                               KEY_ALL_ACCESS, nullptr, &raw, nullptr));
  }
  void TearDown() override {
    CRegistryKey::OverrideWow64Answer(-1);
    ::RegCloseKey(raw);
    ::RegDeleteTreeW(HKEY_CLASSES_ROOT, ClassKey().c_str());
    const struct {
      HKEY root;
      const wchar_t* prefix;
      REGSAM view;
    } places[] = {{HKEY_CURRENT_USER, L"", 0},
                  {HKEY_USERS, L".DEFAULT\\", 0},
                  {HKEY_CURRENT_CONFIG, L"", 0},
                  {HKEY_LOCAL_MACHINE, L"", KEY_WOW64_32KEY},
                  {HKEY_LOCAL_MACHINE, L"", KEY_WOW64_64KEY}};
    for (const auto& place : places) {
      std::wstring parent = std::wstring(place.prefix) + L"Software\\Tavix\\TesselsTest";
      HKEY key = nullptr;
      if (::RegOpenKeyExW(place.root, parent.c_str(), 0, KEY_ALL_ACCESS | place.view, &key) ==
          ERROR_SUCCESS) {
        ::RegDeleteTreeW(key, Pid().c_str());
        ::RegCloseKey(key);
      }
      ::RegDeleteKeyExW(place.root, parent.c_str(), place.view, 0);
      ::RegDeleteKeyExW(place.root, (std::wstring(place.prefix) + L"Software\\Tavix").c_str(),
                        place.view, 0);
    }
  }
  static std::wstring ClassKey() { return L"Tavix.TesselsTest." + Pid(); }

  void Put(const wchar_t* name, const Stored& value) {
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExW(raw, name, 0, value.type,
                                              reinterpret_cast<const BYTE*>(value.units.data()),
                                              static_cast<DWORD>(value.units.size() * 2)));
  }
  // What stands under `name` in `root`\`key` (in the registry `view`
  // chooses): type and the bytes as units; type 0 when there is nothing.
  static std::pair<DWORD, std::wstring> Get(HKEY root, const std::wstring& key, const wchar_t* name,
                                            REGSAM view = 0) {
    HKEY opened = nullptr;
    if (::RegOpenKeyExW(root, key.c_str(), 0, KEY_QUERY_VALUE | view, &opened) != ERROR_SUCCESS)
      return {0, L""};
    wchar_t buffer[64] = {};
    DWORD size = sizeof buffer, type = 0;
    LONG result =
        ::RegQueryValueExW(opened, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size);
    ::RegCloseKey(opened);
    if (result != ERROR_SUCCESS) return {0, L""};
    return {type, std::wstring(buffer, size / 2)};
  }

  std::wstring path;   // below HKEY_CURRENT_USER
  HKEY raw = nullptr;  // the same key through the plain system calls
};

// One value read by a setting of each type, each with its own default;
// the expected result is given as the setting's text form.
TEST_F(SetupTest, EachTypeReadsItsTextOrFallsBackToItsDefault) {
  CSetup<bool> yes(U(path), L"V", SS_CurrentUser, true);
  CSetup<bool> no(U(path), L"V", SS_CurrentUser, false);
  CSetup<CUnicodeString> text(U(path), L"V", SS_CurrentUser, L"dflt");
  CSetup<CTime> time(U(path), L"V", SS_CurrentUser, CTime(5));
  const struct {
    const char* what;
    Stored stored;
    std::function<CUnicodeString()> read;
    const wchar_t* expected;
  } cases[] = {
      {"bool off", Text(L"off"), [&] { return yes.ToText(yes.Get()); }, L"false"},
      {"bool 0", Text(L"0"), [&] { return yes.ToText(yes.Get()); }, L"false"},
      {"bool 2 is no word", Text(L"2"), [&] { return yes.ToText(yes.Get()); }, L"true"},
      {"bool 2, other default", Text(L"2"), [&] { return no.ToText(no.Get()); }, L"false"},
      {"bool blanks and case", Text(L" YeS\t"), [&] { return no.ToText(no.Get()); }, L"true"},
      {"bool empty text", Text(L""), [&] { return yes.ToText(yes.Get()); }, L"true"},
      {"bool number value", Raw(REG_DWORD, std::wstring(2, 0)), [&] { return no.ToText(no.Get()); },
       L"false"},
      {"bool absent", Absent(), [&] { return yes.ToText(yes.Get()); }, L"true"},
      {"text empty is a value", Text(L""), [&] { return text.Get(); }, L""},
      {"text expandable", Raw(REG_EXPAND_SZ, std::wstring(L"%TEMP%", 7)),
       [&] { return text.Get(); }, L"%TEMP%"},
      {"text number value", Raw(REG_DWORD, std::wstring(2, 0)), [&] { return text.Get(); },
       L"dflt"},
      {"text absent", Absent(), [&] { return text.Get(); }, L"dflt"},
      {"time blanks and sign", Text(L" -7 "), [&] { return time.Get().ToText(); }, L"-7"},
      {"time lowest", Text(L"-9223372036854775808"), [&] { return time.Get().ToText(); },
       L"-9223372036854775808"},
      {"time past the highest", Text(L"9223372036854775808"), [&] { return time.Get().ToText(); },
       L"5"},
      {"time not a number", Text(L"yesterday"), [&] { return time.Get().ToText(); }, L"5"},
      {"time absent", Absent(), [&] { return time.Get().ToText(); }, L"5"},
  };
  for (const auto& c : cases) {
    ::RegDeleteValueW(raw, L"V");
    if (c.stored.type != REG_NONE) Put(L"V", c.stored);
    EXPECT_EQ(Narrow(c.expected), Narrow(W(c.read()))) << c.what;
  }
  // The null time as default survives its way through the text form.
  EXPECT_EQ(NullTime, CSetup<CTime>(U(path), L"Absent", SS_CurrentUser, NullTime).Get());
}

TEST_F(SetupTest, SetStoresTerminatedTextThatGetReadsBack) {
  CSetup<bool> flag(U(path), L"Flag", SS_CurrentUser, false);
  CSetup<CUnicodeString> text(U(path), L"Text", SS_CurrentUser, L"dflt");
  CSetup<CTime> time(U(path), L"Time", SS_CurrentUser, NullTime);

  flag.Set(true);
  text.Set(L"");
  time.Set(CTime(INT64_MIN));

  EXPECT_EQ(std::make_pair(DWORD(REG_SZ), std::wstring(L"true") + L'\0'),
            Get(HKEY_CURRENT_USER, path, L"Flag"));
  EXPECT_EQ(std::make_pair(DWORD(REG_SZ), std::wstring(1, L'\0')),
            Get(HKEY_CURRENT_USER, path, L"Text"));
  EXPECT_EQ(std::make_pair(DWORD(REG_SZ), std::wstring(L"-9223372036854775808") + L'\0'),
            Get(HKEY_CURRENT_USER, path, L"Time"));
  EXPECT_TRUE(flag.Get());
  EXPECT_EQ(L"", W(text.Get()));
  EXPECT_EQ(INT64_MIN, time.Get().GetTicks());
  // Writing leaves the setting's own default alone.
  EXPECT_FALSE(flag.GetDefault());
  EXPECT_EQ(L"dflt", W(text.GetDefault()));
}

TEST_F(SetupTest, WriteToKeyThatCannotBeCreatedRaisesTheRegistryError) {
  HKEY volatileKey = nullptr;
  ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(raw, L"Volatile", 0, nullptr, REG_OPTION_VOLATILE,
                                             KEY_ALL_ACCESS, nullptr, &volatileKey, nullptr));
  ::RegCloseKey(volatileKey);
  // A lasting key cannot live below a volatile one.
  CSetup<bool> setting(U(path + L"\\Volatile\\Child"), L"Flag", SS_CurrentUser, true);
  std::wstring message, parameter;
  try {
    setting.Set(false);
  } catch (CCheckException* error) {
    message = error->messageName;
    parameter = W(error->params[0]);
    delete error;
  }
  EXPECT_EQ(L"ERR_CANT_WRITE_TO_REGISTRY", message);
  EXPECT_EQ(Narrow(L"HKEY_CURRENT_USER\\" + path + L"\\Volatile\\Child"), Narrow(parameter));
  EXPECT_TRUE(setting.Get()) << "nothing was written";
}

// Each absolute kind writes to and reads from its own root, at the key path
// as it stands.
TEST_F(SetupTest, AbsoluteKindsUseTheirRootAndThePathAsGiven) {
  struct Case {
    ESetupSource source;
    HKEY root;
    std::wstring key;
  };
  const std::vector<Case> cases = {
      {SS_LocalMachine, HKEY_LOCAL_MACHINE, path},
      {SS_CurrentUser, HKEY_CURRENT_USER, path + L"\\User"},
      {SS_Users, HKEY_USERS, L".DEFAULT\\" + path},
      {SS_ClassesRoot, HKEY_CLASSES_ROOT, ClassKey()},
      {SS_CurrentConfig, HKEY_CURRENT_CONFIG, path},
  };
  for (const Case& c : cases) {
    std::wstring written = L"from kind " + std::to_wstring(c.source);
    CSetup<CUnicodeString> setting(U(c.key), L"Where", c.source, L"dflt");
    EXPECT_EQ(c.root, setting.GetRoot());
    EXPECT_EQ(Narrow(c.key), Narrow(W(setting.GetEffectiveKeyPath())));
    ASSERT_NO_THROW(setting.Set(U(written))) << "kind " << c.source;
    EXPECT_EQ(Narrow(written), Narrow(Get(c.root, c.key, L"Where").second.c_str()))
        << "kind " << c.source;

    // And a value put there by someone else is what the setting reads.
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExW(c.root, c.key.c_str(), 0, KEY_SET_VALUE, &key));
    ::RegSetValueExW(key, L"Where", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"outside"), 16);
    ::RegCloseKey(key);
    EXPECT_EQ(L"outside", W(setting.Get())) << "kind " << c.source;
  }
  // No fallback between roots: the machine's value is not the user's.
  CSetup<CUnicodeString> user(U(path), L"Where", SS_CurrentUser, L"dflt");
  EXPECT_EQ(L"dflt", W(user.Get()));
}

TEST_F(SetupTest, ViewIsHandedToTheKey) {
  CRegistryKey::OverrideWow64Answer(1);
  CSetup<bool> inDefault(U(path + L"\\Default"), L"Flag", SS_LocalMachine, false);
  CSetup<bool> in64(U(path + L"\\Wide"), L"Flag", SS_LocalMachine, false, RV_64);
  inDefault.Set(true);
  in64.Set(true);
  EXPECT_EQ(DWORD(REG_SZ),
            Get(HKEY_LOCAL_MACHINE, path + L"\\Default", L"Flag", KEY_WOW64_32KEY).first);
  EXPECT_EQ(0u, Get(HKEY_LOCAL_MACHINE, path + L"\\Default", L"Flag", KEY_WOW64_64KEY).first);
  EXPECT_EQ(DWORD(REG_SZ),
            Get(HKEY_LOCAL_MACHINE, path + L"\\Wide", L"Flag", KEY_WOW64_64KEY).first);
  EXPECT_EQ(0u, Get(HKEY_LOCAL_MACHINE, path + L"\\Wide", L"Flag", KEY_WOW64_32KEY).first);
  EXPECT_TRUE(inDefault.Get());
  EXPECT_TRUE(in64.Get());
}

TEST(SetupPlace, RelativeKindsJoinTheLibraryKeyAndThePath) {
  struct Case {
    const wchar_t* library;
    const wchar_t* keyPath;
    const wchar_t* expected;
  };
  const Case cases[] = {
      {L"Software\\Tavix\\Agent", L"Options", L"Software\\Tavix\\Agent\\Options"},
      {L"Software\\Tavix\\Agent", L"", L"Software\\Tavix\\Agent"},
      {L"", L"Options", L"Options"},
      {L"", L"", L""},
  };
  for (const Case& c : cases)
    EXPECT_EQ(c.expected, W(CSetupBase::JoinKeyPath(c.library, c.keyPath)))
        << Narrow(c.library) << " + " << Narrow(c.keyPath);
}

// The library's keys exist only while it runs; these tests never start it.
TEST(SetupPlace, RelativeKindsNeedTheRunningLibrary) {
  CSetup<bool> user(L"Options", L"Flag", SS_UserSettings, true);
  CSetup<bool> machine(L"Options", L"Flag", SS_MachineSettings, true);
  EXPECT_EQ(std::make_pair(std::wstring(L"tessels"), 426), InternalErrorOf([&] { user.Get(); }));
  EXPECT_EQ(std::make_pair(std::wstring(L"tessels"), 426),
            InternalErrorOf([&] { machine.Set(false); }));
  EXPECT_EQ(HKEY_CURRENT_USER, user.GetRoot());
  EXPECT_EQ(HKEY_LOCAL_MACHINE, machine.GetRoot());
}

TEST(SetupPlace, UnknownSourceOrViewIsAnInternalError) {
  CSetup<bool> badSource(L"Software\\Tavix\\TesselsTest", L"Flag", static_cast<ESetupSource>(7),
                         true);
  EXPECT_EQ(L"setup", InternalErrorOf([&] { badSource.Get(); }).first);
  EXPECT_EQ(L"setup", InternalErrorOf([&] { badSource.Set(false); }).first);
  EXPECT_EQ(L"setup", InternalErrorOf([&] { badSource.GetRoot(); }).first);
  CSetup<bool> badView(L"Software\\Tavix\\TesselsTest", L"Flag", SS_CurrentUser, true, 3);
  EXPECT_EQ(L"setup", InternalErrorOf([&] { badView.Get(); }).first);
}

TEST(SetupColors, NamesFindTheSystemsColourNumbers) {
  const std::pair<const wchar_t*, int32_t> samples[] = {
      {L"SCROLLBAR", COLOR_SCROLLBAR}, {L"DESKTOP", COLOR_DESKTOP},
      {L"BACKGROUND", COLOR_DESKTOP},  {L"btnHighlight", COLOR_BTNHIGHLIGHT},
      {L"3dHiLight", COLOR_3DHILIGHT}, {L"infobk", COLOR_INFOBK},
  };
  for (const auto& sample : samples) {
    int32_t number = -1;
    EXPECT_TRUE(FindColorByName(sample.first, number)) << Narrow(sample.first);
    EXPECT_EQ(sample.second, number) << Narrow(sample.first);
  }
  int32_t untouched = -1;
  EXPECT_FALSE(FindColorByName(L"HOTLIGHT", untouched));
  EXPECT_EQ(-1, untouched);
}

}  // namespace
