// Page-file mappings and their views: creation, aligned views handed out at
// any offset, and the failure rule that turns a failed platform call into
// the memory error or a last-error exception.
#include "filemapping.h"

#include "errors.h"
#include "services.h"

namespace Tsl {

namespace {

const wchar_t* const Unit = L"filemapping";

// Out of memory is the memory error everywhere in the library; any other
// failure of the platform keeps its code.
void RaisePlatformFailure() {
  DWORD code = ::GetLastError();
  if (code == ERROR_NOT_ENOUGH_MEMORY) GenerateMemoryError();
  GenerateLastError(code);
}

}  // namespace

uint32_t GetAllocationGranularity() {
  static uint32_t granularity = 0;
  if (granularity == 0) {
    SYSTEM_INFO info;
    ::GetSystemInfo(&info);
    TSL_ASSERT(info.dwAllocationGranularity != 0, Unit, 31);
    // A platform without an answer gets the usual value rather than a
    // division by zero further on.
    granularity = info.dwAllocationGranularity != 0 ? info.dwAllocationGranularity : 65536;
  }
  return granularity;
}

CMapping::CMapping() : fileHandle(0), accessMode(0), mappingHandle(nullptr), views(0, 128) {}

CMapping::CMapping(uint32_t mode, int64_t size)
    : fileHandle(0), accessMode(0), mappingHandle(nullptr), views(0, 128) {
  TSL_ASSERT(mode <= 1, Unit, 46);
  TSL_ASSERT(size >= 0, Unit, 47);
  fileHandle = INVALID_HANDLE_VALUE;
  accessMode = mode <= 1 ? mode : 0;
  Create(size);
}

CMapping::~CMapping() {
  try {
    CMapping::Close();
  } catch (CException* failure) {
    ReportException(failure);
    delete failure;
  }
  views.FreeBuffer();
}

void CMapping::Create(int64_t size) {
  uint64_t bytes = uint64_t(size < 0 ? 0 : size);
  mappingHandle = ::CreateFileMappingW(fileHandle, nullptr, accessMode ? PAGE_READWRITE : PAGE_READONLY,
                                       DWORD(bytes >> 32), DWORD(bytes & 0xFFFFFFFFu), nullptr);
  if (mappingHandle == nullptr) RaisePlatformFailure();
}

void CMapping::Attach(HANDLE mapping) {
  TSL_ASSERT(mappingHandle == nullptr, Unit, 72);
  TSL_ASSERT(views.IsEmpty(), Unit, 73);
  TSL_ASSERT(mapping != nullptr, Unit, 74);
  if (mappingHandle != nullptr || mapping == nullptr) return;
  fileHandle = INVALID_HANDLE_VALUE;
  accessMode = 0;
  mappingHandle = mapping;
}

void* CMapping::MapView(uint32_t desiredAccess, int64_t offset, int32_t bytes) {
  TSL_ASSERT(mappingHandle != nullptr, Unit, 82);
  TSL_ASSERT(offset >= 0 && bytes >= 0, Unit, 83);
  if (mappingHandle == nullptr || offset < 0 || bytes < 0) return nullptr;
  // The platform maps from granularity boundaries only: the view starts at
  // the boundary below, and the caller gets the pointer to its own byte.
  uint64_t granularity = GetAllocationGranularity();
  uint64_t aligned = uint64_t(offset) / granularity * granularity;
  uint64_t delta = uint64_t(offset) - aligned;
  SIZE_T length = bytes != 0 ? SIZE_T(delta + uint64_t(bytes)) : 0;
  void* base = ::MapViewOfFile(mappingHandle, desiredAccess, DWORD(aligned >> 32), DWORD(aligned & 0xFFFFFFFFu),
                               length);
  if (base == nullptr) RaisePlatformFailure();
  void* caller = static_cast<char*>(base) + delta;
  try {
    views.Set(caller, CViewRecord{caller, base});
  } catch (...) {
    ::UnmapViewOfFile(base);
    throw;
  }
  return caller;
}

void CMapping::UnmapView(void* pointer) {
  TSL_ASSERT(pointer != nullptr, Unit, 106);
  if (pointer == nullptr) return;
  CViewRecord* record = views.Find(pointer);
  TSL_ASSERT(record != nullptr, Unit, 109);
  if (record == nullptr) return;
  ::UnmapViewOfFile(record->basePointer);
  views.Delete(pointer);
}

void CMapping::UnmapAll() {
  for (const auto& entry : views) ::UnmapViewOfFile(entry.value.basePointer);
  views.DeleteAll();
}

void CMapping::Flush() {
  for (const auto& entry : views)
    if (!::FlushViewOfFile(entry.value.basePointer, 0)) RaisePlatformFailure();
}

void CMapping::Close() {
  UnmapAll();
  if (mappingHandle != nullptr) ::CloseHandle(mappingHandle);
  mappingHandle = nullptr;
  fileHandle = 0;
}

void CMapping::Resize(int64_t size) {
  TSL_ASSERT(mappingHandle != nullptr, Unit, 132);
  TSL_ASSERT(size >= 0, Unit, 133);
  if (mappingHandle == nullptr || size < 0) return;
  UnmapAll();
  ::CloseHandle(mappingHandle);
  mappingHandle = nullptr;
  Create(size);
}

void CMemoryMapping::Resize(int64_t size) {
  TSL_ASSERT(size > 0, Unit, 142);
  if (size <= 0) return;
  CMapping::Resize(size);
}

}  // namespace Tsl
