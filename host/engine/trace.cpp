#include "host/engine/trace.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <iterator>
#include <string_view>

#include "host/base/visible.h"
#include "host/engine/samplehistory.h"

namespace host {
namespace {

using namespace std::chrono_literals;

/// Commas and quotes in a name would break the table, and a spreadsheet would take some first
/// characters for a formula.
std::string csvField(const std::string& name) {
  const bool isFormula =
      !name.empty() && std::string_view("=+-@").find(name[0]) != std::string::npos;
  std::string text = (isFormula ? "'" : "") + visible(name);
  if (text.find_first_of(",\"") == std::string::npos) {
    return text;
  }
  std::string quoted = "\"";
  for (const char character : text) {
    quoted.append(character == '"' ? 2 : 1, character);
  }
  return quoted + "\"";
}

/// The shortest text that reads back exactly: most values are single floats.
void appendNumber(fmt::memory_buffer& text, double value) {
  const auto single = static_cast<float>(value);
  if (double{single} == value || std::isnan(value)) {
    fmt::format_to(std::back_inserter(text), ",{}", single);
  } else {
    fmt::format_to(std::back_inserter(text), ",{}", value);
  }
}

void appendRow(fmt::memory_buffer& text, const std::vector<double>& row,
               const std::vector<std::size_t>& chosen) {
  fmt::format_to(std::back_inserter(text), "{},{}", static_cast<std::int64_t>(row[0]),
                 static_cast<std::int64_t>(row[1]));
  for (const std::size_t position : chosen) {
    appendNumber(text, row[position]);
  }
  text.push_back('\n');
}

}  // namespace

Trace::Trace(const std::string& path, const std::vector<std::string>& columns,
             const Choice& isChosen)
    : file_(path), rows_(rowTimes + columns.size()) {
  std::string header = "time_ms,motion_ms";
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (isChosen(columns[i])) {
      header += "," + csvField(columns[i]);
      chosen_.push_back(rowTimes + i);
    }
  }
  header += "\n";
  file_.write(header.data(), header.size());
  writer_ = std::thread([this] {
    try {
      writeRows();
    } catch (...) {
      failure_ = std::current_exception();
      rows_.close();
    }
  });
}

Trace::~Trace() {
  stop();
}

void Trace::writeRows() {
  constexpr std::size_t blockBytes = 1 << 16;
  std::vector<double> row;
  fmt::memory_buffer text;
  for (bool open = true; open;) {
    open = !closing_;
    while (rows_.pop(row)) {
      appendRow(text, row, chosen_);
      if (text.size() >= blockBytes) {
        file_.write(text.data(), text.size());
        text.clear();
      }
    }
    if (open) {
      std::this_thread::sleep_for(1ms);
    }
  }
  file_.write(text.data(), text.size());
}

void Trace::stop() {
  closing_ = true;
  if (writer_.joinable()) {
    writer_.join();
  }
}

void Trace::finish() {
  stop();
  if (failure_ != nullptr) {
    std::rethrow_exception(failure_);
  }
  file_.commit();
}

}  // namespace host
