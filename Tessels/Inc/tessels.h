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

}  // namespace Tsl
