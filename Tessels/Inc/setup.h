// Typed settings: small objects that each know one registry key and value,
// the value's default and its text form, and read or write it with one call.
// Nothing is cached: every read goes to the registry, every write goes
// straight through. Also the table of the system's colour names.
#pragma once

#include <stdint.h>
#include <windows.h>

#include "registrykey.h"
#include "tsltime.h"
#include "unicodestring.h"

namespace Tsl {

// Where a setting's key lives.
enum ESetupSource : int32_t {
  SS_MachineSettings = 0,  // HKEY_LOCAL_MACHINE, below the library's machine key
  SS_UserSettings = 1,     // HKEY_CURRENT_USER, below the library's user key
  SS_LocalMachine = 2,     // HKEY_LOCAL_MACHINE, the key path as given
  SS_CurrentUser = 3,      // HKEY_CURRENT_USER, the key path as given
  SS_Users = 4,            // HKEY_USERS, the key path as given
  SS_ClassesRoot = 5,      // HKEY_CLASSES_ROOT, the key path as given
  SS_CurrentConfig = 6,    // HKEY_CURRENT_CONFIG, the key path as given
};

// One setting's place: source, key path and value name, and registry view.
// Immutable after construction, so any thread may use it.
class CSetupBase {
 public:
  // Shares the texts. `view` is an ERegistryView; the program's settings
  // all pass RV_Default.
  CSetupBase(const CUnicodeString& keyPath, const CUnicodeString& valueName, ESetupSource source,
             int32_t view = RV_Default);
  // The default value as text.
  virtual CUnicodeString GetDefaultText() const = 0;
  virtual ~CSetupBase();

  ESetupSource GetSource() const { return source; }
  const CUnicodeString& GetKeyPath() const { return keyPath; }
  const CUnicodeString& GetValueName() const { return valueName; }
  int32_t GetView() const { return view; }

  // The root and the key below it that the setting opens. For the relative
  // kinds, the library's key and the key path joined by "\" (either alone
  // when the other is empty). An unknown source is an internal error and
  // gives a null root and an empty path.
  HKEY GetRoot() const;
  CUnicodeString GetEffectiveKeyPath() const;
  // The same join, for a given library key.
  static CUnicodeString JoinKeyPath(const CUnicodeString& libraryKey,
                                    const CUnicodeString& keyPath);

 protected:
  // The stored text, or the default text when the key cannot be opened or
  // the value is missing, not a string, or of size 0 or odd. Never raises
  // for what stands in the registry.
  CUnicodeString ReadText() const;
  // Stores `text` as a REG_SZ value, creating the key when missing. Raises
  // "ERR_CANT_WRITE_TO_REGISTRY" naming the key when it cannot be opened or
  // created, and naming key and value when the value cannot be written.
  void WriteText(const CUnicodeString& text) const;

 private:
  // Opens `key` in `mode` at the setting's place. False when the source is
  // unknown (after its internal error) and nothing was tried.
  bool OpenKey(CRegistryKey& key, int32_t mode) const;

  ESetupSource source;
  CUnicodeString keyPath;  // below the root, or below the library's key
  CUnicodeString valueName;
  int32_t view;  // ERegistryView
};

// A setting of type T with its default fixed at construction. Instantiated
// for bool, CUnicodeString and CTime.
//
// Text forms: bool as "true"/"false", read leniently ("on", "yes", "1",
// "off", "no", "0" too, trimmed, any case); a string as itself, also when
// empty; a time as its decimal tick count. A stored text that does not parse
// reads as the default, exactly as an absent value does.
template <class T>
class CSetup : public CSetupBase {
 public:
  CSetup(const CUnicodeString& keyPath, const CUnicodeString& valueName, ESetupSource source,
         const T& defaultValue, int32_t view = RV_Default)
      : CSetupBase(keyPath, valueName, source, view), defaultValue(defaultValue) {}

  CUnicodeString GetDefaultText() const override { return ToText(defaultValue); }

  // The stored value, or the default; callers cannot tell which.
  virtual T Get() const { return FromText(ReadText()); }
  // Writes through; raises as WriteText does. The object is not changed.
  virtual void Set(const T& value) const { WriteText(ToText(value)); }
  // Never reports a malformed text: it gives the default instead.
  virtual T FromText(const CUnicodeString& text) const;
  virtual CUnicodeString ToText(const T& value) const;

  const T& GetDefault() const { return defaultValue; }

 private:
  T defaultValue;
};

template <>
bool CSetup<bool>::FromText(const CUnicodeString& text) const;
template <>
CUnicodeString CSetup<bool>::ToText(const bool& value) const;
template <>
CUnicodeString CSetup<CUnicodeString>::FromText(const CUnicodeString& text) const;
template <>
CUnicodeString CSetup<CUnicodeString>::ToText(const CUnicodeString& value) const;
template <>
CTime CSetup<CTime>::FromText(const CUnicodeString& text) const;
template <>
CUnicodeString CSetup<CTime>::ToText(const CTime& value) const;

extern template class CSetup<bool>;
extern template class CSetup<CUnicodeString>;
extern template class CSetup<CTime>;

// ---- Colour names ---------------------------------------------------------------

// An upper-case name of one of the system's colours and its number, the
// index that GetSysColor takes.
struct CColorName {
  const wchar_t* name;
  int32_t number;
};

const int32_t ColorNameCount = 31;
extern const CColorName ColorNames[ColorNameCount];

// The number of a colour name in any case. False when there is none.
bool FindColorByName(const wchar_t* name, int32_t& number);

}  // namespace Tsl
