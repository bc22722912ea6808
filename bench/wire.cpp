// From a message of ROS 2 to the command register of a machine: a program on DDS, the bridge and
// the machine are three processes on loopback, beside which DDS is measured by its own tool.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <unistd.h>

#include "bench/benchmarks.h"
#include "bench/child.h"
#include "bench/served.h"
#include "bridge/network.h"
#include "host/base/attributekeys.h"
#include "messages.h"
#include "simulation/observer.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::seconds;

/// One that hardly anybody else on this computer is in.
std::uint32_t domain() {
  return 100 + static_cast<std::uint32_t>(getpid()) % 100;
}

bridge::Configuration loopback() {
  bridge::Configuration configuration;
  configuration.domain = domain();
  configuration.interface = "lo";
  return configuration;
}

std::string machineText() {
  constexpr int others = 29;
  std::string text = "actuators:\n- {name: s, type: 2, minimum: 0, maximum: 1}\n";
  for (int i = 0; i < others; ++i) {
    text += "- {name: a" + std::to_string(i) + "}\n";
  }
  return text;
}

/// A machine behind its bridge, and a node that commands it.
class Bridged {
 public:
  /// Waits until a command arrives. Throws `std::runtime_error` when none does.
  Bridged()
      : served_(machineText()),
        bridge_({TORVEX_TOOL, "bridge", "ros2", served_.socketPath(), "--domain",
                 std::to_string(domain()), "--interface", "lo"}),
        network_(loopback()),
        writer_(network_, "rt/m/joint_trajectory", trajectory_msgs_msg_dds__JointTrajectory__desc,
                bridge::Delivery::standard),
        observer_(served_.poolName()),
        step_(host::AttributeKeys(observer_).find({"s/Value"}).front()) {
    constexpr int mostTries = 100;
    for (int i = 0; !isThere(microseconds(200'000), 1); ++i) {
      if (i == mostTries) {
        throw std::runtime_error("the bridge takes no trajectory");
      }
      send(1);
    }
  }

  /// From a message that commands the step actuator to `value` until its register has it.
  double command(int value) {
    const auto begin = Clock::now();
    send(value);
    if (!isThere(seconds(2), value)) {
      throw std::runtime_error("a trajectory did not arrive");
    }
    return nsSince(begin);
  }

 private:
  void send(int value) {
    char joint[] = "s";
    char frame[] = "";
    char* names[] = {joint};
    double position = value;
    trajectory_msgs_msg_dds__JointTrajectoryPoint_ point{};
    point.positions_ = {1, 1, &position, false};
    trajectory_msgs_msg_dds__JointTrajectory_ message{};
    message.header_.frame_id_ = frame;
    message.joint_names_ = {1, 1, names, false};
    message.points_._length = message.points_._maximum = 1;
    message.points_._buffer = &point;
    writer_.write(&message);
  }

  [[nodiscard]] bool isThere(Clock::duration patience, int value) const {
    const auto end = Clock::now() + patience;
    while (observer_.value(step_).asInt != value) {
      if (Clock::now() > end) {
        return false;
      }
      std::this_thread::sleep_for(microseconds(10));
    }
    return true;
  }

  const Served served_;
  const Child bridge_;
  const bridge::Network network_;
  bridge::Writer writer_;
  const simulation::Observer observer_;
  const int step_;
};

/// Messages at any moment of a cycle.
void writeTrajectories(benchmark::State& state) {
  constexpr int messages = 1000;
  Bridged machine;
  std::mt19937 random(1);
  std::uniform_int_distribution<int> pauseUs(1000, 4000);
  std::vector<double> samples;
  for ([[maybe_unused]] auto iteration : state) {
    for (int i = 0; i < messages; ++i) {
      std::this_thread::sleep_for(microseconds(pauseUs(random)));
      samples.push_back(machine.command(i % 2));
    }
    state.SetIterationTime(1.0);
  }
  countLatencies(state, std::move(samples));
}

/// What stands before the unit and after the mark, in ns.
double figureAfter(const std::string& line, const std::string& mark) {
  const std::size_t at = line.find(mark);
  if (at == std::string::npos) {
    throw std::runtime_error("ddsperf says something else: " + line);
  }
  constexpr double nsPerUs = 1000.0;
  return nsPerUs * std::stod(line.substr(at + mark.size()));
}

/// DDS by itself: of each second ddsperf tells the quantiles, of which these are the medians.
void roundTrips(benchmark::State& state) {
  const TemporaryFolder folder;
  const std::string said = folder.path() + "/ddsperf";
  const std::vector<std::string> ddsperf{"env", "CYCLONEDDS_URI=" + bridge::domainText(loopback()),
                                         "ddsperf", "-i", std::to_string(domain())};
  const auto started = [&ddsperf](std::vector<std::string> words) {
    words.insert(words.begin(), ddsperf.begin(), ddsperf.end());
    return words;
  };
  for ([[maybe_unused]] auto iteration : state) {
    const Child pong(started({"pong"}));
    Child(started({"-D", "6", "ping", "400Hz", "size", "100"}), said).wait();
    state.SetIterationTime(1.0);
  }
  std::vector<double> middle;
  std::vector<double> high;
  std::ifstream lines(said);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" mean ") != std::string::npos) {
      middle.push_back(figureAfter(line, " 50% "));
      high.push_back(figureAfter(line, " 99% "));
    }
  }
  if (middle.empty()) {
    throw std::runtime_error("ddsperf measured nothing");
  }
  std::sort(middle.begin(), middle.end());
  std::sort(high.begin(), high.end());
  state.counters[nsCounter] = quantile(middle, 0.5);
  state.counters["p50_us"] = quantile(middle, 0.5) / 1e3;
  state.counters["p99_us"] = quantile(high, 0.5) / 1e3;
}

}  // namespace

void addWireBenchmarks() {
  add("wire/trajectory_to_register", writeTrajectories, Timer::ownOnce);
  add("wire/ddsperf_round_trip", roundTrips, Timer::ownOnce);
}

}  // namespace bench
