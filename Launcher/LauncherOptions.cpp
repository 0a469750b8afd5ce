// The trigger options in the registry, the atoms that carry them to the hook,
// the hover event, and the steps that apply changed options. Registry reads
// give defaults and never raise; writes are fire-and-forget.
#include "LauncherOptions.h"

#include <string.h>
#include <wchar.h>

#include "AgentServices.h"
#include "MdMessages.h"
#include "MirdalAgent.h"
#include "errors.h"
#include "services.h"

using Tsl::CUnicodeString;

namespace {

const wchar_t Unit[] = L"LauncherOptions";

// Access masks of the options key: KEY_READ to read, KEY_READ | KEY_WRITE to write.
const REGSAM OptionsReadAccess = 131097;
const REGSAM OptionsWriteAccess = 0x2001F;

// The longest stored value whose size is taken seriously; a bigger one reads
// as an empty text rather than asking for gigabytes.
const DWORD MaxOptionBytes = 0x100000;

// ---- Registry keys -----------------------------------------------------------------

wchar_t productKey[RegistryKeyCapacity];  // empty until first use
wchar_t drillixKey[RegistryKeyCapacity];  // empty until first use

void FillProductKey() {
  swprintf(productKey, RegistryKeyCapacity, L"SOFTWARE\\Tavix\\Mirdal\\%d", AgentVersion);
}

// ---- Reading and writing one value -------------------------------------------------------

// The text of the options value `name`, in a buffer of `count` units that is
// zero behind the text; `count` comes back, at least 1. Every failure reads as
// the empty text. The key is opened once for the size and once for the text,
// and neither handle is closed: they go with the process. The options are
// read a handful of times in a session (start, the main program's change
// notices), so this costs a few handles each time and nothing more.
CUnicodeString ReadOptionText(const wchar_t* name, int32_t& count) {
  const CUnicodeString keyPath = GetOptionsKeyPath();
  DWORD size = 0;
  HKEY sizeKey = nullptr;
  if (::RegOpenKeyExW(HKEY_CURRENT_USER, keyPath.Text(), 0, OptionsReadAccess, &sizeKey) ==
      ERROR_SUCCESS) {
    LONG result = ::RegQueryValueExW(sizeKey, name, nullptr, nullptr, nullptr, &size);
    if ((result != ERROR_SUCCESS && result != ERROR_MORE_DATA) || size > MaxOptionBytes) size = 0;
  }
  count = static_cast<int32_t>(size / 2 + 1);

  CUnicodeString text;
  wchar_t* units = text.GetBuffer(count);
  memset(units, 0, count * sizeof(wchar_t));
  HKEY textKey = nullptr;
  bool read = false;
  if (::RegOpenKeyExW(HKEY_CURRENT_USER, keyPath.Text(), 0, OptionsReadAccess, &textKey) ==
      ERROR_SUCCESS) {
    DWORD type = REG_NONE;
    DWORD capacity = static_cast<DWORD>(count) * sizeof(wchar_t);
    read = ::RegQueryValueExW(textKey, name, nullptr, &type, reinterpret_cast<BYTE*>(units),
                              &capacity) == ERROR_SUCCESS &&
           type == REG_SZ;
  }
  // Whatever a failed or foreign read left behind is no text of ours.
  if (!read) memset(units, 0, count * sizeof(wchar_t));
  return text;
}

// Compares `text` with `word` over the shorter of `count` and the word, so a
// text that only begins with the word compares equal. A text shorter than the
// word doesn't: the zero behind it is compared too.
bool StartsLike(const wchar_t* text, int32_t count, const wchar_t* word) {
  size_t length = wcslen(word);
  size_t n = static_cast<size_t>(count) < length ? static_cast<size_t>(count) : length;
  return wcsncmp(text, word, n) == 0;
}

// Stores `text` as the options value `name`. Results are not examined, and
// the key is left open like the reader's.
void WriteOptionText(const wchar_t* name, const wchar_t* text) {
  const int32_t length = static_cast<int32_t>(wcslen(text));
  // The size handed to the registry is twice the text's size with its
  // terminator: "true" goes out as 20 bytes, the terminator at byte 8. That is
  // the form in which these values have always been stored, and every reader
  // of them stops at the terminator. The buffer is that large and zero behind
  // the text, so the extra bytes are zeros, never memory beyond the text.
  const int32_t units = 2 * (length + 1);
  CUnicodeString buffer;
  wchar_t* data = buffer.GetBuffer(units);
  memset(data, 0, units * sizeof(wchar_t));
  memcpy(data, text, length * sizeof(wchar_t));

  HKEY key = nullptr;
  if (::RegCreateKeyExW(HKEY_CURRENT_USER, GetOptionsKeyPath().Text(), 0, nullptr, 0,
                        OptionsWriteAccess, nullptr, &key, nullptr) != ERROR_SUCCESS)
    return;
  ::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(data),
                   static_cast<DWORD>(units * sizeof(wchar_t)));
}

// ---- Atoms ----------------------------------------------------------------------------

// What sets an atom.
enum ETriggerKind : int32_t {
  TK_CtrlInsIns,
  TK_CtrlCC,
  TK_Click,         // useMouseClick and the click type `number`
  TK_HoverAlone,    // useMouseCover with coverOnly
  TK_HoverWithKey,  // useMouseCover with coverPlusClick and the key `number`
};

struct CTriggerRule {
  int32_t kind;    // ETriggerKind
  int32_t number;  // click type or hover key
};

// One rule per entry of TriggerAtomNames, in the same order.
const CTriggerRule TriggerRules[TriggerAtomCount] = {
    {TK_CtrlInsIns, 0},
    {TK_CtrlCC, 0},
    {TK_Click, CLauncherOptions::leftKeyPlusShift},
    {TK_Click, CLauncherOptions::leftKeyPlusMenu},
    {TK_Click, CLauncherOptions::leftKeyPlusCtrl},
    {TK_Click, CLauncherOptions::middleKey},
    {TK_Click, CLauncherOptions::leftKeyPlusCtrlShift},
    {TK_Click, CLauncherOptions::leftKeyPlusAltShift},
    {TK_Click, CLauncherOptions::leftKeyPlusCtrlAlt},
    {TK_Click, CLauncherOptions::leftKeyPlusCtrlWin},
    {TK_HoverAlone, 0},
    {TK_HoverWithKey, CLauncherOptions::ctrl},
    {TK_HoverWithKey, CLauncherOptions::shift},
    {TK_HoverWithKey, CLauncherOptions::alt},
    {TK_HoverWithKey, CLauncherOptions::ctrlAlt},
    {TK_HoverWithKey, CLauncherOptions::ctrlShift},
    {TK_HoverWithKey, CLauncherOptions::ctrlWin},
    {TK_HoverWithKey, CLauncherOptions::altShift},
};

// The order in which ClearAtomStates goes through TriggerAtomNames: the
// chords, the clicks by their key combinations, the hovers.
const int32_t ClearOrder[TriggerAtomCount] = {0, 1,  2,  3,  4,  5,  8,  6,  7,
                                              9, 10, 11, 12, 13, 14, 15, 16, 17};

void ClearAtomsInOrder() {
  for (int32_t index : ClearOrder) SetAtomState(CUnicodeString(TriggerAtomNames[index]), false);
}

}  // namespace

// ---- Registry keys ---------------------------------------------------------------------

const wchar_t* GetProductRegistryKey() {
  if (productKey[0] == 0) FillProductKey();
  return productKey;
}

const wchar_t* GetDrillixRegistryKey() {
  if (drillixKey[0] == 0)
    swprintf(drillixKey, RegistryKeyCapacity, L"Software\\Tavix\\Drillix\\%d", AgentVersion);
  return drillixKey;
}

void OverrideProductRegistryKey(const wchar_t* key) {
  if (key == nullptr) {
    FillProductKey();
    return;
  }
  TSL_ASSERT(wcslen(key) < static_cast<size_t>(RegistryKeyCapacity), Unit, 40);
  if (wcslen(key) >= static_cast<size_t>(RegistryKeyCapacity)) return;
  wcscpy(productKey, key);
}

CUnicodeString GetOptionsKeyPath() {
  CUnicodeString path(GetProductRegistryKey());
  path += L"\\Launcher";
  return path;
}

// ---- Option values ----------------------------------------------------------------------

bool CLauncherBoolValue::Read() const {
  int32_t count = 0;
  CUnicodeString text = ReadOptionText(name, count);
  if (StartsLike(text.Text(), count, L"true")) return true;
  if (StartsLike(text.Text(), count, L"false")) return false;
  return defaultValue;
}

void CLauncherBoolValue::Write(bool value) const {
  WriteOptionText(name, value ? L"true" : L"false");
}

int32_t CLauncherEnumValue::Decide(const wchar_t* text, int32_t textCount) const {
  TSL_ASSERT(text != nullptr && textCount > 0, Unit, 80);
  if (text == nullptr || textCount <= 0) return defaultValue;
  int32_t result = defaultValue;
  // No early exit: a later row that also compares equal is the more
  // specific one ("ctrl-alt" after "ctrl").
  for (int32_t row = 0; row < count; ++row)
    if (StartsLike(text, textCount, table[row].text)) result = table[row].number;
  return result;
}

int32_t CLauncherEnumValue::Read() const {
  int32_t textCount = 0;
  CUnicodeString text = ReadOptionText(name, textCount);
  return Decide(text.Text(), textCount);
}

void CLauncherEnumValue::Write(int32_t value) const {
  const wchar_t* text = nullptr;
  for (int32_t row = 0; row < count; ++row)
    if (table[row].number == value) text = table[row].text;
  if (text != nullptr) WriteOptionText(name, text);
}

const CLauncherEnumEntry MouseCoverTypeTable[2] = {
    {CLauncherOptions::coverOnly, L"coverOnly"},
    {CLauncherOptions::coverPlusClick, L"coverPlusClick"},
};

const CLauncherEnumEntry MouseCoverVirtualKeyTable[7] = {
    {CLauncherOptions::ctrl, L"ctrl"},
    {CLauncherOptions::shift, L"shift"},
    {CLauncherOptions::alt, L"alt"},
    {CLauncherOptions::ctrlAlt, L"ctrl-alt"},
    {CLauncherOptions::ctrlShift, L"ctrl-shift"},
    {CLauncherOptions::altShift, L"alt-shift"},
    {CLauncherOptions::ctrlWin, L"ctrl-win"},
};

const CLauncherEnumEntry MouseClickTypeTable[8] = {
    {CLauncherOptions::leftKeyPlusMenu, L"leftKeyPlusMenu"},
    {CLauncherOptions::leftKeyPlusCtrl, L"leftKeyPlusCtrl"},
    {CLauncherOptions::leftKeyPlusShift, L"leftKeyPlusShift"},
    {CLauncherOptions::middleKey, L"middleKey"},
    {CLauncherOptions::leftKeyPlusCtrlAlt, L"leftKeyPlusCtrlAlt"},
    {CLauncherOptions::leftKeyPlusAltShift, L"leftKeyPlusAltShift"},
    {CLauncherOptions::leftKeyPlusCtrlShift, L"leftKeyPlusCtrlShift"},
    {CLauncherOptions::leftKeyPlusCtrlWin, L"leftKeyPlusCtrlWin"},
};

const CLauncherBoolValue UseMouseCoverValue(L"useMouseCover", true);
const CLauncherEnumValue UseMouseCoverTypeValue(L"useMouseCoverType", MouseCoverTypeTable, 2,
                                                CLauncherOptions::coverPlusClick);
const CLauncherEnumValue UseMouseCoverVirtualKeyValue(L"useMouseCoverVirtualKey",
                                                      MouseCoverVirtualKeyTable, 7,
                                                      CLauncherOptions::ctrl);
const CLauncherBoolValue UseMouseClickValue(L"useMouseClick", true);
const CLauncherEnumValue UseMouseClickTypeValue(L"useMouseClickType", MouseClickTypeTable, 8,
                                                CLauncherOptions::leftKeyPlusCtrlAlt);
const CLauncherBoolValue UseCtrlInsInsValue(L"useCtrlInsIns", true);
const CLauncherBoolValue UseCtrlCCValue(L"useCtrlCC", true);
const CLauncherBoolValue ShowTrayWindowValue(L"ShowTrayWindow", true);
const CLauncherBoolValue UnloadMirdalOnCloseBtnValue(L"UnloadMirdalOnCloseBtn", false);
const CLauncherBoolValue TranslatePhrasesValue(L"translatePhrases", false);
const CLauncherBoolValue ShowTipInCoverTranslationWindowValue(L"ShowTipInCoverTranslationWindow",
                                                              true);

// ---- The options record -------------------------------------------------------------------

CLauncherOptions::CLauncherOptions()
    : useMouseCover(UseMouseCoverValue.defaultValue),
      useMouseCoverType(static_cast<MouseCoverType>(UseMouseCoverTypeValue.defaultValue)),
      useMouseCoverVirtualKey(
          static_cast<MouseCoverVirtualKey>(UseMouseCoverVirtualKeyValue.defaultValue)),
      useMouseClick(UseMouseClickValue.defaultValue),
      useMouseClickType(static_cast<MouseClickType>(UseMouseClickTypeValue.defaultValue)),
      useCtrlInsIns(UseCtrlInsInsValue.defaultValue),
      useCtrlCC(UseCtrlCCValue.defaultValue),
      ShowTrayWindow(ShowTrayWindowValue.defaultValue),
      UnloadMirdalOnCloseBtn(UnloadMirdalOnCloseBtnValue.defaultValue) {}

void CLauncherOptions::Load() {
  useMouseCover = UseMouseCoverValue.Read();
  useMouseCoverType = static_cast<MouseCoverType>(UseMouseCoverTypeValue.Read());
  useMouseCoverVirtualKey = static_cast<MouseCoverVirtualKey>(UseMouseCoverVirtualKeyValue.Read());
  useMouseClick = UseMouseClickValue.Read();
  useMouseClickType = static_cast<MouseClickType>(UseMouseClickTypeValue.Read());
  useCtrlInsIns = UseCtrlInsInsValue.Read();
  useCtrlCC = UseCtrlCCValue.Read();
  ShowTrayWindow = ShowTrayWindowValue.Read();
  UnloadMirdalOnCloseBtn = UnloadMirdalOnCloseBtnValue.Read();
}

void CLauncherOptions::Save() const {
  UseMouseCoverValue.Write(useMouseCover);
  UseMouseCoverTypeValue.Write(useMouseCoverType);
  UseMouseCoverVirtualKeyValue.Write(useMouseCoverVirtualKey);
  UseMouseClickValue.Write(useMouseClick);
  UseMouseClickTypeValue.Write(useMouseClickType);
  UseCtrlInsInsValue.Write(useCtrlInsIns);
  UseCtrlCCValue.Write(useCtrlCC);
  ShowTrayWindowValue.Write(ShowTrayWindow);
  UnloadMirdalOnCloseBtnValue.Write(UnloadMirdalOnCloseBtn);
}

CLauncherOptions& GetLauncherOptions() {
  static CLauncherOptions options;
  return options;
}

// ---- Atoms ----------------------------------------------------------------------------------

const wchar_t* const TriggerAtomNames[TriggerAtomCount] = {
    L"Md16_CtrlInsInsAllowed",
    L"Md16_CtrlCCAllowed",
    L"Md16_LeftMouseClickWithShiftAllowed",
    L"Md16_LeftMouseClickWithAltAllowed",
    L"Md16_LeftMouseClickWithCtrlAllowed",
    L"Md16_MiddleMouseClickAllowed",
    L"Md16_LeftMouseClickWithCtrlShiftAllowed",
    L"Md16_LeftMouseClickWithAltShiftAllowed",
    L"Md16_LeftMouseClickWithCtrlAltAllowed",
    // "Allower" is how the hook library spells this one.
    L"Md16_LeftMouseClickWithCtrlWinAllower",
    L"Md16_HoverWithoutKeysAllowed",
    L"Md16_HoverWithCtrlAllowed",
    L"Md16_HoverWithShiftAllowed",
    L"Md16_HoverWithAltAllowed",
    L"Md16_HoverWithCtrlAltAllowed",
    L"Md16_HoverWithCtrlShiftAllowed",
    L"Md16_HoverWithCtrlWinAllowed",
    L"Md16_HoverWithAltShiftAllowed",
};

bool IsTriggerAtomWished(const CLauncherOptions& options, int32_t index) {
  TSL_ASSERT(index >= 0 && index < TriggerAtomCount, Unit, 120);
  if (index < 0 || index >= TriggerAtomCount) return false;
  const CTriggerRule& rule = TriggerRules[index];
  switch (rule.kind) {
    case TK_CtrlInsIns:
      return options.useCtrlInsIns;
    case TK_CtrlCC:
      return options.useCtrlCC;
    case TK_Click:
      return options.useMouseClick && options.useMouseClickType == rule.number;
    case TK_HoverAlone:
      return options.useMouseCover && options.useMouseCoverType == CLauncherOptions::coverOnly;
    case TK_HoverWithKey:
      return options.useMouseCover &&
             options.useMouseCoverType == CLauncherOptions::coverPlusClick &&
             options.useMouseCoverVirtualKey == rule.number;
  }
  return false;
}

void ApplyAtomStates() {
  const CLauncherOptions& options = GetLauncherOptions();
  for (int32_t index = 0; index < TriggerAtomCount; ++index)
    SetAtomState(CUnicodeString(TriggerAtomNames[index]), IsTriggerAtomWished(options, index));
}

void ClearAtomStates() { ClearAtomsInOrder(); }

CAtomStateGuard::CAtomStateGuard() {
  GetLauncherOptions().Load();
  ApplyAtomStates();
}

CAtomStateGuard::~CAtomStateGuard() {
  // The window is going whatever happens here; a failure is reported, not thrown.
  try {
    ClearAtomStates();
  } catch (Tsl::CException* failure) {
    Tsl::ReportException(failure);
    delete failure;
  }
}

// ---- Applying changed options ----------------------------------------------------------------

void ReloadOptions(IOptionsWindow& window) {
  CLauncherOptions& options = GetLauncherOptions();
  options.Load();
  window.SetShowTrayWindow(options.ShowTrayWindow);
  ApplyAtomStates();
  window.ApplyHookState();
}

void SaveOptionsAndApply(IOptionsWindow& window) {
  GetLauncherOptions().Save();
  ApplyAtomStates();
  window.ApplyHookState();
  // The main program keeps its own copy of the options and reads them again
  // on this message.
  HWND mainWindow = FindMirdalWindow(true);
  if (mainWindow != nullptr) ::PostMessageW(mainWindow, Md16_Agent_Options, 0, 0);
}

// ---- Hover translation event -------------------------------------------------------------------

const wchar_t HoverTranslationAllowedEventName[] = L"Local\\{7A472109-FDA9-48ad-9DD1-5C79A60DA392}";

HANDLE CreateHoverTranslationEvent() {
  return ::CreateEventW(nullptr, TRUE, FALSE, HoverTranslationAllowedEventName);
}

void SetHoverTranslationAllowed(HANDLE event, bool allowed) {
  if (allowed) {
    ::SetEvent(event);
    AgentServices().DebugOutput(L"Agent: hoverTranslationAllowedEvent has been set\n");
  } else {
    ::ResetEvent(event);
    AgentServices().DebugOutput(L"Agent: hoverTranslationAllowedEvent has been reset\n");
  }
}
