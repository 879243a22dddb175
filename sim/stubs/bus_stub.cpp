// TEMPORARY stub of the bus piece; deleted when bus.cpp lands.
#include "core.h"
#include <cstring>
namespace sim {
int bus_open(const char*) { return 0; }
void bus_close() {}
int bus_put(const char*, const char*) { return 0; }
int bus_write(Origin, const char*, const char*) { return 0; }
bool bus_read(const char*, char* out, size_t len) { if (len) out[0] = 0; return false; }
void bus_deliver_pending() {}
bool bus_has_pending() { return false; }
void bus_visit(const char*, BusVisitor, void*) {}
bool bus_key_valid(const char* key) { return key && *key && strlen(key) <= 127; }
static char g_root[512] = "/tmp";
void sandbox_set_root(const char* root) { strncpy(g_root, root, sizeof g_root - 1); }
const char* sandbox_root() { return g_root; }
void sandbox_path(const char* p, char* out, size_t len) { snprintf(out, len, "%s%s", g_root, p); }
}
