#include "simulation/framework/outputfile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "simulation/machine.h"

namespace simulation {
namespace {

Error unwritable(const std::string& why) {
  return Error{"cannot be written: " + why};
}

/// Replacing a file asks only for its folder's permission; ask for its own too.
/// The result is what the new file may permit.
mode_t checkPlace(const std::string& path) {
  struct stat present {};
  if (stat(path.c_str(), &present) != 0) {
    constexpr mode_t everybodyReads = 0644;
    return everybodyReads;
  }
  if (!S_ISREG(present.st_mode)) {
    throw unwritable("it is not a regular file");
  }
  if (access(path.c_str(), W_OK) != 0) {
    throw unwritable(std::strerror(errno));
  }
  constexpr mode_t permissions = 07777;
  return present.st_mode & permissions;
}

/// The file that a symbolic link leads to, there or not.
std::string resolved(const std::string& path) {
  constexpr int longestChain = 40;
  std::filesystem::path place = path;
  std::error_code failure;
  for (int link = 0; link < longestChain && std::filesystem::is_symlink(place, failure); ++link) {
    place = place.parent_path() / std::filesystem::read_symlink(place, failure);
  }
  return place.string();
}

/// False when the file has meanwhile taken its place under another name, or has a
/// second one.
bool isStillNamed(int descriptor, const std::string& path) {
  struct stat opened {};
  struct stat named {};
  return fstat(descriptor, &opened) == 0 && lstat(path.c_str(), &named) == 0 &&
         S_ISREG(opened.st_mode) && opened.st_nlink == 1 && opened.st_ino == named.st_ino &&
         opened.st_dev == named.st_dev;
}

void syncFolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor >= 0) {
    fsync(descriptor);
    close(descriptor);
  }
}

}  // namespace

OutputFile::OutputFile(const std::string& path)
    : path_(resolved(path)), partPath_(path_ + ".torvex-part") {
  const mode_t mode = checkPlace(path_);
  descriptor_ =
      open(partPath_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, mode);
  if (descriptor_ < 0) {
    throw unwritable(std::strerror(errno));
  }
  const char* obstacle = nullptr;
  if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0 || !isStillNamed(descriptor_, partPath_)) {
    obstacle = "another process is writing it";
  } else if (ftruncate(descriptor_, 0) != 0) {
    obstacle = std::strerror(errno);
  }
  if (obstacle != nullptr) {
    close(descriptor_);
    throw unwritable(obstacle);
  }
}

OutputFile::~OutputFile() {
  if (descriptor_ >= 0) {
    unlink(partPath_.c_str());
    close(descriptor_);
  }
}

void OutputFile::fail() const {
  throw std::system_error(errno, std::generic_category(), path_);
}

void OutputFile::write(const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = ::write(descriptor_, bytes, count);
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      fail();
    }
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
}

void OutputFile::commit() {
  if (fsync(descriptor_) != 0 || rename(partPath_.c_str(), path_.c_str()) != 0) {
    fail();
  }
  close(descriptor_);
  descriptor_ = -1;
  syncFolderOf(path_);
}

}  // namespace simulation
