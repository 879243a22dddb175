// The real-time camera: the simulated camera running beside the daemon in
// real time. Its state folder holds the bus store (bus.db), the sandbox root
// (root/), the bus socket (bus.sock) and transcript.log; the folder itself is
// locked while a camera runs on it.
#pragma once

#include <string>

namespace sim {

// Takes the state folder for this process (created if missing); the file
// descriptor of the held lock, or -1 with a one-line reason in *error when
// another slewd holds it.
int realtime_lock_state(const std::string& state, std::string* error);

// Starts the camera on the state folder: real clock, store, sandbox,
// transcript, world, then the world, bus and socket threads. Everything but
// the daemon itself. 0, or -1 with a one-line reason in *error.
int realtime_start(const std::string& state, std::string* error);
// Stops the threads, closes the store and transcript, releases the lock.
void realtime_stop();
// For atexit: once the process is ending with the camera running, takes the
// one lock for good, so that no camera thread touches state being torn down.
void realtime_freeze();

}  // namespace sim
