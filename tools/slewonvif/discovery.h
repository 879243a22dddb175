// WS-Discovery: answers a Probe for a network video transmitter with a
// ProbeMatches sent back to the sender by unicast.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

namespace onvif {

// What a ProbeMatches tells about the camera.
struct DiscoveryInfo {
  std::string endpoint_uuid;  // urn:uuid:..., stable across restarts
  std::string name;           // for the name scope
  int http_port = 8000;       // where the device service answers
};

// The ProbeMatches answering probe (a SOAP envelope), with xaddr_host in
// the XAddrs; false when probe is no Probe we answer (wrong types, malformed).
bool probe_answer(std::string_view probe, const DiscoveryInfo& info, const std::string& xaddr_host,
                  std::string* answer);

// A UDP socket that answers Probes until stop().
class Discovery {
 public:
  // Binds address:port (port 0: any free port); joins the discovery
  // multicast group when the machine allows it. False with a reason.
  bool open(const std::string& address, int port, std::string* error);
  int port() const { return port_; }
  bool multicast() const { return multicast_; }
  // Answers Probes until stop() is called.
  void serve(const DiscoveryInfo& info);
  void stop();

 private:
  int fd_ = -1;
  int port_ = 0;
  bool multicast_ = false;
  std::string address_;
  std::atomic<bool> stopping_{false};
};

}  // namespace onvif
