// The foundation's failures: the exception classes and their texts, the one
// route from a failed check to the screen, the pool that lets out-of-memory be
// thrown without memory, and the texts of system and COM error codes.
#include "errors.h"

#include <stdlib.h>
#include <wchar.h>

#include "services.h"
#include "tessels.h"

namespace Tsl {

namespace {

const uint32_t FatalBoxFlags = MB_ICONHAND | MB_SYSTEMMODAL;  // 0x1010

// A critical section that needs no constructor: zero-initialised static
// storage is a valid INIT_ONCE, so it can be entered before, during and after
// static construction, and first entering it allocates nothing.
struct CLazyLock {
  INIT_ONCE once;
  CRITICAL_SECTION section;

  static BOOL CALLBACK Initialise(INIT_ONCE*, void* lock, void**) {
    InitializeCriticalSection(&static_cast<CLazyLock*>(lock)->section);
    return TRUE;
  }
  void Enter() {
    InitOnceExecuteOnce(&once, Initialise, this, nullptr);
    EnterCriticalSection(&section);
  }
  void Leave() { LeaveCriticalSection(&section); }
};

class CLockHolder {
 public:
  explicit CLockHolder(CLazyLock& lock) : held(lock) { held.Enter(); }
  ~CLockHolder() { held.Leave(); }
  CLockHolder(const CLockHolder&) = delete;
  CLockHolder& operator=(const CLockHolder&) = delete;

 private:
  CLazyLock& held;
};

CLazyLock stopModeLock;
volatile LONG assertStopMode = SM_Unread;
volatile LONG errorStopMode = SM_Unread;

volatile bool exceptionsEnabled = true;
volatile bool quietMode = false;
// Set by the first double error; a second one, from inside the first one's
// box, ends the process without showing anything more.
volatile LONG endingWithDoubleError = 0;

thread_local CThreadErrorState threadErrorState = {false, false};
thread_local CThreadEntryState threadEntryState = {false, false};

}  // namespace

// ---------------------------------------------------------------------------
// Stop modes

int32_t StopModeFromText(const wchar_t* text, int32_t defaultMode) {
  if (text == nullptr) return defaultMode;
  if (_wcsicmp(text, L"Never") == 0) return SM_Never;
  if (_wcsicmp(text, L"Debug") == 0) return SM_Debug;
  if (_wcsicmp(text, L"Always") == 0) return SM_Always;
  return defaultMode;
}

bool ShouldBreak(int32_t mode, bool debuggerPresent) {
  return mode == SM_Always || (mode == SM_Debug && debuggerPresent);
}

// Reads one mode with the raw registry calls into a stack buffer: this runs on
// the error path, where nothing may allocate. A text too long for the buffer
// is no mode word, so it gives the default as well.
static int32_t ReadStopModeValue(const wchar_t* valueName, int32_t defaultMode) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Tavix\\Tessels", 0,
                    KEY_QUERY_VALUE | KEY_WOW64_32KEY, &key) != ERROR_SUCCESS)
    return defaultMode;
  wchar_t text[32] = {};
  DWORD type = 0;
  DWORD size = sizeof text - sizeof text[0];  // keeps room for a terminator
  LONG status = RegQueryValueExW(key, valueName, nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
  RegCloseKey(key);
  if (status != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) return defaultMode;
  return StopModeFromText(text, defaultMode);
}

static int32_t CachedStopMode(volatile LONG& cache, const wchar_t* valueName, int32_t defaultMode) {
  LONG mode = cache;
  if (mode != SM_Unread) return mode;
  CLockHolder hold(stopModeLock);
  if (cache == SM_Unread) cache = ReadStopModeValue(valueName, defaultMode);
  return cache;
}

int32_t GetAssertStopMode() { return CachedStopMode(assertStopMode, L"AssertStopMode", SM_Debug); }
int32_t GetErrorStopMode() { return CachedStopMode(errorStopMode, L"ErrorStopMode", SM_Never); }

static void BreakIfWanted(int32_t mode) {
  if (ShouldBreak(mode, IsDebuggerPresent() != FALSE)) DebugBreak();
}

// ---------------------------------------------------------------------------
// Process-wide and per-thread state

bool AreExceptionsEnabled() { return exceptionsEnabled; }
void EnableExceptions(bool enabled) { exceptionsEnabled = enabled; }
bool IsQuietMode() { return quietMode; }
void SetQuietMode(bool quiet) { quietMode = quiet; }

CThreadErrorState& GetThreadErrorState() { return threadErrorState; }
CThreadEntryState& GetThreadEntryState() { return threadEntryState; }

namespace {

// Puts the thread's error state back when the scope ends, also when a failure
// is thrown out of it.
class CErrorStateRestore {
 public:
  CErrorStateRestore() : saved(threadErrorState) {}
  ~CErrorStateRestore() { threadErrorState = saved; }
  CErrorStateRestore(const CErrorStateRestore&) = delete;
  CErrorStateRestore& operator=(const CErrorStateRestore&) = delete;

 private:
  CThreadErrorState saved;
};

// The common frame of the failures that may return, entered after the stop
// mode was served: the runtime heap (the failing code's heap must not be
// touched) and the error state marked. Both are undone at the end, also when
// the failure is thrown out of it.
class CFailureScope {
 public:
  CFailureScope() { threadErrorState.inError = true; }
  // Nobody would catch: exceptions are off, or the thread's guard has ended.
  static bool MayThrow() { return exceptionsEnabled && !threadEntryState.noThrow; }

 private:
  CRuntimeHeapSwitch heapSwitch;
  CErrorStateRestore stateRestore;
};

}  // namespace

// ---------------------------------------------------------------------------
// Texts

static const wchar_t* const internalErrorNames[] = {
    L"MSG_ASSERT", L"MSG_ASSERTLASTERROR", L"MSG_PRESUME", L"MSG_PRESUMELASTERROR"};

static const wchar_t* const fileErrorNames[] = {
    nullptr,
    L"ERR_FILE_GENERIC",
    L"ERR_FILE_NOT_FOUND",
    L"ERR_FILE_BAD_PATH",
    L"ERR_FILE_TOO_MANY_OPEN_FILES",
    L"ERR_FILE_ACCESS_DENIED",
    L"ERR_FILE_INVALID_FILE",
    L"ERR_FILE_REMOVE_CURRENT_DIR",
    L"ERR_FILE_DIRECTORY_FULL",
    L"ERR_FILE_BAD_SEEK",
    L"ERR_FILE_HARD_IO",
    L"ERR_FILE_SHARING_VIOLATION",
    L"ERR_FILE_LOCK_VIOLATION",
    L"ERR_FILE_DISK_FULL",
    L"ERR_FILE_END_OF_FILE",
    L"ERR_FILE_ALREADY_EXISTS",
};

const wchar_t* InternalErrorMessageName(int32_t kind) {
  return kind >= IE_Assert && kind <= IE_PresumeLastError ? internalErrorNames[kind] : nullptr;
}

const wchar_t* FileErrorMessageName(int32_t kind) {
  return kind >= FE_Generic && kind <= FE_AlreadyExists ? fileErrorNames[kind] : nullptr;
}

// A name without any text still shows its data: the name, then each
// parameter after one blank.
static CUnicodeString NameWithParameters(const wchar_t* messageName, const CUnicodeString* params,
                                         int32_t count) {
  CUnicodeString text(messageName);
  for (int32_t i = 0; i < count; ++i) {
    text += L' ';
    text += params[i];
  }
  return text;
}

CUnicodeString GetMessageOrDefault(const wchar_t* messageName, const CUnicodeString* params,
                                   int32_t count) {
  CRuntimeHeapSwitch onRuntimeHeap;
  if (messageName == nullptr) return CUnicodeString();
  CUnicodeString text;
  // Before start and after the end no catalogue answers: the default texts do.
  if (IsLibraryRunning() && GetMessageText(messageName, text)) return text.SubstParamArray(params, count);
  if (const CUnicodeString* defaultText = GetDefaultMessageText(messageName))
    return defaultText->SubstParamArray(params, count);
  return NameWithParameters(messageName, params, count);
}

static CUnicodeString HexCode(uint32_t code) { return L"0x" + CUnicodeString::FromNumber(code, 16); }

// The text of a failed assertion or presumption that could not be thrown.
static CUnicodeString InternalErrorText(int32_t kind, const wchar_t* expression, const wchar_t* comment,
                                        const wchar_t* file, int32_t line, uint32_t code) {
  const wchar_t* name = InternalErrorMessageName(kind);
  if (name == nullptr) {
    TSL_INTERNAL_ERROR(L"errors", 356);
    kind = IE_Assert;
    name = InternalErrorMessageName(kind);
  }
  CUnicodeString params[6] = {CUnicodeString(expression), CUnicodeString(comment), CUnicodeString(file),
                              CUnicodeString::FromNumber(static_cast<int64_t>(line))};
  int32_t count = 4;
  if (kind == IE_AssertLastError || kind == IE_PresumeLastError) {
    params[4] = HexCode(code);
    params[5] = GetLastErrorText(code);
    count = 6;
  }
  return GetMessageOrDefault(name, params, count);
}

// ---------------------------------------------------------------------------
// Exception classes

CException::~CException() {}

void CException::Show() { ShowMessage(GetMessageText(), 0); }

CInternalError::CInternalError(const wchar_t* file, int32_t line, int32_t kind, uint32_t code)
    : file(file), line(line), kind(kind), code(code) {}

CUnicodeString CInternalError::GetMessageText() const {
  CUnicodeString params[3] = {CUnicodeString(file), CUnicodeString::FromNumber(static_cast<int64_t>(line))};
  if (kind == IE_AssertLastError || kind == IE_PresumeLastError) {
    params[2] = HexCode(code);
    return GetMessageOrDefault(L"MSG_INTERNAL_ERROR_WITH_CODE", params, 3);
  }
  return GetMessageOrDefault(L"MSG_INTERNAL_ERROR", params, 2);
}

void CInternalError::Show() { ShowMessage(GetMessageText(), FatalBoxFlags); }

CUnicodeString CMemoryException::GetMessageText() const { return NotEnoughMemoryText(); }

CLastErrorException::CLastErrorException(uint32_t code) : code(code) {}

CUnicodeString CLastErrorException::GetMessageText() const { return GetLastErrorText(code); }

CCOMException::CCOMException(HRESULT result, IErrorInfo* errorInfo) : result(result), errorInfo(errorInfo) {}

CCOMException::~CCOMException() {
  if (errorInfo != nullptr) errorInfo->Release();
}

CUnicodeString CCOMException::GetMessageText() const { return GetComErrorText(result, errorInfo); }

CUnicodeString CUserException::GetMessageText() const { return CUnicodeString(); }

void CUserException::Show() {}

CCheckException::CCheckException(const wchar_t* messageName, const CUnicodeString& p0,
                                 const CUnicodeString& p1, const CUnicodeString& p2)
    : messageName(messageName), params{p0, p1, p2} {}

// Parameters after the last one given are unused slots, not data: a message
// without text does not show blanks for them.
CUnicodeString CCheckException::GetMessageText() const {
  int32_t count = 3;
  while (count > 0 && params[count - 1].IsEmpty()) --count;
  return GetMessageOrDefault(messageName, params, count);
}

CFileException::CFileException(uint32_t systemCode, int32_t kind, const CUnicodeString& fileName)
    : systemCode(systemCode), kind(kind), fileName(fileName) {}

// The generic kind also tells what the system said; a kind outside the table
// is shown as generic.
CUnicodeString CFileException::GetMessageText() const {
  const wchar_t* name = FileErrorMessageName(kind);
  if (name == nullptr || kind == FE_Generic) {
    CUnicodeString params[2] = {fileName, GetLastErrorText(systemCode)};
    return GetMessageOrDefault(L"ERR_FILE_GENERIC", params, 2);
  }
  return GetMessageOrDefault(name, &fileName, 1);
}

// ---------------------------------------------------------------------------
// The memory-exception pool: 64 places in static storage, so that running out
// of memory can be thrown without asking any heap.

namespace {

const int MemoryPoolSize = 64;

struct CMemoryExceptionPlace {
  volatile bool used;
  alignas(CMemoryException) unsigned char room[sizeof(CMemoryException)];
};

CMemoryExceptionPlace memoryPool[MemoryPoolSize];
CLazyLock memoryPoolLock;

// Every place is taken: nothing can be thrown any more. The box uses the
// platform directly, since the show route may itself need memory.
[[noreturn]] void EndWithPoolOverrun() {
  if (!quietMode)
    MessageBoxW(nullptr, NotEnoughMemoryText().Text(), L"Tessels", MB_ICONHAND | MB_SYSTEMMODAL);
  abort();
}

}  // namespace

void* CMemoryException::operator new(size_t size) {
  TSL_ASSERT(size == sizeof(CMemoryException), L"errors", 120);
  {
    CLockHolder hold(memoryPoolLock);
    for (CMemoryExceptionPlace& place : memoryPool) {
      if (place.used) continue;
      place.used = true;
      return place.room;
    }
  }
  EndWithPoolOverrun();
}

// A place that was free, or an address outside the pool, is an internal
// error. It is raised after the lock is left, so that the pool stays usable
// for the error route; being unable to leave a delete, it ends in the
// terminate handler unless nobody would catch anyway.
void CMemoryException::operator delete(void* p) {
  if (p == nullptr) return;
  bool found = false, wasUsed = false;
  {
    CLockHolder hold(memoryPoolLock);
    for (CMemoryExceptionPlace& place : memoryPool) {
      if (place.room != p) continue;
      found = true;
      wasUsed = place.used;
      place.used = false;
      break;
    }
  }
  TSL_ASSERT(found, L"errors", 122);
  TSL_ASSERT(!found || wasUsed, L"errors", 121);
}

// ---------------------------------------------------------------------------
// Showing

void EndWithDoubleError() {
  if (InterlockedExchange(&endingWithDoubleError, 1) == 0) {
    SetCurrentMemoryManager(GetRuntimeHeapManager());
    ShowMessage(DoubleInternalErrorText(), FatalBoxFlags);
  }
  abort();
}

void ShowFatalMessage(const CUnicodeString& text) {
  CRuntimeHeapSwitch onRuntimeHeap;
  if (threadErrorState.showingError) EndWithDoubleError();
  CErrorStateRestore stateRestore;
  threadErrorState.showingError = true;  // inError stays as it was
  ShowMessage(text, FatalBoxFlags);
  threadEntryState.fatalErrorShown = true;
}

// ---------------------------------------------------------------------------
// Raising

bool GenerateInternalError(int32_t kind, const wchar_t* expression, const wchar_t* comment,
                           const wchar_t* file, int32_t line, uint32_t code) {
  BreakIfWanted(GetAssertStopMode());
  CFailureScope scope;
  if (CFailureScope::MayThrow()) throw new CInternalError(file, line, kind, code);
  ShowFatalMessage(InternalErrorText(kind, expression, comment, file, line, code));
  return false;
}

bool GenerateLastError(uint32_t code) {
  BreakIfWanted(GetErrorStopMode());
  CFailureScope scope;
  if (CFailureScope::MayThrow()) throw new CLastErrorException(code);
  ShowFatalMessage(GetLastErrorText(code));
  return false;
}

bool GenerateCheckError(const wchar_t* messageName, const CUnicodeString& p0, const CUnicodeString& p1) {
  BreakIfWanted(GetErrorStopMode());
  CFailureScope scope;
  if (CFailureScope::MayThrow()) throw new CCheckException(messageName, p0, p1, CUnicodeString());
  ShowFatalMessage(CCheckException(messageName, p0, p1, CUnicodeString()).GetMessageText());
  return false;
}

// The thread stays on the runtime heap: whatever heap failed is not to be
// used again by the code that catches this.
void GenerateMemoryError() {
  SetCurrentMemoryManager(GetRuntimeHeapManager());
  threadErrorState.inError = true;
  if (IsDebugFlagSet(DF_BreakOnMemoryException)) DebugBreak();
  throw new CMemoryException;
}

void GenerateAbort() {
  CRuntimeHeapSwitch onRuntimeHeap;
  throw new CUserException;
}

void GenerateComError(HRESULT result) {
  CRuntimeHeapSwitch onRuntimeHeap;
  throw new CCOMException(result, nullptr);
}

// System codes by file error kind; every code not listed is generic.
namespace {
struct CFileErrorCode {
  uint16_t code;
  uint8_t kind;
};
const CFileErrorCode fileErrorCodes[] = {
    {2, FE_NotFound},          {6, FE_NotFound},          {18, FE_NotFound},
    {107, FE_NotFound},        {3, FE_BadPath},           {15, FE_BadPath},
    {17, FE_BadPath},          {34, FE_BadPath},          {52, FE_BadPath},
    {53, FE_BadPath},          {55, FE_BadPath},          {67, FE_BadPath},
    {70, FE_BadPath},          {85, FE_BadPath},          {111, FE_BadPath},
    {123, FE_BadPath},         {124, FE_BadPath},         {125, FE_BadPath},
    {144, FE_BadPath},         {154, FE_BadPath},         {161, FE_BadPath},
    {206, FE_BadPath},         {208, FE_BadPath},         {267, FE_BadPath},
    {4, FE_TooManyOpenFiles},  {36, FE_TooManyOpenFiles}, {68, FE_TooManyOpenFiles},
    {113, FE_TooManyOpenFiles}, {5, FE_AccessDenied},     {12, FE_AccessDenied},
    {19, FE_AccessDenied},     {29, FE_AccessDenied},     {54, FE_AccessDenied},
    {58, FE_AccessDenied},     {64, FE_AccessDenied},     {65, FE_AccessDenied},
    {71, FE_AccessDenied},     {80, FE_AccessDenied},     {82, FE_AccessDenied},
    {86, FE_AccessDenied},     {170, FE_AccessDenied},    {999, FE_AccessDenied},
    {11, FE_InvalidFile},      {26, FE_InvalidFile},      {60, FE_InvalidFile},
    {66, FE_InvalidFile},      {114, FE_InvalidFile},     {182, FE_InvalidFile},
    {191, FE_InvalidFile},     {193, FE_InvalidFile},     {16, FE_RemoveCurrentDir},
    {145, FE_RemoveCurrentDir}, {62, FE_DirectoryFull},   {24, FE_BadSeek},
    {25, FE_BadSeek},          {27, FE_BadSeek},          {30, FE_BadSeek},
    {131, FE_BadSeek},         {132, FE_BadSeek},         {20, FE_HardIO},
    {21, FE_HardIO},           {22, FE_HardIO},           {23, FE_HardIO},
    {57, FE_HardIO},           {59, FE_HardIO},           {88, FE_HardIO},
    {117, FE_HardIO},          {995, FE_HardIO},          {996, FE_HardIO},
    {997, FE_HardIO},          {32, FE_SharingViolation}, {33, FE_LockViolation},
    {108, FE_LockViolation},   {167, FE_LockViolation},   {39, FE_DiskFull},
    {112, FE_DiskFull},        {38, FE_EndOfFile},        {183, FE_AlreadyExists},
};
}  // namespace

int32_t FileErrorKindOfCode(uint32_t systemCode) {
  for (const CFileErrorCode& entry : fileErrorCodes)
    if (entry.code == systemCode) return entry.kind;
  return FE_Generic;
}

void GenerateFileError(uint32_t systemCode, const CUnicodeString& fileName) {
  TSL_ASSERT(systemCode != 0, L"errors", 655);
  CRuntimeHeapSwitch onRuntimeHeap;
  throw new CFileException(systemCode, FileErrorKindOfCode(systemCode), fileName);
}

void GenerateFileErrorOfKind(int32_t kind, const CUnicodeString& fileName) {
  TSL_ASSERT(kind != 0, L"errors", 694);
  CRuntimeHeapSwitch onRuntimeHeap;
  throw new CFileException(0, kind, fileName);
}

// ---------------------------------------------------------------------------
// Texts of system and COM codes

// A text that FormatMessageW allocated, given back with LocalFree.
namespace {
class CSystemText {
 public:
  CSystemText() : text(nullptr) {}
  ~CSystemText() {
    if (text != nullptr) LocalFree(text);
  }
  CSystemText(const CSystemText&) = delete;
  CSystemText& operator=(const CSystemText&) = delete;
  wchar_t* text;
};
}  // namespace

static CUnicodeString HexOnly(uint32_t code) { return CUnicodeString::FromNumber(code, 16); }

// Code 0 means that no error was recorded: asking the system would only give
// "success", so it is not asked.
CUnicodeString GetLastErrorText(uint32_t code) {
  CRuntimeHeapSwitch onRuntimeHeap;
  if (code == 0) {
    CUnicodeString zero(L"0");
    return GetMessageOrDefault(L"ERR_UNKNOWN_LAST_ERROR_TEXT", &zero, 1);
  }
  CSystemText system;
  DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
      code, 0, reinterpret_cast<wchar_t*>(&system.text), 0, nullptr);
  if (length > 0 && system.text != nullptr) return CUnicodeString(system.text);
  CUnicodeString hex = HexOnly(code);
  return GetMessageOrDefault(L"ERR_UNKNOWN_LAST_ERROR_TEXT", &hex, 1);
}

static CUnicodeString ErrorInfoDescription(IErrorInfo* errorInfo) {
  if (errorInfo == nullptr) return CUnicodeString();
  BSTR description = nullptr;
  CUnicodeString text;
  if (SUCCEEDED(errorInfo->GetDescription(&description)) && description != nullptr)
    text = CUnicodeString(description);
  SysFreeString(description);
  return text;
}

// A wrapped Win32 error (facility 7) is looked up by its own code in the low
// 16 bits; the system's text loses one trailing line break.
CUnicodeString GetComErrorText(HRESULT result, IErrorInfo* errorInfo) {
  CRuntimeHeapSwitch onRuntimeHeap;
  CUnicodeString text = ErrorInfoDescription(errorInfo);
  if (!text.IsEmpty()) return text;
  uint32_t code = static_cast<uint32_t>(result);
  uint32_t lookup = (code & 0x1FFF0000u) == 0x70000u ? (code & 0xFFFFu) : code;
  CSystemText system;
  DWORD length = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, lookup,
                                0x400, reinterpret_cast<wchar_t*>(&system.text), 0, nullptr);
  if (length > 0 && system.text != nullptr) {
    text = system.text;
    if (text.Length() > 0 && text[text.Length() - 1] == L'\n') text = text.Left(text.Length() - 1);
    if (text.Length() > 0 && text[text.Length() - 1] == L'\r') text = text.Left(text.Length() - 1);
  }
  if (!text.IsEmpty()) return text;
  CUnicodeString hex = HexOnly(code);
  return GetMessageOrDefault(L"ERR_UNKNOWN_COM_ERROR", &hex, 1);
}

// ---------------------------------------------------------------------------
// The thread entry guard

int RunThreadEntryGuarded(int (*body)(void* context), void* context) {
  threadEntryState.noThrow = false;
  // A fatal error shown while static objects were built: the program would
  // run on broken ground.
  if (threadEntryState.fatalErrorShown) return -1;
  int result = -1;
  try {
    result = body(context);
  } catch (CException* exception) {
    ReportException(exception);
    delete exception;
    result = -1;
  }
  threadEntryState.noThrow = true;
  return result;
}

}  // namespace Tsl
