// The class registry: which function makes an object of a class name, which
// library supplies a class, and which class name a type has, so that archives
// can carry objects by name. It belongs to the library's lifecycle unit
// (`tessels`, whose internal errors it raises) and shares its `modulesLock`.
#pragma once

#include <stdint.h>
#include <windows.h>

#include <typeinfo>

#include "Object.h"
#include "unicodestring.h"

namespace Tsl {

// Makes a new object with no references yet.
typedef IObject* (*ObjectCreator)();

// The foundation's module lock: it guards the module table and the class
// registry. Made on first use, so that registrations from static objects
// can take it before main.
CRITICAL_SECTION& GetModulesLock();

// Holds the module lock for the scope's life; Leave and Enter let a scope
// step out around a call that must not run under it.
class CModulesLock {
 public:
  CModulesLock() : held(true) { ::EnterCriticalSection(&GetModulesLock()); }
  ~CModulesLock() {
    if (held) ::LeaveCriticalSection(&GetModulesLock());
  }
  CModulesLock(const CModulesLock&) = delete;
  CModulesLock& operator=(const CModulesLock&) = delete;
  void Leave() {
    held = false;
    ::LeaveCriticalSection(&GetModulesLock());
  }
  void Enter() {
    ::EnterCriticalSection(&GetModulesLock());
    held = true;
  }

 private:
  bool held;
};

// Enters a class: its name (7-bit ASCII, as archives carry it), its type and
// its creator. A second registration of the name replaces the first.
void RegisterObjectClass(const CUnicodeString& className, const std::type_info& type,
                         ObjectCreator creator);
// Records that the library `libraryName` registers `className` when loaded.
void RegisterClassLibrary(const CUnicodeString& className, const CUnicodeString& libraryName);

bool IsClassRegistered(const CUnicodeString& className);
bool IsClassLibraryKnown(const CUnicodeString& className);
// Registered, or supplied by a known library: both tests under one hold of
// the lock. What an archive asks before it makes an object of the name.
bool IsClassKnown(const CUnicodeString& className);

// A new object of `className`, without references. A class supplied by a
// library that isn't loaded yet loads it first, outside the lock. Fails with
// ERR_NO_MODULE_LOADED_FOR_CLASS when the class is unknown; a library that is
// loaded, or loads, without registering the class is an internal error, and
// so is a creator that returns null. Null only where such a failure returns.
IObject* CreateObjectByName(const CUnicodeString& className);

// The class name of a registered type. A null type, or one never
// registered, is an internal error, and the name is then empty. (The
// platform's headers turn this name into GetClassNameW everywhere alike.)
CUnicodeString GetClassName(const std::type_info* type);

// How a class's library is loaded. Loads or fails by exception; it needn't
// return the handle. The default is the foundation's loader,
// LoadLibraryChecked, which records the load in the module table. Tests bind
// a fake here. Returns the loader it replaced; null restores the default.
typedef void (*ClassLibraryLoader)(const CUnicodeString& libraryName);
ClassLibraryLoader BindClassLibraryLoader(ClassLibraryLoader loader);

// Registers class T under a name for the life of the program: one static
// object per class, in the class's own source file.
template <class T>
class CClassRegistration {
 public:
  explicit CClassRegistration(const wchar_t* className) {
    RegisterObjectClass(className, typeid(T), &Create);
  }

 private:
  static IObject* Create() { return new T; }
};

}  // namespace Tsl

#define TSL_CLASS_NAME_WIDEN_(text) L##text
#define TSL_CLASS_NAME_WIDEN(text) TSL_CLASS_NAME_WIDEN_(text)
// Registers a class under its own C++ name, which is then its name in
// archives: TSL_REGISTER_CLASS(CTrayBalloonData);
#define TSL_REGISTER_CLASS(Class)                                             \
  static const ::Tsl::CClassRegistration<Class> tslClassRegistration_##Class( \
      TSL_CLASS_NAME_WIDEN(#Class))
