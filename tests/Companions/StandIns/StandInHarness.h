// What the stand-ins' tests share: a window of the agent's class in the test
// process that records what reaches it, the stand-in processes, their
// journal, and a lock that keeps tests using session-wide names apart.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

namespace StandInTest {

// Held for one test: the agent's window class, the ready mutex and the
// stand-ins' windows are one per session, so no two such tests may overlap.
class CSessionLock {
 public:
  CSessionLock();
  ~CSessionLock();
  bool Held() const { return held; }

 private:
  HANDLE mutex;
  bool held;
};

// One message that reached the fake agent.
struct Received {
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
  ULONG_PTR tag;      // WM_COPYDATA only
  std::string bytes;  // WM_COPYDATA only
};

// A hidden window of class "Md16_Launcher" standing in for the agent.
class CFakeAgent {
 public:
  CFakeAgent();
  ~CFakeAgent();
  HWND Window() const { return window; }
  const std::vector<Received>& Messages() const { return received; }
  int Count(UINT message) const;

 private:
  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  HWND window;
  std::vector<Received> received;
};

// Pumps this thread's messages until `done` holds or `timeoutMs` passed.
bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs = 15000);

// A stand-in process; killed when the object goes, if it still runs.
class CProcess {
 public:
  CProcess() : process(nullptr) {}
  ~CProcess();
  // Starts `program` from the demonstration folder with `arguments`.
  bool Start(const wchar_t* program, const std::wstring& arguments);
  // Waits, pumping messages, for the end; false on time-out.
  bool WaitForExit(DWORD& exitCode, DWORD timeoutMs = 15000);
  bool Running() const;

 private:
  HANDLE process;
};

// A window of `windowClass` that belongs to a live process, or null.
HWND FindWindowOf(const wchar_t* windowClass);

// The journal's lines; empty when it doesn't exist yet.
std::vector<std::string> ReadLines(const std::wstring& path);
bool HasLine(const std::wstring& path, const std::string& line);
bool HasLineStartingWith(const std::wstring& path, const std::string& start);

// Replaces the clipboard's content with `text`.
bool PutOnClipboard(HWND owner, const std::wstring& text);

}  // namespace StandInTest
