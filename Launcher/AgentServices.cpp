// The binding of the agent's services: the unbound stand-in, whose every call
// is an internal error, and the product's own services, which serve each row
// whose implementation the agent has and leave the others to the stand-in.
#include "AgentServices.h"

#include "LauncherOptions.h"
#include "MdMessages.h"
#include "MdTools/Log.h"
#include "MirdalLaunch.h"
#include "MirdalTrayWnd.h"
#include "Unsup/TesselExt.h"
#include "basefile.h"
#include "errors.h"
#include "filesystem.h"
#include "resourceinfo.h"
#include "setup.h"
#include "tessels.h"

using Tsl::CUnicodeString;

namespace {

const wchar_t Unit[] = L"MirdalAgent";

// Internal error raised by every call of a service that is not bound. The line
// lies apart from those of the entry road so that it never collides.
const int32_t UnboundServiceLine = 1300;

// Stands in while no services are bound: each call is an internal error, and
// where that returns (nobody may throw) a neutral result lets the caller go on.
class CUnboundAgentServices : public IAgentServices {
 public:
  void RegisterResourceModule(const CUnicodeString&) override { Fail(); }
  void RegisterResourcePrefix(const CUnicodeString&, const wchar_t*) override { Fail(); }
  bool InitTessels(const wchar_t*, const wchar_t*) override { return Fail(), false; }
  void DoneTessels() override { Fail(); }
  CUnicodeString GetModuleFolder() override { return Fail(), CUnicodeString(); }
  CUnicodeString GetTempFolder() override { return Fail(), CUnicodeString(); }
  void DebugOutput(const CUnicodeString&) override { Fail(); }
  CUnicodeString ReadTextFile(const CUnicodeString&) override { return Fail(), CUnicodeString(); }
  uint32_t GetInterfaceLanguage() override { return Fail(), 0; }
  uint32_t ChooseShownLanguage(uint32_t, uint32_t) override { return Fail(), 0; }
  void SetCurrentLanguage(uint32_t) override { Fail(); }
  void SetLogDirectory(const CUnicodeString&) override { Fail(); }
  void WriteLog(const wchar_t*) override { Fail(); }
  const wchar_t* GetProductRegistryKey() override { return Fail(), L""; }
  const wchar_t* GetDrillixRegistryKey() override { return Fail(), L""; }
  bool LoadLauncherOptions() override { return Fail(), true; }
  bool ReadStartupAutoStart() override { return Fail(), false; }
  HWND FindMirdalWindow(bool) override { return Fail(), nullptr; }
  HWND RunMirdal(HINSTANCE, const CUnicodeString&) override { return Fail(), nullptr; }
  bool RunDrillix(HINSTANCE, const CUnicodeString&) override { return Fail(), false; }
  CUnicodeString GetTooltip() override { return Fail(), CUnicodeString(); }
  IAgentTrayWindow* CreateTrayWindow(HINSTANCE, UINT, UINT, UINT, UINT, const CUnicodeString&,
                                     const wchar_t*, const wchar_t*, bool, const CUnicodeString&,
                                     const CUnicodeString&) override {
    return Fail(), nullptr;
  }

 private:
  static void Fail() { TSL_INTERNAL_ERROR(Unit, UnboundServiceLine); }
};

// The product's services: every row bound to its implementation.
class CProductAgentServices : public CUnboundAgentServices {
 public:
  void RegisterResourceModule(const CUnicodeString& path) override { Tsl::RegisterResourceModule(path); }
  void RegisterResourcePrefix(const CUnicodeString& folder, const wchar_t* prefix) override {
    Tsl::RegisterResourcePrefix(folder, prefix);
  }
  bool InitTessels(const wchar_t* userKey, const wchar_t* machineKey) override {
    return Tsl::InitTessels(userKey, machineKey);
  }
  void DoneTessels() override { Tsl::DoneTessels(); }
  CUnicodeString GetModuleFolder() override { return Tsl::GetModuleFolder(); }
  CUnicodeString GetTempFolder() override { return Tsl::GetTempFolder(); }
  void DebugOutput(const CUnicodeString& text) override {
    if (!Tsl::IsDebugFlagSet(Tsl::DF_QuietDebugTrace)) OutputDebugStringW(text.Text());
  }
  CUnicodeString ReadTextFile(const CUnicodeString& fileName) override {
    return Tsl::ReadTextFile(fileName);
  }
  uint32_t GetInterfaceLanguage() override { return ::GetInterfaceLanguage(); }
  uint32_t ChooseShownLanguage(uint32_t preferred, uint32_t fallback) override {
    return ::ChooseShownLanguage(preferred, fallback);
  }
  void SetCurrentLanguage(uint32_t language) override { Tsl::SetCurrentLanguage(int32_t(language)); }
  void SetLogDirectory(const CUnicodeString& path) override { ::SetLogDirectory(path); }
  void WriteLog(const wchar_t* text) override { ::WriteLog(text); }
  const wchar_t* GetProductRegistryKey() override { return ::GetProductRegistryKey(); }
  const wchar_t* GetDrillixRegistryKey() override { return ::GetDrillixRegistryKey(); }
  bool LoadLauncherOptions() override {
    CLauncherOptions& options = GetLauncherOptions();
    options.Load();
    return options.ShowTrayWindow;
  }
  // A second, machine-wide way of starting the main program with the session,
  // besides the AutoStart values; built and read on the spot, never cached.
  bool ReadStartupAutoStart() override {
    Tsl::CSetup<bool> startupAutoStart(L"SOFTWARE\\Tavix\\Mirdal\\16\\General", L"StartupAutoStart",
                                       Tsl::SS_LocalMachine, false);
    return startupAutoStart.Get();
  }
  HWND FindMirdalWindow(bool mainWindow) override { return ::FindMirdalWindow(mainWindow); }
  HWND RunMirdal(HINSTANCE instance, const CUnicodeString& arguments) override {
    return ::RunMirdal(instance, arguments);
  }
  bool RunDrillix(HINSTANCE instance, const CUnicodeString& arguments) override {
    return ::RunDrillix(instance, arguments);
  }
  CUnicodeString GetTooltip() override { return ::GetTooltip(); }
  IAgentTrayWindow* CreateTrayWindow(HINSTANCE instance, UINT iconOpen, UINT iconClosed, UINT iconOnline,
                                     UINT iconUpdating, const CUnicodeString& tooltip, const wchar_t* menuName,
                                     const wchar_t* secondMenuName, bool showIcon,
                                     const CUnicodeString& hookLibraryPath,
                                     const CUnicodeString& siblingPath) override {
    CMirdalTrayWnd* window = new CMirdalTrayWnd(instance, iconOpen, iconClosed, iconOnline, iconUpdating, tooltip,
                                                menuName, secondMenuName, showIcon, hookLibraryPath, siblingPath);
    // Until the constructor has returned, the window's messages take the
    // default handling; from here on they reach the object.
    CTrayIconWnd::SetProcessWindow(window);
    return window;
  }
};

IAgentServices* boundServices = nullptr;
CUnboundAgentServices unboundServices;

}  // namespace

IAgentServices* BindAgentServices(IAgentServices* services) {
  IAgentServices* previous = boundServices;
  boundServices = services;
  return previous;
}

IAgentServices& AgentServices() {
  if (boundServices != nullptr) return *boundServices;
  return unboundServices;
}

IAgentServices& GetProductAgentServices() {
  // Never destroyed: the application object, a process-wide object too, may
  // still call services while the statics go.
  static CProductAgentServices* services = new CProductAgentServices;
  return *services;
}
