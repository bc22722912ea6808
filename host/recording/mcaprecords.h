#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "host/recording/bytes.h"

// The records of an MCAP file (version 0) that a recording is made of, as plain data, and as
// bytes: the content of a record, without its kind and its length. Times are nanoseconds.
namespace host {

constexpr std::string_view mcapMagic("\x89MCAP0\r\n", 8);

enum class McapKind : std::uint8_t {
  header = 1,
  footer,
  schema,
  channel,
  message,
  chunk,
  messageIndex,
  chunkIndex,
  attachment,
  attachmentIndex,
  statistics,
  metadata,
  metadataIndex,
  summaryOffset,
  dataEnd,
};

/// The kind and the length before each record.
constexpr std::size_t mcapPrefixBytes = 9;

using McapTexts = std::map<std::string, std::string>;
/// Counts or offsets by channel.
using McapNumbers = std::map<std::uint16_t, std::uint64_t>;

struct McapSchema {
  std::uint16_t id = 0;
  std::string name;
  std::string encoding;
  std::string data;
};

struct McapChannel {
  std::uint16_t id = 0;
  /// 0 for none.
  std::uint16_t schema = 0;
  std::string topic;
  std::string encoding;
  McapTexts metadata;
};

struct McapMessage {
  std::uint16_t channel = 0;
  std::uint32_t sequence = 0;
  std::uint64_t logTime = 0;
  std::uint64_t publishTime = 0;
  /// Of who holds the record.
  std::string_view data;
};

/// A chunk without its records.
struct McapChunk {
  std::uint64_t startTime = 0;
  std::uint64_t endTime = 0;
  std::uint64_t size = 0;
  std::uint32_t crc = 0;
  /// "zstd", or empty for none.
  std::string compression;
  /// As they stand in the file.
  std::string_view records;
};

struct McapChunkIndex {
  std::uint64_t startTime = 0;
  std::uint64_t endTime = 0;
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
  /// Of the message index of each channel.
  McapNumbers messageIndexes;
  std::uint64_t messageIndexesLength = 0;
  std::string compression;
  std::uint64_t compressedSize = 0;
  std::uint64_t size = 0;
};

struct McapAttachment {
  std::uint64_t logTime = 0;
  std::uint64_t createTime = 0;
  std::string name;
  std::string mediaType;
  std::string data;
};

struct McapAttachmentIndex {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
  std::uint64_t logTime = 0;
  std::uint64_t createTime = 0;
  std::uint64_t size = 0;
  std::string name;
  std::string mediaType;
};

struct McapMetadata {
  std::string name;
  McapTexts values;
};

struct McapMetadataIndex {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
  std::string name;
};

struct McapStatistics {
  std::uint64_t messages = 0;
  std::uint16_t schemas = 0;
  std::uint32_t channels = 0;
  std::uint32_t attachments = 0;
  std::uint32_t metadata = 0;
  std::uint32_t chunks = 0;
  std::uint64_t startTime = 0;
  std::uint64_t endTime = 0;
  McapNumbers messagesByChannel;
};

struct McapFooter {
  std::uint64_t summaryStart = 0;
  std::uint64_t summaryOffsetStart = 0;
  std::uint32_t summaryCrc = 0;
};
constexpr std::size_t mcapFooterBytes = 20;

void putRecord(std::string& bytes, const McapSchema& schema);
void putRecord(std::string& bytes, const McapChannel& channel);
void putRecord(std::string& bytes, const McapMessage& message);
void putRecord(std::string& bytes, const McapChunk& chunk);
void putRecord(std::string& bytes, const McapChunkIndex& index);
void putRecord(std::string& bytes, const McapAttachment& attachment);
void putRecord(std::string& bytes, const McapAttachmentIndex& index);
void putRecord(std::string& bytes, const McapMetadata& metadata);
void putRecord(std::string& bytes, const McapMetadataIndex& index);
void putRecord(std::string& bytes, const McapStatistics& statistics);

// All of these throw `RecordingFault`. Fields behind those that are known are ignored.

void getRecord(std::string_view bytes, McapSchema& schema);
void getRecord(std::string_view bytes, McapChannel& channel);
void getRecord(std::string_view bytes, McapMessage& message);
void getRecord(std::string_view bytes, McapChunk& chunk);
void getRecord(std::string_view bytes, McapChunkIndex& index);
/// Holds the data against their checksum, too.
void getRecord(std::string_view bytes, McapAttachment& attachment);
void getRecord(std::string_view bytes, McapAttachmentIndex& index);
void getRecord(std::string_view bytes, McapMetadata& metadata);
void getRecord(std::string_view bytes, McapStatistics& statistics);
void getRecord(std::string_view bytes, McapFooter& footer);

}  // namespace host
