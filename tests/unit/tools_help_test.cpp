// --help on every tool: exit 0, the usage on standard output, nothing started.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bus/bus_client.h"

namespace {

// Runs a command line; its standard output, and its exit status in *status.
std::string Output(const std::string& command, int* status) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string out;
  char buf[512];
  size_t n;
  while (pipe != nullptr && (n = fread(buf, 1, sizeof buf, pipe)) > 0) out.append(buf, n);
  *status = pipe != nullptr ? pclose(pipe) : -1;
  return out;
}

TEST(ToolsHelp, EveryToolExplainsItself) {
  int status = -1;
  // slewd must not start a camera: an unusable state folder proves it did not try.
  std::string out = Output("SLEWD_STATE=/dev/null/none " SLEWD_PATH " --help", &status);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(out.rfind("usage: slewd", 0), 0u) << out;
  EXPECT_NE(out.find("docs/commands.md"), std::string::npos);
  out = Output(SLEWSIM_PATH " --help", &status);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(out.rfind("usage: slewsim", 0), 0u) << out;

  char* text = nullptr;
  size_t len = 0;
  FILE* sink = open_memstream(&text, &len);
  char* argv[] = {(char*)"slewctl", (char*)"--help", nullptr};
  EXPECT_EQ(sim::slewctl_run("/dev/null/none", 2, argv, sink, stderr), sim::kCtlOk);
  fclose(sink);
  std::string help = text;
  free(text);
  EXPECT_EQ(help.rfind("usage: slewctl", 0), 0u) << help;
}

}  // namespace
