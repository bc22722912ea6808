#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace host {

/// A thread for what takes long, one piece of work after another.
class Worker {
 public:
  Worker();
  /// Ends with the piece under way; leaves out the others.
  ~Worker();

  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// Any thread. The work throws nothing. False where as much waits as may: then it is not done.
  [[nodiscard]] bool add(std::function<void()> work);

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> waiting_;
  bool isEnding_ = false;
  std::thread thread_;
};

}  // namespace host
