// The exports of MdHook.dll, as its users find them by name with
// GetProcAddress: the agent (and tests) load the library at run time.
#pragma once

#include <windows.h>

// Installs the trigger hooks; nonzero when they are in place (also when
// another engine of the session holds them and this one stands by).
typedef BOOL (*RegisterHookFunction)();
// Removes the hooks; call before unloading the library.
typedef void (*UnregisterHookFunction)();
// Tests only: drops the low-level hooks behind the library's back, as the
// system does with a hook that was too slow. Nonzero when there were hooks.
typedef BOOL (*DropHooksForTestsFunction)();

const char RegisterHookExport[] = "RegisterHook";
const char UnregisterHookExport[] = "UnregisterHook";
const char DropHooksForTestsExport[] = "DropHooksForTests";
