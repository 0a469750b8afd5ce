// The foundation's state that must exist before main and until the very end:
// the default texts of the messages that work without resources, the fixed
// texts of out-of-memory and double errors (made once, before main, so that
// showing them later allocates nothing), the library state and the module table.
#include <new>

#include "array.h"
#include "classregistry.h"
#include "errors.h"
#include "services.h"
#include "tessels.h"

namespace Tsl {

namespace {

struct CDefaultTextEntry {
  const wchar_t* name;
  const wchar_t* text;
};

const CDefaultTextEntry defaultTextTable[] = {
    {L"MSG_INTERNAL_ERROR", L"Internal Program Error:\n%0, %1."},
    {L"MSG_INTERNAL_ERROR_WITH_CODE", L"Internal Program Error:\n%0, %1.\nError code: %2"},
    {L"MSG_ASSERT", L"Internal Program Error:\nAssertion failed: ( %0 )\n%2, %3.\n( %1 )."},
    {L"MSG_PRESUME", L"Internal Program Error:\nPresumption failed: ( %0 )\n%2, %3.\n( %1 )."},
    {L"MSG_ASSERTLASTERROR",
     L"Internal Program Error:\nAssertion failed: ( %0 )\n%2, %3.\n( %1 ).\nError code: %4 - %5"},
    {L"MSG_PRESUMELASTERROR",
     L"Internal Program Error:\nPresumption failed: ( %0 )\n%2, %3.\n( %1 ).\nError code: %4 - %5"},
};
const int defaultTextCount = sizeof defaultTextTable / sizeof defaultTextTable[0];

struct CStaticTexts {
  CUnicodeString defaults[defaultTextCount];
  CUnicodeString notEnoughMemory{L"Not enough memory!"};
  CUnicodeString doubleError{L"Double internal error!\nApplication terminated."};
  CUnicodeString unhandled{L"Unhandled Internal Error"};

  CStaticTexts() {
    for (int i = 0; i < defaultTextCount; ++i) defaults[i] = defaultTextTable[i].text;
  }
};

// The texts are built on first use and never destroyed: a failure during
// static destruction still finds them. The object below makes sure that the
// first use happens before main, whatever the order of static construction.
const CStaticTexts& Texts() {
  alignas(CStaticTexts) static unsigned char storage[sizeof(CStaticTexts)];
  static const CStaticTexts* texts = new (storage) CStaticTexts;
  return *texts;
}

struct CBuildBeforeMain {
  CBuildBeforeMain() { Texts(); }
} buildBeforeMain;

}  // namespace

const CUnicodeString* GetDefaultMessageText(const wchar_t* messageName) {
  if (messageName == nullptr) return nullptr;
  for (int i = 0; i < defaultTextCount; ++i)
    if (wcscmp(defaultTextTable[i].name, messageName) == 0) return &Texts().defaults[i];
  return nullptr;
}

const CUnicodeString& NotEnoughMemoryText() { return Texts().notEnoughMemory; }
const CUnicodeString& DoubleInternalErrorText() { return Texts().doubleError; }
const CUnicodeString& UnhandledInternalErrorText() { return Texts().unhandled; }

// ---------------------------------------------------------------------------
// Library state and log

namespace {
volatile LONG libraryState = LS_NotInitialised;
TesselLogWriter volatile logWriter = nullptr;
}  // namespace

int32_t GetLibraryState() { return libraryState; }

void SetLibraryState(int32_t state) { ::InterlockedExchange(&libraryState, state); }

TesselLogWriter BindTesselLogWriter(TesselLogWriter writer) {
  return reinterpret_cast<TesselLogWriter>(::InterlockedExchangePointer(
      reinterpret_cast<void* volatile*>(const_cast<TesselLogWriter*>(&logWriter)),
      reinterpret_cast<void*>(writer)));
}

void LogTesselLine(const CUnicodeString& line) {
  TesselLogWriter writer = logWriter;
  if (writer != nullptr) writer(line);
}

// ---------------------------------------------------------------------------
// Module table

namespace {

// Filled from static objects of any unit and by loads on any thread, and
// kept for the whole process: it lives on the process heap, made on first use.
typedef CArray<CModuleRecord, ProcessHeap> CModuleTable;

CModuleTable& Modules() {
  static CModuleTable table;
  return table;
}

int32_t FindModule(HMODULE handle) {
  CModuleTable& table = Modules();
  for (int32_t i = 0; i < table.GetSize(); ++i)
    if (table[i].handle == handle) return i;
  return -1;
}

CUnicodeString ModuleInitLine(const CModuleRecord& record) {
  if (record.isStatic) {
    CUnicodeString line;
    line.Format(L"Tessel: Initializing static module with address %p", static_cast<void*>(record.handle));
    return line;
  }
  wchar_t path[MAX_PATH + 1] = L"";
  ::GetModuleFileNameW(record.handle, path, MAX_PATH + 1);
  return CUnicodeString(L"Tessel: Initializing ") + path;
}

}  // namespace

void AddStaticModule(HMODULE handle, ModuleFunction initFunction, ModuleFunction termFunction) {
  CModulesLock lock;
  int32_t index = FindModule(handle);
  if (index < 0) {
    CModuleRecord record = {handle, 0, nullptr, nullptr, false, true};
    index = Modules().Add(record);
  }
  CModuleRecord& record = Modules()[index];
  record.initFunction = initFunction;
  record.termFunction = termFunction;
  record.isStatic = true;
}

void RecordLoadedModule(HMODULE handle) {
  TSL_ASSERT(handle != nullptr, L"dlltools", 62);
  if (handle == nullptr) return;
  {
    CModulesLock lock;
    int32_t index = FindModule(handle);
    if (index < 0) {
      CModuleRecord record = {handle, 0, nullptr, nullptr, false, false};
      index = Modules().Add(record);
    }
    ++Modules()[index].loadCount;
  }
  // A module loaded late is initialised at once, as the start would have.
  if (IsLibraryRunning()) InitModules();
}

void RecordModuleFree(HMODULE handle) {
  CModulesLock lock;
  int32_t index = FindModule(handle);
  if (index >= 0 && Modules()[index].loadCount > 0) --Modules()[index].loadCount;
}

void InitModules() {
  for (int32_t i = 0;; ++i) {
    CModuleRecord record;
    {
      CModulesLock lock;
      if (i >= Modules().GetSize()) return;
      if (Modules()[i].initialised) continue;
      Modules()[i].initialised = true;
      record = Modules()[i];
    }
    if (record.initFunction == nullptr) continue;
    LogTesselLine(ModuleInitLine(record));
    record.initFunction();
  }
}

void TerminateModules() {
  // The end functions, last module first; one failure doesn't keep the
  // others from ending.
  for (int32_t i = GetModuleCount() - 1; i >= 0; --i) {
    ModuleFunction term = nullptr;
    {
      CModulesLock lock;
      if (i >= Modules().GetSize() || !Modules()[i].initialised) continue;
      Modules()[i].initialised = false;
      term = Modules()[i].termFunction;
    }
    if (term == nullptr) continue;
    try {
      term();
    } catch (CException* failure) {
      ReportException(failure);
      delete failure;
    }
  }
  // Freeing runs on a snapshot: a library's detach code may load or record.
  CModuleTable snapshot;
  {
    CModulesLock lock;
    snapshot = Modules();
  }
  for (int32_t i = snapshot.GetSize() - 1; i >= 0; --i) {
    if (snapshot[i].isStatic) continue;
    for (int32_t n = 0; n < snapshot[i].loadCount; ++n) ::FreeLibrary(snapshot[i].handle);
  }
  CModulesLock lock;
  CModuleTable& table = Modules();
  for (int32_t i = table.GetSize() - 1; i >= 0; --i) {
    table[i].loadCount = 0;
    if (table[i].isStatic) continue;
    wchar_t path[MAX_PATH + 1];
    if (::GetModuleFileNameW(table[i].handle, path, MAX_PATH + 1) == 0) table.DeleteAt(i);
  }
}

int32_t GetModuleCount() {
  CModulesLock lock;
  return Modules().GetSize();
}

bool GetModuleRecord(int32_t index, CModuleRecord& record) {
  CModulesLock lock;
  if (index < 0 || index >= Modules().GetSize()) return false;
  record = Modules()[index];
  return true;
}

}  // namespace Tsl
