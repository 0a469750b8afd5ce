// The agent's window: the order in which its window procedure tests
// messages, the instance protocol between agent versions, the menu's ticks
// and grey items, the menu's exit, the reminder balloon's noon rule, and the
// click on the word of the day.
#include "MirdalTrayWnd.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MdMessages.h"
#include "MirdalAgent.h"
#include "ProductMarks.h"
#include "errors.h"
#include "message.h"
#include "resourceinfo.h"

namespace {

// Nothing reaches the real notification area.
BOOL WINAPI AcceptNotify(DWORD, PNOTIFYICONDATAW) { return TRUE; }

HMODULE ResourceLibrary() {
  static HMODULE library = [] {
    HMODULE module = ::LoadLibraryW(MIRDAL_PROGRAM_DIR L"MirdalRes.dll");
    // The menu "MDA_AGENT" is found through the resource base.
    Tsl::RegisterStaticModule(module, Tsl::RMK_Permanent);
    return module;
  }();
  return library;
}

// A window of the main program's classes, made by the test in the main
// program's place; messages it receives are written down.
class StandInWindow {
 public:
  explicit StandInWindow(const wchar_t* className) : className(className) {
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = Record;
    windowClass.hInstance = ::GetModuleHandleW(nullptr);
    windowClass.lpszClassName = className;
    ::RegisterClassW(&windowClass);
    handle = ::CreateWindowExW(0, className, L"", WS_POPUP | WS_VISIBLE, 0, 0, 10, 10, nullptr, nullptr,
                               windowClass.hInstance, nullptr);
  }
  ~StandInWindow() {
    ::DestroyWindow(handle);
    ::UnregisterClassW(className, ::GetModuleHandleW(nullptr));
  }
  static std::vector<UINT> received;
  HWND handle;

 private:
  static LRESULT CALLBACK Record(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message >= 0xC000) received.push_back(message);
    return ::DefWindowProcW(window, message, wParam, lParam);
  }
  const wchar_t* className;
};
std::vector<UINT> StandInWindow::received;

// Takes the messages waiting for this thread; true when WM_QUIT was among them.
bool PumpSawQuit() {
  bool quit = false;
  MSG message;
  while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    if (message.message == WM_QUIT) quit = true;
    ::DispatchMessageW(&message);
  }
  return quit;
}

// One agent window as the product builds it, on this thread, with the hook
// library missing (no triggers are hooked in tests) and the shell recorded.
class AgentWindowTest : public ::testing::Test {
 protected:
  AgentWindowTest() {
    previousNotify = SetTrayNotifyFunction(AcceptNotify);
    previousServices = BindAgentServices(&GetProductAgentServices());
    window = new CMirdalTrayWnd(ResourceLibrary(), IconMirdalOpen, IconMirdalClosed, IconMirdalOnline, IconUpdating,
                                L"tip", L"MDA_AGENT", L"MDA_AGENT", true, L"Z:\\nowhere\\MdHook.dll",
                                L"Z:\\nowhere\\MdAgent64.exe");
    CTrayIconWnd::SetProcessWindow(window);
  }
  ~AgentWindowTest() override {
    delete window;
    PumpSawQuit();
    SetTrayNotifyFunction(previousNotify);
    BindAgentServices(previousServices);
  }
  LRESULT Send(UINT message, WPARAM wParam = 0, LPARAM lParam = 0) {
    return ::SendMessageW(window->GetWindowHandle(), message, wParam, lParam);
  }

  CProductLock lock{L"MirdalTest.AgentSession"};
  TrayNotifyFunction previousNotify;
  IAgentServices* previousServices;
  CMirdalTrayWnd* window;
};

TEST_F(AgentWindowTest, AnswersAndTheOrderOfItsTests) {
  EXPECT_EQ(AgentVersion, Send(MdAgent_Get_Version));
  // The agent agrees to a session end before the base is asked.
  EXPECT_EQ(1, Send(WM_QUERYENDSESSION));
  EXPECT_EQ(-1, Send(WM_COMMAND, 30300));
  EXPECT_FALSE(window->OnCommand(30271));
  EXPECT_FALSE(window->OnCommand(30369));
}

TEST_F(AgentWindowTest, EndingMessagesQuitEvenWhenTheSessionEndIsCalledOff) {
  const UINT ending[] = {Md16_Agent_Close, WM_ENDSESSION, Md16_Agent_Close_Without_Mirdal};
  for (UINT message : ending) {
    PumpSawQuit();
    Send(message, 0);
    EXPECT_TRUE(PumpSawQuit()) << message;
  }
}

TEST_F(AgentWindowTest, OnlyTheHighestVersionIsInCharge) {
  // Alone: nobody answered the enumeration, and the own broadcast puts the
  // agent in charge when it comes back.
  EXPECT_FALSE(window->IsTranslationEnabled());
  window->OnNewInstance(AgentVersion);
  EXPECT_TRUE(window->IsTranslationEnabled());
  Send(MdAgent_New_Mirdal_Instance, 17);
  EXPECT_FALSE(window->IsTranslationEnabled());
  EXPECT_EQ(AgentVersion, Send(MdAgent_Get_Version));
  Send(MdAgent_Exit_Mirdal_Instance, 17);
  EXPECT_TRUE(window->IsTranslationEnabled());
}

// The menu's ticks and grey items, with the main program open and closed and
// the agent in charge or not.
TEST_F(AgentWindowTest, MenuGreysWhatCannotActNow) {
  HMENU menu = window->GetContextMenu();
  ASSERT_NE(nullptr, menu);
  auto grey = [menu](UINT id) { return (::GetMenuState(menu, id, MF_BYCOMMAND) & MF_GRAYED) != 0; };
  const struct {
    bool running, inCharge;
    bool hoverGrey, settingsGrey, chordsGrey, clickGrey;
  } rows[] = {
      {false, false, true, true, true, true},
      {false, true, true, true, false, true},
      {true, false, true, false, true, false},
      {true, true, false, false, false, false},
  };
  for (const auto& row : rows) {
    StandInWindow* program = row.running ? new StandInWindow(MirdalAppWindowClass) : nullptr;
    window->SetTranslationEnabled(row.inCharge);
    window->OnInitMenuPopup(menu, 0, false);
    const std::string name = std::string(row.running ? "running" : "closed") + (row.inCharge ? ", in charge" : "");
    EXPECT_EQ(row.hoverGrey, grey(CMD_HoverTrigger)) << name;
    EXPECT_EQ(row.settingsGrey, grey(CMD_TranslationSettings)) << name;
    EXPECT_EQ(row.chordsGrey, grey(CMD_CtrlCC)) << name;
    EXPECT_EQ(row.chordsGrey, grey(CMD_CtrlInsIns)) << name;
    EXPECT_EQ(row.clickGrey, grey(CMD_ClickTrigger)) << name;
    delete program;
  }
  // The ticks follow the options.
  GetLauncherOptions().useCtrlCC = true;
  GetLauncherOptions().useMouseClick = false;
  window->OnInitMenuPopup(menu, 0, false);
  EXPECT_TRUE(::GetMenuState(menu, CMD_CtrlCC, MF_BYCOMMAND) & MF_CHECKED);
  EXPECT_FALSE(::GetMenuState(menu, CMD_ClickTrigger, MF_BYCOMMAND) & MF_CHECKED);
}

TEST_F(AgentWindowTest, ExitFromTheMenuTakesTheMainProgramFirst) {
  {
    StandInWindow program(MirdalAppWindowClass);
    StandInWindow::received.clear();
    PumpSawQuit();
    EXPECT_TRUE(window->OnCommand(CMD_Exit));
    EXPECT_FALSE(PumpSawQuit());
    EXPECT_EQ(std::vector<UINT>{Md16_Mirdal_Close_Main_Window}, StandInWindow::received);
  }
  EXPECT_TRUE(window->OnCommand(CMD_Exit));
  EXPECT_TRUE(PumpSawQuit());
}

TEST_F(AgentWindowTest, WordOfTheDayClickShowsTheWordInTheMainProgram) {
  StandInWindow application(MirdalAppWindowClass);
  StandInWindow mainWindow(MirdalMainWindowClass);
  const Tsl::CMessageName word(L"MSG_MDA_WORD_OF_THE_DAY");
  window->ShowBalloon(word.GetText(), L"caption", NIIF_INFO, 10);
  StandInWindow::received.clear();
  Send(GetTrayCallbackMessage(), 0, NIN_BALLOONUSERCLICK);
  PumpSawQuit();
  EXPECT_EQ(std::vector<UINT>{Md16_Mirdal_Show_Word_Of_The_Day}, StandInWindow::received);
  // Another text is no word of the day: nothing happens.
  window->ShowBalloon(L"something else", L"caption", NIIF_INFO, 10);
  StandInWindow::received.clear();
  Send(GetTrayCallbackMessage(), 0, NIN_BALLOONUSERCLICK);
  PumpSawQuit();
  EXPECT_TRUE(StandInWindow::received.empty());
}

TEST(ReminderBalloon, AtMostOncePerDayAndNotBeforeNoon) {
  const Tsl::CTime today13(2026, 11, 23, 13, 0, 0), today11(2026, 11, 23, 11, 0, 0),
      yesterday(2026, 11, 22, 15, 0, 0);
  const struct {
    const char* name;
    Tsl::CTime last, now;
    bool due;
  } rows[] = {
      {"first tick ever, any hour", Tsl::CTime(), Tsl::CTime(2026, 11, 23, 8, 0, 0), true},
      {"shown at 13:00, tick at 14:00", today13, Tsl::CTime(2026, 11, 23, 14, 0, 0), false},
      {"shown at 11:00, tick at 14:00", today11, Tsl::CTime(2026, 11, 23, 14, 0, 0), true},
      {"shown yesterday, tick at 11:00", yesterday, Tsl::CTime(2026, 11, 23, 11, 0, 0), false},
      {"shown yesterday, tick at 12:10", yesterday, Tsl::CTime(2026, 11, 23, 12, 10, 0), true},
      {"shown yesterday, tick at noon exactly", yesterday, Tsl::CTime(2026, 11, 23, 12, 0, 0), false},
  };
  for (const auto& row : rows) EXPECT_EQ(row.due, IsReminderBalloonDue(row.last, row.now)) << row.name;
}

TEST(AgentMenuTexts, KindsOutsideTheirTablesAreInternalErrors) {
  CLauncherOptions options;
  const struct {
    int32_t clickType, coverType, coverKey, line;
  } strangers[] = {{8, 0, 0, 1315}, {0, 2, 0, 1279}, {0, 1, 7, 1276}};
  for (const auto& row : strangers) {
    options.useMouseClickType = CLauncherOptions::MouseClickType(row.clickType);
    options.useMouseCoverType = CLauncherOptions::MouseCoverType(row.coverType);
    options.useMouseCoverVirtualKey = CLauncherOptions::MouseCoverVirtualKey(row.coverKey);
    try {
      row.line == 1315 ? ClickMenuText(options) : CoverMenuText(options);
      ADD_FAILURE() << "no internal error for line " << row.line;
    } catch (Tsl::CInternalError* failure) {
      EXPECT_EQ(row.line, failure->line);
      delete failure;
    }
  }
}

}  // namespace
