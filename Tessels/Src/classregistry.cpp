// The class registry of the library's lifecycle unit: three tables (name to
// creator, name to library, type to name) on the process heap, guarded by
// `modulesLock`, and the making of objects by class name.
#include "classregistry.h"

#include <string.h>

#include "DllTools.h"
#include "Map.h"
#include "errors.h"

namespace Tsl {

namespace {

const wchar_t* const unitName = L"tessels";

// Types are known by the hash of their names, so that a type seen from
// another module still finds its entry.
struct CTypeNameTraits {
  static uint32_t Hash(const char* const& name) {
    return HashDetail::HashUnits(name, int32_t(strlen(name)));
  }
  static bool IsEqual(const char* const& a, const char* const& b) { return strcmp(a, b) == 0; }
};

// The tables live for the whole process: they are filled by static objects
// before main and consulted by any thread, so they don't come from a
// thread's current memory manager.
struct CClassRegistry {
  CMap<CUnicodeString, ObjectCreator, CHashKeyTraits<CUnicodeString>, ProcessHeap> creators;
  CMap<CUnicodeString, CUnicodeString, CHashKeyTraits<CUnicodeString>, ProcessHeap> libraries;
  // Keys are the types' own names, static texts of the module that holds
  // the type.
  CMap<const char*, CUnicodeString, CTypeNameTraits, ProcessHeap> typeNames;
};

// Made on first use: registrations run from static objects of any unit, in
// an order nobody fixes.
CClassRegistry& Registry() {
  static CClassRegistry registry;
  return registry;
}

struct CLockHolder {
  CLockHolder() { ::InitializeCriticalSection(&section); }
  ~CLockHolder() { ::DeleteCriticalSection(&section); }
  CRITICAL_SECTION section;
};

// The foundation's one loader, so that the module table counts the load.
void DefaultLibraryLoader(const CUnicodeString& libraryName) { LoadLibraryChecked(libraryName); }

ClassLibraryLoader libraryLoader = &DefaultLibraryLoader;  // under modulesLock

ObjectCreator FindCreator(const CUnicodeString& className) {
  const ObjectCreator* found = Registry().creators.Find(className);
  return found != nullptr ? *found : nullptr;
}

}  // namespace

CRITICAL_SECTION& GetModulesLock() {
  static CLockHolder lock;
  return lock.section;
}

void RegisterObjectClass(const CUnicodeString& className, const std::type_info& type,
                         ObjectCreator creator) {
  TSL_ASSERT(creator != nullptr && !className.IsEmpty(), unitName, 1181);
  if (creator == nullptr || className.IsEmpty()) return;
  CModulesLock lock;
  Registry().creators.Set(className, creator);
  Registry().typeNames.Set(type.name(), className);
}

void RegisterClassLibrary(const CUnicodeString& className, const CUnicodeString& libraryName) {
  TSL_ASSERT(!className.IsEmpty() && !libraryName.IsEmpty(), unitName, 1190);
  if (className.IsEmpty() || libraryName.IsEmpty()) return;
  CModulesLock lock;
  Registry().libraries.Set(className, libraryName);
}

bool IsClassRegistered(const CUnicodeString& className) {
  CModulesLock lock;
  return Registry().creators.Has(className);
}

bool IsClassLibraryKnown(const CUnicodeString& className) {
  CModulesLock lock;
  return Registry().libraries.Has(className);
}

bool IsClassKnown(const CUnicodeString& className) {
  CModulesLock lock;
  return Registry().creators.Has(className) || Registry().libraries.Has(className);
}

IObject* CreateObjectByName(const CUnicodeString& className) {
  ObjectCreator creator = nullptr;
  {
    CModulesLock lock;
    creator = FindCreator(className);
    if (creator == nullptr) {
      CUnicodeString library;
      if (!Registry().libraries.Lookup(className, library)) {
        GenerateCheckError(L"ERR_NO_MODULE_LOADED_FOR_CLASS", className, CUnicodeString());
        return nullptr;
      }
      // A loaded library has run its static registrations already.
      if (::GetModuleHandleW(library.Text()) != nullptr) {
        TSL_INTERNAL_ERROR(unitName, 1212);
        return nullptr;
      }
      ClassLibraryLoader load = libraryLoader;
      // The load runs the library's static objects, which register their
      // classes under this same lock, and may initialise modules.
      lock.Leave();
      load(library);
      lock.Enter();
      creator = FindCreator(className);
      if (creator == nullptr) {
        TSL_INTERNAL_ERROR(unitName, 1219);
        return nullptr;
      }
    }
  }
  // The creator runs outside the lock: a constructor may load or register.
  IObject* object = creator();
  TSL_ASSERT(object != nullptr, unitName, 1225);
  return object;
}

CUnicodeString GetClassName(const std::type_info* type) {
  TSL_ASSERT(type != nullptr, unitName, 1251);
  if (type == nullptr) return CUnicodeString();
  CUnicodeString name;
  bool found;
  {
    CModulesLock lock;
    found = Registry().typeNames.Lookup(type->name(), name);
  }
  TSL_ASSERT(found, unitName, 1257);
  return name;
}

ClassLibraryLoader BindClassLibraryLoader(ClassLibraryLoader loader) {
  CModulesLock lock;
  ClassLibraryLoader previous = libraryLoader;
  libraryLoader = loader != nullptr ? loader : &DefaultLibraryLoader;
  return previous;
}

}  // namespace Tsl
