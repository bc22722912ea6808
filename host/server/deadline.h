#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <functional>

namespace host {

/// What happens when something comes too late. I/O thread.
class Deadline {
 public:
  explicit Deadline(boost::asio::io_context& io) : timer_(io) {}

  /// In place of what was set before. What `late` holds must keep this object alive.
  void set(std::chrono::milliseconds time, std::function<void()> late);
  void cancel();

 private:
  boost::asio::steady_timer timer_;
  /// A timer that has fired already cannot be cancelled; the latest number counts.
  std::uint64_t number_ = 0;
};

}  // namespace host
