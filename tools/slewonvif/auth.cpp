// Credentials, WS-Security UsernameToken digests and HTTP Digest, with OpenSSL.
#include "auth.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>

#include "soap.h"

namespace onvif {
namespace {

constexpr const char* kCredentialsFile = "onvif-credentials";  // in the state folder
constexpr const char* kRealm = "slewonvif";
constexpr int64_t kMaxSkew = 300;          // seconds a Created may be off the clock
constexpr int64_t kNonceLifetime = 300;    // seconds an HTTP Digest nonce is good for
constexpr size_t kMaxAuthorization = 2048; // bytes of an Authorization header
constexpr const char* kDigestType =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordDigest";

// Hex text of bytes.
std::string hex(const unsigned char* bytes, size_t n) {
  static const char* kDigits = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < n; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 15];
  }
  return out;
}

// Hex digest of text with the named algorithm (MD5, SHA256).
std::string hash_hex(const EVP_MD* md, std::string_view text) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  EVP_Digest(text.data(), text.size(), out, &n, md, nullptr);
  return hex(out, n);
}

// Compares two texts in a time that does not depend on where they differ.
bool same_text(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned char diff = 0;
  for (size_t i = 0; i < a.size(); ++i) diff |= static_cast<unsigned char>(a[i] ^ b[i]);
  return diff == 0;
}

// Splits `Digest k=v, k="v", ...` into its parameters; false when malformed.
bool parse_digest_params(std::string_view text, std::map<std::string, std::string>* out) {
  constexpr std::string_view kScheme = "Digest ";
  if (text.size() > kMaxAuthorization || text.substr(0, kScheme.size()) != kScheme) return false;
  size_t i = kScheme.size();
  while (i < text.size()) {
    while (i < text.size() && (text[i] == ' ' || text[i] == ',')) ++i;
    if (i >= text.size()) break;
    size_t eq = text.find('=', i);
    if (eq == std::string_view::npos) return false;
    std::string key(text.substr(i, eq - i));
    while (!key.empty() && key.back() == ' ') key.pop_back();
    i = eq + 1;
    std::string value;
    if (i < text.size() && text[i] == '"') {
      size_t end = text.find('"', i + 1);
      if (end == std::string_view::npos) return false;
      value = std::string(text.substr(i + 1, end - i - 1));
      i = end + 1;
    } else {
      size_t end = text.find(',', i);
      if (end == std::string_view::npos) end = text.size();
      value = std::string(text.substr(i, end - i));
      while (!value.empty() && value.back() == ' ') value.pop_back();
      i = end;
    }
    if (out->size() >= 16) return false;
    (*out)[key] = value;
  }
  return true;
}

// Seconds since 1970 now.
int64_t now_seconds() { return static_cast<int64_t>(time(nullptr)); }

}  // namespace

std::string base64_encode(std::string_view bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                          reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  out.resize(n);
  return out;
}

bool base64_decode(std::string_view text, std::string* bytes) {
  if (text.size() % 4 != 0 || text.size() > 1024) return false;
  std::string out(text.size() / 4 * 3 + 1, '\0');
  int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                          reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  if (n < 0) return false;
  size_t pad = 0;
  if (!text.empty() && text.back() == '=') ++pad;
  if (text.size() > 1 && text[text.size() - 2] == '=') ++pad;
  out.resize(static_cast<size_t>(n) - pad);
  *bytes = std::move(out);
  return true;
}

std::string password_digest(std::string_view nonce_bytes, std::string_view created, std::string_view password) {
  std::string text = std::string(nonce_bytes) + std::string(created) + std::string(password);
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  EVP_Digest(text.data(), text.size(), out, &n, EVP_sha1(), nullptr);
  return base64_encode(std::string_view(reinterpret_cast<const char*>(out), n));
}

bool parse_utc_time(std::string_view text, int64_t* seconds) {
  if (text.size() < 20 || text.size() > 40) return false;
  tm t{};
  int consumed = 0;
  std::string copy(text);
  if (sscanf(copy.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour, &t.tm_min,
             &t.tm_sec, &consumed) != 6 || consumed != 19) {
    return false;
  }
  std::string_view rest = text.substr(19);
  if (!rest.empty() && rest[0] == '.') {
    size_t i = 1;
    while (i < rest.size() && rest[i] >= '0' && rest[i] <= '9') ++i;
    if (i == 1) return false;
    rest = rest.substr(i);
  }
  if (rest != "Z") return false;
  if (t.tm_mon < 1 || t.tm_mon > 12 || t.tm_mday < 1 || t.tm_mday > 31 || t.tm_hour > 23 || t.tm_min > 59 ||
      t.tm_sec > 60 || t.tm_year < 1970) {
    return false;
  }
  t.tm_year -= 1900;
  t.tm_mon -= 1;
  *seconds = static_cast<int64_t>(timegm(&t));
  return true;
}

std::string utc_time_text(int64_t seconds) {
  time_t s = static_cast<time_t>(seconds);
  tm t{};
  gmtime_r(&s, &t);
  char out[32];
  strftime(out, sizeof out, "%Y-%m-%dT%H:%M:%SZ", &t);
  return out;
}

bool read_password_file(const std::string& file, std::string* password, std::string* error) {
  std::ifstream in(file);
  std::string line;
  if (!in || !std::getline(in, line)) {
    *error = "cannot read a password from " + file;
    return false;
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.empty() || line.size() > 128) {
    *error = "the password in " + file + " must be 1 to 128 characters on its first line";
    return false;
  }
  *password = line;
  return true;
}

bool load_or_create_credentials(const std::string& state_folder, const std::string& user, Credentials* out,
                                bool* created, std::string* error) {
  std::string path = state_folder + "/" + kCredentialsFile;
  out->user = user;
  *created = false;
  if (access(path.c_str(), F_OK) == 0) return read_password_file(path, &out->password, error);
  std::error_code ec;
  std::filesystem::create_directories(state_folder, ec);  // slewd may not have made it yet
  unsigned char random[12];
  if (RAND_bytes(random, sizeof random) != 1) {
    *error = "no random bytes for a password";
    return false;
  }
  std::string password = base64_encode(std::string_view(reinterpret_cast<char*>(random), sizeof random));
  for (char& c : password) c = c == '+' ? 'k' : c == '/' ? 'q' : c;  // easy to type
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  std::string line = password + "\n";
  if (fd < 0 || write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()) || fsync(fd) != 0) {
    *error = "cannot store the password in " + path + " (" + strerror(errno) + ")";
    if (fd >= 0) close(fd);
    return false;
  }
  close(fd);
  out->password = password;
  *created = true;
  return true;
}

bool ReplayGuard::first_use(const std::string& token, std::chrono::steady_clock::time_point now) {
  std::lock_guard<std::mutex> lock(mutex_);
  while (!order_.empty() && now - order_.front().first > kKeep) {
    seen_.erase(order_.front().second);
    order_.pop_front();
  }
  if (seen_.count(token) != 0 || seen_.size() >= kCapacity) return false;
  seen_.insert(token);
  order_.push_back({now, token});
  return true;
}

Authenticator::Authenticator(Credentials creds) : creds_(std::move(creds)) {
  if (RAND_bytes(secret_, sizeof secret_) != 1) memset(secret_, 0x5a, sizeof secret_);
}

std::string Authenticator::make_nonce(int64_t now) const {
  char stamp[17];
  snprintf(stamp, sizeof stamp, "%016llx", static_cast<unsigned long long>(now));
  unsigned char mac[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  HMAC(EVP_sha256(), secret_, sizeof secret_, reinterpret_cast<const unsigned char*>(stamp), 16, mac, &n);
  return std::string(stamp) + hex(mac, 16);
}

std::string Authenticator::challenge(bool stale) {
  return std::string("Digest realm=\"") + kRealm + "\", qop=\"auth\", nonce=\"" + make_nonce(now_seconds()) +
         "\", algorithm=MD5" + (stale ? ", stale=true" : "");
}

AuthResult Authenticator::check_username_token(pugi::xml_node security, bool changes, int64_t now,
                                               std::string* why) {
  pugi::xml_node token = child(security, "UsernameToken", kNsSecurity);
  pugi::xml_node user = child(token, "Username", kNsSecurity);
  pugi::xml_node password = child(token, "Password", kNsSecurity);
  pugi::xml_node nonce = child(token, "Nonce", kNsSecurity);
  pugi::xml_node created = child(token, "Created", kNsUtility);
  if (!token || !user || !password || !nonce || !created) {
    *why = "the UsernameToken needs Username, Password, Nonce and Created";
    return AuthResult::kRefused;
  }
  if (std::string_view(password.attribute("Type").value()) != kDigestType) {
    *why = "only a PasswordDigest is accepted";
    return AuthResult::kRefused;
  }
  std::string nonce_text = text_of(nonce), created_text = text_of(created), nonce_bytes;
  int64_t when = 0;
  if (!base64_decode(nonce_text, &nonce_bytes) || nonce_bytes.empty()) {
    *why = "the Nonce is not base64";
    return AuthResult::kRefused;
  }
  if (!parse_utc_time(created_text, &when)) {
    *why = "Created is not a UTC time";
    return AuthResult::kRefused;
  }
  if (when > now + kMaxSkew || when < now - kMaxSkew) {
    *why = "Created is more than 5 minutes off the camera's clock (" + utc_time_text(now) + ")";
    return AuthResult::kRefused;
  }
  bool user_ok = same_text(text_of(user), creds_.user);
  bool digest_ok = same_text(text_of(password), password_digest(nonce_bytes, created_text, creds_.password));
  if (!user_ok || !digest_ok) {
    *why = "wrong user name or password";
    return AuthResult::kRefused;
  }
  if (changes && !replays_.first_use("ws " + nonce_text, std::chrono::steady_clock::now())) {
    *why = "this Nonce was used before: a request that changes something needs a new one";
    return AuthResult::kRefused;
  }
  return AuthResult::kOk;
}

AuthResult Authenticator::check_http_digest(std::string_view authorization, std::string_view method,
                                            bool changes, int64_t now, std::string* why) {
  std::map<std::string, std::string> p;
  if (!parse_digest_params(authorization, &p)) {
    *why = "malformed Digest authorization";
    return AuthResult::kRefused;
  }
  const std::string &nonce = p["nonce"], &algorithm = p["algorithm"], &qop = p["qop"];
  const EVP_MD* md = algorithm.empty() || algorithm == "MD5" ? EVP_md5()
                     : algorithm == "SHA-256"                 ? EVP_sha256()
                                                              : nullptr;
  if (md == nullptr) {
    *why = "Digest algorithm not supported";
    return AuthResult::kRefused;
  }
  if (nonce.size() != 48 || !same_text(make_nonce(std::strtoll(nonce.substr(0, 16).c_str(), nullptr, 16)), nonce)) {
    *why = "Digest nonce not issued here";
    return AuthResult::kChallenge;
  }
  int64_t issued = std::strtoll(nonce.substr(0, 16).c_str(), nullptr, 16);
  if (now - issued > kNonceLifetime || issued > now + 1) {
    *why = "Digest nonce expired";
    return AuthResult::kChallenge;
  }
  if (p["realm"] != kRealm || (!qop.empty() && qop != "auth")) {
    *why = "Digest realm or qop not ours";
    return AuthResult::kRefused;
  }
  std::string ha1 = hash_hex(md, creds_.user + ":" + kRealm + ":" + creds_.password);
  std::string ha2 = hash_hex(md, std::string(method) + ":" + p["uri"]);
  std::string expected = qop.empty()
                             ? hash_hex(md, ha1 + ":" + nonce + ":" + ha2)
                             : hash_hex(md, ha1 + ":" + nonce + ":" + p["nc"] + ":" + p["cnonce"] + ":auth:" + ha2);
  if (!same_text(p["username"], creds_.user) || !same_text(p["response"], expected)) {
    *why = "wrong user name or password";
    return AuthResult::kRefused;
  }
  if (changes && !replays_.first_use("http " + nonce + ":" + p["nc"] + ":" + p["cnonce"],
                                     std::chrono::steady_clock::now())) {
    *why = "this Digest nonce count was used before: a request that changes something needs a new one";
    return AuthResult::kRefused;
  }
  return AuthResult::kOk;
}

AuthResult Authenticator::check(pugi::xml_node soap_header, std::string_view authorization,
                                std::string_view method, bool changes, std::string* why) {
  pugi::xml_node security = child(soap_header, "Security", kNsSecurity);
  if (security) return check_username_token(security, changes, now_seconds(), why);
  // Basic or another scheme is answered with the Digest challenge, as no credentials at all.
  if (authorization.rfind("Digest ", 0) == 0) return check_http_digest(authorization, method, changes, now_seconds(), why);
  *why = "this operation needs a user name and password";
  return AuthResult::kChallenge;
}

}  // namespace onvif
