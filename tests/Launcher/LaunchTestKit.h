// What the launching and hook-hosting tests share: this test executable
// standing in for the main program or the 64-bit sibling (chosen by an
// environment variable, since the agent starts those with command lines of
// its own), a journal of what such a stand-in saw, guards that put back the
// registry values and the named objects the tests touch, and a services fake
// whose log may be written from the worker thread.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "FakeAgentServices.h"
#include "TestSupport.h"

namespace LaunchTestKit {

// The environment variable that makes a test executable play a program, and
// the ones that steer it. A process started by the code under test inherits
// them.
extern const wchar_t ProgramVariable[];  // "mirdal", "agent64" or "quit"
extern const wchar_t JournalVariable[];  // file the stand-in appends its lines to
extern const wchar_t InitMsVariable[];   // how long the main program initialises
extern const wchar_t CrashVariable[];    // "1": die while initialising, mutex held

// Sets an environment variable of this process for the scope's life (empty
// `value`: removes it), then puts back what stood before.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const wchar_t* name, const std::wstring& value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::wstring name, previous;
  bool existed;
};

// One registry value of HKEY_LOCAL_MACHINE for the scope's life: remembered
// at the start (with whether its key existed), put back or deleted at the
// end, and keys the test created are removed again.
class RegistryValueGuard {
 public:
  RegistryValueGuard(const std::wstring& key, const std::wstring& valueName);
  ~RegistryValueGuard();
  RegistryValueGuard(const RegistryValueGuard&) = delete;
  RegistryValueGuard& operator=(const RegistryValueGuard&) = delete;

  // Stores `units` as the value (type REG_SZ unless told), terminator added.
  void Set(const std::wstring& units, DWORD type = REG_SZ);
  void Remove();

 private:
  std::wstring key, valueName;
  std::vector<std::wstring> createdKeys;  // deepest last, made by this guard
  bool hadValue = false;
  DWORD type = 0;
  std::vector<BYTE> bytes;
};

// The tests of launching and hook hosting take turns across processes: they
// share window classes, the ready mutex and registry values of one session.
// The lock is taken when the fixture is built, before any member of a
// derived fixture remembers a registry value, and given back after the last
// of them has put its value back.
class SerialTest : public ::testing::Test {
 protected:
  SerialTest();
  ~SerialTest() override;

 private:
  HANDLE lock = nullptr;
};

// The agent's services with a log that the worker thread may write while the
// test thread looks.
class CThreadSafeServices : public CFakeAgentServices {
 public:
  CThreadSafeServices() { ::InitializeCriticalSection(&section); }
  ~CThreadSafeServices() override { ::DeleteCriticalSection(&section); }
  void WriteLog(const wchar_t* text) override;
  void DebugOutput(const Tsl::CUnicodeString& text) override;
  std::vector<std::wstring> Log();
  bool Logged(const std::wstring& prefix);

 private:
  CRITICAL_SECTION section;
  std::vector<std::wstring> log;
};

// The path of this test executable.
std::wstring SelfPath();
// The lines of a journal, empty when there is none yet.
std::vector<std::string> ReadJournal(const std::wstring& path);
// Pumps this thread's messages until `done` is true or `timeoutMs` passed;
// returns `done`'s last answer.
template <class Done>
bool PumpUntil(Done done, DWORD timeoutMs) {
  DWORD start = ::GetTickCount();
  for (;;) {
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) ::DispatchMessageW(&message);
    if (done()) return true;
    if (::GetTickCount() - start > timeoutMs) return false;
    ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
  }
}
// Closes whatever stand-in main program runs in the session (its windows by
// class) and waits for its process; kills it after a few seconds.
void CloseStandInMirdal();

}  // namespace LaunchTestKit
