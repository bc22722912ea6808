#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

/// A started tool; its two outputs come through one pipe.
class Tool {
 public:
  explicit Tool(std::vector<std::string> arguments) {
    int output[2];
    EXPECT_EQ(pipe2(output, O_CLOEXEC), 0);
    process_ = fork();
    if (process_ == 0) {
      dup2(output[1], STDOUT_FILENO);
      dup2(output[1], STDERR_FILENO);
      std::vector<char*> argv = {const_cast<char*>(TORVEX_TOOL)};
      for (std::string& argument : arguments) {
        argv.push_back(argument.data());
      }
      argv.push_back(nullptr);
      execv(TORVEX_TOOL, argv.data());
      _exit(127);
    }
    close(output[1]);
    output_ = output[0];
  }
  ~Tool() { close(output_); }

  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  /// Reads on until the text has come; the run is under way behind "approach".
  void readUntil(const std::string& text) {
    char byte = 0;
    while (said_.find(text) == std::string::npos && read(output_, &byte, 1) == 1) {
      said_ += byte;
    }
  }
  /// The next line, with its end; empty behind the last one.
  std::string line() {
    const std::size_t begin = said_.size();
    for (char byte = 0; byte != '\n' && read(output_, &byte, 1) == 1;) {
      said_ += byte;
    }
    return said_.substr(begin);
  }
  void signal(int number) const { kill(process_, number); }
  /// The exit status, or minus the signal that ended it.
  int wait() {
    char block[4096];
    for (ssize_t got = 0; (got = read(output_, block, sizeof block)) > 0;) {
      said_.append(block, static_cast<std::size_t>(got));
    }
    int status = 0;
    waitpid(process_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  [[nodiscard]] const std::string& said() const { return said_; }

 private:
  pid_t process_ = -1;
  int output_ = -1;
  std::string said_;
};
