// A small console program with which scripts ask the running agent what a
// user cannot see: its version answer, an atom, a window, and with which they
// send it one of its registered messages. The tour of the product and the
// installer's tests use it; it is not shipped.
//
//   AgentProbe version            prints the agent's answer to MdAgent_Get_Version (0: none)
//   AgentProbe atom <name>        prints 1 when the atom is set, else 0
//   AgentProbe window <class>     prints 1 when a top-level window of the class exists, else 0
//   AgentProbe post <message>     posts the registered message to the agent's window
//
// The exit code is 0 when the question could be asked, 2 for a wrong call.
#include <windows.h>

#include <stdio.h>
#include <wchar.h>

#include "MdMessages.h"
#include "MdTools/AtomsEmulation.h"

namespace {

int Usage() {
  fwprintf(stderr, L"usage: AgentProbe version | atom <name> | window <class> | post <message>\n");
  return 2;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 2) return Usage();
  const wchar_t* verb = argv[1];
  if (wcscmp(verb, L"version") == 0) {
    HWND agent = ::FindWindowW(LauncherWindowClass, nullptr);
    DWORD_PTR answer = 0;
    // A hung agent is an answer too: it gets two seconds.
    if (agent != nullptr &&
        !::SendMessageTimeoutW(agent, MdAgent_Get_Version, 0, 0, SMTO_ABORTIFHUNG, 2000, &answer)) {
      answer = 0;
    }
    wprintf(L"%u\n", unsigned(answer));
    return 0;
  }
  if (argc < 3) return Usage();
  if (wcscmp(verb, L"atom") == 0) {
    wprintf(L"%d\n", IsAtomSet(argv[2]) ? 1 : 0);
    return 0;
  }
  if (wcscmp(verb, L"window") == 0) {
    wprintf(L"%d\n", ::FindWindowW(argv[2], nullptr) != nullptr ? 1 : 0);
    return 0;
  }
  if (wcscmp(verb, L"post") == 0) {
    HWND agent = ::FindWindowW(LauncherWindowClass, nullptr);
    const UINT message = ::RegisterWindowMessageW(argv[2]);
    wprintf(L"%d\n", agent != nullptr && ::PostMessageW(agent, message, 0, 0) ? 1 : 0);
    return 0;
  }
  return Usage();
}
