// Fans the bus's changes out to the pages that listen (Server-Sent Events),
// with a bound on listeners and on what each may leave unread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace slewweb {

// One listening page: the events it has not read yet.
class Subscriber {
 public:
  explicit Subscriber(size_t max_queued) : max_queued_(max_queued) {}

  // Queues an event; a listener that already has max_queued unread is cut off.
  void push(const std::string& event);
  // Waits up to timeout for the next event. False when cut off or closed;
  // true with an empty event when the wait timed out.
  bool next(std::string* event, std::chrono::milliseconds timeout);
  // Ends the listener: next() returns false from now on.
  void close();

 private:
  size_t max_queued_;
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::string> queue_;
  bool closed_ = false;
};

class EventHub {
 public:
  EventHub(size_t max_subscribers, size_t max_queued)
      : max_subscribers_(max_subscribers), max_queued_(max_queued) {}

  // A new listener, or null when max_subscribers already listen.
  std::shared_ptr<Subscriber> subscribe();
  // Forgets a listener (its connection has ended).
  void unsubscribe(const std::shared_ptr<Subscriber>& subscriber);
  // Queues an event for every listener.
  void publish(const std::string& event);
  // Ends every listener and refuses new ones.
  void close();

 private:
  size_t max_subscribers_;
  size_t max_queued_;
  std::mutex mutex_;
  std::vector<std::shared_ptr<Subscriber>> subscribers_;
  bool closed_ = false;
};

}  // namespace slewweb
