#include "host/input/motionfile.h"

#include <fmt/format.h>

#include <filesystem>
#include <map>
#include <optional>
#include <utility>

#include "host/base/counted.h"
#include "host/input/batchreader.h"
#include "host/input/jointtrajectory.h"
#include "host/input/motionwrappers.h"

namespace host {
namespace {

/// A short file may name one batch many times.
constexpr std::size_t mostBatches = 100'000;

Node motionNamed(const Document& document, const Node& motions,
                 const std::optional<std::string>& name) {
  if (!motions.isMap()) {
    document.fail(motions, "motions must be a map of named motions");
  }
  std::vector<std::string> names;
  std::vector<Node> found;
  for (const auto& entry : motions.entries()) {
    names.push_back(entry.first.isScalar() ? entry.first.scalar() : "");
    if (name && names.back() == *name) {
      found.push_back(entry.second);
    }
  }
  if (found.size() > 1) {
    document.fail(found.back(), fmt::format("a second motion is named '{}'", *name));
  }
  if (!found.empty()) {
    return found.front();
  }
  const std::string known = fmt::format("{}", fmt::join(names, ", "));
  document.fail(motions,
                name ? fmt::format("there is no motion '{}'; known are {}", *name, known)
                     : fmt::format("choose one of {} as {}:NAME: {}",
                                   counted(names.size(), "named motion"), document.path(), known));
}

void refuseMachine(const Document& document, const Node& node) {
  const auto has = [&node](const char* key) { return node.find(key) != nullptr; };
  if (node.isMap() && (has("urdf") || has("actuators")) && !has("joint_names") && !has("points")) {
    document.fail(node, "this is a machine file; a motion file is needed here, after the machine");
  }
}

void readTrajectory(const PointReader& reader, const MotionContent& content,
                    const std::optional<std::string>& name, CommandBatch& batch) {
  const Document& document = reader.document();
  batch.location = content.node.location();
  if (content.kind == MotionContent::Kind::namedMotions) {
    const Node motion = motionNamed(document, *content.node.find("motions"), name);
    batch.location = motion.location();
    readNamedMotion(reader, motion, batch);
  } else if (name) {
    document.fail(content.node,
                  fmt::format("there are no named motions here; leave ':{}' out", *name));
  } else if (content.kind == MotionContent::Kind::batches) {
    document.fail(content.node, "these are batches; one trajectory is needed here");
  } else {
    refuseMachine(document, content.node);
    readJointTrajectory(reader, content.node, batch);
  }
  if (!content.ignored.empty()) {
    batch.notes.push_back(
        fmt::format("{}: ignored: {}", batch.pointsPath, fmt::join(content.ignored, ", ")));
  }
}

/// Reads the files of one run, and those that their batches name, each of these once.
class MotionReader : public BatchSource {
 public:
  MotionReader(const MotionTexts& texts, const MachineModel& machine, const MotionOptions& options,
               ErrorCollector& errors)
      : texts_(texts), names_(machine), options_(options), errors_(errors) {}

  std::vector<CommandBatch> read(const std::string& given) {
    const MotionName name = splitMotionName(given, texts_);
    const Document document(name.path, texts_.read(name.path), errors_);
    const PointReader reader(document, names_, options_);
    const MotionContent content = unwrapMotion(document, document.root());
    if (content.kind == MotionContent::Kind::batches && !name.motion) {
      return readBatches(reader, content.node);
    }
    CommandBatch batch;
    batch.path = name.path;
    readTrajectory(reader, content, name.motion, batch);
    takeCommands(document, content.node, batch);
    return {std::move(batch)};
  }

  void readMoment(const Document& document, const Document::Fields& fields, const Node& node,
                  CommandBatch& batch) override {
    batch.atMs = 0;
    document.requiredField(fields, node, "at",
                           [&](const Node& at) { batch.atMs = document.milliseconds(at, "at"); });
    batch.fromMs = *batch.atMs;
    document.field(fields, "from",
                   [&](const Node& from) { batch.fromMs = document.milliseconds(from, "from"); });
  }

  void readTrajectoryAt(const PointReader& reader, const Node& node, CommandBatch& batch) override {
    readTrajectoryBelow(reader, node, batch);
  }

  void readTrajectoryFile(const Document& document, const Node& node,
                          CommandBatch& batch) override {
    const std::string given = (std::filesystem::path(document.path()).parent_path() /
                               document.name(node, "trajectory_file"))
                                  .string();
    auto found = files_.find(given);
    if (found == files_.end()) {
      found = files_.emplace(given, std::nullopt).first;
      CommandBatch read;
      const MotionName name = splitMotionName(given, texts_);
      if (errors_.attempt([&] { readNamedFile(document, node, name, read); })) {
        found->second = std::move(read);
      }
    }
    if (!found->second) {
      throw AlreadyReported();
    }
    const CommandBatch& read = *found->second;
    batch.pointsPath = read.pointsPath;
    batch.actuators = read.actuators;
    batch.times = read.times;
    batch.values = read.values;
    batch.velocities = read.velocities;
    batch.accelerations = read.accelerations;
    batch.locations = read.locations;
    batch.notes = read.notes;
  }

 private:
  void readNamedFile(const Document& document, const Node& node, const MotionName& name,
                     CommandBatch& batch) {
    std::string text;
    try {
      text = texts_.read(name.path);
    } catch (const UserError& error) {
      document.fail(node,
                    fmt::format("trajectory_file: {} {}", name.path, error.entries()[0].text));
    }
    const Document named(name.path, text, errors_);
    readTrajectory(PointReader(named, names_, options_), unwrapMotion(named, named.root()),
                   name.motion, batch);
  }

  std::vector<CommandBatch> readBatches(const PointReader& reader, const Node& node) {
    const Document& document = reader.document();
    const Document::Fields fields = document.fields(node, "the file", {"batches", "lists"});
    const char* const key = fields.count("lists") != 0 ? "lists" : "batches";
    if (fields.count("batches") != 0 && fields.count("lists") != 0) {
      document.fail(fields.at("lists"), "lists is the old name of batches; keep one of the two");
    }
    std::vector<CommandBatch> batches;
    const std::vector<Node>& entries = document.entries(fields, key);
    for (const Node& entry : entries) {
      if (batches.size() == mostBatches) {
        document.stop(entry,
                      fmt::format("the file up to here holds more than {} {}", mostBatches, key));
      }
      document.attempt([&] {
        batches.push_back(readBatch(reader, entry, *this));
        takeCommands(document, entry, batches.back());
      });
    }
    if (entries.empty()) {
      document.fail(node, fmt::format("{}: at least one batch is needed", key));
    }
    return batches;
  }

  void takeCommands(const Document& document, const Node& node, const CommandBatch& batch) {
    count_ += batch.values.size();
    if (count_ > mostCommands) {
      document.stop(node,
                    fmt::format("the motions up to here hold more than {} commands", mostCommands));
    }
  }

  const MotionTexts& texts_;
  const ActuatorNames names_;
  const MotionOptions options_;
  ErrorCollector& errors_;
  std::size_t count_ = 0;
  /// By their names in full; none where an error came up.
  std::map<std::string, std::optional<CommandBatch>> files_;
};

}  // namespace

void readTrajectoryBelow(const PointReader& reader, const Node& node, CommandBatch& batch) {
  readTrajectory(reader, unwrapMotion(reader.document(), node), std::nullopt, batch);
}

std::vector<CommandBatch> readMotionFiles(const std::vector<std::string>& names,
                                          const MachineModel& machine,
                                          const MotionOptions& options) {
  return readMotions(names, MotionsOnDisk(), machine, options);
}

std::vector<CommandBatch> readMotions(const std::vector<std::string>& names,
                                      const MotionTexts& texts, const MachineModel& machine,
                                      const MotionOptions& options) {
  std::vector<CommandBatch> batches;
  ErrorCollector errors;
  MotionReader reader(texts, machine, options, errors);
  for (const std::string& name : names) {
    errors.attempt([&] {
      for (CommandBatch& batch : reader.read(name)) {
        batches.push_back(std::move(batch));
      }
    });
  }
  errors.throwIfAny();
  return batches;
}

}  // namespace host
