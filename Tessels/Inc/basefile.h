// The one byte-stream interface of the foundation (CBaseFile), the file that
// users open by path (CFile, which delegates to whatever file system owns the
// path), its open flags, and the whole-file text operations. Everything that
// reads or writes bytes (archives, logs, ini files, settings) goes through here.
#pragma once

#include <stdint.h>
#include <windows.h>

#include "array.h"
#include "unicodestring.h"

namespace Tsl {

class CFileSystemBase;

// Origins of CBaseFile::Seek; they are the platform's own values.
enum ESeekOrigin : int32_t {
  SeekBegin = 0,
  SeekCurrent = 1,
  SeekEnd = 2,
};

// An abstract byte stream with 64-bit sizes and positions. Counts of one Read
// or Write are 32-bit. Every failure leaves as a CFileException; misuse (a
// closed file, a bad count) is an assertion. The order of the virtual
// operations is part of the design: implementations keep it.
class CBaseFile {
 public:
  virtual ~CBaseFile() {}
  // The file's name as errors and messages show it.
  virtual CUnicodeString GetFileName() const = 0;
  // Reads up to `count` bytes; returns how many were read (0 at the end).
  virtual int32_t Read(void* buffer, int32_t count) = 0;
  // Writes all `count` bytes or throws.
  virtual void Write(const void* buffer, int32_t count) = 0;
  virtual int64_t GetPosition() const = 0;
  // `origin` is an ESeekOrigin; returns the new position.
  virtual int64_t Seek(int64_t offset, int32_t origin) = 0;
  virtual void SetLength(int64_t length) = 0;
  virtual int64_t GetLength() const = 0;
  // Closes and reports no failure.
  virtual void Abort() = 0;
  virtual void Flush() = 0;
  // Closes and reports failure by exception.
  virtual void Close() = 0;
  // True when the position stands at the length.
  virtual bool IsEndOfFile() const;

  int64_t SeekToBegin() { return Seek(0, SeekBegin); }
  // The length as 32 bits; a length outside 0..0x7FFFFFFF is an assertion.
  int32_t GetLength32() const;
};

// A file opened by path. The path picks the file system (native or virtual),
// which makes the implementation object; CFile owns that object but always
// gives it back through the same file system, never by deleting it.
class CFile : public CBaseFile {
 public:
  // Open flags: one 32-bit word, combined by addition or or. They are the
  // system's public vocabulary and keep these values.
  enum : uint32_t {
    ModeRead = 0x0,  // low two bits: access
    ModeWrite = 0x1,
    ModeReadWrite = 0x2,
    ShareExclusive = 0x10,  // bits 0x70: share
    ShareDenyWrite = 0x20,
    ShareDenyRead = 0x30,
    ShareDenyNone = 0x40,
    ModeCreate = 0x1000,
    ModeNoTruncate = 0x2000,  // only with ModeCreate: open an existing file as it is
    ModeCreateNew = 0x4000,   // only without ModeCreate: fail when the file exists
    // Not an open mode: given to FileExists, asks for existence alone and
    // tries no open (also true for a directory or a wildcard match).
    ModeExistenceOnly = 0xFF00FF00,
  };
  static const uint32_t AccessMask = 0x3;
  static const uint32_t ShareMask = 0x70;

  CFile();
  // The same as Open(path, flags).
  CFile(const CUnicodeString& path, uint32_t flags);
  // Closes an open file; a failure of that close is reported, never thrown.
  ~CFile() override;
  CFile(const CFile&) = delete;
  CFile& operator=(const CFile&) = delete;

  // Open(path, flags, FILE_ATTRIBUTE_NORMAL, 0).
  void Open(const CUnicodeString& path, uint32_t flags);
  // Opens `path` (made full and normal first) through its file system.
  // `initialSize` is used only by a virtual file, as the size of its first
  // block. Throws CFileException; the object then stays closed.
  void Open(const CUnicodeString& path, uint32_t flags, uint32_t attributes, int64_t initialSize);
  bool IsOpen() const { return implementation != nullptr; }

  CUnicodeString GetFileName() const override;
  int32_t Read(void* buffer, int32_t count) override;
  void Write(const void* buffer, int32_t count) override;
  int64_t GetPosition() const override;
  int64_t Seek(int64_t offset, int32_t origin) override;
  void SetLength(int64_t length) override;
  int64_t GetLength() const override;
  // Close and Abort do nothing on a closed file. Both mark the object closed
  // before the file system closes the implementation, so it is closed even
  // when that throws.
  void Abort() override;
  void Flush() override;
  void Close() override;

  // The object made by the file system, null while closed.
  CBaseFile* GetImplementation() const { return implementation; }

  // Translation of the flags for the file systems. Each asserts a valid
  // field: access 3, or a share field outside the four values.
  static uint32_t AccessOfFlags(uint32_t flags);       // GENERIC_READ / GENERIC_WRITE
  static uint32_t ShareOfFlags(uint32_t flags);        // FILE_SHARE_* mask
  static uint32_t DispositionOfFlags(uint32_t flags);  // OPEN_EXISTING, CREATE_NEW, ...

 private:
  void CloseThrough(bool abort);

  CBaseFile* implementation;    // null while closed
  CFileSystemBase* fileSystem;  // the file system that made `implementation`
};

// Whole-file text. Reading accepts the marks FF FE, FE FF and EF BB BF and
// falls back to the ANSI code page without one; a zero in the text becomes a
// blank. Writing is always UTF-16 little-endian with the mark FF FE.
CUnicodeString ReadTextFile(const CUnicodeString& path);
// The same over an open file standing at its start: what ReadTextFile does
// after opening (read, deny write). A file shorter than its length said
// raises end of file; a UTF-16 file of odd length, ERR_BAD_TEXT_FILE.
CUnicodeString ReadText(CBaseFile& file);
// Empties `lines` and fills it with the lines of the file (see SplitTextLines).
void ReadTextFileLines(const CUnicodeString& path, CArray<CUnicodeString>& lines);
// Creates or replaces the file with FF FE and the text's units.
void WriteTextFile(const CUnicodeString& path, const CUnicodeString& text);
// Creates or replaces the file with FF FE and the lines, each but the last
// followed by CR LF.
void WriteTextFileLines(const CUnicodeString& path, const CArray<CUnicodeString>& lines);

// Empties `lines` and cuts `text` at each LF, CR, VT, FF, U+2028 and U+2029;
// CR LF is one break. A break at the very end is followed by one empty line;
// an empty text gives no lines.
void SplitTextLines(const CUnicodeString& text, CArray<CUnicodeString>& lines);

}  // namespace Tsl
