// CMutex: a named kernel mutex held as a mark. The product's programs test
// each other's presence by whether such a mutex exists, so this class makes,
// opens and closes one but never waits on it or releases it.
#pragma once

#include <windows.h>

#include "unicodestring.h"

namespace Tsl {

class CMutex {
 public:
  CMutex();
  // Closes; a failure to close is reported, never let out.
  ~CMutex();
  CMutex(const CMutex&) = delete;
  CMutex& operator=(const CMutex&) = delete;

  // Makes the mutex `name` (null: an unnamed one). Returns true if this call
  // made it. False, with no exception, when it existed already (the object
  // is closed again and GetLastError() is 183) or when access to the name
  // was refused (GetLastError() is 5). Any other failure raises: error 8 the
  // memory error, others a CLastErrorException. The object must be closed.
  bool Create(const wchar_t* name, bool initialOwner, SECURITY_ATTRIBUTES* security);

  // Opens the existing mutex `name` with `desiredAccess`. Returns true if it
  // was opened, false if there is no such mutex (error 2). Any other failure,
  // refused access too, raises as Create does. The object must be closed and
  // the name given.
  bool Open(const wchar_t* name, DWORD desiredAccess, bool inheritHandle);

  // Makes the mutex `name` unowned, or opens it when it exists, asking only
  // for the rights to wait on it and release it. Returns true if this call
  // made it, false if it existed; the object is open either way. Every
  // failure raises as Create does. The object must be closed and the name
  // given.
  bool CreateOrOpen(const wchar_t* name, SECURITY_ATTRIBUTES* security);

  // Closes the handle, if any; GetLastError() afterwards is the one of the
  // close. A failed close raises as Create does. The object may be opened
  // again afterwards.
  void Close();

  bool IsOpen() const { return handle != nullptr; }
  HANDLE GetHandle() const { return handle; }
  // The name it was opened under; empty while closed or unnamed.
  const CUnicodeString& GetName() const { return name; }

 private:
  void Keep(const wchar_t* openedName);

  HANDLE handle;        // null while closed
  CUnicodeString name;  // empty while closed or unnamed
};

}  // namespace Tsl
