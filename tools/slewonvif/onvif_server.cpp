// Routes of slewonvif: every POST is a SOAP request; nothing else is served.
#include "onvif_server.h"

#include <httplib.h>

#include <cerrno>
#include <cstring>

#include "worker_pool.h"

namespace onvif {

OnvifServer::OnvifServer(Service& service) : service_(service), server_(std::make_unique<httplib::Server>()) {
  httplib::Server& s = *server_;
  s.new_task_queue = [] { return new slewweb::WorkerPool(kWorkerThreads, kMaxQueued); };
  s.set_payload_max_length(kMaxRequestBytes);
  s.set_keep_alive_max_count(kMaxKeepAliveRequests);
  s.set_keep_alive_timeout(5);
  s.set_tcp_nodelay(true);  // an answer goes out whole at once, not after the client's delayed ACK
  s.set_read_timeout(5, 0);
  s.set_write_timeout(5, 0);
  // Clients post every service to one path or another: the Body says what is asked, not the path.
  s.Post(".*", [this](const httplib::Request& req, httplib::Response& res) {
    HttpIn in;
    in.host = req.get_header_value("Host");
    in.authorization = req.get_header_value("Authorization");
    in.method = req.method;
    HttpOut out = service_.handle(in, req.body);
    res.status = out.status;
    if (!out.www_authenticate.empty()) res.set_header("WWW-Authenticate", out.www_authenticate);
    res.set_content(out.body, "application/soap+xml; charset=utf-8");
  });
  s.Get(".*", [](const httplib::Request&, httplib::Response& res) {
    res.status = 405;
    res.set_content("SOAP requests are POSTed\n", "text/plain");
  });
}

OnvifServer::~OnvifServer() = default;

bool OnvifServer::bind(const std::string& host, int port, std::string* error) {
  if (port == 0) {
    port_ = server_->bind_to_any_port(host);
    if (port_ > 0) return true;
  } else if (server_->bind_to_port(host, port)) {
    port_ = port;
    return true;
  }
  *error = "cannot listen on " + host + ":" + std::to_string(port) + " (" + strerror(errno) + ")";
  return false;
}

void OnvifServer::serve() { server_->listen_after_bind(); }

void OnvifServer::stop() { server_->stop(); }

}  // namespace onvif
