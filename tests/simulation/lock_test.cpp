// The lock's promise to the cycle: who holds it runs as high as who waits for it.

#include <gtest/gtest.h>

#include "platform/zr/zrcriticalsectionwrite.h"
#include "tests/support/mutexprotocol.h"

TEST(Lock, InheritsPriorities) {
  (void)ZR::ZRMutexRW::createZRMutexRW();
  EXPECT_EQ(latestProtocol, PTHREAD_PRIO_INHERIT);
}
