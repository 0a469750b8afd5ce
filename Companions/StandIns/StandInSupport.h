// What the two demonstration programs share: their switches, the texts they
// take from the message catalogue, and finding the agent's window.
#pragma once

#include <windows.h>

#include "unicodestring.h"

// The switches of this process: those of its command line, then those of the
// environment variable `variable` (may be null), which lets a program that
// the agent starts with its own arguments be told more.
class CStandInSwitches {
 public:
  CStandInSwitches(const wchar_t* commandLine, const wchar_t* variable);
  ~CStandInSwitches();
  CStandInSwitches(const CStandInSwitches&) = delete;
  CStandInSwitches& operator=(const CStandInSwitches&) = delete;

  // True when "/name" or "/name:value" (also with "-") was given; the name
  // ignores case. `value` gets the text behind the first colon, if asked for.
  bool Has(const wchar_t* name, Tsl::CUnicodeString* value = nullptr) const;
  // The value of "/name:<number>", or `fallback`.
  int32_t Number(const wchar_t* name, int32_t fallback) const;
  // Every argument as given, separated by blanks, for the journal.
  const Tsl::CUnicodeString& Text() const { return text; }

 private:
  void Add(const wchar_t* line, bool skipProgram);

  static const int32_t MaxArguments = 32;
  Tsl::CUnicodeString arguments[MaxArguments];
  int32_t count;
  Tsl::CUnicodeString text;
};

// The text of a catalogue message in the current language; a message without
// text shows as its name, as everywhere in the product.
Tsl::CUnicodeString CatalogueText(const wchar_t* messageName);

// Starts the foundation with the product's texts as the agent does: the
// resource libraries in `folder` (with a trailing separator; empty: the
// program's own folder), in the language the user chose. Without the
// libraries nothing starts and names show as themselves; false then.
bool StartProductTexts(const Tsl::CUnicodeString& folder = Tsl::CUnicodeString());
// Ends what StartProductTexts started.
void EndProductTexts();

// The agent's window of this version, or null.
HWND FindAgentWindow();

// UTF-16 to UTF-8, for journals.
Tsl::CString ToUtf8(const Tsl::CUnicodeString& text);
