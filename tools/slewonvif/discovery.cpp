// WS-Discovery Probe and ProbeMatches over UDP.
#include "discovery.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <openssl/rand.h>

#include "soap.h"

namespace onvif {
namespace {

constexpr std::string_view kNsDiscovery = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
constexpr std::string_view kNsAddressing = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
constexpr std::string_view kNsNetwork = "http://www.onvif.org/ver10/network/wsdl";
constexpr size_t kMaxDatagram = 8192;  // a Probe is far smaller

// A fresh urn:uuid for a message.
std::string message_uuid() {
  unsigned char b[16];
  if (RAND_bytes(b, sizeof b) != 1) memset(b, 0, sizeof b);
  b[6] = (b[6] & 0x0f) | 0x40;
  b[8] = (b[8] & 0x3f) | 0x80;
  char out[64];
  snprintf(out, sizeof out, "urn:uuid:%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", b[0], b[1],
           b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
  return out;
}

// True when every type the probe asks for is one this device is; an empty list asks for any.
bool types_match(pugi::xml_node types) {
  std::string list = text_of(types);
  size_t i = 0;
  while (i < list.size()) {
    size_t end = list.find_first_of(" \t\r\n", i);
    if (end == std::string::npos) end = list.size();
    std::string qname = list.substr(i, end - i);
    i = end + 1;
    if (qname.empty()) continue;
    size_t colon = qname.find(':');
    std::string local = colon == std::string::npos ? qname : qname.substr(colon + 1);
    std::string prefix = colon == std::string::npos ? "xmlns" : "xmlns:" + qname.substr(0, colon);
    std::string ns;
    for (pugi::xml_node p = types; p && p.type() == pugi::node_element; p = p.parent()) {
      if (p.attribute(prefix.c_str())) {
        ns = p.attribute(prefix.c_str()).value();
        break;
      }
    }
    bool ok = (local == "NetworkVideoTransmitter" && ns == kNsNetwork) || (local == "Device" && ns == kNsDevice);
    if (!ok) return false;
  }
  return true;
}

}  // namespace

bool probe_answer(std::string_view probe, const DiscoveryInfo& info, const std::string& xaddr_host,
                  std::string* answer) {
  Request req;
  Fault fault;
  if (!parse_request(probe, &req, &fault) || req.name != "Probe" || req.ns != kNsDiscovery) return false;
  if (!types_match(child(req.operation, "Types", kNsDiscovery))) return false;
  std::string message_id = text_of(child(req.header, "MessageID", kNsAddressing));
  if (message_id.empty() || message_id.size() > 256) return false;
  std::string scopes = "onvif://www.onvif.org/Profile/Streaming onvif://www.onvif.org/type/ptz "
                       "onvif://www.onvif.org/type/video_encoder onvif://www.onvif.org/name/" + info.name +
                       " onvif://www.onvif.org/hardware/slewd-sim";
  *answer =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
      "<env:Envelope xmlns:env=\"http://www.w3.org/2003/05/soap-envelope\""
      " xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\""
      " xmlns:d=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\""
      " xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\" xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">"
      "<env:Header><wsa:MessageID>" + message_uuid() + "</wsa:MessageID><wsa:RelatesTo>" + escape(message_id) +
      "</wsa:RelatesTo><wsa:To>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</wsa:To>"
      "<wsa:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches</wsa:Action></env:Header>"
      "<env:Body><d:ProbeMatches><d:ProbeMatch><wsa:EndpointReference><wsa:Address>" + escape(info.endpoint_uuid) +
      "</wsa:Address></wsa:EndpointReference><d:Types>dn:NetworkVideoTransmitter tds:Device</d:Types><d:Scopes>" +
      escape(scopes) + "</d:Scopes><d:XAddrs>http://" + escape(xaddr_host) + ":" + std::to_string(info.http_port) +
      "/onvif/device_service</d:XAddrs><d:MetadataVersion>1</d:MetadataVersion></d:ProbeMatch></d:ProbeMatches>"
      "</env:Body></env:Envelope>";
  return true;
}

bool Discovery::open(const std::string& address, int port, std::string* error) {
  fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  int one = 1;
  setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  // The multicast group reaches a socket bound to any address only.
  if (fd_ < 0 || inet_pton(AF_INET, address.c_str(), &a.sin_addr) != 1 ||
      bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    *error = "cannot listen for discovery on " + address + ":" + std::to_string(port) + " (" + strerror(errno) + ")";
    return false;
  }
  socklen_t len = sizeof a;
  getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len);
  port_ = ntohs(a.sin_port);
  address_ = address;
  ip_mreq group{};
  inet_pton(AF_INET, "239.255.255.250", &group.imr_multiaddr);
  group.imr_interface.s_addr = htonl(INADDR_ANY);
  multicast_ = setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) == 0;
  return true;
}

void Discovery::serve(const DiscoveryInfo& info) {
  char buf[kMaxDatagram];
  while (!stopping_) {
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, 200) != 1) continue;
    sockaddr_in from{};
    socklen_t len = sizeof from;
    ssize_t n = recvfrom(fd_, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &len);
    if (n <= 0) continue;
    // The address the sender reaches us on: the bound one, or the one the route to it leaves from.
    std::string host = address_;
    if (host == "0.0.0.0") {
      int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
      sockaddr_in local{};
      socklen_t llen = sizeof local;
      char text[INET_ADDRSTRLEN] = "127.0.0.1";
      if (probe >= 0 && connect(probe, reinterpret_cast<sockaddr*>(&from), sizeof from) == 0 &&
          getsockname(probe, reinterpret_cast<sockaddr*>(&local), &llen) == 0) {
        inet_ntop(AF_INET, &local.sin_addr, text, sizeof text);
      }
      if (probe >= 0) close(probe);
      host = text;
    }
    std::string answer;
    if (probe_answer(std::string_view(buf, static_cast<size_t>(n)), info, host, &answer)) {
      sendto(fd_, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&from), len);
    }
  }
}

void Discovery::stop() { stopping_ = true; }

}  // namespace onvif
