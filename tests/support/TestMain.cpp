// The main function of every test executable: either a child role, when the
// test started this executable again as a second process, or GoogleTest.
#include <gtest/gtest.h>

#include "TestSupport.h"

int wmain(int argc, wchar_t** argv) {
  int exitCode = 0;
  if (TestSupport::RunRoleIfChild(argc, argv, exitCode)) return exitCode;
  // Crashes must end the test process with a code, not open an error dialog.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
