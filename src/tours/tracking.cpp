// Person tracking. The tracker's start and stop lines are here; the moves
// and the saved home land with the tracking work. Until then the verbs ask
// for their run modes and a pass moves nothing.
#include "tours/tracking.h"

#include <cstring>

#include "control/control.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "slewd/startup.h"

void StartTracker() {
  char position[64] = {};
  kvlink_get("ptz.track.position", position, sizeof position);
  position[sizeof position - 1] = '\0';
  kvlink_set("ptz.track.location", position);
  if (giBrandMatch == 1) {
    os_system("FigureFollow -p 27182 -b /bin/yolov4_tiny_cavalry.bin -s 0 -i 1 --in inputs "
              "--out detector/yolo-v4-tiny/Conv_17/BiasAdd --out "
              "detector/yolo-v4-tiny/Conv_20/BiasAdd -t 0 -r 1 &");
  } else {
    os_system("FigureFollow -m 0 -b 2 -a 1 -s 2 --model_path /bin/onnx_yolov5s_cavalry.bin "
              "--label_path /bin/coco_class_names.txt&");
  }
}

void StopTracker() {
  os_system("killall -9 FigureFollow &");
  os_system("killall -9 demo_stamp &");
  os_system("killall -9 demo_blackout &");
}

void TrackCommand(char* args) {
  if (strncmp(args, "on", 2) == 0 && (args[2] == '\0' || args[2] == ',')) {
    if (iTrackStatus == 0) {
      StartTracker();
      iTrackStatus = 1;
    }
    giNewMode = kModeTrack;
    return;
  }
  iTrackStatus = 0;
  StopTracker();
}

void SetTrackPositionCommand() {}

void GoTrackPositionCommand() { giNewMode = kModeTrackPosition; }

void SetTrackRunCommand(const char*) {
  StartTracker();
  iTrackStatus = 1;
  giNewMode = kModeTrack;
}

void PublishTrackPreset(int32_t) {}

void TrackPass() { giRunMode = kModeIdle; }

void TrackPositionPass() {
  giRunMode = kModeIdle;
  giNewMode = kModeIdle;
  kvlink_set("ptz.run_mode", "stop");
}
