// The scenario interpreter against a fake daemon: await, expect, signals, the end, files, --keep, summary.
#include <csignal>

#include "platform/os.h"
#include "runner/run.h"
#include "sim_test.h"

namespace {

void OnTerm(int signo) { os_printf("term %d\n", signo), os_exit(1); }

// Prints its arguments, "in main loop", 1 s later "in loop" in two pieces; idles 10 s, a partial line, 3.
int FakeDaemon(int argc, char** argv) {
  os_signal(SIGTERM, OnTerm);
  os_printf("args:%d %s\n", argc, argc > 1 ? argv[1] : "-");
  os_puts("in main loop"), os_sleep(1), os_printf("in "), os_printf("loop\n");
  for (int i = 0; i < 100; ++i) os_usleep(100000);
  return os_printf("partial"), 3;
}


struct Outcome {
  int status;
  std::string report, transcript;  // what slewsim printed; dir_/t.txt
};

class RunnerRun : public ::testing::Test {
 protected:
  // Runs scenario texts through the slewsim command line with FakeDaemon.
  Outcome Run(const std::vector<std::string>& texts, std::vector<std::string> words) {
    words.insert(words.begin(), "slewsim");
    for (size_t i = 0; i < texts.size(); ++i) {
      words.push_back(dir_ + "/case" + std::to_string(i) + ".scn");
      std::ofstream(words.back()) << texts[i];
    }
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    FILE* out = tmpfile();
    Outcome o{sim::slewsim_main(static_cast<int>(argv.size()), argv.data(), FakeDaemon, out, out), simtest::ReadAll(out),
              simtest::ReadText(dir_ + "/t.txt")};
    return fclose(out), o;
  }
  Outcome Run(const std::string& text) { return Run({text}, {"--transcript", dir_ + "/t.txt"}); }
  void Reports(const std::string& text, const std::string& piece) {
    std::string report = Run(text).report;
    EXPECT_NE(report.find(piece), std::string::npos) << report;
  }
  simtest::TempDir tmp_;
  std::string dir_ = tmp_.path;
};

TEST_F(RunnerRun, AwaitResumesAtTheFirstNewMatchingLine) {
  Outcome o = Run("args spddry 2\nbus test.k before\nawait out in loop 5\nbus test.k after\nwait 0.25\n"
                  "show bus test.\nawait \"\" 30\nshow bus test.\n");
  EXPECT_EQ(o.status, 0) << o.report;
  EXPECT_EQ(o.report, "PASS case0\n1 passed, 0 failed\n");
  EXPECT_EQ(o.transcript, "0.000 out args:3 spddry\n0.000 out in main loop\n1.000 out in loop\n1.000 ext test.k=after\n"
            "1.250 bus test.k=after\n11.000 out partial\n11.000 exit 3\n11.000 bus test.k=after\n");
}

TEST_F(RunnerRun, ExpectsLookSinceTheMark) {
  EXPECT_EQ(Run("wait 2\nexpect line out in main\nmark\nexpect no line main\nexpect line \"\"\n").report,
            "FAIL case0: " + dir_ + "/case0.scn:5: expect line \"\" \u2014 no line since the mark contains it\n"
            "0 passed, 1 failed\n");
  Reports("wait 2\nexpect no line out in\n", "case0.scn:2: expect no line out in \u2014 found 'out in main loop'\n");
  Outcome late = Run("bus t.a 1\nawait out never 2.5\n");
  EXPECT_NE(late.report.find("case0.scn:2: await out never 2.5 \u2014 no such line within the time"), std::string::npos);
  EXPECT_EQ(late.transcript.substr(late.transcript.rfind('\n', late.transcript.size() - 2) + 1), "1.000 out in loop\n");
}

TEST_F(RunnerRun, ExpectLinesWantsConsecutiveLinesInOrder) {
  EXPECT_EQ(Run("wait 2\nexpect lines\nmain loop\nout in loop\nend\n").report, "PASS case0\n1 passed, 0 failed\n");
  Reports("wait 2\nexpect lines\nout in loop\nmain loop\nend\n",
          "case0.scn:2: expect lines \u2014 no run of lines since the mark contains them in order");
  Reports("wait 2\nexpect lines\nargs\nout in loop\nend\n", "FAIL");  // a line between breaks the run
  Reports("wait 2\nexpect range ptz.pan_pos 0 10\n",
          "expect range ptz.pan_pos 0 10 \u2014 the daemon has not written the key since the mark");
}

TEST_F(RunnerRun, SignalsAndTheDaemonsEnd) {
  Outcome term = Run("wait 2\nsignal 15\nexpect exit 1\nexpect bus t.a 1\n");
  EXPECT_NE(term.transcript.find("2.000 out term 15\n2.000 exit 1\n"), std::string::npos);
  EXPECT_NE(term.report.find("expect bus t.a 1 \u2014 the key holds no value"), std::string::npos);
  Outcome intr = Run("bus t.a 1\nwait 2\nsignal 2\nexpect exit 130\nexpect bus t.a 1\nsignal 15\n");
  EXPECT_NE(intr.transcript.find("2.000 exit 130\n"), std::string::npos);
  EXPECT_NE(intr.report.find("signal 15 \u2014 the daemon has already ended with status 130"), std::string::npos);
  Reports("wait 2\nexpect exit 0\n", "the daemon is still running");
  Reports("wait 20\nexpect exit 0\n", "the daemon ended with status 3");
}

TEST_F(RunnerRun, FilesSummaryAndKeptSandbox) {
  std::string pass = "file /mnt/nand/p.txt\n# kept\n  two\nend\nwait 0\nshow file /mnt/nand/p.txt\nshow file /none\n";
  std::string fail = "bus t.a 1\nwait 1\nexpect bus t.a 2\n";
  Outcome o = Run({pass, fail}, {"--keep", dir_ + "/keep"});
  EXPECT_EQ(o.status, 1);
  EXPECT_TRUE(o.report.find("PASS case0\nFAIL case1: ") != std::string::npos &&
              o.report.find("the key holds '1'\n1 passed, 1 failed\n") != std::string::npos) << o.report;
  EXPECT_EQ(simtest::ReadText(dir_ + "/keep/case0/mnt/nand/p.txt"), "# kept\n  two\n");
  EXPECT_NE(simtest::ReadText(dir_ + "/keep/case1/bus.txt").find("t.a=1\n"), std::string::npos);
  o = Run(pass);
  EXPECT_EQ(o.transcript, "0.000 file /mnt/nand/p.txt: # kept\n0.000 file /mnt/nand/p.txt:   two\n");
}

TEST_F(RunnerRun, CommandLineErrorsExitWithTwo) {
  EXPECT_EQ((std::vector{Run({"wait 1\n", "wait 1\n"}, {"--transcript", dir_ + "/t.txt"}).status, Run({"wait 1\n"}, {"--frob"}).status}),
            (std::vector{2, 2}));
  Outcome bad = Run({"wait 1\n", "wait 1\nwiat 2\n"}, {});
  EXPECT_EQ(bad.status, 2);
  EXPECT_EQ(bad.report, dir_ + "/case1.scn:2: unknown directive 'wiat'\n");  // nothing ran
}

}  // namespace
