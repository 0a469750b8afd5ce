// Hook hosting: the hook library and the 64-bit sibling that the agent loads
// and starts (CHookHost), the reports that the hook and other programs send to
// the agent's window (CHookMessage), and the worker thread that carries them
// to the main program, starting it first when a chord finds it closed.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "Object.h"
#include "array.h"
#include "unicodestring.h"
#include "Tools/SyncQueue.h"

class CLauncherOptions;

// One report for the main program: a hook message with its words, or the
// block of a forwarded WM_COPYDATA (message WM_COPYDATA, words 0). Made on
// the window thread, read and dropped on the worker, so its bytes live on the
// runtime heap whichever memory manager either thread has chosen.
class CHookMessage : public virtual Tsl::IObject {
 public:
  CHookMessage(UINT message, WPARAM wParam, LPARAM lParam);
  ~CHookMessage() override;

  UINT message;  // the registered number, or WM_COPYDATA
  // The words as received; pointer-sized, so that they reach the main
  // program unchanged in either build.
  WPARAM wParam;
  LPARAM lParam;
  Tsl::CArray<uint8_t, Tsl::RuntimeHeap> data;  // the WM_COPYDATA block, else empty
  uint32_t tag;                                 // its dwData, else 0
};

typedef CSyncQueue<Tsl::CPtr<CHookMessage>> CHookMessageQueue;

// The hook library and, on a 64-bit system, the 64-bit sibling that hosts
// the hook in 64-bit programs. Window thread only.
class CHookHost {
 public:
  // The full paths of "MdHook.dll" and "MdAgent64.exe" in the agent's folder.
  CHookHost(const Tsl::CUnicodeString& hookLibraryPath, const Tsl::CUnicodeString& agent64Path);
  // Takes the hook away however many registrations stand.
  ~CHookHost();
  CHookHost(const CHookHost&) = delete;
  CHookHost& operator=(const CHookHost&) = delete;

  // Puts the hook in place, or counts one more registration. On a 64-bit
  // system the sibling is started first, and without its file there is no
  // hook at all. False when the hook is not in place.
  bool Register();
  // Undoes one registration; the last one unloads the library and closes the
  // sibling. False when nothing was registered, or when the sibling's window
  // is gone.
  bool Unregister();
  // Registers or unregisters so that the hook exists exactly while at least
  // one trigger of `options` is on. The result is that of the call made, or
  // true when none was needed.
  bool ApplyHookState(const CLauncherOptions& options);

  int32_t GetRegisterCount() const { return registerCount; }
  HMODULE GetHookLibrary() const { return hookLibrary; }
  const Tsl::CUnicodeString& GetHookLibraryPath() const { return hookLibraryPath; }
  const Tsl::CUnicodeString& GetAgent64Path() const { return agent64Path; }

 private:
  bool StartAgent64();

  Tsl::CUnicodeString hookLibraryPath;
  Tsl::CUnicodeString agent64Path;
  int32_t registerCount;  // successful Register calls not undone
  HMODULE hookLibrary;    // null when not loaded
};

// Whether this agent is a 32-bit process on a 64-bit system, where 64-bit
// programs need the sibling's hook. The one place that asks.
bool IsAgentOnWow64();

// ---- The tray window's side ------------------------------------------------------------

// What the hook handling, OnCopyData and the worker need of the window that
// owns them. The tray window implements it; the worker thread receives it as
// its argument and uses only GetWindowHandle, GetInstance and
// GetHookMessages.
class IHookWindow {
 public:
  virtual ~IHookWindow() {}
  virtual HWND GetWindowHandle() const = 0;
  // The agent's module, from which the main program's file is found.
  virtual HINSTANCE GetInstance() const = 0;
  virtual CHookMessageQueue& GetHookMessages() = 0;
  // The hover event, or null when it could not be made.
  virtual HANDLE GetHoverTranslationEvent() const = 0;

  // Whether the tray icon object exists.
  virtual bool HasTrayIcon() const = 0;
  // The state in which the icon is to be kept (ShowTrayWindow as last read).
  virtual bool GetShowTrayWindow() const = 0;
  // Shows or hides the icon now; false when the shell refused.
  virtual bool SetTrayIconVisible(bool visible) = 0;
  // Starts (or restarts) timer 1, whose tick puts the icon back into the
  // state of GetShowTrayWindow.
  virtual void StartIconTimer(UINT elapseMs) = 0;
  virtual bool ShowBalloon(const Tsl::CUnicodeString& text, const Tsl::CUnicodeString& caption,
                           int32_t infoFlags, int32_t timeoutSeconds) = 0;
};

// The icon shown only for a balloon goes again after this long.
const UINT BalloonIconTimeMs = 10000;
// Seconds a balloon sent by another program stands.
const int32_t CopyDataBalloonSeconds = 10;

// Whether `message` is one of the hook's reports, which the window hands to
// OnHookMessage before its base handling.
bool IsHookMessage(UINT message);
// A hook report on the window thread: a chord takes the foreground for the
// agent, a mouse report sets or resets the hover event, and each is queued
// for the worker. The caller then passes the message on to its base.
void OnHookMessage(IHookWindow& window, UINT message, WPARAM wParam, LPARAM lParam);
// WM_COPYDATA: shows the icon for a while, then shows a balloon (MDDB) or
// queues the block for the main program (MRDL, MIMG). A block that can't be
// read is reported and dropped. Always FALSE.
BOOL OnCopyData(IHookWindow& window, const COPYDATASTRUCT* copy);
// The worker thread's function; `window` is the IHookWindow. Takes reports
// from the queue and forwards them to the main window until the queue stops;
// a chord with no main window starts the main program first. Returns 0.
DWORD WINAPI HookWorker(void* window);
