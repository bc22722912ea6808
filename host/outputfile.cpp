#include "host/outputfile.h"

#include "host/input/source.h"
#include "simulation/machine.h"

namespace host {

OutputFile::OutputFile(const std::string& path) try : simulation
  ::OutputFile(path) {}
catch (const simulation::Error& error) {
  throw InputError(path, {}, error.what());
}

}  // namespace host
