// The message vocabulary shared by the agent, the hook library, the 64-bit
// sibling, the main program and the trainer: registered window message names,
// window classes, WM_COPYDATA tags, the search for the main program's windows
// and the message filter that lets lower integrity levels reach the agent.
#pragma once

#include <stdint.h>
#include <windows.h>

// ---- Window classes -------------------------------------------------------------

// This agent's hidden tray window. Agents of other versions are recognised by
// the part "Launcher" of their class.
static const wchar_t LauncherWindowClass[] = L"Md16_Launcher";
// The main program's application window: the one by which the agent tests that
// the program is there, and to which it sends close, hide, settings and update
// requests.
static const wchar_t MirdalAppWindowClass[] = L"Md16_AppWindow";
// The main program's main window: it receives hook messages, options and the
// word of the day.
static const wchar_t MirdalMainWindowClass[] = L"Md16_MainWindow";
// The trainer's main window; the agent never looks it up.
static const wchar_t DrillixMainWindowClass[] = L"MDD16_MainWindow";
// The 64-bit sibling that hosts the hook in 64-bit processes.
static const wchar_t Agent64WindowClass[] = L"Md16_Agent64";

// ---- Registered messages ----------------------------------------------------------
//
// Every program registers the same texts and so gets the same numbers in one
// session; the numbers mean nothing beyond that and are never stored. Each
// source unit that includes this header holds its own copies, registered
// before the main function; the results are not tested (a failed registration
// gives 0, which no message carries). The spellings are wire format:
// "Mininized", "Insure" and "Baloon" stand as the other programs know them.

// Sent by the agent.
static const UINT MdAgent_New_Mirdal_Instance =
    ::RegisterWindowMessageW(L"MdAgent_New_Mirdal_Instance");
static const UINT MdAgent_Exit_Mirdal_Instance =
    ::RegisterWindowMessageW(L"MdAgent_Exit_Mirdal_Instance");
static const UINT MdAgent_Get_Version = ::RegisterWindowMessageW(L"MdAgent_Get_Version");
static const UINT Md16_Close_Agent64 = ::RegisterWindowMessageW(L"Md16_Close_Agent64");
static const UINT Md16_Agent_Options = ::RegisterWindowMessageW(L"Md16_Agent_Options");
static const UINT Md16_Mirdal_Hide_Main_Window =
    ::RegisterWindowMessageW(L"Md16_Mirdal_Hide_Main_Window");
static const UINT Md16_Mirdal_Close_Main_Window =
    ::RegisterWindowMessageW(L"Md16_Mirdal_Close_Main_Window");
static const UINT Md16_Mirdal_Restart_Agent =
    ::RegisterWindowMessageW(L"Md16_Mirdal_Restart_Agent");
static const UINT Md16_Mirdal_Show_Translation_Settings =
    ::RegisterWindowMessageW(L"Md16_Mirdal_Show_Translation_Settings");
static const UINT Md16_Mirdal_Autoupdate = ::RegisterWindowMessageW(L"Md16_Mirdal_Autoupdate");
static const UINT Md16_Mirdal_Show_Word_Of_The_Day =
    ::RegisterWindowMessageW(L"Md16_Mirdal_Show_Word_Of_The_Day");

// Received by the agent's window (besides the three instance messages above).
static const UINT Md16_Agent_Close = ::RegisterWindowMessageW(L"Md16_Agent_Close");
static const UINT Md16_Agent_Close_Without_Mirdal =
    ::RegisterWindowMessageW(L"Md16_Agent_Close_Without_Mirdal");
static const UINT Md16_Agent_Restart_Mirdal =
    ::RegisterWindowMessageW(L"Md16_Agent_Restart_Mirdal");
static const UINT Md16_Agent_Mirdal_Opened = ::RegisterWindowMessageW(L"Md16_Agent_Mirdal_Opened");
static const UINT Md16_Agent_Mirdal_Closed = ::RegisterWindowMessageW(L"Md16_Agent_Mirdal_Closed");
static const UINT Md16_Agent_Mirdal_Online = ::RegisterWindowMessageW(L"Md16_Agent_Mirdal_Online");
static const UINT Md16_Agent_Mirdal_Autoupdate =
    ::RegisterWindowMessageW(L"Md16_Agent_Mirdal_Autoupdate");
static const UINT Md16_Agent_Direction_Changed =
    ::RegisterWindowMessageW(L"Md16_Agent_Direction_Changed");
static const UINT Md16_Agent_Show_Mininized_Baloon =
    ::RegisterWindowMessageW(L"Md16_Agent_Show_Mininized_Baloon");
static const UINT Md16_Agent_Insure_Visible =
    ::RegisterWindowMessageW(L"Md16_Agent_Insure_Visible");
static const UINT Md16_Agent_Restore_Tray_Icon =
    ::RegisterWindowMessageW(L"Md16_Agent_Restore_Tray_Icon");

// From the hook library, passed on to the main program with their words
// unread. Both keyboard chords, Ctrl+Ins+Ins and Ctrl+C+C, come as one
// message: the two variables are registered under the same name and always
// hold the same number, so the agent cannot tell the chords apart. Code that
// looks for a chord tests both all the same.
static const UINT Md16_Hook_On_Ctrl_Ins_Ins =
    ::RegisterWindowMessageW(L"Md16_Hook_On_Ctrl_Ins_Ins");
static const UINT Md16_Hook_On_Ctrl_C_C = ::RegisterWindowMessageW(L"Md16_Hook_On_Ctrl_Ins_Ins");
// wParam not 0: a hover translation is permitted.
static const UINT Md16_Hook_On_Mouse_Translate =
    ::RegisterWindowMessageW(L"Md16_Hook_On_Mouse_Translate");
static const UINT Md16_Hook_On_Window_Activated =
    ::RegisterWindowMessageW(L"Md16_Hook_On_Window_Activated");

// The tray window's own: the icon's callback message, and the shell's message
// after the taskbar was (re)created.
static const UINT Md16_WM_TRAYICON_NOTIFICATION =
    ::RegisterWindowMessageW(L"Md16_WM_TRAYICON_NOTIFICATION");
static const UINT TaskbarCreatedMessage = ::RegisterWindowMessageW(L"TaskbarCreated");

// Names of the shared vocabulary that the agent registers and then neither
// sends nor handles; the other programs of the product use them.
static const UINT Md16_Hook_Keyboard_Event = ::RegisterWindowMessageW(L"Md16_Hook_Keyboard_Event");
static const UINT Md16_Mirdal_Save_History = ::RegisterWindowMessageW(L"Md16_Mirdal_Save_History");
static const UINT Md16_Mirdal_Set_Foreground_Window =
    ::RegisterWindowMessageW(L"Md16_Mirdal_Set_Foreground_Window");
static const UINT Md16_Mirdal_Property_Page_Activated =
    ::RegisterWindowMessageW(L"Md16_Mirdal_Property_Page_Activated");
static const UINT Md16_Mirdal_Show_Actions_Context_Menu =
    ::RegisterWindowMessageW(L"Md16_Mirdal_Show_Actions_Context_Menu");
static const UINT Md16_GetProgressMessage = ::RegisterWindowMessageW(L"Md16_GetProgressMessage");
static const UINT Md16_MirdalHintActivation =
    ::RegisterWindowMessageW(L"Md16_MirdalHintActivation");
static const UINT Md16_Agent_Show_Word_Of_The_Day =
    ::RegisterWindowMessageW(L"Md16_Agent_Show_Word_Of_The_Day");
static const UINT MDD16_Drillix_Is_Exercising_Now =
    ::RegisterWindowMessageW(L"MDD16_Drillix_Is_Exercising_Now");
static const UINT Md16_Mirdal_Show_Main_Window =
    ::RegisterWindowMessageW(L"Md16_Mirdal_Show_Main_Window");
static const UINT Md16_Mirdal_Resize_Mainframe_To_Ideal =
    ::RegisterWindowMessageW(L"Md16_Mirdal_Resize_Mainframe_To_Ideal");
static const UINT MDD16_Show_Drillix = ::RegisterWindowMessageW(L"MDD16_Show_Drillix");

// ---- WM_COPYDATA tags ---------------------------------------------------------------

// A tag is four letters in one 32-bit value, the first letter in the highest byte.
constexpr uint32_t MakeCopyDataTag(char first, char second, char third, char fourth) {
  return (static_cast<uint32_t>(static_cast<unsigned char>(first)) << 24) |
         (static_cast<uint32_t>(static_cast<unsigned char>(second)) << 16) |
         (static_cast<uint32_t>(static_cast<unsigned char>(third)) << 8) |
         static_cast<uint32_t>(static_cast<unsigned char>(fourth));
}
// A balloon request in archive form: shown at once.
constexpr uint32_t CopyDataTagBalloon = MakeCopyDataTag('M', 'D', 'D', 'B');
// Opaque bytes forwarded to the main window.
constexpr uint32_t CopyDataTagMirdal = MakeCopyDataTag('M', 'R', 'D', 'L');
// Opaque bytes forwarded like CopyDataTagMirdal.
constexpr uint32_t CopyDataTagImage = MakeCopyDataTag('M', 'I', 'M', 'G');

// ---- Operations ---------------------------------------------------------------------

// The main program's main window (`mainWindow` true) or its application window
// (false), found by class alone; null when there is none or the handle is no
// longer a window.
HWND FindMirdalWindow(bool mainWindow);

// The signature of the system's ChangeWindowMessageFilter, which older systems
// lack and which therefore is looked up at run time.
typedef BOOL(WINAPI* ChangeWindowMessageFilterFunction)(UINT message, DWORD action);

// Lets processes of lower integrity levels send the agent the messages that
// they have to reach it with: WM_COPYDATA, the hover and chord messages, the
// instance protocol, the icon restore request and TaskbarCreated, in this
// order. Does nothing where the system has no such filter. Results are
// ignored: a message that stays filtered only loses that sender.
void OpenAgentMessageFilter();
// The same with a given filter function (never null); for the agent it is the
// system's, for tests a recorder.
void OpenAgentMessageFilter(ChangeWindowMessageFilterFunction changeFilter);
