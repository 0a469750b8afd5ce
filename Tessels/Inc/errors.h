// The foundation's failures: exception classes (thrown by pointer, deleted by
// the catcher), the Generate* functions that raise them, and the check macros.
// Every failed check and every platform failure of the system passes here.
#pragma once

#include <windows.h>
#include <oaidl.h>
#include <stdint.h>

#include "alloc.h"
#include "unicodestring.h"

namespace Tsl {

// Kinds of internal error; each has its message and default text.
enum EInternalErrorKind : int32_t {
  IE_Assert = 0,
  IE_AssertLastError = 1,
  IE_Presume = 2,
  IE_PresumeLastError = 3,
};

// Kinds of file error, each shown by its own message with the file name.
enum EFileErrorKind : int32_t {
  FE_Generic = 1,
  FE_NotFound = 2,
  FE_BadPath = 3,
  FE_TooManyOpenFiles = 4,
  FE_AccessDenied = 5,
  FE_InvalidFile = 6,
  FE_RemoveCurrentDir = 7,
  FE_DirectoryFull = 8,
  FE_BadSeek = 9,
  FE_HardIO = 10,
  FE_SharingViolation = 11,
  FE_LockViolation = 12,
  FE_DiskFull = 13,
  FE_EndOfFile = 14,
  FE_AlreadyExists = 15,
};

// Base of every failure. Objects live on the C runtime heap so that they can
// be made and destroyed whatever memory manager is current.
class CException : public CAllocatedOn<RuntimeHeap> {
 public:
  virtual ~CException();
  virtual CUnicodeString GetMessageText() const = 0;
  // Hands the text to ShowMessage with box flags 0.
  virtual void Show();
};

class CInternalError : public CException {
 public:
  CInternalError(const wchar_t* file, int32_t line, int32_t kind, uint32_t code);
  CUnicodeString GetMessageText() const override;
  void Show() override;  // box flags 0x1010

  const wchar_t* file;  // source unit, a static text
  int32_t line;
  int32_t kind;         // EInternalErrorKind
  uint32_t code;        // last error for kinds 1 and 3
};

// Comes from a static pool of 64 places, never from a heap.
class CMemoryException : public CException {
 public:
  CUnicodeString GetMessageText() const override;
  static void* operator new(size_t size);
  static void operator delete(void* p);
};

class CLastErrorException : public CException {
 public:
  explicit CLastErrorException(uint32_t code);
  CUnicodeString GetMessageText() const override;
  uint32_t code;
};

class CCOMException : public CException {
 public:
  CCOMException(HRESULT result, IErrorInfo* errorInfo);  // takes over the reference
  ~CCOMException() override;
  CUnicodeString GetMessageText() const override;
  HRESULT result;
  IErrorInfo* errorInfo;  // owned; may be null
};

// The user cancelled and has been told already: shows nothing.
class CUserException : public CException {
 public:
  CUnicodeString GetMessageText() const override;
  void Show() override;
};

class CCheckException : public CException {
 public:
  CCheckException(const wchar_t* messageName, const CUnicodeString& p0, const CUnicodeString& p1,
                  const CUnicodeString& p2);
  CUnicodeString GetMessageText() const override;
  const wchar_t* messageName;  // a static text, "ERR_..."
  CUnicodeString params[3];
};

class CFileException : public CException {
 public:
  CFileException(uint32_t systemCode, int32_t kind, const CUnicodeString& fileName);
  CUnicodeString GetMessageText() const override;
  uint32_t systemCode;
  int32_t kind;  // EFileErrorKind
  CUnicodeString fileName;
};

// A failed assertion or presumption. Throws a CInternalError; returns false
// only where nothing may throw (exceptions disabled, or after the thread's
// entry guard ended), after the message was shown.
bool GenerateInternalError(int32_t kind, const wchar_t* expression, const wchar_t* comment,
                           const wchar_t* file, int32_t line, uint32_t code);
// A failed platform call: CLastErrorException. Returns false where nothing may throw.
bool GenerateLastError(uint32_t code);
// A failed run-time check on input: CCheckException with an empty third parameter.
bool GenerateCheckError(const wchar_t* messageName, const CUnicodeString& p0, const CUnicodeString& p1);
[[noreturn]] void GenerateMemoryError();
[[noreturn]] void GenerateAbort();
[[noreturn]] void GenerateComError(HRESULT result);
[[noreturn]] void GenerateFileError(uint32_t systemCode, const CUnicodeString& fileName);
[[noreturn]] void GenerateFileErrorOfKind(int32_t kind, const CUnicodeString& fileName);

// The kind that a system error code maps to (FE_Generic for unlisted codes).
int32_t FileErrorKindOfCode(uint32_t systemCode);

CUnicodeString GetLastErrorText(uint32_t code);
CUnicodeString GetComErrorText(HRESULT result, IErrorInfo* errorInfo);

// Shows a fatal text once; a second one on the same thread ends the process.
void ShowFatalMessage(const CUnicodeString& text);

// Failures throw while this is true (the default); when false they show their
// message and return.
bool AreExceptionsEnabled();
void EnableExceptions(bool enabled);

// Stop modes: whether a failure breaks into a debugger before it is raised.
enum EStopMode : int32_t {
  SM_Unread = 0,  // not read from the registry yet
  SM_Never = 1,
  SM_Debug = 2,   // only when a debugger is present
  SM_Always = 3,
};
// "Never", "Debug" or "Always" in any case; anything else gives `defaultMode`.
int32_t StopModeFromText(const wchar_t* text, int32_t defaultMode);
// Whether a failure under `mode` executes a breakpoint.
bool ShouldBreak(int32_t mode, bool debuggerPresent);
// The two modes, each read once per process from HKEY_CURRENT_USER
// "Software\Tavix\Tessels": AssertStopMode (internal errors, default Debug)
// and ErrorStopMode (platform and check failures, default Never).
int32_t GetAssertStopMode();
int32_t GetErrorStopMode();

// Ends the process after an error inside error reporting: shows "Double
// internal error!\nApplication terminated." with flags 0x1010 through
// ShowMessage, then the runtime's abort. For every show route of the system.
[[noreturn]] void EndWithDoubleError();

// Set, the memory-exception pool ends the process without a box (and so does
// the library's last-resort handler). Nothing in the agent sets it.
bool IsQuietMode();
void SetQuietMode(bool quiet);

// The text of a named message with %N markers replaced by `params`: the
// catalogue's text when the message is defined, else its default text, else
// the name followed by each parameter, each after one blank.
CUnicodeString GetMessageOrDefault(const wchar_t* messageName, const CUnicodeString* params,
                                   int32_t count);
// The default text of a message that must work without resources, or null.
const CUnicodeString* GetDefaultMessageText(const wchar_t* messageName);
// Fixed texts, built before main so that showing them needs no memory.
const CUnicodeString& NotEnoughMemoryText();     // "Not enough memory!"
const CUnicodeString& DoubleInternalErrorText();  // "Double internal error!\nApplication terminated."
const CUnicodeString& UnhandledInternalErrorText();  // "Unhandled Internal Error"

// The message names by kind; null for a kind outside the tables.
const wchar_t* InternalErrorMessageName(int32_t kind);
const wchar_t* FileErrorMessageName(int32_t kind);

// Per-thread state of the error route: four flags of the calling thread,
// kept together in one TLS slot. The compiler's thread_local would allocate
// on a thread's first touch, and the first touch may be the report of
// running out of memory; the slot needs no memory.
enum EThreadStateFlag : uint32_t {
  TS_InError = 1,          // an error is being processed
  TS_ShowingError = 2,     // a message of the error route is on its way to the screen
  TS_FatalErrorShown = 4,  // a fatal message was shown on this thread
  TS_NoThrow = 8,          // the thread's entry guard has ended: nobody would catch
};

// One flag of the calling thread, read and written in place like a reference
// to a bool. It is no snapshot: a copy reads the flag as it is when read.
class CThreadFlag {
 public:
  explicit constexpr CThreadFlag(uint32_t flag) : flag(flag) {}
  CThreadFlag(const CThreadFlag&) = default;
  operator bool() const;
  CThreadFlag& operator=(bool value);
  CThreadFlag& operator=(const CThreadFlag& other) { return *this = static_cast<bool>(other); }

 private:
  uint32_t flag;
};
struct CThreadErrorState {
  CThreadFlag inError{TS_InError};
  CThreadFlag showingError{TS_ShowingError};
};
struct CThreadEntryState {
  CThreadFlag fatalErrorShown{TS_FatalErrorShown};
  CThreadFlag noThrow{TS_NoThrow};
};
CThreadErrorState GetThreadErrorState();
CThreadEntryState GetThreadEntryState();

// The entry guard of a thread's main function: returns -1 at once if a fatal
// error was shown already; otherwise runs `body`, reports and deletes any
// CException that escapes it (result -1), and afterwards sets noThrow.
int RunThreadEntryGuarded(int (*body)(void* context), void* context);

}  // namespace Tsl

// The check macros. The unit and line are given explicitly at each use: an
// internal error is identified by them alone, and they must not move when the
// file is edited. Expression and comment texts stay empty in shipped builds.
#define TSL_ASSERT(cond, unit, line) \
  ((cond) ? (void)0 : (void)::Tsl::GenerateInternalError(::Tsl::IE_Assert, L"", L"", unit, line, 0))
#define TSL_ASSERT_LAST_ERROR(cond, unit, line)                                              \
  ((cond) ? (void)0                                                                          \
          : (void)::Tsl::GenerateInternalError(::Tsl::IE_AssertLastError, L"", L"", unit, line, \
                                               ::GetLastError()))
#define TSL_PRESUME(cond, unit, line) \
  ((cond) ? (void)0 : (void)::Tsl::GenerateInternalError(::Tsl::IE_Presume, L"", L"", unit, line, 0))
#define TSL_PRESUME_LAST_ERROR(cond, unit, line)                                               \
  ((cond) ? (void)0                                                                            \
          : (void)::Tsl::GenerateInternalError(::Tsl::IE_PresumeLastError, L"", L"", unit, line, \
                                               ::GetLastError()))
// An unconditional internal error, for a branch that must never be taken.
#define TSL_INTERNAL_ERROR(unit, line) \
  ((void)::Tsl::GenerateInternalError(::Tsl::IE_Assert, L"", L"", unit, line, 0))
