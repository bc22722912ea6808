#include "host/server/motionrequest.h"

#include <fmt/format.h>

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "host/input/document.h"
#include "host/input/motionfile.h"
#include "host/input/requestreader.h"
#include "host/server/refused.h"

namespace host {
namespace {

/// What is asked, before the files are read.
struct Wanted {
  std::vector<std::string> motions;
  /// None: those of the folder are meant.
  std::optional<std::map<std::string, std::string>> files;
  MotionOptions options;
  Timing timing;
};

void readFiles(const Document& document, const Node& node, Wanted& wanted) {
  if (!node.isMap()) {
    document.fail(node, "files must be a map of names and texts");
  }
  wanted.files.emplace();
  for (const auto& [name, text] : node.entries()) {
    (*wanted.files)[name.scalar()] = document.text(text, "a file");
  }
}

void readMotions(const Document& document, const Node& node, Wanted& wanted) {
  if (!node.isList() || node.size() == 0) {
    document.fail(node, "motions: a list of at least one FILE or FILE:NAME is needed");
  }
  for (const Node& entry : node.items()) {
    wanted.motions.push_back(document.name(entry, "a motion"));
  }
}

void readOptions(const Document& document, const Document::Fields& fields, Wanted& wanted) {
  document.field(fields, "ignore_unknown_joints", [&](const Node& node) {
    wanted.options.ignoreUnknownJoints = document.truth(node, "ignore_unknown_joints");
  });
  document.field(fields, "interpolation", [&](const Node& node) {
    const auto given = valueOf(interpolationWords, document.text(node, "interpolation"));
    if (!given) {
      document.fail(node, "interpolation must be message, linear or smooth");
    }
    wanted.timing.interpolation = *given;
  });
  document.field(fields, "approach", [&](const Node& node) {
    wanted.timing.approachMs = document.milliseconds(node, "approach");
  });
}

Wanted readWanted(const std::string& text, MotionRequest& request) {
  Wanted wanted;
  readRequest(text, "the request",
              {"motions", "files", "commander", "dry_run", "ignore_unknown_joints", "interpolation",
               "at", "approach"},
              [&](const Document& document, const Document::Fields& fields) {
                static_cast<RequestSender&>(request) = readSender(document, fields);
                document.requiredField(fields, document.root(), "motions", [&](const Node& node) {
                  readMotions(document, node, wanted);
                });
                document.field(fields, "files",
                               [&](const Node& node) { readFiles(document, node, wanted); });
                document.field(fields, "at", [&](const Node& node) {
                  request.atMs = machineTime(document, node, "at");
                });
                readOptions(document, fields, wanted);
              });
  return wanted;
}

/// Each with its source location.
[[noreturn]] void refuseFiles(const UserError& error) {
  std::vector<RequestFault> faults;
  for (const UserError::Entry& entry : error.entries()) {
    Json where = {{"file", entry.path}};
    if (entry.location.line != 0) {
      where["line"] = entry.location.line;
      where["column"] = entry.location.column;
    }
    faults.push_back({400, "invalid", entry.text, "/files", std::move(where)});
  }
  throw Refused(std::move(faults));
}

}  // namespace

MotionRequest readMotionRequest(const std::string& text, const MachineModel& machine,
                                std::int64_t cycleMs, const MotionFolder* folder) {
  MotionRequest request;
  Wanted wanted = readWanted(text, request);
  wanted.timing.cycleMs = static_cast<std::uint32_t>(cycleMs);
  if (!wanted.files && folder == nullptr) {
    throw Refused({400, "invalid",
                   "files is missing, and the machine has no folder of motions (--motions)",
                   "/files"});
  }
  const MotionsOfClient files(
      std::move(wanted.files).value_or(std::map<std::string, std::string>()));
  const MotionTexts& texts = wanted.files ? static_cast<const MotionTexts&>(files) : *folder;
  try {
    request.batches = readMotions(wanted.motions, texts, machine, wanted.options);
    request.plan = planRun(machine, request.batches, wanted.timing);
  } catch (const UserError& error) {
    if (files.missing().empty()) {
      refuseFiles(error);
    }
    throw Refused({422, "needs_file", fmt::format("'{}' is needed", files.missing()), "/files",
                   Json{{"file", files.missing()}}});
  }
  return request;
}

}  // namespace host
