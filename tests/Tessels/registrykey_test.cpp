// Tests of the registry key wrapper against the real registry: what string
// reads make of each type and size, and the view flags under both answers
// about the 32-bit layer. Write errors are pinned through the settings.
#include "registrykey.h"

#include <gtest/gtest.h>

#include <string>

#include "RegistryTestKit.h"

using namespace Tsl;
using TestKit::W;

namespace {

using RegistryKeyTest = TestKit::RegistryTest;
// Whatever stands in the registry, a read answers and never raises: the
// settings layer has no error path.
TEST_F(RegistryKeyTest, ReadStringTakesEvenSizedStringValuesAndOtherwiseTheDefault) {
  const std::wstring fallback = L"fallback";
  const struct {
    const char* what;
    DWORD type;
    std::wstring units;  // stored as they stand
    DWORD lessBytes;     // taken off the full size
    std::wstring expected;
  } cases[] = {
      {"terminated", REG_SZ, std::wstring(L"abc\0", 4), 0, L"abc"},
      {"no terminator: taken whole", REG_SZ, L"abc", 0, L"abc"},
      {"two terminators: one stays", REG_SZ, std::wstring(L"a\0\0", 3), 0, std::wstring(L"a\0", 2)},
      {"expandable: not expanded", REG_EXPAND_SZ, std::wstring(L"%W%\0", 4), 0, L"%W%"},
      {"size zero", REG_SZ, L"", 0, fallback},
      {"odd size", REG_SZ, std::wstring(L"ab\0", 3), 1, fallback},
      {"binary", REG_BINARY, L"ab", 0, fallback},
      {"number", REG_DWORD, L"ab", 0, fallback}};
  for (const auto& c : cases) {
    Put(L"Value", c.type, c.units, DWORD(c.units.size() * 2) - c.lessBytes);
    CRegistryKey key;
    ASSERT_TRUE(key.Open(HKEY_CURRENT_USER, path.c_str(), RM_Read));
    EXPECT_EQ(c.expected, W(key.ReadString(L"Value", fallback.c_str()))) << c.what;
  }
  CRegistryKey missing;  // a failed open still answers
  EXPECT_FALSE(missing.Open(HKEY_CURRENT_USER, (path + L"\\Absent").c_str(), RM_Read));
  EXPECT_EQ(fallback, W(missing.ReadString(L"Value", fallback.c_str())));
}

TEST_F(RegistryKeyTest, ViewFlagsFollowTheAnswerAboutThe32BitLayer) {
  const struct {
    int32_t answer, view;
    REGSAM flag;
  } rows[] = {{0, RV_Default, 0},
              {0, RV_64, 0},
              {1, RV_Default, KEY_WOW64_32KEY},
              {1, RV_32, KEY_WOW64_32KEY},
              {1, RV_64, KEY_WOW64_64KEY}};
  for (const auto& row : rows) {
    CRegistryKey::OverrideWow64Answer(row.answer);
    EXPECT_EQ(row.flag, CRegistryKey::GetViewAccessFlag(row.view))
        << "answer " << row.answer << ", view " << row.view;
  }
  CRegistryKey::OverrideWow64Answer(-1);
  EXPECT_EQ(sizeof(void*) == 4, CRegistryKey::IsRunningUnderWow64());
}

}  // namespace
