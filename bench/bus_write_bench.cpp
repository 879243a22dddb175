// Cost of one bus operation: virtual-time writes to the in-memory store (the
// daemon publishes several keys every tick), reads, queued writes with their
// delivery, and real-time writes to the file store; the reference loop's
// time in the same run first.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/core.h"
#include "reference_loop.h"
#include "platform/kvlink.h"

namespace {

constexpr int kRounds = 200000;

// A listener that does nothing, so that matching and delivery are measured.
void Ignore(char*, char*) {}

// Runs body kRounds times; returns the host time of one run, in ns.
template <typename Body>
double ns_per_call(Body body) {
  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kRounds; i++) body(i);
  return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() /
         kRounds;
}

// Decimal text of i, as the daemon publishes positions.
const char* number(int i) {
  static char text[16];
  snprintf(text, sizeof text, "%d", i % 65535);
  return text;
}

}  // namespace

int main() {
  sim::clock_init(sim::ClockMode::Virtual);
  sim::bus_open(":memory:");
  for (int i = 0; i < 39; i++) kvlink_listen(("ptz.listened." + std::to_string(i)).c_str(), Ignore);
  char buf[128];
  printf("reference loop: %.3f s (divide it by a figure for calls per reference loop)\n",
         TimeReferenceLoop().wall);

  printf("in-memory store, 39 listeners:\n");
  printf("  kvlink_set, unlistened key:   %7.0f ns\n",
         ns_per_call([](int i) { kvlink_set("ptz.pan_pos", number(i)); }));
  printf("  kvlink_set, listened key:     %7.0f ns\n",
         ns_per_call([](int i) { kvlink_set("ptz.listened.7", number(i)); }));
  printf("  kvlink_get:                   %7.0f ns\n",
         ns_per_call([&](int) { kvlink_get("ptz.pan_pos", buf, sizeof buf); }));
  printf("  external write + delivery:    %7.0f ns\n", ns_per_call([](int i) {
           sim::bus_write(sim::Origin::External, "ptz.listened.7", number(i));
           sim::bus_deliver_pending();
         }));

  std::string folder = std::string(getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp") + "/busbenchXXXXXX";
  if (mkdtemp(folder.data()) == nullptr) return 1;
  sim::bus_open((folder + "/bus.db").c_str());
  printf("file store (WAL, one synced commit per write):\n");
  // A setting: live state such as ptz.pan_pos is never stored.
  printf("  kvlink_set of a setting:      %7.0f ns\n",
         ns_per_call([](int i) { kvlink_set("ptz.system.recover_time", number(i)); }));
  printf("  kvlink_set of live state:     %7.0f ns\n",
         ns_per_call([](int i) { kvlink_set("ptz.pan_pos", number(i)); }));
  sim::bus_close();
  std::string cleanup = "rm -rf '" + folder + "'";
  return system(cleanup.c_str()) == 0 ? 0 : 1;
}
