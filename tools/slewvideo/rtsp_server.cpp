// The RTSP server: a shared media factory whose pipeline starts at an appsrc
// fed with the rendered frames and encodes them once with x264, tuned for
// latency, for every client.
#include "rtsp_server.h"

namespace slewvideo {

std::string encoder_line(int fps) {
  return "videoconvert ! video/x-raw,format=I420 ! x264enc tune=zerolatency speed-preset=ultrafast bitrate=2000 "
         "key-int-max=" + std::to_string(fps) + " ! video/x-h264,profile=constrained-baseline";
}

namespace {

// The appsrc holds at most eight frames (half a second at 15 fps) and drops
// the oldest when the encoder falls behind, so a slow encode never grows
// memory or delays the renderer. Frames carry the
// time of their tick (see push), not of their arrival: a decoder reads the
// exact rate, and a frame the clock skipped shows as a gap.
std::string launch_line(int width, int height, int fps) {
  char caps[128];
  snprintf(caps, sizeof caps, "video/x-raw,format=BGRx,width=%d,height=%d,framerate=%d/1", width, height, fps);
  return std::string("( appsrc name=src is-live=true format=time do-timestamp=false block=false max-buffers=8 "
                     "leaky-type=downstream max-bytes=0 caps=\"") +
         caps + "\" ! " + encoder_line(fps) +
         " ! rtph264pay name=pay0 pt=96 config-interval=1 )";
}

// Releases the frame a buffer wraps.
void release_frame(gpointer data) { delete static_cast<std::shared_ptr<const render::Frame>*>(data); }

}  // namespace

RtspServer::RtspServer(std::string host, int port, int width, int height, int fps)
    : host_(std::move(host)), port_(port), width_(width), height_(height), fps_(fps) {}

RtspServer::~RtspServer() { stop(); }

bool RtspServer::start(std::string* error) {
  context_ = g_main_context_new();
  loop_ = g_main_loop_new(context_, FALSE);
  server_ = gst_rtsp_server_new();
  gst_rtsp_server_set_address(server_, host_.c_str());
  gst_rtsp_server_set_service(server_, std::to_string(port_).c_str());
  GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(server_);
  gst_rtsp_session_pool_set_max_sessions(pool, kMaxRtspClients);
  g_object_unref(pool);
  g_signal_connect(server_, "client-connected", G_CALLBACK(on_client_connected), this);

  GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
  gst_rtsp_media_factory_set_launch(factory, launch_line(width_, height_, fps_).c_str());
  gst_rtsp_media_factory_set_shared(factory, TRUE);
  g_signal_connect(factory, "media-configure", G_CALLBACK(on_media_configure), this);
  GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server_);
  gst_rtsp_mount_points_add_factory(mounts, "/head", factory);
  g_object_unref(mounts);

  source_ = gst_rtsp_server_attach(server_, context_);
  if (source_ == 0) {
    *error = "cannot listen for RTSP on " + host_ + ":" + std::to_string(port_);
    return false;
  }
  port_ = gst_rtsp_server_get_bound_port(server_);
  thread_ = std::thread([this] {
    g_main_context_push_thread_default(context_);
    g_main_loop_run(loop_);
    g_main_context_pop_thread_default(context_);
  });
  return true;
}

void RtspServer::push(const std::shared_ptr<const render::Frame>& frame, int64_t tick) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!appsrc_) return;
  if (first_tick_ < 0) {
    // Times start at the pipeline's running time of the media's first frame.
    GstClock* clock = gst_element_get_clock(appsrc_);
    if (!clock) return;
    GstClockTime now = gst_clock_get_time(clock), base = gst_element_get_base_time(appsrc_);
    gst_object_unref(clock);
    first_tick_ = tick;
    first_time_ = now > base ? now - base : 0;
  }
  auto* keep = new std::shared_ptr<const render::Frame>(frame);
  GstBuffer* buffer = gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, const_cast<uint8_t*>(frame->bgrx.data()),
                                                  frame->bgrx.size(), 0, frame->bgrx.size(), keep, release_frame);
  GST_BUFFER_PTS(buffer) = first_time_ + gst_util_uint64_scale_int(tick - first_tick_, GST_SECOND, fps_);
  GST_BUFFER_DURATION(buffer) = gst_util_uint64_scale_int(1, GST_SECOND, fps_);
  gst_app_src_push_buffer(GST_APP_SRC(appsrc_), buffer);
}

void RtspServer::stop() {
  if (loop_) {
    g_main_loop_quit(loop_);
    if (thread_.joinable()) thread_.join();
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (appsrc_) gst_object_unref(appsrc_);
    appsrc_ = nullptr;
  }
  if (source_) {
    if (GSource* source = g_main_context_find_source_by_id(context_, source_)) g_source_destroy(source);
  }
  source_ = 0;
  if (server_) g_object_unref(server_);
  server_ = nullptr;
  if (loop_) g_main_loop_unref(loop_);
  loop_ = nullptr;
  if (context_) g_main_context_unref(context_);
  context_ = nullptr;
}

void RtspServer::on_media_configure(GstRTSPMediaFactory*, GstRTSPMedia* media, gpointer self) {
  auto* s = static_cast<RtspServer*>(self);
  GstElement* pipeline = gst_rtsp_media_get_element(media);
  GstElement* src = gst_bin_get_by_name_recurse_up(GST_BIN(pipeline), "src");
  gst_object_unref(pipeline);
  g_signal_connect(media, "unprepared", G_CALLBACK(on_unprepared), self);
  std::lock_guard<std::mutex> lock(s->mutex_);
  if (s->appsrc_) gst_object_unref(s->appsrc_);
  s->appsrc_ = src;
  s->media_ = media;
  s->first_tick_ = -1;
}

void RtspServer::on_unprepared(GstRTSPMedia* media, gpointer self) {
  auto* s = static_cast<RtspServer*>(self);
  std::lock_guard<std::mutex> lock(s->mutex_);
  if (media != s->media_) return;  // an older media, already replaced
  s->media_ = nullptr;
  if (s->appsrc_) gst_object_unref(s->appsrc_);
  s->appsrc_ = nullptr;
}

void RtspServer::on_client_connected(GstRTSPServer*, GstRTSPClient* client, gpointer self) {
  auto* s = static_cast<RtspServer*>(self);
  g_signal_connect(client, "closed", G_CALLBACK(on_client_closed), self);
  if (++s->clients_ > kMaxRtspClients) gst_rtsp_client_close(client);
}

void RtspServer::on_client_closed(GstRTSPClient*, gpointer self) { --static_cast<RtspServer*>(self)->clients_; }

}  // namespace slewvideo
