// Command-to-motion latency of a real-time slewd against its floor. A
// persistent bus client sends `set ptz.run_mode manual:50,0,0` at a random
// point of the daemon's 10 ms tick and waits for the first
// PanContinuousMove(0,450) in the transcript (inotify). The floor is a
// process that polls a pipe every 10 ms and answers on another: the least
// any 10 ms loop can do. Tries of both alternate; medians and p99 compared.
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bus/bus_protocol.h"
#include "slewd_process.h"

namespace {

constexpr int kWaitMs = 5000;  // a try that takes longer has failed

// The floor: every 10 ms, looks for a byte on in and answers on out.
pid_t StartPipePoller(int in, int out) {
  pid_t pid = fork();
  if (pid == 0) {
    fcntl(in, F_SETFL, O_NONBLOCK);
    timespec tick{0, 10 * 1000 * 1000};
    char byte;
    for (;;) {
      nanosleep(&tick, nullptr);
      if (read(in, &byte, 1) == 1 && write(out, &byte, 1) != 1) _exit(1);
    }
  }
  return pid;
}

// One floor try: send a byte, wait for the answer; ms, or -1.
double FloorTry(int to_floor, int from_floor) {
  double start = WallSeconds();
  if (write(to_floor, "x", 1) != 1) return -1;
  pollfd p{from_floor, POLLIN, 0};
  char byte;
  if (poll(&p, 1, kWaitMs) != 1 || read(from_floor, &byte, 1) != 1) return -1;
  return (WallSeconds() - start) * 1000;
}

// The transcript, followed through inotify from where the last wait ended.
struct Transcript {
  std::string path;
  int notify = -1;  // inotify on the file
  int fd = -1;      // the file, kept open
  off_t offset = 0;
};

// Reads what the transcript gained; true once it holds text.
bool TranscriptHas(Transcript& t, const char* text, std::string& seen) {
  char buf[4096];
  ssize_t n;
  while ((n = pread(t.fd, buf, sizeof buf, t.offset)) > 0) {
    seen.append(buf, n);
    t.offset += n;
  }
  return seen.find(text) != std::string::npos;
}

// Waits until a line holding text is added to the transcript; false on time-out.
bool AwaitTranscript(Transcript& t, const char* text) {
  std::string seen;
  double deadline = WallSeconds() + kWaitMs / 1000.0;
  while (!TranscriptHas(t, text, seen)) {
    if (WallSeconds() > deadline) return false;
    pollfd p{t.notify, POLLIN, 0};
    if (poll(&p, 1, 100) == 1) {
      char events[4096];
      if (read(t.notify, events, sizeof events) < 0) return false;
    }
  }
  return true;
}

// Connects to the bus socket of the state folder; -1 on failure.
int ConnectBus(const std::string& folder) {
  std::string why;
  return sim::connect_socket(sim::socket_path(folder), 0, &why);
}

// Sends one set request on the persistent connection and reads its `ok`.
bool BusSet(int fd, const char* key, const char* value) {
  char line[256];
  int n = snprintf(line, sizeof line, "set %s %s\n", key, value);
  if (write(fd, line, n) != n) return false;
  char reply[64];
  ssize_t got = read(fd, reply, sizeof reply);
  return got >= 3 && strncmp(reply, "ok\n", 3) == 0;
}

// One daemon try: the command, timed to its motion; then stop, a tick later
// (a stop within the tick that takes the command is lost by the daemon, and
// the head would run on). ms, or -1.
double DaemonTry(int bus, Transcript& t) {
  double start = WallSeconds();
  if (!BusSet(bus, "ptz.run_mode", "manual:50,0,0")) return -1;
  if (!AwaitTranscript(t, "call PanContinuousMove(0,450)")) return -1;
  double ms = (WallSeconds() - start) * 1000;
  timespec tick{0, 20 * 1000 * 1000};
  nanosleep(&tick, nullptr);
  if (!BusSet(bus, "ptz.run_mode", "stop") || !AwaitTranscript(t, "call PanContinuousMove(0,0)")) return -1;
  return ms;
}

// Sleeps a random time in [0, 10 ms), so the next send lands anywhere in a tick.
void RandomPause(std::mt19937& random) {
  std::uniform_int_distribution<long> ns(0, 10 * 1000 * 1000 - 1);
  timespec pause{0, 20 * 1000 * 1000 + ns(random)};  // 20 ms to settle, then the random part
  nanosleep(&pause, nullptr);
}


}  // namespace

int main(int argc, char** argv) {
  int tries = TriesArgument(argc, argv, 200, "command_latency_bench");
  if (tries == 0) return 2;
  std::string folder = MakeStateFolder();
  if (folder.empty()) return 1;
  pid_t daemon = StartSlewd(folder.c_str());
  int to_floor[2], from_floor[2];
  if (pipe(to_floor) != 0 || pipe(from_floor) != 0) return 1;
  pid_t floor = StartPipePoller(to_floor[0], from_floor[1]);
  Transcript t{folder + "/transcript.log", inotify_init1(IN_CLOEXEC)};
  sleep(1);  // the transcript exists once the camera has started
  t.fd = open(t.path.c_str(), O_RDONLY | O_CLOEXEC);
  inotify_add_watch(t.notify, t.path.c_str(), IN_MODIFY);
  int bus = -1;
  if (!AwaitTranscript(t, "out in loop") || (bus = ConnectBus(folder)) < 0) {
    fprintf(stderr, "command_latency_bench: slewd did not come up\n");
    StopSlewd(daemon, folder.c_str());
    return 1;
  }
  std::mt19937 random(12345);
  std::vector<double> floor_ms, daemon_ms;
  int failed = 0;
  for (int i = 0; i < tries && failed < 10; i++) {
    RandomPause(random);
    double f = FloorTry(to_floor[1], from_floor[0]);
    RandomPause(random);
    double d = DaemonTry(bus, t);
    if (f < 0 || d < 0) {
      fprintf(stderr, "command_latency_bench: try %d got no answer from the %s\n", i + 1,
              f < 0 ? "floor" : "daemon");
      failed++;
      continue;
    }
    floor_ms.push_back(f);
    daemon_ms.push_back(d);
  }
  kill(floor, SIGKILL);
  waitpid(floor, nullptr, 0);
  close(bus);
  StopSlewd(daemon, folder.c_str());
  if (daemon_ms.empty()) return 1;
  ReportLatency("pipe poller every 10 ms (floor)", floor_ms);
  ReportLatency("slewd, command to motion", daemon_ms);
  printf("ratio to the floor: median %.2f, p99 %.2f\n", Quantile(daemon_ms, 0.5) / Quantile(floor_ms, 0.5),
         Quantile(daemon_ms, 0.99) / Quantile(floor_ms, 0.99));
  return 0;
}
