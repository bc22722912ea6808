#pragma once

#include <cstdint>
#include <string>

#include "host/base/values.h"

namespace host {

// What a machine answered, which may hold anything.

/// The member; null where there is none. Refers to the object.
const Json& memberOf(const Json& object, const char* member);
/// The same as text, and as a number; empty, and 0, where it is none.
std::string textOf(const Json& object, const char* member);
std::int64_t numberOf(const Json& object, const char* member);
/// How many; 0 where it is no such number.
std::uint64_t countOf(const Json& object, const char* member);

}  // namespace host
