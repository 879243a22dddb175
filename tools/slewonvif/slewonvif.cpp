// slewonvif: serves ONVIF (device, media, PTZ over SOAP 1.2, and discovery)
// for the head of a running slewd, as a client of its bus. The state folder
// is $SLEWD_STATE, else $HOME/.local/state/slewd.
#include <arpa/inet.h>
#include <openssl/evp.h>
#include <pthread.h>
#include <signal.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "auth.h"
#include "bus/bus_protocol.h"
#include "bus_link.h"
#include "discovery.h"
#include "head_state.h"
#include "onvif_server.h"
#include "service.h"

namespace {

constexpr const char* kUsage =
    "usage: slewonvif [options]\n"
    "  --listen ADDR:PORT     serve ONVIF on ADDR:PORT (default 127.0.0.1:8000; port 0: any free port)\n"
    "  --discovery-port N     answer WS-Discovery probes on UDP port N (default 3702; 0: any free port)\n"
    "  --rtsp-port N          slewvideo's RTSP port, for stream addresses (default 8554)\n"
    "  --snapshot-port N      slewvideo's HTTP port, for snapshot addresses (default 8081)\n"
    "  --video-size WxH       the picture slewvideo serves (default 640x360)\n"
    "  --fps N                its frame rate (default 15)\n"
    "  --user NAME            the user name (default admin)\n"
    "  --password-file FILE   take the password from FILE's first line instead of the state folder\n"
    "  -h, --help             this text\n"
    "On first start, without --password-file, a random password is made, stored in the\n"
    "state folder (onvif-credentials) and printed once. See docs/onvif.md and man slewonvif.\n";

// The command line.
struct Options {
  std::string host = "127.0.0.1";
  int port = 8000;
  int discovery_port = 3702;
  std::string user = "admin";
  std::string password_file;
  onvif::ServiceConfig config;
};

// A whole decimal number in lo..hi; false otherwise.
bool whole(const char* text, int lo, int hi, int* out) {
  std::string_view t(text);
  int v = 0;
  auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
  if (t.empty() || ec != std::errc() || end != t.data() + t.size() || v < lo || v > hi) return false;
  *out = v;
  return true;
}

// Reads "ADDR:PORT" into the options; false when it is not that.
bool parse_listen(const std::string& text, Options* o) {
  size_t colon = text.rfind(':');
  if (colon == std::string::npos) return false;
  in_addr a{};
  o->host = text.substr(0, colon);
  return inet_pton(AF_INET, o->host.c_str(), &a) == 1 && whole(text.c_str() + colon + 1, 0, 65535, &o->port);
}

// Reads the command line; false after a usage line (status says the exit).
bool parse_args(int argc, char** argv, Options* o, int* status) {
  *status = 2;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "-h" || a == "--help") {
      fputs(kUsage, stdout);
      *status = 0;
      return false;
    }
    if (i + 1 >= argc) {
      fprintf(stderr, "slewonvif: unknown argument or missing value: %s\n%s", a.c_str(), kUsage);
      return false;
    }
    const char* v = argv[++i];
    int w = 0, h = 0;
    bool ok = true;
    if (a == "--listen") ok = parse_listen(v, o);
    else if (a == "--discovery-port") ok = whole(v, 0, 65535, &o->discovery_port);
    else if (a == "--rtsp-port") ok = whole(v, 1, 65535, &o->config.rtsp_port);
    else if (a == "--snapshot-port") ok = whole(v, 1, 65535, &o->config.snapshot_port);
    else if (a == "--fps") ok = whole(v, 1, 60, &o->config.fps);
    else if (a == "--user") ok = (o->user = v, !o->user.empty() && o->user.size() <= 64 && o->user.find(':') == std::string::npos);
    else if (a == "--password-file") o->password_file = v;
    else if (a == "--video-size") {
      ok = sscanf(v, "%dx%d", &w, &h) == 2 && w >= 16 && w <= 7680 && h >= 16 && h <= 4320;
      o->config.width = w, o->config.height = h;
    } else {
      fprintf(stderr, "slewonvif: unknown argument %s\n%s", a.c_str(), kUsage);
      return false;
    }
    if (!ok) {
      fprintf(stderr, "slewonvif: bad value for %s: \"%s\" (see --help)\n", a.c_str(), v);
      return false;
    }
  }
  return true;
}

// A urn:uuid that stays the same for one state folder.
std::string folder_uuid(const std::string& folder) {
  unsigned char h[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  EVP_Digest(folder.data(), folder.size(), h, &n, EVP_sha1(), nullptr);
  h[6] = (h[6] & 0x0f) | 0x50;
  h[8] = (h[8] & 0x3f) | 0x80;
  char out[64];
  snprintf(out, sizeof out, "urn:uuid:%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", h[0], h[1],
           h[2], h[3], h[4], h[5], h[6], h[7], h[8], h[9], h[10], h[11], h[12], h[13], h[14], h[15]);
  return out;
}

// Fills the credentials from --password-file or the state folder; false after an error line.
bool credentials(const Options& o, const std::string& state, onvif::Credentials* creds) {
  std::string error;
  creds->user = o.user;
  if (!o.password_file.empty()) {
    if (onvif::read_password_file(o.password_file, &creds->password, &error)) return true;
  } else {
    bool created = false;
    if (onvif::load_or_create_credentials(state, o.user, creds, &created, &error)) {
      if (created) {
        printf("slewonvif: first start: user %s, password %s (stored in %s/onvif-credentials; shown only now)\n",
               creds->user.c_str(), creds->password.c_str(), state.c_str());
      }
      return true;
    }
  }
  fprintf(stderr, "slewonvif: %s\n", error.c_str());
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  int status = 0;
  if (!parse_args(argc, argv, &o, &status)) return status;
  std::string state, error;
  if (!buslink::tool_state_folder("slewonvif", &state)) return 3;
  onvif::Credentials creds;
  if (!credentials(o, state, &creds)) return 1;

  // SIGINT and SIGTERM are taken by one thread, which ends the servers in order.
  sigset_t stop_signals = buslink::block_stop_signals();

  char hostname[256] = "slewd-camera";
  gethostname(hostname, sizeof hostname - 1);
  o.config.device_uuid = folder_uuid(state);
  o.config.hostname = hostname;
  buslink::BusLink link(state);
  onvif::LinkBus bus(link);
  onvif::HeadState head;
  onvif::Authenticator auth(creds);
  onvif::Service service(o.config, bus, head, auth);
  onvif::OnvifServer server(service);
  onvif::Discovery discovery;
  if (!server.bind(o.host, o.port, &error) || !discovery.open(o.host == "127.0.0.1" ? o.host : "0.0.0.0",
                                                             o.discovery_port, &error)) {
    fprintf(stderr, "slewonvif: %s\n", error.c_str());
    return 1;
  }
  onvif::DiscoveryInfo info{o.config.device_uuid, hostname, server.port()};

  std::thread watcher([&] {
    link.watch([&](const std::string& key, const std::string& value) { head.on_change(key, value, onvif::Clock::now()); },
               [&](bool up) {
                 std::map<std::string, std::string> keys;
                 std::string why;
                 if (up) link.list("ptz.", &keys, &why);
                 head.on_link(up, keys, onvif::Clock::now());
               });
  });
  std::thread prober([&] { discovery.serve(info); });
  std::thread stopper([&] {
    int signo = 0;
    sigwait(&stop_signals, &signo);
    link.stop();
    discovery.stop();
    server.stop();
  });

  printf("slewonvif: serving http://%s:%d/onvif/device_service for the slewd of %s\n", o.host.c_str(), server.port(),
         state.c_str());
  printf("discovery udp %s:%d%s\n", o.host == "127.0.0.1" ? "127.0.0.1" : "0.0.0.0", discovery.port(),
         discovery.multicast() ? " (multicast 239.255.255.250)" : "");
  fflush(stdout);
  server.serve();
  link.stop();
  discovery.stop();
  watcher.join();
  prober.join();
  pthread_kill(stopper.native_handle(), SIGTERM);
  stopper.join();
  return 0;
}
