#pragma once

#include <string_view>

namespace page {

/// A file for a browser, which the program holds.
struct File {
  /// Of its address: "/style.css".
  std::string_view path;
  std::string_view contentType;
  std::string_view text;
};

/// The file at this path; "/" is the page itself. Null when there is none. Any thread.
const File* fileAt(std::string_view path);

}  // namespace page
