#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

namespace bridge {

/// What a line is about. Of all but the first, 20 a second are said, and then how many more came.
enum class About { bridge, refusals, events, dds };

/// Lines for a file descriptor, which a thread of its own writes: nobody else waits for who reads
/// them. What finds 1 MiB of lines that wait is dropped, which is said. Any thread.
class Outlet {
 public:
  /// It lives as long as the process: nothing ends the thread.
  explicit Outlet(int descriptor);

  Outlet(const Outlet&) = delete;
  Outlet& operator=(const Outlet&) = delete;

  void add(const std::string& line, About about = About::bridge);

  /// Writes what waits, and then nothing more. False when that took longer than a second: the
  /// thread may hang in a write for good.
  bool finish();

 private:
  using Clock = std::chrono::steady_clock;

  /// Lines about one thing within a second.
  struct Second {
    Clock::time_point begin;
    int said = 0;
    std::uint64_t more = 0;
  };

  void append(const std::string& line);
  /// Says how many lines were left out in seconds that are over, or in all.
  void tellLeftOut(Clock::time_point now, bool isEnd);
  void run();

  const int descriptor_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string text_;
  std::uint64_t dropped_ = 0;
  std::array<Second, 4> seconds_{};
  bool isStarted_ = false;
  bool isFinishing_ = false;
  bool isFinished_ = false;
};

}  // namespace bridge
