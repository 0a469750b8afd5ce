// Raw bytes of saved text files, read and built without the code under test.
#pragma once

#include <windows.h>

#include <string>

namespace TextFileBytes {

// The whole file, however long.
inline std::string ReadAll(const std::wstring& path) {
  HANDLE handle =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  std::string bytes;
  char buffer[4096];
  DWORD read = 0;
  while (ReadFile(handle, buffer, sizeof buffer, &read, nullptr) && read > 0)
    bytes.append(buffer, read);
  CloseHandle(handle);
  return bytes;
}

// FF FE and the text in UTF-16 little-endian: what a wide text file holds.
inline std::string Utf16WithMark(const std::wstring& text) {
  std::string bytes("\xFF\xFE", 2);
  for (wchar_t unit : text) {
    bytes += char(unit & 0xFF);
    bytes += char(unit >> 8);
  }
  return bytes;
}

}  // namespace TextFileBytes
