// The agent log: who decides that it is on (SharedFiles.ini beside the
// program over the per-user LogModeOn), the form of its entries and file, and
// that nothing a writer meets - a folder that cannot be made, other writers
// on other threads - reaches the caller.
#include "MdTools/Log.h"

#include <gtest/gtest.h>

#include <iterator>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "ChildCopy.h"
#include "TestSupport.h"
#include "Unsup/TesselExt.h"

using TestSupport::ScratchFolder;

namespace {

// The whole log file of a folder as UTF-16 units (byte order mark included);
// empty when the folder holds no .log file.
std::wstring ReadOnlyLog(const std::wstring& folder) {
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileW((folder + L"\\*.log").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return L"";
  FindClose(search);
  // The log may still be open for writing in this process.
  HANDLE file = CreateFileW((folder + L"\\" + found.cFileName).c_str(), GENERIC_READ,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  std::wstring units;
  wchar_t buffer[2048];
  DWORD read = 0;
  while (ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0) units.append(buffer, read / 2);
  CloseHandle(file);
  return units;
}

// Splits at CR LF; a final line end gives no empty last element.
std::vector<std::wstring> Lines(const std::wstring& text) {
  std::vector<std::wstring> lines;
  size_t start = 0;
  for (size_t end; (end = text.find(L"\r\n", start)) != std::wstring::npos; start = end + 2)
    lines.push_back(text.substr(start, end - start));
  if (start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

const std::wregex EntryStart(L"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d : (.*)");

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

  std::wstring text = ReadOnlyLog(scratch.Path());
  ASSERT_FALSE(text.empty());
  EXPECT_EQ(L'\xFEFF', text[0]);
  EXPECT_EQ(std::wstring::npos, text.find(L'\xFEFF', 1)) << "a reopen wrote a second mark";
  EXPECT_EQ(L"\r\n", text.substr(text.size() - 2));

  std::vector<std::wstring> lines = Lines(text.substr(1));
  const wchar_t* expected[][2] = {{L"entry", L"first"}, {L"plain", L"second"},
                                  {L"entry", L"ends in a break"}, {L"plain", L""},
                                  {L"entry", L"after reopening"}};
  ASSERT_EQ(std::size(expected), lines.size());
  for (size_t i = 0; i < lines.size(); ++i) {
    std::wsmatch match;
    bool isEntry = std::wstring(expected[i][0]) == L"entry";
    std::wstring body = lines[i];
    if (isEntry) {
      ASSERT_TRUE(std::regex_match(lines[i], match, EntryStart)) << "line " << i;
      body = match[1];
    }
    EXPECT_EQ(expected[i][1], body) << "line " << i;
  }
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
        WriteLog((L"writer " + std::to_wstring(t) + L" entry " + std::to_wstring(i) + L" " +
                  std::wstring(40, L'a' + t)).c_str());
    });
  for (std::thread& writer : writers) writer.join();

  std::vector<std::wstring> lines = Lines(ReadOnlyLog(scratch.Path()).substr(1));
  ASSERT_EQ(size_t(threadCount * entryCount), lines.size());
  int next[threadCount] = {};
  const std::wregex whole(L"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d : writer (\\d) entry (\\d+) ([a-d]{40})");
  for (const std::wstring& line : lines) {
    std::wsmatch match;
    ASSERT_TRUE(std::regex_match(line, match, whole)) << TestSupport::Narrow(line);
    int t = std::stoi(match[1]);
    EXPECT_EQ(next[t]++, std::stoi(match[2]));
    EXPECT_EQ(std::wstring(40, L'a' + t), match[3].str());
  }
}

// Run from a folder of its own: exit code 1 when the log is on there, after
// one entry has been written (a broken switch board must not disturb it).
MIRDAL_CHILD_ROLE(AskLogEnabled) {
  bool enabled = IsLogEnabled();
  SetLogDirectory(argv[2]);
  WriteLog(L"probe");
  return enabled ? 1 : 0;
}

// The per-user value lives in the product's key, which other test programs
// may use too: the table holds a lock across processes while it runs.
void SetLogModeOn(const wchar_t* value) {
  if (value == nullptr) {
    RegDeleteKeyValueW(HKEY_CURRENT_USER, ProductKeyPath, L"LogModeOn");
    return;
  }
  RegSetKeyValueW(HKEY_CURRENT_USER, ProductKeyPath, L"LogModeOn", REG_SZ, value,
                  DWORD((wcslen(value) + 1) * sizeof(wchar_t)));
}

TEST(LogSwitch, SharedFilesKeyDecidesOverLogModeOn) {
  struct Row {
    const char* ini;         // content of SharedFiles.ini; null: no file
    const wchar_t* logModeOn;  // null: no value
    int expected;
  } rows[] = {
      {nullptr, nullptr, 0},
      {nullptr, L"true", 1},
      {nullptr, L"false", 0},
      {"[Debug]\r\nLog=1\r\n", L"false", 1},
      {"[Debug]\r\nLog=0\r\n", L"true", 0},
      {"[Debug]\r\nLog=verbose\r\n", L"false", 1},
      {"[Debug]\r\nOther=1\r\n", L"true", 1},
      {"[Debug]\r\nnot a key line\r\n", L"true", 1},
      {"[Debug]\r\nnot a key line\r\n", nullptr, 0},
  };
  TestSupport::CrossProcessLock productKey(L"MirdalTest.ProductKey");
  for (const Row& row : rows) {
    ScratchFolder folder;
    std::wstring logs = folder / L"logs";
    if (row.ini != nullptr) {
      ASSERT_TRUE(TestSupport::WriteBytes(folder / SharedFilesIniName, row.ini));
    }
    SetLogModeOn(row.logModeOn);
    DWORD answer = TestSupport::RunChildCopy(folder.Path(), L"LogProbe.exe", "AskLogEnabled", logs);
    std::string name = std::string(row.ini ? row.ini : "(no ini)") + " LogModeOn=" +
                       TestSupport::Narrow(row.logModeOn ? row.logModeOn : L"(none)");
    EXPECT_EQ(DWORD(row.expected), answer) << name;
    EXPECT_EQ(row.expected == 1, !ReadOnlyLog(logs).empty()) << name;
  }
  SetLogModeOn(nullptr);
}

}  // namespace
