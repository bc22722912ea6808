#include "bench/served.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "host/client/doorclient.h"

namespace bench {

using Clock = std::chrono::steady_clock;

Served::Served(const std::string& machineText)
    : process_({TORVEX_TOOL, "serve", machineFile(machineText), "--cycle", "1ms", "--guard", "off",
                "--socket", socketPath(), "--pool", poolName()}) {
  awaitDoor();
}

std::string Served::machineFile(const std::string& text) const {
  std::string path = folder_.path() + "/m.yaml";
  std::ofstream(path) << text;
  return path;
}

void Served::awaitDoor() const {
  const auto end = Clock::now() + std::chrono::seconds(10);
  for (;;) {
    try {
      host::DoorClient(socketPath()).get("/v1/health");
      return;
    } catch (const host::NoMachine&) {
      if (Clock::now() > end) {
        throw;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
}

double nsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

}  // namespace bench
