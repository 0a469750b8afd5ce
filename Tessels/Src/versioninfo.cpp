// Version information: the raw version block of a file and look-up of its
// string values under the block's first translation.
#include "versioninfo.h"

#include <stdio.h>
#include <windows.h>

#include "errors.h"

namespace Tsl {

namespace {
const wchar_t* const unitName = L"versioninfo";
}

void CVersionInfo::Load(const CUnicodeString& fileName) {
  valid = false;
  data.DeleteAll();
  DWORD ignored = 0;
  DWORD size = ::GetFileVersionInfoSizeW(fileName.Text(), &ignored);
  if (size == 0) return;
  valid = true;
  data.SetSize(int32_t(size));
  BOOL fetched = ::GetFileVersionInfoW(fileName.Text(), 0, size, data.GetData());
  TSL_ASSERT_LAST_ERROR(fetched != FALSE, unitName, 37);
}

CUnicodeString CVersionInfo::StringValuePath(uint16_t language, uint16_t codePage,
                                             const CUnicodeString& valueName) {
  wchar_t prefix[256];
  int written = _snwprintf(prefix, 256, L"\\StringFileInfo\\%08lx\\",
                           static_cast<unsigned long>((uint32_t(language) << 16) | codePage));
  TSL_ASSERT(written >= 1, unitName, 64);
  if (written < 1) return CUnicodeString();
  return CUnicodeString(prefix) + valueName;
}

CUnicodeString CVersionInfo::GetStringValue(const CUnicodeString& valueName) const {
  if (!valid || data.IsEmpty()) return CUnicodeString();
  // VerQueryValueW takes a non-constant block, though it only reads it.
  void* block = const_cast<unsigned char*>(data.GetData());
  void* translation = nullptr;
  UINT length = 0;
  if (!::VerQueryValueW(block, L"\\VarFileInfo\\Translation", &translation, &length) || length == 0 ||
      translation == nullptr)
    return CUnicodeString();
  // Only the first translation counts: strings stored under another one are
  // not found.
  const uint16_t* pair = static_cast<const uint16_t*>(translation);
  CUnicodeString path = StringValuePath(pair[0], pair[1], valueName);
  void* value = nullptr;
  length = 0;
  if (!::VerQueryValueW(block, path.Text(), &value, &length) || length == 0 || value == nullptr)
    return CUnicodeString();
  // The reported length counts the stored terminator; the bounded copy
  // stops there.
  return CUnicodeString::FromBounded(static_cast<const wchar_t*>(value), int32_t(length));
}

}  // namespace Tsl
