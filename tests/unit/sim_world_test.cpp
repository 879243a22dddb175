// The simulated hardware where scenarios do not reach: the world's next
// event, bad register lines and knob values, getters' traces, the shell's sandbox.
#include "platform/camstate.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "sim_test.h"
#include "world/world.h"

namespace {

using namespace simtest;

class SimWorld : public SimTest {
 protected:
  template <class F>
  static int get(F f) { int v = -1; return f(&v), v; }
  static double focal() { double f = -1; return GetFocalLength(&f), f; }
  static void ext(const char* key, const char* value) { sim::bus_write(sim::Origin::External, key, value); }
};

// The real-time world thread sleeps until this moment: early wakes it twice, late leaves a change late.
TEST_F(SimWorld, NextEventIsTheMomentTheWorldChangesByItself) {
  PowerOn({{"sim.pan.cali_s", "0.25"}});
  const sim::World& w = sim::the_world();
  auto wait_ns = [&] { return sim::world_next_event_ns() - (w.power_on_ns + w.elapsed_ns); };
  EXPECT_EQ(wait_ns(), 250000000);  // the calibration's end
  sim::world_step(250000000);
  EXPECT_EQ(sim::world_next_event_ns(), INT64_MAX);  // idle: nothing due
  PanContinuousMove(0, 7200);
  EXPECT_EQ(sim::world_next_event_ns(), INT64_MAX);  // turning for good
  PanABSMove(0, 7200, 1000);
  int64_t arrival = wait_ns();
  EXPECT_EQ(arrival, 15259022);  // 1000 steps at 65535 a second, rounded up
  sim::world_step(arrival - 1);
  EXPECT_EQ(GetPanStatus(), 1);
  sim::world_step(1);
  EXPECT_EQ(std::make_pair(GetPanStatus(), get(GetPanPos)), std::make_pair(0, 1000));
  ext("ptz.lens.set_pos.zoom", "4096");
  EXPECT_EQ(wait_ns(), 244141);  // long since published: at the motor's first step
  sim::world_step(244141);
  EXPECT_EQ(wait_ns(), sim::kLensPublishNs);  // published; the next one 100 ms on
}

TEST_F(SimWorld, BadRegisterWritesAndTorvanReadBack) {
  PowerOn();
  EXPECT_EQ(Pan_SendI2C_Advanced(0x46, 1, 5), -1);  // no such width
  for (const char* bad : {"i2ctransfer -f -y 1 w3@0x28 0x0e 1 2", "i2ctransfer -f -y 2 w3@0x30 0x0e 1 2",
                          "i2ctransfer -f -y 2 w3@0x28 0x0e 1", "i2ctransfer -f -y 2 w3@0x28 0x0e 1 256",
                          "i2ctransfer -f -y 2 w3@0x28 0x0e 1 2 w2@0x31 1 2", "i2ctransfer"})
    EXPECT_EQ(sim::shell_run(bad), 1) << bad;
  EXPECT_EQ(sim::controller_register_writes(sim::kPanAddr, 0x0e), 0);
  SetTorvanPanPID(0x10, 0x2a, 0xfa);  // reads back the last c, per controller
  int a = -1, b = -1;
  GetTorvanPanPID(0x40, &a, &b);
  EXPECT_EQ(std::make_pair(a, b), std::make_pair(0, 0xfa));
  GetTorvanPanPID(0x10, &a, &b);
  EXPECT_EQ(a, 0x2a);
  GetTorvanTiltPID(0x40, &a, &b);
  EXPECT_EQ(b, 0);
}

// Set-up writes never show; getters and the camera's own writes only with -v.
TEST_F(SimWorld, GettersAreTracedOnlyWhenVerbose) {
  PowerOn();
  char buf[128];
  for (bool verbose : {false, true}) {
    sim::set_verbose(verbose);
    size_t start = sim::transcript_size();
    sim::bus_put("sim.model_id", "1");
    sim::bus_write(sim::Origin::Sim, "ptz.lens.get_pos.zoom", "6");
    kvlink_get("ptz.status", buf, sizeof buf);
    kvlink_get_name("ptz.preset.position", 0, buf, sizeof buf);
    GetPanStatus();
    get(GetZoom);
    focal();
    get_modelid();
    std::vector<std::string> want{"sim ptz.lens.get_pos.zoom=6", "call kvlink_get(ptz.status)",
                                  "call kvlink_get_name(ptz.preset.position,0)", "call GetPanStatus()=0",
                                  "call GetZoom(0)", "call GetFocalLength(4.7)", "call get_modelid()=9417701"};
    EXPECT_EQ(LinesSince(start), verbose ? want : std::vector<std::string>{});
  }
}

TEST_F(SimWorld, KnobsSetTheModelAndBadValuesAreIgnored) {
  PowerOn({{"sim.model_id", "9417702"}, {"sim.motor_type", "1"}, {"sim.clock", "2026-03-01 12:00:00"},
            {"sim.lens_type", "5"}, {"sim.dzoom", "nope"}, {"sim.focal_mm", "10"}});
  EXPECT_STREQ(get_modelid(), "9417702");
  EXPECT_EQ(GetMotorType(), 1);
  EXPECT_EQ(sim::wall_seconds(), 1772366400);
  EXPECT_EQ(GetLensType(), -1);
  EXPECT_EQ(get_lenstype(), 5);
  SetLensType(get_lenstype());
  EXPECT_EQ(GetLensType(), 5);
  EXPECT_EQ(get(GetDZoom), 0);
  ext("sim.motor_type", "two");
  ext("sim.tilt.pos", "40000");  // beyond travel
  ext("sim.pan.cali_s", "-1");
  EXPECT_EQ(GetMotorType(), 1);
  EXPECT_EQ(get(GetTiltPos), 0);
  PanReset();
  EXPECT_EQ(PanGetCaliStatus(), 0);  // still the 0 s it was given
  // A pinned focal length holds whatever the zoom, until unpinned; bad values change nothing.
  ext("ptz.lens.set_pos.zoom", "16384");
  Seconds(5);
  for (auto [value, want] : std::vector<std::pair<const char*, double>>{
           {"-2", 10}, {"ten", 10}, {"1e999", 10}, {"4.5", 4.5}, {"", 94}, {"0", 94}}) {
    ext("sim.focal_mm", value);
    EXPECT_EQ(focal(), want) << value;
  }
  EXPECT_EQ(sim::bus_write(sim::Origin::External, "sim.lens.zoom_max", "5"), -1);  // lens data is read-only
  EXPECT_EQ(sim::bus_write(sim::Origin::Daemon, "sim.lens.focal_wide", "1"), -1);
  EXPECT_EQ(Bus("sim.lens.zoom_max"), "16384");
}

// Copies and removals that work: the pattern scenarios.
TEST_F(SimWorld, ShellCopiesAndRemovesInsideTheSandbox) {
  TempDir dir;
  fs::path root = dir.path;
  std::string old_root = sim::sandbox_root();
  sim::sandbox_set_root(root.c_str());
  fs::create_directories(root / "mnt/nand");
  fs::create_directories(root / "tmp");
  std::ofstream(root / "tmp/pattern1.path") << "1,2,3\n";
  PowerOn();
  for (auto [line, want] : std::vector<std::pair<const char*, int>>{
           {"cp /tmp/none.path /mnt/nand/none.path", 1}, {"rm /mnt/nand/pattern1.path", 1},
           {"rm -f /mnt/nand/pattern1.path", 0},
           {"rm /mnt/nand/pattern1.path && rm -rf /tmp", 1},  // && stops
           {"rm -rf /../../..", 1},                           // never the root, never above it
           {"killall -9 FigureFollow &", 0},
           {"killall -9 demo_stamp & killall -9 demo\\ blackout > /dev/null 2>&1", 0},
           {"killall -9 \"d\\\"q\" 'a\\b'", 0}, {"cp /tmp/pattern1.path /mnt/nand/copy.path", 0},
           {"FigureFollow -m 0 -b 2 --label_path \"/bin/a b.txt\"&", 0}, {"'unterminated", 0}})
    EXPECT_EQ(sim::shell_run(line), want) << line;
  EXPECT_TRUE(fs::exists(root / "tmp/pattern1.path"));
  EXPECT_EQ(sim::the_world().shell.killed, (std::vector<std::string>{"FigureFollow", "demo_stamp", "demo blackout", "d\"q", "a\\b"}));
  sim::sandbox_set_root(old_root.c_str());
}

// Following a person and crashing: scenario.track_follows_person, scenario.track_crash.
TEST_F(SimWorld, TrackerTakesWholePersonValuesOnly) {
  PowerOn({{"sim.person", "300,400,5000"}});
  EXPECT_EQ(sim::shell_run("FigureFollow -m 0 -b 2&"), 0);
  Steps(50);
  for (const char* bad : {"1", "1,2,3,4", "a,b", "1,,2", "99999999999,1", ""}) {
    ext("sim.person", bad);
    Steps(10);
    EXPECT_EQ(Bus("ptz.track.location") + " " + Bus("ptz.track.zoom"), "300,400 5000") << bad;
  }
}

}  // namespace
