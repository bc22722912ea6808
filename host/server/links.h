#pragma once

#include <cstdint>
#include <deque>
#include <string>

namespace host {

/// Keys that let a browser in: each once, for ten minutes. One thread at a time. Times are those
/// of `bootNs`.
class Links {
 public:
  /// A new key that nobody can foresee. The oldest one ends where too many wait.
  std::string make(std::int64_t nowNs);
  /// Whether it was a key; it is none any more.
  bool use(const std::string& key, std::int64_t nowNs);

 private:
  struct Key {
    std::string text;
    std::int64_t endsNs;
  };

  std::deque<Key> keys_;
};

}  // namespace host
