#include "host/cli/clients/playcommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "host/base/counted.h"
#include "host/base/stopsignal.h"
#include "host/cli/clients/client.h"
#include "host/cli/clients/motionrequest.h"
#include "host/cli/clients/played.h"
#include "host/cli/liveview.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/client/doorclient.h"
#include "host/client/doors.h"

namespace host {
namespace {

using SteadyClock = std::chrono::steady_clock;

struct PlayOptions {
  std::vector<std::string> motions;
  std::string machine;
  bool ignoreUnknownJoints = false;
};

/// The owner of the axes of a motion, for as long as it lives: then what waits there is cleared,
/// and they ramp to rest.
class Player {
 public:
  Player(DoorClient& door, const Json& axes) : door_(door) {
    const Json registration = {{"name", fmt::format("play-{}", getpid())},
                               {"axes", axes},
                               {"lease_ms", leaseMs},
                               {"on_loss", "stop"},
                               {"ends_with_connection", true}};
    key_ = textOf(door.post("/v1/commanders", registration), "key");
  }
  ~Player() {
    try {
      door_.remove(fmt::format("/v1/commanders/{}", key_));
    } catch (const std::exception&) {
      // It ends with the connection, too.
    }
  }

  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  [[nodiscard]] const std::string& key() const { return key_; }

  void renew() {
    constexpr auto renewEvery = std::chrono::milliseconds(leaseMs / 4);
    if (SteadyClock::now() - renewed_ > renewEvery) {
      renewed_ = SteadyClock::now();
      door_.post(fmt::format("/v1/commanders/{}/renew", key_), Json::object());
    }
  }

 private:
  static constexpr int leaseMs = 1000;

  DoorClient& door_;
  std::string key_;
  SteadyClock::time_point renewed_ = SteadyClock::now();
};

/// Machine time as the latest event tells it, and as it goes on from there.
class MachineClock {
 public:
  explicit MachineClock(std::int64_t timeMs) { set(timeMs); }

  void set(std::int64_t timeMs) {
    timeMs_ = timeMs;
    since_ = SteadyClock::now();
  }
  [[nodiscard]] std::int64_t nowMs() const {
    return timeMs_ + (SteadyClock::now() - since_) / std::chrono::milliseconds(1);
  }

 private:
  std::int64_t timeMs_ = 0;
  SteadyClock::time_point since_;
};

/// Until all points are told of, or a signal comes.
void follow(Player& player, EventLines& events, const Json& answer, Played& played) {
  LiveView view;
  const std::int64_t beginMs = numberOf(answer, "machine_ms");
  const std::int64_t lastMs = std::max<std::int64_t>(numberOf(answer, "ends_ms") - beginMs, 1);
  MachineClock clock(beginMs);
  constexpr int lookEveryMs = 50;
  while (!played.isOver() && StopSignal::received() == 0) {
    for (std::optional<Json> event = events.next(lookEveryMs); event; event = events.next(0)) {
      player.renew();
      if (textOf(*event, "kind") == "missed") {
        throw DoorClosed("too many events were missed, so the outcome of the motion is not known");
      }
      if (memberOf(*event, "request") == memberOf(answer, "request")) {
        played.note(*event);
      }
      clock.set(numberOf(*event, "machine_ms"));
    }
    if (events.hasEnded()) {
      throw DoorClosed("the machine ended before the motion did");
    }
    player.renew();
    view.show({}, std::min(clock.nowMs() - beginMs, lastMs), lastMs);
  }
}

int conclude(const Played& played) {
  if (const int signal = StopSignal::received()) {
    complain(fmt::format("torvex: stopped by signal {}; the actuators ramp to rest\n", signal));
    return signalStatus + signal;
  }
  say(fmt::format("reached: {} of {}\n", played.reached, counted(played.points, "point")));
  if (played.reached == played.points) {
    return okStatus;
  }
  complain(fmt::format("torvex: error: {}\n", played.shortfall()));
  return shortfallStatus;
}

int play(const PlayOptions& options) {
  const StopSignal stopSignal;
  const std::string socket = doorOf(options.machine);
  DoorClient door(socket);
  Json body = {{"ignore_unknown_joints", options.ignoreUnknownJoints}, {"dry_run", true}};
  Played played;
  const Json expected = postMotions(door, options.motions, body);
  complainAll("warning", warningsIn(expected));
  const Json keys = keysIn(expected, played);
  Player player(door, keys);
  EventLines events(socket, "/v1/events");
  body["dry_run"] = false;
  body["commander"] = player.key();
  const Json answer = postMotions(door, options.motions, body);
  complain(takenText(answer));
  follow(player, events, answer, played);
  return conclude(played);
}

}  // namespace

void addPlayCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<PlayOptions>();
  CLI::App& command = addSubcommand(
      app, "play", "Play motions on a running machine, and wait for their end",
      "Example, beside 'torvex serve examples/humanoid/humanoid.yaml':\n"
      "  torvex play examples/humanoid/wave.yaml\n\n"
      "Shows the warnings of 'torvex check' before anything moves.\n"
      "Owns the actuators of the motions until they end: nobody else may command them. If it is\n"
      "stopped (Ctrl-C), killed or disconnected, the actuators ramp to rest.\n\n" +
          std::string(clientStatusText),
      [options] {
        return clientStatus([&] { return play(*options); },
                            [&](const std::string& path) {
                              return argumentAt(path, "/motions/", options->motions);
                            });
      },
      chosen);
  addArguments(command, "MOTION", options->motions, true,
               "Motion files: FILE.yaml, or FILE.yaml:NAME for a named motion");
  addFlag(command, "--ignore-unknown-joints", options->ignoreUnknownJoints,
          "Leave out joints of trajectories that the machine cannot move, and report them");
  addMachineName(command, options->machine);
}

}  // namespace host
