// The message handlers: the one exchangeable sink of everything the
// foundation shows. A handler gets a text, a title and message box flags and
// answers as a box would: a box, the console (or a redirected standard
// output), or the event log. The executable chooses by its version string
// "MessageHandler", or by the kind of its standard output.
#pragma once

#include <stdint.h>
#include <windows.h>

#include "unicodestring.h"

namespace Tsl {

class CException;

class CMessageHandler {
 public:
  virtual ~CMessageHandler();
  virtual int ShowMessage(HWND owner, const CUnicodeString& text, const CUnicodeString& title, uint32_t flags) = 0;
  // The base drops the icon.
  virtual int ShowMessageWithIcon(HWND owner, const CUnicodeString& text, const CUnicodeString& title,
                                  uint32_t flags, const wchar_t* iconId);
  // Shows the exception by its own Show, on the runtime heap. A failure
  // while one is being shown on this thread ends the process with the
  // double-error box.
  virtual void ShowException(CException* exception);
};

class CMessageBoxHandler : public CMessageHandler {
 public:
  int ShowMessage(HWND owner, const CUnicodeString& text, const CUnicodeString& title, uint32_t flags) override;
  int ShowMessageWithIcon(HWND owner, const CUnicodeString& text, const CUnicodeString& title, uint32_t flags,
                          const wchar_t* iconId) override;
  // The flags a box gets: a warning icon where none is named (not for the
  // abort and retry kinds), and task-modal, foreground and topmost unless a
  // visible window of the owner carries the box.
  static uint32_t BoxFlags(HWND owner, uint32_t flags, bool addIcon);
};

class CConsoleMessageHandler : public CMessageHandler {
 public:
  CConsoleMessageHandler();
  ~CConsoleMessageHandler() override;
  int ShowMessage(HWND owner, const CUnicodeString& text, const CUnicodeString& title, uint32_t flags) override;

 private:
  void Prepare();
  CRITICAL_SECTION lock;
  HANDLE output;
  int32_t fileType;  // GetFileType without the remote bit; 0 for a bad handle
  bool writeAnsi;
  bool prepared;
};

class CEventLogMessageHandler : public CMessageHandler {
 public:
  CEventLogMessageHandler();
  ~CEventLogMessageHandler() override;
  int ShowMessage(HWND owner, const CUnicodeString& text, const CUnicodeString& title, uint32_t flags) override;
  void ShowException(CException* exception) override;
  // The event type of box flags.
  static uint16_t EventType(uint32_t flags);

 private:
  void Write(uint16_t type, const CUnicodeString& title, const CUnicodeString& text);
  void Register();
  CRITICAL_SECTION lock;
  HANDLE source;  // null until registered
  CUnicodeString sourceName;
};

// What a box of `flags` answers when nobody is there: its default button.
int DefaultBoxResult(uint32_t flags);

// The handler selected by a "MessageHandler" text; null for no known one.
CMessageHandler* HandlerByName(const CUnicodeString& name);

// The default handler of an executable: the one its version string
// "MessageHandler" names (in any case), else the console handler for a
// standard output that is a console, file or pipe, else the box.
CMessageHandler* ChooseHandler(const CUnicodeString& versionFile, HANDLE standardOutput);

// The handler to use now: the thread's, else the application's, else the
// default, chosen once. Null means "none": the plain box is used.
CMessageHandler* GetCurrentHandler();
CMessageHandler* SetApplicationHandler(CMessageHandler* handler);
CMessageHandler* SetThreadHandler(CMessageHandler* handler);
// Forgets the chosen default, so that the next use chooses again.
void ResetDefaultHandler();

// The title of every box: the application's, or "Tessels".
CUnicodeString GetApplicationTitle();
void SetApplicationTitle(const CUnicodeString& title);

// Routes the foundation's texts, messages and failures (services.h) through
// the catalogue and these handlers; the library's start installs them.
void InstallMessageServices();
void RemoveMessageServices();

}  // namespace Tsl
