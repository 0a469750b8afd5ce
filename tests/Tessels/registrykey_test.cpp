// Tests of the registry key wrapper against the real registry: the type and
// size rules of string reads, the names that write errors carry, the view
// flags under both answers about the 32-bit layer, and misuse. Each test
// works below HKxx\Software\Tavix\TesselsTest\<pid>, removed afterwards.
#include "registrykey.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "errors.h"

using namespace Tsl;
using TestSupport::Narrow;

namespace {

std::wstring W(const CUnicodeString& text) { return std::wstring(text.Text(), text.Length()); }
std::wstring Pid() { return std::to_wstring(::GetCurrentProcessId()); }

// The unit of the internal error that `action` raises; empty when none.
template <class F>
std::wstring InternalErrorUnitOf(F action) {
  try {
    action();
  } catch (CInternalError* error) {
    std::wstring unit = error->file;
    delete error;
    return unit;
  }
  return L"";
}

// Message name and first parameter of the check error `action` raises.
template <class F>
std::pair<std::wstring, std::string> CheckErrorOf(F action) {
  try {
    action();
  } catch (CCheckException* error) {
    std::pair<std::wstring, std::string> what(error->messageName, Narrow(W(error->params[0])));
    delete error;
    return what;
  }
  return {L"", ""};
}

// Gives each test an empty key under HKEY_CURRENT_USER and removes what it
// made in both registries of the machine; puts back the system's answer
// about the 32-bit layer. Parents go only once no other test uses them.
class RegistryKeyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path = L"Software\\Tavix\\TesselsTest\\" + Pid();
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0,
                                               KEY_ALL_ACCESS, nullptr, &raw, nullptr));
  }
  void TearDown() override {
    CRegistryKey::OverrideWow64Answer(-1);
    ::RegCloseKey(raw);
    for (REGSAM view : {REGSAM(0), REGSAM(KEY_WOW64_32KEY), REGSAM(KEY_WOW64_64KEY)}) {
      HKEY root = view == 0 ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
      HKEY parent = nullptr;
      if (::RegOpenKeyExW(root, L"Software\\Tavix\\TesselsTest", 0, KEY_ALL_ACCESS | view,
                          &parent) == ERROR_SUCCESS) {
        ::RegDeleteTreeW(parent, Pid().c_str());
        ::RegCloseKey(parent);
      }
      ::RegDeleteKeyExW(root, L"Software\\Tavix\\TesselsTest", view, 0);
      ::RegDeleteKeyExW(root, L"Software\\Tavix", view, 0);
    }
  }
  std::string FullName(const wchar_t* below = L"") const {
    return Narrow(L"HKEY_CURRENT_USER\\" + path + below);
  }

  std::wstring path;   // below HKEY_CURRENT_USER
  HKEY raw = nullptr;  // the same key through the plain system calls
};

TEST_F(RegistryKeyTest, ReadStringTakesEvenSizedStringValuesOnly) {
  struct Case {
    const char* what;
    DWORD type;
    std::wstring units;       // stored as they stand
    bool oddSize;             // one byte less
    const wchar_t* expected;  // null: the default
    int32_t expectedLength;
  };
  const std::vector<Case> cases = {
      {"terminated", REG_SZ, std::wstring(L"abc\0", 4), false, L"abc", 3},
      {"no terminator: taken whole", REG_SZ, L"abc", false, L"abc", 3},
      {"two terminators: one stays", REG_SZ, std::wstring(L"a\0\0", 3), false, L"a\0", 2},
      {"one zero unit: empty text", REG_SZ, std::wstring(1, L'\0'), false, L"", 0},
      {"expandable: not expanded", REG_EXPAND_SZ, std::wstring(L"%W%\0", 4), false, L"%W%", 3},
      {"size zero", REG_SZ, L"", false, nullptr, 0},
      {"odd size", REG_SZ, std::wstring(L"ab\0", 3), true, nullptr, 0},
      {"binary", REG_BINARY, L"ab", false, nullptr, 0},
      {"number", REG_DWORD, L"ab", false, nullptr, 0},
      {"list of texts", REG_MULTI_SZ, std::wstring(L"a\0\0", 3), false, nullptr, 0},
  };
  for (const Case& c : cases) {
    DWORD size = static_cast<DWORD>(c.units.size() * 2) - (c.oddSize ? 1 : 0);
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExW(raw, L"Value", 0, c.type,
                                              reinterpret_cast<const BYTE*>(c.units.data()), size));
    CRegistryKey key;
    ASSERT_TRUE(key.Open(HKEY_CURRENT_USER, path.c_str(), RM_Read));
    std::wstring expected = c.expected ? std::wstring(c.expected, c.expectedLength) : L"fallback";
    EXPECT_EQ(Narrow(expected), Narrow(W(key.ReadString(L"Value", L"fallback")))) << c.what;
    EXPECT_EQ(static_cast<int32_t>(expected.size()), key.ReadString(L"Value", L"fallback").Length())
        << c.what;
  }
}

TEST_F(RegistryKeyTest, MissingKeyOrValueReadsAsDefaultAndZero) {
  CRegistryKey key;
  EXPECT_FALSE(key.Open(HKEY_CURRENT_USER, (path + L"\\Absent").c_str(), RM_Read));
  EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
  // A failed open keeps mode and name: the object still answers reads.
  EXPECT_EQ(RM_Read, key.GetMode());
  EXPECT_EQ(FullName(L"\\Absent"), Narrow(W(key.GetFullName())));
  EXPECT_EQ(L"dflt", W(key.ReadString(L"Value", L"dflt")));
  EXPECT_EQ(0u, key.GetValueType(L"Value"));
  key.Close();
  EXPECT_EQ(RM_Closed, key.GetMode());
  EXPECT_TRUE(key.GetFullName().IsEmpty());

  ::RegSetValueExW(raw, L"Present", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"x"), 4);
  ASSERT_TRUE(key.Open(HKEY_CURRENT_USER, path.c_str(), RM_Read)) << "a closed object is reusable";
  EXPECT_EQ(0u, ::GetLastError());
  EXPECT_EQ(0u, key.GetValueType(L"Missing"));
  EXPECT_EQ(0, key.GetValueSize(L"Missing"));
  EXPECT_EQ(static_cast<uint32_t>(REG_SZ), key.GetValueType(L"Present"));
  EXPECT_EQ(4, key.GetValueSize(L"Present"));
  wchar_t small[1];
  EXPECT_EQ(0, key.ReadValue(L"Present", small, sizeof small)) << "a short buffer reads nothing";
}

TEST_F(RegistryKeyTest, WriteModeWithEmptySubKeyOpensTheRootItself) {
  CRegistryKey key;
  EXPECT_TRUE(key.Open(HKEY_CURRENT_USER, L"", RM_Write));
  EXPECT_EQ(L"HKEY_CURRENT_USER", W(key.GetFullName()));
}

// Keys the system refuses to create: a lasting key below a volatile one, and
// one below a root that is no key at all. The error names the key alone.
TEST_F(RegistryKeyTest, WriteToKeyThatCannotBeOpenedNamesTheKey) {
  HKEY volatileKey = nullptr;
  ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(raw, L"Volatile", 0, nullptr, REG_OPTION_VOLATILE,
                                             KEY_ALL_ACCESS, nullptr, &volatileKey, nullptr));
  ::RegCloseKey(volatileKey);
  const struct {
    HKEY root;
    std::wstring subKey;
    std::string expectedName;
  } cases[] = {
      {HKEY_CURRENT_USER, path + L"\\Volatile\\Child", FullName(L"\\Volatile\\Child")},
      {reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x4242)), L"Some\\Key", "\\Some\\Key"},
  };
  for (const auto& c : cases) {
    CRegistryKey key;
    EXPECT_FALSE(key.Open(c.root, c.subKey.c_str(), RM_Write)) << c.expectedName;
    EXPECT_NE(0u, ::GetLastError());
    auto error = CheckErrorOf([&] { key.WriteValue(L"Value", L"v", 4); });
    EXPECT_EQ(L"ERR_CANT_WRITE_TO_REGISTRY", error.first);
    EXPECT_EQ(c.expectedName, error.second);
  }
}

TEST_F(RegistryKeyTest, ValueTheSystemRefusesNamesKeyAndValue) {
  CRegistryKey key;
  ASSERT_TRUE(key.Open(HKEY_CURRENT_USER, (path + L"\\Doomed").c_str(), RM_Write));
  // The key goes while our handle is open: the system refuses any value.
  ASSERT_EQ(ERROR_SUCCESS, ::RegDeleteKeyW(raw, L"Doomed"));
  auto error = CheckErrorOf([&] { key.WriteValue(L"Value", L"v", 4); });
  EXPECT_EQ(L"ERR_CANT_WRITE_TO_REGISTRY", error.first);
  EXPECT_EQ(FullName(L"\\Doomed\\Value"), error.second);
}

TEST_F(RegistryKeyTest, MisuseIsAnInternalErrorOfTheUnit) {
  const HKEY user = HKEY_CURRENT_USER;
  const std::wstring& p = path;
  const std::pair<const char*, std::function<void(CRegistryKey&)>> cases[] = {
      {"open while open",
       [&](CRegistryKey& k) {
         k.Open(user, p.c_str(), RM_Read);
         k.Open(user, p.c_str(), RM_Read);
       }},
      {"open after a failed open",
       [&](CRegistryKey& k) {
         k.Open(user, (p + L"\\No").c_str(), RM_Read);
         k.Open(user, p.c_str(), RM_Read);
       }},
      {"open in the closed mode", [&](CRegistryKey& k) { k.Open(user, p.c_str(), RM_Closed); }},
      {"open without a sub-key", [&](CRegistryKey& k) { k.Open(user, nullptr, RM_Read); }},
      {"write in read mode",
       [&](CRegistryKey& k) {
         k.Open(user, p.c_str(), RM_Read);
         k.WriteValue(L"V", L"v", 4);
       }},
  };
  for (const auto& c : cases) {
    CRegistryKey key;
    EXPECT_EQ(L"registrykey", InternalErrorUnitOf([&] { c.second(key); })) << c.first;
  }
}

TEST_F(RegistryKeyTest, ViewFlagsFollowTheAnswerAboutThe32BitLayer) {
  CRegistryKey::OverrideWow64Answer(0);
  for (int32_t view : {0, 1, 2, 7})
    EXPECT_EQ(0u, CRegistryKey::GetViewAccessFlag(view)) << "native, view " << view;

  CRegistryKey::OverrideWow64Answer(1);
  EXPECT_EQ(REGSAM(KEY_WOW64_32KEY), CRegistryKey::GetViewAccessFlag(RV_Default));
  EXPECT_EQ(REGSAM(KEY_WOW64_32KEY), CRegistryKey::GetViewAccessFlag(RV_32));
  EXPECT_EQ(REGSAM(KEY_WOW64_64KEY), CRegistryKey::GetViewAccessFlag(RV_64));
  EXPECT_EQ(L"registrykey", InternalErrorUnitOf([] { CRegistryKey::GetViewAccessFlag(7); }));

  CRegistryKey::OverrideWow64Answer(-1);
  EXPECT_EQ(sizeof(void*) == 4, CRegistryKey::IsRunningUnderWow64());
}

// The machine's software key is split in two on 64-bit systems; a write
// lands on the side the view flag chooses, and a read with the same view
// finds it there.
TEST_F(RegistryKeyTest, ViewsChooseTheSideOfTheMachinesSoftwareKey) {
  const struct {
    int32_t wow64Answer, view;
    bool in32, in64;
  } cases[] = {
      {1, RV_Default, true, false}, {1, RV_32, true, false}, {1, RV_64, false, true},
      {0, RV_Default, false, true}, {0, RV_32, false, true},
  };
  int index = 0;
  for (const auto& c : cases) {
    CRegistryKey::OverrideWow64Answer(c.wow64Answer);
    std::wstring subKey = path + L"\\View" + std::to_wstring(index++);
    CRegistryKey key;
    ASSERT_TRUE(key.Open(HKEY_LOCAL_MACHINE, subKey.c_str(), RM_Write, c.view));
    key.WriteValue(L"Value", L"v", 4);
    key.Close();
    bool exists[2];
    for (int side = 0; side < 2; ++side) {
      HKEY probe = nullptr;
      REGSAM flag = side == 0 ? KEY_WOW64_32KEY : KEY_WOW64_64KEY;
      exists[side] = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, subKey.c_str(), 0, KEY_READ | flag,
                                     &probe) == ERROR_SUCCESS;
      if (probe != nullptr) ::RegCloseKey(probe);
    }
    EXPECT_EQ(c.in32, exists[0]) << "answer " << c.wow64Answer << ", view " << c.view;
    EXPECT_EQ(c.in64, exists[1]) << "answer " << c.wow64Answer << ", view " << c.view;
    ASSERT_TRUE(key.Open(HKEY_LOCAL_MACHINE, subKey.c_str(), RM_Read, c.view));
    EXPECT_EQ(L"v", W(key.ReadString(L"Value", L"")));
  }
}

// The 64-bit build sign-extends the predefined handles; the same number
// without the extension, or one between them, is no root.
TEST(RegistryKeyNames, OnlyPredefinedRootsHaveNames) {
  EXPECT_EQ(L"HKEY_PERFORMANCE_NLSTEXT", W(CRegistryKey::GetRootName(HKEY_PERFORMANCE_NLSTEXT)));
  EXPECT_EQ(L"HKEY_DYN_DATA", W(CRegistryKey::GetRootName(HKEY_DYN_DATA)));
  for (ULONG_PTR other : {ULONG_PTR(0x80000007), ULONG_PTR(0x4242)})
    EXPECT_EQ(L"", W(CRegistryKey::GetRootName(reinterpret_cast<HKEY>(other))));
}

}  // namespace
