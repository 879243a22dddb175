// The device service: the clock, what the camera is, and where its services are.
#include <ctime>

#include "service.h"

namespace onvif {
namespace {

// One entry of GetServices, with its capabilities when asked.
std::string service_entry(std::string_view ns, const std::string& xaddr, const std::string& caps, bool with_caps) {
  std::string out = "<tds:Service><tds:Namespace>" + std::string(ns) + "</tds:Namespace><tds:XAddr>" + escape(xaddr) +
                    "</tds:XAddr>";
  if (with_caps) out += "<tds:Capabilities>" + caps + "</tds:Capabilities>";
  return out + "<tds:Version><tt:Major>2</tt:Major><tt:Minor>60</tt:Minor></tds:Version></tds:Service>";
}

// The device service's own capabilities.
constexpr const char* kDeviceCaps =
    "<tds:Capabilities><tds:Network IPFilter=\"false\" ZeroConfiguration=\"false\" IPVersion6=\"false\""
    " DynDNS=\"false\"/><tds:Security TLS1.2=\"false\" OnboardKeyGeneration=\"false\""
    " AccessPolicyConfig=\"false\" DefaultAccessPolicy=\"false\" X.509Token=\"false\" SAMLToken=\"false\""
    " KerberosToken=\"false\" UsernameToken=\"true\" HttpDigest=\"true\" RELToken=\"false\"/>"
    "<tds:System DiscoveryResolve=\"false\" DiscoveryBye=\"false\" RemoteDiscovery=\"false\""
    " SystemBackup=\"false\" SystemLogging=\"false\" FirmwareUpgrade=\"false\"/></tds:Capabilities>";
// The media service's capabilities.
constexpr const char* kMediaCaps =
    "<trt:Capabilities SnapshotUri=\"true\" Rotation=\"false\" VideoSourceMode=\"false\" OSD=\"false\">"
    "<trt:ProfileCapabilities MaximumNumberOfProfiles=\"1\"/>"
    "<trt:StreamingCapabilities RTPMulticast=\"false\" RTP_TCP=\"true\" RTP_RTSP_TCP=\"true\""
    " NonAggregateControl=\"false\" NoRTSPStreaming=\"false\"/></trt:Capabilities>";
// The PTZ service's capabilities.
constexpr const char* kPtzCaps =
    "<tptz:Capabilities EFlip=\"false\" Reverse=\"false\" GetCompatibleConfigurations=\"false\""
    " MoveStatus=\"true\" StatusPosition=\"true\"/>";

}  // namespace

bool Service::get_system_date_and_time(const Call&, std::string* out, Fault*) {
  time_t now = time(nullptr);
  tm t{};
  gmtime_r(&now, &t);
  char text[512];
  snprintf(text, sizeof text,
           "<tds:GetSystemDateAndTimeResponse><tds:SystemDateAndTime><tt:DateTimeType>Manual</tt:DateTimeType>"
           "<tt:DaylightSavings>false</tt:DaylightSavings><tt:TimeZone><tt:TZ>UTC0</tt:TZ></tt:TimeZone>"
           "<tt:UTCDateTime><tt:Time><tt:Hour>%d</tt:Hour><tt:Minute>%d</tt:Minute><tt:Second>%d</tt:Second>"
           "</tt:Time><tt:Date><tt:Year>%d</tt:Year><tt:Month>%d</tt:Month><tt:Day>%d</tt:Day></tt:Date>"
           "</tt:UTCDateTime></tds:SystemDateAndTime></tds:GetSystemDateAndTimeResponse>",
           t.tm_hour, t.tm_min, t.tm_sec, t.tm_year + 1900, t.tm_mon + 1, t.tm_mday);
  *out = text;
  return true;
}

bool Service::get_device_information(const Call&, std::string* out, Fault*) {
  *out = "<tds:GetDeviceInformationResponse><tds:Manufacturer>slewd</tds:Manufacturer>"
         "<tds:Model>simulated PTZ head</tds:Model><tds:FirmwareVersion>slewonvif 1</tds:FirmwareVersion>"
         "<tds:SerialNumber>" + escape(config_.device_uuid.substr(9)) + "</tds:SerialNumber>"
         "<tds:HardwareId>slewd-sim</tds:HardwareId></tds:GetDeviceInformationResponse>";
  return true;
}

bool Service::get_capabilities(const Call& call, std::string* out, Fault*) {
  *out = "<tds:GetCapabilitiesResponse><tds:Capabilities>"
         "<tt:Device><tt:XAddr>" + escape(call.base) + "/onvif/device_service</tt:XAddr>"
         "<tt:Security><tt:TLS1.1>false</tt:TLS1.1><tt:TLS1.2>false</tt:TLS1.2>"
         "<tt:OnboardKeyGeneration>false</tt:OnboardKeyGeneration><tt:AccessPolicyConfig>false</tt:AccessPolicyConfig>"
         "<tt:X.509Token>false</tt:X.509Token><tt:SAMLToken>false</tt:SAMLToken>"
         "<tt:KerberosToken>false</tt:KerberosToken><tt:RELToken>false</tt:RELToken></tt:Security></tt:Device>"
         "<tt:Media><tt:XAddr>" + escape(call.base) + "/onvif/media_service</tt:XAddr>"
         "<tt:StreamingCapabilities><tt:RTPMulticast>false</tt:RTPMulticast><tt:RTP_TCP>true</tt:RTP_TCP>"
         "<tt:RTP_RTSP_TCP>true</tt:RTP_RTSP_TCP></tt:StreamingCapabilities></tt:Media>"
         "<tt:PTZ><tt:XAddr>" + escape(call.base) + "/onvif/ptz_service</tt:XAddr></tt:PTZ>"
         "</tds:Capabilities></tds:GetCapabilitiesResponse>";
  return true;
}

bool Service::get_services(const Call& call, std::string* out, Fault*) {
  bool caps = text_of(child_any(call.req.operation, "IncludeCapability")) == "true";
  *out = "<tds:GetServicesResponse>" +
         service_entry(kNsDevice, call.base + "/onvif/device_service", kDeviceCaps, caps) +
         service_entry(kNsMedia, call.base + "/onvif/media_service", kMediaCaps, caps) +
         service_entry(kNsPtz, call.base + "/onvif/ptz_service", kPtzCaps, caps) + "</tds:GetServicesResponse>";
  return true;
}

bool Service::get_scopes(const Call&, std::string* out, Fault*) {
  std::string scopes;
  for (const std::string& s : std::initializer_list<std::string>{"onvif://www.onvif.org/Profile/Streaming", "onvif://www.onvif.org/type/ptz",
                        "onvif://www.onvif.org/type/video_encoder", "onvif://www.onvif.org/name/" + config_.hostname,
                        std::string("onvif://www.onvif.org/hardware/slewd-sim")}) {
    scopes += "<tds:Scopes><tt:ScopeDef>Fixed</tt:ScopeDef><tt:ScopeItem>" + escape(s) + "</tt:ScopeItem></tds:Scopes>";
  }
  *out = "<tds:GetScopesResponse>" + scopes + "</tds:GetScopesResponse>";
  return true;
}

bool Service::get_hostname(const Call&, std::string* out, Fault*) {
  *out = "<tds:GetHostnameResponse><tds:HostnameInformation><tt:FromDHCP>false</tt:FromDHCP><tt:Name>" +
         escape(config_.hostname) + "</tt:Name></tds:HostnameInformation></tds:GetHostnameResponse>";
  return true;
}

bool Service::get_network_interfaces(const Call& call, std::string* out, Fault*) {
  *out = "<tds:GetNetworkInterfacesResponse><tds:NetworkInterfaces token=\"eth0\"><tt:Enabled>true</tt:Enabled>"
         "<tt:Info><tt:Name>eth0</tt:Name><tt:HwAddress>02:00:00:00:00:01</tt:HwAddress><tt:MTU>1500</tt:MTU></tt:Info>"
         "<tt:IPv4><tt:Enabled>true</tt:Enabled><tt:Config><tt:Manual><tt:Address>" + escape(call.host) +
         "</tt:Address><tt:PrefixLength>24</tt:PrefixLength></tt:Manual><tt:DHCP>false</tt:DHCP></tt:Config></tt:IPv4>"
         "</tds:NetworkInterfaces></tds:GetNetworkInterfacesResponse>";
  return true;
}

}  // namespace onvif
