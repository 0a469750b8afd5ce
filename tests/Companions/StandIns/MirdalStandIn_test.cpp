// Tests of the demonstration main program as the agent meets it: the ready
// mutex in each start role, the announcements to the agent, the answers to
// its requests, and the journal of what the program received.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MdMessages.h"
#include "StandInHarness.h"
#include "StandInJournal.h"
#include "TestSupport.h"

using namespace StandInTest;

namespace {

const wchar_t ReadyMutexName[] = L"Md16_HookSynchronizatonMutex";

std::string MessageLine(const char* window, const char* name, uint64_t wParam, uint64_t lParam) {
  char line[256];
  FormatJournalMessage(line, sizeof line, window, name, wParam, lParam);
  return line;
}

std::string CopyDataLine(uint64_t tag, const std::string& bytes) {
  char head[128];
  FormatJournalCopyDataHead(head, sizeof head, STANDIN_MAIN_WINDOW, tag,
                            static_cast<uint32_t>(bytes.size()));
  std::string line = head;
  static const char digits[] = "0123456789abcdef";
  for (unsigned char c : bytes) line += {digits[c >> 4], digits[c & 15]};
  return line;
}

class MirdalStandIn : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(lock.Held());
    ASSERT_NE(nullptr, agent.Window());
    // A program of an earlier test that is still going away must not be taken for ours.
    ASSERT_TRUE(PumpUntil([] { return FindWindowOf(MirdalAppWindowClass) == nullptr; }));
  }

  // Starts Mirdal.exe with its journal in the scratch folder.
  void Start(const std::wstring& arguments) {
    ASSERT_TRUE(program.Start(L"Mirdal.exe", L"/Journal:\"" + journal + L"\" " + arguments));
  }
  void StartAndWaitUntilOpened(const std::wstring& arguments) {
    Start(arguments);
    ASSERT_TRUE(PumpUntil([this] { return agent.Count(Md16_Agent_Mirdal_Opened) > 0; }));
  }
  bool Journalled(const std::string& line) {
    return PumpUntil([&] { return HasLine(journal, line); }, 10000);
  }
  void CloseAndExpectExit() {
    HWND app = FindWindowOf(MirdalAppWindowClass);
    ASSERT_NE(nullptr, app);
    ::SendMessageW(app, Md16_Mirdal_Close_Main_Window, 0, 0);
    DWORD code = 1;
    ASSERT_TRUE(program.WaitForExit(code));
    EXPECT_EQ(0u, code);
    EXPECT_TRUE(PumpUntil([this] { return agent.Count(Md16_Agent_Mirdal_Closed) == 1; }));
  }

  CSessionLock lock;
  CFakeAgent agent;
  TestSupport::ScratchFolder scratch;
  std::wstring journal = scratch / L"journal.txt";
  CProcess program;
};

TEST_F(MirdalStandIn, HoldsTheReadyMutexWhileInitialisingThenAnnouncesOpenedAndClosed) {
  Start(L"/External /InitDelay:1500");
  // The mutex exists before the main window can be found, and is held.
  ASSERT_TRUE(PumpUntil([] { return FindWindowOf(MirdalMainWindowClass) != nullptr; }));
  HANDLE ready = ::OpenMutexW(SYNCHRONIZE, FALSE, ReadyMutexName);
  ASSERT_NE(nullptr, ready);
  EXPECT_EQ(WAIT_TIMEOUT, ::WaitForSingleObject(ready, 0));
  EXPECT_EQ(0, agent.Count(Md16_Agent_Mirdal_Opened));
  DWORD result = WAIT_TIMEOUT;
  EXPECT_TRUE(PumpUntil([&] { return (result = ::WaitForSingleObject(ready, 0)) != WAIT_TIMEOUT; }));
  EXPECT_EQ(WAIT_OBJECT_0, result) << "released, not abandoned";
  if (result == WAIT_OBJECT_0) ::ReleaseMutex(ready);
  ::CloseHandle(ready);

  EXPECT_TRUE(PumpUntil([this] { return agent.Count(Md16_Agent_Mirdal_Opened) == 1; }));
  HWND app = FindWindowOf(MirdalAppWindowClass);
  EXPECT_TRUE(::IsWindowVisible(app) && ::IsWindowEnabled(app));
  EXPECT_FALSE(::IsWindowVisible(FindWindowOf(MirdalMainWindowClass)));
  CloseAndExpectExit();
  EXPECT_TRUE(HasLine(journal, MessageLine(STANDIN_APP_WINDOW, "Md16_Mirdal_Close_Main_Window", 0, 0)));
}

TEST_F(MirdalStandIn, ACrashWhileInitialisingLeavesTheReadyMutexAbandoned) {
  Start(L"/External /CrashInInit /InitDelay:800");
  // The agent's road: the main window first, then the wait on the mutex.
  ASSERT_TRUE(PumpUntil([] { return FindWindowOf(MirdalMainWindowClass) != nullptr; }));
  HANDLE ready = ::OpenMutexW(SYNCHRONIZE, FALSE, ReadyMutexName);
  ASSERT_NE(nullptr, ready);
  EXPECT_EQ(WAIT_ABANDONED, ::WaitForSingleObject(ready, 15000));
  ::ReleaseMutex(ready);
  ::CloseHandle(ready);
  DWORD code = 0;
  ASSERT_TRUE(program.WaitForExit(code));
  EXPECT_EQ(StandInCrashExitCode, code);
  EXPECT_EQ(0, agent.Count(Md16_Agent_Mirdal_Opened));
}

TEST_F(MirdalStandIn, AChordShowsTheClipboardWordWithItsEntryAndBlocksArriveByteForByte) {
  // A dictionary of one word, so that the entry does not depend on what is installed.
  ASSERT_TRUE(TestSupport::WriteBytes(scratch / L"tiny.index", "abyss\tA\tN\n"));
  ASSERT_TRUE(TestSupport::WriteBytes(scratch / L"tiny.dict", "abyss\nAbgrund\n"));
  StartAndWaitUntilOpened(L"/STARTUP /Dictionary:\"" + scratch.Path() + L"\"");
  // A start with the session stays out of sight.
  EXPECT_FALSE(::IsWindowVisible(FindWindowOf(MirdalAppWindowClass)));

  HWND main = FindWindowOf(MirdalMainWindowClass);
  ASSERT_TRUE(PutOnClipboard(agent.Window(), L"\r\n  Abyss\r\nsecond line"));
  ::PostMessageW(main, Md16_Hook_On_Ctrl_Ins_Ins, 1, 0x12345678);
  EXPECT_TRUE(Journalled("event word Abyss"));
  EXPECT_TRUE(HasLine(journal, MessageLine(STANDIN_MAIN_WINDOW, "Md16_Hook_On_Ctrl_Ins_Ins", 1,
                                           0x12345678)));
  EXPECT_TRUE(Journalled("event entry found"));
  // The card comes up just after the entry was looked up.
  EXPECT_TRUE(PumpUntil([main] { return ::IsWindowVisible(main) != FALSE; }));

  ::PostMessageW(main, Md16_Hook_On_Mouse_Translate, 1, MAKELPARAM(-5, 300));
  EXPECT_TRUE(Journalled(MessageLine(STANDIN_MAIN_WINDOW, "Md16_Hook_On_Mouse_Translate", 1,
                                     static_cast<uint32_t>(MAKELPARAM(-5, 300)))));

  // The agent forwards blocks with SendMessageW; an empty one has no data pointer.
  struct Block {
    uint32_t tag;
    std::string bytes;
  } blocks[] = {{CopyDataTagMirdal, std::string("\x00\x4D\xFF", 3)},
                {CopyDataTagImage, "img"},
                {CopyDataTagMirdal, ""}};
  for (const Block& block : blocks) {
    COPYDATASTRUCT copy = {block.tag, static_cast<DWORD>(block.bytes.size()),
                           block.bytes.empty() ? nullptr : const_cast<char*>(block.bytes.data())};
    EXPECT_EQ(TRUE, ::SendMessageW(main, WM_COPYDATA, reinterpret_cast<WPARAM>(agent.Window()),
                                   reinterpret_cast<LPARAM>(&copy)));
    EXPECT_TRUE(HasLine(journal, CopyDataLine(block.tag, block.bytes))) << block.bytes.size();
  }
  CloseAndExpectExit();
}

TEST_F(MirdalStandIn, AnswersHideWordOfTheDayAutoupdateRestartAndSettings) {
  StartAndWaitUntilOpened(L"/External /Dictionary:\"" + scratch.Path() + L"\"");
  HWND app = FindWindowOf(MirdalAppWindowClass);
  HWND main = FindWindowOf(MirdalMainWindowClass);

  ::PostMessageW(app, Md16_Mirdal_Hide_Main_Window, 0, 0);
  EXPECT_TRUE(PumpUntil([app] { return !::IsWindowVisible(app); }));

  ::PostMessageW(main, Md16_Mirdal_Show_Word_Of_The_Day, 0, 0);
  EXPECT_TRUE(PumpUntil([&] { return HasLineStartingWith(journal, "event word-of-the-day "); }));
  EXPECT_TRUE(PumpUntil([main] { return ::IsWindowVisible(main) != FALSE; }));

  // Begin, five steps of progress, end: the agent's menu and icon follow them.
  ::PostMessageW(app, Md16_Mirdal_Autoupdate, 0, 0);
  auto updates = [this] {
    std::vector<std::pair<WPARAM, LPARAM>> seen;
    for (const Received& item : agent.Messages())
      if (item.message == Md16_Agent_Mirdal_Autoupdate) seen.push_back({item.wParam, item.lParam});
    return seen;
  };
  EXPECT_TRUE(PumpUntil([&] { return !updates().empty() && updates().back().first == 0; }));
  std::vector<std::pair<WPARAM, LPARAM>> expected = {{1, 0},  {2, 20},  {2, 40}, {2, 60},
                                                     {2, 80}, {2, 100}, {0, 0}};
  EXPECT_EQ(expected, updates());

  ::PostMessageW(app, Md16_Mirdal_Restart_Agent, 0, 0);
  EXPECT_TRUE(PumpUntil([this] { return agent.Count(Md16_Agent_Mirdal_Opened) == 2; }));

  ::PostMessageW(app, Md16_Mirdal_Show_Translation_Settings, 0, 0);
  EXPECT_TRUE(PumpUntil([app] { return ::IsWindowVisible(app) != FALSE; }));
  CloseAndExpectExit();
}

TEST_F(MirdalStandIn, KeepsItsApplicationWindowDisabledWhenToldTo) {
  StartAndWaitUntilOpened(L"/External /AppDisabled");
  HWND app = FindWindowOf(MirdalAppWindowClass);
  EXPECT_TRUE(::IsWindowVisible(app));
  EXPECT_FALSE(::IsWindowEnabled(app));
}

TEST_F(MirdalStandIn, HungInCopyDataNeverAnswersButJournalsTheBlock) {
  StartAndWaitUntilOpened(L"/OO /HangInCopyData");
  COPYDATASTRUCT copy = {CopyDataTagMirdal, 2, const_cast<char*>("hi")};
  DWORD_PTR answer = 0;
  EXPECT_EQ(0, ::SendMessageTimeoutW(FindWindowOf(MirdalMainWindowClass), WM_COPYDATA,
                                     reinterpret_cast<WPARAM>(agent.Window()),
                                     reinterpret_cast<LPARAM>(&copy), SMTO_NORMAL, 1500, &answer));
  EXPECT_TRUE(Journalled(CopyDataLine(CopyDataTagMirdal, "hi")));
  EXPECT_TRUE(program.Running());
}

TEST_F(MirdalStandIn, ASecondStartLeavesTheFirstAloneAndEnds) {
  StartAndWaitUntilOpened(L"/OO");
  CProcess second;
  ASSERT_TRUE(second.Start(L"Mirdal.exe", L"/Journal:\"" + journal + L"\" /External"));
  DWORD code = 1;
  ASSERT_TRUE(second.WaitForExit(code));
  EXPECT_EQ(0u, code);
  EXPECT_TRUE(HasLine(journal, "event second-instance"));
  EXPECT_TRUE(program.Running());
  EXPECT_EQ(1, agent.Count(Md16_Agent_Mirdal_Opened));
}

}  // namespace
