#pragma once

#include <string>

namespace host {

/// The token that stands in a file of this user's alone, without blanks around it: 16 to 256
/// characters. Throws `UserError`.
std::string readTokenFile(const std::string& path);

}  // namespace host
