#pragma once

#include <boost/shared_ptr.hpp>

#include "platform/zr/zrbroker.h"
#include "torvex_export.h"

/// The process-wide slot of the framework broker.
///
/// No lock guards it: the host sets it at start, before any thread reads it.
/// Not meant for the control cycle. Nothing throws.

/// A further reference on the broker; empty when none is set.
TORVEX_EXPORT boost::shared_ptr<ZR::ZRBroker> getBrokerManager();

/// Keeps a reference on `broker` and lets go of the previous one, whose life
/// may end with it. An empty pointer clears the slot. What is still held when
/// the process ends is let go then.
TORVEX_EXPORT void setBrokerManager(boost::shared_ptr<ZR::ZRBroker> broker);
