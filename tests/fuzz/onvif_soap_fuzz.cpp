// Fuzz target: slewonvif's request handler. First byte even: the rest is a whole
// request; odd: the Body's content, sent with a valid UsernameToken.
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "auth.h"
#include "head_state.h"
#include "../onvif/memory_bus.h"
#include "service.h"

static onvif::Service* service;
static unsigned long count;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  auto* head = new onvif::HeadState;
  head->on_link(true, {{"ptz.status", "0"}}, onvif::Clock::now());
  service = new onvif::Service(onvif::ServiceConfig{}, *new MemoryBus, *head,
                               *new onvif::Authenticator(onvif::Credentials{"admin", "pw"}));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] % 2 == 0) {
    service->handle(onvif::HttpIn{"cam:80", "", "POST"}, rest);
    return 0;
  }
  std::string nonce = std::to_string(++count), created = onvif::utc_time_text(time(nullptr));
  std::string request =
      "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Header><Security xmlns=\""
      "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\"><UsernameToken>"
      "<Username>admin</Username><Password Type=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-"
      "username-token-profile-1.0#PasswordDigest\">" + onvif::password_digest(nonce, created, "pw") +
      "</Password><Nonce>" + onvif::base64_encode(nonce) + "</Nonce><Created xmlns=\"http://docs.oasis-open.org/"
      "wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd\">" + created +
      "</Created></UsernameToken></Security></s:Header><s:Body>" + rest + "</s:Body></s:Envelope>";
  service->handle(onvif::HttpIn{"cam:80", "", "POST"}, request);
  return 0;
}
