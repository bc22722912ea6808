#include "host/cli/clients/eventscommand.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "host/base/clocks.h"
#include "host/base/stopsignal.h"
#include "host/base/visible.h"
#include "host/cli/clients/client.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/client/doorclient.h"
#include "host/client/doors.h"

namespace host {
namespace {

struct EventsOptions {
  std::string machine;
  std::string since;
  bool json = false;
  bool once = false;
};

/// NUMBER MACHINE_SECONDS KIND, and what else it has.
std::string eventLine(const Json& event) {
  std::string line =
      fmt::format("{:6} {:10.3f} {:<11}", countOf(event, "number"),
                  inSeconds(numberOf(event, "machine_ms")), visible(textOf(event, "kind")));
  for (const auto& member : event.items()) {
    if (member.key() == "number" || member.key() == "kind" || member.key() == "machine_ms") {
      continue;
    }
    const Json& value = member.value();
    line += fmt::format(" {} {}", visible(member.key()),
                        value.is_string() ? visible(value.get<std::string>()) : shown(value));
  }
  return line + "\n";
}

int follow(const EventsOptions& options) {
  const StopSignal stopSignal;
  std::string target = "/v1/events";
  const auto add = [&](const std::string& part) {
    target += (target.find('?') == std::string::npos ? "?" : "&") + part;
  };
  if (options.once) {
    add("follow=false");
  }
  if (options.once || !options.since.empty()) {
    add("since=" + (options.since.empty() ? "0" : percentEncoded(options.since)));
  }
  EventLines events(doorOf(options.machine), target);
  constexpr int lookEveryMs = 100;
  while (!events.hasEnded()) {
    if (const int signal = StopSignal::received()) {
      return signalStatus + signal;
    }
    if (const std::optional<Json> event = events.next(lookEveryMs)) {
      const int status = writeOut(options.json ? printed(*event, -1) + "\n" : eventLine(*event));
      if (status != okStatus) {
        return status;
      }
    }
  }
  if (!options.once) {
    complain("torvex: the machine has ended\n");
  }
  return okStatus;
}

}  // namespace

void addEventsCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<EventsOptions>();
  CLI::App& command = addSubcommand(
      app, "events", "Print the outcome of commands to a running machine",
      "Prints a line for each event: number, machine time in seconds, kind, and details. The "
      "machine\n"
      "keeps the latest 10,000 events; a client that falls behind gets the number of missed "
      "events\n"
      "of each kind.\n\n" +
          std::string(clientStatusText),
      [options] {
        return clientStatus(
            [&] { return follow(*options); },
            [](const std::string& path) { return path == "?since" ? "--since" : ""; });
      },
      chosen);
  addOption(command, {"--since", "NUMBER", "Begin with the event of this number", "from now on"},
            [options](const std::string& text) {
              if (text.find_first_not_of("0123456789") != std::string::npos) {
                refuseOption("--since", "'" + text + "' is not a whole number");
              }
              options->since = text;
            });
  addFlag(command, "--once", options->once, "Print all events that the machine has kept, and exit");
  addFlag(command, "--json", options->json, "Print JSON, one object per line");
  addMachineName(command, options->machine);
}

}  // namespace host
