#include "host/recording/ringfiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <utility>

namespace host {
namespace {

std::string nowText() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts)};
}

/// What every file system and shell takes.
std::string plain(std::string name) {
  constexpr char allowed[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
  for (std::size_t at = name.find_first_not_of(allowed); at != std::string::npos;
       at = name.find_first_not_of(allowed, at)) {
    name[at] = '_';
  }
  constexpr std::size_t longest = 100;
  name.resize(std::min(name.size(), longest));
  return name.empty() || name.front() == '.' || name.front() == '-' ? "_" + name : name;
}

}  // namespace

RingFiles::RingFiles(const std::string& folder, const std::string& machine, std::size_t mostFiles)
    : folder_(std::filesystem::absolute(folder).lexically_normal()),
      prefix_(plain(machine)),
      mostFiles_(mostFiles) {}

RingFiles::Granted RingFiles::ask(const std::string& reason, std::int64_t nowMs) {
  const std::lock_guard lock(mutex_);
  const bool isWaiting = !files_.empty() && files_.back().state == State::waiting;
  if (isWaiting && !isClosed_ && nowMs <= files_.back().untilMs()) {
    return {files_.back(), ""};
  }
  std::string refusal = refusalAt(nowMs);
  if (!refusal.empty()) {
    ++leftOut_;
    return {std::nullopt, std::move(refusal)};
  }
  isClosed_ = false;
  File& file = files_.emplace_back();
  file.name = freshName(reason);
  file.reason = reason;
  file.triggerMs = nowMs;
  return {file, ""};
}

/// Empty where a file may begin.
std::string RingFiles::refusalAt(std::int64_t nowMs) const {
  if (hasEnded_) {
    return "the machine ends";
  }
  if (files_.empty()) {
    return "";
  }
  const File& last = files_.back();
  if (nowMs < last.triggerMs + leastBetweenMs || last.state == State::waiting) {
    return fmt::format("{} was for {} ms ago; there is one every {} s at most", last.name,
                       nowMs - last.triggerMs, leastBetweenMs / 1000);
  }
  if (files_.size() >= mostFiles_) {
    return fmt::format("there are {} files, as many as --record-files allows", files_.size());
  }
  if (bytes_ >= mostBytes) {
    return fmt::format("the files have {} bytes, and may have {}", bytes_, mostBytes);
  }
  return "";
}

std::string RingFiles::freshName(const std::string& reason) const {
  const std::string begin = fmt::format("{}-{}-{}", prefix_, nowText(), reason);
  std::string name = begin + ".mcap";
  std::error_code ignored;
  const auto isTaken = [&] {
    return std::filesystem::exists(
               std::filesystem::symlink_status(folder_ + "/" + name, ignored)) ||
           std::any_of(files_.begin(), files_.end(),
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
  isClosed_ = true;
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

std::optional<RingFiles::File> RingFiles::waiting() const {
  const std::lock_guard lock(mutex_);
  return files_.empty() || files_.back().state != State::waiting
             ? std::nullopt
             : std::optional<File>(files_.back());
}

void RingFiles::close() {
  const std::lock_guard lock(mutex_);
  isClosed_ = true;
}

void RingFiles::settle(std::uint64_t bytes, const std::string& fault) {
  const std::lock_guard lock(mutex_);
  File& file = files_.back();
  file.state = fault.empty() ? State::written : State::failed;
  file.bytes = bytes;
  file.fault = fault;
  bytes_ += fault.empty() ? bytes : 0;
}

}  // namespace host
