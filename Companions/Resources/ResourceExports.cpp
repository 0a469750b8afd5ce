// The three exports of a language module, through which the foundation asks
// for the identifier of a message name and lists every name the module knows.
// Built once per language from the same text file as its string table.
#include <stdint.h>
#include <wchar.h>

namespace {

struct CMessageRow {
  const wchar_t* name;  // the message name, as the code declares it
  uint32_t id;          // its string in the module's string table
};

#define WIDE(text) L##text
#define MESSAGE(id, name, text) {WIDE(#name), id},
const CMessageRow messageRows[] = {
#include "Texts/Select.inc"
};
#undef MESSAGE

const int32_t messageCount = int32_t(sizeof(messageRows) / sizeof(messageRows[0]));

}  // namespace

// The identifier of the string that holds the text of `name`, 0 when this
// module has no such name. The comparison is exact: names are identifiers.
extern "C" __declspec(dllexport) uint32_t __cdecl GetResourceID(const wchar_t* name) {
  if (name == nullptr) return 0;
  for (int32_t i = 0; i < messageCount; ++i)
    if (wcscmp(messageRows[i].name, name) == 0) return messageRows[i].id;
  return 0;
}

extern "C" __declspec(dllexport) int32_t __cdecl NumberOfMessages() { return messageCount; }

// The name at `index`, counted from 0; null outside the table.
extern "C" __declspec(dllexport) const wchar_t* __cdecl GetMessageName(int32_t index) {
  return index >= 0 && index < messageCount ? messageRows[index].name : nullptr;
}
