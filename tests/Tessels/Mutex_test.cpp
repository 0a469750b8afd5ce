// CMutex against real named mutexes: what each way of getting one answers
// when the name is new, taken, refused or of another kind, and the last error
// it leaves. (Marks held by other processes: the agent's tests.)
#include "Mutex.h"

#include <gtest/gtest.h>
#include <sddl.h>
#include <windows.h>

#include "TesselsTestKit.h"
#include "errors.h"

using Tsl::CMutex;

namespace {

enum Kind { Missing, Taken, Refused, AnEvent };

// A raw kernel object of `kind` under `name`, made the way another program
// would. The access list "D:" lets nobody in but the owner's implicit rights.
struct CRawObject {
  CRawObject(const std::wstring& name, Kind kind) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (kind == Refused)
      ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:", SDDL_REVISION_1, &descriptor, 0);
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), descriptor, FALSE};
    handle = kind == AnEvent ? CreateEventW(nullptr, FALSE, FALSE, name.c_str())
                             : CreateMutexW(&attributes, FALSE, name.c_str());
    LocalFree(descriptor);
  }
  ~CRawObject() { CloseHandle(handle); }
  HANDLE handle;
};

}  // namespace

// Making may fail quietly, opening may not: each way has its own rule for a
// taken or refused name. `result` is 1 or 0 for what the call answers, or
// minus the code of the CLastErrorException it raised.
TEST(Mutex, EachWayOfGettingOneHasItsOwnRuleForTakenAndRefusedNames) {
  enum Way { Create, Open, CreateOrOpen };
  // The name's kind, the way, the answer, whether it is open, the last error.
  const std::tuple<Kind, Way, int, bool, DWORD> rows[] = {
      // clang-format off
      {Missing, Create, 1, true, 0},     {Taken, Create, 0, false, ERROR_ALREADY_EXISTS},
      {Refused, Create, 0, false, ERROR_ACCESS_DENIED}, {AnEvent, Create, -6, false, 0},
      {Missing, Open, 0, false, ERROR_FILE_NOT_FOUND},  {Taken, Open, 1, true, 0},
      {Refused, Open, -5, false, 0},     {AnEvent, Open, -6, false, 0},
      {Missing, CreateOrOpen, 1, true, 0}, {Taken, CreateOrOpen, 0, true, ERROR_ALREADY_EXISTS},
      {Refused, CreateOrOpen, -5, false, 0}, {AnEvent, CreateOrOpen, -6, false, 0},
      // clang-format on
  };
  for (size_t i = 0; i < std::size(rows); ++i) {
    SCOPED_TRACE(i);
    const auto& [kind, way, expected, open, expectedError] = rows[i];
    std::wstring name = L"Local\\MirdalTest-" + std::to_wstring(GetCurrentProcessId() * 100 + i);
    CRawObject* other = kind == Missing ? nullptr : new CRawObject(name, kind);
    CMutex mutex;
    int result = -1;
    DWORD lastError = 0;
    try {
      if (way == Create) result = mutex.Create(name.c_str(), true, nullptr);
      if (way == Open) result = mutex.Open(name.c_str(), MUTEX_ALL_ACCESS, false);
      if (way == CreateOrOpen) result = mutex.CreateOrOpen(name.c_str(), nullptr);
      lastError = GetLastError();
    } catch (Tsl::CLastErrorException* failure) {
      result = -int(failure->code);
      delete failure;
    }
    EXPECT_EQ(result, expected);
    EXPECT_EQ(lastError, expectedError);
    EXPECT_EQ(mutex.IsOpen(), open);
    EXPECT_EQ(TestKit::W(mutex.GetName()), open ? name : L"");
    delete other;
  }
}
