// The system-wide keyboard and mouse hooks behind the hook library and the
// 64-bit sibling: a thread of their own that installs the low-level hooks,
// recognises the triggers that the atoms allow and reports them to the
// agent's window. Free of the foundation: it runs without the library start.
#pragma once

#include <windows.h>

namespace HookEngine {

// Starts the hook thread, unless it runs already, and waits until it has
// either installed the hooks or found another instance of the engine (in
// this or any other process of the session, of either bitness) that holds
// them and will go on standby behind it. Returns true in both cases; false
// when the system refused a hook or the thread.
bool Start();

// Removes the hooks and ends the thread; a standby engine behind this one
// then takes over. Does nothing when the engine isn't running.
void Stop();

// For tests: removes the low-level hooks as the system does when a callback
// was too slow, without the engine's knowledge, so that its recovery can be
// watched. Returns false when the engine isn't running or holds no hooks.
bool DropHooksSilently();

}  // namespace HookEngine
