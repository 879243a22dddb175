// Fuzz target: arbitrary file contents for the S-record loader of the
// firmware update. Whatever the input, the load stays inside the image
// buffer and either loads below the image bound or loads nothing.
#include <cstddef>
#include <cstdint>
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
  if (size == 0) return 0;
  FILE* fp = fmemopen(const_cast<uint8_t*>(data), size, "r");
  if (fp == nullptr) return 0;
  memset(gFwImage, 0xff, sizeof gFwImage);
  int n = LoadFWRecords(fp, gFwImage);
  fclose(fp);
  if (n < 0 || n >= kFwImageMax) abort();
  return 0;
}
