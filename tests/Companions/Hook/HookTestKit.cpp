// The hook tests' tools: xdotool through a shell that Wine starts, the
// recording agent window, the program in front, atoms and the library.
#include "HookTestKit.h"

#include "../../../Companions/Hook/MdHook.h"
#include "MdMessages.h"
#include "MdTools/AtomsEmulation.h"

namespace HookTestKit {

const char ChordCtrlCC[] = "keydown ctrl key c key c keyup ctrl";
const char ChordCtrlInsIns[] = "keydown ctrl key Insert key Insert keyup ctrl";

void PumpFor(DWORD ms) {
  DWORD start = ::GetTickCount();
  for (;;) {
    DWORD elapsed = ::GetTickCount() - start;
    if (elapsed >= ms) return;
    ::MsgWaitForMultipleObjects(0, nullptr, FALSE, ms - elapsed, QS_ALLINPUT);
    MSG msg;
    while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      ::TranslateMessage(&msg);
      ::DispatchMessageW(&msg);
    }
  }
}

bool Xdo(const std::string& arguments) {
  static int counter = 0;
  std::string marker =
      "/tmp/mdhook-test-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(++counter);
  std::wstring windowsMarker = L"Z:" + std::wstring(marker.begin(), marker.end());
  for (wchar_t& c : windowsMarker)
    if (c == L'/') c = L'\\';
  std::string command = "Z:\\bin\\sh -c \"xdotool " + arguments + " >/dev/null 2>&1; touch " + marker + "\"";
  std::wstring wide(command.begin(), command.end());
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessW(nullptr, &wide[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
    return false;
  // Wine gives handles that stand for nothing for a Linux program.
  if (process.hProcess != nullptr) ::CloseHandle(process.hProcess);
  if (process.hThread != nullptr) ::CloseHandle(process.hThread);
  for (int i = 0; i < 500; ++i) {
    if (::GetFileAttributesW(windowsMarker.c_str()) != INVALID_FILE_ATTRIBUTES) {
      ::DeleteFileW(windowsMarker.c_str());
      return true;
    }
    PumpFor(20);
  }
  return false;
}

std::string XPoint(int x, int y) {
  // Measured once: put the mouse at a known X point and ask Windows where it is.
  static bool measured = false;
  static int dx = 0, dy = 0;
  if (!measured) {
    Xdo("mousemove 300 300");
    POINT at = {};
    ::GetCursorPos(&at);
    dx = 300 - at.x;
    dy = 300 - at.y;
    measured = true;
  }
  return std::to_string(x + dx) + " " + std::to_string(y + dy);
}

// ---- CAgentWindow ----------------------------------------------------------------

CAgentWindow::CAgentWindow() {
  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = Procedure;
  windowClass.hInstance = ::GetModuleHandleW(nullptr);
  windowClass.lpszClassName = LauncherWindowClass;
  ::RegisterClassW(&windowClass);
  window = ::CreateWindowExW(WS_EX_TOOLWINDOW, LauncherWindowClass, L"", WS_POPUP, 0, 0, 0, 0, nullptr,
                             nullptr, windowClass.hInstance, nullptr);
  ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
}

CAgentWindow::~CAgentWindow() {
  if (window != nullptr) ::DestroyWindow(window);
}

LRESULT CALLBACK CAgentWindow::Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  auto self = reinterpret_cast<CAgentWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
  if (self != nullptr && (message == Md16_Hook_On_Ctrl_Ins_Ins || message == Md16_Hook_On_Mouse_Translate)) {
    self->reports.push_back({message, wParam, lParam});
    return 0;
  }
  return ::DefWindowProcW(window, message, wParam, lParam);
}

bool CAgentWindow::WaitForReports(size_t count, DWORD timeoutMs) {
  DWORD start = ::GetTickCount();
  while (reports.size() < count) {
    if (::GetTickCount() - start >= timeoutMs) return false;
    PumpFor(20);
  }
  return true;
}

// ---- CTypingTarget ---------------------------------------------------------------

// The frame sits at (100, 100) of the screen, 500 by 300; the edit control
// at the top of its client area.
CTypingTarget::CTypingTarget(const wchar_t* text) {
  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = ::DefWindowProcW;
  windowClass.hInstance = ::GetModuleHandleW(nullptr);
  windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
  windowClass.lpszClassName = L"MdHookTestFrame";
  ::RegisterClassW(&windowClass);
  frame = ::CreateWindowExW(0, windowClass.lpszClassName, L"Hook test", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 100,
                            100, 500, 300, nullptr, nullptr, windowClass.hInstance, nullptr);
  edit = ::CreateWindowExW(0, L"EDIT", text, WS_CHILD | WS_BORDER | WS_VISIBLE, 10, 10, 300, 30, frame, nullptr,
                           windowClass.hInstance, nullptr);
  Focus();
}

CTypingTarget::~CTypingTarget() {
  if (frame != nullptr) ::DestroyWindow(frame);
}

POINT CTypingTarget::EmptySpot() const {
  POINT spot = {200, 200};
  ::ClientToScreen(frame, &spot);
  return spot;
}

void CTypingTarget::Focus() {
  ::SetForegroundWindow(frame);
  ::SetFocus(edit);
  ::SendMessageW(edit, EM_SETSEL, 0, -1);
  POINT spot = EmptySpot();
  Xdo("mousemove " + XPoint(spot.x, spot.y));
  PumpFor(100);
}

// ---- Clipboard -------------------------------------------------------------------

namespace {

std::wstring ClipboardText() {
  std::wstring text;
  for (int i = 0; i < 50 && !::OpenClipboard(nullptr); ++i) PumpFor(20);
  HANDLE data = ::GetClipboardData(CF_UNICODETEXT);
  if (data != nullptr) {
    const wchar_t* chars = static_cast<const wchar_t*>(::GlobalLock(data));
    if (chars != nullptr) text = chars;
    ::GlobalUnlock(data);
  }
  ::CloseClipboard();
  return text;
}

}  // namespace

std::wstring WaitForClipboardText(DWORD timeoutMs) {
  DWORD start = ::GetTickCount();
  std::wstring text = ClipboardText();
  while (text.empty() && ::GetTickCount() - start < timeoutMs) {
    PumpFor(20);
    text = ClipboardText();
  }
  return text;
}

void EmptyClipboardNow() {
  for (int i = 0; i < 50 && !::OpenClipboard(nullptr); ++i) PumpFor(20);
  ::EmptyClipboard();
  ::CloseClipboard();
}

// ---- CAtoms ----------------------------------------------------------------------

CAtoms::CAtoms(std::vector<std::wstring> names) : names(std::move(names)) {
  for (const std::wstring& name : this->names) SetAtom(name.c_str());
}

CAtoms::~CAtoms() {
  for (const std::wstring& name : names) ClearAtom(name.c_str());
}

// ---- CHookLibrary ----------------------------------------------------------------

namespace {

// An export of `module` as the function type it has; null when missing.
template <typename Function>
Function Export(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

}  // namespace

CHookLibrary::CHookLibrary() : module(::LoadLibraryW(MIRDAL_PROGRAM_DIR L"MdHook.dll")) {}

CHookLibrary::~CHookLibrary() {
  Unregister();
  if (module != nullptr) ::FreeLibrary(module);
}

bool CHookLibrary::Loaded() const { return module != nullptr; }

bool CHookLibrary::Register() {
  auto function = Export<RegisterHookFunction>(module, RegisterHookExport);
  registered = function != nullptr && function() != FALSE;
  return registered;
}

void CHookLibrary::Unregister() {
  if (!registered) return;
  auto function = Export<UnregisterHookFunction>(module, UnregisterHookExport);
  if (function != nullptr) function();
  registered = false;
}

bool CHookLibrary::DropHooks() {
  auto function = Export<DropHooksForTestsFunction>(module, DropHooksForTestsExport);
  return function != nullptr && function() != FALSE;
}

}  // namespace HookTestKit
