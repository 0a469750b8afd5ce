// Tests of the message catalogue: parameter substitution and its check,
// names without text, the texts of a running library, and the lists and
// files that compare declared names with those of the resource modules.
#include "message.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "TesselsTestKit.h"
#include "TestSupport.h"
#include "TextFileBytes.h"
#include "resourceinfo.h"
#include "services.h"
#include "tessels.h"

using namespace Tsl;
using TestKit::CShownRecorder;
using TestKit::W;

namespace {


// Two units declaring the same name, as two source files would.
const CMessageName greeting(L"MSG_TEST_GREETING");
const CMessageName undefinedFirst(L"MSG_TEST_UNDEFINED");
const CMessageName undefinedSecond(L"MSG_TEST_UNDEFINED");

// The text of a UTF-16 file with its mark; "(no mark)" otherwise.
std::wstring ReadUtf16(const std::wstring& path) {
  std::string bytes = TextFileBytes::ReadAll(path);
  if (bytes.compare(0, 2, "\xFF\xFE") != 0) return L"(no mark)";
  std::wstring text;
  for (size_t i = 2; i + 1 < bytes.size(); i += 2)
    text += wchar_t(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
  return text;
}

std::wstring Substitute(const wchar_t* text, std::vector<const wchar_t*> params) {
  return W(SubstituteParams(text, params.data(), int32_t(params.size())));
}

// A running library whose only language is the English test library.
class RunningCatalogue : public ::testing::Test {
 protected:
  void SetUp() override {
    std::wstring library = std::wstring(MIRDAL_DEMO_DIR) + L"TstResEnglish.dll";
    ASSERT_TRUE(::CopyFileW(library.c_str(), (folder / L"Tst0.dll").c_str(), FALSE));
    AddResourcePrefix(folder.Path().c_str(), L"Tst");
    InitResourceBase();
    SetLibraryState(LS_Running);
  }
  void TearDown() override {
    SetLibraryState(LS_Terminated);
    DoneResourceBase();
    RemoveResourcePrefixes();
  }
  TestSupport::ScratchFolder folder;
};

}  // namespace

TEST(SubstituteParams, FillsMarkersByPositionAndKeepsWhatIsNoMarker) {
  struct Row {
    const wchar_t* text;
    std::vector<const wchar_t*> params;
    const wchar_t* expected;
  } rows[] = {
      {L"%0 of %1", {L"a", L"b"}, L"a of b"},
      {L"%0 of %1", {L"a"}, L"a of "},
      {L"%1 %0", {L"a", L"b"}, L"b a"},
      {L"%0%0", {L"a"}, L"aa"},
      {L"50% done", {L"a"}, L"50% done"},
      {L"ends in %", {L"a"}, L"ends in %"},
      {L"%99999999999", {L"a"}, L"%99999999999"},
      {L"%%1", {L"a", L"b"}, L"%b"},
      {L"%x and %1", {L"a", L"%0"}, L"%x and %0"},
  };
  for (const Row& row : rows) EXPECT_EQ(row.expected, Substitute(row.text, row.params)) << row.text;
}

TEST(SubstituteParams, CheckReportsWrongCountAndMissingNumbersOnlyUnderItsFlag) {
  CShownRecorder recorder;
  IFoundationServices* previous = BindFoundationServices(&recorder);
  uint32_t flags = GetDebugFlags();
  EXPECT_EQ(L"a ", Substitute(L"%0 %2", {L"a", L"b"}));
  EXPECT_TRUE(recorder.shown.empty());

  SetDebugFlags(flags | DF_CheckMessagesParamsCount);
  EXPECT_EQ(L"a ", Substitute(L"%0 %2", {L"a", L"b"}));
  EXPECT_EQ(L"x", Substitute(L"x", {}));
  SetDebugFlags(flags);
  BindFoundationServices(previous);
  EXPECT_EQ((std::vector<std::wstring>{L"Number of params in message \"%0 %2\" is invalid: 3, expected 2.",
                                       L"Some parameters in message \"%0 %2\" are missing: 1."}),
            recorder.shown);
}

TEST(CheckParams, ListsEveryMissingNumberWithItsSeparator) {
  CShownRecorder recorder;
  IFoundationServices* previous = BindFoundationServices(&recorder);
  CheckParams(L"%3 and %0", 4);
  BindFoundationServices(previous);
  ASSERT_EQ(1u, recorder.shown.size());
  EXPECT_EQ(L"Some parameters in message \"%3 and %0\" are missing: 1 ,2.", recorder.shown[0]);
}

TEST(MessageName, WithoutTextShowsTheNameAndEveryParameter) {
  EXPECT_FALSE(greeting.IsDefined()) << "nothing is looked up before the library runs";
  EXPECT_EQ(L"MSG_TEST_GREETING", W(greeting.GetText()));
  EXPECT_EQ(L"MSG_TEST_GREETING x y", W(greeting.Format(L"x", L"y")));
}

TEST_F(RunningCatalogue, DefinedNameGivesItsTextWithParameters) {
  EXPECT_TRUE(greeting.IsDefined());
  EXPECT_EQ(L"Hello, World!", W(greeting.Format(L"World")));
  EXPECT_EQ(L"MSG_TEST_UNDEFINED 1", W(undefinedFirst.Format(L"1")));
}

TEST_F(RunningCatalogue, UndefinedListsNamesOnceAndUnusedListsResourceNames) {
  CArray<CUnicodeString> undefined, unused;
  GetUndefinedMessages(undefined);
  GetUnusedMessages(unused);
  std::vector<std::wstring> undefinedNames, unusedNames;
  for (const CUnicodeString& name : undefined) undefinedNames.push_back(W(name));
  for (const CUnicodeString& name : unused) unusedNames.push_back(W(name));
  EXPECT_EQ(1, std::count(undefinedNames.begin(), undefinedNames.end(), L"MSG_TEST_UNDEFINED"));
  EXPECT_EQ(0, std::count(undefinedNames.begin(), undefinedNames.end(), L"MSG_TEST_GREETING"));
  EXPECT_EQ((std::vector<std::wstring>{L"CURRENT_LANGUAGE_NAME", L"MSG_TEST_BOTH"}), unusedNames);
}

TEST_F(RunningCatalogue, FilesListEveryDeclarationAndTheUnusedNames) {
  SaveAllMessages((folder / L"all.txt").c_str());
  SaveUndefinedMessages((folder / L"undefined.txt").c_str());
  std::wstring all = ReadUtf16(folder / L"all.txt");
  std::wstring undefined = ReadUtf16(folder / L"undefined.txt");

  EXPECT_EQ(0u, all.find(L"Name\tModule\tDefined\tUsed\r\n"));
  size_t first = all.find(L"MSG_TEST_UNDEFINED\t");
  ASSERT_NE(std::wstring::npos, first);
  EXPECT_NE(std::wstring::npos, all.find(L"MSG_TEST_UNDEFINED\t", first + 1)) << "one row per declaration";
  EXPECT_NE(std::wstring::npos, all.find(L"message_test.exe\ttrue\ttrue\r\n"));
  EXPECT_NE(std::wstring::npos, all.find(L"\r\nMSG_TEST_BOTH\t\ttrue\tfalse\r\n"));
  EXPECT_NE(std::wstring::npos, undefined.find(L"MSG_TEST_UNDEFINED\r\n"));
  EXPECT_NE(std::wstring::npos,
            undefined.find(L"********** Unused messages ********\r\nCURRENT_LANGUAGE_NAME\r\nMSG_TEST_BOTH\r\n"));
}
