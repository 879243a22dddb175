// --help on every tool: exit 0, the usage on standard output, nothing started.
#include "realtime_fixture.h"

namespace {

TEST(ToolsHelp, EveryToolExplainsItself) {
  int status = -1;
  // An unusable state folder: slewd must not try to start a camera.
  std::string out = Output("SLEWD_STATE=/dev/null/none " SLEWD_PATH " --help", &status);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(out.rfind("usage: slewd", 0), 0u) << out;
  EXPECT_NE(out.find("docs/commands.md"), std::string::npos);
  out = Output(SLEWSIM_PATH " --help", &status);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(out.rfind("usage: slewsim", 0), 0u) << out;
  EXPECT_EQ(RunSlewctl("/dev/null/none", {"--help"}, &out), sim::kCtlOk);
  EXPECT_EQ(out.rfind("usage: slewctl", 0), 0u) << out;
}

}  // namespace
