// Tests of the failure route: stop modes, texts with and without a catalogue,
// the show-and-return paths, the thread entry guard, the memory-exception
// pool and the double error. Anything that ends a process runs in a child.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "errors.h"
#include "services.h"
#include "tessels.h"

using namespace Tsl;
using TestSupport::Narrow;

namespace {

std::wstring W(const CUnicodeString& text) { return std::wstring(text.Text(), text.Length()); }

// Records what the foundation shows and reports; answers texts from a map.
class CRecordingServices : public IFoundationServices {
 public:
  std::map<std::wstring, std::wstring> catalogue;
  std::vector<std::pair<std::wstring, uint32_t>> shown;
  std::vector<std::wstring> reported;

  bool GetMessageText(const wchar_t* name, CUnicodeString& text) override {
    auto it = catalogue.find(name);
    if (it == catalogue.end()) return false;
    text = it->second.c_str();
    return true;
  }
  int ShowMessage(const CUnicodeString& text, uint32_t flags) override {
    shown.emplace_back(W(text), flags);
    return IDOK;
  }
  void ReportException(CException* exception) override { reported.push_back(W(exception->GetMessageText())); }
};

// Binds a recorder for one test and puts back what was bound before.
class ScopedServices {
 public:
  ScopedServices() : previous(BindFoundationServices(&services)) {}
  ~ScopedServices() { BindFoundationServices(previous); }
  CRecordingServices services;

 private:
  IFoundationServices* previous;
};

// Runs `scenario` on a fresh thread: the per-thread error and entry states
// start clean and do not leak into other tests.
template <class F>
void OnFreshThread(F scenario) {
  std::thread thread(scenario);
  thread.join();
}

class ScopedExceptionsOff {
 public:
  ScopedExceptionsOff() : saved(AreExceptionsEnabled()) { EnableExceptions(false); }
  ~ScopedExceptionsOff() { EnableExceptions(saved); }

 private:
  bool saved;
};

// ---------------------------------------------------------------------------
// Stop modes

TEST(StopMode, WordsAreReadInAnyCaseAndUnknownGivesDefault) {
  struct Row {
    const wchar_t* text;
    int32_t expected;
  } rows[] = {
      {L"Never", SM_Never},  {L"NEVER", SM_Never},  {L"debug", SM_Debug}, {L"Always", SM_Always},
      {L"aLwAyS", SM_Always}, {L"", 7},             {L"sometimes", 7},    {L"Never ", 7},
      {nullptr, 7},
  };
  for (const Row& row : rows)
    EXPECT_EQ(row.expected, StopModeFromText(row.text, 7)) << Narrow(row.text ? row.text : L"(null)");
}

TEST(StopMode, BreaksOnlyAlwaysOrDebugUnderDebugger) {
  struct Row {
    int32_t mode;
    bool debugger;
    bool breaks;
  } rows[] = {
      {SM_Never, false, false}, {SM_Never, true, false},  {SM_Debug, false, false},
      {SM_Debug, true, true},   {SM_Always, false, true}, {SM_Always, true, true},
      {SM_Unread, true, false},
  };
  for (const Row& row : rows)
    EXPECT_EQ(row.breaks, ShouldBreak(row.mode, row.debugger)) << "mode " << row.mode << " debugger " << row.debugger;
}

const wchar_t kTesselsKey[] = L"Software\\Tavix\\Tessels";

// Writes (or, for null, deletes) one text value of the library's key.
void WriteTesselsValue(const wchar_t* name, const wchar_t* text) {
  HKEY key = nullptr;
  ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CURRENT_USER, kTesselsKey, 0, nullptr, 0,
                                           KEY_SET_VALUE | KEY_WOW64_32KEY, nullptr, &key, nullptr));
  if (text == nullptr)
    RegDeleteValueW(key, name);
  else
    RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                   static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t)));
  RegCloseKey(key);
}

// Keeps the two stop-mode values as they were before the test and puts them
// back afterwards; the prefix's registry is shared with other test programs.
class SavedStopModeValues {
 public:
  SavedStopModeValues() {
    for (const wchar_t* name : {L"AssertStopMode", L"ErrorStopMode"}) {
      wchar_t text[256] = {};
      DWORD size = sizeof text - sizeof text[0];
      HKEY key = nullptr;
      bool present = RegOpenKeyExW(HKEY_CURRENT_USER, kTesselsKey, 0, KEY_QUERY_VALUE | KEY_WOW64_32KEY, &key) ==
                     ERROR_SUCCESS;
      if (present) {
        present = RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size) ==
                  ERROR_SUCCESS;
        RegCloseKey(key);
      }
      saved.push_back({name, present, text});
    }
  }
  ~SavedStopModeValues() {
    for (const Saved& value : saved) WriteTesselsValue(value.name, value.present ? value.text.c_str() : nullptr);
  }

 private:
  struct Saved {
    const wchar_t* name;
    bool present;
    std::wstring text;
  };
  std::vector<Saved> saved;
};

// Prints both modes, then changes the registry and prints them again: the
// second read must still give the cached first answer.
MIRDAL_CHILD_ROLE(ReportStopModes) {
  printf("first %d %d\n", GetAssertStopMode(), GetErrorStopMode());
  WriteTesselsValue(L"AssertStopMode", L"Never");
  WriteTesselsValue(L"ErrorStopMode", L"Debug");
  printf("again %d %d\n", GetAssertStopMode(), GetErrorStopMode());
  return 0;
}

TEST(StopMode, ReadOncePerProcessFromTheRegistry) {
  SavedStopModeValues restore;
  // "Always" is left out on purpose: other test programs share this registry
  // and would trap on their own assertions while it stands.
  struct Row {
    const wchar_t* assertText;
    const wchar_t* errorText;
    int assertMode;
    int errorMode;
  } rows[] = {
      {nullptr, nullptr, SM_Debug, SM_Never},     // missing: the defaults
      {L"nEvEr", L"DEBUG", SM_Never, SM_Debug},   // any case
      {L"sometimes", L"", SM_Debug, SM_Never},    // unknown and empty: the defaults
      {L"debug", L"never", SM_Debug, SM_Never},
  };
  for (const Row& row : rows) {
    WriteTesselsValue(L"AssertStopMode", row.assertText);
    WriteTesselsValue(L"ErrorStopMode", row.errorText);
    TestSupport::ChildResult child = TestSupport::RunChild("ReportStopModes");
    std::string first = "first " + std::to_string(row.assertMode) + " " + std::to_string(row.errorMode);
    std::string again = "again " + std::to_string(row.assertMode) + " " + std::to_string(row.errorMode);
    std::string label = Narrow(row.assertText ? row.assertText : L"(none)");
    EXPECT_EQ(0u, child.exitCode) << label;
    EXPECT_NE(std::string::npos, child.output.find(first)) << label << ": " << child.output;
    EXPECT_NE(std::string::npos, child.output.find(again)) << label << ": " << child.output;
  }
}

// ---------------------------------------------------------------------------
// Texts

TEST(MessageText, UndefinedNameShowsNameAndEachParameterAfterABlank) {
  CUnicodeString params[] = {L"one", L"", L"three"};
  EXPECT_EQ(L"ERR_NOT_IN_ANY_TABLE one  three", W(GetMessageOrDefault(L"ERR_NOT_IN_ANY_TABLE", params, 3)));
  EXPECT_EQ(L"ERR_NOT_IN_ANY_TABLE", W(GetMessageOrDefault(L"ERR_NOT_IN_ANY_TABLE", nullptr, 0)));
}

TEST(MessageText, CatalogueTextWinsOverDefaultText) {
  ScopedServices bound;
  CUnicodeString params[] = {L"x", L"why", L"unit", L"42"};
  EXPECT_EQ(L"Internal Program Error:\nAssertion failed: ( x )\nunit, 42.\n( why ).",
            W(GetMessageOrDefault(L"MSG_ASSERT", params, 4)));
  bound.services.catalogue[L"MSG_ASSERT"] = L"Broken at %2:%3";
  EXPECT_EQ(L"Broken at unit:42", W(GetMessageOrDefault(L"MSG_ASSERT", params, 4)));
}

TEST(MessageText, FileNotFoundWithoutResourcesIsNameBlankFileName) {
  try {
    GenerateFileError(ERROR_FILE_NOT_FOUND, L"C:\\data\\missing.txt");
    FAIL() << "no exception";
  } catch (CFileException* e) {
    EXPECT_EQ(FE_NotFound, e->kind);
    EXPECT_EQ(L"ERR_FILE_NOT_FOUND C:\\data\\missing.txt", W(e->GetMessageText()));
    delete e;
  }
}

TEST(MessageText, GenericFileErrorAddsTheSystemText) {
  CFileException e(ERROR_INVALID_FUNCTION, FE_Generic, L"a.txt");
  EXPECT_EQ(L"ERR_FILE_GENERIC a.txt " + W(GetLastErrorText(ERROR_INVALID_FUNCTION)), W(e.GetMessageText()));
}

TEST(MessageText, InternalErrorNamesUnitLineAndCodeForLastErrorKinds) {
  EXPECT_EQ(L"Internal Program Error:\nhashtable, 77.", W(CInternalError(L"hashtable", 77, IE_Presume, 5).GetMessageText()));
  EXPECT_EQ(L"Internal Program Error:\nhashtable, 77.\nError code: 0x1f",
            W(CInternalError(L"hashtable", 77, IE_AssertLastError, 0x1F).GetMessageText()));
  EXPECT_EQ(L"Internal Program Error:\nhashtable, 77.\nError code: 0x5",
            W(CInternalError(L"hashtable", 77, IE_PresumeLastError, 5).GetMessageText()));
}

TEST(MessageText, CheckErrorKeepsNameAndParameters) {
  try {
    GenerateCheckError(L"ERR_BAD_INI_FILE", L"setup.ini", L"12");
    FAIL() << "no exception";
  } catch (CCheckException* e) {
    EXPECT_STREQ(L"ERR_BAD_INI_FILE", e->messageName);
    EXPECT_TRUE(e->params[2].IsEmpty());
    EXPECT_EQ(L"ERR_BAD_INI_FILE setup.ini 12", W(e->GetMessageText()));
    delete e;
  }
}

TEST(MessageText, LastErrorTextOfZeroNeverAsksTheSystem) {
  EXPECT_EQ(L"ERR_UNKNOWN_LAST_ERROR_TEXT 0", W(GetLastErrorText(0)));
  ScopedServices bound;
  bound.services.catalogue[L"ERR_UNKNOWN_LAST_ERROR_TEXT"] = L"Unknown error %0.";
  EXPECT_EQ(L"Unknown error 0.", W(GetLastErrorText(0)));
}

TEST(MessageText, LastErrorTextComesFromTheSystemOrNamesTheCode) {
  std::wstring text = W(GetLastErrorText(ERROR_ACCESS_DENIED));
  EXPECT_FALSE(text.empty());
  EXPECT_EQ(std::wstring::npos, text.find(L"ERR_UNKNOWN")) << Narrow(text);
  EXPECT_EQ(L"ERR_UNKNOWN_LAST_ERROR_TEXT 2000abcd", W(GetLastErrorText(0x2000ABCD)));
}

// An error object with a description, counting its references.
class FakeErrorInfo : public IErrorInfo {
 public:
  explicit FakeErrorInfo(const wchar_t* description) : description(description) {}
  LONG references = 1;
  const wchar_t* description;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }
  HRESULT STDMETHODCALLTYPE GetGUID(GUID*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetSource(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetDescription(BSTR* text) override {
    *text = SysAllocString(description);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD*) override { return E_NOTIMPL; }
};

TEST(MessageText, ComErrorTextPrefersDescriptionThenSystemTextOfWrappedCode) {
  FakeErrorInfo described(L"The widget is jammed");
  EXPECT_EQ(L"The widget is jammed", W(GetComErrorText(E_FAIL, &described)));
  FakeErrorInfo silent(L"");
  std::wstring system = W(GetLastErrorText(ERROR_FILE_NOT_FOUND));
  if (!system.empty() && system.back() == L'\n') system.pop_back();
  if (!system.empty() && system.back() == L'\r') system.pop_back();
  EXPECT_EQ(system, W(GetComErrorText(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), &silent)));
  EXPECT_EQ(L"ERR_UNKNOWN_COM_ERROR a0071234", W(GetComErrorText(static_cast<HRESULT>(0xA0071234), nullptr)));
}

TEST(Exceptions, ComExceptionReleasesItsErrorInfo) {
  FakeErrorInfo info(L"gone");
  info.AddRef();  // the reference handed over
  delete new CCOMException(E_FAIL, &info);
  EXPECT_EQ(1, info.references);
}

TEST(Exceptions, EachClassShowsWithItsFlagsAndUserExceptionStaysSilent) {
  ScopedServices bound;
  CUserException user;
  user.Show();
  EXPECT_TRUE(bound.services.shown.empty());
  CInternalError internal(L"archive", 9, IE_Assert, 0);
  internal.Show();
  CLastErrorException lastError(ERROR_ACCESS_DENIED);
  lastError.Show();
  ASSERT_EQ(2u, bound.services.shown.size());
  EXPECT_EQ(0x1010u, bound.services.shown[0].second);
  EXPECT_EQ(L"Internal Program Error:\narchive, 9.", bound.services.shown[0].first);
  EXPECT_EQ(0u, bound.services.shown[1].second);
  EXPECT_EQ(W(GetLastErrorText(ERROR_ACCESS_DENIED)), bound.services.shown[1].first);
}

// ---------------------------------------------------------------------------
// File error kinds

TEST(FileErrors, EverySystemCodeMapsToItsKind) {
  struct Row {
    int32_t kind;
    std::vector<uint32_t> codes;
  } rows[] = {
      {FE_NotFound, {2, 6, 18, 107}},
      {FE_BadPath, {3, 15, 17, 34, 52, 53, 55, 67, 70, 85, 111, 123, 124, 125, 144, 154, 161, 206, 208, 267}},
      {FE_TooManyOpenFiles, {4, 36, 68, 113}},
      {FE_AccessDenied, {5, 12, 19, 29, 54, 58, 64, 65, 71, 80, 82, 86, 170, 999}},
      {FE_InvalidFile, {11, 26, 60, 66, 114, 182, 191, 193}},
      {FE_RemoveCurrentDir, {16, 145}},
      {FE_DirectoryFull, {62}},
      {FE_BadSeek, {24, 25, 27, 30, 131, 132}},
      {FE_HardIO, {20, 21, 22, 23, 57, 59, 88, 117, 995, 996, 997}},
      {FE_SharingViolation, {32}},
      {FE_LockViolation, {33, 108, 167}},
      {FE_DiskFull, {39, 112}},
      {FE_EndOfFile, {38}},
      {FE_AlreadyExists, {183}},
      {FE_Generic, {1, 7, 207, 268, 1000, 0xFFFFFFFF}},
  };
  for (const Row& row : rows)
    for (uint32_t code : row.codes) EXPECT_EQ(row.kind, FileErrorKindOfCode(code)) << "code " << code;
  for (uint32_t code = 209; code <= 266; ++code) EXPECT_EQ(FE_Generic, FileErrorKindOfCode(code)) << "code " << code;
}

TEST(FileErrors, ThrownExceptionCarriesCodeKindAndName) {
  try {
    GenerateFileError(ERROR_SHARING_VIOLATION, L"locked.dat");
  } catch (CFileException* e) {
    EXPECT_EQ(32u, e->systemCode);
    EXPECT_EQ(FE_SharingViolation, e->kind);
    EXPECT_EQ(L"ERR_FILE_SHARING_VIOLATION locked.dat", W(e->GetMessageText()));
    delete e;
  }
  try {
    GenerateFileErrorOfKind(FE_DiskFull, L"big.dat");
  } catch (CFileException* e) {
    EXPECT_EQ(0u, e->systemCode);
    EXPECT_EQ(L"ERR_FILE_DISK_FULL big.dat", W(e->GetMessageText()));
    delete e;
  }
}

TEST(FileErrors, CodeZeroAndKindZeroAreInternalErrors) {
  struct Row {
    void (*raise)();
    int32_t line;
  } rows[] = {
      {[] { GenerateFileError(0, L"x"); }, 655},
      {[] { GenerateFileErrorOfKind(0, L"x"); }, 694},
  };
  for (const Row& row : rows) {
    try {
      row.raise();
      ADD_FAILURE() << "no exception for line " << row.line;
    } catch (CInternalError* e) {
      EXPECT_STREQ(L"errors", e->file);
      EXPECT_EQ(row.line, e->line);
      delete e;
    } catch (CException* e) {
      ADD_FAILURE() << "not an internal error for line " << row.line;
      delete e;
    }
  }
}

// ---------------------------------------------------------------------------
// Showing instead of throwing

TEST(ShowAndReturn, AssertionThrowsWhileSomeoneCatches) {
  try {
    TSL_ASSERT(1 + 1 == 3, L"unicodestring", 123);
    FAIL() << "no exception";
  } catch (CInternalError* e) {
    EXPECT_STREQ(L"unicodestring", e->file);
    EXPECT_EQ(123, e->line);
    EXPECT_EQ(IE_Assert, e->kind);
    delete e;
  }
  EXPECT_FALSE(GetThreadErrorState().inError);
}

TEST(ShowAndReturn, ExceptionsDisabledShowDefaultTextsAndReturn) {
  OnFreshThread([] {
    ScopedServices bound;
    ScopedExceptionsOff off;
    EXPECT_FALSE(GenerateInternalError(IE_Assert, L"x > 0", L"why", L"unit", 42, 0));
    EXPECT_FALSE(GenerateInternalError(IE_PresumeLastError, L"h", L"", L"dll", 7, ERROR_ACCESS_DENIED));
    EXPECT_FALSE(GenerateLastError(ERROR_ACCESS_DENIED));
    EXPECT_FALSE(GenerateCheckError(L"ERR_BAD_ARCHIVE", L"a.bin", L""));
    std::wstring denied = W(GetLastErrorText(ERROR_ACCESS_DENIED));
    std::vector<std::pair<std::wstring, uint32_t>> expected = {
        {L"Internal Program Error:\nAssertion failed: ( x > 0 )\nunit, 42.\n( why ).", 0x1010},
        {L"Internal Program Error:\nPresumption failed: ( h )\ndll, 7.\n(  ).\nError code: 0x5 - " + denied, 0x1010},
        {denied, 0x1010},
        {L"ERR_BAD_ARCHIVE a.bin", 0x1010},
    };
    EXPECT_EQ(expected, bound.services.shown);
    EXPECT_TRUE(GetThreadEntryState().fatalErrorShown);
    EXPECT_FALSE(GetThreadErrorState().inError);
    EXPECT_FALSE(GetThreadErrorState().showingError);
  });
}

TEST(ShowAndReturn, AbortAndComErrorThrowEvenWhenExceptionsAreOff) {
  ScopedExceptionsOff off;
  try {
    GenerateAbort();
  } catch (CUserException* e) {
    EXPECT_TRUE(e->GetMessageText().IsEmpty());
    delete e;
  }
  try {
    GenerateComError(E_OUTOFMEMORY);
  } catch (CCOMException* e) {
    EXPECT_EQ(E_OUTOFMEMORY, e->result);
    EXPECT_EQ(nullptr, e->errorInfo);
    delete e;
  }
}

// ---------------------------------------------------------------------------
// The thread entry guard

TEST(EntryGuard, ReportsEscapingExceptionAndThenAssertionsShowAndReturn) {
  OnFreshThread([] {
    ScopedServices bound;
    int result = RunThreadEntryGuarded([](void*) -> int { GenerateLastError(ERROR_FILE_NOT_FOUND); return 5; },
                                       nullptr);
    EXPECT_EQ(-1, result);
    ASSERT_EQ(1u, bound.services.reported.size());
    EXPECT_EQ(W(GetLastErrorText(ERROR_FILE_NOT_FOUND)), bound.services.reported[0]);
    EXPECT_TRUE(GetThreadEntryState().noThrow);

    // After the guard nobody would catch: the assertion shows and returns.
    TSL_ASSERT(false, L"tessels", 321);
    ASSERT_EQ(1u, bound.services.shown.size());
    EXPECT_NE(std::wstring::npos, bound.services.shown[0].first.find(L"tessels, 321."));
  });
}

TEST(EntryGuard, PassesResultAndRefusesToRunAfterAFatalError) {
  OnFreshThread([] {
    int ran = 0;
    EXPECT_EQ(7, RunThreadEntryGuarded([](void* context) -> int { ++*static_cast<int*>(context); return 7; }, &ran));
    GetThreadEntryState().fatalErrorShown = true;
    EXPECT_EQ(-1, RunThreadEntryGuarded([](void* context) -> int { ++*static_cast<int*>(context); return 7; }, &ran));
    EXPECT_EQ(1, ran);
  });
}

// ---------------------------------------------------------------------------
// Double error

// A box whose showing itself fails an assertion, as a broken handler would.
class AssertingBox : public CRecordingServices {
 public:
  int ShowMessage(const CUnicodeString& text, uint32_t flags) override {
    printf("box [%s] %x\n", Narrow(W(text)).c_str(), flags);
    fflush(stdout);
    if (++calls == 1) TSL_ASSERT(false, L"messagehandlers", 99);
    return IDOK;
  }
  int calls = 0;
};

MIRDAL_CHILD_ROLE(AssertInsideFatalBox) {
  static AssertingBox box;
  BindFoundationServices(&box);
  GetThreadEntryState().noThrow = true;  // as after the program's main function
  TSL_ASSERT(false, L"tessels", 10);
  printf("returned\n");
  return 0;
}

TEST(DoubleError, AssertionInsideFatalMessageEndsTheProcess) {
  TestSupport::ChildResult child = TestSupport::RunChild("AssertInsideFatalBox");
  child.output.erase(std::remove(child.output.begin(), child.output.end(), '\r'), child.output.end());
  EXPECT_EQ(3u, child.exitCode);  // the runtime's abort
  EXPECT_NE(std::string::npos, child.output.find("tessels, 10.")) << child.output;
  EXPECT_NE(std::string::npos, child.output.find("box [Double internal error!\nApplication terminated.] 1010"))
      << child.output;
  EXPECT_EQ(std::string::npos, child.output.find("returned")) << child.output;
}

// ---------------------------------------------------------------------------
// Memory-exception pool

std::vector<CException*> TakeMemoryExceptions(int count) {
  std::vector<CException*> taken;
  for (int i = 0; i < count; ++i) {
    try {
      GenerateMemoryError();
    } catch (CMemoryException* e) {
      taken.push_back(e);
    }
  }
  return taken;
}

TEST(MemoryPool, SixtyFourLiveExceptionsWorkAndPlacesAreReused) {
  OnFreshThread([] {
    std::vector<CException*> first = TakeMemoryExceptions(64);
    ASSERT_EQ(64u, first.size());
    EXPECT_EQ(L"Not enough memory!", W(first[63]->GetMessageText()));
    EXPECT_TRUE(GetThreadErrorState().inError);
    for (CException* e : first) delete e;
    std::vector<CException*> second = TakeMemoryExceptions(64);
    ASSERT_EQ(64u, second.size());
    EXPECT_EQ(std::set<CException*>(first.begin(), first.end()), std::set<CException*>(second.begin(), second.end()));
    for (CException* e : second) delete e;
  });
}

MIRDAL_CHILD_ROLE(OverrunMemoryPool) {
  SetQuietMode(true);
  std::vector<CException*> taken = TakeMemoryExceptions(64);
  printf("%d taken\n", static_cast<int>(taken.size()));
  fflush(stdout);
  TakeMemoryExceptions(1);
  printf("65 taken\n");
  return 0;
}

TEST(MemoryPool, SixtyFifthLiveExceptionEndsTheProcess) {
  TestSupport::ChildResult child = TestSupport::RunChild("OverrunMemoryPool");
  EXPECT_FALSE(child.timedOut);
  EXPECT_NE(0u, child.exitCode);
  EXPECT_NE(std::string::npos, child.output.find("64 taken")) << child.output;
  EXPECT_EQ(std::string::npos, child.output.find("65 taken")) << child.output;
}

LONG CALLBACK ExitOnBreakpoint(EXCEPTION_POINTERS* info) {
  if (info->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT) return EXCEPTION_CONTINUE_SEARCH;
  printf("breakpoint\n");
  fflush(stdout);
  ExitProcess(42);
}

// Raises the memory error, with the break flag when asked for by "break".
MIRDAL_CHILD_ROLE(RaiseMemoryError) {
  AddVectoredExceptionHandler(1, ExitOnBreakpoint);
  if (wcscmp(argv[argc - 1], L"break") == 0) SetDebugFlags(GetDebugFlags() | DF_BreakOnMemoryException);
  try {
    GenerateMemoryError();
  } catch (CMemoryException* e) {
    delete e;
    printf("caught\n");
  }
  return 0;
}

TEST(MemoryPool, MemoryErrorBreaksFirstOnlyWithTheDebugFlag) {
  TestSupport::ChildResult plain = TestSupport::RunChild("RaiseMemoryError");
  EXPECT_EQ(0u, plain.exitCode);
  EXPECT_NE(std::string::npos, plain.output.find("caught")) << plain.output;
  TestSupport::ChildResult breaking = TestSupport::RunChild("RaiseMemoryError", L"break");
  EXPECT_EQ(42u, breaking.exitCode);
  EXPECT_NE(std::string::npos, breaking.output.find("breakpoint")) << breaking.output;
  EXPECT_EQ(std::string::npos, breaking.output.find("caught")) << breaking.output;
}

// ---------------------------------------------------------------------------
// Services

TEST(Services, UnboundHaveNoTextsAndForwardOnceBound) {
  IFoundationServices* previous = BindFoundationServices(nullptr);
  CUnicodeString text;
  EXPECT_FALSE(GetMessageText(L"MSG_ASSERT", text));
  EXPECT_EQ(IDOK, ShowMessage(L"to the debug output", 0));
  {
    CRecordingServices recorder;
    EXPECT_EQ(nullptr, BindFoundationServices(&recorder));
    recorder.catalogue[L"MSG_X"] = L"x";
    EXPECT_TRUE(GetMessageText(L"MSG_X", text));
    EXPECT_EQ(L"x", W(text));
    CLastErrorException e(ERROR_ACCESS_DENIED);
    ReportException(&e);
    EXPECT_EQ(1u, recorder.reported.size());
    EXPECT_EQ(&recorder, BindFoundationServices(previous));
  }
}

}  // namespace
