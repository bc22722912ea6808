#include "host/cli/recordings/convertcommand.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/base/outputpaths.h"
#include "host/cli/recordings/faults.h"
#include "host/engine/trace.h"
#include "host/recording/recordedrun.h"

namespace host {
namespace {

struct ConvertOptions {
  std::string recordingPath;
  std::string tracePath;
};

int convert(const ConvertOptions& options) {
  checkOutputs({{options.tracePath, "trace"}}, {options.recordingPath});
  std::optional<Trace> trace;
  RecordedRun::Handler handler;
  handler.head = [&](const RecordingHead& head) { trace.emplace(options.tracePath, head.columns); };
  handler.row = [&](const std::vector<double>& row) { trace->rows().pushWaiting(row); };
  const RecordedRun run = RecordedRun::read(options.recordingPath, handler);
  trace->finish();
  complainOfFaults(options.recordingPath, run.end.faults);
  return readingStatus(run);
}

}  // namespace

void addConvertCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<ConvertOptions>();
  CLI::App& command = addSubcommand(
      app, "convert", "Convert a recording to a CSV table",
      "Example:\n"
      "  torvex convert wave.mcap wave.csv\n\n"
      "The table is the same as that of 'torvex run --trace'.\n\n"
      "Exit status: 0; 1 if the recording is cut or damaged (the readable part is converted); 2 "
      "for\n"
      "bad input or wrong usage.",
      [options] { return convert(*options); }, chosen);
  addArgument(command, "RECORDING", options->recordingPath, "An MCAP file that --record wrote");
  addArgument(command, "FILE.csv", options->tracePath, "The CSV file to write");
}

}  // namespace host
