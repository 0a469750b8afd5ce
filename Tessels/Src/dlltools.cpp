// Loaded libraries: the search for a library file, the one loader through
// which the foundation loads every library (so that the module table counts
// each load), and CDll, a library held for the life of an object.
#include "DllTools.h"

#include <string.h>

#include "errors.h"
#include "filesystem.h"
#include "services.h"
#include "tessels.h"

namespace Tsl {

namespace {

const wchar_t* const unitName = L"dlltools";

// Set by the program at start, read at each load.
CRITICAL_SECTION& SearchPathLock() {
  static struct CHolder {
    CHolder() { ::InitializeCriticalSection(&section); }
    CRITICAL_SECTION section;
  } holder;
  return holder.section;
}

CUnicodeString& SearchPathText() {
  static CUnicodeString folders;
  return folders;
}

// One SearchPathW with a buffer that doubles until the answer fits.
CUnicodeString Search(const wchar_t* folders, const CUnicodeString& name) {
  int32_t size = 260;
  for (;;) {
    CUnicodeString found;
    wchar_t* buffer = found.GetBuffer(size);
    DWORD length = ::SearchPathW(folders, name.Text(), nullptr, DWORD(size), buffer, nullptr);
    if (length == 0) return CUnicodeString();
    if (length < DWORD(size)) {
      found.SetBufferLength(int32_t(length));
      return found;
    }
    // Too small: the answer is the size needed, terminator included.
    size *= 2;
  }
}

}  // namespace

CDll::~CDll() {
  try {
    CDll::Free();
  } catch (CException* failure) {
    ReportException(failure);
    delete failure;
  }
}

void CDll::Load(const CUnicodeString& name) {
  Free();
  module = LoadLibraryChecked(name);
  ownership = 1;
}

void CDll::Free() {
  if (module == nullptr) return;
  TSL_ASSERT(ownership == 0 || ownership == 1, unitName, 34);
  if (ownership == 1) ::FreeLibrary(module);
  module = nullptr;
}

CUnicodeString CDll::GetFileName() const {
  TSL_ASSERT(module != nullptr, unitName, 48);
  if (module == nullptr) return CUnicodeString();
  return GetModuleFilePath(module);
}

FARPROC CDll::GetFunction(const char* name) const {
  TSL_ASSERT(module != nullptr && name != nullptr, unitName, 56);
  if (module == nullptr || name == nullptr) return nullptr;
  FARPROC function = ::GetProcAddress(module, name);
  if (function == nullptr) {
    CUnicodeString what;
    what.Format(L"%ls (%ls)", GetFileName().Text(),
                CUnicodeString(name, int32_t(strlen(name))).Text());
    GenerateCheckError(L"ERR_CANT_LOAD_DLL", what, CUnicodeString());
  }
  return function;
}

void SetLibrarySearchPath(const CUnicodeString& folders) {
  ::EnterCriticalSection(&SearchPathLock());
  SearchPathText() = folders;
  ::LeaveCriticalSection(&SearchPathLock());
}

CUnicodeString GetLibrarySearchPath() {
  ::EnterCriticalSection(&SearchPathLock());
  CUnicodeString folders = SearchPathText();
  ::LeaveCriticalSection(&SearchPathLock());
  return folders;
}

CUnicodeString FindLibrary(const CUnicodeString& name) {
  EPathKind kind = ClassifyPath(name);
  if (kind == PathDriveAbsolute || kind == PathUnc) return name;
  CUnicodeString folders = GetLibrarySearchPath();
  if (!folders.IsEmpty()) {
    CUnicodeString found = Search(folders.Text(), name);
    if (!found.IsEmpty()) return found;
  }
  return Search(nullptr, name);
}

HMODULE LoadLibraryInternal(const CUnicodeString& name) {
  CUnicodeString path = FindLibrary(name);
  if (path.IsEmpty()) return nullptr;
  HMODULE module;
  {
    // The library's static objects are built on the runtime heap, whatever
    // heap the caller's thread works on: they live as long as the library.
    CRuntimeHeapSwitch onRuntimeHeap;
    module = ::LoadLibraryExW(path.Text(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  }
  if (module == nullptr) return nullptr;
  DWORD code = ::GetLastError();
  RecordLoadedModule(module);
  ::SetLastError(code);
  return module;
}

void FreeLibraryInternal(HMODULE module) {
  if (module == nullptr) return;
  RecordModuleFree(module);
  ::FreeLibrary(module);
}

HMODULE LoadLibraryChecked(const CUnicodeString& name) {
  HMODULE module = LoadLibraryInternal(name);
  if (module == nullptr) {
    DWORD code = ::GetLastError();
    GenerateCheckError(L"ERR_CANT_LOAD_DLL", name, GetLastErrorText(code));
  }
  return module;
}

}  // namespace Tsl
