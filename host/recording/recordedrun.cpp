#include "host/recording/recordedrun.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <system_error>
#include <utility>

#include "host/base/usererror.h"
#include "host/base/values.h"
#include "host/engine/samplehistory.h"
#include "host/recording/jointstate.h"
#include "host/recording/recordingtopics.h"

namespace host {
namespace {

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Puts rows together again from the messages of a cycle.
class Rows : public McapHandler {
 public:
  Rows(RecordedRun& run, const RecordedRun::Handler& handler) : run_(run), handler_(handler) {}

  void take(const McapMetadata& metadata) override {
    if (std::optional<RecordingHead> head = RecordingHead::from(metadata); head && !hasHead_) {
      hasHead_ = true;
      run_.head = std::move(*head);
      row_.resize(rowTimes + run_.head.columns.size());
      handler_.head(run_.head);
    }
  }
  void take(const McapSchema& schema) override { schemas_[schema.id] = schema.name; }
  void passOver(const std::string& fault) override { handler_.fault(fault); }
  void take(const McapAttachment& file) override {
    handler_.file(file);
    run_.files.push_back({file.name, file.mediaType, file.data.size()});
  }
  void take(const McapChannel& channel) override {
    Channel& added = channels_[channel.id];
    added.topic = run_.topics.size();
    run_.topics.push_back({channel.topic, schemas_[channel.schema]});
    added.isCommand = endsWith(channel.topic, commandTopic);
    added.isMeasured = !added.isCommand && endsWith(channel.topic, measuredTopic);
    added.isEvent = endsWith(channel.topic, eventTopic);
    added.isJournal = endsWith(channel.topic, journalTopic);
  }
  void take(const McapMessage& message) override {
    const auto found = channels_.find(message.channel);
    if (found == channels_.end()) {
      throw RecordingFault("a message has an unknown channel");
    }
    const Channel& channel = found->second;
    ++run_.topics[channel.topic].messages;
    if (!hasHead_) {
      return;
    }
    if (channel.isEvent) {
      takeJson(message, handler_.event, "an event");
    } else if (channel.isJournal) {
      takeJson(message, handler_.journal, "an entry of the journal");
    } else if (channel.isCommand || channel.isMeasured) {
      takeJoints(message, channel.isCommand);
    }
  }

  [[nodiscard]] bool hasHead() const { return hasHead_; }

 private:
  struct Channel {
    std::size_t topic = 0;
    bool isCommand = false;
    bool isMeasured = false;
    bool isEvent = false;
    bool isJournal = false;
  };

  static void takeJson(const McapMessage& message, const std::function<void(const Json&)>& taker,
                       const char* what) {
    const Json json = parsedJson(message.data);
    if (!json.is_object()) {
      throw RecordingFault(std::string(what) + " is not a JSON object");
    }
    try {
      taker(json);
    } catch (const Json::exception&) {
      throw RecordingFault(std::string(what) + " is invalid");
    }
  }

  /// What is measured comes behind what is commanded, and ends the row.
  void takeJoints(const McapMessage& message, bool isCommand) {
    const JointState state = decodedJointState(message.data);
    std::size_t next = 0;
    for (std::size_t i = 0; i < run_.head.columns.size(); ++i) {
      if (isCommandColumn(run_.head.columns[i]) == isCommand) {
        if (next == state.positions.size()) {
          throw RecordingFault("a message has too few joints");
        }
        row_[rowTimes + i] = state.positions[next++];
      }
    }
    if (isCommand) {
      commandTime_ = message.publishTime;
    } else if (commandTime_ == message.publishTime) {
      const std::int64_t timeMs = run_.head.machineMs(message.publishTime);
      row_[0] = static_cast<double>(timeMs);
      row_[1] = static_cast<double>(timeMs - run_.head.approachMs);
      handler_.row(row_);
    }
  }

  RecordedRun& run_;
  const RecordedRun::Handler& handler_;
  bool hasHead_ = false;
  std::map<std::uint16_t, std::string> schemas_;
  std::map<std::uint16_t, Channel> channels_;
  std::vector<double> row_;
  std::optional<std::uint64_t> commandTime_;
};

/// Before it is opened, for which a pipe would keep its reader waiting.
void checkKind(const std::string& path) {
  std::error_code none;
  const std::filesystem::file_status status = std::filesystem::status(path, none);
  if (std::filesystem::is_directory(status)) {
    throw UserError(path, {}, "is a folder, not a recording");
  }
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw UserError(path, {}, "is no regular file, as a recording must be");
  }
}

}  // namespace

RecordedRun RecordedRun::read(const std::string& path, const Handler& handler) {
  checkKind(path);
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw UserError(path, {}, std::string("cannot be read: ") + std::strerror(errno));
  }
  RecordedRun run;
  Rows rows(run, handler);
  try {
    McapReader reader(file);
    run.bytes = reader.size();
    run.end = reader.readAll(rows);
  } catch (const RecordingFault& fault) {
    throw UserError(path, {}, fault.what());
  }
  if (!rows.hasHead()) {
    throw UserError(path, {}, "is not a recording of torvex: it does not describe a run");
  }
  return run;
}

}  // namespace host
