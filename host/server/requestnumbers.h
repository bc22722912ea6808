#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

namespace host {

/// Which request a batch came with: the number of a request is that of its first batch. Any
/// thread.
class RequestNumbers {
 public:
  /// The batches of one request, whose numbers follow each other.
  void note(std::uint32_t first, std::size_t count);
  [[nodiscard]] std::uint32_t requestOf(std::uint32_t batch) const;

 private:
  static constexpr std::size_t mostNoted = 20'000;

  mutable std::mutex mutex_;
  /// The ends of requests of several batches, by their first ones; the latest of them.
  std::map<std::uint32_t, std::uint32_t> ends_;
};

}  // namespace host
