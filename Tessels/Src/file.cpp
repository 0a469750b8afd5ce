// CFile, the file opened by path: it picks the file system that owns the path,
// holds the object that system makes, and gives it back through the same
// system. Also the conveniences of CBaseFile and the whole-file text
// operations (byte order marks, ANSI fallback, line splitting).
#include "archive.h"
#include "basefile.h"
#include "errors.h"
#include "filesystem.h"
#include "services.h"

namespace Tsl {

static const wchar_t* const Unit = L"file";

// ---- CBaseFile ---------------------------------------------------------------

bool CBaseFile::IsEndOfFile() const { return GetLength() == GetPosition(); }

int32_t CBaseFile::GetLength32() const {
  int64_t length = GetLength();
  // A range check, not a truncation: a file of 4 GB + 1 must not pass as 1.
  TSL_ASSERT(length >= 0 && length <= 0x7FFFFFFF, Unit, 48);
  if (length < 0 || length > 0x7FFFFFFF) return 0;
  return int32_t(length);
}

// ---- Flags -------------------------------------------------------------------

uint32_t CFile::AccessOfFlags(uint32_t flags) {
  switch (flags & AccessMask) {
    case ModeRead:
      return GENERIC_READ;
    case ModeWrite:
      return GENERIC_WRITE;
    case ModeReadWrite:
      return GENERIC_READ | GENERIC_WRITE;
  }
  TSL_INTERNAL_ERROR(Unit, 95);
  return GENERIC_READ;
}

uint32_t CFile::ShareOfFlags(uint32_t flags) {
  switch (flags & ShareMask) {
    case ShareExclusive:
      return 0;
    case ShareDenyWrite:
      return FILE_SHARE_READ;
    case ShareDenyRead:
      return FILE_SHARE_WRITE;
    case ShareDenyNone:
      return FILE_SHARE_READ | FILE_SHARE_WRITE;
  }
  TSL_INTERNAL_ERROR(Unit, 112);
  return 0;
}

// ModeNoTruncate matters only with ModeCreate, ModeCreateNew only without it.
uint32_t CFile::DispositionOfFlags(uint32_t flags) {
  if (flags & ModeCreate) return (flags & ModeNoTruncate) ? OPEN_ALWAYS : CREATE_ALWAYS;
  return (flags & ModeCreateNew) ? CREATE_NEW : OPEN_EXISTING;
}

// ---- CFile -------------------------------------------------------------------

CFile::CFile() : implementation(nullptr), fileSystem(nullptr) {}

CFile::CFile(const CUnicodeString& path, uint32_t flags)
    : implementation(nullptr), fileSystem(nullptr) {
  Open(path, flags);
}

CFile::~CFile() {
  if (implementation == nullptr) return;
  try {
    CloseThrough(false);
  } catch (CException* exception) {
    ReportException(exception);
    delete exception;
  }
}

void CFile::Open(const CUnicodeString& path, uint32_t flags) {
  Open(path, flags, FILE_ATTRIBUTE_NORMAL, 0);
}

// Hidden and system bits of a file being replaced are kept: the platform
// refuses CREATE_ALWAYS on a hidden or system file unless the new attributes
// carry the same bits. Only a caller who asked for plain attributes gets this;
// one who named attributes gets exactly those.
static uint32_t KeepHiddenAndSystem(const CUnicodeString& path, uint32_t attributes) {
  if ((attributes & FILE_ATTRIBUTE_NORMAL) == 0) return attributes;
  CFileSystemBase* owner = GetFileSystem(path);
  if (!owner->FileExists(path, CFile::ModeExistenceOnly)) return attributes;
  uint32_t existing = owner->GetFileAttributes(path);
  const uint32_t hiddenOrSystem = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  if (existing != INVALID_FILE_ATTRIBUTES && (existing & hiddenOrSystem) != 0)
    attributes |= existing & hiddenOrSystem;
  return attributes;
}

void CFile::Open(const CUnicodeString& path, uint32_t flags, uint32_t attributes,
                 int64_t initialSize) {
  TSL_ASSERT(implementation == nullptr, Unit, 180);
  if (implementation != nullptr) return;
  CUnicodeString fullPath = path;
  NormalizePath(fullPath);
  uint32_t access = AccessOfFlags(flags);
  uint32_t share = ShareOfFlags(flags);
  uint32_t disposition = DispositionOfFlags(flags);
  if (disposition == CREATE_ALWAYS) attributes = KeepHiddenAndSystem(fullPath, attributes);

  // The existence test may have run through code that opens files: check
  // again that nothing was opened meanwhile.
  TSL_ASSERT(implementation == nullptr, Unit, 196);
  if (implementation != nullptr) return;
  NormalizePath(fullPath);
  // The file system is stored before the open: a failed open leaves it set,
  // and only the implementation field says whether the file is open.
  fileSystem = GetFileSystem(fullPath);
  // The owner is the CFile itself: the in-memory file system keeps it.
  implementation = fileSystem->CreateFile(fullPath, access, share, nullptr, disposition, attributes,
                                          nullptr, uint32_t(uint64_t(initialSize)),
                                          uint32_t(uint64_t(initialSize) >> 32), this);
}

CUnicodeString CFile::GetFileName() const {
  TSL_ASSERT(implementation != nullptr, Unit, 215);
  if (implementation == nullptr) return CUnicodeString();
  return implementation->GetFileName();
}

int32_t CFile::Read(void* buffer, int32_t count) {
  if (count == 0) return 0;
  TSL_ASSERT(buffer != nullptr && count >= 1, Unit, 224);
  TSL_ASSERT(implementation != nullptr, Unit, 225);
  if (buffer == nullptr || count < 1 || implementation == nullptr) return 0;
  return implementation->Read(buffer, count);
}

void CFile::Write(const void* buffer, int32_t count) {
  if (count == 0) return;
  TSL_ASSERT(buffer != nullptr && count >= 1, Unit, 233);
  TSL_ASSERT(implementation != nullptr, Unit, 234);
  if (buffer == nullptr || count < 1 || implementation == nullptr) return;
  implementation->Write(buffer, count);
}

int64_t CFile::GetPosition() const {
  TSL_ASSERT(implementation != nullptr, Unit, 241);
  if (implementation == nullptr) return 0;
  return implementation->GetPosition();
}

int64_t CFile::Seek(int64_t offset, int32_t origin) {
  TSL_ASSERT(implementation != nullptr, Unit, 248);
  if (implementation == nullptr) return 0;
  return implementation->Seek(offset, origin);
}

void CFile::SetLength(int64_t length) {
  TSL_ASSERT(implementation != nullptr, Unit, 255);
  TSL_ASSERT(length >= 0, Unit, 256);
  if (implementation == nullptr || length < 0) return;
  implementation->SetLength(length);
}

int64_t CFile::GetLength() const {
  TSL_ASSERT(implementation != nullptr, Unit, 263);
  if (implementation == nullptr) return 0;
  return implementation->GetLength();
}

void CFile::Flush() {
  TSL_ASSERT(implementation != nullptr, Unit, 270);
  if (implementation == nullptr) return;
  implementation->Flush();
}

// Both fields are cleared before the file system is called, so the object is
// closed even when the close throws.
void CFile::CloseThrough(bool abort) {
  if (implementation == nullptr) return;
  CBaseFile* closing = implementation;
  CFileSystemBase* owner = fileSystem;
  implementation = nullptr;
  fileSystem = nullptr;
  owner->CloseFile(closing, abort);
}

void CFile::Close() { CloseThrough(false); }

void CFile::Abort() { CloseThrough(true); }

// ---- Whole-file text -----------------------------------------------------------

// Reads exactly `count` bytes or raises end of file with the file's name.
static void ReadExactly(CBaseFile& file, void* buffer, int32_t count) {
  if (count > 0 && file.Read(buffer, count) < count)
    GenerateFileErrorOfKind(FE_EndOfFile, file.GetFileName());
}

// The UTF-16 case, after the mark: the rest of the file as units. Sets `text`
// and returns true when the two bytes at the start were a UTF-16 mark.
static bool ReadUtf16Text(CBaseFile& file, int32_t length, CUnicodeString& text) {
  if (length < 2) return false;
  uint8_t mark[2];
  ReadExactly(file, mark, 2);
  bool little = mark[0] == 0xFF && mark[1] == 0xFE;
  bool big = mark[0] == 0xFE && mark[1] == 0xFF;
  if (!little && !big) {
    file.SeekToBegin();
    return false;
  }
  if (length & 1) {
    GenerateCheckError(L"ERR_BAD_TEXT_FILE", file.GetFileName(), CUnicodeString());
    return true;
  }
  int32_t units = length / 2 - 1;
  if (units == 0) return true;
  wchar_t* data = text.GetBuffer(units);
  ReadExactly(file, data, units * 2);
  for (int32_t i = 0; i < units; ++i) {
    uint16_t unit = uint16_t(data[i]);
    if (big) unit = uint16_t((unit << 8) | (unit >> 8));
    // A string can't hold a zero unit: it would end the text.
    data[i] = unit == 0 ? L' ' : wchar_t(unit);
  }
  text.SetBufferLength(units);
  return true;
}

// `count` bytes from the current position, zeros made blanks, converted from
// `codePage`. Bytes invalid in the page give the empty string.
static CUnicodeString ReadNarrowText(CBaseFile& file, int32_t count, UINT codePage) {
  if (count <= 0) return CUnicodeString();
  CString bytes;
  char* data = bytes.GetBuffer(count);
  ReadExactly(file, data, count);
  for (int32_t i = 0; i < count; ++i)
    if (data[i] == 0) data[i] = ' ';
  bytes.SetBufferLength(count);
  return CUnicodeString(bytes.Text(), count, codePage);
}

// The whole text of an open file standing at its start. There is no sniffing
// of unmarked UTF-8 or UTF-16: without a mark the text is in the ANSI page.
CUnicodeString ReadText(CBaseFile& file) {
  int32_t length = file.GetLength32();
  CUnicodeString text;
  if (ReadUtf16Text(file, length, text)) return text;
  if (length >= 3) {
    uint8_t mark[3];
    ReadExactly(file, mark, 3);
    if (mark[0] == 0xEF && mark[1] == 0xBB && mark[2] == 0xBF)
      return ReadNarrowText(file, length - 3, CP_UTF8);
    file.SeekToBegin();
  }
  return ReadNarrowText(file, length, CP_ACP);
}

CUnicodeString ReadTextFile(const CUnicodeString& path) {
  CFile file(path, CFile::ModeRead | CFile::ShareDenyWrite);
  CUnicodeString text = ReadText(file);
  file.Close();
  return text;
}

static bool IsLineBreak(wchar_t unit) {
  return unit == 10 || unit == 13 || unit == 11 || unit == 12 || unit == 0x2028 || unit == 0x2029;
}

void SplitTextLines(const CUnicodeString& text, CArray<CUnicodeString>& lines) {
  lines.DeleteAll();
  int32_t count = text.Length();
  if (count == 0) return;
  int32_t start = 0;
  for (int32_t i = 0; i < count; ++i) {
    wchar_t unit = text[i];
    if (!IsLineBreak(unit)) continue;
    lines.Add(text.Mid(start, i - start));
    // CR LF is one break; LF CR and every other pair are two.
    if (unit == 13 && i + 1 < count && text[i + 1] == 10) ++i;
    start = i + 1;
  }
  // The rest after the last break; empty when the text ends with a break.
  lines.Add(text.Mid(start));
}

void ReadTextFileLines(const CUnicodeString& path, CArray<CUnicodeString>& lines) {
  lines.DeleteAll();
  SplitTextLines(ReadTextFile(path), lines);
}

static const uint8_t LittleEndianMark[2] = {0xFF, 0xFE};

void WriteTextFile(const CUnicodeString& path, const CUnicodeString& text) {
  CFile file(path, CFile::ModeCreate | CFile::ModeWrite | CFile::ShareDenyWrite);
  file.Write(LittleEndianMark, 2);
  file.Write(text.Text(), text.Length() * 2);
  file.Close();
}

// Through a storing archive, so that many short lines cost few writes to the
// file. The archive is closed before the file: its buffer holds the tail.
void WriteTextFileLines(const CUnicodeString& path, const CArray<CUnicodeString>& lines) {
  static const wchar_t LineEnd[2] = {13, 10};
  CFile file(path, CFile::ModeCreate | CFile::ModeWrite | CFile::ShareDenyWrite);
  CArchive archive(&file, CArchive::Store, 4096);
  archive.Write(LittleEndianMark, 2);
  for (int32_t i = 0; i < lines.GetSize(); ++i) {
    // The last line has nothing behind it.
    if (i > 0) archive.Write(LineEnd, 4);
    archive.Write(lines[i].Text(), lines[i].Length() * 2);
  }
  archive.Close();
  file.Close();
}

}  // namespace Tsl
