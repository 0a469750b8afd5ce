// The few calls by which the foundation's low layers reach up to the parts
// built above them: the texts of named messages, and showing messages and
// failures. The message catalogue and the message handlers bind themselves
// here; tests bind recording fakes.
#pragma once

#include <stdint.h>

#include "unicodestring.h"

namespace Tsl {

class CException;

class IFoundationServices {
 public:
  virtual ~IFoundationServices() {}
  // True and the text when the named message is defined.
  virtual bool GetMessageText(const wchar_t* messageName, CUnicodeString& text) = 0;
  // Shows a text with message box flags; returns the box's result.
  virtual int ShowMessage(const CUnicodeString& text, uint32_t flags) = 0;
  // Shows a failure; the caller deletes the object.
  virtual void ReportException(CException* exception) = 0;
};

// Binds the services (null unbinds). Returns the binding it replaced.
IFoundationServices* BindFoundationServices(IFoundationServices* services);

// The calls themselves. While nothing is bound: no message has a text,
// ShowMessage writes the text to the debug output and returns IDOK, and
// ReportException shows the failure through ShowMessage.
bool GetMessageText(const wchar_t* messageName, CUnicodeString& text);
int ShowMessage(const CUnicodeString& text, uint32_t flags);
void ReportException(CException* exception);

}  // namespace Tsl
