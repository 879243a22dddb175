// slewsim --preview: the table for a stopped camera's stored schedule and recover timer;
// a running camera previewed keeps its store byte for byte, with no write on its bus.
#include "realtime_fixture.h"

namespace {

// slewsim --preview on the state folder: its exit status and standard output.
int RunPreview(const std::string& state, const std::string& args, std::string* out) {
  int status = -1;
  *out = Output(std::string(SLEWSIM_PATH) + " --preview " + state + " " + args, &status);
  return status;
}

// The store's file and log, byte for byte.
std::string StoreFingerprint(const std::string& state) { return FileText(state + "/bus.db") + "|" + FileText(state + "/bus.db-wal"); }

using Preview = SlewdProcess;

TEST_F(Preview, TablesOfAStoredScheduleAndRecoverTimer) {
  const char* kHeader = "when                      mode       preset or patrol  why\n";
  struct Case {
    const char* what;
    std::vector<std::pair<const char*, const char*>> settings;
    const char* hours;
    std::string table;
  } cases[] = {
      {"a patrol by day and a preset at night",
       {{"ptz.schedule.enable", "on"}, {"ptz.schedule.mon", "patrol:1,800,2000;go_preset:7,2000,2400;"}},
       "24",
       std::string(kHeader) + "Mon 2026-01-05 08:00:00   patrol     1                 schedule entry\n"
                              "Mon 2026-01-05 20:01:00   preset     7 Road            schedule entry\n"},
      {"a power-up preset, then the recover timer",
       {{"ptz.system.power_up", "go_preset:3"}, {"ptz.system.recover_time", "2"}, {"ptz.system.recover_mode", "go_preset:5"}},
       "1",
       std::string(kHeader) + "Mon 2026-01-05 06:00:02   preset     3 Gate            power-up\n"
                              "Mon 2026-01-05 06:02:03   preset     5 Yard            recover timer\n"},
  };
  for (const Case& c : cases) {
    sim::clock_init(sim::ClockMode::Virtual);
    ASSERT_EQ(sim::bus_open((state_ + "/bus.db").c_str()), 0);
    for (const auto& [key, value] : std::vector<std::pair<const char*, const char*>>{
             {"ptz.preset.position.0", "id:3,pan:1000,tilt:4915,zoom:-1,focus:-1,pref:-1,name:Gate"},
             {"ptz.preset.position.1", "id:5,pan:20000,tilt:4915,zoom:-1,focus:-1,pref:-1,name:Yard"},
             {"ptz.preset.position.2", "id:7,pan:40000,tilt:6000,zoom:-1,focus:-1,pref:-1,name:Road"},
             {"ptz.patrol.set01", "3,5"}, {"ptz.patrol.time01", "20,20"}, {"ptz.patrol.speed01", "720,720"}}) {
      sim::bus_put(key, value);
    }
    for (const auto& [key, value] : c.settings) sim::bus_put(key, value);
    sim::bus_close();
    std::string out;
    ASSERT_EQ(RunPreview(state_, std::string("--from '2026-01-05 06:00:00' --hours ") + c.hours, &out), 0) << c.what << ": " << out;
    EXPECT_NE(out.find("(the stored bus) from Mon 2026-01-05 06:00:00"), std::string::npos) << out;
    EXPECT_EQ(out.substr(out.find('\n') + 1), c.table) << c.what;  // the first line names the state folder
  }
}

TEST_F(Preview, ARunningCameraIsOnlyAskedAndItsStoreStaysAsItWas) {
  StartAndAwaitLoop();
  ASSERT_EQ(Set("ptz.system.recover_mode", "stop"), 0);
  ASSERT_EQ(Set("ptz.system.recover_time", "1"), 0);
  // The fingerprint once the camera has stopped writing: two looks half a second apart agree (bounded).
  std::string store = StoreFingerprint(state_), last;
  for (int look = 0; look < 40 && store != last; ++look) {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    last = std::exchange(store, StoreFingerprint(state_));
  }
  size_t transcript = Transcript().size();
  std::string out;
  ASSERT_EQ(RunPreview(state_, "--hours 0.1", &out), 0) << out;
  EXPECT_NE(out.find("(the bus of the running slewd)"), std::string::npos) << out;
  EXPECT_NE(out.find("recover timer"), std::string::npos) << "the setting was read from the live bus: " << out;
  EXPECT_EQ(StoreFingerprint(state_), store);
  EXPECT_EQ(Transcript().find(" ext ", transcript), std::string::npos) << "something wrote on the camera's bus";
}

}  // namespace
