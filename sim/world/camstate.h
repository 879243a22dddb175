// The camera-state memory shared with the camera side, and the model
// features of this camera. Touched only under sim::big_lock().
#pragma once

namespace sim {

struct CamState {
  // Camera-state memory
  int shm_inits = 0;
  int pan = 0, tilt = 0;        // last PutPan/PutTilt
  int pt_status = 0;            // last PutPTStatus code
  int pt_status_calls = 0;
  int ois_paused = 0;           // 1 after OIS_Pause(0), 0 after OIS_Pause(1)
  int ois_calls = 0;
  int lens_type = -1;           // SetLensType; -1 unset
  int dzoom = 0;                // sim.dzoom
  double focal_mm = 0;          // sim.focal_mm; above 0 pins GetFocalLength

  // Model features (knobs)
  const char* model_id = "9417701";  // interned text, never freed
  int motor_type = 2;
  int tilt_hall = 0;
  int lens_type_feature = 1;         // get_lenstype
};

// A copy of text that lives as long as the process, one per distinct text,
// so a pointer handed to the daemon never changes under it.
const char* intern_text(const char* text);

}  // namespace sim
