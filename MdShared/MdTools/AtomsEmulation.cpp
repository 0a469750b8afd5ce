// Atoms kept by the system as named mutexes in the session's local namespace.
// A mutex here is never locked: only its existence means anything. This
// process remembers the handles of the atoms it set, so that it can clear
// them again; what it forgets (a crash) the system clears with the process.
#include "AtomsEmulation.h"

#include <windows.h>

#include "Map.h"
#include "errors.h"

using Tsl::CUnicodeString;

namespace {

const wchar_t Unit[] = L"AtomsEmulation";

// The mask of a reader: enough to learn that the object is there, without
// the right to wait on it, which nobody here needs.
const DWORD ReaderAccess = READ_CONTROL;

// Atom name (without prefix) to the handle this process made when it set the
// atom. Built before main and gone after it; its destructor does not close
// the handles: the system does that as the process ends, which is the moment
// the atoms are meant to vanish anyway. It lives on the process heap so that
// no thread's memory manager owns it. Main-thread use only: no lock.
Tsl::CMap<CUnicodeString, HANDLE, Tsl::CHashKeyTraits<CUnicodeString>, Tsl::ProcessHeap> atomHandles;

// The kernel object's name: the session's local namespace, so that an atom
// is seen by every process of this session and by no other.
CUnicodeString KernelName(const CUnicodeString& name) { return CUnicodeString(L"Local\\") + name; }

}  // namespace

void SetAtom(const CUnicodeString& name) {
  CUnicodeString kernelName = KernelName(name);
  // Succeeds also when the mutex exists: a second setter adds its own handle.
  HANDLE handle = ::CreateMutexW(nullptr, FALSE, kernelName.Text());
  TSL_ASSERT(handle != nullptr, Unit, 23);
  if (handle == nullptr) return;
  // No lookup first: setting twice files two entries and keeps two handles.
  atomHandles.Insert(name, handle);
}

void ClearAtom(const CUnicodeString& name) {
  CUnicodeString kernelName = KernelName(name);
  HANDLE opened = ::OpenMutexW(MUTEX_ALL_ACCESS, FALSE, kernelName.Text());
  TSL_ASSERT(opened != nullptr, Unit, 31);
  if (opened == nullptr) return;

  // Only a setter can clear: the state ends when the setter's handle closes,
  // and another process's handle is out of reach. Get raises for a name this
  // process never set; the handle just opened goes first, or this process
  // would keep somebody else's atom alive.
  HANDLE* stored = atomHandles.Find(name);
  if (stored == nullptr) {
    ::CloseHandle(opened);
    atomHandles.Get(name);
    return;
  }
  ::CloseHandle(*stored);
  atomHandles.Remove(name);
  // The mutex is never owned, so this call fails; harmlessly.
  ::ReleaseMutex(opened);
  // With this the last handle of this process goes and, if no other process
  // holds one, the mutex and so the atom vanish.
  ::CloseHandle(opened);
}

bool IsAtomSet(const CUnicodeString& name) {
  CUnicodeString kernelName = KernelName(name);
  HANDLE handle = ::OpenMutexW(ReaderAccess, FALSE, kernelName.Text());
  if (handle == nullptr) return false;
  ::CloseHandle(handle);
  return true;
}
