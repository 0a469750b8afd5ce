// The version resource of a file on disk and its string values: the resource
// search checks the description of its candidates with it, and the message
// handlers read the executable's choice of handler.
#pragma once

#include <stdint.h>

#include "array.h"
#include "unicodestring.h"

namespace Tsl {

class CVersionInfo {
 public:
  CVersionInfo() : valid(false) {}

  // Reads the version block of `fileName`. A file without one leaves the
  // object invalid, which is no error; a block that has a size but can't be
  // fetched is an internal error.
  void Load(const CUnicodeString& fileName);
  bool IsValid() const { return valid; }

  // The string `valueName` of the block's first translation; empty when the
  // object is invalid or anything on the way is missing.
  CUnicodeString GetStringValue(const CUnicodeString& valueName) const;

  // The path of a string value under one translation:
  // "\StringFileInfo\llllcccc\" and the name, in lower-case hexadecimal.
  static CUnicodeString StringValuePath(uint16_t language, uint16_t codePage, const CUnicodeString& valueName);

 private:
  CArray<unsigned char> data;  // the raw block, sized by the system
  bool valid;                  // a block was fetched
};

}  // namespace Tsl
