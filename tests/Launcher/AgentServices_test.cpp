// The product's own service binding: argument files are read from disk, and a
// row whose implementation is not built is the unbound-service error.
#include "AgentServices.h"

#include <gtest/gtest.h>

#include "MirdalAgent.h"
#include "TestSupport.h"
#include "errors.h"

namespace {

// Binds the product's services for one test and restores the previous binding.
struct ProductServices : testing::Test {
  IAgentServices* previous = BindAgentServices(&GetProductAgentServices());
  ~ProductServices() override { BindAgentServices(previous); }
};

TEST_F(ProductServices, ArgumentFilesAreReadFromDiskWithNestingAndMissingFiles) {
  TestSupport::ScratchFolder folder;
  std::wstring inner = folder / L"inner.txt", outer = folder / L"outer arguments.txt";
  // UTF-16 with a mark for one file, plain ANSI for the other: both are read.
  ASSERT_TRUE(TestSupport::WriteBytes(inner, std::string("\xFF\xFE/\0D\0r\0i\0x\0", 12)));
  ASSERT_TRUE(
      TestSupport::WriteBytes(outer, "/STARTUP \"two words\" @" + TestSupport::Narrow(inner)));
  CCommandLineArguments arguments;
  arguments.Parse((L"first \"@" + outer + L"\" last").c_str());
  std::vector<std::wstring> parsed;
  for (int32_t i = 0; i < arguments.GetArgumentCount(); ++i)
    parsed.push_back(arguments.GetArgument(i).Text());
  EXPECT_EQ(parsed,
            (std::vector<std::wstring>{L"first", L"/STARTUP", L"two words", L"/Drix", L"last"}));
  EXPECT_TRUE(arguments.HasSwitch(L"startup"));
  try {
    CCommandLineArguments().Parse((L"@" + (folder / L"absent.txt")).c_str());
    FAIL() << "a missing argument file was accepted";
  } catch (Tsl::CFileException* failure) {
    EXPECT_EQ(Tsl::FE_NotFound, failure->kind);
    EXPECT_NE(nullptr, wcsstr(failure->fileName.Text(), L"absent.txt"));
    delete failure;
  }
}

TEST_F(ProductServices, RowsNotYetBuiltAreTheUnboundServiceError) {
  try {
    AgentServices().GetTooltip();
    FAIL() << "an unbuilt service pretended to work";
  } catch (Tsl::CInternalError* failure) {
    EXPECT_EQ(std::make_pair(std::wstring(L"MirdalAgent"), 1300),
              std::make_pair(std::wstring(failure->file), int(failure->line)));
    delete failure;
  }
}

}  // namespace
