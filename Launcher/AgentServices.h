// The calls by which the agent's entry road reaches the rest of the system:
// foundation start and end, language, log, options, launching, the tray
// window and text files. The entry is written against this
// interface; whoever provides the services binds one object for the process,
// and tests bind a recording fake.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "unicodestring.h"

// The tray window as the entry road sees it: an object it owns and deletes,
// and whose window must be alive once it is built.
class IAgentTrayWindow {
 public:
  virtual ~IAgentTrayWindow() {}
  virtual HWND GetWindowHandle() const = 0;
};

class IAgentServices {
 public:
  virtual ~IAgentServices() {}

  // Foundation start and end.
  virtual void RegisterResourceModule(const Tsl::CUnicodeString& path) = 0;
  virtual void RegisterResourcePrefix(const Tsl::CUnicodeString& folder, const wchar_t* prefix) = 0;
  // Either key may be null. The agent does not test the result.
  virtual bool InitTessels(const wchar_t* userKey, const wchar_t* machineKey) = 0;
  virtual void DoneTessels() = 0;
  // Folder of the running module, with a trailing backslash.
  virtual Tsl::CUnicodeString GetModuleFolder() = 0;
  // The foundation's folder for temporary files, with a trailing backslash.
  virtual Tsl::CUnicodeString GetTempFolder() = 0;
  // A line of the foundation's debug trace (OutputDebugStringW unless silenced).
  virtual void DebugOutput(const Tsl::CUnicodeString& text) = 0;
  // The whole text of a file; a missing or unreadable file raises a CFileException.
  virtual Tsl::CUnicodeString ReadTextFile(const Tsl::CUnicodeString& fileName) = 0;

  // Language.
  virtual uint32_t GetInterfaceLanguage() = 0;
  virtual uint32_t ChooseShownLanguage(uint32_t preferred, uint32_t fallback) = 0;
  virtual void SetCurrentLanguage(uint32_t language) = 0;

  // The agent log.
  virtual void SetLogDirectory(const Tsl::CUnicodeString& path) = 0;
  virtual void WriteLog(const wchar_t* text) = 0;

  // Registry key paths of the main program and the trainer: zero-terminated
  // texts that live as long as the process.
  virtual const wchar_t* GetProductRegistryKey() = 0;
  virtual const wchar_t* GetDrillixRegistryKey() = 0;
  // Reads the process's launcher options from the registry; returns the
  // ShowTrayWindow value just read.
  virtual bool LoadLauncherOptions() = 0;
  // The machine-wide StartupAutoStart setting of the main program's General key.
  virtual bool ReadStartupAutoStart() = 0;

  // Launching. FindMirdalWindow(true) looks for the main window, (false) for
  // the application window.
  virtual HWND FindMirdalWindow(bool mainWindow) = 0;
  // The main window once the program is ready, else null.
  virtual HWND RunMirdal(HINSTANCE instance, const Tsl::CUnicodeString& arguments) = 0;
  // True when the process was created.
  virtual bool RunDrillix(HINSTANCE instance, const Tsl::CUnicodeString& arguments) = 0;

  // The tray window and what it shows.
  virtual Tsl::CUnicodeString GetTooltip() = 0;
  // Builds the tray window; the caller owns the result. The four icons are
  // those of the main program open, closed, online and updating.
  virtual IAgentTrayWindow* CreateTrayWindow(HINSTANCE instance, UINT iconOpen, UINT iconClosed,
                                             UINT iconOnline, UINT iconUpdating,
                                             const Tsl::CUnicodeString& tooltip, const wchar_t* menuName,
                                             const wchar_t* secondMenuName, bool showIcon,
                                             const Tsl::CUnicodeString& hookLibraryPath,
                                             const Tsl::CUnicodeString& siblingPath) = 0;
};

// Binds the services for the process (null unbinds) and returns the binding
// it replaced. While nothing is bound every service call is an internal error.
IAgentServices* BindAgentServices(IAgentServices* services);

// The bound services; while nothing is bound, an object whose every call is
// an internal error and, where that returns, gives a neutral result.
IAgentServices& AgentServices();

// The product's own services, for the program to bind at its start. Rows
// whose implementation is not part of the build yet are still the
// unbound-service error.
IAgentServices& GetProductAgentServices();
