// slewvideo against a real-time slewd, judged by a decoder nobody here
// wrote (ffmpeg): the stream's format, the landmark and the horizon where
// the projection puts them before and after a move, a click that brings a
// landmark to the centre, the "no head" mark while slewd is gone and the
// recovery when it is back.
#include <httplib.h>

#include <array>
#include <cmath>

#include "../unit/slewd_process_fixture.h"
#include "render/scene.h"
#include "world/factory_defaults.h"

namespace {

using render::kLandmarks;

constexpr int kWidth = 640, kHeight = 360;

// Runs a shell command; its standard output and exit status.
std::string Shell(const std::string& command, int* status = nullptr) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string out;
  char buf[65536];
  size_t n;
  while (pipe != nullptr && (n = fread(buf, 1, sizeof buf, pipe)) > 0) out.append(buf, n);
  int s = pipe != nullptr ? pclose(pipe) : -1;
  if (status) *status = WIFEXITED(s) ? WEXITSTATUS(s) : -1;
  return out;
}

// The pixels of a picture (RGB, kWidth x kHeight) within tol of a colour, in
// the box x0..x1, y0..y1 (the whole picture by default): how many, their
// centre and the first row that holds one.
struct Pixels {
  int n = 0, top = -1;
  double x = 0, y = 0;
};
Pixels Find(const std::string& pic, std::array<int, 3> c, int tol, int x0 = 0, int x1 = kWidth, int y0 = 0,
            int y1 = kHeight) {
  Pixels f;
  for (int y = y0; y < y1; ++y) {
    for (int x = x0; x < x1; ++x) {
      const uint8_t* p = reinterpret_cast<const uint8_t*>(pic.data()) + (size_t(y) * kWidth + x) * 3;
      if (std::abs(p[0] - c[0]) > tol || std::abs(p[1] - c[1]) > tol || std::abs(p[2] - c[2]) > tol) continue;
      if (f.n++ == 0) f.top = y;
      f.x += x + 0.5, f.y += y + 0.5;
    }
  }
  if (f.n > 0) f.x /= f.n, f.y /= f.n;
  return f;
}
// Centre of the Mast (the first landmark) by its colour; none when fewer than 20 pixels have it.
std::optional<render::Point> Mast(const std::string& pic) {
  Pixels f = Find(pic, {kLandmarks[0].r, kLandmarks[0].g, kLandmarks[0].b}, 40);
  return f.n < 20 ? std::nullopt : std::optional<render::Point>({f.x, f.y});
}
// Pixels of the red of the "no head" mark in the picture's lower band.
int NoHeadPixels(const std::string& pic) { return Find(pic, {255, 26, 26}, 60, 0, kWidth, kHeight * 3 / 4, kHeight * 9 / 10).n; }

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
  std::string Grab(bool snapshot = false) {
    std::string pic = Shell("timeout 60 ffmpeg -v error " + (snapshot ? "-i " + http_ + "/snapshot.jpg" :
                            "-rtsp_transport tcp -i " + rtsp_) + " -frames:v 1 -f rawvideo -pix_fmt rgb24 - 2>/dev/null");
    EXPECT_EQ(pic.size(), size_t(kWidth) * kHeight * 3) << snapshot;
    pic.resize(size_t(kWidth) * kHeight * 3);
    return pic;
  }
  std::string Snapshot() { return Grab(true); }
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
  void ExpectWhereProjected(const std::string& pic, const render::View& view, const char* when) {
    auto expected = render::project(kLandmarks[0].pan, kLandmarks[0].tilt, view);
    auto found = Mast(pic);
    ASSERT_TRUE(expected && found) << when;
    EXPECT_NEAR(found->x, expected->x / 10000 * kWidth, 0.02 * kWidth) << when;
    EXPECT_NEAR(found->y, expected->y / 10000 * kHeight, 0.02 * kWidth) << when;
    auto horizon = render::project(view.pan, 0, view);
    // The horizon: the first ground pixel from the top.
    EXPECT_NEAR(Find(pic, {0x86, 0xa8, 0x6a}, 30, kWidth / 8, kWidth / 8 + 1).top, horizon->y / 10000 * kHeight, 0.02 * kWidth)
        << when;
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

  EXPECT_EQ(Shell("timeout 60 ffprobe -v error -rtsp_transport tcp -show_entries "
                  "stream=codec_name,width,height,r_frame_rate -of compact=p=0 " + rtsp_), "codec_name=h264|width=640|height=360|r_frame_rate=15/1\n");

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
  for (const std::string& pic : {Grab(), Snapshot()}) {
    auto found = Mast(pic);
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->x, kWidth / 2.0, 0.02 * kWidth);
    EXPECT_NEAR(found->y, kHeight / 2.0, 0.02 * kWidth);
    EXPECT_LT(NoHeadPixels(pic), 50);
  }

  // slewd gone: the last picture goes on, marked; slewd back: the mark goes.
  Kill(SIGKILL);
  std::string pic;
  for (int i = 0; i < 20 && NoHeadPixels(pic = Snapshot()) < 500; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_GT(NoHeadPixels(pic), 500);
  pic = Grab();
  EXPECT_GT(NoHeadPixels(pic), 500);
  EXPECT_TRUE(Mast(pic));
  StartAndAwaitLoop();
  for (int i = 0; i < 50 && NoHeadPixels(Snapshot()) > 50; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_LT(NoHeadPixels(Grab()), 50);
}

}  // namespace
