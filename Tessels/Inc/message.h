// The message catalogue, code side: CMessageName declares one message name
// ("MSG_..." or "ERR_..."), whose text comes from the resource modules in
// the current language; parameters %0, %1... are filled in by position. All
// declared names form one process-wide list, which the development aids
// compare with the names the resource modules hold.
#pragma once

#include <stdint.h>

#include "array.h"
#include "unicodestring.h"

namespace Tsl {

class CMessageName {
 public:
  // `name` must stay valid for the object's life (a static text).
  explicit CMessageName(const wchar_t* name);
  ~CMessageName();
  CMessageName(const CMessageName&) = delete;
  CMessageName& operator=(const CMessageName&) = delete;

  const wchar_t* GetName() const { return name; }
  // A resource module has a text for the name.
  bool IsDefined() const;
  // The text, or the name itself if there is none: never an empty box.
  CUnicodeString GetText() const;
  // The text with its parameters; without a text, the name followed by a
  // blank and each parameter, so that the data stays visible.
  CUnicodeString Format(const CUnicodeString& p0) const;
  CUnicodeString Format(const CUnicodeString& p0, const CUnicodeString& p1) const;
  CUnicodeString Format(const CUnicodeString& p0, const CUnicodeString& p1, const CUnicodeString& p2) const;

 private:
  CUnicodeString FormatArray(const CUnicodeString* params, int32_t count) const;

  const wchar_t* name;
  CMessageName* next;
  CMessageName* previous;

  friend void GetDeclaredMessageNames(CArray<CUnicodeString>& names);
  friend void GetUndefinedMessages(CArray<CUnicodeString>& names);
  friend void SaveAllMessages(const CUnicodeString& path);
};

// Every name declared by a CMessageName of a loaded module, in list order
// (newest first), repeats included.
void GetDeclaredMessageNames(CArray<CUnicodeString>& names);

// Fills %N in `text` from `params`; see CUnicodeString::SubstParam.
CUnicodeString SubstituteParams(const CUnicodeString& text, const wchar_t* const* params, int32_t count);

// Reports, through the message handlers, a text whose markers don't match
// `expected` parameters: a different number of distinct markers, or numbers
// missing below the highest. Changes nothing.
void CheckParams(const CUnicodeString& text, int32_t expected);

// Declared names without text, sorted, without repeats.
void GetUndefinedMessages(CArray<CUnicodeString>& names);
// Names the resource modules hold that no CMessageName declares, sorted.
void GetUnusedMessages(CArray<CUnicodeString>& names);

// The development files: a table of every declared name with its module
// and whether it is defined and used; and the list of undefined names
// followed by the unused ones. Both raise file errors.
void SaveAllMessages(const CUnicodeString& path);
void SaveUndefinedMessages(const CUnicodeString& path);

}  // namespace Tsl
