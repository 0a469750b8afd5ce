// The journal of the demonstration main program: one UTF-8 line for each
// message it receives and each thing it does, appended to a file that tests
// read. Shared by the program and its tests, so that both spell a line alike.
#pragma once

#include <stdint.h>
#include <stdio.h>

// Where the journal goes: the switch /Journal:<path>, or this variable when
// the program is started by somebody else (the agent) with other arguments.
#define STANDIN_JOURNAL_VARIABLE L"MIRDAL_STANDIN_JOURNAL"
// More switches for a program that somebody else starts: a text with the
// same form as a command line.
#define STANDIN_SWITCHES_VARIABLE L"MIRDAL_STANDIN_SWITCHES"

// The exit code of a start that was told to crash while initialising.
const unsigned StandInCrashExitCode = 0xDEAD;

// Which window got a message: the application window ("Md16_AppWindow") or
// the main window ("Md16_MainWindow").
#define STANDIN_APP_WINDOW "app"
#define STANDIN_MAIN_WINDOW "main"

// A message: "<window> <name> w=0x<hex> l=0x<hex>". `name` is the registered
// name, or "WM_<number>" for a system message. Both words in full width.
inline int FormatJournalMessage(char* out, size_t size, const char* window, const char* name,
                                uint64_t wParam, uint64_t lParam) {
  return snprintf(out, size, "%s %s w=0x%llx l=0x%llx", window, name,
                  static_cast<unsigned long long>(wParam),
                  static_cast<unsigned long long>(lParam));
}

// The head of a WM_COPYDATA line: "<window> WM_COPYDATA tag=<tag> size=<bytes> data=";
// the data follows in lower-case hex, two digits a byte, at most
// StandInJournalMaxDataBytes of them and then "+" if there were more. A tag of
// four printable letters is written as them, any other as 0x<hex>.
const int32_t StandInJournalMaxDataBytes = 4096;
inline int FormatJournalCopyDataHead(char* out, size_t size, const char* window, uint64_t tag,
                                     uint32_t bytes) {
  char letters[5] = {static_cast<char>(tag >> 24), static_cast<char>(tag >> 16),
                     static_cast<char>(tag >> 8), static_cast<char>(tag), 0};
  bool printable = tag <= 0xFFFFFFFFull;
  for (int i = 0; i < 4; ++i) printable = printable && letters[i] >= 0x21 && letters[i] <= 0x7E;
  if (printable)
    return snprintf(out, size, "%s WM_COPYDATA tag=%s size=%u data=", window, letters, bytes);
  return snprintf(out, size, "%s WM_COPYDATA tag=0x%llx size=%u data=", window,
                  static_cast<unsigned long long>(tag), bytes);
}

// Events of the program itself, each "event <what>[ <detail>]":
//   "event start <command line arguments>"   the process began
//   "event ready"                             the ready mutex was released
//   "event crash"                             it ends now, the ready mutex held
//   "event word <text>"                       a chord found this text on the clipboard
//   "event no-word"                           a chord found no text
//   "event entry found" / "event entry none"  whether the dictionary knew the word
//   "event autoupdate <wParam> <lParam>"      progress sent to the agent
//   "event exit"                              the application window is gone
#define STANDIN_EVENT "event "
