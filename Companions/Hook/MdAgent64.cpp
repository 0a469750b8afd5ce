// MdAgent64.exe, the 64-bit sibling of the 32-bit agent: started by the agent
// on 64-bit Windows with no arguments, it holds the 64-bit hook for as long as
// it runs, and ends when the agent posts Md16_Close_Agent64 to its window.
#include <windows.h>

#include "HookEngine.h"
#include "MdMessages.h"

namespace {

// The window exists to be found by its class and to receive the close
// request; it is never shown.
LRESULT CALLBACK Agent64WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == Md16_Close_Agent64 || message == WM_DESTROY) {
    ::PostQuitMessage(0);
    return 0;
  }
  if (message == WM_ENDSESSION && wParam) {
    ::DestroyWindow(window);
    return 0;
  }
  return ::DefWindowProcW(window, message, wParam, lParam);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
  // A sibling left behind by an agent that crashed still holds the hook, and
  // the agent's close request reaches only one window: a second one has
  // nothing to add.
  if (::FindWindowW(Agent64WindowClass, nullptr) != nullptr) return 0;

  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = Agent64WindowProc;
  windowClass.hInstance = instance;
  windowClass.lpszClassName = Agent64WindowClass;
  if (::RegisterClassW(&windowClass) == 0) return 1;
  // Top-level, not message-only: the agent finds it with FindWindowW, which
  // doesn't see message-only windows.
  HWND window = ::CreateWindowExW(WS_EX_TOOLWINDOW, Agent64WindowClass, L"", WS_POPUP, 0, 0, 0, 0,
                                  nullptr, nullptr, instance, nullptr);
  if (window == nullptr) return 1;

  // A failed start leaves the sibling running without hooks, as the agent
  // would leave itself; the agent closes it as usual.
  if (!HookEngine::Start()) ::OutputDebugStringW(L"MdAgent64: the hooks could not be installed\n");

  MSG msg;
  while (::GetMessageW(&msg, nullptr, 0, 0) > 0) {
    ::TranslateMessage(&msg);
    ::DispatchMessageW(&msg);
  }
  HookEngine::Stop();
  if (::IsWindow(window)) ::DestroyWindow(window);
  return 0;
}
