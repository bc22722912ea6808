#pragma once

namespace ZR {

/// Gives access to the other modules of the host.
class ZRBroker;

}  // namespace ZR
