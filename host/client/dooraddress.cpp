#include "host/client/dooraddress.h"

#include <fmt/format.h>

namespace host {

std::string DoorAddress::text() const {
  const bool isSix = host.find(':') != std::string::npos;
  return !socketPath.empty() ? socketPath : fmt::format(isSix ? "[{}]:{}" : "{}:{}", host, port);
}

}  // namespace host
