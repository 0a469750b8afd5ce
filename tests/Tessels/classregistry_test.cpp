// Tests of the class registry: making objects by name, names of types, the
// library that supplies a class loaded on demand outside the module lock,
// and each failure with its message or internal error line.
#include "classregistry.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "errors.h"

using namespace Tsl;

namespace {

class CRegistered : public virtual IObject {};
TSL_REGISTER_CLASS(CRegistered);

class CNeverRegistered : public virtual IObject {};

IObject* MakeNothing() { return nullptr; }

// A class that "its library" registers when the fake loader runs.
class CFromLibrary : public virtual IObject {};

int loads = 0;
bool lockWasFreeDuringLoad = false;
bool registerOnLoad = true;

DWORD WINAPI AskRegistry(void*) {
  IsClassRegistered(L"CRegistered");
  return 0;
}

// Stands in for the foundation's loader: checks from another thread that the
// module lock is free, then registers what the library would.
void FakeLoader(const CUnicodeString& libraryName) {
  ++loads;
  EXPECT_TRUE(libraryName == L"FakeClasses.dll");
  HANDLE thread = ::CreateThread(nullptr, 0, &AskRegistry, nullptr, 0, nullptr);
  lockWasFreeDuringLoad = ::WaitForSingleObject(thread, 5000) == WAIT_OBJECT_0;
  ::CloseHandle(thread);
  if (registerOnLoad)
    RegisterObjectClass(L"CFromLibrary", typeid(CFromLibrary),
                        [] { return static_cast<IObject*>(new CFromLibrary); });
}

// The failure of `action`, named by message or by unit and line.
std::string FailureOf(const std::function<void()>& action, CUnicodeString* parameter = nullptr) {
  try {
    action();
  } catch (CException* exception) {
    std::string kind = "other";
    if (auto* check = dynamic_cast<CCheckException*>(exception)) {
      kind = CUnicodeString(check->messageName).ToNarrow().Text();
      if (parameter) *parameter = check->params[0];
    } else if (auto* internal = dynamic_cast<CInternalError*>(exception)) {
      kind = std::string(CUnicodeString(internal->file).ToNarrow().Text()) + " " +
             std::to_string(internal->line);
    }
    delete exception;
    return kind;
  }
  return "none";
}

}  // namespace

TEST(ClassRegistry, NamesMakeObjectsAndFailuresNameTheClassOrTheLine) {
  CPtr<IObject> made(CreateObjectByName(L"CRegistered"));
  EXPECT_EQ(1, made->GetReferenceCount()) << "a new object comes without references";
  EXPECT_TRUE(GetClassName(&typeid(*made)) == L"CRegistered");
  const std::type_info& unknownType = typeid(CNeverRegistered);
  RegisterObjectClass(L"CMakesNothing", typeid(int), &MakeNothing);
  RegisterClassLibrary(L"CInLoadedLibrary", L"kernel32.dll");
  RegisterClassLibrary(L"CInMissingLibrary", L"NoSuchMirdalLibrary.dll");
  struct Row {
    const char* what;
    std::function<void()> action;
    std::string failure;
    const wchar_t* parameter;
  } rows[] = {
      {"unknown class", [] { CreateObjectByName(L"CNoSuchClass"); },
       "ERR_NO_MODULE_LOADED_FOR_CLASS", L"CNoSuchClass"},
      {"library loaded without registering", [] { CreateObjectByName(L"CInLoadedLibrary"); },
       "tessels 1212", nullptr},
      {"library that can't load", [] { CreateObjectByName(L"CInMissingLibrary"); },
       "ERR_CANT_LOAD_DLL", L"NoSuchMirdalLibrary.dll"},
      {"creator that makes nothing", [] { CreateObjectByName(L"CMakesNothing"); }, "tessels 1225",
       nullptr},
      {"unregistered type", [&] { GetClassName(&unknownType); }, "tessels 1257", nullptr},
  };
  for (const Row& row : rows) {
    CUnicodeString parameter;
    EXPECT_EQ(row.failure, FailureOf(row.action, &parameter)) << row.what;
    EXPECT_TRUE(!row.parameter || parameter == row.parameter) << row.what;
  }
}

TEST(ClassRegistry, ALibraryIsLoadedOnceOutsideTheLockAndMustRegisterItsClass) {
  ClassLibraryLoader previous = BindClassLibraryLoader(&FakeLoader);
  RegisterClassLibrary(L"CFromLibrary", L"FakeClasses.dll");
  RegisterClassLibrary(L"CLibraryForgets", L"FakeClasses.dll");

  CPtr<IObject> first(CreateObjectByName(L"CFromLibrary"));
  EXPECT_FALSE(first.DynamicCast<CFromLibrary>().IsNull());
  EXPECT_TRUE(lockWasFreeDuringLoad);
  CPtr<IObject> second(CreateObjectByName(L"CFromLibrary"));
  EXPECT_EQ(1, loads) << "registered by the load, the class needs no second one";

  registerOnLoad = false;
  EXPECT_EQ("tessels 1219", FailureOf([] { CreateObjectByName(L"CLibraryForgets"); }));
  EXPECT_EQ(&FakeLoader, BindClassLibraryLoader(previous));
}
