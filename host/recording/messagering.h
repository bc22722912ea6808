#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// The latest messages, in memory that is there, and touched, from the beginning. One thread.
class MessageRing {
 public:
  struct Message {
    std::uint16_t channel = 0;
    std::uint64_t timeNs = 0;
    std::string data;
  };
  /// Of a message: its number, as they come from 0, and where it begins.
  struct Place {
    std::uint64_t number = 0;
    std::uint64_t offset = 0;
  };

  explicit MessageRing(std::size_t bytes) : bytes_(bytes, '\0') {}

  /// The oldest ones make room. One that is larger than all of the ring is left out, as if it had
  /// made room itself.
  void add(std::uint16_t channel, std::uint64_t timeNs, std::string_view data);

  [[nodiscard]] Place begin() const { return begin_; }
  /// Of the next one to come.
  [[nodiscard]] Place end() const { return end_; }
  /// The message at a place from `begin` on and before `end`; moves the place to the next one.
  void read(Place& place, Message& message) const;
  /// The same without the message.
  void skip(Place& place) const { place = behind(place, headAt(place)); }

 private:
  struct Head {
    std::uint64_t timeNs;
    std::uint64_t size;
    std::uint16_t channel;
  };

  void put(const void* data, std::size_t size);
  void get(std::uint64_t offset, void* data, std::size_t size) const;
  [[nodiscard]] Head headAt(const Place& place) const;
  [[nodiscard]] static Place behind(const Place& place, const Head& head) {
    return {place.number + 1, place.offset + sizeof head + head.size};
  }

  std::vector<char> bytes_;
  Place begin_;
  Place end_;
};

}  // namespace host
