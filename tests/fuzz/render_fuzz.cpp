// Fuzz target: the bus values a frame is drawn from. Each line of the input
// is one write: its first byte picks one of the keys a frame shows, the rest
// (cut to a bus value of at most 127 characters) is the value. The head view
// is built from them and drawn small; numbers of any size, none at all, or
// text where a number belongs must give a picture, not a fault.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "render/scene.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto& keys = render::view_keys();
  std::map<std::string, std::string> bus;
  size_t at = 0;
  while (at < size) {
    size_t end = at;
    while (end < size && data[end] != '\n') ++end;
    if (end > at) {
      std::string value(reinterpret_cast<const char*>(data) + at + 1, std::min<size_t>(end - at - 1, 127));
      bus[keys[data[at] % keys.size()]] = value.substr(0, value.find('\0'));
    }
    at = end + 1;
  }
  render::HeadView head = render::head_view(bus);
  head.no_head = size % 2 == 1;
  render::Frame frame;
  render::render_frame(head, 64, 36, &frame);
  return 0;
}
