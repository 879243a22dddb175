// Stop under a flood in real time: while one client writes `lock:-1` to
// ptz.run_mode as fast as slewd takes it (each rewrites the preset list of
// 16 presets), another writes `stop` to a panning head; time from the stop's
// write to ptz.status 0, N tries (default 20). The floor is the same stop
// without the flood, measured in the same run.
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "bus/bus_protocol.h"
#include "slewd_process.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string g_folder;

// A connection to slewd's socket with a 10 s receive bound; -1 on failure.
int Connect() {
  std::string why;
  return sim::connect_socket(sim::socket_path(g_folder), 10, &why);
}

// One request on an open connection; its first reply line ("" on failure).
std::string Ask(int fd, sim::LineReader& reader, const std::string& request) {
  std::string line;
  if (!sim::proto_send(fd, request + "\n") || !reader.next(&line)) return "";
  return line;
}

// Polls ptz.status until it reads want, for at most 30 s; false on timeout.
bool AwaitStatus(int fd, sim::LineReader& reader, const char* want) {
  std::string expected = std::string("value ") + want;
  auto give_up = Clock::now() + std::chrono::seconds(30);
  while (Clock::now() < give_up) {
    if (Ask(fd, reader, "get ptz.status") == expected) return true;
    std::this_thread::sleep_for(std::chrono::microseconds(500));
  }
  return false;
}

// Milliseconds from a stop to status 0 with a panning head, with or without
// a flood of lock:-1 from another client; -1 on failure.
double StopMs(bool flood) {
  int fd = Connect();
  if (fd < 0) return -1;
  sim::LineReader reader(fd);
  if (Ask(fd, reader, "set ptz.run_mode manual:50,0,0") != "ok" || !AwaitStatus(fd, reader, "1")) {
    close(fd);
    return -1;
  }
  std::atomic<bool> done{false};
  std::atomic<int> acked{0};
  std::thread flooder([&] {
    if (!flood) return;
    int flood_fd = Connect();
    sim::LineReader replies(flood_fd);
    while (!done && Ask(flood_fd, replies, "set ptz.run_mode lock:-1") == "ok") ++acked;
    close(flood_fd);
  });
  while (flood && acked < 20) std::this_thread::yield();
  auto start = Clock::now();
  bool stopped = Ask(fd, reader, "set ptz.run_mode stop") == "ok" && AwaitStatus(fd, reader, "0");
  double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  done = true;
  flooder.join();
  close(fd);
  return stopped ? ms : -1;
}

// Median and worst of a sorted series, printed with its name.
void Report(const char* name, std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  printf("%s: median %.1f ms, worst %.1f ms (%zu tries)\n", name, ms[ms.size() / 2], ms.back(),
         ms.size());
}

}  // namespace

int main(int argc, char** argv) {
  int tries = argc > 1 ? atoi(argv[1]) : 20;
  char folder[] = "/tmp/slewd-flood-XXXXXX";
  if (mkdtemp(folder) == nullptr) return 1;
  g_folder = folder;
  pid_t daemon = StartSlewd(folder);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  int fd = Connect();
  if (fd < 0) {
    fprintf(stderr, "slewd did not come up\n");
    StopSlewd(daemon, folder);
    return 1;
  }
  sim::LineReader reader(fd);
  AwaitStatus(fd, reader, "0");  // bring-up over
  for (int id = 0; id < 16; ++id) {
    Ask(fd, reader, "set ptz.run_mode set_preset:id:" + std::to_string(id) + ",name:p");
  }
  close(fd);
  std::vector<double> floor, flooded;
  for (int i = 0; i < tries; ++i) {
    double quiet = StopMs(false), busy = StopMs(true);
    if (quiet < 0 || busy < 0) break;
    floor.push_back(quiet);
    flooded.push_back(busy);
  }
  StopSlewd(daemon, folder);
  if (floor.empty()) return 1;
  Report("stop, no flood (floor)", floor);
  Report("stop during a flood", flooded);
  return 0;
}
