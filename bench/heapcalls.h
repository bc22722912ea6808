#pragma once

#include <cstdint>

namespace bench {

/// How often this thread has asked the heap for memory by `new`.
std::uint64_t heapCalls();

}  // namespace bench
