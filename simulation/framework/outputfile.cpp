#include "simulation/framework/outputfile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include "simulation/framework/outputplace.h"
#include "simulation/framework/writelock.h"
#include "simulation/machine.h"

namespace simulation {
namespace {

constexpr std::string_view partMark = ".torvex-part-";
constexpr std::size_t randomDigits = 16;

[[noreturn]] void refuseFor(int error) {
  refuseOutput(std::strerror(error));
}

/// How the names of the parts of a file begin: with as much of its name as leaves room for the
/// rest.
std::string partStem(const std::string& name) {
  return name.substr(0, NAME_MAX - partMark.size() - randomDigits) + std::string(partMark);
}

std::string freshPartName(const std::string& name) {
  std::uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != sizeof number) {
    refuseFor(errno);
  }
  std::string digits(randomDigits, '0');
  for (char& digit : digits) {
    digit = "0123456789abcdef"[number & 15U];
    number >>= 4U;
  }
  return partStem(name) + digits;
}

/// The descriptor of this process to which a name in its folder of descriptors refers.
Descriptor duplicated(const OutputPlace& place) {
  const int number = std::atoi(place.name.c_str());
  struct stat meant {};
  struct stat own {};
  if (fstatat(place.folder.number(), place.name.c_str(), &meant, 0) != 0 ||
      fstat(number, &own) != 0 || meant.st_ino != own.st_ino || meant.st_dev != own.st_dev) {
    refuseOutput("it is no open file of this process");
  }
  Descriptor copy(fcntl(number, F_DUPFD_CLOEXEC, 0));
  if (!copy.isOpen()) {
    refuseFor(errno);
  }
  return copy;
}

/// A pipe or a device is written to directly, and nothing that took its place meanwhile.
Descriptor openedStream(const OutputPlace& place) {
  if (S_ISFIFO(place.present.st_mode) && place.present.st_uid != geteuid()) {
    refuseOutput("it is a pipe of another user");
  }
  Descriptor stream(openat(place.folder.number(), place.name.c_str(),
                           O_WRONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  struct stat opened {};
  if (!stream.isOpen() || fstat(stream.number(), &opened) != 0) {
    refuseFor(errno);
  }
  if (opened.st_ino != place.present.st_ino || opened.st_dev != place.present.st_dev) {
    refuseOutput("it was replaced meanwhile");
  }
  return stream;
}

/// Replacing a file needs only the permission of its folder. Require that of the file, too.
void checkReplaceable(const OutputPlace& place) {
  if (!S_ISREG(place.present.st_mode)) {
    refuseOutput("it is not a regular file, pipe or device");
  }
  if (faccessat(place.folder.number(), place.name.c_str(), W_OK, AT_EACCESS) != 0) {
    refuseFor(errno);
  }
  const Descriptor present(openat(place.folder.number(), place.name.c_str(),
                                  O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (present.isOpen() && writeLockOn(present) == WriteLock::held) {
    refuseOutput("another process is writing it");
  }
  struct stat around {};
  const uid_t user = geteuid();
  if (fstat(place.folder.number(), &around) != 0 ||
      ((around.st_mode & S_ISVTX) != 0 && user != 0 && user != around.st_uid &&
       user != place.present.st_uid)) {
    refuseFor(EPERM);
  }
}

/// Whether this is a part of this user that no running process writes.
bool isLeftBehind(int folder, const char* name) {
  const Descriptor part(openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat found {};
  return part.isOpen() && fstat(part.number(), &found) == 0 && S_ISREG(found.st_mode) &&
         found.st_uid == geteuid() && writeLockOn(part) == WriteLock::none;
}

void sweepParts(const OutputPlace& place) {
  const int folder =
      openat(place.folder.number(), ".", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(folder < 0 ? nullptr : fdopendir(folder),
                                                    closedir);
  if (entries == nullptr) {
    if (folder >= 0) {
      close(folder);
    }
    return;
  }
  const std::string stem = partStem(place.name);
  while (const dirent* const entry = readdir(entries.get())) {
    const std::string_view name = entry->d_name;
    if (name.size() == stem.size() + randomDigits && name.substr(0, stem.size()) == stem &&
        isPartName(entry->d_name) && isLeftBehind(place.folder.number(), entry->d_name)) {
      unlinkat(place.folder.number(), entry->d_name, 0);
    }
  }
}

}  // namespace

bool isPartName(const std::string& name) {
  const std::size_t end = partMark.size() + randomDigits;
  return name.size() > end && name.compare(name.size() - end, partMark.size(), partMark) == 0 &&
         name.find_first_not_of("0123456789abcdef", name.size() - randomDigits) ==
             std::string::npos;
}

/// A file that is being written, and where it goes.
struct OutputFile::Part {
  Part(const std::string& path, Present present_) : place(placeOf(path)), present(present_) {
    if (place.exists && present == Present::kept) {
      refuseFor(EEXIST);
    }
    if (place.isDescriptor) {
      file = duplicated(place);
      return;
    }
    if (place.exists && (S_ISFIFO(place.present.st_mode) || S_ISCHR(place.present.st_mode))) {
      file = openedStream(place);
      return;
    }
    takesPlace = true;
    if (isPartName(place.name)) {
      refuseOutput("such names are reserved for partly written files");
    }
    if (place.exists) {
      checkReplaceable(place);
    }
    sweepParts(place);
    open();
  }
  ~Part() {
    if (!name.empty()) {
      unlinkat(place.folder.number(), name.c_str(), 0);
    }
  }
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;

  void open() {
    constexpr mode_t readAndWrite = 0666;
    const mode_t mode = readAndWrite & (place.exists ? place.present.st_mode : readAndWrite);
    const bool canBeNamed = access("/proc/self/fd", X_OK) == 0;
    errno = EOPNOTSUPP;
    if (canBeNamed) {
      file = Descriptor(openat(place.folder.number(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode));
    }
    if (!file.isOpen() && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
      openNamed(mode);
    }
    if (!file.isOpen()) {
      refuseFor(errno);
    }
    lockForWriting(file);
  }
  /// Creates the part with a name and locks it; anew when another process removed it in between.
  void openNamed(mode_t mode) {
    struct stat made {};
    while (made.st_nlink == 0) {
      std::string fresh = freshPartName(place.name);
      file = Descriptor(openat(place.folder.number(), fresh.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
      if (!file.isOpen()) {
        return;
      }
      name = std::move(fresh);
      lockForWriting(file);
      fstat(file.number(), &made);
    }
  }
  /// Gives the part a name, if it has none, and moves it to the path of the file.
  bool settle() {
    if (name.empty()) {
      const std::string own = "/proc/self/fd/" + std::to_string(file.number());
      std::string fresh = freshPartName(place.name);
      if (linkat(AT_FDCWD, own.c_str(), place.folder.number(), fresh.c_str(), AT_SYMLINK_FOLLOW) !=
          0) {
        return false;
      }
      name = std::move(fresh);
    }
    if (!takePlace()) {
      return false;
    }
    name.clear();
    isSettled = true;
    return true;
  }
  [[nodiscard]] bool takePlace() const {
    const int folder = place.folder.number();
    const char* const from = name.c_str();
    const char* const to = place.name.c_str();
    if (present == Present::replaced) {
      return renameat(folder, from, folder, to) == 0;
    }
    if (renameat2(folder, from, folder, to, RENAME_NOREPLACE) == 0) {
      return true;
    }
    // File systems that cannot do this mostly have links.
    return errno == EINVAL && linkat(folder, from, folder, to, 0) == 0 &&
           unlinkat(folder, from, 0) == 0;
  }
  void syncFolder() const {
    const Descriptor folder(openat(place.folder.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.isOpen()) {
      fsync(folder.number());
    }
  }

  OutputPlace place;
  const Present present;
  Descriptor file;
  /// Empty while it has none.
  std::string name;
  /// Otherwise it is written to as it is.
  bool takesPlace = false;
  /// Whether it has come to its place.
  bool isSettled = false;
};

OutputFile::OutputFile(const std::string& path, Present present)
    : path_(path), part_(std::make_unique<Part>(path, present)) {}

OutputFile::~OutputFile() = default;

void OutputFile::fail() const {
  throw std::system_error(errno, std::generic_category(), path_);
}

void OutputFile::write(const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = ::write(part_->file.number(), bytes, count);
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

void OutputFile::appear() {
  if (part_->takesPlace && !part_->isSettled) {
    if (!part_->settle()) {
      fail();
    }
    part_->syncFolder();
  }
}

void OutputFile::commit() {
  if (part_->takesPlace && fsync(part_->file.number()) != 0) {
    fail();
  }
  appear();
  part_.reset();
}

}  // namespace simulation
