// Patterns. Recording taps the commands on their way through OnRunMode and
// adds the head's rest position; the file goes to /mnt/nand only when the
// recording ends, so a stored pattern is always complete. Playback hands the
// same texts back to OnRunMode at the recorded spacing and starts over from
// the start position at the end of the file.
#include "tours/pattern.h"

#include <pthread.h>

#include <cstring>

#include "control/bus_text.h"
#include "control/control.h"
#include "control/publish.h"
#include "control/run_mode.h"
#include "motion/positioning.h"
#include "platform/camstate.h"
#include "platform/kvlink.h"
#include "platform/os.h"

std::atomic<int64_t> giPatternRecStart{0};

// ---- Recording state ------------------------------------------------------------
// OnRunMode writes events on the bus thread while UpdatePosition writes rest
// lines and may end the recording on the loop's: the file and its times are
// touched only under this lock, so that a close never meets a write.
static pthread_mutex_t gPatternRecMutex = PTHREAD_MUTEX_INITIALIZER;
static FILE* gpPatternRecFile = nullptr;
static int32_t giPatternRecId = 0;
static int64_t giPatternRecLast = 0;

// Main-loop thread only.
static int32_t giPatternRestCount = 0;  // updates at rest in run mode 0, up to 1000
static int32_t giPatternMoveCount = 0;  // updates in motion since the last clock look
static FILE* gpPatternFile = nullptr;   // stored pattern that plays
static int64_t giPatternNextTime = 0;   // ms at which the next event is due

static constexpr int32_t kRestLineCount = 50;
static constexpr int32_t kRestCountTop = 1000;
static constexpr int32_t kMoveClockLook = 100;
static constexpr int64_t kStartLeadMs = 3000;
static constexpr int32_t kStartSpeed = 720;
static constexpr int kPathSize = 64;
static constexpr int kShellLineSize = 128;

// Files of pattern `id`: the one under recording and the stored one.
static void RecordingPath(char* path, int32_t id) { snprintf(path, kPathSize, "/tmp/pattern%d.path", id); }
static void StoredPath(char* path, int32_t id) { snprintf(path, kPathSize, "/mnt/nand/pattern%d.path", id); }

// Whether `now` lies past the recording's six minutes.
static bool PastRecLimit(int64_t now) { return now > giPatternRecStart + kPatternRecLimitMs; }

// Writes the delay since the last line: the difference of the low 32 bits
// of the two clock readings. Holds the lock.
static void WriteDelayLocked(int64_t now) {
  int32_t delay = (int32_t)((uint32_t)(uint64_t)now - (uint32_t)(uint64_t)giPatternRecLast);
  giPatternRecLast = now;
  fprintf(gpPatternRecFile, "%d\n", delay);
}

int PatternRecStart(const char* value) {
  pthread_mutex_lock(&gPatternRecMutex);
  int result = -1;
  if (gpPatternRecFile == nullptr) {
    giPatternRecId = TextToInt(value + strnlen(value, 3));
    char path[kPathSize];
    RecordingPath(path, giPatternRecId);
    gpPatternRecFile = giPatternRecId > 0 ? os_fopen(path, "w") : nullptr;
    if (gpPatternRecFile == nullptr) {
      giPatternRecId = 0;
    } else {
      giPatternRecLast = NowMilliseconds();
      giPatternRecStart = giPatternRecLast;
      int zoom = 0, dzoom = 0, pan = 0, tilt = 0;
      GetZoom(&zoom);
      GetDZoom(&dzoom);
      GetPan(&pan);
      GetTilt(&tilt);
      if (dzoom == 0) fprintf(gpPatternRecFile, "%d,%d,%d\n", pan, tilt, zoom);
      result = 0;
    }
  }
  pthread_mutex_unlock(&gPatternRecMutex);
  return result;
}

int PatternRecLine(const char* text) {
  pthread_mutex_lock(&gPatternRecMutex);
  int result = -1;
  if (gpPatternRecFile != nullptr) {
    int64_t now = NowMilliseconds();
    WriteDelayLocked(now);
    // A replayed line still carries its line feed: one event, one line.
    int length = (int)strcspn(text, "\r\n");
    fprintf(gpPatternRecFile, "%.*s\n", length, text);
    result = PastRecLimit(now) ? -1 : 0;
  }
  pthread_mutex_unlock(&gPatternRecMutex);
  return result;
}

void PatternRecordEvent(const char* text) {
  if (giPatternRec != 1) return;
  if (PatternRecLine(text) == -1) {
    PatternRecStop();
    giPatternRec = 0;
  }
}

void PatternRecStop() {
  pthread_mutex_lock(&gPatternRecMutex);
  bool stored = false;
  if (giPatternRecId > 0 && gpPatternRecFile != nullptr) {
    WriteDelayLocked(NowMilliseconds());
    fclose(gpPatternRecFile);
    gpPatternRecFile = nullptr;
    char line[kShellLineSize];
    snprintf(line, sizeof line, "cp /tmp/pattern%d.path /mnt/nand/pattern%d.path;sync;sync",
             giPatternRecId, giPatternRecId);
    os_system(line);
    stored = true;
  }
  pthread_mutex_unlock(&gPatternRecMutex);
  if (stored) kvlink_set("ptz.pattern.record_time", "-1");
}

void PatternDelete(int32_t id) {
  char line[kShellLineSize];
  snprintf(line, sizeof line, "rm /mnt/nand/pattern%d.path;sync;sync", id);
  os_system(line);
}

void OnPatternAction(char*, char* value) {
  if (giPatternRun != 0 || value == nullptr) return;
  if (strncmp(value, "rec", 3) == 0) {
    if (PatternRecStart(value) == 0) {
      giPatternRec = 1;
      kvlink_set("ptz.pattern.record_time", "0");
    }
  } else if (strcmp(value, "stop") == 0) {
    PatternRecStop();
    giPatternRec = 0;
  }
}

// Ends the recording; `stopLine` first adds a "stop" for the replay.
static void EndRecording(bool stopLine) {
  if (stopLine) PatternRecLine("stop");
  PatternRecStop();
  giPatternRec = 0;
}

// At rest in run mode 0: one rest line per stop of the head, and the limit.
static void WatchAtRest() {
  if (giPatternRestCount == kRestLineCount) {
    int32_t pan = giPanPos, tilt = giTiltPos, zoom = giLensZoom;
    os_printf("Rec Pattern:save pos of ptz stop P:%d T:%d Z:%d\n", pan, tilt, zoom);
    char line[kBusValueSize];
    snprintf(line, sizeof line, "abs:%d,%d,%d", pan, tilt, zoom);
    PatternRecLine(line);
    os_usleep(500000);
  }
  if (giPatternRestCount < kRestCountTop) giPatternRestCount++;
  if (PastRecLimit(NowMilliseconds())) EndRecording(false);
}

// In motion: the limit, looked at about once a second.
static void WatchInMotion() {
  if (giPatternMoveCount > kMoveClockLook) {
    if (PastRecLimit(NowMilliseconds())) EndRecording(true);
    giPatternMoveCount = 0;
  }
  giPatternMoveCount++;
  giPatternRestCount = 0;
}

void PatternRecordWatch(int32_t moved, int32_t runMode) {
  if (moved == 0 && runMode == kModeIdle) {
    WatchAtRest();
  } else {
    WatchInMotion();
  }
}

void PatternRecordRestReset() { giPatternRestCount = 0; }

// ---- Playback -------------------------------------------------------------------

bool ReadPatternLine(FILE* file, char* buf) {
  int length = 0, seen = 0, c = 0;
  while ((c = getc(file)) != EOF && c != '\n') {
    if (++seen > kPatternLineScan) return false;
    if (length < kPatternLineSize - 2) buf[length++] = (char)c;
  }
  if (c == EOF && seen == 0) return false;
  if (c == '\n') buf[length++] = '\n';
  buf[length] = '\0';
  return true;
}

// Tick time in ms. 64 bits: playback does not stall when the 32-bit
// product would wrap, after 24.8 days of uptime.
static int64_t TickMilliseconds(int32_t now_s, int32_t now_ms) { return (int64_t)now_s * 1000 + now_ms; }

// Whether a first line is a start line "pan,tilt,zoom": a delay line (the
// first line of a recording begun with digital zoom) holds no comma.
static bool IsStartLine(const char* line) {
  return strlen(line) > 4 && strchr(line, ',') != nullptr;
}

// A start that found no pattern: both modes back to idle.
static void StartFailed() {
  giNewMode = kModeIdle;
  giRunMode = kModeIdle;
}

// Moves to the start line's position and sets the first event's time.
static void GoToStart(const char* line, int64_t tickMs) {
  int32_t position[3] = {-1, -1, -1};  // a field that does not read leaves its axis
  ScanIntList(line, ',', position, 3);
  char next[kPatternLineSize];
  int32_t delay = ReadPatternLine(gpPatternFile, next) ? TextToInt(next) : 0;
  if (position[2] < 0) position[2] = 0;
  SetPtStatus(kOwnerPattern, kStatePosition);
  giPresetTarget = 0;
  GoPreset(position[0], position[1], position[2], -1, -1, kStartSpeed);
  os_printf("Start Pattern: P:%d,T:%d,Z:%d Time:%d\n", position[0], position[1], position[2], delay);
  giPatternNextTime = tickMs + delay + kStartLeadMs;
}

// Opens pattern giPatternTarget and goes to its start; false when there is
// no file or it is empty.
static bool StartPlayback(int64_t tickMs) {
  PatternClose();
  char path[kPathSize];
  StoredPath(path, giPatternTarget);
  gpPatternFile = os_fopen(path, "r");
  if (gpPatternFile == nullptr) {
    os_printf("open %s error\n", path);
    StartFailed();
    return false;
  }
  char line[kPatternLineSize];
  if (!ReadPatternLine(gpPatternFile, line)) {
    os_puts("Get Pattern Start data error");
    StartFailed();
    PatternClose();
    return false;
  }
  if (IsStartLine(line)) GoToStart(line, tickMs);
  return true;
}

int32_t PatternStart(int32_t now_s, int32_t now_ms) {
  if (!StartPlayback(TickMilliseconds(now_s, now_ms))) return kModeIdle;
  return giRunMode;
}

void PatternStep(int32_t now_s, int32_t now_ms) {
  int64_t now = TickMilliseconds(now_s, now_ms);
  if (giPatternNextTime > now) return;
  char event[kPatternLineSize], delay[kPatternLineSize];
  if (gpPatternFile != nullptr && ReadPatternLine(gpPatternFile, event) &&
      ReadPatternLine(gpPatternFile, delay)) {
    os_printf("Run Pattern: %s %s\n", event, delay);
    giPatternNextTime = TextToInt(delay) + now;
    OnRunMode(nullptr, event);
    return;
  }
  PatternClose();
  if (!StartPlayback(now)) giPatternRun = 0;
}

void PatternClose() {
  if (gpPatternFile == nullptr) return;
  fclose(gpPatternFile);
  gpPatternFile = nullptr;
}
