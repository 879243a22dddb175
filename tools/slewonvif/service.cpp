// Dispatch of a request on the first element of its Body, authentication,
// and the ContinuousMove timer.
#include "service.h"

#include <cctype>

namespace onvif {
namespace {

// One operation: its namespace and name, whether it changes something (a
// reused token is refused for those), whether it needs credentials.
struct Operation {
  std::string_view ns;
  std::string_view name;
  Service::Handler handler;
  bool changes;
  bool open;  // served without credentials
};

// True when a Host header is a plain host[:port] we may echo into addresses.
bool host_usable(std::string_view host) {
  if (host.empty() || host.size() > 255) return false;
  for (char c : host) {
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == ':' || c == '[' || c == ']')) {
      return false;
    }
  }
  return true;
}

// HOST without its port ("[::1]:8000" -> "[::1]", "cam:8000" -> "cam").
std::string host_only(std::string_view host) {
  if (!host.empty() && host[0] == '[') return std::string(host.substr(0, host.find(']') + 1));
  return std::string(host.substr(0, host.find(':')));
}

}  // namespace

// Every operation served.
static const Operation kOperations[] = {
    {kNsDevice, "GetSystemDateAndTime", &Service::get_system_date_and_time, false, true},
    {kNsDevice, "GetDeviceInformation", &Service::get_device_information, false, false},
    {kNsDevice, "GetCapabilities", &Service::get_capabilities, false, false},
    {kNsDevice, "GetServices", &Service::get_services, false, false},
    {kNsDevice, "GetScopes", &Service::get_scopes, false, false},
    {kNsDevice, "GetHostname", &Service::get_hostname, false, false},
    {kNsDevice, "GetNetworkInterfaces", &Service::get_network_interfaces, false, false},
    {kNsMedia, "GetProfiles", &Service::get_profiles, false, false},
    {kNsMedia, "GetProfile", &Service::get_profile, false, false},
    {kNsMedia, "GetVideoSources", &Service::get_video_sources, false, false},
    {kNsMedia, "GetVideoSourceConfigurations", &Service::get_video_source_configurations, false, false},
    {kNsMedia, "GetVideoEncoderConfigurations", &Service::get_video_encoder_configurations, false, false},
    {kNsMedia, "GetStreamUri", &Service::get_stream_uri, false, false},
    {kNsMedia, "GetSnapshotUri", &Service::get_snapshot_uri, false, false},
    {kNsMedia2, "GetProfiles", &Service::get_profiles2, false, false},
    {kNsMedia2, "GetStreamUri", &Service::get_stream_uri2, false, false},
    {kNsMedia2, "GetSnapshotUri", &Service::get_snapshot_uri2, false, false},
    {kNsPtz, "GetServiceCapabilities", &Service::ptz_service_capabilities, false, false},
    {kNsPtz, "GetNodes", &Service::get_nodes, false, false},
    {kNsPtz, "GetNode", &Service::get_node, false, false},
    {kNsPtz, "GetConfigurations", &Service::get_configurations, false, false},
    {kNsPtz, "GetConfiguration", &Service::get_configuration, false, false},
    {kNsPtz, "GetConfigurationOptions", &Service::get_configuration_options, false, false},
    {kNsPtz, "GetStatus", &Service::get_status, false, false},
    {kNsPtz, "ContinuousMove", &Service::continuous_move, true, false},
    {kNsPtz, "Stop", &Service::stop, true, false},
    {kNsPtz, "AbsoluteMove", &Service::absolute_move, true, false},
    {kNsPtz, "RelativeMove", &Service::relative_move, true, false},
    {kNsPtz, "GetPresets", &Service::get_presets, false, false},
    {kNsPtz, "SetPreset", &Service::set_preset, true, false},
    {kNsPtz, "RemovePreset", &Service::remove_preset, true, false},
    {kNsPtz, "GotoPreset", &Service::goto_preset, true, false},
    {kNsPtz, "GotoHomePosition", &Service::goto_home_position, true, false},
    {kNsPtz, "SetHomePosition", &Service::set_home_position, true, false},
    {kNsPtz, "GetPresetTours", &Service::get_preset_tours, false, false},
    {kNsPtz, "GetPresetTour", &Service::get_preset_tour, false, false},
    {kNsPtz, "OperatePresetTour", &Service::operate_preset_tour, true, false},
};

Service::Service(ServiceConfig config, const Bus& bus, HeadState& head, Authenticator& auth)
    : config_(std::move(config)), bus_(bus), head_(head), auth_(auth), timer_([this] { run_timeouts(); }) {}

Service::~Service() {
  {
    std::lock_guard<std::mutex> lock(timer_mutex_);
    timer_quit_ = true;
  }
  timer_wake_.notify_all();
  timer_.join();
}

HttpOut Service::handle(const HttpIn& http, std::string_view body) {
  HttpOut out;
  auto fail = [&](const Fault& f) {
    out.status = f.http_status;
    out.body = fault_envelope(f);
    return out;
  };
  Request req;
  Fault fault;
  if (!parse_request(body, &req, &fault)) return fail(fault);
  const Operation* op = nullptr;
  for (const Operation& o : kOperations) {
    if (o.ns == req.ns && o.name == req.name) op = &o;
  }
  if (op == nullptr) {
    bool known_ns = req.ns == kNsDevice || req.ns == kNsMedia || req.ns == kNsMedia2 || req.ns == kNsPtz;
    Fault f = sender_fault(known_ns ? "ter:ActionNotSupported" : "ter:InvalidArgVal", known_ns ? "" : "ter:NoSuchService",
                           known_ns ? req.name + " is not served" : "no service here answers " + req.name + " in \"" + req.ns + "\"");
    f.code = "env:Receiver";
    return fail(f);
  }
  if (!op->open) {
    std::string why;
    AuthResult a = auth_.check(req.header, http.authorization, http.method, op->changes, &why);
    if (a != AuthResult::kOk) {
      Fault f = sender_fault("ter:NotAuthorized", "", "Sender not authorized: " + why);
      if (a == AuthResult::kChallenge) {
        f.http_status = 401;
        out.www_authenticate = auth_.challenge(why.find("expired") != std::string::npos);
      }
      return fail(f);
    }
  }
  Call call{req, "", ""};
  std::string host = host_usable(http.host) ? http.host : "127.0.0.1";
  call.base = "http://" + host;
  call.host = host_only(host);
  std::string answer;
  if (!(this->*(op->handler))(call, &answer, &fault)) return fail(fault);
  out.body = envelope(answer);
  return out;
}

bool Service::command(const std::string& text, bool zoom, Fault* fault) {
  std::string error;
  buslink::BusReply r = bus_.set("ptz.run_mode", text, &error);
  if (r == buslink::BusReply::kOk) {
    head_.note_command(zoom, Clock::now());
    return true;
  }
  *fault = sender_fault("ter:Action", "", "the head did not take the command: " + error);
  fault->code = "env:Receiver";
  fault->http_status = 500;
  return false;
}

void Service::arm_timeout(long ms) {
  {
    std::lock_guard<std::mutex> lock(timer_mutex_);
    timer_armed_ = ms > 0;
    deadline_ = Clock::now() + std::chrono::milliseconds(ms);
  }
  timer_wake_.notify_all();
}

void Service::run_timeouts() {
  std::unique_lock<std::mutex> lock(timer_mutex_);
  while (!timer_quit_) {
    if (!timer_armed_) {
      timer_wake_.wait(lock);
      continue;
    }
    if (timer_wake_.wait_until(lock, deadline_) != std::cv_status::timeout || !timer_armed_) continue;
    timer_armed_ = false;
    lock.unlock();
    // Only a manual motion of ours is ended; a patrol or move started since is left alone.
    std::string status, error;
    if (bus_.get("ptz.status", &status, &error) == buslink::BusReply::kOk && status == "1") {
      {
        std::lock_guard<std::mutex> moves(move_mutex_);
        last_pan_ = last_tilt_ = last_zoom_ = 0;
      }
      bus_.set("ptz.run_mode", "manual:0,0,0", &error);
    }
    lock.lock();
  }
}

}  // namespace onvif
