// slewvideo: the picture of what the head sees, drawn from the position a
// running slewd publishes on its bus, served as an RTSP H.264 stream, a JPEG
// snapshot and an MJPEG stream. The state folder is $SLEWD_STATE, else
// $HOME/.local/state/slewd.
#include <gst/gst.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "bus/bus_protocol.h"
#include "bus_link.h"
#include "picture.h"
#include "request_guard.h"
#include "rtsp_server.h"
#include "video_http.h"

namespace {

constexpr const char* kUsage =
    "usage: slewvideo [--rtsp ADDR:PORT] [--http ADDR:PORT] [--size WxH] [--fps N]\n"
    "  --rtsp  the H.264 stream at rtsp://ADDR:PORT/head (default 127.0.0.1:8554)\n"
    "  --http  /snapshot.jpg and /mjpeg on ADDR:PORT (default 127.0.0.1:8081)\n"
    "  --size  640x360 (default) or 1280x720\n"
    "  --fps   frames a second, 1 to 30 (default 15)\n"
    "  port 0: any free port; the URLs chosen are printed as 'rtsp URL' and 'http URL'\n";

constexpr int kCatchUp = 8;  // frames a late frame clock may still make up

struct Options {
  slewweb::ServedAddress rtsp{"127.0.0.1", 8554};
  slewweb::ServedAddress http{"127.0.0.1", 8081};
  int width = 640, height = 360, fps = 15;
};

// Reads ADDR:PORT (both parts required); false with a reason.
bool parse_address(const char* text, slewweb::ServedAddress* out, std::string* error) {
  if (strchr(text, ':') == nullptr || text[0] == ':') {
    *error = std::string("address must be ADDR:PORT: ") + text;
    return false;
  }
  return slewweb::parse_listen(text, out, error);
}

// Reads a whole decimal number in [low, high].
bool parse_int(std::string_view text, int low, int high, int* out) {
  int v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || end != text.data() + text.size() || v < low || v > high) return false;
  *out = v;
  return true;
}

// Reads the command line; false after a usage or error line, with the exit status.
bool parse_args(int argc, char** argv, Options* options, int* status) {
  *status = 2;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i], error;
    if (arg == "-h" || arg == "--help") {
      fputs(kUsage, stdout);
      *status = 0;
      return false;
    }
    if (i + 1 >= argc || (arg != "--rtsp" && arg != "--http" && arg != "--size" && arg != "--fps")) {
      fprintf(stderr, "slewvideo: unknown argument %s\n%s", arg.c_str(), kUsage);
      return false;
    }
    std::string value = argv[++i];
    if (arg == "--size") {
      if (value != "640x360" && value != "1280x720") error = "size must be 640x360 or 1280x720: " + value;
      options->width = value == "1280x720" ? 1280 : 640;
      options->height = value == "1280x720" ? 720 : 360;
    } else if (arg == "--fps") {
      if (!parse_int(value, 1, 30, &options->fps)) error = "fps must be a whole number from 1 to 30: " + value;
    } else {
      parse_address(value.c_str(), arg == "--rtsp" ? &options->rtsp : &options->http, &error);
    }
    if (!error.empty()) {
      fprintf(stderr, "slewvideo: %s\n", error.c_str());
      return false;
    }
  }
  return true;
}

// Follows the bus into the picture until the link is stopped.
void follow_bus(buslink::BusLink& bus, slewvideo::Picture& picture) {
  bus.watch([&](const std::string& key, const std::string& value) { picture.update(key, value); },
            [&](bool up) {
              if (up) {
                std::map<std::string, std::string> keys;
                std::string error;
                up = bus.list("", &keys, &error) == buslink::BusReply::kOk;
                if (up) picture.replace(keys);
              }
              picture.set_link(up);
            });
}

// Draws a frame every 1/fps seconds from the latest state and hands it to
// the encoder. A thread woken late (the machine was busy) catches up on the
// frames due, up to kCatchUp of them; further behind, those are skipped.
void frame_clock(int fps, slewvideo::Picture& picture, slewvideo::RtspServer& rtsp, const std::atomic<bool>& stop) {
  using clock = std::chrono::steady_clock;
  const auto period = std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(1.0 / fps));
  auto next = clock::now();
  for (int64_t tick = 0; !stop; ++tick) {
    rtsp.push(picture.render_next(), tick);
    next += period;
    auto now = clock::now();
    if (now > next + kCatchUp * period) {
      int64_t behind = (now - next) / period;  // ticks skipped, so the stream shows the gap
      tick += behind;
      next += behind * period;
    }
    std::this_thread::sleep_until(next);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  int status = 0;
  if (!parse_args(argc, argv, &options, &status)) return status;
  std::string state, error;
  if (!buslink::tool_state_folder("slewvideo", &state)) return 3;

  // SIGINT and SIGTERM are taken by one thread, which ends the servers in order.
  sigset_t stop_signals = buslink::block_stop_signals();
  gst_init(nullptr, nullptr);

  slewvideo::Picture picture(options.width, options.height);
  picture.render_next();  // a frame ("no head" until the bus answers) before anyone asks
  slewvideo::RtspServer rtsp(options.rtsp.host, options.rtsp.port, options.width, options.height, options.fps);
  slewvideo::VideoHttp http(picture);
  if (!rtsp.start(&error) || !http.bind(options.http.host, options.http.port, &error)) {
    fprintf(stderr, "slewvideo: %s\n", error.c_str());
    return 1;
  }

  buslink::BusLink bus(state);
  std::atomic<bool> stopping{false};
  std::thread watcher([&] { follow_bus(bus, picture); });
  std::thread clock([&] { frame_clock(options.fps, picture, rtsp, stopping); });
  std::thread stopper([&] {
    int signo = 0;
    sigwait(&stop_signals, &signo);
    stopping = true;
    picture.close();
    bus.stop();
    http.stop();
  });

  printf("rtsp rtsp://%s:%d/head\nhttp http://%s:%d\n", options.rtsp.host.c_str(), rtsp.port(),
         options.http.host.c_str(), http.port());
  fflush(stdout);
  http.serve();
  // Also when serving ended without a signal: wake the stopper so it can be joined.
  stopping = true;
  picture.close();
  bus.stop();
  watcher.join();
  clock.join();
  rtsp.stop();
  pthread_kill(stopper.native_handle(), SIGTERM);
  stopper.join();
  return 0;
}
