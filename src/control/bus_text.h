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
// 1 if the text is exactly "on", else 0.
int32_t TextOnOff(const char* text);
// Zeroes buf (kBusValueSize bytes) and reads key into it.
void BusRead(const char* key, char* buf);
// Writes a decimal integer to key.
void BusWriteInt(const char* key, int32_t value);
// Whole seconds of the raw monotonic clock, low 32 bits, signed.
int32_t NowSeconds();
// Bounded copy that always terminates dst (size bytes).
void CopyText(char* dst, size_t size, const char* src);
