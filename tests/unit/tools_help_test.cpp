// --help on every tool: exit 0, the usage on standard output, nothing started.
#include "realtime_fixture.h"

namespace {

// A command line's standard output, and its exit status in *status.
std::string Output(const std::string& command, int* status) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string out;
  char buf[512];
  for (size_t n; pipe != nullptr && (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
  *status = pipe != nullptr ? pclose(pipe) : -1;
  return out;
}

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
