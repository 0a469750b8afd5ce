// Tests of the module table: counting loads, initialising modules once and
// late ones at load, the end's order and its three walks (end functions,
// freeing as often as loaded, dropping what is gone), and the state word.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "errors.h"
#include "services.h"
#include "tessels.h"

using namespace Tsl;

namespace {

std::vector<std::string> calls;

void InitA() { calls.push_back("init A"); }
void TermA() { calls.push_back("term A"); }
void InitB() { calls.push_back("init B"); }
void TermB() {
  calls.push_back("term B");
  GenerateCheckError(L"ERR_TEST_TERM", CUnicodeString(), CUnicodeString());
}

// Reports land here instead of on the screen.
class CReportRecorder : public IFoundationServices {
 public:
  bool GetMessageText(const wchar_t*, CUnicodeString&) override { return false; }
  int ShowMessage(const CUnicodeString&, uint32_t) override { return IDOK; }
  void ReportException(CException*) override { ++reports; }
  int reports = 0;
};

// Two distinct static modules: any two addresses of this program's image
// would do, but the table keys on handles, so use made-up distinct ones.
HMODULE FakeHandle(int n) { return reinterpret_cast<HMODULE>(static_cast<intptr_t>(0x10000 * n)); }

CModuleRecord RecordOf(HMODULE handle) {
  CModuleRecord record = {};
  for (int32_t i = 0; i < GetModuleCount(); ++i)
    if (GetModuleRecord(i, record) && record.handle == handle) return record;
  return CModuleRecord{};
}

bool IsLoaded(const wchar_t* name) { return ::GetModuleHandleW(name) != nullptr; }

}  // namespace

TEST(LibraryState, StartsNotInitialisedAndKeepsWhatIsSet) {
  EXPECT_EQ(LS_NotInitialised, GetLibraryState());
  SetLibraryState(LS_Running);
  EXPECT_TRUE(IsLibraryRunning());
  SetLibraryState(LS_NotInitialised);
  EXPECT_FALSE(IsLibraryRunning());
}

// One scenario through the whole life of the table, since the table is
// process-wide and its end is final for what it frees.
TEST(ModuleTable, InitialisesOnceEndsInReverseAndFreesEveryLoad) {
  CReportRecorder recorder;
  IFoundationServices* previous = BindFoundationServices(&recorder);
  calls.clear();

  AddStaticModule(FakeHandle(1), &InitA, &TermA);
  AddStaticModule(FakeHandle(2), &InitB, &TermB);
  InitModules();
  InitModules();
  EXPECT_EQ((std::vector<std::string>{"init A", "init B"}), calls);

  // A library loaded twice is one record with a count of 2; while the
  // library runs a late static module is initialised at the next load.
  const wchar_t* library = L"msimg32.dll";
  ASSERT_FALSE(IsLoaded(library)) << "the test needs a library nobody else loaded";
  HMODULE first = ::LoadLibraryW(library);
  HMODULE second = ::LoadLibraryW(library);
  ASSERT_NE(nullptr, first);
  SetLibraryState(LS_Running);
  AddStaticModule(FakeHandle(3), &InitA, nullptr);
  RecordLoadedModule(first);
  RecordLoadedModule(second);
  SetLibraryState(LS_NotInitialised);
  EXPECT_EQ(2, RecordOf(first).loadCount);
  EXPECT_FALSE(RecordOf(first).isStatic);
  EXPECT_EQ((std::vector<std::string>{"init A", "init B", "init A"}), calls);

  // Last first; the failing end is reported and the walk goes on.
  calls.clear();
  int32_t before = GetModuleCount();
  TerminateModules();
  EXPECT_EQ((std::vector<std::string>{"term B", "term A"}), calls);
  EXPECT_EQ(1, recorder.reports);
  EXPECT_FALSE(IsLoaded(library)) << "freed as often as it was loaded";
  EXPECT_EQ(before - 1, GetModuleCount()) << "the gone library's record is dropped";
  EXPECT_TRUE(RecordOf(FakeHandle(1)).isStatic);
  EXPECT_FALSE(RecordOf(FakeHandle(1)).initialised);

  // A second end finds nothing initialised and nothing to free.
  calls.clear();
  TerminateModules();
  EXPECT_TRUE(calls.empty());
  BindFoundationServices(previous);
}
