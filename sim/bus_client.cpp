// slewctl's commands over the bus socket of bus_protocol.h.
#include "bus_client.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "bus_protocol.h"
#include "core.h"

namespace sim {
namespace {

constexpr const char* kUsage =
    "usage: slewctl get KEY | set KEY VALUE... | list [PREFIX] | watch [-n COUNT] [PREFIX]\n";

// One connection to slewd, closed when it goes out of scope.
struct Session {
  FILE* err;                         // where errors go
  int fd = -1;                       // the connection
  std::optional<LineReader> reader;  // replies of the connection

  explicit Session(FILE* error_out) : err(error_out) {}
  ~Session() {
    if (fd >= 0) close(fd);
  }

  // Connects to the socket of the state folder; false after an error line.
  bool open(const std::string& state) {
    std::string path = socket_path(state);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
      fprintf(err, "slewctl: socket path too long: %s\n", path.c_str());
      return false;
    }
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      fprintf(err, "slewctl: no slewd running on %s (%s: %s)\n", state.c_str(), path.c_str(),
              strerror(errno));
      return false;
    }
    reader.emplace(fd);
    return true;
  }

  // Sends one request line and reads the first reply line.
  bool ask(const std::string& request, std::string* reply) {
    if (proto_send(fd, request + "\n") && reader->next(reply)) return true;
    fprintf(err, "slewctl: slewd closed the connection\n");
    return false;
  }

  // Reads one more reply line.
  bool next(std::string* line) {
    if (reader->next(line)) return true;
    fprintf(err, "slewctl: slewd went away\n");
    return false;
  }
};

// True when line begins with word and a blank (or is the word alone).
bool starts(const std::string& line, const char* word, std::string* rest) {
  size_t n = strlen(word);
  if (line.compare(0, n, word) != 0) return false;
  if (line.size() == n) {
    rest->clear();
    return true;
  }
  if (line[n] != ' ') return false;
  *rest = line.substr(n + 1);
  return true;
}

// Reports a reply that is not what the request expects.
int unexpected(FILE* err, const std::string& reply) {
  std::string why;
  if (starts(reply, "error", &why)) {
    fprintf(err, "slewctl: %s\n", why.c_str());
    return kCtlRefused;
  }
  fprintf(err, "slewctl: unexpected reply: %s\n", reply.c_str());
  return kCtlNoDaemon;
}

// Checks a key given on the command line.
bool key_ok(const char* key, FILE* err) {
  if (bus_key_valid(key)) return true;
  fprintf(err, "slewctl: bad key: %s (1 to %d characters of A-Z a-z 0-9 _ . -)\n", key, kValueMax);
  return false;
}

// slewctl get KEY
int run_get(const std::string& state, const char* key, FILE* out, FILE* err) {
  if (!key_ok(key, err)) return kCtlRefused;
  Session s(err);
  std::string reply, rest, value;
  if (!s.open(state) || !s.ask(std::string("get ") + key, &reply)) return kCtlNoDaemon;
  if (reply == "none") {
    fprintf(err, "slewctl: %s holds no value\n", key);
    return kCtlNoValue;
  }
  if (!starts(reply, "value", &rest) || !proto_unescape(rest, &value)) return unexpected(err, reply);
  fprintf(out, "%s\n", value.c_str());
  return kCtlOk;
}

// slewctl set KEY VALUE... (the words of VALUE joined with single blanks)
int run_set(const std::string& state, int argc, char** argv, FILE* err) {
  if (!key_ok(argv[2], err)) return kCtlRefused;
  std::string value = argv[3];
  for (int i = 4; i < argc; ++i) value += std::string(" ") + argv[i];
  if (value.size() > static_cast<size_t>(kValueMax)) {
    fprintf(err, "slewctl: value over %d characters (%zu)\n", kValueMax, value.size());
    return kCtlRefused;
  }
  Session s(err);
  std::string reply;
  if (!s.open(state) || !s.ask(std::string("set ") + argv[2] + " " + proto_escape(value), &reply)) {
    return kCtlNoDaemon;
  }
  return reply == "ok" ? kCtlOk : unexpected(err, reply);
}

// slewctl list [PREFIX]
int run_list(const std::string& state, const char* prefix, FILE* out, FILE* err) {
  Session s(err);
  std::string line, rest;
  if (!s.open(state) || !s.ask(std::string("list ") + prefix, &line)) return kCtlNoDaemon;
  while (starts(line, "entry", &rest)) {
    fprintf(out, "%s\n", rest.c_str());
    if (!s.next(&line)) return kCtlNoDaemon;
  }
  return line == "end" ? kCtlOk : unexpected(err, line);
}

// slewctl watch [-n COUNT] [PREFIX]: prints changes until COUNT of them
// (0: forever) or until slewd goes away.
int run_watch(const std::string& state, long count, const char* prefix, FILE* out, FILE* err) {
  Session s(err);
  std::string line, rest;
  if (!s.open(state) || !s.ask(std::string("watch ") + prefix, &line)) return kCtlNoDaemon;
  if (line != "ok") return unexpected(err, line);
  for (long seen = 0; count == 0 || seen < count; ++seen) {
    if (!s.next(&line)) return kCtlNoDaemon;
    if (!starts(line, "change", &rest)) return unexpected(err, line);
    fprintf(out, "%s\n", rest.c_str());
    fflush(out);
  }
  return kCtlOk;
}

// Parses the arguments of watch; false on a usage error.
bool parse_watch(int argc, char** argv, long* count, const char** prefix) {
  int i = 2;
  *count = 0;
  *prefix = "";
  if (i < argc && strcmp(argv[i], "-n") == 0) {
    if (i + 1 >= argc) return false;
    char* end = nullptr;
    *count = strtol(argv[i + 1], &end, 10);
    if (*end != '\0' || *count <= 0) return false;
    i += 2;
  }
  if (i < argc) *prefix = argv[i++];
  return i == argc;
}

}  // namespace

int slewctl_run(const std::string& state, int argc, char** argv, FILE* out, FILE* err) {
  std::string command = argc >= 2 ? argv[1] : "";
  if (command == "-h" || command == "--help") {
    fputs(kUsage, out);
    return kCtlOk;
  }
  if (command == "get" && argc == 3) return run_get(state, argv[2], out, err);
  if (command == "set" && argc >= 4) return run_set(state, argc, argv, err);
  if (command == "list" && argc <= 3) return run_list(state, argc == 3 ? argv[2] : "", out, err);
  long count;
  const char* prefix;
  if (command == "watch" && parse_watch(argc, argv, &count, &prefix)) {
    return run_watch(state, count, prefix, out, err);
  }
  fputs(kUsage, err);
  return kCtlUsage;
}

}  // namespace sim
