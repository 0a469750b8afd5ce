// Finding the main program's windows and opening the agent's window to the
// messages that lower integrity levels send it. The vocabulary itself is all
// in the header.
#include "MdMessages.h"

#include "errors.h"

namespace {

const wchar_t Unit[] = L"MdMessages";

// The filter's action that lets a message through.
const DWORD MessageFilterAdd = 1;  // MSGFLT_ADD

// Unloads a library loaded for one lookup.
class CLoadedLibrary {
 public:
  explicit CLoadedLibrary(const wchar_t* name) : module(::LoadLibraryW(name)) {}
  ~CLoadedLibrary() {
    if (module != nullptr) ::FreeLibrary(module);
  }
  CLoadedLibrary(const CLoadedLibrary&) = delete;
  CLoadedLibrary& operator=(const CLoadedLibrary&) = delete;

  HMODULE Get() const { return module; }

 private:
  HMODULE module;
};

}  // namespace

HWND FindMirdalWindow(bool mainWindow) {
  HWND window = ::FindWindowW(mainWindow ? MirdalMainWindowClass : MirdalAppWindowClass, nullptr);
  // The program may be closing: a handle found a moment ago can be gone.
  return window != nullptr && ::IsWindow(window) ? window : nullptr;
}

void OpenAgentMessageFilter(ChangeWindowMessageFilterFunction changeFilter) {
  TSL_ASSERT(changeFilter != nullptr, Unit, 60);
  if (changeFilter == nullptr) return;
  // The hook runs in processes of every integrity level and must reach us
  // with its mouse and chord reports and forwarded data; agents of other
  // versions and the shell must reach the instance protocol and the icon.
  // The other Md16_Agent_ messages come from the product's own programs and
  // the window activation report isn't needed from below, so they stay out.
  changeFilter(WM_COPYDATA, MessageFilterAdd);
  changeFilter(Md16_Hook_On_Mouse_Translate, MessageFilterAdd);
  changeFilter(Md16_Hook_On_Ctrl_Ins_Ins, MessageFilterAdd);
  changeFilter(Md16_Hook_On_Ctrl_C_C, MessageFilterAdd);
  changeFilter(MdAgent_New_Mirdal_Instance, MessageFilterAdd);
  changeFilter(MdAgent_Exit_Mirdal_Instance, MessageFilterAdd);
  changeFilter(MdAgent_Get_Version, MessageFilterAdd);
  changeFilter(Md16_Agent_Restore_Tray_Icon, MessageFilterAdd);
  changeFilter(TaskbarCreatedMessage, MessageFilterAdd);
}

void OpenAgentMessageFilter() {
  // Systems before integrity levels have no filter and no such function; the
  // agent must start there all the same, so it is looked up, not imported.
  CLoadedLibrary user32(L"user32.dll");
  if (user32.Get() == nullptr) return;
  auto changeFilter = reinterpret_cast<ChangeWindowMessageFilterFunction>(
      reinterpret_cast<void*>(::GetProcAddress(user32.Get(), "ChangeWindowMessageFilter")));
  if (changeFilter == nullptr) return;
  OpenAgentMessageFilter(changeFilter);
}
