// Tessels library state: the debug flags word.
#include "tessels.h"

namespace Tsl {

// Written at start by the library's initialisation, read from any thread after.
static volatile uint32_t debugFlags = DefaultDebugFlags;

uint32_t GetDebugFlags() { return debugFlags; }

void SetDebugFlags(uint32_t flags) { debugFlags = flags; }

}  // namespace Tsl
