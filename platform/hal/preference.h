#pragma once

#include <boost/interprocess/offset_ptr.hpp>

namespace hal {

/// A setting of the machine that outlives its power supply.
struct Preference {
  /// NUL-terminated, never null or empty: the first character is a mark that is
  /// part of no key.
  boost::interprocess::offset_ptr<char> name;
};

}  // namespace hal
