// The page's files, built into the binary from tools/slewweb/page/ so that
// slewweb runs from anywhere with nothing installed beside it.
#pragma once

#include <cstddef>

namespace slewweb {

struct PageFile {
  const char* path;          // URL path, e.g. "/app.js"
  const char* content_type;  // e.g. "text/javascript; charset=utf-8"
  const char* body;
  size_t size;
};

extern const PageFile kPageFiles[];
extern const size_t kPageFileCount;

}  // namespace slewweb
