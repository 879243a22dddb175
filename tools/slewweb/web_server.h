// slewweb's HTTP face: the page, the live updates (Server-Sent Events) and
// the one write request, behind the request guard.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "bus_link.h"
#include "event_hub.h"
#include "preview_runner.h"
#include "request_guard.h"

namespace httplib {
class Server;
}

namespace slewweb {

using buslink::BusLink;
using buslink::BusReply;

// Bounds on what the server holds for its clients.
constexpr size_t kMaxListeners = 8;        // pages receiving live updates at once
constexpr size_t kMaxUnread = 4096;        // events a listener may leave unread
constexpr size_t kMaxBody = 4096;          // bytes of a request body
constexpr size_t kWorkerThreads = 16;      // requests served at once, listeners included
constexpr size_t kMaxQueued = 32;          // accepted connections waiting for a worker
constexpr int kMaxPictures = 4;            // pages receiving the picture at once

class WebServer {
 public:
  // video: where slewvideo serves the picture, passed on to the page as
  // /video.mjpeg; preview: the timeline under the picture.
  WebServer(ServedAddress served, BusLink& bus, EventHub& hub, ServedAddress video, PreviewRunner& preview);
  ~WebServer();

  // Binds the address; false with a reason when that fails.
  bool bind(std::string* error);
  // The address served (with the port chosen by bind when 0 was asked for).
  const ServedAddress& served() const;
  // Serves until stop() is called.
  void serve();
  // Ends serve() from another thread.
  void stop();

 private:
  // Registers the routes and the guard.
  void install_routes();

  ServedAddress served_;
  BusLink& bus_;
  EventHub& hub_;
  std::unique_ptr<httplib::Server> server_;
  ServedAddress video_;
  PreviewRunner& preview_;
  std::atomic<int> pictures_{0};  // pages receiving the picture now
  std::atomic<bool> stopping_{false};  // stop() was called: picture streams end
};

// An event that gives a page the whole bus at once: "event: snapshot".
std::string snapshot_event(const BusLink& bus);
// An event for one bus write (the default "message" event).
std::string change_event(const std::string& key, const std::string& value);
// An event that tells the pages that slewd's bus went away: "event: lost".
std::string lost_event();
// An event that tells the pages a new timeline is ready: "event: preview".
std::string preview_event(int generation);

}  // namespace slewweb
