#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "host/recording/mcaprecords.h"

namespace host {

/// Is given what a file holds. Views into a record are valid during the call.
class McapHandler {
 public:
  McapHandler() = default;
  McapHandler(const McapHandler&) = delete;
  McapHandler& operator=(const McapHandler&) = delete;
  virtual ~McapHandler() = default;

  virtual void take(const McapSchema& /*schema*/) {}
  virtual void take(const McapChannel& /*channel*/) {}
  virtual void take(const McapMessage& /*message*/) {}
  virtual void take(const McapAttachment& /*attachment*/) {}
  virtual void take(const McapMetadata& /*metadata*/) {}
  /// Something was damaged.
  virtual void passOver(const std::string& /*fault*/) {}
};

/// What the end of a file says of the rest.
struct McapSummary {
  std::vector<McapSchema> schemas;
  std::vector<McapChannel> channels;
  std::vector<McapChunkIndex> chunks;
  std::vector<McapAttachmentIndex> attachments;
  McapStatistics statistics;
};

/// How reading from the beginning went.
struct McapEnd {
  /// The data section and the file have their ends.
  bool isWhole = false;
  /// Up to where the file was read.
  std::uint64_t offset = 0;
  std::uint64_t chunks = 0;
  /// Of parts that could not be taken and were passed over, and of where the file is cut.
  std::vector<std::string> faults;
};

/// Reads an MCAP file, whoever wrote it and whatever became of it: all lengths and offsets are
/// checked, checksums are compared, and memory is bounded by the size of the file and of its
/// largest chunk.
class McapReader {
 public:
  /// Larger chunks, and larger records of other kinds, are passed over.
  static constexpr std::uint64_t mostChunkBytes = std::uint64_t{64} << 20;

  /// The stream, which can be positioned, must outlive the object. Throws `RecordingFault` for
  /// what is no MCAP file.
  explicit McapReader(std::istream& stream);

  /// As a stream: from the beginning, as far as whole records go. A chunk that is damaged is passed
  /// over. Lets through what the handler throws.
  McapEnd readAll(McapHandler& handler);

  /// What the end of the file says. Throws `RecordingFault` when it has none, as after a kill, or
  /// is damaged.
  McapSummary readSummary();
  /// By the index: the messages of one channel in the order of their times, of chunks that hold any
  /// from `begin` to `end`. Throws `RecordingFault` for what is damaged.
  void readMessages(const McapSummary& summary, std::uint16_t channel, std::uint64_t begin,
                    std::uint64_t end, McapHandler& handler);

  [[nodiscard]] std::uint64_t size() const { return size_; }

 private:
  [[nodiscard]] std::string read(std::uint64_t offset, std::uint64_t count);
  /// The content of the record at an offset, which must be of this kind.
  [[nodiscard]] std::string readRecord(std::uint64_t offset, McapKind kind);
  void takeRecord(McapKind kind, std::string_view content, McapHandler& handler, McapEnd& end);

  std::istream& stream_;
  std::uint64_t size_ = 0;
};

}  // namespace host
