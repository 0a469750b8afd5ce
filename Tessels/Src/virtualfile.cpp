// Virtual files: content in page-file mappings that grow by half of what a
// file holds, read and written through a per-open cache of ten views of one
// granule each, and whole-content copies to and from other streams.
#include "virtualfile.h"

#include <string.h>

#include "errors.h"
#include "services.h"

namespace Tsl {

namespace {

const wchar_t* const Unit = L"virtualfile";

int64_t Min(int64_t a, int64_t b) { return a < b ? a : b; }
int64_t Max(int64_t a, int64_t b) { return a > b ? a : b; }

}  // namespace

int64_t GetVirtualViewSize() { return int64_t(GetAllocationGranularity()); }
int64_t GetVirtualMappingGranularity() { return int64_t(GetAllocationGranularity()); }

// ---- Entries -----------------------------------------------------------------

CVirtualFileBase::CVirtualFileBase(const CUnicodeString& name, uint32_t attributes)
    : name(name), attributes(attributes), size(0) {
  TSL_ASSERT(!name.IsEmpty(), Unit, 29);
  creationTime = CTime::GetCurrentTime();
  lastAccessTime = creationTime;
  lastWriteTime = creationTime;
}

// ---- File content ------------------------------------------------------------

CVirtualFileData::CVirtualFileData(const CUnicodeString& name, uint32_t attributes, bool readOnly,
                                   int64_t initialSize)
    : CVirtualFileBase(name, attributes), writable(!readOnly), initialSize(initialSize), allocatedSize(0) {}

CVirtualFileData::CVirtualFileData(const CUnicodeString& name, uint32_t attributes, HANDLE mappingHandle,
                                   int64_t size)
    : CVirtualFileBase(name, attributes), writable(false), initialSize(size), allocatedSize(size) {
  this->size = size;
  CVirtualMemoryMapping* mapping = new CVirtualMemoryMapping(mappingHandle);
  CVirtualMapping* node;
  try {
    node = new CVirtualMapping(mapping, 0, size);
  } catch (...) {
    delete mapping;
    throw;
  }
  try {
    mappings.Add(node);
  } catch (...) {
    delete node;
    throw;
  }
}

CVirtualFileData::~CVirtualFileData() {
  for (int32_t i = 0; i < mappings.GetSize(); ++i) delete mappings[i];
  mappings.DeleteAll();
}

// Rounds up to the granularity; a size of 0 or less rounds down instead.
CVirtualMapping* CVirtualFileData::AddMapping(int64_t bytes) {
  int64_t granularity = GetVirtualMappingGranularity();
  int64_t rounded = bytes > 0 ? (bytes + granularity - 1) / granularity * granularity
                              : bytes / granularity * granularity;
  CVirtualMemoryMapping* mapping = new CVirtualMemoryMapping(writable ? 1 : 0, rounded);
  CVirtualMapping* node;
  try {
    node = new CVirtualMapping(mapping, allocatedSize, rounded);
  } catch (...) {
    delete mapping;
    throw;
  }
  try {
    mappings.Add(node);
  } catch (...) {
    delete node;
    throw;
  }
  allocatedSize += rounded;
  return node;
}

CVirtualMapping* CVirtualFileData::GetMapping(int64_t offset) {
  TSL_ASSERT(offset >= 0, Unit, 92);
  if (offset < 0) offset = 0;
  for (int32_t i = 0; i < mappings.GetSize(); ++i) {
    CVirtualMapping* mapping = mappings[i];
    if (mapping->fileOffset > offset) break;
    if (offset < mapping->fileOffset + mapping->mappingSize) return mapping;
  }
  int64_t granularity = GetVirtualMappingGranularity();
  if (allocatedSize == 0) {
    CVirtualMapping* first = AddMapping(Max(initialSize, granularity));
    if (offset < allocatedSize) return first;
  }
  TSL_ASSERT(offset >= allocatedSize && allocatedSize >= granularity, Unit, 104);
  MEMORYSTATUSEX memory;
  memory.dwLength = sizeof memory;
  TSL_ASSERT_LAST_ERROR(::GlobalMemoryStatusEx(&memory) != FALSE, Unit, 107);
  // A file grows by half of what it has, by at most a tenth of the free
  // page file, and a jump far ahead is one mapping. The new mapping always
  // reaches past `offset` itself: a jump that ends exactly on a granule
  // boundary would otherwise give a mapping that stops one byte short.
  int64_t available = int64_t(memory.ullAvailPageFile > uint64_t(INT64_MAX) ? INT64_MAX : memory.ullAvailPageFile);
  int64_t growth = Min(allocatedSize / 2, available / 10);
  growth = Max(growth, offset - allocatedSize + 1);
  return AddMapping(growth);
}

// ---- Open files ----------------------------------------------------------------

CVirtualFile::CVirtualFile(CVirtualFileData* data, uint32_t access, uint32_t share)
    : access(access), share(share), data(data), isOpen(true), length(data->size), position(0) {}

CVirtualFile::~CVirtualFile() {
  if (isOpen) {
    try {
      Close();
    } catch (CException* failure) {
      ReportException(failure);
      delete failure;
    }
  }
  views.DeleteAll();
}

CUnicodeString CVirtualFile::GetFileName() const { return data->name; }

void CVirtualFile::DropView(CVirtualView* view) {
  view->owner->mapping->UnmapView(view->data);
  delete view;  // leaves the list by itself
}

CVirtualView* CVirtualFile::GetView(int64_t offset) {
  TSL_ASSERT(offset >= 0, Unit, 145);
  if (offset < 0) offset = 0;
  // The list is in order of use, not of offset: the walk stops at the first
  // view that starts behind `offset`, and going back in a file maps a second
  // view of a region a view further down still holds. Both map the same
  // bytes, so that costs a place among the ten and nothing else.
  for (CVirtualView* view = views.GetFirst(); view != nullptr; view = view->GetNext()) {
    int64_t start = view->GetFileOffset();
    if (offset < start) break;
    if (offset < start + view->viewBytes) {
      if (view != views.GetFirst()) {
        views.Remove(view);
        views.AddHead(view);
      }
      return view;
    }
  }
  if (views.GetCount() == MaximumViews) DropView(views.GetLast());
  CVirtualMapping* mapping = data->GetMapping(offset);
  int64_t viewSize = GetVirtualViewSize();
  int64_t aligned = offset / viewSize * viewSize;
  int64_t relative = aligned - mapping->fileOffset;
  int64_t bytes = Min(viewSize, mapping->mappingSize - relative);
  void* pointer = mapping->mapping->MapView(data->IsWritable() ? FILE_MAP_WRITE : FILE_MAP_READ, relative,
                                            int32_t(bytes));
  CVirtualView* view;
  try {
    // Every size is a multiple of the same granule, so a view is always one
    // whole granule, also at the end of a mapping.
    view = new CVirtualView(mapping, static_cast<char*>(pointer), relative, viewSize);
  } catch (...) {
    mapping->mapping->UnmapView(pointer);
    throw;
  }
  views.AddHead(view);
  return view;
}

int32_t CVirtualFile::Read(void* buffer, int32_t count) {
  if (count == 0) return 0;
  TSL_ASSERT(buffer != nullptr && count >= 1, Unit, 185);
  TSL_ASSERT(isOpen, Unit, 186);
  if (buffer == nullptr || count < 1 || !isOpen) return 0;
  int64_t wanted = Min(count, length - position);
  if (wanted < 1) return 0;
  char* target = static_cast<char*>(buffer);
  int64_t done = 0;
  while (done < wanted) {
    CVirtualView* view = GetView(position);
    int64_t inView = position - view->GetFileOffset();
    TSL_ASSERT(inView >= 0 && inView < view->viewBytes, Unit, 195);
    int64_t step = Min(view->viewBytes - inView, wanted - done);
    memcpy(target + done, view->data + inView, size_t(step));
    done += step;
    position += step;
  }
  return int32_t(done);
}

void CVirtualFile::Write(const void* buffer, int32_t count) {
  // The access test comes first, also for nothing to write. A file whose
  // storage is read-only (made over a foreign mapping, or created read-only)
  // refuses in the same words: its views cannot be written.
  if ((access & GENERIC_WRITE) == 0 || !data->IsWritable()) GenerateFileError(ERROR_SHARING_VIOLATION, GetFileName());
  if (count == 0) return;
  TSL_ASSERT(buffer != nullptr && count >= 1, Unit, 210);
  TSL_ASSERT(isOpen, Unit, 211);
  if (buffer == nullptr || count < 1 || !isOpen) return;
  if (position > INT64_MAX - count) GenerateMemoryError();
  int64_t end = position + count;
  if (end > length) {
    int64_t start = position;
    SetLength(end);
    position = start;
  }
  const char* source = static_cast<const char*>(buffer);
  int64_t done = 0;
  while (done < count) {
    CVirtualView* view = GetView(position);
    int64_t inView = position - view->GetFileOffset();
    TSL_ASSERT(inView >= 0 && inView < view->viewBytes, Unit, 225);
    int64_t step = Min(view->viewBytes - inView, count - done);
    memcpy(view->data + inView, source + done, size_t(step));
    done += step;
    position += step;
  }
  TSL_ASSERT(position == end, Unit, 231);
}

int64_t CVirtualFile::Seek(int64_t offset, int32_t origin) {
  int64_t base;
  switch (origin) {
    case SeekBegin: base = 0; break;
    case SeekCurrent: base = position; break;
    case SeekEnd: base = length; break;
    default:
      TSL_INTERNAL_ERROR(Unit, 241);
      return position;
  }
  int64_t target = base + offset;
  if (target < 0) {
    position = 0;
    GenerateFileErrorOfKind(FE_BadSeek, GetFileName());
  }
  // Past the end is allowed: a write there grows the file.
  position = target;
  return position;
}

// Touches no memory: mappings come with the first access that reaches
// them, and a shorter length frees nothing.
void CVirtualFile::SetLength(int64_t size) {
  TSL_ASSERT(size >= 0, Unit, 257);
  TSL_ASSERT(isOpen, Unit, 258);
  if (size < 0 || !isOpen) return;
  length = size;
  position = size;
  data->size = size;
}

void CVirtualFile::Close() {
  if (!isOpen) return;
  isOpen = false;
  while (!views.IsEmpty()) DropView(views.GetFirst());
  // The last writer to close decides the file's size. An open that could
  // not write saw a length that may be stale by now, so it leaves the size
  // alone rather than cut off what another open wrote.
  if ((access & GENERIC_WRITE) != 0) data->size = length;
  length = 0;
  position = 0;
}

void CVirtualFile::Abort() {
  try {
    Close();
  } catch (CException* failure) {
    ReportException(failure);
    delete failure;
  }
}

void CVirtualFile::SaveTo(CBaseFile& destination) {
  destination.SetLength(length);
  destination.SeekToBegin();
  int64_t viewSize = GetVirtualViewSize();
  for (int64_t done = 0; done < length;) {
    CVirtualView* view = GetView(done);
    int64_t bytes = Min(viewSize, length - done);
    destination.Write(view->data + (done - view->GetFileOffset()), int32_t(bytes));
    done += bytes;
  }
}

void CVirtualFile::LoadFrom(CBaseFile& source) {
  if ((access & GENERIC_WRITE) == 0 || !data->IsWritable()) GenerateFileError(ERROR_SHARING_VIOLATION, GetFileName());
  int64_t sourceLength = source.GetLength();
  int64_t sourcePosition = source.GetPosition();
  source.Seek(0, SeekBegin);
  SetLength(sourceLength);
  int64_t viewSize = GetVirtualViewSize();
  for (int64_t done = 0; done < sourceLength;) {
    CVirtualView* view = GetView(done);
    int64_t inView = done - view->GetFileOffset();
    int64_t bytes = Min(viewSize - inView, sourceLength - done);
    int32_t read = source.Read(view->data + inView, int32_t(bytes));
    // A source that ends before its length said would keep this loop going
    // for ever.
    if (read <= 0) GenerateFileErrorOfKind(FE_EndOfFile, source.GetFileName());
    done += read;
  }
  source.Seek(sourcePosition, SeekBegin);
}

}  // namespace Tsl
