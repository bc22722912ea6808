#include "host/recording/ringfiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <random>
#include <utility>

#include "host/base/plainname.h"

namespace host {
namespace {

std::string nowText() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts)};
}

/// What no shell takes for an option, and no listing leaves out.
std::string namePrefix(const std::string& machine) {
  constexpr std::size_t longest = 100;
  const std::string name = plainName(machine, longest);
  return name.empty() || name.front() == '.' || name.front() == '-' ? "_" + name : name;
}

}  // namespace

RingFiles::RingFiles(const std::string& folder, const std::string& machine, std::int64_t keptMs,
                     std::size_t mostFiles)
    : folder_(std::filesystem::absolute(folder).lexically_normal()),
      prefix_(namePrefix(machine)),
      run_(fmt::format("{:08x}", std::random_device()())),
      keptMs_(keptMs),
      mostFiles_(mostFiles) {}

RingFiles::Granted RingFiles::ask(const std::string& reason, std::int64_t nowMs) {
  const std::lock_guard lock(mutex_);
  if (!hasEnded_ && isWaiting() && nowMs <= files_.back().untilMs()) {
    return {files_.back(), ""};
  }
  const std::int64_t dueMs =
      files_.empty() ? nowMs : std::max(nowMs, files_.back().dueMs + leastBetweenMs);
  std::string refusal = refusalAt(nowMs, dueMs);
  if (!refusal.empty()) {
    ++leftOut_;
    return {std::nullopt, std::move(refusal)};
  }
  File file;
  file.name = freshName(reason);
  file.reason = reason;
  file.triggerMs = nowMs;
  file.dueMs = dueMs;
  return {files_.emplace_back(std::move(file)), ""};
}

/// Empty where a file may begin.
std::string RingFiles::refusalAt(std::int64_t nowMs, std::int64_t dueMs) const {
  if (hasEnded_) {
    return "the machine ends";
  }
  if (isWaiting()) {
    return fmt::format("{} still waits to be written", files_.back().name);
  }
  if (dueMs - nowMs > keptMs_) {
    return fmt::format(
        "files are written at least {} s apart; the next one is possible in {} ms, and reaches "
        "back {} ms",
        leastBetweenMs / 1000, dueMs - nowMs, keptMs_);
  }
  return reachedLimit();
}

std::string RingFiles::reachedLimit() const {
  const auto count = static_cast<std::size_t>(std::count_if(
      files_.begin(), files_.end(), [](const File& file) { return file.state != State::failed; }));
  if (count >= mostFiles_) {
    return fmt::format("there are {} files, as many as --record-files allows", count);
  }
  if (bytes_ >= mostBytes) {
    return fmt::format("the files have {} bytes; at most {} are allowed", bytes_, mostBytes);
  }
  return "";
}

/// Another one than all files have had.
std::string RingFiles::freshName(const std::string& reason) const {
  const std::string begin = fmt::format("{}-{}-{}-{}", prefix_, nowText(), run_, reason);
  std::string name = begin + ".mcap";
  const auto isTaken = [&] {
    return std::any_of(files_.begin(), files_.end(),
                       [&name](const File& file) { return file.name == name; });
  };
  for (int number = 2; isTaken(); ++number) {
    name = fmt::format("{}-{}.mcap", begin, number);
  }
  return name;
}

void RingFiles::end() {
  const std::lock_guard lock(mutex_);
  hasEnded_ = true;
}

std::vector<RingFiles::File> RingFiles::from(std::size_t first) const {
  const std::lock_guard lock(mutex_);
  return {files_.begin() + static_cast<std::ptrdiff_t>(std::min(first, files_.size())),
          files_.end()};
}

std::uint64_t RingFiles::leftOut() const {
  const std::lock_guard lock(mutex_);
  return leftOut_;
}

std::string RingFiles::limit() const {
  const std::lock_guard lock(mutex_);
  return reachedLimit();
}

std::optional<RingFiles::File> RingFiles::waiting() const {
  const std::lock_guard lock(mutex_);
  return isWaiting() ? std::optional<File>(files_[begun_]) : std::nullopt;
}

void RingFiles::begin() {
  const std::lock_guard lock(mutex_);
  ++begun_;
}

void RingFiles::done(std::uint64_t bytes, const std::string& fault) {
  const std::lock_guard lock(mutex_);
  File& file = files_[begun_ - 1];
  file.state = fault.empty() ? State::written : State::failed;
  file.bytes = bytes;
  file.fault = fault;
  bytes_ += fault.empty() ? bytes : 0;
}

}  // namespace host
