// The archive: opening and closing, the buffering on both sides of the file,
// compact numbers and narrow strings, and objects by class name with the
// stream's own table of names.
#include "archive.h"

#include "classregistry.h"
#include "errors.h"
#include "services.h"

namespace Tsl {

namespace {

const wchar_t* const unitName = L"archive";

// A length beyond this can't be a string at all: it is the memory error
// before any allocation is tried, whatever the stream claims.
const int32_t MaxNarrowLength = 0x7FFFFFE0;

// The first page of the name-to-code table holds 128 bytes of entries, and
// the second table's 64 bytes.
const int32_t NameCodePageEntries = 128 / int32_t(sizeof(CMapEntry<CUnicodeString, int32_t>));
const int32_t ObjectTablePageEntries = 64 / int32_t(sizeof(CHashSetEntry<const void*>));

}  // namespace

CArchive::CArchive(CBaseFile* file, int32_t direction, int32_t bufferSize)
    : file(nullptr),
      direction(Closed),
      buffer(inlineBuffer),
      bufferSize(bufferSize > InlineBufferSize ? bufferSize : InlineBufferSize),
      startPosition(0),
      bufferFilePosition(0),
      length(0),
      bufferPosition(0),
      bytesLeft(0),
      readEnd(inlineBuffer),
      nameCodes(0, NameCodePageEntries),
      objectTable(0, ObjectTablePageEntries) {
  // Opened first: should opening fail, no buffer is left behind.
  Open(file, direction);
  if (this->bufferSize > InlineBufferSize) {
    buffer = static_cast<uint8_t*>(CurrentMemoryManager::Alloc(size_t(this->bufferSize)));
    readEnd = buffer;
  }
}

CArchive::~CArchive() {
  try {
    Close();
  } catch (CException* exception) {
    ReportException(exception);
    delete exception;
  }
  // The name tables go with their members, whether or not Close got to them.
  if (buffer != inlineBuffer) CurrentMemoryManager::Free(buffer);
}

void CArchive::Open(CBaseFile* newFile, int32_t newDirection) {
  TSL_ASSERT(file == nullptr && newFile != nullptr, unitName, 88);
  TSL_ASSERT(newDirection == Load || newDirection == Store, unitName, 89);
  if (file != nullptr || newFile == nullptr || (newDirection != Load && newDirection != Store))
    return;
  name = newFile->GetFileName();
  file = newFile;
  direction = newDirection;
  // The file's own position isn't asked for: offsets count from here.
  startPosition = 0;
  bufferFilePosition = 0;
  length = 0;
  bufferPosition = 0;
  bytesLeft = 0;
  readEnd = buffer;
}

void CArchive::Close() {
  if (file == nullptr) return;
  Flush();
  file = nullptr;
  name.Empty();
  direction = Closed;
  ResetObjectTables();
}

void CArchive::ResetObjectTables() {
  nameCodes.DeleteAll();
  names.DeleteAll();
  objectTable.DeleteAll();
}

int64_t CArchive::GetPosition() const {
  TSL_ASSERT(file != nullptr, unitName, 214);
  if (direction == Load) return bufferFilePosition - bytesLeft - startPosition;
  return bufferPosition + bufferFilePosition - startPosition;
}

void CArchive::Flush() {
  TSL_ASSERT(file != nullptr, unitName, 236);
  if (file == nullptr) return;
  if (direction == Load) {
    if (bytesLeft > 0) {
      file->Seek(-int64_t(bytesLeft), SeekCurrent);
      bufferFilePosition -= bytesLeft;
    }
  } else {
    int32_t pending = bufferPosition + bytesLeft;
    if (pending > 0) {
      file->Write(buffer, pending);
      if (bufferFilePosition + pending > length) length = bufferFilePosition + pending;
      if (bytesLeft > 0) file->Seek(-int64_t(bytesLeft), SeekCurrent);
    }
    bufferFilePosition += bufferPosition;
  }
  bufferPosition = 0;
  bytesLeft = 0;
}

// The slow side of Read: the checks, then what the buffer lacks from the
// file. A rest shorter than the buffer fills the buffer once; a longer one
// goes straight into the caller's memory.
void CArchive::ReadThroughFile(void* data, int32_t count) {
  TSL_ASSERT(file != nullptr, unitName, 131);
  TSL_ASSERT(count >= 0, unitName, 132);
  TSL_ASSERT(direction == Load, unitName, 133);
  if (file == nullptr || count < 0 || direction != Load || count == 0) return;
  uint8_t* target = static_cast<uint8_t*>(data);
  if (count <= bytesLeft) {
    memcpy(target, readEnd - bytesLeft, size_t(count));
    bytesLeft -= count;
    return;
  }
  memcpy(target, readEnd - bytesLeft, size_t(bytesLeft));
  target += bytesLeft;
  int32_t rest = count - bytesLeft;
  bytesLeft = 0;
  if (rest < bufferSize) {
    int32_t got = file->Read(buffer, bufferSize);
    // What did arrive stays unaccounted for: the stream is broken anyway.
    if (got < rest) GenerateFileErrorOfKind(FE_EndOfFile, name);
    bufferFilePosition += got;
    memcpy(target, buffer, size_t(rest));
    readEnd = buffer + got;
    bytesLeft = got - rest;
  } else {
    if (file->Read(target, rest) != rest) GenerateFileErrorOfKind(FE_EndOfFile, name);
    bufferFilePosition += rest;
  }
}

// The slow side of Write: the checks, then a buffer that would fill up goes
// to the file full, and a rest of a whole buffer or more goes straight after
// it without a copy.
void CArchive::WriteThroughFile(const void* data, int32_t count) {
  TSL_ASSERT(file != nullptr, unitName, 171);
  TSL_ASSERT(count >= 0, unitName, 172);
  TSL_ASSERT(direction == Store, unitName, 173);
  if (file == nullptr || count < 0 || direction != Store || count == 0) return;
  const uint8_t* source = static_cast<const uint8_t*>(data);
  if (count < bufferSize - bufferPosition) {
    memcpy(buffer + bufferPosition, source, size_t(count));
    bufferPosition += count;
    bytesLeft = bytesLeft > count ? bytesLeft - count : 0;
    return;
  }
  int32_t rest = count;
  if (bufferPosition > 0) {
    int32_t fill = bufferSize - bufferPosition;
    memcpy(buffer + bufferPosition, source, size_t(fill));
    source += fill;
    rest -= fill;
    bufferPosition = bufferSize;
    bytesLeft = 0;
    Flush();
  }
  if (rest < bufferSize) {
    memcpy(buffer, source, size_t(rest));
    bufferPosition = rest;
  } else {
    file->Write(source, rest);
    bufferFilePosition += rest;
  }
  if (bufferFilePosition > length) length = bufferFilePosition;
  bytesLeft = 0;
}

void CArchive::WriteLongCount(int32_t value) {
  WriteValue(uint8_t(0xFF));
  WriteValue(value);
}

void CArchive::WriteNarrow(const CString& text) {
  int32_t count = text.Length();
  WriteCount(count);
  Write(text.Text(), count);
}

// Emptied first, so that a failure leaves an empty string.
void CArchive::ReadNarrow(CString& text) {
  text.Empty();
  int32_t count = ReadCount();
  if (count < 0) {
    GenerateBadArchiveError();
    return;
  }
  if (count == 0) return;
  if (count > MaxNarrowLength) GenerateMemoryError();
  char* target = text.GetBuffer(count);
  Read(target, count);
  text.SetBufferLength(count);
}

void CArchive::GenerateBadArchiveError() const {
  GenerateCheckError(L"ERR_BAD_ARCHIVE", name, CUnicodeString());
}

CPtr<IObject> CArchive::ReadObject() {
  CUnicodeString className = ReadClassName(ReadCount());
  if (className.IsEmpty()) return CPtr<IObject>();
  // An unknown class is a stream from another program, not a broken one.
  if (!IsClassKnown(className)) {
    GenerateCheckError(L"ERR_BAD_ARCHIVE_VERSION", name, CUnicodeString());
    return CPtr<IObject>();
  }
  CPtr<IObject> object(CreateObjectByName(className));
  TSL_ASSERT(!object.IsNull(), unitName, 402);
  if (object.IsNull()) return object;
  // Should the object's data be broken, the pointer takes the object with it.
  object->Serialize(*this);
  return object;
}

// Even codes name a class met before (number code / 2), odd ones bring the
// next new name with them. The empty name, a null pointer, counts as a name.
CUnicodeString CArchive::ReadClassName(int32_t code) {
  int32_t number = code >> 1;
  if ((code & 1) == 0) {
    if (number < 0 || number >= names.GetSize()) {
      GenerateBadArchiveError();
      return CUnicodeString();
    }
    return names[number];
  }
  if (number != names.GetSize()) {
    GenerateBadArchiveError();
    return CUnicodeString();
  }
  CString narrow;
  ReadNarrow(narrow);
  CUnicodeString className = narrow.ToUnicode(0);
  names.Add(className);
  return className;
}

void CArchive::WriteObject(IObject* object) {
  if (object == nullptr) {
    WriteClassName(CUnicodeString());
    return;
  }
  CUnicodeString className = GetClassName(&typeid(*object));
  if (className.IsEmpty()) return;  // an unregistered type, reported already
  WriteClassName(className);
  TSL_ASSERT(direction == Store, unitName, 451);
  if (direction != Store) return;
  object->Serialize(*this);
}

void CArchive::WriteClassName(const CUnicodeString& className) {
  if (const int32_t* known = nameCodes.Find(className)) {
    WriteCount(*known);
    return;
  }
  // Readers convert names by the ANSI code page: only ASCII reads back alike.
  int32_t count = className.Length();
  CString narrow;
  if (count > 0) {
    char* target = narrow.GetBuffer(count);
    for (int32_t i = 0; i < count; ++i) {
      wchar_t unit = className[i];
      TSL_ASSERT(unit <= 0x7F, unitName, 478);
      if (unit > 0x7F) return;
      target[i] = char(unit);
    }
    narrow.SetBufferLength(count);
  }
  int32_t code = nameCodes.GetCount() * 2;
  nameCodes.Insert(className, code);
  WriteCount(code + 1);
  WriteNarrow(narrow);
}

}  // namespace Tsl
