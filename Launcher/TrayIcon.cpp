// The tray icon and its hidden window: the calls into the notification area,
// the icons by size, the menus from the resource libraries, and the click
// logic that tells a single click from a double click.
#include "TrayIcon.h"

#include <stddef.h>

#include "errors.h"
#include "services.h"
#include "resourceinfo.h"
#include "tessels.h"

using Tsl::CUnicodeString;

namespace {

const wchar_t Unit[] = L"TrayIcon";

// The taskbar's window classes. Nothing looks those windows up; the names
// stay with the unit that knows the shell.
[[maybe_unused]] const wchar_t TaskbarClassName[] = L"Shell_TrayWnd";
[[maybe_unused]] const wchar_t TrayNotifyClassName[] = L"TrayNotifyWnd";

const UINT FlagMessage = 1, FlagIcon = 2, FlagTip = 4, FlagState = 8, FlagInfo = 16;

// The structure is sent without its last field (the balloon icon), which the
// product never sets: every shell from the oldest the product supports on
// accepts this size.
const DWORD NotifyDataSize = offsetof(NOTIFYICONDATAW, hBalloonIcon);
#ifndef _WIN64
static_assert(offsetof(NOTIFYICONDATAW, hBalloonIcon) == 952, "the shell expects 952 bytes");
#endif

TrayNotifyFunction trayNotify = ::Shell_NotifyIconW;

// Set once the class is registered by this process; each Create registers
// it anew with the new icon.
bool classRegistered = false;

CTrayIconWnd* processWindow = nullptr;

// Copies at most `capacity` units of `text`, terminator included; a longer
// text is cut, never refused.
void CopyCut(wchar_t* target, int32_t capacity, const wchar_t* text) { ::lstrcpynW(target, text, capacity); }

}  // namespace

const wchar_t* const TrayWindowClassName = L"Md16_Launcher";

UINT GetTrayCallbackMessage() {
  static const UINT message = ::RegisterWindowMessageW(L"Md16_WM_TRAYICON_NOTIFICATION");
  return message;
}

UINT GetTaskbarCreatedMessage() {
  static const UINT message = ::RegisterWindowMessageW(L"TaskbarCreated");
  return message;
}

TrayNotifyFunction SetTrayNotifyFunction(TrayNotifyFunction function) {
  TrayNotifyFunction previous = trayNotify;
  trayNotify = function != nullptr ? function : ::Shell_NotifyIconW;
  return previous;
}

int32_t GetIconSizeForMetric(int32_t metric) {
  if (metric < 17) return 16;
  if (metric < 19) return 18;
  if (metric < 21) return 20;
  if (metric < 23) return 22;
  if (metric < 33) return 32;
  return 48;
}

int32_t GetIconSize() { return GetIconSizeForMetric(::GetSystemMetrics(SM_CXSMICON)); }

// ---------------------------------------------------------------------------
// CTrayIcon

CTrayIcon::CTrayIcon(HWND window_, HICON icon_, const CUnicodeString& tip_)
    : window(window_), icon(icon_), tip(tip_), visible(false) {
  TSL_ASSERT(::IsWindow(window_), Unit, 45);
}

CTrayIcon::~CTrayIcon() { SetVisible(false); }

// One call into the notification area with everything the icon is.
bool CTrayIcon::Notify(DWORD action, UINT flags, DWORD state, DWORD stateMask, const wchar_t* infoText,
                       const wchar_t* infoTitle, DWORD infoFlags, UINT timeout) {
  NOTIFYICONDATAW data;
  ::ZeroMemory(&data, sizeof(data));
  data.cbSize = NotifyDataSize;
  data.hWnd = window;
  // The shell knows the icon by this number; the object's address is unique
  // for as long as the icon exists.
  data.uID = static_cast<UINT>(reinterpret_cast<uintptr_t>(this));
  data.uFlags = flags;
  data.uCallbackMessage = GetTrayCallbackMessage();
  data.hIcon = icon;
  CopyCut(data.szTip, 128, tip.Text());
  data.dwState = state;
  data.dwStateMask = stateMask;
  if (infoText != nullptr) CopyCut(data.szInfo, 256, infoText);
  if (infoTitle != nullptr) CopyCut(data.szInfoTitle, 64, infoTitle);
  data.uTimeout = timeout;
  data.dwInfoFlags = infoFlags;
  return trayNotify(action, &data) != FALSE;
}

bool CTrayIcon::SetVisible(bool wish) {
  if (wish == visible) return true;
  const UINT flags = FlagMessage | FlagIcon | FlagTip;
  bool done = Notify(wish ? NIM_ADD : NIM_DELETE, flags, 0, 0, nullptr, nullptr, 0, 0);
  if (done) visible = wish;
  return done;
}

bool CTrayIcon::ReAdd() {
  // A failed add leaves the icon marked invisible, so that the owner's retry
  // adds it again once the shell is back.
  visible = Notify(NIM_ADD, FlagMessage | FlagIcon | FlagTip, 0, 0, nullptr, nullptr, 0, 0);
  return visible;
}

bool CTrayIcon::Unhide() {
  TSL_ASSERT(visible, Unit, 83);
  return Notify(NIM_MODIFY, FlagState, 0, NIS_HIDDEN, nullptr, nullptr, 0, 0);
}

bool CTrayIcon::SetIcon(HICON newIcon) {
  if (newIcon == icon) return true;
  icon = newIcon;
  if (!visible) return true;
  return Notify(NIM_MODIFY, FlagIcon, 0, 0, nullptr, nullptr, 0, 0);
}

bool CTrayIcon::SetTip(const CUnicodeString& newTip) {
  tip = newTip;
  if (!visible) return true;
  return Notify(NIM_MODIFY, FlagTip, 0, 0, nullptr, nullptr, 0, 0);
}

bool CTrayIcon::ShowBalloon(const CUnicodeString& text, const CUnicodeString& title, DWORD infoFlags,
                            UINT timeout) {
  // A balloon still on screen would otherwise stay until its own time ends.
  ClearBalloon();
  balloonText = text;
  if (!Notify(NIM_MODIFY, FlagState, 0, NIS_HIDDEN, nullptr, nullptr, 0, 0)) return false;
  return Notify(NIM_MODIFY, FlagInfo, 0, 0, text.Text(), title.Text(), infoFlags, timeout);
}

bool CTrayIcon::ClearBalloon() { return Notify(NIM_MODIFY, FlagInfo, 0, 0, L"", L"", 0, 0); }

// ---------------------------------------------------------------------------
// CTrayIconWnd

namespace {

// Sub-menu 0 of the menu resource `name`, from whichever resource library
// holds it (the language's first); null for an empty name.
HMENU LoadSubMenu(const wchar_t* name) {
  if (name == nullptr || name[0] == L'\0') return nullptr;
  HMODULE module = Tsl::FindResourceModule(name, RT_MENU);
  TSL_ASSERT(module != nullptr, Unit, 32);
  HMENU menu = module != nullptr ? ::LoadMenuW(module, name) : nullptr;
  HMENU subMenu = menu != nullptr ? ::GetSubMenu(menu, 0) : nullptr;
  TSL_ASSERT(subMenu != nullptr, Unit, 34);
  return subMenu;
}

}  // namespace

CTrayIconWnd::CTrayIconWnd(HINSTANCE instance_, UINT iconId1, UINT iconId2, UINT iconId3, UINT iconId4,
                           const CUnicodeString& title_, const CUnicodeString& tip_, const wchar_t* menuName,
                           const wchar_t* secondMenuName, bool showIcon)
    : window(nullptr),
      trayIcon(nullptr),
      instance(instance_),
      title(title_),
      tip(tip_),
      icons{},
      iconIds{},
      clickMenu(nullptr),
      contextMenu(nullptr),
      extendedContextMenu(nullptr),
      extraItemActive(false),
      clickCount(0),
      busy(false),
      clickState(0) {
  Create(iconId1, iconId2, iconId3, iconId4);
  clickMenu = LoadSubMenu(menuName);
  // The second menu is loaded twice: the plain copy loses the extra item,
  // the extended copy keeps it for when the owner turns it on.
  contextMenu = LoadSubMenu(secondMenuName);
  if (contextMenu != nullptr) ::RemoveMenu(contextMenu, ExtraMenuItemId, MF_BYCOMMAND);
  extendedContextMenu = LoadSubMenu(secondMenuName);
  trayIcon->SetVisible(showIcon);
}

CTrayIconWnd::~CTrayIconWnd() {
  // From here on the window's messages must not reach a half-destroyed object.
  if (processWindow == this) processWindow = nullptr;
  DestroyAll();
  if (clickMenu != nullptr) ::DestroyMenu(clickMenu);
  if (contextMenu != nullptr) ::DestroyMenu(contextMenu);
  // The extended copy is left to the process's end, which comes next.
}

void CTrayIconWnd::SetProcessWindow(CTrayIconWnd* object) { processWindow = object; }
CTrayIconWnd* CTrayIconWnd::GetProcessWindow() { return processWindow; }

void CTrayIconWnd::DestroyAll() {
  delete trayIcon;  // takes the icon out of the notification area
  trayIcon = nullptr;
  if (window != nullptr && ::IsWindow(window)) ::DestroyWindow(window);
  window = nullptr;
  for (HICON& icon : icons) {
    if (icon != nullptr) ::DestroyIcon(icon);
    icon = nullptr;
  }
}

void CTrayIconWnd::Create(UINT iconId1, UINT iconId2, UINT iconId3, UINT iconId4) {
  DestroyAll();
  // Only systems before the NT family's 5.1 wanted VGA colours.
  const UINT loadFlags = Tsl::IsWindowsXpOrLater() ? 0 : LR_VGACOLOR;
  const int32_t size = GetIconSize();
  const UINT ids[4] = {iconId1, iconId2, iconId3, iconId4};
  HICON loaded[4];
  for (int32_t i = 0; i < 4; ++i) {
    loaded[i] = static_cast<HICON>(::LoadImageW(instance, MAKEINTRESOURCEW(static_cast<WORD>(ids[i])),
                                                IMAGE_ICON, size, size, loadFlags));
  }
  // The fourth icon (updating) is optional: an old resource library may lack it.
  TSL_ASSERT(loaded[0] != nullptr, Unit, 305);
  TSL_ASSERT(loaded[1] != nullptr, Unit, 306);
  TSL_ASSERT(loaded[2] != nullptr, Unit, 307);
  window = CreateHiddenWindow(loaded[0]);
  TSL_ASSERT(window != nullptr, Unit, 309);
  trayIcon = new CTrayIcon(window, loaded[0], tip);
  for (int32_t i = 0; i < 4; ++i) {
    icons[i + 1] = loaded[i];
    iconIds[i] = ids[i];
  }
}

// The window exists to have a handle, a class name that others find, and a
// message queue; it is never shown.
HWND CTrayIconWnd::CreateHiddenWindow(HICON classIcon) {
  if (classRegistered) {
    ::UnregisterClassW(TrayWindowClassName, instance);
    classRegistered = false;
  }
  WNDCLASSW windowClass;
  ::ZeroMemory(&windowClass, sizeof(windowClass));
  windowClass.lpfnWndProc = StaticWindowProc;
  windowClass.hInstance = instance;
  windowClass.hIcon = classIcon;
  windowClass.lpszMenuName = L"";
  windowClass.lpszClassName = TrayWindowClassName;
  if (::RegisterClassW(&windowClass) == 0) return nullptr;
  classRegistered = true;
  HWND handle = ::CreateWindowExW(WS_EX_APPWINDOW, TrayWindowClassName, title.Text(), WS_OVERLAPPEDWINDOW,
                                  0, 0, 1, 1, nullptr, nullptr, instance, nullptr);
  if (handle != nullptr) {
    ::SetWindowLongW(handle, GWL_STYLE, WS_OVERLAPPEDWINDOW);
    ::SetWindowLongW(handle, GWL_EXSTYLE, WS_EX_APPWINDOW);
  }
  return handle;
}

LRESULT CALLBACK CTrayIconWnd::StaticWindowProc(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
  CTrayIconWnd* object = processWindow;
  // While the object is being built (CreateWindowExW sends its first
  // messages before the handle is stored), the default handling serves.
  if (object == nullptr || object->window == nullptr) return ::DefWindowProcW(handle, message, wParam, lParam);
  if (object->window != handle) {
    TSL_INTERNAL_ERROR(Unit, 210);
    return ::DefWindowProcW(handle, message, wParam, lParam);
  }
  // A failure never crosses the system's dispatch of the message: it is
  // reported here, and the message is answered as if nobody handled it.
  try {
    return object->WindowProc(message, wParam, lParam);
  } catch (Tsl::CException* failure) {
    Tsl::ReportException(failure);
    delete failure;
    return 0;
  }
}

LRESULT CTrayIconWnd::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_COMMAND:
      return OnCommand(LOWORD(wParam)) ? 0 : -1;
    case WM_QUERYENDSESSION:
      return OnQueryEndSession() ? 1 : 0;
    case WM_ENDSESSION:
      OnEndSession(wParam != 0);
      return 0;
    case WM_SYSCOMMAND:
      // The window can't be maximised, restored, closed or shown through the
      // system menu or its keys: it must stay hidden and alive.
      switch (wParam & 0xFFF0) {
        case SC_MAXIMIZE:
        case SC_CLOSE:
        case SC_KEYMENU:
        case SC_RESTORE:
        case SC_HOTKEY:
          return 0;
      }
      break;
    case WM_INITMENUPOPUP:
      OnInitMenuPopup(reinterpret_cast<HMENU>(wParam), LOWORD(lParam), HIWORD(lParam) != 0);
      return 0;
    case WM_THEMECHANGED:
      OnTaskbarCreated();
      return 0;
  }
  if (message == GetTrayCallbackMessage()) return OnTrayNotification(wParam, lParam);
  if (message == GetTaskbarCreatedMessage()) {
    OnTaskbarCreated();
    return 0;
  }
  return ::DefWindowProcW(window, message, wParam, lParam);
}

void CTrayIconWnd::OnInitMenuPopup(HMENU, UINT, bool) {}
bool CTrayIconWnd::OnCommand(UINT) { return false; }
bool CTrayIconWnd::OnQueryEndSession() { return true; }
void CTrayIconWnd::OnEndSession(bool) {}
void CTrayIconWnd::OnTrayMouseMove() {}
void CTrayIconWnd::OnBalloonClick() {}

// The shell lost its icons (it restarted) or redrew them (theme change).
void CTrayIconWnd::OnTaskbarCreated() {
  if (trayIcon != nullptr && trayIcon->IsVisible()) trayIcon->ReAdd();
}

void CTrayIconWnd::OnTrayClick() { ShowPopupMenu(clickMenu); }
void CTrayIconWnd::OnTrayRightClick() { ShowPopupMenu(GetContextMenu()); }
void CTrayIconWnd::OnTrayDoubleClick() { RunMenuDefault(clickMenu); }
void CTrayIconWnd::OnTrayRightDoubleClick() { RunMenuDefault(GetContextMenu()); }

// The shell reports a double click only after the first button-up has gone
// out, and a menu must not open on the first half of a double click: the
// click timer waits for a second button-up before it delivers.
LRESULT CTrayIconWnd::OnTrayNotification(WPARAM, LPARAM lParam) {
  const UINT code = static_cast<UINT>(lParam);
  if (code == NIN_BALLOONUSERCLICK) {
    OnBalloonClick();
    return 0;
  }
  if (code < WM_MOUSEFIRST || code > WM_MOUSELAST) return 0;
  if (code == WM_MOUSEMOVE) {
    OnTrayMouseMove();
    return 0;
  }
  if (busy) {
    // A menu or a command is running, or a double click waits for its
    // button-up: only that button-up delivers.
    busy = false;
    OnButtonUpWhileBusy(code);
    return 0;
  }
  switch (code) {
    case WM_LBUTTONDBLCLK:
      busy = true;
      if (clickState == 0) clickState = 1;
      if (clickCount != 0) ++clickCount;
      break;
    case WM_RBUTTONDBLCLK:
      OnTrayRightDoubleClick();
      break;
    case WM_LBUTTONUP:
      if (clickCount == 0) {
        clickState = 0;
        ::SetTimer(window, ClickTimerId, ClickTimerDelay, nullptr);
      }
      ++clickCount;
      break;
    case WM_RBUTTONUP:
      OnTrayRightClick();
      break;
  }
  return 0;
}

void CTrayIconWnd::OnButtonUpWhileBusy(LPARAM code) {
  if (code == WM_LBUTTONUP) {
    const int32_t pending = clickState;
    clickState = 0;
    if (pending == 2) OnTrayClick();
    if (pending == 3) OnTrayDoubleClick();
    BringPopupToFront();
  } else if (code == WM_RBUTTONUP) {
    BringPopupToFront();
  }
}

void CTrayIconWnd::OnTimer(UINT_PTR id) {
  if (id != ClickTimerId) return;
  ::KillTimer(window, ClickTimerId);
  if (clickState == 1) {
    // The button is still held after a double click: decide now what the
    // coming button-up delivers.
    if (clickCount >= 1) {
      clickState = clickCount == 1 ? 2 : 3;
    } else {
      clickState = 0;
    }
    clickCount = 0;
    return;
  }
  const int32_t count = clickCount;
  clickCount = 0;
  if (count == 1) OnTrayClick();
  if (count == 2) OnTrayDoubleClick();
}

void CTrayIconWnd::SetIconState(int32_t index) {
  if (index < 0 || index > 4) {
    TSL_INTERNAL_ERROR(Unit, 375);
    return;
  }
  if (!trayIcon->SetIcon(icons[index])) ::SetTimer(window, RetryTimerId, RetryTimerDelay, nullptr);
}

// Menus and the windows they open belong in front; without this a menu of a
// background window never closes when the user clicks elsewhere.
void CTrayIconWnd::BringPopupToFront() { ::SetForegroundWindow(::GetLastActivePopup(window)); }

namespace {

// Clears the busy mark on the way out, also when an exception passes.
class CBusyMark {
 public:
  explicit CBusyMark(bool& mark_) : mark(mark_) { mark = true; }
  ~CBusyMark() { mark = false; }
  CBusyMark(const CBusyMark&) = delete;
  CBusyMark& operator=(const CBusyMark&) = delete;

 private:
  bool& mark;
};

}  // namespace

void CTrayIconWnd::ShowPopupMenu(HMENU menu) {
  if (menu == nullptr) return;
  if (!::IsMenu(menu)) {
    TSL_INTERNAL_ERROR(Unit, 449);
    return;
  }
  BringPopupToFront();
  POINT cursor = {0, 0};
  ::GetCursorPos(&cursor);
  if (busy) {
    TSL_INTERNAL_ERROR(Unit, 456);
    return;
  }
  CBusyMark mark(busy);
  if (extraItemActive &&
      !::ModifyMenuW(menu, ExtraMenuItemId, MF_BYCOMMAND | MF_STRING, ExtraMenuItemId, extraItemText.Text())) {
    const DWORD code = ::GetLastError();
    if (code == ERROR_NOT_ENOUGH_MEMORY) Tsl::GenerateMemoryError();
    Tsl::GenerateLastError(code);
  }
  ::TrackPopupMenu(menu, TPM_RIGHTBUTTON, cursor.x, cursor.y, 0, window, nullptr);
}

void CTrayIconWnd::RunMenuDefault(HMENU menu) {
  if (menu == nullptr) return;
  if (!::IsMenu(menu)) {
    TSL_INTERNAL_ERROR(Unit, 473);
    return;
  }
  BringPopupToFront();
  const UINT id = ::GetMenuDefaultItem(menu, FALSE, 0);
  if (id == static_cast<UINT>(-1)) return;
  if (busy) {
    TSL_INTERNAL_ERROR(Unit, 478);
    return;
  }
  CBusyMark mark(busy);
  ::SendMessageW(window, WM_COMMAND, id, 0);
}
