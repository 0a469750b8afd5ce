// MdHook.dll, the hook library that the agent loads: registers and removes
// the system-wide hooks of the translation triggers. Everything it does runs
// on the engine's own thread; the exports only start and stop it.
#include "MdHook.h"

#include "HookEngine.h"

// The result is 1 or 0 in the whole register, so that callers that read the
// low byte as a bool and callers that read a BOOL both get it right.
extern "C" __declspec(dllexport) BOOL RegisterHook() { return HookEngine::Start() ? TRUE : FALSE; }

// Must run before the library is unloaded: the engine's thread runs code of
// the library.
extern "C" __declspec(dllexport) void UnregisterHook() { HookEngine::Stop(); }

extern "C" __declspec(dllexport) BOOL DropHooksForTests() {
  return HookEngine::DropHooksSilently() ? TRUE : FALSE;
}
