#include "host/plot/gnuplot.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace host {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {
    if (number < 0) {
      throw std::system_error(errno, std::generic_category(), "gnuplot");
    }
  }
  ~Descriptor() { close(number_); }

  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int number() const { return number_; }

 private:
  const int number_;
};

/// The exit status; minus the signal that ended it; 127 when it is not there.
int runWith(std::vector<std::string> arguments, int input, int output) {
  constexpr int notFound = 127;
  std::vector<char*> argv;
  for (std::string& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  pid_t process = 0;
  const int failure = posix_spawnp(&process, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) {
    return notFound;
  }
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void writeAll(int descriptor, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t written = write(descriptor, text.data() + done, text.size() - done);
    if (written < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "the script for gnuplot");
    }
    done += written < 0 ? 0 : static_cast<std::size_t>(written);
  }
}

}  // namespace

bool hasGnuplot() {
  const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  return runWith({"gnuplot", "--version"}, nothing.number(), nothing.number()) == 0;
}

void runGnuplot(const std::string& script, int output) {
  const Descriptor input(memfd_create("torvex-plot", MFD_CLOEXEC));
  writeAll(input.number(), script);
  lseek(input.number(), 0, SEEK_SET);
  // Without the user's own settings.
  const int status = runWith({"gnuplot", "-d", "-"}, input.number(), output);
  if (status != 0) {
    throw std::runtime_error(fmt::format("gnuplot ended with status {}", status));
  }
}

}  // namespace host
