// Atoms across real processes of the session: what a second process sees,
// that an atom dies with the last process holding it (also when killed), and
// that only a setter can clear.
#include "MdTools/AtomsEmulation.h"

#include <gtest/gtest.h>

#include <string>

#include "../Tessels/TesselsTestKit.h"
#include "TestSupport.h"

using TestKit::InternalErrorOf;
using TestKit::Place;

namespace {

// An atom name of this test run alone.
std::wstring UniqueAtom() {
  static int counter = 0;
  return L"MirdalTest-Atom-" + std::to_wstring(GetCurrentProcessId() * 1000 + ++counter);
}

// Exit code 1 when the atom named by the argument is set, 0 when it isn't.
MIRDAL_CHILD_ROLE(ReadAtom) { return IsAtomSet(argv[2]) ? 1 : 0; }

// Sets the atom named by the argument and keeps it until killed; the atom
// "<name>-ready" tells that it has.
MIRDAL_CHILD_ROLE(HoldAtom) {
  SetAtom(argv[2]);
  SetAtom(std::wstring(argv[2]).append(L"-ready").c_str());
  Sleep(INFINITE);
  return 0;
}

// A child holding the atom `name` once it has set it; it never clears it.
HANDLE StartHolder(const std::wstring& name) {
  HANDLE process = TestSupport::StartChild("HoldAtom", name);
  for (int i = 0; i < 1500 && !IsAtomSet((name + L"-ready").c_str()); ++i) Sleep(20);
  return process;
}

void Kill(HANDLE process) {
  TerminateProcess(process, 0);
  WaitForSingleObject(process, 30000);
  CloseHandle(process);
}

}  // namespace

TEST(Atoms, AnAtomLastsWhileItsSetterHoldsItAndIsSeenFromOtherProcesses) {
  std::wstring name = UniqueAtom();
  SetAtom(name.c_str());
  EXPECT_EQ(TestSupport::RunChild("ReadAtom", name).exitCode, 1u);
  ClearAtom(name.c_str());
  EXPECT_EQ(TestSupport::RunChild("ReadAtom", name).exitCode, 0u);
  // A setter that is killed takes its atom along.
  name = UniqueAtom();
  HANDLE holder = StartHolder(name);
  EXPECT_TRUE(IsAtomSet(name.c_str()));
  Kill(holder);
  EXPECT_FALSE(IsAtomSet(name.c_str()));
}

TEST(Atoms, TwoSettersKeepTheAtomUntilBothAreGone) {
  for (bool clearedFirst : {true, false}) {
    SCOPED_TRACE(clearedFirst ? "cleared here first" : "the other killed first");
    std::wstring name = UniqueAtom();
    SetAtom(name.c_str());
    HANDLE holder = StartHolder(name);
    clearedFirst ? ClearAtom(name.c_str()) : Kill(holder);
    EXPECT_TRUE(IsAtomSet(name.c_str()));
    clearedFirst ? Kill(holder) : ClearAtom(name.c_str());
    EXPECT_FALSE(IsAtomSet(name.c_str()));
  }
}

TEST(Atoms, OnlyASetterCanClear) {
  std::wstring nobodys = UniqueAtom(), others = UniqueAtom();
  EXPECT_EQ(InternalErrorOf([&] { ClearAtom(nobodys.c_str()); }), Place(L"AtomsEmulation", 31));
  HANDLE holder = StartHolder(others);
  EXPECT_EQ(InternalErrorOf([&] { ClearAtom(others.c_str()); }), Place(L"Map", 352));
  EXPECT_TRUE(IsAtomSet(others.c_str()));
  // The failed clear kept no handle of its own: the atom still ends with its setter.
  Kill(holder);
  EXPECT_FALSE(IsAtomSet(others.c_str()));
  EXPECT_EQ(InternalErrorOf([] { SetAtom(L"MirdalTest\\no"); }), Place(L"AtomsEmulation", 23));
}
