#include "host/cli/recordings/infocommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>

#include "host/base/clocks.h"
#include "host/base/counted.h"
#include "host/base/stopsignal.h"
#include "host/base/values.h"
#include "host/base/visible.h"
#include "host/cli/output.h"
#include "host/cli/recordings/faults.h"
#include "host/cli/status.h"
#include "host/recording/digest.h"

namespace host {
namespace {

struct InfoOptions {
  std::string path;
  bool json = false;
};

/// As of ISO 8601, in UTC.
std::string dateOf(std::uint64_t ns) {
  const auto time = static_cast<std::time_t>(ns / std::uint64_t{nsPerSecond});
  std::tm parts{};
  gmtime_r(&time, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

Json topicsJson(const RecordedRun& run) {
  Json topics = Json::array();
  for (const RecordedRun::Topic& topic : run.topics) {
    topics.push_back(
        {{"topic", topic.name}, {"schema", topic.schema}, {"messages", topic.messages}});
  }
  return topics;
}

Json filesJson(const RecordedRun& run) {
  Json files = Json::array();
  for (const RecordedRun::File& file : run.files) {
    files.push_back({{"name", file.name}, {"media_type", file.mediaType}, {"bytes", file.size}});
  }
  return files;
}

Json jointsJson(const RecordingDigest& digest) {
  Json joints = Json::array();
  for (const RecordingDigest::Joint& joint : digest.joints) {
    joints.push_back({{"name", joint.name},
                      {"worst_error", static_cast<float>(joint.worstError)},
                      {"at_ms", joint.worstMs}});
  }
  return joints;
}

Json infoJson(const RecordingDigest& digest) {
  const RecordingHead& head = digest.run.head;
  Json events = Json::object();
  for (const auto& [kind, count] : digest.events) {
    events[kind] = count;
  }
  return {
      {"format", 1},
      {"machine", head.machine},
      {"title", head.title},
      {"clock", head.isSimulated ? "simulated" : "realtime"},
      {"began", head.isSimulated ? Json() : Json(dateOf(head.originNs))},
      {"cycle_ms", head.cycleMs},
      {"trigger", head.beginsAtStart() ? Json() : Json(head.trigger)},
      {"trigger_ms", head.beginsAtStart() ? Json() : Json(head.triggerMs)},
      {"left_out", head.leftOut},
      {"bytes", digest.run.bytes},
      {"whole", digest.run.end.isWhole},
      {"faults", digest.run.end.faults},
      {"chunks", digest.run.end.chunks},
      {"rows", digest.rows},
      {"first_ms", digest.firstMs},
      {"last_ms", digest.lastMs},
      {"gaps", {{"count", digest.gaps}, {"ms", digest.gapMs}, {"longest_ms", digest.longestGapMs}}},
      {"topics", topicsJson(digest.run)},
      {"attachments", filesJson(digest.run)},
      {"joints", jointsJson(digest)},
      {"events", events}};
}

std::string headText(const RecordingDigest& digest) {
  const RecordingHead& head = digest.run.head;
  const std::string clock = head.isSimulated
                                ? "simulated time"
                                : fmt::format("real time, from {}", dateOf(head.originNs));
  std::string text = fmt::format("run      {}\nclock    {}, cycle {} ms\n", visible(head.title),
                                 clock, head.cycleMs);
  if (!head.beginsAtStart()) {
    text += fmt::format(
        "ring     for {} at {:.3f} s{}\n", visible(head.trigger), inSeconds(head.triggerMs),
        head.leftOut == 0 ? ""
                          : fmt::format(", {} left out before", counted(head.leftOut, "request")));
  }
  text += fmt::format("rows     {} in {:.3f} s\n", digest.rows,
                      inSeconds(digest.lastMs - digest.firstMs));
  text += digest.gaps == 0
              ? "gaps     none\n"
              : fmt::format("gaps     {}, {:.3f} s in all, {:.3f} s the longest\n", digest.gaps,
                            inSeconds(digest.gapMs), inSeconds(digest.longestGapMs));
  text += fmt::format("file     {} bytes in {} chunks, {}\n", digest.run.bytes,
                      digest.run.end.chunks, digest.run.end.isWhole ? "whole" : "not whole");
  for (const std::string& fault : digest.run.end.faults) {
    text += fmt::format("         {}\n", visible(fault));
  }
  return text;
}

std::string infoText(const RecordingDigest& digest) {
  std::string text = headText(digest) + "\n";
  for (const RecordedRun::Topic& topic : digest.run.topics) {
    text += fmt::format("topic    {}: {} messages of {}\n", visible(topic.name), topic.messages,
                        visible(topic.schema));
  }
  for (const RecordedRun::File& file : digest.run.files) {
    text += fmt::format("attached {}: {} bytes\n", visible(file.name), file.size);
  }
  if (!digest.joints.empty()) {
    text += fmt::format("\n{:<24} worst error        at\n", "joint");
  }
  for (const RecordingDigest::Joint& joint : digest.joints) {
    text += fmt::format("{:<24} {:>11.4g} {:>7.3f} s\n", visible(joint.name), joint.worstError,
                        inSeconds(joint.worstMs));
  }
  text += digest.events.empty() ? "" : "\nevents\n";
  for (const auto& [kind, count] : digest.events) {
    text += fmt::format("{:<24} {:>11}\n", visible(kind), count);
  }
  return text;
}

int info(const InfoOptions& options) {
  const StopSignal stopSignal;
  const RecordingDigest digest = digestOf(options.path);
  const int status =
      writeOut(options.json ? printed(infoJson(digest), 2) + "\n" : infoText(digest));
  return status == okStatus ? readingStatus(digest.run) : status;
}

}  // namespace

void addInfoCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<InfoOptions>();
  CLI::App& command = addSubcommand(
      app, "info", "Summarise a recording",
      "Example:\n"
      "  torvex info wave.mcap\n\n"
      "Rows are cycles. Gaps are stretches of machine time without a row. The worst error is the\n"
      "largest difference between measured and commanded value.\n\n"
      "Exit status: 0 if the recording is whole; 1 if it is cut or damaged (the readable part is\n"
      "summarised); 2 for bad input or wrong usage.",
      [options] { return info(*options); }, chosen);
  addArgument(command, "RECORDING", options->path, "An MCAP file that --record wrote");
  addFlag(command, "--json", options->json, "Print a JSON object instead of text");
}

}  // namespace host
