#include "host/engine/kindhistory.h"

#include <algorithm>

namespace host {

KindHistory::KindHistory(std::size_t blocks)
    : kinds_(blocks * blockLength), beforeBlocks_(blocks) {}

void KindHistory::add(EventKind kind) {
  if (count_ % blockLength == 0) {
    beforeBlocks_[count_ / blockLength % beforeBlocks_.size()] = counts_;
  }
  kinds_[count_ % kinds_.size()] = static_cast<std::uint8_t>(kind);
  ++counts_[static_cast<std::size_t>(kind)];
  ++count_;
}

KindHistory::Counts KindHistory::before(std::uint64_t number) const {
  const std::uint64_t known = number == 0 ? 0 : std::max(number, oldest());
  if (known == 0) {
    return {};
  }
  if (known == count_) {
    return counts_;
  }
  const std::uint64_t block = known / blockLength;
  Counts counts = beforeBlocks_[block % beforeBlocks_.size()];
  for (std::uint64_t i = block * blockLength; i < known; ++i) {
    ++counts[kinds_[i % kinds_.size()]];
  }
  return counts;
}

std::uint64_t KindHistory::oldest() const {
  const std::uint64_t begun = count_ / blockLength + 1;
  return begun > beforeBlocks_.size() ? (begun - beforeBlocks_.size()) * blockLength : 0;
}

}  // namespace host
