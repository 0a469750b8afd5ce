// Typed settings: where a setting's key lives, how its text is read with a
// default and written through, the text forms of the three value types, and
// the colour-name table that stands beside the settings.
#include "setup.h"

#include <wchar.h>

#include "errors.h"
#include "tessels.h"

namespace Tsl {

static const wchar_t* const Unit = L"setup";


// ---- Place ------------------------------------------------------------------------

CSetupBase::CSetupBase(const CUnicodeString& keyPath, const CUnicodeString& valueName,
                       ESetupSource source, int32_t view)
    : source(source), keyPath(keyPath), valueName(valueName), view(view) {}

CSetupBase::~CSetupBase() {}

CUnicodeString CSetupBase::JoinKeyPath(const CUnicodeString& libraryKey,
                                       const CUnicodeString& keyPath) {
  if (libraryKey.IsEmpty()) return keyPath;
  if (keyPath.IsEmpty()) return libraryKey;
  return libraryKey + L'\\' + keyPath;
}

HKEY CSetupBase::GetRoot() const {
  switch (source) {
    case SS_MachineSettings:
    case SS_LocalMachine:
      return HKEY_LOCAL_MACHINE;
    case SS_UserSettings:
    case SS_CurrentUser:
      return HKEY_CURRENT_USER;
    case SS_Users:
      return HKEY_USERS;
    case SS_ClassesRoot:
      return HKEY_CLASSES_ROOT;
    case SS_CurrentConfig:
      return HKEY_CURRENT_CONFIG;
  }
  TSL_INTERNAL_ERROR(Unit, 65);
  return nullptr;
}

CUnicodeString CSetupBase::GetEffectiveKeyPath() const {
  switch (source) {
    case SS_MachineSettings:
      return JoinKeyPath(GetMachineSettingsKey(), keyPath);
    case SS_UserSettings:
      return JoinKeyPath(GetUserSettingsKey(), keyPath);
    case SS_LocalMachine:
    case SS_CurrentUser:
    case SS_Users:
    case SS_ClassesRoot:
    case SS_CurrentConfig:
      return keyPath;
  }
  TSL_INTERNAL_ERROR(Unit, 82);
  return CUnicodeString();
}

bool CSetupBase::OpenKey(CRegistryKey& key, int32_t mode) const {
  CUnicodeString path = GetEffectiveKeyPath();
  int32_t effectiveView = view;
  if (view != RV_Default && view != RV_32 && view != RV_64) {
    TSL_INTERNAL_ERROR(Unit, 90);
    effectiveView = RV_Default;
  }
  // The unknown source was reported by GetEffectiveKeyPath already.
  if (source < SS_MachineSettings || source > SS_CurrentConfig) return false;
  key.Open(GetRoot(), path.Text(), mode, effectiveView);
  return true;
}

// ---- Reading and writing ----------------------------------------------------------

CUnicodeString CSetupBase::ReadText() const {
  CRegistryKey key;
  // A key that cannot be opened is no failure of the read: a key object
  // whose open failed answers with the default.
  OpenKey(key, RM_Read);
  CUnicodeString text = key.ReadString(valueName.Text(), GetDefaultText());
  key.Close();
  return text;
}

void CSetupBase::WriteText(const CUnicodeString& text) const {
  CRegistryKey key;
  // A failed open is not checked here: WriteValue raises the registry's
  // error naming the key, which is what the caller gets to see.
  if (!OpenKey(key, RM_Write)) return;
  // The size counts the terminator, so that the stored text ends in a zero
  // unit for every reader.
  key.WriteValue(valueName.Text(), text.Text(), (text.Length() + 1) * 2);
  key.Close();
}

// ---- Text forms ---------------------------------------------------------------------

template <>
bool CSetup<bool>::FromText(const CUnicodeString& text) const {
  bool value = defaultValue;
  text.ToBool(value);
  return value;
}

template <>
CUnicodeString CSetup<bool>::ToText(const bool& value) const {
  return CUnicodeString::FromBool(value);
}

template <>
CUnicodeString CSetup<CUnicodeString>::FromText(const CUnicodeString& text) const {
  return text;
}

template <>
CUnicodeString CSetup<CUnicodeString>::ToText(const CUnicodeString& value) const {
  return value;
}

template <>
CTime CSetup<CTime>::FromText(const CUnicodeString& text) const {
  CTime value = defaultValue;
  CTime::FromText(text, value);
  return value;
}

template <>
CUnicodeString CSetup<CTime>::ToText(const CTime& value) const {
  return value.ToText();
}

template class CSetup<bool>;
template class CSetup<CUnicodeString>;
template class CSetup<CTime>;

// ---- Colour names ---------------------------------------------------------------------

// Several names stand for one colour: the 3D and button families grew their
// spellings over the system's versions, and all of them are accepted.
const CColorName ColorNames[ColorNameCount] = {
    {L"3DDKSHADOW", 21},
    {L"3DFACE", 15},
    {L"BTNFACE", 15},
    {L"3DHILIGHT", 20},
    {L"3DHIGHLIGHT", 20},
    {L"BTNHILIGHT", 20},
    {L"BTNHIGHLIGHT", 20},
    {L"3DLIGHT", 22},
    {L"3DSHADOW", 16},
    {L"BTNSHADOW", 16},
    {L"ACTIVEBORDER", 10},
    {L"ACTIVECAPTION", 2},
    {L"APPWORKSPACE", 12},
    {L"BACKGROUND", 1},
    {L"WINDOW", 5},
    {L"WINDOWTEXT", 8},
    {L"DESKTOP", 1},
    {L"BTNTEXT", 18},
    {L"CAPTIONTEXT", 9},
    {L"GRAYTEXT", 17},
    {L"HIGHLIGHT", 13},
    {L"HIGHLIGHTTEXT", 14},
    {L"INACTIVEBORDER", 11},
    {L"INACTIVECAPTION", 3},
    {L"INACTIVECAPTIONTEXT", 19},
    {L"INFOBK", 24},
    {L"INFOTEXT", 23},
    {L"MENU", 4},
    {L"MENUTEXT", 7},
    {L"SCROLLBAR", 0},
    {L"WINDOWFRAME", 6},
};

bool FindColorByName(const wchar_t* name, int32_t& number) {
  TSL_ASSERT(name != nullptr, Unit, 201);
  if (name == nullptr) return false;
  for (const CColorName& entry : ColorNames) {
    if (_wcsicmp(entry.name, name) == 0) {
      number = entry.number;
      return true;
    }
  }
  return false;
}

}  // namespace Tsl
