// slewweb: serves a page that shows and steers the head of a running slewd,
// as a client of its bus (like slewctl). The state folder is $SLEWD_STATE,
// else $HOME/.local/state/slewd.
#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "bus_link.h"
#include "bus/bus_protocol.h"
#include "event_hub.h"
#include "request_guard.h"
#include "web_server.h"

namespace {

constexpr const char* kUsage =
    "usage: slewweb [--listen ADDR:PORT] [--video ADDR:PORT]\n"
    "  serves the page on ADDR:PORT (default 127.0.0.1:8080; port 0: any free port)\n"
    "  --video: the HTTP address of slewvideo, whose picture the page shows (default 127.0.0.1:8081)\n";

// Reads the command line into the address to serve; false after a usage line.
bool parse_args(int argc, char** argv, slewweb::ServedAddress* served, slewweb::ServedAddress* video,
                int* status) {
  *status = 2;
  for (int i = 1; i < argc; ++i) {
    std::string error;
    if (strcmp(argv[i], "-h") == 0 || strcmp(argv[i], "--help") == 0) {
      fputs(kUsage, stdout);
      *status = 0;
      return false;
    }
    if (strcmp(argv[i], "--listen") == 0 && i + 1 < argc) {
      if (!slewweb::parse_listen(argv[++i], served, &error)) {
        fprintf(stderr, "slewweb: %s\n", error.c_str());
        return false;
      }
      continue;
    }
    if (strcmp(argv[i], "--video") == 0 && i + 1 < argc) {
      if (strchr(argv[i + 1], ':') == nullptr || !slewweb::parse_listen(argv[++i], video, &error) || video->port == 0) {
        fprintf(stderr, "slewweb: %s\n", error.empty() ? "--video needs ADDR:PORT with a port" : error.c_str());
        return false;
      }
      continue;
    }
    fprintf(stderr, "slewweb: unknown argument %s\n%s", argv[i], kUsage);
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  slewweb::ServedAddress served, video{"127.0.0.1", 8081};
  int status = 0;
  if (!parse_args(argc, argv, &served, &video, &status)) return status;
  std::string state, error;
  if (!buslink::tool_state_folder("slewweb", &state)) return 3;

  // SIGINT and SIGTERM are taken by one thread, which ends the server in order.
  sigset_t stop_signals = buslink::block_stop_signals();

  buslink::BusLink bus(state);
  slewweb::EventHub hub(slewweb::kMaxListeners, slewweb::kMaxUnread);
  slewweb::PreviewRunner preview(state, [&](int generation) { hub.publish(slewweb::preview_event(generation)); });
  slewweb::WebServer server(served, bus, hub, video, preview);
  if (!server.bind(&error)) {
    fprintf(stderr, "slewweb: %s\n", error.c_str());
    return 1;
  }

  std::thread watcher([&] {
    bus.watch(
        [&](const std::string& key, const std::string& value) {
          hub.publish(slewweb::change_event(key, value));
          preview.changed(key);
        },
        [&](bool up) {
          hub.publish(up ? slewweb::snapshot_event(bus) : slewweb::lost_event());
          if (up) preview.refresh();
        });
  });
  std::thread stopper([&] {
    int signo = 0;
    sigwait(&stop_signals, &signo);
    hub.close();
    bus.stop();
    server.stop();
  });

  const slewweb::ServedAddress& bound = server.served();
  printf("slewweb: serving http://%s:%d/ for the slewd of %s\n", bound.host.c_str(), bound.port, state.c_str());
  fflush(stdout);
  server.serve();
  // Also when serving ended without a signal: wake the stopper so it can be joined.
  hub.close();
  bus.stop();
  watcher.join();
  pthread_kill(stopper.native_handle(), SIGTERM);
  stopper.join();
  return 0;
}
