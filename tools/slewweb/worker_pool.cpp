// Fixed worker threads over a bounded queue of connections.
#include "worker_pool.h"

namespace slewweb {

WorkerPool::WorkerPool(size_t threads, size_t max_queued) : max_queued_(max_queued) {
  for (size_t i = 0; i < threads; ++i) threads_.emplace_back([this] { work(); });
}

WorkerPool::~WorkerPool() { shutdown(); }

void WorkerPool::enqueue(std::function<void()> job) {
  std::unique_lock lock(mutex_);
  room_.wait(lock, [this] { return jobs_.size() < max_queued_ || stopping_; });
  jobs_.push_back(std::move(job));
  ready_.notify_one();
}

void WorkerPool::shutdown() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  ready_.notify_all();
  room_.notify_all();
  for (std::thread& t : threads_) {
    if (t.joinable()) t.join();
  }
}

void WorkerPool::work() {
  for (;;) {
    std::function<void()> job;
    {
      std::unique_lock lock(mutex_);
      ready_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
      if (jobs_.empty()) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    room_.notify_one();
    job();
  }
}

}  // namespace slewweb
