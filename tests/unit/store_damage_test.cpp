// Damaged stores at start, against a real slewd: each is moved aside and
// kept, and the camera starts from the last good copy or from the factory
// settings plus what could be read, saying so; never silently partial.
#include <sqlite3.h>

#include <fstream>

#include "store_fixture.h"

namespace {

// Overwrites one page of a file with a fixed pattern.
void Scribble(const std::string& path, long page) {
  std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
  f.seekp(page * 4096);
  std::string junk(4096, '\xa5');
  f.write(junk.data(), static_cast<std::streamsize>(junk.size()));
}

class StoreDamage : public StoreProcess {
 protected:
  // Empties the log into the main file, as a quiet shutdown would.
  static void Checkpoint(const std::string& store) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(store.c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
  // Whether a file whose name begins with prefix is in the state folder.
  bool Kept(const std::string& prefix) const {
    for (const auto& e : std::filesystem::directory_iterator(state_)) {
      if (e.path().filename().string().rfind(prefix, 0) == 0) return true;
    }
    return false;
  }
};

// How a store is damaged, and what must be said of it.
struct Damage {
  const char* name;
  bool checkpoint;                          // log emptied into the main file first
  void (*harm)(const std::string& store);
  const char* detail;                       // what the check names
};

const Damage kDamages[] = {
    {"empty main beside its log", false,
     [](const std::string& s) { std::filesystem::resize_file(s, 0); }, "main file empty beside a log"},
    {"truncated", true,
     [](const std::string& s) { std::filesystem::resize_file(s, std::filesystem::file_size(s) / 2 + 100); },
     "file truncated"},
    {"a damaged page", true, [](const std::string& s) { Scribble(s, 3); }, "check failed"},
};

TEST_F(StoreDamage, EachIsRestoredFromTheCopyOrTheFactoryNamingTheLoss) {
  const std::string store = state_ + "/bus.db";
  // 60 presets, a start and an orderly stop (the good copy), then 5 more
  // acknowledged presets and a kill: the log holds them.
  ASSERT_EQ(sim::bus_open(store.c_str()), 0);
  for (int i = 0; i < 60; ++i) {
    std::string entry = "id:" + std::to_string(i) + ",pan:" + std::to_string(100 * i) +
                        ",tilt:0,zoom:0,focus:-1,pref:0,name:";
    sim::bus_put("ptz.preset.position.999", entry.c_str());
  }
  sim::bus_close();
  StartAndAwaitLoop();
  Kill(SIGTERM);
  ASSERT_TRUE(std::filesystem::exists(store + ".good"));
  StartAndAwaitLoop();
  for (int i = 60; i < 65; ++i) ASSERT_EQ(Ctl({"run", "set_preset:" + std::to_string(i)}), 0);
  KillNow();
  std::filesystem::remove(state_ + "/bus.sock");  // a socket cannot be copied
  const std::string base = state_ + ".base";
  std::filesystem::copy(state_, base, std::filesystem::copy_options::recursive);

  for (const Damage& d : kDamages) {
    for (bool with_copy : {true, false}) {
      SCOPED_TRACE(std::string(d.name) + (with_copy ? ", with a good copy" : ", without"));
      std::filesystem::remove_all(state_);
      std::filesystem::copy(base, state_, std::filesystem::copy_options::recursive);
      if (!with_copy) std::filesystem::remove(store + ".good");
      if (d.checkpoint) Checkpoint(store);
      d.harm(store);
      StartAndAwaitLoop();
      std::string t = Transcript();
      EXPECT_NE(t.find(std::string("store damaged (") + d.detail), std::string::npos) << t;
      EXPECT_TRUE(Kept("bus.db.damaged-"));
      size_t shown = ShownPresets().size();
      if (with_copy) {
        EXPECT_NE(t.find("store restored from its last good copy"), std::string::npos);
        EXPECT_EQ(shown, 60u);
        // The five presets after the copy are named lost, or the unread part is.
        EXPECT_TRUE(t.find("store: lost since the copy") != std::string::npos ||
                    t.find("could be read; what else changed since the copy") != std::string::npos);
      } else {
        EXPECT_NE(t.find("store restarted from the factory settings and the "), std::string::npos);
        EXPECT_EQ(Get("ptz.system.max_speed"), "720") << "factory or read back";
        EXPECT_LE(shown, 65u);
      }
      KillNow();
    }
  }
  std::filesystem::remove_all(base);
}

}  // namespace
