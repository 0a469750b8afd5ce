// The demonstration vocabulary trainer, Drillix.exe: a window of the trainer's
// class that asks the agent to show balloons, among them the word of the day,
// as the trainer does. A second start with /Send:<kind> hands the request to
// the running one; buttons do the same for a user.
#include <windows.h>

#include "MdMessages.h"
#include "StandInSupport.h"
#include "TrayBalloonData.h"
#include "archive.h"
#include "errors.h"
#include "memoryfile.h"
#include "services.h"

namespace {

// The demonstration's own request to the running trainer; wParam is the
// balloon. Not part of the product's vocabulary.
const UINT SendBalloonRequest = ::RegisterWindowMessageW(L"DrillixStandIn_Send_Balloon");
enum BalloonKind { WordOfTheDayBalloon = 1, ReminderBalloon = 2 };

const int WordButton = 101;
const int ReminderButton = 102;
const DWORD NIIF_INFO_FLAG = 1;  // the balloon's information icon
const UINT AgentTimeoutMs = 5000;

HWND mainWindow = nullptr;
Tsl::CUnicodeString lastResult;

// The balloon as the agent reads it: an archive of one CTrayBalloonData in a
// WM_COPYDATA block tagged MDDB. False when there is no agent or it didn't
// take the block in time.
bool SendBalloon(HWND from, const CTrayBalloonData& balloon) {
  HWND agent = FindAgentWindow();
  if (agent == nullptr) return false;
  Tsl::CMemoryFile file;
  {
    Tsl::CArchive archive(&file, Tsl::CArchive::Store);
    Tsl::CPtr<CTrayBalloonData> object(new CTrayBalloonData(balloon.caption, balloon.text,
                                                            balloon.extra, balloon.infoFlags));
    archive << object;
    archive.Close();
  }
  COPYDATASTRUCT copy;
  copy.dwData = CopyDataTagBalloon;
  copy.cbData = static_cast<DWORD>(file.GetLength());
  copy.lpData = const_cast<uint8_t*>(file.GetBufferData());
  DWORD_PTR answer = 0;
  // A hung agent must not hang the trainer.
  return ::SendMessageTimeoutW(agent, WM_COPYDATA, reinterpret_cast<WPARAM>(from),
                               reinterpret_cast<LPARAM>(&copy), SMTO_ABORTIFHUNG, AgentTimeoutMs,
                               &answer) != 0;
}

// The word of the day: its text is the catalogue's, so that the agent knows
// a click on it and opens the main program at that word.
void SendKind(WPARAM kind) {
  bool sent = false;
  if (kind == WordOfTheDayBalloon) {
    CTrayBalloonData balloon(CatalogueText(L"MSG_MDA_WORD_OF_THE_DAY_TITLE"),
                             CatalogueText(L"MSG_MDA_WORD_OF_THE_DAY"), L"", NIIF_INFO_FLAG);
    sent = SendBalloon(mainWindow, balloon);
    lastResult = sent ? L"Word of the day sent to the agent" : L"No agent took the balloon";
  } else if (kind == ReminderBalloon) {
    CTrayBalloonData balloon(L"Drillix", L"Time for a short exercise: 12 words are waiting.",
                             L"", NIIF_INFO_FLAG);
    sent = SendBalloon(mainWindow, balloon);
    lastResult = sent ? L"Reminder sent to the agent" : L"No agent took the balloon";
  }
  ::InvalidateRect(mainWindow, nullptr, TRUE);
}

WPARAM KindOf(const Tsl::CUnicodeString& name) {
  if (name.CompareNoCase(L"word") == 0) return WordOfTheDayBalloon;
  if (name.CompareNoCase(L"reminder") == 0) return ReminderBalloon;
  return 0;
}

LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == SendBalloonRequest) {
    SendKind(wParam);
    return 0;
  }
  switch (message) {
    case WM_COMMAND:
      if (LOWORD(wParam) == WordButton) SendKind(WordOfTheDayBalloon);
      if (LOWORD(wParam) == ReminderButton) SendKind(ReminderBalloon);
      return 0;
    case WM_PAINT: {
      PAINTSTRUCT paint;
      HDC dc = ::BeginPaint(window, &paint);
      RECT area;
      ::GetClientRect(window, &area);
      area.left += 16;
      area.top += 12;
      ::SetBkMode(dc, TRANSPARENT);
      HGDIOBJ old = ::SelectObject(dc, ::GetStockObject(DEFAULT_GUI_FONT));
      ::DrawTextW(dc, L"Drillix: vocabulary trainer (demonstration)", -1, &area,
                  DT_SINGLELINE | DT_NOPREFIX);
      area.top += 80;
      ::DrawTextW(dc, lastResult.Text(), -1, &area, DT_SINGLELINE | DT_NOPREFIX);
      ::SelectObject(dc, old);
      ::EndPaint(window, &paint);
      return 0;
    }
    case WM_DESTROY:
      ::PostQuitMessage(0);
      return 0;
  }
  return ::DefWindowProcW(window, message, wParam, lParam);
}

int Run(HINSTANCE instance) {
  CStandInSwitches switches(::GetCommandLineW(), nullptr);
  Tsl::CUnicodeString send;
  WPARAM kind = switches.Has(L"Send", &send) ? KindOf(send) : 0;

  // One trainer per session: a second start hands its request on and ends.
  if (HWND running = ::FindWindowW(DrillixMainWindowClass, nullptr)) {
    if (kind != 0) ::PostMessageW(running, SendBalloonRequest, kind, 0);
    return 0;
  }

  WNDCLASSEXW windowClass = {};
  windowClass.cbSize = sizeof windowClass;
  windowClass.hInstance = instance;
  windowClass.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
  windowClass.hIcon = ::LoadIconW(nullptr, IDI_APPLICATION);
  windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
  windowClass.lpfnWndProc = WindowProc;
  windowClass.lpszClassName = DrillixMainWindowClass;
  if (!::RegisterClassExW(&windowClass)) return 1;
  mainWindow = ::CreateWindowExW(0, DrillixMainWindowClass, L"Tavix Drillix (demonstration)",
                                 WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX, 40,
                                 340, 420, 170, nullptr, nullptr, instance, nullptr);
  if (mainWindow == nullptr) return 1;
  HFONT font = static_cast<HFONT>(::GetStockObject(DEFAULT_GUI_FONT));
  HWND word = ::CreateWindowExW(0, L"BUTTON", L"Word of the day", WS_CHILD | WS_VISIBLE, 16, 44,
                                170, 28, mainWindow, reinterpret_cast<HMENU>(WordButton),
                                instance, nullptr);
  HWND reminder = ::CreateWindowExW(0, L"BUTTON", L"Exercise reminder", WS_CHILD | WS_VISIBLE,
                                    200, 44, 170, 28, mainWindow,
                                    reinterpret_cast<HMENU>(ReminderButton), instance, nullptr);
  ::SendMessageW(word, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
  ::SendMessageW(reminder, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
  // Started with the session, the trainer waits out of sight.
  if (!switches.Has(L"STARTUP")) ::ShowWindow(mainWindow, SW_SHOW);
  if (kind != 0) ::PostMessageW(mainWindow, SendBalloonRequest, kind, 0);

  MSG message;
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
  }
  return 0;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, LPWSTR, int) {
  try {
    // The word of the day is known to the agent by its text in the user's
    // language, so the trainer speaks it from the same libraries.
    StartProductTexts();
    int code = Run(instance);
    EndProductTexts();
    return code;
  } catch (Tsl::CException* exception) {
    Tsl::ReportException(exception);
    delete exception;
    return 1;
  }
}
