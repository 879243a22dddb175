// A SQLite VFS over the default one that makes the store's flash fail on
// demand: the Nth write or sync from now fails with "disk full" or "I/O
// error", finds the file system read-only, stalls, or kills the process.
// Driven by the sim.store.* knobs (docs/simulator.md).
#pragma once

#include <string>

namespace sim {

// Name to open the store with; registers the VFS on first use (nullptr when
// SQLite refuses, and the default VFS is used).
const char* fault_vfs_name();
// Takes a write to a sim.store.* knob: 1 taken, 0 not a knob of the store,
// -1 a bad value (the reason in *why).
int fault_vfs_knob(const char* key, const char* value, std::string* why);
// Write and sync calls made on the store's files since the process began.
long fault_vfs_calls();
// The errno of the last fault injected on this thread, 0 when none.
int fault_vfs_errno();

}  // namespace sim
