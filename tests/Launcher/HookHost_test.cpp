// Hook hosting: the hook library's registrations (against a probe library
// that counts the calls), the 64-bit sibling behind the WOW64 test seam, the
// window's handling of hook reports and WM_COPYDATA on a plain test window,
// and the worker against this test executable playing the main program.
#include "HookHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "LaunchTestKit.h"
#include "LauncherOptions.h"
#include "MdMessages.h"
#include "MirdalLaunch.h"
#include "TrayBalloonData.h"
#include "archive.h"
#include "memoryfile.h"
#include "registrykey.h"

namespace {

using namespace LaunchTestKit;
using Tsl::CPtr;

const std::wstring ProbePath = std::wstring(MIRDAL_DEMO_DIR) + L"HookProbe.dll";

std::string Line(UINT message, unsigned long long wParam, unsigned long long lParam) {
  return "post " + std::to_string(message) + " " + std::to_string(wParam) + " " +
         std::to_string(lParam);
}

size_t Count(const std::vector<std::string>& lines, const std::string& line) {
  return size_t(std::count(lines.begin(), lines.end(), line));
}

// ---- The hook library and the sibling -------------------------------------------------

// The probe library, loaded by the test itself so that its counters outlive
// the host's FreeLibrary.
class HookHosting : public SerialTest {
 protected:
  void SetUp() override {
    probe = ::LoadLibraryW(ProbePath.c_str());
    ASSERT_NE(nullptr, probe) << TestSupport::Narrow(ProbePath);
    SetRegisterAnswer(1);
    Tsl::CRegistryKey::OverrideWow64Answer(0);
  }
  void TearDown() override {
    Tsl::CRegistryKey::OverrideWow64Answer(-1);
    if (probe != nullptr) ::FreeLibrary(probe);
  }
  int Calls(const char* name) {
    auto function = reinterpret_cast<int (*)()>(reinterpret_cast<void (*)()>(::GetProcAddress(probe, name)));
    return function != nullptr ? function() : -1;
  }
  int Registers() { return Calls("ProbeRegisterCalls") - registersBefore; }
  int Unregisters() { return Calls("ProbeUnregisterCalls") - unregistersBefore; }
  void SetRegisterAnswer(int answer) {
    auto set = reinterpret_cast<void (*)(int)>(
        reinterpret_cast<void (*)()>(::GetProcAddress(probe, "ProbeSetRegisterAnswer")));
    set(answer);
    registersBefore = Calls("ProbeRegisterCalls");
    unregistersBefore = Calls("ProbeUnregisterCalls");
  }
  std::wstring Missing() { return folder / L"absent.exe"; }

  HMODULE probe = nullptr;
  int registersBefore = 0, unregistersBefore = 0;
  TestSupport::ScratchFolder folder;
  CThreadSafeServices services;
};

TEST_F(HookHosting, RegistrationsAreCountedAndOnlyTheLastOneUnloads) {
  CHookHost host(ProbePath.c_str(), Missing().c_str());
  EXPECT_TRUE(host.Register());
  EXPECT_TRUE(host.Register());
  EXPECT_EQ(2, host.GetRegisterCount());
  EXPECT_EQ(1, Registers()) << "the hook goes in once";
  EXPECT_EQ(probe, host.GetHookLibrary());

  EXPECT_TRUE(host.Unregister());
  EXPECT_EQ(0, Unregisters());
  EXPECT_NE(nullptr, host.GetHookLibrary());
  EXPECT_TRUE(host.Unregister()) << "not on WOW64: no sibling to look for";
  EXPECT_EQ(1, Unregisters());
  EXPECT_EQ(nullptr, host.GetHookLibrary());
  EXPECT_FALSE(host.Unregister()) << "nothing left to undo";
  EXPECT_EQ(1, Unregisters());
}

TEST_F(HookHosting, OnlyTheLowByteOfTheRegisterAnswerCounts) {
  const struct {
    int answer;
    bool registered;
  } rows[] = {{1, true}, {0, false}, {0x100, false}, {0x101, true}, {-256, false}};
  for (const auto& row : rows) {
    SetRegisterAnswer(row.answer);
    CHookHost host(ProbePath.c_str(), Missing().c_str());
    EXPECT_EQ(row.registered, host.Register()) << row.answer;
    EXPECT_EQ(row.registered ? 1 : 0, host.GetRegisterCount()) << row.answer;
    // A refusal leaves the library loaded for the next try.
    EXPECT_EQ(probe, host.GetHookLibrary()) << row.answer;
  }
}

TEST_F(HookHosting, MissingOrExportlessLibrariesGiveNoHook) {
  {
    CHookHost host(Missing().c_str(), Missing().c_str());
    EXPECT_FALSE(host.Register());
    EXPECT_EQ(nullptr, host.GetHookLibrary());
  }
  wchar_t system[MAX_PATH] = {};
  ::GetSystemDirectoryW(system, MAX_PATH);
  std::wstring exportless = std::wstring(system) + L"\\version.dll";
  CHookHost host(exportless.c_str(), Missing().c_str());
  EXPECT_FALSE(host.Register());
  EXPECT_EQ(0, host.GetRegisterCount());
  EXPECT_NE(nullptr, host.GetHookLibrary()) << "stays loaded for the next try";
  EXPECT_FALSE(host.Unregister());
}

TEST_F(HookHosting, OnWow64AMissingSiblingMeansNoHookAtAll) {
  Tsl::CRegistryKey::OverrideWow64Answer(1);
  CHookHost host(ProbePath.c_str(), Missing().c_str());
  EXPECT_FALSE(host.Register());
  EXPECT_EQ(nullptr, host.GetHookLibrary());
  EXPECT_EQ(0, Registers());
}

TEST_F(HookHosting, OnWow64TheSiblingStartsWithTheHookAndIsClosedAfterIt) {
  Tsl::CRegistryKey::OverrideWow64Answer(1);
  std::wstring journal = folder / L"sibling.txt";
  ScopedEnvironment program(ProgramVariable, L"agent64");
  ScopedEnvironment journalFile(JournalVariable, journal);
  CHookHost host(ProbePath.c_str(), SelfPath().c_str());
  ASSERT_TRUE(host.Register());
  ASSERT_TRUE(PumpUntil([] { return ::FindWindowW(Agent64WindowClass, nullptr) != nullptr; }, 20000));
  std::vector<std::string> lines = ReadJournal(journal);
  ASSERT_FALSE(lines.empty());
  // Started from its path alone, with no arguments.
  EXPECT_EQ(std::string::npos, lines[0].find(" /")) << lines[0];

  EXPECT_TRUE(host.Unregister());
  ASSERT_TRUE(PumpUntil([&] { return Count(ReadJournal(journal), "end") == 1; }, 20000));
  EXPECT_EQ(1u, Count(ReadJournal(journal), Line(Md16_Close_Agent64, 0, 0)));
  EXPECT_EQ(1, Unregisters());
}

TEST_F(HookHosting, OnWow64UnregisterReportsASiblingWindowThatIsGone) {
  Tsl::CRegistryKey::OverrideWow64Answer(1);
  // This sibling ends at once and never makes its window.
  ScopedEnvironment program(ProgramVariable, L"quit");
  CHookHost host(ProbePath.c_str(), SelfPath().c_str());
  ASSERT_TRUE(host.Register());
  EXPECT_FALSE(host.Unregister());
  EXPECT_EQ(nullptr, host.GetHookLibrary()) << "the hook goes all the same";
}

TEST_F(HookHosting, TheHookExistsExactlyWhileATriggerIsOn) {
  bool CLauncherOptions::*triggers[] = {&CLauncherOptions::useCtrlCC, &CLauncherOptions::useCtrlInsIns,
                                        &CLauncherOptions::useMouseClick,
                                        &CLauncherOptions::useMouseCover};
  CLauncherOptions off;
  for (bool CLauncherOptions::*trigger : triggers) off.*trigger = false;
  CHookHost host(ProbePath.c_str(), Missing().c_str());
  host.ApplyHookState(off);
  EXPECT_EQ(nullptr, host.GetHookLibrary()) << "all triggers off: nothing loaded";
  for (size_t index = 0; index < 4; ++index) {
    CLauncherOptions one = off;
    one.*triggers[index] = true;
    host.ApplyHookState(one);
    host.ApplyHookState(one);
    EXPECT_EQ(1, host.GetRegisterCount()) << "trigger " << index;
    host.ApplyHookState(off);
    EXPECT_EQ(0, host.GetRegisterCount()) << "trigger " << index;
    EXPECT_EQ(nullptr, host.GetHookLibrary()) << "trigger " << index;
  }
  EXPECT_EQ(4, Registers());
  EXPECT_EQ(4, Unregisters());
}

TEST_F(HookHosting, TheEndTakesTheHookAwayWhateverTheCount) {
  {
    CHookHost host(ProbePath.c_str(), Missing().c_str());
    for (int i = 0; i < 3; ++i) host.Register();
  }
  EXPECT_EQ(1, Unregisters());
}

// ---- The window's side ------------------------------------------------------------------

// A plain window that hands hook reports and WM_COPYDATA to the hook
// handling, and records what that asks of the tray.
class CTestHookWindow : public IHookWindow {
 public:
  CTestHookWindow() : hoverEvent(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = Procedure;
    windowClass.hInstance = ::GetModuleHandleW(nullptr);
    windowClass.lpszClassName = L"MirdalTest.HookWindow";
    ::RegisterClassW(&windowClass);
    window = ::CreateWindowExW(0, windowClass.lpszClassName, L"", 0, 0, 0, 10, 10, nullptr, nullptr,
                               windowClass.hInstance, nullptr);
    ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  }
  ~CTestHookWindow() override {
    StopWorker();
    ::DestroyWindow(window);
    ::CloseHandle(hoverEvent);
  }

  HWND GetWindowHandle() const override { return window; }
  HINSTANCE GetInstance() const override { return nullptr; }
  CHookMessageQueue& GetHookMessages() override { return queue; }
  HANDLE GetHoverTranslationEvent() const override { return hoverEvent; }
  bool HasTrayIcon() const override { return true; }
  bool GetShowTrayWindow() const override { return showTrayWindow; }
  bool SetTrayIconVisible(bool visible) override {
    calls.push_back(visible ? "SetTrayIconVisible(true)" : "SetTrayIconVisible(false)");
    return iconAnswer;
  }
  void StartIconTimer(UINT elapseMs) override { calls.push_back("StartIconTimer(" + std::to_string(elapseMs) + ")"); }
  bool ShowBalloon(const Tsl::CUnicodeString& text, const Tsl::CUnicodeString& caption,
                   int32_t infoFlags, int32_t seconds) override {
    calls.push_back("ShowBalloon(" + TestSupport::Narrow(text.Text()) + "," +
                    TestSupport::Narrow(caption.Text()) + "," + std::to_string(infoFlags) + "," +
                    std::to_string(seconds) + ")");
    return true;
  }

  void StartWorker() { worker = ::CreateThread(nullptr, 0, HookWorker, static_cast<IHookWindow*>(this), 0, nullptr); }
  // Stops the queue and waits for the worker; true when it ended in time.
  bool StopWorker() {
    if (worker == nullptr) return true;
    queue.Stop();
    bool ended = ::WaitForSingleObject(worker, 60000) == WAIT_OBJECT_0;
    ::CloseHandle(worker);
    worker = nullptr;
    return ended;
  }
  LRESULT Send(UINT message, WPARAM wParam, LPARAM lParam) { return ::SendMessageW(window, message, wParam, lParam); }
  LRESULT SendBlock(uint32_t tag, const std::string& bytes, bool nullData = false) {
    COPYDATASTRUCT copy = {tag, DWORD(bytes.size()), nullData ? nullptr : const_cast<char*>(bytes.data())};
    return Send(WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&copy));
  }
  std::vector<CPtr<CHookMessage>> TakeAll() {
    std::vector<CPtr<CHookMessage>> items;
    for (CPtr<CHookMessage> item; queue.TryGet(item);) items.push_back(item);
    return items;
  }

  bool showTrayWindow = true, iconAnswer = true;
  std::vector<std::string> calls;
  HANDLE hoverEvent;

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* self = reinterpret_cast<CTestHookWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
    if (self != nullptr && IsHookMessage(message)) OnHookMessage(*self, message, wParam, lParam);
    if (self != nullptr && message == WM_COPYDATA)
      return OnCopyData(*self, reinterpret_cast<const COPYDATASTRUCT*>(lParam));
    return ::DefWindowProcW(window, message, wParam, lParam);
  }

  HWND window = nullptr;
  HANDLE worker = nullptr;
  CHookMessageQueue queue;
};

class HookWindow : public SerialTest {
 protected:
  CThreadSafeServices services;
  CTestHookWindow window;
};

TEST_F(HookWindow, HookReportsKeepTheirWordsAndMouseReportsDriveTheHoverEvent) {
  // Words wider than 32 bits where the build has them: nothing may be cut.
  const LPARAM wide = LPARAM(sizeof(LPARAM) > 4 ? 0x1234567890LL : 0x12345678);
  window.Send(Md16_Hook_On_Mouse_Translate, 1, wide);
  EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(window.hoverEvent, 0)) << "permitted";
  window.Send(Md16_Hook_On_Mouse_Translate, 0, 2);
  EXPECT_EQ(DWORD(WAIT_TIMEOUT), ::WaitForSingleObject(window.hoverEvent, 0)) << "withdrawn";
  window.Send(Md16_Hook_On_Window_Activated, 3, 4);
  window.Send(Md16_Hook_On_Ctrl_Ins_Ins, 5, 6);
  window.Send(WM_USER + 1, 7, 8);
  std::vector<CPtr<CHookMessage>> items = window.TakeAll();
  const struct {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
  } expected[] = {{Md16_Hook_On_Mouse_Translate, 1, wide},
                  {Md16_Hook_On_Mouse_Translate, 0, 2},
                  {Md16_Hook_On_Window_Activated, 3, 4},
                  {Md16_Hook_On_Ctrl_Ins_Ins, 5, 6}};
  ASSERT_EQ(4u, items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    EXPECT_EQ(expected[i].message, items[i]->message) << i;
    EXPECT_EQ(expected[i].wParam, items[i]->wParam) << i;
    EXPECT_EQ(expected[i].lParam, items[i]->lParam) << i;
    EXPECT_EQ(0, items[i]->data.GetSize()) << i;
  }
}

TEST_F(HookWindow, EveryBlockShowsAHiddenIconForAWhile) {
  const struct {
    bool shown, iconAnswer;
    uint32_t tag;
    std::vector<std::string> calls;
    size_t queued;
  } rows[] = {
      {true, true, CopyDataTagMirdal, {}, 1},
      {false, true, MakeCopyDataTag('X', 'Y', 'Z', 'W'), {"SetTrayIconVisible(true)", "StartIconTimer(10000)"}, 0},
      {false, true, CopyDataTagImage, {"SetTrayIconVisible(true)", "StartIconTimer(10000)"}, 1},
      {false, false, CopyDataTagMirdal, {"SetTrayIconVisible(true)"}, 0},
  };
  for (const auto& row : rows) {
    window.showTrayWindow = row.shown;
    window.iconAnswer = row.iconAnswer;
    window.calls.clear();
    EXPECT_EQ(0, window.SendBlock(row.tag, "abc"));
    EXPECT_EQ(row.calls, window.calls) << row.tag;
    EXPECT_EQ(row.queued, window.TakeAll().size()) << row.tag;
  }
}

TEST_F(HookWindow, ForwardedBlocksAreCopiedWithTheirTag) {
  std::string large(5 * 1024 * 1024, '\0');
  for (size_t i = 0; i < large.size(); ++i) large[i] = char(i * 7);
  const struct {
    uint32_t tag;
    std::string bytes;
    bool nullData;
  } rows[] = {{CopyDataTagMirdal, "word", false},
              {CopyDataTagImage, std::string("\0\1\2", 3), false},
              {CopyDataTagMirdal, "", true},
              {CopyDataTagMirdal, large, false}};
  for (const auto& row : rows) window.SendBlock(row.tag, row.bytes, row.nullData);
  std::vector<CPtr<CHookMessage>> items = window.TakeAll();
  ASSERT_EQ(4u, items.size());
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(UINT(WM_COPYDATA), items[i]->message) << i;
    EXPECT_EQ(0u, items[i]->wParam) << i;
    EXPECT_EQ(rows[i].tag, items[i]->tag) << i;
    EXPECT_EQ(rows[i].bytes, std::string(reinterpret_cast<const char*>(items[i]->data.GetData()),
                                         size_t(items[i]->data.GetSize())))
        << i;
  }
}

std::string BalloonBlock(const wchar_t* caption, const wchar_t* text, int32_t flags) {
  Tsl::CMemoryFile file;
  {
    Tsl::CArchive store(&file, Tsl::CArchive::Store);
    store << CPtr<CTrayBalloonData>(new CTrayBalloonData(caption, text, L"", flags));
  }
  std::string bytes(size_t(file.GetLength()), '\0');
  file.SeekToBegin();
  file.Read(&bytes[0], int32_t(bytes.size()));
  return bytes;
}

TEST_F(HookWindow, BalloonRequestsAreShownAndBrokenOnesReported) {
  std::string good = BalloonBlock(L"Caption", L"Text", 1);
  std::string broken = good.substr(0, good.size() / 2);
  std::string garbage(3 * 1024 * 1024, '\x7f');
  for (const std::string* block : {&broken, &garbage}) window.SendBlock(CopyDataTagBalloon, *block);
  window.SendBlock(CopyDataTagBalloon, "", true);
  window.SendBlock(CopyDataTagBalloon, good);
  EXPECT_EQ(std::vector<std::string>{"ShowBalloon(Text,Caption,1,10)"}, window.calls)
      << "only the well-formed request shows, and it still shows after the broken ones";
  EXPECT_EQ(3u, services.reports.size());
  EXPECT_TRUE(window.TakeAll().empty()) << "balloons are not forwarded";
}

// ---- The worker ---------------------------------------------------------------------------

class Worker : public HookWindow {
 protected:
  void SetUp() override {
    setupPath.Set(SelfPath());
  }
  RegistryValueGuard setupPath{MirdalSetupKey, MirdalPathValueName};
  TestSupport::ScratchFolder folder;
  std::wstring journal = folder / L"mirdal.txt";
  ScopedEnvironment program{ProgramVariable, L"mirdal"};
  ScopedEnvironment journalFile{JournalVariable, journal};
};

// Receives, on the test thread, what the worker posts to the main window.
std::vector<std::pair<UINT, WPARAM>> received;
LRESULT CALLBACK RecordingProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message >= 0xC000) received.emplace_back(message, wParam);
  return ::DefWindowProcW(window, message, wParam, lParam);
}

TEST_F(Worker, OrderIsKeptAcrossTenThousandQueuedReports) {
  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = RecordingProcedure;
  windowClass.hInstance = ::GetModuleHandleW(nullptr);
  windowClass.lpszClassName = MirdalMainWindowClass;
  ::RegisterClassW(&windowClass);
  HWND main = ::CreateWindowExW(0, MirdalMainWindowClass, L"", 0, 0, 0, 10, 10, nullptr, nullptr,
                                windowClass.hInstance, nullptr);
  ASSERT_NE(nullptr, main);
  received.clear();
  const WPARAM count = 10000;
  for (WPARAM i = 0; i < count; ++i) window.Send(Md16_Hook_On_Window_Activated, i, 0);
  window.StartWorker();
  EXPECT_TRUE(PumpUntil([&] { return received.size() >= count; }, 60000)) << received.size();
  EXPECT_TRUE(window.StopWorker());
  ::DestroyWindow(main);
  ASSERT_EQ(size_t(count), received.size());
  for (WPARAM i = 0; i < count; ++i) {
    ASSERT_EQ(std::make_pair(Md16_Hook_On_Window_Activated, i), received[i]) << "at " << i;
  }
}

TEST_F(Worker, AChordWithTheMainProgramClosedStartsItAndArrivesUnchanged) {
  ScopedEnvironment initMs(InitMsVariable, L"500");
  window.Send(Md16_Hook_On_Ctrl_Ins_Ins, 0x1234, 0x5678);
  window.StartWorker();
  std::string chord = Line(Md16_Hook_On_Ctrl_Ins_Ins, 0x1234, 0x5678);
  ASSERT_TRUE(PumpUntil([&] { return Count(ReadJournal(journal), chord) == 1; }, 60000));
  std::vector<std::string> lines = ReadJournal(journal);
  EXPECT_EQ("start \"" + TestSupport::Narrow(SelfPath()) + "\" /External", lines[0]);
  EXPECT_TRUE(window.StopWorker());
  EXPECT_TRUE(services.Logged(L"RunMirdal time = "));
}

TEST_F(Worker, MouseReportsAndBlocksForAClosedMainProgramStartNothing) {
  window.Send(Md16_Hook_On_Mouse_Translate, 1, 0);
  window.SendBlock(CopyDataTagMirdal, "word");
  window.StartWorker();
  ASSERT_TRUE(PumpUntil([&] { return window.GetHookMessages().GetCount() == 0; }, 30000));
  // The worker finishes the report it holds before it ends.
  EXPECT_TRUE(window.StopWorker());
  EXPECT_TRUE(ReadJournal(journal).empty());
  EXPECT_FALSE(services.Logged(L"Entering RunMirdal"));
}

TEST_F(Worker, StopDuringALongLaunchEndsTheWorkerWithoutTakingMore) {
  ScopedEnvironment initMs(InitMsVariable, L"3000");
  window.Send(Md16_Hook_On_Ctrl_Ins_Ins, 1, 0);
  window.StartWorker();
  ASSERT_TRUE(PumpUntil([&] { return !ReadJournal(journal).empty(); }, 30000)) << "no launch";
  window.Send(Md16_Hook_On_Ctrl_Ins_Ins, 2, 0);
  EXPECT_TRUE(window.StopWorker());
  EXPECT_EQ(1, window.GetHookMessages().GetCount()) << "the second chord was taken";
  ASSERT_TRUE(PumpUntil([&] { return Count(ReadJournal(journal), Line(Md16_Hook_On_Ctrl_Ins_Ins, 1, 0)) == 1; },
                        10000))
      << "the chord under way was not delivered";
  EXPECT_EQ(0u, Count(ReadJournal(journal), Line(Md16_Hook_On_Ctrl_Ins_Ins, 2, 0)));
}

TEST_F(Worker, BlocksReachTheMainWindowAndAnEmptyOneAsANullBlock) {
  ScopedEnvironment initMs(InitMsVariable, L"0");
  ASSERT_NE(nullptr, RunMirdal(nullptr, L""));
  window.SendBlock(CopyDataTagMirdal, "", true);
  window.SendBlock(CopyDataTagMirdal, "xyz");
  window.StartWorker();
  std::string tag = std::to_string(CopyDataTagMirdal);
  std::string empty = "copydata " + tag + " 0 null", bytes = "copydata " + tag + " 3 bytes 78 79 7a";
  EXPECT_TRUE(PumpUntil([&] { return Count(ReadJournal(journal), bytes) == 1; }, 30000));
  std::vector<std::string> lines = ReadJournal(journal);
  EXPECT_EQ(1u, Count(lines, empty)) << ::testing::PrintToString(lines);
  EXPECT_LT(std::find(lines.begin(), lines.end(), empty), std::find(lines.begin(), lines.end(), bytes));
}

}  // namespace
