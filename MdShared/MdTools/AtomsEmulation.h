// Atoms: named on/off states shared by every process of a log-on session and
// by both bitnesses of the product's programs. An atom is set exactly while a
// named mutex "Local\<name>" exists, so the system keeps the state, and an
// atom vanishes by itself when the last process that set it ends or crashes.
#pragma once

#include "unicodestring.h"

// Sets the atom `name` (case-sensitive, without prefix) for as long as this
// process holds it. The platform refusing the mutex (for instance for a name
// with a backslash) is an internal error of AtomsEmulation at line 23.
// Setting an atom twice keeps two handles, and one ClearAtom then closes only
// the first: callers check IsAtomSet first.
void SetAtom(const Tsl::CUnicodeString& name);

// Removes an atom that this process set. The atom stays set while other
// processes hold it too. An atom that nobody set is an internal error of
// AtomsEmulation at line 31; one that only other processes set is the
// internal error of the map's checked lookup, Map line 352: only a setter
// can clear.
void ClearAtom(const Tsl::CUnicodeString& name);

// Whether any process of the session holds the atom `name`. Never fails: an
// object that exists but can't be opened reads as not set.
bool IsAtomSet(const Tsl::CUnicodeString& name);
