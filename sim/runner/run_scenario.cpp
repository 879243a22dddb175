// The scenario interpreter, in the child process of one scenario. The
// scenario runs inside the daemon's sleeps: the clock calls step_hook between
// virtual steps, and the directives run until one has to wait for time or for
// a transcript line.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <unistd.h>

#include "world/controllers.h"
#include "core/core.h"
#include "bus/bus_extra.h"
#include "runner/run.h"

namespace sim {

namespace {

namespace fs = std::filesystem;

enum class Block { None, Wait, Await };

// Everything the interpreter knows about the scenario in progress.
struct Run {
  const Scenario* scenario = nullptr;
  std::string keep_dir;          // where to keep the sandbox, or empty
  int report_fd = -1;            // pipe to the parent
  FILE* transcript_file = nullptr;
  size_t pc = 0;                 // next directive to execute
  Block block = Block::None;     // what the current wait/await waits for
  const Directive* blocker = nullptr;
  int64_t until = 0;             // end of the wait, or the await's deadline
  size_t scanned = 0;            // transcript lines the await has looked at
  size_t mark = 0;               // expect line/no line look from here
  bool started = false;          // the daemon has been called
  bool ended = false;            // ... and has ended with exit_status
  int exit_status = 0;
  bool executing = false;        // a directive runs: nested hooks return
  size_t regs_shown[2] = {0, 0}; // register writes of pan, tilt already shown
  const RunWatch* watch = nullptr;  // invariants checked all the time, or none
  std::string watch_failure;     // the first thing the watch found wrong
};

Run g_run;

[[noreturn]] void finish(const std::string& failure);

// Ends the scenario with a failure of directive d.
[[noreturn]] void fail(const Directive& d, const std::string& why) {
  finish(g_run.scenario->path + ":" + std::to_string(d.line) + ": " + d.source + " \u2014 " + why);
}

// Whether a transcript line contains the text (the await/expect match).
bool contains(const char* line, const std::string& text) {
  return std::string_view(line).find(text) != std::string_view::npos;
}

// Index of the first transcript line in [from, size) containing text, or -1.
long find_line(size_t from, const std::string& text) {
  size_t size = transcript_size();
  for (size_t i = from; i < size; ++i)
    if (contains(transcript_line(i), text)) return static_cast<long>(i);
  return -1;
}

// Writes all of text to fd.
void write_all(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
}

// bus_visit callback that appends "KEY=VALUE\n" to a string.
void collect_bus_line(const char* key, const char* value, void* ctx) {
  std::string& text = *static_cast<std::string*>(ctx);
  text.append(key).append("=").append(value).append("\n");
}

// Copies the sandbox and a dump of the bus into the keep folder; "" or why not.
std::string keep_sandbox() {
  std::error_code ec;
  fs::create_directories(g_run.keep_dir, ec);
  if (!ec)
    fs::copy(sandbox_root(), g_run.keep_dir,
             fs::copy_options::recursive | fs::copy_options::overwrite_existing |
                 fs::copy_options::copy_symlinks,
             ec);
  if (ec) return "cannot keep the sandbox in " + g_run.keep_dir + ": " + ec.message();
  std::string dump;
  bus_visit("", collect_bus_line, &dump);
  std::string bus_file = g_run.keep_dir + "/bus.txt";
  FILE* f = fopen(bus_file.c_str(), "w");
  if (!f) return "cannot write " + bus_file + ": " + strerror(errno);
  fwrite(dump.data(), 1, dump.size(), f);
  fclose(f);
  return "";
}

// Writes the transcript and the kept sandbox, reports to the parent, ends.
[[noreturn]] void finish(const std::string& failure) {
  console_flush();
  std::string result = failure;
  if (g_run.transcript_file) {
    transcript_open(nullptr);
    if (fclose(g_run.transcript_file) != 0 && result.empty())
      result = g_run.scenario->path + ": cannot write the transcript";
  }
  if (!g_run.keep_dir.empty()) {
    std::string why = keep_sandbox();
    if (result.empty() && !why.empty()) result = g_run.scenario->path + ": " + why;
  }
  std::string pass = "PASS";
  if (g_run.watch) pass += " " + g_run.watch->summary();
  write_all(g_run.report_fd, result.empty() ? pass : "FAIL " + result);
  _exit(0);
}

// `bus KEY VALUE`: a quiet put before the daemon starts, a full write after.
void do_bus(const Directive& d) {
  if (!g_run.started) {
    if (bus_put(d.key.c_str(), d.text.c_str()) != 0) fail(d, "the bus refused the value");
    return;
  }
  if (bus_write(Origin::External, d.key.c_str(), d.text.c_str()) != 0)
    fail(d, "the bus refused the value");
}

// `file PATH` ... `end`: creates the sandbox file with the lines given.
void do_file(const Directive& d) {
  char host[4096];
  sandbox_path(d.key.c_str(), host, sizeof host);
  sandbox_make_parents(host);
  FILE* f = fopen(host, "w");
  if (!f) fail(d, std::string("cannot create the file: ") + strerror(errno));
  for (const std::string& line : d.lines) {
    fwrite(line.data(), 1, line.size(), f);
    fputc('\n', f);
  }
  if (fclose(f) != 0) fail(d, "cannot write the file");
}

[[noreturn]] void daemon_ended(int status);

// `signal N`: the daemon's handler, or the default action (the end).
void do_signal(const Directive& d) {
  if (g_run.ended) fail(d, "the daemon has already ended with status " + std::to_string(g_run.exit_status));
  SignalHandler handler = installed_signal_handler(d.number);
  if (handler == SIG_IGN) return;
  if (handler == nullptr || handler == SIG_DFL) {
    console_flush();
    trace(Kind::Exit, "%d", 128 + d.number);
    daemon_ended(128 + d.number);
  }
  DaemonCallback daemon;
  handler(d.number);
}

// `expect exit N`.
void do_expect_exit(const Directive& d) {
  if (!g_run.ended) fail(d, g_run.started ? "the daemon is still running" : "the daemon has not started");
  if (g_run.exit_status != d.number)
    fail(d, "the daemon ended with status " + std::to_string(g_run.exit_status));
}

// `expect bus KEY VALUE`.
void do_expect_bus(const Directive& d) {
  char value[kValueMax + 1];
  if (!bus_read(d.key.c_str(), value, sizeof value)) fail(d, "the key holds no value");
  if (d.text != value) fail(d, std::string("the key holds '") + value + "'");
}

// bus_visit callback of `show bus`.
void show_bus_line(const char* key, const char* value, void*) { trace(Kind::Bus, "%s=%s", key, value); }

// `show file PATH`: one transcript line per line of the file; none if absent.
void do_show_file(const Directive& d) {
  char host[4096];
  sandbox_path(d.key.c_str(), host, sizeof host);
  FILE* f = fopen(host, "rb");
  if (!f) return;
  std::string line;
  for (int c; (c = fgetc(f)) != EOF;) {
    if (c != '\n') {
      line += static_cast<char>(c);
      continue;
    }
    trace(Kind::File, "%s: %s", d.key.c_str(), line.c_str());
    line.clear();
  }
  if (!line.empty()) trace(Kind::File, "%s: %s", d.key.c_str(), line.c_str());
  fclose(f);
}

// `show regs ADDR`: the count of register writes since the last show of
// that controller, then one line per write.
void do_show_regs(const Directive& d) {
  std::vector<RegisterWrite> log = controller_write_log(d.number);
  size_t& shown = g_run.regs_shown[d.number == kPanAddr ? 0 : 1];
  trace(Kind::Reg, "0x%02x %zu writes", d.number, log.size() - shown);
  for (size_t i = shown; i < log.size(); ++i)
    trace(Kind::Reg, "0x%02x 0x%02x=0x%x/%d", d.number, log[i].reg, log[i].value, log[i].width);
  shown = log.size();
}

// Whether the lines from `from` on, verbose-only lines left out, contain
// the texts one each, in order.
bool run_matches(size_t from, const std::vector<std::string>& texts) {
  size_t k = 0, size = transcript_size();
  for (size_t i = from; k < texts.size() && i < size; ++i) {
    if (transcript_verbose_only(i)) continue;
    if (!contains(transcript_line(i), texts[k])) return false;
    ++k;
  }
  return k == texts.size();
}

// `expect lines`: consecutive lines since the mark contain the texts in
// order; the getters of a verbose run don't break a run.
void do_expect_lines(const Directive& d) {
  for (size_t i = g_run.mark; i < transcript_size(); ++i)
    if (!transcript_verbose_only(i) && run_matches(i, d.lines)) return;
  fail(d, "no run of lines since the mark contains them in order");
}

// `expect range KEY LOW HIGH`: the daemon wrote KEY since the mark, and
// always a number within LOW..HIGH.
void do_expect_range(const Directive& d) {
  std::string prefix = "set " + d.key + "=";
  int writes = 0;
  for (size_t i = g_run.mark; i < transcript_size(); ++i) {
    const char* line = transcript_line(i);
    if (strncmp(line, prefix.c_str(), prefix.size()) != 0) continue;
    const char* value = line + prefix.size();
    char* end = nullptr;
    errno = 0;
    long long v = strtoll(value, &end, 10);
    if (end == value || *end != '\0' || errno != 0 || v < d.low || v > d.high)
      fail(d, std::string("out of range: '") + line + "'");
    writes++;
  }
  if (writes == 0) fail(d, "the daemon has not written the key since the mark");
}

// The preset list on the bus as "ID NAME" lines; positions out of their
// scales are reported in the line instead of the name.
std::string preset_listing() {
  std::string listing;
  char key[kValueMax + 1], value[kValueMax + 1];
  for (int i = 0; bus_list_name(kPresetList, i, key, sizeof key); ++i) {
    if (!bus_read(key, value, sizeof value)) continue;
    int id = -1, pan = -1, tilt = -1;
    sscanf(value, "id:%d,pan:%d,tilt:%d", &id, &pan, &tilt);
    const char* name = strstr(value, ",name:");
    listing += std::to_string(id) + " ";
    if (pan < 0 || pan > 65535 || tilt < 0 || tilt > 37681) listing += "BAD POSITION ";
    listing += (name ? name + 6 : "") + std::string("\n");
  }
  return listing;
}

// Executes one directive; wait and await only set what to wait for.
void execute(const Directive& d) {
  switch (d.op) {
    case Op::Args: break;  // taken when the daemon is called
    case Op::Bus: do_bus(d); break;
    case Op::File: do_file(d); break;
    case Op::Wait:
    case Op::Await:
      g_run.block = d.op == Op::Wait ? Block::Wait : Block::Await;
      g_run.blocker = &d;
      g_run.until = now_ns() + d.ns;
      g_run.scanned = transcript_size();
      break;
    case Op::Signal: do_signal(d); break;
    case Op::Mark: g_run.mark = transcript_size(); break;
    case Op::ExpectLine:
      if (find_line(g_run.mark, d.text) < 0) fail(d, "no line since the mark contains it");
      break;
    case Op::ExpectNoLine: {
      long at = find_line(g_run.mark, d.text);
      if (at >= 0) fail(d, std::string("found '") + transcript_line(at) + "'");
      break;
    }
    case Op::ExpectBus: do_expect_bus(d); break;
    case Op::ExpectExit: do_expect_exit(d); break;
    case Op::ShowBus: bus_visit(d.key.c_str(), show_bus_line, nullptr); break;
    case Op::ShowFile: do_show_file(d); break;
    case Op::ShowRegs: do_show_regs(d); break;
    case Op::ExpectLines: do_expect_lines(d); break;
    case Op::ExpectRange: do_expect_range(d); break;
    case Op::ExpectPresets: {
      std::string listing = preset_listing();
      if (listing != d.text) fail(d, "the bus holds\n" + listing + "instead of\n" + d.text);
      break;
    }
  }
}

// True when the current wait or await is over; otherwise sets the wake.
bool unblocked() {
  if (g_run.block == Block::Await) {
    long at = find_line(g_run.scanned, g_run.blocker->text);
    g_run.scanned = transcript_size();
    if (at >= 0) g_run.block = Block::None;
    else if (now_ns() >= g_run.until) fail(*g_run.blocker, "no such line within the time");
  }
  if (g_run.block == Block::Wait && now_ns() >= g_run.until) g_run.block = Block::None;
  if (g_run.block == Block::None) return true;
  set_wake_ns(g_run.until);
  return false;
}

// Executes directives until one must wait; ends the run after the last.
void advance() {
  if (g_run.executing) return;
  const std::vector<Directive>& steps = g_run.scenario->steps;
  while (unblocked()) {
    if (g_run.pc == steps.size()) finish("");
    const Directive& d = steps[g_run.pc++];
    g_run.executing = true;
    execute(d);
    g_run.executing = false;
  }
}

// The daemon is gone: the rest of the scenario runs on the clock alone.
[[noreturn]] void daemon_ended(int status) {
  g_run.ended = true;
  g_run.exit_status = status;
  g_run.executing = false;  // a signal directive that ended it is over
  set_delivery(false);
  advance();
  for (;;) sleep_ns(kWorldStepNs);
}

// Ends the run when the watch has found something wrong.
void check_watch() {
  if (!g_run.watch || g_run.executing) return;
  if (g_run.watch_failure.empty()) g_run.watch_failure = g_run.watch->on_step(now_ns());
  if (!g_run.watch_failure.empty())
    finish(g_run.scenario->path + ": at " + std::to_string(now_ns() / 1000000) + " ms: " + g_run.watch_failure);
}

// Between virtual steps: the invariants, then the scenario's turn.
void step_hook() {
  check_watch();
  advance();
}

// A new transcript line: the watch sees it, and an await that it satisfies
// resumes at once.
void line_hook(const char* line) {
  if (g_run.watch && g_run.watch_failure.empty()) g_run.watch_failure = g_run.watch->on_line(line);
  if (g_run.block == Block::Await && contains(line, g_run.blocker->text)) set_wake_ns(now_ns());
}

// os_exit of the daemon (the exit line is already traced).
void exit_hook(int status) { daemon_ended(status); }

// argv of the daemon: "slewd" and the words of `args`.
std::vector<std::string> daemon_words(const Scenario& scenario) {
  std::vector<std::string> words{"slewd"};
  for (const Directive& d : scenario.steps)
    if (d.op == Op::Args) words.insert(words.end(), d.words.begin(), d.words.end());
  return words;
}

// Opens the transcript file, the sandbox and the bus; "" or why not.
std::string set_up(const RunOptions& options, const std::string& sandbox) {
  clock_init(ClockMode::Virtual);
  set_verbose(options.verbose);
  if (!options.transcript.empty()) {
    g_run.transcript_file = fopen(options.transcript.c_str(), "w");
    if (!g_run.transcript_file) return "cannot write " + options.transcript + ": " + strerror(errno);
    transcript_open(g_run.transcript_file);
  }
  sandbox_set_root(sandbox.c_str());
  if (sandbox_make_camera_folders() != 0) return "cannot create the camera's folders in " + sandbox;
  if (bus_open(":memory:") != 0) return "cannot open the bus";
  return "";
}

}  // namespace

void run_scenario(const Scenario& scenario, const RunOptions& options, DaemonMain daemon_main,
                  const std::string& sandbox, const std::string& keep_dir, int report_fd) {
  g_run = Run();
  g_run.scenario = &scenario;
  g_run.keep_dir = keep_dir;
  g_run.report_fd = report_fd;
  g_run.watch = options.watch;
  g_run.mark = transcript_size();  // a forked child inherits its parent's lines
  std::string why = set_up(options, sandbox);
  if (!why.empty()) finish(scenario.path + ": " + why);
  // The directives before the first wait or await prepare the camera.
  for (; g_run.pc < scenario.start; ++g_run.pc) execute(scenario.steps[g_run.pc]);
  if (g_run.pc == scenario.steps.size()) finish("");
  world_init();
  set_step_hook(step_hook);
  set_line_hook(line_hook);
  set_exit_hook(exit_hook);
  mark_daemon_start();
  g_run.started = true;
  advance();
  std::vector<std::string> words = daemon_words(scenario);
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  int status = daemon_main(static_cast<int>(words.size()), argv.data());
  console_flush();
  trace(Kind::Exit, "%d", status);
  daemon_ended(status);
}

}  // namespace sim
