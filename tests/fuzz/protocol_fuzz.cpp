// Fuzz target: the bus socket's line reader and value unescaping; whatever
// unescapes must escape and unescape back to itself.
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "bus/bus_protocol.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

static void CheckValue(const std::string& wire) {
  std::string text, again;
  if (!sim::proto_unescape(wire, &text)) return;
  if (!sim::proto_unescape(sim::proto_escape(text), &again) || again != text) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int fds[2];
  if (size > 60000 || pipe(fds) != 0) return 0;
  if (write(fds[1], data, size) != static_cast<ssize_t>(size)) abort();
  close(fds[1]);
  sim::LineReader reader(fds[0]);
  for (std::string line; reader.next(&line);) {
    if (line.size() > sim::kProtoLineMax) abort();
    CheckValue(line);
  }
  close(fds[0]);
  CheckValue(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
