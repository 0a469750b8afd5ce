// The demonstration main program, Mirdal.exe: it meets the agent exactly as
// the dictionary does (its two windows, the ready mutex held while it starts,
// every request answered, opened and closed announced) and shows the word of
// a chord with its dictionary entry. Everything it receives goes to a journal.
#include <windows.h>

#include "DictdDictionary.h"
#include "MdMessages.h"
#include "Tools/HookWords.h"
#include "StandInJournal.h"
#include "StandInSupport.h"

namespace {

// Held from before the main window exists until the program is ready for hook
// messages; the agent waits for it after it found the main window. The
// misspelling is the name every program of the product uses.
const wchar_t ReadyMutexName[] = L"Md16_HookSynchronizatonMutex";

const UINT_PTR AutoupdateTimer = 1;
const UINT AutoupdateStepMs = 250;
const int AutoupdateSteps = 5;  // progress 20, 40 .. 100, then the end

const int StatusLines = 6;
// Where the entries stand on the card, below its heading and word.
const int CardEntryLeft = 16;
const int CardEntryTop = 74;

// The process's state: one program, one thread, its windows.
struct CProgram {
  HINSTANCE instance = nullptr;
  CStandInSwitches* switches = nullptr;
  Tsl::CUnicodeString journalPath;
  bool hangInCopyData = false;
  HWND appWindow = nullptr;
  HWND mainWindow = nullptr;
  HWND entryView = nullptr;  // read-only text of the entries, scrolled when long
  HFONT titleFont = nullptr;
  HFONT bodyFont = nullptr;
  CDictdShelf shelf;
  Tsl::CUnicodeString cardHeading;  // "Translation" or "Word of the day"
  Tsl::CUnicodeString cardWord;
  Tsl::CUnicodeString status[StatusLines];  // newest last
  int autoupdateStep = 0;
};
CProgram program;

// ---- Journal --------------------------------------------------------------------

void JournalBytes(const char* bytes, DWORD length) {
  if (program.journalPath.IsEmpty()) return;
  // Opened for each line, shared, so that a test may read it at any moment
  // and a crash loses nothing that was written.
  HANDLE file = ::CreateFileW(program.journalPath.Text(), FILE_APPEND_DATA,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  DWORD written = 0;
  ::WriteFile(file, bytes, length, &written, nullptr);
  ::CloseHandle(file);
}

void JournalLine(const char* line) {
  Tsl::CString text(line);
  text += "\n";
  JournalBytes(text.Text(), static_cast<DWORD>(text.Length()));
}

void JournalEvent(const char* what, const Tsl::CUnicodeString& detail = Tsl::CUnicodeString()) {
  Tsl::CString line(STANDIN_EVENT);
  line += what;
  if (!detail.IsEmpty()) {
    line += " ";
    line += ToUtf8(detail);
  }
  JournalLine(line.Text());
}

// The registered name of a message (registered messages and clipboard formats
// share one table of names), or "WM_<number>".
void MessageName(UINT message, char* name, int size) {
  wchar_t wide[128];
  if (message >= 0xC000 && ::GetClipboardFormatNameW(message, wide, 128) > 0) {
    ::WideCharToMultiByte(CP_UTF8, 0, wide, -1, name, size, nullptr, nullptr);
    return;
  }
  wsprintfA(name, "WM_%u", message);
}

void JournalMessage(const char* window, UINT message, WPARAM wParam, LPARAM lParam) {
  char name[160];
  MessageName(message, name, sizeof name);
  char line[320];
  FormatJournalMessage(line, sizeof line, window, name, wParam, static_cast<uint64_t>(lParam));
  JournalLine(line);
}

void JournalCopyData(const char* window, const COPYDATASTRUCT* copy) {
  char head[160];
  FormatJournalCopyDataHead(head, sizeof head, window, copy->dwData, copy->cbData);
  Tsl::CString line(head);
  static const char digits[] = "0123456789abcdef";
  const uint8_t* bytes = static_cast<const uint8_t*>(copy->lpData);
  DWORD shown = copy->cbData < static_cast<DWORD>(StandInJournalMaxDataBytes)
                    ? copy->cbData
                    : static_cast<DWORD>(StandInJournalMaxDataBytes);
  if (bytes == nullptr) shown = 0;
  for (DWORD i = 0; i < shown; ++i) {
    char pair[3] = {digits[bytes[i] >> 4], digits[bytes[i] & 15], 0};
    line += pair;
  }
  if (shown < copy->cbData) line += "+";
  JournalLine(line.Text());
}

// ---- What the windows show -------------------------------------------------------

void SetStatus(const Tsl::CUnicodeString& text) {
  for (int i = 0; i + 1 < StatusLines; ++i) program.status[i] = program.status[i + 1];
  program.status[StatusLines - 1] = text;
  if (program.appWindow != nullptr) ::InvalidateRect(program.appWindow, nullptr, TRUE);
}

void ShowCard(const wchar_t* heading, const Tsl::CUnicodeString& word,
              const Tsl::CUnicodeString& entry) {
  program.cardHeading = heading;
  program.cardWord = word;
  // Entries break lines with a bare line feed; the text control wants CR LF.
  Tsl::CUnicodeString shown;
  for (int32_t i = 0; i < entry.Length(); ++i) {
    if (entry[i] == L'\n' && (i == 0 || entry[i - 1] != L'\r')) shown += L'\r';
    shown += entry[i];
  }
  ::SetWindowTextW(program.entryView, shown.Text());
  ::InvalidateRect(program.mainWindow, nullptr, TRUE);
  ::ShowWindow(program.mainWindow, SW_SHOW);
  // The agent handed its right to the foreground on to this process.
  ::SetForegroundWindow(program.mainWindow);
}

Tsl::CUnicodeString EntryOf(const Tsl::CUnicodeString& word) {
  Tsl::CUnicodeString entry;
  if (program.shelf.Lookup(word.Text(), entry)) {
    JournalEvent("entry found");
    return entry;
  }
  JournalEvent("entry none");
  if (program.shelf.Count() == 0) return L"(no dictionary is installed beside the program)";
  return L"(not in the dictionaries)";
}

// The text that the first Ctrl+C of the chord put on the clipboard: its first
// line with text, trimmed. The program in front may still hold the clipboard for a
// moment, so opening is tried a few times.
bool ReadClipboardWord(Tsl::CUnicodeString& word) {
  bool opened = false;
  for (int attempt = 0; attempt < 20 && !opened; ++attempt) {
    opened = ::OpenClipboard(program.mainWindow) != FALSE;
    if (!opened) ::Sleep(25);
  }
  if (!opened) return false;
  HANDLE data = ::GetClipboardData(CF_UNICODETEXT);
  const wchar_t* text = data != nullptr ? static_cast<const wchar_t*>(::GlobalLock(data)) : nullptr;
  if (text != nullptr) {
    // A selection may begin with blank lines: the word is on the first line with text.
    while (*text == L' ' || *text == L'\t' || *text == L'\r' || *text == L'\n') ++text;
    int32_t length = 0;
    while (length < 200 && text[length] != 0 && text[length] != L'\r' && text[length] != L'\n')
      ++length;
    word = Tsl::CUnicodeString(text, length);
    word.Trim();
    ::GlobalUnlock(data);
  }
  ::CloseClipboard();
  return !word.IsEmpty();
}

void OnChord(WPARAM wParam) {
  Tsl::CUnicodeString word;
  if (!ReadClipboardWord(word)) {
    JournalEvent("no-word");
    SetStatus(L"A chord came, but the clipboard holds no text");
    return;
  }
  JournalEvent("word", word);
  SetStatus(Tsl::CUnicodeString(wParam == HookChordCtrlInsIns ? L"Ctrl+Ins+Ins: " : L"Ctrl+C+C: ") +
            word);
  ShowCard(L"Translation", word, EntryOf(word));
}

void OnMouseTrigger(WPARAM wParam, LPARAM lParam) {
  Tsl::CUnicodeString text;
  text.Format(L"%s at (%d, %d)", wParam == HookMouseClick ? L"Click" : L"Hover",
              HookPointX(lParam), HookPointY(lParam));
  SetStatus(text);
}

uint32_t DayNumber() {
  FILETIME now;
  ::GetSystemTimeAsFileTime(&now);
  uint64_t ticks = (static_cast<uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
  return static_cast<uint32_t>(ticks / 864000000000ull);
}

void OnWordOfTheDay() {
  static const wchar_t* const spare[] = {L"serendipity", L"lantern", L"harvest", L"meadow",
                                         L"whisper",     L"compass", L"orchard"};
  uint32_t day = DayNumber();
  Tsl::CUnicodeString word;
  if (!program.shelf.WordOfDay(day, word)) word = spare[day % 7];
  JournalEvent("word-of-the-day", word);
  ShowCard(L"Word of the day", word, EntryOf(word));
}

void PostToAgent(UINT message, WPARAM wParam, LPARAM lParam) {
  HWND agent = FindAgentWindow();
  if (agent != nullptr) ::PostMessageW(agent, message, wParam, lParam);
}

// The update runs in steps on a timer: begin (1), progress (2 with the
// percentage), end (0), each reported to the agent, which shows it in its menu
// and icon.
void AutoupdateStep() {
  int step = program.autoupdateStep++;
  WPARAM state = 2;
  LPARAM progress = 0;
  if (step == 0) {
    state = 1;
  } else if (step <= AutoupdateSteps) {
    progress = step * 100 / AutoupdateSteps;
  } else {
    state = 0;
    ::KillTimer(program.appWindow, AutoupdateTimer);
    SetStatus(L"Update finished");
  }
  Tsl::CUnicodeString detail;
  detail.Format(L"%u %d", static_cast<unsigned>(state), static_cast<int>(progress));
  JournalEvent("autoupdate", detail);
  PostToAgent(Md16_Agent_Mirdal_Autoupdate, state, progress);
}

void ShowApplication() {
  ::ShowWindow(program.appWindow, ::IsIconic(program.appWindow) ? SW_RESTORE : SW_SHOW);
}

// ---- Window procedures -----------------------------------------------------------

// Messages worth a journal line: registered ones (requests, broadcasts, hook
// messages), WM_COPYDATA (written with its bytes) and the system's requests to end.
bool IsJournalled(UINT message) {
  return message >= 0xC000 || message == WM_CLOSE || message == WM_QUERYENDSESSION ||
         message == WM_ENDSESSION;
}

LRESULT OnCopyData(const char* window, const COPYDATASTRUCT* copy) {
  if (copy == nullptr) return 0;
  JournalCopyData(window, copy);
  if (program.hangInCopyData) {
    // A program that never answers: the sender waits for as long as it waits.
    for (;;) ::Sleep(INFINITE);
  }
  Tsl::CUnicodeString text;
  text.Format(L"Received %u bytes from the agent", static_cast<unsigned>(copy->cbData));
  SetStatus(text);
  return TRUE;
}

void Paint(HWND window, bool card) {
  PAINTSTRUCT paint;
  HDC dc = ::BeginPaint(window, &paint);
  RECT client;
  ::GetClientRect(window, &client);
  ::FillRect(dc, &client, static_cast<HBRUSH>(::GetStockObject(WHITE_BRUSH)));
  ::SetBkMode(dc, TRANSPARENT);
  RECT area = {client.left + 16, client.top + 12, client.right - 16, client.bottom - 12};
  HGDIOBJ old = ::SelectObject(dc, program.bodyFont);
  if (card) {
    ::SetTextColor(dc, RGB(110, 110, 110));
    ::DrawTextW(dc, program.cardHeading.Text(), -1, &area, DT_SINGLELINE | DT_NOPREFIX);
    area.top += 22;
    ::SelectObject(dc, program.titleFont);
    ::SetTextColor(dc, RGB(20, 60, 140));
    ::DrawTextW(dc, program.cardWord.Text(), -1, &area,
                DT_SINGLELINE | DT_NOPREFIX | DT_END_ELLIPSIS);
  } else {
    ::SelectObject(dc, program.titleFont);
    ::SetTextColor(dc, RGB(20, 60, 140));
    ::DrawTextW(dc, L"Mirdal", -1, &area, DT_SINGLELINE | DT_NOPREFIX);
    area.top += 36;
    ::SelectObject(dc, program.bodyFont);
    ::SetTextColor(dc, RGB(60, 60, 60));
    const wchar_t hint[] = L"Select a word anywhere and press Ctrl+C+C or Ctrl+Ins+Ins.";
    RECT measured = area;
    ::DrawTextW(dc, hint, -1, &measured, DT_WORDBREAK | DT_NOPREFIX | DT_CALCRECT);
    ::DrawTextW(dc, hint, -1, &area, DT_WORDBREAK | DT_NOPREFIX);
    area.top = measured.bottom + 10;
    ::SetTextColor(dc, RGB(0, 0, 0));
    for (int i = 0; i < StatusLines; ++i) {
      if (program.status[i].IsEmpty()) continue;
      ::DrawTextW(dc, program.status[i].Text(), -1, &area,
                  DT_SINGLELINE | DT_NOPREFIX | DT_END_ELLIPSIS);
      area.top += 18;
    }
  }
  ::SelectObject(dc, old);
  ::EndPaint(window, &paint);
}

LRESULT CALLBACK AppWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (IsJournalled(message)) JournalMessage(STANDIN_APP_WINDOW, message, wParam, lParam);
  if (message == WM_COPYDATA)
    return OnCopyData(STANDIN_APP_WINDOW, reinterpret_cast<COPYDATASTRUCT*>(lParam));

  if (message == Md16_Mirdal_Close_Main_Window) {
    ::DestroyWindow(window);
    return 0;
  }
  if (message == Md16_Mirdal_Hide_Main_Window) {
    ::ShowWindow(program.mainWindow, SW_HIDE);
    ::ShowWindow(window, SW_HIDE);
    return 0;
  }
  if (message == Md16_Mirdal_Show_Translation_Settings) {
    ShowApplication();
    SetStatus(L"Translation settings: the demonstration has none to change");
    return 0;
  }
  if (message == Md16_Mirdal_Autoupdate) {
    program.autoupdateStep = 0;
    SetStatus(L"Updating...");
    ::SetTimer(window, AutoupdateTimer, AutoupdateStepMs, nullptr);
    AutoupdateStep();
    return 0;
  }
  if (message == Md16_Mirdal_Restart_Agent) {
    // The agent was restarted and took the icon back to "closed": tell it
    // again that the program is open.
    PostToAgent(Md16_Agent_Mirdal_Opened, 0, 0);
    SetStatus(L"The agent restarted");
    return 0;
  }
  switch (message) {
    case WM_TIMER:
      if (wParam == AutoupdateTimer) AutoupdateStep();
      return 0;
    case WM_PAINT:
      Paint(window, false);
      return 0;
    case WM_CLOSE:
      ::DestroyWindow(window);
      return 0;
    case WM_DESTROY:
      JournalEvent("exit");
      PostToAgent(Md16_Agent_Mirdal_Closed, 0, 0);
      ::PostQuitMessage(0);
      return 0;
  }
  return ::DefWindowProcW(window, message, wParam, lParam);
}

LRESULT CALLBACK MainWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (IsJournalled(message)) JournalMessage(STANDIN_MAIN_WINDOW, message, wParam, lParam);
  if (message == WM_COPYDATA)
    return OnCopyData(STANDIN_MAIN_WINDOW, reinterpret_cast<COPYDATASTRUCT*>(lParam));

  if (message == Md16_Hook_On_Ctrl_Ins_Ins) {
    OnChord(wParam);
    return 0;
  }
  if (message == Md16_Hook_On_Mouse_Translate) {
    OnMouseTrigger(wParam, lParam);
    return 0;
  }
  if (message == Md16_Mirdal_Show_Word_Of_The_Day) {
    OnWordOfTheDay();
    return 0;
  }
  if (message == Md16_Agent_Options) {
    SetStatus(L"The agent's trigger options changed");
    return 0;
  }
  switch (message) {
    case WM_PAINT:
      Paint(window, true);
      return 0;
    case WM_SIZE:
      ::MoveWindow(program.entryView, CardEntryLeft, CardEntryTop,
                   LOWORD(lParam) - CardEntryLeft - 4, HIWORD(lParam) - CardEntryTop - 8, TRUE);
      return 0;
    case WM_CTLCOLORSTATIC:
      // The read-only text sits on the card's white, not on a grey dialog face.
      ::SetBkColor(reinterpret_cast<HDC>(wParam), RGB(255, 255, 255));
      return reinterpret_cast<LRESULT>(::GetStockObject(WHITE_BRUSH));
    case WM_CLOSE:
      // The card only goes out of sight; the program stays.
      ::ShowWindow(window, SW_HIDE);
      return 0;
  }
  return ::DefWindowProcW(window, message, wParam, lParam);
}

// ---- Start -----------------------------------------------------------------------

bool CreateWindows(bool background) {
  WNDCLASSEXW windowClass = {};
  windowClass.cbSize = sizeof windowClass;
  windowClass.hInstance = program.instance;
  windowClass.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
  windowClass.hIcon = ::LoadIconW(nullptr, IDI_APPLICATION);
  windowClass.lpfnWndProc = AppWindowProc;
  windowClass.lpszClassName = MirdalAppWindowClass;
  if (!::RegisterClassExW(&windowClass)) return false;
  windowClass.lpfnWndProc = MainWindowProc;
  windowClass.lpszClassName = MirdalMainWindowClass;
  if (!::RegisterClassExW(&windowClass)) return false;

  program.titleFont = ::CreateFontW(-24, 0, 0, 0, FW_BOLD, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                                    OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY,
                                    DEFAULT_PITCH, L"Tahoma");
  program.bodyFont = ::CreateFontW(-14, 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                                   OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY,
                                   DEFAULT_PITCH, L"Tahoma");

  program.appWindow = ::CreateWindowExW(0, MirdalAppWindowClass, L"Tavix Mirdal (demonstration)",
                                        WS_OVERLAPPEDWINDOW, 40, 40, 460, 260, nullptr, nullptr,
                                        program.instance, nullptr);
  // The card is owned by the application window: it stays above it and goes
  // with it.
  program.mainWindow = ::CreateWindowExW(
      WS_EX_TOOLWINDOW, MirdalMainWindowClass, L"Mirdal: translation",
      WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_THICKFRAME, 520, 40, 440, 340,
      program.appWindow, nullptr, program.instance, nullptr);
  if (program.appWindow == nullptr || program.mainWindow == nullptr) return false;
  program.entryView = ::CreateWindowExW(
      0, L"EDIT", L"", WS_CHILD | WS_VISIBLE | WS_VSCROLL | ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL,
      CardEntryLeft, CardEntryTop, 400, 220, program.mainWindow, nullptr, program.instance, nullptr);
  ::SendMessageW(program.entryView, WM_SETFONT, reinterpret_cast<WPARAM>(program.bodyFont), FALSE);
  RECT card;
  ::GetClientRect(program.mainWindow, &card);
  ::SendMessageW(program.mainWindow, WM_SIZE, 0, MAKELPARAM(card.right, card.bottom));
  SetStatus(background ? L"Started in the background" : L"Started");
  return true;
}

void LoadDictionaries() {
  Tsl::CUnicodeString folder;
  if (!program.switches->Has(L"Dictionary", &folder)) {
    wchar_t path[MAX_PATH];
    DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    while (length > 0 && path[length - 1] != L'\\') --length;
    folder = Tsl::CUnicodeString(path, static_cast<int32_t>(length)) + L"dict";
  }
  int32_t count = program.shelf.OpenFolder(folder.Text());
  Tsl::CUnicodeString text;
  text.Format(L"%d dictionaries", static_cast<int>(count));
  JournalEvent("dictionaries", text);
}

int Run(HINSTANCE instance) {
  program.instance = instance;
  CStandInSwitches switches(::GetCommandLineW(), STANDIN_SWITCHES_VARIABLE);
  program.switches = &switches;
  if (!switches.Has(L"Journal", &program.journalPath)) {
    wchar_t path[MAX_PATH];
    DWORD length = ::GetEnvironmentVariableW(STANDIN_JOURNAL_VARIABLE, path, MAX_PATH);
    if (length > 0 && length < MAX_PATH) program.journalPath = path;
  }
  program.hangInCopyData = switches.Has(L"HangInCopyData");
  JournalEvent("start", switches.Text());

  // One program per session: a second start shows the first one and ends.
  if (HWND first = FindMirdalWindow(false)) {
    JournalEvent("second-instance");
    ::SetForegroundWindow(first);
    return 0;
  }

  // Held before the main window can be found. If the agent created the mutex
  // first, the wait takes it over (an abandoned one counts as taken).
  HANDLE ready = ::CreateMutexW(nullptr, TRUE, ReadyMutexName);
  if (ready != nullptr && ::GetLastError() == ERROR_ALREADY_EXISTS)
    ::WaitForSingleObject(ready, 60000);

  bool background = switches.Has(L"STARTUP") || switches.Has(L"OO");
  if (!CreateWindows(background)) return 1;
  if (switches.Has(L"AppDisabled")) ::EnableWindow(program.appWindow, FALSE);

  LoadDictionaries();
  int32_t delay = switches.Number(L"InitDelay", 0);
  if (delay > 0) ::Sleep(static_cast<DWORD>(delay));
  if (switches.Has(L"CrashInInit")) {
    JournalEvent("crash");
    // Ends at once with the ready mutex still owned: the system marks it
    // abandoned, which is what a waiting agent must cope with.
    ::TerminateProcess(::GetCurrentProcess(), StandInCrashExitCode);
  }

  if (ready != nullptr) {
    ::ReleaseMutex(ready);
    ::CloseHandle(ready);
  }
  JournalEvent("ready");
  if (!background) ShowApplication();
  PostToAgent(Md16_Agent_Mirdal_Opened, 0, 0);

  MSG message;
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
  }
  ::DeleteObject(program.titleFont);
  ::DeleteObject(program.bodyFont);
  return 0;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, LPWSTR, int) { return Run(instance); }
