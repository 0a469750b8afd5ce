// Runs this test executable as a child in a named role from another folder:
// for behaviour that depends on what lies beside the program (SharedFiles.ini,
// resource libraries, TesselLog.txt), the executable is copied there first.
// Also a reader of files that another party keeps open, and a lock for tests
// that share fixed names across test programs.
#pragma once

#include <windows.h>

#include <cstring>
#include <string>

namespace TestSupport {

// Copies this executable into `folder` as `fileName` and runs it there in
// `role` with `arguments`. Returns the exit code; a child that outlives
// `timeoutMs` is killed and gives STILL_ACTIVE; a failed copy or start gives
// 0xFFFFFFFF.
inline DWORD RunChildCopy(const std::wstring& folder, const std::wstring& fileName, const char* role,
                          const std::wstring& arguments = L"", DWORD timeoutMs = 30000) {
  wchar_t self[MAX_PATH * 4];
  DWORD length = GetModuleFileNameW(nullptr, self, DWORD(sizeof self / sizeof self[0]));
  std::wstring copy = folder + L"\\" + fileName;
  if (length == 0 || !CopyFileW(self, copy.c_str(), FALSE)) return 0xFFFFFFFF;
  std::wstring line = L"\"" + copy + L"\" --mirdal-child=" + std::wstring(role, role + strlen(role));
  if (!arguments.empty()) line += L" " + arguments;
  STARTUPINFOW si = {};
  si.cb = sizeof si;
  PROCESS_INFORMATION pi = {};
  if (!CreateProcessW(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, folder.c_str(), &si, &pi))
    return 0xFFFFFFFF;
  CloseHandle(pi.hThread);
  DWORD exitCode = STILL_ACTIVE;
  if (WaitForSingleObject(pi.hProcess, timeoutMs) == WAIT_TIMEOUT) {
    TerminateProcess(pi.hProcess, STILL_ACTIVE);
    WaitForSingleObject(pi.hProcess, INFINITE);
  } else {
    GetExitCodeProcess(pi.hProcess, &exitCode);
  }
  CloseHandle(pi.hProcess);
  return exitCode;
}

// The whole content of a file that may still be open for writing elsewhere;
// empty when it cannot be opened.
inline std::string ReadSharedFile(const std::wstring& path) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  std::string bytes;
  char buffer[4096];
  DWORD read = 0;
  while (file != INVALID_HANDLE_VALUE && ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0)
    bytes.append(buffer, read);
  if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
  return bytes;
}

// Held for its lifetime: the test-only mutex `name`, so that tests of any
// test program that share a fixed registry value or file never run at once.
struct CrossProcessLock {
  explicit CrossProcessLock(const wchar_t* name) : handle(CreateMutexW(nullptr, FALSE, name)) {
    WaitForSingleObject(handle, 5 * 60 * 1000);
  }
  ~CrossProcessLock() { ReleaseMutex(handle), CloseHandle(handle); }
  CrossProcessLock(const CrossProcessLock&) = delete;
  CrossProcessLock& operator=(const CrossProcessLock&) = delete;
  HANDLE handle;
};

}  // namespace TestSupport
