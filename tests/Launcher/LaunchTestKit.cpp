// The stand-in programs played by the test executable itself, and the guards
// and helpers of LaunchTestKit.h. The stand-ins start from a static object,
// before the test main, because the agent starts them with command lines of
// its own choosing ("<path>" /External, or none at all).
#include "LaunchTestKit.h"

#include <stdio.h>

#include <algorithm>
#include <cwchar>

#include "MdMessages.h"
#include "MirdalLaunch.h"

namespace LaunchTestKit {

const wchar_t ProgramVariable[] = L"MIRDAL_TEST_PROGRAM";
const wchar_t JournalVariable[] = L"MIRDAL_TEST_JOURNAL";
const wchar_t InitMsVariable[] = L"MIRDAL_TEST_INIT_MS";
const wchar_t CrashVariable[] = L"MIRDAL_TEST_CRASH";

namespace {

std::wstring Variable(const wchar_t* name) {
  wchar_t value[1024] = {};
  DWORD length = ::GetEnvironmentVariableW(name, value, 1024);
  return length > 0 && length < 1024 ? std::wstring(value, length) : std::wstring();
}

void Journal(const std::string& line) {
  std::wstring path = Variable(JournalVariable);
  if (path.empty()) return;
  HANDLE file = ::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_ALWAYS, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  std::string text = line + "\n";
  DWORD written = 0;
  ::WriteFile(file, text.data(), DWORD(text.size()), &written, nullptr);
  ::CloseHandle(file);
}

// Every registered message and every WM_COPYDATA block that reaches a
// stand-in goes to the journal, words and bytes as they came.
LRESULT CALLBACK StandInProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message >= 0xC000 && message <= 0xFFFF) {
    char line[96];
    snprintf(line, sizeof line, "post %u %llu %llu", message, (unsigned long long)wParam,
             (unsigned long long)lParam);
    Journal(line);
    if (message == Md16_Close_Agent64) ::PostQuitMessage(0);
    return 0;
  }
  if (message == WM_COPYDATA) {
    const COPYDATASTRUCT* copy = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
    char line[160];
    snprintf(line, sizeof line, "copydata %lu %lu %s", (unsigned long)copy->dwData,
             (unsigned long)copy->cbData, copy->lpData == nullptr ? "null" : "bytes");
    std::string text = line;
    const BYTE* bytes = static_cast<const BYTE*>(copy->lpData);
    for (DWORD i = 0; bytes != nullptr && i < copy->cbData && i < 16; ++i) {
      snprintf(line, sizeof line, " %02x", bytes[i]);
      text += line;
    }
    Journal(text);
    return TRUE;
  }
  if (message == WM_CLOSE) {
    ::PostQuitMessage(0);
    return 0;
  }
  return ::DefWindowProcW(window, message, wParam, lParam);
}

HWND MakeWindow(const wchar_t* className) {
  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = StandInProc;
  windowClass.hInstance = ::GetModuleHandleW(nullptr);
  windowClass.lpszClassName = className;
  ::RegisterClassW(&windowClass);
  return ::CreateWindowExW(0, className, L"", WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, nullptr, nullptr,
                           windowClass.hInstance, nullptr);
}

// Runs until closed, or for half a minute at most, so that a stand-in never
// outlives its test run.
int RunLoop(DWORD untilTick) {
  for (;;) {
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      if (message.message == WM_QUIT) return 0;
      ::DispatchMessageW(&message);
    }
    if (int32_t(::GetTickCount() - untilTick) >= 0) return 0;
    ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
  }
}

// The main program as the agent meets it: the ready mutex held from before
// its windows exist until its initialisation ends.
int PlayMirdal() {
  Journal("start " + TestSupport::Narrow(::GetCommandLineW()));
  HANDLE ready = ::CreateMutexW(nullptr, TRUE, MirdalReadyMutexName);
  MakeWindow(MirdalAppWindowClass);
  MakeWindow(MirdalMainWindowClass);
  DWORD initMs = std::wcstoul(Variable(InitMsVariable).c_str(), nullptr, 10);
  if (Variable(CrashVariable) == L"1") {
    ::Sleep(initMs);
    Journal("crash");
    // Dies holding the mutex: whoever waits for it finds it abandoned.
    ::ExitProcess(3);
  }
  RunLoop(::GetTickCount() + initMs);
  ::ReleaseMutex(ready);
  Journal("ready");
  return RunLoop(::GetTickCount() + 30000);
}

int PlayAgent64() {
  Journal("start " + TestSupport::Narrow(::GetCommandLineW()));
  MakeWindow(Agent64WindowClass);
  int result = RunLoop(::GetTickCount() + 30000);
  Journal("end");
  return result;
}

struct StandInStart {
  StandInStart() {
    std::wstring program = Variable(ProgramVariable);
    if (program.empty()) return;
    int exitCode = 0;
    if (program == L"mirdal") exitCode = PlayMirdal();
    if (program == L"agent64") exitCode = PlayAgent64();
    if (program == L"quit") Journal("start " + TestSupport::Narrow(::GetCommandLineW()));
    ::ExitProcess(exitCode);
  }
} standInStart;

}  // namespace

// ---- ScopedEnvironment ----------------------------------------------------------------

ScopedEnvironment::ScopedEnvironment(const wchar_t* name, const std::wstring& value) : name(name) {
  wchar_t buffer[1024] = {};
  DWORD length = ::GetEnvironmentVariableW(name, buffer, 1024);
  existed = length > 0 && length < 1024;
  if (existed) previous.assign(buffer, length);
  ::SetEnvironmentVariableW(name, value.empty() ? nullptr : value.c_str());
}

ScopedEnvironment::~ScopedEnvironment() {
  ::SetEnvironmentVariableW(name.c_str(), existed ? previous.c_str() : nullptr);
}

// ---- RegistryValueGuard ---------------------------------------------------------------

RegistryValueGuard::RegistryValueGuard(const std::wstring& key, const std::wstring& valueName)
    : key(key), valueName(valueName) {
  HKEY opened = nullptr;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_QUERY_VALUE, &opened) != ERROR_SUCCESS)
    return;
  DWORD size = 0;
  if (::RegQueryValueExW(opened, valueName.c_str(), nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
    bytes.resize(size);
    hadValue = ::RegQueryValueExW(opened, valueName.c_str(), nullptr, &type, bytes.data(), &size) ==
               ERROR_SUCCESS;
    bytes.resize(size);
  }
  ::RegCloseKey(opened);
}

RegistryValueGuard::~RegistryValueGuard() {
  if (hadValue) {
    HKEY opened = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_SET_VALUE, &opened) == ERROR_SUCCESS) {
      ::RegSetValueExW(opened, valueName.c_str(), 0, type, bytes.data(), DWORD(bytes.size()));
      ::RegCloseKey(opened);
    }
    return;
  }
  Remove();
  // Keys made here go again, the deepest first; one that holds anything
  // else now stays.
  for (auto made = createdKeys.rbegin(); made != createdKeys.rend(); ++made)
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, made->c_str());
}

void RegistryValueGuard::Set(const std::wstring& units, DWORD valueType) {
  // Note every key on the way that doesn't exist yet.
  for (size_t at = key.find(L'\\'); ; at = key.find(L'\\', at + 1)) {
    std::wstring part = key.substr(0, at);
    HKEY probe = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, part.c_str(), 0, KEY_READ, &probe) == ERROR_SUCCESS) {
      ::RegCloseKey(probe);
    } else if (std::find(createdKeys.begin(), createdKeys.end(), part) == createdKeys.end()) {
      createdKeys.push_back(part);
    }
    if (at == std::wstring::npos) break;
  }
  HKEY opened = nullptr;
  ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0,
                                             KEY_SET_VALUE, nullptr, &opened, nullptr));
  ::RegSetValueExW(opened, valueName.c_str(), 0, valueType,
                   reinterpret_cast<const BYTE*>(units.c_str()), DWORD((units.size() + 1) * 2));
  ::RegCloseKey(opened);
}

void RegistryValueGuard::Remove() {
  HKEY opened = nullptr;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_SET_VALUE, &opened) != ERROR_SUCCESS)
    return;
  ::RegDeleteValueW(opened, valueName.c_str());
  ::RegCloseKey(opened);
}

// ---- SerialTest -----------------------------------------------------------------------

SerialTest::SerialTest() {
  lock = ::CreateMutexW(nullptr, FALSE, L"MirdalTest.AgentSession");
  // Abandoned by a test that crashed: the lock is ours all the same.
  if (lock != nullptr) ::WaitForSingleObject(lock, INFINITE);
}

SerialTest::~SerialTest() {
  CloseStandInMirdal();
  if (lock != nullptr) {
    ::ReleaseMutex(lock);
    ::CloseHandle(lock);
  }
}

// ---- CThreadSafeServices --------------------------------------------------------------

void CThreadSafeServices::WriteLog(const wchar_t* text) {
  ::EnterCriticalSection(&section);
  log.push_back(text);
  ::LeaveCriticalSection(&section);
}

void CThreadSafeServices::DebugOutput(const Tsl::CUnicodeString& text) {
  WriteLog(text.Text());
}

std::vector<std::wstring> CThreadSafeServices::Log() {
  ::EnterCriticalSection(&section);
  std::vector<std::wstring> copy = log;
  ::LeaveCriticalSection(&section);
  return copy;
}

bool CThreadSafeServices::Logged(const std::wstring& prefix) {
  for (const std::wstring& line : Log())
    if (line.compare(0, prefix.size(), prefix) == 0) return true;
  return false;
}

// ---- Helpers --------------------------------------------------------------------------

std::wstring SelfPath() {
  wchar_t path[MAX_PATH] = {};
  DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::wstring(path, length);
}

std::vector<std::string> ReadJournal(const std::wstring& path) {
  std::vector<std::string> lines;
  HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return lines;
  std::string text;
  char buffer[4096];
  DWORD read = 0;
  while (::ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0) text.append(buffer, read);
  ::CloseHandle(file);
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    lines.push_back(text.substr(start, end - start));
  return lines;
}

void CloseStandInMirdal() {
  for (const wchar_t* className : {MirdalAppWindowClass, MirdalMainWindowClass, Agent64WindowClass}) {
    for (int round = 0; round < 10; ++round) {
      HWND window = ::FindWindowW(className, nullptr);
      if (window == nullptr) break;
      DWORD processId = 0;
      ::GetWindowThreadProcessId(window, &processId);
      if (processId == ::GetCurrentProcessId()) {
        ::DestroyWindow(window);
        continue;
      }
      HANDLE process = ::OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, processId);
      ::PostMessageW(window, WM_CLOSE, 0, 0);
      if (process != nullptr) {
        if (::WaitForSingleObject(process, 5000) == WAIT_TIMEOUT) ::TerminateProcess(process, 9);
        ::WaitForSingleObject(process, 5000);
        ::CloseHandle(process);
      }
    }
  }
}

}  // namespace LaunchTestKit
