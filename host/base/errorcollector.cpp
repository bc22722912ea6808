#include "host/base/errorcollector.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace host {

std::size_t ErrorCollector::fileOf(const UserError::Entry& entry) const {
  return static_cast<std::size_t>(std::find(files_.begin(), files_.end(), entry.path) -
                                  files_.begin());
}

void ErrorCollector::add(const UserError& error) {
  if (stopped_) {
    return;
  }
  for (const UserError::Entry& entry : error.entries()) {
    if (fileOf(entry) == files_.size()) {
      files_.push_back(entry.path);
    }
    entries_.push_back(entry);
    bytes_ += entry.text.size();
  }
  stopped_ = entries_.size() >= most || bytes_ > mostBytes;
}

void ErrorCollector::stop(const UserError& error) {
  add(error);
  stopped_ = true;
  throw AlreadyReported();
}

void ErrorCollector::throwIfAny() const {
  if (entries_.empty()) {
    return;
  }
  std::vector<UserError::Entry> sorted = entries_;
  const auto key = [this](const UserError::Entry& entry) {
    return std::tuple(fileOf(entry), entry.location.line, entry.location.column, entry.text);
  };
  std::sort(sorted.begin(), sorted.end(),
            [&](const auto& one, const auto& other) { return key(one) < key(other); });
  // What is named many times was read as often.
  sorted.erase(
      std::unique(sorted.begin(), sorted.end(),
                  [&](const auto& one, const auto& other) { return key(one) == key(other); }),
      sorted.end());
  throw UserError(std::move(sorted), stopped_);
}

}  // namespace host
