// The emptiness test before the lock is the one race that is meant. Under valgrind this
// stands in for it and takes the lock, so that whatever is reported is another one.

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>

#include "platform/zr/zrcriticalsectionwrite.h"
#include "timedcommand/timedcommand.h"

extern "C" bool I_REPLACE_SONAME_FNNAME_ZU(libtorvexZa, _ZNK12TimedCommand10looksEmptyEv)(
    const TimedCommand* timeline);

extern "C" bool I_REPLACE_SONAME_FNNAME_ZU(libtorvexZa, _ZNK12TimedCommand10looksEmptyEv)(
    const TimedCommand* timeline) {
  const ZR::ZRCriticalSectionWrite section(timeline->mutex);
  return timeline->commandList.empty();
}
#endif
