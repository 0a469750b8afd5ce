// Switches, catalogue texts and the agent's window for the demonstration
// programs.
#include "StandInSupport.h"

#include <shellapi.h>
#include <stdlib.h>

#include "MdMessages.h"
#include "Unsup/TesselExt.h"
#include "filesystem.h"
#include "resourceinfo.h"
#include "services.h"
#include "tessels.h"

CStandInSwitches::CStandInSwitches(const wchar_t* commandLine, const wchar_t* variable)
    : count(0) {
  Add(commandLine, true);
  if (variable == nullptr) return;
  wchar_t extra[2048];
  DWORD length = ::GetEnvironmentVariableW(variable, extra, 2048);
  if (length > 0 && length < 2048) Add(extra, false);
}

CStandInSwitches::~CStandInSwitches() {}

void CStandInSwitches::Add(const wchar_t* line, bool skipProgram) {
  if (line == nullptr || *line == 0) return;
  int argc = 0;
  // The system's own splitting, so that quoted paths with blanks stay whole.
  wchar_t** argv = ::CommandLineToArgvW(line, &argc);
  if (argv == nullptr) return;
  for (int i = skipProgram ? 1 : 0; i < argc && count < MaxArguments; ++i) {
    arguments[count++] = argv[i];
    if (!text.IsEmpty()) text += L' ';
    text += argv[i];
  }
  ::LocalFree(argv);
}

bool CStandInSwitches::Has(const wchar_t* name, Tsl::CUnicodeString* value) const {
  int32_t nameLength = static_cast<int32_t>(wcslen(name));
  for (int32_t i = 0; i < count; ++i) {
    const Tsl::CUnicodeString& argument = arguments[i];
    if (argument.Length() < nameLength + 1 || (argument[0] != L'/' && argument[0] != L'-'))
      continue;
    if (argument.Mid(1, nameLength).CompareNoCase(name) != 0) continue;
    if (argument.Length() == nameLength + 1) {
      if (value != nullptr) value->Empty();
      return true;
    }
    if (argument[nameLength + 1] != L':') continue;
    if (value != nullptr) *value = argument.Mid(nameLength + 2);
    return true;
  }
  return false;
}

int32_t CStandInSwitches::Number(const wchar_t* name, int32_t fallback) const {
  Tsl::CUnicodeString value;
  if (!Has(name, &value) || value.IsEmpty()) return fallback;
  return static_cast<int32_t>(wcstol(value.Text(), nullptr, 10));
}

Tsl::CUnicodeString CatalogueText(const wchar_t* messageName) {
  Tsl::CUnicodeString text;
  if (Tsl::GetMessageText(messageName, text)) return text;
  return Tsl::CUnicodeString(messageName);
}

namespace {
bool productTextsStarted = false;
}  // namespace

bool StartProductTexts(const Tsl::CUnicodeString& folder) {
  const Tsl::CUnicodeString where = folder.IsEmpty() ? Tsl::GetModuleFolder() : folder;
  const Tsl::CUnicodeString staticModule = where + L"MirdalRes.dll";
  if (::GetFileAttributesW(staticModule.Text()) == INVALID_FILE_ATTRIBUTES) return false;
  Tsl::RegisterResourceModule(staticModule);
  Tsl::RegisterResourcePrefix(where, L"Mirdal");
  if (!Tsl::InitTessels(nullptr, nullptr)) return false;
  productTextsStarted = true;
  if (Tsl::GetLanguageCount() > 0) Tsl::SetCurrentLanguage(int32_t(ChooseShownLanguage(GetInterfaceLanguage(), 0)));
  return true;
}

void EndProductTexts() {
  if (productTextsStarted) Tsl::DoneTessels();
  productTextsStarted = false;
}

HWND FindAgentWindow() {
  HWND window = ::FindWindowW(LauncherWindowClass, nullptr);
  return (window != nullptr && ::IsWindow(window)) ? window : nullptr;
}

Tsl::CString ToUtf8(const Tsl::CUnicodeString& text) { return text.ToNarrow(CP_UTF8); }
