#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <exception>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bridge/intake.h"
#include "bridge/network.h"
#include "bridge/otherbridges.h"
#include "bridge/output.h"
#include "bridge/session.h"
#include "bridge/topics.h"
#include "host/base/stopsignal.h"
#include "host/client/doorclient.h"

namespace bridge {
namespace {

using std::chrono::milliseconds;

constexpr int shortfallStatus = 1;
constexpr milliseconds lookEvery(200);

/// One machine, through its restarts, until a signal comes.
void follow(const Configuration& configuration, const std::string& machine, Topics& topics) {
  Intake intake(topics);
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
      Session session(topics, intake, configuration, machine, seen);
      session.run();
      said.clear();
      if (host::StopSignal::received() == 0) {
        sayOnce("it has ended");
      }
    } catch (const host::WaitStopped&) {
      return;
    } catch (const std::exception& error) {
      sayOnce(error.what());
    }
    std::this_thread::sleep_for(lookEvery);
  }
}

/// Until a signal comes. False when the network interface is not what it was: then everything ends
/// as by a signal.
bool watch(const Interface& interface, OtherBridges& others) {
  while (host::StopSignal::received() == 0) {
    std::this_thread::sleep_for(lookEvery);
    if (!interface.isAsBefore()) {
      complain("error: the network interface is gone, or has another address: restart the bridge");
      std::raise(SIGTERM);
      return false;
    }
    others.look();
  }
  return true;
}

int run(const Configuration& configuration) {
  const Network network(configuration);
  std::deque<Topics> topics;
  for (const std::string& machine : configuration.machines) {
    topics.emplace_back(network, configuration, machine);
  }
  OtherBridges others(network, configuration);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < topics.size(); ++i) {
    threads.emplace_back([&, i] { follow(configuration, configuration.machines[i], topics[i]); });
  }
  const bool isThere = watch(network.interface(), others);
  for (std::thread& thread : threads) {
    thread.join();
  }
  constexpr int signalStatus = 128;
  return isThere ? signalStatus + host::StopSignal::received() : shortfallStatus;
}

/// The status that it ends with.
int mainOf(const std::string& argument) {
  constexpr int badInputStatus = 2;
  std::optional<Configuration> configuration;
  try {
    configuration = readConfiguration(argument);
    return run(*configuration);
  } catch (const std::exception& error) {
    complain(std::string("error: ") + error.what());
    return configuration ? shortfallStatus : badInputStatus;
  }
}

}  // namespace
}  // namespace bridge

int main(int argc, char** argv) {
  const host::StopSignal stopSignal;
  const int status = bridge::mainOf(argc == 2 ? argv[1] : "");
  if (!bridge::finishOutput()) {
    std::_Exit(status);
  }
  return status;
}
