// A dictionary in dictd format, as the demonstration main program reads it: a
// sorted text index of "headword<TAB>offset<TAB>length" lines and an
// uncompressed data file that holds the entries at those byte positions.
#pragma once

#include <stdint.h>

#include "unicodestring.h"

// Decodes one number of the index: digits of the alphabet A-Z a-z 0-9 + /,
// most significant first. False for an empty text, another character, or a
// value beyond 32 bits.
bool DecodeDictdNumber(const char* text, int32_t length, uint32_t& value);

// One dictionary: its index held in memory, its data file read on demand.
class CDictdDictionary {
 public:
  CDictdDictionary();
  ~CDictdDictionary();
  CDictdDictionary(const CDictdDictionary&) = delete;
  CDictdDictionary& operator=(const CDictdDictionary&) = delete;

  // Loads `indexPath` and remembers `dataPath`. False when either file can't be
  // read; the dictionary then stays closed.
  bool Open(const wchar_t* indexPath, const wchar_t* dataPath);
  bool IsOpen() const { return index != nullptr; }

  // Every entry of `word` (the comparison ignores case), separated by blank
  // lines, at most `maxEntries` of them. False when there is none or the data
  // file can't be read at an entry's place.
  bool Lookup(const wchar_t* word, Tsl::CUnicodeString& entries, int32_t maxEntries = 3) const;

  // The headword of the `number`-th entry, counted round the index, skipping the
  // dictionary's own "00database" records. False for an empty index.
  bool HeadwordAt(uint32_t number, Tsl::CUnicodeString& headword) const;

 private:
  void Close();
  bool ReadEntry(uint32_t offset, uint32_t length, Tsl::CUnicodeString& entry) const;

  char* index;          // the whole index file, terminated by a zero
  int32_t indexLength;  // bytes of `index` before the terminator
  Tsl::CUnicodeString dataPath;
};

// The dictionaries of one folder: every "<name>.index" with an uncompressed
// "<name>.dict" beside it, in the order the folder lists them.
class CDictdShelf {
 public:
  CDictdShelf() : count(0) {}
  ~CDictdShelf();
  CDictdShelf(const CDictdShelf&) = delete;
  CDictdShelf& operator=(const CDictdShelf&) = delete;

  // Opens the dictionaries of `folder` (with or without a trailing backslash).
  // Returns how many opened.
  int32_t OpenFolder(const wchar_t* folder);
  int32_t Count() const { return count; }

  // The entries of `word` from each dictionary that has it, each block headed
  // by the dictionary's name. False when none has it.
  bool Lookup(const wchar_t* word, Tsl::CUnicodeString& entries) const;
  // A headword that changes with `day`, from the first dictionary.
  bool WordOfDay(uint32_t day, Tsl::CUnicodeString& word) const;

 private:
  static const int32_t MaxDictionaries = 8;
  CDictdDictionary* dictionaries[MaxDictionaries];
  Tsl::CUnicodeString names[MaxDictionaries];
  int32_t count;
};
