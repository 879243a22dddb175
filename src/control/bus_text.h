// Reading and writing bus values: bounded conversions of the value forms
// that the listeners and the command language share.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr int kBusValueSize = 128;  // 127 characters and the NUL

// Decimal integer from the start of the text, as atoi reads it (leading
// blanks, a sign, digits; 0 without a digit). Out-of-range values saturate
// at the int32 bounds instead of overflowing.
int32_t TextToInt(const char* text);
// Reads one decimal integer at text as TextToInt does, into *out; returns
// the character behind it, or nullptr (and *out untouched) without a digit.
const char* ScanInt(const char* text, int32_t* out);
// Reads up to `count` integers separated by `separator` ("%d,%d,%d" of
// scanf); returns how many were read. Outputs past the last one read are
// left untouched.
int ScanIntList(const char* text, char separator, int32_t* out, int count);
// Wraps a wide intermediate back to 32 bits, as the 32-bit arithmetic does.
inline int32_t Wrap32(int64_t value) { return (int32_t)(uint32_t)(uint64_t)value; }
// Truncates towards zero into int32; NaN reads 0 and the rest saturates.
int32_t TruncToInt32(double value);
// One more tick on a counter that runs while the head rests; it stops at
// INT32_MAX instead of overflowing, so years of uptime leave it there.
void CountTick(int32_t* counter);
// 1 if the text is exactly "on", else 0.
int32_t TextOnOff(const char* text);
// Zeroes buf (kBusValueSize bytes) and reads key into it.
void BusRead(const char* key, char* buf);
// Writes a decimal integer to key.
void BusWriteInt(const char* key, int32_t value);
// Whole seconds of the raw monotonic clock, low 32 bits, signed.
int32_t NowSeconds();
// Milliseconds of the raw monotonic clock: seconds x 1000 + ns / 1000000.
int64_t NowMilliseconds();
// Bounded copy that always terminates dst (size bytes).
void CopyText(char* dst, size_t size, const char* src);
