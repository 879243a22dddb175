// The daemon in-process against the simulated camera in virtual time, powered on once per suite.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>

#include "core/core.h"
#include "slewd/startup.h"
#include "tours/presets.h"

class DaemonTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    sim::clock_init(sim::ClockMode::Virtual);
    sim::bus_open(":memory:");
    sim::world_init();
    sim::mark_daemon_start();
    pthread_mutex_init(&gPanLimitMutex, nullptr);
    ClearPresets();
  }
  void SetUp() override { Mark(); }
  void Mark() { mark_ = sim::transcript_size(); }
  // Transcript lines since the mark that contain text.
  int Count(const char* text) const {
    int n = 0;
    for (size_t i = mark_; i < sim::transcript_size(); i++) n += strstr(sim::transcript_line(i), text) != nullptr;
    return n;
  }

 private:
  size_t mark_ = 0;
};
