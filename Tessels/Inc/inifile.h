// CIniFile: a small settings file of [sections] and key=value lines, read
// into memory on first use and answered from there. Section names and keys
// compare without regard to case. Saving always writes the canonical form:
// sorted, UTF-16 with a byte order mark. The agent reads SharedFiles.ini here.
#pragma once

#include <stdint.h>

#include "Map.h"
#include "array.h"
#include "pointerarray.h"
#include "unicodestring.h"

namespace Tsl {

// Hash and compare of the ini tables: the hash folds towards upper case, the
// compare (the runtime's) towards lower case.
typedef CNoCaseKeyTraits CIniKeyTraits;

// One section: key to value, case-insensitive keys. The object and its table
// live on the runtime heap.
class CIniSection : public CMap<CUnicodeString, CUnicodeString, CIniKeyTraits, RuntimeHeap>,
                    public CAllocatedOn<RuntimeHeap> {
 public:
  CIniSection();
};

// The file is assumed to come from a trusted source, like the maps it is
// made of: keys chosen to share one hash make loading quadratic in their
// number (8,192 of them take seconds where ordinary keys take milliseconds).
class CIniFile {
 public:
  // An absolute path (two separators first, or a unit, a colon and a
  // separator, judged before trimming) is trimmed and made full; any other
  // path is trimmed and taken relative to the executable's folder. The file
  // is not touched.
  explicit CIniFile(const CUnicodeString& path);
  // Saves when something was changed; a failure of that save is reported,
  // never thrown.
  ~CIniFile();
  CIniFile(const CIniFile&) = delete;
  CIniFile& operator=(const CIniFile&) = delete;

  const CUnicodeString& GetFileName() const { return fileName; }
  bool IsLoaded() const { return loaded; }
  bool IsChanged() const { return changed; }

  // The value of `key` in `section`; `defaultValue` when either is absent.
  // Loads the file at first use, so it raises what loading raises.
  CUnicodeString GetValue(const CUnicodeString& section, const CUnicodeString& key,
                          const CUnicodeString& defaultValue);
  // Empties `names` and fills it with the section names in index order. The
  // keys before the first header make the section with the empty name.
  void GetSectionNames(CArray<CUnicodeString>& names);
  // Empties `names` and fills it with the keys of `section` in index order;
  // nothing for a missing section.
  void GetKeyNames(const CUnicodeString& section, CArray<CUnicodeString>& names);

  // Sets a value as a line of the file would: names and value trimmed, an
  // existing key of any case replaced, the new spelling kept. A file that
  // does not exist yet starts empty. Names and values that the file could
  // not give back (line ends; "=" or a leading ";", "//" or "[...]" in a
  // key; "]" in a section name) are internal errors.
  void SetValue(const CUnicodeString& section, const CUnicodeString& key, const CUnicodeString& value);
  // Remove a key, or a section with all its keys; false when absent.
  bool DeleteKey(const CUnicodeString& section, const CUnicodeString& key);
  bool DeleteSection(const CUnicodeString& section);

  // Reads the file again, dropping what is in memory. A missing file raises
  // the file layer's error; a line that is neither blank, comment, header
  // nor key=value raises ERR_BAD_INI_FILE with the file name and the line's
  // number counted from 0. After a failure the sections read so far stay,
  // the object counts as not loaded and the next lookup reads again.
  void Load();
  // The same rules over lines that are already in memory; afterwards the
  // object stands as if the file held these lines (nothing to save).
  void LoadFromLines(const CArray<CUnicodeString>& lines);
  // Writes the canonical text (below) to the file, loading it first if it
  // was never read, and clears the changed state.
  void Save();
  // The canonical text: the section with the empty name without a header,
  // then the others sorted by code units, each "[name]" with its keys
  // sorted by code units as key=value lines and a blank line behind.
  CUnicodeString GetCanonicalText() const;

 private:
  typedef CMap<CUnicodeString, CIniSection*, CIniKeyTraits> CSectionIndex;

  void EnsureLoaded();
  void EnsureLoadedOrNew();
  void DropSections();
  CIniSection* FindSection(const CUnicodeString& name) const;
  CIniSection* CreateSection(const CUnicodeString& name);
  void RemoveSection(const CUnicodeString& name, CIniSection* section);
  void ParseLines(const CArray<CUnicodeString>& lines);

  CUnicodeString fileName;                  // absolute path
  bool loaded;                              // the file has been read
  bool changed;                             // the contents differ from the file
  CPointerArray<CIniSection> sections;      // owning, in order of creation
  CSectionIndex sectionIndex;               // name to section, case-insensitive
};

// Sorts ascending by code units (case-sensitive), in place.
void SortStringsByUnits(CArray<CUnicodeString>& strings);

}  // namespace Tsl
