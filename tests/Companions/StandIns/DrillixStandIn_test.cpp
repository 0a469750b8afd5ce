// Tests of the demonstration trainer: the balloon blocks it sends to the
// agent decode as the agent decodes them, and a second start hands its
// request to the running trainer.
#include <gtest/gtest.h>

#include "MdMessages.h"
#include "StandInHarness.h"
#include "StandInSupport.h"
#include "TrayBalloonData.h"
#include "archive.h"
#include "memoryfile.h"

using namespace StandInTest;

namespace {

// The balloons that reached the agent, read as the agent reads a MDDB block.
std::vector<Tsl::CPtr<CTrayBalloonData>> Balloons(const CFakeAgent& agent) {
  std::vector<Tsl::CPtr<CTrayBalloonData>> balloons;
  for (const Received& item : agent.Messages()) {
    if (item.message != WM_COPYDATA || item.tag != CopyDataTagBalloon) continue;
    Tsl::CMemoryFile file;
    file.Write(item.bytes.data(), static_cast<int32_t>(item.bytes.size()));
    file.SeekToBegin();
    Tsl::CArchive archive(&file, Tsl::CArchive::Load, 4096);
    balloons.push_back(ReadTrayBalloonData(archive));
  }
  return balloons;
}

class DrillixStandIn : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(lock.Held());
    ASSERT_NE(nullptr, agent.Window());
    ASSERT_TRUE(PumpUntil([] { return FindWindowOf(DrillixMainWindowClass) == nullptr; }));
  }
  void TearDown() override {
    if (HWND window = FindWindowOf(DrillixMainWindowClass)) {
      ::PostMessageW(window, WM_CLOSE, 0, 0);
      DWORD code = 1;
      EXPECT_TRUE(trainer.WaitForExit(code));
      EXPECT_EQ(0u, code);
    }
  }

  CSessionLock lock;
  CFakeAgent agent;
  CProcess trainer;
};

TEST_F(DrillixStandIn, TheWordOfTheDayBalloonCarriesTheCatalogueText) {
  ASSERT_TRUE(trainer.Start(L"Drillix.exe", L"/Send:word"));
  ASSERT_TRUE(PumpUntil([this] { return Balloons(agent).size() == 1; }));
  Tsl::CPtr<CTrayBalloonData> balloon = Balloons(agent)[0];
  // The agent knows a click on the word of the day by this text alone: the
  // trainer must speak it from the libraries beside it, in the same language.
  ASSERT_TRUE(StartProductTexts(MIRDAL_DEMO_DIR));
  EXPECT_FALSE(CatalogueText(L"MSG_MDA_WORD_OF_THE_DAY") == L"MSG_MDA_WORD_OF_THE_DAY");
  EXPECT_TRUE(balloon->text == CatalogueText(L"MSG_MDA_WORD_OF_THE_DAY"));
  EXPECT_TRUE(balloon->caption == CatalogueText(L"MSG_MDA_WORD_OF_THE_DAY_TITLE"));
  EndProductTexts();
  EXPECT_EQ(1, balloon->infoFlags);
  // The block's sender is the trainer's window.
  EXPECT_EQ(reinterpret_cast<WPARAM>(FindWindowOf(DrillixMainWindowClass)),
            agent.Messages().back().wParam);
}

TEST_F(DrillixStandIn, ASecondStartHandsItsRequestToTheRunningTrainer) {
  ASSERT_TRUE(trainer.Start(L"Drillix.exe", L""));
  ASSERT_TRUE(PumpUntil([] { return FindWindowOf(DrillixMainWindowClass) != nullptr; }));
  CProcess second;
  ASSERT_TRUE(second.Start(L"Drillix.exe", L"/Send:reminder"));
  DWORD code = 1;
  ASSERT_TRUE(second.WaitForExit(code));
  EXPECT_EQ(0u, code);
  ASSERT_TRUE(PumpUntil([this] { return Balloons(agent).size() == 1; }));
  EXPECT_FALSE(Balloons(agent)[0]->text == CatalogueText(L"MSG_MDA_WORD_OF_THE_DAY"));
  EXPECT_TRUE(trainer.Running());
}

}  // namespace
