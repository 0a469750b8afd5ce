// The tray icon and its window: the calls into the notification area, the
// icon size rule, the click logic that tells clicks from double clicks, and
// the window procedure's handling of the shell's restart and system commands.
#include "TrayIcon.h"

#include <gtest/gtest.h>

#include "ProductMarks.h"

#include <string>
#include <vector>

namespace {

// One recorded call into the notification area.
struct NotifyCall {
  DWORD action;
  NOTIFYICONDATAW data;
};

std::vector<NotifyCall> calls;
BOOL answer = TRUE;

BOOL WINAPI RecordNotify(DWORD action, PNOTIFYICONDATAW data) {
  calls.push_back({action, *data});
  return answer;
}

// Records every call for the test's lifetime, and answers `answer`.
class RecordedShell {
 public:
  RecordedShell() {
    calls.clear();
    answer = TRUE;
    previous = SetTrayNotifyFunction(RecordNotify);
  }
  ~RecordedShell() { SetTrayNotifyFunction(previous); }

 private:
  TrayNotifyFunction previous;
};

// A plain window for a tray icon to report to.
class PlainWindow {
 public:
  PlainWindow() { handle = ::CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr); }
  ~PlainWindow() { ::DestroyWindow(handle); }
  HWND handle;
};

HICON SomeIcon() { return ::LoadIconW(nullptr, IDI_APPLICATION); }

TEST(TrayIconSize, NextSizeTheLibrariesCarry) {
  const struct {
    int32_t metric, size;
  } rows[] = {{8, 16}, {16, 16}, {17, 18}, {18, 18}, {19, 20}, {20, 20}, {21, 22},
              {22, 22}, {23, 32}, {32, 32}, {33, 48}, {64, 48}};
  for (const auto& row : rows) EXPECT_EQ(row.size, GetIconSizeForMetric(row.metric)) << "metric " << row.metric;
}

// Each operation makes exactly the call the shell expects of it.
TEST(TrayIconCalls, EachOperationMakesItsCall) {
  PlainWindow window;
  RecordedShell shell;
  CTrayIcon icon(window.handle, SomeIcon(), L"tip");
  HICON other = ::LoadIconW(nullptr, IDI_WARNING);
  const struct {
    const char* operation;
    bool (*run)(CTrayIcon&, HICON);
    DWORD action;
    UINT flags;
    DWORD state, mask;
  } rows[] = {
      {"SetVisible(true)", [](CTrayIcon& i, HICON) { return i.SetVisible(true); }, NIM_ADD, 7, 0, 0},
      {"Unhide", [](CTrayIcon& i, HICON) { return i.Unhide(); }, NIM_MODIFY, 8, 0, 1},
      {"SetIcon", [](CTrayIcon& i, HICON h) { return i.SetIcon(h); }, NIM_MODIFY, 2, 0, 0},
      {"SetTip", [](CTrayIcon& i, HICON) { return i.SetTip(L"new"); }, NIM_MODIFY, 4, 0, 0},
      {"ClearBalloon", [](CTrayIcon& i, HICON) { return i.ClearBalloon(); }, NIM_MODIFY, 16, 0, 0},
      {"ReAdd", [](CTrayIcon& i, HICON) { return i.ReAdd(); }, NIM_ADD, 7, 0, 0},
      {"SetVisible(false)", [](CTrayIcon& i, HICON) { return i.SetVisible(false); }, NIM_DELETE, 7, 0, 0},
  };
  for (const auto& row : rows) {
    calls.clear();
    EXPECT_TRUE(row.run(icon, other)) << row.operation;
    ASSERT_EQ(1u, calls.size()) << row.operation;
    const NOTIFYICONDATAW& data = calls[0].data;
    EXPECT_EQ(row.action, calls[0].action) << row.operation;
    EXPECT_EQ(row.flags, data.uFlags) << row.operation;
    EXPECT_EQ(row.state, data.dwState) << row.operation;
    EXPECT_EQ(row.mask, data.dwStateMask) << row.operation;
    EXPECT_EQ(offsetof(NOTIFYICONDATAW, hBalloonIcon), data.cbSize) << row.operation;
    EXPECT_EQ(static_cast<UINT>(reinterpret_cast<uintptr_t>(&icon)), data.uID) << row.operation;
    EXPECT_EQ(GetTrayCallbackMessage(), data.uCallbackMessage) << row.operation;
    EXPECT_EQ(window.handle, data.hWnd) << row.operation;
  }
}

TEST(TrayIconCalls, UnchangedStateOrIconMakesNoCall) {
  PlainWindow window;
  RecordedShell shell;
  CTrayIcon icon(window.handle, SomeIcon(), L"tip");
  EXPECT_TRUE(icon.SetVisible(false));
  EXPECT_TRUE(icon.SetIcon(SomeIcon()));
  EXPECT_TRUE(icon.SetTip(L"stored while hidden"));
  EXPECT_TRUE(calls.empty());
  // The next add carries the tip stored while hidden.
  icon.SetVisible(true);
  ASSERT_EQ(1u, calls.size());
  EXPECT_STREQ(L"stored while hidden", calls[0].data.szTip);
  calls.clear();
  EXPECT_TRUE(icon.SetVisible(true));
  EXPECT_TRUE(calls.empty());
}

TEST(TrayIconCalls, LongTipIsCutNotRefused) {
  PlainWindow window;
  RecordedShell shell;
  std::wstring longTip(300, L'x');
  CTrayIcon icon(window.handle, SomeIcon(), longTip.c_str());
  EXPECT_TRUE(icon.SetVisible(true));
  EXPECT_EQ(127u, wcslen(calls[0].data.szTip));
}

TEST(TrayIconCalls, RefusedAddsLeaveTheIconHiddenForTheRetry) {
  PlainWindow window;
  RecordedShell shell;
  CTrayIcon icon(window.handle, SomeIcon(), L"tip");
  answer = FALSE;
  EXPECT_FALSE(icon.SetVisible(true));
  EXPECT_FALSE(icon.IsVisible());
  answer = TRUE;
  ASSERT_TRUE(icon.SetVisible(true));
  answer = FALSE;
  EXPECT_FALSE(icon.ReAdd());
  EXPECT_FALSE(icon.IsVisible());
}

TEST(TrayIconCalls, BalloonClearsThenUnhidesThenShows) {
  PlainWindow window;
  RecordedShell shell;
  CTrayIcon icon(window.handle, SomeIcon(), L"tip");
  icon.SetVisible(true);
  calls.clear();
  EXPECT_TRUE(icon.ShowBalloon(L"text", L"title", NIIF_INFO, 10));
  ASSERT_EQ(3u, calls.size());
  EXPECT_EQ(16u, calls[0].data.uFlags);
  EXPECT_STREQ(L"", calls[0].data.szInfo);
  EXPECT_EQ(8u, calls[1].data.uFlags);
  EXPECT_EQ(1u, calls[1].data.dwStateMask);
  EXPECT_EQ(16u, calls[2].data.uFlags);
  EXPECT_STREQ(L"text", calls[2].data.szInfo);
  EXPECT_STREQ(L"title", calls[2].data.szInfoTitle);
  EXPECT_EQ(static_cast<DWORD>(NIIF_INFO), calls[2].data.dwInfoFlags);
  EXPECT_EQ(10u, calls[2].data.uTimeout);
  EXPECT_EQ(L"text", icon.GetBalloonText());
}

// Every process that makes a window of the agent's public class holds this
// lock first, so that FindWindowW finds the one of the running test.
struct AgentWindowLock {
  CProductLock lock{L"MirdalTest.AgentSession"};
};

// The product's icons, from the resource library that carries them.
HINSTANCE IconLibrary() {
  static HMODULE library = ::LoadLibraryW(MIRDAL_PROGRAM_DIR L"MirdalRes.dll");
  return library;
}

// A tray window whose deliveries are written down instead of opening menus.
class RecordingTrayWnd : private AgentWindowLock, public CTrayIconWnd {
 public:
  RecordingTrayWnd()
      : CTrayIconWnd(IconLibrary(), 102, 101, 103, 107, L"title", L"tip", L"", L"", false) {
    SetProcessWindow(this);
  }
  LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override {
    // The agent's window routes its timers here; this one does the same.
    if (message == WM_TIMER) {
      OnTimer(wParam);
      return 0;
    }
    return CTrayIconWnd::WindowProc(message, wParam, lParam);
  }
  void OnTrayClick() override { delivered += "click "; }
  void OnTrayDoubleClick() override { delivered += "double "; }
  void OnTrayRightClick() override { delivered += "right "; }
  void OnTrayRightDoubleClick() override { delivered += "rightdouble "; }
  void OnBalloonClick() override { delivered += "balloon "; }
  bool OnCommand(UINT id) override { return id == 1; }
  void SetBusy() { busy = true; }

  std::string delivered;
};

// Feeds a sequence of tray notifications ("up" a left button-up, "dbl" a
// double-click notification, "rup", "rdbl", "balloon") and click-timer
// firings ("timer") and returns what was delivered.
std::string Deliveries(const std::vector<std::string>& events, bool startBusy = false) {
  RecordedShell shell;
  RecordingTrayWnd window;
  if (startBusy) window.SetBusy();
  for (const std::string& event : events) {
    if (event == "timer") {
      window.OnTimer(ClickTimerId);
      continue;
    }
    LPARAM code = event == "up"     ? WM_LBUTTONUP
                  : event == "dbl"  ? WM_LBUTTONDBLCLK
                  : event == "rup"  ? WM_RBUTTONUP
                  : event == "rdbl" ? WM_RBUTTONDBLCLK
                                    : NIN_BALLOONUSERCLICK;
    window.OnTrayNotification(0, code);
  }
  return window.delivered;
}

TEST(TrayClickLogic, SequencesDeliverTheirClicks) {
  const struct {
    std::vector<std::string> events;
    bool startBusy;
    std::string delivered;
  } rows[] = {
      {{"up", "timer"}, false, "click "},
      {{"up", "timer", "timer"}, false, "click "},
      {{"up", "up", "timer"}, false, "double "},
      {{"up", "dbl", "up", "timer"}, false, "double "},
      // Held after a double click: delivered at the button-up, not before.
      {{"up", "dbl", "timer"}, false, ""},
      {{"up", "dbl", "timer", "up"}, false, "double "},
      {{"dbl", "timer", "up"}, false, ""},
      {{"up", "up", "up", "timer"}, false, ""},
      {{"rup"}, false, "right "},
      {{"rup"}, true, ""},
      {{"rdbl"}, false, "rightdouble "},
      {{"balloon"}, false, "balloon "},
      {{"balloon"}, true, "balloon "},
  };
  for (const auto& row : rows) {
    std::string name;
    for (const std::string& event : row.events) name += event + " ";
    EXPECT_EQ(row.delivered, Deliveries(row.events, row.startBusy)) << name << (row.startBusy ? "(busy)" : "");
  }
}

// Pumps this thread's messages for up to `milliseconds`.
void Pump(DWORD milliseconds) {
  const DWORD start = ::GetTickCount();
  MSG message;
  while (::GetTickCount() - start < milliseconds) {
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) ::DispatchMessageW(&message);
    ::Sleep(5);
  }
}

TEST(TrayClickLogic, RealTimerDeliversOneClickOnce) {
  RecordedShell shell;
  RecordingTrayWnd window;
  ::SendMessageW(window.GetWindowHandle(), GetTrayCallbackMessage(), 0, WM_LBUTTONUP);
  Pump(400);
  EXPECT_EQ("click ", window.delivered);
}

TEST(TrayWindow, ShellRestartReaddsOnlyAVisibleIcon) {
  RecordedShell shell;
  RecordingTrayWnd window;
  const UINT announcements[] = {GetTaskbarCreatedMessage(), WM_THEMECHANGED};
  for (UINT message : announcements) {
    calls.clear();
    ::SendMessageW(window.GetWindowHandle(), message, 0, 0);
    EXPECT_TRUE(calls.empty()) << message;
    window.GetTrayIcon()->SetVisible(true);
    calls.clear();
    ::SendMessageW(window.GetWindowHandle(), message, 0, 0);
    ASSERT_EQ(1u, calls.size()) << message;
    EXPECT_EQ(static_cast<DWORD>(NIM_ADD), calls[0].action) << message;
    window.GetTrayIcon()->SetVisible(false);
  }
}

TEST(TrayWindow, SystemMenuCannotCloseOrShowTheWindow) {
  RecordedShell shell;
  RecordingTrayWnd window;
  HWND handle = window.GetWindowHandle();
  const WPARAM swallowed[] = {SC_MAXIMIZE, SC_CLOSE, SC_KEYMENU, SC_RESTORE, SC_HOTKEY, SC_CLOSE | 0x3};
  for (WPARAM command : swallowed) {
    EXPECT_EQ(0, ::SendMessageW(handle, WM_SYSCOMMAND, command, 0)) << command;
    EXPECT_TRUE(::IsWindow(handle)) << command;
    EXPECT_FALSE(::IsWindowVisible(handle)) << command;
  }
}

TEST(TrayWindow, IsFoundByItsPublicClassAndRebuildsOnCreate) {
  RecordedShell shell;
  RecordingTrayWnd window;
  HWND first = window.GetWindowHandle();
  EXPECT_EQ(first, ::FindWindowW(L"Md16_Launcher", nullptr));
  window.Create(101, 102, 103, 107);
  EXPECT_FALSE(::IsWindow(first));
  EXPECT_EQ(window.GetWindowHandle(), ::FindWindowW(L"Md16_Launcher", nullptr));
}

}  // namespace
