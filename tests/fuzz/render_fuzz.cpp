// Fuzz target: the bus values a frame is drawn from, one write a line: the first
// byte picks the key, the rest (at most 127 characters) is the value.
#include <cstdint>
#include <map>
#include <string>

#include "render/scene.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto& keys = render::view_keys();
  std::map<std::string, std::string> bus;
  for (size_t at = 0, end = 0; at < size; at = end + 1) {
    for (end = at; end < size && data[end] != '\n';) ++end;
    if (end == at) continue;
    std::string value(reinterpret_cast<const char*>(data) + at + 1, std::min<size_t>(end - at - 1, 127));
    bus[keys[data[at] % keys.size()]] = value.substr(0, value.find('\0'));
  }
  render::HeadView head = render::head_view(bus);
  head.no_head = size % 2 == 1;
  render::Frame frame;
  render::render_frame(head, 64, 36, &frame);
  return 0;
}
