// Finding, starting and activating the main program and the trainer, and the
// wait for the main program's readiness that stands between a chord and its
// forwarding. Nothing here raises: every failure is a box, a log line or a
// null result, and the agent goes on.
#include "MirdalLaunch.h"

#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include "AgentServices.h"
#include "MdMessages.h"

using Tsl::CUnicodeString;

const wchar_t MirdalSetupKey[] = L"SOFTWARE\\Tavix\\Mirdal\\16\\Setup";
const wchar_t MirdalPathValueName[] = L"MirdalPath";
const wchar_t MirdalAppPathsKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Mirdal.exe";
const wchar_t DrillixAppPathsKey[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Drillix.exe";
const wchar_t MirdalReadyMutexName[] = L"Md16_HookSynchronizatonMutex";
const wchar_t LaunchBoxCaption[] = L"Tavix Mirdal Launcher";

namespace {

const wchar_t MirdalFileName[] = L"Mirdal.exe";
const wchar_t DrillixFileName[] = L"Drillix.exe";

const wchar_t MirdalNotFoundText[] =
    L"Tavix Mirdal not found.\nPlease try launching the program manually.\n"
    L"To avoid this problem in the future, reinstall the program.";
const wchar_t DrillixNotFoundText[] =
    L"Tavix Mirdal Drillix x7 not found.\nPlease try launching the program manually.\n"
    L"To avoid this problem in the future, reinstall the program.";
const wchar_t CannotLaunchText[] = L"Cannot launch Tavix Mirdal from this location:";
const wchar_t LaunchManuallyText[] =
    L"Please try launching the program manually.\n"
    L"To avoid this problem in the future, reinstall the program.";
// The cannot-launch text is formatted into a buffer of this many units,
// terminator included; a longer text is cut.
const int32_t CannotLaunchBufferSize = 772;

// MB_ICONHAND | MB_SYSTEMMODAL: the box stands above every program, since it
// may come from the worker thread with no window of the agent in front.
const UINT LaunchBoxStyle = MB_ICONHAND | MB_SYSTEMMODAL;

// The structure's own size: 68 bytes in the 32-bit build, more where its
// handles and pointers are 64 bits wide.
const DWORD StartupInfoSize = sizeof(STARTUPINFOW);
static_assert(sizeof(void*) != 4 || sizeof(STARTUPINFOW) == 68, "the 32-bit STARTUPINFOW is 68 bytes");

LaunchBoxFunction launchBox = nullptr;  // null: MessageBoxW
uint32_t windowWaitMs = 60000;
int32_t mutexWaits = 60;

void ShowLaunchBox(const wchar_t* text) {
  LaunchBoxFunction show = launchBox != nullptr ? launchBox : ::MessageBoxW;
  show(nullptr, text, LaunchBoxCaption, LaunchBoxStyle);
}

// `fileName` in the folder of the module `instance`. Whether the file is
// there is not asked: a missing file shows as a failed start, with its path.
bool MakeModuleSiblingPath(HINSTANCE instance, const wchar_t* fileName, wchar_t* buffer) {
  if (instance == nullptr) return false;
  wchar_t modulePath[PathBufferSize] = {};
  if (::GetModuleFileNameW(instance, modulePath, PathCapacity) == 0) return false;
  wchar_t drive[_MAX_DRIVE] = {}, folder[_MAX_DIR] = {};
  if (_wsplitpath_s(modulePath, drive, _MAX_DRIVE, folder, _MAX_DIR, nullptr, 0, nullptr, 0) != 0)
    return false;
  if (_wmakepath_s(buffer, PathBufferSize, drive, folder, fileName, nullptr) != 0) {
    buffer[0] = L'\0';
    return false;
  }
  return buffer[0] != L'\0';
}

// One registry source of a path: read into a cleared buffer, and counted only
// with a text in it.
bool ReadPathSource(wchar_t* buffer, const wchar_t* keyPath, const wchar_t* valueName) {
  wmemset(buffer, L'\0', PathBufferSize);
  return ReadRegistryPath(buffer, PathCapacity, keyPath, valueName, HKEY_LOCAL_MACHINE) &&
         buffer[0] != L'\0';
}

// Starts `path` with `arguments` behind the quoted path, or with no command
// line at all when there are none. The handles are the caller's.
bool CreateProgramProcess(const wchar_t* path, const CUnicodeString& arguments,
                          PROCESS_INFORMATION& process) {
  STARTUPINFOW startup;
  memset(&startup, 0, sizeof startup);
  startup.cb = StartupInfoSize;
  memset(&process, 0, sizeof process);
  CUnicodeString commandLine;
  commandLine += L'"';
  commandLine += path;
  commandLine += L"\" ";
  commandLine += arguments;
  // The system may write into the command line: give it a buffer of its own.
  wchar_t* writable = commandLine.GetBuffer(commandLine.Length());
  return ::CreateProcessW(path, arguments.IsEmpty() ? nullptr : writable, nullptr, nullptr, FALSE,
                          0, nullptr, nullptr, &startup, &process) != FALSE;
}

// Shows a hidden window and restores a minimised one.
void ShowAndRestore(HWND window) {
  if (!::IsWindowVisible(window)) ::ShowWindow(window, SW_SHOW);
  if (::IsIconic(window)) ::ShowWindow(window, SW_RESTORE);
}

}  // namespace

bool ReadRegistryPath(wchar_t* buffer, int32_t capacity, const wchar_t* keyPath,
                      const wchar_t* valueName, HKEY root) {
  size_t keyLength = wcslen(keyPath);
  if (keyLength > size_t(PathCapacity)) return false;
  wchar_t parts[PathBufferSize] = {};
  wmemcpy(parts, keyPath, keyLength);

  HKEY key = root;
  wchar_t* part = parts;
  while (part != nullptr) {
    wchar_t* next = wcschr(part, L'\\');
    if (next != nullptr) *next++ = L'\0';
    if (*part != L'\0') {
      HKEY child = nullptr;
      LONG opened = ::RegOpenKeyExW(key, part, 0, KEY_READ, &child);
      // Every parent but the current user's root is closed, the machine's
      // root included: closing a predefined key does it no harm.
      if (key != HKEY_CURRENT_USER) ::RegCloseKey(key);
      if (opened != ERROR_SUCCESS) return false;
      key = child;
    }
    part = next;
  }

  DWORD type = 0;
  // The size offered is `capacity` bytes although the buffer holds
  // `capacity` units: only half of the buffer can be filled, so a path of
  // capacity / 2 units or more fails here and the caller's next source is
  // asked. Paths of the product are far shorter; the rule stays as it is.
  DWORD size = DWORD(capacity);
  LONG queried = ::RegQueryValueExW(key, valueName != nullptr && *valueName != L'\0' ? valueName : nullptr,
                                    nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size);
  if (key != HKEY_CURRENT_USER) ::RegCloseKey(key);
  return queried == ERROR_SUCCESS && size <= DWORD(capacity) && type == REG_SZ;
}

bool FindMirdalExecutable(HINSTANCE instance, wchar_t* buffer) {
  if (ReadPathSource(buffer, MirdalSetupKey, MirdalPathValueName)) return true;
  if (ReadPathSource(buffer, MirdalAppPathsKey, L"")) return true;
  wmemset(buffer, L'\0', PathBufferSize);
  return MakeModuleSiblingPath(instance, MirdalFileName, buffer);
}

bool FindDrillixExecutable(HINSTANCE instance, wchar_t* buffer) {
  // The trainer has no setup value of its own.
  if (ReadPathSource(buffer, DrillixAppPathsKey, L"")) return true;
  wmemset(buffer, L'\0', PathBufferSize);
  return MakeModuleSiblingPath(instance, DrillixFileName, buffer);
}

HWND RunMirdal(HINSTANCE instance, const CUnicodeString& arguments) {
  AgentServices().WriteLog(L"Entering RunMirdal......");
  wchar_t path[PathBufferSize] = {};
  if (!FindMirdalExecutable(instance, path)) {
    ShowLaunchBox(MirdalNotFoundText);
    return nullptr;
  }
  PROCESS_INFORMATION process;
  if (!CreateProgramProcess(path, arguments, process)) {
    CUnicodeString text;
    text += CannotLaunchText;
    text += L'\n';
    text += path;
    text += L'\n';
    text += LaunchManuallyText;
    if (text.Length() >= CannotLaunchBufferSize) text = text.Left(CannotLaunchBufferSize - 1);
    ShowLaunchBox(text.Text());
    return nullptr;
  }
  ::CloseHandle(process.hThread);
  ::CloseHandle(process.hProcess);
  return WaitForMirdalWindow();
}

bool RunDrillix(HINSTANCE instance, const CUnicodeString& arguments) {
  wchar_t path[PathBufferSize] = {};
  if (!FindDrillixExecutable(instance, path)) {
    ShowLaunchBox(DrillixNotFoundText);
    return false;
  }
  // Fire and forget: the trainer's handles stay open for the agent's life,
  // and a failed start is silent.
  PROCESS_INFORMATION process;
  return CreateProgramProcess(path, arguments, process);
}

HWND WaitForMirdalWindow() {
  // A plain unsigned comparison: across the tick counter's wrap (every 49.7
  // days) the wait ends after one look.
  DWORD deadline = ::GetTickCount() + windowWaitMs;
  do {
    HWND window = FindMirdalWindow(true);
    if (window != nullptr) return WaitForMirdalInitialization() ? window : nullptr;
    ::Sleep(1000);
  } while (::GetTickCount() < deadline);
  return nullptr;
}

bool WaitForMirdalInitialization() {
  AgentServices().WriteLog(L"Waiting for mirdal initialization finish....");
  // Whoever comes first creates the mutex: the main program to hold it while
  // it initialises, or the agent, which then finds it free at once.
  HANDLE mutex = ::CreateMutexW(nullptr, FALSE, MirdalReadyMutexName);
  if (mutex == nullptr) {
    AgentServices().WriteLog(L"Create MirdalHookSynchronizatonMutexName failed... ");
    return false;
  }
  for (int32_t wait = 0; wait < mutexWaits; ++wait) {
    // Signalled, abandoned (the program died while initialising) and failed
    // all end the wait: only the time-out means that it still initialises.
    if (::WaitForSingleObject(mutex, 1000) != WAIT_TIMEOUT) {
      // The mutex is closed while owned, never released: the next waiter
      // finds it abandoned, which ends its wait just the same.
      ::CloseHandle(mutex);
      AgentServices().WriteLog(L"Mirdal initialization is finished! ");
      return true;
    }
  }
  ::CloseHandle(mutex);
  return false;
}

void BringMirdalToFront() {
  HWND application = FindMirdalWindow(false);
  if (application == nullptr || !::IsWindow(application)) return;
  ShowAndRestore(application);
  HWND popup = ::GetLastActivePopup(application);
  HWND main = FindMirdalWindow(true);
  if (main != nullptr && ::IsWindow(main)) ShowAndRestore(main);
  if (popup != nullptr && popup != main && ::IsWindow(popup)) ShowAndRestore(popup);
  if (popup != nullptr && ::IsWindow(popup)) ::SetForegroundWindow(popup);
}

bool AllowForeground(HWND window) {
  DWORD processId = 0;
  if (window != nullptr) ::GetWindowThreadProcessId(window, &processId);
  if (processId == 0) return false;
  return ::AllowSetForegroundWindow(processId) != FALSE;
}

LaunchBoxFunction SetLaunchBoxFunction(LaunchBoxFunction function) {
  LaunchBoxFunction previous = launchBox;
  launchBox = function;
  return previous;
}

void SetLaunchWaitLimits(uint32_t windowWait, int32_t waits) {
  windowWaitMs = windowWait;
  mutexWaits = waits;
}
