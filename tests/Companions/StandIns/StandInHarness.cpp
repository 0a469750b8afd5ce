// The fake agent window, stand-in processes and journal reading of the
// stand-ins' tests.
#include "StandInHarness.h"

#include "MdMessages.h"

namespace StandInTest {

namespace {
CFakeAgent* currentAgent = nullptr;
const wchar_t SessionLockName[] = L"MirdalTest.AgentSession";
}  // namespace

CSessionLock::CSessionLock() : mutex(::CreateMutexW(nullptr, FALSE, SessionLockName)), held(false) {
  // A test that ended without releasing leaves the lock abandoned: taken all the same.
  DWORD result = mutex != nullptr ? ::WaitForSingleObject(mutex, 100000) : WAIT_FAILED;
  held = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
}

CSessionLock::~CSessionLock() {
  if (held) ::ReleaseMutex(mutex);
  if (mutex != nullptr) ::CloseHandle(mutex);
}

CFakeAgent::CFakeAgent() : window(nullptr) {
  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = WindowProc;
  windowClass.hInstance = ::GetModuleHandleW(nullptr);
  windowClass.lpszClassName = LauncherWindowClass;
  ::RegisterClassW(&windowClass);  // a second fixture finds it registered
  currentAgent = this;
  window = ::CreateWindowExW(0, LauncherWindowClass, L"", WS_OVERLAPPED, 0, 0, 0, 0, nullptr,
                             nullptr, ::GetModuleHandleW(nullptr), nullptr);
}

CFakeAgent::~CFakeAgent() {
  if (window != nullptr) ::DestroyWindow(window);
  currentAgent = nullptr;
}

int CFakeAgent::Count(UINT message) const {
  int count = 0;
  for (const Received& item : received) count += item.message == message ? 1 : 0;
  return count;
}

LRESULT CALLBACK CFakeAgent::WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (currentAgent != nullptr && (message >= 0xC000 || message == WM_COPYDATA)) {
    Received item{message, wParam, lParam, 0, std::string()};
    if (message == WM_COPYDATA) {
      auto* copy = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
      item.tag = copy->dwData;
      if (copy->lpData != nullptr)
        item.bytes.assign(static_cast<const char*>(copy->lpData), copy->cbData);
    }
    currentAgent->received.push_back(item);
    return 0;
  }
  return ::DefWindowProcW(window, message, wParam, lParam);
}

bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs) {
  DWORD start = ::GetTickCount();
  for (;;) {
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      ::TranslateMessage(&message);
      ::DispatchMessageW(&message);
    }
    if (done()) return true;
    if (::GetTickCount() - start >= timeoutMs) return false;
    ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
  }
}

CProcess::~CProcess() {
  if (process == nullptr) return;
  if (Running()) {
    ::TerminateProcess(process, 1);
    ::WaitForSingleObject(process, 10000);
  }
  ::CloseHandle(process);
}

bool CProcess::Start(const wchar_t* program, const std::wstring& arguments) {
  std::wstring path = std::wstring(MIRDAL_DEMO_DIR) + program;
  std::wstring line = L"\"" + path + L"\" " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION info = {};
  if (!::CreateProcessW(path.c_str(), &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &info))
    return false;
  ::CloseHandle(info.hThread);
  process = info.hProcess;
  return true;
}

bool CProcess::Running() const {
  return process != nullptr && ::WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
}

bool CProcess::WaitForExit(DWORD& exitCode, DWORD timeoutMs) {
  if (!PumpUntil([this] { return !Running(); }, timeoutMs)) return false;
  return ::GetExitCodeProcess(process, &exitCode) != FALSE;
}

HWND FindWindowOf(const wchar_t* windowClass) {
  HWND window = ::FindWindowW(windowClass, nullptr);
  return window != nullptr && ::IsWindow(window) ? window : nullptr;
}

std::vector<std::string> ReadLines(const std::wstring& path) {
  std::vector<std::string> lines;
  HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return lines;
  std::string text;
  char buffer[4096];
  DWORD read = 0;
  while (::ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0)
    text.append(buffer, read);
  ::CloseHandle(file);
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    lines.push_back(text.substr(start, end - start));
  return lines;
}

bool HasLine(const std::wstring& path, const std::string& line) {
  for (const std::string& each : ReadLines(path))
    if (each == line) return true;
  return false;
}

bool HasLineStartingWith(const std::wstring& path, const std::string& start) {
  for (const std::string& each : ReadLines(path))
    if (each.compare(0, start.size(), start) == 0) return true;
  return false;
}

bool PutOnClipboard(HWND owner, const std::wstring& text) {
  if (!::OpenClipboard(owner)) return false;
  ::EmptyClipboard();
  size_t bytes = (text.size() + 1) * sizeof(wchar_t);
  HGLOBAL block = ::GlobalAlloc(GMEM_MOVEABLE, bytes);
  bool ok = false;
  if (block != nullptr) {
    memcpy(::GlobalLock(block), text.c_str(), bytes);
    ::GlobalUnlock(block);
    ok = ::SetClipboardData(CF_UNICODETEXT, block) != nullptr;
    if (!ok) ::GlobalFree(block);
  }
  ::CloseClipboard();
  return ok;
}

}  // namespace StandInTest
