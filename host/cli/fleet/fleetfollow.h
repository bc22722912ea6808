#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "host/cli/fleet/member.h"
#include "host/cli/fleet/startmark.h"

namespace host {

/// From the start to the end: says what goes wrong on which
/// machine, and with `allOrNone` has all held then. `marks` is what each told when the moment was
/// chosen. The result is the exit status. While a `StopSignal` lives, which brings all to rest.
int followFleet(std::deque<Member>& members, std::vector<StartMark> marks, std::int64_t startNs,
                bool allOrNone);

/// Orders all to leave, and waits until it is known of each what became of that.
void dismiss(std::deque<Member>& members);

}  // namespace host
