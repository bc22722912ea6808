#pragma once

#include <cstdint>
#include <cstdlib>
#include <random>

/// Numbers that a seed repeats.
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}

  /// From 0, less than this.
  std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(engine_() % bound); }
  bool chance(std::uint32_t percent) { return below(100) < percent; }
  double between(double least, double most) {
    return std::uniform_real_distribution<>(least, most)(engine_);
  }

 private:
  std::mt19937 engine_;
};

/// A number that the environment may set.
inline unsigned long fromEnvironment(const char* name, unsigned long otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoul(text, nullptr, 10);
}
