// The scenario parser: every directive, await and empty-text rules, file blocks, errors with line numbers.
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
  return sim::parse_scenario_text("case.scn", text, s, error) ? "parsed" : error;
}

// A parsed step as "LINE OP" and its non-empty fields.
std::string Show(const sim::Directive& d) {
  static const char* kOps[] = {"args", "bus", "file", "wait", "await", "signal", "mark", "expect line", "expect no line",
      "expect bus", "expect exit", "expect lines", "expect range", "show bus", "show file", "show regs", "expect presets"};
  std::string s = std::to_string(d.line) + " " + kOps[static_cast<int>(d.op)];
  if (!d.key.empty()) s += " key=" + d.key;
  if (!d.text.empty()) s += " text=" + d.text;
  if (d.ns) s += " ns=" + std::to_string(d.ns);
  if (d.number) s += " n=" + std::to_string(d.number);
  if (d.low || d.high) s += " range=" + std::to_string(d.low) + ".." + std::to_string(d.high);
  for (const std::string& w : d.words) s += " w=" + w;
  for (size_t i = 0; i < d.lines.size(); i++) s += (i ? "|" : " lines=") + d.lines[i];
  return s;
}

// Await's last word is seconds; "" alone is empty; file blocks verbatim; the daemon starts at the first wait.
TEST(RunnerParse, EveryDirectiveWithItsArguments) {
  struct { std::string text; size_t start; std::vector<std::string> steps; } cases[] = {
      {"await out in loop 120\nawait \"\" 0.25\nawait set  a=b   7  \nawait 30 .5\nbus ptz.run_mode \"\"\n"
       "expect line \"\"\nbus ptz.x \"a\"\n", 0,
       {"1 await text=out in loop ns=120000000000", "2 await ns=250000000", "3 await text=set  a=b ns=7000000000",
        "4 await text=30 ns=500000000", "5 bus key=ptz.run_mode", "6 expect line", "7 bus key=ptz.x text=\"a\""}},
      {"file /mnt/nand/pattern1.txt\n# not a comment here\n\n  go_preset:1  \nend \nend\n# a comment again\nwait 1\n", 1,
       {"1 file key=/mnt/nand/pattern1.txt lines=# not a comment here||  go_preset:1  |end ", "8 wait ns=1000000000"}},
      {"show regs 0x29\nexpect lines\nreg 0x28 2 writes\n  call PanReset()\nend\nexpect range ptz.pan_pos -5 3069\n", 3,
       {"1 show regs n=41", "2 expect lines lines=reg 0x28 2 writes|  call PanReset()",
        "6 expect range key=ptz.pan_pos range=-5..3069"}},
      {"bus a 1\n", 1, {"1 bus key=a text=1"}},  // no wait: the daemon never starts
  };
  for (auto& c : cases) {
    Scenario s = Parse(c.text);
    std::vector<std::string> steps;
    for (const sim::Directive& d : s.steps) steps.push_back(Show(d));
    EXPECT_EQ(steps, c.steps);
    EXPECT_TRUE(s.start == c.start && s.name == "case") << c.text << s.start << s.name;
  }
  EXPECT_EQ(Parse("show file /tmp/pattern1\n").steps[0].source, "show file /tmp/pattern1");
}

TEST(RunnerParse, ErrorsNameTheFileAndLine) {
  EXPECT_EQ(ParseError("wait 1\n\nfrobnicate 3\n"), "case.scn:3: unknown directive 'frobnicate'");
  EXPECT_EQ(ParseError("file /tmp/x\nline\n"), "case.scn:1: file /tmp/x has no end line");
  const std::pair<std::string, const char*> cases[] = {
      {"wait\n", "1: wait needs SECONDS"}, {"wait -1\n", "1: wait needs SECONDS"},
      {"wait 1e3\n", "1: wait needs SECONDS"}, {"await out in loop\n", "1: await needs SECONDS"},
      {"await 5\n", "1: await needs TEXT and SECONDS"}, {"wait 1\nargs pan\n", "2: args must come before"},
      {"args\nargs pan\n", "2: args given twice"}, {"signal 15\n", "1: signal before the daemon starts"},
      {"wait 1\nsignal 99\n", "2: signal needs a number"}, {"bus ptz.x\n", "1: bus needs KEY and VALUE"},
      {"bus bad/key 1\n", "1: bad bus key"},
      {"bus ptz.x " + std::string(128, 'v') + "\n", "1: value longer than 127"},
      {"mark now\n", "1: mark takes no argument"}, {"expect line\n", "1: expect line needs TEXT"},
      {"expect no x\n", "1: expect no needs 'line TEXT'"}, {"expect exit soon\n", "1: expect exit needs a status"},
      {"expect foo\n", "1: expect needs"}, {"show file tmp/x\n", "1: show file needs an absolute"},
      {"file /tmp/../etc/x\nend\n", "1: file needs an absolute"}, {"show disk\n", "1: show needs"},
      {"show regs 0x30\n", "1: show regs needs 0x28"}, {"show regs\n", "1: show regs needs 0x28"},
      {"expect lines\nx\n", "1: expect lines has no end line"},
      {"expect lines\nend\n", "1: expect lines needs at least one text"},
      {"expect lines x\nend\n", "1: expect lines takes no argument"},
      {"expect range ptz.x 5\n", "1: expect range needs KEY LOW HIGH"}, {"expect range ptz.x 5 1\n", "1: expect range needs KEY LOW HIGH"},
      {"expect range ptz.x 1 2 3\n", "1: expect range needs KEY LOW HIGH"},
      {"expect range ptz.x 1 99999999999\n", "1: expect range needs KEY LOW HIGH"}};
  for (const auto& [text, start] : cases) EXPECT_EQ(ParseError(text).rfind("case.scn:" + std::string(start), 0), 0u) << text << ParseError(text);
  Scenario s;
  std::string error;
  EXPECT_FALSE(sim::parse_scenario_file("/nonexistent/x.scn", s, error));
  EXPECT_EQ(error.rfind("/nonexistent/x.scn: cannot read the file", 0), 0u) << error;
}

}  // namespace
