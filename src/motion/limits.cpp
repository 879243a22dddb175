// Soft limits. The pan limit runs under the one mutex of the process, since
// the loop and fifteen listeners call it; the limit rules land with the
// soft-limit work.
#include "motion/limits.h"

#include <pthread.h>

#include "slewd/startup.h"

void ApplyTiltLimit() {}

void ApplyPanLimit(int32_t) {
  pthread_mutex_lock(&gPanLimitMutex);
  pthread_mutex_unlock(&gPanLimitMutex);
}

void SetLimitHere(const char*) {}
