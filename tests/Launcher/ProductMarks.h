// The product's marks, atoms and events carry fixed names that every process
// of the session shares, test processes included. Tests that use them hold a
// test-only lock across processes, so that no two of them run at once.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

// Held for its lifetime: the test-only mutex `name`. A holder that crashed
// leaves it abandoned, which still hands it on; releasing a mutex that was
// never taken fails harmlessly.
struct CProductLock {
  explicit CProductLock(const wchar_t* name) : handle(CreateMutexW(nullptr, FALSE, name)) {
    EXPECT_LE(WaitForSingleObject(handle, 5 * 60 * 1000), WAIT_ABANDONED) << "names stayed busy";
  }
  ~CProductLock() { ReleaseMutex(handle), CloseHandle(handle); }
  HANDLE handle;
};
