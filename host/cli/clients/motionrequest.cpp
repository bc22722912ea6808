#include "host/cli/clients/motionrequest.h"

#include <filesystem>
#include <nlohmann/json.hpp>

#include "host/client/answer.h"
#include "host/input/motiontexts.h"

namespace host {
namespace {

/// Whether one of these files names this one: nothing else is sent.
bool isNamedIn(const Json& files, const std::string& wanted) {
  for (const auto& file : files.items()) {
    const std::string folder = std::filesystem::path(file.key()).parent_path();
    const std::string name = wanted.substr(folder.empty() ? 0 : folder.size() + 1);
    if (wanted.rfind(folder, 0) == 0 && !name.empty() &&
        file.value().get_ref<const std::string&>().find(name) != std::string::npos) {
      return true;
    }
  }
  return false;
}

}  // namespace

Json postMotions(DoorClient& door, const std::vector<std::string>& names, Json body) {
  body["motions"] = names;
  Json& files = body["files"] = Json::object();
  const MotionsOnDisk disk;
  for (const std::string& name : names) {
    const std::string path = splitMotionName(name, disk).path;
    files[path] = disk.read(path);
  }
  while (true) {
    try {
      return door.post("/v1/motions", body);
    } catch (const DoorRefusal& refusal) {
      // The machine asks for the files that these name, one by one.
      const std::string& wanted = refusal.file();
      if (refusal.reason() != "needs_file" || files.contains(wanted) || !isNamedIn(files, wanted)) {
        throw;
      }
      files[wanted] = disk.read(wanted);
    }
  }
}

std::vector<Finding> warningsIn(const Json& answer) {
  std::vector<Finding> warnings;
  for (const Json& one : memberOf(answer, "warnings")) {
    Finding& warning = warnings.emplace_back();
    warning.path = textOf(one, "file");
    warning.location = {countOf(one, "line"), countOf(one, "column")};
    warning.text = textOf(one, "message");
  }
  return warnings;
}

}  // namespace host
