// Host, Origin and body checks of slewweb's requests.
#include "request_guard.h"

#include <arpa/inet.h>

#include <cctype>
#include <charconv>

namespace slewweb {
namespace {

// The keys the page writes: commands, click-to-centre, lens, pattern
// recording and the simulated person.
constexpr std::string_view kWritable[] = {"ptz.run_mode", "ptz.preset.view_move",
                                          "ptz.lens.manual.zoom", "ptz.pattern.action",
                                          "sim.person"};

// Lower-case copy of an ASCII text (host names compare without case).
std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

// True for 127.0.0.0/8.
bool loopback(const std::string& host) {
  in_addr a{};
  return inet_pton(AF_INET, host.c_str(), &a) == 1 && (ntohl(a.s_addr) >> 24) == 127;
}

}  // namespace

bool parse_listen(std::string_view text, ServedAddress* out, std::string* error) {
  ServedAddress served;
  size_t colon = text.rfind(':');
  std::string_view host = colon == std::string_view::npos ? text : text.substr(0, colon);
  if (!host.empty()) served.host = std::string(host);
  if (colon != std::string_view::npos) {
    std::string_view port = text.substr(colon + 1);
    int value = 0;
    auto [end, ec] = std::from_chars(port.data(), port.data() + port.size(), value);
    if (port.empty() || ec != std::errc() || end != port.data() + port.size() || value < 0 ||
        value > 65535) {
      *error = "bad port in \"" + std::string(text) + "\" (0 to 65535)";
      return false;
    }
    served.port = value;
  }
  in_addr a{};
  if (inet_pton(AF_INET, served.host.c_str(), &a) != 1) {
    *error = "bad address \"" + served.host + "\" (an IPv4 address such as 127.0.0.1)";
    return false;
  }
  if (a.s_addr == htonl(INADDR_ANY)) {
    *error = "0.0.0.0 has no name to check the Host of requests against; give one address";
    return false;
  }
  *out = served;
  return true;
}

bool host_allowed(const ServedAddress& served, std::string_view host) {
  std::string port = ":" + std::to_string(served.port);
  std::string h = lower(host);
  if (h == served.host + port) return true;
  return loopback(served.host) && h == "localhost" + port;
}

bool origin_allowed(const ServedAddress& served, std::string_view origin) {
  constexpr std::string_view kScheme = "http://";
  if (origin.substr(0, kScheme.size()) != kScheme) return false;
  return host_allowed(served, origin.substr(kScheme.size()));
}

bool json_content_type(std::string_view content_type) {
  std::string type = lower(content_type.substr(0, content_type.find(';')));
  while (!type.empty() && type.back() == ' ') type.pop_back();
  return type == "application/json";
}

bool key_writable(std::string_view key) {
  for (std::string_view k : kWritable) {
    if (k == key) return true;
  }
  return false;
}

}  // namespace slewweb
