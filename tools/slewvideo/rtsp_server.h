// The RTSP stream: one shared H.264 encode of the frames, for every client.
#pragma once

#include <gst/app/gstappsrc.h>
#include <gst/rtsp-server/rtsp-server.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "render/scene.h"

namespace slewvideo {

constexpr int kMaxRtspClients = 8;  // RTSP connections at once; a ninth is closed

// The encoder's part of the pipeline, from raw frames to H.264 (a software
// encoder tuned for latency: no look-ahead, no B-frames, a key frame a second).
std::string encoder_line(int fps);

class RtspServer {
 public:
  RtspServer(std::string host, int port, int width, int height, int fps);
  ~RtspServer();

  // Listens and starts serving rtsp://HOST:PORT/head; false with a reason.
  bool start(std::string* error);
  // The port it listens on (the chosen one when 0 was asked for).
  int port() const { return port_; }
  // Hands the frame of clock tick number tick to the encoder while anyone
  // watches; never waits.
  void push(const std::shared_ptr<const render::Frame>& frame, int64_t tick);
  // Ends serving.
  void stop();

 private:
  // The shared media was made for its first client: frames go to its appsrc.
  static void on_media_configure(GstRTSPMediaFactory*, GstRTSPMedia* media, gpointer self);
  // The last client left and the media stopped: frames go nowhere.
  static void on_unprepared(GstRTSPMedia* media, gpointer self);
  // Counts connections and closes those over the bound.
  static void on_client_connected(GstRTSPServer*, GstRTSPClient* client, gpointer self);
  static void on_client_closed(GstRTSPClient*, gpointer self);

  std::string host_;
  int port_, width_, height_, fps_;
  GMainContext* context_ = nullptr;
  GMainLoop* loop_ = nullptr;
  GstRTSPServer* server_ = nullptr;
  guint source_ = 0;
  std::thread thread_;
  std::mutex mutex_;               // guards appsrc_ and media_
  GstElement* appsrc_ = nullptr;   // the shared media's source while it is prepared
  GstRTSPMedia* media_ = nullptr;  // the media appsrc_ belongs to (not a reference)
  int64_t first_tick_ = -1;        // the tick of the media's first frame
  GstClockTime first_time_ = 0;    // that frame's running time
  std::atomic<int> clients_{0};
};

}  // namespace slewvideo
