#include "host/base/counted.h"

#include <fmt/format.h>

namespace host {

std::string counted(std::uint64_t count, const std::string& noun) {
  const char* const ending = count == 1 ? "" : noun.back() == 'h' ? "es" : "s";
  return fmt::format("{} {}{}", count, noun, ending);
}

}  // namespace host
