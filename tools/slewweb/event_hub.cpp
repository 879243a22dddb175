// Bounded fan-out of events to the listening pages.
#include "event_hub.h"

#include <algorithm>

namespace slewweb {

void Subscriber::push(const std::string& event) {
  std::lock_guard lock(mutex_);
  if (closed_) return;
  if (queue_.size() >= max_queued_) {
    // A page that reads nothing must not make slewweb hold the bus's history.
    closed_ = true;
    queue_.clear();
  } else {
    queue_.push_back(event);
  }
  ready_.notify_all();
}

bool Subscriber::next(std::string* event, std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  ready_.wait_for(lock, timeout, [this] { return closed_ || !queue_.empty(); });
  if (closed_) return false;
  if (queue_.empty()) {
    event->clear();
    return true;
  }
  *event = std::move(queue_.front());
  queue_.pop_front();
  return true;
}

void Subscriber::close() {
  std::lock_guard lock(mutex_);
  closed_ = true;
  ready_.notify_all();
}

std::shared_ptr<Subscriber> EventHub::subscribe() {
  std::lock_guard lock(mutex_);
  if (closed_ || subscribers_.size() >= max_subscribers_) return nullptr;
  subscribers_.push_back(std::make_shared<Subscriber>(max_queued_));
  return subscribers_.back();
}

void EventHub::unsubscribe(const std::shared_ptr<Subscriber>& subscriber) {
  std::lock_guard lock(mutex_);
  subscribers_.erase(std::remove(subscribers_.begin(), subscribers_.end(), subscriber),
                     subscribers_.end());
}

void EventHub::publish(const std::string& event) {
  std::lock_guard lock(mutex_);
  for (auto& s : subscribers_) s->push(event);
}

void EventHub::close() {
  std::lock_guard lock(mutex_);
  closed_ = true;
  for (auto& s : subscribers_) s->close();
  subscribers_.clear();
}

}  // namespace slewweb
