#pragma once

#include <cstddef>
#include <exception>
#include <string>
#include <vector>

#include "host/base/usererror.h"

namespace host {

/// Thrown in place of a follow-up error: what is needed is broken, and that was reported.
class AlreadyReported : public std::exception {};

/// Gathers the user errors of files, so that all are reported and not the first alone. A
/// reader attempts each part that stands for itself, and throws all errors at its end; what
/// it has made of broken input until then is of no use.
class ErrorCollector {
 public:
  /// Behind so many errors, or so much text of them, nothing more is attempted.
  static constexpr std::size_t most = 1000;
  static constexpr std::size_t mostBytes = std::size_t{1} << 20;

  /// Calls `read`, and adds the `UserError` that it throws. True when no error came up.
  template <typename Read>
  bool attempt(const Read& read) {
    if (stopped_) {
      return false;
    }
    const std::size_t before = entries_.size();
    try {
      read();
    } catch (const UserError& error) {
      add(error);
    } catch (const AlreadyReported&) {
      return false;
    }
    return entries_.size() == before && !stopped_;
  }

  void add(const UserError& error);

  /// Adds the error; nothing more is attempted. For input that asks for too much: reading on
  /// would be what must not happen.
  [[noreturn]] void stop(const UserError& error);

  /// Throws all errors as one, if there are any: file by file as they came up, and by location
  /// in each.
  void throwIfAny() const;

 private:
  [[nodiscard]] std::size_t fileOf(const UserError::Entry& entry) const;

  std::vector<UserError::Entry> entries_;
  /// In the order in which they came up.
  std::vector<std::string> files_;
  std::size_t bytes_ = 0;
  bool stopped_ = false;
};

}  // namespace host
