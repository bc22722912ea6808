#include "host/engine/diagnosis.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <utility>

#include "host/engine/realtime.h"

namespace host {
namespace {

/// The first line; none when there is no such file.
std::optional<std::string> lineIn(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!file.is_open() || (!std::getline(file, line) && !file.eof())) {
    return std::nullopt;
  }
  return line;
}

Condition judged(const char* what, std::string found, bool good, const std::string& advice) {
  return {what, std::move(found), good ? Rating::good : Rating::poor, good ? "" : advice};
}

Condition unknown(const char* what, const std::string& advice) {
  return {what, "unknown", Rating::unknown, advice};
}

std::string inWords(rlim_t limit) {
  return limit == RLIM_INFINITY ? "none" : std::to_string(limit);
}

Condition scheduling() {
  const int priority = ThreadScheduling().priority;
  const int failure = tryScheduling({priority, std::nullopt}).priority;
  rlimit limit{};
  getrlimit(RLIMIT_RTPRIO, &limit);
  return judged("scheduling",
                failure == 0 ? fmt::format("SCHED_FIFO {} granted", priority)
                             : fmt::format("SCHED_FIFO {} refused ({}), limit {}", priority,
                                           std::strerror(failure), inWords(limit.rlim_cur)),
                failure == 0, schedulingAdvice);
}

Condition memory() {
  const std::optional<std::uint64_t> limit = lockableMemory();
  return judged("memory",
                limit ? fmt::format("{} KiB may be locked", *limit / 1024) : "all may be locked",
                !limit, memoryAdvice);
}

Condition kernel(const std::string& root) {
  constexpr const char* advice = "install a kernel built with PREEMPT_RT";
  const std::optional<std::string> realtime = lineIn(root + "/sys/kernel/realtime");
  const std::optional<std::string> version = lineIn(root + "/proc/sys/kernel/version");
  if (!realtime && !version) {
    return unknown("kernel", "look for PREEMPT_RT in the output of 'uname -v'");
  }
  for (const char* kind : {"PREEMPT_RT", "PREEMPT_DYNAMIC", "PREEMPT"}) {
    if (version && version->find(kind) != std::string::npos) {
      return judged("kernel", kind, std::strcmp(kind, "PREEMPT_RT") == 0 || realtime == "1",
                    advice);
    }
  }
  return judged("kernel", realtime == "1" ? "PREEMPT_RT" : "not preemptible", realtime == "1",
                advice);
}

Condition governor(const std::string& root) {
  const std::string folder = root + "/sys/devices/system/cpu";
  std::set<std::string> governors;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    if (const auto line = lineIn(entry.path().string() + "/cpufreq/scaling_governor")) {
      governors.insert(*line);
    }
  }
  if (governors.empty()) {
    return unknown("governor", "on a virtual machine, set it on the host");
  }
  return judged("governor", fmt::format("{}", fmt::join(governors, ", ")),
                governors == std::set<std::string>{"performance"},
                "set it with 'cpupower frequency-set --governor performance'");
}

Condition isolation(const std::string& root) {
  const auto isolated = lineIn(root + "/sys/devices/system/cpu/isolated");
  if (!isolated) {
    return unknown("isolation", "look for isolcpus= in /proc/cmdline");
  }
  return judged("isolation",
                isolated->empty() ? "no processor" : fmt::format("processors {}", *isolated),
                !isolated->empty(),
                "reserve a processor with isolcpus=CPU nohz_full=CPU rcu_nocbs=CPU on the kernel's "
                "command line, and run with --affinity CPU");
}

Condition clockSource(const std::string& root) {
  const auto source =
      lineIn(root + "/sys/devices/system/clocksource/clocksource0/current_clocksource");
  if (!source) {
    return unknown("clock", "look for 'clocksource' in the kernel's log");
  }
  const std::set<std::string> slow = {"hpet", "acpi_pm", "jiffies", "refined-jiffies", "pit"};
  return judged("clock", *source, slow.count(*source) == 0,
                "see in the kernel's log why the processor's own counter was given up; "
                "clocksource=tsc on the kernel's command line asks for it");
}

Condition processors() {
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return judged("processors", std::to_string(online), online >= 2,
                "with a second processor the cycle does not wait for interrupts and other work");
}

}  // namespace

std::vector<Condition> diagnose(const std::string& root) {
  return {scheduling(),    memory(),          kernel(root), governor(root),
          isolation(root), clockSource(root), processors()};
}

}  // namespace host
