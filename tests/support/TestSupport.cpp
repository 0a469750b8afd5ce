// Child processes and scratch folders for tests; see TestSupport.h.
#include "TestSupport.h"

#include <shellapi.h>

#include <cstring>
#include <map>

namespace TestSupport {
namespace {

std::map<std::string, ChildRole>& Roles() {
  static std::map<std::string, ChildRole> roles;
  return roles;
}

const wchar_t kRoleSwitch[] = L"--mirdal-child=";

std::wstring SelfPath() {
  wchar_t path[MAX_PATH * 4];
  DWORD n = GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
  return std::wstring(path, n);
}

std::wstring ChildCommandLine(const char* role, const std::wstring& arguments) {
  std::wstring line = L"\"" + SelfPath() + L"\" " + kRoleSwitch + Widen(role);
  if (!arguments.empty()) line += L" " + arguments;
  return line;
}

struct Watch {
  HANDLE process;
  DWORD timeout;
  bool timedOut;
};

DWORD WINAPI WatchChild(void* context) {
  auto* watch = static_cast<Watch*>(context);
  if (WaitForSingleObject(watch->process, watch->timeout) == WAIT_TIMEOUT) {
    watch->timedOut = true;
    TerminateProcess(watch->process, STILL_ACTIVE);
  }
  return 0;
}

}  // namespace

RoleRegistrar::RoleRegistrar(const char* name, ChildRole role) { Roles()[name] = role; }

bool RunRoleIfChild(int argc, wchar_t** argv, int& exitCode) {
  const size_t prefix = std::wcslen(kRoleSwitch);
  for (int i = 1; i < argc; ++i) {
    if (std::wcsncmp(argv[i], kRoleSwitch, prefix) != 0) continue;
    auto it = Roles().find(Narrow(argv[i] + prefix));
    if (it == Roles().end()) {
      fprintf(stderr, "unknown child role %ls\n", argv[i] + prefix);
      exitCode = 97;
      return true;
    }
    exitCode = it->second(argc, argv);
    fflush(stdout);
    fflush(stderr);
    return true;
  }
  return false;
}

HANDLE StartChild(const char* role, const std::wstring& arguments) {
  std::wstring line = ChildCommandLine(role, arguments);
  STARTUPINFOW si = {};
  si.cb = sizeof si;
  PROCESS_INFORMATION pi = {};
  if (!CreateProcessW(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi))
    return nullptr;
  CloseHandle(pi.hThread);
  return pi.hProcess;
}

ChildResult RunChild(const char* role, const std::wstring& arguments, DWORD timeoutMs) {
  ChildResult result;
  SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
  HANDLE readEnd = nullptr, writeEnd = nullptr;
  if (!CreatePipe(&readEnd, &writeEnd, &sa, 0)) {
    result.exitCode = GetLastError();
    return result;
  }
  SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);

  std::wstring line = ChildCommandLine(role, arguments);
  STARTUPINFOW si = {};
  si.cb = sizeof si;
  si.dwFlags = STARTF_USESTDHANDLES;
  si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  si.hStdOutput = writeEnd;
  si.hStdError = writeEnd;
  PROCESS_INFORMATION pi = {};
  BOOL started =
      CreateProcessW(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi);
  CloseHandle(writeEnd);
  if (!started) {
    result.exitCode = GetLastError();
    CloseHandle(readEnd);
    return result;
  }
  CloseHandle(pi.hThread);

  // Read on this thread until the child closes its end; the deadline is kept
  // by a waiter that kills the child, which closes the pipe.
  Watch watch{pi.hProcess, timeoutMs, false};
  HANDLE watcher = CreateThread(nullptr, 0, WatchChild, &watch, 0, nullptr);
  char buffer[4096];
  DWORD got = 0;
  while (ReadFile(readEnd, buffer, sizeof buffer, &got, nullptr) && got > 0)
    result.output.append(buffer, got);
  WaitForSingleObject(pi.hProcess, INFINITE);
  WaitForSingleObject(watcher, INFINITE);
  CloseHandle(watcher);
  GetExitCodeProcess(pi.hProcess, &result.exitCode);
  result.timedOut = watch.timedOut;
  CloseHandle(pi.hProcess);
  CloseHandle(readEnd);
  return result;
}

ScratchFolder::ScratchFolder() {
  wchar_t temp[MAX_PATH + 1];
  GetTempPathW(MAX_PATH + 1, temp);
  static LONG counter = 0;
  for (;;) {
    wchar_t name[64];
    swprintf(name, 64, L"mirdal-test-%lu-%ld", GetCurrentProcessId(), InterlockedIncrement(&counter));
    path_ = std::wstring(temp) + name;
    if (CreateDirectoryW(path_.c_str(), nullptr)) break;
  }
}

ScratchFolder::~ScratchFolder() {
  // SHFileOperation wants a list that ends in two zeros.
  std::wstring from = path_ + L'\0';
  SHFILEOPSTRUCTW op = {};
  op.wFunc = FO_DELETE;
  op.pFrom = from.c_str();
  op.fFlags = FOF_NO_UI;
  SHFileOperationW(&op);
}

bool WriteBytes(const std::wstring& path, const std::string& bytes) {
  HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (h == INVALID_HANDLE_VALUE) return false;
  DWORD written = 0;
  BOOL ok = WriteFile(h, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(h);
  return ok && written == bytes.size();
}

std::string Narrow(const std::wstring& text) {
  if (text.empty()) return {};
  int n = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string out(n, '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], n, nullptr, nullptr);
  return out;
}

std::wstring Widen(const std::string& text) {
  if (text.empty()) return {};
  int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring out(n, L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], n);
  return out;
}

}  // namespace TestSupport
