// slewonvif's handler on a fake bus: bad input and auth edge cases, edge values of
// moves, the spaces' round trip. What a client sees of each operation: onvif_client_test.mjs.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <sstream>

#include "auth.h"
#include "memory_bus.h"
#include "discovery.h"
#include "head_state.h"
#include "service.h"
#include "spaces.h"

namespace onvif {
namespace {

constexpr const char* kPassword = "pass word";

// A UsernameToken header for the test's user.
std::string security(const std::string& nonce, const std::string& created, const std::string& password = kPassword) {
  return "<s:Header><Security xmlns=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\">"
         "<UsernameToken><Username>admin</Username><Password Type=\"http://docs.oasis-open.org/wss/2004/01/"
         "oasis-200401-wss-username-token-profile-1.0#PasswordDigest\">" + password_digest(nonce, created, password) +
         "</Password><Nonce>" + base64_encode(nonce) + "</Nonce><Created xmlns=\"http://docs.oasis-open.org/wss/2004/01/"
         "oasis-200401-wss-wssecurity-utility-1.0.xsd\">" + created + "</Created></UsernameToken></Security></s:Header>";
}

std::string envelope_of(const std::string& header, const std::string& body) {
  return "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">" + header + "<s:Body>" + body +
         "</s:Body></s:Envelope>";
}

std::string ptz(const std::string& op, const std::string& inner) {
  return "<" + op + " xmlns=\"http://www.onvif.org/ver20/ptz/wsdl\" xmlns:tt=\"http://www.onvif.org/ver10/schema\">"
         "<ProfileToken>profile_head</ProfileToken>" + inner + "</" + op + ">";
}

struct Fixture {
  Fixture() : auth(Credentials{"admin", kPassword}), service(ServiceConfig{}, bus, head, auth) {
    head.on_link(true, {{"ptz.status", "0"}, {"ptz.pan_pos", "100"}, {"ptz.tilt_pos", "5000"}}, Clock::now());
  }
  HttpOut send(const std::string& body) {
    return service.handle(HttpIn{"cam:8000", "", "POST"}, envelope_of(security("n" + std::to_string(++count), now()), body));
  }
  static std::string now() { return utc_time_text(time(nullptr)); }
  MemoryBus bus;
  HeadState head;
  Authenticator auth;
  Service service;
  int count = 0;
};

TEST(OnvifRequest, BadInputGetsTheFaultClientsExpectAndWritesNothing) {
  Fixture f;
  std::string deep;
  for (int i = 0; i < 40; ++i) deep = "<a>" + deep + "</a>";
  struct Case {
    const char* what;
    std::string request;  // sent as is
    int status;
    const char* fault;    // a text the fault holds
  } cases[] = {
      {"malformed XML", "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Body>", 400, "ter:WellFormed"},
      {"a DOCTYPE", "<!DOCTYPE x [<!ENTITY a \"b\">]>" + envelope_of("", "<x/>"), 400, "document type"},
      {"SOAP 1.1", "<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\"><e:Body><x/></e:Body></e:Envelope>",
       400, "env:VersionMismatch"},
      {"an empty Body", envelope_of("", ""), 400, "holds no request"},
      {"too deep", envelope_of("", deep), 400, "too deep"},
      {"a huge text", envelope_of("", "<x>" + std::string(5000, 'a') + "</x>"), 400, "too long"},
      {"an unknown operation", envelope_of("", ptz("Fly", "")), 400, "ter:ActionNotSupported"},
      {"a wrong namespace", envelope_of("", "<GetStatus xmlns=\"urn:nowhere\"/>"), 400, "ter:NoSuchService"},
      {"no credentials", envelope_of("", ptz("GetStatus", "")), 401, "ter:NotAuthorized"},
  };
  for (const Case& c : cases) {
    HttpOut out = f.service.handle(HttpIn{"cam:8000", "", "POST"}, c.request);
    EXPECT_EQ(out.status, c.status) << c.what;
    EXPECT_NE(out.body.find(c.fault), std::string::npos) << c.what << ": " << out.body;
  }
  // Out-of-range values, each in a move that would otherwise go.
  for (const std::string& v : std::vector<std::string>{"NaN", "INF", "-INF", "1e308", "1.5", "1.0000001", "-1.0001", "0x1", " 1", "", std::string(300, '1')}) {
    HttpOut out = f.send(ptz("AbsoluteMove", "<Position><tt:PanTilt x=\"" + v + "\" y=\"0\"/></Position>"));
    EXPECT_EQ(out.status, 400) << v;
    EXPECT_NE(out.body.find("ter:InvalidArgVal"), std::string::npos) << v;
    out = f.send(ptz("ContinuousMove", "<Velocity><tt:Zoom x=\"" + v + "\"/></Velocity>"));
    EXPECT_EQ(out.status, 400) << v;
  }
  for (const std::string& body : std::vector<std::string>{ptz("ContinuousMove", "<Velocity><tt:PanTilt x=\"0.5\" y=\"0\"/></Velocity><Timeout>PT2H</Timeout>"),
                           ptz("RelativeMove", "<Translation><tt:PanTilt x=\"0.1\" y=\"0\" space=\"urn:other\"/></Translation>"),
                           ptz("GotoPreset", "<PresetToken>99</PresetToken>"), ptz("GotoHomePosition", ""),
                           ptz("SetPreset", "<PresetName>a:manual:1</PresetName>"),
                           ptz("SetPreset", "<PresetName>" + std::string(61, 'n') + "</PresetName>"),
                           ptz("OperatePresetTour", "<PresetTourToken>9</PresetTourToken><Operation>Start</Operation>"),
                           "<GetStatus xmlns=\"http://www.onvif.org/ver20/ptz/wsdl\"><ProfileToken>x</ProfileToken></GetStatus>"}) {
    EXPECT_EQ(f.send(body).status, 400) << body;
  }
  EXPECT_TRUE(f.bus.writes.empty()) << f.bus.writes.front();
}

TEST(OnvifRequest, EveryOperationAnswersAWellFormedResponse) {
  Fixture f;
  f.bus.keys = {{"ptz.patrol.set01", "1,2"}, {"ptz.patrol.time01", "5,10"}, {"ptz.patrol.speed01", "300,720"}};
  const std::string on = "<ProfileToken>profile_head</ProfileToken>", v10 = "http://www.onvif.org/ver10/";
  const std::string media2 = "http://www.onvif.org/ver20/media/wsdl", ptz = "http://www.onvif.org/ver20/ptz/wsdl";
  struct Group {
    std::string ns, ops, inner;  // operations separated by spaces, each with inner as its body
  } groups[] = {
      {v10 + "device/wsdl", "GetDeviceInformation GetScopes GetHostname GetNetworkInterfaces", ""},
      {v10 + "media/wsdl", "GetVideoSourceConfigurations GetVideoEncoderConfigurations", ""},
      {v10 + "media/wsdl", "GetProfile", on},
      {media2, "GetProfiles", ""},
      {media2, "GetSnapshotUri", on},
      {media2, "GetStreamUri", "<Protocol>RTSP</Protocol>" + on},
      {ptz, "GetServiceCapabilities GetConfigurations", on},
      {ptz, "GetNode", on + "<NodeToken>node_head</NodeToken>"},
      {ptz, "GetConfiguration", on + "<PTZConfigurationToken>ptz_head</PTZConfigurationToken>"},
      {ptz, "GetConfigurationOptions", on + "<ConfigurationToken>ptz_head</ConfigurationToken>"},
      {ptz, "GetPresetTour", on + "<PresetTourToken>1</PresetTourToken>"},
  };
  for (const Group& g : groups) {
    std::istringstream ops(g.ops);
    for (std::string op; ops >> op;) {
      HttpOut out = f.send("<" + op + " xmlns=\"" + g.ns + "\">" + g.inner + "</" + op + ">");
      pugi::xml_document doc;
      ASSERT_TRUE(doc.load_string(out.body.c_str())) << op;
      EXPECT_EQ(out.status, 200) << op << "\n" << out.body;
      EXPECT_EQ(std::string(local_name(doc.document_element().first_child().first_child())), op + "Response") << out.body;
      EXPECT_LT(out.body.size(), 64u * 1024);
    }
  }
}

TEST(OnvifAuth, RefusesSkewReplayAndWrongDigestAcceptsReplayedReads) {
  Fixture f;
  std::string now = Fixture::now();
  auto send = [&](const std::string& header, const std::string& body) {
    return f.service.handle(HttpIn{"cam:8000", "", "POST"}, envelope_of(header, body));
  };
  std::string stop = ptz("Stop", ""), status = ptz("GetStatus", "");  // only the clock is open to all
  EXPECT_EQ(send("", "<GetSystemDateAndTime xmlns=\"http://www.onvif.org/ver10/device/wsdl\"/>").status, 200);
  EXPECT_EQ(send(security("a", utc_time_text(time(nullptr) - 301)), stop).status, 400);
  EXPECT_EQ(send(security("b", utc_time_text(time(nullptr) + 301)), stop).status, 400);
  HttpOut wrong = send(security("c", now, "wrong"), stop);
  EXPECT_EQ(wrong.status, 400);
  EXPECT_NE(wrong.body.find("ter:NotAuthorized"), std::string::npos);
  EXPECT_TRUE(f.bus.writes.empty());
  EXPECT_EQ(send(security("d", now), stop).status, 200);
  HttpOut replay = send(security("d", now), stop);
  EXPECT_EQ(replay.status, 400);
  EXPECT_NE(replay.body.find("ter:NotAuthorized"), std::string::npos);
  EXPECT_EQ(f.bus.writes.size(), 1u);
  EXPECT_EQ(send(security("d", now), status).status, 200);  // a replayed read shows nothing new
  EXPECT_EQ(send(security("d", now), status).status, 200);

  // HTTP Digest: a challenge with realm, then a client's answer.
  HttpOut challenge = send("", status);
  ASSERT_EQ(challenge.status, 401);
  ASSERT_EQ(challenge.www_authenticate.rfind("Digest realm=\"", 0), 0u) << challenge.www_authenticate;
  std::string nonce = f.auth.make_nonce(time(nullptr));
  auto md5 = [](const std::string& s) {
    unsigned char out[16];
    char hex[33];
    EVP_Digest(s.data(), s.size(), out, nullptr, EVP_md5(), nullptr);
    for (int i = 0; i < 16; ++i) snprintf(hex + 2 * i, 3, "%02x", out[i]);
    return std::string(hex);
  };
  auto authorization = [&](const std::string& password, const std::string& nc) {
    std::string ha1 = md5("admin:slewonvif:" + password), ha2 = md5("POST:/onvif/ptz_service");
    return "Digest username=\"admin\",realm=\"slewonvif\",nonce=\"" + nonce + "\",uri=\"/onvif/ptz_service\",qop=auth,nc=" +
           nc + ",cnonce=\"c1\",response=\"" + md5(ha1 + ":" + nonce + ":" + nc + ":c1:auth:" + ha2) + "\"";
  };
  auto digest = [&](const std::string& auth, const std::string& body) {
    return f.service.handle(HttpIn{"cam:8000", auth, "POST"}, envelope_of("", body)).status;
  };
  EXPECT_EQ(digest("Basic YWRtaW46cGFzcw==", status), 401);  // answered with the challenge
  EXPECT_EQ(digest(authorization(kPassword, "00000001"), stop), 200);
  EXPECT_EQ(digest(authorization(kPassword, "00000001"), stop), 400);  // the same nonce count again
  EXPECT_EQ(digest(authorization("wrong", "00000002"), stop), 400);
  EXPECT_EQ(digest(authorization(kPassword, "00000003"), status), 200);
  EXPECT_EQ(f.bus.writes.size(), 2u);
}

TEST(OnvifAuth, FirstStartMakesAPasswordOnceAndKeepsIt) {
  std::string folder = testing::TempDir() + "onvif-credentials-" + std::to_string(getpid()) + "/cam";
  Credentials first, again;
  bool created = false;
  std::string error;
  ASSERT_TRUE(load_or_create_credentials(folder, "admin", &first, &created, &error)) << error;
  EXPECT_TRUE(created);
  EXPECT_GE(first.password.size(), 16u);
  struct stat st {};
  ASSERT_EQ(stat((folder + "/onvif-credentials").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  ASSERT_TRUE(load_or_create_credentials(folder, "admin", &again, &created, &error)) << error;
  EXPECT_FALSE(created);
  EXPECT_EQ(again.password, first.password);
  std::filesystem::remove_all(folder.substr(0, folder.size() - 4));
}

TEST(OnvifMoves, EachRequestBecomesItsCommand) {
  auto pt = [](const std::string& x, const std::string& y) { return "<tt:PanTilt x=\"" + x + "\" y=\"" + y + "\"/>"; };
  auto zoom = [](const char* x) { return std::string("<tt:Zoom x=\"") + x + "\"/>"; };
  struct Case {
    std::string op, inner, command;  // command: the ptz.run_mode written
  } cases[] = {
      {"ContinuousMove", "<Velocity>" + pt("5E-1", "-1") + zoom("-0.2") + "</Velocity>", "manual:-50,100,-1"},
      {"ContinuousMove", "<Velocity>" + pt("-0", "0.001") + "</Velocity>", "manual:0,-1,0"},
      {"AbsoluteMove", "<Position>" + pt("1", "1") + zoom("0.5") + "</Position>", "abs:32767,0,8192"},
      {"AbsoluteMove", "<Position>" + pt("-0.25", "-1") + "</Position>", "abs:8192,21298,-1"},
      {"AbsoluteMove", "<Position>" + zoom("1") + "</Position>", "abs:-1,-1,16384"},
      {"RelativeMove", "<Translation>" + pt("0.5", "0.1") + "</Translation>", "relative:-16384,-1065"},
      {"RelativeMove", "<Translation>" + pt("-0.001", "0") + zoom("0.25") + "</Translation>", "abs:133,5000,4096"},
      {"SetPreset", "<PresetName>gate, north</PresetName>", "set_preset:id:1,name:gate, north"},
      {"SetPreset", "<PresetToken>1</PresetToken>", "set_preset:id:1,name:gate, north"},  // overwrites, keeps the name
      {"SetHomePosition", "", "set_preset:id:512,name:home"},
  };
  Fixture f;
  for (const Case& c : cases) {
    f.bus.writes.clear();
    HttpOut out = f.send(ptz(c.op, c.inner));
    EXPECT_EQ(out.status, 200) << c.op << c.inner << "\n" << out.body;
    ASSERT_FALSE(f.bus.writes.empty()) << c.op << c.inner;
    EXPECT_EQ(f.bus.writes.back(), "ptz.run_mode=" + c.command) << c.op << c.inner;
  }
  f.send(ptz("ContinuousMove", "<Velocity>" + pt("0.2", "0") + zoom("1") + "</Velocity>"));
  f.send(ptz("Stop", "<PanTilt>false</PanTilt><Zoom>true</Zoom>"));
  EXPECT_EQ(f.bus.writes.back(), "ptz.run_mode=manual:-20,0,0");  // the other axis goes on
  f.send(ptz("Stop", "<PanTilt>true</PanTilt><Zoom>false</Zoom>"));
  EXPECT_EQ(f.bus.writes.back(), "ptz.run_mode=stop");
  f.send(ptz("AbsoluteMove", "<Position>" + pt("0", "0") + "</Position><Speed>" + pt("0.5", "0.5") + "</Speed>"));
  EXPECT_EQ(f.bus.writes[f.bus.writes.size() - 2], "ptz.system.max_speed=375");  // Speed in speed units
}

TEST(OnvifSpaces, EveryStepRoundTripsAndNoNumberEscapesItsRange) {
  for (int s = 0; s < kTurnSteps; ++s) ASSERT_EQ(pan_to_steps(steps_to_pan(s)), s);
  for (int s = 0; s <= kTiltDownSteps; ++s) ASSERT_EQ(tilt_to_steps(steps_to_tilt(s)), s);
  for (int s = 0; s <= kZoomMax; ++s) ASSERT_EQ(zoom_to_lens(lens_to_zoom(s)), s);
  for (double v = -1; v <= 1; v += 1e-4) {
    double d = std::abs(steps_to_pan(pan_to_steps(v)) - v);
    ASSERT_LE(std::min(d, 2 - d), 1.0 / 32767.5) << v;  // -1 and 1 are the same direction
    ASSERT_LE(std::abs(steps_to_tilt(tilt_to_steps(v)) - v), 1.0 / 21298) << v;
    ASSERT_GE(pan_to_steps(v), 0);
    ASSERT_LT(pan_to_steps(v), kTurnSteps);
  }
  long ms = 0;
  EXPECT_TRUE(parse_duration("PT1M0.5S", &ms));
  EXPECT_EQ(ms, 60500);
  EXPECT_FALSE(parse_duration("PT1E9S", &ms));
  EXPECT_FALSE(parse_duration("P1D", &ms));
}

// A command of ours counts as motion before the daemon's first write (IDLE after moves: the npm client).
TEST(OnvifStatus, OwnCommandIsMotionAndInitialisingIsAnError) {
  HeadState head;
  Clock::time_point t0 = Clock::now();
  head.on_link(true, {{"ptz.status", "0"}}, t0);
  head.note_command(true, t0 + std::chrono::milliseconds(2000));
  EXPECT_TRUE(head.read(t0 + std::chrono::milliseconds(2010)).pan_tilt_moving);
  EXPECT_TRUE(head.read(t0 + std::chrono::milliseconds(2010)).zoom_moving);
  head.on_change("ptz.status", "32", t0 + std::chrono::milliseconds(3000));
  EXPECT_EQ(head.read(t0 + std::chrono::milliseconds(3000)).error, "the head is initialising");
}

TEST(OnvifDiscovery, AnswersProbesForItsTypesOnly) {
  DiscoveryInfo info{"urn:uuid:11111111-2222-4333-8444-555555555555", "cam", 8000};
  auto probe = [](const std::string& types) {
    return "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" xmlns:a=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\""
           " xmlns:d=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\" xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\">"
           "<s:Header><a:MessageID>urn:uuid:abc</a:MessageID></s:Header><s:Body><d:Probe>" + types +
           "</d:Probe></s:Body></s:Envelope>";
  };
  std::string answer;  // RelatesTo and XAddrs of a typed Probe: the npm client's discovery check
  EXPECT_TRUE(probe_answer(probe(""), info, "10.0.0.5", &answer));
  EXPECT_FALSE(probe_answer(probe("<d:Types>dn:Printer</d:Types>"), info, "10.0.0.5", &answer));
  EXPECT_FALSE(probe_answer("<d:Probe/>", info, "10.0.0.5", &answer));
}

}  // namespace
}  // namespace onvif
