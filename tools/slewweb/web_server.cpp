// Routes of slewweb: the page, /api/events (live bus changes) and /api/set.
#include "web_server.h"

#include <httplib.h>

#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>

#include "page_files.h"
#include "worker_pool.h"

namespace slewweb {
namespace {

using json = nlohmann::json;

constexpr auto kKeepAliveEvery = std::chrono::seconds(10);  // comment line to an idle listener
constexpr size_t kValueMax = 127;                           // longest bus value

// Serialises JSON; bytes that are not UTF-8 (a bus value may hold any) become U+FFFD.
std::string dump(const json& j) { return j.dump(-1, ' ', false, json::error_handler_t::replace); }

// A plain-text answer with a status.
void answer(httplib::Response& res, int status, const std::string& text) {
  res.status = status;
  res.set_content(text + "\n", "text/plain; charset=utf-8");
}

// Why a request may not go further, or empty when it may. Every request must
// name the served address in its Host; a change must be a POST with a JSON
// body and, when the browser says where it comes from, the page's own origin.
std::string refusal(const ServedAddress& served, const httplib::Request& req) {
  if (!host_allowed(served, req.get_header_value("Host"))) return "Host does not name this server";
  if (req.method == "GET" || req.method == "HEAD") {
    return req.path == "/api/set" ? "changes need POST" : "";
  }
  if (req.method != "POST") return "method not allowed";
  if (!json_content_type(req.get_header_value("Content-Type"))) return "changes need a JSON body";
  if (req.has_header("Origin") && !origin_allowed(served, req.get_header_value("Origin"))) {
    return "cross-origin request";
  }
  return "";
}

// POST /api/set with {"key": KEY, "value": TEXT}: one bus write.
void handle_set(const BusLink& bus, const httplib::Request& req, httplib::Response& res) {
  json body = json::parse(req.body, nullptr, false);
  if (body.is_discarded() || !body.is_object() || !body.contains("key") || !body.contains("value") ||
      !body["key"].is_string() || !body["value"].is_string()) {
    return answer(res, 400, "body must be {\"key\": TEXT, \"value\": TEXT}");
  }
  std::string key = body["key"], value = body["value"];
  if (!key_writable(key)) return answer(res, 403, "the page may not write " + key);
  if (value.size() > kValueMax || value.find('\0') != std::string::npos) {
    return answer(res, 400, "value over 127 characters");
  }
  std::string error;
  switch (bus.set(key, value, &error)) {
    case BusReply::kOk:
      return answer(res, 200, "ok");
    case BusReply::kRefused:
      return answer(res, 400, error);
    default:
      return answer(res, 502, error);
  }
}

// GET of a file of the page ("/" is index.html).
void handle_page(const httplib::Request& req, httplib::Response& res) {
  std::string path = req.path == "/" ? "/index.html" : req.path;
  for (size_t i = 0; i < kPageFileCount; ++i) {
    const PageFile& f = kPageFiles[i];
    if (path == f.path) {
      res.set_content(f.body, f.size, f.content_type);
      return;
    }
  }
  answer(res, 404, "no such page");
}

// GET /api/events: a snapshot of the bus, then every change, as Server-Sent Events.
void handle_events(const BusLink& bus, EventHub& hub, httplib::Response& res) {
  std::shared_ptr<Subscriber> sub = hub.subscribe();
  if (!sub) return answer(res, 503, "too many pages listening");
  // Subscribed first, so that no change between the snapshot and the stream is lost.
  std::string first = snapshot_event(bus);
  res.set_header("Cache-Control", "no-store");
  res.set_chunked_content_provider(
      "text/event-stream",
      [sub, first](size_t, httplib::DataSink& sink) mutable {
        std::string event;
        if (!first.empty()) {
          event.swap(first);
        } else if (!sub->next(&event, kKeepAliveEvery)) {
          sink.done();
          return true;
        }
        if (event.empty()) event = ": idle\n\n";
        return sink.write(event.data(), event.size());
      },
      [hub = &hub, sub](bool) { hub->unsubscribe(sub); });
}

// GET /video.mjpeg: slewvideo's MJPEG stream passed through on the page's own
// origin, so the page keeps its Host and origin rules and needs no other site.
void handle_video(const ServedAddress& video, std::atomic<int>& pictures, const std::atomic<bool>& stopping,
                  httplib::Response& res) {
  if (++pictures > kMaxPictures) {
    --pictures;
    return answer(res, 503, "too many pages showing the picture");
  }
  res.set_chunked_content_provider(
      "multipart/x-mixed-replace; boundary=frame",  // slewvideo's boundary, passed on unchanged
      [video, &stopping](size_t, httplib::DataSink& sink) {
        httplib::Client upstream(video.host, video.port);
        upstream.set_connection_timeout(1, 0);
        upstream.set_read_timeout(5, 0);
        upstream.Get("/mjpeg", [&](const char* data, size_t length) { return !stopping && sink.write(data, length); });
        sink.done();  // slewvideo went away or the page left: the page asks again
        return true;
      },
      [&pictures](bool) { --pictures; });
}

}  // namespace

std::string snapshot_event(const BusLink& bus) {
  std::map<std::string, std::string> keys;
  std::string error;
  bool up = bus.list("", &keys, &error) == BusReply::kOk;
  json data = {{"up", up}, {"keys", keys}};
  return "event: snapshot\ndata: " + dump(data) + "\n\n";
}

std::string change_event(const std::string& key, const std::string& value) {
  return "data: " + dump(json{{"k", key}, {"v", value}}) + "\n\n";
}

std::string lost_event() { return "event: lost\ndata: {}\n\n"; }

std::string preview_event(int generation) {
  return "event: preview\ndata: " + dump(json{{"generation", generation}}) + "\n\n";
}

WebServer::WebServer(ServedAddress served, BusLink& bus, EventHub& hub, ServedAddress video,
                     PreviewRunner& preview)
    : served_(std::move(served)), bus_(bus), hub_(hub), server_(std::make_unique<httplib::Server>()),
      video_(std::move(video)), preview_(preview) {
  install_routes();
}

WebServer::~WebServer() = default;

void WebServer::install_routes() {
  httplib::Server& s = *server_;
  s.new_task_queue = [] { return new WorkerPool(kWorkerThreads, kMaxQueued); };
  s.set_payload_max_length(kMaxBody);
  s.set_keep_alive_timeout(2);
  // The picture moves the camera when clicked: no framing by other sites.
  s.set_default_headers({{"X-Frame-Options", "DENY"},
                         {"Content-Security-Policy", "default-src 'self'; frame-ancestors 'none'"},
                         {"X-Content-Type-Options", "nosniff"}});
  s.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
    std::string why = refusal(served_, req);
    if (why.empty()) return httplib::Server::HandlerResponse::Unhandled;
    answer(res, 403, why);
    return httplib::Server::HandlerResponse::Handled;
  });
  s.Get("/api/events", [this](const httplib::Request&, httplib::Response& res) { handle_events(bus_, hub_, res); });
  s.Get("/video.mjpeg", [this](const httplib::Request&, httplib::Response& res) {
    handle_video(video_, pictures_, stopping_, res);
  });
  s.Get("/api/preview", [this](const httplib::Request&, httplib::Response& res) {
    PreviewResult r = preview_.result();
    res.set_header("Cache-Control", "no-store");
    res.set_content(dump(json{{"generation", r.generation}, {"table", r.table}}), "application/json");
  });
  s.Get("/api/preview.svg", [this](const httplib::Request&, httplib::Response& res) {
    PreviewResult r = preview_.result();
    if (r.svg.empty()) return answer(res, 404, "no timeline yet");
    res.set_header("Cache-Control", "no-store");
    res.set_content(r.svg, "image/svg+xml");
  });
  s.Post("/api/set", [this](const httplib::Request& req, httplib::Response& res) { handle_set(bus_, req, res); });
  s.Get(".*", [](const httplib::Request& req, httplib::Response& res) { handle_page(req, res); });
}

bool WebServer::bind(std::string* error) {
  if (served_.port == 0) {
    served_.port = server_->bind_to_any_port(served_.host);
    if (served_.port > 0) return true;
  } else if (server_->bind_to_port(served_.host, served_.port)) {
    return true;
  }
  *error = "cannot listen on " + served_.host + ":" + std::to_string(served_.port) + " (" +
           strerror(errno) + ")";
  return false;
}

const ServedAddress& WebServer::served() const { return served_; }

void WebServer::serve() { server_->listen_after_bind(); }

void WebServer::stop() {
  stopping_ = true;
  server_->stop();
}

}  // namespace slewweb
