// The bus library as the daemon calls it, on top of the simulated bus.
//
// Decision: kvlink_set of a value over 127 characters stores its first 127
// characters (the daemon's buffers hold 128 bytes with the NUL, so nothing
// it writes is refused for its length).
#include <cstring>

#include "bus/bus_extra.h"
#include "core/core.h"
#include "platform/kvlink.h"

extern "C" {

int kvlink_initial(void) {
  sim::PlatformCall in;
  sim::trace_call(false, "kvlink_initial()");
  return 0;
}

int kvlink_get(const char* key, char* buf, int len) {
  sim::PlatformCall in;
  if (key == nullptr) return -1;
  sim::trace_call(true, "kvlink_get(%s)", key);
  if (buf == nullptr || len <= 0) return -1;
  return sim::bus_read(key, buf, static_cast<size_t>(len)) ? 0 : -1;
}

int kvlink_set(const char* key, const char* value) {
  sim::PlatformCall in;
  if (key == nullptr || value == nullptr) return -1;
  char cut[sim::kValueMax + 1];
  if (strnlen(value, sizeof cut) > static_cast<size_t>(sim::kValueMax)) {
    memcpy(cut, value, sim::kValueMax);
    cut[sim::kValueMax] = '\0';
    value = cut;
  }
  return sim::bus_write(sim::Origin::Daemon, key, value);
}

int kvlink_listen(const char* key, KvlinkCallback callback) {
  sim::PlatformCall in;
  sim::trace_call(false, "kvlink_listen(%s)", key != nullptr ? key : "");
  return sim::bus_listen(key, callback);
}

int kvlink_get_name(const char* key, int index, char* buf, int len) {
  sim::PlatformCall in;
  if (key == nullptr) return -1;
  sim::trace_call(true, "kvlink_get_name(%s,%d)", key, index);
  if (buf == nullptr || len <= 0) return -1;
  return sim::bus_list_name(key, index, buf, static_cast<size_t>(len)) ? 0 : -1;
}

int kvlink_restore_default(const char* key) {
  sim::PlatformCall in;
  sim::trace_call(false, "kvlink_restore_default(%s)", key != nullptr ? key : "");
  return sim::bus_restore_default(key);
}

int kvlink_log(int facility, int level, const char* host, const char* message) {
  sim::PlatformCall in;
  (void)facility;
  (void)level;
  (void)host;
  if (message == nullptr) return -1;
  // One transcript line: a trailing line feed of the message is dropped.
  size_t len = strlen(message);
  while (len > 0 && message[len - 1] == '\n') --len;
  sim::trace(sim::Kind::Log, "%.*s", static_cast<int>(len), message);
  return 0;
}

}
