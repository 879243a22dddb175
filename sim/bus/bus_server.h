// The bus socket of the real-time camera: other processes (slewctl) get, set,
// list and watch keys over the line protocol of bus_protocol.h.
#pragma once

#include <string>

namespace sim {

// Binds the Unix socket at path, replacing a stale socket file but never
// one another process answers on. Clients wait until bus_server_start.
// 0, or -1 with a one-line reason in *error.
int bus_server_listen(const std::string& path, std::string* error);
// Serves the bound socket on threads of its own. 0, or -1 with *error.
int bus_server_start(std::string* error);
// Closes the socket and every connection, joins the threads, removes the
// file (as after a listen alone).
void bus_server_stop();
// Removes the socket file only: the process is ending without a stop.
// A socket file that is no longer this process's own stays.
void bus_server_unlink();

}  // namespace sim
