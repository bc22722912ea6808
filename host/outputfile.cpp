#include "host/outputfile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "host/input/source.h"

namespace host {
namespace {

InputError unwritable(const std::string& path, const char* why) {
  return {path, {}, fmt::format("cannot be written: {}", why)};
}

/// Replacing a file asks only for its folder's permission; ask for its own too.
void checkPlace(const std::string& path) {
  struct stat present {};
  if (stat(path.c_str(), &present) != 0) {
    return;
  }
  if (!S_ISREG(present.st_mode)) {
    throw unwritable(path, "it is not a regular file");
  }
  if (access(path.c_str(), W_OK) != 0) {
    throw unwritable(path, std::strerror(errno));
  }
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

OutputFile::OutputFile(std::string path) : path_(std::move(path)), partPath_(path_ + ".part") {
  checkPlace(path_);
  constexpr mode_t everybodyReads = 0644;
  descriptor_ = open(partPath_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, everybodyReads);
  if (descriptor_ < 0) {
    throw unwritable(path_, std::strerror(errno));
  }
  if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
    close(descriptor_);
    throw unwritable(path_, "another process is writing it");
  }
  if (ftruncate(descriptor_, 0) != 0) {
    const int error = errno;
    close(descriptor_);
    throw unwritable(path_, std::strerror(error));
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

}  // namespace host
