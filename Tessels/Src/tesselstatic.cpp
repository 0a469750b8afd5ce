// Texts of the foundation that must exist before main and until the very end:
// the default texts of the messages that work without resources, and the
// fixed texts of out-of-memory and double errors. They are made once, before
// main, so that showing them later allocates nothing.
#include <new>

#include "errors.h"
#include "filesystem.h"
#include "tessels.h"

namespace Tsl {

namespace {

struct CDefaultTextEntry {
  const wchar_t* name;
  const wchar_t* text;
};

const CDefaultTextEntry defaultTextTable[] = {
    {L"MSG_INTERNAL_ERROR", L"Internal Program Error:\n%0, %1."},
    {L"MSG_INTERNAL_ERROR_WITH_CODE", L"Internal Program Error:\n%0, %1.\nError code: %2"},
    {L"MSG_ASSERT", L"Internal Program Error:\nAssertion failed: ( %0 )\n%2, %3.\n( %1 )."},
    {L"MSG_PRESUME", L"Internal Program Error:\nPresumption failed: ( %0 )\n%2, %3.\n( %1 )."},
    {L"MSG_ASSERTLASTERROR",
     L"Internal Program Error:\nAssertion failed: ( %0 )\n%2, %3.\n( %1 ).\nError code: %4 - %5"},
    {L"MSG_PRESUMELASTERROR",
     L"Internal Program Error:\nPresumption failed: ( %0 )\n%2, %3.\n( %1 ).\nError code: %4 - %5"},
};
const int defaultTextCount = sizeof defaultTextTable / sizeof defaultTextTable[0];

struct CStaticTexts {
  CUnicodeString defaults[defaultTextCount];
  CUnicodeString notEnoughMemory{L"Not enough memory!"};
  CUnicodeString doubleError{L"Double internal error!\nApplication terminated."};
  CUnicodeString unhandled{L"Unhandled Internal Error"};

  CStaticTexts() {
    for (int i = 0; i < defaultTextCount; ++i) defaults[i] = defaultTextTable[i].text;
  }
};

// The texts are built on first use and never destroyed: a failure during
// static destruction still finds them. The object below makes sure that the
// first use happens before main, whatever the order of static construction.
const CStaticTexts& Texts() {
  alignas(CStaticTexts) static unsigned char storage[sizeof(CStaticTexts)];
  static const CStaticTexts* texts = new (storage) CStaticTexts;
  return *texts;
}

struct CBuildBeforeMain {
  CBuildBeforeMain() { Texts(); }
} buildBeforeMain;

}  // namespace

const CUnicodeString* GetDefaultMessageText(const wchar_t* messageName) {
  if (messageName == nullptr) return nullptr;
  for (int i = 0; i < defaultTextCount; ++i)
    if (wcscmp(defaultTextTable[i].name, messageName) == 0) return &Texts().defaults[i];
  return nullptr;
}

const CUnicodeString& NotEnoughMemoryText() { return Texts().notEnoughMemory; }
const CUnicodeString& DoubleInternalErrorText() { return Texts().doubleError; }
const CUnicodeString& UnhandledInternalErrorText() { return Texts().unhandled; }

}  // namespace Tsl

namespace Tsl {

// The module is looked up once, by an address inside the library: the
// library may be linked into a program or a library, and its folder is that
// module's folder either way.
CUnicodeString GetModuleFolder() {
  static HMODULE module = nullptr;
  if (module == nullptr)
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<LPCWSTR>(&GetModuleFolder), &module);
  TSL_ASSERT(module != nullptr, L"tesselstatic", 46);
  return GetDriveAndDirectory(GetModuleFilePath(module));
}

}  // namespace Tsl
