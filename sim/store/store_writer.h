// The store's writer: commits the bus's batches of writes to SQLite on a
// thread of its own, so that no caller waits for the flash. Tells waiters
// whether their batch was stored, watches for stalls, and says each change
// of the store's health once (stderr, transcript, the key sim.store).
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

// One change of a key, with what the bus held before it (to undo it in
// memory when it cannot be stored).
struct StoreOp {
  std::string key;
  std::string value;    // ignored when erase
  bool erase = false;
  bool had_before = false;
  std::string before;
};
using StoreBatch = std::vector<StoreOp>;

// Health of the store, as sim.store shows it.
enum class StoreHealth { Ok, Full, ReadOnly, Failing, Stalled };
const char* store_health_word(StoreHealth health);

// Called (without any lock of the writer's held) with a batch that could not
// be stored, so that the bus undoes it in memory.
using StoreUndo = void (*)(const StoreBatch& batch);
// Called on a change of health, without any lock of the writer's held.
using StoreAnnounce = void (*)(StoreHealth health);

// Starts the thread on an open store; only it uses db from now on.
void store_writer_start(sqlite3* db, StoreUndo undo, StoreAnnounce announce);
// Stores what is queued (unless the store stalls for good), stops the
// threads and hands db back.
void store_writer_stop();
bool store_writer_running();

// Queues a batch, stored as one transaction; its number (counting from 1).
// false when the queue is past its bound: nothing is queued.
bool store_writer_submit(StoreBatch batch, uint64_t* number);
// Number of the last batch queued.
uint64_t store_writer_last();
// Waits, up to limit, until the batches after `after` up to `upto` are
// stored; false with a one-line reason when one was refused or the store
// did not answer in time.
bool store_writer_wait(uint64_t after, uint64_t upto, std::chrono::milliseconds limit,
                       std::string* why);

}  // namespace sim
