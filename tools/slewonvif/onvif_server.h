// The HTTP side of slewonvif: cpp-httplib with a bounded pool of workers,
// every POST handed to the Service whatever its path.
#pragma once

#include <memory>
#include <string>

#include "service.h"

namespace httplib {
class Server;
}

namespace onvif {

inline constexpr size_t kWorkerThreads = 8;       // requests served at once
inline constexpr size_t kMaxQueued = 16;          // accepted connections waiting for a worker
inline constexpr size_t kMaxKeepAliveRequests = 100;  // requests on one connection

class OnvifServer {
 public:
  explicit OnvifServer(Service& service);
  ~OnvifServer();

  // Binds host:port (port 0: any free port); false with a reason.
  bool bind(const std::string& host, int port, std::string* error);
  int port() const { return port_; }
  // Serves until stop().
  void serve();
  void stop();

 private:
  Service& service_;
  std::unique_ptr<httplib::Server> server_;
  int port_ = 0;
};

}  // namespace onvif
