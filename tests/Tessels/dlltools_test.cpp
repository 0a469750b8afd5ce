// Tests of the library loader and CDll: where a name is searched, that every
// load is counted in the module table, ownership on free, and the failures
// of a missing library or function with the names they carry.
#include "DllTools.h"

#include <gtest/gtest.h>

#include <string>

#include "TesselsTestKit.h"
#include "TestSupport.h"
#include "errors.h"
#include "tessels.h"

using namespace Tsl;
using TestKit::W;

namespace {

const wchar_t* const libraryName = L"TstResStatic.dll";

int32_t LoadCountOf(HMODULE module) {
  CModuleRecord record = {};
  for (int32_t i = 0; i < GetModuleCount(); ++i)
    if (GetModuleRecord(i, record) && record.handle == module) return record.loadCount;
  return -1;
}

// The message and first parameter of the check error `action` raises.
std::wstring CheckErrorOf(void (*action)()) {
  try {
    action();
  } catch (CCheckException* failure) {
    std::wstring what = std::wstring(failure->messageName) + L": " + W(failure->params[0]);
    delete failure;
    return what;
  }
  return L"(none)";
}

}  // namespace

TEST(LibraryLoader, SearchPathComesBeforeThePlatformsOrderAndEveryLoadIsCounted) {
  EXPECT_TRUE(FindLibrary(libraryName).IsEmpty()) << "not in the platform's order";
  SetLibrarySearchPath(CUnicodeString(MIRDAL_DEMO_DIR));
  CUnicodeString found = FindLibrary(libraryName);
  EXPECT_EQ(std::wstring(MIRDAL_DEMO_DIR) + libraryName, W(found));
  EXPECT_EQ(L"C:\\absent\\x.dll", W(FindLibrary(L"C:\\absent\\x.dll"))) << "absolute names aren't searched";

  HMODULE first = LoadLibraryInternal(libraryName);
  HMODULE second = LoadLibraryChecked(libraryName);
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, second);
  EXPECT_EQ(2, LoadCountOf(first));
  FreeLibraryInternal(second);
  EXPECT_EQ(1, LoadCountOf(first));
  FreeLibraryInternal(first);
  SetLibrarySearchPath(CUnicodeString());
  EXPECT_EQ(nullptr, ::GetModuleHandleW(libraryName));
}

TEST(LibraryLoader, MissingLibraryOrFunctionNamesWhatIsMissing) {
  EXPECT_EQ(nullptr, LoadLibraryInternal(L"TstNoSuchLibrary.dll"));
  EXPECT_EQ(L"ERR_CANT_LOAD_DLL: TstNoSuchLibrary.dll",
            CheckErrorOf([] { LoadLibraryChecked(L"TstNoSuchLibrary.dll"); }));
  std::wstring kernel = CheckErrorOf([] {
    CDll dll(::GetModuleHandleW(L"kernel32.dll"), false);
    dll.GetFunction("NoSuchFunction");
  });
  EXPECT_EQ(0u, kernel.find(L"ERR_CANT_LOAD_DLL: ")) << TestSupport::Narrow(kernel);
  EXPECT_NE(std::wstring::npos, kernel.find(L"kernel32.dll (NoSuchFunction)")) << TestSupport::Narrow(kernel);
}

TEST(Dll, FreesOnlyWhatItOwnsAndOnlyOnce) {
  std::wstring path = std::wstring(MIRDAL_DEMO_DIR) + libraryName;
  HMODULE held = ::LoadLibraryW(path.c_str());
  {
    CDll borrowed(held, false);
    EXPECT_NE(nullptr, borrowed.GetFunction("GetResourceID"));
    EXPECT_EQ(path, W(borrowed.GetFileName()));
  }
  EXPECT_NE(nullptr, ::GetModuleHandleW(libraryName)) << "a borrowed library stays loaded";
  {
    CDll owned;
    owned.Load(path.c_str());
    owned.Free();
    owned.Free();
    EXPECT_FALSE(owned.IsLoaded());
  }
  EXPECT_NE(nullptr, ::GetModuleHandleW(libraryName)) << "two frees gave back one load";
  ::FreeLibrary(held);
  EXPECT_EQ(nullptr, ::GetModuleHandleW(libraryName));
}

TEST(Dll, FunctionOfAnEmptyObjectIsAnInternalError) {
  CDll empty;
  EXPECT_EQ(TestKit::Place(L"dlltools", 56), TestKit::InternalErrorOf([&] { empty.GetFunction("Any"); }));
}
