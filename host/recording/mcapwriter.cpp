#include "host/recording/mcapwriter.h"

#include <algorithm>

#include "host/base/clocks.h"

namespace host {
namespace {

/// A kill loses at most what a chunk gathers.
constexpr std::size_t chunkBytes = std::size_t{1} << 20;
constexpr std::uint64_t chunkNs = nsPerSecond;

template <typename Content>
void putWhole(std::string& bytes, McapKind kind, const Content& content) {
  const std::size_t begin = bytes.size();
  ByteWriter(bytes).put(kind).put(std::uint64_t{0});
  putRecord(bytes, content);
  std::string length;
  ByteWriter(length).put(std::uint64_t{bytes.size() - begin - mcapPrefixBytes});
  bytes.replace(begin + 1, length.size(), length);
}

}  // namespace

McapWriter::McapWriter(Write write, const std::string& library) : write_(std::move(write)) {
  std::string header;
  ByteWriter(header).putText("").putText(library);
  this->write(std::string(mcapMagic));
  writeRecordBytes(McapKind::header, header);
}

void McapWriter::write(const std::string& bytes) {
  write_(bytes.data(), bytes.size());
  offset_ += bytes.size();
  crc_.process_bytes(bytes.data(), bytes.size());
}

void McapWriter::writeRecordBytes(McapKind kind, const std::string& content) {
  std::string prefix;
  ByteWriter(prefix).put(kind).put(std::uint64_t{content.size()});
  write(prefix + content);
}

template <typename Content>
void McapWriter::writeRecord(McapKind kind, const Content& content) {
  std::string bytes;
  putWhole(bytes, kind, content);
  write(bytes);
}

std::uint16_t McapWriter::addSchema(const std::string& name, const std::string& encoding,
                                    const std::string& data) {
  const auto id = static_cast<std::uint16_t>(schemas_.size() + 1);
  schemas_.push_back({id, name, encoding, data});
  writeRecord(McapKind::schema, schemas_.back());
  return id;
}

std::uint16_t McapWriter::addChannel(std::uint16_t schema, const std::string& topic,
                                     const std::string& encoding) {
  const auto id = static_cast<std::uint16_t>(channels_.size() + 1);
  channels_.push_back({id, schema, topic, encoding, {}});
  writeRecord(McapKind::channel, channels_.back());
  return id;
}

void McapWriter::addMetadata(const McapMetadata& metadata) {
  const std::uint64_t begin = offset_;
  writeRecord(McapKind::metadata, metadata);
  metadata_.push_back({begin, offset_ - begin, metadata.name});
}

void McapWriter::addAttachment(const McapAttachment& attachment) {
  const std::uint64_t begin = offset_;
  writeRecord(McapKind::attachment, attachment);
  attachments_.push_back({begin, offset_ - begin, attachment.logTime, attachment.createTime,
                          attachment.data.size(), attachment.name, attachment.mediaType});
}

void McapWriter::addMessage(std::uint16_t channel, std::uint64_t timeNs, std::string_view data,
                            bool belongsToLast) {
  if (!belongsToLast &&
      (open_.records.size() >= chunkBytes || timeNs >= open_.startTime + chunkNs)) {
    endChunk();
  }
  const bool isFirst = open_.records.empty();
  open_.startTime = isFirst ? timeNs : std::min(open_.startTime, timeNs);
  open_.endTime = isFirst ? timeNs : std::max(open_.endTime, timeNs);
  open_.messages[channel].emplace_back(timeNs, open_.records.size());
  std::uint64_t& count = statistics_.messagesByChannel[channel];
  putWhole(open_.records, McapKind::message,
           McapMessage{channel, static_cast<std::uint32_t>(count), timeNs, timeNs, data});
  ++count;
}

void McapWriter::endChunk() {
  if (open_.records.empty()) {
    return;
  }
  McapChunk chunk{open_.startTime,        open_.endTime, open_.records.size(),
                  crc32Of(open_.records), "zstd",        compressor_.compressed(open_.records)};
  McapChunkIndex index;
  index.startTime = chunk.startTime;
  index.endTime = chunk.endTime;
  index.offset = offset_;
  writeRecord(McapKind::chunk, chunk);
  index.length = offset_ - index.offset;
  index.compression = chunk.compression;
  index.compressedSize = chunk.records.size();
  index.size = chunk.size;
  writeMessageIndexes(index);
  chunks_.push_back(std::move(index));
  open_.records.clear();
  open_.messages.clear();
}

void McapWriter::writeMessageIndexes(McapChunkIndex& index) {
  const std::uint64_t begin = offset_;
  for (auto& [channel, messages] : open_.messages) {
    std::sort(messages.begin(), messages.end());
    std::string entries;
    for (const auto& [timeNs, offset] : messages) {
      ByteWriter(entries).put(timeNs).put(offset);
    }
    std::string content;
    ByteWriter(content).put(channel).putText(entries);
    index.messageIndexes[channel] = offset_;
    writeRecordBytes(McapKind::messageIndex, content);
  }
  index.messageIndexesLength = offset_ - begin;
}

template <typename Entries>
void McapWriter::putGroup(McapKind kind, const Entries& entries, std::string& summary,
                          std::string& offsets) {
  const std::size_t begin = summary.size();
  for (const auto& entry : entries) {
    putWhole(summary, kind, entry);
  }
  const std::size_t length = summary.size() - begin;
  if (length > 0) {
    constexpr std::uint64_t offsetBytes = 17;
    ByteWriter(offsets)
        .put(McapKind::summaryOffset)
        .put(offsetBytes)
        .put(kind)
        .put(offset_ + begin)
        .put(std::uint64_t{length});
  }
}

void McapWriter::finish() {
  endChunk();
  std::string dataEnd;
  ByteWriter(dataEnd).put(crc_.checksum());
  writeRecordBytes(McapKind::dataEnd, dataEnd);

  statistics_.schemas = static_cast<std::uint16_t>(schemas_.size());
  statistics_.channels = static_cast<std::uint32_t>(channels_.size());
  statistics_.attachments = static_cast<std::uint32_t>(attachments_.size());
  statistics_.metadata = static_cast<std::uint32_t>(metadata_.size());
  statistics_.chunks = static_cast<std::uint32_t>(chunks_.size());
  for (const auto& [channel, count] : statistics_.messagesByChannel) {
    statistics_.messages += count;
  }
  for (const McapChunkIndex& chunk : chunks_) {
    const bool isFirst = &chunk == &chunks_.front();
    statistics_.startTime =
        isFirst ? chunk.startTime : std::min(statistics_.startTime, chunk.startTime);
    statistics_.endTime = std::max(statistics_.endTime, chunk.endTime);
  }

  std::string summary;
  std::string offsets;
  putGroup(McapKind::schema, schemas_, summary, offsets);
  putGroup(McapKind::channel, channels_, summary, offsets);
  putGroup(McapKind::statistics, std::vector{statistics_}, summary, offsets);
  putGroup(McapKind::chunkIndex, chunks_, summary, offsets);
  putGroup(McapKind::attachmentIndex, attachments_, summary, offsets);
  putGroup(McapKind::metadataIndex, metadata_, summary, offsets);
  const std::uint64_t offsetsBegin = offset_ + summary.size();
  summary += offsets;
  ByteWriter(summary)
      .put(McapKind::footer)
      .put(std::uint64_t{mcapFooterBytes})
      .put(offset_)
      .put(offsetsBegin);
  ByteWriter(summary).put(crc32Of(summary));
  write(summary.append(mcapMagic));
}

}  // namespace host
