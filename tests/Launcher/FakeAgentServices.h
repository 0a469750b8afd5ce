// A recording stand-in for the agent's services and the foundation's failure
// reports: each call goes to one list in order, so that tests can check the
// road's steps, and each service answers from fields the test sets. It binds
// itself for its lifetime.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "AgentServices.h"
#include "errors.h"
#include "services.h"

inline std::wstring CallText(const Tsl::CUnicodeString& text) {
  return std::wstring(text.Text(), text.Length());
}

// A tray window whose handle is a live window, or null for one that died
// while it was built. Its end is recorded.
struct CFakeTrayWindow : IAgentTrayWindow {
  CFakeTrayWindow(std::vector<std::wstring>& calls, bool alive) : calls(calls), alive(alive) {}
  ~CFakeTrayWindow() override { calls.push_back(L"~TrayWindow"); }
  HWND GetWindowHandle() const override { return alive ? GetDesktopWindow() : nullptr; }
  std::vector<std::wstring>& calls;
  bool alive;
};

class CFakeAgentServices : public IAgentServices, public Tsl::IFoundationServices {
 public:
  CFakeAgentServices()
      : previousAgent(BindAgentServices(this)),
        previousFoundation(Tsl::BindFoundationServices(this)) {}
  ~CFakeAgentServices() override {
    BindAgentServices(previousAgent);
    Tsl::BindFoundationServices(previousFoundation);
  }

  // What the services answer. The keys exist nowhere unless a test makes them.
  std::wstring productKey = L"Software\\Tavix\\MirdalTest\\none\\Mirdal";
  bool startupAutoStart = false;
  HWND mirdalAppWindow = nullptr;  // what FindMirdalWindow(false) finds
  bool trayWindowAlive = true;
  std::map<std::wstring, std::wstring> files;  // for ReadTextFile; others are missing
  std::wstring failingCall;  // calls that begin so raise a CCheckException instead

  // What happened: "Name(argument,...)" in order, and the reported failures.
  std::vector<std::wstring> calls, reports;

  // "user", "internal:<unit>:<line>", "check:<message>:<first parameter>",
  // "file:<kind>:<name>" or "other".
  static std::wstring Describe(Tsl::CException* failure) {
    if (dynamic_cast<Tsl::CUserException*>(failure)) return L"user";
    if (auto* internal = dynamic_cast<Tsl::CInternalError*>(failure))
      return L"internal:" + std::wstring(internal->file) + L":" + std::to_wstring(internal->line);
    if (auto* check = dynamic_cast<Tsl::CCheckException*>(failure))
      return L"check:" + std::wstring(check->messageName) + L":" + CallText(check->params[0]);
    if (auto* file = dynamic_cast<Tsl::CFileException*>(failure))
      return L"file:" + std::to_wstring(file->kind) + L":" + CallText(file->fileName);
    return L"other";
  }
  bool Called(const std::wstring& call) const {
    return std::find(calls.begin(), calls.end(), call) != calls.end();
  }
  // `expected` appear in `calls` in this order, others may lie between.
  ::testing::AssertionResult CallsInOrder(const std::vector<std::wstring>& expected) const {
    size_t at = 0;
    for (const std::wstring& call : calls) at += at < expected.size() && call == expected[at];
    if (at == expected.size()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << ::testing::PrintToString(calls);
  }
  // Records the call `name(arguments)` and raises when it is the failing one.
  template <class... Arguments>
  void Enter(const char* name, const Arguments&... arguments) {
    std::wstring call(name, name + strlen(name)), list;
    ((list += L"," + Text(arguments)), ...);
    calls.push_back(list.empty() ? call : call + L"(" + list.substr(1) + L")");
    if (!failingCall.empty() && calls.back().compare(0, failingCall.size(), failingCall) == 0)
      Tsl::GenerateCheckError(L"ERR_TEST_FAILURE", failingCall.c_str(), Tsl::CUnicodeString());
  }

  // Every service records its call and those with a result answer
  // from the fields.
  using Chars = const wchar_t*;
  using String = Tsl::CUnicodeString;
  using Str = const Tsl::CUnicodeString&;
  void RegisterResourceModule(Str a) override { Enter(__func__, a); }
  void RegisterResourcePrefix(Str a, Chars b) override { Enter(__func__, a, b); }
  bool InitTessels(Chars a, Chars b) override { return Enter(__func__, a, b), true; }
  void DoneTessels() override { Enter(__func__); }
  String GetModuleFolder() override { return L"C:\\Agent\\"; }
  String GetTempFolder() override { return L"C:\\Temp"; }
  void DebugOutput(Str a) override { Enter(__func__, a); }
  String ReadTextFile(Str a) override {
    if (Enter(__func__, a), !files.count(CallText(a)))
      Tsl::GenerateFileError(ERROR_FILE_NOT_FOUND, a);
    return files[CallText(a)].c_str();
  }
  uint32_t GetInterfaceLanguage() override { return 0x407; }
  uint32_t ChooseShownLanguage(uint32_t a, uint32_t b) override {
    return Enter(__func__, a, b), 0x409;
  }
  void SetCurrentLanguage(uint32_t a) override { Enter(__func__, a); }
  void SetLogDirectory(Str a) override { Enter(__func__, a); }
  void WriteLog(Chars a) override { Enter(__func__, a); }
  Chars GetProductRegistryKey() override { return productKey.c_str(); }
  Chars GetDrillixRegistryKey() override { return L"Software\\Tavix\\MirdalTest\\none"; }
  bool LoadLauncherOptions() override { return Enter(__func__), true; }
  bool ReadStartupAutoStart() override { return Enter(__func__), startupAutoStart; }
  HWND FindMirdalWindow(bool a) override {
    return Enter(__func__, a), a ? nullptr : mirdalAppWindow;
  }
  HWND RunMirdal(HINSTANCE, Str a) override { return Enter(__func__, a), nullptr; }
  bool RunDrillix(HINSTANCE, Str a) override { return Enter(__func__, a), true; }
  String GetTooltip() override { return Enter(__func__), L"Tip"; }
  IAgentTrayWindow* CreateTrayWindow(HINSTANCE, UINT a, UINT b, UINT c, UINT d, Str e, Chars f,
                                     Chars g, bool h, Str i, Str j) override {
    return Enter(__func__, a, b, c, d, e, f, g, h, i, j),
           new CFakeTrayWindow(calls, trayWindowAlive);
  }
  bool GetMessageText(Chars, String&) override { return false; }
  int ShowMessage(Str a, uint32_t) override { return Enter(__func__, a), IDOK; }
  void ReportException(Tsl::CException* failure) override {
    reports.push_back(Describe(failure));
    calls.push_back(L"ReportException(" + reports.back() + L")");
  }

 private:
  static std::wstring Text(Str text) { return CallText(text); }
  static std::wstring Text(Chars text) { return text != nullptr ? text : L"null"; }
  static std::wstring Text(uint32_t number) { return std::to_wstring(number); }
  static std::wstring Text(bool flag) { return flag ? L"true" : L"false"; }

  IAgentServices* previousAgent;
  Tsl::IFoundationServices* previousFoundation;
};
