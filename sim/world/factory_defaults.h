// The settings a new camera ships with.
#pragma once

namespace sim {

// Puts the factory settings into the bus (no notification). The real-time
// camera does this when its store is created; scenarios start from a blank
// bus and set what they need.
void put_factory_defaults();

}  // namespace sim
