// The start-up reads and bindings of the listeners, in their exact order,
// as the verbose transcript of slewsim shows them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

// Bus calls from the first binding to "in main loop", without their time.
std::vector<std::string> StartupBusCalls() {
  // Named by process, so that builds testing side by side never share them.
  const std::string base = "/tmp/startup_order_test." + std::to_string(getpid());
  const std::string scenario = base + ".scn", transcript = base + ".txt";
  std::ofstream(scenario) << "await out in loop 120\n";
  std::string command = std::string(SLEWSIM_PATH) + " -v --transcript " + transcript + " " +
                        scenario + " >/dev/null";
  if (system(command.c_str()) != 0) return {};
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

TEST(StartupOrder, ListenersAreBoundAndReadInOrder) {
  std::vector<std::string> expected;
  for (const char* key : {"ptz.run_mode", "ptz.patrol.", "ptz.lens.get_pos.zoom",
                          "ptz.system.auto_flip", "ptz.manual.proportion",
                          "ptz.system.recover_time", "ptz.system.max_speed", "ptz.schedule",
                          "ptz.preset.view_move", "ptz.preset.track_enable"}) {
    expected.push_back(std::string("listen(") + key + ")");
  }
  expected.insert(expected.end(), {"get(ptz.preset.track_enable)", "listen(ptz.preset.track_id)",
                                   "get(ptz.preset.track_id)", "get(ptz.track.preset_id)",
                                   "listen(ptz.pattern.action)", "listen(ptz.system.up_limit)",
                                   "listen(ptz.system.down_limit)", "listen(ptz.manual.limit)",
                                   "listen(ptz.manual.right_limit)",
                                   "listen(ptz.manual.left_limit)"});
  for (int scan = 1; scan <= 4; scan++) {
    for (const char* limit : {"limit", "right_limit", "left_limit"}) {
      expected.push_back("listen(ptz.scan.scan" + std::to_string(scan) + "." + limit + ")");
    }
  }
  for (const char* key : {"image.cam1.flip", "image.cam1.mirror", "ptz.manual.pan_speed",
                          "ptz.manual.tilt_speed", "ptz.system.freeze", "ptz.system.east_pos",
                          "encode.cam1.eis.enable", "encode.cam1.eis.fov",
                          "encode.cam1.ois.enable"}) {
    expected.push_back(std::string("listen(") + key + ")");
  }
  for (const char* key : {"ptz.system.max_speed", "ptz.system.recover_time", "lens.get_pos.zoom",
                          "ptz.system.auto_flip", "ptz.manual.proportion", "image.cam1.flip",
                          "image.cam1.mirror", "ptz.manual.pan_speed", "ptz.manual.tilt_speed",
                          "ptz.system.freeze", "encode.cam1.eis.enable", "encode.cam1.eis.fov",
                          "encode.cam1.ois.enable"}) {
    expected.push_back(std::string("get(") + key + ")");
  }
  expected.insert(expected.end(), {"listen(ptz.PID)", "get(ptz.PID)"});
  // LoadSchedule ends the listeners' start.
  expected.insert(expected.end(), {"get(ptz.schedule.enable)", "get(ptz.schedule.recover_time)"});
  for (const char* day : {"sun", "mon", "tue", "wed", "thu", "fri", "sat"}) {
    expected.push_back(std::string("get(ptz.schedule.") + day + ")");
  }
  EXPECT_EQ(StartupBusCalls(), expected);
}

}  // namespace
