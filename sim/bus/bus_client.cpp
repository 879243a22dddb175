// slewctl's commands over the bus socket of bus_protocol.h.
//
// Every call has a time limit (--timeout, 5 s by default): a hung slewd
// cannot hang slewctl. A set is answered once slewd has taken it and stored
// what it stores, so a set that times out may still be applied. `watch` waits for changes without one once slewd has
// accepted it; `run --wait` waits at most --timeout for the move (60 s by
// default, as moves take that long).
#include "bus/bus_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <vector>

#include "bus/bus_protocol.h"
#include "core/core.h"

namespace sim {

const char* const kSlewctlHelp =
    "usage: slewctl [options] COMMAND\n"
    "  get KEY                 print the value of KEY\n"
    "  set KEY VALUE...        write VALUE (words joined with blanks) to KEY\n"
    "  list [PREFIX]           print KEY=VALUE for every key under PREFIX\n"
    "  watch [-n COUNT] [--changes] [PREFIX]\n"
    "                          print KEY=VALUE for every write under PREFIX\n"
    "                          (--changes: only values that differ from the last)\n"
    "  run COMMAND [--wait]    write COMMAND to ptz.run_mode; --wait waits for\n"
    "                          the move to start and end, prints the position\n"
    "  preview [--hours H] [--plot FILE.svg]\n"
    "                          what the head will do in the next H hours (24),\n"
    "                          run by slewsim from a copy of the bus\n"
    "options:\n"
    "  --timeout S   give up after S seconds (default 5; run --wait: 60)\n"
    "  --raw         print values as stored, control characters included\n"
    "  -h, --help    this text\n"
    "The state folder is $SLEWD_STATE, else ~/.local/state/slewd.\n"
    "Exit: 0 done, 1 no value, 2 usage, 3 no slewd, 4 refused, 5 timeout.\n"
    "See docs/commands.md for the command language and `man slewctl`.\n";

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kDefaultTimeout = 5.0;
constexpr double kDefaultRunTimeout = 60.0;
// After a move has ended, how long run --wait takes late position updates
// (the head publishes its position every 100 ms).
constexpr int kSettleMs = 300;

// The command line, options taken out.
struct Options {
  std::vector<std::string> words;  // command and its arguments
  double timeout = -1;             // seconds; -1: the command's default
  bool raw = false;                // --raw
  bool changes = false;            // --changes
  bool wait = false;               // --wait
  long count = 0;                  // -n COUNT (0: forever)
};

// One connection to slewd, closed when it goes out of scope.
struct Session {
  FILE* err;                         // where errors go
  double timeout;                    // seconds for each reply
  int fd = -1;                       // the connection
  std::optional<LineReader> reader;  // replies of the connection
  int failure = kCtlNoDaemon;        // status of the last failed call
  bool writing = false;              // a set is awaiting its answer

  Session(FILE* error_out, double limit) : err(error_out), timeout(limit) {}
  ~Session() {
    if (fd >= 0) close(fd);
  }

  // Connects to the socket of the state folder; false after an error line.
  bool open(const std::string& state) {
    std::string why;
    fd = connect_socket(socket_path(state), timeout, &why);
    if (fd < 0) {
      if (errno == EAGAIN || errno == EINPROGRESS) return timed_out();
      if (errno == ENAMETOOLONG) fprintf(err, "slewctl: %s\n", why.c_str());
      else fprintf(err, "slewctl: no slewd running on %s (%s)\n", state.c_str(), why.c_str());
      return false;
    }
    reader.emplace(fd);
    return true;
  }

  // Reports a reply that did not come in time.
  bool timed_out() {
    fprintf(err, "slewctl: no answer from slewd within %g s%s\n", timeout,
            writing ? "; the write may still be applied" : "");
    failure = kCtlTimeout;
    return false;
  }

  // Sends one request line and reads the first reply line.
  bool ask(const std::string& request, std::string* reply) {
    if (proto_send(fd, request + "\n") && reader->next(reply)) return true;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return timed_out();
    fprintf(err, "slewctl: slewd closed the connection\n");
    return false;
  }

  // Reads one more reply line.
  bool next(std::string* line) {
    if (reader->next(line)) return true;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return timed_out();
    fprintf(err, "slewctl: slewd went away\n");
    return false;
  }
};

// Reports a reply that is not what the request expects.
int unexpected(FILE* err, const std::string& reply) {
  std::string why;
  if (proto_word(reply, "error", &why)) {
    fprintf(err, "slewctl: %s\n", display_escape(why).c_str());
    return kCtlRefused;
  }
  fprintf(err, "slewctl: unexpected reply: %s\n", display_escape(reply).c_str());
  return kCtlNoDaemon;
}

// Checks a key given on the command line.
bool key_ok(const std::string& key, FILE* err) {
  if (bus_key_valid(key.c_str())) return true;
  fprintf(err, "slewctl: bad key: %s (1 to %d characters of A-Z a-z 0-9 _ . -)\n",
          display_escape(key).c_str(), kValueMax);
  return false;
}

// A value as printed: escaped for the terminal unless --raw.
std::string shown(const Options& o, const std::string& value) {
  return o.raw ? value : display_escape(value);
}

// Reads `get KEY` on an open session: 0 with the value, else a status.
int read_value(Session& s, const std::string& key, std::string* value) {
  std::string reply, rest;
  if (!s.ask("get " + key, &reply)) return s.failure;
  if (reply == "none") return kCtlNoValue;
  if (!proto_word(reply, "value", &rest) || !proto_unescape(rest, value)) return unexpected(s.err, reply);
  return kCtlOk;
}

// slewctl get KEY
int run_get(const std::string& state, const Options& o, FILE* out, FILE* err) {
  const std::string& key = o.words[1];
  if (!key_ok(key, err)) return kCtlRefused;
  Session s(err, o.timeout);
  std::string value;
  if (!s.open(state)) return s.failure;
  int status = read_value(s, key, &value);
  if (status == kCtlNoValue) fprintf(err, "slewctl: %s holds no value\n", key.c_str());
  if (status == kCtlOk) fprintf(out, "%s\n", shown(o, value).c_str());
  return status;
}

// Writes value to key on an open session; a status.
int write_value(Session& s, const std::string& key, const std::string& value) {
  std::string reply;
  s.writing = true;
  bool answered = s.ask("set " + key + " " + proto_escape(value), &reply);
  s.writing = false;
  if (!answered) return s.failure;
  return reply == "ok" ? kCtlOk : unexpected(s.err, reply);
}

// Checks the length of a value to write.
bool value_ok(const std::string& value, FILE* err) {
  if (value.size() <= static_cast<size_t>(kValueMax)) return true;
  fprintf(err, "slewctl: value over %d characters (%zu)\n", kValueMax, value.size());
  return false;
}

// slewctl set KEY VALUE... (the words of VALUE joined with single blanks)
int run_set(const std::string& state, const Options& o, FILE* err) {
  if (!key_ok(o.words[1], err)) return kCtlRefused;
  std::string value = o.words[2];
  for (size_t i = 3; i < o.words.size(); ++i) value += " " + o.words[i];
  if (!value_ok(value, err)) return kCtlRefused;
  Session s(err, o.timeout);
  if (!s.open(state)) return s.failure;
  return write_value(s, o.words[1], value);
}

// slewctl list [PREFIX]
int run_list(const std::string& state, const Options& o, FILE* out, FILE* err) {
  Session s(err, o.timeout);
  std::string line, rest, key, value;
  std::string prefix = o.words.size() > 1 ? o.words[1] : "";
  if (!s.open(state) || !s.ask("list " + prefix, &line)) return s.failure;
  while (proto_word(line, "entry", &rest)) {
    if (!proto_split_entry(rest, &key, &value)) return unexpected(err, line);
    fprintf(out, "%s=%s\n", key.c_str(), shown(o, value).c_str());
    if (!s.next(&line)) return s.failure;
  }
  return line == "end" ? kCtlOk : unexpected(err, line);
}

// Opens a watch of prefix on a session; a status.
int open_watch(Session& s, const std::string& state, const std::string& prefix) {
  std::string line;
  if (!s.open(state) || !s.ask("watch " + prefix, &line)) return s.failure;
  return line == "ok" ? kCtlOk : unexpected(s.err, line);
}

// Reads the next change of a watch into key and value; a status.
int next_change(Session& s, std::string* key, std::string* value) {
  std::string line, rest;
  if (!s.next(&line)) return s.failure;
  if (!proto_word(line, "change", &rest) || !proto_split_entry(rest, key, value)) {
    return unexpected(s.err, line);
  }
  return kCtlOk;
}

// The values under prefix now, for watch --changes.
std::map<std::string, std::string> current_values(const std::string& state, const Options& o,
                                                  const std::string& prefix, FILE* err) {
  std::map<std::string, std::string> values;
  Session s(err, o.timeout);
  std::string line, rest, key, value;
  if (s.open(state) && s.ask("list " + prefix, &line)) {
    while (proto_word(line, "entry", &rest) && proto_split_entry(rest, &key, &value) && s.next(&line)) {
      values[key] = value;
    }
  }
  return values;
}

// slewctl watch [-n COUNT] [--changes] [PREFIX]: prints writes until COUNT
// of them (0: forever) or until slewd goes away.
int run_watch(const std::string& state, const Options& o, FILE* out, FILE* err) {
  std::string prefix = o.words.size() > 1 ? o.words[1] : "";
  Session s(err, o.timeout);
  int status = open_watch(s, state, prefix);
  if (status != kCtlOk) return status;
  set_socket_timeout(s.fd, 0);  // changes may be far apart
  std::map<std::string, std::string> last;
  if (o.changes) last = current_values(state, o, prefix, err);
  std::string key, value;
  for (long seen = 0; o.count == 0 || seen < o.count;) {
    status = next_change(s, &key, &value);
    if (status != kCtlOk) return status;
    if (o.changes) {
      auto it = last.find(key);
      if (it != last.end() && it->second == value) continue;
      last[key] = value;
    }
    fprintf(out, "%s=%s\n", key.c_str(), shown(o, value).c_str());
    fflush(out);
    ++seen;
  }
  return kCtlOk;
}

// Milliseconds left until deadline, at least 1.
int ms_left(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() > 1 ? static_cast<int>(left.count()) : 1;
}

// Whether a watch has a line to read within ms.
bool line_within(Session& s, int ms) {
  if (s.reader->buffered()) return true;
  pollfd p{s.fd, POLLIN, 0};
  return poll(&p, 1, ms) > 0;
}

// What run --wait follows of the head.
struct Motion {
  bool started = false;  // ptz.status has left 0
  bool ended = false;    // and come back to 0
  std::string pan = "?", tilt = "?", zoom = "?";
};

// Takes one change of the watch into the motion.
void follow(Motion* m, const std::string& key, const std::string& value) {
  if (key == "ptz.status") {
    if (value != "0") m->started = true;
    if (value == "0" && m->started) m->ended = true;
  } else if (key == "ptz.pan_pos") {
    m->pan = value;
  } else if (key == "ptz.tilt_pos") {
    m->tilt = value;
  } else if (key == "ptz.lens.get_pos.zoom") {
    m->zoom = value;
  }
}

// Reads the position the head has published before the move.
void initial_position(Session& s, Motion* m) {
  std::string value;
  if (read_value(s, "ptz.pan_pos", &value) == kCtlOk) m->pan = value;
  if (read_value(s, "ptz.tilt_pos", &value) == kCtlOk) m->tilt = value;
  if (read_value(s, "ptz.lens.get_pos.zoom", &value) == kCtlOk) m->zoom = value;
}

// slewctl run COMMAND [--wait]: writes ptz.run_mode; with --wait follows
// ptz.status from leaving 0 to coming back, then prints where the head is.
int run_run(const std::string& state, const Options& o, FILE* out, FILE* err) {
  std::string command = o.words[1];
  for (size_t i = 2; i < o.words.size(); ++i) command += " " + o.words[i];
  if (!value_ok(command, err)) return kCtlRefused;
  double limit = o.timeout > 0 ? o.timeout : (o.wait ? kDefaultRunTimeout : kDefaultTimeout);
  // --timeout bounds every call; without it each reply has the usual 5 s.
  double each = o.timeout > 0 ? o.timeout : kDefaultTimeout;
  Session writer(err, each);
  if (!o.wait) return writer.open(state) ? write_value(writer, "ptz.run_mode", command) : writer.failure;
  // The watch is in place before the command, so no change is missed.
  Session watch(err, each);
  int status = open_watch(watch, state, "ptz.");
  if (status != kCtlOk) return status;
  Motion m;
  if (!writer.open(state)) return writer.failure;
  initial_position(writer, &m);
  auto start = Clock::now();
  auto deadline = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(limit));
  status = write_value(writer, "ptz.run_mode", command);
  if (status != kCtlOk) return status;
  set_socket_timeout(watch.fd, 0);
  std::string key, value;
  while (!m.ended) {
    if (Clock::now() >= deadline || !line_within(watch, ms_left(deadline))) {
      fprintf(err, "slewctl: the move did not %s within %g s\n", m.started ? "end" : "start", limit);
      return kCtlTimeout;
    }
    status = next_change(watch, &key, &value);
    if (status != kCtlOk) return status;
    follow(&m, key, value);
  }
  double took = std::chrono::duration<double>(Clock::now() - start).count();
  auto settle = Clock::now() + std::chrono::milliseconds(kSettleMs);
  while (Clock::now() < settle && line_within(watch, ms_left(settle))) {
    if (next_change(watch, &key, &value) != kCtlOk) break;
    follow(&m, key, value);
  }
  fprintf(out, "pan %s tilt %s zoom %s in %.2f s\n", m.pan.c_str(), m.tilt.c_str(), m.zoom.c_str(),
          took);
  return kCtlOk;
}

// Reads a count or a number of seconds; false unless it is one above 0.
bool positive(const char* text, double* number) {
  char* end = nullptr;
  *number = strtod(text, &end);
  return end != text && *end == '\0' && *number > 0 && std::isfinite(*number);
}

// Takes the options out of the command line; false on a usage error.
bool parse_options(int argc, char** argv, Options* o, bool* help) {
  bool words_only = false;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    double number = 0;
    if (words_only || a.empty() || a[0] != '-' || a == "-") {
      o->words.push_back(a);
    } else if (a == "--") {
      words_only = true;
    } else if (a == "-h" || a == "--help") {
      *help = true;
    } else if (a == "--raw") {
      o->raw = true;
    } else if (a == "--changes") {
      o->changes = true;
    } else if (a == "--wait") {
      o->wait = true;
    } else if ((a == "--timeout" || a == "-n") && i + 1 < argc && positive(argv[i + 1], &number)) {
      if (a == "-n") o->count = static_cast<long>(number);
      if (a == "--timeout") o->timeout = number;
      ++i;
    } else if (a.size() > 1 && (a[1] < '0' || a[1] > '9')) {
      return false;  // an unknown option; "-30,0,0" and the like are words
    } else {
      o->words.push_back(a);
    }
  }
  return true;
}

// Whether the words and options fit the command.
bool fits(const Options& o) {
  if (o.words.empty()) return false;
  const std::string& c = o.words[0];
  size_t n = o.words.size();
  bool only_watch = o.changes || o.count > 0;
  if (only_watch && c != "watch") return false;
  if (o.wait && c != "run") return false;
  if (c == "get") return n == 2;
  if (c == "set") return n >= 3;
  if (c == "list" || c == "watch") return n <= 2;
  if (c == "run") return n >= 2;
  return false;
}

}  // namespace

int slewctl_run(const std::string& state, int argc, char** argv, FILE* out, FILE* err) {
  Options o;
  bool help = false;
  bool parsed = parse_options(argc, argv, &o, &help);
  if (help) {
    fputs(kSlewctlHelp, out);
    return kCtlOk;
  }
  if (!parsed || !fits(o)) {
    fputs("slewctl: bad command line; slewctl --help tells the commands\n", err);
    return kCtlUsage;
  }
  const std::string& c = o.words[0];
  if (c == "run") return run_run(state, o, out, err);
  if (o.timeout < 0) o.timeout = kDefaultTimeout;
  if (c == "get") return run_get(state, o, out, err);
  if (c == "set") return run_set(state, o, err);
  if (c == "list") return run_list(state, o, out, err);
  return run_watch(state, o, out, err);
}

}  // namespace sim
