#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace host {

/// A table for the eye: the first column to the left, numbers to the right, each column as
/// wide as what it holds.
class Table {
 public:
  explicit Table(const std::vector<std::string>& header) : rows_{header} {}

  void add(const std::vector<std::string>& row) { rows_.push_back(row); }
  /// Behind the others; `cell` is asked for each row below the header.
  void addColumn(const std::string& header, const std::function<std::string(std::size_t)>& cell);

  /// How many columns of a terminal it takes.
  [[nodiscard]] std::size_t columns() const;
  [[nodiscard]] std::string text() const;

 private:
  [[nodiscard]] std::vector<std::size_t> widths() const;

  std::vector<std::vector<std::string>> rows_;
};

}  // namespace host
