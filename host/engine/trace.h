#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "host/base/outputfile.h"
#include "host/engine/rowqueue.h"

namespace host {

/// Writes a row per cycle to a CSV file: machine time and the time since the start of the
/// motion in milliseconds, then a value for each column. Rows leave the cycle through a queue to a
/// thread of the trace's own.
class Trace {
 public:
  /// Whether a column is written, by its name.
  using Choice = std::function<bool(const std::string& column)>;

  /// Rows have all columns, of which those that are chosen are written. Throws `UserError`
  /// when the file cannot be written.
  Trace(
      const std::string& path, const std::vector<std::string>& columns,
      const Choice& isChosen = [](const std::string&) { return true; });
  /// Without `finish`, nothing of the trace remains.
  ~Trace();

  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  /// Where the cycle puts its rows.
  [[nodiscard]] RowQueue& rows() { return rows_; }

  /// Writes what is queued and puts the whole file at its path. After the last push. Throws
  /// what went wrong in writing it.
  void finish();

 private:
  void writeRows();
  void stop();

  OutputFile file_;
  /// Their positions in a row.
  std::vector<std::size_t> chosen_;
  RowQueue rows_;
  std::atomic<bool> closing_{false};
  std::exception_ptr failure_;
  std::thread writer_;
};

}  // namespace host
