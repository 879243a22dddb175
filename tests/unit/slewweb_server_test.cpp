// slewweb's request guard, event fan-out and workers: which requests may act,
// and the bounds on listening pages and waiting connections.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>

#include "event_hub.h"
#include "request_guard.h"
#include "worker_pool.h"

namespace {

using slewweb::ServedAddress;
constexpr auto kNoWait = std::chrono::milliseconds(0);

// The address served, parsed as the command line would give it.
ServedAddress Served(const char* listen) {
  ServedAddress served;
  std::string error;
  EXPECT_TRUE(slewweb::parse_listen(listen, &served, &error)) << error;
  return served;
}

TEST(SlewwebGuard, ListenAddressParsing) {
  ServedAddress s = Served("127.0.0.1:8080");
  EXPECT_EQ(s.host + ":" + std::to_string(s.port), "127.0.0.1:8080");
  EXPECT_EQ(Served(":9000").host, "127.0.0.1");
  EXPECT_EQ(Served("10.1.2.3").port, 8080);
  EXPECT_EQ(Served("127.0.0.1:0").port, 0) << "any free port";
  for (const char* bad : {"127.0.0.1:", "127.0.0.1:70000", "127.0.0.1:80x", "host.example:80", "0.0.0.0:8080", "::1"}) {
    std::string error;
    EXPECT_FALSE(slewweb::parse_listen(bad, &s, &error)) << bad;
    EXPECT_FALSE(error.empty());
  }
}

// Host and Origin must name the served address, bodies must be JSON, and only some keys are writable.
TEST(SlewwebGuard, WhatMayAct) {
  ServedAddress loop = Served("127.0.0.1:8080"), lan = Served("192.168.1.20:8080");
  using slewweb::host_allowed;
  struct Case {
    std::function<bool(const std::string&)> check;
    std::vector<std::string> allowed, refused;
  } cases[] = {
      {[&](const std::string& h) { return host_allowed(loop, h); }, {"127.0.0.1:8080", "localhost:8080", "LocalHost:8080"},
       {"", "127.0.0.1", "127.0.0.1:8081", "evil.example:8080", "localhost", "localhost.evil.example:8080",
        "127.0.0.1:8080.evil.example"}},
      {[&](const std::string& h) { return host_allowed(lan, h); }, {"192.168.1.20:8080"}, {"localhost:8080"}},  // not served
      {[&](const std::string& o) { return slewweb::origin_allowed(loop, o); }, {"http://127.0.0.1:8080", "http://localhost:8080"},
       {"null", "http://evil.example", "https://127.0.0.1:8080", "http://127.0.0.1:8080/", "http://127.0.0.1"}},
      {slewweb::json_content_type, {"application/json", "Application/JSON; charset=utf-8"},
       {"", "text/plain", "application/x-www-form-urlencoded", "multipart/form-data", "application/jsonp"}},
      {slewweb::key_writable, {"ptz.run_mode", "ptz.preset.view_move", "sim.person", "ptz.pattern.action"},
       {"ptz.status", "ptz.system.max_speed", "sim.pan.asleep", "ptz.run_mode.x", ""}},
  };
  for (const Case& c : cases) {
    for (const std::string& s : c.allowed) EXPECT_TRUE(c.check(s)) << s;
    for (const std::string& s : c.refused) EXPECT_FALSE(c.check(s)) << s;
  }
}

TEST(SlewwebEvents, ListenersAndTheirBacklogAreBounded) {
  slewweb::EventHub hub(2, 3);
  auto a = hub.subscribe(), b = hub.subscribe();
  ASSERT_TRUE(a && b);
  EXPECT_EQ(hub.subscribe(), nullptr) << "a third page is refused";
  std::string event;
  for (const char* e : {"1", "2", "3"}) hub.publish(e);
  ASSERT_TRUE(a->next(&event, kNoWait));
  EXPECT_EQ(event, "1") << "in order";
  hub.publish("4");  // a has room again, b is full
  for (const char* want : {"2", "3", "4", ""}) {  // nothing waiting: an empty event after the wait
    ASSERT_TRUE(a->next(&event, kNoWait));
    EXPECT_EQ(event, want);
  }
  EXPECT_FALSE(b->next(&event, kNoWait)) << "a page that reads nothing is cut off";
  hub.unsubscribe(b);
  EXPECT_NE(hub.subscribe(), nullptr) << "a place is free again";
  hub.close();
  EXPECT_FALSE(a->next(&event, kNoWait));
  EXPECT_EQ(hub.subscribe(), nullptr);
}

TEST(SlewwebWorkers, MoreJobsThanTheQueueHoldsAllRunAndShutdownDrains) {
  std::atomic<int> done{0};
  {
    slewweb::WorkerPool pool(2, 3);
    for (int i = 0; i < 20; ++i) pool.enqueue([&done] { ++done; });
    pool.shutdown();
    EXPECT_EQ(done, 20) << "enqueue waits for room instead of dropping a connection";
  }
  EXPECT_EQ(done, 20);
}

}  // namespace
