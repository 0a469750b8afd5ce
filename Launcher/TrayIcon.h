// One icon in the notification area (CTrayIcon) and the hidden top-level
// window that owns it (CTrayIconWnd): it loads the icons and menus and turns
// the shell's raw tray notifications into single, double and right clicks.
// Nothing here knows the agent; the agent's window derives from CTrayIconWnd.
#pragma once

#include <windows.h>
#include <shellapi.h>
#include <stdint.h>

#include "unicodestring.h"

// The window class of the hidden window, which is also the agent's public
// class: the hook library and the other programs find the agent by it.
extern const wchar_t* const TrayWindowClassName;  // "Md16_Launcher"

// The click timer separates a single click from the first half of a double
// click; the retry timer brings an icon back that the shell refused.
const UINT_PTR ClickTimerId = 7;
const UINT ClickTimerDelay = 100;
const UINT_PTR RetryTimerId = 1;
const UINT RetryTimerDelay = 1000;

// The menu command of the extra item, which only the extended menu keeps.
const UINT ExtraMenuItemId = 30368;

// Registered numbers of the tray callback ("Md16_WM_TRAYICON_NOTIFICATION")
// and of the shell's restart announcement ("TaskbarCreated").
UINT GetTrayCallbackMessage();
UINT GetTaskbarCreatedMessage();

// Every call into the notification area goes through this one function, so
// that tests can record the calls. Null restores Shell_NotifyIconW; the
// previous function is returned.
typedef BOOL(WINAPI* TrayNotifyFunction)(DWORD action, PNOTIFYICONDATAW data);
TrayNotifyFunction SetTrayNotifyFunction(TrayNotifyFunction function);

// The pixel size of the tray icons for a small-icon metric of `metric`: the
// next size the resource libraries carry (16, 18, 20, 22, 32, 48).
int32_t GetIconSizeForMetric(int32_t metric);
// The same for the system's SM_CXSMICON.
int32_t GetIconSize();

// One icon in the notification area. Its identity towards the shell is the
// object's address, so one window may own several icons.
class CTrayIcon {
 public:
  // `window` receives the notifications and must be alive (internal error of
  // TrayIcon at line 45 otherwise). The icon is not added yet.
  CTrayIcon(HWND window, HICON icon, const Tsl::CUnicodeString& tip);
  virtual ~CTrayIcon();
  CTrayIcon(const CTrayIcon&) = delete;
  CTrayIcon& operator=(const CTrayIcon&) = delete;

  // Adds or deletes the icon; true when it already was so or the shell
  // agreed. The new state is kept only on success.
  bool SetVisible(bool visible);
  // Adds the icon again whatever the state, after the shell lost it; the
  // shell's answer becomes the state.
  bool ReAdd();
  // Clears the hidden state of a visible icon (internal error at line 83 for
  // an icon that is not visible).
  bool Unhide();
  // Stores the icon and, while visible, shows it; true when unchanged.
  bool SetIcon(HICON icon);
  // Stores the tool tip and, while visible, shows it; the next add carries it.
  bool SetTip(const Tsl::CUnicodeString& tip);
  // Takes any balloon away, unhides the icon and shows a new balloon.
  bool ShowBalloon(const Tsl::CUnicodeString& text, const Tsl::CUnicodeString& title, DWORD infoFlags,
                   UINT timeout);
  bool ClearBalloon();

  Tsl::CUnicodeString GetBalloonText() const { return balloonText; }
  bool IsVisible() const { return visible; }
  HICON GetIcon() const { return icon; }
  const Tsl::CUnicodeString& GetTip() const { return tip; }

 private:
  bool Notify(DWORD action, UINT flags, DWORD state, DWORD stateMask, const wchar_t* infoText,
              const wchar_t* infoTitle, DWORD infoFlags, UINT timeout);

  HWND window;
  HICON icon;
  Tsl::CUnicodeString tip;
  bool visible;
  Tsl::CUnicodeString balloonText;
};

// The hidden window that owns the tray icon, its icons and its menus.
// Everything runs on the thread that built it.
class CTrayIconWnd {
 public:
  // Builds the window (Create), loads the menus by name from the resource
  // libraries (an empty name leaves the menu out) and adds the icon when
  // `showIcon` is set. The four identifiers are the icons of states 1 to 4.
  CTrayIconWnd(HINSTANCE instance, UINT iconId1, UINT iconId2, UINT iconId3, UINT iconId4,
               const Tsl::CUnicodeString& title, const Tsl::CUnicodeString& tip, const wchar_t* menuName,
               const wchar_t* secondMenuName, bool showIcon);
  virtual ~CTrayIconWnd();
  CTrayIconWnd(const CTrayIconWnd&) = delete;
  CTrayIconWnd& operator=(const CTrayIconWnd&) = delete;

  virtual LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam);
  virtual void OnInitMenuPopup(HMENU menu, UINT position, bool isSystemMenu);
  virtual bool OnCommand(UINT id);
  virtual bool OnQueryEndSession();
  virtual void OnEndSession(bool ending);
  virtual void OnTaskbarCreated();
  virtual LRESULT OnTrayNotification(WPARAM wParam, LPARAM lParam);
  virtual void OnTrayMouseMove();
  virtual void OnTrayClick();
  virtual void OnTrayRightClick();
  virtual void OnTrayDoubleClick();
  virtual void OnTrayRightDoubleClick();
  virtual void OnBalloonClick();
  virtual void OnTimer(UINT_PTR id);

  // Destroys icon, window and icons and builds them again from the four
  // identifiers; used by the constructor and to change the icon set.
  void Create(UINT iconId1, UINT iconId2, UINT iconId3, UINT iconId4);
  // Shows icon `index` (0 to 4; 0 is no icon); a refusal starts the retry timer.
  void SetIconState(int32_t index);
  // Opens `menu` at the cursor; null does nothing.
  void ShowPopupMenu(HMENU menu);
  // Runs the default command of `menu`; null does nothing.
  void RunMenuDefault(HMENU menu);

  HWND GetWindowHandle() const { return window; }
  CTrayIcon* GetTrayIcon() const { return trayIcon; }
  HMENU GetClickMenu() const { return clickMenu; }
  HMENU GetContextMenu() const { return extraItemActive ? extendedContextMenu : contextMenu; }

  // The one tray window of the process, which the window procedure serves.
  // Its owner sets it once the object is built; until then, and while no
  // object is set, messages take the default handling.
  static void SetProcessWindow(CTrayIconWnd* window);
  static CTrayIconWnd* GetProcessWindow();

 protected:
  HWND window;
  CTrayIcon* trayIcon;
  HINSTANCE instance;
  Tsl::CUnicodeString title;
  Tsl::CUnicodeString tip;
  Tsl::CUnicodeString extraItemText;
  HICON icons[5];
  UINT iconIds[4];
  HMENU clickMenu;
  HMENU contextMenu;
  HMENU extendedContextMenu;
  bool extraItemActive;
  int32_t clickCount;
  bool busy;
  // 0 idle, 1 double click seen, 2 single click to deliver, 3 double click
  // to deliver at the next button-up.
  int32_t clickState;

 private:
  void DestroyAll();
  HWND CreateHiddenWindow(HICON classIcon);
  void BringPopupToFront();
  void OnButtonUpWhileBusy(LPARAM code);
  static LRESULT CALLBACK StaticWindowProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
};
