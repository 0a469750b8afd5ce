// The library's start and end: nesting, the state a failing module leaves,
// modules that arrive while it runs, the debug flags as the registry holds
// them, the temporary files at the end, and the start's trace in TesselLog.txt.
#include "tessels.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "ChildCopy.h"
#include "TesselsTestKit.h"
#include "TextFileBytes.h"
#include "TestSupport.h"
#include "errors.h"
#include "filesystem.h"
#include "services.h"
#include "setup.h"

using namespace Tsl;
using TestKit::W;

namespace {

// Ends every start a test left behind, so the next test starts afresh.
class LibraryTest : public ::testing::Test {
 protected:
  void TearDown() override {
    while (GetLibraryState() == LS_Running) DoneTessels();
  }
};

TEST_F(LibraryTest, NestedStartsAndEndsActOnlyAtTheOuterPair) {
  ASSERT_TRUE(InitTessels(L"Software\\Tavix\\MirdalTest\\User", nullptr));
  EXPECT_TRUE(InitTessels(L"ignored by the nested start", nullptr));
  EXPECT_EQ(2, GetInitCount());
  EXPECT_EQ(L"Software\\Tavix\\MirdalTest\\User", W(GetUserSettingsKey()));
  DoneTessels();
  EXPECT_EQ(LS_Running, GetLibraryState()) << "the inner end took the library down";
  DoneTessels();
  EXPECT_EQ(LS_Terminated, GetLibraryState());
  DoneTessels();
  EXPECT_EQ(0, GetInitCount()) << "an end without a start counted";
  // A start after a finished run is legal; a null key names the program.
  ASSERT_TRUE(InitTessels(nullptr, nullptr));
  EXPECT_EQ(L"Software\\Tavix\\tessels_test", W(GetMachineSettingsKey()));
}

TEST_F(LibraryTest, RelativeSettingsLiveBelowTheRegistryRoots) {
  std::wstring root = L"Software\\Tavix\\MirdalTest\\" + std::to_wstring(GetCurrentProcessId());
  ASSERT_TRUE(InitTessels(root.c_str(), nullptr));
  CSetup<CUnicodeString> relative(L"Options", L"Word", SS_UserSettings, L"none");
  relative.Set(L"stored");
  CSetup<CUnicodeString> absolute((root + L"\\Options").c_str(), L"Word", SS_CurrentUser, L"none");
  EXPECT_EQ(L"stored", W(absolute.Get()));
  RegDeleteTreeW(HKEY_CURRENT_USER, root.c_str());
}

int lateInitCalls = 0, lateTermCalls = 0;
void LateInit() { ++lateInitCalls; }
void LateTerm() { ++lateTermCalls; }

TEST_F(LibraryTest, ModuleAddedWhileRunningIsInitialisedByTheNextStartAndEndedOnce) {
  ASSERT_TRUE(InitTessels(nullptr, nullptr));
  AddStaticModule(reinterpret_cast<HMODULE>(&lateInitCalls), LateInit, LateTerm);
  EXPECT_EQ(0, lateInitCalls);
  ASSERT_TRUE(InitTessels(nullptr, nullptr));
  InitTessels(nullptr, nullptr);
  EXPECT_EQ(1, lateInitCalls);
  DoneTessels(), DoneTessels();
  EXPECT_EQ(0, lateTermCalls) << "ended before the last end";
  DoneTessels();
  EXPECT_EQ(1, lateTermCalls);
}

// Counts the failures the library reports.
struct CountingReports : IFoundationServices {
  int reports = 0;
  bool GetMessageText(const wchar_t*, CUnicodeString&) override { return false; }
  int ShowMessage(const CUnicodeString&, uint32_t) override { return IDOK; }
  void ReportException(CException*) override { ++reports; }
};

void FailingInit() { GenerateCheckError(L"ERR_TEST_MODULE", L"", L""); }

// A failing module stays in the table for good: this runs in a process of its own.
MIRDAL_CHILD_ROLE(StartWithFailingModule) {
  CountingReports counting;
  BindFoundationServices(&counting);
  AddStaticModule(reinterpret_cast<HMODULE>(&counting), FailingInit, nullptr);
  bool started = InitTessels(nullptr, nullptr);
  int32_t stateAfterStart = GetLibraryState();
  DoneTessels();
  bool again = InitTessels(nullptr, nullptr);
  BindFoundationServices(nullptr);
  // 1: as expected; anything else names the first thing that went wrong.
  if (started || again) return 2;
  if (stateAfterStart != LS_ModuleInitFailed || GetLibraryState() != LS_ModuleInitFailed) return 3;
  if (counting.reports != 1) return 10 + counting.reports;
  return 1;
}

TEST(LibraryFailure, FailingModuleLeavesStateThreeReportedOnceAndEndsNothing) {
  EXPECT_EQ(1u, TestSupport::RunChild("StartWithFailingModule").exitCode);
}

TEST_F(LibraryTest, TemporaryFilesGoAtTheEndUnlessKept) {
  for (bool keep : {false, true}) {
    ASSERT_TRUE(InitTessels(nullptr, nullptr));
    CUnicodeString file = CreateTempFile(L"lc");
    CUnicodeString folder = CreateTempDirectory(L"lc");
    if (keep) SetDebugFlags(GetDebugFlags() | DF_KeepTempFiles);
    DoneTessels();
    EXPECT_EQ(keep, GetFileAttributesW(file.Text()) != INVALID_FILE_ATTRIBUTES) << "keep " << keep;
    EXPECT_EQ(keep, GetFileAttributesW(folder.Text()) != INVALID_FILE_ATTRIBUTES) << "keep " << keep;
    DeleteFileW(file.Text());
    RemoveDirectoryW(folder.Text());
  }
}

TEST(DebugFlags, RegistryTextsSetClearOrKeepEachFlag) {
  std::wstring key = L"Software\\Tavix\\MirdalTest\\" + std::to_wstring(GetCurrentProcessId()) + L"\\Flags";
  struct Row {
    const wchar_t* name;
    DWORD type;  // 0: no value
    std::wstring units;
    uint32_t expected;
  } rows[] = {
      {L"KeepTempFiles", 0, L"", 0x48},
      {L"KeepTempFiles", REG_SZ, L"", 0x48},
      {L"KeepTempFiles", REG_SZ, L"yes", 0x49},
      {L"KeepTempFiles", REG_DWORD, std::wstring(L"\x0001\0", 2), 0x48},
      {L"EnableHeapSwitching", REG_SZ, L"off", 0x40},
      {L"EnableHeapSwitching", REG_SZ, L"maybe", 0x40},
      {L"CheckAllResourceModulesExistance", REG_SZ, L"true", 0x148},
      {L"CheckAllResourceModulesExistence", REG_SZ, L"true", 0x48},
      {L"SaveAllMessages", REG_SZ, L"1", 0x448},
  };
  for (const Row& row : rows) {
    RegDeleteTreeW(HKEY_CURRENT_USER, key.c_str());
    if (row.type != 0) {
      ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), row.name, row.type,
                                               row.units.data(), DWORD(row.units.size() * 2)));
    }
    EXPECT_EQ(row.expected, ReadDebugFlags(key.c_str()))
        << TestSupport::Narrow(row.name) << "=" << TestSupport::Narrow(row.units);
  }
  RegDeleteTreeW(HKEY_CURRENT_USER, (L"Software\\Tavix\\MirdalTest\\" + std::to_wstring(GetCurrentProcessId())).c_str());
}

// Started from a folder of its own, so that its TesselLog.txt and message
// files are its own. Both message files are asked for.
MIRDAL_CHILD_ROLE(StartAndEndWithTrace) {
  bool started = InitTessels(nullptr, nullptr);
  SetDebugFlags(GetDebugFlags() | DF_SaveAllMessages | DF_SaveUndefinedMessages);
  DoneTessels();
  return started ? 1 : 0;
}

// WriteMessageLog is machine-wide: the test holds a lock across processes
// while it is on.
TEST(LibraryTrace, EachStepOfStartAndEndLeavesItsLineInOrderAndTheMessageFilesComeFirst) {
  TestSupport::CrossProcessLock libraryKey(L"MirdalTest.TesselsKey");
  const wchar_t* key = L"Software\\Tavix\\Tessels";
  ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"WriteMessageLog", REG_SZ, L"1", 4));
  TestSupport::ScratchFolder folder;
  DWORD exitCode = TestSupport::RunChildCopy(folder.Path(), L"TraceProbe.exe", "StartAndEndWithTrace");
  RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, L"WriteMessageLog");
  EXPECT_EQ(1u, exitCode);

  std::string text = TextFileBytes::ReadAll(folder / L"TesselLog.txt");
  std::vector<std::string> steps;
  const std::regex line("\\d\\d:\\d\\d:\\d\\d ProcessID:\\d+ (.*)\r");
  std::smatch match;
  std::istringstream lines(text);
  for (std::string each; std::getline(lines, each);) {
    ASSERT_TRUE(std::regex_match(each, match, line)) << each;
    steps.push_back(match[1]);
  }
  const std::vector<std::string> expected = {
      "Tessel: Debug flags initialized.",        "Tessel: CRT locale changed.",
      "Tessel: Application data path initialized.", "Tessel: Registry paths initialized.",
      "Tessel: Resource base initialized.",      "Tessel: All modules initialized.",
      "Tessel: Deinitializing...",               "Tessel: All messages saved.",
      "Tessel: Undefined messages saved.",       "Tessel: All modules terminated.",
      "Tessel: Temporary files system terminated.", "Tessel: Resource base deinitialized.",
      "Tessel: Deinitialization complete.",
  };
  EXPECT_EQ(expected, steps);
  for (const wchar_t* file : {L"TraceProbe all messages.txt", L"TraceProbe.txt"})
    EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW((folder / file).c_str())) << TestSupport::Narrow(file);
}

}  // namespace
