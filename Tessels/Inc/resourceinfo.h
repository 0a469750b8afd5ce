// Resource modules: the libraries that hold every text, menu and icon of a
// program. Finds the per-language libraries of each registered prefix, works
// out which languages are complete, chooses and loads the current language,
// and answers look-ups of message texts and of the module holding a resource.
#pragma once

#include <stdint.h>
#include <windows.h>

#include "array.h"
#include "unicodestring.h"

namespace Tsl {

// The exports of a resource library, all optional, plain C calls.
extern "C" {
typedef uint32_t(__cdecl* GetResourceIdFunction)(const wchar_t* messageName);  // 0: no such name
typedef int32_t(__cdecl* NumberOfMessagesFunction)();
typedef const wchar_t*(__cdecl* GetMessageNameFunction)(int32_t index);  // from 0
}

// The version string "FileDescription" that a language library must carry,
// compared without regard to case.
extern const wchar_t ResourceLibraryDescription[];

// Languages are numbers 0 to 69, indices into a fixed table; file names use
// the number ("Mirdal1.dll" for language 1).
const int32_t LanguageTableSize = 70;

struct CLanguageRow {
  uint16_t codePage;  // ANSI code page, 0 for none
  uint16_t primary;   // primary language
  uint16_t sub;       // sub-language; a row of zeros is a free number
};
// The row of `language`; a free row for numbers outside the table.
CLanguageRow GetLanguageRow(int32_t language);
// The system's language identifier: sub-language << 10 | primary language.
uint16_t GetLanguageIdentifier(int32_t language);

// How a static module is held.
enum EResourceModuleKind : int32_t {
  RMK_Static = 0,     // loaded by the program, freed by DoneResourceBase
  RMK_Permanent = 1,  // never freed; stays across DoneResourceBase
  RMK_Language = 2,   // a language library, loaded and freed here
};

// Enters a language-independent module (searched after the language's); a
// known handle moves to the end, where it is searched first.
void RegisterStaticModule(HMODULE module, int32_t kind);
// Enters a family of per-language libraries: `folder` holds prefix + number
// + ".dll". A known prefix moves to the end and takes the highest priority.
void AddResourcePrefix(const CUnicodeString& folder, const CUnicodeString& prefix);

// Forgets every prefix, for a program (or test) that sets up its families
// anew; the resource base must be down.
void RemoveResourcePrefixes();

// Start and end of the resource base, steps of the library's start and end.
void InitResourceBase();
void DoneResourceBase();
bool IsResourceBaseReady();

// The usable languages: those that every prefix has a valid library for,
// ascending. Internal errors before the base is ready.
int32_t GetLanguageCount();
int32_t GetLanguageByIndex(int32_t index);
int32_t FindLanguageIndex(int32_t language);  // -1 if absent
// The name the libraries give, or the number in decimal.
CUnicodeString GetLanguageName(int32_t language);
// Whether the system can show the language.
bool IsLanguageValid(int32_t language);
// The system's language if usable, else one of its code page, else the
// first the system can show, else the first usable.
int32_t ChooseDefaultLanguage();

// Makes `language` current and loads its libraries. A language the system
// can't show is refused with a box, and the old one stays.
void SetCurrentLanguage(int32_t language);
int32_t GetCurrentLanguage();  // -1 while none
// Overrides the language of the calling thread's look-ups; -1 ends that.
void SetThreadLanguage(int32_t language);

// The text of `messageName` in the thread's language: language libraries
// from the last prefix to the first, then static modules from the last.
bool GetModuleMessageText(const wchar_t* messageName, CUnicodeString& text);
// The module that holds a resource (name or MAKEINTRESOURCE identifier) of
// `type`, searched in the same order; null if none.
HMODULE FindResourceModule(const wchar_t* name, const wchar_t* type);
// Every message name that the current language's modules and the static
// modules declare, sorted, without repeats.
void GetAllMessageNames(CArray<CUnicodeString>& names);

// The system's answers about languages, replaceable so that a choice can be
// tested as on a Russian or a German system. Null members keep the system's.
struct CLocaleQueries {
  LANGID(WINAPI* systemDefaultLangId)();
  UINT(WINAPI* ansiCodePage)();
  BOOL(WINAPI* isValidLocale)(LCID locale, DWORD flags);
};
// Binds `queries`; returns the binding it replaced.
CLocaleQueries BindLocaleQueries(const CLocaleQueries& queries);

}  // namespace Tsl
