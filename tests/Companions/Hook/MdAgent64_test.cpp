// The 64-bit sibling: found by its window class, ends on the agent's close
// request, and never reports a chord a second time while another hook of the
// session (the 32-bit agent's library, here the library in this process)
// runs beside it, yet takes over when that one goes.
#include <gtest/gtest.h>

#include "../../../Companions/Hook/HookTriggers.h"
#include "HookTestKit.h"
#include "MdMessages.h"
#include "Tools/HookWords.h"

using namespace HookTestKit;

namespace {

// A running MdAgent64.exe, asked to close (and killed if it won't) at the end.
class CSibling {
 public:
  CSibling() {
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    if (::CreateProcessW(MIRDAL_PROGRAM_DIR L"MdAgent64.exe", nullptr, nullptr, nullptr, FALSE, 0, nullptr,
                         nullptr, &startup, &info)) {
      process = info.hProcess;
      ::CloseHandle(info.hThread);
    }
  }
  ~CSibling() {
    if (process == nullptr) return;
    if (!Close()) ::TerminateProcess(process, 99);
    ::CloseHandle(process);
  }
  CSibling(const CSibling&) = delete;
  CSibling& operator=(const CSibling&) = delete;

  HANDLE Process() const { return process; }

  // Its window, once it has made it (at most 10 s), else null.
  HWND Window() const {
    for (int i = 0; i < 500; ++i) {
      HWND window = ::FindWindowW(Agent64WindowClass, nullptr);
      if (window != nullptr) return window;
      PumpFor(20);
    }
    return nullptr;
  }

  // Posts the close request as the agent does; true when the process ended.
  bool Close() {
    HWND window = ::FindWindowW(Agent64WindowClass, nullptr);
    if (window != nullptr) ::PostMessageW(window, Md16_Close_Agent64, 0, 0);
    return ::WaitForSingleObject(process, 5000) == WAIT_OBJECT_0;
  }

 private:
  HANDLE process = nullptr;
};

TEST(MdAgent64, MakesItsWindowEndsOnTheCloseRequestAndLetsNoSecondOneRun) {
  CSibling sibling;
  ASSERT_NE(sibling.Process(), nullptr);
  ASSERT_NE(sibling.Window(), nullptr);

  CSibling second;
  ASSERT_NE(second.Process(), nullptr);
  EXPECT_EQ(::WaitForSingleObject(second.Process(), 5000), WAIT_OBJECT_0)
      << "a second sibling must leave the first in charge";

  ASSERT_TRUE(sibling.Close());
  DWORD code = 1;
  ::GetExitCodeProcess(sibling.Process(), &code);
  EXPECT_EQ(code, 0u);
}

TEST(MdAgent64, ChordIsReportedOnceBesideTheLibraryAndStillAfterTheLibraryWent) {
  CAgentWindow agent;
  CTypingTarget target(L"two hooks");
  CAtoms atoms({HookTriggers::CtrlCCAtom, HookTriggers::CtrlInsInsAtom});
  CHookLibrary hook;
  ASSERT_TRUE(hook.Register());
  CSibling sibling;
  ASSERT_NE(sibling.Window(), nullptr);
  PumpFor(300);  // the sibling's hook thread comes up after its window

  ASSERT_TRUE(Xdo(ChordCtrlCC));
  ASSERT_TRUE(agent.WaitForReports(1));
  // The other hook's report, were there one, would come from another
  // process: give it time to arrive.
  PumpFor(700);
  EXPECT_EQ(agent.Reports().size(), 1u) << "both hooks reported the chord";

  // The library goes, as when the 32-bit agent unregisters: the sibling
  // takes over and reports alone.
  hook.Unregister();
  target.Focus();
  ASSERT_TRUE(Xdo(ChordCtrlInsIns));
  ASSERT_TRUE(agent.WaitForReports(2)) << "the sibling did not take over";
  PumpFor(700);
  ASSERT_EQ(agent.Reports().size(), 2u);
  EXPECT_EQ(agent.Reports()[1].wParam, HookChordCtrlInsIns);
}

}  // namespace
