#include "host/motion/backlog.h"

#include <algorithm>
#include <utility>

namespace host {
namespace {

bool isBefore(const Point& point, std::int64_t timeMs) {
  return point.timeMs < timeMs;
}

template <typename Block>
auto at(Block& block, std::size_t offset) {
  return block.begin() + static_cast<std::ptrdiff_t>(offset);
}

}  // namespace

Backlog::Cursor Backlog::findFirst(std::int64_t timeMs) const {
  const auto block = std::lower_bound(
      blocks_.begin(), blocks_.end(), timeMs,
      [](const Block& one, std::int64_t time) { return isBefore(one.back(), time); });
  Cursor cursor{static_cast<std::size_t>(block - blocks_.begin()), 0};
  if (block != blocks_.end()) {
    cursor.offset = static_cast<std::size_t>(
        std::lower_bound(block->begin(), block->end(), timeMs, isBefore) - block->begin());
  }
  return cursor;
}

Backlog::Cursor Backlog::cursorAt(std::size_t position) const {
  Cursor cursor{0, position};
  while (cursor.offset >= blocks_[cursor.block].size()) {
    cursor.offset -= blocks_[cursor.block++].size();
  }
  return cursor;
}

const Point& Backlog::operator[](std::size_t position) const {
  const Cursor cursor = cursorAt(position);
  return blocks_[cursor.block][cursor.offset];
}

void Backlog::popFront() {
  eraseAt({0, 0});
}

void Backlog::erase(std::size_t position) {
  eraseAt(cursorAt(position));
}

void Backlog::eraseAt(const Cursor& cursor) {
  Block& block = blocks_[cursor.block];
  block.erase(at(block, cursor.offset));
  --size_;
  if (block.empty()) {
    blocks_.erase(at(blocks_, cursor.block));
  }
}

Backlog::Kept Backlog::kept(const std::vector<Point>& points, TimedCommand::commandType mode) {
  Kept kept;
  if (mode == TimedCommand::REPLACE) {
    kept.lastMs = kept.firstMs;
  } else if (mode == TimedCommand::CLEAR_AFTER && !points.empty()) {
    kept.lastMs = points.front().timeMs - 1;
  } else if (mode == TimedCommand::CLEAR_BEFORE && !points.empty()) {
    kept.firstMs = points.back().timeMs + 1;
  }
  return kept;
}

std::size_t Backlog::countDue(const Kept& kept, std::int64_t beginMs, std::int64_t endMs) const {
  const std::int64_t firstMs = std::max(beginMs, kept.firstMs);
  const std::int64_t lastMs = std::min(endMs, kept.lastMs);
  return firstMs > lastMs ? 0 : countBetween(findFirst(firstMs), findFirst(lastMs + 1));
}

std::size_t Backlog::countBetween(const Cursor& begin, const Cursor& end) const {
  std::size_t count = 0;
  for (std::size_t block = begin.block; block < end.block; ++block) {
    count += blocks_[block].size();
  }
  return count + end.offset - begin.offset;
}

std::vector<Backlog::Block> Backlog::take(const std::vector<Point>& points,
                                          TimedCommand::commandType mode) {
  const Kept keeps = kept(points, mode);
  std::vector<Block> removed;
  cut({0, 0}, findFirst(keeps.firstMs), removed);
  if (keeps.lastMs < std::numeric_limits<std::int64_t>::max()) {
    cut(findFirst(keeps.lastMs + 1), {blocks_.size(), 0}, removed);
  }
  if (points.empty()) {
    return removed;
  }
  if (empty() || points.front().timeMs > blocks_.back().back().timeMs) {
    append(points);
    return removed;
  }
  // From the back: each comes in before those with the same time, so the first stays first.
  std::for_each(points.rbegin(), points.rend(), [this](const Point& point) { insert(point); });
  return removed;
}

bool Backlog::remove(const Point& point) {
  for (Cursor cursor = findFirst(point.timeMs); cursor.block < blocks_.size();) {
    const Block& block = blocks_[cursor.block];
    if (block[cursor.offset].timeMs != point.timeMs) {
      return false;
    }
    if (block[cursor.offset].isSamePointAs(point)) {
      eraseAt(cursor);
      return true;
    }
    cursor = cursor.offset + 1 < block.size() ? Cursor{cursor.block, cursor.offset + 1}
                                              : Cursor{cursor.block + 1, 0};
  }
  return false;
}

/// Whole blocks are moved out, however many they are.
void Backlog::cut(const Cursor& begin, const Cursor& end, std::vector<Block>& removed) {
  const std::size_t count = countBetween(begin, end);
  if (count == 0) {
    return;
  }
  for (std::size_t number = begin.block; number < blocks_.size() && number <= end.block; ++number) {
    Block& block = blocks_[number];
    const auto first = at(block, number == begin.block ? begin.offset : 0);
    const auto last = number == end.block ? at(block, end.offset) : block.end();
    if (first == block.begin() && last == block.end()) {
      removed.push_back(std::move(block));
      block.clear();
    } else {
      removed.emplace_back(first, last);
      block.erase(first, last);
    }
  }
  size_ -= count;
  const auto firstBlock = at(blocks_, begin.block);
  const auto lastBlock = at(blocks_, std::min(end.block + 1, blocks_.size()));
  blocks_.erase(
      std::remove_if(firstBlock, lastBlock, [](const Block& block) { return block.empty(); }),
      lastBlock);
}

void Backlog::append(const std::vector<Point>& points) {
  for (std::size_t begin = 0; begin < points.size();) {
    if (blocks_.empty() || blocks_.back().size() == blockPoints) {
      blocks_.emplace_back();
    }
    Block& block = blocks_.back();
    const std::size_t end = std::min(begin + blockPoints - block.size(), points.size());
    block.insert(block.end(), at(points, begin), at(points, end));
    begin = end;
  }
  size_ += points.size();
}

void Backlog::insert(const Point& point) {
  Cursor cursor = findFirst(point.timeMs);
  if (cursor.block == blocks_.size()) {
    cursor = {cursor.block - 1, blocks_.back().size()};
  }
  if (blocks_[cursor.block].size() == blockPoints) {
    const auto middle = at(blocks_[cursor.block], blockPoints / 2);
    Block behind(middle, blocks_[cursor.block].end());
    blocks_[cursor.block].erase(middle, blocks_[cursor.block].end());
    blocks_.insert(at(blocks_, cursor.block + 1), std::move(behind));
    if (cursor.offset > blockPoints / 2) {
      cursor = {cursor.block + 1, cursor.offset - blockPoints / 2};
    }
  }
  Block& block = blocks_[cursor.block];
  block.insert(at(block, cursor.offset), point);
  ++size_;
}

}  // namespace host
