// The operating system as the daemon sees it. On the camera these are thin
// wrappers of libc; the simulated camera provides its own.
#pragma once

#include <pthread.h>

#include <cstdio>
#include <ctime>

extern "C" {

// Sleeping.
int os_usleep(unsigned int usec);
unsigned int os_sleep(unsigned int sec);

// Clocks: the raw monotonic clock, and local wall-clock time.
int os_clock_raw(struct timespec* ts);
time_t os_time(void);
struct tm* os_localtime(const time_t* t, struct tm* out);

// The daemon's one mutex, as pthread_mutex_lock and unlock: the camera
// knows while the daemon holds it.
int os_mutex_lock(pthread_mutex_t* mutex);
int os_mutex_unlock(pthread_mutex_t* mutex);

// Shell lines, run as `system` would.
int os_system(const char* line);

// The program's files, by their paths on the camera.
FILE* os_fopen(const char* path, const char* mode);
int os_open(const char* path, int flags);

// Console output: every line the daemon prints goes through these.
int os_printf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
int os_puts(const char* text);

// Process control.
typedef void (*OsSignalHandler)(int signo);
void os_signal(int signo, OsSignalHandler handler);
[[noreturn]] void os_exit(int status);

}
