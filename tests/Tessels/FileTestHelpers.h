// Helpers for the tests of the file layer: string conversions, catching the
// pointer exceptions the library throws, and raw file access that does not go
// through the code under test.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "basefile.h"
#include "errors.h"
#include "unicodestring.h"

namespace FileTest {

// The tests name the library's types unqualified.
using namespace Tsl;
using TestSupport::Narrow;
using TestSupport::ScratchFolder;
using TestSupport::WriteBytes;

inline std::wstring W(const Tsl::CUnicodeString& text) {
  return std::wstring(text.Text(), text.Length());
}
inline std::string N(const Tsl::CUnicodeString& text) { return Narrow(W(text)); }
inline Tsl::CUnicodeString U(const std::wstring& text) { return Tsl::CUnicodeString(text.c_str()); }

// What `action` threw of the library's exceptions; null when it threw nothing.
template <class Action>
std::unique_ptr<Tsl::CException> Catch(Action action) {
  try {
    action();
  } catch (Tsl::CException* exception) {
    return std::unique_ptr<Tsl::CException>(exception);
  }
  return nullptr;
}

// The kind of the file error `action` throws (0 for none, -1 for another
// exception); the error's file name goes to `name`.
template <class Action>
int32_t FileErrorKind(Action action, std::wstring* name = nullptr) {
  std::unique_ptr<Tsl::CException> error = Catch(action);
  auto* fileError = dynamic_cast<Tsl::CFileException*>(error.get());
  if (fileError && name) *name = W(fileError->fileName);
  return fileError ? fileError->kind : error ? -1 : 0;
}

// The first bytes of a file (enough for any test), or "<missing>".
inline std::string ReadBytes(const std::wstring& path) {
  HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  char buffer[256];
  DWORD read = 0;
  bool ok = h != INVALID_HANDLE_VALUE && ReadFile(h, buffer, sizeof buffer, &read, nullptr);
  CloseHandle(h);
  return ok ? std::string(buffer, read) : "<missing>";
}

inline bool Exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace FileTest
