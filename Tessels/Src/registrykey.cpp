// The registry key wrapper: opening in a view, reads that fall back to a
// default, writes that raise an error naming the key. Reads never raise and
// never report; the system's own result is left in the thread's last error.
#include "registrykey.h"

#include "errors.h"

namespace Tsl {

static const wchar_t* const Unit = L"registrykey";

// Access rights of each mode, before the view flag is added.
static const REGSAM ReadAccess = KEY_READ;               // 0x20019
static const REGSAM WriteAccess = KEY_READ | KEY_WRITE;  // 0x2001F

// ---- The 32-bit layer -------------------------------------------------------

// 0 not asked yet, 1 native, 2 under the 32-bit layer. A plain flag: two
// threads asking at once both ask the system and both store the same answer.
static volatile LONG wow64State = 0;
// -1, or the answer that tests put in place of the system's.
static volatile LONG wow64Override = -1;

typedef BOOL(WINAPI* IsWow64ProcessFunction)(HANDLE process, PBOOL result);

// Asks the system. Older systems have no such function, and a system
// without it has no 32-bit layer either.
static bool AskSystemForWow64() {
  HMODULE kernel = ::GetModuleHandleW(L"kernel32");
  if (kernel == nullptr) return false;
  // Through the generic function type: the exported address has no type.
  IsWow64ProcessFunction isWow64Process = reinterpret_cast<IsWow64ProcessFunction>(
      reinterpret_cast<void (*)()>(::GetProcAddress(kernel, "IsWow64Process")));
  if (isWow64Process == nullptr) return false;
  BOOL result = FALSE;
  if (!isWow64Process(::GetCurrentProcess(), &result)) return false;
  return result != FALSE;
}

bool CRegistryKey::IsRunningUnderWow64() {
  LONG answer = wow64Override;
  if (answer >= 0) return answer != 0;
  if (wow64State == 0) wow64State = AskSystemForWow64() ? 2 : 1;
  return wow64State == 2;
}

void CRegistryKey::OverrideWow64Answer(int32_t answer) {
  wow64Override = answer < 0 ? -1 : (answer != 0 ? 1 : 0);
}

REGSAM CRegistryKey::GetViewAccessFlag(int32_t view) {
  // A native process sees its own registry whatever view it asks for.
  if (!IsRunningUnderWow64()) return 0;
  switch (view) {
    case RV_Default:
    case RV_32:
      return KEY_WOW64_32KEY;
    case RV_64:
      return KEY_WOW64_64KEY;
    default:
      TSL_INTERNAL_ERROR(Unit, 61);
      return KEY_WOW64_32KEY;
  }
}

// ---- Names --------------------------------------------------------------------

CUnicodeString CRegistryKey::GetRootName(HKEY root) {
  static const struct {
    HKEY root;
    const wchar_t* name;
  } roots[] = {
      {HKEY_CLASSES_ROOT, L"HKEY_CLASSES_ROOT"},
      {HKEY_CURRENT_USER, L"HKEY_CURRENT_USER"},
      {HKEY_LOCAL_MACHINE, L"HKEY_LOCAL_MACHINE"},
      {HKEY_USERS, L"HKEY_USERS"},
      {HKEY_PERFORMANCE_DATA, L"HKEY_PERFORMANCE_DATA"},
      {HKEY_PERFORMANCE_TEXT, L"HKEY_PERFORMANCE_TEXT"},
      {HKEY_PERFORMANCE_NLSTEXT, L"HKEY_PERFORMANCE_NLSTEXT"},
      {HKEY_CURRENT_CONFIG, L"HKEY_CURRENT_CONFIG"},
      {HKEY_DYN_DATA, L"HKEY_DYN_DATA"},
  };
  for (const auto& entry : roots)
    if (entry.root == root) return CUnicodeString(entry.name);
  // A key opened by someone else has no name we could know.
  return CUnicodeString();
}

// ---- Life -----------------------------------------------------------------------

CRegistryKey::CRegistryKey() : handle(nullptr), mode(RM_Closed), view(RV_Default) {}

CRegistryKey::~CRegistryKey() { Close(); }

bool CRegistryKey::Open(HKEY root, const wchar_t* subKey, int32_t newMode, int32_t newView) {
  TSL_ASSERT(handle == nullptr, Unit, 96);
  TSL_ASSERT(mode == RM_Closed, Unit, 97);
  TSL_ASSERT(subKey != nullptr, Unit, 98);
  TSL_ASSERT(root != nullptr, Unit, 99);
  TSL_ASSERT(newMode == RM_Read || newMode == RM_Write, Unit, 100);
  // Where the assertions return instead of throwing, refuse rather than
  // leak the open handle or call the system with nothing.
  if (handle != nullptr || mode != RM_Closed || subKey == nullptr || root == nullptr ||
      (newMode != RM_Read && newMode != RM_Write))
    return false;

  mode = newMode;
  view = newView;
  fullName = GetRootName(root);
  if (subKey[0] != L'\0') {
    fullName += L'\\';
    fullName += subKey;
  }

  HKEY opened = nullptr;
  LONG result;
  if (newMode == RM_Read) {
    result = ::RegOpenKeyExW(root, subKey, 0, ReadAccess | GetViewAccessFlag(newView), &opened);
  } else if (subKey[0] != L'\0') {
    result = ::RegCreateKeyExW(root, subKey, 0, nullptr, 0,
                               WriteAccess | GetViewAccessFlag(newView), nullptr, &opened, nullptr);
  } else {
    // Creating with an empty name is refused; the root itself is opened.
    result = ::RegOpenKeyExW(root, L"", 0, WriteAccess | GetViewAccessFlag(newView), &opened);
  }
  // Success too is stored, so the last error always describes this open.
  ::SetLastError(static_cast<DWORD>(result));
  handle = result == ERROR_SUCCESS ? opened : nullptr;
  return handle != nullptr;
}

void CRegistryKey::Close() {
  HKEY closing = handle;
  handle = nullptr;
  mode = RM_Closed;
  // Keeps an exclusive buffer for the next Open instead of freeing it.
  fullName.Empty();
  if (closing != nullptr) ::SetLastError(static_cast<DWORD>(::RegCloseKey(closing)));
}

// ---- Reading --------------------------------------------------------------------

uint32_t CRegistryKey::GetValueType(const wchar_t* valueName) const {
  if (handle == nullptr) return 0;
  DWORD type = 0;
  LONG result = ::RegQueryValueExW(handle, valueName, nullptr, &type, nullptr, nullptr);
  return result == ERROR_SUCCESS || result == ERROR_MORE_DATA ? type : 0;
}

int32_t CRegistryKey::GetValueSize(const wchar_t* valueName) const {
  if (handle == nullptr) return 0;
  DWORD size = 0;
  LONG result = ::RegQueryValueExW(handle, valueName, nullptr, nullptr, nullptr, &size);
  return result == ERROR_SUCCESS || result == ERROR_MORE_DATA ? static_cast<int32_t>(size) : 0;
}

int32_t CRegistryKey::ReadValue(const wchar_t* valueName, void* buffer, int32_t bufferSize) const {
  if (handle == nullptr || buffer == nullptr || bufferSize < 0) return 0;
  DWORD size = static_cast<DWORD>(bufferSize);
  LONG result =
      ::RegQueryValueExW(handle, valueName, nullptr, nullptr, static_cast<BYTE*>(buffer), &size);
  return result == ERROR_SUCCESS ? static_cast<int32_t>(size) : 0;
}

CUnicodeString CRegistryKey::ReadString(const wchar_t* valueName,
                                        const CUnicodeString& defaultText) const {
  if (handle == nullptr) return defaultText;
  uint32_t type = GetValueType(valueName);
  if (type != REG_SZ && type != REG_EXPAND_SZ) return defaultText;
  int32_t size = GetValueSize(valueName);
  // An odd size cannot be 16-bit text.
  if (size <= 0 || (size & 1) != 0) return defaultText;

  int32_t units = size / 2;
  CUnicodeString text;
  wchar_t* buffer = text.GetBuffer(units);
  // A value rewritten between the size query and this read fails here, and
  // the caller gets its default rather than a torn text.
  if (ReadValue(valueName, buffer, size) != size) return defaultText;
  // One terminator goes; a text stored without one is taken whole, and a
  // second one stays inside the text.
  if (buffer[units - 1] == L'\0') --units;
  text.SetBufferLength(units);
  return text;
}

// ---- Writing --------------------------------------------------------------------

void CRegistryKey::WriteValue(const wchar_t* valueName, const wchar_t* text, int32_t size) {
  TSL_ASSERT(valueName != nullptr, Unit, 190);
  TSL_ASSERT(text != nullptr, Unit, 191);
  TSL_ASSERT(mode == RM_Write, Unit, 192);
  TSL_ASSERT(size >= 0, Unit, 193);
  if (valueName == nullptr || text == nullptr || size < 0) return;

  // A write-mode object whose open failed: only the key can be named.
  if (handle == nullptr) {
    GenerateCheckError(L"ERR_CANT_WRITE_TO_REGISTRY", fullName, CUnicodeString());
    return;
  }
  CUnicodeString valueFullName = fullName + L'\\' + valueName;
  LONG result = ::RegSetValueExW(handle, valueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                                 static_cast<DWORD>(size));
  if (result != ERROR_SUCCESS)
    GenerateCheckError(L"ERR_CANT_WRITE_TO_REGISTRY", valueFullName, CUnicodeString());
}

}  // namespace Tsl
