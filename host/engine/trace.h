#pragma once

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <cstddef>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "host/base/outputfile.h"

namespace host {

/// Writes a row per cycle to a CSV file: machine time and the time since the start of the
/// motion in milliseconds, then a value for each column. Rows leave the cycle through a bounded
/// queue to a thread of the trace's own.
class Trace {
 public:
  /// Rows have all columns, of which those that are chosen are written. Throws `UserError`
  /// when the file cannot be written.
  Trace(const std::string& path, const std::vector<std::string>& columns,
        const std::vector<bool>& isChosen);
  /// Without `finish`, nothing of the trace remains.
  ~Trace();

  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  /// One row, from the cycle thread. Wait-free: when the queue is full the row
  /// is dropped, and the result is false.
  bool push(const std::vector<double>& row) noexcept;
  /// The same, but waits for room; not for a real control cycle.
  void pushWaiting(const std::vector<double>& row);

  /// Writes what is queued and puts the whole file at its path. After the last push. Throws
  /// what went wrong in writing it.
  void finish();

 private:
  void writeRows();
  void stop();

  OutputFile file_;
  const std::size_t rowLength_;
  /// Their positions in a row.
  std::vector<std::size_t> chosen_;
  boost::lockfree::spsc_queue<double> queue_;
  std::atomic<bool> closing_{false};
  std::atomic<bool> broken_{false};
  std::exception_ptr failure_;
  std::thread writer_;
};

}  // namespace host
