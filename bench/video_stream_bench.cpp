// slewvideo's stream against a real-time slewd, measured from a GStreamer
// RTSP client of the bench's own:
//  - CPU of slewvideo with one client at the default size, head still and
//    head turning, beside a process running the same encoder fed a static
//    test pattern of the same size and rate over the same windows;
//  - frames dropped in a minute of continuous motion (gaps in the stream's
//    timestamps, and frames received against those due);
//  - the lag from a write of ptz.pan_pos to the first decoded frame that
//    shows it, in frames (median and p99);
//  - a stalled client (it plays over TCP, then never reads): the frames the
//    healthy client still gets, and slewvideo's resident memory meanwhile.
//
// video_stream_bench [SECONDS_PER_CPU_WINDOW [LAG_TRIALS]]
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <mutex>
#include <random>
#include <thread>

#include "bus_link.h"
#include "render/scene.h"
#include "rtsp_server.h"
#include "slewd_process.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kWidth = 640, kHeight = 360, kFps = 15;
constexpr double kPeriodMs = 1000.0 / kFps;

// The reference: the encoder of slewvideo fed a static test pattern, in a
// process of its own so that its CPU time is its alone.
pid_t StartReference() {
  fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    gst_init(nullptr, nullptr);
    std::string line = "videotestsrc pattern=smpte is-live=true ! video/x-raw,format=BGRx,width=" +
                       std::to_string(kWidth) + ",height=" + std::to_string(kHeight) + ",framerate=" +
                       std::to_string(kFps) + "/1 ! " + slewvideo::encoder_line(kFps) +
                       " ! rtph264pay pt=96 config-interval=1 ! fakesink sync=false";
    GstElement* pipeline = gst_parse_launch(line.c_str(), nullptr);
    if (!pipeline) _exit(1);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    for (;;) pause();
  }
  return pid;
}

// Starts slewvideo on free ports; its pid, and its RTSP URL in *url.
pid_t StartVideo(const std::string& state, std::string* url) {
  int out[2];
  if (pipe(out) != 0) return -1;
  fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], 1);
    close(out[0]);
    setenv("SLEWD_STATE", state.c_str(), 1);
    execl(SLEWVIDEO_PATH, "slewvideo", "--rtsp", "127.0.0.1:0", "--http", "127.0.0.1:0", (char*)nullptr);
    _exit(127);
  }
  close(out[1]);
  std::string text;
  char buf[256];
  pollfd p{out[0], POLLIN, 0};
  while (text.find("\nhttp ") == std::string::npos && poll(&p, 1, 30000) > 0) {
    ssize_t n = read(out[0], buf, sizeof buf);
    if (n <= 0) break;
    text.append(buf, n);
  }
  close(out[0]);
  size_t at = text.find("rtsp ");
  *url = at == std::string::npos ? "" : text.substr(at + 5, text.find('\n', at) - at - 5);
  return pid;
}

// One decoded frame as the client saw it.
struct Seen {
  Clock::time_point arrival;
  double pts_ms;
  bool mast;  // the Mast fills the middle of the picture
};

// An RTSP client decoding the stream, keeping what it saw of each frame.
class Client {
 public:
  explicit Client(const std::string& url) {
    std::string line = "rtspsrc location=" + url + " latency=0 protocols=tcp buffer-mode=none ! rtph264depay ! "
                       "avdec_h264 max-threads=1 ! videoconvert ! video/x-raw,format=RGB ! "
                       "appsink name=sink sync=false max-buffers=60 drop=false";
    pipeline_ = gst_parse_launch(line.c_str(), nullptr);
    sink_ = gst_bin_get_by_name(GST_BIN(pipeline_), "sink");
    gst_element_set_state(pipeline_, GST_STATE_PLAYING);
    thread_ = std::thread([this] { pull(); });
  }
  ~Client() {
    stop_ = true;
    thread_.join();
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(sink_);
    gst_object_unref(pipeline_);
  }
  // What was seen from index from on.
  std::vector<Seen> since(size_t from) {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::vector<Seen>(seen_.begin() + std::min(from, seen_.size()), seen_.end());
  }
  size_t count() {
    std::lock_guard<std::mutex> lock(mutex_);
    return seen_.size();
  }

 private:
  // Pulls every decoded frame and looks for the Mast's colour in the middle.
  void pull() {
    const render::Landmark& m = render::kLandmarks[0];
    while (!stop_) {
      GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink_), 100 * GST_MSECOND);
      if (!sample) continue;
      Clock::time_point now = Clock::now();
      GstBuffer* buffer = gst_sample_get_buffer(sample);
      GstMapInfo map;
      int hits = 0;
      if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        int stride = (kWidth * 3 + 3) & ~3;
        for (int y = kHeight / 2 - 15; y < kHeight / 2 + 15; ++y) {
          for (int x = kWidth / 2 - 15; x < kWidth / 2 + 15; ++x) {
            const uint8_t* p = map.data + y * stride + x * 3;
            hits += std::abs(p[0] - m.r) < 40 && std::abs(p[1] - m.g) < 40 && std::abs(p[2] - m.b) < 40;
          }
        }
        gst_buffer_unmap(buffer, &map);
      }
      double pts = GST_BUFFER_PTS_IS_VALID(buffer) ? GST_BUFFER_PTS(buffer) / 1e6 : -1;
      gst_sample_unref(sample);
      std::lock_guard<std::mutex> lock(mutex_);
      if (seen_.size() < 100000) seen_.push_back({now, pts, hits > 50});
    }
  }

  GstElement* pipeline_;
  GstElement* sink_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  std::vector<Seen> seen_;
};

// CPU shares (% of a core) of slewvideo and the reference over one window.
void CpuWindow(const char* what, pid_t video, pid_t reference, int seconds) {
  double v0 = ProcessCpuSeconds(video), r0 = ProcessCpuSeconds(reference);
  sleep(seconds);
  double v = 100 * (ProcessCpuSeconds(video) - v0) / seconds, r = 100 * (ProcessCpuSeconds(reference) - r0) / seconds;
  printf("CPU, %s: slewvideo %.1f%% of a core, reference encoder on a static pattern %.1f%%, ratio %.2f (target <= 1.3)\n",
         what, v, r, v / r);
}

// Frames missing from what the client saw: those due over the span of the
// stream's timestamps less those received (late frames are not missing).
void Drops(const std::vector<Seen>& seen, double seconds) {
  if (seen.size() < 2) return;
  double span = seen.back().pts_ms - seen.front().pts_ms;
  long due = std::lround(span / kPeriodMs) + 1;
  printf("frames dropped in %.0f s of continuous motion: %ld (due %ld over the timestamps' span, received %zu) "
         "(target 0)\n", seconds, due - (long)seen.size(), due, seen.size());
}

// Lag trials: ptz.pan_pos written to where the Mast is at the centre, or
// half a turn away; the time until a decoded frame shows the change.
void Lag(buslink::BusLink& bus, Client& client, int trials) {
  const render::Landmark& m = render::kLandmarks[0];
  int at_mast = render::pan_steps(m.pan), away = (at_mast + 32768) % render::kSteps;
  std::string error;
  bus.set("ptz.tilt_pos", std::to_string(render::tilt_steps(m.tilt)), &error);
  std::mt19937 random(7);
  std::vector<double> lags;
  for (int t = 0; t < trials; ++t) {
    bool want = t % 2 == 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(300 + random() % 67));
    size_t from = client.count();
    Clock::time_point written = Clock::now();
    bus.set("ptz.pan_pos", std::to_string(want ? at_mast : away), &error);
    for (int i = 0; i < 300; ++i) {
      std::vector<Seen> seen = client.since(from);
      auto it = std::find_if(seen.begin(), seen.end(), [&](const Seen& s) { return s.mast == want; });
      if (it != seen.end()) {
        lags.push_back(std::chrono::duration<double, std::milli>(it->arrival - written).count());
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  printf("lag from a ptz.pan_pos write to the first decoded frame showing it, %zu trials: median %.1f ms (%.2f frames), "
         "p99 %.1f ms (%.2f frames) (target <= 2 frames)\n",
         lags.size(), Quantile(lags, 0.5), Quantile(lags, 0.5) / kPeriodMs, Quantile(lags, 0.99),
         Quantile(lags, 0.99) / kPeriodMs);
}

// Reads one RTSP answer (headers and body) from fd; empty on failure.
std::string ReadAnswer(int fd) {
  std::string text;
  char buf[4096];
  for (;;) {
    size_t end = text.find("\r\n\r\n");
    if (end != std::string::npos) {
      size_t at = text.find("Content-Length: ");
      size_t body = at == std::string::npos || at > end ? 0 : std::stoul(text.substr(at + 16));
      if (text.size() >= end + 4 + body) return text;
    }
    ssize_t n = recv(fd, buf, sizeof buf, 0);
    if (n <= 0) return "";
    text.append(buf, n);
  }
}

// A client that asks for the stream over TCP and then never reads: its
// socket; -1 when the server did not let it play.
int StalledClient(const std::string& url) {
  int port = std::stoi(url.substr(url.rfind(':') + 1));
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  int small = 4096;
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, (sockaddr*)&addr, sizeof addr) != 0) return -1;
  auto ask = [&](const std::string& request) {
    return send(fd, request.data(), request.size(), 0) == (ssize_t)request.size() ? ReadAnswer(fd) : "";
  };
  std::string sdp = ask("DESCRIBE " + url + " RTSP/1.0\r\nCSeq: 1\r\nAccept: application/sdp\r\n\r\n");
  size_t at = sdp.rfind("a=control:");
  if (at == std::string::npos) return -1;
  std::string control = sdp.substr(at + 10, sdp.find('\r', at) - at - 10);
  if (control.rfind("rtsp://", 0) != 0) control = url + "/" + control;
  std::string setup = ask("SETUP " + control + " RTSP/1.0\r\nCSeq: 2\r\n"
                          "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n");
  at = setup.find("Session: ");
  if (at == std::string::npos) return -1;
  std::string session = setup.substr(at + 9, setup.find_first_of(";\r", at) - at - 9);
  std::string play = "PLAY " + url + " RTSP/1.0\r\nCSeq: 3\r\nSession: " + session + "\r\n\r\n";
  if (send(fd, play.data(), play.size(), 0) != (ssize_t)play.size()) return -1;
  return fd;
}

// Resident memory of a process in KiB; -1 when gone.
long ResidentKiB(pid_t pid) {
  std::string status = ReadFile("/proc/" + std::to_string(pid) + "/status");
  size_t at = status.find("VmRSS:");
  return at == std::string::npos ? -1 : std::stol(status.substr(at + 6));
}

// The healthy client's frames and slewvideo's memory while another client
// stalls, with the head turning so that the stream carries a full picture's
// worth of change every frame.
void Stalled(buslink::BusLink& bus, const std::string& url, pid_t video, Client& client, int seconds) {
  int fd = StalledClient(url);
  if (fd < 0) {
    printf("stalled client: the server did not let it play\n");
    return;
  }
  std::string error;
  bus.set("ptz.run_mode", "manual:30,0,0", &error);
  sleep(2);
  long before = ResidentKiB(video);
  size_t from = client.count();
  Clock::time_point start = Clock::now();
  long most = before;
  for (int s = 0; s < seconds; ++s) {
    sleep(1);
    most = std::max(most, ResidentKiB(video));
  }
  std::vector<Seen> seen = client.since(from);
  double span = seen.size() > 1 ? seen.back().pts_ms - seen.front().pts_ms : 0;
  long due = std::lround(span / kPeriodMs) + 1;
  printf("a client stalled for %.0f s, head turning: the other client received %zu of %ld frames due; slewvideo "
         "resident %ld KiB before, at most %ld KiB during\n",
         std::chrono::duration<double>(Clock::now() - start).count(), seen.size(), due, before, most);
  bus.set("ptz.run_mode", "stop", &error);
  close(fd);
}

// Waits until slewd has brought the head up.
bool AwaitBringUp(buslink::BusLink& bus) {
  for (int i = 0; i < 600; ++i) {
    std::string value, error;
    if (bus.get("ptz.init.pt", &value, &error) == buslink::BusReply::kOk && value == "done") {
      sleep(2);  // levelling and the lens
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  int seconds = argc > 1 ? atoi(argv[1]) : 20;
  int trials = argc > 2 ? atoi(argv[2]) : 100;
  if (seconds <= 0 || trials <= 0) {
    fprintf(stderr, "usage: video_stream_bench [SECONDS_PER_CPU_WINDOW [LAG_TRIALS]]\n");
    return 2;
  }
  pid_t reference = StartReference();
  std::string state = MakeStateFolder();
  if (state.empty()) return 1;
  pid_t daemon = StartSlewd(state.c_str());
  buslink::BusLink bus(state);
  if (!AwaitBringUp(bus)) {
    fprintf(stderr, "video_stream_bench: slewd did not come up\n");
    return 1;
  }
  std::string url;
  pid_t video = StartVideo(state, &url);
  if (url.empty()) {
    fprintf(stderr, "video_stream_bench: slewvideo did not start\n");
    return 1;
  }
  gst_init(nullptr, nullptr);
  int status = 0;
  {
    Client client(url);
    sleep(3);
    printf("stream %s, %dx%d at %d fps\n", url.c_str(), kWidth, kHeight, kFps);
    CpuWindow("head still", video, reference, seconds);

    // A minute of continuous motion: the head turns at a speed the whole time.
    std::string error;
    bus.set("ptz.run_mode", "manual:30,0,0", &error);
    sleep(2);
    size_t from = client.count();
    Clock::time_point start = Clock::now();
    CpuWindow("head turning", video, reference, 60);
    std::vector<Seen> seen = client.since(from);
    Drops(seen, std::chrono::duration<double>(Clock::now() - start).count());
    bus.set("ptz.run_mode", "stop", &error);
    sleep(2);

    Lag(bus, client, trials);
    Stalled(bus, url, video, client, 30);
    status = client.count() > 0 ? 0 : 1;
  }
  kill(video, SIGTERM);
  waitpid(video, nullptr, 0);
  kill(reference, SIGKILL);
  waitpid(reference, nullptr, 0);
  StopSlewd(daemon, state.c_str());
  return status;
}
