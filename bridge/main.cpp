#include <fmt/format.h>

#include <chrono>
#include <deque>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "bridge/output.h"
#include "bridge/session.h"
#include "bridge/topics.h"
#include "host/base/stopsignal.h"
#include "host/client/doorclient.h"

namespace bridge {
namespace {

/// While the machine does not run, what is asked of it is refused.
void wait(Topics& topics) {
  constexpr int lookEveryMs = 200;
  if (!topics.trajectories) {
    std::this_thread::sleep_for(std::chrono::milliseconds(lookEveryMs));
    return;
  }
  topics.trajectories->take(lookEveryMs, [&topics](const void* message) {
    topics.tellRefusal(summaryOf(*static_cast<const JointTrajectory*>(message)),
                       "the machine does not run");
  });
}

/// One machine, through its restarts, until a signal comes.
void follow(const Configuration& configuration, const std::string& machine, Topics& topics) {
  EventsSeen seen;
  std::string said;
  const auto sayOnce = [&](const std::string& why) {
    if (why != said) {
      complain(fmt::format("{}: waits for the machine: {}", topics.name, why));
      said = why;
    }
  };
  while (host::StopSignal::received() == 0) {
    try {
      Session session(topics, configuration, machine, seen);
      said.clear();
      session.run();
      if (host::StopSignal::received() == 0) {
        sayOnce("it has ended");
      }
    } catch (const host::WaitStopped&) {
      return;
    } catch (const std::exception& error) {
      sayOnce(error.what());
    }
    wait(topics);
  }
}

int run(const Configuration& configuration) {
  const host::StopSignal stopSignal;
  const Network network(configuration);
  std::deque<Topics> topics;
  for (const std::string& machine : configuration.machines) {
    topics.emplace_back(network, configuration, machine);
  }
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < topics.size(); ++i) {
    threads.emplace_back([&, i] {
      try {
        follow(configuration, configuration.machines[i], topics[i]);
      } catch (const std::exception& error) {
        complain(fmt::format("error: {}: {}", topics[i].name, error.what()));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  constexpr int shortfallStatus = 1;
  constexpr int signalStatus = 128;
  const int signal = host::StopSignal::received();
  return signal == 0 ? shortfallStatus : signalStatus + signal;
}

}  // namespace
}  // namespace bridge

int main(int argc, char** argv) {
  constexpr int badInputStatus = 2;
  try {
    return bridge::run(bridge::readConfiguration(argc == 2 ? argv[1] : ""));
  } catch (const std::exception& error) {
    bridge::complain(std::string("error: ") + error.what());
    return badInputStatus;
  }
}
