#pragma once

#include "torvex_export.h"

class Torvex;

/// The process-wide slot of the host's module object.
///
/// The host owns the object, sets the slot at start before any thread reads
/// it, and keeps the object alive while it is set. No lock, no check, no
/// exception; the getter may be called in the control cycle.

/// What was stored last; null before.
TORVEX_EXPORT Torvex* getTorvexManager();

/// Stores the pointer, null included; the previous object is left alone.
TORVEX_EXPORT void setTorvexManager(Torvex* torvex);
