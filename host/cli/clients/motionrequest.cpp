#include "host/cli/clients/motionrequest.h"

#include <nlohmann/json.hpp>

#include "host/input/motiontexts.h"

namespace host {

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
      if (refusal.reason() != "needs_file" || files.contains(refusal.file())) {
        throw;
      }
      files[refusal.file()] = disk.read(refusal.file());
    }
  }
}

}  // namespace host
