// The interface language as the user or the machine stored it, the choice of
// a language that the loaded resource modules can show, and the names of the
// installation's files and switches.
#include "Unsup/TesselExt.h"

#include <stdlib.h>

#include "errors.h"
#include "resourceinfo.h"

const wchar_t SharedFilesIniName[] = L"SharedFiles.ini";
const wchar_t ArchiveDumpIniName[] = L"archiveDump.ini";
const wchar_t ByInstallerName[] = L"ByInstaller";
const wchar_t ProductKeyPath[] = L"SOFTWARE\\Tavix\\Mirdal\\16";

namespace {
const wchar_t Unit[] = L"TesselExt";
// The query offers 32 bytes; one unit more holds the terminator.
const DWORD LanguageBufferBytes = 32;
}  // namespace

int32_t ReadLanguageValue(HKEY root, const wchar_t* keyPath, const wchar_t* valueName,
                          int32_t defaultValue) {
  HKEY key = nullptr;
  if (::RegOpenKeyExW(root, keyPath, 0, KEY_READ, &key) != ERROR_SUCCESS) return defaultValue;
  wchar_t buffer[LanguageBufferBytes / sizeof(wchar_t) + 1] = {};
  DWORD type = 0, size = LanguageBufferBytes;
  LONG result = ::RegQueryValueExW(key, valueName, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size);
  ::RegCloseKey(key);
  // The language is stored as digits in a REG_SZ; a DWORD or a text that
  // cannot be whole units is somebody else's value and reads as absent.
  if (result != ERROR_SUCCESS || type != REG_SZ || size >= 34 || size % 2 != 0) return defaultValue;
  buffer[size / sizeof(wchar_t)] = 0;
  // Letters read as 0, not as absent: the machine's value is not consulted then.
  return _wtoi(buffer);
}

uint32_t ReadInterfaceLanguage(const wchar_t* keyPath) {
  int32_t language = ReadLanguageValue(HKEY_CURRENT_USER, keyPath, L"InterfaceLanguage", -1);
  if (language != -1) return uint32_t(language);
  return uint32_t(ReadLanguageValue(HKEY_LOCAL_MACHINE, keyPath, L"InterfaceLanguage", 0));
}

uint32_t GetInterfaceLanguage() { return ReadInterfaceLanguage(ProductKeyPath); }

namespace {
// A language that a resource module of every prefix covers and that the
// system can show. The module is asked first: the system's check is only
// defined for numbers of the language table.
bool CanShow(uint32_t language) {
  return Tsl::FindLanguageIndex(int32_t(language)) >= 0 && Tsl::IsLanguageValid(int32_t(language));
}
}  // namespace

uint32_t ChooseShownLanguage(uint32_t preferred, uint32_t fallback) {
  if (CanShow(preferred)) return preferred;
  if (CanShow(fallback)) return fallback;
  int32_t count = Tsl::GetLanguageCount();
  for (int32_t i = 0; i < count; ++i) {
    int32_t language = Tsl::GetLanguageByIndex(i);
    if (Tsl::IsLanguageValid(language)) return uint32_t(language);
  }
  TSL_INTERNAL_ERROR(Unit, 27);
  return 0;
}
