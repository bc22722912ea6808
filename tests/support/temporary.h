#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// A folder of one test's own, and a pool name that no other process uses.
class Temporary {
 public:
  Temporary() {
    std::string pattern = (std::filesystem::temp_directory_path() / "torvex-test-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
  }
  ~Temporary() { std::filesystem::remove_all(folder_); }

  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  [[nodiscard]] std::string path(const std::string& name) const {
    return (folder_ / name).string();
  }
  [[nodiscard]] std::string pool() const { return folder_.filename().string(); }
  [[nodiscard]] std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name)) << text;
    return path(name);
  }
  [[nodiscard]] bool holds(const std::string& name) const {
    return std::filesystem::exists(folder_ / name);
  }
  [[nodiscard]] bool poolExists() const {
    return std::filesystem::exists("/dev/shm/torvex." + std::to_string(geteuid()) + "." + pool());
  }

 private:
  std::filesystem::path folder_;
};

inline std::string contentsOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}
