// The stored interface language: which root wins and which stored values
// count as absent, as garbage-in-digits or as a language.
#include "Unsup/TesselExt.h"

#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"

namespace {

// A key of this test process below both roots, removed afterwards.
class LanguageValueTest : public ::testing::Test {
 protected:
  void SetUp() override { key = L"Software\\Tavix\\MirdalTest\\" + std::to_wstring(GetCurrentProcessId()); }
  void TearDown() override {
    RegDeleteTreeW(HKEY_CURRENT_USER, key.c_str());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
  }
  // Stores `bytes` bytes of `units` as InterfaceLanguage; type 0 stores nothing.
  void Put(HKEY root, DWORD type, const std::wstring& units, DWORD bytes) {
    RegDeleteKeyValueW(root, key.c_str(), L"InterfaceLanguage");
    if (type == 0) return;
    ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueW(root, key.c_str(), L"InterfaceLanguage", type,
                                             units.data(), bytes));
  }
  std::wstring key;
};

TEST_F(LanguageValueTest, UserValueWinsUnlessUnusableAndLettersReadAsZero) {
  struct Row {
    const char* what;
    DWORD userType;
    std::wstring userUnits;
    DWORD userBytes;  // ~0u: the units and their terminator
    const wchar_t* machineValue;  // null: none
    uint32_t expected;
  } rows[] = {
      {"user over machine", REG_SZ, L"1049", ~0u, L"1033", 1049},
      {"machine when the user has none", 0, L"", 0, L"1033", 1033},
      {"nothing stored", 0, L"", 0, nullptr, 0},
      {"a DWORD is not a language", REG_DWORD, L"\x0419\0", 4, L"7", 7},
      {"34 bytes are too long", REG_SZ, L"00000000000000042", 34, L"7", 7},
      {"32 bytes still fit", REG_SZ, std::wstring(L"000000000000042\0", 16), 32, L"7", 42},
      {"an odd size is broken", REG_SZ, L"12\0", 5, L"7", 7},
      {"letters are 0, not absent", REG_SZ, L"abc", ~0u, L"7", 0},
      {"digits then letters", REG_SZ, L"12ab", ~0u, L"7", 12},
  };
  for (const Row& row : rows) {
    DWORD userBytes = row.userBytes == ~0u ? DWORD((row.userUnits.size() + 1) * 2) : row.userBytes;
    Put(HKEY_CURRENT_USER, row.userType, row.userUnits, userBytes);
    std::wstring machine = row.machineValue ? row.machineValue : L"";
    Put(HKEY_LOCAL_MACHINE, row.machineValue ? REG_SZ : 0, machine, DWORD((machine.size() + 1) * 2));
    EXPECT_EQ(row.expected, ReadInterfaceLanguage(key.c_str())) << row.what;
  }
}

}  // namespace
