// Listeners: each converts one bus value into the control state or raises a
// request flag for the main loop.
#include "control/listeners.h"

#include <cstdlib>
#include <cstring>

#include "control/bus_text.h"
#include "control/control.h"
#include "control/run_mode.h"
#include "motion/limits.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "tours/pattern.h"
#include "tours/schedule.h"

// ---- Small listeners: one variable each ------------------------------------

static void OnPatrolKey(char*, char*) { giPatrolReload = 1; }
static void OnLensZoom(char*, char* value) { giZoomPos = TextToInt(value); }
static void OnAutoFlip(char*, char* value) { giAutoFlip = TextOnOff(value); }
static void OnProportion(char*, char* value) { giManualProportion = TextOnOff(value); }
static void OnScheduleKey(char*, char*) { giScheduleReload = 1; }
static void OnViewMove(char*, char*) { giViewMove = 1; }
static void OnTrackEnable(char*, char* value) { giPresetTrackEnable = TextOnOff(value); }
static void OnTrackId(char*, char* value) { giPresetTrackId = TextToInt(value); }
static void OnTiltLimitKey(char*, char*) { ApplyTiltLimit(); }
static void OnPanLimitKey(char*, char*) { ApplyPanLimit(-1); }
static void OnImageFlip(char*, char* value) { giImageFlip = TextOnOff(value); }
static void OnImageMirror(char*, char* value) { giImageMirror = TextOnOff(value); }
static void OnPanSpeed(char*, char* value) { giManualPanSpeed = TextToInt(value); }
static void OnTiltSpeed(char*, char* value) { giManualTiltSpeed = TextToInt(value); }
static void OnFreeze(char*, char* value) { giSystemFreeze = TextOnOff(value); }
static void OnEisEnable(char*, char* value) { giEisEnable = TextOnOff(value); }
static void OnEisFov(char*, char* value) { gfEisFov = atof(value); }
static void OnOisEnable(char*, char* value) { giOisEnable = TextOnOff(value); }

void OnRecoverTime(char*, char* value) {
  giRecoverTime = strcmp(value, "off") == 0 ? 0 : TextToInt(value);
  os_printf("Recover Time:%d\n", (int)giRecoverTime);
}

void OnMaxSpeed(char*, char* value) {
  int32_t speed = TextToInt(value);
  if (speed <= 30) speed = 30;
  if (speed > 720) speed = 720;
  giMaxSpeed = speed;
}

// "-1" takes the present pan as east and writes it back, which runs this
// listener once more with the number.
void OnEastPos(char*, char* value) {
  if (strcmp(value, "-1") == 0) {
    giEastPos = giPanPos.load();
    BusWriteInt("ptz.system.east_pos", giEastPos);
    return;
  }
  giEastPos = TextToInt(value);
}

// One PID field: "0x" then hexadecimal, else decimal; saturates at the
// int32 bounds so that the later clamp sees the right side.
static int32_t PidField(const char* field) {
  if (field[0] == '0' && field[1] == 'x') {
    int64_t value = 0;
    for (const char* p = field + 2;; p++) {
      int digit;
      if (*p >= '0' && *p <= '9') digit = *p - '0';
      else if (*p >= 'a' && *p <= 'f') digit = *p - 'a' + 10;
      else if (*p >= 'A' && *p <= 'F') digit = *p - 'A' + 10;
      else break;
      value = value * 16 + digit;
      if (value > INT32_MAX) value = INT32_MAX;
    }
    return (int32_t)value;
  }
  return TextToInt(field);
}

// Negative becomes 0; above 65535 becomes 0xfffe.
static int32_t PidBound(int32_t value) {
  if (value < 0) return 0;
  if (value > 65535) return 0xfffe;
  return value;
}

// Up to three comma-separated fields P, I, D; a run of commas is one cut,
// and a missing field leaves its variable and the later ones unchanged.
void OnPid(char*, char* value) {
  Shared* const targets[3] = {&giPidP, &giPidI, &giPidD};
  char field[kBusValueSize];
  const char* p = value;
  for (int index = 0; index < 3; index++) {
    while (*p == ',') p++;
    if (*p == '\0') break;
    size_t n = 0;
    for (; *p != '\0' && *p != ','; p++) {
      if (n < sizeof field - 1) field[n++] = *p;
    }
    field[n] = '\0';
    *targets[index] = PidField(field);
  }
  for (Shared* target : targets) *target = PidBound(*target);
  os_printf("printf P:0x%x I:0x%x D:0x%x\n", (unsigned)giPidP, (unsigned)giPidI,
            (unsigned)giPidD);
}

// ---- Binding and start-up reads ---------------------------------------------

struct Binding {
  const char* key;
  KvlinkCallback callback;
};

// Listeners 1 to 10.
static const Binding kFirstBindings[] = {
    {"ptz.run_mode", OnRunMode},
    {"ptz.patrol.", OnPatrolKey},
    {"ptz.lens.get_pos.zoom", OnLensZoom},
    {"ptz.system.auto_flip", OnAutoFlip},
    {"ptz.manual.proportion", OnProportion},
    {"ptz.system.recover_time", OnRecoverTime},
    {"ptz.system.max_speed", OnMaxSpeed},
    {"ptz.schedule", OnScheduleKey},
    {"ptz.preset.view_move", OnViewMove},
    {"ptz.preset.track_enable", OnTrackEnable},
};

// Listeners 12 to 38.
static const Binding kLaterBindings[] = {
    {"ptz.pattern.action", OnPatternAction},
    {"ptz.system.up_limit", OnTiltLimitKey},
    {"ptz.system.down_limit", OnTiltLimitKey},
    {"ptz.manual.limit", OnPanLimitKey},
    {"ptz.manual.right_limit", OnPanLimitKey},
    {"ptz.manual.left_limit", OnPanLimitKey},
    {"ptz.scan.scan1.limit", OnPanLimitKey},
    {"ptz.scan.scan1.right_limit", OnPanLimitKey},
    {"ptz.scan.scan1.left_limit", OnPanLimitKey},
    {"ptz.scan.scan2.limit", OnPanLimitKey},
    {"ptz.scan.scan2.right_limit", OnPanLimitKey},
    {"ptz.scan.scan2.left_limit", OnPanLimitKey},
    {"ptz.scan.scan3.limit", OnPanLimitKey},
    {"ptz.scan.scan3.right_limit", OnPanLimitKey},
    {"ptz.scan.scan3.left_limit", OnPanLimitKey},
    {"ptz.scan.scan4.limit", OnPanLimitKey},
    {"ptz.scan.scan4.right_limit", OnPanLimitKey},
    {"ptz.scan.scan4.left_limit", OnPanLimitKey},
    {"image.cam1.flip", OnImageFlip},
    {"image.cam1.mirror", OnImageMirror},
    {"ptz.manual.pan_speed", OnPanSpeed},
    {"ptz.manual.tilt_speed", OnTiltSpeed},
    {"ptz.system.freeze", OnFreeze},
    {"ptz.system.east_pos", OnEastPos},
    {"encode.cam1.eis.enable", OnEisEnable},
    {"encode.cam1.eis.fov", OnEisFov},
    {"encode.cam1.ois.enable", OnOisEnable},
};

// Settings read at start and handed to their listeners, in this order.
static const Binding kStartReads[] = {
    {"ptz.system.max_speed", OnMaxSpeed},
    {"ptz.system.recover_time", OnRecoverTime},
    {"lens.get_pos.zoom", OnLensZoom},
    {"ptz.system.auto_flip", OnAutoFlip},
    {"ptz.manual.proportion", OnProportion},
    {"image.cam1.flip", OnImageFlip},
    {"image.cam1.mirror", OnImageMirror},
    {"ptz.manual.pan_speed", OnPanSpeed},
    {"ptz.manual.tilt_speed", OnTiltSpeed},
    {"ptz.system.freeze", OnFreeze},
    {"encode.cam1.eis.enable", OnEisEnable},
    {"encode.cam1.eis.fov", OnEisFov},
    {"encode.cam1.ois.enable", OnOisEnable},
};

template <size_t N>
static void BindAll(const Binding (&bindings)[N]) {
  for (const Binding& b : bindings) kvlink_listen(b.key, b.callback);
}

// Reads key into a cleared buffer and hands it to the listener. Clearing
// before every read makes a key without value read as the empty text.
static void ReadInto(const char* key, KvlinkCallback callback) {
  char buf[kBusValueSize];
  BusRead(key, buf);
  callback(nullptr, buf);
}

void RegisterListeners() {
  char buf[kBusValueSize];
  BindAll(kFirstBindings);
  ReadInto("ptz.preset.track_enable", OnTrackEnable);
  kvlink_listen("ptz.preset.track_id", OnTrackId);
  ReadInto("ptz.preset.track_id", OnTrackId);
  BusRead("ptz.track.preset_id", buf);  // read once: no listener
  giTrackPresetId = buf[0] == '\0' ? -1 : TextToInt(buf);
  BindAll(kLaterBindings);
  for (const Binding& b : kStartReads) ReadInto(b.key, b.callback);
  kvlink_listen("ptz.PID", OnPid);
  ReadInto("ptz.PID", OnPid);
  LoadSchedule();
}
