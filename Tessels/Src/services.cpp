// The foundation's upward calls: texts of named messages, showing a text and
// reporting a failure. The layers above bind one IFoundationServices object;
// until they do, the calls answer as a library without resources would.
#include "services.h"

#include <windows.h>

#include "errors.h"

namespace Tsl {

namespace {
// Written at start and end by the binding layer, read from any thread.
IFoundationServices* volatile boundServices = nullptr;

IFoundationServices* Bound() { return boundServices; }
}  // namespace

IFoundationServices* BindFoundationServices(IFoundationServices* services) {
  return static_cast<IFoundationServices*>(
      InterlockedExchangePointer(reinterpret_cast<void* volatile*>(&boundServices), services));
}

bool GetMessageText(const wchar_t* messageName, CUnicodeString& text) {
  TSL_ASSERT(messageName != nullptr, L"services", 27);
  IFoundationServices* services = Bound();
  return services != nullptr && messageName != nullptr && services->GetMessageText(messageName, text);
}

// Unbound, the text goes to the debug output: with no handler layer there is
// nobody to answer, so the answer is the box's default, OK. Nothing here
// allocates, since this also shows "Not enough memory!".
int ShowMessage(const CUnicodeString& text, uint32_t flags) {
  IFoundationServices* services = Bound();
  if (services != nullptr) return services->ShowMessage(text, flags);
  OutputDebugStringW(text.Text());
  OutputDebugStringW(L"\n");
  return IDOK;
}

// Unbound, the exception shows itself, which routes through ShowMessage; a
// cancelled operation thus stays silent.
void ReportException(CException* exception) {
  TSL_ASSERT(exception != nullptr, L"services", 46);
  if (exception == nullptr) return;
  IFoundationServices* services = Bound();
  if (services != nullptr) {
    services->ReportException(exception);
    return;
  }
  CRuntimeHeapSwitch onRuntimeHeap;
  exception->Show();
}

}  // namespace Tsl
