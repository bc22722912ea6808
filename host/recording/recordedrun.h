#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "host/base/values.h"
#include "host/recording/mcapreader.h"
#include "host/recording/recordinghead.h"

namespace host {

/// What a recorder wrote, given out in its order.
class RecordedRun {
 public:
  struct Handler {
    /// Once, before all others.
    std::function<void(const RecordingHead& head)> head = [](const RecordingHead&) {};
    /// As the cycle gave it to the recorder, without attributes.
    std::function<void(const std::vector<double>& row)> row = [](const std::vector<double>&) {};
    std::function<void(const Json& event)> event = [](const Json&) {};
    std::function<void(const Json& entry)> journal = [](const Json&) {};
    /// After the head.
    std::function<void(const McapAttachment& file)> file = [](const McapAttachment&) {};
    /// Something could not be taken and was passed over.
    std::function<void(const std::string& fault)> fault = [](const std::string&) {};
  };

  /// The whole file at the path, as far as it can be read, with what the topics are and hold.
  /// Throws `UserError` when it is none of torvex's, and lets through what the handler throws.
  static RecordedRun read(const std::string& path, const Handler& handler);

  struct Topic {
    std::string name;
    std::string schema;
    std::uint64_t messages = 0;
  };
  struct File {
    std::string name;
    std::string mediaType;
    std::uint64_t size = 0;
  };

  RecordingHead head;
  std::vector<Topic> topics;
  std::vector<File> files;
  McapEnd end;
  std::uint64_t bytes = 0;
};

}  // namespace host
