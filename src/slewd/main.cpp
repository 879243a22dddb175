// slewd_main: signals, bus, command line, loading, listeners, main loop.
#include <csignal>
#include <cstring>

#include "control/bus_text.h"
#include "control/listeners.h"
#include "mechanism/firmware_update.h"
#include "platform/camstate.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "slewd/slewd.h"
#include "slewd/startup.h"
#include "tours/patrol.h"

static constexpr int kTestCycles = 100;

// One half of a `test` cycle: write c to both controllers, read it back.
static void TestRegisterValue(int value, int delay) {
  SetTorvanPanPID(0x10, 0x2a, value);
  SetTorvanTiltPID(0x10, 0x2a, value);
  os_usleep(delay);
  int a = 0, b = 0;
  GetTorvanPanPID(0x40, &a, &b);
  if (b != value) os_printf("Pan:%x %x\n", a, b);
  GetTorvanTiltPID(0x40, &a, &b);
  if (b != value) os_printf("Tilt:%x %x\n", a, b);
  os_usleep(delay);
}

// `test`: register write and read-back, 100 cycles.
static void RegisterTest(const char* delayText) {
  int delay = delayText != nullptr ? TextToInt(delayText) : 1000;
  os_printf("Delay %d\n", delay);
  for (int cycle = 0; cycle < kTestCycles; cycle++) {
    TestRegisterValue(0xfa, delay);
    TestRegisterValue(0xf0, delay);
  }
}

// `limit`: the factory tilt limits, -20 to about 90 degrees.
static void FactoryTiltLimit() {
  TiltLimitEn(0);
  os_sleep(1);
  TiltLimit(0x4fa, 0x5331);
  TiltLimitEn(1);
}

// The one-shot words of the command line. Returns true when the process is
// to end here.
static bool RunCommandWord(int argc, char** argv) {
  const char* word = argv[1];
  const char* arg = argc > 2 ? argv[2] : nullptr;
  if (strcmp(word, "pan") == 0 || strcmp(word, "tilt") == 0) {
    bool pan = word[0] == 'p';
    os_puts(pan ? "Set Pan init parameter...." : "Set Tilt init parameter....");
    pan ? PanInitParam() : TiltInitParam();
    os_puts("done");
    Release_I2C();
    return true;
  }
  if (strcmp(word, "spddry") == 0) {
    static const char* const kVariants[] = {"0", "1", "2", "3"};
    for (int variant = 0; arg != nullptr && variant < 4; variant++) {
      if (strcmp(arg, kVariants[variant]) == 0) giSpdDryMode = variant;
    }
    return false;
  }
  if (strcmp(word, "updatep") == 0 || strcmp(word, "updatet") == 0) {
    if (arg != nullptr) McuUpdate(word[6] == 'p' ? 0x28 : 0x29, arg);
    return true;
  }
  if (strcmp(word, "test") == 0) {
    RegisterTest(arg);
    return true;
  }
  if (strcmp(word, "limit") == 0) {
    FactoryTiltLimit();
    return true;
  }
  return false;
}

int slewd_main(int argc, char** argv) {
  os_signal(SIGINT, OnSignal);
  os_signal(SIGQUIT, OnSignal);
  os_signal(SIGTERM, OnSignal);
  pthread_mutex_init(&gPanLimitMutex, nullptr);
  kvlink_initial();
  PTZShmInit();
  char brand[64] = {};
  kvlink_get("system.info.manufacturer", brand, sizeof brand);
  brand[sizeof brand - 1] = '\0';
  if (strcmp(brand, "ORVEX") == 0) giBrandMatch = 1;
  if (argc > 1) {
    os_puts("init i2c");
    Init_I2C();
    if (RunCommandWord(argc, argv)) return 0;
  }
  os_printf("spddry mode is :%d\n", giSpdDryMode);
  LoadLensGeometry();
  LoadAllPresets();
  LoadPatrol();
  RegisterListeners();
  main_loop();
  Release_I2C();
  return 0;
}
