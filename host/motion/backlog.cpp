#include "host/motion/backlog.h"

#include <algorithm>
#include <iterator>
#include <numeric>
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

Backlog::Cursor Backlog::behind(const Cursor& cursor) const {
  return cursor.offset + 1 < blocks_[cursor.block].size() ? Cursor{cursor.block, cursor.offset + 1}
                                                          : Cursor{cursor.block + 1, 0};
}

const Point& Backlog::operator[](std::size_t position) const {
  const Cursor cursor = cursorAt(position);
  return blocks_[cursor.block][cursor.offset];
}

std::uint64_t Backlog::countInRounds() const {
  return std::accumulate(
      rounds_.begin(), rounds_.end(), std::uint64_t{0},
      [](std::uint64_t sum, const Waiting& waiting) { return sum + waiting.end - waiting.next; });
}

Point Backlog::last() const {
  Point last = blocks_.back().back();
  for (const Waiting& waiting : rounds_) {
    const Point point = waiting.points.at(waiting.end - 1);
    const bool isBehind =
        point.timeMs != last.timeMs ? point.timeMs > last.timeMs : waiting.arrival < last.arrival;
    last = isBehind ? point : last;
  }
  return last;
}

void Backlog::popFront() {
  eraseAt({0, 0});
  layIn();
}

void Backlog::erase(std::size_t position) {
  ++changes_;
  eraseAt(cursorAt(position));
  layIn();
}

void Backlog::eraseAt(const Cursor& cursor) {
  Block& block = blocks_[cursor.block];
  noteGone(block[cursor.offset].batch, 1);
  block.erase(at(block, cursor.offset));
  --size_;
  if (block.empty()) {
    blocks_.erase(at(blocks_, cursor.block));
  }
}

Backlog::Kept Backlog::kept(const Rounds& points, TimedCommand::commandType mode) {
  Kept kept;
  if (mode == TimedCommand::REPLACE) {
    kept.lastMs = kept.firstMs;
  } else if (mode == TimedCommand::CLEAR_AFTER && !points.empty()) {
    kept.lastMs = points.firstMs() - 1;
  } else if (mode == TimedCommand::CLEAR_BEFORE && !points.empty()) {
    kept.firstMs = points.lastMs() + 1;
  }
  return kept;
}

std::size_t Backlog::countDue(const Kept& kept, std::int64_t beginMs, std::int64_t endMs) const {
  const std::int64_t firstMs = std::max(beginMs, kept.firstMs);
  const std::int64_t lastMs = std::min(endMs, kept.lastMs);
  if (firstMs > lastMs) {
    return 0;
  }
  std::size_t count = countBetween(findFirst(firstMs), findFirst(lastMs + 1));
  for (const Waiting& waiting : rounds_) {
    const std::uint64_t first = std::max(waiting.next, waiting.points.findFirst(firstMs));
    const std::uint64_t end = std::min(waiting.end, waiting.points.findFirst(lastMs + 1));
    count += first < end ? end - first : 0;
  }
  return count;
}

std::size_t Backlog::countBetween(const Cursor& begin, const Cursor& end) const {
  std::size_t count = 0;
  for (std::size_t block = begin.block; block < end.block; ++block) {
    count += blocks_[block].size();
  }
  return count + end.offset - begin.offset;
}

Backlog::Removed Backlog::take(const Rounds& points, TimedCommand::commandType mode,
                               std::shared_ptr<const Curve> curve) {
  const TimedCommand::commandType whileStopping =
      points.empty() ? TimedCommand::MERGE : TimedCommand::REPLACE;
  const Kept keeps = kept(points, isStopping() ? whileStopping : mode);
  Removed removed;
  ++changes_;
  cut({0, 0}, findFirst(keeps.firstMs), removed.blocks);
  if (keeps.lastMs < std::numeric_limits<std::int64_t>::max()) {
    cut(findFirst(keeps.lastMs + 1), {blocks_.size(), 0}, removed.blocks);
  }
  cutRounds(keeps, removed.runs);
  ++arrivals_;
  if (curve != nullptr && !points.empty()) {
    curves_[points.first().front().batch] = {std::move(curve), points.size()};
  }
  if (points.isRepeated()) {
    rounds_.push_back({points, 0, points.size(), arrivals_, points.firstMs()});
  } else {
    takeOnce(points.first());
  }
  layIn();
  return removed;
}

Backlog::Removed Backlog::removeAll() {
  Removed removed;
  ++changes_;
  cut({0, 0}, {blocks_.size(), 0}, removed.blocks);
  cutRounds(kept(Rounds({}), TimedCommand::REPLACE), removed.runs);
  return removed;
}

void Backlog::takeOnce(const std::vector<Point>& points) {
  if (points.empty()) {
    return;
  }
  if (empty() || points.front().timeMs > blocks_.back().back().timeMs) {
    append(points);
    return;
  }
  // From the back: each comes in before those with the same time, so the first stays first.
  std::for_each(points.rbegin(), points.rend(), [this](Point point) {
    point.arrival = arrivals_;
    insert(point, findFirst(point.timeMs));
  });
}

Knot Backlog::knotOf(const Point& point) const {
  const auto found = curves_.find(point.batch);
  if (found == curves_.end()) {
    return {};
  }
  Knot knot = found->second.curve->at(point.index);
  if (point.index == 0 && knot.shape == Shape::smooth && !found->second.beginsInMotion) {
    knot.velocity = 0.0F;
  }
  return knot;
}

void Backlog::beginInMotion(bool inMotion) {
  const auto found = empty() ? curves_.end() : curves_.find(front().batch);
  if (found != curves_.end() && front().index == 0 && found->second.beginsInMotion != inMotion) {
    found->second.beginsInMotion = inMotion;
    ++changes_;
  }
}

void Backlog::dropPastCurves() {
  for (auto curve = curves_.begin(); curve != curves_.end();) {
    curve = curve->second.points == 0 ? curves_.erase(curve) : std::next(curve);
  }
}

void Backlog::noteGone(std::uint32_t batch, std::uint64_t points) {
  const auto found = curves_.empty() ? curves_.end() : curves_.find(batch);
  if (found != curves_.end()) {
    found->second.points -= points;
  }
}

bool Backlog::remove(const Point& point) {
  for (Cursor cursor = findFirst(point.timeMs); cursor.block < blocks_.size();) {
    const Block& block = blocks_[cursor.block];
    if (block[cursor.offset].timeMs != point.timeMs) {
      return false;
    }
    if (block[cursor.offset].isSamePointAs(point)) {
      eraseAt(cursor);
      layIn();
      return true;
    }
    cursor = behind(cursor);
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
    if (!curves_.empty()) {
      std::for_each(first, last, [this](const Point& point) { noteGone(point.batch, 1); });
    }
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
    const auto first = block.insert(block.end(), at(points, begin), at(points, end));
    std::for_each(first, block.end(), [this](Point& point) { point.arrival = arrivals_; });
    begin = end;
  }
  size_ += points.size();
}

/// In front of the cursor.
void Backlog::insert(const Point& point, Cursor cursor) {
  if (cursor.block == blocks_.size()) {
    if (blocks_.empty() || blocks_.back().size() == blockPoints) {
      blocks_.emplace_back();
    }
    cursor = {blocks_.size() - 1, blocks_.back().size()};
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

void Backlog::cutRounds(const Kept& kept, std::vector<Run>& removed) {
  const auto cutOff = [&](const Waiting& waiting, std::uint64_t first, std::uint64_t end) {
    if (first < end) {
      noteGone(waiting.points.first().front().batch, end - first);
      removed.push_back(
          {waiting.points.first().front().batch, static_cast<std::uint32_t>(first), end - first});
    }
  };
  for (Waiting& waiting : rounds_) {
    const Rounds& points = waiting.points;
    const std::uint64_t first =
        std::clamp(points.findFirst(kept.firstMs), waiting.next, waiting.end);
    cutOff(waiting, std::exchange(waiting.next, first), first);
    if (kept.lastMs < std::numeric_limits<std::int64_t>::max()) {
      const std::uint64_t end = std::clamp(points.findFirst(kept.lastMs + 1), first, waiting.end);
      cutOff(waiting, end, std::exchange(waiting.end, end));
    }
  }
  dropEnded();
}

/// Keeps to the invariant: lays points of rounds in until no further one can come among the
/// first `aheadPoints`.
void Backlog::layIn() {
  while (!rounds_.empty()) {
    Waiting& next = *std::min_element(
        rounds_.begin(), rounds_.end(),
        [](const Waiting& one, const Waiting& other) { return one.nextMs < other.nextMs; });
    if (size_ >= aheadPoints && (*this)[aheadPoints - 1].timeMs < next.nextMs) {
      return;
    }
    layInNext(next);
  }
}

/// Behind points with the same time that came later, and before those that came earlier.
void Backlog::layInNext(Waiting& waiting) {
  Point point = waiting.points.at(waiting.next);
  point.arrival = waiting.arrival;
  Cursor cursor = findFirst(point.timeMs);
  while (cursor.block < blocks_.size()) {
    const Block& block = blocks_[cursor.block];
    const Point& other = block[cursor.offset];
    if (other.timeMs != point.timeMs || other.arrival < point.arrival) {
      break;
    }
    cursor = behind(cursor);
  }
  insert(point, cursor);
  if (++waiting.next == waiting.end) {
    dropEnded();
  } else {
    waiting.nextMs = waiting.points.at(waiting.next).timeMs;
  }
}

void Backlog::dropEnded() {
  rounds_.erase(std::remove_if(rounds_.begin(), rounds_.end(),
                               [](const Waiting& waiting) { return waiting.next == waiting.end; }),
                rounds_.end());
  for (Waiting& waiting : rounds_) {
    waiting.nextMs = waiting.points.at(waiting.next).timeMs;
  }
}

std::uint64_t Backlog::skipRounds(std::int64_t untilMs, std::uint64_t unit) {
  Waiting& waiting = rounds_.front();
  const std::int64_t periodMs = waiting.points.periodMs();
  const std::uint64_t each = waiting.points.sizeOfRound();
  Cursor others;
  while (others.block < blocks_.size() &&
         blocks_[others.block][others.offset].arrival == waiting.arrival) {
    others = behind(others);
  }
  std::int64_t roomMs = untilMs - front().timeMs;
  if (others.block < blocks_.size()) {
    roomMs = std::min(roomMs, blocks_[others.block][others.offset].timeMs - 1 - waiting.nextMs);
  }
  if (roomMs < periodMs) {
    return 0;
  }
  std::uint64_t rounds =
      std::min(static_cast<std::uint64_t>(roomMs / periodMs), (waiting.end - waiting.next) / each);
  rounds -= rounds % unit;
  if (rounds == 0) {
    return 0;
  }
  for (Cursor cursor; cursor.block != others.block || cursor.offset != others.offset;
       cursor = behind(cursor)) {
    Point& point = blocks_[cursor.block][cursor.offset];
    point.timeMs += static_cast<std::int64_t>(rounds) * periodMs;
    point.index += static_cast<std::uint32_t>(rounds * each);
  }
  noteGone(waiting.points.first().front().batch, rounds * each);
  waiting.next += rounds * each;
  dropEnded();
  layIn();
  return rounds;
}

}  // namespace host
