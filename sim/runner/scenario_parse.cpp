// Parser of scenario files. Each directive's last argument takes the rest of
// the line, blanks included, except in await, whose last word is SECONDS;
// `""` alone stands for the empty text.
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sstream>

#include "world/controllers.h"
#include "core/core.h"
#include "runner/scenario.h"

namespace sim {

namespace {

// Blanks separate words.
bool is_blank(char c) { return c == ' ' || c == '\t'; }

// Splits off the first word; rest starts after the blanks that follow it.
void split_word(const std::string& s, std::string& word, std::string& rest) {
  size_t i = 0;
  while (i < s.size() && !is_blank(s[i])) ++i;
  word = s.substr(0, i);
  while (i < s.size() && is_blank(s[i])) ++i;
  rest = s.substr(i);
}

// Drops trailing blanks.
std::string trim_end(const std::string& s) {
  size_t n = s.size();
  while (n > 0 && is_blank(s[n - 1])) --n;
  return s.substr(0, n);
}

// A text argument: `""` alone is the empty text.
std::string text_arg(const std::string& s) { return s == "\"\"" ? std::string() : s; }

// Seconds with an optional fraction (up to ns), e.g. "2" or "0.25".
bool parse_seconds(const std::string& word, int64_t& ns) {
  size_t dot = word.find('.');
  std::string whole = word.substr(0, dot);
  std::string frac = dot == std::string::npos ? std::string() : word.substr(dot + 1);
  if (whole.empty() && frac.empty()) return false;
  if (whole.size() > 9 || frac.size() > 9) return false;
  for (char c : whole + frac)
    if (!isdigit(static_cast<unsigned char>(c))) return false;
  frac.resize(9, '0');
  ns = (whole.empty() ? 0 : std::stoll(whole)) * 1000000000LL + std::stoll(frac);
  return true;
}

// A decimal integer in [lo, hi], optionally negative.
bool parse_int(const std::string& word, int lo, int hi, int& out) {
  size_t i = word.size() > 1 && word[0] == '-' ? 1 : 0;
  if (i == word.size() || word.size() > 11) return false;
  for (size_t j = i; j < word.size(); ++j)
    if (!isdigit(static_cast<unsigned char>(word[j]))) return false;
  long long v = std::stoll(word);
  if (v < lo || v > hi) return false;
  out = static_cast<int>(v);
  return true;
}

// A camera path: absolute and without ".." steps out of the sandbox.
bool camera_path_ok(const std::string& path) {
  if (path.empty() || path[0] != '/') return false;
  std::string step;
  std::istringstream steps(path);
  while (std::getline(steps, step, '/'))
    if (step == "..") return false;
  return true;
}

// State of one parse: the lines, where we are, and the result so far.
struct Parser {
  const std::string& path;
  std::vector<std::string> lines;
  size_t at = 0;               // index of the line being parsed
  Scenario& out;
  std::string& error;
  bool started = false;        // a wait or await has been seen
  bool have_args = false;
  bool seen_start = false;     // out.start has been set

  // Records "PATH:LINE: what"; always false, to return it directly.
  bool fail(const std::string& what) {
    error = path + ":" + std::to_string(at + 1) + ": " + what;
    return false;
  }

  // Parses KEY VALUE into d (bus and expect bus).
  bool key_value(const std::string& args, Directive& d, const char* usage) {
    std::string value;
    split_word(args, d.key, value);
    if (d.key.empty() || value.empty()) return fail(std::string(usage) + " (\"\" for the empty text)");
    if (!bus_key_valid(d.key.c_str())) return fail("bad bus key '" + d.key + "'");
    d.text = text_arg(value);
    if (d.text.size() > static_cast<size_t>(kValueMax))
      return fail("value longer than " + std::to_string(kValueMax) + " characters");
    return true;
  }

  // A required text argument (expect line, expect no line).
  bool needed_text(const std::string& args, Directive& d, const char* usage) {
    if (args.empty()) return fail(std::string(usage) + " (\"\" for the empty text)");
    d.text = text_arg(args);
    return true;
  }

  // The verbatim lines after the directive up to a line "end", into d.lines.
  bool block_lines(Directive& d, const std::string& what) {
    for (size_t i = at + 1; i < lines.size(); ++i) {
      if (lines[i] == "end") {
        d.lines.assign(lines.begin() + at + 1, lines.begin() + i);
        at = i;
        return true;
      }
    }
    return fail(what + " has no end line");
  }

  // file PATH, then verbatim lines up to a line "end".
  bool file_block(const std::string& args, Directive& d) {
    d.key = args;
    if (!camera_path_ok(d.key)) return fail("file needs an absolute camera PATH without '..'");
    return block_lines(d, "file " + d.key);
  }

  // expect lines, then the texts, one a line, up to a line "end".
  bool lines_block(const std::string& args, Directive& d) {
    if (!trim_end(args).empty()) return fail("expect lines takes no argument; the texts follow, then end");
    size_t directive_at = at;
    if (!block_lines(d, "expect lines")) return false;
    if (d.lines.empty()) {
      at = directive_at;
      return fail("expect lines needs at least one text before end");
    }
    return true;
  }

  // expect range KEY LOW HIGH
  bool range_args(const std::string& args, Directive& d) {
    std::istringstream words(args);
    std::string low, high, extra;
    words >> d.key >> low >> high;
    int lo = 0, hi = 0;
    if (!bus_key_valid(d.key.c_str()) || !parse_int(low, INT32_MIN, INT32_MAX, lo) ||
        !parse_int(high, INT32_MIN, INT32_MAX, hi) || (words >> extra) || lo > hi)
      return fail("expect range needs KEY LOW HIGH, LOW not above HIGH");
    d.low = lo;
    d.high = hi;
    return true;
  }

  // await TEXT SECONDS: the last word is the time, TEXT everything before.
  bool await_args(const std::string& args, Directive& d) {
    std::string s = trim_end(args);
    size_t cut = s.find_last_of(" \t");
    if (cut == std::string::npos) return fail("await needs TEXT and SECONDS (\"\" for the empty text)");
    if (!parse_seconds(s.substr(cut + 1), d.ns)) return fail("await needs SECONDS as its last word");
    d.text = text_arg(trim_end(s.substr(0, cut)));
    return true;
  }

  // expect line|no line|bus|exit ...
  bool expect_args(const std::string& args, Directive& d) {
    std::string sub, rest;
    split_word(args, sub, rest);
    if (sub == "line") {
      d.op = Op::ExpectLine;
      return needed_text(rest, d, "expect line needs TEXT");
    }
    if (sub == "no") {
      std::string word, text;
      split_word(rest, word, text);
      if (word != "line") return fail("expect no needs 'line TEXT'");
      d.op = Op::ExpectNoLine;
      return needed_text(text, d, "expect no line needs TEXT");
    }
    if (sub == "bus") {
      d.op = Op::ExpectBus;
      return key_value(rest, d, "expect bus needs KEY and VALUE");
    }
    if (sub == "exit") {
      d.op = Op::ExpectExit;
      if (!parse_int(trim_end(rest), -255, 255, d.number)) return fail("expect exit needs a status number");
      return true;
    }
    if (sub == "lines") {
      d.op = Op::ExpectLines;
      return lines_block(rest, d);
    }
    if (sub == "range") {
      d.op = Op::ExpectRange;
      return range_args(rest, d);
    }
    return fail("expect needs 'line', 'no line', 'lines', 'bus', 'range' or 'exit'");
  }

  // show bus [PREFIX] | show file PATH
  bool show_args(const std::string& args, Directive& d) {
    std::string sub, rest;
    split_word(args, sub, rest);
    if (sub == "bus") {
      d.op = Op::ShowBus;
      d.key = text_arg(rest);
      return true;
    }
    if (sub == "file") {
      d.op = Op::ShowFile;
      d.key = rest;
      if (!camera_path_ok(d.key)) return fail("show file needs an absolute camera PATH without '..'");
      return true;
    }
    if (sub == "regs") {
      d.op = Op::ShowRegs;
      std::string addr = trim_end(rest);
      if (addr == "0x28") d.number = kPanAddr;
      else if (addr == "0x29") d.number = kTiltAddr;
      else return fail("show regs needs 0x28 (pan) or 0x29 (tilt)");
      return true;
    }
    return fail("show needs 'bus PREFIX', 'file PATH' or 'regs ADDR'");
  }

  // Parses the directive on the current line into d.
  bool directive(const std::string& body, Directive& d) {
    std::string name, args;
    split_word(body, name, args);
    if (name == "args") {
      if (started) return fail("args must come before the first wait or await");
      if (have_args) return fail("args given twice");
      have_args = true;
      d.op = Op::Args;
      std::istringstream words(args);
      for (std::string w; words >> w;) d.words.push_back(w);
      return true;
    }
    if (name == "bus") {
      d.op = Op::Bus;
      return key_value(args, d, "bus needs KEY and VALUE");
    }
    if (name == "file") {
      d.op = Op::File;
      return file_block(args, d);
    }
    if (name == "wait" || name == "await") {
      started = true;
      d.op = name == "wait" ? Op::Wait : Op::Await;
      if (d.op == Op::Await) return await_args(args, d);
      if (!parse_seconds(trim_end(args), d.ns)) return fail("wait needs SECONDS, e.g. 2 or 0.5");
      return true;
    }
    if (name == "signal") {
      d.op = Op::Signal;
      if (!started) return fail("signal before the daemon starts (the first wait or await)");
      if (!parse_int(trim_end(args), 1, 64, d.number)) return fail("signal needs a number from 1 to 64");
      return true;
    }
    if (name == "mark") {
      d.op = Op::Mark;
      if (!trim_end(args).empty()) return fail("mark takes no argument");
      return true;
    }
    if (name == "expect") return expect_args(args, d);
    if (name == "show") return show_args(args, d);
    return fail("unknown directive '" + name + "'");
  }

  // Parses every line; false at the first error.
  bool run() {
    for (at = 0; at < lines.size(); ++at) {
      const std::string& raw = lines[at];
      size_t first = raw.find_first_not_of(" \t");
      if (first == std::string::npos || raw[first] == '#') continue;
      Directive d;
      d.line = static_cast<int>(at + 1);
      d.source = trim_end(raw.substr(first));
      if (!directive(raw.substr(first), d)) return false;
      if ((d.op == Op::Wait || d.op == Op::Await) && !seen_start) {
        seen_start = true;
        out.start = out.steps.size();
      }
      out.steps.push_back(std::move(d));
    }
    if (!seen_start) out.start = out.steps.size();
    return true;
  }
};

// Splits text into lines at line feeds; a last line without one counts.
std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t from = 0;
  while (from < text.size()) {
    size_t nl = text.find('\n', from);
    if (nl == std::string::npos) nl = text.size();
    lines.push_back(text.substr(from, nl - from));
    from = nl + 1;
  }
  return lines;
}

// The file name without folder and extension.
std::string scenario_name(const std::string& path) {
  size_t slash = path.find_last_of('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = name.rfind(".scn");
  if (dot != std::string::npos && dot + 4 == name.size()) name.resize(dot);
  return name;
}

}  // namespace

bool parse_scenario_text(const std::string& path, const std::string& text, Scenario& out,
                         std::string& error) {
  out = Scenario();
  out.path = path;
  out.name = scenario_name(path);
  Parser parser{path, split_lines(text), 0, out, error};
  return parser.run();
}

bool parse_scenario_file(const std::string& path, Scenario& out, std::string& error) {
  FILE* in = fopen(path.c_str(), "rb");
  std::string text;
  char chunk[4096];
  size_t n = 0;
  while (in && (n = fread(chunk, 1, sizeof chunk, in)) > 0) text.append(chunk, n);
  if (!in || ferror(in)) {
    error = path + ": cannot read the file: " + strerror(errno);
    if (in) fclose(in);
    return false;
  }
  fclose(in);
  return parse_scenario_text(path, text, out, error);
}

}  // namespace sim
