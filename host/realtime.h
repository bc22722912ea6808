#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// How a thread runs in real time.
struct ThreadPlace {
  /// Of SCHED_FIFO, from 1 to 99, the highest.
  int priority = 80;
  /// The only processor it runs on; any when not given.
  std::optional<int> processor;
};

/// What to do about a machine that refuses, in words for a user.
extern const char* const schedulingAdvice;
extern const char* const memoryAdvice;

/// Whether a thread of this process may run on the processor of this number. It is
/// tried: an isolated processor is not among those where threads run by default.
bool isAllowedProcessor(int processor);

/// Puts the calling thread in its place, as far as the machine grants it, and touches
/// the stack that it will need. The result is 0, or the number of the error.
int takePlace(const ThreadPlace& place) noexcept;

/// The same for a thread that ends at once.
int tryPlace(const ThreadPlace& place);

/// How many bytes this process may lock; none when there is no limit.
std::optional<std::uint64_t> lockableMemory();

/// Keeps what the process has in memory, and where there is no limit also what it will
/// have: against a limit, a later thread or block would be refused. The result is 0, or
/// the number of the error.
int lockMemory() noexcept;

/// Locks the memory and tries the place. Says what the machine refuses, each with
/// what to do about it.
std::vector<std::string> prepareRealtime(const ThreadPlace& cyclePlace);

}  // namespace host
