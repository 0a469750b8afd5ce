// The foundation's scoped lock: holds a critical section for the life of a
// scope and leaves it also when an exception passes. Every lock of the
// library that is taken and left in one scope is taken through this.
#pragma once

#include <windows.h>

namespace Tsl {

class CScopedLock {
 public:
  explicit CScopedLock(CRITICAL_SECTION& section) : section(section) { ::EnterCriticalSection(&section); }
  ~CScopedLock() { ::LeaveCriticalSection(&section); }
  CScopedLock(const CScopedLock&) = delete;
  CScopedLock& operator=(const CScopedLock&) = delete;

 private:
  CRITICAL_SECTION& section;
};

}  // namespace Tsl
