// The tools' side of the bus: single requests to a running slewd, and the
// watch that follows every write.
#pragma once

#include <signal.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace buslink {

// What became of a request to slewd.
enum class BusReply {
  kOk,        // done
  kNoValue,   // get: the key holds no value
  kRefused,   // slewd answered with an error (bad key, over-long value, read-only)
  kNoDaemon,  // no slewd answers on the state folder, or it went away
};

// Requests to the bus socket of the slewd of one state folder. Each request
// opens its own connection, so calls from several threads never share one.
class BusLink {
 public:
  explicit BusLink(std::string state_folder) : state_(std::move(state_folder)) {}

  // Reads one key into value.
  BusReply get(const std::string& key, std::string* value, std::string* error) const;
  // Writes one key as another process would.
  BusReply set(const std::string& key, const std::string& value, std::string* error) const;
  // Every key under prefix with its value.
  BusReply list(const std::string& prefix, std::map<std::string, std::string>* out,
                std::string* error) const;

  // Watches every write on the bus and hands each to on_change, until stop()
  // is called. on_link tells when the watch is in place (true, after each
  // (re)connection) and when slewd went away (false); it then retries once a
  // second.
  void watch(const std::function<void(const std::string& key, const std::string& value)>& on_change,
             const std::function<void(bool up)>& on_link);
  // Ends watch() from another thread.
  void stop();

 private:
  // Opens a connection to the socket; -1 with an error text when slewd is not there.
  int connect_socket(std::string* error) const;
  // Follows one watch connection until it ends or stop() is called.
  void follow(int fd, const std::function<void(const std::string&, const std::string&)>& on_change,
              const std::function<void(bool)>& on_link);

  std::string state_;
  std::atomic<bool> stopping_{false};
  std::mutex watch_mutex_;  // guards watch_fd_ against stop()
  int watch_fd_ = -1;
};

// The state folder of slewd, as every tool finds it; false after printing
// "PROGRAM: why" on stderr.
bool tool_state_folder(const char* program, std::string* state);
// Blocks SIGINT and SIGTERM in every thread started after it (one thread
// then takes them with sigwait and ends the tool in order) and ignores
// SIGPIPE, so a client that leaves mid-answer ends nothing.
sigset_t block_stop_signals();

// A program installed beside the running one (slewsim beside slewctl or
// slewweb, as in the build folder and the package), else its bare name for
// the PATH.
std::string sibling_program(const std::string& name);

}  // namespace buslink
