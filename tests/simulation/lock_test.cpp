// The lock's promise to the cycle: who holds it runs as high as who waits for it.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/zr/zrcriticalsectionwrite.h"

namespace {

int latestProtocol = PTHREAD_PRIO_NONE;

}  // namespace

/// In the place of the system's, so that it is seen what a mutex is made with.
extern "C" __attribute__((visibility("default"))) int pthread_mutex_init(
    pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) noexcept {
  static const auto next =
      reinterpret_cast<decltype(&pthread_mutex_init)>(dlsym(RTLD_NEXT, "pthread_mutex_init"));
  latestProtocol = PTHREAD_PRIO_NONE;
  if (attributes != nullptr) {
    pthread_mutexattr_getprotocol(attributes, &latestProtocol);
  }
  return next(mutex, attributes);
}

namespace {

int takePriority(int priority) {
  const sched_param parameters{priority};
  return pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
}

/// A thread of this priority. It is given the processor when the caller, back at its
/// own, is lower.
template <typename Work>
std::thread threadAt(int priority, const Work& work) {
  takePriority(priority);
  std::thread thread(work);
  takePriority(10);
  return thread;
}

/// On one processor and with fixed priorities only one of the threads runs at a time, so
/// the order is the proof, and writing it down needs no lock.
void hold(std::vector<std::string>& order) {
  const int processor = sched_getcpu();
  cpu_set_t only;
  CPU_ZERO(&only);
  CPU_SET(static_cast<std::size_t>(processor), &only);
  sched_setaffinity(0, sizeof only, &only);
  const auto mutex = ZR::ZRMutexRW::createZRMutexRW();
  std::thread high, middle;
  {
    const ZR::ZRCriticalSectionWrite section(mutex);
    high = threadAt(30, [&order, mutex] {
      order.emplace_back("high waits");
      const ZR::ZRCriticalSectionWrite waited(mutex);
      order.emplace_back("high enters");
    });
    middle = threadAt(20, [&order] {
      for (volatile int spin = 0; spin < 10'000'000;) {
        spin = spin + 1;
      }
      order.emplace_back("middle has spun");
    });
    order.emplace_back("low leaves");
  }
  high.join();
  middle.join();
}

TEST(Lock, InheritsPriorities) {
  (void)ZR::ZRMutexRW::createZRMutexRW();
  EXPECT_EQ(latestProtocol, PTHREAD_PRIO_INHERIT);
}

TEST(Lock, LetsNoMiddleThreadHoldUpAHighOne) {
  std::vector<std::string> order;
  int refused = 0;
  std::thread([&] {
    refused = takePriority(30);
    if (refused == 0) {
      hold(order);
    }
  }).join();
  if (refused != 0) {
    GTEST_SKIP() << "SCHED_FIFO is not permitted: " << std::strerror(refused);
  }
  EXPECT_EQ(order, (std::vector<std::string>{"high waits", "low leaves", "high enters",
                                             "middle has spun"}));
}

}  // namespace
