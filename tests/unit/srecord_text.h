// S-record text of a byte image and the CRC the controller should end with.
#pragma once

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace srec {

// S3 records of perRecord data bytes each, addresses from 0x08000000, with
// an S0 header and an S7 trailer.
inline std::string Records(const std::vector<uint8_t>& data, size_t perRecord = 32) {
  std::string text = "S00F000068656C6C6F202020202000003C\n";
  char hex[3];
  for (size_t at = 0; at < data.size(); at += perRecord) {
    size_t count = std::min(data.size() - at, perRecord);
    uint32_t addr = 0x08000000u + static_cast<uint32_t>(at);
    std::vector<uint8_t> body{uint8_t(count + 5), uint8_t(addr >> 24), uint8_t(addr >> 16), uint8_t(addr >> 8),
                              uint8_t(addr)};
    body.insert(body.end(), data.begin() + long(at), data.begin() + long(at + count));
    uint8_t sum = 0;
    for (uint8_t b : body) sum = uint8_t(sum + b);
    body.push_back(uint8_t(~sum));
    text += "S3";
    for (uint8_t b : body) text += (snprintf(hex, sizeof hex, "%02X", b), hex);
    text += '\n';
  }
  return text + "S70508000000F2\n";
}

// n bytes of a pattern that differs from frame to frame.
inline std::vector<uint8_t> Pattern(size_t n) {
  std::vector<uint8_t> data(n);
  for (size_t i = 0; i < n; i++) data[i] = static_cast<uint8_t>(i * 31 + i / 240);
  return data;
}

// CRC-32 of the image filled with 0xFF to whole frames of 240, as the controller reports it.
inline std::string Crc(std::vector<uint8_t> data) {
  data.resize((data.size() + 239) / 240 * 240, 0xff);
  char text[9];
  snprintf(text, sizeof text, "%08lx", crc32(0L, data.data(), static_cast<uInt>(data.size())));
  return text;
}

}  // namespace srec
