// Tests of the failure route: stop modes, texts with and without a catalogue,
// the show-and-return paths, the thread entry guard, the memory-exception
// pool and the double error. Anything that ends a process runs in a child.
#include "errors.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "services.h"
#include "tessels.h"

using namespace Tsl;
using TestSupport::Narrow;

namespace {

const auto npos = std::string::npos;

std::wstring W(const CUnicodeString& text) { return std::wstring(text.Text(), text.Length()); }

// Records what the foundation shows; knows no catalogue texts.
class CRecordingServices : public IFoundationServices {
 public:
  std::vector<std::pair<std::wstring, uint32_t>> shown;

  bool GetMessageText(const wchar_t*, CUnicodeString&) override { return false; }
  int ShowMessage(const CUnicodeString& text, uint32_t flags) override {
    return shown.emplace_back(W(text), flags), IDOK;
  }
  void ReportException(CException*) override {}
};

// Binds a recorder for one test and puts back what was bound before.
struct ScopedServices {
  CRecordingServices services;
  IFoundationServices* previous = BindFoundationServices(&services);
  ~ScopedServices() { BindFoundationServices(previous); }
};

// Runs `raise` and returns the E it threw, or null when it returned.
template <class E, class F>
std::unique_ptr<E> Caught(F raise) {
  try {
    raise();
  } catch (E* e) {
    return std::unique_ptr<E>(e);
  }
  return nullptr;
}

// ---------------------------------------------------------------------------
// Stop modes

const wchar_t kTesselsKey[] = L"Software\\Tavix\\Tessels";
const wchar_t* const kStopModeNames[] = {L"AssertStopMode", L"ErrorStopMode"};

// Writes one value of the library's key, or deletes it for null.
void SetTesselsValue(const wchar_t* name, const wchar_t* text) {
  if (text == nullptr)
    RegDeleteKeyValueW(HKEY_CURRENT_USER, kTesselsKey, name);
  else
    RegSetKeyValueW(HKEY_CURRENT_USER, kTesselsKey, name, REG_SZ, text,
                    DWORD(wcslen(text) + 1) * 2);
}

// Prints both modes, then changes the registry and prints them again: the
// second read must still give the cached first answer.
MIRDAL_CHILD_ROLE(ReportStopModes) {
  printf("first %d %d\n", GetAssertStopMode(), GetErrorStopMode());
  SetTesselsValue(kStopModeNames[0], L"Never");
  SetTesselsValue(kStopModeNames[1], L"Debug");
  printf("again %d %d\n", GetAssertStopMode(), GetErrorStopMode());
  return 0;
}

TEST(StopMode, ReadOncePerProcessFromTheRegistry) {
  // The prefix's registry is shared with other test programs: put back what was there.
  wchar_t saved[2][256] = {};
  bool present[2];
  for (int i = 0; i < 2; ++i) {
    DWORD size = sizeof saved[i];
    present[i] = RegGetValueW(HKEY_CURRENT_USER, kTesselsKey, kStopModeNames[i], RRF_RT_REG_SZ,
                              nullptr, saved[i], &size) == ERROR_SUCCESS;
  }
  // "Always" is left out on purpose: the other test programs would trap on
  // their own assertions while it stands.
  // clang-format off
  const struct { const wchar_t *assertText, *errorText; int assertMode, errorMode; } rows[] = {
      {L"nEvEr", L"DEBUG", SM_Never, SM_Debug},  // any case
      {L"sometimes", L"", SM_Debug, SM_Never},   // unknown and empty: the defaults
  };
  // clang-format on
  for (const auto& row : rows) {
    SetTesselsValue(kStopModeNames[0], row.assertText);
    SetTesselsValue(kStopModeNames[1], row.errorText);
    TestSupport::ChildResult child = TestSupport::RunChild("ReportStopModes");
    std::string modes = std::to_string(row.assertMode) + " " + std::to_string(row.errorMode);
    EXPECT_EQ(0u, child.exitCode);
    EXPECT_NE(npos, child.output.find("first " + modes)) << modes << ": " << child.output;
    EXPECT_NE(npos, child.output.find("again " + modes)) << modes << ": " << child.output;
  }
  for (int i = 0; i < 2; ++i) SetTesselsValue(kStopModeNames[i], present[i] ? saved[i] : nullptr);
}

// ---------------------------------------------------------------------------
// Texts

TEST(MessageText, DefaultTextOrTheNameWithEachParameterAfterABlank) {
  CUnicodeString params[] = {L"one", L"", L"three"};
  EXPECT_EQ(L"ERR_NOT_IN_ANY_TABLE one  three",
            W(GetMessageOrDefault(L"ERR_NOT_IN_ANY_TABLE", params, 3)));
  EXPECT_EQ(L"ERR_NOT_IN_ANY_TABLE", W(GetMessageOrDefault(L"ERR_NOT_IN_ANY_TABLE", nullptr, 0)));
  ScopedServices bound;
  CUnicodeString assertion[] = {L"x", L"why", L"unit", L"42"};
  EXPECT_EQ(L"Internal Program Error:\nAssertion failed: ( x )\nunit, 42.\n( why ).",
            W(GetMessageOrDefault(L"MSG_ASSERT", assertion, 4)));
  // A check failure shows all three of its parameters, empty ones too.
  EXPECT_EQ(L"ERR_NOT_IN_ANY_TABLE  two ",
            W(CCheckException(L"ERR_NOT_IN_ANY_TABLE", L"", L"two", L"").GetMessageText()));
}

// ---------------------------------------------------------------------------
// File errors

TEST(FileErrors, EverySystemCodeMapsToItsKind) {
  // clang-format off
  const struct { int32_t kind; std::vector<uint32_t> codes; } rows[] = {
      {FE_NotFound, {2, 6, 18, 107}},
      {FE_BadPath, {3, 15, 17, 34, 52, 53, 55, 67, 70, 85, 111, 123, 124, 125, 144, 154, 161, 206, 208, 267}},
      {FE_TooManyOpenFiles, {4, 36, 68, 113}},
      {FE_AccessDenied, {5, 12, 19, 29, 54, 58, 64, 65, 71, 80, 82, 86, 170, 999}},
      {FE_InvalidFile, {11, 26, 60, 66, 114, 182, 191, 193}}, {FE_RemoveCurrentDir, {16, 145}},
      {FE_DirectoryFull, {62}}, {FE_BadSeek, {24, 25, 27, 30, 131, 132}},
      {FE_HardIO, {20, 21, 22, 23, 57, 59, 88, 117, 995, 996, 997}}, {FE_SharingViolation, {32}},
      {FE_LockViolation, {33, 108, 167}}, {FE_DiskFull, {39, 112}}, {FE_EndOfFile, {38}},
      {FE_AlreadyExists, {183}}, {FE_Generic, {1, 7, 207, 268, 1000, 0xFFFFFFFF}},
  };
  // clang-format on
  for (const auto& row : rows)
    for (uint32_t code : row.codes)
      EXPECT_EQ(row.kind, FileErrorKindOfCode(code)) << "code " << code;
  for (uint32_t code = 209; code <= 266; ++code)
    EXPECT_EQ(FE_Generic, FileErrorKindOfCode(code)) << "code " << code;
}

// Without resources a user still sees the kind's name and the file name.
TEST(FileErrors, TextIsTheKindsNameAndTheFileNameAndTheGenericKindAddsTheSystemText) {
  auto notFound = Caught<CFileException>([] { GenerateFileError(2, L"C:\\f.txt"); });
  ASSERT_TRUE(notFound);
  EXPECT_EQ(L"ERR_FILE_NOT_FOUND C:\\f.txt", W(notFound->GetMessageText()));
  EXPECT_EQ(L"ERR_FILE_GENERIC a.txt " + W(GetLastErrorText(1)),
            W(CFileException(1, FE_Generic, L"a.txt").GetMessageText()));
}

// ---------------------------------------------------------------------------
// Throwing, or showing and returning

TEST(ShowAndReturn, FailedChecksThrowWithTheirUnitLineAndCodeWhileSomeoneCatches) {
  const struct {
    void (*raise)();
    std::wstring text;
  } rows[] = {
      {[] { TSL_PRESUME(1 + 1 == 3, L"unicodestring", 123); }, L"unicodestring, 123."},
      {[] { SetLastError(0x1F), TSL_ASSERT_LAST_ERROR(false, L"hashtable", 77); },
       L"hashtable, 77.\nError code: 0x1f"},
      {[] { GenerateFileError(0, L"x"); }, L"errors, 655."},
      {[] { GenerateFileErrorOfKind(0, L"x"); }, L"errors, 694."},
  };
  for (const auto& row : rows) {
    auto e = Caught<CInternalError>(row.raise);
    ASSERT_TRUE(e) << Narrow(row.text);
    EXPECT_EQ(L"Internal Program Error:\n" + row.text, W(e->GetMessageText()));
  }
  EXPECT_FALSE(GetThreadErrorState().inError);
}

// Exceptions switched off, or a thread past its entry guard where nobody
// would catch: the message is shown and the caller goes on.
TEST(ShowAndReturn, ExceptionsDisabledOrNoThrowShowTheMessageAndReturn) {
  // A thread of its own, so that the per-thread states start clean and stay here.
  std::thread([] {
    ScopedServices bound;
    bool saved = AreExceptionsEnabled();
    EnableExceptions(false);
    EXPECT_FALSE(
        GenerateInternalError(IE_PresumeLastError, L"h", L"", L"dll", 7, ERROR_ACCESS_DENIED));
    EXPECT_FALSE(GenerateCheckError(L"ERR_BAD_ARCHIVE", L"a.bin", L""));
    EnableExceptions(saved);
    GetThreadEntryState().noThrow = true;
    TSL_ASSERT(false, L"tessels", 321);
    std::vector<std::pair<std::wstring, uint32_t>> expected = {
        {L"Internal Program Error:\nPresumption failed: ( h )\ndll, 7.\n(  ).\nError code: 0x5 - " +
             W(GetLastErrorText(ERROR_ACCESS_DENIED)),
         0x1010},
        {L"ERR_BAD_ARCHIVE a.bin  ", 0x1010},
        {L"Internal Program Error:\nAssertion failed: (  )\ntessels, 321.\n(  ).", 0x1010}};
    EXPECT_EQ(expected, bound.services.shown);
    EXPECT_FALSE(GetThreadErrorState().inError || GetThreadErrorState().showingError);
  }).join();
}

// ---------------------------------------------------------------------------
// Failures that end the process

// A box that prints what it shows, for the parent of a child process to read.
struct PrintingBox : CRecordingServices {
  int ShowMessage(const CUnicodeString& text, uint32_t flags) override {
    printf("box [%s] %x\n", Narrow(W(text)).c_str(), flags);
    fflush(stdout);
    return IDOK;
  }
};

std::string WithoutCarriageReturns(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  return text;
}

// A box whose showing itself fails an assertion, as a broken handler would.
struct AssertingBox : CRecordingServices {
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
  child.output = WithoutCarriageReturns(child.output);
  EXPECT_EQ(3u, child.exitCode);  // the runtime's abort
  EXPECT_NE(npos, child.output.find("box [Double internal error!\nApplication terminated.] 1010"))
      << child.output;
  EXPECT_EQ(npos, child.output.find("returned")) << child.output;
}

// Fills the pool's 64 places and then asks for one more.
MIRDAL_CHILD_ROLE(DrainMemoryPool) {
  SetQuietMode(true);
  std::vector<std::unique_ptr<CMemoryException>> taken;
  for (int i = 0; i < 64; ++i) taken.push_back(Caught<CMemoryException>(GenerateMemoryError));
  printf("64 taken: %s\n", Narrow(W(taken.back()->GetMessageText())).c_str());
  fflush(stdout);
  Caught<CMemoryException>(GenerateMemoryError);
  printf("65 taken\n");
  return 0;
}

TEST(MemoryPool, The65thLiveOneEndsTheProcess) {
  TestSupport::ChildResult child = TestSupport::RunChild("DrainMemoryPool");
  EXPECT_FALSE(child.timedOut);
  EXPECT_NE(0u, child.exitCode);
  EXPECT_NE(npos, child.output.find("64 taken: Not enough memory!")) << child.output;
  EXPECT_EQ(npos, child.output.find("65 taken")) << child.output;
}

}  // namespace

namespace {

// Deletes a pooled memory exception a second time ("twice"), or an address
// outside the pool, and tells whether the delete came back.
MIRDAL_CHILD_ROLE(MisdeleteMemoryException) {
  static PrintingBox box;
  BindFoundationServices(&box);
  CMemoryException* taken = Caught<CMemoryException>(GenerateMemoryError).release();
  delete taken;
  static CMemoryException* outside = nullptr;
  CMemoryException::operator delete(wcscmp(argv[2], L"twice") == 0 ? static_cast<void*>(taken)
                                                                    : &outside);
  printf("returned\n");
  return 0;
}

// A delete cannot throw: the misuse is shown as an internal error of its own
// line and the program goes on.
TEST(MemoryPool, AMisplacedDeleteIsShownAndReturns) {
  const std::pair<const wchar_t*, const char*> rows[] = {{L"twice", "errors, 121."},
                                                         {L"foreign", "errors, 122."}};
  for (const auto& [how, where] : rows) {
    TestSupport::ChildResult child = TestSupport::RunChild("MisdeleteMemoryException", how);
    std::string output = WithoutCarriageReturns(child.output);
    EXPECT_EQ(0u, child.exitCode) << where << ": " << output;
    EXPECT_NE(npos, output.find(std::string("Assertion failed: (  )\n") + where + "\n(  ).] 1010"))
        << output;
    EXPECT_NE(npos, output.find("returned")) << output;
  }
}

// Busy blocks of the C runtime's heap, from which the compiler's emulated
// thread-local storage takes a thread's copy on first touch.
size_t RuntimeHeapBlocks() {
  HANDLE heap = reinterpret_cast<HANDLE>(_get_heap_handle());
  size_t busy = 0;
  HeapLock(heap);
  PROCESS_HEAP_ENTRY entry = {};
  while (HeapWalk(heap, &entry))
    if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) ++busy;
  HeapUnlock(heap);
  return busy;
}

// Out of memory may be the first failure a thread ever has: its route reaches
// the thread's error state without asking any heap for it.
TEST(MemoryPool, AThreadsFirstMemoryErrorTakesNoMemory) {
  std::thread([] {
    // The C++ runtime makes its own per-thread record at a thread's first
    // throw; that is not the foundation's, so one throw goes first.
    try {
      throw 0;
    } catch (int) {
    }
    size_t before = RuntimeHeapBlocks();
    EXPECT_TRUE(Caught<CMemoryException>(GenerateMemoryError));
    EXPECT_EQ(before, RuntimeHeapBlocks());
    EXPECT_TRUE(GetThreadErrorState().inError);
  }).join();
  EXPECT_FALSE(GetThreadErrorState().inError);
}

}  // namespace
