#pragma once

#include <cstdint>
#include <string>

namespace host {

/// "1 point", "2 points", "2 batches".
std::string counted(std::uint64_t count, const std::string& noun);

}  // namespace host
