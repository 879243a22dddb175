// Bus operations beyond core.h: lists and listeners for the daemon's calls
// (vendor_kvlink.cpp), waiting and watching for the real-time camera.
// Every function takes sim::big_lock() itself.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/kvlink.h"

namespace sim {

// The one list key: a write to "<list>.999" appends the entry "<list>.<n>",
// n counting from 0. Its entries are the keys "<list>.<digits>".
constexpr const char* kPresetList = "ptz.preset.position";
// Index that appends; a list therefore holds at most this many entries.
constexpr int kListAppendIndex = 999;

// Registers a listener for every key that begins with prefix. Listeners are
// called in registration order. -1 when the table is full or an argument null.
int bus_listen(const char* prefix, KvlinkCallback callback);
// Full key of list entry index; false past the last entry or on a non-list.
bool bus_list_name(const char* list, int index, char* out, size_t len);
// Empties a list; on a plain key, removes its value. Nothing is notified.
int bus_restore_default(const char* key);

// A write of socket client source (1 and up): waits, within a bound, until
// the client has room in the notification queue, then writes as an External
// write and, when it joined an open transaction, waits for its commit.
// 0, or -1 with the reason in *why (a bad key or value, a refused sim.*
// value, a daemon that did not take the previous write).
int bus_write_from(int source, const char* key, const char* value, std::string* why);
// Forgets a client that has gone.
void bus_forget_source(int source);

// Real time: commit the daemon's writes per stretch (see bus.cpp) instead of
// one by one. Off after bus_open.
void bus_group_commits(bool on);
// Real time: from now on the store is written by a thread of its own
// (store/store_writer.h) and sim.store tells its health. Until bus_close.
void bus_store_async();
// The calling thread ends a stretch: the daemon sleeps, or a notification has
// been delivered. Commits once no daemon thread is inside a stretch.
void bus_stretch_end();

// Blocks until a notification is queued or quit is set (bus_wake_waiters
// after setting it).
// True when something is queued. Call without holding big_lock.
bool bus_wait_pending(const std::atomic<bool>& quit);
// Wakes every bus_wait_pending (after setting its quit flag).
void bus_wake_waiters();

// Called under big_lock after every bus_write is stored, with the stored key.
using BusChangeHook = void (*)(const char* key, const char* value);
void bus_set_change_hook(BusChangeHook hook);

}  // namespace sim
