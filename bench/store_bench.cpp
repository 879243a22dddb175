// The store in real time. (1) Latency of an acknowledged set_preset (the
// command taken and the preset list committed) beside a plain bus write (a
// key that is not stored) and a stored setting, N tries each (default 200),
// alternating. (2) The control loop's pace while the store stalls for 10 s
// beside the same 10 s without a stall: the head pans and publishes
// ptz.pan_pos every 10 ticks; the intervals between publications (median,
// max) tell whether the loop kept its pace.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "bus/bus_client.h"
#include "bus/bus_protocol.h"
#include "slewd_process.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string g_folder;

// Runs slewctl's words in this process; its status.
int Ctl(std::vector<std::string> words) {
  std::vector<char*> argv{const_cast<char*>("slewctl")};
  for (std::string& w : words) argv.push_back(w.data());
  FILE* null_out = fopen("/dev/null", "w");
  int status = sim::slewctl_run(g_folder, static_cast<int>(argv.size()), argv.data(), null_out, null_out);
  fclose(null_out);
  return status;
}

// Milliseconds one slewctl call takes; -1 when it failed.
double TimedMs(std::vector<std::string> words) {
  auto start = Clock::now();
  int status = Ctl(std::move(words));
  double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  return status == 0 ? ms : -1;
}

// Waits for the daemon's main loop; false after 60 s.
bool AwaitLoop() {
  for (int i = 0; i < 3000; ++i) {
    if (ReadFile(g_folder + "/transcript.log").find("out in loop") != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}


// Intervals in ms between ptz.pan_pos publications over seconds s.
std::vector<double> PublicationIntervals(double seconds) {
  std::string why;
  int fd = sim::connect_socket(sim::socket_path(g_folder), 10, &why);
  sim::LineReader reader(fd);
  std::string line;
  std::vector<double> intervals;
  if (fd < 0 || !sim::proto_send(fd, "watch ptz.pan_pos\n") || !reader.next(&line)) return intervals;
  auto end = Clock::now() + std::chrono::duration<double>(seconds);
  Clock::time_point last{};
  while (Clock::now() < end && reader.next(&line)) {
    auto now = Clock::now();
    if (last != Clock::time_point{}) {
      intervals.push_back(std::chrono::duration<double, std::milli>(now - last).count());
    }
    last = now;
  }
  close(fd);
  return intervals;
}

// Prints median and max of the publication intervals.
void ReportPace(const char* what, const std::vector<double>& ms) {
  double max = ms.empty() ? 0 : *std::max_element(ms.begin(), ms.end());
  printf("%-34s median %7.2f ms   max %7.2f ms   (%zu intervals)\n", what, Quantile(ms, 0.5), max,
         ms.size());
}

}  // namespace

int main(int argc, char** argv) {
  int tries = TriesArgument(argc, argv, 200, "store_bench");
  if (tries == 0) return 2;
  g_folder = MakeStateFolder();
  pid_t pid = StartSlewd(g_folder.c_str());
  if (!AwaitLoop()) {
    fprintf(stderr, "store_bench: slewd did not start\n");
    StopSlewd(pid, g_folder.c_str());
    return 1;
  }
  std::vector<double> plain, setting, preset;
  for (int i = 0; i < tries; ++i) {
    plain.push_back(TimedMs({"set", "ptz.angle.pan", std::to_string(i)}));
    setting.push_back(TimedMs({"set", "ptz.system.recover_time", std::to_string(10 + i % 50)}));
    preset.push_back(TimedMs({"run", "set_preset:" + std::to_string(i % 64)}));
  }
  ReportLatency("plain bus write (not stored)", plain);
  ReportLatency("setting write (stored)", setting);
  ReportLatency("set_preset (acknowledged, stored)", preset);

  Ctl({"run", "manual:-20,0,0"});
  ReportPace("loop pace, store healthy", PublicationIntervals(10));
  Ctl({"set", "sim.store.stall_ms", "10000"});
  Ctl({"set", "sim.store.fault_count", "1"});
  Ctl({"set", "sim.store.fault", "stall"});
  // A stored write starts the stall; its client is refused after 4 s.
  int stalled_status = -1;
  double stalled_ms = 0;
  std::thread stalled([&] {
    auto start = Clock::now();
    stalled_status = Ctl({"set", "ptz.system.recover_time", "77"});
    stalled_ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ReportPace("loop pace, store stalled 10 s", PublicationIntervals(9.8));
  stalled.join();
  printf("the write that met the stall: exit %d after %.0f ms (4 = refused, not yet stored)\n",
         stalled_status, stalled_ms);
  auto stop_start = Clock::now();
  Ctl({"run", "stop"});
  printf("stop acknowledged after the stall   %7.2f ms\n",
         std::chrono::duration<double, std::milli>(Clock::now() - stop_start).count());
  StopSlewd(pid, g_folder.c_str());
  return 0;
}
