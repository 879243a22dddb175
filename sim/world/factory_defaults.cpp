// Factory settings of the simulated camera, chosen to match its head and
// lens (see docs/simulator.md).
#include "world/factory_defaults.h"

#include "core/core.h"

namespace sim {

namespace {

struct Setting {
  const char* key;
  const char* value;
};

const Setting kFactory[] = {
    {"ptz.system.max_speed", "720"},
    {"ptz.manual.pan_speed", "90"},
    {"ptz.manual.tilt_speed", "90"},
    {"ptz.manual.proportion", "off"},
    {"ptz.system.auto_flip", "off"},
    {"ptz.system.freeze", "off"},
    {"ptz.system.recover_time", "off"},
    {"ptz.system.recover_mode", "stop"},
    {"ptz.system.up_limit", "-20"},
    {"ptz.system.down_limit", "90"},
    {"ptz.manual.limit", "off"},
    {"ptz.lens.sensor_w", "5.6"},
    {"ptz.lens.sensor_h", "3.2"},
    {"ptz.lens.base_focal_length", "4.7"},
    {"ptz.lens.max_focal_length", "94"},
    // Lens type 0: the view move takes its field of view from the sensor and
    // focal length above, which are the simulated lens's own.
    {"sim.lens_type", "0"},
    {"image.cam1.flip", "off"},
    {"image.cam1.mirror", "off"},
    {"encode.cam1.eis.enable", "off"},
    {"encode.cam1.ois.enable", "off"},
};

}  // namespace

void put_factory_defaults() {
  for (const Setting& s : kFactory) bus_put(s.key, s.value);
}

}  // namespace sim
