#include "host/commands/doctorcommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "host/base/stopsignal.h"
#include "host/commands/output.h"
#include "host/commands/status.h"
#include "host/diagnosis.h"
#include "host/values.h"

namespace host {
namespace {

const char* nameOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::good:
      return "good";
    case Verdict::poor:
      return "poor";
    case Verdict::unknown:
      break;
  }
  return "unknown";
}

std::string table(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    const char* mark = finding.verdict == Verdict::good ? "+" : "-";
    text += fmt::format("{} {:<10}  {}\n", finding.verdict == Verdict::unknown ? "?" : mark,
                        finding.what, finding.found);
    if (!finding.advice.empty()) {
      text += fmt::format("              {}\n", finding.advice);
    }
  }
  return text;
}

Json jsonOf(const std::vector<Finding>& findings) {
  Json all = Json::array();
  for (const Finding& finding : findings) {
    all.push_back({{"what", finding.what},
                   {"found", finding.found},
                   {"verdict", nameOf(finding.verdict)},
                   {"advice", finding.advice.empty() ? Json() : Json(finding.advice)}});
  }
  return all;
}

int doctor(bool json) {
  const StopSignal stopSignal;  // a closed pipe is then an error to meet
  const std::vector<Finding> findings = diagnose("");
  if (const int status = writeOut(json ? printed(jsonOf(findings), 2) + "\n" : table(findings));
      status != okStatus) {
    return status;
  }
  const bool poor = std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.verdict == Verdict::poor;
  });
  return poor ? shortfallStatus : okStatus;
}

}  // namespace

void addDoctorCommand(CLI::App& app, Command& chosen) {
  CLI::App& command = *app.add_subcommand("doctor", "Say how punctual cycles can be here");
  const auto json = std::make_shared<bool>(false);
  command.footer(
      "A line for each thing that decides how punctual cycles are: + good, - could be better, ?\n"
      "not to be seen from here, as in a container. Below it, what to do about it.\n\n"
      "Exit status: 0 when nothing is known that could be better; 1 when something is, or the\n"
      "lines could not be written; 2 for bad usage; 128 and the signal's number when a signal\n"
      "stopped it.");
  command.add_flag("--json", *json, "An array of objects instead of lines");
  command.callback([json, &chosen] { chosen = [json] { return doctor(*json); }; });
}

}  // namespace host
