// Fuzz target: arbitrary file contents for the firmware update's S-record
// loader: it loads below the image bound or nothing, inside the buffer.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "mechanism/firmware_update.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  sim::clock_init(sim::ClockMode::Virtual);
  sim::transcript_keep(false);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FILE* fp = size == 0 ? nullptr : fmemopen(const_cast<uint8_t*>(data), size, "r");
  if (fp == nullptr) return 0;
  memset(gFwImage, 0xff, sizeof gFwImage);
  int n = LoadFWRecords(fp, gFwImage);
  fclose(fp);
  if (n < 0 || n >= kFwImageMax) abort();
  return 0;
}
