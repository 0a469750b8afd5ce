// The agent's window: the hidden tray window that every other program talks
// to. It decides what each message means, owns the worker thread, the hook
// and the atoms, keeps track of which agent of which version is in charge,
// closes and restarts the main program, and runs the tray menu and balloons.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "AgentServices.h"
#include "HookHost.h"
#include "LauncherOptions.h"
#include "TrayIcon.h"
#include "array.h"
#include "tsltime.h"
#include "unicodestring.h"

// The product's name as the user sees it: the window title, the default tool
// tip, the caption of the agent's boxes and balloons.
extern const wchar_t ProductDisplayName[];  // "Tavix Mirdal"

// Icon states of the tray window and the resource identifiers of their icons.
enum EAgentIconState : int32_t {
  IS_MirdalOpen = 1,
  IS_MirdalClosed = 2,
  IS_MirdalOnline = 3,
  IS_Updating = 4,
};
const UINT IconMirdalOpen = 102, IconMirdalClosed = 101, IconMirdalOnline = 103, IconUpdating = 107;

// Menu commands of the resource "MDA_AGENT".
enum EAgentCommand : UINT {
  CMD_HoverTrigger = 30272,
  CMD_ClickTrigger = 30273,
  CMD_CtrlInsIns = 30274,
  CMD_CtrlCC = 30275,
  CMD_TranslationSettings = 30276,
  CMD_StartOrShowMirdal = 30277,
  CMD_Exit = 30278,
  CMD_Autoupdate = 30368,
};

// Timers of the agent's window (the click timer, 7, is the base's).
const UINT_PTR IconTimerId = 1;          // brings the icon into the state ShowTrayWindow asks for
const UINT IconTimerDelay = 1000;
const UINT_PTR BalloonTimerId = 6;       // the day's reminder balloon
const UINT BalloonTimerDelay = 600000;

// The reminder balloon's state, kept in the registry between ticks.
struct CAgentBalloonState {
  CAgentBalloonState();  // reads ShowBaloon and LastBaloonTime
  void Save() const;     // writes both
  bool show;
  Tsl::CTime last;
};

// Whether the day's reminder balloon is due at `now`, after the last one at
// `last`: at most one per calendar day and not before noon, but the very
// first (no last time) at once.
bool IsReminderBalloonDue(const Tsl::CTime& last, const Tsl::CTime& now);

// The tool tip: the Tooltip setting of the options key, read on the spot.
Tsl::CUnicodeString GetTooltip();
// The menu texts of the click and the hover trigger for the options' kind.
Tsl::CUnicodeString ClickMenuText(const CLauncherOptions& options);
Tsl::CUnicodeString CoverMenuText(const CLauncherOptions& options);

// Seams for tests: the clock of the balloon check and the box of the close
// and restart failures. Null restores the system's.
typedef Tsl::CTime (*AgentClockFunction)();
AgentClockFunction SetAgentClock(AgentClockFunction clock);
typedef int(WINAPI* AgentBoxFunction)(HWND owner, const wchar_t* text, const wchar_t* caption, UINT style);
AgentBoxFunction SetAgentBoxFunction(AgentBoxFunction box);

class CMirdalTrayWnd : public CTrayIconWnd,
                       public IAgentTrayWindow,
                       public IHookWindow,
                       public IOptionsWindow {
 public:
  // Builds the window, the queue, the hook host and the atoms, then starts
  // timers, worker and the instance protocol. `hookLibraryPath` and
  // `siblingPath` are the full paths of the hook library and the sibling.
  CMirdalTrayWnd(HINSTANCE instance, UINT iconOpen, UINT iconClosed, UINT iconOnline, UINT iconUpdating,
                 const Tsl::CUnicodeString& tip, const wchar_t* menuName, const wchar_t* secondMenuName,
                 bool showIcon, const Tsl::CUnicodeString& hookLibraryPath,
                 const Tsl::CUnicodeString& siblingPath);
  // Ends the worker, clears the atoms, takes the hook away, then the window.
  ~CMirdalTrayWnd() override;

  LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override;
  void OnInitMenuPopup(HMENU menu, UINT position, bool isSystemMenu) override;
  bool OnCommand(UINT id) override;
  void OnTrayClick() override;
  void OnTrayRightDoubleClick() override;
  void OnBalloonClick() override;
  void OnTimer(UINT_PTR id) override;
  virtual void OnNewInstance(int32_t version);
  virtual void OnExitInstance(int32_t version);

  // Asks the main program to close; its application window, or null when it
  // was not running. A disabled window gets a system-modal box first.
  HWND CloseMirdal();
  // Closes the main program, waits for it, and starts it again; `process` is
  // handed over by the caller (null: the program's own process is found).
  void RestartMirdal(HANDLE process);
  // Brings the main program to the front, or starts it.
  void StartOrActivateMirdal();
  // Asks every other agent's window for its version.
  void ReadInstanceVersions();
  // This agent is, or stops being, the one in charge of the triggers.
  void SetTranslationEnabled(bool on);

  bool IsTranslationEnabled() const { return translationEnabled; }
  const Tsl::CArray<int32_t>& GetInstanceVersions() const { return instanceVersions; }
  CHookHost& GetHookHost() { return hookHost; }

  // IAgentTrayWindow and IHookWindow.
  HWND GetWindowHandle() const override { return window; }
  HINSTANCE GetInstance() const override { return instance; }
  CHookMessageQueue& GetHookMessages() override { return hookMessages; }
  HANDLE GetHoverTranslationEvent() const override { return hoverTranslationAllowedEvent; }
  bool HasTrayIcon() const override { return trayIcon != nullptr; }
  bool GetShowTrayWindow() const override { return showTrayWindow; }
  bool SetTrayIconVisible(bool visible) override { return trayIcon->SetVisible(visible); }
  void StartIconTimer(UINT elapseMs) override;
  bool ShowBalloon(const Tsl::CUnicodeString& text, const Tsl::CUnicodeString& caption, int32_t infoFlags,
                   int32_t timeoutSeconds) override;

  // IOptionsWindow.
  void SetShowTrayWindow(bool show) override;
  void ApplyHookState() override;

 private:
  LRESULT Leave();
  void UpdateTranslationEnabled();
  void OnAutoupdate(WPARAM wParam, LPARAM lParam);
  void CheckReminderBalloon();
  void StartMirdalAndApplyAtoms();
  int ShowFailureBox(const Tsl::CUnicodeString& text);

  CHookMessageQueue hookMessages;
  CHookHost hookHost;
  CAtomStateGuard atomGuard;
  Tsl::CArray<int32_t> instanceVersions;
  bool showTrayWindow;
  bool translationEnabled;
  DWORD workerThreadId;
  HANDLE workerThread;
  HANDLE hoverTranslationAllowedEvent;
};
