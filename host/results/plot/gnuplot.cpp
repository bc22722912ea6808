#include "host/results/plot/gnuplot.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "host/base/stopsignal.h"

namespace host {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// Gone when it is closed.
File temporaryFile() {
  File file(std::tmpfile(), std::fclose);
  if (file == nullptr) {
    throw std::system_error(errno, std::generic_category(), "a temporary file");
  }
  return file;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

/// That of this process, but in a locale that knows UTF-8: gnuplot warns of its own degree sign
/// otherwise.
std::vector<std::string> environment() {
  std::vector<std::string> variables = {"LC_ALL=C.UTF-8"};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::strncmp(*variable, "LC_ALL=", 7) != 0) {
      variables.emplace_back(*variable);
    }
  }
  return variables;
}

/// The exit status; minus the signal that ended it; 127 when it is not there.
int runGnuplot(std::vector<std::string> arguments, const File& input, const File& output) {
  constexpr int notFound = 127;
  std::vector<std::string> variables = environment();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fileno(input.get()), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(output.get()), STDOUT_FILENO);
  pid_t process = 0;
  const int failure = posix_spawnp(&process, arguments[0].c_str(), &actions, nullptr,
                                   pointersTo(arguments).data(), pointersTo(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) {
    return notFound;
  }
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    if (StopSignal::received() != 0) {
      kill(process, SIGTERM);
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string contentsOf(const File& file) {
  std::rewind(file.get());
  std::string contents;
  char block[1 << 16];
  while (const std::size_t got = std::fread(block, 1, sizeof block, file.get())) {
    contents.append(block, got);
  }
  return contents;
}

}  // namespace

bool hasGnuplot() {
  const File nothing = temporaryFile();
  return runGnuplot({"gnuplot", "--version"}, nothing, temporaryFile()) == 0;
}

std::string drawnByGnuplot(const std::string& script) {
  const File input = temporaryFile();
  const bool written = std::fwrite(script.data(), 1, script.size(), input.get()) == script.size();
  if (!written || std::fflush(input.get()) != 0) {
    throw std::system_error(errno, std::generic_category(), "the script for gnuplot");
  }
  std::rewind(input.get());
  const File output = temporaryFile();
  // Without the user's own settings.
  const int status = runGnuplot({"gnuplot", "-d", "-"}, input, output);
  std::string drawn = contentsOf(output);
  if (status != 0) {
    throw std::runtime_error(fmt::format("gnuplot ended with status {}", status));
  }
  if (drawn.find("</svg>") == std::string::npos) {
    throw std::runtime_error(
        "gnuplot could not write all of it: is there room for temporary files?");
  }
  return drawn;
}

}  // namespace host
