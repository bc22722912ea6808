#pragma once

#include "simulation/framework/descriptor.h"

namespace simulation {

// A lock that says who writes a file. It belongs to the open file and not to the process, so it
// also excludes another writer of this process, and the system releases it with the process. Only
// who may write the file can take it: a stranger who may read keeps nobody from anything.

/// Takes it, without waiting; false when another writer has it, or the file system has no locks.
bool lockForWriting(const Descriptor& file) noexcept;

enum class WriteLock { none, held, unknown };
/// Whether another writer has it. This only queries the lock and takes none, so it cannot disturb
/// a writer that starts meanwhile.
WriteLock writeLockOn(const Descriptor& file) noexcept;

}  // namespace simulation
