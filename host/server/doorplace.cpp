#include "host/server/doorplace.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "host/base/doorfolder.h"
#include "host/base/plainname.h"
#include "simulation/machine.h"

namespace host {
namespace {

constexpr char socketEnding[] = ".sock";
constexpr mode_t userAlone = 0600;
/// What a lock holds once its door has made a token; before that, nothing.
constexpr char tokenMark[] = "token\n";

bool isMine(const struct stat& status) {
  return status.st_uid == geteuid();
}

}  // namespace

std::string defaultDoorPath(const std::string& machineName) {
  if (!isPlainName(machineName) || machineName.front() == '.') {
    throw simulation::Error(
        fmt::format("'{}' cannot be the name of a socket; give --socket PATH", machineName));
  }
  const std::string folder = doorFolder();
  if (folder.empty()) {
    throw simulation::Error(
        "there is no folder for the socket: XDG_RUNTIME_DIR is not set, and no /run/user/UID; give "
        "--socket PATH");
  }
  return folder + "/" + machineName + socketEnding;
}

DoorPlace::DoorPlace(const std::string& path) : path_(path) {
  const std::filesystem::path given(path);
  const std::string name = given.filename().string();
  const std::size_t length = std::strlen(socketEnding);
  if (name.size() <= length || name.compare(name.size() - length, length, socketEnding) != 0) {
    throw simulation::Error(fmt::format("'{}' does not end in NAME{}", path, socketEnding));
  }
  if (path.size() >= sizeof sockaddr_un::sun_path) {
    throw simulation::Error(
        fmt::format("'{}' is longer than the {} bytes that a socket's path may "
                    "have; give a shorter --socket PATH",
                    path, sizeof sockaddr_un::sun_path - 1));
  }
  stem_ = name.substr(0, name.size() - length);
  folderPath_ = given.has_parent_path() ? given.parent_path().string() : ".";
  openFolder();
  takeLock();
  removeLeftover();
}

DoorPlace::~DoorPlace() {
  if (hasSocket_) {
    unlinkat(folder_.number(), beside(socketEnding).c_str(), 0);
  }
  if (hasToken_) {
    unlinkat(folder_.number(), beside(".token").c_str(), 0);
  }
  // The mark in the lock proves whose the token is that still lies there.
  if (hasToken_ || !hadToken_) {
    unlinkat(folder_.number(), beside(".lock").c_str(), 0);
  }
}

void DoorPlace::fail(const std::string& name, const std::string& what) const {
  throw simulation::Error(
      fmt::format("{}: {}", folderPath_ + (name.empty() ? "" : "/" + name), what));
}

void DoorPlace::openFolder() {
  // When it is there, the rest looks at it.
  const int whyNotMade = mkdir(folderPath_.c_str(), 0700) == 0 ? 0 : errno;
  folder_ = simulation::Descriptor(
      open(folderPath_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (folder_.number() < 0 || fstat(folder_.number(), &status) != 0) {
    fail("", std::strerror(errno == ENOENT ? whyNotMade : errno));
  }
  if (!isMine(status)) {
    fail("", fmt::format("belongs to the user {}", status.st_uid));
  }
  if ((status.st_mode & 077U) != 0) {
    fail("", "is open to other users (chmod 700)");
  }
}

/// The lock goes with the process, however that ends.
void DoorPlace::takeLock() {
  const std::string name = beside(".lock");
  for (int tries = 0; tries < 100; ++tries) {
    lock_ = simulation::Descriptor(openat(folder_.number(), name.c_str(),
                                          O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, userAlone));
    struct stat mine {};
    struct stat there {};
    if (lock_.number() < 0 || fstat(lock_.number(), &mine) != 0) {
      fail(name, std::strerror(errno));
    }
    if (!S_ISREG(mine.st_mode) || !isMine(mine)) {
      fail(name, "is not a file of this user");
    }
    std::array<char, sizeof tokenMark> text{};
    const ssize_t size = pread(lock_.number(), text.data(), text.size(), 0);
    const std::string content(text.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
    if (size < 0 || (!content.empty() && content != tokenMark)) {
      fail(name, "is not the lock of a door; remove it, or give another --socket PATH");
    }
    hadToken_ = content == tokenMark;
    if (flock(lock_.number(), LOCK_EX | LOCK_NB) != 0) {
      fail(beside(socketEnding), "a running machine uses this socket; give another --socket PATH");
    }
    // Whoever had the lock before may have removed it meanwhile.
    if (fstatat(folder_.number(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
        there.st_ino == mine.st_ino) {
      return;
    }
  }
  fail(name, "is replaced again and again");
}

void DoorPlace::removeLeftover() const {
  const std::string name = beside(socketEnding);
  struct stat status {};
  if (fstatat(folder_.number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return;
  }
  if (!S_ISSOCK(status.st_mode) || !isMine(status)) {
    fail(name, "is not a socket of this user");
  }
  unlinkat(folder_.number(), name.c_str(), 0);
}

simulation::Descriptor DoorPlace::listen() {
  const std::string name = beside(socketEnding);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // Through the descriptor, so that it is this folder whatever its path means by now.
  const std::string path = fmt::format("/proc/self/fd/{}/{}", folder_.number(), name);
  if (path.size() >= sizeof address.sun_path) {
    fail(name, "has too long a name; give a shorter --socket PATH");
  }
  path.copy(address.sun_path, path.size());
  simulation::Descriptor listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  // The mode of the socket is that of the file from the moment that it appears.
  if (listening.number() < 0 || fchmod(listening.number(), userAlone) != 0 ||
      // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): so the call has it
      bind(listening.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listening.number(), SOMAXCONN) != 0) {
    fail(name, std::strerror(errno));
  }
  hasSocket_ = true;
  struct stat status {};
  if (fstatat(folder_.number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISSOCK(status.st_mode) || !isMine(status) || (status.st_mode & 0177U) != 0) {
    fail(name, "is not a socket that only this user can open");
  }
  return listening;
}

std::string DoorPlace::writeToken(const std::string& token) {
  const std::string name = beside(".token");
  if (hadToken_) {
    unlinkat(folder_.number(), name.c_str(), 0);
  }
  const simulation::Descriptor file(openat(folder_.number(), name.c_str(),
                                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                           userAlone));
  if (file.number() < 0 && errno == EEXIST) {
    fail(name, "exists already, and belongs to no door; pass it with --token-file, or remove it");
  }
  hasToken_ = file.number() >= 0;
  const std::string line = token + "\n";
  if (!hasToken_ || pwrite(lock_.number(), tokenMark, sizeof tokenMark - 1, 0) < 0 ||
      write(file.number(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    fail(name, std::strerror(errno));
  }
  return folderPath_ + "/" + name;
}

}  // namespace host
