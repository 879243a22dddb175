// The media services: one profile (the head's picture, H.264, and the PTZ
// configuration) and where slewvideo serves the stream and the snapshot.
#include "service.h"

namespace onvif {
namespace {

constexpr const char* kProfileToken = "profile_head";
constexpr const char* kSourceToken = "video_head";

}  // namespace

std::string Service::source_configuration_xml(const char* element) const {
  return std::string("<") + element + " token=\"vsc_head\"><tt:Name>head picture</tt:Name><tt:UseCount>1</tt:UseCount>"
         "<tt:SourceToken>" + kSourceToken + "</tt:SourceToken><tt:Bounds x=\"0\" y=\"0\" width=\"" +
         std::to_string(config_.width) + "\" height=\"" + std::to_string(config_.height) + "\"/></" + element + ">";
}

std::string Service::encoder_xml(const char* element) const {
  return std::string("<") + element + " token=\"vec_head\"><tt:Name>H.264</tt:Name><tt:UseCount>1</tt:UseCount>"
         "<tt:Encoding>H264</tt:Encoding><tt:Resolution><tt:Width>" + std::to_string(config_.width) +
         "</tt:Width><tt:Height>" + std::to_string(config_.height) + "</tt:Height></tt:Resolution>"
         "<tt:Quality>5</tt:Quality><tt:RateControl><tt:FrameRateLimit>" + std::to_string(config_.fps) +
         "</tt:FrameRateLimit><tt:EncodingInterval>1</tt:EncodingInterval><tt:BitrateLimit>2048</tt:BitrateLimit>"
         "</tt:RateControl><tt:H264><tt:GovLength>" + std::to_string(config_.fps * 2) +
         "</tt:GovLength><tt:H264Profile>Baseline</tt:H264Profile></tt:H264><tt:Multicast><tt:Address><tt:Type>IPv4"
         "</tt:Type><tt:IPv4Address>0.0.0.0</tt:IPv4Address></tt:Address><tt:Port>0</tt:Port><tt:TTL>1</tt:TTL>"
         "<tt:AutoStart>false</tt:AutoStart></tt:Multicast><tt:SessionTimeout>PT60S</tt:SessionTimeout></" + element + ">";
}

std::string Service::profile_xml(const Call&, const char* element) const {
  return std::string("<") + element + " token=\"" + kProfileToken + "\" fixed=\"true\"><tt:Name>head</tt:Name>" +
         source_configuration_xml("tt:VideoSourceConfiguration") + encoder_xml("tt:VideoEncoderConfiguration") +
         ptz_configuration_xml("tt:PTZConfiguration") + "</" + element + ">";
}

bool Service::check_profile(const Call& call, Fault* fault) const {
  pugi::xml_node token = child_any(call.req.operation, "ProfileToken");
  if (token && text_of(token) != kProfileToken) {
    *fault = sender_fault("ter:InvalidArgVal", "ter:NoProfile", "no profile \"" + text_of(token) + "\" (" + kProfileToken + " is the one)");
    return false;
  }
  return true;
}

bool Service::get_profiles(const Call& call, std::string* out, Fault*) {
  *out = "<trt:GetProfilesResponse>" + profile_xml(call, "trt:Profiles") + "</trt:GetProfilesResponse>";
  return true;
}

bool Service::get_profile(const Call& call, std::string* out, Fault* fault) {
  if (!child_any(call.req.operation, "ProfileToken")) {
    *fault = sender_fault("ter:InvalidArgVal", "ter:NoProfile", "GetProfile needs a ProfileToken");
    return false;
  }
  if (!check_profile(call, fault)) return false;
  *out = "<trt:GetProfileResponse>" + profile_xml(call, "trt:Profile") + "</trt:GetProfileResponse>";
  return true;
}

bool Service::get_video_sources(const Call&, std::string* out, Fault*) {
  *out = std::string("<trt:GetVideoSourcesResponse><trt:VideoSources token=\"") + kSourceToken +
         "\"><tt:Framerate>" + std::to_string(config_.fps) + "</tt:Framerate><tt:Resolution><tt:Width>" +
         std::to_string(config_.width) + "</tt:Width><tt:Height>" + std::to_string(config_.height) +
         "</tt:Height></tt:Resolution></trt:VideoSources></trt:GetVideoSourcesResponse>";
  return true;
}

bool Service::get_video_source_configurations(const Call&, std::string* out, Fault*) {
  *out = "<trt:GetVideoSourceConfigurationsResponse>" + source_configuration_xml("trt:Configurations") +
         "</trt:GetVideoSourceConfigurationsResponse>";
  return true;
}

bool Service::get_video_encoder_configurations(const Call&, std::string* out, Fault*) {
  *out = "<trt:GetVideoEncoderConfigurationsResponse>" + encoder_xml("trt:Configurations") +
         "</trt:GetVideoEncoderConfigurationsResponse>";
  return true;
}

bool Service::get_stream_uri(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  pugi::xml_node setup = child_any(call.req.operation, "StreamSetup");
  std::string stream = text_of(child_any(setup, "Stream"));
  std::string protocol = text_of(child_any(child_any(setup, "Transport"), "Protocol"));
  // RTP over RTSP (TCP, or UDP negotiated in RTSP) is what slewvideo serves; HTTP tunnelling and multicast are not.
  if ((!stream.empty() && stream != "RTP-Unicast") || (!protocol.empty() && protocol != "RTSP" && protocol != "UDP")) {
    *fault = sender_fault("ter:InvalidArgVal", "ter:InvalidStreamSetup",
                          "only RTP-Unicast over RTSP or UDP is served, not " + stream + " over " + protocol);
    return false;
  }
  *out = "<trt:GetStreamUriResponse><trt:MediaUri><tt:Uri>rtsp://" + escape(call.host) + ":" +
         std::to_string(config_.rtsp_port) + "/head</tt:Uri><tt:InvalidAfterConnect>false</tt:InvalidAfterConnect>"
         "<tt:InvalidAfterReboot>false</tt:InvalidAfterReboot><tt:Timeout>PT0S</tt:Timeout></trt:MediaUri>"
         "</trt:GetStreamUriResponse>";
  return true;
}

bool Service::get_snapshot_uri(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  *out = "<trt:GetSnapshotUriResponse><trt:MediaUri><tt:Uri>http://" + escape(call.host) + ":" +
         std::to_string(config_.snapshot_port) + "/snapshot.jpg</tt:Uri><tt:InvalidAfterConnect>false"
         "</tt:InvalidAfterConnect><tt:InvalidAfterReboot>false</tt:InvalidAfterReboot><tt:Timeout>PT0S</tt:Timeout>"
         "</trt:MediaUri></trt:GetSnapshotUriResponse>";
  return true;
}

bool Service::get_profiles2(const Call&, std::string* out, Fault*) {
  *out = std::string("<tr2:GetProfilesResponse><tr2:Profiles token=\"") + kProfileToken +
         "\" fixed=\"true\"><tr2:Name>head</tr2:Name><tr2:Configurations>" +
         source_configuration_xml("tr2:VideoSource") + encoder_xml("tr2:VideoEncoder") +
         ptz_configuration_xml("tr2:PTZ") + "</tr2:Configurations></tr2:Profiles></tr2:GetProfilesResponse>";
  return true;
}

bool Service::get_stream_uri2(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  std::string protocol = text_of(child_any(call.req.operation, "Protocol"));
  if (protocol != "RTSP" && protocol != "RtspUnicast") {
    *fault = sender_fault("ter:InvalidArgVal", "ter:InvalidStreamSetup", "only RTSP is served, not " + protocol);
    return false;
  }
  *out = "<tr2:GetStreamUriResponse><tr2:Uri>rtsp://" + escape(call.host) + ":" + std::to_string(config_.rtsp_port) +
         "/head</tr2:Uri></tr2:GetStreamUriResponse>";
  return true;
}

bool Service::get_snapshot_uri2(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  *out = "<tr2:GetSnapshotUriResponse><tr2:Uri>http://" + escape(call.host) + ":" +
         std::to_string(config_.snapshot_port) + "/snapshot.jpg</tr2:Uri></tr2:GetSnapshotUriResponse>";
  return true;
}

}  // namespace onvif
