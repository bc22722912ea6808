#include "host/base/textfile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/base/stopsignal.h"
#include "host/base/visible.h"

namespace host {
namespace {

/// It takes no column.
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

constexpr std::size_t blockBytes = 4096;

UserError unreadable(const std::string& path, int error) {
  return {path, {}, fmt::format("cannot be read: {}", std::strerror(error))};
}

/// Until something can be read, or nobody is left to write. Says so when that takes long: a pipe
/// that was forgotten would keep its reader waiting without end.
void awaitInput(const std::string& path, const simulation::Descriptor& file, bool& isSaid) {
  constexpr int turnMs = 100;
  constexpr int turnsInSilence = 20;
  pollfd input{file.number(), POLLIN, 0};
  for (int turn = 0; poll(&input, 1, turnMs) <= 0; ++turn) {
    if (StopSignal::received() != 0) {
      throw unreadable(path, EINTR);
    }
    if (turn == turnsInSilence && !isSaid) {
      isSaid = true;
      const std::string words = "torvex: waits for what is to be written to " + path;
      std::fputs(visible(words).append("\n").c_str(), stderr);
    }
  }
}

}  // namespace

std::string readFile(const std::string& path, std::size_t maxBytes) {
  // A pipe is opened at once, also where nobody writes to it.
  return readFile(
      path,
      simulation::Descriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)),
      maxBytes);
}

std::string readFile(const std::string& path, const simulation::Descriptor& file,
                     std::size_t maxBytes) {
  if (!file.isOpen()) {
    throw unreadable(path, errno);
  }
  std::string text;
  std::array<char, std::size_t{1} << 16> block{};
  bool isWaitSaid = false;
  for (ssize_t got = -1; got != 0;) {
    awaitInput(path, file, isWaitSaid);
    got = read(file.number(), block.data(), block.size());
    if (got < 0 && errno != EINTR && errno != EAGAIN) {
      throw unreadable(path, errno);
    }
    text.append(block.data(), got < 0 ? 0 : static_cast<std::size_t>(got));
    if (text.size() > maxBytes) {
      throw UserError(path, {}, fmt::format("is longer than {} bytes", maxBytes));
    }
  }
  return withoutByteOrderMark(std::move(text));
}

std::string withoutByteOrderMark(std::string text) {
  if (text.compare(0, byteOrderMark.size(), byteOrderMark) == 0) {
    text.erase(0, byteOrderMark.size());
  }
  return text;
}

LineIndex::LineIndex(const std::string& text) : text_(text) {
  Mark mark;
  for (std::size_t begin = 0; begin <= text.size(); begin += blockBytes) {
    marks_.push_back(mark);
    advance(mark, begin, std::min(begin + blockBytes, text.size()));
  }
}

void LineIndex::advance(Mark& mark, std::size_t from, std::size_t to) const {
  for (std::size_t i = from; i < to; ++i) {
    if (text_[i] == '\n') {
      ++mark.line;
      mark.begin = i + 1;
    }
  }
}

SourceLocation LineIndex::at(std::size_t offset) const {
  offset = std::min(offset, text_.size());
  Mark mark = marks_[offset / blockBytes];
  advance(mark, offset / blockBytes * blockBytes, offset);
  return {mark.line, offset - mark.begin + 1};
}

bool parseNumber(const std::string& text, double& number) {
  const char* begin = text.data();
  const char* const end = begin + text.size();
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') {
    ++begin;
  }
  const auto [stop, failure] = std::from_chars(begin, end, number);
  return failure == std::errc() && stop == end && std::isfinite(number);
}

}  // namespace host
