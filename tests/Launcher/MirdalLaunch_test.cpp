// Finding and starting the main program and the trainer, and the waits for
// the main program's readiness, against this test executable playing the
// main program. Registry values are put back after each test.
#include "MirdalLaunch.h"

#include <gtest/gtest.h>

#include <thread>

#include "LaunchTestKit.h"
#include "MdMessages.h"

namespace {

using namespace LaunchTestKit;

struct Box {
  std::wstring text, caption;
  UINT style;
  HWND owner;
};
std::vector<Box> boxes;

int WINAPI RecordBox(HWND owner, const wchar_t* text, const wchar_t* caption, UINT style) {
  boxes.push_back({text, caption, style, owner});
  return IDOK;
}

const wchar_t ManualHint[] =
    L"Please try launching the program manually.\n"
    L"To avoid this problem in the future, reinstall the program.";

std::wstring SelfFolder() {
  std::wstring self = SelfPath();
  return self.substr(0, self.rfind(L'\\') + 1);
}

class Launching : public SerialTest {
 protected:
  void SetUp() override {
    setupPath.Remove();
    mirdalAppPath.Remove();
    drillixAppPath.Remove();
    boxes.clear();
    previousBox = SetLaunchBoxFunction(RecordBox);
  }
  void TearDown() override {
    SetLaunchBoxFunction(previousBox);
    SetLaunchWaitLimits(60000, 60);
  }
  std::wstring FindMirdal(HINSTANCE instance) {
    wchar_t buffer[PathBufferSize];
    wmemset(buffer, L'x', PathBufferSize);
    return FindMirdalExecutable(instance, buffer) ? buffer : L"<none>";
  }

  RegistryValueGuard setupPath{MirdalSetupKey, MirdalPathValueName};
  RegistryValueGuard mirdalAppPath{MirdalAppPathsKey, L""};
  RegistryValueGuard drillixAppPath{DrillixAppPathsKey, L""};
  CThreadSafeServices services;
  TestSupport::ScratchFolder folder;
  LaunchTestKit::ScopedEnvironment noProgram{ProgramVariable, L""};
  LaunchBoxFunction previousBox = nullptr;
};


// A path of `units` code units that ends in "\Mirdal.exe".
std::wstring PathOfLength(size_t units) {
  std::wstring tail = L"\\Mirdal.exe";
  return L"C:\\" + std::wstring(units - 3 - tail.size(), L'p') + tail;
}

TEST_F(Launching, ExecutableSourcesAreAskedInOrderAndLongPathsPassedOver) {
  const std::wstring absent = L"<absent>";
  const std::wstring fromSetup = L"C:\\Setup\\Mirdal.exe", fromAppPaths = L"D:\\Apps\\Mirdal.exe";
  const std::wstring module = SelfFolder() + L"Mirdal.exe";
  struct Row {
    const char* name;
    std::wstring setup, appPaths;
    DWORD setupType;
    std::wstring expected;
  } rows[] = {
      {"setup value first", fromSetup, fromAppPaths, REG_SZ, fromSetup},
      {"empty setup value passes on", L"", fromAppPaths, REG_SZ, fromAppPaths},
      {"setup value of another type passes on", fromSetup, fromAppPaths, REG_EXPAND_SZ, fromAppPaths},
      {"129 units fit", PathOfLength(129), fromAppPaths, REG_SZ, PathOfLength(129)},
      {"130 units are too long", PathOfLength(130), fromAppPaths, REG_SZ, fromAppPaths},
      {"App Paths alone", absent, fromAppPaths, REG_SZ, fromAppPaths},
      {"too long App Paths: the module's folder", absent, PathOfLength(200), REG_SZ, module},
      {"nothing registered: the module's folder", absent, absent, REG_SZ, module},
  };
  for (const Row& row : rows) {
    if (row.setup == absent) setupPath.Remove(); else setupPath.Set(row.setup, row.setupType);
    if (row.appPaths == absent) mirdalAppPath.Remove(); else mirdalAppPath.Set(row.appPaths);
    EXPECT_EQ(TestSupport::Narrow(row.expected), TestSupport::Narrow(FindMirdal(::GetModuleHandleW(nullptr))))
        << row.name;
  }
}

TEST_F(Launching, TrainerHasNoSetupValueAndFallsBackToTheModuleFolder) {
  setupPath.Set(L"C:\\Setup\\Mirdal.exe");
  wchar_t buffer[PathBufferSize];
  ASSERT_TRUE(FindDrillixExecutable(::GetModuleHandleW(nullptr), buffer));
  EXPECT_EQ(SelfFolder() + L"Drillix.exe", buffer);
  drillixAppPath.Set(L"E:\\Trainer\\Drillix.exe");
  ASSERT_TRUE(FindDrillixExecutable(::GetModuleHandleW(nullptr), buffer));
  EXPECT_STREQ(L"E:\\Trainer\\Drillix.exe", buffer);
}

TEST_F(Launching, ProgramsThatCannotBeFoundOrStartedGetTheirBoxes) {
  EXPECT_EQ(nullptr, RunMirdal(nullptr, L"/External"));
  EXPECT_FALSE(RunDrillix(nullptr, L"/STARTUP"));
  // The module's folder is taken untested: the missing file shows as a
  // failed start with its path.
  EXPECT_EQ(nullptr, RunMirdal(::GetModuleHandleW(nullptr), L""));
  ASSERT_EQ(3u, boxes.size());
  EXPECT_EQ(std::wstring(L"Tavix Mirdal not found.\n") + ManualHint, boxes[0].text);
  EXPECT_EQ(std::wstring(L"Tavix Mirdal Drillix x7 not found.\n") + ManualHint, boxes[1].text);
  EXPECT_EQ(L"Cannot launch Tavix Mirdal from this location:\n" + SelfFolder() + L"Mirdal.exe\n" +
                ManualHint,
            boxes[2].text);
  for (const Box& box : boxes) {
    EXPECT_EQ(L"Tavix Mirdal Launcher", box.caption);
    EXPECT_EQ(UINT(MB_ICONHAND | MB_SYSTEMMODAL), box.style);
    EXPECT_EQ(nullptr, box.owner);
  }
  EXPECT_TRUE(services.Logged(L"Entering RunMirdal......"));
}

TEST_F(Launching, MainProgramStartsWithItsArgumentsAndIsReturnedOnceReady) {
  std::wstring journal = folder / L"journal.txt";
  setupPath.Set(SelfPath());
  ScopedEnvironment program(ProgramVariable, L"mirdal");
  ScopedEnvironment journalFile(JournalVariable, journal);
  ScopedEnvironment initMs(InitMsVariable, L"1500");
  HWND main = RunMirdal(nullptr, L"/External");
  ASSERT_NE(nullptr, main);
  EXPECT_EQ(main, ::FindWindowW(MirdalMainWindowClass, nullptr));
  std::vector<std::string> lines = ReadJournal(journal);
  ASSERT_EQ(2u, lines.size());
  EXPECT_EQ("start \"" + TestSupport::Narrow(SelfPath()) + "\" /External", lines[0]);
  EXPECT_EQ("ready", lines[1]) << "returned before the program had initialised";
  EXPECT_TRUE(services.Logged(L"Waiting for mirdal initialization finish...."));
  EXPECT_TRUE(services.Logged(L"Mirdal initialization is finished! "));
}

TEST_F(Launching, EmptyArgumentsGiveNoCommandLineAndTheTrainerIsNotWaitedFor) {
  std::wstring journal = folder / L"journal.txt";
  drillixAppPath.Set(SelfPath());
  ScopedEnvironment program(ProgramVariable, L"quit");
  ScopedEnvironment journalFile(JournalVariable, journal);
  ASSERT_TRUE(RunDrillix(nullptr, L""));
  ASSERT_TRUE(PumpUntil([&] { return ReadJournal(journal).size() == 1; }, 20000));
  std::string line = ReadJournal(journal)[0];
  // Without arguments the system makes the command line from the path: no
  // quoted path with a blank behind it.
  EXPECT_EQ(std::string::npos, line.find("\" ")) << line;
  EXPECT_NE(' ', line.back()) << line;
  EXPECT_TRUE(boxes.empty());
}

TEST_F(Launching, CrashWhileInitialisingEndsTheWait) {
  std::wstring journal = folder / L"journal.txt";
  setupPath.Set(SelfPath());
  ScopedEnvironment program(ProgramVariable, L"mirdal");
  ScopedEnvironment journalFile(JournalVariable, journal);
  ScopedEnvironment initMs(InitMsVariable, L"3000");
  ScopedEnvironment crash(CrashVariable, L"1");
  // Shortened, so that a wait that misses the crash fails instead of hanging.
  SetLaunchWaitLimits(10000, 10);
  RunMirdal(nullptr, L"");
  std::vector<std::string> lines = ReadJournal(journal);
  ASSERT_EQ(2u, lines.size());
  EXPECT_EQ("crash", lines[1]);
  EXPECT_TRUE(services.Logged(L"Mirdal initialization is finished! "));
}

// Holds the ready mutex on a thread of its own until told to let go, then
// releases it or closes it while still owned.
class ReadyMutexHolder {
 public:
  explicit ReadyMutexHolder(bool release)
      : held(::CreateEventW(nullptr, TRUE, FALSE, nullptr)),
        letGo(::CreateEventW(nullptr, TRUE, FALSE, nullptr)),
        thread([this, release] {
          HANDLE mutex = ::CreateMutexW(nullptr, TRUE, MirdalReadyMutexName);
          ::SetEvent(held);
          ::WaitForSingleObject(letGo, 30000);
          if (release) ::ReleaseMutex(mutex);
          ::CloseHandle(mutex);
        }) {
    ::WaitForSingleObject(held, 30000);
  }
  ~ReadyMutexHolder() {
    LetGo();
    thread.join();
    ::CloseHandle(held);
    ::CloseHandle(letGo);
  }
  void LetGo() { ::SetEvent(letGo); }

 private:
  HANDLE held, letGo;
  std::thread thread;
};

TEST_F(Launching, ReadinessWaitEndsOnReleaseOrAbandonmentAndTimesOutWhileHeld) {
  SetLaunchWaitLimits(3000, 2);
  EXPECT_TRUE(WaitForMirdalInitialization()) << "nobody holds the mutex";
  {
    ReadyMutexHolder holder(true);
    EXPECT_FALSE(WaitForMirdalInitialization()) << "held through every wait";
  }
  for (bool release : {true, false}) {
    ReadyMutexHolder holder(release);
    std::thread letGoSoon([&] { ::Sleep(300); holder.LetGo(); });
    EXPECT_TRUE(WaitForMirdalInitialization()) << (release ? "released" : "abandoned");
    letGoSoon.join();
  }
  // The agent itself closes the mutex while owning it: the next waiter
  // must still get through.
  EXPECT_TRUE(WaitForMirdalInitialization()) << "after the agent's own unreleased hold";
}

// A window of the test process under one of the main program's classes.
HWND MakeMirdalWindow(const wchar_t* className) {
  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = ::DefWindowProcW;
  windowClass.hInstance = ::GetModuleHandleW(nullptr);
  windowClass.lpszClassName = className;
  ::RegisterClassW(&windowClass);
  return ::CreateWindowExW(0, className, L"", WS_OVERLAPPEDWINDOW, 10, 10, 200, 200, nullptr,
                           nullptr, windowClass.hInstance, nullptr);
}

TEST_F(Launching, FrontShowsAndRestoresOnlyWhenTheApplicationWindowExists) {
  HWND main = MakeMirdalWindow(MirdalMainWindowClass);
  ASSERT_NE(nullptr, main);
  BringMirdalToFront();
  EXPECT_FALSE(::IsWindowVisible(main)) << "no application window: nothing to do";

  HWND application = MakeMirdalWindow(MirdalAppWindowClass);
  ASSERT_NE(nullptr, application);
  ::ShowWindow(main, SW_SHOWMINIMIZED);
  BringMirdalToFront();
  EXPECT_TRUE(::IsWindowVisible(application));
  EXPECT_TRUE(::IsWindowVisible(main));
  EXPECT_FALSE(::IsIconic(main));
  ::DestroyWindow(main);
  ::DestroyWindow(application);
}

}  // namespace
