// Resource modules: the language table, the scan of each prefix's folder for
// its per-language libraries, the choice and loading of the current
// language, and the look-ups of texts and resources in the loaded modules.
#include "resourceinfo.h"

#include <errno.h>
#include <stdlib.h>

#include "DllTools.h"
#include "errors.h"
#include "inifile.h"
#include "services.h"
#include "tessels.h"
#include "versioninfo.h"

namespace Tsl {

const wchar_t ResourceLibraryDescription[] = L"Resource DLL";

namespace {

const wchar_t* const unitName = L"resourceinfo";

// The fixed language table; the language is the row's index.
const CLanguageRow languageTable[LanguageTableSize] = {
    {0, 9, 1},     {1251, 25, 1}, {1252, 7, 1},  {1252, 12, 1}, {1251, 34, 1}, {1252, 10, 1},
    {1252, 16, 1}, {1252, 19, 1}, {1252, 6, 1},  {1252, 29, 1}, {1252, 11, 1}, {1252, 20, 1},
    {0, 0, 0},     {1252, 22, 2}, {1250, 27, 1}, {1250, 21, 1}, {1250, 5, 1},  {1250, 14, 1},
    {1257, 39, 1}, {1257, 38, 1}, {1257, 37, 1}, {1252, 15, 1}, {1253, 8, 1},  {1251, 2, 1},
    {1254, 31, 1}, {0, 68, 1},    {0, 17, 1},    {1252, 22, 1}, {1252, 19, 2}, {1255, 13, 1},
    {0, 0, 0},     {0, 0, 0},     {0, 0, 0},     {0, 0, 0},     {0, 57, 1},    {1251, 26, 3},
    {1250, 26, 1}, {1250, 24, 1}, {1250, 36, 1}, {1252, 3, 1},  {1251, 47, 1}, {0, 0, 0},
    {1251, 63, 1}, {1250, 26, 2}, {0, 0, 0},     {0, 0, 0},     {0, 0, 0},     {0, 0, 0},
    {0, 0, 0},     {0, 0, 0},     {0, 0, 0},     {0, 0, 0},     {0, 0, 0},     {0, 0, 0},
    {0, 0, 0},     {0, 0, 0},     {0, 0, 0},     {0, 0, 0},     {0, 0, 0},     {0, 0, 0},
    {0, 0, 0},     {0, 0, 0},     {1258, 42, 1}, {0, 18, 1},    {0, 4, 2},     {0, 4, 1},
    {0, 0, 0},     {0, 0, 0},     {0, 0, 0},     {0, 30, 1},
};

// Numbers in file names are checked against this, though only 70 languages
// exist.
const int32_t LanguageBits = 128;

// Traces of the search, for a developer's build only.
void Trace(const wchar_t* format, const CUnicodeString& argument) {
#ifdef TESSELS_RESOURCE_TRACE
  CUnicodeString text;
  text.Format(format, argument.Text());
  ::OutputDebugStringW(text.Text());
#else
  (void)format;
  (void)argument;
#endif
}

struct CResourceModule : CAllocatedOn<ProcessHeap> {
  HMODULE handle;
  int32_t kind;
  GetResourceIdFunction getResourceId;
  NumberOfMessagesFunction numberOfMessages;
  GetMessageNameFunction getMessageName;

  CResourceModule(HMODULE handle, int32_t kind) : handle(handle), kind(kind) {
    getResourceId = reinterpret_cast<GetResourceIdFunction>(
        reinterpret_cast<void*>(::GetProcAddress(handle, "GetResourceID")));
    numberOfMessages = reinterpret_cast<NumberOfMessagesFunction>(
        reinterpret_cast<void*>(::GetProcAddress(handle, "NumberOfMessages")));
    getMessageName = reinterpret_cast<GetMessageNameFunction>(
        reinterpret_cast<void*>(::GetProcAddress(handle, "GetMessageName")));
  }

  bool LoadText(const wchar_t* name, CUnicodeString& text) const {
    if (getResourceId == nullptr) return false;
    uint32_t id = getResourceId(name);
    return id != 0 && text.LoadString(handle, id);
  }
};

struct CResourcePrefix : CAllocatedOn<ProcessHeap> {
  CUnicodeString folder;  // ends with a separator
  CUnicodeString prefix;
  bool scanned = false;
  bool languages[128] = {};  // languages with a valid library
  CUnicodeString names[LanguageBits];
  // The file found for each language: "Mirdal01.dll" serves language 1 as
  // well as "Mirdal1.dll" does.
  CUnicodeString files[LanguageBits];
};

// The modules of one language that is in use.
struct CLanguageModules : CAllocatedOn<ProcessHeap> {
  int32_t language;
  int32_t references = 0;
  CArray<CResourceModule*, ProcessHeap> modules;
};

struct CLanguageEntry {
  int32_t language;
  CUnicodeString name;
};

// All of this unit's state, under resourceLock; staticModules also under
// staticModulesLock, taken after it. Made on first use, kept for the process.
struct CResourceBase {
  CRITICAL_SECTION resourceLock;
  CRITICAL_SECTION staticModulesLock;
  CArray<CResourcePrefix*, ProcessHeap> prefixes;
  CArray<CResourceModule*, ProcessHeap> staticModules;
  CArray<CLanguageEntry, ProcessHeap> languageList;
  CArray<CLanguageModules*, ProcessHeap> inUse;
  int32_t currentLanguage = -1;
  bool ready = false;
  CResourceBase() {
    ::InitializeCriticalSection(&resourceLock);
    ::InitializeCriticalSection(&staticModulesLock);
  }
};

CResourceBase& Base() {
  alignas(CResourceBase) static unsigned char storage[sizeof(CResourceBase)];
  static CResourceBase* base = new (storage) CResourceBase;
  return *base;
}

class CResourceLock {
 public:
  CResourceLock() { ::EnterCriticalSection(&Base().resourceLock); }
  ~CResourceLock() { ::LeaveCriticalSection(&Base().resourceLock); }
  CResourceLock(const CResourceLock&) = delete;
  CResourceLock& operator=(const CResourceLock&) = delete;
};

thread_local int32_t threadLanguage = -1;

CLocaleQueries localeQueries = {&::GetSystemDefaultLangID, &::GetACP, &::IsValidLocale};

void ReleaseModule(CResourceModule* module) {
  if (module->kind != RMK_Permanent) FreeLibraryInternal(module->handle);
  delete module;
}

CUnicodeString CandidatePath(const CResourcePrefix& prefix, int32_t language) {
  if (language >= 0 && language < LanguageBits && !prefix.files[language].IsEmpty())
    return prefix.folder + prefix.files[language];
  return prefix.folder + prefix.prefix + CUnicodeString::FromNumber(int64_t(language)) + L".dll";
}

bool HasResourceDescription(const CUnicodeString& path) {
  CVersionInfo version;
  version.Load(path);
  return version.GetStringValue(L"FileDescription").CompareNoCase(ResourceLibraryDescription) == 0;
}

// Loads one language library after checking its description, so that a
// stray library of the right name is never loaded and run. Null on failure.
CResourceModule* LoadCandidate(const CUnicodeString& path) {
  if (::GetFileAttributesW(path.Text()) == INVALID_FILE_ATTRIBUTES) {
    Trace(L"Tessels: Resource DLL %ls not found.\n", path);
    return nullptr;
  }
  if (!HasResourceDescription(path)) {
    Trace(L"Tessels: Resource DLL candidate %ls has invalid version info\n", path);
    return nullptr;
  }
  HMODULE handle = LoadLibraryInternal(path);
  if (handle == nullptr) {
    Trace(L"Tessels: Can't load resource DLL %ls.\n", path);
    return nullptr;
  }
  Trace(L"Tessels: Resource DLL %ls is loaded.\n", path);
  return new CResourceModule(handle, RMK_Language);
}

// The number a candidate's file name carries after the prefix, or -1.
int32_t LanguageOfFileName(const wchar_t* fileName, const CUnicodeString& prefix) {
  CUnicodeString name(fileName);
  int32_t dot = name.ReverseFind(L'.');
  if (dot >= 0) name = name.Left(dot);
  if (name.Length() <= prefix.Length()) return -1;
  CUnicodeString rest = name.Mid(prefix.Length());
  wchar_t* end = nullptr;
  errno = 0;
  long number = wcstol(rest.Text(), &end, 10);
  if (errno == ERANGE || end == rest.Text() || *end != 0) return -1;
  if (number < 0 || number >= LanguageBits) return -1;
  return int32_t(number);
}

void Scan(CResourcePrefix& prefix) {
  for (bool& has : prefix.languages) has = false;
  for (CUnicodeString& file : prefix.files) file.Empty();
  WIN32_FIND_DATAW found;
  CUnicodeString mask = prefix.folder + prefix.prefix + L"*.dll";
  HANDLE search = ::FindFirstFileW(mask.Text(), &found);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
      int32_t language = LanguageOfFileName(found.cFileName, prefix.prefix);
      if (language < 0) continue;
      CResourceModule* module = LoadCandidate(prefix.folder + found.cFileName);
      if (module == nullptr) continue;
      prefix.files[language] = found.cFileName;
      prefix.languages[language] = true;
      CUnicodeString name;
      if (!module->LoadText(L"CURRENT_LANGUAGE_NAME", name)) name.Empty();
      prefix.names[language] = name;
      // Scanning keeps nothing loaded.
      ReleaseModule(module);
    } while (::FindNextFileW(search, &found));
    ::FindClose(search);
  }
  prefix.scanned = true;
}

void ScanIfNeeded(CResourcePrefix& prefix) {
  if (!prefix.scanned) Scan(prefix);
}

// The usable languages: every prefix must have the library.
void BuildLanguageList() {
  CResourceBase& base = Base();
  base.languageList.DeleteAll();
  if (base.prefixes.IsEmpty()) return;
  for (int32_t i = 0; i < base.prefixes.GetSize(); ++i) ScanIfNeeded(*base.prefixes[i]);
  for (int32_t language = 0; language < LanguageBits; ++language) {
    bool everywhere = true;
    for (int32_t i = 0; i < base.prefixes.GetSize() && everywhere; ++i)
      everywhere = base.prefixes[i]->languages[language];
    if (everywhere) base.languageList.Add(CLanguageEntry{language, CUnicodeString()});
  }
}

void FillLanguageNames() {
  CResourceBase& base = Base();
  for (int32_t i = 0; i < base.languageList.GetSize(); ++i) {
    CLanguageEntry& entry = base.languageList[i];
    entry.name.Empty();
    for (int32_t p = 0; p < base.prefixes.GetSize() && entry.name.IsEmpty(); ++p)
      entry.name = base.prefixes[p]->names[entry.language];
    if (entry.name.IsEmpty()) entry.name = CUnicodeString::FromNumber(int64_t(entry.language));
  }
}

// Under the debug flag: names, for each prefix, the languages that other
// prefixes have and it lacks.
void CheckModulesExistence() {
  if (!IsDebugFlagSet(DF_CheckAllResourceModulesExistence)) return;
  CResourceBase& base = Base();
  bool any[LanguageBits] = {};
  for (int32_t i = 0; i < base.prefixes.GetSize(); ++i)
    for (int32_t language = 0; language < LanguageBits; ++language)
      if (base.prefixes[i]->languages[language]) any[language] = true;
  CUnicodeString report;
  for (int32_t i = 0; i < base.prefixes.GetSize(); ++i) {
    CUnicodeString missing;
    for (int32_t language = 0; language < LanguageBits; ++language) {
      if (!any[language] || base.prefixes[i]->languages[language]) continue;
      if (!missing.IsEmpty()) missing += L", ";
      missing += CUnicodeString::FromNumber(int64_t(language));
    }
    if (missing.IsEmpty()) continue;
    report += CUnicodeString(
                  L"For prefix '%0' resource modules for following languages: %1 are missing.")
                  .SubstParam(base.prefixes[i]->prefix, missing);
    report += L"\n";
  }
  if (!report.IsEmpty()) {
    CRuntimeHeapSwitch onRuntimeHeap;
    ShowMessage(report, MB_OK | MB_ICONHAND | MB_SYSTEMMODAL);
  }
}

CLanguageModules* FindInUse(int32_t language) {
  CResourceBase& base = Base();
  for (int32_t i = 0; i < base.inUse.GetSize(); ++i)
    if (base.inUse[i]->language == language) return base.inUse[i];
  return nullptr;
}

// Loads `prefix`'s library of the language into its array, unless it is
// there; a failure is shown and the other modules carry on.
void LoadPrefixModule(CLanguageModules& modules, const CResourcePrefix& prefix) {
  CResourceModule* module = LoadCandidate(CandidatePath(prefix, modules.language));
  if (module == nullptr) {
    CRuntimeHeapSwitch onRuntimeHeap;
    CUnicodeString path = CandidatePath(prefix, modules.language);
    ShowMessage(GetMessageOrDefault(L"ERR_CANT_LOAD_DLL", &path, 1),
                MB_OK | MB_ICONHAND | MB_SYSTEMMODAL);
    return;
  }
  for (int32_t i = 0; i < modules.modules.GetSize(); ++i) {
    if (modules.modules[i]->handle == module->handle) {
      ReleaseModule(module);
      return;
    }
  }
  modules.modules.Add(module);
}

void ReleaseLanguage(int32_t language) {
  CLanguageModules* modules = FindInUse(language);
  if (modules == nullptr) return;
  if (--modules->references > 0) return;
  // Released languages aren't cached: they are unloaded at once.
  CResourceBase& base = Base();
  base.inUse.DeleteAt(base.inUse.Find(modules));
  for (int32_t i = modules->modules.GetSize() - 1; i >= 0; --i) ReleaseModule(modules->modules[i]);
  delete modules;
}

bool IsUsable(int32_t language) {
  for (const CLanguageEntry& entry : Base().languageList)
    if (entry.language == language) return true;
  return false;
}

void ChooseIfNone() {
  CResourceBase& base = Base();
  if (base.currentLanguage < 0 && !base.languageList.IsEmpty()) SetCurrentLanguage(ChooseDefaultLanguage());
}

}  // namespace

CLanguageRow GetLanguageRow(int32_t language) {
  if (language < 0 || language >= LanguageTableSize) return CLanguageRow{0, 0, 0};
  return languageTable[language];
}

uint16_t GetLanguageIdentifier(int32_t language) {
  CLanguageRow row = GetLanguageRow(language);
  return uint16_t(row.sub << 10 | row.primary);
}

CLocaleQueries BindLocaleQueries(const CLocaleQueries& queries) {
  CResourceLock lock;
  CLocaleQueries previous = localeQueries;
  localeQueries.systemDefaultLangId =
      queries.systemDefaultLangId ? queries.systemDefaultLangId : &::GetSystemDefaultLangID;
  localeQueries.ansiCodePage = queries.ansiCodePage ? queries.ansiCodePage : &::GetACP;
  localeQueries.isValidLocale = queries.isValidLocale ? queries.isValidLocale : &::IsValidLocale;
  return previous;
}

void RegisterStaticModule(HMODULE module, int32_t kind) {
  TSL_ASSERT(module != nullptr, unitName, 371);
  if (module == nullptr) return;
  CResourceLock lock;
  CResourceBase& base = Base();
  ::EnterCriticalSection(&base.staticModulesLock);
  CResourceModule* record = nullptr;
  for (int32_t i = 0; i < base.staticModules.GetSize(); ++i) {
    if (base.staticModules[i]->handle == module) {
      record = base.staticModules[i];
      base.staticModules.DeleteAt(i);
      break;
    }
  }
  if (record == nullptr) record = new CResourceModule(module, kind);
  base.staticModules.Add(record);
  ::LeaveCriticalSection(&base.staticModulesLock);
}

void AddResourcePrefix(const CUnicodeString& folder, const CUnicodeString& prefix) {
  CResourceLock lock;
  CResourceBase& base = Base();
  for (int32_t i = 0; i < base.prefixes.GetSize(); ++i) {
    if (base.prefixes[i]->prefix.CompareNoCase(prefix.Text()) == 0) {
      CResourcePrefix* known = base.prefixes[i];
      base.prefixes.DeleteAt(i);
      base.prefixes.Add(known);
      return;
    }
  }
  CResourcePrefix* record = new CResourcePrefix;
  record->folder = folder;
  if (!folder.IsEmpty() && folder[folder.Length() - 1] != L'\\' && folder[folder.Length() - 1] != L'/')
    record->folder += L'\\';
  record->prefix = prefix;
  base.prefixes.Add(record);
  if (!base.ready) return;
  if (base.prefixes.GetSize() == 1) BuildLanguageList();
  ScanIfNeeded(*record);
  FillLanguageNames();
  CheckModulesExistence();
  if (base.currentLanguage < 0) {
    ChooseIfNone();
  } else {
    for (CLanguageModules* modules : base.inUse) LoadPrefixModule(*modules, *record);
  }
}

void RemoveResourcePrefixes() {
  CResourceLock lock;
  CResourceBase& base = Base();
  TSL_ASSERT(!base.ready, unitName, 420);
  for (CResourcePrefix* prefix : base.prefixes) delete prefix;
  base.prefixes.DeleteAll();
}

void InitResourceBase() {
  CResourceLock lock;
  BuildLanguageList();
  FillLanguageNames();
  CheckModulesExistence();
  Base().ready = true;
  ChooseIfNone();
}

void DoneResourceBase() {
  CResourceLock lock;
  CResourceBase& base = Base();
  while (!base.inUse.IsEmpty()) {
    CLanguageModules* modules = base.inUse.GetLast();
    modules->references = 1;
    ReleaseLanguage(modules->language);
  }
  for (CResourcePrefix* prefix : base.prefixes) prefix->scanned = false;
  ::EnterCriticalSection(&base.staticModulesLock);
  for (int32_t i = base.staticModules.GetSize() - 1; i >= 0; --i) {
    if (base.staticModules[i]->kind != RMK_Static) continue;
    ::FreeLibrary(base.staticModules[i]->handle);
    delete base.staticModules[i];
    base.staticModules.DeleteAt(i);
  }
  ::LeaveCriticalSection(&base.staticModulesLock);
  base.languageList.DeleteAll();
  base.currentLanguage = -1;
  base.ready = false;
}

bool IsResourceBaseReady() {
  CResourceLock lock;
  return Base().ready;
}

int32_t GetLanguageCount() {
  CResourceLock lock;
  TSL_ASSERT(Base().ready, unitName, 678);
  return Base().languageList.GetSize();
}

int32_t GetLanguageByIndex(int32_t index) {
  CResourceLock lock;
  TSL_ASSERT(Base().ready, unitName, 686);
  CArray<CLanguageEntry, ProcessHeap>& list = Base().languageList;
  TSL_ASSERT(index >= 0 && index < list.GetSize(), unitName, 687);
  return index >= 0 && index < list.GetSize() ? list[index].language : -1;
}

int32_t FindLanguageIndex(int32_t language) {
  CResourceLock lock;
  TSL_ASSERT(Base().ready, unitName, 694);
  CArray<CLanguageEntry, ProcessHeap>& list = Base().languageList;
  for (int32_t i = 0; i < list.GetSize(); ++i)
    if (list[i].language == language) return i;
  return -1;
}

CUnicodeString GetLanguageName(int32_t language) {
  CResourceLock lock;
  for (const CLanguageEntry& entry : Base().languageList)
    if (entry.language == language) return entry.name;
  return CUnicodeString::FromNumber(int64_t(language));
}

bool IsLanguageValid(int32_t language) {
  TSL_ASSERT(language >= 0 && language < LanguageTableSize, unitName, 797);
  if (language < 0 || language >= LanguageTableSize) return false;
  LCID locale = MAKELCID(GetLanguageIdentifier(language), SORT_DEFAULT);
  return localeQueries.isValidLocale(locale, LCID_INSTALLED) != FALSE;
}

int32_t ChooseDefaultLanguage() {
  CResourceLock lock;
  TSL_ASSERT(!Base().languageList.IsEmpty(), unitName, 808);
  int32_t first = -1;
  int32_t valid[LanguageTableSize];
  int32_t validCount = 0;
  for (int32_t language = 0; language < LanguageTableSize; ++language) {
    if (!IsUsable(language)) continue;
    if (first < 0) first = language;
    if (IsLanguageValid(language)) valid[validCount++] = language;
  }
  uint16_t systemPrimary = localeQueries.systemDefaultLangId() & 0x3FF;
  for (int32_t i = 0; i < validCount; ++i)
    if (GetLanguageRow(valid[i]).primary == systemPrimary) return valid[i];
  UINT codePage = localeQueries.ansiCodePage();
  for (int32_t i = 0; i < validCount; ++i)
    if (GetLanguageRow(valid[i]).codePage == codePage) return valid[i];
  if (validCount > 0) return valid[0];
  TSL_ASSERT(first >= 0, unitName, 847);
  return first;
}

void SetCurrentLanguage(int32_t language) {
  CResourceLock lock;
  CResourceBase& base = Base();
  if (FindLanguageIndex(language) < 0) {
    TSL_INTERNAL_ERROR(unitName, 494);
    return;
  }
  if (!IsLanguageValid(language)) {
    {
      CRuntimeHeapSwitch onRuntimeHeap;
      ShowMessage(CUnicodeString(L"The selected interface language ( %0 ) is not supported on the "
                                 L"operating system.")
                      .SubstParam(GetLanguageName(language)),
                  0);
    }
    if (base.currentLanguage >= 0) return;
    language = ChooseDefaultLanguage();
    if (language < 0) return;
  }
  if (language == base.currentLanguage) return;
  Trace(L"Tessels: Changing current language to %ls\n", GetLanguageName(language));
  CLanguageModules* modules = FindInUse(language);
  if (modules == nullptr) {
    modules = new CLanguageModules;
    modules->language = language;
    base.inUse.Add(modules);
  }
  ++modules->references;
  if (base.currentLanguage >= 0) ReleaseLanguage(base.currentLanguage);
  base.currentLanguage = language;
  for (int32_t i = 0; i < base.prefixes.GetSize(); ++i) LoadPrefixModule(*modules, *base.prefixes[i]);
}

int32_t GetCurrentLanguage() {
  CResourceLock lock;
  return Base().currentLanguage;
}

void SetThreadLanguage(int32_t language) { threadLanguage = language; }

namespace {

// The two walks of every look-up: the language's modules, then the static
// ones, each from the last, so that the prefix registered last wins and a
// language module wins over a static one. `test` says whether a module
// answers.
template <class Test>
CResourceModule* FindModule(Test test) {
  CResourceBase& base = Base();
  int32_t language = threadLanguage >= 0 ? threadLanguage : base.currentLanguage;
  if (CLanguageModules* modules = FindInUse(language))
    for (int32_t i = modules->modules.GetSize() - 1; i >= 0; --i)
      if (test(*modules->modules[i])) return modules->modules[i];
  ::EnterCriticalSection(&base.staticModulesLock);
  CResourceModule* found = nullptr;
  for (int32_t i = base.staticModules.GetSize() - 1; i >= 0 && found == nullptr; --i)
    if (test(*base.staticModules[i])) found = base.staticModules[i];
  ::LeaveCriticalSection(&base.staticModulesLock);
  return found;
}

}  // namespace

bool GetModuleMessageText(const wchar_t* messageName, CUnicodeString& text) {
  if (messageName == nullptr) return false;
  CRuntimeHeapSwitch onRuntimeHeap;
  CResourceLock lock;
  CUnicodeString found;
  if (FindModule([&](const CResourceModule& module) { return module.LoadText(messageName, found); }) ==
      nullptr)
    return false;
  text = found;
  return true;
}

HMODULE FindResourceModule(const wchar_t* name, const wchar_t* type) {
  CResourceLock lock;
  CResourceModule* module = FindModule([&](const CResourceModule& candidate) {
    if (type == RT_STRING) {
      wchar_t probe[2];
      return ::LoadStringW(candidate.handle, UINT(reinterpret_cast<uintptr_t>(name)), probe, 2) > 0;
    }
    return ::FindResourceW(candidate.handle, name, type) != nullptr;
  });
  return module != nullptr ? module->handle : nullptr;
}

void GetAllMessageNames(CArray<CUnicodeString>& names) {
  names.DeleteAll();
  CRuntimeHeapSwitch onRuntimeHeap;
  CResourceLock lock;
  CResourceBase& base = Base();
  auto collect = [&](const CResourceModule& module) {
    if (module.numberOfMessages == nullptr || module.getMessageName == nullptr) return;
    int32_t count = module.numberOfMessages();
    for (int32_t i = 0; i < count; ++i) {
      const wchar_t* name = module.getMessageName(i);
      if (name != nullptr) names.Add(CUnicodeString(name));
    }
  };
  int32_t language = threadLanguage >= 0 ? threadLanguage : base.currentLanguage;
  if (CLanguageModules* modules = FindInUse(language))
    for (CResourceModule* module : modules->modules) collect(*module);
  ::EnterCriticalSection(&base.staticModulesLock);
  for (CResourceModule* module : base.staticModules) collect(*module);
  ::LeaveCriticalSection(&base.staticModulesLock);
  SortStringsByUnits(names);
  for (int32_t i = names.GetSize() - 1; i > 0; --i)
    if (names[i].Compare(names[i - 1]) == 0) names.DeleteAt(i);
}

}  // namespace Tsl
