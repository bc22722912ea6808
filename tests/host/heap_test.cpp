// The cycle must not touch the heap. This program counts what each thread asks of it.

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string_view>

#include "host/engine/torvex.h"
#include "host/engine/trace.h"
#include "host/recording/flightrecorder.h"
#include "host/recording/recorder.h"
#include "tests/host/prepared.h"

namespace {

thread_local bool counting = false;
thread_local std::uint64_t heapCalls = 0;
// What the thread named "cycle" had asked for when it last began to wait, and how often it did.
std::uint64_t cycleHeapCalls = 0, cycleWaits = 0;

void count() {
  heapCalls += counting ? 1 : 0;
}

}  // namespace

#define TORVEX_IN_PLACE extern "C" __attribute__((visibility("default")))

// A function of the heap, which counts and calls the C library's own.
#define TORVEX_COUNTED(result, name, own, parameters, arguments) \
  extern "C" result own parameters;                              \
  TORVEX_IN_PLACE result name parameters {                       \
    count();                                                     \
    return own arguments;                                        \
  }

// NOLINTBEGIN(bugprone-reserved-identifier)
TORVEX_COUNTED(void*, malloc, __libc_malloc, (std::size_t size), (size))
TORVEX_COUNTED(void*, calloc, __libc_calloc, (std::size_t n, std::size_t size), (n, size))
TORVEX_COUNTED(void*, realloc, __libc_realloc, (void* block, std::size_t size), (block, size))
TORVEX_COUNTED(void*, aligned_alloc, __libc_memalign, (std::size_t n, std::size_t size), (n, size))
TORVEX_COUNTED(void, free, __libc_free, (void* block), (block))
// NOLINTEND(bugprone-reserved-identifier)

TORVEX_IN_PLACE int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = aligned_alloc(alignment, size);
  return *block == nullptr ? ENOMEM : 0;
}

TORVEX_IN_PLACE int clock_nanosleep(clockid_t clock, int flags, const timespec* time,
                                    timespec* left) {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  if (std::string_view(name.data()) == "cycle") {
    cycleHeapCalls = heapCalls;
    ++cycleWaits;
    counting = true;
  }
  return syscall(SYS_clock_nanosleep, clock, flags, time, left) == 0 ? 0 : errno;
}

namespace {

/// Points of all axes, a few cycles ahead.
host::ScheduledBatch batchFor(const Prepared& setup, std::int64_t timeMs,
                              TimedCommand::commandType mode) {
  const auto motion = std::make_shared<host::CommandBatch>(setup.batches[0]);
  motion->mode = mode;
  host::ScheduledBatch batch;
  batch.commands = motion;
  batch.originMs = timeMs + 25;
  return batch;
}

TEST(Cycle, LeavesTheHeapAloneInRealTime) {
  Prepared setup(30, 20, 10);
  setup.options.session.clock = host::Clock::realtime;
  setup.options.timing.cycleMs = 1;
  const host::Plan plan = setup.plan();
  Torvex torvex(setup.machine, plan, setup.options.session);
  host::Trace trace(setup.temporary.path("t.csv"), std::vector<std::string>(60));
  torvex.addRows(trace.rows(), "trace");
  host::RecordingHead head;
  head.columns = torvex.columnNames();
  host::Recorder recorder(setup.temporary.path("r.mcap"), setup.machine, head,
                          [](const std::string& why) { FAIL() << why; });
  torvex.addListener(recorder);
  torvex.addRows(recorder.rows(), "recording");
  head.cycleMs = 1;
  host::Recorder latest(
      head,
      std::make_unique<host::FlightRecorder>(host::RingOptions{0.1, setup.temporary.path("."), 1},
                                             setup.machine, head),
      [](const std::string& why) { FAIL() << why; });
  torvex.addListener(latest);
  torvex.addRows(latest.rows(), "ring");
  torvex.run([&](std::int64_t timeMs) {
    if (timeMs < 1000) {
      torvex.engine().submit(
          batchFor(setup, timeMs, timeMs % 5 == 0 ? TimedCommand::REPLACE : TimedCommand::MERGE));
    }
  });
  EXPECT_EQ(cycleHeapCalls, 0U);
  EXPECT_GT(cycleWaits, 100U);
  EXPECT_GT(torvex.engine().axes()[29].counts.reached, 100U);
  counting = true;
  void* volatile block = malloc(1);  // a compiler may leave out what nobody sees
  free(block);
  EXPECT_EQ(heapCalls, 2U) << "nothing is counted";
}

}  // namespace
