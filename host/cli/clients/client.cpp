#include "host/cli/clients/client.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <system_error>

#include "host/base/counted.h"
#include "host/base/stopsignal.h"
#include "host/base/visible.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/client/doorclient.h"

namespace host {
namespace {

int said(int status, const char* what) {
  complain(fmt::format("torvex: error: {}\n", visible(what)));
  return status;
}

}  // namespace

const char clientStatusText[] =
    "Exit status: 0; 1 if the machine cannot do it now (actuators are owned or held, it is busy),\n"
    "ended, or did not answer; 2 for bad input or wrong usage (unknown keys, values beyond the\n"
    "limits), or if no machine runs; 128 + N if signal N stopped it.";

int clientStatus(const std::function<int()>& command, const FieldName& nameOf) {
  try {
    return command();
  } catch (const NoMachine& error) {
    return said(badInputStatus, error.what());
  } catch (const DoorClosed& error) {
    return said(shortfallStatus, error.what());
  } catch (const WaitStopped&) {
    return signalStatus + StopSignal::received();
  } catch (const DoorRefusal& error) {
    complain(visibleLines(nameOf ? error.renamed(nameOf).what() : error.what()));
    return error.isBadInput() ? badInputStatus : shortfallStatus;
  }
}

std::string argumentAt(const std::string& path, const std::string& prefix,
                       const std::vector<std::string>& arguments) {
  std::size_t number = 0;
  const std::size_t begin = std::min(prefix.size(), path.size());
  const auto [stop, failure] =
      std::from_chars(path.data() + begin, path.data() + path.size(), number);
  const bool isOne = path.rfind(prefix, 0) == 0 && failure == std::errc();
  return isOne && number < arguments.size() ? arguments[number] : std::string();
}

std::string keyGiven(const std::string& name) {
  return name.find_first_of("/*?[") == std::string::npos ? name + "/Value" : name;
}

void addMachineName(CLI::App& command, std::string& machine) {
  addOption(command,
            {"--machine", "NAME", "Name of a machine as in 'torvex ps', or the path of its socket",
             "the only one that runs"},
            machine);
}

std::vector<std::string> notesIn(const Json& answer) {
  std::vector<std::string> notes;
  for (const Json& batch : memberOf(answer, "batches")) {
    for (const Json& note : memberOf(batch, "notes")) {
      notes.push_back(note.is_string() ? note.get<std::string>() : "");
    }
  }
  return notes;
}

std::string takenText(const Json& answer) {
  std::uint64_t points = 0;
  std::string changed;
  for (const Json& batch : memberOf(answer, "batches")) {
    for (const Json& axis : memberOf(batch, "axes")) {
      points += countOf(axis, "points");
      const std::uint64_t late = countOf(axis, "late");
      const std::uint64_t limited = countOf(axis, "limited");
      if (late + limited > 0) {
        changed += fmt::format("torvex: warning: {}: {} late, {} moved into the limits\n",
                               visible(textOf(axis, "key")), counted(late, "point"), limited);
      }
    }
  }
  for (const std::string& note : notesIn(answer)) {
    changed += fmt::format("torvex: note: {}\n", visible(note));
  }
  return changed + fmt::format("taken: {}\n", counted(points, "point"));
}

}  // namespace host
