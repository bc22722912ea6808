#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace host {

/// What is wrong with the bytes of a recording.
class RecordingFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Appends numbers to a text in little-endian order, and texts behind their lengths.
class ByteWriter {
 public:
  /// The text must outlive the object.
  explicit ByteWriter(std::string& bytes) : bytes_(bytes) {}

  template <typename Number>
  ByteWriter& put(Number number) {
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
      bytes_.push_back(static_cast<char>(static_cast<std::uint64_t>(number) >> (8 * i)));
    }
    return *this;
  }
  /// Behind a length of 32 bits.
  ByteWriter& putText(std::string_view text);

 private:
  std::string& bytes_;
};

/// Takes the same off the front of a text. Throws `RecordingFault` when it is too short.
class ByteReader {
 public:
  explicit ByteReader(std::string_view bytes) : bytes_(bytes) {}

  template <typename Number>
  Number get() {
    const std::string_view taken = take(sizeof(Number));
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
      number |= std::uint64_t{static_cast<unsigned char>(taken[i])} << (8 * i);
    }
    return static_cast<Number>(number);
  }
  std::string_view take(std::uint64_t count);
  std::string_view getText() { return take(get<std::uint32_t>()); }

  [[nodiscard]] std::string_view rest() const { return bytes_; }
  [[nodiscard]] bool isAtEnd() const { return bytes_.empty(); }

 private:
  std::string_view bytes_;
};

/// As other programs compute it.
std::uint32_t crc32Of(std::string_view bytes);

}  // namespace host
