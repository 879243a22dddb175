// The listeners' start-up reads and bindings in their exact order, from slewsim -v's transcript.
#include "realtime_fixture.h"

namespace {

// Bus calls from the first binding to "in main loop", without their time.
std::vector<std::string> StartupBusCalls() {
  const std::string base = "/tmp/startup_order_test." + std::to_string(getpid());
  const std::string scenario = base + ".scn", transcript = base + ".txt";
  std::ofstream(scenario) << "await out in loop 120\n";
  if (system((SLEWSIM_PATH " -v --transcript " + transcript + " " + scenario + " >/dev/null").c_str()) != 0) return {};
  std::vector<std::string> calls;
  std::ifstream in(transcript);
  bool binding = false;
  for (std::string line; std::getline(in, line);) {
    std::string text = line.substr(line.find(' ') + 1);
    if (text == "out in main loop") break;
    if (text.rfind("call kvlink_listen(", 0) == 0) binding = true;
    if (binding && text.rfind("call kvlink_", 0) == 0) calls.push_back(text.substr(12));
  }
  remove(scenario.c_str());
  remove(transcript.c_str());
  return calls;
}

// Appends call(key) for each blank-separated key.
void Add(std::vector<std::string>* calls, const char* call, const std::string& keys) {
  std::istringstream words(keys);
  for (std::string key; words >> key;) calls->push_back(std::string(call) + "(" + key + ")");
}

TEST(StartupOrder, ListenersAreBoundAndReadInOrder) {
  std::vector<std::string> expected;
  Add(&expected, "listen", "ptz.run_mode ptz.patrol. ptz.lens.get_pos.zoom ptz.system.auto_flip "
      "ptz.manual.proportion ptz.system.recover_time ptz.system.max_speed ptz.schedule "
      "ptz.preset.view_move ptz.preset.track_enable");
  expected.insert(expected.end(), {"get(ptz.preset.track_enable)", "listen(ptz.preset.track_id)",
                                   "get(ptz.preset.track_id)", "get(ptz.track.preset_id)"});
  Add(&expected, "listen", "ptz.pattern.action ptz.system.up_limit ptz.system.down_limit "
      "ptz.manual.limit ptz.manual.right_limit ptz.manual.left_limit");
  for (int scan = 1; scan <= 4; scan++) {
    std::string s = "ptz.scan.scan" + std::to_string(scan);
    Add(&expected, "listen", s + ".limit " + s + ".right_limit " + s + ".left_limit");
  }
  Add(&expected, "listen", "image.cam1.flip image.cam1.mirror ptz.manual.pan_speed "
      "ptz.manual.tilt_speed ptz.system.freeze ptz.system.east_pos encode.cam1.eis.enable "
      "encode.cam1.eis.fov encode.cam1.ois.enable");
  Add(&expected, "get", "ptz.system.max_speed ptz.system.recover_time lens.get_pos.zoom "
      "ptz.system.auto_flip ptz.manual.proportion image.cam1.flip image.cam1.mirror "
      "ptz.manual.pan_speed ptz.manual.tilt_speed ptz.system.freeze encode.cam1.eis.enable "
      "encode.cam1.eis.fov encode.cam1.ois.enable");
  expected.insert(expected.end(), {"listen(ptz.PID)", "get(ptz.PID)"});
  // LoadSchedule ends the listeners' start.
  Add(&expected, "get", "ptz.schedule.enable ptz.schedule.recover_time ptz.schedule.sun "
      "ptz.schedule.mon ptz.schedule.tue ptz.schedule.wed ptz.schedule.thu ptz.schedule.fri ptz.schedule.sat");
  EXPECT_EQ(StartupBusCalls(), expected);
}

}  // namespace
