// The registry tests' scratch key: each test gets a key of the test
// process's own, cleared from every root afterwards, with helpers to put and
// get raw values.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <utility>

#include "TesselsTestKit.h"
#include "registrykey.h"

namespace TestKit {

// Gives each test a key HKEY_CURRENT_USER\<path> holding only a volatile
// sub-key "Volatile", and afterwards removes the process's keys from every
// root the tests write to.
class RegistryTest : public ::testing::Test {
 protected:
  static std::wstring Pid() { return std::to_wstring(::GetCurrentProcessId()); }
  static std::wstring ClassKey() { return L"Tavix.TesselsTest." + Pid(); }
  void SetUp() override {
    path = L"Software\\Tavix\\TesselsTest\\" + Pid();
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0,
                                               KEY_ALL_ACCESS, nullptr, &raw, nullptr));
    // The system refuses lasting keys below a volatile one.
    HKEY child = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(raw, L"Volatile", 0, nullptr, REG_OPTION_VOLATILE,
                                               KEY_ALL_ACCESS, nullptr, &child, nullptr));
    ::RegCloseKey(child);
  }
  void TearDown() override {
    Tsl::CRegistryKey::OverrideWow64Answer(-1);
    ::RegCloseKey(raw);
    ::RegDeleteTreeW(HKEY_CLASSES_ROOT, ClassKey().c_str());
    const std::pair<HKEY, REGSAM> roots[] = {{HKEY_CURRENT_USER, 0},
                                             {HKEY_USERS, 0},
                                             {HKEY_CURRENT_CONFIG, 0},
                                             {HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY},
                                             {HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY}};
    for (const auto& [root, view] : roots) {
      std::wstring key = (root == HKEY_USERS ? L".DEFAULT\\" : L"") + path;
      HKEY opened = nullptr;
      if (::RegOpenKeyExW(root, key.c_str(), 0, KEY_ALL_ACCESS | view, &opened) == 0) {
        ::RegDeleteTreeW(opened, nullptr);
        ::RegCloseKey(opened);
      }
      // The key, then its parents up to ...\Tavix while no other test uses them.
      for (; key.find(L"\\Tavix") != std::wstring::npos; key.erase(key.rfind(L'\\')))
        ::RegDeleteKeyExW(root, key.c_str(), view, 0);
    }
  }
  // Stores `units` as they stand (no terminator added) under `name`.
  void Put(const wchar_t* name, DWORD type, const std::wstring& units, DWORD size = ~0u) {
    if (size == ~0u) size = DWORD(units.size() * 2);
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExW(raw, name, 0, type,
                                              reinterpret_cast<const BYTE*>(units.data()), size));
  }
  // Type and units of the value `name` in root\key (in `view`); type 0 when
  // there is nothing.
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

}  // namespace TestKit
