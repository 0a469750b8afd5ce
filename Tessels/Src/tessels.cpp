// Tessels' start and end: the debug flags and further settings, the
// last-resort handlers, the registry roots, the start and end sequences with
// their lines in TesselLog.txt, and the cached answers about the system.
#include "tessels.h"

#include <locale.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <exception>

#include "DllTools.h"
#include "basefile.h"
#include "errors.h"
#include "filesystem.h"
#include "message.h"
#include "messagehandlers.h"
#include "nativefilesystem.h"
#include "resourceinfo.h"
#include "services.h"
#include "setup.h"
#include "tsltime.h"

namespace Tsl {

namespace {

const wchar_t Unit[] = L"tessels";
const wchar_t LibraryKey[] = L"Software\\Tavix\\Tessels";

// Written at start by the library's initialisation, read from any thread after.
volatile uint32_t debugFlags = DefaultDebugFlags;

// The names under which the flags stand in the registry. The misspelt name
// is the one deployed registries carry.
const struct {
  const wchar_t* name;
  uint32_t bit;
} flagNames[] = {
    {L"KeepTempFiles", DF_KeepTempFiles},
    {L"SaveUndefinedMessages", DF_SaveUndefinedMessages},
    {L"EnableHeapSwitching", DF_EnableHeapSwitching},
    {L"ShowHeapMemoryLeaks", DF_ShowHeapMemoryLeaks},
    {L"BreakOnMemoryException", DF_BreakOnMemoryException},
    {L"UnloadLibraries", DF_UnloadLibraries},
    {L"CheckAllResourceModulesExistance", DF_CheckAllResourceModulesExistence},
    {L"ReportMemoryErrorInMessageBox", DF_ReportMemoryErrorInMessageBox},
    {L"SaveAllMessages", DF_SaveAllMessages},
    {L"CheckMessagesParamsCount", DF_CheckMessagesParamsCount},
};

// Start and end are serialised by initLock; initCount counts the starts not
// yet matched by an end. Made before main, never destroyed: a static
// object's destructor may still end the library.
struct CLifecycleState {
  CRITICAL_SECTION initLock;
  int32_t initCount = 0;
  CUnicodeString userSettingsKey;
  CUnicodeString machineSettingsKey;
  // What the start replaced, given back at the end.
  std::terminate_handler previousTerminate = nullptr;
  std::unexpected_handler previousUnexpected = nullptr;
  _invalid_parameter_handler previousInvalidParameter = nullptr;

  CLifecycleState() { ::InitializeCriticalSection(&initLock); }
};

CLifecycleState& Lifecycle() {
  alignas(CLifecycleState) static unsigned char storage[sizeof(CLifecycleState)];
  static CLifecycleState* state = new (storage) CLifecycleState;
  return *state;
}

// Failures throw for the scope's life; the previous setting comes back also
// when one passes.
class CExceptionsEnabled {
 public:
  CExceptionsEnabled() : previous(AreExceptionsEnabled()) { EnableExceptions(true); }
  ~CExceptionsEnabled() { EnableExceptions(previous); }
  CExceptionsEnabled(const CExceptionsEnabled&) = delete;
  CExceptionsEnabled& operator=(const CExceptionsEnabled&) = delete;

 private:
  bool previous;
};

class CInitLock {
 public:
  CInitLock() { ::EnterCriticalSection(&Lifecycle().initLock); }
  ~CInitLock() { ::LeaveCriticalSection(&Lifecycle().initLock); }
  CInitLock(const CInitLock&) = delete;
  CInitLock& operator=(const CInitLock&) = delete;
};

// The library's lines and its module lines go to TesselLog.txt; the state
// exists and the writer is bound before main.
struct CBindBeforeMain {
  CBindBeforeMain() {
    Lifecycle();
    BindTesselLogWriter(&WriteTesselLog);
  }
} bindBeforeMain;

// The handler of last resort: an exception that nobody catches, or one that
// leaves a function declared not to throw. The process ends here.
[[noreturn]] void LastResortHandler() {
  if (!IsQuietMode()) ::MessageBoxW(nullptr, UnhandledInternalErrorText().Text(), L"Tessels", MB_OK);
  abort();
}

// The runtime's checks of its own arguments fail quietly: the library's own
// checks are the ones that report.
void IgnoreInvalidParameter(const wchar_t*, const wchar_t*, const wchar_t*, unsigned int, uintptr_t) {}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
void InstallHandlers(CLifecycleState& state) {
  std::terminate_handler terminate = std::set_terminate(&LastResortHandler);
  if (terminate != &LastResortHandler) state.previousTerminate = terminate;
  std::unexpected_handler unexpected = std::set_unexpected(&LastResortHandler);
  if (unexpected != &LastResortHandler) state.previousUnexpected = unexpected;
  _invalid_parameter_handler invalid = _set_invalid_parameter_handler(&IgnoreInvalidParameter);
  if (invalid != &IgnoreInvalidParameter) state.previousInvalidParameter = invalid;
}

void RestoreHandlers(CLifecycleState& state) {
  std::set_terminate(state.previousTerminate);
  std::set_unexpected(state.previousUnexpected);
  _set_invalid_parameter_handler(state.previousInvalidParameter);
}
#pragma GCC diagnostic pop

// The program's file name without folder and extension.
CUnicodeString ProgramName() { return GetName(GetExecutablePath()); }

// The registry root of one kind: the given key, or "Software\Tavix\" and
// the program's name.
CUnicodeString SettingsKeyOf(const wchar_t* given) {
  if (given != nullptr) return CUnicodeString(given);
  return CUnicodeString(L"Software\\Tavix\\") + ProgramName();
}

bool ReadSetLocale() {
  CSetup<bool> setLocale(LibraryKey, L"SetLocale", SS_CurrentUser, true);
  return setLocale.Get();
}

// The start after its checks, from the random seed to the modules. Runs
// under initLock with exceptions enabled; an internal error here goes to the
// program's guard.
void StartLibrary(const wchar_t* userKey, const wchar_t* machineKey) {
  CLifecycleState& state = Lifecycle();
  srand(unsigned(::GetCurrentProcessId()));
  InstallHandlers(state);
  // From here on texts come from the catalogue, and messages and failures
  // reach the user through the handler the program chose.
  InstallMessageServices();

  SetDebugFlags(ReadDebugFlags(LibraryKey));
  WriteTesselLog(L"Tessel: Debug flags initialized.");
  if (ReadSetLocale()) {
    setlocale(LC_ALL, "");
    WriteTesselLog(L"Tessel: CRT locale changed.");
  }
  InitDataPaths(CUnicodeString(L"Tavix\\") + ProgramName());
  WriteTesselLog(L"Tessel: Application data path initialized.");
  state.userSettingsKey = SettingsKeyOf(userKey);
  state.machineSettingsKey = SettingsKeyOf(machineKey);
  WriteTesselLog(L"Tessel: Registry paths initialized.");
  InitResourceBase();
  WriteTesselLog(L"Tessel: Resource base initialized.");
  LoadTempFolderSetting();

  SetLibraryState(LS_Running);
  try {
    InitModules();
  } catch (CException* failure) {
    ReportException(failure);
    delete failure;
    SetLibraryState(LS_ModuleInitFailed);
  }
  WriteTesselLog(L"Tessel: All modules initialized.");
}

// The message files that the debug flags ask for, before any module ends.
void SaveMessageFiles() {
  CUnicodeString program = GetExecutablePath();
  if (IsDebugFlagSet(DF_SaveAllMessages)) {
    SaveAllMessages(GetDriveAndDirectory(program) + GetName(program) + L" all messages.txt");
    WriteTesselLog(L"Tessel: All messages saved.");
  }
  if (IsDebugFlagSet(DF_SaveUndefinedMessages)) {
    CUnicodeString path = program;
    ReplaceExtension(path, L".txt");
    SaveUndefinedMessages(path);
    WriteTesselLog(L"Tessel: Undefined messages saved.");
  }
}

}  // namespace

uint32_t GetDebugFlags() { return debugFlags; }

void SetDebugFlags(uint32_t flags) { debugFlags = flags; }

uint32_t ReadDebugFlags(const wchar_t* keyPath) {
  uint32_t flags = DefaultDebugFlags;
  for (const auto& flag : flagNames) {
    CSetup<CUnicodeString> setting(keyPath, flag.name, SS_CurrentUser, CUnicodeString());
    CUnicodeString text = setting.Get();
    if (text.IsEmpty()) continue;
    // A value that is no boolean clears the flag, also one that is on by default.
    bool on = false;
    text.ToBool(on);
    flags = on ? (flags | flag.bit) : (flags & ~flag.bit);
  }
  return flags;
}

CUnicodeString GetUserSettingsKey() {
  TSL_ASSERT(IsLibraryRunning(), Unit, 426);
  return Lifecycle().userSettingsKey;
}

CUnicodeString GetMachineSettingsKey() {
  TSL_ASSERT(IsLibraryRunning(), Unit, 426);
  return Lifecycle().machineSettingsKey;
}

bool InitTessels(const wchar_t* userKey, const wchar_t* machineKey) {
  CLifecycleState& state = Lifecycle();
  CInitLock locked;
  if (++state.initCount > 1) {
    // A nested start: a module loaded since is initialised, nothing else.
    if (GetLibraryState() != LS_Running) return false;
    InitModules();
    return true;
  }
  int32_t libraryState = GetLibraryState();
  TSL_ASSERT(libraryState == LS_NotInitialised || libraryState == LS_Terminated, Unit, 119);
  SetLibraryState(LS_Initialising);
  // Failures of the start throw, so that they reach the program's guard.
  CExceptionsEnabled throwing;
  StartLibrary(userKey, machineKey);
  return GetLibraryState() == LS_Running;
}

void DoneTessels() {
  CLifecycleState& state = Lifecycle();
  CInitLock locked;
  if (GetLibraryState() != LS_Running) return;
  if (--state.initCount > 0) return;
  WriteTesselLog(L"Tessel: Deinitializing...");
  {
    CExceptionsEnabled throwing;

    SaveMessageFiles();
    TerminateModules();
    WriteTesselLog(L"Tessel: All modules terminated.");
    ClearTempFiles();
    WriteTesselLog(L"Tessel: Temporary files system terminated.");
    // The special folders and the in-memory file system.
    TerminateFileSystems();
  }
  RestoreHandlers(state);
  RemoveMessageServices();
  SetLibraryState(LS_Terminated);
  DoneResourceBase();
  WriteTesselLog(L"Tessel: Resource base deinitialized.");
  WriteTesselLog(L"Tessel: Deinitialization complete.");
}

int32_t GetInitCount() {
  CInitLock locked;
  return Lifecycle().initCount;
}

void WriteTesselLog(const CUnicodeString& text) {
  // Read at every line, so that the log can be switched on in a running program.
  CSetup<bool> writeMessageLog(LibraryKey, L"WriteMessageLog", SS_LocalMachine, false);
  if (!writeMessageLog.Get()) return;
  CUnicodeString line = CTime::GetCurrentTime().Format(L"%H:%M:%S ");
  line += L"ProcessID:";
  line += CUnicodeString::FromNumber(int64_t(::GetCurrentProcessId()));
  line += L" ";
  line += text;
  line += L"\r\n";
  CString bytes = line.ToNarrow(CP_ACP);
  // One object per line and nothing kept open: processes share the file,
  // and a line is on disk when this returns.
  CFile file(ConcatPath(GetModuleFolder(), L"TesselLog.txt"), 0x3021);
  file.Seek(0, SeekEnd);
  file.Write(bytes.Text(), bytes.Length());
  file.Close();
}

void DebugTrace(const wchar_t* format, ...) {
  if (IsDebugFlagSet(DF_QuietDebugTrace)) return;
  int32_t capacity = 512;
  for (;;) {
    CUnicodeString text;
    wchar_t* buffer = text.GetBuffer(capacity);
    va_list arguments;
    va_start(arguments, format);
    int written = _vsnwprintf(buffer, size_t(capacity), format, arguments);
    va_end(arguments);
    if (written >= 0 && written < capacity) {
      text.SetBufferLength(written);
      ::OutputDebugStringW(text.Text());
      return;
    }
    capacity *= 2;
  }
}

void RegisterResourceModule(const CUnicodeString& path) {
  HMODULE module = LoadLibraryInternal(path);
  if (module == nullptr) {
    GenerateCheckError(L"ERR_CANT_LOAD_DLL", path, GetLastErrorText(::GetLastError()));
    TSL_INTERNAL_ERROR(Unit, 371);
    return;
  }
  // Kind 0: a static module that the resource base frees at its end.
  RegisterStaticModule(module, 0);
}

void RegisterResourcePrefix(const CUnicodeString& folder, const CUnicodeString& prefix) {
  AddResourcePrefix(folder, prefix);
}

bool IsWow64() {
  static volatile LONG answer = -1;
  if (answer >= 0) return answer != 0;
  typedef BOOL(WINAPI * IsWow64ProcessFunction)(HANDLE, PBOOL);
  IsWow64ProcessFunction isWow64Process = reinterpret_cast<IsWow64ProcessFunction>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32"), "IsWow64Process")));
  BOOL result = FALSE;
  if (isWow64Process != nullptr && !isWow64Process(::GetCurrentProcess(), &result)) {
    TSL_ASSERT_LAST_ERROR(false, Unit, 1016);
    return false;
  }
  answer = result ? 1 : 0;
  return result != FALSE;
}

namespace {
// The system's version, asked once.
const OSVERSIONINFOEXW& SystemVersion() {
  static OSVERSIONINFOEXW version;
  static volatile bool known = false;
  if (!known) {
    OSVERSIONINFOEXW asked = {};
    asked.dwOSVersionInfoSize = sizeof asked;  // 284: the extended record
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    BOOL ok = ::GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&asked));
#pragma GCC diagnostic pop
    TSL_ASSERT_LAST_ERROR(ok, Unit, 1043);
    version = asked;
    known = true;
  }
  return version;
}
}  // namespace

bool IsWindowsXpOrLater() {
  const OSVERSIONINFOEXW& version = SystemVersion();
  return version.dwPlatformId == VER_PLATFORM_WIN32_NT &&
         (version.dwMajorVersion > 5 || (version.dwMajorVersion == 5 && version.dwMinorVersion >= 1));
}

bool IsVistaOrLater() {
  const OSVERSIONINFOEXW& version = SystemVersion();
  return version.dwPlatformId == VER_PLATFORM_WIN32_NT && version.dwMajorVersion >= 6;
}

}  // namespace Tsl

// Marks an executable as a user of the library; nothing reads or writes it.
extern "C" {
__declspec(dllexport) int32_t __TesselUsed = 0;
}
