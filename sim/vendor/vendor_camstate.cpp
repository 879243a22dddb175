// The camera-state and model-feature libraries of the simulated camera:
// every call takes the one lock and leaves its `call` line in the transcript.
#include <mutex>

#include "core/core.h"
#include "platform/camstate.h"
#include "world/world.h"
#include "vendor/world_vendor.h"

using sim::deliver;
using sim::hold;
using sim::look;
using sim::report;
using sim::the_world;

extern "C" {

int PTZShmInit(void) {
  auto lock = hold();
  sim::trace_call(false, "PTZShmInit()");
  the_world().cam.shm_inits++;
  return 0;
}

int PutPan(int pos) {
  auto lock = look();
  sim::trace_call(true, "PutPan(%d)", pos);
  the_world().cam.pan = pos;
  return 0;
}

int PutTilt(int pos) {
  auto lock = look();
  sim::trace_call(true, "PutTilt(%d)", pos);
  the_world().cam.tilt = pos;
  return 0;
}

int GetPan(int* pos) {
  auto lock = look();
  return deliver("GetPan", pos, the_world().cam.pan);
}

int GetTilt(int* pos) {
  auto lock = look();
  return deliver("GetTilt", pos, the_world().cam.tilt);
}

int GetZoom(int* zoom) {
  auto lock = look();
  return deliver("GetZoom", zoom, the_world().lens.zoom.pos);
}

int GetDZoom(int* dzoom) {
  auto lock = look();
  return deliver("GetDZoom", dzoom, the_world().cam.dzoom);
}

int GetFocalLength(double* focal) {
  auto lock = look();
  const sim::World& w = the_world();
  double f = w.cam.focal_mm > 0 ? w.cam.focal_mm : sim::lens_focal_length(w.lens.zoom.pos);
  if (focal) *focal = f;
  sim::trace_call(true, "GetFocalLength(%g)", f);
  return focal ? 0 : -1;
}

int GetLensStatus(int* status) {
  auto lock = look();
  return deliver("GetLensStatus", status, sim::lens_status(the_world().lens));
}

int GetLensType(void) {
  auto lock = look();
  return report("GetLensType", the_world().cam.lens_type);
}

int SetLensType(int type) {
  auto lock = hold();
  sim::trace_call(false, "SetLensType(%d)", type);
  the_world().cam.lens_type = type;
  return 0;
}

int PutPTStatus(int code) {
  auto lock = hold();
  sim::trace_call(false, "PutPTStatus(%d)", code);
  the_world().cam.pt_status = code;
  the_world().cam.pt_status_calls++;
  return 0;
}

int OIS_Pause(int resume) {
  auto lock = hold();
  sim::trace_call(false, "OIS_Pause(%d)", resume);
  the_world().cam.ois_paused = resume == 0 ? 1 : 0;
  the_world().cam.ois_calls++;
  return 0;
}

int get_lenstype(void) {
  auto lock = look();
  return report("get_lenstype", the_world().cam.lens_type_feature);
}

const char* get_modelid(void) {
  auto lock = look();
  const char* id = the_world().cam.model_id;
  sim::trace_call(true, "get_modelid()=%s", id);
  return id;
}

}  // extern "C"
