#include "host/engine/wallclock.h"

#include <cerrno>
#include <ctime>

namespace host {
namespace {

constexpr std::int64_t nsPerSecond = 1'000'000'000;

}  // namespace

std::int64_t wallNs() noexcept {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return now.tv_sec * nsPerSecond + now.tv_nsec;
}

void sleepUntil(std::int64_t timeNs) noexcept {
  const timespec deadline{timeNs / nsPerSecond, timeNs % nsPerSecond};
  while (clock_nanosleep(CLOCK_BOOTTIME, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
  }
}

}  // namespace host
