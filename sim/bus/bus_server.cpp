// The bus socket: an accept thread, and one thread per connection. Writes
// over the socket are External writes; watchers get every stored write.
//
// Bounds: at most kMaxConnections connections (one more is told "error too
// many connections" and closed); a watcher holds at most kWatcherBytes of
// unsent changes and all watchers together kAllWatchersBytes, past which the
// watcher furthest behind is cut off with "error too many changes unread".
// When the process runs out of file descriptors, a spare one is given up to
// accept and refuse the client, so the accept thread never spins.
#include "bus/bus_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "bus/bus_extra.h"
#include "bus/bus_protocol.h"
#include "core/core.h"

namespace sim {
namespace {

constexpr size_t kMaxConnections = 1024;
constexpr size_t kWatcherBytes = 64 * 1024;
constexpr size_t kAllWatchersBytes = 8 * 1024 * 1024;
// Kernel send buffer of a watch connection: bounds what a stuck reader
// holds outside the process too.
constexpr int kWatcherSocketBuffer = 32 * 1024;
// Longest pause of the accept thread when no descriptor is left at all.
constexpr int kNoDescriptorPauseMs = 100;
// How long, and how many reads of 4 KiB, a refused client's input is
// drained before its connection closes.
constexpr int kDrainWaitMs = 1000;
constexpr int kDrainReads = 256;
// Largest piece of a watcher's changes sent at once.
constexpr size_t kSendChunk = 4 * 1024;

// One `watch` connection; guarded by big_lock (the change hook runs under it).
struct Watcher {
  std::string prefix;      // keys it wants
  std::string unsent;      // "change ..." lines not yet sent
  bool mid_line = false;   // the last send ended inside a line of unsent
  bool cut_off = false;    // fell too far behind; unsent ends in the error
  int wake_fd = -1;        // eventfd, readable once unsent stops being empty
};

struct Connection {
  int fd = -1;                     // closed only after the thread is joined
  int id = 0;                      // the client as a bus write source
  std::thread thread;              // serves the connection
  std::atomic<bool> done{false};   // the thread has finished
};

struct Server {
  std::string path;                 // socket file
  dev_t device = 0;                 // its identity, to remove only our own
  ino_t inode = 0;
  int listen_fd = -1;               // accepting socket
  int stop_fd = -1;                 // eventfd: wakes the accept loop to stop
  int reap_fd = -1;                 // eventfd: a connection has finished
  int spare_fd = -1;                // given up to refuse a client on EMFILE
  int next_id = 1;                  // id of the next connection
  std::thread acceptor;             // the accept loop
  std::mutex mutex;                 // guards connections
  std::list<Connection> connections;
  std::vector<Watcher*> watchers;   // guarded by big_lock
  size_t watcher_bytes = 0;         // unsent bytes of all watchers, big_lock
};

Server& server() {
  static Server* s = new Server;
  return *s;
}

// Wakes the thread of a watcher.
void wake(Watcher* w) {
  uint64_t one = 1;
  (void)!write(w->wake_fd, &one, sizeof one);
}

// Drops what a watcher has not been sent and queues the error line instead;
// a line half sent is finished first (big_lock held).
void cut_off(Watcher* w) {
  size_t keep = 0;
  if (w->mid_line) keep = w->unsent.find('\n') + 1;
  server().watcher_bytes -= w->unsent.size() - keep;
  // A fresh string: the old one's capacity is given back.
  w->unsent = w->unsent.substr(0, keep) + "error too many changes unread\n";
  server().watcher_bytes += w->unsent.size() - keep;
  w->cut_off = true;
  wake(w);
}

// The watcher with the most unsent bytes (big_lock held).
Watcher* furthest_behind() {
  Watcher* worst = nullptr;
  for (Watcher* w : server().watchers) {
    if (!w->cut_off && (worst == nullptr || w->unsent.size() > worst->unsent.size())) worst = w;
  }
  return worst;
}

// Bus hook: queues a change line for every watcher whose prefix matches.
void on_change(const char* key, const char* value) {
  Server& s = server();
  std::string line;
  for (Watcher* w : s.watchers) {
    if (w->cut_off || strncmp(key, w->prefix.c_str(), w->prefix.size()) != 0) continue;
    if (line.empty()) line = "change " + std::string(key) + "=" + proto_escape(value) + "\n";
    if (w->unsent.size() + line.size() > kWatcherBytes) {
      cut_off(w);
      continue;
    }
    while (s.watcher_bytes + line.size() > kAllWatchersBytes) {
      Watcher* worst = furthest_behind();
      if (worst == nullptr) break;
      cut_off(worst);
    }
    if (w->cut_off) continue;
    if (w->unsent.empty()) wake(w);
    w->unsent += line;
    s.watcher_bytes += line.size();
  }
}

// Text after the first blank of a request line ("" when none).
std::string argument(const std::string& line) {
  size_t blank = line.find(' ');
  return blank == std::string::npos ? std::string() : line.substr(blank + 1);
}

// Answers `get KEY`.
std::string answer_get(const std::string& key) {
  if (!bus_key_valid(key.c_str())) return "error bad key: " + display_escape(key) + "\n";
  char value[kValueMax + 1];
  if (!bus_read(key.c_str(), value, sizeof value)) return "none\n";
  return "value " + proto_escape(value) + "\n";
}

// Answers `set KEY TEXT` with an External write of client source.
std::string answer_set(int source, const std::string& rest) {
  size_t blank = rest.find(' ');
  std::string key = rest.substr(0, blank);
  std::string text;
  if (blank != std::string::npos && !proto_unescape(rest.substr(blank + 1), &text)) {
    return "error bad escape in value\n";
  }
  if (!bus_key_valid(key.c_str())) return "error bad key: " + display_escape(key) + "\n";
  if (world_key_read_only(key.c_str())) return "error read-only key: " + key + "\n";
  if (text.find('\0') != std::string::npos) return "error value holds a NUL byte\n";
  if (text.size() > static_cast<size_t>(kValueMax)) {
    return "error value over " + std::to_string(kValueMax) + " characters\n";
  }
  std::string why;
  if (bus_write_from(source, key.c_str(), text.c_str(), &why) != 0) return "error " + why + "\n";
  return "ok\n";
}

// Answers `list [PREFIX]`.
std::string answer_list(const std::string& prefix) {
  std::string reply;
  bus_visit(
      prefix.c_str(),
      [](const char* key, const char* value, void* ctx) {
        *static_cast<std::string*>(ctx) += "entry " + std::string(key) + "=" +
                                           proto_escape(value) + "\n";
      },
      &reply);
  return reply + "end\n";
}

// Sends what it can of a watcher's unsent lines without blocking; false
// when the client has gone or was cut off and has been told so.
bool send_unsent(int fd, Watcher* w) {
  char chunk[kSendChunk];
  size_t n;
  {
    std::lock_guard<std::recursive_mutex> guard(big_lock());
    n = std::min(w->unsent.size(), sizeof chunk);
    memcpy(chunk, w->unsent.data(), n);
  }
  ssize_t sent = send(fd, chunk, n, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0) return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
  std::lock_guard<std::recursive_mutex> guard(big_lock());
  w->unsent.erase(0, static_cast<size_t>(sent));
  if (w->unsent.empty()) std::string().swap(w->unsent);  // gives the capacity back
  server().watcher_bytes -= static_cast<size_t>(sent);
  w->mid_line = sent > 0 && chunk[sent - 1] != '\n';
  return !(w->cut_off && w->unsent.empty());
}

// Whether a watcher has lines to send (takes big_lock).
bool has_unsent(Watcher* w) {
  std::lock_guard<std::recursive_mutex> guard(big_lock());
  return !w->unsent.empty();
}

// Adds or removes a watcher from the change hook's table.
void enlist(Watcher* w, bool add) {
  std::lock_guard<std::recursive_mutex> guard(big_lock());
  auto& all = server().watchers;
  if (add) {
    all.push_back(w);
    return;
  }
  all.erase(std::remove(all.begin(), all.end(), w), all.end());
  server().watcher_bytes -= w->unsent.size();
}

// Serves `watch [PREFIX]` until the client or the server ends it.
void run_watch(int fd, const std::string& prefix) {
  Watcher w;
  w.prefix = prefix;
  w.wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (w.wake_fd < 0) {
    proto_send(fd, "error cannot watch\n");
    return;
  }
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kWatcherSocketBuffer, sizeof kWatcherSocketBuffer);
  enlist(&w, true);
  // "ok" only once registered, so the client misses no change after it.
  bool open = proto_send(fd, "ok\n");
  while (open) {
    short out = has_unsent(&w) ? POLLOUT : 0;
    pollfd fds[2] = {{fd, static_cast<short>(POLLIN | out), 0}, {w.wake_fd, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) {
      open = errno == EINTR;
      continue;
    }
    if (fds[1].revents & POLLIN) {
      uint64_t count;
      (void)!read(w.wake_fd, &count, sizeof count);
    }
    if (fds[0].revents & POLLOUT) open = send_unsent(fd, &w);
    if (open && (fds[0].revents & (POLLIN | POLLHUP | POLLERR))) {
      char ignored[256];
      open = recv(fd, ignored, sizeof ignored, MSG_DONTWAIT) > 0;  // 0: the client hung up
    }
  }
  enlist(&w, false);
  close(w.wake_fd);
}

// Reads and drops what the client still sends, for a bounded time and
// amount: closing with unread input would reset the connection and lose the
// last reply.
void drain_input(int fd) {
  shutdown(fd, SHUT_WR);
  char ignored[4096];
  for (int i = 0; i < kDrainReads; ++i) {
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, kDrainWaitMs) <= 0 || recv(fd, ignored, sizeof ignored, 0) <= 0) return;
  }
}

// Serves the requests of one connection until it closes.
void serve(Connection* c) {
  LineReader reader(c->fd);
  std::string line;
  while (reader.next(&line)) {
    std::string verb = line.substr(0, line.find(' '));
    std::string rest = argument(line);
    std::string reply;
    if (verb == "get") {
      reply = answer_get(rest);
    } else if (verb == "set") {
      reply = answer_set(c->id, rest);
    } else if (verb == "list") {
      reply = answer_list(rest);
    } else if (verb == "watch") {
      run_watch(c->fd, rest);
      break;
    } else {
      reply = "error unknown request: " + display_escape(verb) + "\n";
    }
    if (!proto_send(c->fd, reply)) break;
  }
  if (reader.overlong()) {
    proto_send(c->fd, "error line over " + std::to_string(kProtoLineMax) + " characters\n");
    drain_input(c->fd);
  }
  // The peer sees the end at once; the descriptor is closed when reaped.
  shutdown(c->fd, SHUT_RDWR);
  bus_forget_source(c->id);
  c->done = true;
  uint64_t one = 1;
  (void)!write(server().reap_fd, &one, sizeof one);
}

// Joins and forgets the connections whose thread has finished.
void reap_connections(bool all) {
  Server& s = server();
  std::lock_guard<std::mutex> guard(s.mutex);
  for (auto it = s.connections.begin(); it != s.connections.end();) {
    if (!all && !it->done) {
      ++it;
      continue;
    }
    if (all) shutdown(it->fd, SHUT_RDWR);
    it->thread.join();
    close(it->fd);
    it = s.connections.erase(it);
  }
}

// Tells a client it cannot be served, without waiting on it, and closes.
void refuse(int fd, const char* line) {
  (void)!send(fd, line, strlen(line), MSG_NOSIGNAL | MSG_DONTWAIT);
  close(fd);
}

// Out of descriptors: gives up the spare one to accept and refuse the
// client waiting; false when even that fails (the caller pauses).
bool refuse_without_descriptors() {
  Server& s = server();
  if (s.spare_fd < 0) return false;
  close(s.spare_fd);
  int fd = accept4(s.listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd >= 0) refuse(fd, "error too many open files\n");
  s.spare_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  return fd >= 0;
}

// Accepts one client: serves it, or refuses it past the cap; false when no
// descriptor is left and the accept thread must pause.
bool accept_one() {
  Server& s = server();
  int fd = accept4(s.listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) {
    if (errno != EMFILE && errno != ENFILE) return true;
    reap_connections(false);
    return refuse_without_descriptors();
  }
  std::lock_guard<std::mutex> guard(s.mutex);
  if (s.connections.size() >= kMaxConnections) {
    refuse(fd, "error too many connections\n");
    return true;
  }
  Connection& c = s.connections.emplace_back();
  c.fd = fd;
  c.id = s.next_id++;
  c.thread = std::thread(serve, &c);
  return true;
}

// Accepts connections until the stop event; reaps finished ones as they end.
void accept_loop() {
  Server& s = server();
  bool pause = false;
  for (;;) {
    // While paused the listening socket is left out, so poll cannot spin on it.
    pollfd fds[3] = {{s.stop_fd, POLLIN, 0}, {s.reap_fd, POLLIN, 0}, {s.listen_fd, POLLIN, 0}};
    int ready = poll(fds, pause ? 2 : 3, pause ? kNoDescriptorPauseMs : -1);
    if (ready < 0 && errno != EINTR) return;
    if (fds[0].revents & POLLIN) return;
    if (fds[1].revents & POLLIN) {
      uint64_t count;
      (void)!read(s.reap_fd, &count, sizeof count);
      reap_connections(false);
    }
    pause = false;
    // Another thread may have taken the number the spare gave up.
    if (s.spare_fd < 0) s.spare_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fds[2].revents & POLLIN) pause = !accept_one();
  }
}

// Creates, binds and listens on the socket file; -1 with *error.
int listen_on(const std::string& path, std::string* error) {
  sockaddr_un address;
  if (!socket_address(path, &address, error)) return -1;
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    *error = std::string("cannot make a socket: ") + strerror(errno);
    return -1;
  }
  // A socket file another process answers on is a live camera's: kept.
  int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  bool live = probe >= 0 && connect(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  if (probe >= 0) close(probe);
  if (live) {
    *error = "another slewd answers on " + path;
    close(fd);
    return -1;
  }
  unlink(path.c_str());
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(fd, 64) != 0) {
    *error = "cannot listen on " + path + ": " + strerror(errno);
    close(fd);
    return -1;
  }
  return fd;
}

// Raises the soft limit of open files towards what the connection cap needs
// (each watcher holds a socket and an eventfd).
void raise_descriptor_limit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  rlim_t wanted = 2 * kMaxConnections + 64;
  if (limit.rlim_cur >= wanted) return;
  limit.rlim_cur = std::min(wanted, limit.rlim_max);
  setrlimit(RLIMIT_NOFILE, &limit);
}

// Closes the server's descriptors (those that are open).
void close_server_fds() {
  Server& s = server();
  for (int* fd : {&s.listen_fd, &s.stop_fd, &s.reap_fd, &s.spare_fd}) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
}

// Removes the socket file when it is still the one this process bound.
void unlink_own() {
  Server& s = server();
  struct stat st {};
  if (s.path.empty() || stat(s.path.c_str(), &st) != 0) return;
  if (st.st_dev == s.device && st.st_ino == s.inode) unlink(s.path.c_str());
}

}  // namespace

int bus_server_listen(const std::string& path, std::string* error) {
  Server& s = server();
  raise_descriptor_limit();
  s.listen_fd = listen_on(path, error);
  if (s.listen_fd < 0) return -1;
  struct stat st {};
  stat(path.c_str(), &st);
  s.path = path;
  s.device = st.st_dev;
  s.inode = st.st_ino;
  return 0;
}

int bus_server_start(std::string* error) {
  Server& s = server();
  s.stop_fd = eventfd(0, EFD_CLOEXEC);
  s.reap_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  s.spare_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (s.stop_fd < 0 || s.reap_fd < 0) {
    *error = std::string("cannot make an event: ") + strerror(errno);
    return -1;
  }
  bus_set_change_hook(on_change);
  s.acceptor = std::thread(accept_loop);
  return 0;
}

void bus_server_stop() {
  Server& s = server();
  if (s.listen_fd < 0) return;
  if (s.acceptor.joinable()) {
    uint64_t one = 1;
    (void)!write(s.stop_fd, &one, sizeof one);
    s.acceptor.join();
    reap_connections(true);
    bus_set_change_hook(nullptr);
  }
  close_server_fds();
  // The path stays: a signal thread's bus_server_unlink may still read it,
  // and finds no file of ours.
  unlink_own();
}

void bus_server_unlink() { unlink_own(); }

}  // namespace sim
