// One open key of the system registry: opened for reading or for writing, in
// the chosen registry view, read with defaults so that callers never have an
// error to handle, written with an exception that names the key. The typed
// settings and the library's start-up read the registry through it.
#pragma once

#include <stdint.h>
#include <windows.h>

#include "unicodestring.h"

namespace Tsl {

// How a key object stands. A new object is closed.
enum ERegistryMode : int32_t {
  RM_Read = 0,
  RM_Write = 1,
  RM_Closed = 2,
};

// Which registry a 32-bit process on a 64-bit system sees. Native processes
// ignore it: they always see their own registry.
enum ERegistryView : int32_t {
  RV_Default = 0,  // the same as RV_32: the product's keys live in the 32-bit registry
  RV_32 = 1,
  RV_64 = 2,
};

// Owns at most one key handle. An object belongs to one thread.
//
// A read-mode object whose key could not be opened is still valid: it stays
// in read mode with a null handle and answers every read with the default.
// That is what lets the settings layer do without an error path.
class CRegistryKey {
 public:
  CRegistryKey();
  ~CRegistryKey();
  CRegistryKey(const CRegistryKey&) = delete;
  CRegistryKey& operator=(const CRegistryKey&) = delete;

  // Opens `subKey` below `root` (a handle or one of the HKEY_* constants).
  // Write mode creates missing keys on the way; an empty sub-key opens the
  // root itself. The system's result stays in the thread's last error.
  // Returns true when the key is open. A failed open keeps mode and full
  // name until Close. The object must be closed, and `mode` RM_Read or
  // RM_Write; anything else is an internal error.
  bool Open(HKEY root, const wchar_t* subKey, int32_t mode, int32_t view = RV_Default);
  // Closes the handle, if any; the system's result stays in the last error.
  void Close();

  // Registry type of the value (REG_SZ, ...), or 0 when it is missing or the
  // key is not open.
  uint32_t GetValueType(const wchar_t* valueName) const;
  // Size of the value's data in bytes, or 0 likewise.
  int32_t GetValueSize(const wchar_t* valueName) const;
  // Reads the value's data into `buffer`; the bytes read, or 0 on any failure.
  int32_t ReadValue(const wchar_t* valueName, void* buffer, int32_t bufferSize) const;
  // The text of a REG_SZ or REG_EXPAND_SZ value (the latter unexpanded), with
  // one trailing zero unit removed if there is one. Gives `defaultText` when
  // the key is not open, the value is missing or of another type, its size
  // is 0 or odd, or it changed while being read. Never raises.
  CUnicodeString ReadString(const wchar_t* valueName, const CUnicodeString& defaultText) const;
  // Stores `size` bytes of `text` as a REG_SZ value. Callers pass the
  // length in bytes plus 2 so that the terminator is stored. Raises the
  // check error "ERR_CANT_WRITE_TO_REGISTRY" with the key's full name when
  // the key is not open, and with full name, "\" and value name when the
  // system refuses the value. The object must be in write mode.
  void WriteValue(const wchar_t* valueName, const wchar_t* text, int32_t size);

  bool IsOpen() const { return handle != nullptr; }
  HKEY GetHandle() const { return handle; }
  int32_t GetMode() const { return mode; }
  int32_t GetView() const { return view; }
  // Root's name and sub-key, for messages; empty while closed.
  const CUnicodeString& GetFullName() const { return fullName; }

  // "HKEY_CURRENT_USER" and its like, or the empty string for a root that is
  // not one of the predefined keys.
  static CUnicodeString GetRootName(HKEY root);
  // The access flag that selects `view`: none in a native process; in a
  // 32-bit process on a 64-bit system KEY_WOW64_32KEY for views 0 and 1 and
  // KEY_WOW64_64KEY for view 2. Any other view is an internal error and
  // selects the 32-bit registry.
  static REGSAM GetViewAccessFlag(int32_t view);
  // Whether this process is a 32-bit process on a 64-bit system. Asked once
  // and kept for the process's life.
  static bool IsRunningUnderWow64();
  // Test seam: 0 or 1 replaces the system's answer for the rest of the
  // process (or until the next call); -1 goes back to the system's answer.
  static void OverrideWow64Answer(int32_t answer);

 private:
  HKEY handle;              // null when not open
  int32_t mode;             // ERegistryMode
  int32_t view;             // ERegistryView it was opened with
  CUnicodeString fullName;  // root's name and sub-key
};

}  // namespace Tsl
