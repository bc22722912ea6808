#pragma once

#include <boost/crc.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/recording/compression.h"
#include "host/recording/mcaprecords.h"

namespace host {

/// Writes an MCAP file from its beginning to its end: schemas and channels as they come, messages
/// in chunks, each with an index and checksums, and at the end a summary by which a reader finds
/// all of it. Whatever ends the file early leaves all chunks before in a state to be read.
class McapWriter {
 public:
  /// Takes the next bytes of the file. What it throws goes through; the writer is then good for
  /// nothing more.
  using Write = std::function<void(const char* bytes, std::size_t count)>;

  /// Begins the file. `library` says who wrote it.
  McapWriter(Write write, const std::string& library);

  std::uint16_t addSchema(const std::string& name, const std::string& encoding,
                          const std::string& data);
  /// For messages of a schema; 0 is none.
  std::uint16_t addChannel(std::uint16_t schema, const std::string& topic,
                           const std::string& encoding);
  void addMetadata(const McapMetadata& metadata);
  void addAttachment(const McapAttachment& attachment);

  /// Into the chunk that is open. One that is large, or covers a second, ends before the message,
  /// unless this belongs to the one before.
  void addMessage(std::uint16_t channel, std::uint64_t timeNs, std::string_view data,
                  bool belongsToLast = false);

  /// Writes the last chunk and the summary. Nothing may follow.
  void finish();

 private:
  /// The chunk that is open.
  struct Open {
    std::string records;
    std::uint64_t startTime = 0;
    std::uint64_t endTime = 0;
    /// Of each message: its time and its offset among the records.
    std::map<std::uint16_t, std::vector<std::pair<std::uint64_t, std::uint64_t>>> messages;
  };

  void endChunk();
  void writeMessageIndexes(McapChunkIndex& index);
  /// Kind, length and content.
  template <typename Content>
  void writeRecord(McapKind kind, const Content& content);
  void writeRecordBytes(McapKind kind, const std::string& content);
  void write(const std::string& bytes);
  /// The records of one kind in the summary.
  template <typename Entries>
  void putGroup(McapKind kind, const Entries& entries, std::string& summary, std::string& offsets);

  Write write_;
  std::uint64_t offset_ = 0;
  boost::crc_32_type crc_;
  Compressor compressor_;
  Open open_;
  std::vector<McapSchema> schemas_;
  std::vector<McapChannel> channels_;
  std::vector<McapChunkIndex> chunks_;
  std::vector<McapAttachmentIndex> attachments_;
  std::vector<McapMetadataIndex> metadata_;
  McapStatistics statistics_;
};

}  // namespace host
