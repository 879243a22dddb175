// The simulated parameter bus: lists, listeners, value limits, delivery
// threads, key rules, and the sandbox (the file store: RealtimeStore, StoreSweep).
#include <thread>

#include "bus/bus_extra.h"
#include "platform/kvlink.h"
#include "sim_test.h"

namespace {

// What listeners saw, in order: "tag:key=value".
std::vector<std::string> g_heard;
std::thread::id g_heard_on;

void RecordA(char* key, char* value) {
  g_heard.push_back(std::string("A:") + key + "=" + value), g_heard_on = std::this_thread::get_id();
}
void RecordB(char* key, char* value) { g_heard.push_back(std::string("B:") + key + "=" + value); }
// Cuts the value in place, as the daemon's command listener does.
void CutValue(char*, char* value) { value[0] = '\0', g_heard.push_back("cut"); }
// Tries to deliver again from inside a delivery.
void DeliverAgain(char* key, char*) {
  g_heard.push_back(std::string("begin:") + key);
  sim::bus_deliver_pending();
  g_heard.push_back(std::string("end:") + key);
}

class SimBus : public simtest::SimTest {
 protected:
  void SetUp() override { SimTest::SetUp(), g_heard.clear(); }

  // Value at key, or "<none>".
  static std::string Get(const char* key) {
    char buf[128];
    return kvlink_get(key, buf, sizeof buf) == 0 ? buf : "<none>";
  }
  // Value of entry i of a list, or "<no entry>".
  static std::string Nth(const char* list, int i) {
    char name[128];
    return kvlink_get_name(list, i, name, sizeof name) == 0 ? Get(name) : "<no entry>";
  }
  // Every KEY=VALUE under prefix, in visiting order.
  static std::vector<std::string> Visit(const char* prefix) {
    std::vector<std::string> rows;
    sim::bus_visit(
        prefix,
        [](const char* k, const char* v, void* ctx) {
          static_cast<std::vector<std::string>*>(ctx)->push_back(std::string(k) + "=" + v);
        },
        &rows);
    return rows;
  }
};

// Restoring and appending again: scenario.preset_table.
TEST_F(SimBus, PresetListAppendsAndListsByIndex) {
  for (int i = 0; i < 12; ++i) ASSERT_EQ(kvlink_set("ptz.preset.position.999", ("p" + std::to_string(i)).c_str()), 0);
  EXPECT_EQ(Nth("ptz.preset.position", 11), "p11");
  for (int past : {12, -1}) EXPECT_EQ(Nth("ptz.preset.position", past), "<no entry>");
  EXPECT_EQ(Nth("ptz.status", 0), "<no entry>") << "not a list";
  EXPECT_EQ(Get("ptz.preset.position.999"), "<none>") << "the append key holds nothing itself";
  std::vector<std::string> rows = Visit("ptz.preset.position");
  EXPECT_EQ(rows[2] + " " + rows[10], "ptz.preset.position.2=p2 ptz.preset.position.10=p10");  // list order
}

TEST_F(SimBus, PrefixListenersMatchInRegistrationOrder) {
  kvlink_listen("ptz.patrol.", RecordA);
  kvlink_listen("ptz.patrol.set01", RecordB);
  kvlink_listen("ptz.schedule", RecordB);
  kvlink_set("ptz.patrol.set01", "1,2");
  kvlink_set("ptz.schedule.mon", "m");
  kvlink_set("ptz.patrolx", "no listener");
  kvlink_set("ptz.patrol", "shorter than the prefix");
  EXPECT_EQ(g_heard, (std::vector<std::string>{"A:ptz.patrol.set01=1,2", "B:ptz.patrol.set01=1,2",
                                               "B:ptz.schedule.mon=m"}));
}

TEST_F(SimBus, ValuesHoldAtMost127Characters) {
  std::string v127(127, 'a'), v128(128, 'b');
  EXPECT_EQ(sim::bus_write(sim::Origin::External, "k", v127.c_str()), 0);
  EXPECT_EQ(Get("k"), v127);
  EXPECT_EQ(sim::bus_write(sim::Origin::External, "k", v128.c_str()), -1);
  EXPECT_EQ(sim::bus_put("k", v128.c_str()), -1);
  EXPECT_EQ(Get("k"), v127) << "a refused write leaves the value";
  // The daemon's over-long write keeps its first 127 characters.
  EXPECT_EQ(kvlink_set("k", (std::string(127, 'c') + "XYZ").c_str()), 0);
  EXPECT_EQ(Get("k"), std::string(127, 'c'));

  // A short buffer gets what fits and a NUL; a key without value leaves it.
  char small[4] = {'?', '?', '?', '?'};
  EXPECT_EQ(kvlink_get("k", small, sizeof small), 0);
  EXPECT_STREQ(small, "ccc");
  char untouched[8] = "keep";
  EXPECT_EQ(kvlink_get("no.such.key", untouched, sizeof untouched), -1);
  EXPECT_STREQ(untouched, "keep");
  kvlink_set("empty", "");
  EXPECT_EQ(kvlink_get("empty", untouched, sizeof untouched), 0) << "empty text is a value";
  EXPECT_STREQ(untouched, "");
}

TEST_F(SimBus, DaemonWritesNotifyOnTheCallersThreadEveryTime) {
  kvlink_listen("ptz.run_mode", RecordA);
  kvlink_listen("ptz.run_mode", CutValue);
  kvlink_listen("ptz.run_mode", RecordB);
  std::thread([] { kvlink_set("ptz.run_mode", "go_preset:5"); }).join();
  kvlink_set("ptz.run_mode", "go_preset:5");
  EXPECT_EQ(g_heard, (std::vector<std::string>{"A:ptz.run_mode=go_preset:5", "cut",
                                               "B:ptz.run_mode=go_preset:5",
                                               "A:ptz.run_mode=go_preset:5", "cut",
                                               "B:ptz.run_mode=go_preset:5"}))
      << "each listener gets its own copy; a repeated text notifies again";
  EXPECT_EQ(g_heard_on, std::this_thread::get_id());
  EXPECT_EQ(Get("ptz.run_mode"), "go_preset:5") << "cutting the copy leaves the store";
  EXPECT_FALSE(sim::bus_has_pending());
}

TEST_F(SimBus, OtherWritesWaitForDeliveryInOrder) {
  kvlink_listen("ptz.", RecordA);
  sim::bus_write(sim::Origin::External, "ptz.run_mode", "first");
  sim::bus_write(sim::Origin::Sim, "ptz.lens.get_pos.zoom", "100");
  sim::bus_write(sim::Origin::External, "ptz.run_mode", "second");
  EXPECT_TRUE(g_heard.empty());
  EXPECT_EQ(Get("ptz.run_mode"), "second") << "stored at once, notified later";
  ASSERT_TRUE(sim::bus_has_pending());
  sim::bus_deliver_pending();
  EXPECT_EQ(g_heard, (std::vector<std::string>{"A:ptz.run_mode=first",
                                               "A:ptz.lens.get_pos.zoom=100",
                                               "A:ptz.run_mode=second"}))
      << "each notification carries the value as written";
  EXPECT_FALSE(sim::bus_has_pending());
  // Deliveries are serialised: none is delivered inside a listener that lets time pass.
  g_heard.clear();
  kvlink_listen("x.", DeliverAgain);
  sim::bus_write(sim::Origin::External, "x.1", "a");
  sim::bus_write(sim::Origin::External, "x.2", "b");
  sim::bus_deliver_pending();
  EXPECT_EQ(g_heard, (std::vector<std::string>{"begin:x.1", "end:x.1", "begin:x.2", "end:x.2"}));
}

TEST_F(SimBus, OnlyShortDottedNamesAreKeys) {
  std::string k127(127, 'k'), k128(128, 'k');
  for (const char* good : {"ptz.run_mode", "A-z_0.9", k127.c_str()}) EXPECT_TRUE(sim::bus_key_valid(good)) << good;
  for (const char* bad : {k128.c_str(), "", static_cast<const char*>(nullptr), "a b", "a=b", "a/b", "a\nb", "a#b",
                          "\xc3\xa9"})
    EXPECT_FALSE(sim::bus_key_valid(bad)) << (bad ? bad : "null");
  EXPECT_EQ(kvlink_set("a b", "v"), -1);
  EXPECT_EQ(sim::bus_write(sim::Origin::External, "a=b", "v"), -1);
  EXPECT_EQ(sim::bus_put("", "v"), -1);
  EXPECT_TRUE(Visit("").empty());
}

// Making parent folders: every scenario with a file block.
TEST(SimSandbox, CameraPathsStayInsideTheRoot) {
  simtest::TempDir dir;
  std::string folder = dir.path, previous_root = sim::sandbox_root();
  sim::sandbox_set_root((folder + "/root/").c_str());
  EXPECT_EQ(std::string(sim::sandbox_root()), folder + "/root");
  char out[4096];
  for (auto [path, want] : std::vector<std::pair<const char*, const char*>>{
           {"/mnt/nand/pattern1.path", "/mnt/nand/pattern1.path"}, {"/tmp/../../../etc/passwd", "/etc/passwd"},
           {"tmp/./a//b/..", "/tmp/a"}, {"/..", ""}}) {
    sim::sandbox_path(path, out, sizeof out);
    EXPECT_EQ(std::string(out), folder + "/root" + want) << path;
  }
  char tiny[8];
  sim::sandbox_path("/tmp/x", tiny, sizeof tiny);
  EXPECT_STREQ(tiny, "") << "a path that does not fit is no path";
  sim::sandbox_set_root(previous_root.c_str());
}

}  // namespace
