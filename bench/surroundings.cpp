#include "bench/surroundings.h"

#include <benchmark/benchmark.h>
#include <sys/utsname.h>

#include <fstream>
#include <string>

namespace bench {

namespace {

std::string processor() {
  std::ifstream information("/proc/cpuinfo");
  for (std::string line; std::getline(information, line);) {
    const std::size_t colon = line.find(": ");
    if (line.compare(0, 10, "model name") == 0 && colon != std::string::npos) {
      return line.substr(colon + 2);
    }
  }
  return "unknown";
}

std::string governor() {
  std::ifstream file("/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor");
  std::string name;
  return std::getline(file, name) ? name : "unknown";
}

std::string systemName() {
  utsname name{};
  return uname(&name) == 0 ? std::string(name.sysname) + " " + name.release + " " + name.machine
                           : "unknown";
}

#if defined(__clang__)
constexpr const char* compiler = "clang " __clang_version__;
#else
constexpr const char* compiler = "g++ " __VERSION__;
#endif

}  // namespace

void noteSurroundings() {
  benchmark::AddCustomContext("processor", processor());
  benchmark::AddCustomContext("system", systemName());
  benchmark::AddCustomContext("governor", governor());
  benchmark::AddCustomContext("compiler", compiler);
  benchmark::AddCustomContext("flags", TORVEX_BENCH_FLAGS);
  benchmark::AddCustomContext("library link-time optimisation", TORVEX_BENCH_LTO);
}

}  // namespace bench
