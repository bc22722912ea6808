#include "host/cli/doctorcommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "host/base/stopsignal.h"
#include "host/base/values.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/engine/diagnosis.h"

namespace host {
namespace {

const char* nameOf(Rating verdict) {
  switch (verdict) {
    case Rating::good:
      return "good";
    case Rating::poor:
      return "poor";
    case Rating::unknown:
      break;
  }
  return "unknown";
}

std::string table(const std::vector<Condition>& conditions) {
  std::string text;
  for (const Condition& condition : conditions) {
    const char* mark = condition.rating == Rating::good ? "+" : "-";
    text += fmt::format("{} {:<10}  {}\n", condition.rating == Rating::unknown ? "?" : mark,
                        condition.what, condition.found);
    if (!condition.advice.empty()) {
      text += fmt::format("              {}\n", condition.advice);
    }
  }
  return text;
}

Json jsonOf(const std::vector<Condition>& conditions) {
  Json all = Json::array();
  for (const Condition& condition : conditions) {
    all.push_back({{"what", condition.what},
                   {"found", condition.found},
                   {"verdict", nameOf(condition.rating)},
                   {"advice", condition.advice.empty() ? Json() : Json(condition.advice)}});
  }
  return all;
}

int doctor(bool json) {
  const StopSignal stopSignal;  // a closed pipe is then an error to meet
  const std::vector<Condition> conditions = diagnose("");
  if (const int status = writeOut(json ? printed(jsonOf(conditions), 2) + "\n" : table(conditions));
      status != okStatus) {
    return status;
  }
  const bool poor =
      std::any_of(conditions.begin(), conditions.end(),
                  [](const Condition& condition) { return condition.rating == Rating::poor; });
  return poor ? shortfallStatus : okStatus;
}

}  // namespace

void addDoctorCommand(CLI::App& app, Command& chosen) {
  const auto json = std::make_shared<bool>(false);
  CLI::App& command = addSubcommand(
      app, "doctor", "Check this computer's settings for punctual cycles",
      "Prints a line for each setting that affects how punctual cycles are: + good, - could be\n"
      "better, ? cannot be seen from here, as in a container. Below it: what to change.\n\n"
      "Exit status: 0 if no setting is known to be poor; 1 if one is, or if the output could not "
      "be\n"
      "written; 2 for wrong usage; 128 + N if signal N stopped it.",
      [json] { return doctor(*json); }, chosen);
  addFlag(command, "--json", *json, "Print an array of objects instead of lines");
}

}  // namespace host
