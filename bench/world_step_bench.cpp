// Cost of the simulated hardware's physics step: one hour of an idle head
// (360,000 steps of 10 ms), then one hour with both axes and the lens busy,
// against the reference loop.
#include <chrono>
#include <cstdio>

#include "core/core.h"
#include "reference_loop.h"
#include "platform/gimbal.h"

namespace {

constexpr int kStepsPerHour = 360000;

// Runs one hour of world steps and returns the host time it took, in seconds.
double hour_of_steps() {
  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kStepsPerHour; i++) sim::world_step(sim::kWorldStepNs);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main() {
  sim::clock_init(sim::ClockMode::Virtual);
  sim::bus_open(":memory:");
  sim::bus_put("sim.pan.cali_s", "0");
  sim::bus_put("sim.tilt.cali_s", "0");
  sim::world_init();

  double idle = hour_of_steps();
  printf("idle head:  %.3f s per simulated hour, %.0f ns per step\n", idle, idle * 1e9 / kStepsPerHour);

  PanContinuousMove(0, 720);
  TiltLimit(1000, 30000);
  TiltLimitEn(1);
  TiltContinuousMove(0, 720);
  sim::bus_write(sim::Origin::External, "ptz.lens.manual.zoom", "tele");
  double busy = hour_of_steps();  // pan keeps turning; tilt and zoom stop at their ends
  printf("pan moving: %.3f s per simulated hour, %.0f ns per step\n", busy, busy * 1e9 / kStepsPerHour);
  double reference = TimeReferenceLoop().wall;
  printf("reference loop: %.3f s; simulated hours per reference loop: idle %.0f, pan moving %.0f\n",
         reference, reference / idle, reference / busy);
  return 0;
}
