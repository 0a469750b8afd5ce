// Helpers shared by every test executable: running this same executable again
// as a child process in a named role (for behaviour that ends a process or
// needs a second one), and scratch folders that clean up after themselves.
#pragma once

#include <windows.h>

#include <string>

namespace TestSupport {

// A role is a function that runs instead of the tests when the executable is
// started with --mirdal-child=<name>; its result is the process's exit code.
using ChildRole = int (*)(int argc, wchar_t** argv);

struct RoleRegistrar {
  RoleRegistrar(const char* name, ChildRole role);
};

// Defines a role: MIRDAL_CHILD_ROLE(SecondAgent) { ...; return 0; }
#define MIRDAL_CHILD_ROLE(name)                                                         \
  static int MirdalChildRole_##name(int argc, wchar_t** argv);                          \
  static ::TestSupport::RoleRegistrar mirdalChildRoleRegistrar_##name(#name,            \
                                                                      MirdalChildRole_##name); \
  static int MirdalChildRole_##name([[maybe_unused]] int argc, [[maybe_unused]] wchar_t** argv)

struct ChildResult {
  DWORD exitCode = 0;      // the child's exit code; STILL_ACTIVE when it timed out and was killed
  bool timedOut = false;
  std::string output;      // what the child wrote to stdout and stderr, interleaved
};

// Runs this executable as a child in `role`, with `arguments` appended to its
// command line, and waits for it. A child that outlives `timeoutMs` is killed.
ChildResult RunChild(const char* role, const std::wstring& arguments = L"", DWORD timeoutMs = 30000);

// Starts a child in `role` without waiting; the caller owns the returned
// process handle (close it, or wait on it and close it).
HANDLE StartChild(const char* role, const std::wstring& arguments = L"");

// Called by the test main: runs the role named on the command line, if any.
// Returns true (and sets exitCode) when the process was a child.
bool RunRoleIfChild(int argc, wchar_t** argv, int& exitCode);

// A new, empty folder under the temporary folder, removed with its content
// when the object goes.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::wstring& Path() const { return path_; }
  // The path of `name` inside the folder.
  std::wstring operator/(const std::wstring& name) const { return path_ + L"\\" + name; }

 private:
  std::wstring path_;
};

// Writes bytes to a file, replacing it. Returns false on any failure.
bool WriteBytes(const std::wstring& path, const std::string& bytes);

// UTF-16 to UTF-8 and back, for readable failure messages.
std::string Narrow(const std::wstring& text);
std::wstring Widen(const std::string& text);

}  // namespace TestSupport
