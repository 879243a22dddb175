// The threads that serve slewweb's connections, with a bounded queue: when
// it is full the listening thread waits, so further connections wait in the
// kernel's listen backlog rather than in slewweb's memory.
#pragma once

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace slewweb {

class WorkerPool : public httplib::TaskQueue {
 public:
  WorkerPool(size_t threads, size_t max_queued);
  ~WorkerPool() override;

  // Queues one connection's work; waits while max_queued are waiting.
  void enqueue(std::function<void()> job) override;
  // Runs what is queued, then ends the threads.
  void shutdown() override;

 private:
  // One worker: runs queued jobs until shutdown has emptied the queue.
  void work();

  size_t max_queued_;
  std::mutex mutex_;
  std::condition_variable ready_;  // a job was queued, or shutdown began
  std::condition_variable room_;   // a job left the queue
  std::deque<std::function<void()>> jobs_;
  std::vector<std::thread> threads_;
  bool stopping_ = false;
};

}  // namespace slewweb
