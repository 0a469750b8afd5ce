// Tessels library state: the debug flags word.
#include "tessels.h"

#include "errors.h"

namespace Tsl {

// Written at start by the library's initialisation, read from any thread after.
static volatile uint32_t debugFlags = DefaultDebugFlags;

uint32_t GetDebugFlags() { return debugFlags; }

void SetDebugFlags(uint32_t flags) { debugFlags = flags; }

// The library's start, which sets these keys and its running state, is not
// part of this build yet: until it is, the library never runs, and asking
// for the keys is the error it is before start-up.
CUnicodeString GetUserSettingsKey() {
  TSL_INTERNAL_ERROR(L"tessels", 426);
  return CUnicodeString();
}

CUnicodeString GetMachineSettingsKey() {
  TSL_INTERNAL_ERROR(L"tessels", 426);
  return CUnicodeString();
}

}  // namespace Tsl
