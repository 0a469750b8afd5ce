// CTextStream: text into a file, a storing archive or the debug output,
// narrow or UTF-16. Only encoding and the byte order mark are its business;
// line ends are written as the caller gives them.
#include "textstream.h"

#include <stdarg.h>

#include "archive.h"
#include "basefile.h"
#include "errors.h"
#include "tessels.h"

namespace Tsl {

static const wchar_t* const Unit = L"textstream";

static const uint8_t LittleEndianMark[2] = {0xFF, 0xFE};

static bool IsValidEncoding(int32_t encoding) { return encoding == TE_Narrow || encoding == TE_Utf16; }

// The text through "%s" to the debugger, unless the foundation's trace is
// silenced; a text with "%" in it goes out as it stands.
static void WriteDebugOutput(const CUnicodeString& text) {
  if (IsDebugFlagSet(DF_QuietDebugTrace) || text.IsEmpty()) return;
  CUnicodeString line;
  line.Format(L"%s", text.Text());
  ::OutputDebugStringW(line.Text());
}

CTextStream::CTextStream(CBaseFile* file, CArchive* archive, int32_t encoding, uint32_t codePage)
    : file(file), archive(file != nullptr ? nullptr : archive), encoding(encoding), codePage(codePage),
      markDone(false) {
  TSL_ASSERT(IsValidEncoding(encoding), Unit, 33);
}

CTextStream::CTextStream(CBaseFile* file, int32_t encoding, uint32_t codePage)
    : CTextStream(file, nullptr, encoding, codePage) {}

CTextStream::CTextStream(CArchive* archive, int32_t encoding, uint32_t codePage)
    : CTextStream(nullptr, archive, encoding, codePage) {}

CTextStream::CTextStream() : CTextStream(nullptr, nullptr, TE_Utf16, 0) {}

// Before the first write: UTF-16 into a target that is still empty starts
// with FF FE. A file that already holds something is being appended to and
// has its mark, or never had one; it gets none.
void CTextStream::SettleMark() {
  if (markDone) return;
  markDone = true;
  if (encoding != TE_Utf16) return;
  bool atStart = false;
  if (file != nullptr)
    atStart = file->GetLength() == 0;
  else if (archive != nullptr)
    atStart = archive->GetPosition() == 0;
  if (atStart) WriteBytes(LittleEndianMark, 2);
}

void CTextStream::WriteBytes(const void* bytes, int32_t count) {
  if (count <= 0) return;
  if (file != nullptr)
    file->Write(bytes, count);
  else
    archive->Write(bytes, count);
}

// Narrow text: as it stands into narrow output, converted from the stream's
// page into UTF-16 output. A zero byte ends the text when it is converted.
void CTextStream::WriteText(const char* bytes, int32_t count) {
  TSL_ASSERT(count >= 0 && (bytes != nullptr || count == 0), Unit, 70);
  TSL_ASSERT(IsValidEncoding(encoding), Unit, 71);
  if (count < 0 || (bytes == nullptr && count > 0) || !IsValidEncoding(encoding)) return;
  if (file == nullptr && archive == nullptr) {
    WriteDebugOutput(CUnicodeString(bytes, count, codePage));
    return;
  }
  SettleMark();
  if (encoding == TE_Narrow) {
    WriteBytes(bytes, count);
    return;
  }
  // A failed conversion is the empty string: nothing is written.
  CUnicodeString wide(bytes, count, codePage);
  WriteBytes(wide.Text(), wide.Length() * 2);
}

// Wide text: as it stands into UTF-16 output, converted to the stream's page
// into narrow output. A zero unit ends the text when it is converted.
void CTextStream::WriteText(const wchar_t* units, int32_t count) {
  TSL_ASSERT(count >= 0 && (units != nullptr || count == 0), Unit, 90);
  TSL_ASSERT(IsValidEncoding(encoding), Unit, 91);
  if (count < 0 || (units == nullptr && count > 0) || !IsValidEncoding(encoding)) return;
  if (file == nullptr && archive == nullptr) {
    WriteDebugOutput(CUnicodeString::FromBounded(units, count));
    return;
  }
  SettleMark();
  if (encoding == TE_Utf16) {
    WriteBytes(units, count * 2);
    return;
  }
  // A failed conversion is the empty string: nothing is written.
  CString narrow = CUnicodeString::FromBounded(units, count).ToNarrow(codePage);
  WriteBytes(narrow.Text(), narrow.Length());
}

void CTextStream::WriteFormat(const wchar_t* format, ...) {
  TSL_ASSERT(format != nullptr, Unit, 108);
  if (format == nullptr) return;
  CUnicodeString text;
  va_list arguments;
  va_start(arguments, format);
  text.FormatV(format, arguments);
  va_end(arguments);
  WriteText(text);
}

}  // namespace Tsl
