// The hook's trigger decisions on recorded input: which key sequences are
// chords, which clicks match which allowed kind, when a resting mouse is a
// hover; and that the hook reads the atoms under the names the agent sets.
#include "../../../Companions/Hook/HookTriggers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LauncherOptions.h"

using namespace HookTriggers;

namespace {

const DWORD DoubleClick = 500;

// One key event of a recorded sequence: down or up, the key, its time and the
// modifiers held before it.
struct CKey {
  bool down;
  DWORD vk;
  DWORD time;
  uint32_t held;
};

CKey Down(DWORD vk, DWORD time, uint32_t held = ModCtrl) { return {true, vk, time, held}; }
CKey Up(DWORD vk, DWORD time = 0) { return {false, vk, time, ModNone}; }

struct CChordCase {
  const char* name;
  std::vector<CKey> keys;
  std::vector<EChord> expected;  // the chords completed, in order
};

TEST(ChordRecogniser, RecognisesTheSecondPressWithinTheDoubleClickTimeWithCtrlHeldThroughout) {
  const CChordCase cases[] = {
      {"Ctrl+C+C", {Down(VK_LCONTROL, 0, 0), Down('C', 10), Up('C'), Down('C', 100)}, {ChordCtrlCC}},
      {"Ctrl+Ins+Ins", {Down(VK_INSERT, 10), Up(VK_INSERT), Down(VK_INSERT, 100)}, {ChordCtrlInsIns}},
      {"right Ctrl", {Down(VK_RCONTROL, 0, 0), Down('C', 10), Up('C'), Down('C', 20)}, {ChordCtrlCC}},
      {"second press at the double-click time", {Down('C', 10), Up('C'), Down('C', 510)}, {ChordCtrlCC}},
      {"second press after the double-click time", {Down('C', 10), Up('C'), Down('C', 511)}, {}},
      {"late press starts a new chord", {Down('C', 10), Up('C'), Down('C', 600), Up('C'), Down('C', 700)},
       {ChordCtrlCC}},
      {"clock wraps between the presses", {Down('C', 0xFFFFFFF0u), Up('C'), Down('C', 0x10)}, {ChordCtrlCC}},
      {"Ctrl released between", {Down('C', 10), Up('C'), Up(VK_LCONTROL), Down('C', 100)}, {}},
      {"no Ctrl", {Down('C', 10, ModNone), Up('C'), Down('C', 100, ModNone)}, {}},
      {"Ctrl pressed only for the second", {Down('C', 10, ModNone), Up('C'), Down('C', 100)}, {}},
      {"held key repeats", {Down('C', 10), Down('C', 40), Down('C', 70)}, {}},
      {"C then Insert", {Down('C', 10), Up('C'), Down(VK_INSERT, 100)}, {}},
      {"another key between", {Down('C', 10), Up('C'), Down('V', 50), Up('V'), Down('C', 100)}, {}},
      {"Shift between", {Down('C', 10), Up('C'), Down(VK_LSHIFT, 50), Up(VK_LSHIFT), Down('C', 100)},
       {ChordCtrlCC}},
      {"Ctrl repeats between", {Down('C', 10), Up('C'), Down(VK_LCONTROL, 50), Down('C', 100)}, {ChordCtrlCC}},
      {"Ctrl+Alt is not Ctrl", {Down('C', 10, ModCtrl | ModAlt), Up('C'), Down('C', 100, ModCtrl | ModAlt)},
       {}},
      {"Ctrl+Win is not Ctrl", {Down('C', 10, ModCtrl | ModWin), Up('C'), Down('C', 100, ModCtrl | ModWin)},
       {}},
      {"three presses make one chord", {Down('C', 10), Up('C'), Down('C', 50), Up('C'), Down('C', 90)},
       {ChordCtrlCC}},
      {"four presses make two",
       {Down('C', 10), Up('C'), Down('C', 50), Up('C'), Down('C', 90), Up('C'), Down('C', 130)},
       {ChordCtrlCC, ChordCtrlCC}},
  };
  for (const CChordCase& row : cases) {
    CChordRecogniser recogniser;
    std::vector<EChord> found;
    for (const CKey& key : row.keys) {
      if (!key.down) {
        recogniser.KeyUp(key.vk);
        continue;
      }
      EChord chord = recogniser.KeyDown(key.vk, key.time, key.held, DoubleClick);
      if (chord != ChordNone) found.push_back(chord);
    }
    EXPECT_EQ(found, row.expected) << row.name;
  }
}

TEST(ClickTriggers, EachKindMatchesItsButtonAndExactlyItsModifiers) {
  struct CRow {
    const wchar_t* atom;
    EClickButton button;
    uint32_t held;
    bool click;
  };
  const CRow rows[] = {
      {L"Md16_LeftMouseClickWithAltAllowed", ClickLeft, ModAlt, true},
      {L"Md16_LeftMouseClickWithCtrlAllowed", ClickLeft, ModCtrl, true},
      {L"Md16_LeftMouseClickWithShiftAllowed", ClickLeft, ModShift, true},
      {L"Md16_MiddleMouseClickAllowed", ClickMiddle, ModNone, true},
      {L"Md16_LeftMouseClickWithCtrlAltAllowed", ClickLeft, ModCtrl | ModAlt, true},
      {L"Md16_LeftMouseClickWithAltShiftAllowed", ClickLeft, ModAlt | ModShift, true},
      {L"Md16_LeftMouseClickWithCtrlShiftAllowed", ClickLeft, ModCtrl | ModShift, true},
      {L"Md16_LeftMouseClickWithCtrlWinAllower", ClickLeft, ModCtrl | ModWin, true},
      // A click with more keys is another kind, not this one as well.
      {L"Md16_LeftMouseClickWithCtrlAllowed", ClickLeft, ModCtrl | ModAlt, false},
      {L"Md16_LeftMouseClickWithCtrlAltAllowed", ClickLeft, ModCtrl | ModAlt | ModShift, false},
      {L"Md16_LeftMouseClickWithAltAllowed", ClickLeft, ModNone, false},
      {L"Md16_LeftMouseClickWithCtrlAltAllowed", ClickMiddle, ModCtrl | ModAlt, false},
      // The middle button needs no keys and minds none.
      {L"Md16_MiddleMouseClickAllowed", ClickMiddle, ModCtrl | ModShift, true},
      {L"Md16_MiddleMouseClickAllowed", ClickLeft, ModNone, false},
  };
  for (const CRow& row : rows) {
    const CClickTrigger* trigger = nullptr;
    for (const CClickTrigger& candidate : ClickTriggers)
      if (std::wstring(candidate.atom) == row.atom) trigger = &candidate;
    ASSERT_NE(trigger, nullptr) << testing::PrintToString(std::wstring(row.atom));
    EXPECT_EQ(IsClick(*trigger, row.button, row.held), row.click)
        << testing::PrintToString(std::wstring(row.atom)) << " held " << row.held;
  }
}

TEST(HoverWatch, OneHoverPerRestAfterTheHoverTimeWithTheButtonsUp) {
  CHoverWatch watch;
  EXPECT_FALSE(watch.Ripe(1000, 400, true)) << "no move seen yet";
  watch.Moved(10, 20, 1000);
  EXPECT_FALSE(watch.Ripe(1399, 400, true)) << "before the hover time";
  EXPECT_FALSE(watch.Ripe(1400, 400, false)) << "a button is down";
  EXPECT_TRUE(watch.Ripe(1400, 400, true));
  EXPECT_TRUE(watch.Ripe(2000, 400, true)) << "not used yet: keys pressed later still count";
  watch.Use();
  EXPECT_FALSE(watch.Ripe(3000, 400, true)) << "one hover per rest";
  watch.Moved(10, 20, 3000);
  EXPECT_FALSE(watch.Ripe(4000, 400, true)) << "a move in place is no new rest";
  watch.Moved(11, 20, 4000);
  EXPECT_FALSE(watch.Ripe(4300, 400, true)) << "the rest starts again at the move";
  EXPECT_TRUE(watch.Ripe(4400, 400, true));
  EXPECT_EQ(watch.X(), 11);
  EXPECT_EQ(watch.Y(), 20);
}

TEST(HookAtoms, EveryAtomTheHookReadsIsOneTheAgentSets) {
  std::vector<std::wstring> hookAtoms = {CtrlCCAtom, CtrlInsInsAtom};
  for (const CClickTrigger& trigger : ClickTriggers) hookAtoms.push_back(trigger.atom);
  for (const CHoverTrigger& trigger : HoverTriggers) hookAtoms.push_back(trigger.atom);
  ASSERT_EQ(hookAtoms.size(), static_cast<size_t>(TriggerAtomCount));
  for (const std::wstring& atom : hookAtoms) {
    bool known = false;
    for (const wchar_t* agentAtom : TriggerAtomNames) known = known || atom == agentAtom;
    EXPECT_TRUE(known) << testing::PrintToString(atom);
  }
}

}  // namespace
