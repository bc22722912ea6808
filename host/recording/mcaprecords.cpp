#include "host/recording/mcaprecords.h"

namespace host {
namespace {

void putTexts(std::string& bytes, const McapTexts& texts) {
  std::string entries;
  ByteWriter writer(entries);
  for (const auto& [key, value] : texts) {
    writer.putText(key).putText(value);
  }
  ByteWriter(bytes).putText(entries);
}

McapTexts getTexts(ByteReader& reader) {
  McapTexts texts;
  for (ByteReader entries(reader.getText()); !entries.isAtEnd();) {
    const std::string_view key = entries.getText();
    texts.emplace(key, entries.getText());
  }
  return texts;
}

void putNumbers(std::string& bytes, const McapNumbers& numbers) {
  std::string entries;
  ByteWriter writer(entries);
  for (const auto& [channel, number] : numbers) {
    writer.put(channel).put(number);
  }
  ByteWriter(bytes).putText(entries);
}

McapNumbers getNumbers(ByteReader& reader) {
  McapNumbers numbers;
  for (ByteReader entries(reader.getText()); !entries.isAtEnd();) {
    const auto channel = entries.get<std::uint16_t>();
    numbers.emplace(channel, entries.get<std::uint64_t>());
  }
  return numbers;
}

}  // namespace

void putRecord(std::string& bytes, const McapSchema& schema) {
  ByteWriter(bytes)
      .put(schema.id)
      .putText(schema.name)
      .putText(schema.encoding)
      .putText(schema.data);
}

void getRecord(std::string_view bytes, McapSchema& schema) {
  ByteReader reader(bytes);
  schema.id = reader.get<std::uint16_t>();
  schema.name = reader.getText();
  schema.encoding = reader.getText();
  schema.data = reader.getText();
}

void putRecord(std::string& bytes, const McapChannel& channel) {
  ByteWriter(bytes)
      .put(channel.id)
      .put(channel.schema)
      .putText(channel.topic)
      .putText(channel.encoding);
  putTexts(bytes, channel.metadata);
}

void getRecord(std::string_view bytes, McapChannel& channel) {
  ByteReader reader(bytes);
  channel.id = reader.get<std::uint16_t>();
  channel.schema = reader.get<std::uint16_t>();
  channel.topic = reader.getText();
  channel.encoding = reader.getText();
  channel.metadata = getTexts(reader);
}

void putRecord(std::string& bytes, const McapMessage& message) {
  ByteWriter(bytes)
      .put(message.channel)
      .put(message.sequence)
      .put(message.logTime)
      .put(message.publishTime);
  bytes.append(message.data);
}

void getRecord(std::string_view bytes, McapMessage& message) {
  ByteReader reader(bytes);
  message.channel = reader.get<std::uint16_t>();
  message.sequence = reader.get<std::uint32_t>();
  message.logTime = reader.get<std::uint64_t>();
  message.publishTime = reader.get<std::uint64_t>();
  message.data = reader.rest();
}

void putRecord(std::string& bytes, const McapChunk& chunk) {
  ByteWriter(bytes)
      .put(chunk.startTime)
      .put(chunk.endTime)
      .put(chunk.size)
      .put(chunk.crc)
      .putText(chunk.compression)
      .put(std::uint64_t{chunk.records.size()});
  bytes.append(chunk.records);
}

void getRecord(std::string_view bytes, McapChunk& chunk) {
  ByteReader reader(bytes);
  chunk.startTime = reader.get<std::uint64_t>();
  chunk.endTime = reader.get<std::uint64_t>();
  chunk.size = reader.get<std::uint64_t>();
  chunk.crc = reader.get<std::uint32_t>();
  chunk.compression = reader.getText();
  chunk.records = reader.take(reader.get<std::uint64_t>());
}

void putRecord(std::string& bytes, const McapChunkIndex& index) {
  ByteWriter(bytes).put(index.startTime).put(index.endTime).put(index.offset).put(index.length);
  putNumbers(bytes, index.messageIndexes);
  ByteWriter(bytes)
      .put(index.messageIndexesLength)
      .putText(index.compression)
      .put(index.compressedSize)
      .put(index.size);
}

void getRecord(std::string_view bytes, McapChunkIndex& index) {
  ByteReader reader(bytes);
  index.startTime = reader.get<std::uint64_t>();
  index.endTime = reader.get<std::uint64_t>();
  index.offset = reader.get<std::uint64_t>();
  index.length = reader.get<std::uint64_t>();
  index.messageIndexes = getNumbers(reader);
  index.messageIndexesLength = reader.get<std::uint64_t>();
  index.compression = reader.getText();
  index.compressedSize = reader.get<std::uint64_t>();
  index.size = reader.get<std::uint64_t>();
}

void putRecord(std::string& bytes, const McapAttachment& attachment) {
  const std::size_t begin = bytes.size();
  ByteWriter(bytes)
      .put(attachment.logTime)
      .put(attachment.createTime)
      .putText(attachment.name)
      .putText(attachment.mediaType)
      .put(std::uint64_t{attachment.data.size()});
  bytes.append(attachment.data);
  ByteWriter(bytes).put(crc32Of(std::string_view(bytes).substr(begin)));
}

void getRecord(std::string_view bytes, McapAttachment& attachment) {
  ByteReader reader(bytes);
  attachment.logTime = reader.get<std::uint64_t>();
  attachment.createTime = reader.get<std::uint64_t>();
  attachment.name = reader.getText();
  attachment.mediaType = reader.getText();
  attachment.data = reader.take(reader.get<std::uint64_t>());
  const std::string_view checked = bytes.substr(0, bytes.size() - reader.rest().size());
  const auto crc = reader.get<std::uint32_t>();
  if (crc != 0 && crc != crc32Of(checked)) {
    throw RecordingFault("the checksum of an attachment is wrong");
  }
}

void putRecord(std::string& bytes, const McapAttachmentIndex& index) {
  ByteWriter(bytes)
      .put(index.offset)
      .put(index.length)
      .put(index.logTime)
      .put(index.createTime)
      .put(index.size)
      .putText(index.name)
      .putText(index.mediaType);
}

void getRecord(std::string_view bytes, McapAttachmentIndex& index) {
  ByteReader reader(bytes);
  index.offset = reader.get<std::uint64_t>();
  index.length = reader.get<std::uint64_t>();
  index.logTime = reader.get<std::uint64_t>();
  index.createTime = reader.get<std::uint64_t>();
  index.size = reader.get<std::uint64_t>();
  index.name = reader.getText();
  index.mediaType = reader.getText();
}

void putRecord(std::string& bytes, const McapMetadata& metadata) {
  ByteWriter(bytes).putText(metadata.name);
  putTexts(bytes, metadata.values);
}

void getRecord(std::string_view bytes, McapMetadata& metadata) {
  ByteReader reader(bytes);
  metadata.name = reader.getText();
  metadata.values = getTexts(reader);
}

void putRecord(std::string& bytes, const McapMetadataIndex& index) {
  ByteWriter(bytes).put(index.offset).put(index.length).putText(index.name);
}

void putRecord(std::string& bytes, const McapStatistics& statistics) {
  ByteWriter(bytes)
      .put(statistics.messages)
      .put(statistics.schemas)
      .put(statistics.channels)
      .put(statistics.attachments)
      .put(statistics.metadata)
      .put(statistics.chunks)
      .put(statistics.startTime)
      .put(statistics.endTime);
  putNumbers(bytes, statistics.messagesByChannel);
}

void getRecord(std::string_view bytes, McapStatistics& statistics) {
  ByteReader reader(bytes);
  statistics.messages = reader.get<std::uint64_t>();
  statistics.schemas = reader.get<std::uint16_t>();
  statistics.channels = reader.get<std::uint32_t>();
  statistics.attachments = reader.get<std::uint32_t>();
  statistics.metadata = reader.get<std::uint32_t>();
  statistics.chunks = reader.get<std::uint32_t>();
  statistics.startTime = reader.get<std::uint64_t>();
  statistics.endTime = reader.get<std::uint64_t>();
  statistics.messagesByChannel = getNumbers(reader);
}

void getRecord(std::string_view bytes, McapFooter& footer) {
  ByteReader reader(bytes);
  footer.summaryStart = reader.get<std::uint64_t>();
  footer.summaryOffsetStart = reader.get<std::uint64_t>();
  footer.summaryCrc = reader.get<std::uint32_t>();
}

}  // namespace host
