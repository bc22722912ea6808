#pragma once

/// Marks what a platform offers to the library and the host: visible across
/// shared libraries even where everything else is hidden.
#define PLATFORM_API __attribute__((visibility("default")))
