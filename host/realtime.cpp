#include "host/realtime.h"

#include <fmt/format.h>
#include <linux/capability.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <future>

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

bool hasCapability(unsigned int capability) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  return syscall(SYS_capget, &header, sets.data()) == 0 &&
         (sets.at(capability / 32).effective >> (capability % 32) & 1U) != 0;
}

int pinTo(int processor) noexcept {
  cpu_set_t wanted;
  CPU_ZERO(&wanted);
  CPU_SET(static_cast<std::size_t>(processor), &wanted);
  return pthread_setaffinity_np(pthread_self(), sizeof wanted, &wanted);
}

}  // namespace

const char* const schedulingAdvice =
    "allow it with 'USER - rtprio 99' in /etc/security/limits.d, or the capability CAP_SYS_NICE";
const char* const memoryAdvice =
    "allow it with 'USER - memlock unlimited' in /etc/security/limits.d, or the capability "
    "CAP_IPC_LOCK";

bool isAllowedProcessor(int processor) {
  return processor >= 0 && processor < CPU_SETSIZE &&
         std::async(std::launch::async, pinTo, processor).get() == 0;
}

int takePlace(const ThreadPlace& place) noexcept {
  touchStack();
  // Otherwise a thread without a real-time priority is woken up to 50 us late, on purpose.
  prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
  const int unpinned = place.processor ? pinTo(*place.processor) : 0;
  sched_param parameters{};
  parameters.sched_priority = place.priority;
  const int unscheduled = pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
  return unscheduled != 0 ? unscheduled : unpinned;
}

int tryPlace(const ThreadPlace& place) {
  return std::async(std::launch::async, takePlace, place).get();
}

std::optional<std::uint64_t> lockableMemory() {
  rlimit limit{};
  const bool known = getrlimit(RLIMIT_MEMLOCK, &limit) == 0;
  if (hasCapability(CAP_IPC_LOCK) || !known || limit.rlim_cur == RLIM_INFINITY) {
    return std::nullopt;
  }
  return limit.rlim_cur;
}

int lockMemory() noexcept {
  const int alsoLater = lockableMemory() ? 0 : MCL_FUTURE;
  return mlockall(MCL_CURRENT | alsoLater) == 0 ? 0 : errno;
}

std::vector<std::string> prepareRealtime(const ThreadPlace& cyclePlace) {
  std::vector<std::string> refused;
  if (const int failure = lockMemory(); failure != 0) {
    refused.push_back(
        fmt::format("the memory is not locked ({}), so a cycle may wait for a page; {}",
                    std::strerror(failure), memoryAdvice));
  }
  if (const int failure = tryPlace(cyclePlace); failure != 0) {
    refused.push_back(
        fmt::format("the cycle has no real-time priority ({}), so anything may delay it; {}",
                    std::strerror(failure), schedulingAdvice));
  }
  return refused;
}

}  // namespace host
