// The message vocabulary as other programs see it: each variable carries the
// number of the wire name it stands for, and each tag its four letters.
#include "MdMessages.h"

#include <gtest/gtest.h>

#include <vector>

#include "TestSupport.h"

namespace {

// A variable and the text that the other programs register for it; most
// variables are named after their text. A variable bound to the wrong text,
// or a "corrected" spelling, would make the agent deaf to that message.
#define WIDEN(text) L##text
#define WIRE(name) \
  { name, WIDEN(#name) }
// clang-format off
const std::pair<UINT, const wchar_t*> Vocabulary[] = {
    WIRE(MdAgent_New_Mirdal_Instance), WIRE(MdAgent_Exit_Mirdal_Instance),
    WIRE(MdAgent_Get_Version), WIRE(Md16_Close_Agent64), WIRE(Md16_Agent_Options),
    WIRE(Md16_Mirdal_Hide_Main_Window), WIRE(Md16_Mirdal_Close_Main_Window),
    WIRE(Md16_Mirdal_Restart_Agent), WIRE(Md16_Mirdal_Show_Translation_Settings),
    WIRE(Md16_Mirdal_Autoupdate), WIRE(Md16_Mirdal_Show_Word_Of_The_Day), WIRE(Md16_Agent_Close),
    WIRE(Md16_Agent_Close_Without_Mirdal), WIRE(Md16_Agent_Restart_Mirdal),
    WIRE(Md16_Agent_Mirdal_Opened), WIRE(Md16_Agent_Mirdal_Closed), WIRE(Md16_Agent_Mirdal_Online),
    WIRE(Md16_Agent_Mirdal_Autoupdate), WIRE(Md16_Agent_Direction_Changed),
    WIRE(Md16_Agent_Show_Mininized_Baloon), WIRE(Md16_Agent_Insure_Visible),
    WIRE(Md16_Agent_Restore_Tray_Icon), WIRE(Md16_Hook_On_Ctrl_Ins_Ins),
    {Md16_Hook_On_Ctrl_C_C, L"Md16_Hook_On_Ctrl_Ins_Ins"},  // both chords come as one message
    WIRE(Md16_Hook_On_Mouse_Translate), WIRE(Md16_Hook_On_Window_Activated),
    WIRE(Md16_WM_TRAYICON_NOTIFICATION), {TaskbarCreatedMessage, L"TaskbarCreated"},
    WIRE(Md16_Hook_Keyboard_Event), WIRE(Md16_Mirdal_Save_History),
    WIRE(Md16_Mirdal_Set_Foreground_Window), WIRE(Md16_Mirdal_Property_Page_Activated),
    WIRE(Md16_Mirdal_Show_Actions_Context_Menu), WIRE(Md16_GetProgressMessage),
    WIRE(Md16_MirdalHintActivation), WIRE(Md16_Agent_Show_Word_Of_The_Day),
    WIRE(MDD16_Drillix_Is_Exercising_Now), WIRE(Md16_Mirdal_Show_Main_Window),
    WIRE(Md16_Mirdal_Resize_Mainframe_To_Ideal), WIRE(MDD16_Show_Drillix)};
// clang-format on

TEST(MdMessages, EveryVariableCarriesTheNumberOfItsWireName) {
  for (const auto& [message, name] : Vocabulary)
    EXPECT_EQ(RegisterWindowMessageW(name), message) << TestSupport::Narrow(name);
  EXPECT_EQ(0x4D444442u, CopyDataTagBalloon);  // "MDDB": the first letter in the highest byte
  EXPECT_EQ(0x4D52444Cu, CopyDataTagMirdal);   // "MRDL"
  EXPECT_EQ(0x4D494D47u, CopyDataTagImage);    // "MIMG"
}

// Other programs find these windows by class name.
TEST(MdMessages, WindowClassesKeepTheirWireNames) {
  const std::pair<const wchar_t*, const wchar_t*> classes[] = {
      {LauncherWindowClass, L"Md16_Launcher"},     {MirdalAppWindowClass, L"Md16_AppWindow"},
      {MirdalMainWindowClass, L"Md16_MainWindow"}, {DrillixMainWindowClass, L"MDD16_MainWindow"},
      {Agent64WindowClass, L"Md16_Agent64"}};
  for (const auto& [variable, wire] : classes) EXPECT_STREQ(wire, variable);
}

std::vector<std::pair<UINT, DWORD>> filterCalls;

BOOL WINAPI RecordFilterCall(UINT message, DWORD action) {
  filterCalls.emplace_back(message, action);
  return TRUE;
}

// What the hook and the other agents send from lower integrity levels, and
// nothing more, opened in this order.
TEST(MdMessages, TheFilterOpensTheHooksAndTheInstanceProtocolsMessagesInOrder) {
  OpenAgentMessageFilter(RecordFilterCall);
  const std::vector<std::pair<UINT, DWORD>> expected = {
      {WM_COPYDATA, 1},
      {RegisterWindowMessageW(L"Md16_Hook_On_Mouse_Translate"), 1},
      {RegisterWindowMessageW(L"Md16_Hook_On_Ctrl_Ins_Ins"), 1},
      {RegisterWindowMessageW(L"Md16_Hook_On_Ctrl_Ins_Ins"), 1},  // the second chord's variable
      {RegisterWindowMessageW(L"MdAgent_New_Mirdal_Instance"), 1},
      {RegisterWindowMessageW(L"MdAgent_Exit_Mirdal_Instance"), 1},
      {RegisterWindowMessageW(L"MdAgent_Get_Version"), 1},
      {RegisterWindowMessageW(L"Md16_Agent_Restore_Tray_Icon"), 1},
      {RegisterWindowMessageW(L"TaskbarCreated"), 1}};
  EXPECT_EQ(expected, filterCalls);
}

}  // namespace
