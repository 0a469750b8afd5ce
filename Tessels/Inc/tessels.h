// Tessels, the foundation library of the product: its debug flags, its state
// and the table of its modules (linked-in and loaded libraries that the start
// initialises and the end takes down). Every unit of the foundation includes this.
#pragma once

#include <stdint.h>
#include <windows.h>

#include "unicodestring.h"

namespace Tsl {

// The process-wide debug flags. Each named flag is read once at start from
// HKEY_CURRENT_USER\Software\Tavix\Tessels; until then the defaults hold.
enum EDebugFlag : uint32_t {
  DF_KeepTempFiles = 0x1,
  DF_SaveUndefinedMessages = 0x2,
  DF_EnableHeapSwitching = 0x8,
  DF_ShowHeapMemoryLeaks = 0x10,
  DF_BreakOnMemoryException = 0x20,
  DF_UnloadLibraries = 0x80,
  // The deployed registry value is spelled "CheckAllResourceModulesExistance".
  DF_CheckAllResourceModulesExistence = 0x100,
  DF_ReportMemoryErrorInMessageBox = 0x200,
  DF_SaveAllMessages = 0x400,
  DF_CheckMessagesParamsCount = 0x800,
  // Unnamed bits, never read from the registry: 0x4 walks a leaking heap and
  // traces each undeleted block, 0x2000 silences the debug-output trace, and
  // 0x40 is set by default and tested nowhere.
  DF_WalkLeakedBlocks = 0x4,
  DF_QuietDebugTrace = 0x2000,
};

const uint32_t DefaultDebugFlags = 0x48;

uint32_t GetDebugFlags();
void SetDebugFlags(uint32_t flags);
inline bool IsDebugFlagSet(EDebugFlag flag) { return (GetDebugFlags() & flag) != 0; }

// The registry keys under which the running library keeps the program's
// per-user and machine-wide settings (relative settings are read below them).
// Legal only while the library runs: internal error at line 426 otherwise.
CUnicodeString GetUserSettingsKey();
CUnicodeString GetMachineSettingsKey();

// The library's state, process-wide. Only the lifecycle unit changes it;
// anything may ask, and text look-up works only while it is LS_Running.
enum ELibraryState : int32_t {
  LS_NotInitialised = 0,
  LS_Initialising = 1,
  LS_Running = 2,
  LS_ModuleInitFailed = 3,
  LS_Terminated = 4,
};

int32_t GetLibraryState();
void SetLibraryState(int32_t state);
inline bool IsLibraryRunning() { return GetLibraryState() == LS_Running; }

// Where the library's own log lines go. The lifecycle unit binds its writer;
// unbound, lines are dropped. Returns the writer it replaced.
typedef void (*TesselLogWriter)(const CUnicodeString& line);
TesselLogWriter BindTesselLogWriter(TesselLogWriter writer);
void LogTesselLine(const CUnicodeString& line);

// One module of the library: a library loaded through LoadLibraryInternal
// (null functions), or a linked-in module with its own start and end.
typedef void (*ModuleFunction)();
struct CModuleRecord {
  HMODULE handle;
  int32_t loadCount;            // loads through LoadLibraryInternal not yet freed
  ModuleFunction initFunction;  // may be null; called once while the library runs
  ModuleFunction termFunction;  // may be null; called once at the end
  bool initialised;             // initFunction was called (or would have been)
  bool isStatic;                // linked in, not loaded: never freed
};

// The table is guarded by the modules lock of the class registry
// (CModulesLock); every function below takes it itself.

// Adds a linked-in module, before the library starts or while it runs (the
// next InitModules initialises it). A handle already in the table becomes
// static and takes the functions.
void AddStaticModule(HMODULE handle, ModuleFunction initFunction, ModuleFunction termFunction);

// Records one load of `handle`: a new handle gets a record with null
// functions and a count of 0; the count then grows by one. Then, while the
// library runs, initialises what isn't yet.
void RecordLoadedModule(HMODULE handle);

// Records that one load of `handle` was given back by its loader.
void RecordModuleFree(HMODULE handle);

// Calls, in table order, the initFunction of every record not yet
// initialised. The calls run outside the lock: a module may load another.
// An exception passes to the caller; the failing record stays initialised.
void InitModules();

// The end: calls termFunction of every initialised record from last to first
// (a failure is reported and the walk goes on), frees each loaded library as
// often as it was loaded, and drops the records of libraries now gone.
void TerminateModules();

// A copy of the table, for the start's log and for tests.
int32_t GetModuleCount();
bool GetModuleRecord(int32_t index, CModuleRecord& record);

}  // namespace Tsl
