#pragma once

#include <unistd.h>

#include <utility>

namespace simulation {

/// An open file of this process, closed with the object; -1 is none.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) noexcept : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) {
      close(number_);
    }
  }

  [[nodiscard]] int number() const noexcept { return number_; }
  /// For whoever closes it from now on.
  [[nodiscard]] int release() noexcept { return std::exchange(number_, -1); }
  [[nodiscard]] bool isOpen() const noexcept { return number_ >= 0; }

 private:
  int number_;
};

}  // namespace simulation
