// A hook library that hooks nothing: the agent's tests load it in place of
// the real one to see which of its exports the agent calls, how often, and
// what the agent makes of each answer of RegisterHook.
#include <windows.h>

namespace {

// The library lives in the test's own process; one thread at a time uses it.
int registerAnswer = 1;
int registerCalls = 0;
int unregisterCalls = 0;

}  // namespace

extern "C" {

// The whole answer is returned: the agent is to look at its low byte only.
__declspec(dllexport) int RegisterHook() {
  ++registerCalls;
  return registerAnswer;
}

__declspec(dllexport) void UnregisterHook() { ++unregisterCalls; }

__declspec(dllexport) void ProbeSetRegisterAnswer(int answer) { registerAnswer = answer; }
__declspec(dllexport) int ProbeRegisterCalls() { return registerCalls; }
__declspec(dllexport) int ProbeUnregisterCalls() { return unregisterCalls; }

}  // extern "C"
