// The firmware update: the controller's rules, the update in-process, and a slewsim sweep of every failure point.
#include <algorithm>
#include <mutex>

#include "mechanism/firmware_update.h"
#include "platform/gimbal.h"
#include "sim_test.h"
#include "srecord_text.h"
#include "world/knobs.h"
#include "world/world.h"

namespace {

using namespace simtest;

int Occurrences(const std::string& text, const std::string& what) {
  int n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) n++;
  return n;
}

class FirmwareUpdate : public SimTest {
 protected: void SetUp() override { SimTest::SetUp(), sim::sandbox_set_root((dir_ / "camera").c_str()), PowerOn(); }
  static sim::FirmwareUpdate& Pan() { return sim::the_world().controllers.pan.fw; }
  // A data frame of 240 bytes of fill; checksum right unless spoilt.
  static void Frame(int number, uint8_t fill, bool spoil = false) {
    uint8_t frame[243] = {uint8_t(number >> 8), uint8_t(number)};
    memset(frame + 2, fill, 240), frame[242] = uint8_t(frame[0] ^ frame[1] ^ spoil), SendI2C(0x28, 0x93, frame, 244);
  }
  // The frame status as the controller answers it: number << 8 | status.
  static int Status(int number) {
    uint8_t tx[2] = {uint8_t(number >> 8), uint8_t(number)}, rx[3] = {9, 9, 9};
    ReadI2C_M(0x28, 0x9b, tx, 3, rx, 3);
    return (rx[0] << 8 | rx[1]) << 8 | rx[2];
  }
  static int Read(int cmd) { uint8_t v = 0xee; return ReadI2C(0x28, cmd, &v, 1) < 0 ? -1 : v; }
  static void Send(int cmd, uint8_t* data, int n) { SendI2C(0x28, cmd, data, n); }

  TempDir tmp_;
  const fs::path& dir_ = tmp_.path;
};

TEST_F(FirmwareUpdate, ControllerTakesFramesInOrderAndCommitsOnlyAGoodImage) {
  uint8_t announce[2] = {0, 48}, one = 1;  // 480 bytes: two frames
  Frame(0, 0x11);
  EXPECT_EQ(Status(0), 0x0000) << "not in update mode";
  Send(0x91, announce, 3);
  EXPECT_EQ(Read(0x9a), 0) << "announce without prepare";
  Send(0x22, announce, 1);
  Send(0x91, announce, 3);
  EXPECT_EQ(Read(0x9a), 1);
  EXPECT_EQ(PanContinuousMove(0, 720), -1) << "update mode refuses moves";
  EXPECT_EQ(TiltContinuousMove(0, 720), 0) << "the other axis still moves";
  TiltContinuousMove(0, 0);
  // Status of frame 1 before 0, of a bad checksum, of a repeat (not stored twice), of one never sent.
  for (auto [number, fill, spoil, status] : {std::tuple{1, 0x22, false, 0x0100}, {0, 0x11, true, 0x0000},
                                              {0, 0x11, false, 0x0001}, {0, 0x11, false, 0x0001}}) {
    Frame(number, uint8_t(fill), spoil);
    EXPECT_EQ(Status(number), status) << number << spoil;
  }
  EXPECT_EQ(std::make_pair(Pan().image.size(), Status(5)), std::make_pair(size_t(240), 0x0500));
  Send(0x92, &one, 2);
  EXPECT_EQ(Read(0x9c), 0) << "240 bytes of 480 announced";
  Send(0x9d, &one, 2);
  Seconds(3);
  EXPECT_EQ(std::make_pair(Read(0x9a), Read(0x30)), std::make_pair(1, 1)) << "no commit without a good image";
  Frame(1, 0x22);
  Send(0x92, &one, 2);
  EXPECT_EQ(Read(0x9c), 1);
  Send(0x9d, &one, 2);
  Seconds(1.99);
  EXPECT_EQ(Read(0x30), -1) << "restarting";
  EXPECT_EQ(Bus("sim.pan.fw_version"), "<none>");
  Seconds(0.01);
  EXPECT_EQ(std::make_pair(Read(0x9a), Read(0x30)), std::make_pair(0, 2));
  EXPECT_EQ(PanContinuousMove(0, 720), 0);
  std::vector<uint8_t> image(240, 0x11);
  image.resize(480, 0x22);
  EXPECT_EQ(Bus("sim.pan.fw_version") + " " + Bus("sim.pan.fw_bytes") + " " + Bus("sim.pan.fw_crc"), "2 480 " + srec::Crc(image));
}

TEST_F(FirmwareUpdate, KnobsTakeGoodValuesOnly) {
  std::lock_guard lock(sim::big_lock());
  sim::World& w = sim::the_world();
  sim::FirmwareUpdate &pan = Pan(), &tilt = w.controllers.tilt.fw;
  for (const char* bad : {"x", "1,0", "1,-2", "70000", "-1", "1,", ",1", "1,2,3"})
    EXPECT_FALSE(sim::knob_apply(w, "sim.pan.fw_fail", bad)) << bad;
  EXPECT_FALSE(sim::knob_apply(w, "sim.tilt.fw_version", "256") || sim::knob_apply(w, "sim.tilt.fw_nope", "1"));
  EXPECT_EQ(std::make_pair(pan.fail.frame, tilt.version), std::make_pair(-1, 1));
  EXPECT_TRUE(sim::knob_apply(w, "sim.pan.fw_fail", "3,-1") && sim::knob_apply(w, "sim.pan.fw_noecho", "2") &&
              sim::knob_apply(w, "sim.tilt.fw_next_version", "0"));
  EXPECT_EQ((std::vector<int>{pan.fail.frame, pan.fail.times, pan.noecho.times, tilt.next_version}),
            (std::vector<int>{3, -1, 1, 0}));
  EXPECT_TRUE(sim::knob_apply(w, "sim.pan.fw_fail", "") && pan.fail.frame == -1);
}

// Images announce their size in tenths and go out filled; a log that cannot be opened stops nothing.
TEST_F(FirmwareUpdate, InProcessUpdates) {
  fs::create_directories(dir_ / "camera/tmp/mcuupate.log");
  fs::create_directories(dir_ / "camera/mnt/nand");
  std::vector<uint8_t> data = srec::Pattern(2401);
  std::ofstream(dir_ / "camera/mnt/nand/fw.s19") << srec::Records(data);
  size_t mark = sim::transcript_size();
  EXPECT_EQ(McuUpdate(0x28, "/mnt/nand/fw.s19"), 0);
  EXPECT_EQ(Pan().announced, 240);
  EXPECT_EQ(Bus("sim.pan.fw_version") + " " + Bus("sim.pan.fw_bytes") + " " + Bus("sim.pan.fw_crc"), "2 2640 " + srec::Crc(data));
  std::vector<std::string> lines = LinesSince(mark);
  for (const char* line : {"out MCU Update done", "out Open /tmp/mcuupate.log fail, update goes on without log"})
    EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
}

// One scenario: updating the pan controller to a pattern image with sim.pan.KNOB set; succeeds or fails.
struct Case {
  std::string name, knob, value;
  const char* failure;  // nullptr: the update succeeds; else directive text
  size_t size;
};

std::string ScenarioOf(const Case& c) {
  std::vector<uint8_t> image = srec::Pattern(c.size);
  std::string s = "args updatep /mnt/nand/fw.s19\nbus sim.pan.fw_version 7\n";
  if (!c.knob.empty()) s += "bus sim.pan." + c.knob + " " + c.value + "\n";
  s += "file /mnt/nand/fw.s19\n" + srec::Records(image) + "end\nawait exit 0 300\n";
  if (c.failure == nullptr)
    return s + "expect line out MCU Update done\nexpect line out New FW Version:8\nexpect bus sim.pan.fw_version 8\n"
               "expect bus sim.pan.fw_crc " + srec::Crc(image) + "\n";
  return s + "expect line out " + c.failure + "\nexpect no line MCU Update done\nexpect bus sim.pan.fw_version 7\n"
             "show bus sim.pan.fw_crc\nexpect no line bus sim.pan.fw_crc\n";
}

// The largest image in 427 frames, one byte more refused before Prepare, and each failure point.
TEST_F(FirmwareUpdate, EveryFailurePointEndsDoneWithTheRightImageOrFailsLeavingTheVersion) {
  constexpr int kFrames = 3;
  constexpr size_t kSize = kFrames * 240 - 120;  // the last frame filled
  std::vector<Case> cases{
      {"largest", "", "", nullptr, kFwImageMax - 1},
      {"too_big", "", "", "Load fail:File to big\nexpect line out LoadFWFile fail\nexpect no line call SendI2C",
       kFwImageMax},
      {"noecho_always_1", "fw_noecho", "1,-1", "Frame 0x0001 status not echoed 20 times, give up", kSize},
      {"refused", "fw_refuse", "1", "Enable update mode fail", kSize},
      {"bad_image", "fw_bad_image", "1", "update fail 0x9c", kSize}};
  for (std::string n : {"0", "1", "2"})
    cases.insert(cases.end(), {{"fail_five_" + n, "fw_fail", n + ",5", nullptr, kSize},
                               {"fail_six_" + n, "fw_fail", n + ",6", "UpdateMcu fail", kSize},
                               {"noecho_once_" + n, "fw_noecho", n, nullptr, kSize}});
  std::string command = std::string(SLEWSIM_PATH) + " --keep " + (dir_ / "keep").string();
  for (const Case& c : cases) {
    std::ofstream(dir_ / (c.name + ".scn")) << ScenarioOf(c);
    command += " " + (dir_ / (c.name + ".scn")).string();
  }
  EXPECT_EQ(std::system((command + " > " + (dir_ / "report.txt").string() + " 2>&1").c_str()), 0);
  std::string report = ReadText(dir_ / "report.txt");
  EXPECT_NE(report.find(std::to_string(cases.size()) + " passed, 0 failed"), std::string::npos) << report;

  // The log shows each attempt: six of a frame, not five; a missing echo costs none.
  auto count = [&](const std::string& name, const char* what) {
    return Occurrences(ReadText(dir_ / "keep" / name / "tmp/mcuupate.log"), what);
  };
  EXPECT_EQ(count("largest", "ok\n"), 427);
  EXPECT_EQ(count("largest", "\n0x93->01 00 ") + count("largest", "\n0x93->01 aa "), 2) << "frames 256 and 426";
  for (int k = 0; k < kFrames; k++) {
    std::string n = std::to_string(k);
    EXPECT_EQ((std::vector{count("fail_five_" + n, "Fail. Retry\n"), count("fail_five_" + n, "ok\n"),
                           count("fail_six_" + n, "Fail. Retry\n"), count("fail_six_" + n, "ok\n"),
                           count("noecho_once_" + n, "0x93->"), count("noecho_once_" + n, "Fail. Retry")}),
              (std::vector{5, kFrames, 6, k, kFrames + 1, 0})) << k;
  }
  EXPECT_EQ(count("noecho_always_1", "0x93->"), 1 + kFwUnechoedMax);
  EXPECT_FALSE(fs::exists(dir_ / "keep/refused/tmp/mcuupate.log")) << "no frame sent";
  EXPECT_EQ(count("bad_image", "ok\n"), kFrames);
}

}  // namespace
