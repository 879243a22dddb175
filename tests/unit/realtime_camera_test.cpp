// The in-process real-time camera: bus thread, socket protocol, slewctl, transcript, world thread.
#include <atomic>
#include <climits>
#include <mutex>

#include "bus/bus_extra.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "realtime_fixture.h"
#include "world/world.h"

namespace {

class Realtime : public RealtimeCamera {
 protected:
  static std::string Reply(int fd) { std::string line; return sim::LineReader(fd).next(&line) ? line : ""; }
  // slewctl watch's output while writes() repeats on another thread.
  std::string WatchWhile(std::vector<std::string> words, void (*writes)()) {
    std::string out;
    std::atomic<bool> done{false};
    std::thread writer([&done, writes] { while (!done) writes(); });
    EXPECT_EQ(Ctl(std::move(words), &out), sim::kCtlOk);
    return done = true, writer.join(), out;
  }
};

TEST_F(Realtime, SlewctlGetListAndErrorsAndRefusedKnobsAreNotStored) {
  std::string out, err;
  kvlink_set("ptz.status", "0");
  for (const char* v : {"one", "two"}) kvlink_set("ptz.preset.position.999", v);
  sim::bus_stretch_end();  // as the daemon's next sleep would
  ASSERT_EQ(Ctl({"set", "ptz.mode_status", "line one\nline two\\"}), sim::kCtlOk);
  char stored[128];
  ASSERT_TRUE(sim::bus_read("ptz.mode_status", stored, sizeof stored));
  EXPECT_STREQ(stored, "line one\nline two\\") << "escapes survive the trip";
  EXPECT_EQ(Ctl({"list", "ptz.preset."}, &out), sim::kCtlOk);
  EXPECT_EQ(out, "ptz.preset.position.0=one\nptz.preset.position.1=two\n");
  ASSERT_EQ(Ctl({"set", "ptz.run_mode", "go_preset:", "5"}), sim::kCtlOk);  // delivery to slewd: RealtimeDaemon
  EXPECT_EQ(Ctl({"get", "ptz.run_mode"}, &out), sim::kCtlOk);
  EXPECT_EQ(out, "go_preset: 5\n") << "the words join with single blanks";

  ASSERT_EQ(Ctl({"set", "sim.pan.pos", "100"}), sim::kCtlOk);
  EXPECT_EQ(Ctl({"set", "sim.no_knob", "1"}), sim::kCtlOk) << "not the camera's to refuse";
  struct { std::vector<std::string> words; int status; const char* err; /* when given */ } const kRefused[] = {
      {{"get", "ptz.nothing"}, sim::kCtlNoValue, "slewctl: ptz.nothing holds no value\n"},
      {{"set", "bad key", "1"}, sim::kCtlRefused, nullptr}, {{"set", "ptz.status"}, sim::kCtlUsage, nullptr},
      {{"set", "ptz.status", std::string(128, 'x')}, sim::kCtlRefused, "slewctl: value over 127 characters (128)\n"},
      {{"watch", "-n", "zero"}, sim::kCtlUsage, "slewctl: bad command line; slewctl --help tells the commands\n"},
      {{"get", "--wait", "ptz.status"}, sim::kCtlUsage, nullptr}, {{"fly"}, sim::kCtlUsage, nullptr},
      {{"set", "sim.lens.zoom_max", "5"}, sim::kCtlRefused, "slewctl: read-only key: sim.lens.zoom_max\n"},
      {{"set", "sim.pan.pos", "abc"}, sim::kCtlRefused, "slewctl: sim.pan.pos: bad value \"abc\", knob unchanged\n"},
  };
  for (const auto& r : kRefused) {
    EXPECT_EQ(Ctl(r.words, &out, &err), r.status) << r.words[0] << " " << r.words.back();
    if (r.err) { EXPECT_EQ(err, r.err); }
  }
  for (const auto& [key, value] : {std::pair{"ptz.status", "0\n"}, {"sim.pan.pos", "100\n"}}) {  // nothing refused stored
    EXPECT_EQ(Ctl({"get", key}, &out), sim::kCtlOk);
    EXPECT_EQ(out, value) << key;
  }

  sim::realtime_stop();
  EXPECT_EQ(Ctl({"get", "ptz.status"}, &out, &err), sim::kCtlNoDaemon);
  EXPECT_NE(err.find("slewctl: no slewd running on " + state_), std::string::npos) << err;
  EXPECT_EQ(err.find('\n'), err.size() - 1) << "one line";
}

TEST_F(Realtime, WatchStreamsEveryWriteUnderItsPrefix) {
  int fd = Connect();
  sim::LineReader reader(fd);
  std::string line;
  ASSERT_TRUE(sim::proto_send(fd, "watch ptz.\n") && reader.next(&line) && line == "ok");
  kvlink_set("ptz.status", "4");
  kvlink_set("image.cam1.flip", "on");
  sim::bus_stretch_end();
  ASSERT_EQ(Ctl({"set", "ptz.run_mode", "stop"}), sim::kCtlOk);
  kvlink_set("ptz.preset.position.999", "a\nb");
  std::vector<std::string> seen;
  for (int i = 0; i < 3 && reader.next(&line); ++i) seen.push_back(line);
  EXPECT_EQ(seen, (std::vector<std::string>{"change ptz.status=4", "change ptz.run_mode=stop",
                                            "change ptz.preset.position.0=a\\nb"}));
  close(fd);  // slewctl watch -n: SlewctlEscapesControlCharactersUnlessRaw
}

TEST_F(Realtime, ProtocolRefusesLongLinesNulBytesAndTakesCrLf) {
  int fd = Connect();
  ASSERT_TRUE(sim::proto_send(fd, "get " + std::string(1020, 'k') + "\n"));  // the longest line is read
  EXPECT_NE(Reply(fd), "error line over 1024 characters");
  ASSERT_TRUE(sim::proto_send(fd, std::string(1025, 'x') + "\n"));
  EXPECT_EQ(Reply(fd), "error line over 1024 characters");
  char byte;
  EXPECT_EQ(recv(fd, &byte, 1, 0), 0) << "closed after the error";
  close(fd);

  fd = Connect();
  ASSERT_TRUE(sim::proto_send(fd, std::string("set ptz.x a\0b\n", 14)));
  EXPECT_EQ(Reply(fd), "error value holds a NUL byte");
  ASSERT_TRUE(sim::proto_send(fd, "set ptz.x ends in cr\\r\r\n"));
  EXPECT_EQ(Reply(fd), "ok");
  ASSERT_TRUE(sim::proto_send(fd, "get ptz.x\r\n"));
  EXPECT_EQ(Reply(fd), "value ends in cr\\r") << "CR LF ends a line; an escaped CR is kept";
  close(fd);
}

TEST_F(Realtime, SlewctlEscapesControlCharactersUnlessRaw) {
  const std::string hostile = "a\x1b[2J\rb\tc\\d\x7f\xc2\x9b" "e\xc3\xa9";
  ASSERT_EQ(Ctl({"set", "ptz.osd", hostile}), sim::kCtlOk);
  std::string out;
  EXPECT_EQ(Ctl({"get", "ptz.osd"}, &out), sim::kCtlOk);
  const std::string shown = "a\\e[2J\\rb\\tc\\\\d\\x7f\\xc2\\x9be\xc3\xa9\n";
  EXPECT_EQ(out, shown) << "C0, DEL and C1 escaped; other UTF-8 kept";
  for (const auto& [words, want] : {std::pair{std::vector<std::string>{"list", "ptz.osd"}, "ptz.osd=" + shown},
                                    {{"get", "--raw", "ptz.osd"}, hostile + "\n"}}) {
    EXPECT_EQ(Ctl(words, &out), sim::kCtlOk);
    EXPECT_EQ(out, want);
  }
  out = WatchWhile({"watch", "-n", "2", "--changes", "ptz.osd"}, [] {
    for (const char* v : {"same", "same", "\x1b", "\x1b"}) sim::bus_write(sim::Origin::External, "ptz.osd", v);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  });
  EXPECT_TRUE(out == "ptz.osd=same\nptz.osd=\\e\n" || out == "ptz.osd=\\e\nptz.osd=same\n")
      << "repeats left out: " << out;
}

TEST_F(Realtime, TranscriptKeepsThePreviousRunAndRotates) {
  const std::string log = state_ + "/transcript.log";
  EXPECT_TRUE(fs::exists(state_ + "/root/dev/iav"));
  sim::trace(sim::Kind::Log, "first run"), sim::realtime_stop();
  std::string error;
  ASSERT_EQ(sim::realtime_start(state_, &error), 0) << error;
  EXPECT_NE(FileText(log + ".1").find("log first run"), std::string::npos) << "the previous run is kept";

  sim::transcript_rotate_at(4096);
  for (int i = 0; i < 400; ++i) sim::trace(sim::Kind::Log, "line %d of a long run", i);
  sim::transcript_rotate_at(16 * 1024 * 1024);
  for (const char* old : {".1", ".2", ".3"}) EXPECT_LE(fs::file_size(log + old), 4096u + 64) << old;
  EXPECT_FALSE(fs::exists(log + ".4")) << "at most three old files";
  EXPECT_LE(fs::file_size(log), 4096u + 64);
}

class RealtimeWorld : public RealtimeCamera {
 protected:
  void SetUp() override {  // calibration off: the head moves at once
    RealtimeCamera::SetUp();
    for (const char* key : {"sim.pan.cali_s", "sim.tilt.cali_s"}) sim::bus_write(sim::Origin::External, key, "0");
    PanReset(), TiltReset();
  }
  static bool AwaitThreadIdle() { return Await([] { return sim::world_thread_deadline() == INT64_MAX; }, 10); }
};

// A call sees the head of that moment; the thread sleeps while nothing is due, and ends a move with no call.
TEST_F(RealtimeWorld, CallsSeeTheMomentAndTheThreadSleepsWhileNothingIsDue) {
  ASSERT_EQ(PanContinuousMove(0, 7200), 0);  // 65535 steps a second
  int first = 0, second = 0;
  GetPanPos(&first), std::this_thread::sleep_for(std::chrono::milliseconds(2)), GetPanPos(&second);  // over 100 steps
  EXPECT_NE(first, second);  // a world stepped every 10 ms would mostly repeat
  PanContinuousMove(0, 0);
  ASSERT_TRUE(AwaitThreadIdle());
  int64_t wakes = sim::world_thread_wakes();
  for (int i = 0, pos = 0; i < 20; i++) GetPanPos(&pos), GetPanStatus(), std::this_thread::sleep_for(std::chrono::milliseconds(2));
  EXPECT_EQ(sim::world_thread_wakes(), wakes);
  EXPECT_EQ(sim::world_thread_deadline(), INT64_MAX);
  ASSERT_EQ(TiltABSMove(1, 7200, 200), 0);  // 200 steps: about 3 ms
  EXPECT_TRUE(Await([] {
    std::lock_guard<std::recursive_mutex> lock(sim::big_lock());  // not a call, which would catch up
    return sim::the_world().tilt.pos == 200 && !sim::axis_moving(sim::the_world().tilt);
  }, 10));
  EXPECT_TRUE(AwaitThreadIdle());
}

}  // namespace
