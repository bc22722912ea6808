#include "host/server/worker.h"

#include <utility>

#include "host/server/bounds.h"

namespace host {

Worker::Worker() : thread_([this] { run(); }) {}

Worker::~Worker() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

bool Worker::add(std::function<void()> work) {
  {
    const std::lock_guard lock(mutex_);
    if (waiting_.size() >= bounds::requests) {
      return false;
    }
    waiting_.push_back(std::move(work));
  }
  changed_.notify_one();
  return true;
}

void Worker::run() {
  for (;;) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isEnding_ || !waiting_.empty(); });
    if (isEnding_) {
      return;
    }
    const std::function<void()> work = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    work();
  }
}

}  // namespace host
