#include "host/cli/fleet/requests.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "host/base/stopsignal.h"
#include "host/base/usererror.h"
#include "host/base/visible.h"
#include "host/cli/output.h"
#include "host/cli/status.h"

namespace host {

FleetOutcome outcomeOf(const std::function<std::string()>& ask) {
  try {
    return {okStatus, ask()};
  } catch (const WaitStopped& stopped) {
    return {signalStatus + StopSignal::received(), stopped.what()};
  } catch (const DoorRefusal& refusal) {
    return {refusal.isBadInput() ? badInputStatus : shortfallStatus, refusal.what()};
  } catch (const UserError& error) {
    return {badInputStatus, std::string(error.what()) + "\n"};
  } catch (const std::exception& error) {
    return {shortfallStatus, visible(error.what())};
  }
}

std::string shown(const std::string& machine, const FleetOutcome& outcome) {
  const bool hasLines = !outcome.text.empty() && outcome.text.back() == '\n';
  return outcome.status == okStatus ? fmt::format("{}: {}\n", visible(machine), outcome.text)
         : hasLines ? fmt::format("torvex: error: {}: refused\n{}", visible(machine), outcome.text)
                    : fmt::format("torvex: error: {}: {}\n", visible(machine), outcome.text);
}

int askAll(const Fleet& fleet, const AskMachine& ask) {
  constexpr Patience patience{2000, nullptr};
  std::mutex mutex;
  int status = okStatus;
  std::vector<std::thread> threads;
  threads.reserve(fleet.machines.size());
  for (const FleetMachine& machine : fleet.machines) {
    threads.emplace_back([&mutex, &status, &ask, &machine, patience] {
      const FleetOutcome outcome = outcomeOf([&] {
        DoorClient door(machine.door, patience);
        return ask(machine, door);
      });
      const std::lock_guard lock(mutex);
      status = std::max(status, outcome.status);
      if (outcome.status != okStatus) {
        complain(shown(machine.name, outcome));
      } else if (!outcome.text.empty()) {
        say(shown(machine.name, outcome));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  return status;
}

}  // namespace host
