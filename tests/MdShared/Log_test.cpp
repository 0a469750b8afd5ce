// The agent log: who decides that it is on (SharedFiles.ini beside the
// program over the per-user LogModeOn), the form of its entries and file, and
// that nothing a writer meets - a folder that cannot be made, other writers
// on other threads - reaches the caller.
#include "MdTools/Log.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "ChildCopy.h"
#include "TestSupport.h"
#include "Unsup/TesselExt.h"

using TestSupport::ScratchFolder;

namespace {

// The log file of a folder as UTF-16 units, mark included; empty for none.
std::wstring ReadOnlyLog(const std::wstring& folder) {
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileW((folder + L"\\*.log").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return L"";
  FindClose(search);
  std::string bytes = TestSupport::ReadSharedFile(folder + L"\\" + found.cFileName);
  return std::wstring(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / 2);
}

const std::wstring Time = L"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d";

// Each test starts from a log that has not decided anything yet.
class LogTest : public ::testing::Test {
 protected:
  void TearDown() override {
    SetLogOverride(false, false, L"");
    ResetLog();
  }
  void LogInto(const std::wstring& folder) { SetLogOverride(true, true, folder.c_str()); }
};

TEST_F(LogTest, EntriesHaveTimeAndOneLineEndPerBreakAndTheFileOneByteOrderMark) {
  ScratchFolder scratch;
  LogInto(scratch.Path());
  WriteLog(L"first\r\nsecond");
  WriteLog(L"ends in a break\n");
  CloseLog();
  WriteLog(L"after reopening");
  std::wregex whole(L"\xFEFF" + Time + L" : first\r\nsecond\r\n" + Time + L" : ends in a break\r\n\r\n" +
                    Time + L" : after reopening\r\n");
  std::wstring text = ReadOnlyLog(scratch.Path());
  EXPECT_TRUE(std::regex_match(text, whole)) << TestSupport::Narrow(text);
}

TEST_F(LogTest, FolderThatCannotBeMadeIsSilentAndNotTriedAgain) {
  ScratchFolder scratch;
  std::wstring blocker = scratch / L"blocker";
  ASSERT_TRUE(TestSupport::WriteBytes(blocker, "a file where the folder should be"));
  LogInto(blocker + L"\\logs");
  WriteLog(L"lost");
  ASSERT_TRUE(DeleteFileW(blocker.c_str()));
  WriteLog(L"lost too: the run has given up on its log");
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(blocker.c_str()));
}

TEST_F(LogTest, WritersOnFourThreadsGiveWholeLinesInTheirOrder) {
  ScratchFolder scratch;
  LogInto(scratch.Path());
  const int threadCount = 4, entryCount = 150;
  std::vector<std::thread> writers;
  for (int t = 0; t < threadCount; ++t)
    writers.emplace_back([t] {
      for (int i = 0; i < entryCount; ++i)
        WriteLog((std::to_wstring(t) + L" " + std::to_wstring(i) + L" " + std::wstring(40, L'a' + t)).c_str());
    });
  for (std::thread& writer : writers) writer.join();

  std::wstring text = ReadOnlyLog(scratch.Path());
  const std::wregex line(Time + L" : (\\d) (\\d+) ([a-d]{40})\r\n");
  int next[threadCount] = {}, lines = 0;
  size_t at = 1;  // behind the mark
  for (std::wsmatch match; std::regex_search(text.cbegin() + at, text.cend(), match, line,
                                             std::regex_constants::match_continuous);
       at += match.length(), ++lines) {
    int t = std::stoi(match[1]);
    EXPECT_EQ(next[t]++, std::stoi(match[2]));
    EXPECT_EQ(std::wstring(40, L'a' + t), match[3].str());
  }
  EXPECT_EQ(text.size(), at) << "a line was torn";
  EXPECT_EQ(threadCount * entryCount, lines);
}

// Run from a folder of its own: exit code 1 when the log is on there, after
// one entry has been written (a broken switch board must not disturb it).
MIRDAL_CHILD_ROLE(AskLogEnabled) {
  bool enabled = IsLogEnabled();
  SetLogDirectory(argv[2]);
  WriteLog(L"probe");
  return enabled ? 1 : 0;
}

TEST(LogSwitch, SharedFilesKeyDecidesOverLogModeOn) {
  struct Row {
    const char* ini;           // content of SharedFiles.ini; null: no file
    const wchar_t* logModeOn;  // null: no value
    DWORD expected;
  } rows[] = {
      {nullptr, nullptr, 0},
      {nullptr, L"true", 1},
      {"[Debug]\r\nLog=1\r\n", L"false", 1},
      {"[Debug]\r\nLog=0\r\n", L"true", 0},
      {"[Debug]\r\nLog=verbose\r\n", nullptr, 1},
      {"[Debug]\r\nOther=1\r\n", L"true", 1},
      {"[Debug]\r\nnot a key line\r\n", L"true", 1},
      {"[Debug]\r\nnot a key line\r\n", nullptr, 0},
  };
  // The per-user value lives in the product's key, shared with other test programs.
  TestSupport::CrossProcessLock productKey(L"MirdalTest.ProductKey");
  for (const Row& row : rows) {
    ScratchFolder folder;
    std::wstring logs = folder / L"logs";
    if (row.ini != nullptr) {
      ASSERT_TRUE(TestSupport::WriteBytes(folder / SharedFilesIniName, row.ini));
    }
    RegDeleteKeyValueW(HKEY_CURRENT_USER, ProductKeyPath, L"LogModeOn");
    if (row.logModeOn != nullptr)
      RegSetKeyValueW(HKEY_CURRENT_USER, ProductKeyPath, L"LogModeOn", REG_SZ, row.logModeOn,
                      DWORD((wcslen(row.logModeOn) + 1) * sizeof(wchar_t)));
    DWORD answer = TestSupport::RunChildCopy(folder.Path(), L"LogProbe.exe", "AskLogEnabled", logs);
    std::string name = std::string(row.ini ? row.ini : "(no ini)") + " LogModeOn=" +
                       TestSupport::Narrow(row.logModeOn ? row.logModeOn : L"(none)");
    EXPECT_EQ(row.expected, answer) << name;
    EXPECT_EQ(row.expected == 1, !ReadOnlyLog(logs).empty()) << name;
  }
  RegDeleteKeyValueW(HKEY_CURRENT_USER, ProductKeyPath, L"LogModeOn");
}

}  // namespace
