// The agent's window: dispatch of every message other programs send, the
// instance protocol between agents of several versions, the icon and balloon
// timers, closing and restarting the main program, the tray menu and the
// balloons. Everything here runs on the main thread but HookWorker.
#include "MirdalTrayWnd.h"

#include "MdMessages.h"
#include "MdTools/Log.h"
#include "MirdalAgent.h"
#include "MirdalLaunch.h"
#include "Unsup/TesselExt.h"
#include "errors.h"
#include "message.h"
#include "resourceinfo.h"
#include "services.h"
#include "setup.h"

using Tsl::CMessageName;
using Tsl::CUnicodeString;

namespace {

const wchar_t Unit[] = L"MirdalAgent";

// The texts of the agent's menu, boxes and balloons, by name; the words
// themselves lie in the resource libraries of the current language.
const CMessageName MsgClickAlt(L"MSG_MDA_LEFT_CLICK_PLUS_ALT_TRANSLATION");
const CMessageName MsgClickCtrl(L"MSG_MDA_LEFT_CLICK_PLUS_CTRL_TRANSLATION");
const CMessageName MsgClickShift(L"MSG_MDA_LEFT_CLICK_PLUS_SHIFT_TRANSLATION");
const CMessageName MsgClickMiddle(L"MSG_MDA_MIDDLE_CLICK_TRANSLATION");
const CMessageName MsgClickCtrlAlt(L"MSG_MDA_LEFT_CLICK_PLUS_CTRL_ALT_TRANSLATION");
const CMessageName MsgClickAltShift(L"MSG_MDA_LEFT_CLICK_PLUS_ALT_SHIFT_TRANSLATION");
const CMessageName MsgClickCtrlShift(L"MSG_MDA_LEFT_CLICK_PLUS_CTRL_SHIFT_TRANSLATION");
const CMessageName MsgClickCtrlWin(L"MSG_MDA_LEFT_CLICK_PLUS_CTRL_WIN_TRANSLATION");
const CMessageName MsgCover(L"MSG_MDA_COVER_TRANSLATION");
const CMessageName MsgCoverCtrl(L"MSG_MDA_COVER_PLUS_CTRL_TRANSLATION");
const CMessageName MsgCoverShift(L"MSG_MDA_COVER_PLUS_SHIFT_TRANSLATION");
const CMessageName MsgCoverAlt(L"MSG_MDA_COVER_PLUS_ALT_TRANSLATION");
const CMessageName MsgCoverCtrlAlt(L"MSG_MDA_COVER_PLUS_CTRL_ALT_TRANSLATION");
const CMessageName MsgCoverCtrlShift(L"MSG_MDA_COVER_PLUS_CTRL_SHIFT_TRANSLATION");
const CMessageName MsgCoverAltShift(L"MSG_MDA_COVER_PLUS_ALT_SHIFT_TRANSLATION");
const CMessageName MsgCoverCtrlWin(L"MSG_MDA_COVER_PLUS_CTRL_WIN_TRANSLATION");
const CMessageName MsgBalloonTitle(L"MSG_MDA_BALOON_TITLE");
const CMessageName MsgBalloonText(L"MSG_MDA_BALOON_TEXT");
const CMessageName MsgStartMirdalBalloon(L"MSG_MDA_START_MIRDAL_BALOON");
const CMessageName MsgWordOfTheDay(L"MSG_MDA_WORD_OF_THE_DAY");
const CMessageName MsgWordOfTheDayTitle(L"MSG_MDA_WORD_OF_THE_DAY_TITLE");
const CMessageName MsgFailedToRestart(L"MSG_MDA_FAILED_TO_RESTART");
const CMessageName MsgFailedToClose(L"MSG_MDA_FAILED_TO_CLOSE");
const CMessageName MsgAutoupdate(L"MSG_MDAGENT_MENU_AUTOUPDATE");
const CMessageName MsgAutoupdateProgress(L"MSG_MDAGENT_MENU_AUTOUPDATE_PROGRESS");

const CMessageName* const ClickTexts[] = {&MsgClickAlt,     &MsgClickCtrl,     &MsgClickShift,
                                          &MsgClickMiddle,  &MsgClickCtrlAlt,  &MsgClickAltShift,
                                          &MsgClickCtrlShift, &MsgClickCtrlWin};
const CMessageName* const CoverKeyTexts[] = {&MsgCoverCtrl,      &MsgCoverShift,    &MsgCoverAlt,
                                             &MsgCoverCtrlAlt,   &MsgCoverCtrlShift, &MsgCoverAltShift,
                                             &MsgCoverCtrlWin};

const wchar_t GeneralKey[] = L"SOFTWARE\\Tavix\\Mirdal\\16\\General";
const wchar_t LauncherKey[] = L"SOFTWARE\\Tavix\\Mirdal\\16\\Launcher";

// The reminder's balloon title is the word of the day's title only in this
// language number, which the language table leaves free today; the test
// stays as the product has it.
const int32_t WordOfTheDayTitleLanguage = 41;

// A failure box of CloseMirdal or RestartMirdal is on screen: new closes and
// restarts wait until it is answered.
bool modalBoxOpen = false;
// When the last single click acted, so that a second click in the
// double-click time does nothing.
DWORD lastClickTick = 0;

Tsl::CTime SystemClock() { return Tsl::CTime::GetCurrentTime(); }
AgentClockFunction agentClock = SystemClock;
AgentBoxFunction agentBox = ::MessageBoxW;

// Keeps modalBoxOpen set while a failure box stands, also when an exception
// passes.
class CModalBoxMark {
 public:
  CModalBoxMark() { modalBoxOpen = true; }
  ~CModalBoxMark() { modalBoxOpen = false; }
  CModalBoxMark(const CModalBoxMark&) = delete;
  CModalBoxMark& operator=(const CModalBoxMark&) = delete;
};

void BroadcastInstanceMessage(UINT message) { ::PostMessageW(HWND_BROADCAST, message, AgentVersion, 0); }

int32_t HighestVersion(const Tsl::CArray<int32_t>& versions) {
  int32_t highest = 0;
  for (int32_t i = 0; i < versions.GetSize(); ++i) {
    if (versions[i] > highest) highest = versions[i];
  }
  return highest;
}

int32_t FindVersion(const Tsl::CArray<int32_t>& versions, int32_t version) {
  for (int32_t i = 0; i < versions.GetSize(); ++i) {
    if (versions[i] == version) return i;
  }
  return -1;
}

// Writes "<what> = <milliseconds>" to the agent log.
void LogElapsed(const wchar_t* what, DWORD start) {
  WriteLog(CUnicodeString(what) + CUnicodeString::FromNumber(int64_t(::GetTickCount() - start)));
}

}  // namespace

const wchar_t ProductDisplayName[] = L"Tavix Mirdal";

AgentClockFunction SetAgentClock(AgentClockFunction clock) {
  AgentClockFunction previous = agentClock;
  agentClock = clock != nullptr ? clock : SystemClock;
  return previous;
}

AgentBoxFunction SetAgentBoxFunction(AgentBoxFunction box) {
  AgentBoxFunction previous = agentBox;
  agentBox = box != nullptr ? box : ::MessageBoxW;
  return previous;
}

// ---------------------------------------------------------------------------
// Settings and texts

namespace {

// The settings are built on the spot at each use: nothing is held between
// the ticks of the balloon timer.
struct CBalloonSettings {
  Tsl::CSetup<bool> show{GeneralKey, L"ShowBaloon", Tsl::SS_CurrentUser, true};
  Tsl::CSetup<Tsl::CTime> last{GeneralKey, L"LastBaloonTime", Tsl::SS_CurrentUser, Tsl::CTime()};
};

}  // namespace

CAgentBalloonState::CAgentBalloonState() {
  CBalloonSettings settings;
  show = settings.show.Get();
  last = settings.last.Get();
}

void CAgentBalloonState::Save() const {
  CBalloonSettings settings;
  settings.show.Set(show);
  settings.last.Set(last);
}

bool IsReminderBalloonDue(const Tsl::CTime& last, const Tsl::CTime& now) {
  if (last == Tsl::CTime()) return true;
  const SYSTEMTIME parts = now.GetLocalParts();
  const Tsl::CTime noon(parts.wYear, parts.wMonth, parts.wDay, 12, 0, 0);
  return last < noon && now > noon;
}

CUnicodeString GetTooltip() {
  Tsl::CSetup<CUnicodeString> tooltip(LauncherKey, L"Tooltip", Tsl::SS_CurrentUser, CUnicodeString(ProductDisplayName));
  return tooltip.Get();
}

CUnicodeString ClickMenuText(const CLauncherOptions& options) {
  const int32_t type = options.useMouseClickType;
  if (type < 0 || type > 7) {
    TSL_INTERNAL_ERROR(Unit, 1315);
    return CUnicodeString();
  }
  return ClickTexts[type]->GetText();
}

CUnicodeString CoverMenuText(const CLauncherOptions& options) {
  if (options.useMouseCoverType == CLauncherOptions::coverOnly) return MsgCover.GetText();
  if (options.useMouseCoverType != CLauncherOptions::coverPlusClick) {
    TSL_INTERNAL_ERROR(Unit, 1279);
    return CUnicodeString();
  }
  const int32_t key = options.useMouseCoverVirtualKey;
  if (key < 0 || key > 6) {
    TSL_INTERNAL_ERROR(Unit, 1276);
    return CUnicodeString();
  }
  return CoverKeyTexts[key]->GetText();
}

// ---------------------------------------------------------------------------
// Construction and destruction

CMirdalTrayWnd::CMirdalTrayWnd(HINSTANCE instance_, UINT iconOpen, UINT iconClosed, UINT iconOnline,
                               UINT iconUpdating, const CUnicodeString& tip_, const wchar_t* menuName,
                               const wchar_t* secondMenuName, bool showIcon, const CUnicodeString& hookLibraryPath,
                               const CUnicodeString& siblingPath)
    : CTrayIconWnd(instance_, iconOpen, iconClosed, iconOnline, iconUpdating, ProductDisplayName, tip_, menuName,
                   secondMenuName, showIcon),
      hookHost(hookLibraryPath, siblingPath),
      showTrayWindow(showIcon),
      translationEnabled(false),
      workerThreadId(0),
      workerThread(nullptr),
      hoverTranslationAllowedEvent(nullptr) {
  if (clickMenu != nullptr) ::SetMenuDefaultItem(clickMenu, CMD_StartOrShowMirdal, FALSE);
  if (contextMenu != nullptr) ::SetMenuDefaultItem(contextMenu, CMD_StartOrShowMirdal, FALSE);
  GetLauncherOptions().Load();
  ApplyAtomStates();
  ApplyHookState();
  SetIconState(::FindMirdalWindow(false) != nullptr ? IS_MirdalOpen : IS_MirdalClosed);
  if (CAgentBalloonState().show) ::SetTimer(window, BalloonTimerId, BalloonTimerDelay, nullptr);
  BroadcastInstanceMessage(MdAgent_New_Mirdal_Instance);
  ::SetTimer(window, IconTimerId, IconTimerDelay, nullptr);
  // Without the worker, hook messages are queued and nothing forwards them:
  // the agent lives on without triggers rather than not at all.
  workerThread = ::CreateThread(nullptr, 0, HookWorker, static_cast<IHookWindow*>(this), 0, &workerThreadId);
  ReadInstanceVersions();
  OpenAgentMessageFilter();
  hoverTranslationAllowedEvent = CreateHoverTranslationEvent();
}

CMirdalTrayWnd::~CMirdalTrayWnd() {
  // Messages that arrive from here on take the default handling.
  if (GetProcessWindow() == this) SetProcessWindow(nullptr);
  if (hoverTranslationAllowedEvent != nullptr) ::CloseHandle(hoverTranslationAllowedEvent);
  hoverTranslationAllowedEvent = nullptr;
  for (UINT_PTR id = 1; id <= 6; ++id) ::KillTimer(window, id);
  // The worker finishes the message it is on (a launch may take two
  // minutes) and leaves the rest of the queue unread. Its handle stays open:
  // the process is ending.
  hookMessages.Stop();
  if (workerThread != nullptr) ::WaitForSingleObject(workerThread, INFINITE);
  instanceVersions.DeleteAll();
  // The members go in reverse order: the atoms are cleared, the hook is
  // taken away however often it was registered, and the queue goes.
}

// ---------------------------------------------------------------------------
// Dispatch

LRESULT CMirdalTrayWnd::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == MdAgent_Get_Version) return AgentVersion;
  if (message == MdAgent_New_Mirdal_Instance) {
    OnNewInstance(int32_t(wParam));
    return 0;
  }
  if (message == MdAgent_Exit_Mirdal_Instance) {
    OnExitInstance(int32_t(wParam));
    return 0;
  }
  // A session end that is called off ends the agent all the same.
  if (message == Md16_Agent_Close || message == WM_ENDSESSION) {
    CloseMirdal();
    return Leave();
  }
  if (message == Md16_Agent_Mirdal_Closed || message == Md16_Agent_Mirdal_Opened ||
      message == Md16_Agent_Mirdal_Online) {
    SetIconState(message == Md16_Agent_Mirdal_Closed   ? IS_MirdalClosed
                 : message == Md16_Agent_Mirdal_Opened ? IS_MirdalOpen
                                                       : IS_MirdalOnline);
    return CTrayIconWnd::WindowProc(message, wParam, lParam);
  }
  if (message == Md16_Agent_Mirdal_Autoupdate) {
    OnAutoupdate(wParam, lParam);
    return CTrayIconWnd::WindowProc(message, wParam, lParam);
  }
  if (IsHookMessage(message)) {
    OnHookMessage(*this, message, wParam, lParam);
    return CTrayIconWnd::WindowProc(message, wParam, lParam);
  }
  // The base would ask OnQueryEndSession; the agent always agrees.
  if (message == WM_QUERYENDSESSION) return 1;
  if (message == Md16_Agent_Options) {
    ReloadOptions(*this);
    return 0;
  }
  if (message == Md16_Agent_Show_Mininized_Baloon) {
    ShowBalloon(MsgBalloonText.GetText(), MsgBalloonTitle.GetText(), NIIF_INFO, 10);
    return 0;
  }
  if (message == Md16_Agent_Insure_Visible) {
    if (!trayIcon->IsVisible()) trayIcon->SetVisible(true);
    trayIcon->Unhide();
    return 0;
  }
  if (message == Md16_Agent_Restart_Mirdal) {
    RestartMirdal(nullptr);
    return 0;
  }
  if (message == Md16_Agent_Close_Without_Mirdal) return Leave();
  if (message == Md16_Agent_Direction_Changed) {
    trayIcon->SetTip(GetTooltip());
    return 0;
  }
  if (message == WM_COPYDATA) {
    OnCopyData(*this, reinterpret_cast<const COPYDATASTRUCT*>(lParam));
    return 0;
  }
  if (message == WM_TIMER) {
    OnTimer(wParam);
    return 0;
  }
  if (message == Md16_Agent_Restore_Tray_Icon && GetLauncherOptions().ShowTrayWindow && !trayIcon->IsVisible()) {
    trayIcon->ReAdd();
  }
  return CTrayIconWnd::WindowProc(message, wParam, lParam);
}

LRESULT CMirdalTrayWnd::Leave() {
  BroadcastInstanceMessage(MdAgent_Exit_Mirdal_Instance);
  ::PostQuitMessage(0);
  return 0;
}

// ---------------------------------------------------------------------------
// Agents of several versions: only the highest keeps its triggers

void CMirdalTrayWnd::OnNewInstance(int32_t version) {
  if (FindVersion(instanceVersions, version) >= 0) {
    TSL_INTERNAL_ERROR(Unit, 448);
    return;
  }
  instanceVersions.Add(version);
  UpdateTranslationEnabled();
}

void CMirdalTrayWnd::OnExitInstance(int32_t version) {
  const int32_t index = FindVersion(instanceVersions, version);
  if (index < 0) {
    TSL_INTERNAL_ERROR(Unit, 455);
    return;
  }
  instanceVersions.DeleteAt(index);
  UpdateTranslationEnabled();
}

void CMirdalTrayWnd::UpdateTranslationEnabled() { SetTranslationEnabled(HighestVersion(instanceVersions) == AgentVersion); }

void CMirdalTrayWnd::SetTranslationEnabled(bool on) {
  translationEnabled = on;
  if (on) {
    ApplyAtomStates();
  } else {
    ClearAtomStates();
  }
}

namespace {

// Every top-level window whose class holds "Launcher" is an agent of some
// version; this agent's own class is skipped.
BOOL CALLBACK AskAgentVersion(HWND candidate, LPARAM versionsAddress) {
  const wchar_t* classPart = LauncherWindowClass + 5;  // "Launcher", behind "Md16_"
  wchar_t className[128] = {};
  ::GetClassNameW(candidate, className, 128);
  if (::lstrcmpiW(className, LauncherWindowClass) == 0) return TRUE;
  if (wcsstr(className, classPart) != nullptr) {
    // No time-out: an agent answers from its own window procedure at once.
    auto* versions = reinterpret_cast<Tsl::CArray<int32_t>*>(versionsAddress);
    versions->Add(int32_t(::SendMessageW(candidate, MdAgent_Get_Version, 0, 0)));
  }
  return TRUE;
}

}  // namespace

void CMirdalTrayWnd::ReadInstanceVersions() {
  ::EnumWindows(AskAgentVersion, reinterpret_cast<LPARAM>(&instanceVersions));
  UpdateTranslationEnabled();
}

// ---------------------------------------------------------------------------
// Clicks, timers, icon

void CMirdalTrayWnd::OnTrayClick() {
  const DWORD now = ::GetTickCount();
  const DWORD delta = now - lastClickTick;
  lastClickTick = now;
  if (delta < ::GetDoubleClickTime()) return;
  HWND application = ::FindMirdalWindow(false);
  if (application != nullptr && ::IsWindowVisible(application) && !::IsIconic(application)) {
    if (!::IsWindowEnabled(application)) {
      BringMirdalToFront();
    } else {
      ::PostMessageW(application, Md16_Mirdal_Hide_Main_Window, 0, 0);
    }
    return;
  }
  RunMenuDefault(clickMenu);
}

void CMirdalTrayWnd::OnTrayRightDoubleClick() {}

void CMirdalTrayWnd::OnTimer(UINT_PTR id) {
  if (id == IconTimerId) {
    if (trayIcon->SetVisible(showTrayWindow)) ::KillTimer(window, IconTimerId);
    return;
  }
  if (id == BalloonTimerId) {
    CheckReminderBalloon();
    return;
  }
  CTrayIconWnd::OnTimer(id);
}

void CMirdalTrayWnd::StartIconTimer(UINT elapseMs) { ::SetTimer(window, IconTimerId, elapseMs, nullptr); }

bool CMirdalTrayWnd::ShowBalloon(const CUnicodeString& text, const CUnicodeString& caption, int32_t infoFlags,
                                 int32_t timeoutSeconds) {
  return trayIcon->ShowBalloon(text, caption, DWORD(infoFlags), UINT(timeoutSeconds));
}

void CMirdalTrayWnd::SetShowTrayWindow(bool show) {
  showTrayWindow = show;
  trayIcon->SetVisible(show);
}

void CMirdalTrayWnd::ApplyHookState() { hookHost.ApplyHookState(GetLauncherOptions()); }

// ---------------------------------------------------------------------------
// The main program: close, restart, start

int CMirdalTrayWnd::ShowFailureBox(const CUnicodeString& text) {
  CModalBoxMark mark;
  // System-modal with no owner: the agent's window is hidden, and the box
  // must stand above the main program that failed to go.
  return agentBox(nullptr, text.Text(), ProductDisplayName, MB_SYSTEMMODAL);
}

HWND CMirdalTrayWnd::CloseMirdal() {
  HWND application = ::FindMirdalWindow(false);
  if (application == nullptr) return nullptr;
  if (modalBoxOpen) return application;
  if (!::IsWindowEnabled(application)) {
    BringMirdalToFront();
    ::Sleep(100);
    ShowFailureBox(MsgFailedToClose.GetText());
  }
  if (::IsWindowEnabled(application)) ::SendMessageW(application, Md16_Mirdal_Close_Main_Window, 0, 0);
  return application;
}

void CMirdalTrayWnd::RestartMirdal(HANDLE process) {
  if (modalBoxOpen) return;
  if (process == nullptr) {
    HWND application = ::FindMirdalWindow(false);
    DWORD processId = 0;
    if (application != nullptr && ::GetWindowThreadProcessId(application, &processId) != 0 && processId != 0) {
      process = ::OpenProcess(SYNCHRONIZE, FALSE, processId);
    }
  }
  CloseMirdal();
  if (process != nullptr) {
    const DWORD waited = ::WaitForSingleObject(process, 60000);
    ::CloseHandle(process);
    if (waited != WAIT_OBJECT_0) {
      if (::FindMirdalWindow(false) != nullptr) {
        BringMirdalToFront();
        ::Sleep(100);
      }
      if (!modalBoxOpen) ShowFailureBox(MsgFailedToRestart.GetText());
      return;
    }
  }
  ::Sleep(500);
  // A restart is how a changed interface language reaches the agent; the
  // stored language is taken as it stands.
  const int32_t language = int32_t(GetInterfaceLanguage());
  if (language != Tsl::GetCurrentLanguage()) Tsl::SetCurrentLanguage(language);
  const UINT ids[4] = {IconMirdalOpen, IconMirdalClosed, IconMirdalOnline, IconUpdating};
  if (ids[0] != iconIds[0] || ids[1] != iconIds[1] || ids[2] != iconIds[2] || ids[3] != iconIds[3]) {
    Create(ids[0], ids[1], ids[2], ids[3]);
    trayIcon->SetVisible(GetLauncherOptions().ShowTrayWindow);
  }
  SetIconState(IS_MirdalClosed);
  StartMirdalAndApplyAtoms();
  ::PostMessageW(::FindMirdalWindow(false), Md16_Mirdal_Restart_Agent, 0, 0);
}

void CMirdalTrayWnd::StartMirdalAndApplyAtoms() {
  const DWORD start = ::GetTickCount();
  ::RunMirdal(instance, CUnicodeString());
  LogElapsed(L"Start Mirdal time = ", start);
  ApplyAtomStates();
}

void CMirdalTrayWnd::StartOrActivateMirdal() {
  if (::FindMirdalWindow(false) != nullptr) {
    BringMirdalToFront();
    return;
  }
  StartMirdalAndApplyAtoms();
}

// ---------------------------------------------------------------------------
// Menu, autoupdate, balloons

void CMirdalTrayWnd::OnInitMenuPopup(HMENU menu, UINT, bool) {
  const CLauncherOptions& options = GetLauncherOptions();
  ::ModifyMenuW(menu, CMD_ClickTrigger, MF_BYCOMMAND | MF_STRING, CMD_ClickTrigger, ClickMenuText(options).Text());
  ::ModifyMenuW(menu, CMD_HoverTrigger, MF_BYCOMMAND | MF_STRING, CMD_HoverTrigger, CoverMenuText(options).Text());
  const bool running = ::FindMirdalWindow(false) != nullptr;
  auto check = [menu](UINT id, bool on) { ::CheckMenuItem(menu, id, MF_BYCOMMAND | (on ? MF_CHECKED : MF_UNCHECKED)); };
  check(CMD_CtrlInsIns, options.useCtrlInsIns);
  check(CMD_CtrlCC, options.useCtrlCC);
  check(CMD_ClickTrigger, options.useMouseClick);
  check(CMD_HoverTrigger, options.useMouseCover);
  // The hover item needs the agent in charge and the program running; the
  // click item only the program, and the chords only the agent in charge.
  auto enable = [menu](UINT id, bool on) { ::EnableMenuItem(menu, id, MF_BYCOMMAND | (on ? MF_ENABLED : MF_GRAYED)); };
  enable(CMD_HoverTrigger, running && translationEnabled);
  enable(CMD_TranslationSettings, running);
  enable(CMD_CtrlInsIns, translationEnabled);
  enable(CMD_CtrlCC, translationEnabled);
  enable(CMD_ClickTrigger, running);
}

bool CMirdalTrayWnd::OnCommand(UINT id) {
  CLauncherOptions& options = GetLauncherOptions();
  switch (id) {
    case CMD_HoverTrigger:
      options.useMouseCover = !options.useMouseCover;
      SaveOptionsAndApply(*this);
      return true;
    case CMD_ClickTrigger:
      options.useMouseClick = !options.useMouseClick;
      SaveOptionsAndApply(*this);
      return true;
    case CMD_CtrlInsIns:
      options.useCtrlInsIns = !options.useCtrlInsIns;
      SaveOptionsAndApply(*this);
      return true;
    case CMD_CtrlCC:
      options.useCtrlCC = !options.useCtrlCC;
      SaveOptionsAndApply(*this);
      return true;
    case CMD_TranslationSettings:
      if (HWND application = ::FindMirdalWindow(false)) {
        BringMirdalToFront();
        ::PostMessageW(application, Md16_Mirdal_Show_Translation_Settings, 0, 0);
      }
      return true;
    case CMD_StartOrShowMirdal:
      StartOrActivateMirdal();
      return true;
    case CMD_Exit:
      // Exit takes the main program first, and the agent on the second use.
      if (CloseMirdal() == nullptr) {
        BroadcastInstanceMessage(MdAgent_Exit_Mirdal_Instance);
        ::PostQuitMessage(0);
      }
      return true;
    case CMD_Autoupdate:
      if (HWND application = ::FindMirdalWindow(false)) ::PostMessageW(application, Md16_Mirdal_Autoupdate, 0, 0);
      return true;
  }
  return false;
}

void CMirdalTrayWnd::OnAutoupdate(WPARAM wParam, LPARAM lParam) {
  if (wParam == 1 || wParam == 2) {
    extraItemActive = true;
    SetIconState(IS_Updating);
    extraItemText = wParam == 1 ? MsgAutoupdate.GetText()
                                : MsgAutoupdateProgress.Format(CUnicodeString::FromNumber(int64_t(int32_t(lParam))));
  } else {
    extraItemActive = false;
    SetIconState(IS_MirdalOpen);
  }
}

void CMirdalTrayWnd::CheckReminderBalloon() {
  CAgentBalloonState state;
  if (!state.show) {
    // Not started again before the agent's next start.
    ::KillTimer(window, BalloonTimerId);
    return;
  }
  const Tsl::CTime now = agentClock();
  if (!IsReminderBalloonDue(state.last, now)) return;
  const CUnicodeString title = Tsl::GetCurrentLanguage() == WordOfTheDayTitleLanguage
                                   ? MsgWordOfTheDayTitle.GetText()
                                   : CUnicodeString(ProductDisplayName);
  // A refused balloon is not retried: the day's reminder is gone all the same.
  ShowBalloon(MsgStartMirdalBalloon.GetText(), title, NIIF_INFO, 30);
  state.last = agentClock();
  state.Save();
}

// The agent tells its balloons apart by their text: the trainer's word of the
// day opens the word in the main program, the reminder starts the program.
void CMirdalTrayWnd::OnBalloonClick() {
  const CUnicodeString shown = trayIcon->GetBalloonText();
  if (shown == MsgWordOfTheDay.GetText()) {
    if (::FindMirdalWindow(false) == nullptr) StartMirdalAndApplyAtoms();
    if (::FindMirdalWindow(false) == nullptr) return;
    HWND mainWindow = ::FindMirdalWindow(true);
    if (mainWindow == nullptr) return;
    BringMirdalToFront();
    ::PostMessageW(mainWindow, Md16_Mirdal_Show_Word_Of_The_Day, 0, 0);
  } else if (shown == MsgStartMirdalBalloon.GetText()) {
    StartOrActivateMirdal();
  }
}
