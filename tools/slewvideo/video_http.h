// slewvideo's HTTP side: the current frame as JPEG and a multipart MJPEG stream.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "picture.h"
#include "request_guard.h"

namespace httplib {
class Server;
}

namespace slewvideo {

constexpr int kHttpThreads = 8;   // requests served at once, MJPEG streams included
constexpr int kHttpQueued = 16;   // accepted connections waiting for a thread
constexpr int kMaxMjpeg = 6;      // MJPEG streams at once; a seventh gets 503

class VideoHttp {
 public:
  explicit VideoHttp(Picture& picture);
  ~VideoHttp();

  // Binds to host:port (0: any free port); false with a reason.
  bool bind(const std::string& host, int port, std::string* error);
  // The bound port.
  int port() const;
  // Serves until stop().
  void serve();
  // Ends serve() from another thread.
  void stop();

 private:
  Picture& picture_;
  std::unique_ptr<httplib::Server> server_;
  slewweb::ServedAddress served_;  // what the Host of a request must name
  std::atomic<int> streams_{0};
};

}  // namespace slewvideo
