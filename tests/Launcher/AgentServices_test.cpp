// The product's own service binding: argument files are read from disk, a row
// whose implementation is not built is the unbound-service error, and the
// entry's first six steps run for real against the real resource libraries.
#include "AgentServices.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ChildCopy.h"
#include "MirdalAgent.h"
#include "ProductMarks.h"
#include "TestSupport.h"
#include "errors.h"
#include "registrykey.h"
#include "resourceinfo.h"

namespace {

// Binds the product's services for one test and restores the previous binding.
struct ProductServices : testing::Test {
  IAgentServices* previous = BindAgentServices(&GetProductAgentServices());
  ~ProductServices() override { BindAgentServices(previous); }
};

TEST_F(ProductServices, ArgumentFilesAreReadFromDiskWithNestingAndMissingFiles) {
  TestSupport::ScratchFolder folder;
  std::wstring inner = folder / L"inner.txt", outer = folder / L"outer arguments.txt";
  // UTF-16 with a mark for one file, plain ANSI for the other: both are read.
  ASSERT_TRUE(TestSupport::WriteBytes(inner, std::string("\xFF\xFE/\0D\0r\0i\0x\0", 12)));
  ASSERT_TRUE(
      TestSupport::WriteBytes(outer, "/STARTUP \"two words\" @" + TestSupport::Narrow(inner)));
  CCommandLineArguments arguments;
  arguments.Parse((L"first \"@" + outer + L"\" last").c_str());
  std::vector<std::wstring> parsed;
  for (int32_t i = 0; i < arguments.GetArgumentCount(); ++i)
    parsed.push_back(arguments.GetArgument(i).Text());
  EXPECT_EQ(parsed,
            (std::vector<std::wstring>{L"first", L"/STARTUP", L"two words", L"/Drix", L"last"}));
  EXPECT_TRUE(arguments.HasSwitch(L"startup"));
  try {
    CCommandLineArguments().Parse((L"@" + (folder / L"absent.txt")).c_str());
    FAIL() << "a missing argument file was accepted";
  } catch (Tsl::CFileException* failure) {
    EXPECT_EQ(Tsl::FE_NotFound, failure->kind);
    EXPECT_NE(nullptr, wcsstr(failure->fileName.Text(), L"absent.txt"));
    delete failure;
  }
}

// The machine-wide autostart setting, read from its real place each time.
TEST_F(ProductServices, StartupAutoStartIsTheMachinesGeneralSettingWithDefaultFalse) {
  CProductLock lock{L"Local\\MirdalTest_ProductMachineKey"};
  HKEY general = nullptr;
  ASSERT_EQ(0, RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Tavix\\Mirdal\\16\\General", 0,
                               nullptr, 0,
                               KEY_ALL_ACCESS | Tsl::CRegistryKey::GetViewAccessFlag(Tsl::RV_Default),
                               nullptr, &general, nullptr));
  const std::pair<const wchar_t*, bool> rows[] = {{L"true", true}, {L"false", false}, {nullptr, false}};
  for (const auto& [text, expected] : rows) {
    if (text != nullptr)
      RegSetValueExW(general, L"StartupAutoStart", 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                     DWORD(wcslen(text) + 1) * 2);
    else
      RegDeleteValueW(general, L"StartupAutoStart");
    EXPECT_EQ(expected, AgentServices().ReadStartupAutoStart()) << (text ? "true" : "missing");
  }
  RegCloseKey(general);
}

// Stops the road at the application's start, after the language was set:
// what the first six steps left behind is recorded, and the start refused.
class CEntryProbeApp : public CMirdalLauncherApp {
 public:
  int32_t language = -2;
  bool InitInstance() override {
    language = Tsl::GetCurrentLanguage();
    AgentServices().WriteLog(L"entry probe after the language");
    return false;
  }
};

// Runs the agent's road with the product's services from a folder that
// holds the real resource libraries. Exit code 100 + the shown language.
MIRDAL_CHILD_ROLE(EntryStepsOneToSix) {
  BindAgentServices(&GetProductAgentServices());
  static CEntryProbeApp app;
  int exitCode = AgentMain(app, GetModuleHandleW(nullptr), L"", L"EntryProbe.exe");
  return exitCode == -1 ? 100 + app.language : 1;
}

// The files of the agent log under MdLogs that a program named `program` wrote.
std::vector<std::wstring> AgentLogsOf(const std::wstring& program) {
  wchar_t temp[MAX_PATH + 1];
  GetTempPathW(MAX_PATH + 1, temp);
  std::wstring folder = std::wstring(temp) + L"MdLogs\\";
  std::vector<std::wstring> logs;
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileW((folder + program + L"_0x*.log").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return logs;
  do logs.push_back(folder + found.cFileName);
  while (FindNextFileW(search, &found));
  FindClose(search);
  return logs;
}

TEST(AgentEntry, FirstSixStepsChooseTheStoredLanguageAndLogBelowTheTemporaryFolder) {
  const wchar_t* resourceFiles[] = {L"MirdalRes.dll", L"Mirdal0.dll", L"Mirdal1.dll", L"Mirdal2.dll"};
  struct Row {
    const wchar_t* stored;  // InterfaceLanguage of the user
    DWORD shown;
  } rows[] = {{L"2", 2}, {L"1", 1}, {L"1049", 0}};
  // The product's key is shared with every test program that uses it.
  TestSupport::CrossProcessLock productKey(L"MirdalTest.ProductKey");
  const wchar_t* key = L"SOFTWARE\\Tavix\\Mirdal\\16";
  for (const Row& row : rows) {
    TestSupport::ScratchFolder folder;
    for (const wchar_t* file : resourceFiles)
      ASSERT_TRUE(CopyFileW((std::wstring(MIRDAL_PROGRAM_DIR) + file).c_str(), (folder / file).c_str(), FALSE))
          << TestSupport::Narrow(file);
    ASSERT_TRUE(TestSupport::WriteBytes(folder / L"SharedFiles.ini", "[Debug]\r\nLog=1\r\n"));
    ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueW(HKEY_CURRENT_USER, key, L"InterfaceLanguage", REG_SZ, row.stored,
                                             DWORD((wcslen(row.stored) + 1) * 2)));
    std::wstring program = L"EntryProbe" + std::to_wstring(GetCurrentProcessId());
    DWORD exitCode = TestSupport::RunChildCopy(folder.Path(), program + L".exe", "EntryStepsOneToSix");
    RegDeleteKeyValueW(HKEY_CURRENT_USER, key, L"InterfaceLanguage");
    EXPECT_EQ(100 + row.shown, exitCode) << "stored " << TestSupport::Narrow(row.stored);

    std::vector<std::wstring> logs = AgentLogsOf(program);
    ASSERT_EQ(1u, logs.size()) << "stored " << TestSupport::Narrow(row.stored);
    std::string bytes = TestSupport::ReadSharedFile(logs[0]);
    std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / 2);
    EXPECT_EQ(L'\xFEFF', text[0]);
    EXPECT_NE(std::wstring::npos, text.find(L" : entry probe after the language\r\n"));
    DeleteFileW(logs[0].c_str());
  }
}

}  // namespace
