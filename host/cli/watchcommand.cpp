#include "host/cli/watchcommand.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/base/livevalues.h"
#include "host/base/stopsignal.h"
#include "host/cli/options.h"
#include "host/cli/output.h"
#include "host/cli/poolname.h"
#include "host/cli/status.h"
#include "host/cli/terminalkeys.h"
#include "host/cli/watchscreen.h"
#include "simulation/machine.h"
#include "simulation/observer.h"

namespace host {
namespace {

struct WatchOptions {
  std::vector<std::string> keys;
  std::string poolName;
  bool actuators = false;
  bool once = false;
  bool json = false;
};

/// The user has seen enough.
constexpr int quitStatus = -1;
constexpr int lookEveryMs = 100;

/// What to write of the values at a time in milliseconds since watching began.
using Look = std::function<std::string(std::int64_t timeMs)>;

/// As `writeOut`: the status to exit with after a signal, and when nobody is
/// left to read, which is noticed here although nothing is written.
int waitForNextLook() {
  pollfd output{STDOUT_FILENO, 0, 0};
  poll(&output, 1, lookEveryMs);
  if (const int signal = StopSignal::received()) {
    return signalStatus + signal;
  }
  return output.revents == 0 ? okStatus : shortfallStatus;
}

/// The same on a terminal: a key comes at once, and leads to another look.
int waitForKey(const TerminalKeys& keys, WatchScreen& screen) {
  pollfd input{keys.descriptor(), POLLIN, 0};
  poll(&input, 1, lookEveryMs);
  const TerminalKeys::Key key = keys.next();
  screen.scroll(key);
  if (const int signal = StopSignal::received()) {
    return signalStatus + signal;
  }
  return key == TerminalKeys::Key::quit ? quitStatus : okStatus;
}

int follow(const simulation::Observer& observer, LiveValues& values, bool once, const Look& look,
           int (*write)(const std::string&) = writeOut,
           const std::function<int()>& wait = waitForNextLook) {
  const auto begin = std::chrono::steady_clock::now();
  while (true) {
    const bool isLast = once || !observer.isOwned();
    values.look();
    const auto passed = std::chrono::steady_clock::now() - begin;
    int status = write(look(passed / std::chrono::milliseconds(1)));
    if (isLast || status != okStatus) {
      return status;
    }
    status = wait();
    if (status != okStatus) {
      return status;
    }
  }
}

int lookOn(const simulation::Observer& observer, LiveValues& values, const WatchOptions& options) {
  if (options.json) {
    return follow(observer, values, options.once,
                  [&](std::int64_t timeMs) { return jsonLine(values, timeMs); });
  }
  if (!options.once && isatty(STDOUT_FILENO) == 1) {
    WatchScreen screen("pool " + options.poolName, values);
    const TerminalKeys keys;
    return follow(
        observer, values, false, [&](std::int64_t timeMs) { return screen.redrawn(timeMs); },
        sendOut, [&] { return waitForKey(keys, screen); });
  }
  ValueLines lines(values);
  return follow(observer, values, options.once,
                [&](std::int64_t timeMs) { return lines.changed(timeMs); });
}

/// What is wanted, or the command registers of all actuators.
std::vector<std::string> keysOf(const WatchOptions& options, const simulation::Observer& observer,
                                const AttributeKeys& known) {
  std::vector<std::string> keys = options.keys;
  if (options.actuators) {
    for (const int index : known.find({})) {
      if (observer.isCommand(index)) {
        keys.push_back(known.key(index));
      }
    }
  }
  return keys;
}

int watch(WatchOptions& options) {
  if (options.poolName.empty()) {
    options.poolName = onlyPool();
  }
  const simulation::Observer observer(options.poolName);
  if (!observer.isOwned()) {
    throw simulation::Error(fmt::format(
        "the machine of the device pool '{}' no longer runs; restart it", options.poolName));
  }
  const AttributeKeys known(observer);
  LiveValues values(observer, known, keysOf(options, observer, known));
  const StopSignal stopSignal;
  const int status = lookOn(observer, values, options);
  if (status == quitStatus) {
    return okStatus;
  }
  if (status == okStatus && !options.once) {
    complain("torvex: the machine has ended\n");
  } else if (status == okStatus && !options.json && values.ageMs()) {
    complain(fmt::format("torvex: cycle {}, {} ms ago\n", values.cycle().number, *values.ageMs()));
  }
  return status;
}

}  // namespace

void addWatchCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<WatchOptions>();
  CLI::App& command = addSubcommand(
      app, "watch", "Watch the values of a running machine",
      "Example, beside 'torvex run examples/humanoid/humanoid.yaml examples/humanoid/wave.yaml':\n"
      "  torvex watch torso_yaw/Value torso_yaw/Sensor/Value\n\n"
      "On a terminal the values are redrawn ten times a second, sorted by key; arrow keys, page "
      "up\n"
      "and page down scroll, q quits. In a pipe or a file there is a line SECONDS KEY VALUE for "
      "each\n"
      "value that changed; SECONDS count from the start of watching. With --json there is a line\n"
      "with an object ten times a second: {\"time_ms\": since the start of watching, \"cycle\": "
      "its\n"
      "number, \"machine_ms\": its machine time, \"age_ms\": how long ago it ended, \"whole\": "
      "whether\n"
      "all values are of this cycle, \"values\": {KEY: VALUE, ...}}. A missing value is shown as "
      "-,\n"
      "in JSON as null. Watching does not disturb the machine. --pool UID:NAME is the pool of the\n"
      "user with this number.\n\n"
      "Exit status: 0 if the machine ended, in whatever way; 1 if the output can no longer be\n"
      "written; 2 if there is no such pool or key, or for wrong usage; 128 + N if signal N "
      "stopped\n"
      "it.",
      [options] { return watch(*options); }, chosen);
  addArguments(command, "KEY", options->keys, false,
               "Attributes to watch, by key or shell pattern (default: all); a bare key, such as "
               "torso_yaw/Value, means Device/SubDeviceList/torso_yaw/Value");
  addPool(command, "The device pool of the machine (default: that of the only machine that runs)",
          options->poolName);
  addFlag(command, "--actuators", options->actuators,
          "Watch the command registers of all actuators");
  addFlag(command, "--once", options->once, "Print the present values, and exit");
  addFlag(command, "--json", options->json, "Print JSON, one object per line");
}

}  // namespace host
