// The agent's entry road: the process-wide application object, the parsed
// command line, the single-instance mutexes, the log-on autostart decision and
// the main function that takes one process from its start to its exit code.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "AgentServices.h"
#include "Mutex.h"
#include "Map.h"
#include "array.h"
#include "unicodestring.h"

// The product's major version: it stands in the registry keys, in the Md16_
// prefix of window classes, messages and atoms, and in the instance protocol.
const int32_t AgentVersion = 16;

// Names of the single-instance marks. Other programs of the product test them,
// so they are wire format.
extern const wchar_t* const AgentLocalMutexName;      // one agent per session
extern const wchar_t* const AgentGlobalMutexName;     // one per running agent of any session
extern const wchar_t* const InstallerMutexName;       // an installation is running

// Parsed command line: the arguments, with "@file" arguments replaced by the
// parsed content of the file, and a multi-map from switch name (any case) to
// switch value. An argument that is no switch is entered with an empty name.
class CCommandLineArguments {
 public:
  CCommandLineArguments() {}
  CCommandLineArguments(const CCommandLineArguments&) = delete;
  CCommandLineArguments& operator=(const CCommandLineArguments&) = delete;

  // Replaces the content by the parse of `text`. Raises the error of
  // ReadTextFile for an "@file" that can't be read, and a CCheckException
  // ("ERR_ARGUMENT_FILES_TOO_DEEP" with the file name) for argument files
  // nested deeper than MaxArgumentFileDepth, which is how a file that names
  // itself ends, or for more than MaxArgumentFileReads reads in one parse,
  // which is how files that each name the next one twice end.
  void Parse(const Tsl::CUnicodeString& text);
  // True when the map holds `name`, compared without regard to case.
  bool HasSwitch(const wchar_t* name) const;

  int32_t GetArgumentCount() const { return arguments.GetSize(); }
  const Tsl::CUnicodeString& GetArgument(int32_t index) const { return arguments[index]; }

  static const int32_t MaxArgumentFileDepth = 32;
  static const int32_t MaxArgumentFileReads = 256;

 private:
  bool ParseText(const Tsl::CUnicodeString& text, int32_t depth);
  bool AddArgument(const Tsl::CUnicodeString& argument, int32_t depth);
  void BuildSwitches();

  Tsl::CArray<Tsl::CUnicodeString> arguments;
  int32_t fileReads = 0;  // argument files read by the parse under way
  // Switch name to value; a name may stand more than once.
  Tsl::CMap<Tsl::CUnicodeString, Tsl::CUnicodeString, Tsl::CNoCaseKeyTraits> switches;
};

// The agent application: one process-wide object (GetLauncherApp), built
// before the main function and destroyed after it, which takes the mutexes
// with it. It is never deleted through a pointer, so its destructor needs no
// virtual slot; tests build their own objects and derive from it.
class CMirdalLauncherApp {
 public:
  CMirdalLauncherApp();
  ~CMirdalLauncherApp();
  CMirdalLauncherApp(const CMirdalLauncherApp&) = delete;
  CMirdalLauncherApp& operator=(const CMirdalLauncherApp&) = delete;

  // Everything from the mutexes to the autostart decision; false when another
  // agent runs in this session or an installation is running.
  virtual bool InitInstance();
  // Deletes the tray window; always 0.
  virtual int32_t ExitInstance();
  // The message loop, until WM_QUIT.
  virtual int32_t Run();

  // Stores the module handle, once; a second call or a null handle is an
  // internal error.
  void SetInstance(HINSTANCE handle);
  // Stores the command text; "-ByInstaller" anywhere in it, in any case,
  // marks a start by the installer.
  void SetCommandLine(const Tsl::CUnicodeString& text);
  // Takes the local and the global mark and checks for a running
  // installation. False when this agent must not run.
  bool CaptureMutexes();

  HINSTANCE GetInstance() const { return instance; }
  IAgentTrayWindow* GetTrayWindow() const { return trayWnd; }
  const Tsl::CUnicodeString& GetCommandLine() const { return commandLine; }
  bool IsByInstaller() const { return byInstaller; }
  const Tsl::CMutex& GetGlobalMutex() const { return globalMutex; }
  const Tsl::CMutex& GetLocalMutex() const { return localMutex; }

 private:
  HINSTANCE instance;
  IAgentTrayWindow* trayWnd;  // owned; null until its constructor returned
  Tsl::CUnicodeString commandLine;
  Tsl::CMutex globalMutex;
  Tsl::CMutex localMutex;
  bool byInstaller;
};

// The process-wide application object.
CMirdalLauncherApp& GetLauncherApp();

// Brings the atom `name` to `state`, the agent's only way to change an atom.
// Writes "Setting atom state <name> to true|false" to the agent log first,
// then does nothing when the atom already reads so; otherwise sets or clears
// it and reads it back. An atom that doesn't read as set afterwards is an
// internal error of MirdalAgent at line 236, one that still reads as set
// after clearing one at line 239 (another process holds it too). Main thread
// only: the atoms of this process are kept without a lock.
void SetAtomState(const Tsl::CUnicodeString& name, bool state);

// Reads a REG_SZ value "true" or "false" (any case) from `root` (current user
// or local machine) in the 32-bit view. Returns false when the key or value is
// missing, is no string, or holds any other text; then `value` is untouched.
bool ReadBoolRegistryValue(HKEY root, const wchar_t* key, const wchar_t* valueName, bool& value);

// Whether a program of the product (`name`: "Mirdal" or "Drillix", with its
// registry key `key`) starts with the session: AutoStart under the current
// user, else under the machine, else whether the command line has the switch
// `name`.
bool ReadAutoStartFlag(const CCommandLineArguments& arguments, const wchar_t* name, const wchar_t* key);

// The main road of one agent process, up to its exit code: -1 when the start
// was refused or a failure reached it, else what ExitInstance gave. A failure
// before the foundation runs passes out to the caller. `processCommandLine`
// is the full command line of the process (GetCommandLineW), `commandText`
// the one without the program's name.
int AgentMain(CMirdalLauncherApp& app, HINSTANCE instance, const wchar_t* commandText,
              const wchar_t* processCommandLine);
int AgentMain(HINSTANCE instance, HINSTANCE previous, const wchar_t* commandText, int show);

// The top frame: AgentMain inside the thread's entry guard, which reports a
// failure that escaped it and gives -1.
int RunAgentGuarded(CMirdalLauncherApp& app, HINSTANCE instance, const wchar_t* commandText,
                    const wchar_t* processCommandLine);
// What the executable's entry calls, with the arguments the runtime gives it.
int AgentEntry(HINSTANCE instance, HINSTANCE previous, const wchar_t* commandText, int show);
