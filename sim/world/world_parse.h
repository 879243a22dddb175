// Strict readers of the texts that knobs and bus commands carry. Each returns
// false, leaving *out untouched, on anything but a clean value.
#pragma once

#include <cstdint>

namespace sim {

// Decimal integer with optional sign, in int range.
bool parse_int(const char* text, int* out);
// Non-negative finite decimal number, fractions allowed.
bool parse_decimal(const char* text, double* out);
// Non-negative decimal number of seconds, fractions allowed; returns ns.
bool parse_seconds(const char* text, int64_t* out_ns);
// "YYYY-MM-DD HH:MM:SS" taken as UTC; returns seconds since the epoch.
bool parse_utc_time(const char* text, int64_t* out_epoch);

}  // namespace sim
