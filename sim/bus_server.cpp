// The bus socket: an accept thread, and one thread per connection. Writes
// over the socket are External writes; watchers get every stored write.
#include "bus_server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <deque>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "bus_extra.h"
#include "bus_protocol.h"
#include "core.h"

namespace sim {
namespace {

// Changes a watcher may have unsent before it is dropped (a stuck client).
constexpr size_t kMaxUnsent = 10000;

// One `watch` connection; guarded by big_lock (the change hook runs under it).
struct Watcher {
  std::string prefix;             // keys it wants
  std::deque<std::string> lines;  // "change ..." lines not yet sent
  bool overflowed = false;        // fell kMaxUnsent behind
  int wake_fd = -1;               // eventfd, readable while lines wait
};

struct Connection {
  int fd = -1;                     // closed only after the thread is joined
  std::thread thread;              // serves the connection
  std::atomic<bool> done{false};   // the thread has finished
};

struct Server {
  std::string path;                 // socket file
  int listen_fd = -1;               // accepting socket
  int stop_fd = -1;                 // eventfd: wakes the accept loop to stop
  std::thread acceptor;             // the accept loop
  std::mutex mutex;                 // guards connections
  std::list<Connection> connections;
  std::vector<Watcher*> watchers;   // guarded by big_lock
};

Server& server() {
  static Server* s = new Server;
  return *s;
}

// Bus hook: queues a change line for every watcher whose prefix matches.
void on_change(const char* key, const char* value) {
  for (Watcher* w : server().watchers) {
    if (strncmp(key, w->prefix.c_str(), w->prefix.size()) != 0 || w->overflowed) continue;
    if (w->lines.size() >= kMaxUnsent) {
      w->overflowed = true;
    } else {
      w->lines.push_back("change " + std::string(key) + "=" + proto_escape(value) + "\n");
    }
    uint64_t one = 1;
    (void)!write(w->wake_fd, &one, sizeof one);
  }
}

// Text after the first blank of a request line ("" when none).
std::string argument(const std::string& line) {
  size_t blank = line.find(' ');
  return blank == std::string::npos ? std::string() : line.substr(blank + 1);
}

// Answers `get KEY`.
std::string answer_get(const std::string& key) {
  if (!bus_key_valid(key.c_str())) return "error bad key: " + key + "\n";
  char value[kValueMax + 1];
  if (!bus_read(key.c_str(), value, sizeof value)) return "none\n";
  return "value " + proto_escape(value) + "\n";
}

// Answers `set KEY TEXT` with an External write.
std::string answer_set(const std::string& rest) {
  size_t blank = rest.find(' ');
  std::string key = rest.substr(0, blank);
  std::string text;
  if (blank != std::string::npos && !proto_unescape(rest.substr(blank + 1), &text)) {
    return "error bad escape in value\n";
  }
  if (!bus_key_valid(key.c_str())) return "error bad key: " + key + "\n";
  if (world_key_read_only(key.c_str())) return "error read-only key: " + key + "\n";
  if (text.size() > static_cast<size_t>(kValueMax) || text.find('\0') != std::string::npos) {
    return "error value over " + std::to_string(kValueMax) + " characters\n";
  }
  if (bus_write(Origin::External, key.c_str(), text.c_str()) != 0) {
    return "error the store refused the write\n";
  }
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

// Sends the waiting change lines of a watcher; false when it must end.
bool flush_watcher(int fd, Watcher* w) {
  uint64_t count;
  (void)!read(w->wake_fd, &count, sizeof count);
  std::deque<std::string> lines;
  bool overflowed;
  {
    std::lock_guard<std::recursive_mutex> guard(big_lock());
    lines.swap(w->lines);
    overflowed = w->overflowed;
  }
  for (const std::string& line : lines) {
    if (!proto_send(fd, line)) return false;
  }
  if (overflowed) proto_send(fd, "error too many changes unread\n");
  return !overflowed;
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
  {
    std::lock_guard<std::recursive_mutex> guard(big_lock());
    server().watchers.push_back(&w);
  }
  // "ok" only once registered, so the client misses no change after it.
  bool open = proto_send(fd, "ok\n");
  while (open) {
    pollfd fds[2] = {{fd, POLLIN, 0}, {w.wake_fd, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) {
      open = errno == EINTR;
      continue;
    }
    if (fds[1].revents & POLLIN) open = flush_watcher(fd, &w);
    if (open && (fds[0].revents & (POLLIN | POLLHUP | POLLERR))) {
      char ignored[256];
      open = recv(fd, ignored, sizeof ignored, 0) > 0;  // the client hung up
    }
  }
  {
    std::lock_guard<std::recursive_mutex> guard(big_lock());
    auto& all = server().watchers;
    all.erase(std::remove(all.begin(), all.end(), &w), all.end());
  }
  close(w.wake_fd);
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
      reply = answer_set(rest);
    } else if (verb == "list") {
      reply = answer_list(rest);
    } else if (verb == "watch") {
      run_watch(c->fd, rest);
      break;
    } else {
      reply = "error unknown request: " + verb + "\n";
    }
    if (!proto_send(c->fd, reply)) break;
  }
  c->done = true;
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

// Accepts connections until the stop event.
void accept_loop() {
  Server& s = server();
  for (;;) {
    pollfd fds[2] = {{s.listen_fd, POLLIN, 0}, {s.stop_fd, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0 && errno != EINTR) return;
    if (fds[1].revents & POLLIN) return;
    if (!(fds[0].revents & POLLIN)) continue;
    int fd = accept4(s.listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    reap_connections(false);
    std::lock_guard<std::mutex> guard(s.mutex);
    Connection& c = s.connections.emplace_back();
    c.fd = fd;
    c.thread = std::thread(serve, &c);
  }
}

// Creates, binds and listens on the socket file; -1 with *error.
int listen_on(const std::string& path, std::string* error) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    *error = "socket path too long: " + path;
    return -1;
  }
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    *error = std::string("cannot make a socket: ") + strerror(errno);
    return -1;
  }
  unlink(path.c_str());
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(fd, 16) != 0) {
    *error = "cannot listen on " + path + ": " + strerror(errno);
    close(fd);
    return -1;
  }
  return fd;
}

}  // namespace

int bus_server_start(const std::string& path, std::string* error) {
  Server& s = server();
  s.listen_fd = listen_on(path, error);
  if (s.listen_fd < 0) return -1;
  s.stop_fd = eventfd(0, EFD_CLOEXEC);
  if (s.stop_fd < 0) {
    *error = std::string("cannot make an event: ") + strerror(errno);
    close(s.listen_fd);
    s.listen_fd = -1;
    return -1;
  }
  s.path = path;
  bus_set_change_hook(on_change);
  s.acceptor = std::thread(accept_loop);
  return 0;
}

void bus_server_stop() {
  Server& s = server();
  if (s.listen_fd < 0) return;
  uint64_t one = 1;
  (void)!write(s.stop_fd, &one, sizeof one);
  s.acceptor.join();
  reap_connections(true);
  bus_set_change_hook(nullptr);
  close(s.listen_fd);
  close(s.stop_fd);
  s.listen_fd = s.stop_fd = -1;
  unlink(s.path.c_str());
}

}  // namespace sim
