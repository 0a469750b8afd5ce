// The hook thread: low-level keyboard and mouse hooks with a message loop of
// their own, the trigger decisions of HookTriggers, the reports to the agent's
// window, the single owner among all engines of the session, and the watchdog
// that puts the hooks back after the system has dropped them.
#include "HookEngine.h"

#include <stdint.h>

#include "HookTriggers.h"
#include "MdMessages.h"
#include "Tools/HookWords.h"

using namespace HookTriggers;

namespace {

// Only one engine of the session holds the low-level hooks: a low-level hook
// sees the input of every process whatever its bitness, so a 32-bit agent's
// engine and the 64-bit sibling's would each report every trigger, twice in
// all. The engine that owns this mutex hooks; any other waits on it and takes
// over when the owner stops or its process dies (the mutex is then
// abandoned, which counts as acquired). The name is session-local, like the
// atoms, and the same for both bitnesses.
const wchar_t OwnerMutexName[] = L"Local\\Md16_HookOwner";

// The hook thread's clock: hover is checked every tick, the watchdog every
// WatchdogTicks ticks.
const UINT TickMs = 50;
const unsigned WatchdogTicks = 5;

// Longest wait for the hook thread to come up or to end.
const DWORD ThreadWaitMs = 5000;

// Thread messages to the hook thread (WM_QUIT ends it).
const UINT DropHooksMessage = WM_APP + 1;

// ---- State of the engine, touched by the starting thread only ---------------------------

HANDLE hookThread = nullptr;
DWORD hookThreadId = 0;

// ---- State of the hook thread, touched by it alone -------------------------------------

HHOOK keyboardHook = nullptr;
HHOOK mouseHook = nullptr;
CChordRecogniser chords;
CHoverWatch hover;
// Counts every event the hooks saw; the watchdog compares it with the
// system's last input.
uint32_t hookEvents = 0;

// Hand-over between Start and the thread: the thread's verdict, then the event.
HANDLE startedEvent = nullptr;
bool startResult = false;
// Signalled by the thread when it dropped its hooks for DropHooksSilently,
// with whether it held any.
HANDLE droppedEvent = nullptr;
bool droppedResult = false;

// Whether the agent has set the atom `name`: an atom is set exactly while the
// named mutex "Local\<name>" exists. Opened for READ_CONTROL only: the
// question is whether the object is there, not whether it can be waited on.
bool IsAtomSetHere(const wchar_t* name) {
  wchar_t kernelName[128] = L"Local\\";
  if (::lstrlenW(name) + 7 > 128) return false;
  ::lstrcatW(kernelName, name);
  HANDLE mutex = ::OpenMutexW(READ_CONTROL, FALSE, kernelName);
  if (mutex == nullptr) return false;
  ::CloseHandle(mutex);
  return true;
}

// Posts a report to the agent's window. No agent window means nobody wants
// the report; it is dropped. Posting never waits for the agent, so a busy
// agent cannot slow the callbacks down.
void Report(UINT message, WPARAM wParam, LPARAM lParam) {
  HWND agent = ::FindWindowW(LauncherWindowClass, nullptr);
  if (agent != nullptr) ::PostMessageW(agent, message, wParam, lParam);
}

// The low-level keyboard callback: looks, may post, and always passes the
// key on unchanged.
LRESULT CALLBACK KeyboardProc(int code, WPARAM wParam, LPARAM lParam) {
  if (code == HC_ACTION) {
    ++hookEvents;
    const KBDLLHOOKSTRUCT* key = reinterpret_cast<const KBDLLHOOKSTRUCT*>(lParam);
    if (wParam == WM_KEYDOWN || wParam == WM_SYSKEYDOWN) {
      EChord chord = chords.KeyDown(key->vkCode, key->time, HeldModifiers(), ::GetDoubleClickTime());
      // The atom is read at the chord, not at registration: the agent changes
      // atoms whenever the user changes the options.
      if (chord == ChordCtrlCC && IsAtomSetHere(CtrlCCAtom))
        Report(Md16_Hook_On_Ctrl_C_C, HookChordCtrlCC, MakeHookChordWindow(::GetForegroundWindow()));
      else if (chord == ChordCtrlInsIns && IsAtomSetHere(CtrlInsInsAtom))
        Report(Md16_Hook_On_Ctrl_Ins_Ins, HookChordCtrlInsIns,
               MakeHookChordWindow(::GetForegroundWindow()));
    } else if (wParam == WM_KEYUP || wParam == WM_SYSKEYUP) {
      chords.KeyUp(key->vkCode);
    }
  }
  return ::CallNextHookEx(nullptr, code, wParam, lParam);
}

// A press of `button` at `point`: reported when the allowed click has exactly
// the modifiers held now.
void OnButtonDown(EClickButton button, POINT point) {
  hover.Use();
  uint32_t held = HeldModifiers();
  for (int i = 0; i < ClickTriggerCount; ++i) {
    if (!IsClick(ClickTriggers[i], button, held) || !IsAtomSetHere(ClickTriggers[i].atom)) continue;
    Report(Md16_Hook_On_Mouse_Translate, HookMouseClick, MakeHookPoint(point.x, point.y));
    return;  // the agent allows one kind of click at a time
  }
}

// The low-level mouse callback: looks, may post, and always passes the event
// on unchanged.
LRESULT CALLBACK MouseProc(int code, WPARAM wParam, LPARAM lParam) {
  if (code == HC_ACTION) {
    ++hookEvents;
    const MSLLHOOKSTRUCT* mouse = reinterpret_cast<const MSLLHOOKSTRUCT*>(lParam);
    if (wParam == WM_MOUSEMOVE)
      hover.Moved(mouse->pt.x, mouse->pt.y, ::GetTickCount());
    else if (wParam == WM_LBUTTONDOWN)
      OnButtonDown(ClickLeft, mouse->pt);
    else if (wParam == WM_MBUTTONDOWN)
      OnButtonDown(ClickMiddle, mouse->pt);
  }
  return ::CallNextHookEx(nullptr, code, wParam, lParam);
}

// Every tick: a mouse at rest long enough, with the keys of the allowed hover
// held, is a hover. Checked on the thread's clock rather than in a callback,
// since a resting mouse makes no events.
void CheckHover() {
  DWORD hoverTime = 400;
  ::SystemParametersInfoW(SPI_GETMOUSEHOVERTIME, 0, &hoverTime, 0);
  auto up = [](int button) { return (::GetAsyncKeyState(button) & 0x8000) == 0; };
  bool buttonsUp = up(VK_LBUTTON) && up(VK_MBUTTON) && up(VK_RBUTTON);
  if (!hover.Ripe(::GetTickCount(), hoverTime, buttonsUp)) return;
  uint32_t held = HeldModifiers();
  for (int i = 0; i < HoverTriggerCount; ++i) {
    if (HoverTriggers[i].modifiers != held || !IsAtomSetHere(HoverTriggers[i].atom)) continue;
    hover.Use();
    Report(Md16_Hook_On_Mouse_Translate, HookMouseHoverPermitted, MakeHookPoint(hover.X(), hover.Y()));
    return;
  }
}

// Installs both hooks; on failure neither stays.
bool InstallHooks() {
  HMODULE module = nullptr;
  // The module that holds the callbacks: the library, or the sibling's
  // executable when the engine is linked into it.
  ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&KeyboardProc), &module);
  keyboardHook = ::SetWindowsHookExW(WH_KEYBOARD_LL, KeyboardProc, module, 0);
  mouseHook = ::SetWindowsHookExW(WH_MOUSE_LL, MouseProc, module, 0);
  if (keyboardHook != nullptr && mouseHook != nullptr) return true;
  if (keyboardHook != nullptr) ::UnhookWindowsHookEx(keyboardHook);
  if (mouseHook != nullptr) ::UnhookWindowsHookEx(mouseHook);
  keyboardHook = mouseHook = nullptr;
  return false;
}

// Removes both hooks. After the system has removed them already the calls
// fail, which changes nothing.
void RemoveHooks() {
  if (keyboardHook != nullptr) ::UnhookWindowsHookEx(keyboardHook);
  if (mouseHook != nullptr) ::UnhookWindowsHookEx(mouseHook);
  keyboardHook = mouseHook = nullptr;
}

// Notices hooks that the system removed without a word. The system removes a
// low-level hook whose callback was too slow, and nothing tells the owner; the
// only trace is input that the system saw and the hooks did not. So: when the
// system's last input moved on since the previous check and the hooks saw
// nothing, the input may still be on its way to the callbacks (they run on
// this thread, after this check); if by the next check the hooks have still
// seen nothing, they are gone, and are installed again.
class CWatchdog {
 public:
  // Starts afresh, from the system's input as it stands.
  void Reset() {
    lastInput = LastInputTime();
    lastEvents = hookEvents;
    unseenInput = false;
  }

  // One check; true when the hooks must be installed again.
  bool HooksLost() {
    DWORD input = LastInputTime();
    bool inputMoved = input != lastInput;
    bool hooksSaw = hookEvents != lastEvents;
    lastInput = input;
    lastEvents = hookEvents;
    if (hooksSaw) {
      unseenInput = false;
      return false;
    }
    if (unseenInput) return true;
    unseenInput = inputMoved;
    return false;
  }

 private:
  static DWORD LastInputTime() {
    LASTINPUTINFO info = {sizeof(info), 0};
    return ::GetLastInputInfo(&info) ? info.dwTime : 0;
  }

  DWORD lastInput = 0;
  uint32_t lastEvents = 0;
  bool unseenInput = false;  // input at the last check that the hooks had not seen
};

// Ends the thread's start: tells Start how it went.
void AnnounceStart(bool result) {
  startResult = result;
  ::SetEvent(startedEvent);
}

// The hook thread. It hooks only while it owns the owner mutex; until then it
// waits on the mutex and its message queue together.
DWORD WINAPI HookThread(void*) {
  MSG msg;
  // The queue must exist before Start returns, so that thread messages
  // posted to this thread are never lost.
  ::PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE);
  HANDLE owner = ::CreateMutexW(nullptr, FALSE, OwnerMutexName);
  if (owner == nullptr) {
    AnnounceStart(false);
    return 1;
  }
  bool owning = false;
  DWORD wait = ::WaitForSingleObject(owner, 0);
  if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) {
    owning = true;
    if (!InstallHooks()) {
      ::ReleaseMutex(owner);
      ::CloseHandle(owner);
      AnnounceStart(false);
      return 1;
    }
  }
  // Hooked, or on standby behind the engine that hooks: either way the
  // triggers are watched.
  AnnounceStart(true);

  CWatchdog watchdog;
  watchdog.Reset();
  UINT_PTR timer = ::SetTimer(nullptr, 0, TickMs, nullptr);
  unsigned tick = 0;
  bool running = true;
  while (running) {
    DWORD result = ::MsgWaitForMultipleObjects(owning ? 0 : 1, &owner, FALSE, INFINITE, QS_ALLINPUT);
    if (!owning && (result == WAIT_OBJECT_0 || result == WAIT_ABANDONED_0)) {
      // The engine ahead of this one stopped or died: take over. Should the
      // system refuse the hooks now, the watchdog tries again at the next
      // input that nobody saw.
      owning = true;
      InstallHooks();
      watchdog.Reset();
      continue;
    }
    while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      if (msg.message == WM_QUIT) {
        running = false;
        break;
      }
      if (msg.hwnd == nullptr && msg.message == WM_TIMER) {
        if (!owning) continue;
        CheckHover();
        if (++tick % WatchdogTicks == 0 && watchdog.HooksLost()) {
          RemoveHooks();
          bool again = InstallHooks();
          ::OutputDebugStringW(again ? L"MdHook: the system removed the low-level hooks; installed again\n"
                                     : L"MdHook: the system removed the low-level hooks; installing again failed\n");
          watchdog.Reset();
        }
        continue;
      }
      if (msg.hwnd == nullptr && msg.message == DropHooksMessage) {
        // Unhook but keep the handles, exactly as after the system's removal.
        bool held = owning && keyboardHook != nullptr;
        if (held) {
          ::UnhookWindowsHookEx(keyboardHook);
          ::UnhookWindowsHookEx(mouseHook);
        }
        droppedResult = held;
        ::SetEvent(droppedEvent);
        continue;
      }
      ::TranslateMessage(&msg);
      ::DispatchMessageW(&msg);
    }
  }
  ::KillTimer(nullptr, timer);
  if (owning) {
    RemoveHooks();
    ::ReleaseMutex(owner);
  }
  ::CloseHandle(owner);
  return 0;
}

}  // namespace

namespace HookEngine {

bool Start() {
  if (hookThread != nullptr) return true;
  if (startedEvent == nullptr) startedEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  if (droppedEvent == nullptr) droppedEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  if (startedEvent == nullptr || droppedEvent == nullptr) return false;
  startResult = false;
  hookThread = ::CreateThread(nullptr, 0, HookThread, nullptr, 0, &hookThreadId);
  if (hookThread == nullptr) return false;
  HANDLE both[2] = {startedEvent, hookThread};
  DWORD result = ::WaitForMultipleObjects(2, both, FALSE, ThreadWaitMs);
  if (result == WAIT_OBJECT_0 && startResult) return true;
  // The thread failed, ended or hangs: take it down so that a later Start
  // begins afresh.
  Stop();
  return false;
}

void Stop() {
  if (hookThread == nullptr) return;
  ::PostThreadMessageW(hookThreadId, WM_QUIT, 0, 0);
  ::WaitForSingleObject(hookThread, ThreadWaitMs);
  ::CloseHandle(hookThread);
  hookThread = nullptr;
  hookThreadId = 0;
}

bool DropHooksSilently() {
  if (hookThread == nullptr) return false;
  droppedResult = false;
  if (!::PostThreadMessageW(hookThreadId, DropHooksMessage, 0, 0)) return false;
  return ::WaitForSingleObject(droppedEvent, ThreadWaitMs) == WAIT_OBJECT_0 && droppedResult;
}

}  // namespace HookEngine
