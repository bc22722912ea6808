#include "host/recording/bytes.h"

#include <boost/crc.hpp>

namespace host {

ByteWriter& ByteWriter::putText(std::string_view text) {
  put(static_cast<std::uint32_t>(text.size()));
  bytes_.append(text);
  return *this;
}

std::string_view ByteReader::take(std::uint64_t count) {
  if (count > bytes_.size()) {
    throw RecordingFault("a field goes beyond the end of its record");
  }
  const std::string_view taken = bytes_.substr(0, count);
  bytes_.remove_prefix(count);
  return taken;
}

std::uint32_t crc32Of(std::string_view bytes) {
  boost::crc_32_type crc;
  crc.process_bytes(bytes.data(), bytes.size());
  return crc.checksum();
}

}  // namespace host
