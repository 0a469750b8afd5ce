// CArchive: the buffered, one-way binary stream over a CBaseFile by which the
// system saves and restores data and hands records to other processes. Plain
// values go as they lie in memory; lengths, strings and objects (by class
// name, with a name table inside the stream) go in a compact form.
#pragma once

#include <stdint.h>
#include <string.h>

#include "Map.h"
#include "Object.h"
#include "array.h"
#include "basefile.h"
#include "hashtable.h"
#include "unicodestring.h"

namespace Tsl {

// The stream has no header, magic or version of its own: it is exactly what
// its writer wrote, and it may begin in the middle of a file. Positions count
// from the point where the archive began. An archive belongs to one thread.
//
// Failures: a stream that ends early is the file error of kind end of file
// with the archive's name; a malformed length or class code ERR_BAD_ARCHIVE,
// a class this program doesn't know ERR_BAD_ARCHIVE_VERSION, both with the
// archive's name; a length beyond any possible string the memory error.
// Misuse (reading a storing archive, a negative count, a closed archive) is
// an internal error.
class CArchive {
 public:
  enum EDirection : int32_t {
    Closed = 0,
    Load = 1,
    Store = 2,
  };
  static constexpr int32_t InlineBufferSize = 4096;

  // Opens at once on `file` for `direction` (Load or Store). The buffer is
  // the greater of `bufferSize` and 4,096 bytes. The archive doesn't own the
  // file, and must be closed before the file is closed or used again.
  CArchive(CBaseFile* file, int32_t direction, int32_t bufferSize = InlineBufferSize);
  // Closes. A failure of the closing flush is reported and goes no further;
  // a caller that must know that the data reached the file calls Close.
  virtual ~CArchive();
  CArchive(const CArchive&) = delete;
  CArchive& operator=(const CArchive&) = delete;

  // A new object read from the stream with its class name, holding one
  // reference; null for a stored null pointer.
  virtual CPtr<IObject> ReadObject();
  // Writes the object's class name and then its data; null writes the name
  // of a null pointer. The object's type must be registered.
  virtual void WriteObject(IObject* object);
  // Forgets the class names met so far, as at the start of a stream.
  virtual void ResetObjectTables();

  // Opening a closed archive: `file` not null and no file set, else an
  // internal error. Takes the file's name; asks nothing of its position.
  void Open(CBaseFile* file, int32_t direction);
  // Flushes, then closes; nothing when closed already.
  void Close();
  // Load: steps the file back over what was read ahead, so that the file
  // stands where the reader stands. Store: writes the buffer to the file.
  void Flush();
  // Bytes read or written since the archive began.
  int64_t GetPosition() const;

  bool IsOpen() const { return file != nullptr; }
  bool IsLoading() const { return direction == Load; }
  bool IsStoring() const { return direction == Store; }
  int32_t GetDirection() const { return direction; }
  // The file's name, taken at opening; the parameter of the archive's errors.
  const CUnicodeString& GetName() const { return name; }
  CBaseFile* GetFile() const { return file; }
  int32_t GetBufferSize() const { return bufferSize; }
  // The high-water mark of bytes that reached the file.
  int64_t GetStoredLength() const { return length; }

  // Exactly `count` bytes or the end-of-file error. A single byte costs one
  // comparison and one copy while the buffer holds it.
  void Read(void* data, int32_t count) {
    // One comparison serves all checks: bytes are left only in a loading
    // archive (a storing one never has any), and count 0 and negative counts
    // wrap round to values above any count of bytes left.
    if (uint32_t(count) - 1 < uint32_t(bytesLeft)) {
      memcpy(data, readEnd - bytesLeft, uint32_t(count));
      bytesLeft -= count;
      return;
    }
    ReadThroughFile(data, count);
  }
  // Stays in the buffer while that leaves it short of full: a full buffer is
  // always written at once.
  void Write(const void* data, int32_t count) {
    if (direction == Store && count >= 0 && count < bufferSize - bufferPosition) {
      memcpy(buffer + bufferPosition, data, size_t(count));
      bufferPosition += count;
      if (bytesLeft > 0) bytesLeft = bytesLeft > count ? bytesLeft - count : 0;
      return;
    }
    WriteThroughFile(data, count);
  }

  // Compact number: 0..254 in one byte, anything else (negative numbers
  // too) as 0xFF and then the number in 32 bits.
  void WriteCount(int32_t value) {
    if (uint32_t(value) < 0xFF) {
      WriteValue(uint8_t(value));
      return;
    }
    WriteLongCount(value);
  }
  int32_t ReadCount() {
    uint8_t first = ReadValue<uint8_t>();
    return first != 0xFF ? first : ReadValue<int32_t>();
  }

  // Narrow text: a compact length in bytes, then the bytes.
  void WriteNarrow(const CString& text);
  void ReadNarrow(CString& text);

  // Raw values in the processor's little-endian layout and natural size.
  template <class T>
  void WriteValue(T value) {
    Write(&value, int32_t(sizeof(T)));
  }
  template <class T>
  T ReadValue() {
    T value;
    Read(&value, int32_t(sizeof(T)));
    return value;
  }

  // Streaming of plain values.
  CArchive& operator<<(bool value) {
    WriteValue(uint8_t(value ? 1 : 0));
    return *this;
  }
  CArchive& operator<<(char value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(signed char value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(unsigned char value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(int16_t value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(uint16_t value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(wchar_t value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(int32_t value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(uint32_t value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(long value) {
    WriteValue(int32_t(value));
    return *this;
  }  // LONG: 32 bits here
  CArchive& operator<<(unsigned long value) {
    WriteValue(uint32_t(value));
    return *this;
  }  // DWORD
  CArchive& operator<<(int64_t value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(uint64_t value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(float value) {
    WriteValue(value);
    return *this;
  }
  CArchive& operator<<(double value) {
    WriteValue(value);
    return *this;
  }
  // A pointer has no archive form: text goes as a string, an object through
  // WriteObject. Without this a pointer would quietly become a bool.
  template <class T>
  CArchive& operator<<(const T* pointer) = delete;

  CArchive& operator>>(bool& value) {
    value = ReadValue<uint8_t>() != 0;
    return *this;
  }
  CArchive& operator>>(char& value) {
    value = ReadValue<char>();
    return *this;
  }
  CArchive& operator>>(signed char& value) {
    value = ReadValue<signed char>();
    return *this;
  }
  CArchive& operator>>(unsigned char& value) {
    value = ReadValue<unsigned char>();
    return *this;
  }
  CArchive& operator>>(int16_t& value) {
    value = ReadValue<int16_t>();
    return *this;
  }
  CArchive& operator>>(uint16_t& value) {
    value = ReadValue<uint16_t>();
    return *this;
  }
  CArchive& operator>>(wchar_t& value) {
    value = ReadValue<wchar_t>();
    return *this;
  }
  CArchive& operator>>(int32_t& value) {
    value = ReadValue<int32_t>();
    return *this;
  }
  CArchive& operator>>(uint32_t& value) {
    value = ReadValue<uint32_t>();
    return *this;
  }
  CArchive& operator>>(long& value) {
    value = ReadValue<int32_t>();
    return *this;
  }
  CArchive& operator>>(unsigned long& value) {
    value = ReadValue<uint32_t>();
    return *this;
  }
  CArchive& operator>>(int64_t& value) {
    value = ReadValue<int64_t>();
    return *this;
  }
  CArchive& operator>>(uint64_t& value) {
    value = ReadValue<uint64_t>();
    return *this;
  }
  CArchive& operator>>(float& value) {
    value = ReadValue<float>();
    return *this;
  }
  CArchive& operator>>(double& value) {
    value = ReadValue<double>();
    return *this;
  }

  // ERR_BAD_ARCHIVE with the archive's name. Returns only where nothing may
  // throw; for the readers of the system's own records too.
  void GenerateBadArchiveError() const;

 private:
  void ReadThroughFile(void* data, int32_t count);
  void WriteThroughFile(const void* data, int32_t count);
  void WriteLongCount(int32_t value);
  CUnicodeString ReadClassName(int32_t code);
  void WriteClassName(const CUnicodeString& className);

  CBaseFile* file;             // null when closed; not owned
  CUnicodeString name;         // the file's name, for errors
  int32_t direction;           // EDirection
  uint8_t* buffer;             // inlineBuffer, or a block of the current memory manager
  int32_t bufferSize;          // the greater of the size asked for and 4,096
  int64_t startPosition;       // file position of the archive's first byte; positions count from it
  int64_t bufferFilePosition;  // file position that the buffer corresponds to
  int64_t length;              // high-water mark of bytes stored
  // Store: the next byte in the buffer. Load: 0; the reader's next byte is
  // readEnd - bytesLeft, so that a read changes one field only, which is
  // what keeps small reads cheap.
  int32_t bufferPosition;
  // Load: bytes read ahead, not yet taken. Store: valid bytes after the
  // buffer position, which stay 0 since writing only appends; the fast path
  // of Read counts on that. Closed: 0.
  int32_t bytesLeft;
  const uint8_t* readEnd;  // load: one past the last byte that the file gave
  // Store: class name to its code, the first code of each name being odd.
  CMap<CUnicodeString, int32_t> nameCodes;
  // Load: the class names in the order of their first appearance.
  CArray<CUnicodeString> names;
  // Emptied with the others; nothing enters it yet.
  CHashTable<const void*> objectTable;
  uint8_t inlineBuffer[InlineBufferSize];
};

// CString in the archive: compact length in bytes, then the bytes.
inline CArchive& operator<<(CArchive& archive, const CString& text) {
  archive.WriteNarrow(text);
  return archive;
}
inline CArchive& operator>>(CArchive& archive, CString& text) {
  archive.ReadNarrow(text);
  return archive;
}

// Objects held by reference-counted pointers.
template <class T>
inline CArchive& operator<<(CArchive& archive, const CPtr<T>& object) {
  archive.WriteObject(object.Get());
  return archive;
}

}  // namespace Tsl
