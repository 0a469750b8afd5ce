// Tessels, the foundation library of the product: its debug flags, and (as the
// library grows) its start and end. Every unit of the foundation includes this.
#pragma once

#include <stdint.h>

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


// The flags as they stand below `keyPath` of HKEY_CURRENT_USER, starting
// from the defaults: a missing, empty or non-text value keeps a flag's
// default, a boolean word sets or clears it, and any other text clears it.
// The start reads "Software\Tavix\Tessels".
uint32_t ReadDebugFlags(const wchar_t* keyPath);

// The library's start: debug flags, handlers, paths, registry roots (either
// key may be null: "Software\Tavix\" and the program's name), resource
// base, modules. Starts nest: only the first acts, a later one initialises
// modules loaded since. True while the library runs; false when a module's
// initialisation failed (reported once) or the library cannot run.
bool InitTessels(const wchar_t* userKey, const wchar_t* machineKey);
// The end of the last matching start: message files, modules, temporary
// files, file systems, handlers, resource base. Does nothing unless running.
void DoneTessels();
// Starts not yet matched by an end.
int32_t GetInitCount();

// A line of TesselLog.txt beside the library, while the machine-wide
// WriteMessageLog setting is on (read at every line). A file error passes.
void WriteTesselLog(const CUnicodeString& text);
// A printf-style line to the debugger, unless DF_QuietDebugTrace is set.
void DebugTrace(const wchar_t* format, ...);

// The resource library at `path`, loaded and registered before the start;
// a library that cannot be loaded is ERR_CANT_LOAD_DLL with the path and the
// system's text.
void RegisterResourceModule(const CUnicodeString& path);
// Resource libraries `prefix`N.dll in `folder`, one per language.
void RegisterResourcePrefix(const CUnicodeString& folder, const CUnicodeString& prefix);

// Cached answers about the system.
bool IsWow64();
bool IsWindowsXpOrLater();
bool IsVistaOrLater();

// Folder of the module that holds the library (the program itself, as the
// library is linked in), with a trailing separator.
CUnicodeString GetModuleFolder();

}  // namespace Tsl
