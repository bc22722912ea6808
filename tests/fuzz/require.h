#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

/// Ends the process when something does not hold: the fuzzer then keeps the input.
inline void require(bool holds, const std::string& what) {
  if (!holds) {
    std::fprintf(stderr, "does not hold: %s\n", what.c_str());
    std::abort();
  }
}
