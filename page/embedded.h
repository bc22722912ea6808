#pragma once

#include <cstddef>

#include "page/page.h"

namespace page {

/// All files; CMake writes the source that defines them.
extern const File embedded[];
extern const std::size_t embeddedCount;

}  // namespace page
