#include "host/base/clocks.h"

#include <cerrno>
#include <ctime>

namespace host {
namespace {

std::int64_t nowOn(clockid_t clock) noexcept {
  timespec now{};
  clock_gettime(clock, &now);
  return now.tv_sec * nsPerSecond + now.tv_nsec;
}

}  // namespace

std::int64_t bootNs() noexcept {
  return nowOn(CLOCK_BOOTTIME);
}

void sleepUntil(std::int64_t timeNs) noexcept {
  const timespec deadline{timeNs / nsPerSecond, timeNs % nsPerSecond};
  while (clock_nanosleep(CLOCK_BOOTTIME, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
  }
}

std::int64_t wallNs() noexcept {
  return nowOn(CLOCK_REALTIME);
}

}  // namespace host
