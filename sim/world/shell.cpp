// The emulated shell: splits a `system` line into commands and plays the
// few the camera has (cp, rm, sync, killall, i2ctransfer) inside the
// sandbox, and starts the simulated tracker. Anything else is taken as run,
// with status 0.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "core/core.h"
#include "world/world.h"

namespace sim {

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

// How a command joins the one before it.
enum class Joint { Always, IfOk, IfFailed };

struct Command {
  Words words;
  Joint joint = Joint::Always;
  bool background = false;  // ended by a single '&': its status reads 0
};

// ---- parsing ------------------------------------------------------------------

// Cuts a line into commands at ; & && || | and line feeds, and into words at
// blanks, with '...' and "..." quoting. Redirections are dropped with their
// targets, since nothing here prints.
class LineParser {
 public:
  explicit LineParser(const char* line) : p_(line) {}

  std::vector<Command> parse() {
    while (*p_) step();
    end_command(Joint::Always, false);
    return std::move(commands_);
  }

 private:
  // Takes one character (two for an escape) of the line.
  void step() {
    char c = *p_++;
    if (c == ' ' || c == '\t') end_word();
    else if (c == ';' || c == '\n') end_command(Joint::Always, false);
    else if (c == '&') separator('&', Joint::IfOk, true);
    else if (c == '|') separator('|', Joint::IfFailed, false);
    else if (c == '>' || c == '<') redirection();
    else if (c == '\'' || c == '"') quoted(c);
    else if (c == '\\' && *p_) add_char(*p_++);
    else add_char(c);
  }

  void add_char(char c) {
    word_ += c;
    in_word_ = true;
  }

  // '&&' / '||' join conditionally; a lone '&' backgrounds, a lone '|' pipes.
  void separator(char c, Joint doubled, bool single_backgrounds) {
    if (*p_ == c) {
      p_++;
      end_command(doubled, false);
    } else {
      end_command(Joint::Always, single_backgrounds);
    }
  }

  // Drops "N>", ">>", ">&N", "<" and the word that follows as target.
  void redirection() {
    bool fd_number = in_word_ && word_.find_first_not_of("0123456789") == std::string::npos;
    if (fd_number) {
      word_.clear();
      in_word_ = false;
    }
    end_word();
    while (*p_ == '>' || *p_ == '&') p_++;
    while (*p_ == ' ' || *p_ == '\t') p_++;
    while (*p_ && !strchr(" \t;&|<>\n", *p_)) p_++;
  }

  // A quoted stretch: '...' literal, "..." with backslash escapes.
  void quoted(char q) {
    in_word_ = true;
    while (*p_ && *p_ != q) {
      if (q == '"' && *p_ == '\\' && p_[1]) p_++;
      word_ += *p_++;
    }
    if (*p_) p_++;
  }

  // Closes the present word, if one has begun.
  void end_word() {
    if (in_word_) current_.words.push_back(word_);
    word_.clear();
    in_word_ = false;
  }

  // Closes the present command; next_joint says how the following one runs.
  void end_command(Joint next_joint, bool background) {
    end_word();
    current_.background = background;
    if (!current_.words.empty()) commands_.push_back(std::move(current_));
    current_ = Command{};
    current_.joint = next_joint;
  }

  const char* p_;
  std::string word_;
  bool in_word_ = false;
  Command current_;
  std::vector<Command> commands_;
};

// ---- files -------------------------------------------------------------------

// The host path of a camera path; ".." never climbs out of the sandbox.
fs::path host_path(const std::string& camera_path) {
  std::string normal = (fs::path("/") / camera_path).lexically_normal().string();
  char out[4096];
  sandbox_path(normal.c_str(), out, sizeof out);
  return fs::path(out);
}

// Words that are not options (an option starts with '-' and has more).
Words operands(const Words& words) {
  Words out;
  for (size_t i = 1; i < words.size(); i++)
    if (words[i].size() < 2 || words[i][0] != '-') out.push_back(words[i]);
  return out;
}

// True when any option word holds the letter.
bool has_flag(const Words& words, char letter) {
  for (size_t i = 1; i < words.size(); i++)
    if (words[i].size() > 1 && words[i][0] == '-' && words[i].find(letter) != std::string::npos) return true;
  return false;
}

// cp [-opts] SRC... DST: DST may be a folder when it exists.
int run_cp(const Words& words) {
  Words args = operands(words);
  if (args.size() < 2) return 1;
  fs::path dst = host_path(args.back());
  std::error_code ec;
  bool into_dir = fs::is_directory(dst, ec);
  if (args.size() > 2 && !into_dir) return 1;
  int status = 0;
  for (size_t i = 0; i + 1 < args.size(); i++) {
    fs::path src = host_path(args[i]);
    fs::path to = into_dir ? dst / src.filename() : dst;
    if (!fs::is_regular_file(src, ec) || !fs::copy_file(src, to, fs::copy_options::overwrite_existing, ec))
      status = 1;
  }
  return status;
}

// rm [-f] [-r] PATH...: never removes the sandbox root itself.
int run_rm(const Words& words) {
  bool force = has_flag(words, 'f');
  bool recursive = has_flag(words, 'r') || has_flag(words, 'R');
  Words args = operands(words);
  int status = args.empty() && !force ? 1 : 0;
  for (const std::string& a : args) {
    fs::path p = host_path(a);
    std::error_code ec;
    if (p == host_path("/")) status = 1;
    else if (!fs::exists(fs::symlink_status(p, ec))) status = force ? status : 1;
    else if (fs::is_directory(fs::symlink_status(p, ec)) && !recursive) status = 1;
    else if (fs::remove_all(p, ec) == static_cast<std::uintmax_t>(-1) || ec) status = 1;
  }
  return status;
}

// The one simulated program that runs as a process.
constexpr const char* kTrackerName = "FigureFollow";

// killall [-SIGNAL] NAME...: recorded; naming the tracker ends every one.
int run_killall(World& w, const Words& words) {
  for (const std::string& name : operands(words)) {
    w.shell.killed.push_back(name);
    if (name == kTrackerName) tracker_kill_all(w.tracker);
  }
  return 0;
}

// ---- i2ctransfer -------------------------------------------------------------

struct I2cMessage {
  bool write = false;
  int addr = -1;
  std::vector<uint8_t> bytes;  // write: the data; read: sized for the answer
};

// A number as i2ctransfer reads it: decimal, 0x hex or 0 octal.
bool parse_number(const std::string& s, long lo, long hi, long* out) {
  if (s.empty()) return false;
  char* end = nullptr;
  long v = strtol(s.c_str(), &end, 0);
  if (*end || v < lo || v > hi) return false;
  *out = v;
  return true;
}

// Reads "{r|w}LENGTH[@ADDRESS]"; the address defaults to the previous one.
bool parse_descriptor(const std::string& s, int prev_addr, I2cMessage* m) {
  if (s.size() < 2 || (s[0] != 'r' && s[0] != 'w')) return false;
  size_t at = s.find('@');
  long len = 0, addr = prev_addr;
  if (!parse_number(s.substr(1, at == std::string::npos ? std::string::npos : at - 1), 1, 256, &len)) return false;
  if (at != std::string::npos && !parse_number(s.substr(at + 1), 0x03, 0x77, &addr)) return false;
  if (addr < 0) return false;
  m->write = s[0] == 'w';
  m->addr = static_cast<int>(addr);
  m->bytes.assign(static_cast<size_t>(len), 0);
  return true;
}

// Parses "[-opts] BUS DESC [BYTES] DESC ..."; false on any malformed word.
bool parse_i2ctransfer(const Words& words, long* bus, std::vector<I2cMessage>* msgs) {
  size_t i = 1;
  while (i < words.size() && words[i].size() > 1 && words[i][0] == '-') i++;
  if (i >= words.size() || !parse_number(words[i++], 0, 1 << 20, bus)) return false;
  int prev_addr = -1;
  while (i < words.size()) {
    I2cMessage m;
    if (!parse_descriptor(words[i++], prev_addr, &m)) return false;
    prev_addr = m.addr;
    for (size_t k = 0; m.write && k < m.bytes.size(); k++) {
      long b = 0;
      if (i >= words.size() || !parse_number(words[i++], 0, 255, &b)) return false;
      m.bytes[k] = static_cast<uint8_t>(b);
    }
    msgs->push_back(std::move(m));
  }
  return !msgs->empty();
}

// Plays the transfers on the controllers' bus; nothing is sent unless every
// message is well formed and addressed to a device that is there.
int run_i2ctransfer(World& w, const Words& words) {
  long bus = 0;
  std::vector<I2cMessage> msgs;
  if (!parse_i2ctransfer(words, &bus, &msgs) || bus != kControllerBus) return 1;
  for (const I2cMessage& m : msgs)
    if (!i2c_device(w.controllers, m.addr)) return 1;
  for (I2cMessage& m : msgs) {
    I2cDevice* dev = i2c_device(w.controllers, m.addr);
    int n = static_cast<int>(m.bytes.size());
    if ((m.write ? dev->write(m.bytes.data(), n) : dev->read(nullptr, 0, m.bytes.data(), n)) != 0) return 1;
  }
  return 0;
}

// ---- dispatch ----------------------------------------------------------------

int run_command(World& w, const Words& words) {
  std::string name = fs::path(words[0]).filename().string();
  if (name == "cp") return run_cp(words);
  if (name == "rm") return run_rm(words);
  if (name == "killall") return run_killall(w, words);
  if (name == "i2ctransfer") return run_i2ctransfer(w, words);
  if (name == kTrackerName) return tracker_start(w.tracker, w.elapsed_ns) ? 0 : 1;
  return 0;  // sync and anything else: taken as run
}

}  // namespace

int shell_run(const char* line) {
  std::lock_guard lock(big_lock());
  World& w = the_world();
  w.shell.lines++;
  int status = 0;
  for (const Command& cmd : LineParser(line ? line : "").parse()) {
    if ((cmd.joint == Joint::IfOk && status != 0) || (cmd.joint == Joint::IfFailed && status == 0)) continue;
    status = run_command(w, cmd.words);
    if (cmd.background) status = 0;
  }
  return status;
}

}  // namespace sim
