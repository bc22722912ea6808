#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// The files that a ring is written to: which request makes one, their names, and what becomes of
/// them. Times are machine time. Any thread, never the cycle; none of it touches the disk.
class RingFiles {
 public:
  /// A file ends so long after its moment.
  static constexpr std::int64_t afterMs = 2'000;
  /// From one file's moment to the next one's.
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
    /// Its moment: the trigger, or later where the file before it is too near.
    std::int64_t dueMs = 0;
    State state = State::waiting;
    std::uint64_t bytes = 0;
    /// Why it failed.
    std::string fault;

    [[nodiscard]] std::int64_t untilMs() const { return dueMs + afterMs; }
  };
  /// The file that a request is granted with, or why it is not.
  struct Granted {
    std::optional<File> file;
    std::string refusal;
  };

  /// Names begin with the machine's. A file has `keptMs` before its moment. At most `mostFiles`
  /// are written.
  RingFiles(const std::string& folder, const std::string& machine, std::int64_t keptMs,
            std::size_t mostFiles);

  /// With a file that has the present moment.
  Granted ask(const std::string& reason, std::int64_t nowMs);
  /// No request is granted any more.
  void end();

  [[nodiscard]] const std::string& folder() const { return folder_; }
  [[nodiscard]] std::string pathOf(const File& file) const {
    return (std::filesystem::path(folder_) / file.name).string();
  }
  /// In the order of their requests, without so many of the first ones.
  [[nodiscard]] std::vector<File> from(std::size_t first) const;
  /// Requests that were not granted.
  [[nodiscard]] std::uint64_t leftOut() const;
  /// Why there will be no further file; empty where there may be one.
  [[nodiscard]] std::string limit() const;

  // The thread that writes them, one after the other.

  /// The next one that is to be written.
  [[nodiscard]] std::optional<File> waiting() const;
  /// It is being written, and takes no further requests.
  void begin();
  /// What became of the one that was begun; no fault: it is there.
  void done(std::uint64_t bytes, const std::string& fault);

 private:
  [[nodiscard]] bool isWaiting() const { return files_.size() > begun_; }
  [[nodiscard]] std::string refusalAt(std::int64_t nowMs, std::int64_t dueMs) const;
  [[nodiscard]] std::string reachedLimit() const;
  [[nodiscard]] std::string freshName(const std::string& reason) const;

  const std::string folder_;
  const std::string prefix_;
  /// So that processes that share a folder choose different names.
  const std::string run_;
  const std::int64_t keptMs_;
  const std::size_t mostFiles_;

  mutable std::mutex mutex_;
  std::vector<File> files_;
  std::size_t begun_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t leftOut_ = 0;
  bool hasEnded_ = false;
};

}  // namespace host
