// Fuzz target: slewonvif's credential checks and readers. First line: a Digest
// Authorization header; the rest: a WS-Security element with its UsernameToken.
#include <pugixml.hpp>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "auth.h"
#include "spaces.h"

static onvif::Authenticator* auth;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  auth = new onvif::Authenticator(onvif::Credentials{"admin", "pw"});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  size_t nl = text.find('\n');
  std::string header = text.substr(0, nl), rest = nl == std::string::npos ? "" : text.substr(nl + 1), why, bytes;
  int64_t now = time(nullptr), seconds = 0;
  auth->check_http_digest(header, "POST", true, now, &why);
  pugi::xml_document doc;
  if (doc.load_buffer(rest.data(), rest.size())) auth->check_username_token(doc.document_element(), true, now, &why);
  double v = 0;
  long ms = 0;
  onvif::parse_float(header, &v);
  onvif::parse_duration(header, &ms);
  onvif::parse_utc_time(header, &seconds);
  onvif::base64_decode(header, &bytes);
  return 0;
}
