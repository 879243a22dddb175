// Wire helpers of the bus socket, key rules, and the state folder.
#include "bus/bus_protocol.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"

namespace sim {

bool bus_key_valid(const char* key) {
  if (key == nullptr || key[0] == '\0') return false;
  size_t n = 0;
  for (const char* p = key; *p != '\0'; ++p, ++n) {
    char c = *p;
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '_' || c == '.' || c == '-';
    if (!ok || n >= static_cast<size_t>(kValueMax)) return false;
  }
  return true;
}

namespace {

// The escapes of the wire: backslash, line feed, carriage return. False for
// any other character.
bool wire_escape(char c, std::string& out) {
  const char* escaped = c == '\\' ? "\\\\" : c == '\n' ? "\\n" : c == '\r' ? "\\r" : nullptr;
  if (escaped) out += escaped;
  return escaped != nullptr;
}

}  // namespace

std::string proto_escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text)
    if (!wire_escape(c, out)) out += c;
  return out;
}

std::string display_escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  char hex[16];
  for (size_t i = 0; i < text.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    bool c1 = c == 0xc2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
              static_cast<unsigned char>(text[i + 1]) <= 0x9f;
    if (wire_escape(text[i], out)) {
      continue;
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == 0x1b) {
      out += "\\e";
    } else if (c < 0x20 || c == 0x7f) {
      snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else if (c1) {
      snprintf(hex, sizeof hex, "\\xc2\\x%02x", static_cast<unsigned char>(text[++i]));
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

bool proto_unescape(std::string_view wire, std::string* text) {
  text->clear();
  for (size_t i = 0; i < wire.size(); ++i) {
    if (wire[i] != '\\') {
      *text += wire[i];
      continue;
    }
    if (++i == wire.size()) return false;
    if (wire[i] == '\\') {
      *text += '\\';
    } else if (wire[i] == 'n') {
      *text += '\n';
    } else if (wire[i] == 'r') {
      *text += '\r';
    } else {
      return false;
    }
  }
  return true;
}

bool LineReader::next(std::string* line) {
  for (;;) {
    size_t end = buffered_.find('\n');
    if (end != std::string::npos && end <= kProtoLineMax) {
      size_t cr = end > 0 && buffered_[end - 1] == '\r' ? 1 : 0;
      line->assign(buffered_, 0, end - cr);
      buffered_.erase(0, end + 1);
      return true;
    }
    if (end != std::string::npos || buffered_.size() > kProtoLineMax) {
      overlong_ = true;
      return false;
    }
    char chunk[512];
    ssize_t got = recv(fd_, chunk, sizeof chunk, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    buffered_.append(chunk, static_cast<size_t>(got));
  }
}

bool proto_send(int fd, std::string_view text) {
  while (!text.empty()) {
    ssize_t sent = send(fd, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    text.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

bool state_folder(std::string* folder, std::string* error) {
  const char* chosen = getenv("SLEWD_STATE");
  if (chosen != nullptr && chosen[0] != '\0') {
    *folder = chosen;
    return true;
  }
  const char* home = getenv("HOME");
  if (home == nullptr || home[0] == '\0') {
    *error = "neither SLEWD_STATE nor HOME is set";
    return false;
  }
  *folder = std::string(home) + "/.local/state/slewd";
  return true;
}

std::string socket_path(const std::string& folder) { return folder + "/bus.sock"; }

bool proto_word(const std::string& line, const char* word, std::string* rest) {
  size_t n = strlen(word);
  if (line.compare(0, n, word) != 0) return false;
  if (line.size() == n) {
    rest->clear();
    return true;
  }
  if (line[n] != ' ') return false;
  *rest = line.substr(n + 1);
  return true;
}

bool proto_split_entry(const std::string& entry, std::string* key, std::string* value) {
  size_t eq = entry.find('=');
  if (eq == std::string::npos) return false;
  *key = entry.substr(0, eq);
  return proto_unescape(std::string_view(entry).substr(eq + 1), value);
}

bool socket_address(const std::string& path, sockaddr_un* address, std::string* error) {
  *address = sockaddr_un{};
  address->sun_family = AF_UNIX;
  if (path.size() >= sizeof address->sun_path) {
    *error = "socket path too long: " + path;
    return false;
  }
  memcpy(address->sun_path, path.c_str(), path.size() + 1);
  return true;
}

void set_socket_timeout(int fd, double seconds) {
  timeval limit{};
  limit.tv_sec = static_cast<time_t>(seconds);
  limit.tv_usec = static_cast<suseconds_t>((seconds - static_cast<double>(limit.tv_sec)) * 1e6);
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

int connect_socket(const std::string& path, double limit_s, std::string* error) {
  sockaddr_un address;
  if (!socket_address(path, &address, error)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd >= 0) set_socket_timeout(fd, limit_s);
  if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
  int cause = errno;
  *error = path + ": " + strerror(cause);
  if (fd >= 0) close(fd);
  errno = cause;
  return -1;
}

}  // namespace sim
