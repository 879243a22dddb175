// slewvideo against a real slewd, judged by ffmpeg: format, projection, click-to-centre, the "no head" mark.
#include <httplib.h>

#include <array>
#include <cmath>

#include "../unit/realtime_fixture.h"
#include "render/scene.h"
#include "world/factory_defaults.h"

using render::kLandmarks;

constexpr int kWidth = 640, kHeight = 360;

// Pixels within tol of a colour in the box (default: all): count, centre, first row.
struct Pixels { int n = 0, top = -1; double x = 0, y = 0; };
Pixels Find(const std::string& pic, std::array<int, 3> c, int tol, int x0 = 0, int x1 = kWidth, int y0 = 0,
            int y1 = kHeight) {
  Pixels f;
  for (int y = y0; y < y1; ++y) for (int x = x0; x < x1; ++x) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(pic.data()) + (size_t(y) * kWidth + x) * 3;
    if (std::abs(p[0] - c[0]) > tol || std::abs(p[1] - c[1]) > tol || std::abs(p[2] - c[2]) > tol) continue;
    f.top = f.n++ == 0 ? y : f.top, f.x += x + 0.5, f.y += y + 0.5;
  }
  return f.n > 0 ? (f.x /= f.n, f.y /= f.n, f) : f;
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
  // The factory lens (a field of view for the view move) under the test's settings.
  void SetUp() override {
    SlewdProcess::SetUp();
    ASSERT_EQ(sim::bus_open((state_ + "/bus.db").c_str()), 0);
    sim::put_factory_defaults();
    sim::bus_close();
    Put({std::begin(kSettings), std::end(kSettings)});
  }
  void TearDown() override {
    int status = 0;
    if (video_ > 0 && kill(video_, SIGTERM) == 0 && waitpid(video_, &status, 0) == video_)
      { EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status; }
    SlewdProcess::TearDown();
  }
  // Starts slewvideo on free ports and reads the URLs it prints.
  void StartVideo() {
    video_ = fork();
    if (video_ == 0) {
      setenv("SLEWD_STATE", state_.c_str(), 1), setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
      if (freopen((state_ + "/video.out").c_str(), "w", stdout) != nullptr)
        execl(SLEWVIDEO_PATH, "slewvideo", "--rtsp", "127.0.0.1:0", "--http", "127.0.0.1:0", (char*)nullptr);
      _exit(127);
    }
    std::string text;
    Await([&] { return (text = FileText(state_ + "/video.out")).find("\nhttp ") != std::string::npos && text.back() == '\n'; }, 30);
    std::istringstream lines(text);
    for (std::string word; lines >> word;) (word == "rtsp" ? lines >> rtsp_ : word == "http" ? lines >> http_ : lines);
    ASSERT_FALSE(http_.empty()) << "slewvideo printed no URLs: " << text;
  }
  // One frame decoded by ffmpeg, of the RTSP stream or the snapshot JPEG.
  std::string Grab(bool snapshot = false) {
    std::string pic = Output("timeout 60 ffmpeg -v error " + (snapshot ? "-i " + http_ + "/snapshot.jpg" :
                            "-rtsp_transport tcp -i " + rtsp_) + " -frames:v 1 -f rawvideo -pix_fmt rgb24 - 2>/dev/null");
    EXPECT_EQ(pic.size(), size_t(kWidth) * kHeight * 3) << snapshot;
    return pic.resize(size_t(kWidth) * kHeight * 3), pic;
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
  render::HeadView PublishedView() {
    std::map<std::string, std::string> bus;
    for (const std::string& key : render::view_keys()) if (std::string value = Get(key.c_str()); !value.empty()) bus[key] = value;
    return render::head_view(bus);
  }
  // The Mast is in pic where the projection puts it, and so is the horizon.
  void ExpectWhereProjected(const std::string& pic, const render::View& view, const char* when) {
    auto expected = render::project(kLandmarks[0].pan, kLandmarks[0].tilt, view), found = Mast(pic);
    ASSERT_TRUE(expected && found) << when;
    EXPECT_NEAR(found->x, expected->x / 10000 * kWidth, 0.02 * kWidth) << when;
    EXPECT_NEAR(found->y, expected->y / 10000 * kHeight, 0.02 * kWidth) << when;
    auto horizon = render::project(view.pan, 0, view);  // the first ground pixel from the top
    EXPECT_NEAR(Find(pic, {0x86, 0xa8, 0x6a}, 30, kWidth / 8, kWidth / 8 + 1).top, horizon->y / 10000 * kHeight, 0.02 * kWidth)
        << when;
  }

  pid_t video_ = -1;
  std::string rtsp_, http_;
};

// Bad options: a one-line reason and status 2; --help: the usage and 0.
TEST(VideoOptions, BadOptionsAreRefused) {
  int status = 0;
  for (const char* args : {"--size 800x600", "--fps 0", "--fps 31", "--fps 15x", "--rtsp 127.0.0.1", "--http :80",
                           "--rtsp 0.0.0.0:8554", "--bogus", "--fps"}) {
    std::string err = Output(std::string(SLEWVIDEO_PATH " ") + args + " 2>&1 >/dev/null", &status);
    EXPECT_TRUE(status == 2 && err.rfind("slewvideo: ", 0) == 0) << args << ": " << status << " " << err;
  }
  EXPECT_TRUE(Output(SLEWVIDEO_PATH " --help", &status).rfind("usage: slewvideo", 0) == 0 && status == 0);
}

TEST_F(VideoStream, ShowsWhatTheHeadSeesAndOutlivesSlewd) {
  StartAndAwaitLoop();
  StartVideo();
  ASSERT_FALSE(rtsp_.empty());

  EXPECT_EQ(Output("timeout 60 ffprobe -v error -rtsp_transport tcp -show_entries "
                  "stream=codec_name,width,height,r_frame_rate -of compact=p=0 " + rtsp_), "codec_name=h264|width=640|height=360|r_frame_rate=15/1\n");

  // Before and after a turn of 40 degrees to the left, the Mast on either side.
  render::View view;
  for (std::string pan : {std::string("0"), std::to_string(render::pan_steps(40))}) {
    ASSERT_EQ(Ctl({"run", "abs:" + pan + ",4915,-1", "--wait"}), 0) << pan;
    Await([&] { return Get("ptz.pan_pos") == pan && Get("ptz.tilt_pos") == "4915"; }, 6);
    ExpectWhereProjected(Grab(), view = PublishedView().view, pan.c_str());
  }

  // A click on the Mast brings it to the centre, in the stream and the snapshot.
  auto mast = render::project(kLandmarks[0].pan, kLandmarks[0].tilt, view);
  ASSERT_EQ(Ctl({"run", "view:" + std::to_string(lround(mast->x)) + "," + std::to_string(lround(mast->y)), "--wait"}), 0);
  AwaitStill();
  auto jpeg = httplib::Client(http_).Get("/snapshot.jpg");
  ASSERT_TRUE(jpeg && jpeg->status == 200);
  EXPECT_EQ(jpeg->get_header_value("Content-Type"), "image/jpeg");
  for (const std::string& pic : {Grab(), Grab(true)}) {
    auto found = Mast(pic);
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->x, kWidth / 2.0, 0.02 * kWidth);
    EXPECT_NEAR(found->y, kHeight / 2.0, 0.02 * kWidth);
    EXPECT_LT(NoHeadPixels(pic), 50);
  }

  // slewd gone: the last picture goes on, marked; slewd back: the mark goes.
  Kill(SIGKILL);
  std::string pic;
  for (int i = 0; i < 20 && NoHeadPixels(pic = Grab(true)) < 500; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_GT(NoHeadPixels(pic), 500);
  EXPECT_GT(NoHeadPixels(pic = Grab()), 500);
  EXPECT_TRUE(Mast(pic));
  StartAndAwaitLoop();
  for (int i = 0; i < 50 && NoHeadPixels(Grab(true)) > 50; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_LT(NoHeadPixels(Grab()), 50);
}
