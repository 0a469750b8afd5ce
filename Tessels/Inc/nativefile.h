// A file on disk behind the CBaseFile interface: one operating-system handle,
// positions of 64 bits through the two-halves calls, no buffering. Made only by
// the native file system, which opens it right after construction.
#pragma once

#include <stdint.h>
#include <windows.h>

#include "alloc.h"
#include "basefile.h"
#include "unicodestring.h"

namespace Tsl {

// Lives on the runtime heap whatever memory manager the calling thread has
// switched to, so that it can be deleted from any thread and any heap state.
class CNativeFile : public CBaseFile, public CAllocatedOn<RuntimeHeap> {
 public:
  CNativeFile();
  // Closes an open handle; a failure is reported, never thrown.
  ~CNativeFile() override;
  CNativeFile(const CNativeFile&) = delete;
  CNativeFile& operator=(const CNativeFile&) = delete;

  // Opens the file with CreateFileW and these arguments unchanged; `path` is
  // made full first. Asserts a closed object. On failure throws with the full
  // path; the name stays set and the handle invalid.
  void Open(const CUnicodeString& path, uint32_t access, uint32_t share,
            LPSECURITY_ATTRIBUTES security, uint32_t disposition, uint32_t attributes,
            HANDLE templateFile);

  // Empty while closed, the full path while open.
  CUnicodeString GetFileName() const override;
  // One ReadFile: may be short, 0 at the end of the file.
  int32_t Read(void* buffer, int32_t count) override;
  void Write(const void* buffer, int32_t count) override;
  int64_t GetPosition() const override;
  int64_t Seek(int64_t offset, int32_t origin) override;
  // Leaves the position at the new end.
  void SetLength(int64_t length) override;
  int64_t GetLength() const override;
  void Abort() override;
  void Flush() override;
  void Close() override;

  bool IsOpen() const { return handle != INVALID_HANDLE_VALUE; }
  // The handle, for code that maps or locks the file; INVALID_HANDLE_VALUE while closed.
  HANDLE GetHandle() const { return handle; }

 private:
  [[noreturn]] void ThrowLastError() const;
  void EmptyName();

  HANDLE handle;        // INVALID_HANDLE_VALUE while closed
  CUnicodeString name;  // empty while closed
};

}  // namespace Tsl
