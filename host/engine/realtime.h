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

/// What the machine refused a thread: numbers of errors, 0 for what was granted.
struct Refusal {
  int priority = 0;
  int processor = 0;
};

/// What to do about a machine that refuses, in words for a user.
extern const char* const schedulingAdvice;
extern const char* const memoryAdvice;

/// Puts the calling thread in its place, as far as the machine grants it, and touches
/// the stack that it will need. Its name is the one that `top -H` shows.
Refusal applyScheduling(const ThreadScheduling& scheduling, const char* name) noexcept;

/// What the machine would refuse. It is tried with the calling thread, which is put
/// back to where it was: an isolated processor is not among those where threads run by
/// default.
Refusal tryScheduling(const ThreadScheduling& scheduling) noexcept;

/// How many bytes this process may lock; none when there is no limit. It is tried: a
/// capability may count for nothing outside of a container.
std::optional<std::uint64_t> lockableMemory() noexcept;

/// Keeps what the process has in memory, and where there is no limit also what it will
/// have: against a limit, a later thread or block would be refused. The result is 0, or
/// the number of the error.
int lockMemory() noexcept;

/// Locks the memory and tries the place. Says what the machine refuses, each with
/// what to do about it.
std::vector<std::string> prepareRealtime(const ThreadScheduling& cycleScheduling);

/// The place of a thread that hands batches over: below the cycle, on any processor. An
/// ordinary one, too, where the cycle is refused its priority.
ThreadScheduling schedulingBelow(const ThreadScheduling& cycleScheduling) noexcept;

}  // namespace host
