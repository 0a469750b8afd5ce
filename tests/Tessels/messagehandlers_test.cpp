// Tests of the message handlers: the answers and event types by box flags,
// the flags a box gets, the choice of handler by version string and by the
// kind of standard output, what a redirected output receives, the route of
// reported failures, and the end of a process on an error while showing one.
#include "messagehandlers.h"

#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "TextFileBytes.h"
#include "errors.h"
#include "services.h"
#include "tessels.h"

using namespace Tsl;

namespace {

std::wstring Library(const wchar_t* variant) {
  return std::wstring(MIRDAL_DEMO_DIR) + L"TstRes" + variant + L".dll";
}

std::string Narrow(const CUnicodeString& text) { return TestSupport::Narrow(std::wstring(text.Text())); }

// A handler that only counts what reaches it.
class CCountingHandler : public CMessageHandler {
 public:
  int ShowMessage(HWND, const CUnicodeString& text, const CUnicodeString&, uint32_t) override {
    ++messages;
    last = text;
    return IDOK;
  }
  int messages = 0;
  CUnicodeString last;
};

std::vector<std::string> logLines;
void RecordLogLine(const CUnicodeString& line) { logLines.push_back(Narrow(line)); }

// Writes through a console handler made while `output` is the standard
// output, as in a process started with it redirected.
void ShowWithStandardOutput(HANDLE output, const wchar_t* text) {
  HANDLE saved = ::GetStdHandle(STD_OUTPUT_HANDLE);
  ::SetStdHandle(STD_OUTPUT_HANDLE, output);
  {
    CConsoleMessageHandler handler;
    handler.ShowMessage(nullptr, text, L"Tessels", 0);
    handler.ShowMessage(nullptr, L"b", L"Tessels", 0);
  }
  ::SetStdHandle(STD_OUTPUT_HANDLE, saved);
}

HANDLE OpenForAppend(const std::wstring& path) {
  HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                              0, nullptr);
  ::SetFilePointer(file, 0, nullptr, FILE_END);
  return file;
}

}  // namespace

TEST(DefaultBoxResult, AnswersWithTheDefaultButtonOfEachType) {
  struct Row {
    uint32_t flags;
    int result;
  } rows[] = {
      {MB_OK, IDOK},           {MB_OKCANCEL, IDOK},       {MB_OKCANCEL | MB_DEFBUTTON2, IDCANCEL},
      {MB_ABORTRETRYIGNORE, IDABORT}, {MB_ABORTRETRYIGNORE | MB_DEFBUTTON2, IDRETRY},
      {MB_ABORTRETRYIGNORE | MB_DEFBUTTON3, IDIGNORE}, {MB_YESNOCANCEL | MB_DEFBUTTON3, IDCANCEL},
      {MB_YESNO, IDYES},       {MB_YESNO | MB_DEFBUTTON2, IDNO}, {MB_YESNO | MB_DEFBUTTON3, IDYES},
      {MB_RETRYCANCEL | MB_DEFBUTTON2, IDCANCEL}, {MB_RETRYCANCEL | MB_ICONHAND, IDRETRY}, {7, 3},
  };
  for (const Row& row : rows) EXPECT_EQ(row.result, DefaultBoxResult(row.flags)) << std::hex << row.flags;
}

TEST(EventLogHandler, EventTypeFollowsTheIconElseTheButtons) {
  struct Row {
    uint32_t flags;
    uint16_t type;
  } rows[] = {
      {MB_ICONHAND, EVENTLOG_ERROR_TYPE},           {MB_ICONQUESTION, EVENTLOG_INFORMATION_TYPE},
      {MB_ICONEXCLAMATION, EVENTLOG_WARNING_TYPE},  {MB_ICONASTERISK, EVENTLOG_INFORMATION_TYPE},
      {MB_OKCANCEL, EVENTLOG_WARNING_TYPE},         {MB_RETRYCANCEL, EVENTLOG_ERROR_TYPE},
      {MB_YESNO, EVENTLOG_INFORMATION_TYPE},        {0x50, EVENTLOG_INFORMATION_TYPE},
  };
  for (const Row& row : rows) EXPECT_EQ(row.type, CEventLogMessageHandler::EventType(row.flags)) << row.flags;
}

TEST(MessageBoxHandler, BoxWithoutVisibleOwnerIsTopmostAndIconAddedOnlyWhereFitting) {
  const uint32_t onTop = MB_TASKMODAL | MB_SETFOREGROUND | MB_TOPMOST;
  struct Row {
    uint32_t flags;
    uint32_t expected;
  } rows[] = {
      {MB_OK, MB_OK | MB_ICONEXCLAMATION | onTop},
      {MB_YESNO, MB_YESNO | MB_ICONEXCLAMATION | onTop},
      {MB_ABORTRETRYIGNORE, MB_ABORTRETRYIGNORE | onTop},
      {MB_RETRYCANCEL, MB_RETRYCANCEL | onTop},
      {MB_OK | MB_ICONHAND, MB_OK | MB_ICONHAND | onTop},
  };
  for (const Row& row : rows)
    EXPECT_EQ(row.expected, CMessageBoxHandler::BoxFlags(nullptr, row.flags, true)) << row.flags;
}

TEST(HandlerChoice, VersionStringNamesTheHandlerElseTheStandardOutputDecides) {
  TestSupport::ScratchFolder folder;
  HANDLE file = ::CreateFileW((folder / L"out.txt").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  CMessageHandler* eventLog = HandlerByName(L"EVENTLOG");
  CMessageHandler* console = HandlerByName(L"Console");
  CMessageHandler* box = HandlerByName(L"messagebox");
  ASSERT_NE(nullptr, eventLog);
  EXPECT_NE(nullptr, dynamic_cast<CEventLogMessageHandler*>(eventLog));
  EXPECT_NE(nullptr, dynamic_cast<CConsoleMessageHandler*>(console));
  EXPECT_NE(nullptr, dynamic_cast<CMessageBoxHandler*>(box));
  EXPECT_EQ(nullptr, HandlerByName(L"Printer"));

  // The English test library says "eventlog", in lower case; the stray one says nothing.
  EXPECT_EQ(eventLog, ChooseHandler(Library(L"English").c_str(), INVALID_HANDLE_VALUE));
  EXPECT_EQ(console, ChooseHandler(Library(L"Stray").c_str(), file));
  EXPECT_EQ(box, ChooseHandler(Library(L"Stray").c_str(), INVALID_HANDLE_VALUE));
  EXPECT_EQ(box, ChooseHandler(Library(L"Stray").c_str(), nullptr));
  ::CloseHandle(file);
}

TEST(ConsoleHandler, RedirectedOutputKeepsUtf16AfterAMarkAndANewFileGetsAnsi) {
  TestSupport::ScratchFolder folder;
  std::wstring marked = folder / L"marked.txt", fresh = folder / L"fresh.txt";
  ASSERT_TRUE(TestSupport::WriteBytes(marked, TextFileBytes::Utf16WithMark(L"x")));
  HANDLE output = OpenForAppend(marked);
  ShowWithStandardOutput(output, L"a\nc\r\n");
  ::CloseHandle(output);
  output = OpenForAppend(fresh);
  ShowWithStandardOutput(output, L"a\nc\r\n");
  ::CloseHandle(output);

  EXPECT_EQ(TextFileBytes::Utf16WithMark(L"xa\r\nc\r\n\r\nb\r\n"), TextFileBytes::ReadAll(marked));
  EXPECT_EQ("a\r\nc\r\n\r\nb\r\n", TextFileBytes::ReadAll(fresh));
}

TEST(ConsoleHandler, AnswersAsTheBoxWouldWithNobodyThere) {
  CConsoleMessageHandler handler;
  EXPECT_EQ(IDNO, handler.ShowMessage(nullptr, L"", L"Tessels", MB_YESNO | MB_DEFBUTTON2));
}

TEST(MessageRoute, UserExceptionLeavesNoLogLineAndShowsNothing) {
  CCountingHandler handler;
  InstallMessageServices();
  CMessageHandler* previous = SetApplicationHandler(&handler);
  TesselLogWriter previousLog = BindTesselLogWriter(&RecordLogLine);
  logLines.clear();

  CUserException cancelled;
  ReportException(&cancelled);
  EXPECT_TRUE(logLines.empty());
  EXPECT_EQ(0, handler.messages);

  CCheckException failure(L"ERR_TEST_FAILURE", L"p", CUnicodeString(), CUnicodeString());
  ReportException(&failure);
  EXPECT_EQ(1, handler.messages);
  EXPECT_EQ(2u, logLines.size()) << "the report, then the shown text";

  EXPECT_EQ(IDOK, ShowMessage(L"plain", MB_OK));
  EXPECT_EQ("plain", Narrow(handler.last));

  BindTesselLogWriter(previousLog);
  SetApplicationHandler(previous);
  RemoveMessageServices();
}

namespace {

// A failure whose showing fails again, as a broken text resource could.
class CFailingWhileShown : public CException {
 public:
  CUnicodeString GetMessageText() const override { return L"first"; }
  void Show() override {
    CCheckException second(L"ERR_TEST_SECOND", CUnicodeString(), CUnicodeString(), CUnicodeString());
    ReportException(&second);
  }
};

}  // namespace

MIRDAL_CHILD_ROLE(DoubleError) {
  InstallMessageServices();
  CMessageHandler* console = HandlerByName(L"CONSOLE");
  SetApplicationHandler(console);
  CFailingWhileShown failure;
  ReportException(&failure);
  printf("survived\n");
  return 0;
}

TEST(MessageRoute, FailureWhileShowingAFailureEndsTheProcessWithTheDoubleErrorText) {
  TestSupport::ChildResult child = TestSupport::RunChild("DoubleError");
  EXPECT_FALSE(child.timedOut);
  EXPECT_NE(0u, child.exitCode);
  EXPECT_NE(std::string::npos, child.output.find("Double internal error!\r\nApplication terminated.\r\n"))
      << child.output;
  EXPECT_EQ(std::string::npos, child.output.find("survived"));
}
