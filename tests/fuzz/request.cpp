// The JSON of requests that command, for a machine of a few actuators.

#include "host/input/requestreader.h"

#include "host/input/machinefile.h"
#include "input.h"
#include "tests/support/temporary.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Temporary folder;
  static const host::MachineModel machine = host::readMachineFile(folder.write(
      "m.yaml", "actuators: [{name: a, minimum: -1, maximum: 2}, {name: i, type: 2}]\n"));
  static const host::ActuatorNames names(machine);
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    for (const host::RequestedBatch& batch : host::readBatchRequest(text, names).batches) {
      const host::CommandBatch& commands = batch.commands;
      require(!commands.actuators.empty(), "a batch without actuators");
      require(commands.values.size() == commands.times.size() * commands.actuators.size(), "rows");
    }
  } catch (const host::UserError& error) {
    for (const host::UserError::Entry& entry : error.entries()) {
      require(entry.path.empty() || entry.path.front() == '/', "no pointer: " + entry.path);
      require(!entry.text.empty(), "nothing is said");
    }
  }
  return 0;
}
