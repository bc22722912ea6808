#include "host/engine/realtime.h"

#include <fmt/format.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace host {
namespace {

constexpr std::size_t touchedStack = std::size_t{256} * 1024;
constexpr std::size_t pageSize = 4096;

[[gnu::noinline]] void touchStack() noexcept {
  volatile std::byte stack[touchedStack];
  for (std::size_t i = 0; i < touchedStack; i += pageSize) {
    stack[i] = std::byte{0};
  }
  static_cast<void>(stack[0]);
}

int pinTo(int processor) noexcept {
  cpu_set_t wanted;
  CPU_ZERO(&wanted);
  CPU_SET(static_cast<std::size_t>(processor), &wanted);
  return pthread_setaffinity_np(pthread_self(), sizeof wanted, &wanted);
}

Refusal seize(const ThreadScheduling& scheduling) noexcept {
  Refusal refusal;
  if (scheduling.processor) {
    const bool countable = *scheduling.processor >= 0 && *scheduling.processor < CPU_SETSIZE;
    refusal.processor = countable ? pinTo(*scheduling.processor) : EINVAL;
  }
  if (scheduling.priority > 0) {
    sched_param parameters{};
    parameters.sched_priority = scheduling.priority;
    refusal.priority = pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
  }
  return refusal;
}

/// Whether so many bytes and a page more cannot be locked. No page is used for it.
bool isLimited(std::uint64_t bytes) noexcept {
  const std::size_t size = bytes + pageSize;
  void* const range =
      mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (range == MAP_FAILED) {
    return true;
  }
  const bool refused = mlock2(range, size, MLOCK_ONFAULT) != 0;
  munmap(range, size);
  return refused;
}

}  // namespace

const char* const schedulingAdvice =
    "allow it with 'USER - rtprio 99' in /etc/security/limits.d, or the capability CAP_SYS_NICE";
const char* const memoryAdvice =
    "allow it with 'USER - memlock unlimited' in /etc/security/limits.d, or the capability "
    "CAP_IPC_LOCK";

Refusal applyScheduling(const ThreadScheduling& scheduling, const char* name) noexcept {
  touchStack();
  pthread_setname_np(pthread_self(), name);
  // Otherwise a thread without a real-time priority is woken up to 50 us late, on purpose.
  prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
  return seize(scheduling);
}

Refusal tryScheduling(const ThreadScheduling& scheduling) noexcept {
  int policy = SCHED_OTHER;
  sched_param parameters{};
  cpu_set_t processors;
  CPU_ZERO(&processors);
  pthread_getschedparam(pthread_self(), &policy, &parameters);
  pthread_getaffinity_np(pthread_self(), sizeof processors, &processors);
  const Refusal refusal = seize(scheduling);
  pthread_setaffinity_np(pthread_self(), sizeof processors, &processors);
  pthread_setschedparam(pthread_self(), policy, &parameters);
  return refusal;
}

std::optional<std::uint64_t> lockableMemory() noexcept {
  rlimit limit{};
  if (getrlimit(RLIMIT_MEMLOCK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
      !isLimited(limit.rlim_cur)) {
    return std::nullopt;
  }
  return limit.rlim_cur;
}

int lockMemory() noexcept {
  const int alsoLater = lockableMemory() ? 0 : MCL_FUTURE;
  return mlockall(MCL_CURRENT | alsoLater) == 0 ? 0 : errno;
}

std::vector<std::string> prepareRealtime(const ThreadScheduling& cycleScheduling) {
  std::vector<std::string> refused;
  if (const int failure = lockMemory(); failure != 0) {
    refused.push_back(
        fmt::format("the memory is not locked ({}), so a cycle may wait for a page; {}",
                    std::strerror(failure), memoryAdvice));
  }
  const Refusal refusal = tryScheduling(cycleScheduling);
  if (refusal.priority != 0) {
    refused.push_back(
        fmt::format("the cycle has no real-time priority ({}), so anything may delay it; {}",
                    std::strerror(refusal.priority), schedulingAdvice));
  }
  if (refusal.processor != 0) {
    refused.push_back(fmt::format("the cycle is not kept on processor {} ({})",
                                  *cycleScheduling.processor, std::strerror(refusal.processor)));
  }
  return refused;
}

ThreadScheduling schedulingBelow(const ThreadScheduling& cycleScheduling) noexcept {
  const bool granted = tryScheduling(cycleScheduling).priority == 0;
  return {granted ? cycleScheduling.priority - 1 : 0, std::nullopt};
}

}  // namespace host
