// When the world moves in real time: every library call and bus write brings
// it up to the clock first, and the world thread sleeps until the next thing
// the world must do by itself (an axis arriving, a calibration ending, a lens
// publication falling due) or until a call changes what that is.
#include <chrono>
#include <climits>
#include <condition_variable>
#include <mutex>

#include "core/core.h"
#include "world/world.h"

namespace sim {
namespace {

// The world thread's wait; guarded by big_lock().
struct WorldThread {
  std::condition_variable_any wake;  // ends the wait early
  int64_t sleeping_until = INT64_MIN;  // its deadline while it waits, INT64_MIN while it runs
  int64_t wakes = 0;                   // times it woke
  bool stepping = false;               // a catch-up is under way (lens writes re-enter)
};

WorldThread& thread_state() {
  static WorldThread* state = new WorldThread;  // outlives the thread at exit
  return *state;
}

}  // namespace

void world_catch_up() {
  if (virtual_mode()) return;
  WorldThread& t = thread_state();
  if (t.stepping) return;
  World& w = the_world();
  int64_t due = now_ns() - w.power_on_ns - w.elapsed_ns;
  if (due <= 0) return;
  t.stepping = true;
  world_step(due);
  t.stepping = false;
}

int64_t world_next_event_ns() {
  std::lock_guard lock(big_lock());
  const World& w = the_world();
  int64_t wait = sooner_ns(axis_ns_to_event(w.pan), axis_ns_to_event(w.tilt));
  wait = sooner_ns(wait, lens_ns_to_event(w.lens, w.elapsed_ns));
  return wait < 0 ? INT64_MAX : w.power_on_ns + w.elapsed_ns + wait;
}

void world_wake_if_changed() {
  if (virtual_mode()) return;
  WorldThread& t = thread_state();
  if (t.sleeping_until == INT64_MIN) return;
  if (world_next_event_ns() != t.sleeping_until) t.wake.notify_all();
}

void world_thread_run(const std::atomic<bool>& quit) {
  WorldThread& t = thread_state();
  std::unique_lock<std::recursive_mutex> lock(big_lock());
  t.wakes = 0;
  while (!quit.load()) {
    world_catch_up();
    t.sleeping_until = world_next_event_ns();
    if (t.sleeping_until == INT64_MAX) {
      t.wake.wait(lock);
    } else {
      t.wake.wait_for(lock, std::chrono::nanoseconds(t.sleeping_until - now_ns()));
    }
    t.sleeping_until = INT64_MIN;
    t.wakes++;
  }
}

void world_thread_stop() {
  std::lock_guard lock(big_lock());
  thread_state().wake.notify_all();
}

int64_t world_thread_wakes() {
  std::lock_guard lock(big_lock());
  return thread_state().wakes;
}

int64_t world_thread_deadline() {
  std::lock_guard lock(big_lock());
  return thread_state().sleeping_until;
}

}  // namespace sim
