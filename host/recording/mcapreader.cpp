#include "host/recording/mcapreader.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/recording/compression.h"

namespace host {
namespace {

constexpr std::size_t footerBytes = mcapPrefixBytes + mcapFooterBytes + mcapMagic.size();

struct Prefix {
  McapKind kind{};
  std::uint64_t length = 0;
};

Prefix prefixOf(ByteReader& reader) {
  const auto kind = reader.get<std::uint8_t>();
  return {static_cast<McapKind>(kind), reader.get<std::uint64_t>()};
}

/// The records of a chunk, held against their checksum.
std::string recordsOf(const McapChunk& chunk) {
  if (chunk.size > McapReader::mostChunkBytes) {
    throw RecordingFault(fmt::format("a chunk of {} bytes is too large", chunk.size));
  }
  if (!chunk.compression.empty() && chunk.compression != "zstd") {
    throw RecordingFault(
        fmt::format("a chunk is compressed with '{}', not with zstd", chunk.compression));
  }
  std::string records = chunk.compression.empty() ? std::string(chunk.records)
                                                  : decompressed(chunk.records, chunk.size);
  if (chunk.crc != 0 && chunk.crc != crc32Of(records)) {
    throw RecordingFault("the checksum of a chunk is wrong");
  }
  return records;
}

template <typename Record>
Record parsed(std::string_view content) {
  Record record;
  getRecord(content, record);
  return record;
}

/// What may stand in a chunk, or for itself.
void takePlain(McapKind kind, std::string_view content, McapHandler& handler) {
  if (kind == McapKind::schema) {
    handler.take(parsed<McapSchema>(content));
  } else if (kind == McapKind::channel) {
    handler.take(parsed<McapChannel>(content));
  } else if (kind == McapKind::message) {
    handler.take(parsed<McapMessage>(content));
  }
}

/// Throws when the records do not fill the chunk.
void takeChunk(const std::string& records, McapHandler& handler) {
  for (ByteReader check(records); !check.isAtEnd();) {
    check.take(prefixOf(check).length);
  }
  for (ByteReader reader(records); !reader.isAtEnd();) {
    const auto [kind, length] = prefixOf(reader);
    takePlain(kind, reader.take(length), handler);
  }
}

void takeSummary(McapKind kind, std::string_view content, McapSummary& summary) {
  if (kind == McapKind::schema) {
    summary.schemas.push_back(parsed<McapSchema>(content));
  } else if (kind == McapKind::channel) {
    summary.channels.push_back(parsed<McapChannel>(content));
  } else if (kind == McapKind::chunkIndex) {
    summary.chunks.push_back(parsed<McapChunkIndex>(content));
  } else if (kind == McapKind::attachmentIndex) {
    summary.attachments.push_back(parsed<McapAttachmentIndex>(content));
  } else if (kind == McapKind::statistics) {
    summary.statistics = parsed<McapStatistics>(content);
  }
}

}  // namespace

McapReader::McapReader(std::istream& stream) : stream_(stream) {
  stream_.seekg(0, std::ios::end);
  const std::streamoff end = stream_.tellg();
  size_ = end < 0 ? 0 : static_cast<std::uint64_t>(end);
  if (size_ < mcapMagic.size() || read(0, mcapMagic.size()) != mcapMagic) {
    throw RecordingFault("is not an MCAP file");
  }
}

std::string McapReader::read(std::uint64_t offset, std::uint64_t count) {
  if (offset > size_ || count > size_ - offset) {
    throw RecordingFault(fmt::format("the file ends before byte {}", offset));
  }
  std::string bytes(count, '\0');
  stream_.clear();
  stream_.seekg(static_cast<std::streamoff>(offset));
  stream_.read(bytes.data(), static_cast<std::streamsize>(count));
  if (!stream_) {
    throw RecordingFault(fmt::format("cannot be read at byte {}", offset));
  }
  return bytes;
}

std::string McapReader::readRecord(std::uint64_t offset, McapKind kind) {
  const std::string prefix = read(offset, mcapPrefixBytes);
  ByteReader reader(prefix);
  const auto [found, length] = prefixOf(reader);
  if (found != kind) {
    throw RecordingFault(
        fmt::format("the index is wrong: the record at byte {} is a different one", offset));
  }
  return read(offset + mcapPrefixBytes, length);
}

McapEnd McapReader::readAll(McapHandler& handler) {
  McapEnd end;
  end.offset = mcapMagic.size();
  while (true) {
    if (size_ - end.offset < mcapPrefixBytes) {
      end.faults.push_back(fmt::format("the file is cut at byte {}", end.offset));
      return end;
    }
    const std::string prefix = read(end.offset, mcapPrefixBytes);
    ByteReader reader(prefix);
    const auto [kind, length] = prefixOf(reader);
    const std::uint64_t begin = end.offset + mcapPrefixBytes;
    if (length > size_ - begin) {
      end.faults.push_back(fmt::format("the file is cut in the record at byte {}", end.offset));
      return end;
    }
    if (kind == McapKind::dataEnd) {
      end.isWhole = read(size_ - mcapMagic.size(), mcapMagic.size()) == mcapMagic;
      return end;
    }
    try {
      if (length > mostChunkBytes) {
        throw RecordingFault(fmt::format("a record of {} bytes is too large", length));
      }
      takeRecord(kind, read(begin, length), handler, end);
    } catch (const RecordingFault& fault) {
      end.faults.push_back(fmt::format("{} (at byte {})", fault.what(), end.offset));
      handler.passOver(end.faults.back());
    }
    end.offset = begin + length;
  }
}

void McapReader::takeRecord(McapKind kind, std::string_view content, McapHandler& handler,
                            McapEnd& end) {
  if (kind == McapKind::chunk) {
    takeChunk(recordsOf(parsed<McapChunk>(content)), handler);
    ++end.chunks;
  } else if (kind == McapKind::attachment) {
    handler.take(parsed<McapAttachment>(content));
  } else if (kind == McapKind::metadata) {
    handler.take(parsed<McapMetadata>(content));
  } else {
    takePlain(kind, content, handler);
  }
}

McapSummary McapReader::readSummary() {
  if (size_ < mcapMagic.size() + footerBytes) {
    throw RecordingFault("the file has no summary");
  }
  const std::uint64_t footerOffset = size_ - footerBytes;
  const std::string tail = read(footerOffset, footerBytes);
  ByteReader reader(tail);
  const auto [kind, length] = prefixOf(reader);
  if (kind != McapKind::footer || length != mcapFooterBytes ||
      std::string_view(tail).substr(mcapPrefixBytes + mcapFooterBytes) != mcapMagic) {
    throw RecordingFault("the file has no summary: it does not end as it should");
  }
  const auto footer = parsed<McapFooter>(reader.rest());
  if (footer.summaryStart == 0 || footer.summaryStart > footerOffset) {
    throw RecordingFault("the file has no summary");
  }
  const std::string bytes = read(footer.summaryStart, size_ - footer.summaryStart);
  const std::string_view checked =
      std::string_view(bytes).substr(0, bytes.size() - mcapMagic.size() - sizeof footer.summaryCrc);
  if (footer.summaryCrc != 0 && footer.summaryCrc != crc32Of(checked)) {
    throw RecordingFault("the checksum of the summary is wrong");
  }
  McapSummary summary;
  for (ByteReader records(std::string_view(bytes).substr(0, footerOffset - footer.summaryStart));
       !records.isAtEnd();) {
    const auto [group, size] = prefixOf(records);
    takeSummary(group, records.take(size), summary);
  }
  return summary;
}

void McapReader::readMessages(const McapSummary& summary, std::uint16_t channel,
                              std::uint64_t begin, std::uint64_t end, McapHandler& handler) {
  std::vector<const McapChunkIndex*> chunks;
  for (const McapChunkIndex& chunk : summary.chunks) {
    if (chunk.messageIndexes.count(channel) > 0 && chunk.startTime <= end &&
        chunk.endTime >= begin) {
      chunks.push_back(&chunk);
    }
  }
  std::stable_sort(chunks.begin(), chunks.end(),
                   [](const auto* a, const auto* b) { return a->startTime < b->startTime; });
  for (const McapChunkIndex* const chunk : chunks) {
    const std::string content = readRecord(chunk->offset, McapKind::chunk);
    const std::string records = recordsOf(parsed<McapChunk>(content));
    const std::string index = readRecord(chunk->messageIndexes.at(channel), McapKind::messageIndex);
    ByteReader reader(index);
    reader.get<std::uint16_t>();
    for (ByteReader entries(reader.getText()); !entries.isAtEnd();) {
      entries.get<std::uint64_t>();
      ByteReader record(records);
      record.take(entries.get<std::uint64_t>());
      const auto [kind, length] = prefixOf(record);
      const auto message = parsed<McapMessage>(record.take(length));
      if (kind != McapKind::message || message.channel != channel) {
        throw RecordingFault("the index is wrong: it names no message of its channel");
      }
      if (message.logTime >= begin && message.logTime <= end) {
        handler.take(message);
      }
    }
  }
}

}  // namespace host
