// The picture slewvideo serves: the head's state as the bus last told it,
// the latest frame drawn from it, and that frame as JPEG for HTTP clients.
#pragma once

#include <turbojpeg.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "render/scene.h"

namespace slewvideo {

class Picture {
 public:
  Picture(int width, int height);
  ~Picture();

  // One bus write; only the keys a frame shows are kept, so the copy stays small.
  void update(const std::string& key, const std::string& value);
  // Every key after a (re)connection to slewd.
  void replace(const std::map<std::string, std::string>& keys);
  // Whether slewd answers; while not, frames carry the "no head" mark.
  void set_link(bool up);

  // Draws the next frame from the latest state and makes it the current one;
  // while nothing it shows has changed, the current frame is the next one too.
  std::shared_ptr<const render::Frame> render_next();
  // The current frame and its number (0: none yet).
  std::shared_ptr<const render::Frame> current(uint64_t* number) const;
  // Waits up to timeout for a frame numbered above after; false on timeout or close().
  bool wait_newer(uint64_t after, std::chrono::milliseconds timeout) const;
  // The current frame as JPEG (encoded once per frame, on demand); its number in *number.
  std::shared_ptr<const std::string> jpeg(uint64_t* number);
  // Wakes every waiter for good.
  void close();
  // Whether close() was called.
  bool closed() const;

 private:
  const int width_, height_;
  mutable std::mutex mutex_;                  // guards everything below
  mutable std::condition_variable newer_;     // a frame was drawn, or close()
  std::map<std::string, std::string> keys_;   // the view keys as last written
  bool up_ = false;
  bool closed_ = false;
  bool changed_ = true;                       // something a frame shows changed since the last one
  std::shared_ptr<const render::Frame> frame_;
  uint64_t number_ = 0;                       // frames handed out, a drawn one repeated included
  uint64_t drawn_ = 0;                        // frames drawn
  // Frames to draw into again once nobody else holds them (the encoder's
  // queue, a JPEG being made): no fresh megabyte from the allocator per frame.
  std::vector<std::shared_ptr<render::Frame>> pool_;
  std::mutex jpeg_mutex_;                     // guards the encoder and the cached JPEG
  tjhandle encoder_;
  std::shared_ptr<const std::string> jpeg_;
  uint64_t jpeg_drawn_ = 0;                   // the frame jpeg_ shows
};

}  // namespace slewvideo
