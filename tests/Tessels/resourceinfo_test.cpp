// Tests of the resource modules: which files a prefix's scan accepts, which
// languages are usable with several prefixes, the default choice on systems
// of other languages, the order of look-ups, and the refusal of a language
// the system can't show. The libraries are the small test libraries of the
// demo folder, copied under the names each case needs.
#include "resourceinfo.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TesselsTestKit.h"
#include "TestSupport.h"
#include "services.h"
#include "tessels.h"

using namespace Tsl;
using TestKit::CShownRecorder;
using TestKit::W;

namespace {


std::wstring Library(const wchar_t* variant) {
  return std::wstring(MIRDAL_DEMO_DIR) + L"TstRes" + variant + L".dll";
}

// The system as the test wants it.
LANGID systemLanguage = 0x409;
UINT systemCodePage = 1252;
int refusedLanguage = -1;  // a language identifier the system can't show
LANGID WINAPI FakeLangId() { return systemLanguage; }
UINT WINAPI FakeAcp() { return systemCodePage; }
BOOL WINAPI FakeIsValidLocale(LCID locale, DWORD) { return int(LANGIDFROMLCID(locale)) != refusedLanguage; }

// One case's families of libraries in scratch folders, a recorder for what
// is shown, a system of the test's choosing, and a clean base at the end.
class ResourceBase : public ::testing::Test {
 protected:
  void SetUp() override {
    previous = BindFoundationServices(&recorder);
    systemLanguage = 0x409;
    systemCodePage = 1252;
    refusedLanguage = -1;
    BindLocaleQueries(CLocaleQueries{&FakeLangId, &FakeAcp, &FakeIsValidLocale});
    ::SetEnvironmentVariableW(L"TST_RES_STRAY_LOADED", nullptr);
  }
  void TearDown() override {
    DoneResourceBase();
    RemoveResourcePrefixes();
    BindLocaleQueries(CLocaleQueries{nullptr, nullptr, nullptr});
    BindFoundationServices(previous);
  }
  // Copies `variant`'s library into `folder` as `name`.
  void Place(const TestSupport::ScratchFolder& folder, const wchar_t* name, const wchar_t* variant) {
    ASSERT_TRUE(::CopyFileW(Library(variant).c_str(), (folder / name).c_str(), FALSE))
        << TestSupport::Narrow(Library(variant));
  }
  std::vector<int32_t> Languages() {
    std::vector<int32_t> languages;
    for (int32_t i = 0; i < GetLanguageCount(); ++i) languages.push_back(GetLanguageByIndex(i));
    return languages;
  }
  std::wstring Text(const wchar_t* name) {
    CUnicodeString text;
    return GetModuleMessageText(name, text) ? W(text) : L"(none)";
  }

  TestSupport::ScratchFolder first, second;
  CShownRecorder recorder;
  IFoundationServices* previous = nullptr;
};

}  // namespace

TEST_F(ResourceBase, ScanTakesOnlyDecimalNumbersBelow128AndTheRightDescription) {
  Place(first, L"Tst0.dll", L"English");
  Place(first, L"Tst01.dll", L"Russian");  // "resource dll" in lower case; the number reads as 1
  Place(first, L"Tst1x.dll", L"German");
  Place(first, L"Tst128.dll", L"German");
  Place(first, L"Tst3.dll", L"Stray");  // right name, another description
  AddResourcePrefix(first.Path().c_str(), L"Tst");
  InitResourceBase();
  EXPECT_EQ((std::vector<int32_t>{0, 1}), Languages());
  EXPECT_EQ(L"English", W(GetLanguageName(0)));
  EXPECT_EQ(L"Русский", W(GetLanguageName(1)));
  EXPECT_EQ(L"5", W(GetLanguageName(5))) << "a language without a name is its number";
  EXPECT_EQ(0, ::GetEnvironmentVariableW(L"TST_RES_STRAY_LOADED", nullptr, 0))
      << "the library with another description was loaded, and its code ran";
}

TEST_F(ResourceBase, LanguageMissingInOnePrefixIsNotUsable) {
  Place(first, L"A0.dll", L"English");
  Place(first, L"A2.dll", L"German");
  Place(second, L"B0.dll", L"English");
  AddResourcePrefix(first.Path().c_str(), L"A");
  AddResourcePrefix(second.Path().c_str(), L"B");
  InitResourceBase();
  EXPECT_EQ((std::vector<int32_t>{0}), Languages());
  EXPECT_EQ(-1, FindLanguageIndex(2));
}

TEST_F(ResourceBase, MissingFolderLeavesNoLanguageAndNamesShowAsThemselves) {
  AddResourcePrefix((first.Path() + L"\\absent").c_str(), L"Tst");
  InitResourceBase();
  EXPECT_EQ(0, GetLanguageCount());
  EXPECT_EQ(-1, GetCurrentLanguage());
  EXPECT_EQ(L"(none)", Text(L"MSG_TEST_GREETING"));
}

TEST_F(ResourceBase, DefaultFollowsTheSystemLanguageThenItsCodePage) {
  Place(first, L"Tst0.dll", L"English");
  Place(first, L"Tst1.dll", L"Russian");
  Place(first, L"Tst2.dll", L"German");
  AddResourcePrefix(first.Path().c_str(), L"Tst");
  InitResourceBase();
  struct Row {
    const char* system;
    LANGID language;
    UINT codePage;
    int32_t chosen;
  } rows[] = {
      {"Russian", 0x419, 1251, 1},
      {"German", 0x407, 1252, 2},
      {"Ukrainian: only the code page matches", 0x422, 1251, 1},
      {"Japanese: neither matches, the first valid", 0x411, 932, 0},
  };
  for (const Row& row : rows) {
    systemLanguage = row.language;
    systemCodePage = row.codePage;
    EXPECT_EQ(row.chosen, ChooseDefaultLanguage()) << row.system;
  }
}

TEST_F(ResourceBase, RussianSystemStartsInRussian) {
  systemLanguage = 0x419;
  systemCodePage = 1251;
  Place(first, L"Tst0.dll", L"English");
  Place(first, L"Tst1.dll", L"Russian");
  AddResourcePrefix(first.Path().c_str(), L"Tst");
  InitResourceBase();
  EXPECT_EQ(1, GetCurrentLanguage());
  EXPECT_EQ(L"Здравствуйте, %0!", Text(L"MSG_TEST_GREETING"));
}

TEST_F(ResourceBase, LastPrefixWinsAndLanguageModulesComeBeforeStaticOnes) {
  HMODULE staticModule = ::LoadLibraryW(Library(L"Static").c_str());
  ASSERT_NE(nullptr, staticModule);
  RegisterStaticModule(staticModule, RMK_Static);  // freed by DoneResourceBase
  Place(first, L"A0.dll", L"English");
  Place(second, L"B0.dll", L"German");  // German texts as language 0 of the later prefix
  AddResourcePrefix(first.Path().c_str(), L"A");
  AddResourcePrefix(second.Path().c_str(), L"B");
  InitResourceBase();
  EXPECT_EQ(L"Sprachmodul", Text(L"MSG_TEST_BOTH"));
  EXPECT_EQ(L"Only static", Text(L"MSG_TEST_STATIC_ONLY"));
  EXPECT_EQ(L"(none)", Text(L"MSG_TEST_NOWHERE"));

  // A thread of its own language falls back to the static modules alone.
  SetThreadLanguage(7);
  EXPECT_EQ(L"Static module", Text(L"MSG_TEST_BOTH"));
  SetThreadLanguage(-1);

  EXPECT_EQ(staticModule, FindResourceModule(MAKEINTRESOURCEW(4), RT_STRING));
  HMODULE german = ::GetModuleHandleW((second / L"B0.dll").c_str());
  EXPECT_EQ(german, FindResourceModule(MAKEINTRESOURCEW(1), RT_VERSION));

  CArray<CUnicodeString> names;
  GetAllMessageNames(names);
  std::vector<std::wstring> listed;
  for (const CUnicodeString& name : names) listed.push_back(W(name));
  EXPECT_EQ((std::vector<std::wstring>{L"CURRENT_LANGUAGE_NAME", L"MSG_TEST_BOTH", L"MSG_TEST_GREETING",
                                       L"MSG_TEST_STATIC_ONLY"}),
            listed);
}

TEST_F(ResourceBase, LanguageTheSystemCannotShowIsRefusedWithABox) {
  Place(first, L"Tst0.dll", L"English");
  Place(first, L"Tst2.dll", L"German");
  AddResourcePrefix(first.Path().c_str(), L"Tst");
  InitResourceBase();
  ASSERT_EQ(0, GetCurrentLanguage());
  refusedLanguage = 0x407;
  SetCurrentLanguage(2);
  EXPECT_EQ(0, GetCurrentLanguage());
  ASSERT_EQ(1u, recorder.shown.size());
  EXPECT_EQ(L"The selected interface language ( Deutsch ) is not supported on the operating system.",
            recorder.shown[0]);
  refusedLanguage = -1;
  SetCurrentLanguage(2);
  EXPECT_EQ(L"Grüß Gott, %0!", Text(L"MSG_TEST_GREETING"));
  EXPECT_EQ(nullptr, ::GetModuleHandleW((first / L"Tst0.dll").c_str())) << "the old language is unloaded";
}

TEST_F(ResourceBase, PrefixAddedAfterStartJoinsTheCurrentLanguage) {
  Place(first, L"A0.dll", L"English");
  Place(second, L"B0.dll", L"German");
  AddResourcePrefix(first.Path().c_str(), L"A");
  InitResourceBase();
  EXPECT_EQ(L"Language module", Text(L"MSG_TEST_BOTH"));
  AddResourcePrefix(second.Path().c_str(), L"B");
  EXPECT_EQ(L"Sprachmodul", Text(L"MSG_TEST_BOTH"));
}

TEST(LanguageTable, IdentifiersJoinSubLanguageAndPrimary) {
  struct Row {
    int32_t language;
    uint16_t identifier;
    uint16_t codePage;
  } rows[] = {{0, 0x409, 0}, {1, 0x419, 1251}, {2, 0x407, 1252}, {28, 0x813, 1252}, {12, 0, 0}, {69, 0x41E, 0}};
  for (const Row& row : rows) {
    EXPECT_EQ(row.identifier, GetLanguageIdentifier(row.language)) << row.language;
    EXPECT_EQ(row.codePage, GetLanguageRow(row.language).codePage) << row.language;
  }
}
