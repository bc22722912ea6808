#include "host/recording/messagering.h"

#include <algorithm>
#include <cstring>

namespace host {

void MessageRing::add(std::uint16_t channel, std::uint64_t timeNs, std::string_view data) {
  const std::size_t size = sizeof(Head) + data.size();
  const bool fits = size <= bytes_.size();
  while (begin_.offset < end_.offset &&
         (!fits || end_.offset + size - begin_.offset > bytes_.size())) {
    skip(begin_);
  }
  ++end_.number;
  if (!fits) {
    begin_ = end_;
    return;
  }
  const Head head{timeNs, data.size(), channel};
  put(&head, sizeof head);
  put(data.data(), data.size());
}

void MessageRing::read(Place& place, Message& message) const {
  const Head head = headAt(place);
  message.channel = head.channel;
  message.timeNs = head.timeNs;
  message.data.resize(head.size);
  get(place.offset + sizeof head, message.data.data(), head.size);
  place = behind(place, head);
}

MessageRing::Head MessageRing::headAt(const Place& place) const {
  Head head{};
  get(place.offset, &head, sizeof head);
  return head;
}

void MessageRing::put(const void* data, std::size_t size) {
  const std::size_t at = end_.offset % bytes_.size();
  const std::size_t first = std::min(size, bytes_.size() - at);
  std::memcpy(&bytes_[at], data, first);
  std::memcpy(bytes_.data(), static_cast<const char*>(data) + first, size - first);
  end_.offset += size;
}

void MessageRing::get(std::uint64_t offset, void* data, std::size_t size) const {
  const std::size_t at = offset % bytes_.size();
  const std::size_t first = std::min(size, bytes_.size() - at);
  std::memcpy(data, &bytes_[at], first);
  std::memcpy(static_cast<char*>(data) + first, bytes_.data(), size - first);
}

}  // namespace host
