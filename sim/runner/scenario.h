// Scenario files: one directive per line, parsed before anything runs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

enum class Op {
  Args,          // words: the daemon's argv[1] onwards
  Bus,           // key, text: put before start, write as another process after
  File,          // key = camera path, lines: the file's content
  Wait,          // ns: virtual time to let pass
  Await,         // text, ns: a new line containing text, within ns
  Signal,        // number: signal for the daemon
  Mark,          // later expects look after this point
  ExpectLine,    // text: some line since the mark contains it
  ExpectNoLine,  // text: no line since the mark contains it
  ExpectBus,     // key, text: the store holds exactly text at key
  ExpectExit,    // number: the daemon ended with this status
  ExpectLines,   // lines: consecutive lines since the mark contain them, in order
  ExpectRange,   // key, low, high: every daemon write of key since the mark in range
  ShowBus,       // key = prefix
  ShowFile,      // key = camera path
  ShowRegs,      // number: controller address
  ExpectPresets, // text: the preset list as "ID NAME" lines (built by the soak)
};

struct Directive {
  Op op;
  int line;                        // line number in the file, from 1
  std::string source;              // the directive as written, for messages
  std::string key;                 // bus key, prefix or camera path
  std::string text;                // value or text to match
  std::vector<std::string> words;  // args
  std::vector<std::string> lines;  // file content, verbatim
  int64_t ns = 0;                  // wait and await
  int number = 0;                  // signal, expected exit status, controller
  int64_t low = 0, high = 0;       // expect range
};

struct Scenario {
  std::string path;                 // as given on the command line
  std::string name;                 // file name without folder and .scn
  std::vector<Directive> steps;
  size_t start = 0;                 // index of the first wait or await (the
                                    // daemon's start); steps.size() if none
};

// Parses scenario text read from path. On a bad directive returns false with
// "PATH:LINE: what is wrong" in error.
bool parse_scenario_text(const std::string& path, const std::string& text, Scenario& out,
                         std::string& error);
// Reads and parses a scenario file; an unreadable file gives "PATH: why".
bool parse_scenario_file(const std::string& path, Scenario& out, std::string& error);

}  // namespace sim
