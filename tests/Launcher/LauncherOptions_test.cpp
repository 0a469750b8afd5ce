// The trigger options: how stored texts read (last comparing row, case,
// foreign types), what a write leaves in the registry, and which atoms each
// choice sets as a second process sees them. The options live under a key of
// this test process, never the product's.
#include "LauncherOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakeAgentServices.h"
#include "MdTools/AtomsEmulation.h"
#include "ProductMarks.h"
#include "TestSupport.h"

namespace {

using Options = CLauncherOptions;
using TestSupport::Narrow;

// Prints the name of every trigger atom that is set, each followed by a space.
MIRDAL_CHILD_ROLE(ReportAtoms) {
  for (const wchar_t* name : TriggerAtomNames)
    if (IsAtomSet(name)) printf("%ls ", name);
  return 0;
}

std::string AtomsSeenFromOutside() { return TestSupport::RunChild("ReportAtoms").output; }

// The hover event as the main program sees it: exit code 2 set, 1 reset, 0 missing.
MIRDAL_CHILD_ROLE(ReadHoverEvent) {
  HANDLE event = OpenEventW(SYNCHRONIZE, FALSE, L"Local\\{7A472109-FDA9-48ad-9DD1-5C79A60DA392}");
  return event == nullptr ? 0 : WaitForSingleObject(event, 0) == WAIT_OBJECT_0 ? 2 : 1;
}

// Options under a key of this process, removed afterwards, and the process's
// record back at its defaults with its atoms cleared. The atoms and the hover
// event carry the product's names, so every test holds the lock that keeps
// such tests of all test processes apart.
class LauncherOptionsTest : public ::testing::Test {
 protected:
  void SetUp() override { OverrideProductRegistryKey(productKey.c_str()); }
  void TearDown() override {
    ClearAtomStates();
    GetLauncherOptions() = Options();
    OverrideProductRegistryKey(nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, productKey.c_str());
  }
  void Put(const wchar_t* name, DWORD type, const void* data, DWORD size) {
    EXPECT_EQ(0, RegSetKeyValueW(HKEY_CURRENT_USER, optionsKey.c_str(), name, type, data, size));
  }
  // A REG_SZ value with its terminator, as any program would store it.
  void PutText(const wchar_t* name, const wchar_t* text) {
    Put(name, REG_SZ, text, DWORD((wcslen(text) + 1) * sizeof(wchar_t)));
  }

  CProductLock lock{L"MirdalTest.AgentSession"};
  CFakeAgentServices services;
  const std::wstring productKey = L"Software\\MirdalTest-" + std::to_wstring(GetCurrentProcessId());
  const std::wstring optionsKey = productKey + L"\\Launcher";
};

}  // namespace

TEST_F(LauncherOptionsTest, StoredTextsReadAsTheirLastComparingRowElseAsTheDefault) {
  // The real key table with a default that no text below stands for.
  const CLauncherEnumValue probe(L"probe", MouseCoverVirtualKeyTable, 7, Options::altShift);
  const std::tuple<const CLauncherEnumValue*, const wchar_t*, int32_t> rows[] = {
      {&UseMouseCoverVirtualKeyValue, L"ctrl-win", Options::ctrlWin},
      {&probe, L"ctrl-", Options::ctrl},  // "ctrl" compares; "ctrl-alt" stops at the text's end
      {&probe, L"CTRL", Options::altShift},
      {&UseMouseClickTypeValue, L"leftKeyPlusCtrlAlt", Options::leftKeyPlusCtrlAlt},
  };
  for (const auto& [value, text, expected] : rows) {
    PutText(value->name, text);
    EXPECT_EQ(expected, value->Read()) << Narrow(text);
  }
}

TEST_F(LauncherOptionsTest, ValuesOfOtherTypesReadAsDefaultsAndNeverRaise) {
  const DWORD zero = 0, one = 1;
  Put(L"ShowTrayWindow", REG_DWORD, &zero, 4);  // no number is taken for a bool
  Put(L"useCtrlCC", REG_EXPAND_SZ, L"false", 12);
  Put(L"useCtrlInsIns", REG_MULTI_SZ, L"false\0true\0", 24);
  Put(L"useMouseCoverVirtualKey", REG_BINARY, L"ctrl-win", 18);
  Put(L"useMouseClickType", REG_DWORD, &one, 4);
  Put(L"useMouseCoverType", REG_SZ, nullptr, 0);  // no bytes at all
  Options options;
  options.useCtrlCC = options.useCtrlInsIns = options.ShowTrayWindow = false;
  options.useMouseCoverVirtualKey = Options::ctrlShift;
  options.useMouseClickType = Options::middleKey;
  options.useMouseCoverType = Options::coverOnly;
  options.Load();
  EXPECT_TRUE(options.ShowTrayWindow && options.useCtrlCC && options.useCtrlInsIns);
  EXPECT_EQ(Options::ctrl, options.useMouseCoverVirtualKey);
  EXPECT_EQ(Options::leftKeyPlusCtrlAlt, options.useMouseClickType);
  EXPECT_EQ(Options::coverPlusClick, options.useMouseCoverType);
  EXPECT_TRUE(services.reports.empty());
}

TEST_F(LauncherOptionsTest, WrittenTextGoesOutWithTwiceItsSize) {
  auto stored = [&](const wchar_t* name) {
    char bytes[64];
    DWORD size = sizeof bytes;
    RegGetValueW(HKEY_CURRENT_USER, optionsKey.c_str(), name, RRF_RT_ANY, nullptr, bytes, &size);
    return std::string(bytes, size);
  };
  ShowTrayWindowValue.Write(true);
  UseMouseCoverVirtualKeyValue.Write(Options::ctrlWin);
  // "true", its terminator at byte 8, and as many bytes again behind it.
  EXPECT_EQ(std::string("t\0r\0u\0e\0", 8) + std::string(12, '\0'), stored(L"ShowTrayWindow"));
  EXPECT_EQ(36u, stored(L"useMouseCoverVirtualKey").size());  // "ctrl-win"
}

// An empty key sets the default atoms for the guard's life; then each choice
// sets exactly its own atom.
TEST_F(LauncherOptionsTest, DefaultsThenEachClickTypeAndHoverKeySetExactlyTheirOwnAtom) {
  PutText(L"unrelated", L"x");
  {
    CAtomStateGuard guard;
    EXPECT_EQ(AtomsSeenFromOutside(),
              "Md16_CtrlInsInsAllowed Md16_CtrlCCAllowed Md16_LeftMouseClickWithCtrlAltAllowed "
              "Md16_HoverWithCtrlAllowed ");
  }
  EXPECT_EQ(AtomsSeenFromOutside(), "");
  // clang-format off
  const char* const clicks[8] = {
      "LeftMouseClickWithAltAllowed", "LeftMouseClickWithCtrlAllowed",
      "LeftMouseClickWithShiftAllowed", "MiddleMouseClickAllowed",
      "LeftMouseClickWithCtrlAltAllowed", "LeftMouseClickWithAltShiftAllowed",
      "LeftMouseClickWithCtrlShiftAllowed", "LeftMouseClickWithCtrlWinAllower"};
  const char* const hovers[7] = {
      "HoverWithCtrlAllowed", "HoverWithShiftAllowed", "HoverWithAltAllowed",
      "HoverWithCtrlAltAllowed", "HoverWithCtrlShiftAllowed", "HoverWithAltShiftAllowed",
      "HoverWithCtrlWinAllowed"};
  // clang-format on
  Options& options = GetLauncherOptions();
  options.useMouseCover = options.useCtrlInsIns = options.useCtrlCC = false;
  for (int type = 0; type < 8; ++type) {
    options.useMouseClickType = Options::MouseClickType(type);
    ApplyAtomStates();
    EXPECT_EQ(AtomsSeenFromOutside(), "Md16_" + std::string(clicks[type]) + " ") << type;
  }
  options.useMouseClick = false;
  options.useMouseCover = true;
  for (int key = 0; key < 7; ++key) {
    options.useMouseCoverVirtualKey = Options::MouseCoverVirtualKey(key);
    ApplyAtomStates();
    EXPECT_EQ(AtomsSeenFromOutside(), "Md16_" + std::string(hovers[key]) + " ") << key;
  }
  // Without a key the key chosen doesn't matter; hovering off clears them all.
  options.useMouseCoverType = Options::coverOnly;
  ApplyAtomStates();
  EXPECT_EQ(AtomsSeenFromOutside(), "Md16_HoverWithoutKeysAllowed ");
  options.useMouseCover = false;
  ApplyAtomStates();
  EXPECT_EQ(AtomsSeenFromOutside(), "");
}

// The main program, the trainer and the installer use the same keys.
TEST(RegistryKeys, TheProductsOwnKeysKeepTheirPaths) {
  EXPECT_STREQ(L"SOFTWARE\\Tavix\\Mirdal\\16", GetProductRegistryKey());
  EXPECT_EQ(L"SOFTWARE\\Tavix\\Mirdal\\16\\Launcher", std::wstring(GetOptionsKeyPath().Text()));
  EXPECT_STREQ(L"Software\\Tavix\\Drillix\\16", GetDrillixRegistryKey());
}

// Clearing has an order of its own, which is not that of the names: the
// chords, the clicks with Shift, Alt, Ctrl, the middle click, CtrlAlt,
// CtrlShift, AltShift, CtrlWin, then the hovers.
TEST_F(LauncherOptionsTest, ClearingGoesThroughTheAtomsInItsOwnOrder) {
  // clang-format off
  const wchar_t* const order[] = {
      L"CtrlInsInsAllowed", L"CtrlCCAllowed", L"LeftMouseClickWithShiftAllowed",
      L"LeftMouseClickWithAltAllowed", L"LeftMouseClickWithCtrlAllowed", L"MiddleMouseClickAllowed",
      L"LeftMouseClickWithCtrlAltAllowed", L"LeftMouseClickWithCtrlShiftAllowed",
      L"LeftMouseClickWithAltShiftAllowed", L"LeftMouseClickWithCtrlWinAllower",
      L"HoverWithoutKeysAllowed", L"HoverWithCtrlAllowed", L"HoverWithShiftAllowed",
      L"HoverWithAltAllowed", L"HoverWithCtrlAltAllowed", L"HoverWithCtrlShiftAllowed",
      L"HoverWithCtrlWinAllowed", L"HoverWithAltShiftAllowed"};
  // clang-format on
  std::vector<std::wstring> expected;
  for (const wchar_t* name : order)
    expected.push_back(L"WriteLog(Setting atom state Md16_" + std::wstring(name) + L" to false)");
  services.calls.clear();
  ClearAtomStates();
  EXPECT_EQ(expected, services.calls);
}

TEST_F(LauncherOptionsTest, HoverEventFollowsTheHooksWordAcrossProcesses) {
  HANDLE event = CreateHoverTranslationEvent();
  ASSERT_NE(nullptr, event);
  EXPECT_EQ(1u, TestSupport::RunChild("ReadHoverEvent").exitCode);
  SetHoverTranslationAllowed(event, true);
  EXPECT_EQ(2u, TestSupport::RunChild("ReadHoverEvent").exitCode);
  SetHoverTranslationAllowed(event, false);
  EXPECT_EQ(1u, TestSupport::RunChild("ReadHoverEvent").exitCode);
  CloseHandle(event);
}
