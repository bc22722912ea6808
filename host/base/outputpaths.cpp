#include "host/base/outputpaths.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>

#include "host/base/usererror.h"
#include "simulation/framework/outputfile.h"
#include "simulation/framework/outputplace.h"
#include "simulation/machine.h"

namespace host {
namespace {

namespace fs = std::filesystem;

/// None where no output can go.
std::optional<simulation::OutputPlace> placeFor(const std::string& path) {
  try {
    return simulation::placeOf(path);
  } catch (const simulation::Error&) {
    return std::nullopt;
  }
}

bool isOpenAs(int descriptor, const struct stat& file) {
  struct stat open {};
  return fstat(descriptor, &open) == 0 && open.st_ino == file.st_ino && open.st_dev == file.st_dev;
}

/// Whether both lead to one name in one folder, by whatever links and mounts, also where nothing
/// has the name yet.
bool haveOneTarget(const std::string& one, const std::string& other) {
  const auto first = placeFor(one);
  const auto second = placeFor(other);
  struct stat folder {};
  return first && second && first->name == second->name &&
         fstat(first->folder.number(), &folder) == 0 && isOpenAs(second->folder.number(), folder);
}

/// Also where folders of the path are not there yet.
bool isSamePlace(const std::string& one, const std::string& other) {
  std::error_code none;
  return fs::equivalent(one, other, none) ||
         fs::weakly_canonical(fs::absolute(one), none) ==
             fs::weakly_canonical(fs::absolute(other), none) ||
         haveOneTarget(one, other);
}

/// Files with such names come and go beside an output. Also behind a link.
bool isPart(const std::string& path) {
  std::error_code none;
  return simulation::isPartName(fs::path(path).filename()) ||
         simulation::isPartName(fs::weakly_canonical(path, none).filename());
}

void refusePart(const std::string& path) {
  if (isPart(path)) {
    throw UserError(path, {}, "has the name of a partly written file; choose another name");
  }
}

/// What goes through an open descriptor replaces nothing.
bool isDescriptor(const std::string& path) {
  const auto place = placeFor(path);
  return place && place->isDescriptor;
}

/// A report that goes to this file would be lost with it.
void refuseReplacedReport(const NamedOutput& output) {
  struct stat named {};
  if (stat(output.path.c_str(), &named) != 0 || !S_ISREG(named.st_mode) ||
      isDescriptor(output.path)) {
    return;
  }
  const bool isOutput = isOpenAs(STDOUT_FILENO, named);
  if (isOutput || isOpenAs(STDERR_FILENO, named)) {
    throw UserError(output.path, {},
                    fmt::format("the {} would replace what goes to standard {}", output.what,
                                isOutput ? "output" : "error"));
  }
}

}  // namespace

bool isStandardOutput(const std::string& path) {
  return path == "/dev/stdout" || path == "/dev/fd/1" || path == "/proc/self/fd/1";
}

void checkOutputs(const std::vector<NamedOutput>& outputs, const std::vector<std::string>& inputs) {
  for (auto output = outputs.begin(); output != outputs.end(); ++output) {
    refusePart(output->path);
    refuseReplacedReport(*output);
    std::for_each(inputs.begin(), inputs.end(), refusePart);
    for (const std::string& input : inputs) {
      if (isSamePlace(output->path, input)) {
        throw UserError(output->path, {},
                        fmt::format("the {} would replace an input", output->what));
      }
    }
    for (auto other = outputs.begin(); other != output; ++other) {
      if (isSamePlace(output->path, other->path)) {
        throw UserError(output->path, {},
                        fmt::format("the {} would replace the {}", output->what, other->what));
      }
    }
  }
}

void checkFolder(const std::string& path) {
  std::error_code none;
  fs::path existing = fs::absolute(path).lexically_normal();
  while (!fs::exists(existing, none) && existing != existing.parent_path()) {
    existing = existing.parent_path();
  }
  const bool isFolder = fs::is_directory(existing, none);
  if (!isFolder || access(existing.c_str(), W_OK | X_OK) != 0) {
    throw UserError(path, {},
                    fmt::format("cannot be written to: {}",
                                isFolder ? std::strerror(errno) : std::strerror(ENOTDIR)));
  }
}

}  // namespace host
