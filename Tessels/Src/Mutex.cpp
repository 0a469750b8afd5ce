// CMutex: named mutexes as marks of presence. Making and opening differ on
// purpose in how they treat refused access: making may fail quietly on
// access rights (somebody else's mark is there), opening can't.
#include "Mutex.h"

#include "DllTools.h"
#include "errors.h"
#include "services.h"

namespace Tsl {
namespace {

const wchar_t Unit[] = L"Mutex";

// Lines of this unit's internal errors; they identify the check, so they stay
// put when the file is edited.
const int32_t CreateWhileOpenLine = 38;
const int32_t OpenWhileOpenLine = 71;
const int32_t OpenWithoutNameLine = 72;
const int32_t CreateOrOpenWhileOpenLine = 96;
const int32_t CreateOrOpenWithoutNameLine = 97;

// SYNCHRONIZE | MUTEX_MODIFY_STATE: all that anybody may do with a mutex
// besides changing its security, so the open works wherever the mark's
// access list lets users use it at all.
const DWORD MarkAccess = 0x100001;

typedef HANDLE(WINAPI* CreateMutexExFunction)(SECURITY_ATTRIBUTES* security, const wchar_t* name, DWORD flags,
                                              DWORD desiredAccess);

// The failure of a platform call with error `code`: out of memory is the
// memory error, everything else a CLastErrorException. Returns only where
// nothing may throw.
void RaiseFailure(DWORD code) {
  if (code == ERROR_NOT_ENOUGH_MEMORY) GenerateMemoryError();
  GenerateLastError(code);
}

// Whether the system is of version 6 or later of the NT line, where a mutex
// can be made or opened with a chosen access mask. Asked once per process;
// two threads asking at once both get the same answer.
bool HasCreateMutexEx() {
  static volatile LONG answer = 0;  // 0 not asked yet, 1 no, 2 yes
  if (answer == 0) {
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    bool known = ::GetVersionExW(&version) != FALSE;
#pragma GCC diagnostic pop
    bool modern = known && version.dwPlatformId == VER_PLATFORM_WIN32_NT && version.dwMajorVersion >= 6;
    ::InterlockedExchange(&answer, modern ? 2 : 1);
  }
  return answer == 2;
}

// CreateMutexExW, looked up at run time so that the library still loads on
// systems without it. kernel32.dll is in every process and is never freed,
// so the library object only borrows it. A missing function is a check error
// naming the library and the function; the result is null only where that
// returns.
CreateMutexExFunction FindCreateMutexEx() {
  static CreateMutexExFunction cached = nullptr;
  if (cached != nullptr) return cached;
  CDll kernel(::GetModuleHandleW(L"kernel32.dll"), false);
  FARPROC found = kernel.GetFunction("CreateMutexExW");
  if (found == nullptr) return nullptr;
  cached = reinterpret_cast<CreateMutexExFunction>(reinterpret_cast<void*>(found));
  return cached;
}

}  // namespace

CMutex::CMutex() : handle(nullptr) {}

CMutex::~CMutex() {
  try {
    Close();
  } catch (CException* failure) {
    ReportException(failure);
    delete failure;
  }
}

// Keeps the name of a mutex that is open now. The caller's last error stays
// as the platform left it: it tells whether the mutex was there already.
void CMutex::Keep(const wchar_t* openedName) {
  if (handle == nullptr || openedName == nullptr) return;
  DWORD code = ::GetLastError();
  name = openedName;
  ::SetLastError(code);
}

bool CMutex::Create(const wchar_t* mutexName, bool initialOwner, SECURITY_ATTRIBUTES* security) {
  TSL_ASSERT(handle == nullptr, Unit, CreateWhileOpenLine);
  if (handle != nullptr) return false;

  ::SetLastError(0);
  handle = ::CreateMutexW(security, initialOwner, mutexName);
  DWORD code = ::GetLastError();
  if (handle == nullptr && code != ERROR_ACCESS_DENIED) {
    RaiseFailure(code);
    return false;
  }
  if (code == ERROR_ALREADY_EXISTS) {
    // Somebody else's mutex: this call made nothing, so it keeps nothing.
    // The caller learns why from the last error.
    Close();
    ::SetLastError(ERROR_ALREADY_EXISTS);
    return false;
  }
  // Refused access means the name is taken by a mutex this user may not
  // use: for a mark that is an answer, not a failure.
  if (handle == nullptr) return false;
  Keep(mutexName);
  return true;
}

bool CMutex::Open(const wchar_t* mutexName, DWORD desiredAccess, bool inheritHandle) {
  TSL_ASSERT(handle == nullptr, Unit, OpenWhileOpenLine);
  TSL_ASSERT(mutexName != nullptr, Unit, OpenWithoutNameLine);
  if (handle != nullptr || mutexName == nullptr) return false;

  ::SetLastError(0);
  handle = ::OpenMutexW(desiredAccess, inheritHandle, mutexName);
  if (handle != nullptr) {
    Keep(mutexName);
    return true;
  }
  DWORD code = ::GetLastError();
  if (code == ERROR_FILE_NOT_FOUND) return false;
  // Refused access raises too: a mark that exists but can't be opened says
  // nothing certain about what it marks.
  RaiseFailure(code);
  return false;
}

bool CMutex::CreateOrOpen(const wchar_t* mutexName, SECURITY_ATTRIBUTES* security) {
  TSL_ASSERT(handle == nullptr, Unit, CreateOrOpenWhileOpenLine);
  TSL_ASSERT(mutexName != nullptr, Unit, CreateOrOpenWithoutNameLine);
  if (handle != nullptr || mutexName == nullptr) return false;

  HANDLE opened;
  DWORD code;
  if (HasCreateMutexEx()) {
    // The plain call asks for all access to an existing mutex, which a mark
    // made by another user or session need not grant.
    CreateMutexExFunction create = FindCreateMutexEx();
    if (create == nullptr) return false;
    ::SetLastError(0);
    opened = create(security, mutexName, 0, MarkAccess);
    code = ::GetLastError();
  } else {
    ::SetLastError(0);
    opened = ::CreateMutexW(security, FALSE, mutexName);
    code = ::GetLastError();
  }
  if (opened == nullptr) {
    RaiseFailure(code);
    return false;
  }
  handle = opened;
  Keep(mutexName);
  return code != ERROR_ALREADY_EXISTS;
}

void CMutex::Close() {
  if (handle == nullptr) return;
  BOOL closed = ::CloseHandle(handle);
  DWORD code = ::GetLastError();
  handle = nullptr;
  name.Empty();
  // Releasing the name may touch the last error; the caller is to see the
  // close's own.
  ::SetLastError(code);
  if (!closed) RaiseFailure(code);
}

}  // namespace Tsl
