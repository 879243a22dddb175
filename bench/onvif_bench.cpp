// slewonvif against a real-time slewd, measured from outside.
// 1. ContinuousMove (left, half speed) to the first PanContinuousMove in the
//    transcript, beside the same command written on a persistent bus
//    connection, tries of both alternating: medians, p99s and their ratio.
// 2. GetStatus requests a second from 8 clients at once, each on a kept-alive
//    connection, with slewonvif's CPU; beside GetSystemDateAndTime (no
//    credentials, no head) from the same clients: what the HTTP and SOAP
//    layers cost alone.
#include <fcntl.h>
#include <httplib.h>
#include <poll.h>
#include <sys/inotify.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "auth.h"
#include "bus/bus_protocol.h"
#include "slewd_process.h"

namespace {

constexpr int kWaitMs = 5000;  // a try that takes longer has failed
constexpr int kClients = 8;
constexpr double kLoadSeconds = 3;

// The transcript, followed through inotify from where the last wait ended.
struct Transcript {
  int notify = -1, fd = -1;
  off_t offset = 0;
};

// Waits until a line holding text is added to the transcript; false on time-out.
bool Await(Transcript& t, const char* text) {
  std::string seen;
  double deadline = WallSeconds() + kWaitMs / 1000.0;
  for (;;) {
    char buf[4096];
    ssize_t n;
    while ((n = pread(t.fd, buf, sizeof buf, t.offset)) > 0) {
      seen.append(buf, n);
      t.offset += n;
    }
    if (seen.find(text) != std::string::npos) return true;
    if (WallSeconds() > deadline) return false;
    pollfd p{t.notify, POLLIN, 0};
    if (poll(&p, 1, 100) == 1 && read(t.notify, buf, sizeof buf) < 0) return false;
  }
}

// Starts slewonvif on a free port with a password file; its port, or 0.
pid_t StartOnvif(const std::string& state, int* port) {
  std::string pw = state + "/bench-password";
  FILE* f = fopen(pw.c_str(), "w");
  fputs("bench\n", f);
  fclose(f);
  int out[2];
  if (pipe(out) != 0) return -1;
  fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    setenv("SLEWD_STATE", state.c_str(), 1);
    dup2(out[1], 1);
    execl(SLEWONVIF_PATH, "slewonvif", "--listen", "127.0.0.1:0", "--discovery-port", "0", "--password-file",
          pw.c_str(), (char*)nullptr);
    _exit(127);
  }
  close(out[1]);
  FILE* in = fdopen(out[0], "r");
  char line[512];
  *port = 0;
  if (fgets(line, sizeof line, in) != nullptr) {
    const char* p = strstr(line, "127.0.0.1:");
    if (p != nullptr) *port = atoi(p + 10);
  }
  return pid;
}

// A request envelope with a fresh UsernameToken for password "bench".
std::string Signed(const std::string& body) {
  static std::atomic<unsigned long> count{0};
  std::string nonce = "bench-nonce-" + std::to_string(++count);
  std::string created = onvif::utc_time_text(time(nullptr));
  return "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Header><Security xmlns=\""
         "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\"><UsernameToken>"
         "<Username>admin</Username><Password Type=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-"
         "username-token-profile-1.0#PasswordDigest\">" + onvif::password_digest(nonce, created, "bench") +
         "</Password><Nonce>" + onvif::base64_encode(nonce) + "</Nonce><Created xmlns=\"http://docs.oasis-open.org/"
         "wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd\">" + created +
         "</Created></UsernameToken></Security></s:Header><s:Body>" + body + "</s:Body></s:Envelope>";
}

const char* kMove =
    "<ContinuousMove xmlns=\"http://www.onvif.org/ver20/ptz/wsdl\"><ProfileToken>profile_head</ProfileToken>"
    "<Velocity><PanTilt xmlns=\"http://www.onvif.org/ver10/schema\" x=\"-0.5\" y=\"0\"/></Velocity></ContinuousMove>";
const char* kStop =
    "<Stop xmlns=\"http://www.onvif.org/ver20/ptz/wsdl\"><ProfileToken>profile_head</ProfileToken></Stop>";
const char* kStatus =
    "<GetStatus xmlns=\"http://www.onvif.org/ver20/ptz/wsdl\"><ProfileToken>profile_head</ProfileToken></GetStatus>";
const char* kDate =
    "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Body><GetSystemDateAndTime "
    "xmlns=\"http://www.onvif.org/ver10/device/wsdl\"/></s:Body></s:Envelope>";

// Posts one SOAP request; true on HTTP 200.
bool Post(httplib::Client& c, const std::string& body) {
  auto r = c.Post("/onvif/ptz_service", body, "application/soap+xml");
  return r && r->status == 200;
}

// Sends one set on the persistent bus connection and reads its `ok`.
bool BusSet(int fd, const char* key, const char* value) {
  char line[256];
  int n = snprintf(line, sizeof line, "set %s %s\n", key, value);
  if (write(fd, line, n) != n) return false;
  char reply[64];
  ssize_t got = read(fd, reply, sizeof reply);
  return got >= 3 && strncmp(reply, "ok\n", 3) == 0;
}

// Requests a second from kClients threads posting make() for kLoadSeconds.
double Throughput(int port, bool sign, const char* body, int* failures) {
  std::atomic<long> done{0}, failed{0};
  std::vector<std::thread> threads;
  double end = WallSeconds() + kLoadSeconds;
  for (int i = 0; i < kClients; ++i) {
    threads.emplace_back([&] {
      httplib::Client c("127.0.0.1", port);
      c.set_keep_alive(true);
      c.set_tcp_nodelay(true);
      while (WallSeconds() < end) {
        (Post(c, sign ? Signed(body) : body) ? done : failed)++;
      }
    });
  }
  for (std::thread& t : threads) t.join();
  *failures = static_cast<int>(failed);
  return done / kLoadSeconds;
}


}  // namespace

int main(int argc, char** argv) {
  int tries = TriesArgument(argc, argv, 200, "onvif_bench");
  if (tries == 0) return 2;
  std::string folder = MakeStateFolder();
  if (folder.empty()) return 1;
  pid_t daemon = StartSlewd(folder.c_str());
  sleep(1);  // the transcript exists once the camera has started
  Transcript t{inotify_init1(IN_CLOEXEC), open((folder + "/transcript.log").c_str(), O_RDONLY | O_CLOEXEC)};
  inotify_add_watch(t.notify, (folder + "/transcript.log").c_str(), IN_MODIFY);
  int port = 0;
  pid_t onvif = StartOnvif(folder, &port);
  std::string why;
  int bus = -1;
  if (!Await(t, "out in loop") || port == 0 ||
      (bus = sim::connect_socket(sim::socket_path(folder), 0, &why)) < 0) {
    fprintf(stderr, "onvif_bench: slewd or slewonvif did not come up\n");
    kill(onvif, SIGTERM);
    StopSlewd(daemon, folder.c_str());
    return 1;
  }
  sleep(3);  // the head's start-up: moves are refused until it is done
  httplib::Client client("127.0.0.1", port);
  client.set_keep_alive(true);
  client.set_tcp_nodelay(true);
  std::mt19937 random(12345);
  std::uniform_int_distribution<long> pause_ns(20 * 1000 * 1000, 30 * 1000 * 1000 - 1);
  std::vector<double> bus_ms, onvif_ms;
  int failed = 0;
  for (int i = 0; i < tries && failed < 10; ++i) {
    timespec pause{0, pause_ns(random)};
    nanosleep(&pause, nullptr);
    double start = WallSeconds();
    bool ok = BusSet(bus, "ptz.run_mode", "manual:50,0,0") && Await(t, "call PanContinuousMove(0,450)");
    double b = (WallSeconds() - start) * 1000;
    timespec tick{0, 20 * 1000 * 1000};  // a stop in the same tick as the command is lost
    nanosleep(&tick, nullptr);
    ok = ok && BusSet(bus, "ptz.run_mode", "stop") && Await(t, "call PanContinuousMove(0,0)");
    pause = {0, pause_ns(random)};
    nanosleep(&pause, nullptr);
    start = WallSeconds();
    ok = ok && Post(client, Signed(kMove)) && Await(t, "call PanContinuousMove(0,450)");
    double o = (WallSeconds() - start) * 1000;
    nanosleep(&tick, nullptr);
    ok = ok && Post(client, Signed(kStop)) && Await(t, "call PanContinuousMove(0,0)");
    if (!ok) {
      fprintf(stderr, "onvif_bench: try %d got no answer\n", i + 1);
      failed++;
      continue;
    }
    bus_ms.push_back(b);
    onvif_ms.push_back(o);
  }
  ReportLatency("bus connection, command to motion (reference)", bus_ms);
  ReportLatency("slewonvif ContinuousMove to motion", onvif_ms);
  if (!bus_ms.empty()) {
    printf("ratio to the reference: median %.2f, p99 %.2f\n", Quantile(onvif_ms, 0.5) / Quantile(bus_ms, 0.5),
           Quantile(onvif_ms, 0.99) / Quantile(bus_ms, 0.99));
  }

  int date_failed = 0, status_failed = 0;
  double cpu0 = ProcessCpuSeconds(onvif);
  double date_rate = Throughput(port, false, kDate, &date_failed);
  double cpu1 = ProcessCpuSeconds(onvif);
  double status_rate = Throughput(port, true, kStatus, &status_failed);
  double cpu2 = ProcessCpuSeconds(onvif);
  printf("GetSystemDateAndTime from %d clients (reference): %.0f requests/s, slewonvif CPU %.0f %% of a core"
         " (%d failed)\n", kClients, date_rate, (cpu1 - cpu0) / kLoadSeconds * 100, date_failed);
  printf("GetStatus from %d clients, signed: %.0f requests/s, slewonvif CPU %.0f %% of a core (%d failed)\n",
         kClients, status_rate, (cpu2 - cpu1) / kLoadSeconds * 100, status_failed);
  printf("GetStatus rate to the reference: %.2f\n", status_rate / date_rate);
  close(bus);
  kill(onvif, SIGTERM);
  waitpid(onvif, nullptr, 0);
  StopSlewd(daemon, folder.c_str());
  return bus_ms.empty() ? 1 : 0;
}
