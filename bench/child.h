#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace bench {

/// Another process, from construction to destruction.
class Child {
 public:
  /// Starts the program that the first word names, by the search path where it is no path. What it
  /// says goes to `output`, a file that is made. Throws `std::runtime_error` when it cannot start.
  explicit Child(std::vector<std::string> words, const std::string& output = "/dev/null");
  /// Has it end (SIGTERM), and waits for that.
  ~Child();

  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Until it ends by itself.
  void wait();

 private:
  pid_t process_ = 0;
};

/// A folder that goes with the object.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();

  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  /// With another process of the same name none has it: a name for a device pool, too.
  [[nodiscard]] std::string name() const;
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace bench
