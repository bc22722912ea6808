#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/base/usererror.h"
#include "simulation/framework/descriptor.h"

namespace host {

/// The whole file. Throws `UserError` when it cannot be read or is longer
/// than `maxBytes`. Leaves out a byte order mark. Waits for the writer of a pipe until a
/// `StopSignal` comes, and says so on standard error after two seconds.
std::string readFile(const std::string& path, std::size_t maxBytes);
/// The same of a file that was opened without waiting; where it is not open, `errno` says why.
std::string readFile(const std::string& path, const simulation::Descriptor& file,
                     std::size_t maxBytes);

/// Without what some editors put before UTF-8.
std::string withoutByteOrderMark(std::string text);

/// The source locations of a text's bytes, each found in a short time however long the text is.
class LineIndex {
 public:
  /// The text must outlive the index.
  explicit LineIndex(const std::string& text);

  /// Of the byte at `offset`; for any further one, of the text's end.
  [[nodiscard]] SourceLocation at(std::size_t offset) const;

 private:
  struct Mark {
    std::size_t line = 1;
    /// Where this line begins.
    std::size_t begin = 0;
  };

  void advance(Mark& mark, std::size_t from, std::size_t to) const;

  const std::string& text_;
  /// At the begin of each block of the text.
  std::vector<Mark> marks_;
};

/// A finite decimal number, as it stands in the file, nothing around it.
/// False when it is anything else.
bool parseNumber(const std::string& text, double& number);

}  // namespace host
