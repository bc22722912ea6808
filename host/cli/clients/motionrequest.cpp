#include "host/cli/clients/motionrequest.h"

#include <filesystem>
#include <nlohmann/json.hpp>

#include "host/base/textfile.h"
#include "host/input/motionname.h"

namespace host {
namespace {

constexpr std::size_t mostBytes = std::size_t{32} << 20;

}  // namespace

Json postMotions(Door& door, const std::vector<std::string>& names, Json body) {
  Json& files = body["files"] = Json::object();
  body["motions"] = names;
  for (const std::string& name : names) {
    const std::string path = splitMotionName(name, isOnDisk).path;
    files[path] = readFile(path, mostBytes);
  }
  while (true) {
    try {
      return door.post("/v1/motions", body);
    } catch (const Refusal& refusal) {
      // The machine asks for the files that these name, one by one.
      if (refusal.reason() != "needs_file" || files.contains(refusal.file())) {
        throw;
      }
      files[refusal.file()] = readFile(refusal.file(), mostBytes);
    }
  }
}

}  // namespace host
