// The agent's entry road: the application object, the command line, the
// single-instance mutexes and the main function from the foundation's start
// to the exit code. Everything here runs on the process's main thread.
#include "MirdalAgent.h"

#include <wctype.h>

#include "MdTools/AtomsEmulation.h"
#include "errors.h"
#include "registrykey.h"
#include "services.h"

using Tsl::CUnicodeString;

namespace {

const wchar_t Unit[] = L"MirdalAgent";


// `folder` and `name` joined by one backslash.
CUnicodeString JoinPath(const CUnicodeString& folder, const wchar_t* name) {
  int32_t length = folder.Length();
  if (length == 0 || folder[length - 1] == L'\\' || folder[length - 1] == L'/') return folder + name;
  return folder + L'\\' + name;
}

// A file beside the program: its folder plus `name`.
CUnicodeString MakeSiblingPath(const wchar_t* name) {
  return JoinPath(AgentServices().GetModuleFolder(), name);
}

// Deletes the tray window; a failure in its destructor is reported, never let
// out, since this runs while the application object goes.
void DeleteTrayWindow(IAgentTrayWindow*& window) {
  IAgentTrayWindow* doomed = window;
  window = nullptr;
  try {
    delete doomed;
  } catch (Tsl::CException* failure) {
    Tsl::ReportException(failure);
    delete failure;
  }
}

}  // namespace

const wchar_t* const AgentLocalMutexName = L"Local\\{F23428BB-BBA7-4318-BDA4-A1A9F1303E3C}";
const wchar_t* const AgentGlobalMutexName = L"Global\\{21C092AB-29CE-4162-9A16-8FAC259C7DD0}";
const wchar_t* const InstallerMutexName = L"Global\\{116BB03F-9063-40a8-9BAA-662E672B6A32}";

// ---------------------------------------------------------------------------
// CCommandLineArguments

void CCommandLineArguments::Parse(const CUnicodeString& text) {
  arguments.DeleteAll();
  switches.DeleteAll();
  fileReads = 0;
  ParseText(text, 0);
  BuildSwitches();
}

// Splits `text` into arguments and adds them; `depth` counts the argument
// files this text is nested in. Returns false when the parse was given up
// (a failure that did not throw), so that no caller goes on with it.
bool CCommandLineArguments::ParseText(const CUnicodeString& text, int32_t depth) {
  const wchar_t* units = text.Text();
  const int32_t length = text.Length();
  int32_t position = 0;
  for (;;) {
    while (position < length && iswspace(units[position])) ++position;
    if (position >= length) return true;

    CUnicodeString argument;
    bool inQuotes = false;
    int32_t runStart = position;  // start of the plain run not yet copied
    while (position < length) {
      wchar_t unit = units[position];
      if (unit == L'"') {
        argument.Append(units + runStart, position - runStart);
        if (inQuotes && position + 1 < length && units[position + 1] == L'"') {
          // Two quotation marks inside quotes stand for one.
          argument.Append(L'"');
          position += 2;
        } else {
          inQuotes = !inQuotes;
          ++position;
        }
        runStart = position;
        continue;
      }
      if (!inQuotes && iswspace(unit)) break;
      ++position;
    }
    argument.Append(units + runStart, position - runStart);
    if (!AddArgument(argument, depth)) return false;
  }
}

// Adds one argument: "@@x" is the argument "@x", "@name" is replaced by the
// arguments in the file `name`, anything else (a lone "@" too) is kept.
bool CCommandLineArguments::AddArgument(const CUnicodeString& argument, int32_t depth) {
  if (argument.Length() < 2 || argument[0] != L'@') {
    arguments.Add(argument);
    return true;
  }
  if (argument[1] == L'@') {
    arguments.Add(argument.Mid(1));
    return true;
  }
  CUnicodeString fileName = argument.Mid(1);
  // A file that names itself, directly or through others, ends at the depth
  // limit. Files that each name the next one twice stay shallow but double
  // the reads at every level: the count of reads bounds that.
  if (depth >= MaxArgumentFileDepth || fileReads >= MaxArgumentFileReads) {
    Tsl::GenerateCheckError(L"ERR_ARGUMENT_FILES_TOO_DEEP", fileName, CUnicodeString());
    return false;
  }
  ++fileReads;
  return ParseText(AgentServices().ReadTextFile(fileName), depth + 1);
}

// Enters every argument in the switch map: "/name:value" and "-name:value"
// (the value may be missing) under their name, any other under the empty name.
void CCommandLineArguments::BuildSwitches() {
  for (int32_t i = 0; i < arguments.GetSize(); ++i) {
    const CUnicodeString& argument = arguments[i];
    if (argument.Length() >= 2 && (argument[0] == L'/' || argument[0] == L'-')) {
      CUnicodeString body = argument.Mid(1);
      int32_t colon = body.Find(L':');
      if (colon < 0)
        switches.Insert(body, CUnicodeString());
      else
        switches.Insert(body.Left(colon), body.Mid(colon + 1));
    } else {
      switches.Insert(CUnicodeString(), argument);
    }
  }
}

bool CCommandLineArguments::HasSwitch(const wchar_t* name) const {
  return switches.Has(CUnicodeString(name));
}

// ---------------------------------------------------------------------------
// CMirdalLauncherApp

CMirdalLauncherApp::CMirdalLauncherApp() : instance(nullptr), trayWnd(nullptr), byInstaller(false) {}

// AgentMain deletes the tray window on both of its roads, before the
// foundation goes; only an object that never went through it (a test's) can
// still hold one here. The mutexes close after this body, as the last fields
// to go.
CMirdalLauncherApp::~CMirdalLauncherApp() {
  if (trayWnd != nullptr) DeleteTrayWindow(trayWnd);
}

void CMirdalLauncherApp::SetInstance(HINSTANCE handle) {
  TSL_ASSERT(instance == nullptr, Unit, 1053);
  TSL_ASSERT(handle != nullptr, Unit, 1054);
  if (instance == nullptr) instance = handle;
}

void CMirdalLauncherApp::SetCommandLine(const CUnicodeString& text) {
  commandLine = text;
  // A plain substring search on the raw text: the mark counts anywhere, also
  // inside another argument.
  byInstaller = commandLine.FindNoCase(L"-ByInstaller") >= 0;
}

bool CMirdalLauncherApp::CaptureMutexes() {
  TSL_ASSERT(!globalMutex.IsOpen(), Unit, 1076);
  TSL_ASSERT(!localMutex.IsOpen(), Unit, 1077);
  IAgentServices& services = AgentServices();
  services.WriteLog(L"Capturing MdAgent mutexes");

  // The single-instance test. A second agent in the session ends silently:
  // only the log and the debug output tell. The mark is made owned and never
  // released: it is closed, still owned, when the application object goes.
  if (!localMutex.Create(AgentLocalMutexName, true, nullptr)) {
    DWORD code = ::GetLastError();
    services.WriteLog(L"Capturing MdAgentLocalMutexName failed...");
    CUnicodeString trace;
    trace.Format(L"MdAgent local: %d\n", static_cast<int>(code));
    services.DebugOutput(trace);
    return false;
  }

  // A null access list opens the global mark to every session and user, so
  // that any program of the product can test it. With a descriptor on the
  // stack these two calls cannot fail.
  SECURITY_DESCRIPTOR descriptor;
  ::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  ::SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
  SECURITY_ATTRIBUTES attributes;
  attributes.nLength = sizeof(attributes);
  attributes.lpSecurityDescriptor = &descriptor;
  attributes.bInheritHandle = FALSE;

  // Agents of other sessions hold the global mark too: finding it is normal.
  // A mark that can't be made or opened raises already; the test below is
  // for the builds in which failures return.
  globalMutex.CreateOrOpen(AgentGlobalMutexName, &attributes);
  if (!globalMutex.IsOpen()) {
    DWORD code = ::GetLastError();
    services.WriteLog(L"Capturing MdAgentGlobalMutexName failed...");
    CUnicodeString trace;
    trace.Format(L"MdAgent global: %d\n", static_cast<int>(code));
    services.DebugOutput(trace);
    return false;
  }

  // The installer starting the agent does not wait for itself.
  if (byInstaller) return true;

  // Only its existence counts: the handle goes again at once. A mark there
  // that can't be opened raises: nothing certain can be said then.
  Tsl::CMutex installer;
  bool installing = installer.Open(InstallerMutexName, READ_CONTROL, false);
  if (installing) services.WriteLog(L"Capturing InstallerMutexName failed...");
  installer.Close();
  return !installing;
}

bool CMirdalLauncherApp::InitInstance() {
  TSL_ASSERT(instance != nullptr, Unit, 1000);
  if (!CaptureMutexes()) return false;

  IAgentServices& services = AgentServices();
  bool showTrayWindow = services.LoadLauncherOptions();
  CUnicodeString hookLibraryPath = MakeSiblingPath(L"MdHook.dll");
  CUnicodeString siblingPath = MakeSiblingPath(L"MdAgent64.exe");
  CUnicodeString tooltip = services.GetTooltip();
  // Icons of the main program open, closed, online and updating.
  trayWnd = services.CreateTrayWindow(instance, 102, 101, 103, 107, tooltip, L"MDA_AGENT", L"MDA_AGENT",
                                      showTrayWindow, hookLibraryPath, siblingPath);
  TSL_ASSERT(trayWnd != nullptr && ::IsWindow(trayWnd->GetWindowHandle()), Unit, 1018);

  // The machine-wide way to have the main program open with the session; it
  // stays quiet when the main program's application window is there already
  // (for instance after the AutoStart values started it).
  if (commandLine.FindNoCase(L"STARTUP") >= 0 && services.ReadStartupAutoStart() &&
      services.FindMirdalWindow(false) == nullptr) {
    services.RunMirdal(instance, L"/OO");
  }
  return true;
}

int32_t CMirdalLauncherApp::ExitInstance() {
  if (trayWnd != nullptr) DeleteTrayWindow(trayWnd);
  return 0;
}

int32_t CMirdalLauncherApp::Run() {
  MSG message = {};
  // -1 (an invalid argument) is not told apart: the loop goes on.
  while (::GetMessageW(&message, nullptr, 0, 0) != 0) {
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
  }
  return static_cast<int32_t>(message.wParam);
}

namespace {
// Built before the main function and destroyed after it, the mutexes with it.
CMirdalLauncherApp theLauncherApp;
}  // namespace

CMirdalLauncherApp& GetLauncherApp() { return theLauncherApp; }

// ---------------------------------------------------------------------------
// Atoms

void SetAtomState(const CUnicodeString& name, bool state) {
  CUnicodeString line = CUnicodeString(L"Setting atom state ") + name + L" to " + (state ? L"true" : L"false");
  AgentServices().WriteLog(line.Text());
  // Setting an atom this process holds already would keep a second handle
  // that clearing never closes: the state is compared first.
  if (IsAtomSet(name) == state) return;
  if (state) {
    SetAtom(name);
    TSL_ASSERT(IsAtomSet(name), Unit, 236);
  } else {
    ClearAtom(name);
    TSL_ASSERT(!IsAtomSet(name), Unit, 239);
  }
}

// ---------------------------------------------------------------------------
// Start-up decisions

bool ReadBoolRegistryValue(HKEY root, const wchar_t* key, const wchar_t* valueName, bool& value) {
  TSL_ASSERT(root == HKEY_CURRENT_USER || root == HKEY_LOCAL_MACHINE, Unit, 1149);
  TSL_ASSERT(key != nullptr && key[0] != 0, Unit, 1150);
  if ((root != HKEY_CURRENT_USER && root != HKEY_LOCAL_MACHINE) || key == nullptr || key[0] == 0) return false;

  // The product's view: the 32-bit registry for a 32-bit build on a 64-bit
  // system, the native one otherwise.
  Tsl::CRegistryKey opened;
  if (!opened.Open(root, key, Tsl::RM_Read, Tsl::RV_32) || opened.GetValueType(valueName) != REG_SZ) return false;
  // The text ends at its first zero: writers may store it with padding
  // behind the terminator, and the product's own option writer does.
  CUnicodeString answer(opened.ReadString(valueName, CUnicodeString()).Text());
  if (answer.CompareNoCase(L"true") == 0) {
    value = true;
    return true;
  }
  if (answer.CompareNoCase(L"false") == 0) {
    value = false;
    return true;
  }
  return false;
}

bool ReadAutoStartFlag(const CCommandLineArguments& arguments, const wchar_t* name, const wchar_t* key) {
  bool value = false;
  if (ReadBoolRegistryValue(HKEY_CURRENT_USER, key, L"AutoStart", value)) return value;
  if (ReadBoolRegistryValue(HKEY_LOCAL_MACHINE, key, L"AutoStart", value)) return value;
  // The switch stands in for a setting that nobody made.
  return arguments.HasSwitch(name);
}

// ---------------------------------------------------------------------------
// The main road

namespace {

// The log-on start of the trainer and the main program, decided by the parsed
// command line. It runs before the mutexes: a second agent started at log-on
// starts both once more before it gives up. Results are not examined.
void StartWithSession(const CCommandLineArguments& arguments, HINSTANCE instance) {
  if (!arguments.HasSwitch(L"STARTUP")) return;
  IAgentServices& services = AgentServices();
  if (ReadAutoStartFlag(arguments, L"Drillix", services.GetDrillixRegistryKey()))
    services.RunDrillix(instance, L"/STARTUP");
  if (ReadAutoStartFlag(arguments, L"Mirdal", services.GetProductRegistryKey()))
    services.RunMirdal(instance, L"/STARTUP");
}

// The part of the road that runs with the foundation up: from the log to the
// end of the message loop. Returns ExitInstance's result.
int RunWithFoundation(CMirdalLauncherApp& app, HINSTANCE instance, const wchar_t* commandText,
                      const wchar_t* processCommandLine) {
  IAgentServices& services = AgentServices();
  // Nothing may be written to the agent log before this.
  services.SetLogDirectory(JoinPath(services.GetTempFolder(), L"MdLogs"));

  CCommandLineArguments arguments;
  arguments.Parse(processCommandLine);
  StartWithSession(arguments, instance);

  services.SetCurrentLanguage(services.ChooseShownLanguage(services.GetInterfaceLanguage(), 0));

  // The switches above were decided on the parsed form; the installer mark
  // and InitInstance's STARTUP test look at this raw text.
  app.SetInstance(instance);
  app.SetCommandLine(commandText);

  // A refused start ends silently: the user exception shows nothing.
  if (!app.InitInstance()) Tsl::GenerateAbort();
  app.Run();
  return app.ExitInstance();
}

struct CAgentMainCall {
  CMirdalLauncherApp* app;
  HINSTANCE instance;
  const wchar_t* commandText;
  const wchar_t* processCommandLine;
};

int GuardedAgentMain(void* context) {
  CAgentMainCall* call = static_cast<CAgentMainCall*>(context);
  return AgentMain(*call->app, call->instance, call->commandText, call->processCommandLine);
}

}  // namespace

int AgentMain(CMirdalLauncherApp& app, HINSTANCE instance, const wchar_t* commandText,
              const wchar_t* processCommandLine) {
  IAgentServices& services = AgentServices();
  // Without the resource library there are no texts: it comes first. A
  // failure up to the foundation's start goes to the caller's frame, and
  // the foundation is then not taken down.
  services.RegisterResourceModule(MakeSiblingPath(L"MirdalRes.dll"));
  services.RegisterResourcePrefix(services.GetModuleFolder(), L"Mirdal");
  services.InitTessels(services.GetProductRegistryKey(), nullptr);

  int exitCode;
  try {
    exitCode = RunWithFoundation(app, instance, commandText, processCommandLine);
  } catch (Tsl::CException* failure) {
    Tsl::ReportException(failure);
    delete failure;
    exitCode = -1;
    // A tray window that the failed road left behind goes now, as on the
    // normal road: its worker thread, hook and atoms end while the
    // foundation and the process-wide objects are all still there.
    app.ExitInstance();
  }
  services.DoneTessels();
  return exitCode;
}

int AgentMain(HINSTANCE instance, HINSTANCE /*previous*/, const wchar_t* commandText, int /*show*/) {
  return AgentMain(GetLauncherApp(), instance, commandText, ::GetCommandLineW());
}

int RunAgentGuarded(CMirdalLauncherApp& app, HINSTANCE instance, const wchar_t* commandText,
                    const wchar_t* processCommandLine) {
  CAgentMainCall call = {&app, instance, commandText, processCommandLine};
  return Tsl::RunThreadEntryGuarded(GuardedAgentMain, &call);
}

int AgentEntry(HINSTANCE instance, HINSTANCE /*previous*/, const wchar_t* commandText, int /*show*/) {
  return RunAgentGuarded(GetLauncherApp(), instance, commandText, ::GetCommandLineW());
}
