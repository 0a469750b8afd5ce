// The product's resource libraries as the agent and the foundation meet them:
// each loads and says "Resource DLL", the name exports agree with the string
// tables, every name the code declares has a text in every language with the
// English parameters, and the menu and the icons are there in every size.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "message.h"
#include "resourceinfo.h"
#include "services.h"

namespace {

using GetResourceIdFunction = uint32_t(__cdecl*)(const wchar_t*);
using NumberOfMessagesFunction = int32_t(__cdecl*)();
using GetMessageNameFunction = const wchar_t*(__cdecl*)(int32_t);

const wchar_t* const languageModules[] = {L"Mirdal0.dll", L"Mirdal1.dll", L"Mirdal2.dll"};
const wchar_t* const menuModules[] = {L"MirdalRes.dll", L"Mirdal0.dll", L"Mirdal1.dll",
                                      L"Mirdal2.dll"};

// The platform hands out every export as one pointer type.
template <typename Function>
Function Export(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

std::wstring ProgramPath(const std::wstring& name) {
  return std::wstring(MIRDAL_PROGRAM_DIR) + name;
}

std::string Narrow(const std::wstring& text) {
  std::string out;
  for (wchar_t c : text) out += c < 128 ? char(c) : '?';
  return out;
}

// One library of the program folder, loaded for the life of the object.
struct CLoadedLibrary {
  explicit CLoadedLibrary(const std::wstring& name)
      : handle(LoadLibraryW(ProgramPath(name).c_str())) {}
  ~CLoadedLibrary() {
    if (handle != nullptr) FreeLibrary(handle);
  }
  HMODULE handle;
};

// A language module with its three exports.
struct CLanguageModule : CLoadedLibrary {
  explicit CLanguageModule(const std::wstring& name) : CLoadedLibrary(name) {
    getResourceId = Export<GetResourceIdFunction>(handle, "GetResourceID");
    numberOfMessages = Export<NumberOfMessagesFunction>(handle, "NumberOfMessages");
    getMessageName = Export<GetMessageNameFunction>(handle, "GetMessageName");
  }
  bool Complete() const { return getResourceId && numberOfMessages && getMessageName; }

  // The text of `name` as the foundation finds it: identifier, then string.
  std::wstring Text(const std::wstring& name) const {
    uint32_t id = getResourceId(name.c_str());
    if (id == 0) return std::wstring();
    const wchar_t* text = nullptr;
    int length = LoadStringW(handle, UINT(id), reinterpret_cast<wchar_t*>(&text), 0);
    return length > 0 ? std::wstring(text, size_t(length)) : std::wstring();
  }
  std::vector<std::wstring> Names() const {
    std::vector<std::wstring> names;
    for (int32_t i = 0; i < numberOfMessages(); ++i) names.push_back(getMessageName(i));
    return names;
  }

  GetResourceIdFunction getResourceId;
  NumberOfMessagesFunction numberOfMessages;
  GetMessageNameFunction getMessageName;
};

// "FileDescription" under the first translation, as the foundation's version
// reader takes it.
std::wstring FileDescription(const std::wstring& path) {
  DWORD ignored = 0;
  DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
  if (size == 0) return std::wstring();
  std::vector<BYTE> block(size);
  if (!GetFileVersionInfoW(path.c_str(), 0, size, block.data())) return std::wstring();
  WORD* translation = nullptr;
  UINT length = 0;
  if (!VerQueryValueW(block.data(), L"\\VarFileInfo\\Translation",
                      reinterpret_cast<void**>(&translation), &length) ||
      length < 4)
    return std::wstring();
  wchar_t query[64];
  swprintf(query, 64, L"\\StringFileInfo\\%04x%04x\\FileDescription", translation[0],
           translation[1]);
  wchar_t* value = nullptr;
  if (!VerQueryValueW(block.data(), query, reinterpret_cast<void**>(&value), &length) ||
      length == 0)
    return std::wstring();
  return std::wstring(value);
}

// The parameter numbers a text uses: "%" and a run of digits.
std::set<int> Parameters(const std::wstring& text) {
  std::set<int> found;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != L'%' || i + 1 >= text.size() || !iswdigit(text[i + 1])) continue;
    int number = 0;
    while (i + 1 < text.size() && iswdigit(text[i + 1])) number = number * 10 + (text[++i] - L'0');
    found.insert(number);
  }
  return found;
}

// Every quoted message name in the product's sources, as the build lists it
// beside the program folder.
std::set<std::wstring> NamesOfTheSources() {
  std::set<std::wstring> names;
  std::wstring path =
      ProgramPath(L"..\\Companions\\Resources\\generated\\DeclaredMessageNames.txt");
  FILE* list = _wfopen(path.c_str(), L"r");
  if (list == nullptr) return names;
  char line[256];
  while (fgets(line, sizeof(line), list) != nullptr) {
    std::string name(line, strcspn(line, "\r\n"));
    if (!name.empty()) names.insert(std::wstring(name.begin(), name.end()));
  }
  fclose(list);
  return names;
}

}  // namespace

TEST(ResourceLibraries, EachLoadsAndCarriesTheResourceDescription) {
  for (const wchar_t* name : menuModules) {
    CLoadedLibrary library(name);
    EXPECT_NE(library.handle, nullptr) << Narrow(name);
    EXPECT_EQ(FileDescription(ProgramPath(name)), L"Resource DLL") << Narrow(name);
  }
}

TEST(ResourceLibraries, EveryExportedNameHasATextAndUnknownNamesHaveNone) {
  for (const wchar_t* module : languageModules) {
    CLanguageModule language(module);
    ASSERT_TRUE(language.Complete()) << Narrow(module);
    EXPECT_EQ(language.getResourceId(L"MSG_NO_SUCH_MESSAGE"), 0u) << Narrow(module);
    EXPECT_EQ(language.getMessageName(language.numberOfMessages()), nullptr) << Narrow(module);
    for (const std::wstring& name : language.Names())
      EXPECT_FALSE(language.Text(name).empty()) << Narrow(module) << " " << Narrow(name);
  }
}

// A name added to the code, or to one language, without a text in all three
// fails here; so does a translation that drops or adds a parameter.
TEST(ResourceLibraries, EveryDeclaredNameHasATextWithTheEnglishParametersInEveryLanguage) {
  CLanguageModule english(L"Mirdal0.dll");
  ASSERT_TRUE(english.Complete());
  std::set<std::wstring> declared = NamesOfTheSources();
  ASSERT_FALSE(declared.empty()) << "no list of the names in the sources";
  // The catalogue's own list holds the names of every CMessageName linked
  // into this program.
  Tsl::CArray<Tsl::CUnicodeString> linked;
  Tsl::GetDeclaredMessageNames(linked);
  for (int32_t i = 0; i < linked.GetSize(); ++i) declared.insert(linked[i].Text());
  for (const wchar_t* module : languageModules)
    for (const std::wstring& name : CLanguageModule(module).Names()) declared.insert(name);
  for (const wchar_t* module : languageModules) {
    CLanguageModule language(module);
    ASSERT_TRUE(language.Complete()) << Narrow(module);
    for (const std::wstring& name : declared) {
      std::wstring text = language.Text(name);
      EXPECT_FALSE(text.empty()) << Narrow(module) << " lacks " << Narrow(name);
      if (!text.empty()) {
        EXPECT_EQ(Parameters(text), Parameters(english.Text(name)))
            << Narrow(module) << " " << Narrow(name);
      }
    }
  }
}

// The name is what the language choice shows; it also proves that the texts
// went through the resource compiler as Unicode.
TEST(ResourceLibraries, EachLanguageNamesItselfInItsOwnScript) {
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"Mirdal0.dll", L"English"},
      {L"Mirdal1.dll", L"\x0420\x0443\x0441\x0441\x043A\x0438\x0439"},
      {L"Mirdal2.dll", L"Deutsch"},
  };
  for (const auto& [module, expected] : rows)
    EXPECT_EQ(CLanguageModule(module).Text(L"CURRENT_LANGUAGE_NAME"), expected) << Narrow(module);
}

// The agent finds the items by command and opens the first one on a double
// click; the update item must be there for the agent to remove or fill in.
TEST(ResourceLibraries, EveryMenuHoldsTheEightCommandsWithOpeningAsDefault) {
  const std::set<UINT> commands = {30272, 30273, 30274, 30275, 30276, 30277, 30278, 30368};
  for (const wchar_t* module : menuModules) {
    CLoadedLibrary library(module);
    HMENU menu = LoadMenuW(library.handle, L"MDA_AGENT");
    ASSERT_NE(menu, nullptr) << Narrow(module);
    HMENU popup = GetSubMenu(menu, 0);
    std::set<UINT> found;
    for (int i = 0; popup != nullptr && i < GetMenuItemCount(popup); ++i)
      if (GetMenuItemID(popup, i) != 0) found.insert(GetMenuItemID(popup, i));
    EXPECT_EQ(found, commands) << Narrow(module);
    EXPECT_EQ(GetMenuDefaultItem(popup, FALSE, 0), 30277u) << Narrow(module);
    DestroyMenu(menu);
  }
}

// Each icon group offers every size the tray asks for, and no two icons share
// their 16-pixel picture.
TEST(ResourceLibraries, EachIconHasEverySizeAndAPictureOfItsOwn) {
  CLoadedLibrary library(L"MirdalRes.dll");
  ASSERT_NE(library.handle, nullptr);
  std::set<std::string> smallPictures;
  for (int id : {101, 102, 103, 107}) {
    for (int size : {16, 20, 24, 32, 48}) {
      HRSRC group = FindResourceW(library.handle, MAKEINTRESOURCEW(id), MAKEINTRESOURCEW(14));
      ASSERT_NE(group, nullptr) << id;
      auto* directory = static_cast<BYTE*>(LockResource(LoadResource(library.handle, group)));
      int icon = LookupIconIdFromDirectoryEx(directory, TRUE, size, size, 0);
      HRSRC image = FindResourceW(library.handle, MAKEINTRESOURCEW(icon), MAKEINTRESOURCEW(3));
      ASSERT_NE(image, nullptr) << id << " at " << size;
      auto* header =
          static_cast<BITMAPINFOHEADER*>(LockResource(LoadResource(library.handle, image)));
      EXPECT_EQ(header->biWidth, size) << id;
      if (size == 16)
        smallPictures.insert(
            std::string(reinterpret_cast<char*>(header), SizeofResource(library.handle, image)));
    }
  }
  EXPECT_EQ(smallPictures.size(), 4u);
}

// The event viewer formats every event of the foundation with message 1: the
// program's title, then the text.
TEST(ResourceLibraries, EventMessageFileJoinsTitleAndText) {
  CLoadedLibrary library(L"TslEventSrc.dll");
  ASSERT_NE(library.handle, nullptr);
  DWORD_PTR strings[] = {DWORD_PTR(L"Tessels"), DWORD_PTR(L"Disk full")};
  wchar_t buffer[256] = {};
  DWORD length =
      FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, library.handle, 1,
                     0, buffer, 256, reinterpret_cast<va_list*>(strings));
  ASSERT_GT(length, 0u);
  EXPECT_EQ(std::wstring(buffer), L"Tessels:\r\nDisk full\r\n");
}

namespace {

// Boxes land here instead of on the screen.
class CShownRecorder : public Tsl::IFoundationServices {
 public:
  bool GetMessageText(const wchar_t*, Tsl::CUnicodeString&) override { return false; }
  int ShowMessage(const Tsl::CUnicodeString& text, uint32_t) override {
    shown.push_back(text.Text());
    return IDOK;
  }
  void ReportException(Tsl::CException*) override {}
  std::vector<std::wstring> shown;
};

LANGID WINAPI RussianSystem() { return 0x419; }

std::wstring ModuleName(HMODULE module) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(module, path, MAX_PATH);
  const wchar_t* slash = wcsrchr(path, L'\\');
  return slash != nullptr ? slash + 1 : path;
}

}  // namespace

// The libraries as the agent registers them: MirdalRes.dll as its static
// module and the prefix "Mirdal" in the program folder. On a Russian system
// the foundation offers the three languages by their own names, chooses
// Russian, takes texts and the menu from the Russian module and the icons
// from the static one.
TEST(ResourceLibraries, TheFoundationChoosesRussianOnARussianSystemAndFindsEverything) {
  CShownRecorder recorder;
  Tsl::IFoundationServices* previous = Tsl::BindFoundationServices(&recorder);
  Tsl::BindLocaleQueries(Tsl::CLocaleQueries{&RussianSystem, nullptr, nullptr});
  HMODULE staticModule = LoadLibraryW(ProgramPath(L"MirdalRes.dll").c_str());
  ASSERT_NE(staticModule, nullptr);
  Tsl::RegisterStaticModule(staticModule, Tsl::RMK_Static);  // freed by DoneResourceBase
  Tsl::AddResourcePrefix(MIRDAL_PROGRAM_DIR, L"Mirdal");
  Tsl::InitResourceBase();

  std::vector<std::wstring> names;
  for (int32_t i = 0; i < Tsl::GetLanguageCount(); ++i)
    names.push_back(Tsl::GetLanguageName(Tsl::GetLanguageByIndex(i)).Text());
  EXPECT_EQ(names, (std::vector<std::wstring>{
                       L"English", L"\x0420\x0443\x0441\x0441\x043A\x0438\x0439", L"Deutsch"}));
  EXPECT_EQ(Tsl::GetCurrentLanguage(), 1);
  Tsl::CUnicodeString text;
  EXPECT_TRUE(Tsl::GetModuleMessageText(L"MSG_MDA_WORD_OF_THE_DAY_TITLE", text));
  EXPECT_STREQ(text.Text(), L"\x0421\x043B\x043E\x0432\x043E \x0434\x043D\x044F");
  EXPECT_EQ(ModuleName(Tsl::FindResourceModule(L"MDA_AGENT", MAKEINTRESOURCEW(4))), L"Mirdal1.dll");
  EXPECT_EQ(Tsl::FindResourceModule(MAKEINTRESOURCEW(107), MAKEINTRESOURCEW(14)), staticModule);
  EXPECT_TRUE(recorder.shown.empty());

  Tsl::DoneResourceBase();
  Tsl::RemoveResourcePrefixes();
  Tsl::BindLocaleQueries(Tsl::CLocaleQueries{nullptr, nullptr, nullptr});
  Tsl::BindFoundationServices(previous);
}
