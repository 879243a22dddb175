// The head's state, the latest frame and its JPEG.
#include "picture.h"

#include <algorithm>
#include <atomic>

namespace slewvideo {
namespace {

constexpr int kJpegQuality = 85;
constexpr size_t kPoolSize = 12;  // above the frames the encoder's queues and readers may hold

// True for a key a frame shows.
bool view_key(const std::string& key) {
  const auto& keys = render::view_keys();
  return std::find(keys.begin(), keys.end(), key) != keys.end();
}

}  // namespace

Picture::Picture(int width, int height) : width_(width), height_(height), encoder_(tjInitCompress()) {}

Picture::~Picture() { tjDestroy(encoder_); }

void Picture::update(const std::string& key, const std::string& value) {
  if (!view_key(key)) return;
  std::lock_guard<std::mutex> lock(mutex_);
  std::string& held = keys_[key];
  changed_ = changed_ || held != value;
  held = value;
}

void Picture::replace(const std::map<std::string, std::string>& keys) {
  std::lock_guard<std::mutex> lock(mutex_);
  keys_.clear();
  for (const auto& [key, value] : keys) {
    if (view_key(key)) keys_[key] = value;
  }
  changed_ = true;
}

void Picture::set_link(bool up) {
  std::lock_guard<std::mutex> lock(mutex_);
  changed_ = changed_ || up_ != up;
  up_ = up;
}

std::shared_ptr<const render::Frame> Picture::render_next() {
  render::HeadView head;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!changed_ && frame_) {
      ++number_;
      newer_.notify_all();
      return frame_;
    }
    changed_ = false;
    head = render::head_view(keys_);
    head.no_head = !up_;
  }
  // Only this thread takes frames from the pool; a count of one means the pool alone holds it.
  // ThreadSanitizer does not model the fence that makes the reuse safe: under it every frame is new.
  std::shared_ptr<render::Frame> frame;
#if !defined(__SANITIZE_THREAD__)
  for (const auto& spare : pool_) {
    if (spare.use_count() == 1) {
      std::atomic_thread_fence(std::memory_order_acquire);
      frame = spare;
      break;
    }
  }
#endif
  if (!frame) {
    frame = std::make_shared<render::Frame>();
    if (pool_.size() < kPoolSize) pool_.push_back(frame);
  }
  render::render_frame(head, width_, height_, frame.get());
  std::lock_guard<std::mutex> lock(mutex_);
  frame_ = frame;
  ++number_;
  ++drawn_;
  newer_.notify_all();
  return frame_;
}

std::shared_ptr<const render::Frame> Picture::current(uint64_t* number) const {
  std::lock_guard<std::mutex> lock(mutex_);
  if (number) *number = number_;
  return frame_;
}

bool Picture::wait_newer(uint64_t after, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return newer_.wait_for(lock, timeout, [&] { return closed_ || number_ > after; }) && !closed_;
}

std::shared_ptr<const std::string> Picture::jpeg(uint64_t* number) {
  uint64_t n = 0, drawn = 0;
  std::shared_ptr<const render::Frame> frame;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    n = number_;
    drawn = drawn_;
    frame = frame_;
  }
  std::lock_guard<std::mutex> lock(jpeg_mutex_);
  if (number) *number = n;
  if (!frame) return nullptr;
  if (jpeg_ && jpeg_drawn_ == drawn) return jpeg_;
  unsigned char* out = nullptr;
  unsigned long size = 0;
  if (tjCompress2(encoder_, frame->bgrx.data(), frame->width, frame->stride, frame->height, TJPF_BGRX, &out, &size,
                  TJSAMP_420, kJpegQuality, TJFLAG_FASTDCT) != 0) {
    return jpeg_;  // the last good one rather than nothing
  }
  jpeg_ = std::make_shared<const std::string>(reinterpret_cast<const char*>(out), size);
  jpeg_drawn_ = drawn;
  tjFree(out);
  return jpeg_;
}

void Picture::close() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
  }
  newer_.notify_all();
}

bool Picture::closed() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return closed_;
}

}  // namespace slewvideo
