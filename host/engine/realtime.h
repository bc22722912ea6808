#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// How a thread runs in real time.
struct ThreadScheduling {
  /// Of SCHED_FIFO, from 1 to 99, the highest; 0 for an ordinary thread.
  int priority = 80;
  /// The only processor it runs on; any when not given.
  std::optional<int> processor;
};

/// What the machine refused a thread: error numbers (`errno`), 0 for what was granted.
struct Refusal {
  int priority = 0;
  int processor = 0;
};

/// What to do about a machine that refuses, in words for a user.
extern const char* const schedulingAdvice;
extern const char* const memoryAdvice;

/// Schedules the calling thread as far as the machine grants it, names it for `top -H`, and
/// touches the stack that it will need.
Refusal applyScheduling(const ThreadScheduling& scheduling, const char* name) noexcept;

/// What the machine would refuse. Found out by trying it with the calling thread, whose
/// scheduling is then restored: an isolated processor is not among those where threads run
/// by default.
Refusal tryScheduling(const ThreadScheduling& scheduling) noexcept;

/// How many bytes this process may lock; none when there is no limit. Found out by trying: a
/// capability inside a container may not count outside of it.
std::optional<std::uint64_t> lockableMemory() noexcept;

/// Locks the memory that the process has, and, where there is no limit, all that it will get.
/// With a limit, locking future memory could make a later thread or allocation fail. Returns 0
/// or the error number.
int lockMemory() noexcept;

/// Locks the memory and tries the scheduling of the cycle thread. Returns what the machine
/// refuses, each with what to do about it.
std::vector<std::string> prepareRealtime(const ThreadScheduling& cycleScheduling);

/// The scheduling of the command thread: one priority below the cycle, on any processor. An
/// ordinary thread where the cycle is refused its priority.
ThreadScheduling schedulingBelow(const ThreadScheduling& cycleScheduling) noexcept;

}  // namespace host
