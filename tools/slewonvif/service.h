// slewonvif's request handler: one SOAP request in, one answer out, with
// the bus as the only way to the head. No network here, so the handler is
// tested and fuzzed by calling it.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "auth.h"
#include "bus_link.h"
#include "head_state.h"
#include "soap.h"

namespace onvif {

// The bus as the handler uses it; BusLink in slewonvif, a fake in tests.
class Bus {
 public:
  virtual ~Bus() = default;
  virtual buslink::BusReply get(const std::string& key, std::string* value, std::string* error) const = 0;
  virtual buslink::BusReply set(const std::string& key, const std::string& value, std::string* error) const = 0;
  virtual buslink::BusReply list(const std::string& prefix, std::map<std::string, std::string>* out,
                                 std::string* error) const = 0;
};

// The shared bus link behind the Bus interface.
class LinkBus : public Bus {
 public:
  explicit LinkBus(const buslink::BusLink& link) : link_(link) {}
  buslink::BusReply get(const std::string& key, std::string* value, std::string* error) const override {
    return link_.get(key, value, error);
  }
  buslink::BusReply set(const std::string& key, const std::string& value, std::string* error) const override {
    return link_.set(key, value, error);
  }
  buslink::BusReply list(const std::string& prefix, std::map<std::string, std::string>* out,
                         std::string* error) const override {
    return link_.list(prefix, out, error);
  }

 private:
  const buslink::BusLink& link_;
};

// What slewonvif says about itself and where the video is.
struct ServiceConfig {
  int rtsp_port = 8554;      // slewvideo's RTSP port, for GetStreamUri
  int snapshot_port = 8081;  // slewvideo's HTTP port, for GetSnapshotUri
  int width = 640, height = 360, fps = 15;
  std::string device_uuid = "urn:uuid:00000000-0000-4000-8000-000000000000";
  std::string hostname = "slewd-camera";
};

// The HTTP side of a request.
struct HttpIn {
  std::string host;           // the Host header, port included
  std::string authorization;  // the Authorization header, or empty
  std::string method = "POST";
};

// The HTTP side of an answer.
struct HttpOut {
  int status = 200;
  std::string body;
  std::string www_authenticate;  // set with a 401
};

// The preset slot that holds the home position (outside the 0..511 a user numbers).
inline constexpr int kHomePreset = 512;
// ContinuousMove without a Timeout stops after this long.
inline constexpr long kDefaultMoveTimeoutMs = 10000;
// The longest Timeout accepted.
inline constexpr long kMaxMoveTimeoutMs = 60000;

class Service {
 public:
  Service(ServiceConfig config, const Bus& bus, HeadState& head, Authenticator& auth);
  ~Service();

  // Answers one request.
  HttpOut handle(const HttpIn& http, std::string_view body);

  // The operation's parsed request and the base of the addresses to hand out.
  struct Call {
    const Request& req;
    std::string base;  // "http://HOST:PORT" from the Host header
    std::string host;  // HOST alone
  };
  // An operation writes its answer body into out, or fills fault.
  using Handler = bool (Service::*)(const Call&, std::string* out, Fault* fault);

  // The operations, reached through the dispatch table of service.cpp.
  // Device service.
  bool get_system_date_and_time(const Call&, std::string*, Fault*);
  bool get_device_information(const Call&, std::string*, Fault*);
  bool get_capabilities(const Call&, std::string*, Fault*);
  bool get_services(const Call&, std::string*, Fault*);
  bool get_scopes(const Call&, std::string*, Fault*);
  bool get_hostname(const Call&, std::string*, Fault*);
  bool get_network_interfaces(const Call&, std::string*, Fault*);
  // Media service (ver10; ver20 where asked).
  bool get_profiles(const Call&, std::string*, Fault*);
  bool get_profile(const Call&, std::string*, Fault*);
  bool get_video_sources(const Call&, std::string*, Fault*);
  bool get_video_source_configurations(const Call&, std::string*, Fault*);
  bool get_video_encoder_configurations(const Call&, std::string*, Fault*);
  bool get_stream_uri(const Call&, std::string*, Fault*);
  bool get_snapshot_uri(const Call&, std::string*, Fault*);
  bool get_profiles2(const Call&, std::string*, Fault*);
  bool get_stream_uri2(const Call&, std::string*, Fault*);
  bool get_snapshot_uri2(const Call&, std::string*, Fault*);
  // PTZ service.
  bool ptz_service_capabilities(const Call&, std::string*, Fault*);
  bool get_nodes(const Call&, std::string*, Fault*);
  bool get_node(const Call&, std::string*, Fault*);
  bool get_configurations(const Call&, std::string*, Fault*);
  bool get_configuration(const Call&, std::string*, Fault*);
  bool get_configuration_options(const Call&, std::string*, Fault*);
  bool get_status(const Call&, std::string*, Fault*);
  bool continuous_move(const Call&, std::string*, Fault*);
  bool stop(const Call&, std::string*, Fault*);
  bool absolute_move(const Call&, std::string*, Fault*);
  bool relative_move(const Call&, std::string*, Fault*);
  bool get_presets(const Call&, std::string*, Fault*);
  bool set_preset(const Call&, std::string*, Fault*);
  bool remove_preset(const Call&, std::string*, Fault*);
  bool goto_preset(const Call&, std::string*, Fault*);
  bool goto_home_position(const Call&, std::string*, Fault*);
  bool set_home_position(const Call&, std::string*, Fault*);
  bool get_preset_tours(const Call&, std::string*, Fault*);
  bool get_preset_tour(const Call&, std::string*, Fault*);
  bool operate_preset_tour(const Call&, std::string*, Fault*);

 private:
  // Pieces shared by the operations.
  std::string profile_xml(const Call&, const char* element) const;
  std::string ptz_configuration_xml(const char* element) const;
  std::string node_xml(const char* element) const;
  std::string encoder_xml(const char* element) const;
  std::string source_configuration_xml(const char* element) const;
  bool check_profile(const Call&, Fault*) const;
  bool command(const std::string& text, bool zoom, Fault*);
  bool apply_speed(pugi::xml_node speed, Fault*);
  bool read_presets(std::map<int, std::string>* records, Fault*) const;
  bool stored_preset(const Call&, int* id, Fault*) const;
  bool wait_presets(int id, bool present);
  std::string tour_xml(int patrol) const;
  void arm_timeout(long ms);
  void run_timeouts();

  ServiceConfig config_;
  const Bus& bus_;
  HeadState& head_;
  Authenticator& auth_;

  // The ContinuousMove timer: the head is stopped at deadline_ unless a
  // later move or stop came first.
  std::mutex timer_mutex_;
  std::condition_variable timer_wake_;
  bool timer_armed_ = false;
  bool timer_quit_ = false;
  std::chrono::steady_clock::time_point deadline_{};
  std::mutex move_mutex_;             // one move request at a time reads and writes the last velocity
  int last_pan_ = 0, last_tilt_ = 0, last_zoom_ = 0;  // the last manual: velocity sent
  int started_tour_ = 0;              // the patrol OperatePresetTour last started
  std::mutex preset_mutex_;           // one preset change at a time: a free number is taken once
  std::thread timer_;
};

}  // namespace onvif
