#pragma once

#include <stdexcept>

#include "platform/export.h"

namespace ZR {

/// What the framework throws: a module that is not there, a value of another
/// type, a file that cannot be written. Says so in words for a user.
class PLATFORM_API ZRException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace ZR
