#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// The files that a ring is written to: which wish makes one, their names, and what becomes of
/// them. Times are machine time. Any thread, never the cycle.
class RingFiles {
 public:
  /// What comes after a wish belongs to its file as well.
  static constexpr std::int64_t afterMs = 2'000;
  /// From the wish that one file is for to the next one's.
  static constexpr std::int64_t leastBetweenMs = 10'000;
  /// No file is begun once they have so many.
  static constexpr std::uint64_t mostBytes = std::uint64_t{2} << 30;

  enum class State : std::uint8_t { waiting, written, failed };
  struct File {
    /// In the folder.
    std::string name;
    /// What it is for: "held".
    std::string reason;
    std::int64_t triggerMs = 0;
    State state = State::waiting;
    std::uint64_t bytes = 0;
    /// Why it failed.
    std::string fault;

    [[nodiscard]] std::int64_t untilMs() const { return triggerMs + afterMs; }
  };
  /// The file that a wish is granted with, or why it is not.
  struct Granted {
    std::optional<File> file;
    std::string refusal;
  };

  /// Of names that begin with the machine's.
  RingFiles(const std::string& folder, const std::string& machine, std::size_t mostFiles);

  Granted ask(const std::string& reason, std::int64_t nowMs);
  /// No wish is granted any more.
  void end();

  [[nodiscard]] const std::string& folder() const { return folder_; }
  [[nodiscard]] std::string pathOf(const File& file) const {
    return (std::filesystem::path(folder_) / file.name).string();
  }
  /// In the order of their wishes, without so many of the first ones.
  [[nodiscard]] std::vector<File> from(std::size_t first) const;
  /// Wishes that were not granted.
  [[nodiscard]] std::uint64_t leftOut() const;

  // The thread that writes them.

  /// The one that is to be written.
  [[nodiscard]] std::optional<File> waiting() const;
  /// It takes no further wishes.
  void close();
  void settle(std::uint64_t bytes, const std::string& fault);

 private:
  [[nodiscard]] std::string refusalAt(std::int64_t nowMs) const;
  [[nodiscard]] std::string freshName(const std::string& reason) const;

  const std::string folder_;
  const std::string prefix_;
  const std::size_t mostFiles_;

  mutable std::mutex mutex_;
  std::vector<File> files_;
  std::uint64_t bytes_ = 0;
  std::uint64_t leftOut_ = 0;
  bool isClosed_ = false;
  bool hasEnded_ = false;
};

}  // namespace host
