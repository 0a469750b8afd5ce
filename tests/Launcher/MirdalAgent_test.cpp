// The agent's entry road: the order of its steps against recording services,
// the single-instance marks (real mutexes, also held by other processes), the
// command line, and the AutoStart precedence against the real registry.
#include "MirdalAgent.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>

#include "FakeAgentServices.h"
#include "MdTools/AtomsEmulation.h"
#include "ProductMarks.h"
#include "TestSupport.h"
#include "registrykey.h"

using TestSupport::Narrow;
typedef std::vector<std::wstring> Calls;

namespace {

// What `action` raised, as the fake describes it; "none" when nothing.
std::wstring Raised(const std::function<void()>& action) {
  try {
    action();
  } catch (Tsl::CException* failure) {
    std::wstring what = CFakeAgentServices::Describe(failure);
    delete failure;
    return what;
  }
  return L"none";
}

// Runs the road with a message loop that ends at once; the process's command
// line is the program's name and `commandText`.
int Start(CMirdalLauncherApp& app, const std::wstring& commandText) {
  std::wstring processLine = L"\"C:\\Agent\\MdAgent.exe\" " + commandText;
  PostQuitMessage(0);
  return AgentMain(app, GetModuleHandleW(nullptr), commandText.c_str(), processLine.c_str());
}

// Every test here may make the product's marks: one test process at a time.
struct CMarksLockEnvironment : ::testing::Environment {
  void SetUp() override { lock.emplace(L"Local\\MirdalTest-ProductMarksLock"); }
  void TearDown() override { lock.reset(); }
  std::optional<CProductLock> lock;
};
::testing::Environment* const marksLock =
    ::testing::AddGlobalTestEnvironment(new CMarksLockEnvironment);

// Whether a mutex called `name` exists anywhere in the session.
bool MarkExists(const wchar_t* name) {
  HANDLE handle = OpenMutexW(READ_CONTROL, FALSE, name);
  if (handle == nullptr) return GetLastError() != ERROR_FILE_NOT_FOUND;
  return CloseHandle(handle);
}

// A child that makes the mark named by its argument and keeps it until killed.
MIRDAL_CHILD_ROLE(HoldMark) {
  CreateMutexW(nullptr, FALSE, argv[2]);
  Sleep(INFINITE);
  return 0;
}

// A second agent with the command text of its argument, printing its calls.
MIRDAL_CHILD_ROLE(SecondAgent) {
  CFakeAgentServices fake;
  CMirdalLauncherApp app;
  int exitCode = Start(app, argv[2]);
  for (const std::wstring& call : fake.calls) printf("%s|", Narrow(call).c_str());
  return exitCode;
}

}  // namespace

// The whole road in order. The log-on switch (by the parsed command line)
// starts the trainer, then the main program, before the marks; the
// machine-wide setting opens the main program once the tray window is up,
// tested on the raw text and only when the program doesn't run yet.
TEST(AgentRoad, EveryStepComesInItsPlace) {
  const std::tuple<const wchar_t*, bool, bool, bool, bool, bool> rows[] = {
      // clang-format off
      {L"",                              false, false, false, false, false},
      {L"/STARTUP /Mirdal /Drillix",     false, false, true,  true,  false},
      {L"-startup \"/drillix\"",         false, false, true,  false, false},
      {L"/startup:now -MIRDAL",          true,  false, false, true,  true},
      {L"/STARTUP",                      true,  true,  false, false, false},
      {L"xSTARTUP /Mirdal /Drillix",     true,  false, false, false, true},
      {L"/Mirdal",                       true,  false, false, false, false},
      // clang-format on
  };
  for (const auto& [commandText, setting, appWindowThere, drillix, mirdal, opened] : rows) {
    SCOPED_TRACE(Narrow(commandText));
    CFakeAgentServices fake;
    fake.startupAutoStart = setting;
    fake.mirdalAppWindow = appWindowThere ? GetDesktopWindow() : nullptr;
    CMirdalLauncherApp app;
    EXPECT_EQ(Start(app, commandText), 0);
    // clang-format off
    const std::wstring steps[] = {
        L"RegisterResourceModule(C:\\Agent\\MirdalRes.dll)",
        L"RegisterResourcePrefix(C:\\Agent\\,Mirdal)",
        L"InitTessels(" + fake.productKey + L",null)", L"SetLogDirectory(C:\\Temp\\MdLogs)",
        L"RunDrillix(/STARTUP)", L"RunMirdal(/STARTUP)", L"ChooseShownLanguage(1031,0)",
        L"SetCurrentLanguage(1033)", L"WriteLog(Capturing MdAgent mutexes)", L"LoadLauncherOptions",
        L"GetTooltip", L"CreateTrayWindow(102,101,103,107,Tip,MDA_AGENT,MDA_AGENT,true,"
        L"C:\\Agent\\MdHook.dll,C:\\Agent\\MdAgent64.exe)", L"RunMirdal(/OO)", L"~TrayWindow",
        L"DoneTessels"};
    // clang-format on
    Calls order;
    for (const std::wstring& step : steps) {
      bool expected = step == steps[4] ? drillix : step == steps[5] ? mirdal : true;
      if (step == steps[12]) expected = opened;
      EXPECT_EQ(fake.Called(step), expected) << Narrow(step);
      if (expected) order.push_back(step);
    }
    EXPECT_TRUE(fake.CallsInOrder(order));
  }
}

// The marks are held by another process the way another program holds them.
// A refused start ends with -1 through the user exception, which shows
// nothing; only the log tells why. "-ByInstaller" is found in the raw text.
TEST(AgentRoad, MarksOfOtherProcessesDecideWhetherTheAgentRuns) {
  const std::tuple<const wchar_t*, const wchar_t*, int> rows[] = {
      {L"", AgentGlobalMutexName, 0},  // agents of other sessions
      {L"/STARTUP", InstallerMutexName, -1},
      {L"/ByInstaller", InstallerMutexName, -1},
      {L"/quiet -byinstaller", InstallerMutexName, 0},
      {L"/x:a-BYINSTALLERb", InstallerMutexName, 0}};
  for (const auto& [commandText, held, exitCode] : rows) {
    SCOPED_TRACE(Narrow(commandText));
    HANDLE holder = TestSupport::StartChild("HoldMark", held);
    for (int i = 0; i < 1500 && !MarkExists(held); ++i) Sleep(20);
    CFakeAgentServices fake;
    {
      CMirdalLauncherApp app;
      EXPECT_EQ(Start(app, commandText), exitCode);
      EXPECT_EQ(fake.reports, exitCode == 0 ? Calls{} : Calls{L"user"});
      EXPECT_EQ(fake.Called(L"WriteLog(Capturing InstallerMutexName failed...)"), exitCode != 0);
      EXPECT_EQ(fake.Called(L"~TrayWindow"), exitCode == 0);
      // What was captured stays held until the application object goes.
      EXPECT_TRUE(app.GetLocalMutex().IsOpen() && app.GetGlobalMutex().IsOpen());
    }
    TerminateProcess(holder, 0);
    WaitForSingleObject(holder, 30000);
    CloseHandle(holder);
    for (const wchar_t* name : {AgentLocalMutexName, AgentGlobalMutexName, InstallerMutexName})
      EXPECT_FALSE(MarkExists(name)) << Narrow(name);
  }
}

TEST(AgentRoad, ASecondAgentInTheSessionEndsSilentlyAndTheFirstKeepsItsMarks) {
  CFakeAgentServices fake;
  CMirdalLauncherApp first;
  ASSERT_EQ(Start(first, L""), 0);
  TestSupport::ChildResult second = TestSupport::RunChild("SecondAgent", L"/STARTUP");
  EXPECT_EQ(int(second.exitCode), -1);
  for (const char* part : {"WriteLog(Capturing MdAgentLocalMutexName failed...)|DebugOutput("
                           "MdAgent local: 183",
                           ")|ReportException(user)|DoneTessels|"})
    EXPECT_PRED_FORMAT2(::testing::IsSubstring, part, second.output);
  EXPECT_EQ(second.output.find("LoadLauncherOptions"), std::string::npos);
  EXPECT_TRUE(first.GetLocalMutex().IsOpen() && first.GetGlobalMutex().IsOpen());
}

// A failure once the foundation runs is reported and ends with -1 and the
// foundation's end; one before it goes to the top frame without that end.
TEST(AgentRoad, FailuresAreReportedOnceAndEndWithMinusOne) {
  const std::pair<const wchar_t*, bool> rows[] = {
      {L"RegisterResourceModule", false}, {L"InitTessels", false},     {L"ReadTextFile", true},
      {L"WriteLog(Capturing", true},      {L"CreateTrayWindow", true}, {L"RunMirdal(/OO)", true}};
  for (const auto& [failing, foundationEnds] : rows) {
    SCOPED_TRACE(Narrow(failing));
    CFakeAgentServices fake;
    fake.failingCall = failing;
    fake.startupAutoStart = true;
    fake.files[L"args.txt"] = L"/x";
    CMirdalLauncherApp app;
    // The top frame's entry guard marks its thread as done: a thread each.
    int exitCode = 0;
    std::thread([&] {
      exitCode = RunAgentGuarded(app, GetModuleHandleW(nullptr), L"STARTUP", L"x @args.txt");
    }).join();
    EXPECT_EQ(exitCode, -1);
    EXPECT_EQ(fake.reports, Calls{L"check:ERR_TEST_FAILURE:" + std::wstring(failing)});
    EXPECT_EQ(fake.Called(L"DoneTessels"), foundationEnds);
    // A tray window that was built goes before the foundation, not with the
    // application object.
    bool windowBuilt = failing == std::wstring(L"RunMirdal(/OO)");
    EXPECT_EQ(fake.Called(L"~TrayWindow"), windowBuilt);
    if (windowBuilt) {
      EXPECT_TRUE(fake.CallsInOrder({L"~TrayWindow", L"DoneTessels"}));
    }
  }
  // Misuse is an internal error of its own line.
  CFakeAgentServices fake;
  CMirdalLauncherApp app;
  EXPECT_EQ(Raised([&] { app.SetInstance(nullptr); }), L"internal:MirdalAgent:1054");
  app.SetInstance(GetModuleHandleW(nullptr));
  EXPECT_EQ(Raised([&] { app.SetInstance(GetModuleHandleW(nullptr)); }),
            L"internal:MirdalAgent:1053");
}

// An atom is read back after each change. One that another holder keeps
// alive is still set after clearing (239); one whose name an object of
// another kind has taken cannot be set (236), which only shows when failures
// return.
TEST(Atoms, AChangeThatDoesNotReadBackIsAnInternalErrorOfItsOwnLine) {
  CFakeAgentServices fake;
  const std::wstring name = L"MirdalTest_Atom" + std::to_wstring(GetCurrentProcessId());
  const std::wstring kernelName = L"Local\\" + name;
  SetAtomState(name.c_str(), true);
  HANDLE otherHolder = OpenMutexW(SYNCHRONIZE, FALSE, kernelName.c_str());
  ASSERT_NE(nullptr, otherHolder);
  EXPECT_EQ(Raised([&] { SetAtomState(name.c_str(), false); }), L"internal:MirdalAgent:239");
  CloseHandle(otherHolder);
  EXPECT_FALSE(IsAtomSet(name.c_str()));

  HANDLE squatter = CreateEventW(nullptr, FALSE, FALSE, kernelName.c_str());
  bool exceptionsWere = Tsl::AreExceptionsEnabled();
  Tsl::EnableExceptions(false);
  SetAtomState(name.c_str(), true);
  Tsl::EnableExceptions(exceptionsWere);
  CloseHandle(squatter);
  EXPECT_TRUE(fake.Called(L"ShowMessage(Internal Program Error:\nAssertion failed: (  )\n"
                          L"MirdalAgent, 236.\n(  ).)"))
      << Narrow(fake.calls.back());
}

TEST(CommandLine, QuotesAndArgumentFilesMakeTheArguments) {
  CFakeAgentServices fake;
  fake.files[L"outer.txt"] = L"a @inner.txt \"b c\"";
  fake.files[L"inner.txt"] = L"x\r\n@@literal";
  fake.files[L"self.txt"] = L"a @self.txt";
  const std::tuple<const wchar_t*, Calls, const wchar_t*> rows[] = {
      {L"  a b\t\tc\r\n", {L"a", L"b", L"c"}, L"none"},
      {L"a\"b c\"d", {L"ab cd"}, L"none"},
      {L"\"say \"\"hi\"\"\"", {L"say \"hi\""}, L"none"},        // doubled inside quotes: one mark
      {L"a\"\"b \"\" \"open", {L"ab", L"", L"open"}, L"none"},  // outside: open and close
      {L"@@x @ @@", {L"@x", L"@", L"@"}, L"none"},
      {L"1 @outer.txt 2", {L"1", L"a", L"x", L"@literal", L"b c", L"2"}, L"none"},
      {L"@missing.txt", {}, L"file:2:missing.txt"},
      {L"@self.txt", {}, L"check:ERR_ARGUMENT_FILES_TOO_DEEP:self.txt"},
  };
  for (const auto& [text, expected, failure] : rows) {
    CCommandLineArguments parsed;
    EXPECT_EQ(Raised([&] { parsed.Parse(text); }), failure) << Narrow(text);
    if (expected.empty()) continue;
    Calls arguments;
    for (int32_t i = 0; i < parsed.GetArgumentCount(); ++i)
      arguments.push_back(CallText(parsed.GetArgument(i)));
    EXPECT_EQ(arguments, expected) << Narrow(text);
  }
  // Twelve files that each name the next one twice would be read 8,191 times:
  // the reads are bounded and end with the same error as the depth.
  for (int i = 0; i < 12; ++i) {
    std::wstring next = L"@fan" + std::to_wstring(i + 1) + L".txt ";
    fake.files[L"fan" + std::to_wstring(i) + L".txt"] = next + next;
  }
  fake.files[L"fan12.txt"] = L"x";
  fake.calls.clear();
  std::wstring raised = Raised([] { CCommandLineArguments().Parse(L"@fan0.txt"); });
  EXPECT_EQ(raised.rfind(L"check:ERR_ARGUMENT_FILES_TOO_DEEP:fan", 0), 0u) << Narrow(raised);
  EXPECT_EQ(fake.calls.size(), size_t(CCommandLineArguments::MaxArgumentFileReads));
}

// AutoStart in the product's view of both roots (the 32-bit registry for a
// 32-bit build, the native one for a 64-bit build), under keys of this test
// process that go afterwards.
TEST(AutoStart, CurrentUserThenMachineThenTheSwitch) {
  using namespace std::string_literals;
  const std::wstring noKey = L"<no key>", noValue = L"", number = L"<a number>";
  // The user's and the machine's value, the switch given, and the answer.
  const std::tuple<std::wstring, std::wstring, bool, bool> rows[] = {
      // clang-format off
      {L"false",    L"true",   true,  false},  // the user's false beats everything
      {noKey,       L"True",   false, true},
      {L"yes",      L"false",  true,  false},  // no answer: the next source decides
      {noValue,     noValue,   true,  true},
      {noKey,       noKey,     false, false},
      {number,      noKey,     false, false},
      {L"falsetto", L" true",  true,  true},
      {L"false\0\0"s, L"true", true,  false},  // padded behind the text: 16 bytes
      {L"FALSE\0\0\0\0"s, noKey, true, false},  // and 20
      // clang-format on
  };
  const REGSAM view = Tsl::CRegistryKey::GetViewAccessFlag(Tsl::RV_32);
  const std::wstring sandbox = L"Software\\MirdalTest-" + std::to_wstring(GetCurrentProcessId());
  const HKEY roots[] = {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE};
  for (size_t i = 0; i < std::size(rows); ++i) {
    std::wstring key = sandbox + L"\\" + std::to_wstring(i);
    const std::wstring texts[] = {std::get<0>(rows[i]), std::get<1>(rows[i])};
    for (int r = 0; r < 2; ++r) {
      HKEY handle;
      const std::wstring& text = texts[r];
      if (text == noKey ||
          RegCreateKeyExW(roots[r], key.c_str(), 0, 0, 0, KEY_ALL_ACCESS | view, 0, &handle, 0))
        continue;
      DWORD one = 1;
      if (!text.empty())
        RegSetValueExW(handle, L"AutoStart", 0, text == number ? REG_DWORD : REG_SZ,
                       text == number ? (const BYTE*)&one : (const BYTE*)text.c_str(),
                       text == number ? 4 : DWORD(text.size() * 2 + 2));
      RegCloseKey(handle);
    }
    CCommandLineArguments arguments;
    arguments.Parse(std::get<2>(rows[i]) ? L"/STARTUP /mirdal" : L"/STARTUP");
    EXPECT_EQ(ReadAutoStartFlag(arguments, L"Mirdal", key.c_str()), std::get<3>(rows[i])) << i;
    for (HKEY root : roots) RegDeleteKeyExW(root, key.c_str(), view, 0);
  }
  for (HKEY root : roots) RegDeleteKeyExW(root, sandbox.c_str(), view, 0);
}
