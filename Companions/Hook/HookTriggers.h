// What the hook library counts as a trigger: the atoms that allow each one,
// the modifier keys and mouse buttons that make a click or a hover, and the
// recogniser of the keyboard chords. Pure decisions on what the hooks saw,
// free of the hooks themselves and of the foundation, so that tests can feed
// them recorded input.
#pragma once

#include <stdint.h>
#include <windows.h>

namespace HookTriggers {

// ---- Atoms -------------------------------------------------------------------------
//
// The agent sets one atom per allowed trigger; the names are wire format and
// must stay as the agent spells them ("Allower" among them). An atom is set
// exactly while the named mutex "Local\<name>" exists.

const wchar_t CtrlCCAtom[] = L"Md16_CtrlCCAllowed";
const wchar_t CtrlInsInsAtom[] = L"Md16_CtrlInsInsAllowed";

// ---- Modifier keys -----------------------------------------------------------------

// A set of held modifier keys, left and right alike.
enum EModifier : uint32_t {
  ModNone = 0,
  ModCtrl = 1,
  ModAlt = 2,
  ModShift = 4,
  ModWin = 8,
};

// The modifiers held now, as the system's asynchronous key state says. In a
// low-level keyboard callback this is the state before the key being handled.
inline uint32_t HeldModifiers() {
  auto down = [](int key) { return (::GetAsyncKeyState(key) & 0x8000) != 0; };
  uint32_t held = ModNone;
  if (down(VK_CONTROL)) held |= ModCtrl;
  if (down(VK_MENU)) held |= ModAlt;
  if (down(VK_SHIFT)) held |= ModShift;
  if (down(VK_LWIN) || down(VK_RWIN)) held |= ModWin;
  return held;
}

// ---- Clicks and hovers -------------------------------------------------------------

enum EClickButton { ClickLeft, ClickMiddle };

// One kind of click: the atom that allows it, the button, and the modifiers
// that must be held, no more and no fewer, so that Ctrl+Alt+click is not also
// taken for a Ctrl+click. The middle button needs no keys and accepts any.
struct CClickTrigger {
  const wchar_t* atom;
  EClickButton button;
  uint32_t modifiers;
};

// The eight kinds of click the agent can allow; at most one atom is set.
const CClickTrigger ClickTriggers[] = {
    {L"Md16_LeftMouseClickWithAltAllowed", ClickLeft, ModAlt},
    {L"Md16_LeftMouseClickWithCtrlAllowed", ClickLeft, ModCtrl},
    {L"Md16_LeftMouseClickWithShiftAllowed", ClickLeft, ModShift},
    {L"Md16_MiddleMouseClickAllowed", ClickMiddle, ModNone},
    {L"Md16_LeftMouseClickWithCtrlAltAllowed", ClickLeft, ModCtrl | ModAlt},
    {L"Md16_LeftMouseClickWithAltShiftAllowed", ClickLeft, ModAlt | ModShift},
    {L"Md16_LeftMouseClickWithCtrlShiftAllowed", ClickLeft, ModCtrl | ModShift},
    {L"Md16_LeftMouseClickWithCtrlWinAllower", ClickLeft, ModCtrl | ModWin},
};
const int ClickTriggerCount = sizeof(ClickTriggers) / sizeof(ClickTriggers[0]);

// Whether a press of `button` with `held` modifiers is the click `trigger`.
inline bool IsClick(const CClickTrigger& trigger, EClickButton button, uint32_t held) {
  if (trigger.button != button) return false;
  return button == ClickMiddle || held == trigger.modifiers;
}

// One kind of hover: the atom that allows it and the modifiers that must be
// held, exactly, while the mouse rests. ModNone is the hover without keys.
struct CHoverTrigger {
  const wchar_t* atom;
  uint32_t modifiers;
};

// The eight kinds of hover the agent can allow; at most one atom is set.
const CHoverTrigger HoverTriggers[] = {
    {L"Md16_HoverWithoutKeysAllowed", ModNone},
    {L"Md16_HoverWithCtrlAllowed", ModCtrl},
    {L"Md16_HoverWithShiftAllowed", ModShift},
    {L"Md16_HoverWithAltAllowed", ModAlt},
    {L"Md16_HoverWithCtrlAltAllowed", ModCtrl | ModAlt},
    {L"Md16_HoverWithCtrlShiftAllowed", ModCtrl | ModShift},
    {L"Md16_HoverWithCtrlWinAllowed", ModCtrl | ModWin},
    {L"Md16_HoverWithAltShiftAllowed", ModAlt | ModShift},
};
const int HoverTriggerCount = sizeof(HoverTriggers) / sizeof(HoverTriggers[0]);

// ---- Hover timing ------------------------------------------------------------------

// Follows the mouse and tells when it has rested long enough for a hover.
// One rest gives at most one hover: the mouse has to move again (or the keys
// change to a set that is allowed) before the next. A button held down is a
// drag or a click in progress, never a hover.
class CHoverWatch {
 public:
  // The mouse moved to (x, y) at `tick` (milliseconds of the system's clock).
  void Moved(int x, int y, DWORD tick) {
    if (tracking && x == restX && y == restY) return;  // the system repeats a move in place
    tracking = true;
    used = false;
    restX = x;
    restY = y;
    restTick = tick;
  }

  // Whether the mouse, at rest since its last move, has rested `hoverTime`
  // milliseconds at `tick` and this rest has not given its hover yet. The
  // caller then checks the keys and, if they make an allowed hover, calls
  // Use: a key pressed after the mouse stopped still counts.
  bool Ripe(DWORD tick, DWORD hoverTime, bool buttonsUp) const {
    if (!tracking || used || !buttonsUp) return false;
    return static_cast<DWORD>(tick - restTick) >= hoverTime;
  }

  // This rest has given its hover, or a click was made where the mouse rests:
  // no hover until the mouse moves again.
  void Use() { used = true; }

  int X() const { return restX; }
  int Y() const { return restY; }

 private:
  bool tracking = false;  // a move has been seen
  bool used = false;      // this rest has given its hover, or was clicked
  int restX = 0, restY = 0;
  DWORD restTick = 0;  // when the mouse came to rest
};

// ---- Keyboard chords ---------------------------------------------------------------

enum EChord { ChordNone, ChordCtrlCC, ChordCtrlInsIns };

// Recognises Ctrl+C+C and Ctrl+Ins+Ins from the stream of key events: the
// same key twice, the second press within the double-click time of the first,
// Ctrl held throughout and Alt and Win not held (Ctrl+Alt is AltGr on many
// layouts, which types characters). A key held down repeats its press without
// a release; a repeat is not a second press.
class CChordRecogniser {
 public:
  // A key went down at `time` (milliseconds) with `held` modifiers held
  // before it. Returns the chord that this press completes, or ChordNone.
  EChord KeyDown(DWORD vk, DWORD time, uint32_t held, DWORD doubleClickTime) {
    if (IsCtrl(vk)) return ChordNone;  // Ctrl's own repeats while it is held
    EChord chord = ChordOf(vk);
    if (chord == ChordNone) {
      // Shift may go down and up in the middle of the chord; any other key
      // breaks it.
      if (!IsShift(vk)) pendingKey = 0;
      return ChordNone;
    }
    if (vk == keyDown) return ChordNone;  // auto-repeat
    keyDown = vk;
    bool ctrlOnly = (held & ModCtrl) != 0 && (held & (ModAlt | ModWin)) == 0;
    if (!ctrlOnly) {
      pendingKey = 0;
      return ChordNone;
    }
    if (pendingKey == vk && static_cast<DWORD>(time - pendingTime) <= doubleClickTime) {
      pendingKey = 0;  // a third press starts a new chord
      return chord;
    }
    pendingKey = vk;
    pendingTime = time;
    return ChordNone;
  }

  // A key went up.
  void KeyUp(DWORD vk) {
    if (vk == keyDown) keyDown = 0;
    // Releasing Ctrl ends the chord: Ctrl must be held throughout.
    if (IsCtrl(vk)) pendingKey = 0;
  }

 private:
  static bool IsCtrl(DWORD vk) { return vk == VK_CONTROL || vk == VK_LCONTROL || vk == VK_RCONTROL; }
  static bool IsShift(DWORD vk) { return vk == VK_SHIFT || vk == VK_LSHIFT || vk == VK_RSHIFT; }
  static EChord ChordOf(DWORD vk) {
    if (vk == 'C') return ChordCtrlCC;
    if (vk == VK_INSERT) return ChordCtrlInsIns;
    return ChordNone;
  }

  DWORD pendingKey = 0;   // the first key of a chord under way, 0 when none
  DWORD pendingTime = 0;  // when it went down
  DWORD keyDown = 0;      // the chord key now held, to tell repeats from presses
};

}  // namespace HookTriggers
