// The scenario parser: every directive, the await and empty-text rules,
// verbatim file blocks, comments, and errors with their line numbers.
#include <gtest/gtest.h>

#include <string>

#include "runner/scenario.h"

namespace {

using sim::Op;
using sim::Scenario;

Scenario Parse(const std::string& text) {
  Scenario s;
  std::string error;
  EXPECT_TRUE(sim::parse_scenario_text("dir/case.scn", text, s, error)) << error;
  return s;
}

std::string ParseError(const std::string& text) {
  Scenario s;
  std::string error;
  EXPECT_FALSE(sim::parse_scenario_text("case.scn", text, s, error));
  return error;
}

TEST(RunnerParse, EveryDirectiveWithItsArguments) {
  Scenario s = Parse(
      "# set-up\n"
      "args spddry  2\n"
      "bus sim.clock 2026-01-07 08:30:00\n"
      "\n"
      "wait 1.5\n"
      "signal 15\n"
      "mark\n"
      "expect line set ptz.status=0\n"
      "expect no line out motor init fail\n"
      "expect bus ptz.init.pt done\n"
      "expect exit -1\n"
      "show bus ptz.\n"
      "show bus\n"
      "show file /tmp/pattern1\n");
  EXPECT_EQ(s.name, "case");
  ASSERT_EQ(s.steps.size(), 12u);
  EXPECT_EQ(s.steps[0].op, Op::Args);
  EXPECT_EQ(s.steps[0].words, (std::vector<std::string>{"spddry", "2"}));
  EXPECT_EQ(s.steps[1].key, "sim.clock");
  EXPECT_EQ(s.steps[1].text, "2026-01-07 08:30:00");  // the rest of the line, blanks included
  EXPECT_EQ(s.steps[2].op, Op::Wait);
  EXPECT_EQ(s.steps[2].ns, 1500000000);
  EXPECT_EQ(s.steps[2].line, 5);
  EXPECT_EQ(s.start, 2u);
  EXPECT_EQ(s.steps[3].number, 15);
  EXPECT_EQ(s.steps[4].op, Op::Mark);
  EXPECT_EQ(s.steps[5].op, Op::ExpectLine);
  EXPECT_EQ(s.steps[5].text, "set ptz.status=0");
  EXPECT_EQ(s.steps[6].op, Op::ExpectNoLine);
  EXPECT_EQ(s.steps[6].text, "out motor init fail");
  EXPECT_EQ(s.steps[7].op, Op::ExpectBus);
  EXPECT_EQ(s.steps[7].text, "done");
  EXPECT_EQ(s.steps[8].number, -1);
  EXPECT_EQ(s.steps[9].key, "ptz.");
  EXPECT_EQ(s.steps[10].key, "");
  EXPECT_EQ(s.steps[11].op, Op::ShowFile);
  EXPECT_EQ(s.steps[11].source, "show file /tmp/pattern1");
}

TEST(RunnerParse, AwaitTakesTheLastWordAsSecondsAndQuotesAsEmpty) {
  Scenario s = Parse(
      "await out in loop 120\n"
      "await \"\" 0.25\n"
      "await set  a=b   7  \n"
      "await 30 .5\n"
      "bus ptz.run_mode \"\"\n"
      "expect line \"\"\n"
      "bus ptz.x \"a\"\n");
  EXPECT_EQ(s.steps[0].text, "out in loop");
  EXPECT_EQ(s.steps[0].ns, 120000000000);
  EXPECT_EQ(s.steps[1].text, "");
  EXPECT_EQ(s.steps[1].ns, 250000000);
  EXPECT_EQ(s.steps[2].text, "set  a=b");
  EXPECT_EQ(s.steps[2].ns, 7000000000);
  EXPECT_EQ(s.steps[3].text, "30");  // a number in TEXT is text
  EXPECT_EQ(s.steps[3].ns, 500000000);
  EXPECT_EQ(s.steps[4].text, "");
  EXPECT_EQ(s.steps[5].text, "");
  EXPECT_EQ(s.steps[6].text, "\"a\"");  // only "" alone is special
  EXPECT_EQ(s.start, 0u);
}

TEST(RunnerParse, FileBlockKeepsEveryLineAsItIs) {
  Scenario s = Parse(
      "file /mnt/nand/pattern1.txt\n"
      "# not a comment here\n"
      "\n"
      "  go_preset:1  \n"
      "end \n"
      "end\n"
      "# a comment again\n"
      "wait 1\n");
  ASSERT_EQ(s.steps.size(), 2u);
  EXPECT_EQ(s.steps[0].key, "/mnt/nand/pattern1.txt");
  EXPECT_EQ(s.steps[0].lines,
            (std::vector<std::string>{"# not a comment here", "", "  go_preset:1  ", "end "}));
  EXPECT_EQ(s.steps[1].line, 8);
  EXPECT_EQ(s.start, 1u);
  EXPECT_EQ(Parse("bus a 1\n").start, 1u);  // no wait: the daemon never starts
}

TEST(RunnerParse, RegisterLogAndLineChecks) {
  Scenario s = Parse(
      "show regs 0x29\n"
      "expect lines\n"
      "reg 0x28 2 writes\n"
      "  call PanReset()\n"
      "end\n"
      "expect range ptz.pan_pos -5 3069\n");
  ASSERT_EQ(s.steps.size(), 3u);
  EXPECT_EQ(s.steps[0].op, Op::ShowRegs);
  EXPECT_EQ(s.steps[0].number, 0x29);
  EXPECT_EQ(s.steps[1].op, Op::ExpectLines);
  EXPECT_EQ(s.steps[1].lines, (std::vector<std::string>{"reg 0x28 2 writes", "  call PanReset()"}));
  EXPECT_EQ(s.steps[2].op, Op::ExpectRange);
  EXPECT_EQ(s.steps[2].key, "ptz.pan_pos");
  EXPECT_EQ(s.steps[2].low, -5);
  EXPECT_EQ(s.steps[2].high, 3069);
}

TEST(RunnerParse, ErrorsNameTheFileAndLine) {
  EXPECT_EQ(ParseError("wait 1\n\nfrobnicate 3\n"), "case.scn:3: unknown directive 'frobnicate'");
  EXPECT_EQ(ParseError("file /tmp/x\nline\n"), "case.scn:1: file /tmp/x has no end line");
  struct Case {
    std::string text;
    const char* error_start;
  } cases[] = {
      {"wait\n", "case.scn:1: wait needs SECONDS"},
      {"wait -1\n", "case.scn:1: wait needs SECONDS"},
      {"wait 1e3\n", "case.scn:1: wait needs SECONDS"},
      {"await out in loop\n", "case.scn:1: await needs SECONDS"},
      {"await 5\n", "case.scn:1: await needs TEXT and SECONDS"},
      {"wait 1\nargs pan\n", "case.scn:2: args must come before"},
      {"args\nargs pan\n", "case.scn:2: args given twice"},
      {"signal 15\n", "case.scn:1: signal before the daemon starts"},
      {"wait 1\nsignal 99\n", "case.scn:2: signal needs a number"},
      {"bus ptz.x\n", "case.scn:1: bus needs KEY and VALUE"},
      {"bus bad/key 1\n", "case.scn:1: bad bus key"},
      {"bus ptz.x " + std::string(128, 'v') + "\n", "case.scn:1: value longer than 127"},
      {"mark now\n", "case.scn:1: mark takes no argument"},
      {"expect line\n", "case.scn:1: expect line needs TEXT"},
      {"expect no x\n", "case.scn:1: expect no needs 'line TEXT'"},
      {"expect exit soon\n", "case.scn:1: expect exit needs a status"},
      {"expect foo\n", "case.scn:1: expect needs"},
      {"show file tmp/x\n", "case.scn:1: show file needs an absolute"},
      {"file /tmp/../etc/x\nend\n", "case.scn:1: file needs an absolute"},
      {"show disk\n", "case.scn:1: show needs"},
      {"show regs 0x30\n", "case.scn:1: show regs needs 0x28"},
      {"show regs\n", "case.scn:1: show regs needs 0x28"},
      {"expect lines\nx\n", "case.scn:1: expect lines has no end line"},
      {"expect lines\nend\n", "case.scn:1: expect lines needs at least one text"},
      {"expect lines x\nend\n", "case.scn:1: expect lines takes no argument"},
      {"expect range ptz.x 5\n", "case.scn:1: expect range needs KEY LOW HIGH"},
      {"expect range ptz.x 5 1\n", "case.scn:1: expect range needs KEY LOW HIGH"},
      {"expect range ptz.x 1 2 3\n", "case.scn:1: expect range needs KEY LOW HIGH"},
      {"expect range ptz.x 1 99999999999\n", "case.scn:1: expect range needs KEY LOW HIGH"},
  };
  for (const Case& c : cases) {
    std::string error = ParseError(c.text);
    EXPECT_EQ(error.rfind(c.error_start, 0), 0u) << c.text << " gave: " << error;
  }
}

TEST(RunnerParse, UnreadableFileIsAnError) {
  Scenario s;
  std::string error;
  EXPECT_FALSE(sim::parse_scenario_file("/nonexistent/x.scn", s, error));
  EXPECT_EQ(error.rfind("/nonexistent/x.scn: cannot read the file", 0), 0u) << error;
}

}  // namespace
