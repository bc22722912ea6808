#pragma once

#include <cstdint>

#include "host/input/document.h"
#include "simulation/machine.h"

namespace host {

/// A type code from `least` to `most`.
std::uint8_t readTypeCode(const Document& document, const Node& node, std::uint8_t least,
                          std::uint8_t most);

std::int32_t readInteger(const Document& document, const Node& node, const char* what);

/// The value that stands under "value", of this type: a zero or an empty text
/// when nothing does. A type without values must have none.
simulation::Value readValue(const Document& document, const Document::Fields& fields,
                            std::uint8_t typeCode);

}  // namespace host
