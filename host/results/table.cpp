#include "host/results/table.h"

#include <algorithm>

#include "host/base/values.h"

namespace host {

void Table::addColumn(const std::string& header,
                      const std::function<std::string(std::size_t)>& cell) {
  rows_.front().push_back(header);
  for (std::size_t row = 1; row < rows_.size(); ++row) {
    rows_[row].push_back(cell(row - 1));
  }
}

std::vector<std::size_t> Table::widths() const {
  std::vector<std::size_t> widths(rows_.front().size(), 0);
  for (const auto& row : rows_) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], columnsOf(row[column]));
    }
  }
  return widths;
}

std::size_t Table::columns() const {
  std::size_t columns = 0;
  for (const std::size_t width : widths()) {
    columns += width + (columns > 0 ? 1 : 0);
  }
  return columns;
}

std::string Table::text() const {
  const std::vector<std::size_t> width = widths();
  std::string text;
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      const std::string padding(width[column] - columnsOf(row[column]), ' ');
      line += column == 0 ? row[column] + padding : " " + padding + row[column];
    }
    text += line + "\n";
  }
  return text;
}

}  // namespace host
