// The store under a failing flash, against a real slewd: commands are obeyed
// whatever the store does, a write that cannot be stored is refused naming
// the cause and never shown, the change is said once and undone by itself;
// and a start that cannot have its folder changes nothing in it.
#include <sys/stat.h>

#include <fstream>

#include "store_fixture.h"

namespace {

class RealtimeStore : public StoreProcess {
 protected:
  // Whether key comes to hold value; polls up to a generous bound.
  bool AwaitValue(const char* key, const char* value) {
    for (int i = 0; i < 3000; ++i) {
      if (Get(key) == value) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }
  // Names, sizes and modification times of everything in a folder.
  static std::string Snapshot(const std::string& folder) {
    std::string all;
    std::error_code ec;
    for (const auto& e : std::filesystem::recursive_directory_iterator(folder, ec)) {
      struct stat st {};
      lstat(e.path().c_str(), &st);
      all += e.path().string() + " " + std::to_string(st.st_size) + " " +
             std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec) + "\n";
    }
    return all;
  }
};

struct FaultCase {
  const char* fault;    // sim.store.fault
  const char* health;   // sim.store while it lasts
  const char* said;     // the one line it gives
  const char* refusal;  // what a refused client hears
};

constexpr FaultCase kFaults[] = {
    {"full", "full", "store full: settings are not being saved", "store full: not saved"},
    {"read-only", "read-only", "store read-only: settings are not being saved",
     "store read-only: not saved"},
    {"io", "failing", "store failing: settings are not being saved", "store failing: not saved"},
    {"stall", "stalled", "store not responding: settings are not saved yet",
     "store not responding"},
};

TEST_F(RealtimeStore, StopIsObeyedAndTheBusShowsWhatIsStoredWhateverTheFlashDoes) {
  int id = 1;
  for (const FaultCase& c : kFaults) {
    SCOPED_TRACE(c.fault);
    StartAndAwaitLoop();
    ASSERT_EQ(Ctl({"run", "set_preset:" + std::to_string(id++)}), 0);
    ASSERT_EQ(Set("sim.store.stall_ms", "6000"), 0);
    ASSERT_EQ(Set("sim.store.fault", c.fault), 0);
    ASSERT_EQ(Set("ptz.run_mode", "manual:-30,0,0"), 0);
    ASSERT_TRUE(AwaitValue("ptz.status", "1"));
    std::string err;
    EXPECT_EQ(Ctl({"run", "set_preset:" + std::to_string(id++)}, nullptr, &err), sim::kCtlRefused);
    EXPECT_NE(err.find(c.refusal), std::string::npos) << err;
    EXPECT_EQ(Get("sim.store"), c.health);
    // The head obeys while the store is still in trouble.
    EXPECT_EQ(Ctl({"run", "stop"}), 0);
    EXPECT_TRUE(AwaitValue("ptz.status", "0"));
    ASSERT_EQ(Set("sim.store.fault", "none"), 0);
    EXPECT_TRUE(AwaitTranscript("store writing again"));
    EXPECT_EQ(Get("sim.store"), "ok");
    EXPECT_EQ(Ctl({"run", "set_preset:" + std::to_string(id++)}), 0);
    std::vector<std::string> shown = ShownPresets();
    KillNow();
    EXPECT_EQ(Presets(StoredRows(state_ + "/bus.db")), shown);
    std::string transcript = Transcript();
    size_t first = transcript.find(c.said);
    EXPECT_NE(first, std::string::npos);
    EXPECT_EQ(transcript.find(c.said, first + 1), std::string::npos) << "said twice";
  }
}

TEST_F(RealtimeStore, OneCameraPerFolderAndAFailedStartChangesNothing) {
  StartAndAwaitLoop();
  std::string err;
  EXPECT_EQ(RunSlewdToEnd(state_, &err), 1);
  EXPECT_NE(err.find("another slewd is running on"), std::string::npos) << err;
  EXPECT_EQ(Get("sim.store"), "ok");  // the first still answers on its socket
  // A slewd that does not answer: --timeout bounds run --wait's calls too,
  // and a set that timed out may still be applied.
  kill(pid_, SIGSTOP);
  EXPECT_EQ(Ctl({"--timeout", "1", "run", "stop", "--wait"}, nullptr, &err), sim::kCtlTimeout);
  EXPECT_NE(err.find("no answer from slewd within 1 s"), std::string::npos) << err;
  EXPECT_EQ(Ctl({"--timeout", "1", "set", "ptz.system.recover_time", "9"}, nullptr, &err),
            sim::kCtlTimeout);
  EXPECT_NE(err.find("within 1 s; the write may still be applied"), std::string::npos) << err;
  kill(pid_, SIGCONT);
  KillNow();

  // Each folder is refused with one line, before anything in it changes.
  struct Bad {
    const char* name;                             // the folder, under state_
    void (*make)(const std::string& folder);      // what is wrong in it
    const char* said;                             // what slewd says
  };
  const Bad kBad[] = {
      {"sock", [](const std::string& f) { std::filesystem::create_directories(f + "/bus.sock/x"); },
       "cannot listen on"},
      {"foreign", [](const std::string& f) { std::ofstream(f + "/bus.db") << "not a store\n"; },
       "is not a bus store (not an SQLite file)"},
      {"dir", [](const std::string& f) { std::filesystem::create_directories(f + "/bus.db"); },
       "bus.db is not a file"},
      {"long", [](const std::string&) {}, "socket path too long"},
  };
  for (const Bad& bad : kBad) {
    SCOPED_TRACE(bad.name);
    std::string folder = state_ + "/" + bad.name;
    if (std::string(bad.name) == "long") folder += "/" + std::string(100, 'x');
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/transcript.log") << "0.000 out the run before\n";
    bad.make(folder);
    std::string before = Snapshot(folder);
    EXPECT_EQ(RunSlewdToEnd(folder, &err), 1);
    EXPECT_NE(err.find(bad.said), std::string::npos) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_EQ(Snapshot(folder), before);
    std::ifstream transcript(folder + "/transcript.log");
    std::string text((std::istreambuf_iterator<char>(transcript)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "0.000 out the run before\n");
  }
}

}  // namespace
