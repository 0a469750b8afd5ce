// CTextStream: the sequential text writer of the foundation. It writes into
// a file, into a storing archive, or to the debug output, in an 8-bit code
// page or in UTF-16 (with a byte order mark at the start of a target). The
// message lists are saved through it.
#pragma once

#include <stdint.h>

#include "unicodestring.h"

namespace Tsl {

class CBaseFile;
class CArchive;

// Encodings of a text stream.
enum ETextEncoding : int32_t {
  TE_Narrow = 0,  // 8-bit, in the stream's code page
  TE_Utf16 = 1,   // UTF-16 little-endian, FF FE at the start of a target
};

class CTextStream {
 public:
  // The target is the file when there is one, else the archive, else the
  // debug output. Neither is owned. `codePage` serves narrow output and the
  // conversion of narrow text: 0 the ANSI page, 1 the OEM page, or a page
  // number. An encoding outside ETextEncoding is an internal error.
  CTextStream(CBaseFile* file, CArchive* archive, int32_t encoding, uint32_t codePage = 0);
  CTextStream(CBaseFile* file, int32_t encoding, uint32_t codePage = 0);
  CTextStream(CArchive* archive, int32_t encoding, uint32_t codePage = 0);
  // To the debug output.
  CTextStream();

  // Writes `count` bytes of narrow text. UTF-16 output converts them from
  // the stream's code page first; a failed conversion writes nothing.
  void WriteText(const char* bytes, int32_t count);
  // Writes `count` units of wide text. Narrow output converts them to the
  // stream's code page first; a failed conversion writes nothing.
  void WriteText(const wchar_t* units, int32_t count);
  void WriteText(const CUnicodeString& text) { WriteText(text.Text(), text.Length()); }
  void WriteText(const CString& text) { WriteText(text.Text(), text.Length()); }
  // Formats with the runtime's wide formatter and writes the result. Line
  // ends are the caller's: nothing is added or translated.
  void WriteFormat(const wchar_t* format, ...);

  // True once the byte order mark has been settled (written or not needed).
  bool IsMarkDone() const { return markDone; }

 private:
  void SettleMark();
  void WriteBytes(const void* bytes, int32_t count);

  CBaseFile* file;    // the target; may be null
  CArchive* archive;  // the target when there is no file; may be null
  int32_t encoding;   // ETextEncoding
  uint32_t codePage;  // of narrow output
  bool markDone;      // the byte order mark question has been settled
};

}  // namespace Tsl
