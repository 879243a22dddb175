// Routes of slewvideo's HTTP server: /snapshot.jpg and /mjpeg.
#include "video_http.h"

#include <httplib.h>

#include <cstring>

#include "request_guard.h"
#include "worker_pool.h"

namespace slewvideo {
namespace {

constexpr auto kFrameWait = std::chrono::milliseconds(1000);
const char* const kBoundary = "frame";

// A plain-text answer with a status.
void answer(httplib::Response& res, int status, const std::string& text) {
  res.status = status;
  res.set_content(text + "\n", "text/plain; charset=utf-8");
}

}  // namespace

VideoHttp::VideoHttp(Picture& picture) : picture_(picture), server_(std::make_unique<httplib::Server>()) {
  httplib::Server& s = *server_;
  s.new_task_queue = [] { return new slewweb::WorkerPool(kHttpThreads, kHttpQueued); };
  s.set_keep_alive_timeout(2);
  // A stalled MJPEG reader is cut off after this long rather than held forever.
  s.set_write_timeout(2, 0);
  s.set_default_headers({{"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}});
  // A request must name the served address, so that a foreign site cannot
  // read the picture through DNS rebinding.
  s.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
    if (slewweb::host_allowed(served_, req.get_header_value("Host"))) return httplib::Server::HandlerResponse::Unhandled;
    answer(res, 403, "Host does not name this server");
    return httplib::Server::HandlerResponse::Handled;
  });
  s.Get("/snapshot.jpg", [this](const httplib::Request&, httplib::Response& res) {
    std::shared_ptr<const std::string> jpeg = picture_.jpeg(nullptr);
    if (!jpeg) return answer(res, 503, "no frame yet");
    res.set_content(*jpeg, "image/jpeg");
  });
  s.Get("/mjpeg", [this](const httplib::Request&, httplib::Response& res) {
    if (++streams_ > kMaxMjpeg) {
      --streams_;
      return answer(res, 503, "too many MJPEG streams");
    }
    auto last = std::make_shared<uint64_t>(0);
    res.set_chunked_content_provider(
        std::string("multipart/x-mixed-replace; boundary=") + kBoundary,
        [this, last](size_t, httplib::DataSink& sink) {
          // Always the newest frame: a slow reader skips frames instead of queueing them.
          if (*last != 0 && !picture_.wait_newer(*last, kFrameWait)) return !picture_.closed();
          std::shared_ptr<const std::string> jpeg = picture_.jpeg(last.get());
          if (!jpeg) return true;
          std::string head = std::string("--") + kBoundary + "\r\nContent-Type: image/jpeg\r\nContent-Length: " +
                             std::to_string(jpeg->size()) + "\r\n\r\n";
          return sink.write(head.data(), head.size()) && sink.write(jpeg->data(), jpeg->size()) &&
                 sink.write("\r\n", 2);
        },
        [this](bool) { --streams_; });
  });
  s.Get(".*", [](const httplib::Request&, httplib::Response& res) { answer(res, 404, "no such page"); });
}

VideoHttp::~VideoHttp() = default;

bool VideoHttp::bind(const std::string& host, int port, std::string* error) {
  int bound = port == 0 ? server_->bind_to_any_port(host) : (server_->bind_to_port(host, port) ? port : -1);
  served_ = {host, bound};
  if (bound > 0) return true;
  *error = "cannot listen for HTTP on " + host + ":" + std::to_string(port) + " (" + strerror(errno) + ")";
  return false;
}

int VideoHttp::port() const { return served_.port; }

void VideoHttp::serve() { server_->listen_after_bind(); }

void VideoHttp::stop() { server_->stop(); }

}  // namespace slewvideo
