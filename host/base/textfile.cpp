#include "host/base/textfile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

namespace host {
namespace {

/// It takes no column.
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

constexpr std::size_t blockBytes = 4096;

UserError unreadable(const std::string& path, int error) {
  return {path, {}, fmt::format("cannot be read: {}", std::strerror(error))};
}

}  // namespace

std::string readFile(const std::string& path, std::size_t maxBytes) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"),
                                                             std::fclose);
  if (file == nullptr) {
    throw unreadable(path, errno);
  }
  std::string text;
  char block[1 << 16];
  while (const std::size_t got = std::fread(block, 1, sizeof block, file.get())) {
    text.append(block, got);
    if (text.size() > maxBytes) {
      throw UserError(path, {}, fmt::format("is longer than {} bytes", maxBytes));
    }
  }
  if (std::ferror(file.get()) != 0) {
    throw unreadable(path, errno);
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
