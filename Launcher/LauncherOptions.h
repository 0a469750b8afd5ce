// The user's choice of translation triggers: the options record kept in the
// registry, the atoms through which the choice reaches the hook in every other
// process, and the event that permits a hover translation. Only the thread of
// the tray window touches the options and the atoms.
#pragma once

#include <stdint.h>
#include <windows.h>

#include "unicodestring.h"

// ---- Registry keys ------------------------------------------------------------------

// The main program's key below HKEY_CURRENT_USER and HKEY_LOCAL_MACHINE, and
// the trainer's. Each is a zero-terminated text in a process-wide buffer of
// RegistryKeyCapacity units, filled on first use.
const int32_t RegistryKeyCapacity = 260;
const wchar_t* GetProductRegistryKey();
const wchar_t* GetDrillixRegistryKey();

// Test seam: replaces the product's key, and with it the options key below
// it, for the rest of the process; null goes back to the product's own key.
// Tests keep their options away from the real ones with it. A key of
// RegistryKeyCapacity units or more is an internal error.
void OverrideProductRegistryKey(const wchar_t* key);

// ---- Option values ------------------------------------------------------------------

// One bool option: a REG_SZ value "true" or "false" in the options key.
class CLauncherBoolValue {
 public:
  constexpr CLauncherBoolValue(const wchar_t* name, bool defaultValue)
      : name(name), defaultValue(defaultValue) {}

  // The stored value. A text that begins with "true" or "false" (in these
  // cases) counts; anything else, a missing value or one of another type
  // gives the default. Never raises.
  bool Read() const;
  // Stores "true" or "false"; failures are not reported.
  void Write(bool value) const;

  const wchar_t* name;  // the registry value's name
  bool defaultValue;
};

// One row of an enumeration: its number and the text that stands for it in
// the registry.
struct CLauncherEnumEntry {
  int32_t number;
  const wchar_t* text;
};

// One enumerated option: a REG_SZ value holding the text of one row of its table.
class CLauncherEnumValue {
 public:
  constexpr CLauncherEnumValue(const wchar_t* name, const CLauncherEnumEntry* table, int32_t count,
                               int32_t defaultValue)
      : name(name), table(table), count(count), defaultValue(defaultValue) {}

  // The number of the last row whose text compares equal to the stored text
  // over the shorter of the two; the default when none does, the value is
  // missing or of another type. Never raises.
  int32_t Read() const;
  // Stores the text of the last row with `value`; nothing when there is none.
  // Failures are not reported.
  void Write(int32_t value) const;
  // The number that `text` reads as; `count` is the size of the read buffer
  // in units, which bounds every comparison as it does for a stored value.
  int32_t Decide(const wchar_t* text, int32_t count) const;

  const wchar_t* name;  // the registry value's name
  const CLauncherEnumEntry* table;
  int32_t count;
  int32_t defaultValue;
};

// ---- The options record -------------------------------------------------------------

// The nine options of the agent's key "Launcher" below the product's key.
// One record for the process (GetLauncherOptions); it has no lock, since only
// the tray window's thread uses it.
class CLauncherOptions {
 public:
  // What a hover translation needs besides the mouse resting on a word.
  enum MouseCoverType : int32_t {
    coverOnly = 0,
    coverPlusClick = 1,  // in fact a key held down: see MouseCoverVirtualKey
  };
  // The key held down for a hover translation of type coverPlusClick.
  enum MouseCoverVirtualKey : int32_t {
    ctrl = 0,
    shift = 1,
    alt = 2,
    ctrlAlt = 3,
    ctrlShift = 4,
    altShift = 5,
    ctrlWin = 6,
  };
  // The click that translates.
  enum MouseClickType : int32_t {
    leftKeyPlusMenu = 0,  // "Menu" is the Alt key
    leftKeyPlusCtrl = 1,
    leftKeyPlusShift = 2,
    middleKey = 3,
    leftKeyPlusCtrlAlt = 4,
    leftKeyPlusAltShift = 5,
    leftKeyPlusCtrlShift = 6,
    leftKeyPlusCtrlWin = 7,
  };

  // Every option at its default.
  CLauncherOptions();

  // Reads the nine values in the order of the fields, each with its default.
  void Load();
  // Writes the nine values in the order of the fields.
  void Save() const;

  bool useMouseCover;
  MouseCoverType useMouseCoverType;
  MouseCoverVirtualKey useMouseCoverVirtualKey;
  bool useMouseClick;
  MouseClickType useMouseClickType;
  bool useCtrlInsIns;
  bool useCtrlCC;
  bool ShowTrayWindow;
  // Carried and written back; the main program decides on it.
  bool UnloadMirdalOnCloseBtn;
};

// The enumerations' tables. The order matters: a stored text takes the number
// of the last row that compares equal, so "ctrl-alt" gets past "ctrl".
extern const CLauncherEnumEntry MouseCoverTypeTable[2];
extern const CLauncherEnumEntry MouseCoverVirtualKeyTable[7];
extern const CLauncherEnumEntry MouseClickTypeTable[8];

// The values behind the record's fields, in the record's order.
extern const CLauncherBoolValue UseMouseCoverValue;
extern const CLauncherEnumValue UseMouseCoverTypeValue;
extern const CLauncherEnumValue UseMouseCoverVirtualKeyValue;
extern const CLauncherBoolValue UseMouseClickValue;
extern const CLauncherEnumValue UseMouseClickTypeValue;
extern const CLauncherBoolValue UseCtrlInsInsValue;
extern const CLauncherBoolValue UseCtrlCCValue;
extern const CLauncherBoolValue ShowTrayWindowValue;
extern const CLauncherBoolValue UnloadMirdalOnCloseBtnValue;
// Two more of the family, which belong to the main program: the agent
// neither reads nor writes them.
extern const CLauncherBoolValue TranslatePhrasesValue;
extern const CLauncherBoolValue ShowTipInCoverTranslationWindowValue;

// The process's options record.
CLauncherOptions& GetLauncherOptions();

// The options key below HKEY_CURRENT_USER: the product's key and "\Launcher".
Tsl::CUnicodeString GetOptionsKeyPath();

// ---- Atoms ------------------------------------------------------------------------------

// The atoms, one per trigger, in the order in which ApplyAtomStates sets them.
// Their names are wire format ("Allower" among them); the hook library and the
// main program read them.
const int32_t TriggerAtomCount = 18;
extern const wchar_t* const TriggerAtomNames[TriggerAtomCount];

// Whether the record asks for the atom TriggerAtomNames[index]. At most one
// click atom and one hover atom are wished at a time.
bool IsTriggerAtomWished(const CLauncherOptions& options, int32_t index);

// Sets every atom to what the process's record asks for, in the order of
// TriggerAtomNames, whether or not this agent is the one in charge.
void ApplyAtomStates();
// Clears every atom: the chords, the clicks, the hovers.
void ClearAtomStates();

// The atoms for the life of the tray window: the constructor reads the
// options and sets the atoms, the destructor clears them.
class CAtomStateGuard {
 public:
  CAtomStateGuard();
  ~CAtomStateGuard();
  CAtomStateGuard(const CAtomStateGuard&) = delete;
  CAtomStateGuard& operator=(const CAtomStateGuard&) = delete;
};

// ---- Applying changed options -----------------------------------------------------------

// What applying options needs of the tray window. The tray window implements it.
class IOptionsWindow {
 public:
  virtual ~IOptionsWindow() {}
  // Keeps `show` as the state in which the icon is to be held, and shows or
  // hides the icon now.
  virtual void SetShowTrayWindow(bool show) = 0;
  // Registers or unregisters the hook to match the options.
  virtual void ApplyHookState() = 0;
};

// The main program changed the options (Md16_Agent_Options): read them, put
// the icon in line, set the atoms and the hook.
void ReloadOptions(IOptionsWindow& window);
// The agent's menu changed the record: store it, set the atoms and the hook,
// and tell the main program, if it runs, to read the options again.
void SaveOptionsAndApply(IOptionsWindow& window);

// ---- Hover translation event ------------------------------------------------------------

// Signalled while the hook last said that a hover translation is permitted;
// the main program tests it by name.
extern const wchar_t HoverTranslationAllowedEventName[];

// Creates (or opens) the event: manual reset, not signalled, no security
// attributes. Null when the system refuses, which the agent lives with.
HANDLE CreateHoverTranslationEvent();
// Sets or resets the event as the hook's report says, and traces it.
void SetHoverTranslationAllowed(HANDLE event, bool allowed);
