#include "host/server/chunkedlines.h"

#include <fmt/format.h>

#include "host/server/bounds.h"

namespace host {

std::string linesHead() {
  return "HTTP/1.1 200 OK\r\nContent-Type: application/x-ndjson\r\nCache-Control: no-store\r\n"
         "X-Content-Type-Options: nosniff\r\nTransfer-Encoding: chunked\r\n\r\n";
}

std::string nextLines(Feed& feed) {
  std::string lines;
  for (std::string line = feed.next(); !line.empty(); line = feed.next()) {
    lines += line + "\n";
    if (lines.size() >= bounds::linesBytes) {
      break;
    }
  }
  return lines.empty() ? "" : fmt::format("{:x}\r\n{}\r\n", lines.size(), lines);
}

std::string linesEnd() {
  return "0\r\n\r\n";
}

}  // namespace host
