// The hook library on the virtual display with real keys and clicks: chords,
// clicks and hovers reach the agent's window once each and only while their
// atoms are set, the program in front still gets every key, and hooks that
// the system dropped come back.
#include <gtest/gtest.h>

#include "../../../Companions/Hook/HookTriggers.h"
#include "HookTestKit.h"
#include "MdMessages.h"
#include "Tools/HookWords.h"

using namespace HookTestKit;

namespace {

const wchar_t Selection[] = L"selected words";
const wchar_t MiddleClickAtom[] = L"Md16_MiddleMouseClickAllowed";

// The hook, a stand-in agent and a program in front, for one test.
class HookOnDisplay : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(hook.Loaded());
    ASSERT_TRUE(hook.Register());
  }

  // A middle click where it changes nothing. Reports are posted in the order
  // of the input, so when this one has arrived, everything typed before it
  // has been judged: what hasn't arrived by then never will.
  void ClickMarker() {
    POINT spot = target.EmptySpot();
    ASSERT_TRUE(Xdo("mousemove " + XPoint(spot.x, spot.y) + " click 2"));
  }

  CAgentWindow agent;
  CHookLibrary hook;
  CTypingTarget target{Selection};
};

TEST_F(HookOnDisplay, ChordsArriveOnceEachWithTheWindowInFrontAndTheKeysStillReachIt) {
  CAtoms atoms({HookTriggers::CtrlCCAtom, HookTriggers::CtrlInsInsAtom, MiddleClickAtom});

  EmptyClipboardNow();
  ASSERT_TRUE(Xdo(ChordCtrlCC));
  ASSERT_TRUE(agent.WaitForReports(1));
  EXPECT_EQ(WaitForClipboardText(), Selection) << "Ctrl+C must still copy in the program in front";

  EmptyClipboardNow();
  target.Focus();
  ASSERT_TRUE(Xdo(ChordCtrlInsIns));
  ASSERT_TRUE(agent.WaitForReports(2));
  EXPECT_EQ(WaitForClipboardText(), Selection) << "Ctrl+Ins must still copy in the program in front";

  ClickMarker();
  ASSERT_TRUE(agent.WaitForReports(3));
  ASSERT_EQ(agent.Reports().size(), 3u);
  const CReport& cc = agent.Reports()[0];
  const CReport& insIns = agent.Reports()[1];
  EXPECT_EQ(cc.message, Md16_Hook_On_Ctrl_Ins_Ins);
  EXPECT_EQ(cc.wParam, HookChordCtrlCC);
  EXPECT_EQ(HookChordWindow(cc.lParam), target.Window());
  EXPECT_EQ(insIns.message, Md16_Hook_On_Ctrl_Ins_Ins);
  EXPECT_EQ(insIns.wParam, HookChordCtrlInsIns);
  EXPECT_EQ(HookChordWindow(insIns.lParam), target.Window());
  EXPECT_EQ(agent.Reports()[2].message, Md16_Hook_On_Mouse_Translate);
}

TEST_F(HookOnDisplay, NothingArrivesWhileTheTriggersAtomsAreCleared) {
  CAtoms atoms({MiddleClickAtom});
  POINT spot = target.EmptySpot();

  ASSERT_TRUE(Xdo(ChordCtrlCC));
  ASSERT_TRUE(Xdo(ChordCtrlInsIns));
  ASSERT_TRUE(Xdo("mousemove " + XPoint(spot.x + 30, spot.y) + " keydown ctrl keydown alt click 1 keyup alt keyup ctrl"));
  ASSERT_TRUE(Xdo("mousemove " + XPoint(spot.x + 60, spot.y) + " keydown ctrl sleep 1 keyup ctrl"));
  ClickMarker();

  ASSERT_TRUE(agent.WaitForReports(1));
  ASSERT_EQ(agent.Reports().size(), 1u) << "only the marker may arrive";
  EXPECT_EQ(agent.Reports()[0].message, Md16_Hook_On_Mouse_Translate);
  EXPECT_EQ(agent.Reports()[0].wParam, HookMouseClick);
}

TEST_F(HookOnDisplay, ClickWithCtrlAltAndHoverWithCtrlArriveWithTheirPoints) {
  CAtoms atoms({L"Md16_LeftMouseClickWithCtrlAltAllowed", L"Md16_HoverWithCtrlAllowed"});
  POINT spot = target.EmptySpot();
  POINT click = {spot.x + 40, spot.y + 10};
  POINT rest = {spot.x + 80, spot.y + 30};

  // Both happen well within the hover time after the move, so the mouse's
  // rest there can't count as a hover.
  ASSERT_TRUE(Xdo("mousemove " + XPoint(click.x, click.y) + " keydown ctrl keydown alt click 1 keyup alt keyup ctrl"));
  ASSERT_TRUE(agent.WaitForReports(1));
  ASSERT_TRUE(Xdo("mousemove " + XPoint(rest.x, rest.y) + " keydown ctrl sleep 1 keyup ctrl"));
  ASSERT_TRUE(agent.WaitForReports(2));

  ASSERT_EQ(agent.Reports().size(), 2u);
  const CReport& clicked = agent.Reports()[0];
  const CReport& hovered = agent.Reports()[1];
  EXPECT_EQ(clicked.message, Md16_Hook_On_Mouse_Translate);
  EXPECT_EQ(clicked.wParam, HookMouseClick);
  EXPECT_EQ(HookPointX(clicked.lParam), click.x);
  EXPECT_EQ(HookPointY(clicked.lParam), click.y);
  EXPECT_EQ(hovered.message, Md16_Hook_On_Mouse_Translate);
  EXPECT_EQ(hovered.wParam, HookMouseHoverPermitted);
  EXPECT_EQ(HookPointX(hovered.lParam), rest.x);
  EXPECT_EQ(HookPointY(hovered.lParam), rest.y);
}

TEST_F(HookOnDisplay, ChordsAreDetectedAgainWithinTwoSecondsAfterTheHooksWereDroppedSilently) {
  CAtoms atoms({HookTriggers::CtrlCCAtom});
  ASSERT_TRUE(hook.DropHooks());

  // The first chord meets no hook and is lost (which shows that the hooks
  // really went); the library must notice the input it missed and hook again.
  ASSERT_TRUE(Xdo(ChordCtrlCC));
  DWORD lost = ::GetTickCount();
  EXPECT_FALSE(agent.WaitForReports(1, 300)) << "the hooks were never dropped";
  bool arrived = agent.Reports().size() > 0;
  while (!arrived && ::GetTickCount() - lost < 2000) {
    ASSERT_TRUE(Xdo(ChordCtrlCC));
    arrived = agent.WaitForReports(1, 300);
  }
  EXPECT_TRUE(arrived) << "no chord detected within 2 s of the first one lost";
}

}  // namespace
