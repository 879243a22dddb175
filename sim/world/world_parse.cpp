// Strict text readers for knobs, lens commands and shell arguments.
#include "world/world_parse.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace sim {

bool parse_int(const char* text, int* out) {
  if (!text || !*text) return false;
  char* end = nullptr;
  errno = 0;
  long long v = strtoll(text, &end, 10);
  if (errno || *end || end == text || v < INT_MIN || v > INT_MAX) return false;
  *out = static_cast<int>(v);
  return true;
}

bool parse_decimal(const char* text, double* out) {
  if (!text || !*text) return false;
  char* end = nullptr;
  double v = strtod(text, &end);
  if (*end || end == text || !std::isfinite(v) || v < 0) return false;
  *out = v;
  return true;
}

bool parse_seconds(const char* text, int64_t* out_ns) {
  if (!text || !*text) return false;
  char* end = nullptr;
  double s = strtod(text, &end);
  // Up to a year: long enough for any test, far from overflow.
  if (*end || end == text || !std::isfinite(s) || s < 0 || s > 3.2e7) return false;
  *out_ns = std::llround(s * 1e9);
  return true;
}

bool parse_utc_time(const char* text, int64_t* out_epoch) {
  if (!text) return false;
  struct tm tm = {};
  int n = 0;
  if (sscanf(text, "%4d-%2d-%2d %2d:%2d:%2d%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour,
             &tm.tm_min, &tm.tm_sec, &n) != 6 || text[n] != '\0')
    return false;
  if (tm.tm_year < 1970 || tm.tm_mon < 1 || tm.tm_mon > 12 || tm.tm_mday < 1 || tm.tm_mday > 31 ||
      tm.tm_hour > 23 || tm.tm_min > 59 || tm.tm_sec > 60)
    return false;
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  *out_epoch = static_cast<int64_t>(timegm(&tm));
  return true;
}

}  // namespace sim
