#include "host/input/requestreader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "host/input/batchreader.h"
#include "host/input/motionfile.h"

namespace host {
namespace {

/// All of a request.
constexpr std::size_t mostBatchesOfRequest = 10'000;

/// Of one batch of a request.
class RequestSource : public BatchSource {
 public:
  explicit RequestSource(RequestedBatch& batch) : batch_(batch) {}

  void readMoment(const Document& document, const Document::Fields& fields, const Node& /*node*/,
                  CommandBatch& /*batch*/) override {
    document.field(fields, "at",
                   [&](const Node& at) { batch_.atMs = machineTime(document, at, "at"); });
    batch_.fromMs = batch_.atMs;
    document.field(fields, "from",
                   [&](const Node& from) { batch_.fromMs = machineTime(document, from, "from"); });
  }

  void readTrajectoryAt(const PointReader& reader, const Node& node, CommandBatch& batch) override {
    readTrajectoryBelow(reader, node, batch);
  }

  void readTrajectoryFile(const Document& document, const Node& node,
                          CommandBatch& /*batch*/) override {
    document.fail(node,
                  "the machine reads no files for a client; put the trajectory into the request");
  }

 private:
  RequestedBatch& batch_;
};

void readBatches(const PointReader& reader, const Node& node, BatchRequest& request) {
  const Document& document = reader.document();
  if (!node.isList() || node.size() == 0) {
    document.fail(node, "batches: a list of at least one batch is needed");
  }
  if (node.size() > mostBatchesOfRequest) {
    document.stop(node, fmt::format("more than {} batches in a request", mostBatchesOfRequest));
  }
  for (const Node& entry : node.items()) {
    document.attempt([&] {
      RequestedBatch batch;
      RequestSource source(batch);
      batch.commands = readBatch(reader, entry, source);
      request.batches.push_back(std::move(batch));
    });
  }
}

}  // namespace

bool BatchRequest::isStop(std::int64_t nowMs) const {
  return std::all_of(batches.begin(), batches.end(), [nowMs](const RequestedBatch& batch) {
    return batch.commands.isStop && batch.atMs.value_or(nowMs) <= nowMs;
  });
}

std::int64_t machineTime(const Document& document, const Node& node, const char* what) {
  constexpr double mostSeconds = 1e12;
  const double seconds = document.seconds(node, what);
  if (seconds < 0 || seconds > mostSeconds) {
    document.fail(node, fmt::format("{} must be machine time, in seconds from 0", what));
  }
  return std::llround(seconds * 1000.0);
}

RequestSender readSender(const Document& document, const Document::Fields& fields) {
  RequestSender sender;
  document.field(fields, "commander",
                 [&](const Node& node) { sender.commander = document.text(node, "commander"); });
  document.field(fields, "dry_run",
                 [&](const Node& node) { sender.isDryRun = document.truth(node, "dry_run"); });
  return sender;
}

void readRequest(const std::string& text, const std::string& what,
                 const std::set<std::string>& known, const ReadFields& read) {
  ErrorCollector errors;
  errors.attempt([&] {
    const Document document("request", text, errors, Document::Format::json);
    read(document, document.fields(document.root(), what, known));
  });
  errors.throwIfAny();
}

BatchRequest readBatchRequest(const std::string& text, const ActuatorNames& names) {
  BatchRequest request;
  readRequest(text, "the request", {"commander", "dry_run", "batches"},
              [&](const Document& document, const Document::Fields& fields) {
                static_cast<RequestSender&>(request) = readSender(document, fields);
                const PointReader reader(document, names, {});
                document.requiredField(fields, document.root(), "batches", [&](const Node& node) {
                  readBatches(reader, node, request);
                });
              });
  return request;
}

}  // namespace host
