// slewvideo against a real-time slewd, judged by a decoder nobody here
// wrote (ffmpeg): the stream's format, the landmark and the horizon where
// the projection puts them before and after a move, a click that brings a
// landmark to the centre, the "no head" mark while slewd is gone and the
// recovery when it is back.
#include <httplib.h>

#include <cmath>

#include "../unit/slewd_process_fixture.h"
#include "render/scene.h"
#include "world/factory_defaults.h"

namespace {

using render::kLandmarks;

constexpr int kWidth = 640, kHeight = 360;

// Runs a shell command; its standard output (at most limit bytes) and exit status.
std::string Shell(const std::string& command, int* status = nullptr, size_t limit = 1 << 24) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string out;
  char buf[65536];
  size_t n;
  while (pipe != nullptr && out.size() < limit && (n = fread(buf, 1, sizeof buf, pipe)) > 0) out.append(buf, n);
  int s = pipe != nullptr ? pclose(pipe) : -1;
  if (status) *status = WIFEXITED(s) ? WEXITSTATUS(s) : -1;
  return out;
}

// An RGB picture, three bytes a pixel.
struct Rgb {
  int w = 0, h = 0;
  std::vector<uint8_t> px;
  // Whether the pixel at x, y is within tol of a colour on every channel.
  bool Near(int x, int y, int r, int g, int b, int tol) const {
    const uint8_t* p = px.data() + (size_t(y) * w + x) * 3;
    return std::abs(p[0] - r) <= tol && std::abs(p[1] - g) <= tol && std::abs(p[2] - b) <= tol;
  }
};

// Centre of the pixels of a landmark's colour; none when fewer than 20 have it.
std::optional<render::Point> Centroid(const Rgb& pic, const render::Landmark& mark) {
  double sx = 0, sy = 0;
  int n = 0;
  for (int y = 0; y < pic.h; ++y) {
    for (int x = 0; x < pic.w; ++x) {
      if (pic.Near(x, y, mark.r, mark.g, mark.b, 40)) sx += x, sy += y, ++n;
    }
  }
  return n < 20 ? std::nullopt : std::optional<render::Point>({sx / n + 0.5, sy / n + 0.5});
}

// Pixels of the red of the "no head" mark in the picture's lower band.
int NoHeadPixels(const Rgb& pic) {
  int n = 0;
  for (int y = pic.h * 3 / 4; y < pic.h * 9 / 10; ++y) {
    for (int x = 0; x < pic.w; ++x) n += pic.Near(x, y, 255, 26, 26, 60);
  }
  return n;
}

// Row of the horizon in column x: the first ground pixel from the top.
int HorizonRow(const Rgb& pic, int x) {
  for (int y = 0; y < pic.h; ++y) {
    if (pic.Near(x, y, 0x86, 0xa8, 0x6a, 30)) return y;
  }
  return -1;
}

class VideoStream : public SlewdProcess {
 protected:
  // The camera's factory lens (a field of view the view move works with) under the test's settings.
  void SetUp() override {
    SlewdProcess::SetUp();
    ASSERT_EQ(sim::bus_open((state_ + "/bus.db").c_str()), 0);
    sim::put_factory_defaults();
    for (const auto& [key, value] : kSettings) sim::bus_put(key, value);
    sim::bus_close();
  }
  void TearDown() override {
    if (video_ > 0) {
      kill(video_, SIGTERM);
      int status = 0;
      waitpid(video_, &status, 0);
      // slewvideo ends in order on SIGTERM, sanitizer reports included.
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
    SlewdProcess::TearDown();
  }
  // Starts slewvideo on free ports and reads the URLs it prints.
  void StartVideo() {
    video_ = fork();
    if (video_ == 0) {
      if (freopen((state_ + "/video.out").c_str(), "w", stdout) == nullptr) _exit(127);
      setenv("SLEWD_STATE", state_.c_str(), 1);
      // GStreamer keeps allocations for the life of the process on purpose.
      setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
      execl(SLEWVIDEO_PATH, "slewvideo", "--rtsp", "127.0.0.1:0", "--http", "127.0.0.1:0", (char*)nullptr);
      _exit(127);
    }
    std::string text;
    for (int i = 0; i < 300 && (text.find("\nhttp ") == std::string::npos || text.back() != '\n'); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      text = Shell("cat " + state_ + "/video.out");
    }
    std::istringstream lines(text);
    for (std::string word; lines >> word;) (word == "rtsp" ? lines >> rtsp_ : word == "http" ? lines >> http_ : lines);
    ASSERT_FALSE(http_.empty()) << "slewvideo printed no URLs: " << text;
  }
  // One frame decoded by ffmpeg: of the RTSP stream, or of the snapshot (the current frame as a JPEG).
  Rgb Grab(bool snapshot = false) {
    std::string raw = Shell("timeout 60 ffmpeg -v error " + (snapshot ? "-i " + http_ + "/snapshot.jpg" :
                            "-rtsp_transport tcp -i " + rtsp_) + " -frames:v 1 -f rawvideo -pix_fmt rgb24 - 2>/dev/null");
    EXPECT_EQ(raw.size(), size_t(kWidth) * kHeight * 3) << snapshot;
    raw.resize(size_t(kWidth) * kHeight * 3);
    return Rgb{kWidth, kHeight, {raw.begin(), raw.end()}};
  }
  Rgb Snapshot() { return Grab(true); }
  // The bus value of key, or empty.
  std::string Get(const char* key) {
    std::string out;
    Ctl({"get", key}, &out);
    while (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
  }
  // Runs a command and waits until the published position is (pan, tilt).
  void MoveAndAwait(const std::string& command, int pan, int tilt) {
    ASSERT_EQ(Ctl({"run", command, "--wait"}), 0) << command;
    for (int i = 0; i < 300 && (Get("ptz.pan_pos") != std::to_string(pan) || Get("ptz.tilt_pos") != std::to_string(tilt)); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  // Waits until the head stands: status 0 and the same published position 300 ms apart.
  void AwaitStill() {
    for (int i = 0; i < 60; ++i) {
      std::string before = Get("ptz.pan_pos") + "," + Get("ptz.tilt_pos");
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      if (Get("ptz.status") == "0" && before == Get("ptz.pan_pos") + "," + Get("ptz.tilt_pos")) return;
    }
    ADD_FAILURE() << "the head never stood still";
  }
  // The head view as published now.
  render::HeadView PublishedView() {
    std::map<std::string, std::string> bus;
    for (const std::string& key : render::view_keys()) {
      if (std::string value = Get(key.c_str()); !value.empty()) bus[key] = value;
    }
    return render::head_view(bus);
  }
  // The Mast is in pic where the projection puts it, and so is the horizon.
  void ExpectWhereProjected(const Rgb& pic, const render::View& view, const char* when) {
    auto expected = render::project(kLandmarks[0].pan, kLandmarks[0].tilt, view);
    auto found = Centroid(pic, kLandmarks[0]);
    ASSERT_TRUE(expected && found) << when;
    EXPECT_NEAR(found->x, expected->x / 10000 * kWidth, 0.02 * kWidth) << when;
    EXPECT_NEAR(found->y, expected->y / 10000 * kHeight, 0.02 * kWidth) << when;
    auto horizon = render::project(view.pan, 0, view);
    EXPECT_NEAR(HorizonRow(pic, kWidth / 8), horizon->y / 10000 * kHeight, 0.02 * kWidth) << when;
  }

  pid_t video_ = -1;
  std::string rtsp_, http_;
};

// The projection inverts the view move's worked values: a point of the
// picture lands where the head turns when that point is clicked (head at
// pan 10000, tilt 10000, the lens of those values).
TEST(VideoProjection, InvertsTheViewMove) {
  struct Case {
    bool mirror_flip;
    double x, y;
    int pan_offset, tilt_offset;
  } cases[] = {{false, 5000, 5000, 0, 0},      {false, 7500, 5000, -2252, -101}, {false, 5000, 7500, 0, 1132},
               {false, 7500, 2500, -2133, -1208}, {true, 7500, 2500, 2385, 1005}};
  for (const Case& c : cases) {
    render::View view{render::pan_deg(10000), render::tilt_deg(10000), {21.181350, 12.298071}, c.mirror_flip,
                      c.mirror_flip};
    auto p = render::project(render::pan_deg(10000 + c.pan_offset), render::tilt_deg(10000 + c.tilt_offset), view);
    ASSERT_TRUE(p);
    // One step of truncation in the view move is about two units of the scale.
    EXPECT_NEAR(p->x, c.x, 6) << c.x << "," << c.y;
    EXPECT_NEAR(p->y, c.y, 6) << c.x << "," << c.y;
  }
  EXPECT_FALSE(render::project(render::pan_deg(10000 + 32768), 0, render::View{render::pan_deg(10000), 0, {30, 20}}));
}

// Bad options: a one-line reason and status 2; --help: the usage and 0.
TEST(VideoOptions, BadOptionsAreRefused) {
  for (const char* args : {"--size 800x600", "--fps 0", "--fps 31", "--fps 15x", "--rtsp 127.0.0.1", "--http :80",
                           "--rtsp 0.0.0.0:8554", "--bogus", "--fps"}) {
    int status = 0;
    std::string err = Shell(std::string(SLEWVIDEO_PATH " ") + args + " 2>&1 >/dev/null", &status);
    EXPECT_EQ(status, 2) << args;
    EXPECT_EQ(err.rfind("slewvideo: ", 0), 0u) << args << ": " << err;
  }
  int status = 0;
  EXPECT_EQ(Shell(SLEWVIDEO_PATH " --help", &status).rfind("usage: slewvideo", 0), 0u);
  EXPECT_EQ(status, 0);
}

TEST_F(VideoStream, ShowsWhatTheHeadSeesAndOutlivesSlewd) {
  StartAndAwaitLoop();
  StartVideo();
  ASSERT_FALSE(rtsp_.empty());

  int status = 0;
  std::string probe = Shell("timeout 60 ffprobe -v error -rtsp_transport tcp -show_entries "
                          "stream=codec_name,width,height,r_frame_rate -of compact=p=0 " + rtsp_, &status);
  EXPECT_EQ(probe, "codec_name=h264|width=640|height=360|r_frame_rate=15/1\n");

  // Before and after a turn of 40 degrees to the left, the Mast on either side.
  MoveAndAwait("abs:0,4915,-1", 0, 4915);
  ExpectWhereProjected(Grab(), PublishedView().view, "at pan 0");
  int pan = render::pan_steps(40);
  MoveAndAwait("abs:" + std::to_string(pan) + ",4915,-1", pan, 4915);
  render::View view = PublishedView().view;
  ExpectWhereProjected(Grab(), view, "at pan 40");

  // A click on the Mast brings it to the centre, in the stream and the snapshot.
  auto mast = render::project(kLandmarks[0].pan, kLandmarks[0].tilt, view);
  ASSERT_EQ(Ctl({"run", "view:" + std::to_string(lround(mast->x)) + "," + std::to_string(lround(mast->y)), "--wait"}), 0);
  AwaitStill();
  auto jpeg = httplib::Client(http_).Get("/snapshot.jpg");
  ASSERT_TRUE(jpeg && jpeg->status == 200);
  EXPECT_EQ(jpeg->get_header_value("Content-Type"), "image/jpeg");
  for (const Rgb& pic : {Grab(), Snapshot()}) {
    auto found = Centroid(pic, kLandmarks[0]);
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->x, pic.w / 2.0, 0.02 * pic.w);
    EXPECT_NEAR(found->y, pic.h / 2.0, 0.02 * pic.w);
    EXPECT_LT(NoHeadPixels(pic), 50);
  }

  // slewd gone: the last picture goes on, marked; slewd back: the mark goes.
  Kill(SIGKILL);
  Rgb gone;
  for (int i = 0; i < 20 && NoHeadPixels(gone = Snapshot()) < 500; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_GT(NoHeadPixels(gone), 500);
  Rgb marked = Grab();
  EXPECT_GT(NoHeadPixels(marked), 500);
  EXPECT_TRUE(Centroid(marked, kLandmarks[0]));
  StartAndAwaitLoop();
  Rgb back;
  for (int i = 0; i < 50 && NoHeadPixels(back = Snapshot()) > 50; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_LT(NoHeadPixels(Grab()), 50);
}

}  // namespace
