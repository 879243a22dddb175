// The rules an HTTP request must meet before slewweb acts on it: it names
// the address slewweb serves (no DNS rebinding), and one that writes is a
// POST with a JSON body from the page's own origin.
#pragma once

#include <string>
#include <string_view>

namespace slewweb {

// Where slewweb listens.
struct ServedAddress {
  std::string host = "127.0.0.1";  // a literal IPv4 address
  int port = 8080;  // 0 until bound when any free port was asked for
};

// Parses "ADDR:PORT", "ADDR" or ":PORT" over the default 127.0.0.1:8080;
// port 0 asks for any free port.
// False with a reason for anything else, and for 0.0.0.0, which has no name
// the Host check could hold requests to.
bool parse_listen(std::string_view text, ServedAddress* out, std::string* error);

// True when a Host header names the served address: "ADDR:PORT", and also
// "localhost:PORT" when ADDR is a loopback address.
bool host_allowed(const ServedAddress& served, std::string_view host);

// True when an Origin header is the page's own (http:// and an allowed Host).
bool origin_allowed(const ServedAddress& served, std::string_view origin);

// True for a Content-Type of application/json, with or without parameters.
bool json_content_type(std::string_view content_type);

// True for the bus keys the page may write.
bool key_writable(std::string_view key);

}  // namespace slewweb
