#include "host/cli/ringwatch.h"

#include <fmt/format.h>

#include <memory>
#include <utility>

#include "host/base/counted.h"
#include "host/base/usersignal.h"
#include "host/base/visible.h"
#include "host/cli/output.h"

namespace host {
namespace {

std::string faultText(const RingFiles::File& file) {
  return fmt::format("the ring was not written ({}): {}", file.reason, file.fault);
}

}  // namespace

void RingWatch::look() {
  if (UserSignal::take()) {
    const std::string refusal = ring_ == nullptr ? "there is none; start with --record-ring SECONDS"
                                                 : ring_->ask("signal").refusal;
    if (!refusal.empty()) {
      complain("torvex: warning: SIGUSR1 asks for the ring: " + refusal + "\n");
    }
  }
  if (ring_ == nullptr) {
    return;
  }
  for (const RingFiles::File& file : ring_->files().from(told_)) {
    if (file.state == RingFiles::State::waiting) {
      return;
    }
    ++told_;
    tell(file);
  }
}

void RingWatch::tell(const RingFiles::File& file) {
  const bool isWritten = file.state == RingFiles::State::written;
  Event event{isWritten ? EventKind::recorded : EventKind::unrecorded};
  event.count = file.bytes;
  event.text = std::make_shared<const std::string>(isWritten ? file.name : file.fault);
  torvex_.engine().desk().note(std::move(event));
  if (!saysFiles_) {
    return;
  }
  if (isWritten) {
    const RingFiles& files = ring_->files();
    say(fmt::format("recorded {} ({})\n", visible(files.pathOf(file)), file.reason));
    if (const std::string limit = files.limit(); !limit.empty() && files.from(told_).empty()) {
      complain("torvex: warning: the ring is no longer written: " + limit + "\n");
    }
  } else {
    complain("torvex: warning: " + visible(faultText(file)) + "\n");
  }
}

std::vector<Finding> ringFaults(const RingFiles& files) {
  std::vector<Finding> faults;
  for (const RingFiles::File& file : files.from(0)) {
    if (file.state == RingFiles::State::failed) {
      faults.emplace_back().text = faultText(file);
    }
  }
  return faults;
}

std::vector<Finding> ringLeftOut(const RingFiles& files) {
  std::vector<Finding> findings;
  if (const std::uint64_t leftOut = files.leftOut(); leftOut > 0) {
    findings.emplace_back().text = fmt::format(
        "{} to write the ring refused: files are written at least {} s apart, and at most "
        "--record-files of them",
        counted(leftOut, "request"), RingFiles::leastBetweenMs / 1000);
  }
  return findings;
}

std::vector<std::string> ringPaths(const RingFiles& files) {
  std::vector<std::string> paths;
  for (const RingFiles::File& file : files.from(0)) {
    if (file.state == RingFiles::State::written) {
      paths.push_back(files.pathOf(file));
    }
  }
  return paths;
}

}  // namespace host
