// The words (wParam and lParam) of the hook library's reports, as the hook
// writes them and the main program reads them; the agent passes them on
// unread. Header-only and free of the foundation, so that the hook library,
// which lives in every process of the session, can include it.
#pragma once

#include <stdint.h>
#include <windows.h>

// ---- Md16_Hook_On_Ctrl_Ins_Ins ----------------------------------------------------
//
// wParam: which chord was typed. lParam: the window in front when the second
// key went down, as the low 32 bits of its handle (window handles are valid
// across processes and both bitnesses, and their high half is always empty).

// Ctrl held, C pressed twice within the double-click time.
constexpr WPARAM HookChordCtrlCC = 1;
// Ctrl held, Insert pressed twice within the double-click time.
constexpr WPARAM HookChordCtrlInsIns = 2;

// The lParam of a chord for the window in front.
inline LPARAM MakeHookChordWindow(HWND window) {
  return static_cast<LPARAM>(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(window)));
}
// The window in front that a chord's lParam names (may be null or gone).
inline HWND HookChordWindow(LPARAM lParam) {
  return reinterpret_cast<HWND>(static_cast<uintptr_t>(static_cast<uint32_t>(lParam)));
}

// ---- Md16_Hook_On_Mouse_Translate -------------------------------------------------
//
// wParam: what set it off. The agent sets its hover event on any value but 0,
// so a hover must never carry 0. lParam: the screen point under the mouse, x
// in the low and y in the high 16 bits, each signed (monitors left of or above
// the primary one have negative coordinates).

// A click with the allowed mouse button and keys: translate now.
constexpr WPARAM HookMouseClick = 0;
// The mouse rested with the allowed keys: a hover translation is permitted.
constexpr WPARAM HookMouseHoverPermitted = 1;

// The lParam of a mouse report for the screen point (x, y).
inline LPARAM MakeHookPoint(int x, int y) {
  return static_cast<LPARAM>(static_cast<uint32_t>(static_cast<uint16_t>(x)) |
                             (static_cast<uint32_t>(static_cast<uint16_t>(y)) << 16));
}
// The x coordinate of a mouse report's point.
inline int HookPointX(LPARAM lParam) {
  return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(lParam) & 0xFFFF));
}
// The y coordinate of a mouse report's point.
inline int HookPointY(LPARAM lParam) {
  return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(lParam) >> 16));
}

// Md16_Hook_On_Window_Activated belongs to the shared vocabulary, but this
// hook library never posts it.
