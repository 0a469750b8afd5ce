// The agent's executable: binds the product's services and hands the process
// to the entry road, which takes it to its exit code.
#include <windows.h>

#include "AgentServices.h"
#include "MirdalAgent.h"

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, PWSTR commandText, int show) {
  BindAgentServices(&GetProductAgentServices());
  return AgentEntry(instance, previous, commandText, show);
}
