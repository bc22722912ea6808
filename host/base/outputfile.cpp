#include "host/base/outputfile.h"

#include "host/base/usererror.h"
#include "simulation/machine.h"

namespace host {

OutputFile::OutputFile(const std::string& path, Present present) try : simulation
  ::OutputFile(path, present) {}
catch (const simulation::Error& error) {
  throw UserError(path, {}, error.what());
}

}  // namespace host
