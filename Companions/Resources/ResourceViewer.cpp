// A look at the resource libraries as a user meets them: the four tray icons
// at 16 and 32 pixels, each language's name and a text of it, and the tray
// menu of one language opened beside them. A tool for people, not shipped.
// Usage: ResourceViewer.exe [language number for the menu] [seconds to stay]
//        ResourceViewer.exe box <language number>  (a message box in that language)
#include <stdint.h>
#include <stdlib.h>
#include <wchar.h>
#include <windows.h>

#include <initializer_list>

namespace {

const int iconIds[] = {101, 102, 103, 107};
const wchar_t* const iconNames[] = {L"101 closed", L"102 open", L"103 online", L"107 updating"};
const wchar_t* const languageFiles[] = {L"Mirdal0.dll", L"Mirdal1.dll", L"Mirdal2.dll"};

HMODULE staticModule = nullptr;
HMODULE languageModules[3] = {};
int menuLanguage = 1;

// The program folder: the viewer lies in the demonstration folder beside it.
void ProgramPath(const wchar_t* name, wchar_t* path) {
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  wchar_t* slash = wcsrchr(path, L'\\');
  *slash = 0;
  slash = wcsrchr(path, L'\\');
  wcscpy(slash + 1, L"program\\");
  wcscat(path, name);
}

HMODULE LoadProgramLibrary(const wchar_t* name) {
  wchar_t path[MAX_PATH];
  ProgramPath(name, path);
  return LoadLibraryW(path);
}

// A text of a language module, found as the foundation finds it.
void Text(HMODULE module, const wchar_t* name, wchar_t* out, int size) {
  out[0] = 0;
  using GetResourceIdFunction = uint32_t(__cdecl*)(const wchar_t*);
  auto getId = reinterpret_cast<GetResourceIdFunction>(
      reinterpret_cast<void (*)()>(GetProcAddress(module, "GetResourceID")));
  if (getId != nullptr && getId(name) != 0) LoadStringW(module, UINT(getId(name)), out, size);
  if (out[0] == 0) lstrcpynW(out, name, size);
}

void Paint(HWND window) {
  PAINTSTRUCT paint;
  HDC dc = BeginPaint(window, &paint);
  SetBkMode(dc, TRANSPARENT);
  HFONT font =
      CreateFontW(-14, 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, 0, 0, L"Tahoma");
  HGDIOBJ old = SelectObject(dc, font);
  for (int i = 0; i < 4; ++i) {
    int x = 20 + i * 120;
    for (int size : {16, 32}) {
      HICON icon =
          HICON(LoadImageW(staticModule, MAKEINTRESOURCEW(iconIds[i]), IMAGE_ICON, size, size, 0));
      DrawIconEx(dc, x + (size == 16 ? 0 : 30), 20, icon, size, size, 0, nullptr, DI_NORMAL);
      DestroyIcon(icon);
    }
    TextOutW(dc, x, 60, iconNames[i], int(wcslen(iconNames[i])));
  }
  for (int language = 0; language < 3; ++language) {
    wchar_t name[64], text[512];
    Text(languageModules[language], L"CURRENT_LANGUAGE_NAME", name, 64);
    Text(languageModules[language], L"MSG_MDA_START_MIRDAL_BALOON", text, 512);
    int y = 100 + language * 50;
    TextOutW(dc, 20, y, name, int(wcslen(name)));
    RECT area = {120, y, 620, y + 48};
    DrawTextW(dc, text, -1, &area, DT_WORDBREAK);
  }
  SelectObject(dc, old);
  DeleteObject(font);
  EndPaint(window, &paint);
}

// Opens the chosen language's tray menu to the right of the window.
void ShowMenu(HWND window) {
  HMENU menu = LoadMenuW(languageModules[menuLanguage], L"MDA_AGENT");
  if (menu == nullptr) return;
  RECT rect;
  GetWindowRect(window, &rect);
  SetForegroundWindow(window);
  TrackPopupMenu(GetSubMenu(menu, 0), TPM_LEFTALIGN | TPM_TOPALIGN, rect.right + 10, rect.top, 0,
                 window, nullptr);
  DestroyMenu(menu);
}

LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_PAINT:
      Paint(window);
      return 0;
    case WM_TIMER:
      if (wParam == 1) {
        KillTimer(window, 1);
        ShowMenu(window);
      } else {
        SendMessageW(window, WM_CANCELMODE, 0, 0);
        DestroyWindow(window);
      }
      return 0;
    case WM_DESTROY:
      PostQuitMessage(0);
      return 0;
  }
  return DefWindowProcW(window, message, wParam, lParam);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int show) {
  int seconds = 0;
  bool box = __argc > 2 && wcscmp(__wargv[1], L"box") == 0;
  if (__argc > 1 && !box) menuLanguage = _wtoi(__wargv[1]) % 3;
  if (__argc > 2) seconds = _wtoi(__wargv[2]);
  staticModule = LoadProgramLibrary(L"MirdalRes.dll");
  for (int i = 0; i < 3; ++i) languageModules[i] = LoadProgramLibrary(languageFiles[i]);
  if (staticModule == nullptr || languageModules[0] == nullptr) {
    MessageBoxW(nullptr, L"The resource libraries are not in the program folder.",
                L"Resource viewer", MB_OK);
    return 1;
  }
  if (box) {
    // The box that the agent shows when the main program will not close.
    wchar_t text[512];
    Text(languageModules[_wtoi(__wargv[2]) % 3], L"MSG_MDA_FAILED_TO_CLOSE", text, 512);
    MessageBoxW(nullptr, text, L"Tavix Mirdal", MB_OK | MB_ICONEXCLAMATION);
    return 0;
  }
  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = WindowProc;
  windowClass.hInstance = instance;
  windowClass.hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512));
  windowClass.hbrBackground = HBRUSH(COLOR_WINDOW + 1);
  windowClass.lpszClassName = L"MirdalResourceViewer";
  RegisterClassW(&windowClass);
  HWND window =
      CreateWindowExW(0, windowClass.lpszClassName, L"Resource viewer", WS_OVERLAPPEDWINDOW, 20, 20,
                      660, 290, nullptr, nullptr, instance, nullptr);
  ShowWindow(window, show);
  SetTimer(window, 1, 700, nullptr);
  if (seconds > 0) SetTimer(window, 2, UINT(seconds) * 1000, nullptr);
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  return 0;
}
