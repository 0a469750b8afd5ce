// The native file: CBaseFile over one operating-system handle. Each operation
// is one platform call without buffering (archives buffer); 64-bit positions
// travel through the calls' two 32-bit halves. Failures name the full path.
#include "nativefile.h"

#include "errors.h"
#include "filesystem.h"
#include "services.h"

namespace Tsl {

static const wchar_t* const Unit = L"nativefile";

// SetFilePointer and GetFileSize return 0xFFFFFFFF both for failure and as the
// low half of a legal value; only a nonzero last error tells failure. The last
// error is cleared before each such call so that a stale code from earlier
// work can't turn a legal result into a failure.
static bool IsFailedLowWord(DWORD low) { return low == 0xFFFFFFFF && ::GetLastError() != NO_ERROR; }

static int64_t JoinHalves(DWORD low, LONG high) {
  return int64_t((uint64_t(uint32_t(high)) << 32) | low);
}

CNativeFile::CNativeFile() : handle(INVALID_HANDLE_VALUE) {}

CNativeFile::~CNativeFile() {
  if (handle == INVALID_HANDLE_VALUE) return;
  try {
    Close();
  } catch (CException* exception) {
    ReportException(exception);
    delete exception;
  }
}

// Raises the platform's last error with this file's name.
void CNativeFile::ThrowLastError() const { GenerateFileError(::GetLastError(), name); }

// Exclusive buffer: kept with length 0; shared: the reference is dropped.
void CNativeFile::EmptyName() { name.Empty(); }

void CNativeFile::Open(const CUnicodeString& path, uint32_t access, uint32_t share,
                       LPSECURITY_ATTRIBUTES security, uint32_t disposition, uint32_t attributes,
                       HANDLE templateFile) {
  TSL_ASSERT(handle == INVALID_HANDLE_VALUE, Unit, 57);
  if (handle != INVALID_HANDLE_VALUE) return;
  // The name is set before anything can fail, so that every error of the
  // open names the file.
  name = path;
  NormalizePath(name);
  HANDLE opened =
      ::CreateFileW(name.Text(), access, share, security, disposition, attributes, templateFile);
  if (opened == INVALID_HANDLE_VALUE) ThrowLastError();
  handle = opened;
}

CUnicodeString CNativeFile::GetFileName() const { return name; }

int32_t CNativeFile::Read(void* buffer, int32_t count) {
  if (count == 0) return 0;
  TSL_ASSERT(buffer != nullptr && count >= 1, Unit, 81);
  TSL_ASSERT(handle != INVALID_HANDLE_VALUE, Unit, 82);
  if (buffer == nullptr || count < 1 || handle == INVALID_HANDLE_VALUE) return 0;
  DWORD read = 0;
  if (!::ReadFile(handle, buffer, DWORD(count), &read, nullptr)) ThrowLastError();
  return int32_t(read);
}

void CNativeFile::Write(const void* buffer, int32_t count) {
  if (count == 0) return;
  TSL_ASSERT(buffer != nullptr && count >= 1, Unit, 94);
  TSL_ASSERT(handle != INVALID_HANDLE_VALUE, Unit, 95);
  if (buffer == nullptr || count < 1 || handle == INVALID_HANDLE_VALUE) return;
  // Only the call's result counts: a blocking write to a disk file either
  // writes everything or fails.
  DWORD written = 0;
  if (!::WriteFile(handle, buffer, DWORD(count), &written, nullptr)) ThrowLastError();
}

int64_t CNativeFile::GetPosition() const {
  TSL_ASSERT(handle != INVALID_HANDLE_VALUE, Unit, 106);
  if (handle == INVALID_HANDLE_VALUE) return 0;
  LONG high = 0;
  ::SetLastError(NO_ERROR);
  DWORD low = ::SetFilePointer(handle, 0, &high, FILE_CURRENT);
  if (IsFailedLowWord(low)) ThrowLastError();
  return JoinHalves(low, high);
}

// The origins SeekBegin, SeekCurrent and SeekEnd are FILE_BEGIN, FILE_CURRENT
// and FILE_END: they go to the platform unchanged. A target before the
// beginning is the platform's error 131, a bad seek.
int64_t CNativeFile::Seek(int64_t offset, int32_t origin) {
  TSL_ASSERT(handle != INVALID_HANDLE_VALUE, Unit, 120);
  if (handle == INVALID_HANDLE_VALUE) return 0;
  LONG high = LONG(uint64_t(offset) >> 32);
  ::SetLastError(NO_ERROR);
  DWORD low = ::SetFilePointer(handle, LONG(uint32_t(offset)), &high, DWORD(origin));
  if (IsFailedLowWord(low)) ThrowLastError();
  return JoinHalves(low, high);
}

void CNativeFile::SetLength(int64_t length) {
  TSL_ASSERT(handle != INVALID_HANDLE_VALUE, Unit, 130);
  TSL_ASSERT(length >= 0, Unit, 131);
  if (handle == INVALID_HANDLE_VALUE || length < 0) return;
  // Through the virtual Seek; the position stays at the new end.
  Seek(length, SeekBegin);
  if (!::SetEndOfFile(handle)) ThrowLastError();
}

int64_t CNativeFile::GetLength() const {
  TSL_ASSERT(handle != INVALID_HANDLE_VALUE, Unit, 140);
  if (handle == INVALID_HANDLE_VALUE) return 0;
  DWORD high = 0;
  ::SetLastError(NO_ERROR);
  DWORD low = ::GetFileSize(handle, &high);
  // A file of exactly 0xFFFFFFFF bytes is legal: the last error is 0 then.
  if (IsFailedLowWord(low)) ThrowLastError();
  return JoinHalves(low, LONG(high));
}

void CNativeFile::Abort() {
  if (handle == INVALID_HANDLE_VALUE) return;
  // Abort reports nothing: whatever the close says is dropped.
  ::CloseHandle(handle);
  handle = INVALID_HANDLE_VALUE;
  EmptyName();
}

void CNativeFile::Flush() {
  TSL_ASSERT(handle != INVALID_HANDLE_VALUE, Unit, 159);
  if (handle == INVALID_HANDLE_VALUE) return;
  if (!::FlushFileBuffers(handle)) ThrowLastError();
}

void CNativeFile::Close() {
  if (handle == INVALID_HANDLE_VALUE) return;
  HANDLE closing = handle;
  // The object is closed whatever the platform answers: a failed close is
  // reported once, with the name still set, and never retried.
  handle = INVALID_HANDLE_VALUE;
  if (!::CloseHandle(closing)) ThrowLastError();
  EmptyName();
}

}  // namespace Tsl
