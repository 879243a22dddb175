// The store's check at start: a damaged store is never used silently. A
// good store leaves a last good copy beside it (bus.db.good); a damaged one
// is moved aside with the time in its name and replaced by that copy, else
// by the factory settings plus the rows that can still be read.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace sim {

struct StoreCheck {
  bool fresh = false;                         // a new store: the factory settings go in
  std::map<std::string, std::string> rows;    // rows read from a damaged store, to put back
  std::vector<std::string> said;              // what was found, restored and lost
};

// Checks the store at path (nothing open on it) and repairs it when
// damaged. 0, or -1 with a one-line reason when it is no store at all
// (then nothing was changed).
int store_check(const std::string& path, StoreCheck* check, std::string* error);

// Takes a new last good copy of the store at path (closed) when it passes
// its check: at an orderly stop.
void store_keep_copy(const std::string& path);

}  // namespace sim
