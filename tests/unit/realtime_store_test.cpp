// The store under a real slewd: flash faults, bad folders, damage, faults and kill -9s at every write point.
#include <sqlite3.h>
#include <sys/stat.h>

#include <random>

#include "realtime_fixture.h"

namespace {

// Names, sizes and modification times of everything in a folder.
std::string Snapshot(const std::string& folder) {
  std::string all;
  for (const auto& e : fs::recursive_directory_iterator(folder)) {
    struct stat st {};
    lstat(e.path().c_str(), &st);
    all += e.path().string() + " " + std::to_string(st.st_size) + " " + std::to_string(st.st_mtim.tv_nsec) + "\n";
  }
  return all;
}

using RealtimeStore = SlewdProcess;

// The faults one after the other in one run, each said once.
TEST_F(RealtimeStore, StopIsObeyedAndTheBusShowsWhatIsStoredWhateverTheFlashDoes) {
  const char* const kFaults[][4] = {  // sim.store.fault, sim.store then, the one line, the reply
      {"full", "full", "store full: settings are not being saved", "store full: not saved"},
      {"read-only", "read-only", "store read-only: settings are not being saved", "store read-only: not saved"},
      {"io", "failing", "store failing: settings are not being saved", "store failing: not saved"},
      {"stall", "stalled", "store not responding: settings are not saved yet", "store not responding"},
  };
  auto count = [this](const char* text) { return Count(Transcript(), text); };
  StartAndAwaitLoop();
  ASSERT_EQ(Set("sim.store.stall_ms", "6000"), 0);
  int id = 1, episode = 0;
  for (const auto& c : kFaults) {
    SCOPED_TRACE(c[0]);
    ASSERT_TRUE(Ctl({"run", "set_preset:" + std::to_string(id++)}) == 0 && Set("sim.store.fault", c[0]) == 0 &&
                Set("ptz.run_mode", "manual:-30,0,0") == 0);
    ASSERT_TRUE(AwaitValue("ptz.status", "1"));
    std::string err;
    EXPECT_EQ(Ctl({"run", "set_preset:" + std::to_string(id++)}, nullptr, &err), sim::kCtlRefused);
    EXPECT_NE(err.find(c[3]), std::string::npos) << err;
    EXPECT_EQ(Get("sim.store"), c[1]);
    EXPECT_TRUE(Ctl({"run", "stop"}) == 0 && AwaitValue("ptz.status", "0")) << "stop obeyed while the store is in trouble";
    ASSERT_EQ(Set("sim.store.fault", "none"), 0);
    EXPECT_TRUE(Await([&, n = ++episode] { return count("store writing again") >= n; }));
    EXPECT_EQ(Get("sim.store"), "ok");
  }
  EXPECT_EQ(Ctl({"run", "set_preset:" + std::to_string(id)}), 0);
  std::vector<std::string> shown = ShownPresets();
  Kill(SIGKILL);
  EXPECT_EQ(Presets(StoredRows(state_ + "/bus.db")), shown);
  for (const auto& c : kFaults) EXPECT_EQ(count(c[2]), 1) << c[2];
}

TEST_F(RealtimeStore, OneCameraPerFolderAndAFailedStartChangesNothing) {
  StartAndAwaitLoop();
  std::string err;
  EXPECT_EQ(RunSlewdToEnd(state_, &err), 1);
  EXPECT_NE(err.find("another slewd is running on " + state_), std::string::npos) << err;
  EXPECT_EQ(Get("sim.store"), "ok");  // the first still answers on its socket
  // A stopped slewd: --timeout bounds run --wait, and a timed-out set may still apply.
  kill(pid_, SIGSTOP);
  EXPECT_EQ(Ctl({"--timeout", "1", "run", "stop", "--wait"}, nullptr, &err), sim::kCtlTimeout);
  EXPECT_NE(err.find("no answer from slewd within 1 s"), std::string::npos) << err;
  EXPECT_EQ(Ctl({"--timeout", "1", "set", "ptz.system.recover_time", "9"}, nullptr, &err), sim::kCtlTimeout);
  EXPECT_NE(err.find("within 1 s; the write may still be applied"), std::string::npos) << err;
  kill(pid_, SIGCONT);
  Kill(SIGKILL);

  // Each folder is refused with one line, before anything in it changes.
  const std::pair<std::string, const char*> kBad[] = {{"sock", "cannot listen on"},
      {"foreign", "is not a bus store (not an SQLite file)"}, {"dir", "bus.db is not a file"},
      {"long/" + std::string(100, 'x'), "socket path too long"}};
  for (const auto& [name, said] : kBad) {
    SCOPED_TRACE(name);
    std::string folder = state_ + "/" + name;
    fs::create_directories(folder);
    std::ofstream(folder + "/transcript.log") << "0.000 out the run before\n";
    if (name == "sock") fs::create_directories(folder + "/bus.sock/x");
    if (name == "foreign") std::ofstream(folder + "/bus.db") << "not a store\n";
    if (name == "dir") fs::create_directories(folder + "/bus.db");
    std::string before = Snapshot(folder);
    EXPECT_EQ(RunSlewdToEnd(folder, &err), 1);
    EXPECT_NE(err.find(said), std::string::npos) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_EQ(Snapshot(folder), before);
    EXPECT_EQ(FileText(folder + "/transcript.log"), "0.000 out the run before\n");
  }
}

using StoreDamage = SlewdProcess;

TEST_F(StoreDamage, EachIsRestoredFromTheCopyOrTheFactoryNamingTheLoss) {
  const std::string store = state_ + "/bus.db", base = state_ + ".base";
  // 60 presets, an orderly stop (the good copy), 5 more acknowledged and a kill (in the log).
  for (int i = 0; i < 60; ++i)
    Put({{"ptz.preset.position.999", "id:" + std::to_string(i) + ",pan:" + std::to_string(100 * i) + ",tilt:0,zoom:0,focus:-1,pref:0,name:"}});
  StartAndAwaitLoop();
  Kill(SIGTERM);
  ASSERT_TRUE(fs::exists(store + ".good"));
  StartAndAwaitLoop();
  for (int i = 60; i < 65; ++i) ASSERT_EQ(Ctl({"run", "set_preset:" + std::to_string(i)}), 0);
  Kill(SIGKILL);
  fs::remove(state_ + "/bus.sock");  // a socket cannot be copied
  fs::copy(state_, base, fs::copy_options::recursive);

  // Each harm (all but the first after a checkpoint) and what the check names.
  const std::pair<void (*)(const std::string&), const char*> kDamages[] = {
      {[](const std::string& s) { fs::resize_file(s, 0); }, "main file empty beside a log"},
      {[](const std::string& s) { fs::resize_file(s, fs::file_size(s) / 2 + 100); }, "file truncated"},
      {[](const std::string& s) {
         std::fstream(s, std::ios::in | std::ios::out | std::ios::binary).seekp(3 * 4096).write(std::string(4096, '\xa5').data(), 4096);
       }, "check failed"}};
  for (const auto& [harm, detail] : kDamages) {
    for (bool with_copy : {true, false}) {
      SCOPED_TRACE(std::string(detail) + (with_copy ? ", with a good copy" : ", without"));
      fs::remove_all(state_);
      fs::copy(base, state_, fs::copy_options::recursive);
      if (!with_copy) fs::remove(store + ".good");
      sqlite3* db = nullptr;
      if (harm != kDamages[0].first && sqlite3_open(store.c_str(), &db) == SQLITE_OK)
        sqlite3_exec(db, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr), sqlite3_close(db);
      harm(store);
      StartAndAwaitLoop();
      std::string t = Transcript();
      EXPECT_NE(t.find(std::string("store damaged (") + detail), std::string::npos) << t;
      EXPECT_TRUE(std::any_of(fs::directory_iterator(state_), {}, [](const auto& e) {
        return e.path().filename().string().rfind("bus.db.damaged-", 0) == 0; }));
      size_t shown = ShownPresets().size();
      if (with_copy) {
        EXPECT_NE(t.find("store restored from its last good copy"), std::string::npos);
        EXPECT_EQ(shown, 60u);
        EXPECT_TRUE(t.find("store: lost since the copy") != std::string::npos ||
                    t.find("could be read; what else changed since the copy") != std::string::npos);
      } else {
        EXPECT_NE(t.find("store restarted from the factory settings and the "), std::string::npos);
        EXPECT_EQ(Get("ptz.system.max_speed"), "720") << "factory or read back";
        EXPECT_LE(shown, 65u);
      }
      Kill(SIGKILL);
    }
  }
  fs::remove_all(base);
}

using StoreSweep = SlewdProcess;

TEST_F(StoreSweep, EveryWritePointOfASaveAndASettingWithEachFaultAndKill) {
  const std::string store = state_ + "/bus.db", kSetting = "ptz.system.recover_time";
  auto calls = [this] { return std::stol("0" + Get("sim.store.calls")); };
  StartAndAwaitLoop();
  long start = calls();
  ASSERT_EQ(Ctl({"run", "set_preset:1"}), 0);
  long saved = calls();
  ASSERT_EQ(Set(kSetting, "10"), 0);
  const long points[2] = {saved - start, calls() - saved};
  Kill(SIGKILL);
  ASSERT_TRUE(points[0] > 0 && points[1] > 0);
  int id = 1, refused = 0, killed = 0;
  for (const char* fault : {"full", "io", "read-only", "kill"}) {
    for (int op = 0; op < 2; ++op) {
      for (long at = 1; at <= points[op]; ++at) {
        SCOPED_TRACE(std::string(fault) + (op == 0 ? " in a preset save at " : " in a setting at ") + std::to_string(at));
        auto before = StoredRows(store);
        StartAndAwaitLoop();
        for (const auto& [key, value] : {std::pair<const char*, std::string>{"sim.store.fault_count", "1"},
                                         {"sim.store.fault_at", std::to_string(at)}, {"sim.store.fault", fault}})
          ASSERT_EQ(Set(key, value), 0);
        ++id;
        int status = op == 0 ? Ctl({"run", "set_preset:" + std::to_string(id)}) : Set(kSetting, std::to_string(id));
        // The kill fault: slewd ends by itself (the socket closes before it can be reaped).
        bool ended = status != 0 && Await([&] { return waitpid(pid_, nullptr, WNOHANG) == pid_; }, 1);
        pid_ = ended ? -1 : pid_, killed += ended, refused += status != 0 && !ended;
        auto shown = ended ? std::vector<std::string>{} : op == 0 ? ShownPresets() : std::vector{Get(kSetting.c_str())};
        Kill(SIGKILL);
        auto after = StoredRows(store);
        std::vector<std::string> old_list = Presets(before), list = Presets(after);
        bool appended = list.size() == old_list.size() + 1 &&
                        std::equal(old_list.begin(), old_list.end(), list.begin()) &&
                        list.back().rfind("id:" + std::to_string(id) + ",", 0) == 0;
        bool stored = op == 0 ? appended : after[kSetting] == std::to_string(id),
             untouched = op == 0 ? list == old_list : after[kSetting] == before[kSetting];
        EXPECT_TRUE(stored || untouched) << "half a write";
        EXPECT_TRUE(status != 0 || stored) << "acknowledged and lost";
        EXPECT_TRUE(status == 0 || ended || untouched) << "refused yet stored";
        if (!ended) { EXPECT_EQ(shown, op == 0 ? list : std::vector{after[kSetting]}); }
      }
    }
  }
  EXPECT_TRUE(refused > 0 && killed > 0) << refused << " refused, " << killed << " killed";
}

// id -> name of a preset list; a torn record under id -1.
std::map<int, std::string> Names(const std::vector<std::string>& list) {
  std::map<int, std::string> names;
  for (const std::string& r : list) {
    bool whole = r.rfind("id:", 0) == 0 && r.find(",name:") != std::string::npos;
    names[whole ? std::stoi(r.substr(3)) : -1] = whole ? r.substr(r.find(",name:") + 6) : r;
  }
  return names;
}

// 250 saves, kill -9s at random in bursts (SLEWD_STORE_KILLS, default 100), 20 after the fifth ack.
TEST_F(StoreSweep, SavesBackToBackAndKillsRightAfterAcknowledgedSavesLoseNone) {
  const int kills = getenv("SLEWD_STORE_KILLS") ? atoi(getenv("SLEWD_STORE_KILLS")) : 100;
  const std::string store = state_ + "/bus.db";
  StartAndAwaitLoop();
  for (int i = 0; i < 250; ++i) ASSERT_EQ(Ctl({"run", "set_preset:" + std::to_string(i)}), 0);
  Kill(SIGKILL);
  std::mt19937 random(13);
  std::uniform_int_distribution<int> moment_us(0, 60000);
  int sequence = 0;
  for (int kill_no = 0; kill_no < kills + 20; ++kill_no) {
    const bool after_ack = kill_no >= kills;
    SCOPED_TRACE("kill " + std::to_string(kill_no));
    Put({{"ptz.run_mode", ""}});  // nothing for the start to repeat
    StartAndAwaitLoop("out in main loop");  // the listeners are in place
    std::map<int, std::string> state = Names(ShownPresets());
    ASSERT_GE(state.size(), 250u);
    std::vector<std::pair<int, std::string>> commands;  // ids 300..309, fresh names; read once joined
    size_t acked = 0;
    int fd = Connect();
    ASSERT_GE(fd, 0);
    std::thread burst([&] {
      sim::LineReader replies(fd);
      for (std::string reply; !after_ack || acked < 5; ++acked) {
        commands.emplace_back(300 + sequence % 10, "s" + std::to_string(sequence));
        ++sequence;
        std::string line = "set ptz.run_mode set_preset:id:" + std::to_string(commands.back().first) +
                           ",name:" + commands.back().second + "\n";
        if (!sim::proto_send(fd, line) || !replies.next(&reply) || reply != "ok") return;
      }
    });
    if (after_ack) burst.join();
    else std::this_thread::sleep_for(std::chrono::microseconds(moment_us(random)));
    Kill(SIGKILL);
    if (burst.joinable()) burst.join();
    close(fd);
    std::map<int, std::string> stored = Names(Presets(StoredRows(store)));
    size_t prefix = 0;
    for (; stored != state && prefix < commands.size(); ++prefix) state[commands[prefix].first] = commands[prefix].second;
    ASSERT_EQ(stored, state) << "the stored list is no state after a prefix of " << commands.size() << " saves";
    ASSERT_GE(prefix, acked) << "an acknowledged save lost";
  }
}

}  // namespace
