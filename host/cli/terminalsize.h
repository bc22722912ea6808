#pragma once

#include <cstddef>

namespace host {

struct TerminalSize {
  std::size_t rows = 24;
  std::size_t columns = 80;
};

/// The size of the terminal at a descriptor; the usual one when it is unknown.
TerminalSize terminalSize(int descriptor);

}  // namespace host
