// Tools for the hook tests on the virtual display: real keys and clicks typed
// with xdotool, a stand-in agent window of class "Md16_Launcher" that records
// the hook's reports, a program in front with selected text, atoms held for a
// test, and the hook library loaded from the program folder.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace HookTestKit {

// Pumps this thread's messages for `ms` milliseconds.
void PumpFor(DWORD ms);

// Runs `xdotool <arguments>` on the test's X display and waits, pumping
// messages, until it has finished (at most 10 s). Wine starts the Linux
// program itself but hands back no process to wait on, so the shell that runs
// it leaves a file behind when it is done. False when it never finished.
bool Xdo(const std::string& arguments);

// Where xdotool must put the mouse to reach the Windows screen point (x, y):
// the Wine desktop may lie anywhere on the X screen.
std::string XPoint(int x, int y);

// One report of the hook as the agent's window received it.
struct CReport {
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
};

// A window of the agent's class, which the hook finds and posts to. Records
// every chord and mouse report that reaches it.
class CAgentWindow {
 public:
  CAgentWindow();
  ~CAgentWindow();
  CAgentWindow(const CAgentWindow&) = delete;
  CAgentWindow& operator=(const CAgentWindow&) = delete;

  HWND Handle() const { return window; }
  const std::vector<CReport>& Reports() const { return reports; }
  // Pumps messages until `count` reports have arrived or `timeoutMs` passed;
  // true when they have.
  bool WaitForReports(size_t count, DWORD timeoutMs = 5000);

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  HWND window = nullptr;
  std::vector<CReport> reports;
};

// A top-level window in front with an edit control whose text is selected
// and focused: the program that the user types the chords into.
class CTypingTarget {
 public:
  explicit CTypingTarget(const wchar_t* text);
  ~CTypingTarget();
  CTypingTarget(const CTypingTarget&) = delete;
  CTypingTarget& operator=(const CTypingTarget&) = delete;

  HWND Window() const { return frame; }
  // A screen point inside the frame but outside the edit control, where
  // clicks change nothing.
  POINT EmptySpot() const;
  // Brings the frame to the front again and puts the mouse over it, since
  // keys go to the X window under the mouse.
  void Focus();

 private:
  HWND frame = nullptr;
  HWND edit = nullptr;
};

// The text on the clipboard once there is some, pumping messages while the
// program in front still handles its keys (at most `timeoutMs`); empty when
// none came.
std::wstring WaitForClipboardText(DWORD timeoutMs = 3000);
// Empties the clipboard.
void EmptyClipboardNow();

// Sets the given atoms for the object's life, as the agent does.
class CAtoms {
 public:
  explicit CAtoms(std::vector<std::wstring> names);
  ~CAtoms();
  CAtoms(const CAtoms&) = delete;
  CAtoms& operator=(const CAtoms&) = delete;

 private:
  std::vector<std::wstring> names;
};

// MdHook.dll of the program folder, loaded, with its exports.
class CHookLibrary {
 public:
  CHookLibrary();
  ~CHookLibrary();
  CHookLibrary(const CHookLibrary&) = delete;
  CHookLibrary& operator=(const CHookLibrary&) = delete;

  bool Loaded() const;
  bool Register();
  void Unregister();
  bool DropHooks();

 private:
  HMODULE module = nullptr;
  bool registered = false;
};

// The starts of xdotool command lines for the triggers.
extern const char ChordCtrlCC[];      // Ctrl held, C twice
extern const char ChordCtrlInsIns[];  // Ctrl held, Insert twice

}  // namespace HookTestKit
