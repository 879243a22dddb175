// The sandbox: a host folder that stands for the camera's file system.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "core/core.h"

namespace sim {
namespace {

// Set before any thread starts; read-only afterwards. The default keeps
// stray writes of a test that chose no root out of the real camera paths.
char g_root[4096] = "/tmp/slewsim-sandbox";

// Splits a camera path into its components, resolving "." and ".." without
// ever climbing above the camera's "/".
std::vector<std::string_view> components(std::string_view path) {
  std::vector<std::string_view> parts;
  while (!path.empty()) {
    size_t slash = path.find('/');
    std::string_view part = path.substr(0, slash);
    path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    parts.push_back(part);
  }
  return parts;
}

}  // namespace

void sandbox_set_root(const char* root) {
  size_t len = strnlen(root, sizeof g_root - 1);
  while (len > 1 && root[len - 1] == '/') --len;
  memcpy(g_root, root, len);
  g_root[len] = '\0';
}

const char* sandbox_root() { return g_root; }

void sandbox_path(const char* camera_path, char* out, size_t len) {
  if (len == 0) return;
  std::string host = g_root;
  for (std::string_view part : components(camera_path != nullptr ? camera_path : "")) {
    host += '/';
    host += part;
  }
  // A path that does not fit becomes empty, which no open accepts.
  if (host.size() >= len) {
    out[0] = '\0';
    return;
  }
  memcpy(out, host.c_str(), host.size() + 1);
}

int sandbox_make_parents(const char* host_path) {
  std::string path = host_path;
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    std::string folder = path.substr(0, slash);
    if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) return -1;
  }
  return 0;
}

int sandbox_make_camera_folders() {
  char host[4096];
  for (const char* folder : {"/tmp", "/mnt/nand", "/dev"}) {
    sandbox_path(folder, host, sizeof host);
    std::string inside = std::string(host) + "/.";
    if (sandbox_make_parents(inside.c_str()) != 0) return -1;
  }
  return 0;
}

}  // namespace sim
