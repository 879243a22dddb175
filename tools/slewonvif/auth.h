// Who may use slewonvif: the one user's credentials, WS-Security
// UsernameToken digests, HTTP Digest, and the memory of tokens already used.
#pragma once

#include <pugixml.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_set>

namespace onvif {

// The user slewonvif accepts.
struct Credentials {
  std::string user = "admin";
  std::string password;
};

// Loads the credentials stored in state_folder; when none are there, makes
// a random password, stores it (mode 0600) and sets *created. False with a
// reason when the file cannot be read or written.
bool load_or_create_credentials(const std::string& state_folder, const std::string& user, Credentials* out,
                                bool* created, std::string* error);
// Reads a password from the first line of file; false with a reason.
bool read_password_file(const std::string& file, std::string* password, std::string* error);

// Tokens of requests that changed something, remembered while their time is
// valid so that a replay is refused; bounded, and refusing when full rather
// than forgetting a token that is still valid.
class ReplayGuard {
 public:
  static constexpr size_t kCapacity = 8192;
  static constexpr std::chrono::seconds kKeep{600};  // twice the allowed clock skew

  // True (and remembered) for a token not seen within kKeep; false for a
  // replay, or when kCapacity valid tokens are already held.
  bool first_use(const std::string& token, std::chrono::steady_clock::time_point now);

 private:
  std::mutex mutex_;
  std::deque<std::pair<std::chrono::steady_clock::time_point, std::string>> order_;
  std::unordered_set<std::string> seen_;
};

// What became of an authentication.
enum class AuthResult { kOk, kRefused, kChallenge };

// Checks a request's credentials. A WS-Security UsernameToken in header is
// checked first; else an HTTP Digest Authorization; with neither the client
// is challenged. changes says the operation changes something, so a token
// already used is refused. why receives what was wrong.
class Authenticator {
 public:
  explicit Authenticator(Credentials creds);

  AuthResult check(pugi::xml_node soap_header, std::string_view authorization, std::string_view method,
                   bool changes, std::string* why);
  // The WWW-Authenticate value of a challenge: realm first, a fresh nonce.
  std::string challenge(bool stale);

  // Checks one UsernameToken against the credentials at time now (UTC seconds).
  AuthResult check_username_token(pugi::xml_node security, bool changes, int64_t now, std::string* why);
  // Checks one HTTP Digest Authorization value for a request of method.
  AuthResult check_http_digest(std::string_view authorization, std::string_view method, bool changes,
                               int64_t now, std::string* why);
  // A server nonce issued at time now: the time and a keyed hash of it.
  std::string make_nonce(int64_t now) const;

 private:
  Credentials creds_;
  unsigned char secret_[32];  // keys the server nonces of HTTP Digest
  ReplayGuard replays_;
};

// base64(SHA-1(nonce + created + password)), the UsernameToken digest.
std::string password_digest(std::string_view nonce_bytes, std::string_view created, std::string_view password);
// Standard base64 of bytes, and back (false on bad text).
std::string base64_encode(std::string_view bytes);
bool base64_decode(std::string_view text, std::string* bytes);
// Seconds since 1970 of an xs:dateTime in UTC ("2024-05-01T10:00:00Z",
// fractions allowed); false when it is not one.
bool parse_utc_time(std::string_view text, int64_t* seconds);
// The present UTC time as xs:dateTime text.
std::string utc_time_text(int64_t seconds);

}  // namespace onvif
