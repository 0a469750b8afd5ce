// The exports of a test resource library: message names to string
// identifiers, from one table per library, and the stray library's mark.
#include <windows.h>
#include <stdint.h>

#include "TestResource.h"

namespace {

struct CEntry {
  const wchar_t* name;
  uint32_t id;
};

#if defined(TST_RES_Static)
const CEntry table[] = {{L"MSG_TEST_BOTH", TST_ID_BOTH}, {L"MSG_TEST_STATIC_ONLY", TST_ID_STATIC_ONLY}};
#else
const CEntry table[] = {{L"CURRENT_LANGUAGE_NAME", TST_ID_LANGUAGE_NAME},
                        {L"MSG_TEST_GREETING", TST_ID_GREETING},
                        {L"MSG_TEST_BOTH", TST_ID_BOTH}};
#endif
const int32_t tableSize = sizeof table / sizeof table[0];

}  // namespace

extern "C" {

__declspec(dllexport) uint32_t __cdecl GetResourceID(const wchar_t* name) {
  for (int32_t i = 0; i < tableSize && name != nullptr; ++i)
    if (lstrcmpW(table[i].name, name) == 0) return table[i].id;
  return 0;
}

__declspec(dllexport) int32_t __cdecl NumberOfMessages() { return tableSize; }

__declspec(dllexport) const wchar_t* __cdecl GetMessageName(int32_t index) {
  return index >= 0 && index < tableSize ? table[index].name : nullptr;
}

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
#if defined(TST_RES_Stray)
  if (reason == DLL_PROCESS_ATTACH) SetEnvironmentVariableW(L"TST_RES_STRAY_LOADED", L"1");
#else
  (void)reason;
#endif
  return TRUE;
}

}  // extern "C"
