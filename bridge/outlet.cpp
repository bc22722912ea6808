#include "bridge/outlet.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <thread>
#include <utility>

namespace bridge {
namespace {

constexpr std::size_t mostWaiting = std::size_t{1} << 20;
constexpr int mostASecond = 20;
constexpr std::chrono::seconds aSecond(1);

const char* nameOf(About about) {
  switch (about) {
    case About::refusals:
      return "trajectories that were not taken";
    case About::events:
      return "events that no reader took";
    case About::dds:
      return "warnings of DDS";
    case About::bridge:
      break;
  }
  return "lines";
}

void writeAll(int descriptor, const std::string& text) {
  constexpr int aWhileMs = 100;
  for (std::string_view rest = text; !rest.empty();) {
    const ssize_t count = write(descriptor, rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {  // somebody who has it, too, made it so
      pollfd output{descriptor, POLLOUT, 0};
      poll(&output, 1, aWhileMs);
    } else if (errno != EINTR) {
      return;
    }
  }
}

}  // namespace

Outlet::Outlet(int descriptor) : descriptor_(descriptor) {}

void Outlet::add(const std::string& line, About about) {
  const std::lock_guard lock(mutex_);
  const auto now = Clock::now();
  tellLeftOut(now, false);
  Second& second = seconds_.at(static_cast<std::size_t>(about));
  if (now - second.begin >= aSecond) {
    second = {now, 0, 0};
  }
  if (about != About::bridge && second.said == mostASecond) {
    ++second.more;
  } else {
    ++second.said;
    append(line);
  }
  if (!std::exchange(isStarted_, true)) {
    std::thread([this] { run(); }).detach();
  }
}

void Outlet::append(const std::string& line) {
  if (text_.size() + line.size() >= mostWaiting) {
    ++dropped_;
    return;
  }
  text_ += line + "\n";
  changed_.notify_all();
}

void Outlet::tellLeftOut(Clock::time_point now, bool isEnd) {
  for (std::size_t i = 0; i < seconds_.size(); ++i) {
    Second& second = seconds_.at(i);
    if (second.more > 0 && (isEnd || now - second.begin >= aSecond)) {
      append(fmt::format("torvex: warning: and {} more {}", std::exchange(second.more, 0),
                         nameOf(static_cast<About>(i))));
    }
  }
}

void Outlet::run() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait_for(lock, aSecond, [this] { return !text_.empty() || isFinishing_; });
    tellLeftOut(Clock::now(), isFinishing_);
    if (dropped_ > 0) {
      text_ += fmt::format("torvex: warning: {} lines were dropped here: nobody read them\n",
                           std::exchange(dropped_, 0));
    }
    if (text_.empty() && isFinishing_) {
      break;
    }
    const std::string text = std::exchange(text_, {});
    lock.unlock();
    writeAll(descriptor_, text);
    lock.lock();
  }
  isFinished_ = true;
  changed_.notify_all();
}

bool Outlet::finish() {
  std::unique_lock lock(mutex_);
  isFinishing_ = true;
  changed_.notify_all();
  return changed_.wait_for(lock, aSecond, [this] { return isFinished_ || !isStarted_; });
}

}  // namespace bridge
