// Hook hosting: loading the hook library and starting the 64-bit sibling,
// the window thread's handling of hook reports and WM_COPYDATA, and the
// worker that carries each report to the main program. The window thread
// only wraps and queues; whatever can take long runs on the worker.
#include "HookHost.h"

#include <string.h>

#include "AgentServices.h"
#include "LauncherOptions.h"
#include "MdMessages.h"
#include "MirdalLaunch.h"
#include "TrayBalloonData.h"
#include "archive.h"
#include "errors.h"
#include "memoryfile.h"
#include "registrykey.h"
#include "services.h"

using Tsl::CPtr;
using Tsl::CUnicodeString;

namespace {

const wchar_t Unit[] = L"MirdalAgent";

// The hook library's two exports, plain C functions without arguments (so one
// type serves either calling convention). RegisterHook's answer is a bool in the low
// byte only: the rest of the register is whatever the library left there.
typedef int (*RegisterHookFunction)();
typedef void (*UnregisterHookFunction)();

// Each window gets this long to answer the broadcast that wakes the hook
// machinery of every program before the hook goes in.
const UINT BroadcastTimeoutMs = 100;

bool IsChord(UINT message) {
  // One number on the wire; both names are tested all the same.
  return message == Md16_Hook_On_Ctrl_Ins_Ins || message == Md16_Hook_On_Ctrl_C_C;
}

// Queues a WM_COPYDATA block for the main program, copied byte by byte: the
// sender's block is gone once the message returns.
void QueueCopyData(IHookWindow& window, const COPYDATASTRUCT& copy) {
  CPtr<CHookMessage> item(new CHookMessage(WM_COPYDATA, 0, 0));
  // A size without bytes is taken as an empty block.
  if (copy.lpData != nullptr && copy.cbData > 0) {
    item->data.Append(static_cast<const uint8_t*>(copy.lpData), int32_t(copy.cbData));
  }
  item->tag = uint32_t(copy.dwData);
  window.GetHookMessages().Put(item);
}

// Reads the balloon request of an MDDB block and shows it. A block that isn't
// one raises the archive's error.
void ShowCopyDataBalloon(IHookWindow& window, const COPYDATASTRUCT& copy) {
  Tsl::CMemoryFileEx<Tsl::RuntimeHeap> file;
  if (copy.lpData != nullptr && copy.cbData > 0) file.Write(copy.lpData, int32_t(copy.cbData));
  file.SeekToBegin();
  Tsl::CArchive archive(&file, Tsl::CArchive::Load, 4096);
  CPtr<CTrayBalloonData> balloon = ReadTrayBalloonData(archive);
  if (balloon.IsNull()) return;
  window.ShowBalloon(balloon->text, balloon->caption, balloon->infoFlags, CopyDataBalloonSeconds);
}

// Hands one report to the main window: hook messages are posted with their
// words unchanged, blocks sent as WM_COPYDATA from the agent's window. With
// no main window the report is gone.
void Forward(HWND agentWindow, HWND target, const CHookMessage& item) {
  if (item.message != WM_COPYDATA) {
    ::PostMessageW(target, item.message, item.wParam, item.lParam);
    return;
  }
  COPYDATASTRUCT copy;
  copy.dwData = item.tag;
  copy.cbData = DWORD(item.data.GetSize());
  // An empty block arrives as a null pointer, not as a pointer to nothing.
  copy.lpData = item.data.GetSize() > 0 ? const_cast<uint8_t*>(item.data.GetData()) : nullptr;
  ::SendMessageW(target, WM_COPYDATA, reinterpret_cast<WPARAM>(agentWindow),
                 reinterpret_cast<LPARAM>(&copy));
}

}  // namespace

// ---- CHookMessage -----------------------------------------------------------------------

CHookMessage::CHookMessage(UINT message, WPARAM wParam, LPARAM lParam)
    : message(message), wParam(wParam), lParam(lParam), tag(0) {}

CHookMessage::~CHookMessage() {}

// ---- CHookHost --------------------------------------------------------------------------

bool IsAgentOnWow64() { return Tsl::CRegistryKey::IsRunningUnderWow64(); }

CHookHost::CHookHost(const CUnicodeString& hookLibraryPath, const CUnicodeString& agent64Path)
    : hookLibraryPath(hookLibraryPath), agent64Path(agent64Path), registerCount(0), hookLibrary(nullptr) {}

CHookHost::~CHookHost() {
  // One Unregister takes the hook away whatever the count was.
  registerCount = 1;
  Unregister();
}

bool CHookHost::StartAgent64() {
  STARTUPINFOW startup;
  memset(&startup, 0, sizeof startup);
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process;
  memset(&process, 0, sizeof process);
  if (!::CreateProcessW(agent64Path.Text(), nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &process)) {
    return false;
  }
  // The sibling is not waited for: its window is looked up only when it is
  // to close.
  if (process.hThread != INVALID_HANDLE_VALUE) ::CloseHandle(process.hThread);
  if (process.hProcess != INVALID_HANDLE_VALUE) ::CloseHandle(process.hProcess);
  return true;
}

bool CHookHost::Register() {
  if (registerCount >= 1) {
    ++registerCount;
    return true;
  }
  if (::GetFileAttributesW(hookLibraryPath.Text()) == INVALID_FILE_ATTRIBUTES) return false;
  if (IsAgentOnWow64()) {
    // Without the sibling there is no hook at all, not even for the 32-bit
    // programs: half a hook would look like a broken one to the user.
    if (::GetFileAttributesW(agent64Path.Text()) == INVALID_FILE_ATTRIBUTES) return false;
    // A sibling is started at each first registration, whether or not one
    // runs already; the sibling itself keeps to one.
    if (!StartAgent64()) return false;
  }
  DWORD_PTR ignored = 0;
  ::SendMessageTimeoutW(HWND_BROADCAST, WM_NULL, 0, 0, SMTO_BLOCK, BroadcastTimeoutMs, &ignored);
  if (hookLibrary == nullptr) {
    hookLibrary = ::LoadLibraryW(hookLibraryPath.Text());
    if (hookLibrary == nullptr) return false;
  }
  RegisterHookFunction registerHook = reinterpret_cast<RegisterHookFunction>(
      reinterpret_cast<void (*)()>(::GetProcAddress(hookLibrary, "RegisterHook")));
  // A library without the export stays loaded; the next try finds it so.
  if (registerHook == nullptr) return false;
  if (uint8_t(registerHook()) != 0) ++registerCount;
  return registerCount > 0;
}

bool CHookHost::Unregister() {
  if (hookLibrary == nullptr || registerCount < 1) return false;
  if (--registerCount > 0) return true;
  UnregisterHookFunction unregisterHook = reinterpret_cast<UnregisterHookFunction>(
      reinterpret_cast<void (*)()>(::GetProcAddress(hookLibrary, "UnregisterHook")));
  if (unregisterHook != nullptr) {
    unregisterHook();
    ::FreeLibrary(hookLibrary);
    // Every program wakes and lets the system unmap the library from it.
    ::PostMessageW(HWND_BROADCAST, WM_NULL, 0, 0);
    hookLibrary = nullptr;
  }
  if (!IsAgentOnWow64()) return true;
  HWND agent64 = ::FindWindowW(Agent64WindowClass, nullptr);
  if (agent64 == nullptr) return false;
  ::PostMessageW(agent64, Md16_Close_Agent64, 0, 0);
  return true;
}

bool CHookHost::ApplyHookState(const CLauncherOptions& options) {
  // Whether this agent is in charge has no say here: the hook stays in every
  // agent and the atoms decide what it reports.
  bool wanted = options.useCtrlCC || options.useCtrlInsIns || options.useMouseClick ||
                options.useMouseCover;
  if (registerCount > 0 && !wanted) return Unregister();
  if (registerCount <= 0 && wanted) return Register();
  return true;
}

// ---- The window's side ------------------------------------------------------------------

bool IsHookMessage(UINT message) {
  return message != 0 && (message == Md16_Hook_On_Mouse_Translate ||
                          message == Md16_Hook_On_Window_Activated || IsChord(message));
}

void OnHookMessage(IHookWindow& window, UINT message, WPARAM wParam, LPARAM lParam) {
  // The chord's program loses the foreground to the agent now, while the
  // keys are fresh; the worker hands the right on to the main program.
  if (IsChord(message)) ::SetForegroundWindow(window.GetWindowHandle());
  if (message == Md16_Hook_On_Mouse_Translate) {
    SetHoverTranslationAllowed(window.GetHoverTranslationEvent(), wParam != 0);
  }
  window.GetHookMessages().Put(CPtr<CHookMessage>(new CHookMessage(message, wParam, lParam)));
}

BOOL OnCopyData(IHookWindow& window, const COPYDATASTRUCT* copy) {
  TSL_ASSERT(copy != nullptr, Unit, 852);
  TSL_ASSERT(window.HasTrayIcon(), Unit, 853);
  if (copy == nullptr || !window.HasTrayIcon()) return FALSE;

  // A balloon needs the icon; the timer takes an icon shown only for this
  // away again. Every tag shows it, known or not.
  if (!window.GetShowTrayWindow()) {
    if (!window.SetTrayIconVisible(true)) return FALSE;
    window.StartIconTimer(BalloonIconTimeMs);
  }

  uint32_t tag = uint32_t(copy->dwData);
  // The block comes from another process and may be anything: a failure to
  // read it is reported, and the agent goes on.
  try {
    if (tag == CopyDataTagBalloon) {
      ShowCopyDataBalloon(window, *copy);
    } else if (tag == CopyDataTagMirdal || tag == CopyDataTagImage) {
      QueueCopyData(window, *copy);
    }
  } catch (Tsl::CException* failure) {
    Tsl::ReportException(failure);
    delete failure;
  }
  return FALSE;
}

DWORD WINAPI HookWorker(void* argument) {
  IHookWindow& window = *static_cast<IHookWindow*>(argument);
  CHookMessageQueue& queue = window.GetHookMessages();
  // The stop is asked before every take: a stopped worker leaves the rest
  // of the queue unread, even what came during a long launch.
  while (!queue.IsStopped()) {
    CPtr<CHookMessage> item;
    if (!queue.Get(item)) return 0;
    TSL_ASSERT(!item.IsNull(), L"Object", 268);
    if (item.IsNull()) continue;

    bool chord = IsChord(item->message);
    if (chord) AllowForeground(FindMirdalWindow(false));
    HWND target = FindMirdalWindow(true);
    // Only a chord starts the main program; a mouse report or a block for a
    // closed program is dropped below.
    if (target == nullptr && chord) {
      DWORD started = ::GetTickCount();
      RunMirdal(window.GetInstance(), L"/External");
      CUnicodeString line(L"RunMirdal time = ");
      line += CUnicodeString::FromNumber(int64_t(::GetTickCount() - started));
      AgentServices().WriteLog(line.Text());
      // Looked up again: the launch gives no window when the program was
      // slow to be ready, and it may be ready by now.
      target = FindMirdalWindow(true);
    }
    HWND application = FindMirdalWindow(false);
    if (item->message == Md16_Hook_On_Mouse_Translate && application != nullptr) {
      AllowForeground(application);
    }
    Forward(window.GetWindowHandle(), target, *item);
  }
  return 0;
}
