// The bus socket of the real-time camera: other processes (slewctl) get, set,
// list and watch keys over the line protocol of bus_protocol.h.
#pragma once

#include <string>

namespace sim {

// Serves the Unix socket at path on threads of its own, replacing a stale
// socket file. 0, or -1 with a one-line reason in *error.
int bus_server_start(const std::string& path, std::string* error);
// Closes the socket and every connection, joins the threads, removes the file.
void bus_server_stop();
// Removes the socket file only: the process is ending without a stop.
void bus_server_unlink();

}  // namespace sim
