// The simulated hardware, driven directly: head physics, limits, health,
// registers, the lens, the shell and the simulated tracker.
#include "platform/camstate.h"
#include "platform/gimbal.h"
#include "sim_test.h"
#include "world/world.h"

namespace {

using namespace simtest;
using Knobs = std::vector<std::pair<const char*, const char*>>;

// 7200 turns 65535 steps a second: 655 steps in one 10 ms world step.
constexpr int kFull = 7200;

// A command at full speed ('c' continuous, 'a' absolute to target), n world
// steps, and where the axis stands then.
struct Move {
  char axis, kind;
  int dir, target, n, want;
};

// A bus write ("sh": a shell line, run with success), n world steps, and
// what a bus key (or "zoom", "lens": the getters) reads then.
struct Act {
  const char *key, *value;
  int n;
  const char *read, *want;
};

class SimWorld : public SimTest {
 protected:
  template <class F>
  static int get(F f) {
    int v = -1;
    f(&v);
    return v;
  }
  static int pan() { return get(GetPanPos); }
  static int tilt() { return get(GetTiltPos); }
  static void ext(const char* key, const char* value) { sim::bus_write(sim::Origin::External, key, value); }
  static void run(const std::vector<Act>& acts) {
    for (const Act& a : acts) {
      std::string key = a.key, read = a.read;
      if (key == "sh") {
        EXPECT_EQ(sim::shell_run(a.value), 0) << a.value;
      } else if (!key.empty()) {
        ext(a.key, a.value);
      }
      Steps(a.n);
      EXPECT_EQ(read == "zoom" ? std::to_string(get(GetZoom))
                : read == "lens" ? std::to_string(get(GetLensStatus)) : Bus(a.read), a.want) << a.key << " " << a.value << " " << a.n << ": " << a.read;
    }
  }
  static void run(const std::vector<Move>& moves) {
    for (const Move& m : moves) {
      bool t = m.axis == 't';
      if (m.kind == 'c') (t ? TiltContinuousMove : PanContinuousMove)(m.dir, kFull);
      if (m.kind == 'a') (t ? TiltABSMove : PanABSMove)(m.dir, kFull, m.target);
      Steps(m.n);
      EXPECT_EQ(t ? tilt() : pan(), m.want) << m.axis << m.kind << m.dir << " " << m.target;
    }
  }
};

TEST_F(SimWorld, PanWrapsAndEveryMoveHasItsDirection) {
  PowerOn({{"sim.pan.pos", "65530"}, {"sim.tilt.pos", "10000"}});
  run({{'p', 'c', 0, 0, 1, 650},          // 65530 + 655 - 65535
       {'p', 'c', 1, 0, 2, 64875},        // 650 - 1310 + 65535
       {'p', 'c', 0, 0, 100, 64875},      // one turn: the carried fractions add up
       {'p', 'a', 0, 65535, 2, 0},        // 65535 is step 0
       {'p', 'a', 0, 100, 1, 100},
       {'p', 'a', 0, 50, 1, 755},         // up, so the long way round through the seam
       {'p', 'a', 1, 50, 2, 50},          // down: 705 steps, arrives in the second step
       {'t', 'c', 0, 0, 1, 10655},
       {'t', 'c', 1, 0, 1, 10000},
       {'t', 'a', 1, 10500, 1, 10500},    // tilt absolute: 1 counts up
       {'t', 'a', 0, 10000, 1, 10000}});
  EXPECT_EQ(GetPanStatus(), 0);
  TiltABSMove(0, kFull, 12000);  // target behind the direction: no move
  EXPECT_EQ(GetTiltStatus(), 0);
  run({{'t', '-', 0, 0, 1, 10000}});
}

TEST_F(SimWorld, StatusWhileMovingAndStopping) {
  PowerOn({{"sim.tilt.pos", "100"}});
  auto status = [] { return std::make_pair(GetPanStatus(), GetTiltStatus()); };
  EXPECT_EQ(status(), std::make_pair(0, 0));
  PanABSMove(0, kFull, 1000);
  TiltABSMove(1, kFull, 1000);
  EXPECT_EQ(status(), std::make_pair(1, -1));
  Steps(2);
  EXPECT_EQ(status(), std::make_pair(0, 0));
  run({{'t', 'c', 1, 0, 2, 0}, {'t', 'c', 0, 0, 100, sim::kTiltMax}});  // into both ends of travel
  EXPECT_EQ(GetTiltStatus(), 0);
  PanContinuousMove(0, kFull);
  PanContinuousMove(1, 0);  // speed 0 stops whatever the direction
  EXPECT_EQ(GetPanStatus(), 0);
  PanABSMove(0, 0, 500);  // and an absolute move at speed 0 stands still
  EXPECT_EQ(GetPanStatus(), 0);
}

TEST_F(SimWorld, SoftLimitsStopTheAxis) {
  PowerOn({{"sim.pan.pos", "1500"}, {"sim.tilt.pos", "5000"}});
  PanLimitSet(1000, 2000);  // right bound, left bound
  PanLimitEn(1);
  run({{'p', 'c', 0, 0, 1, 2000}});
  EXPECT_EQ(GetPanStatus(), 0);
  PanContinuousMove(0, kFull);  // already at the bound: refused motion
  EXPECT_EQ(GetPanStatus(), 0);
  run({{'p', 'a', 1, 100, 2, 1000}});  // an absolute target beyond stops at the bound
  PanLimitSet(65000, 500);  // a window across the seam
  run({{'p', 'c', 1, 0, 3, 65000}, {'p', 'c', 0, 0, 2, 500}});
  PanLimitEn(0);
  run({{'p', 'c', 0, 0, 1, 1155}});
  TiltLimit(4900, 5100);  // up is the low-step bound, down the high one
  TiltLimitEn(1);
  run({{'t', 'c', 0, 0, 1, 5100}});
  EXPECT_EQ(GetTiltStatus(), 0);
  run({{'t', 'c', 1, 0, 1, 4900}});
}

TEST_F(SimWorld, CalibrationAfterPowerOnAndReset) {
  PowerOn({{"sim.pan.cali_s", "3"}, {"sim.tilt.cali_s", "1.5"}});
  EXPECT_NE(PanGetCaliStatus(), 0);
  EXPECT_EQ(PanContinuousMove(0, kFull), -1);  // no motion while calibrating
  Steps(150);
  EXPECT_EQ(TiltGetCaliStatus(), 0);
  Steps(149);
  EXPECT_NE(PanGetCaliStatus(), 0);
  Steps(1);
  EXPECT_EQ(PanGetCaliStatus(), 0);
  EXPECT_EQ(pan(), 0);
  PanContinuousMove(0, kFull);
  PanReset();  // stops and calibrates again
  EXPECT_EQ(GetPanStatus(), 0);
  EXPECT_NE(PanGetCaliStatus(), 0);
  Seconds(3);
  EXPECT_EQ(PanGetCaliStatus(), 0);
}

// The real-time world thread sleeps until this moment: early wakes it twice, late leaves a change late.
TEST_F(SimWorld, NextEventIsTheMomentTheWorldChangesByItself) {
  PowerOn({{"sim.pan.cali_s", "0.25"}});
  const sim::World& w = sim::the_world();
  auto wait_ns = [&] { return sim::world_next_event_ns() - (w.power_on_ns + w.elapsed_ns); };
  EXPECT_EQ(wait_ns(), 250000000);  // the calibration's end
  sim::world_step(250000000);
  EXPECT_EQ(sim::world_next_event_ns(), INT64_MAX);  // idle: nothing due
  PanContinuousMove(0, kFull);
  EXPECT_EQ(sim::world_next_event_ns(), INT64_MAX);  // turning for good
  PanABSMove(0, kFull, 1000);
  int64_t arrival = wait_ns();
  EXPECT_EQ(arrival, 15259022);  // 1000 steps at 65535 a second, rounded up
  sim::world_step(arrival - 1);
  EXPECT_EQ(GetPanStatus(), 1);
  sim::world_step(1);
  EXPECT_EQ(GetPanStatus(), 0);
  EXPECT_EQ(pan(), 1000);
  ext("ptz.lens.set_pos.zoom", "4096");
  EXPECT_EQ(wait_ns(), 244141);  // long since published: at the motor's first step
  sim::world_step(244141);
  EXPECT_EQ(wait_ns(), sim::kLensPublishNs);  // published; the next one 100 ms on
}

TEST_F(SimWorld, SleepTemperatureProgrammingAndI2CFaults) {
  PowerOn({{"sim.tilt.asleep", "1"}, {"sim.pan.temp", "65"}, {"sim.i2c_nacks", "2"}});
  EXPECT_EQ(GetTiltSleepMode(), 3);
  EXPECT_EQ(GetPanSleepMode(), 0);
  EXPECT_EQ(GetPanTemp(), 65);
  EXPECT_EQ(TiltContinuousMove(0, kFull), -1);
  PanContinuousMove(0, kFull);
  ext("sim.pan.asleep", "1");  // falls asleep mid-move
  EXPECT_EQ(GetPanSleepMode(), 3);
  EXPECT_EQ(GetPanStatus(), 0);
  ext("sim.tilt.prog_state", "1");
  EXPECT_EQ(TiltReset(), -1);  // programming: no reset
  EXPECT_EQ(GetTiltSleepMode(), 3);
  ext("sim.tilt.prog_state", "0");
  EXPECT_EQ(TiltReset(), 0);
  EXPECT_EQ(GetTiltSleepMode(), 0);
  // Init_I2C fails while the countdown lasts.
  auto i2c = [] { int r = Init_I2C(); return r < 0 ? -1 : r; };
  for (int want : {-1, -1, 0, 0}) EXPECT_EQ(i2c(), want);
  ext("sim.i2c_nacks", "1");
  for (int want : {-1, 0}) EXPECT_EQ(i2c(), want);
}

TEST_F(SimWorld, RegisterWritesByDriverAndByShellLine) {
  PowerOn();
  EXPECT_EQ(Pan_SendI2C_Advanced(0x58, 0xfb9977, 4), 0);
  EXPECT_EQ(Tilt_SendI2C_Advanced(0x46, 0x266, 2), 0);
  EXPECT_EQ(Pan_SendI2C_Advanced(0x46, 1, 5), -1);  // no such width
  EXPECT_EQ(sim::shell_run("i2ctransfer -f -y 2 w3@0x28 0x0c 0x80 0x00"), 0);
  EXPECT_EQ(sim::shell_run("i2ctransfer -f -y 2 w5@0x28 0x95 0x01 0x80 0x01 0x80"), 0);
  struct {
    int addr, reg;
    uint32_t want;
  } regs[] = {{sim::kPanAddr, 0x58, 0xfb9977}, {sim::kTiltAddr, 0x46, 0x266}, {sim::kPanAddr, 0x0c, 0x8000},
              {sim::kPanAddr, 0x95, 0x01800180}};
  for (auto& r : regs) {
    uint32_t v = 0;
    ASSERT_TRUE(sim::controller_register(r.addr, r.reg, &v)) << r.reg;
    EXPECT_EQ(v, r.want) << r.reg;
  }
  uint32_t v;
  EXPECT_FALSE(sim::controller_register(sim::kPanAddr, 0x46, &v));
  // Malformed or misaddressed lines fail and write nothing.
  for (const char* bad : {"i2ctransfer -f -y 1 w3@0x28 0x0e 1 2", "i2ctransfer -f -y 2 w3@0x30 0x0e 1 2",
                          "i2ctransfer -f -y 2 w3@0x28 0x0e 1", "i2ctransfer -f -y 2 w3@0x28 0x0e 1 256",
                          "i2ctransfer -f -y 2 w3@0x28 0x0e 1 2 w2@0x31 1 2", "i2ctransfer"})
    EXPECT_EQ(sim::shell_run(bad), 1) << bad;
  EXPECT_EQ(sim::controller_register_writes(sim::kPanAddr, 0x0e), 0);
  PanPIDsetup(0x1208, 0x20, 0x274a);  // the gains land in P, I and D
  ASSERT_TRUE(sim::controller_register(sim::kPanAddr, 0x10, &v));
  EXPECT_EQ(v, 0x274au);
  EXPECT_EQ(sim::controller_write_log(sim::kPanAddr).size(), 6u);
  // Torvan PID reads back the last c, per controller.
  SetTorvanPanPID(0x10, 0x2a, 0xfa);
  int a = -1, b = -1;
  GetTorvanPanPID(0x40, &a, &b);
  EXPECT_EQ(std::make_pair(a, b), std::make_pair(0, 0xfa));
  GetTorvanPanPID(0x10, &a, &b);
  EXPECT_EQ(a, 0x2a);
  GetTorvanTiltPID(0x40, &a, &b);
  EXPECT_EQ(b, 0);
}

TEST_F(SimWorld, CallsAreTracedGettersOnlyWhenVerbose) {
  PowerOn();
  size_t start = sim::transcript_size();
  PanABSMove(1, kFull, 100);
  GetPanStatus();
  uint32_t record[sim::kSetupWords] = {};
  record[0] = 0x71;
  record[83] = 7;
  Init_Setup_PID(record);
  ASSERT_EQ(sim::transcript_size(), start + 2);
  std::string setup = sim::transcript_line(start + 1);
  EXPECT_EQ(setup.rfind("call Init_Setup_PID(113,0,0,", 0), 0u);
  EXPECT_EQ(setup.substr(setup.size() - 5), ",0,7)");
  sim::set_verbose(true);
  GetPanStatus();
  get(GetZoom);
  double f;
  GetFocalLength(&f);
  get_modelid();
  std::vector<std::string> lines = LinesSince(start);
  lines.erase(lines.begin() + 1);
  EXPECT_EQ(lines, (std::vector<std::string>{"call PanABSMove(1,7200,100)", "call GetPanStatus()=1",
                                             "call GetZoom(0)", "call GetFocalLength(4.7)",
                                             "call get_modelid()=9417701"}));
}

TEST_F(SimWorld, LensMovesPublishesSearchesAndReportsStatus) {
  PowerOn();
  sim::set_verbose(true);
  EXPECT_EQ(Bus("ptz.lens.get_pos.zoom"), "0");
  size_t start = sim::transcript_size();
  run({{"ptz.lens.set_pos.zoom", "8192", 0, "lens", "2"},
       {"", "", 200, "lens", "0"},  // 8192 steps at 4096 a second
       {"", "", 0, "zoom", "8192"},
       {"", "", 10, "ptz.lens.get_pos.zoom", "8192"}});  // the last publication may wait up to 100 ms
  // At most one publication per 100 ms, each a larger zoom.
  int publications = 0, last = -1;
  for (size_t i = start; i < sim::transcript_size(); i++) {
    std::string line = sim::transcript_line(i);
    if (line.rfind("sim ptz.lens.get_pos.zoom=", 0) != 0) continue;
    EXPECT_GT(std::atoi(line.c_str() + 26), last);
    last = std::atoi(line.c_str() + 26);
    publications++;
  }
  EXPECT_GE(publications, 19);
  EXPECT_LE(publications, 21);
  double focal = 0;
  GetFocalLength(&focal);
  EXPECT_DOUBLE_EQ(focal, 4.7 + (94.0 - 4.7) / 2);
  run({{"ptz.lens.set_pos.zoom", "0", 300, "zoom", "0"},
       {"ptz.lens.manual.zoom", "tele", 100, "zoom", "4096"},
       {"ptz.lens.manual.zoom", "stop", 0, "zoom", "4096"},
       {"", "", 0, "lens", "0"},
       {"ptz.lens.set_pos.zoom", "nonsense", 0, "lens", "0"},
       {"ptz.lens.one_push", "run", 39, "lens", "2"},  // a search takes 400 ms even when focus is near
       {"", "", 1, "lens", "0"},
       {"", "", 10, "ptz.lens.get_pos.focus", "1024"}});  // sharp focus is zoom / 4
}

TEST_F(SimWorld, KnobsSetTheModelAndBadValuesAreIgnored) {
  PowerOn({{"sim.model_id", "9417702"}, {"sim.motor_type", "1"}, {"sim.clock", "2026-03-01 12:00:00"},
            {"sim.lens_type", "5"}, {"sim.dzoom", "nope"}});
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
  EXPECT_EQ(tilt(), 0);
  PanReset();
  EXPECT_EQ(PanGetCaliStatus(), 0);  // still the 0 s it was given
  PutPan(1234);
  EXPECT_EQ(get(GetPan), 1234);
}

TEST_F(SimWorld, FocalLengthPinnedOrFollowingTheZoomAndLensReadOnly) {
  PowerOn({{"sim.focal_mm", "10"}});
  auto focal = [] {
    double f = -1;
    GetFocalLength(&f);
    return f;
  };
  ext("ptz.lens.set_pos.zoom", "16384");
  Seconds(5);
  EXPECT_EQ(focal(), 10.0);  // whatever the zoom, until unpinned; bad values change nothing
  for (auto [value, want] : std::vector<std::pair<const char*, double>>{
           {"-2", 10}, {"ten", 10}, {"1e999", 10}, {"4.5", 4.5}, {"", 94}, {"0", 94}}) {
    ext("sim.focal_mm", value);
    EXPECT_EQ(focal(), want) << value;
  }
  for (auto [key, want] : Knobs{{"sim.lens.focal_wide", "4.7"}, {"sim.lens.focal_tele", "94"},
                                {"sim.lens.zoom_max", "16384"}})
    EXPECT_EQ(Bus(key), want);
  EXPECT_EQ(sim::bus_write(sim::Origin::External, "sim.lens.zoom_max", "5"), -1);
  EXPECT_EQ(sim::bus_write(sim::Origin::Daemon, "sim.lens.focal_wide", "1"), -1);
  EXPECT_EQ(Bus("sim.lens.zoom_max"), "16384") << "a refused write stores nothing";
}

TEST_F(SimWorld, ShellCopiesAndRemovesInsideTheSandbox) {
  TempDir dir;
  fs::path root = dir.path;
  std::string old_root = sim::sandbox_root();
  sim::sandbox_set_root(root.c_str());
  fs::create_directories(root / "mnt/nand");
  fs::create_directories(root / "tmp");
  std::ofstream(root / "tmp/pattern1.path") << "1,2,3\n";
  PowerOn();
  EXPECT_EQ(sim::shell_run("cp /tmp/pattern1.path /mnt/nand/pattern1.path;sync;sync"), 0);
  EXPECT_TRUE(fs::exists(root / "mnt/nand/pattern1.path"));
  EXPECT_EQ(sim::shell_run("cp /tmp/none.path /mnt/nand/none.path"), 1);
  EXPECT_EQ(sim::shell_run("rm /mnt/nand/pattern1.path;sync;sync"), 0);
  EXPECT_FALSE(fs::exists(root / "mnt/nand/pattern1.path"));
  for (auto [line, want] : std::vector<std::pair<const char*, int>>{
           {"rm /mnt/nand/pattern1.path", 1}, {"rm -f /mnt/nand/pattern1.path", 0},
           {"rm /mnt/nand/pattern1.path && rm -rf /tmp", 1},  // && stops
           {"rm -rf /../../..", 1},                           // never the root, never above it
           {"killall -9 FigureFollow &", 0},
           {"killall -9 demo_stamp & killall -9 demo_blackout > /dev/null 2>&1", 0},
           {"FigureFollow -m 0 -b 2 --label_path \"/bin/a b.txt\"&", 0}, {"'unterminated", 0}})
    EXPECT_EQ(sim::shell_run(line), want) << line;
  EXPECT_TRUE(fs::exists(root / "tmp/pattern1.path"));
  EXPECT_EQ(sim::the_world().shell.killed, (std::vector<std::string>{"FigureFollow", "demo_stamp", "demo_blackout"}));
  sim::sandbox_set_root(old_root.c_str());
}

TEST_F(SimWorld, TrackerStartsReportsFollowsAndDies) {
  PowerOn({{"sim.person", "100,200"}});
  run({{"sh", "FigureFollow -m 0 -b 2&", 0, "sim.tracker.running", "1"},
       {"", "", 49, "ptz.track.location", "<none>"},  // not before 0.5 s
       {"", "", 1, "ptz.track.location", "100,200"},
       {"", "", 0, "ptz.track.zoom", "<none>"},
       {"sim.person", "300,400,5000", 10, "ptz.track.location", "300,400"},  // within 100 ms
       {"", "", 0, "ptz.track.zoom", "5000"}});
  for (const char* bad : {"1", "1,2,3,4", "a,b", "1,,2", "99999999999,1"})  // bad values change nothing
    run({{"sim.person", bad, 10, "ptz.track.location", "300,400"}});
  run({{"sh", "FigureFollow -p 27182 &", 0, "sim.tracker.running", "2"},
       {"sim.tracker.crash", "0", 0, "sim.tracker.running", "2"},
       {"sim.tracker.crash", "1", 0, "sim.tracker.running", "0"},
       {"sim.person", "1,2", 100, "ptz.track.location", "300,400"},  // nobody reports
       {"sh", "FigureFollow &", 0, "sim.tracker.running", "1"},
       {"sim.person", "", 100, "ptz.track.location", "300,400"},  // an empty person: nothing
       {"sh", "killall -9 FigureFollow &", 0, "sim.tracker.running", "0"}});
}

}  // namespace
