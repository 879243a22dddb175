// Requests to slewd's bus socket in the line protocol of sim/bus/bus_protocol.h.
#include "bus_link.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <chrono>
#include <cstring>
#include <thread>

#include "bus/bus_protocol.h"

namespace buslink {
namespace {

// Closes a socket when it goes out of scope.
struct FdCloser {
  int fd;
  ~FdCloser() {
    if (fd >= 0) close(fd);
  }
};

// Turns a reply that is not the expected one into an error text and status.
BusReply unexpected(const std::string& reply, std::string* error) {
  if (sim::proto_word(reply, "error", error)) return BusReply::kRefused;
  *error = "unexpected reply from slewd: " + reply;
  return BusReply::kNoDaemon;
}

}  // namespace

int BusLink::connect_socket(std::string* error) const {
  std::string why;
  int fd = sim::connect_socket(sim::socket_path(state_), 0, &why);
  if (fd < 0) *error = errno == ENAMETOOLONG ? why : "no slewd running on " + state_ + " (" + why + ")";
  return fd;
}

BusReply BusLink::get(const std::string& key, std::string* value, std::string* error) const {
  FdCloser fd{connect_socket(error)};
  if (fd.fd < 0) return BusReply::kNoDaemon;
  sim::LineReader reader(fd.fd);
  std::string reply, rest;
  if (!sim::proto_send(fd.fd, "get " + key + "\n") || !reader.next(&reply)) {
    *error = "slewd closed the connection";
    return BusReply::kNoDaemon;
  }
  if (reply == "none") return BusReply::kNoValue;
  if (sim::proto_word(reply, "value", &rest) && sim::proto_unescape(rest, value)) return BusReply::kOk;
  return unexpected(reply, error);
}

BusReply BusLink::set(const std::string& key, const std::string& value, std::string* error) const {
  FdCloser fd{connect_socket(error)};
  if (fd.fd < 0) return BusReply::kNoDaemon;
  sim::LineReader reader(fd.fd);
  std::string reply;
  if (!sim::proto_send(fd.fd, "set " + key + " " + sim::proto_escape(value) + "\n") ||
      !reader.next(&reply)) {
    *error = "slewd closed the connection";
    return BusReply::kNoDaemon;
  }
  return reply == "ok" ? BusReply::kOk : unexpected(reply, error);
}

BusReply BusLink::list(const std::string& prefix, std::map<std::string, std::string>* out,
                       std::string* error) const {
  FdCloser fd{connect_socket(error)};
  if (fd.fd < 0) return BusReply::kNoDaemon;
  sim::LineReader reader(fd.fd);
  std::string line, rest, key, value;
  if (!sim::proto_send(fd.fd, "list " + prefix + "\n")) {
    *error = "slewd closed the connection";
    return BusReply::kNoDaemon;
  }
  while (reader.next(&line)) {
    if (line == "end") return BusReply::kOk;
    if (!sim::proto_word(line, "entry", &rest) || !sim::proto_split_entry(rest, &key, &value)) return unexpected(line, error);
    (*out)[key] = value;
  }
  *error = "slewd went away";
  return BusReply::kNoDaemon;
}

void BusLink::follow(int fd, const std::function<void(const std::string&, const std::string&)>& on_change,
                     const std::function<void(bool)>& on_link) {
  sim::LineReader reader(fd);
  std::string line, rest, key, value;
  if (!sim::proto_send(fd, "watch \n") || !reader.next(&line) || line != "ok") return;
  on_link(true);
  while (!stopping_ && reader.next(&line)) {
    if (sim::proto_word(line, "change", &rest) && sim::proto_split_entry(rest, &key, &value)) on_change(key, value);
  }
}

void BusLink::watch(const std::function<void(const std::string&, const std::string&)>& on_change,
                    const std::function<void(bool)>& on_link) {
  bool was_up = true;  // so that a first failure is told too
  while (!stopping_) {
    std::string error;
    int fd = connect_socket(&error);
    if (fd >= 0) {
      {
        std::lock_guard lock(watch_mutex_);
        watch_fd_ = fd;
      }
      if (!stopping_) follow(fd, on_change, on_link);
      std::lock_guard lock(watch_mutex_);
      watch_fd_ = -1;
      close(fd);
      was_up = true;
    }
    if (stopping_) break;
    if (was_up) on_link(false);
    was_up = false;
    for (int i = 0; i < 10 && !stopping_; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

void BusLink::stop() {
  stopping_ = true;
  std::lock_guard lock(watch_mutex_);
  if (watch_fd_ >= 0) shutdown(watch_fd_, SHUT_RDWR);
}

bool tool_state_folder(const char* program, std::string* state) {
  std::string error;
  if (sim::state_folder(state, &error)) return true;
  fprintf(stderr, "%s: %s\n", program, error.c_str());
  return false;
}

sigset_t block_stop_signals() {
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  return stop_signals;
}

std::string sibling_program(const std::string& name) {
  char self[4096];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return name;
  std::string path(self, static_cast<size_t>(n));
  path = path.substr(0, path.rfind('/') + 1) + name;
  return access(path.c_str(), X_OK) == 0 ? path : name;
}

}  // namespace buslink
