// Loaded libraries: CDll owns (or borrows) one module and finds its functions
// with a useful failure; LoadLibraryInternal and LoadLibraryChecked turn a
// name into a loaded library recorded in the library's module table.
#pragma once

#include <stdint.h>
#include <windows.h>

#include "unicodestring.h"

namespace Tsl {

class CDll {
 public:
  CDll() : module(nullptr), ownership(0) {}
  // Takes `module`; `owns` says whether Free gives it back.
  CDll(HMODULE module, bool owns) : module(module), ownership(owns ? 1 : 0) {}
  virtual ~CDll();
  CDll(const CDll&) = delete;
  CDll& operator=(const CDll&) = delete;

  // Loads `name` by LoadLibraryChecked; the object owns the result. Frees
  // what it held before.
  void Load(const CUnicodeString& name);
  // Frees the module if the object owns it; the object is empty after.
  // Empty, nothing happens.
  virtual void Free();

  bool IsLoaded() const { return module != nullptr; }
  HMODULE GetHandle() const { return module; }
  // The path of the module; asserts that there is one.
  CUnicodeString GetFileName() const;
  // The address of the export `name` (8-bit, as the platform stores it).
  // Missing: ERR_CANT_LOAD_DLL with "path (name)"; null only where that
  // returns. Asserts a module.
  FARPROC GetFunction(const char* name) const;

 private:
  HMODULE module;     // null while empty
  int32_t ownership;  // 1: Free calls FreeLibrary; 0: the module is borrowed
};

// Folders searched before the platform's own order, as SearchPathW takes
// them (separated by ';'). Empty unless the program sets it.
void SetLibrarySearchPath(const CUnicodeString& folders);
CUnicodeString GetLibrarySearchPath();

// The full path that a load of `name` would use: an absolute or UNC name as
// it stands, else the library search path, else the platform's order. Empty
// when not found; GetLastError then tells why.
CUnicodeString FindLibrary(const CUnicodeString& name);

// Loads a library found by FindLibrary, with its own dependencies looked for
// beside it, and records the load in the module table (which initialises
// late modules while the library runs). Null on failure, with GetLastError
// set by the platform.
HMODULE LoadLibraryInternal(const CUnicodeString& name);

// Gives back one load made by LoadLibraryInternal, so that the module table
// doesn't free it again at the end.
void FreeLibraryInternal(HMODULE module);

// LoadLibraryInternal, failing with ERR_CANT_LOAD_DLL, the name and the
// system's text. Null only where that failure returns.
HMODULE LoadLibraryChecked(const CUnicodeString& name);

}  // namespace Tsl
