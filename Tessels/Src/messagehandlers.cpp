// The message handlers: selection of the sink, the route of every shown text
// and reported failure, and the three sinks (boxes, console or redirected
// output, event log) with the answers a box would give.
#include "messagehandlers.h"

#include "errors.h"
#include "resourceinfo.h"
#include "services.h"
#include "tessels.h"
#include "versioninfo.h"

namespace Tsl {

namespace {

const wchar_t* const unitName = L"messagehandlers";

struct CBoxAnswer {
  uint16_t eventType;
  int results[3];  // first, second and third default button
};

// By the button type in the low four bits of the flags.
const CBoxAnswer boxAnswers[] = {
    {4, {IDOK, IDOK, IDOK}},              // MB_OK
    {2, {IDOK, IDCANCEL, IDOK}},          // MB_OKCANCEL
    {1, {IDABORT, IDRETRY, IDIGNORE}},    // MB_ABORTRETRYIGNORE
    {4, {IDYES, IDNO, IDCANCEL}},         // MB_YESNOCANCEL
    {4, {IDYES, IDNO, IDYES}},            // MB_YESNO
    {1, {IDRETRY, IDCANCEL, IDRETRY}},    // MB_RETRYCANCEL
};
const uint32_t boxAnswerCount = sizeof boxAnswers / sizeof boxAnswers[0];

struct CLockHolder {
  CLockHolder() { ::InitializeCriticalSection(&section); }
  CRITICAL_SECTION section;
};

// handlerLock: guards the selection and is held across every show, so that
// one box at a time comes from this route. Never destroyed: messages may be
// shown during static destruction.
CRITICAL_SECTION& HandlerLock() {
  alignas(CLockHolder) static unsigned char storage[sizeof(CLockHolder)];
  static CLockHolder* holder = new (storage) CLockHolder;
  return holder->section;
}

CRITICAL_SECTION& TitleLock() {
  alignas(CLockHolder) static unsigned char storage[sizeof(CLockHolder)];
  static CLockHolder* holder = new (storage) CLockHolder;
  return holder->section;
}

class CHandlerLock {
 public:
  CHandlerLock() { ::EnterCriticalSection(&HandlerLock()); }
  ~CHandlerLock() { ::LeaveCriticalSection(&HandlerLock()); }
  CHandlerLock(const CHandlerLock&) = delete;
  CHandlerLock& operator=(const CHandlerLock&) = delete;
};

thread_local CMessageHandler* threadHandler = nullptr;
CMessageHandler* applicationHandler = nullptr;
// The default, once chosen; `defaultGone` once its object died, after which
// the plain box stands in.
CMessageHandler* defaultHandler = nullptr;
bool defaultChosen = false;

CUnicodeString* applicationTitle = nullptr;  // on the runtime heap, kept to the end

int32_t FileTypeOf(HANDLE output) {
  if (output == nullptr || output == INVALID_HANDLE_VALUE) return 0;
  return int32_t(::GetFileType(output) & ~0x8000u);
}

// Every "\n" not after "\r" becomes "\r\n", and a line end closes the text.
CUnicodeString NormaliseLines(const CUnicodeString& text) {
  CUnicodeString result;
  result.Reserve(text.Length() + 2);
  for (int32_t i = 0; i < text.Length(); ++i) {
    if (text[i] == L'\n' && (i == 0 || text[i - 1] != L'\r')) result += L'\r';
    result += text[i];
  }
  result += L"\r\n";
  return result;
}

}  // namespace

// The sinks the executable can name. Static objects: whichever dies takes
// itself out of the selection.
CMessageBoxHandler messageBoxHandler;
CConsoleMessageHandler consoleHandler;

CEventLogMessageHandler& EventLogHandler() {
  static CEventLogMessageHandler handler;
  return handler;
}

int DefaultBoxResult(uint32_t flags) {
  uint32_t type = flags & 0xF;
  if (type >= boxAnswerCount) return 3;
  if (flags & MB_DEFBUTTON3) return boxAnswers[type].results[2];
  if (flags & MB_DEFBUTTON2) return boxAnswers[type].results[1];
  return boxAnswers[type].results[0];
}

CMessageHandler* HandlerByName(const CUnicodeString& name) {
  if (name.CompareNoCase(L"EVENTLOG") == 0) return &EventLogHandler();
  if (name.CompareNoCase(L"MESSAGEBOX") == 0) return &messageBoxHandler;
  if (name.CompareNoCase(L"CONSOLE") == 0) return &consoleHandler;
  return nullptr;
}

// The executable's own choice, else what its standard output is: a program
// started with an output (console, file, pipe) writes there, a windowed one
// gets boxes.
CMessageHandler* ChooseHandler(const CUnicodeString& versionFile, HANDLE standardOutput) {
  CVersionInfo version;
  version.Load(versionFile);
  if (CMessageHandler* named = HandlerByName(version.GetStringValue(L"MessageHandler"))) return named;
  int32_t type = FileTypeOf(standardOutput);
  if (type == FILE_TYPE_DISK || type == FILE_TYPE_CHAR || type == FILE_TYPE_PIPE) return &consoleHandler;
  return &messageBoxHandler;
}

CMessageHandler* GetCurrentHandler() {
  CHandlerLock lock;
  if (threadHandler != nullptr) return threadHandler;
  if (applicationHandler != nullptr) return applicationHandler;
  if (!defaultChosen) {
    wchar_t path[MAX_PATH + 1] = L"";
    ::GetModuleFileNameW(nullptr, path, MAX_PATH + 1);
    defaultHandler = ChooseHandler(path, ::GetStdHandle(STD_OUTPUT_HANDLE));
    defaultChosen = true;
  }
  return defaultHandler;
}

CMessageHandler* SetApplicationHandler(CMessageHandler* handler) {
  CHandlerLock lock;
  CMessageHandler* previous = applicationHandler;
  applicationHandler = handler;
  return previous;
}

CMessageHandler* SetThreadHandler(CMessageHandler* handler) {
  CMessageHandler* previous = threadHandler;
  threadHandler = handler;
  return previous;
}

void ResetDefaultHandler() {
  CHandlerLock lock;
  defaultHandler = nullptr;
  defaultChosen = false;
}

CUnicodeString GetApplicationTitle() {
  ::EnterCriticalSection(&TitleLock());
  CUnicodeString title = applicationTitle != nullptr ? *applicationTitle : CUnicodeString();
  ::LeaveCriticalSection(&TitleLock());
  return title.IsEmpty() ? CUnicodeString(L"Tessels") : title;
}

void SetApplicationTitle(const CUnicodeString& title) {
  CRuntimeHeapSwitch onRuntimeHeap;
  ::EnterCriticalSection(&TitleLock());
  if (applicationTitle == nullptr) applicationTitle = new CUnicodeString;
  *applicationTitle = title;
  ::LeaveCriticalSection(&TitleLock());
}

// ---------------------------------------------------------------------------
// The base

CMessageHandler::~CMessageHandler() {
  CHandlerLock lock;
  if (defaultHandler == this) defaultHandler = nullptr;  // "none": the plain box from now on
  if (applicationHandler == this) applicationHandler = nullptr;
}

int CMessageHandler::ShowMessageWithIcon(HWND owner, const CUnicodeString& text, const CUnicodeString& title,
                                         uint32_t flags, const wchar_t*) {
  return ShowMessage(owner, text, title, flags);
}

void CMessageHandler::ShowException(CException* exception) {
  CRuntimeHeapSwitch onRuntimeHeap;
  CThreadErrorState& state = GetThreadErrorState();
  CThreadErrorState saved = state;
  // A failure while showing a failure: nothing sensible is left to show.
  if (state.showingError) EndWithDoubleError();
  state.showingError = true;  // inError stays as it was
  exception->Show();
  state = saved;
}

// ---------------------------------------------------------------------------
// Boxes

uint32_t CMessageBoxHandler::BoxFlags(HWND owner, uint32_t flags, bool addIcon) {
  uint32_t type = flags & 0xF;
  if (addIcon && (flags & 0xF0) == 0 && (type == 0 || type == 1 || type == 3 || type == 4))
    flags |= MB_ICONEXCLAMATION;
  HWND popup = owner != nullptr ? ::GetLastActivePopup(owner) : nullptr;
  // Without a visible window to carry it, a box of a background program
  // could open hidden behind others.
  if (popup == nullptr || !::IsWindowVisible(popup)) flags |= MB_TASKMODAL | MB_SETFOREGROUND | MB_TOPMOST;
  return flags;
}

int CMessageBoxHandler::ShowMessage(HWND owner, const CUnicodeString& text, const CUnicodeString& title,
                                    uint32_t flags) {
  CRuntimeHeapSwitch onRuntimeHeap;
  return ::MessageBoxW(owner, text.Text(), title.Text(), BoxFlags(owner, flags, true));
}

int CMessageBoxHandler::ShowMessageWithIcon(HWND owner, const CUnicodeString& text,
                                            const CUnicodeString& title, uint32_t flags, const wchar_t* iconId) {
  CRuntimeHeapSwitch onRuntimeHeap;
  MSGBOXPARAMSW params = {};
  params.cbSize = sizeof params;
  params.hwndOwner = owner;
  params.lpszText = text.Text();
  params.lpszCaption = title.Text();
  if (iconId == nullptr) {
    params.dwStyle = BoxFlags(owner, flags, true);
  } else {
    params.dwStyle = (BoxFlags(owner, flags, false) & ~0x70u) | MB_USERICON;
    params.hInstance = FindResourceModule(iconId, RT_GROUP_ICON);
    TSL_ASSERT(params.hInstance != nullptr, unitName, 247);
    params.lpszIcon = iconId;
  }
  return ::MessageBoxIndirectW(&params);
}

// ---------------------------------------------------------------------------
// Console and redirected output

CConsoleMessageHandler::CConsoleMessageHandler()
    : output(::GetStdHandle(STD_OUTPUT_HANDLE)), writeAnsi(true), prepared(false) {
  ::InitializeCriticalSection(&lock);
  fileType = FileTypeOf(output);
}

CConsoleMessageHandler::~CConsoleMessageHandler() { ::DeleteCriticalSection(&lock); }

// A file that already holds UTF-16 with its mark gets more of the same; a
// new file, or one in another form, gets the system's ANSI text.
void CConsoleMessageHandler::Prepare() {
  prepared = true;
  if (fileType == FILE_TYPE_CHAR) {
    writeAnsi = false;
  } else if (fileType == FILE_TYPE_DISK) {
    LONG high = 0;
    DWORD position = ::SetFilePointer(output, 0, &high, FILE_CURRENT);
    if (position == 0 && high == 0) {
      writeAnsi = true;
    } else {
      unsigned char mark[2] = {};
      DWORD read = 0;
      LONG zero = 0;
      ::SetFilePointer(output, 0, &zero, FILE_BEGIN);
      bool marked = ::ReadFile(output, mark, 2, &read, nullptr) && read == 2 && mark[0] == 0xFF && mark[1] == 0xFE;
      ::SetFilePointer(output, LONG(position), &high, FILE_BEGIN);
      writeAnsi = !marked;
    }
  } else {
    writeAnsi = true;
  }
}

int CConsoleMessageHandler::ShowMessage(HWND, const CUnicodeString& text, const CUnicodeString&, uint32_t flags) {
  ::EnterCriticalSection(&lock);
  if (!prepared) Prepare();
  CUnicodeString lines = NormaliseLines(text);
  DWORD written = 0;
  // Failures of writing are ignored: this sink has nobody left to tell.
  if (fileType == FILE_TYPE_CHAR) {
    ::WriteConsoleW(output, lines.Text(), DWORD(lines.Length()), &written, nullptr);
  } else if (writeAnsi) {
    CString narrow = lines.ToNarrow();
    ::WriteFile(output, narrow.Text(), DWORD(narrow.Length()), &written, nullptr);
  } else {
    ::WriteFile(output, lines.Text(), DWORD(lines.Length()) * 2, &written, nullptr);
  }
  ::LeaveCriticalSection(&lock);
  return DefaultBoxResult(flags);
}

// ---------------------------------------------------------------------------
// Event log

CEventLogMessageHandler::CEventLogMessageHandler() : source(nullptr) { ::InitializeCriticalSection(&lock); }

CEventLogMessageHandler::~CEventLogMessageHandler() {
  if (source != nullptr) ::DeregisterEventSource(source);
  ::DeleteCriticalSection(&lock);
}

uint16_t CEventLogMessageHandler::EventType(uint32_t flags) {
  switch (flags & 0xF0) {
    case MB_ICONHAND:
      return EVENTLOG_ERROR_TYPE;
    case MB_ICONQUESTION:
    case MB_ICONASTERISK:
      return EVENTLOG_INFORMATION_TYPE;
    case MB_ICONEXCLAMATION:
      return EVENTLOG_WARNING_TYPE;
    case 0:
      return (flags & 0xF) < boxAnswerCount ? boxAnswers[flags & 0xF].eventType : EVENTLOG_INFORMATION_TYPE;
    default:
      return EVENTLOG_INFORMATION_TYPE;
  }
}

void CEventLogMessageHandler::Register() {
  CUnicodeString name = GetApplicationTitle();
  CUnicodeString keyPath = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + name;
  HKEY key = nullptr;
  // A user who may not write there still gets the source, without texts.
  if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath.Text(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) ==
      ERROR_SUCCESS) {
    wchar_t folder[MAX_PATH + 1] = L"";
    HMODULE self = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<const wchar_t*>(&DefaultBoxResult), &self);
    ::GetModuleFileNameW(self, folder, MAX_PATH + 1);
    CUnicodeString file(folder);
    file = file.Left(file.ReverseFind(L'\\') + 1) + L"TslEventSrc.dll";
    ::RegSetValueExW(key, L"EventMessageFile", 0, REG_SZ, reinterpret_cast<const BYTE*>(file.Text()),
                     DWORD(file.Length() + 1) * 2);
    ::RegCloseKey(key);
  }
  TSL_ASSERT(source == nullptr, unitName, 471);
  sourceName = name;
  source = ::RegisterEventSourceW(nullptr, name.Text());
}

void CEventLogMessageHandler::Write(uint16_t type, const CUnicodeString& title, const CUnicodeString& text) {
  ::EnterCriticalSection(&lock);
  if (source == nullptr) Register();
  if (source != nullptr) {
    const wchar_t* strings[2] = {title.Text(), text.Text()};
    ::ReportEventW(source, type, 0, 1, nullptr, 2, 0, strings, nullptr);
  }
  ::LeaveCriticalSection(&lock);
}

int CEventLogMessageHandler::ShowMessage(HWND, const CUnicodeString& text, const CUnicodeString& title,
                                         uint32_t flags) {
  Write(EventType(flags), title, text);
  return DefaultBoxResult(flags);
}

void CEventLogMessageHandler::ShowException(CException* exception) {
  if (dynamic_cast<CUserException*>(exception) != nullptr) return;
  CRuntimeHeapSwitch onRuntimeHeap;
  Write(EVENTLOG_ERROR_TYPE, sourceName.IsEmpty() ? GetApplicationTitle() : sourceName,
        exception->GetMessageText());
}

// ---------------------------------------------------------------------------
// The route

namespace {

class CMessageServices : public IFoundationServices {
 public:
  bool GetMessageText(const wchar_t* messageName, CUnicodeString& text) override {
    return IsLibraryRunning() && GetModuleMessageText(messageName, text);
  }

  int ShowMessage(const CUnicodeString& text, uint32_t flags) override {
    CRuntimeHeapSwitch onRuntimeHeap;
    CUnicodeString title = GetApplicationTitle();
    CHandlerLock lock;
    // Everything shown is also in the library's log.
    LogTesselLine(text);
    CMessageHandler* handler = GetCurrentHandler();
    if (handler != nullptr) return handler->ShowMessage(nullptr, text, title, flags);
    return ::MessageBoxW(nullptr, text.Text(), L"Tessels", flags);
  }

  void ReportException(CException* exception) override {
    CHandlerLock lock;
    if (dynamic_cast<CUserException*>(exception) == nullptr) {
      CRuntimeHeapSwitch onRuntimeHeap;
      LogTesselLine(exception->GetMessageText());
    }
    CMessageHandler* handler = GetCurrentHandler();
    if (handler != nullptr) handler->ShowException(exception);
  }
};

CMessageServices messageServices;

}  // namespace

void InstallMessageServices() { BindFoundationServices(&messageServices); }

// Only this route is taken down: another binding (a test's) stays.
void RemoveMessageServices() {
  IFoundationServices* previous = BindFoundationServices(nullptr);
  if (previous != &messageServices) BindFoundationServices(previous);
}

}  // namespace Tsl
