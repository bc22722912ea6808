#include "host/base/visible.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/locale/utf.hpp>
#include <iterator>

namespace host {
namespace {

using Utf8 = boost::locale::utf::utf_traits<char>;
using boost::locale::utf::code_point;

struct Range {
  code_point first;
  code_point last;
};

/// In ascending order: Unicode's controls and format characters, the separators of lines and
/// paragraphs, what is ignorable by default, and what is no character.
constexpr Range hidden[] = {
    {0x0000, 0x001F},   {0x007F, 0x009F},   {0x00AD, 0x00AD},   {0x034F, 0x034F},
    {0x0600, 0x0605},   {0x061C, 0x061C},   {0x06DD, 0x06DD},   {0x070F, 0x070F},
    {0x0890, 0x0891},   {0x08E2, 0x08E2},   {0x115F, 0x1160},   {0x17B4, 0x17B5},
    {0x180B, 0x180F},   {0x200B, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},
    {0x3164, 0x3164},   {0xFDD0, 0xFDEF},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},
    {0xFFA0, 0xFFA0},   {0xFFF0, 0xFFFB},   {0xFFFE, 0xFFFF},   {0x110BD, 0x110BD},
    {0x110CD, 0x110CD}, {0x13430, 0x1343F}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A},
    {0xE0000, 0xE0FFF}};

bool isHidden(code_point point) {
  const Range* const range =
      std::lower_bound(std::begin(hidden), std::end(hidden), point,
                       [](const Range& known, code_point value) { return known.last < value; });
  return (range != std::end(hidden) && range->first <= point) || (point & 0xFFFE) == 0xFFFE;
}

void appendEscape(std::string& text, code_point point) {
  constexpr code_point firstAstral = 0x10000;
  if (point < firstAstral) {
    text += fmt::format("\\u{:04x}", point);
  } else {
    const code_point rest = point - firstAstral;
    text += fmt::format("\\u{:04x}\\u{:04x}", 0xD800 + (rest >> 10U), 0xDC00 + (rest & 0x3FFU));
  }
}

std::string escaped(std::string_view text, bool keepsLineFeeds) {
  std::string result;
  result.reserve(text.size());
  for (const char* at = text.data(); at != text.data() + text.size();) {
    const char* const begin = at;
    const code_point point = Utf8::decode(at, text.data() + text.size());
    if (!boost::locale::utf::is_valid_codepoint(point)) {
      at = begin + 1;
      result += fmt::format("\\x{:02x}", static_cast<unsigned char>(*begin));
    } else if (isHidden(point) && !(keepsLineFeeds && point == '\n')) {
      appendEscape(result, point);
    } else {
      result.append(begin, at);
    }
  }
  return result;
}

}  // namespace

std::string visible(std::string_view text) {
  return escaped(text, false);
}

std::string visibleLines(std::string_view text) {
  return escaped(text, true);
}

}  // namespace host
