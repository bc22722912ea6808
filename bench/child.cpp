#include "bench/child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace bench {

Child::Child(std::vector<std::string> words, const std::string& output) {
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  constexpr mode_t ownerOnly = 0600;
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, ownerOnly);
  posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
  const int failed =
      posix_spawnp(&process_, arguments[0], &files, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (failed != 0) {
    throw std::runtime_error(words[0] + " cannot be started");
  }
}

Child::~Child() {
  if (process_ != 0) {
    kill(process_, SIGTERM);
    wait();
  }
}

void Child::wait() {
  waitpid(process_, nullptr, 0);
  process_ = 0;
}

TemporaryFolder::TemporaryFolder()
    : path_((std::filesystem::temp_directory_path() / "torvex-bench-XXXXXX").string()) {
  if (mkdtemp(path_.data()) == nullptr) {
    throw std::runtime_error(path_ + " cannot be made");
  }
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::name() const {
  return std::filesystem::path(path_).filename().string();
}

}  // namespace bench
