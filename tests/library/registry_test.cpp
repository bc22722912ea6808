#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include "attrfullname/attrfullname.h"
#include "registry/attrfullnamemanager.h"
#include "registry/brokermanager.h"
#include "registry/torvexmanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

class ZR::ZRBroker {};
class Torvex {};

TEST(Registry, BrokerLivesAsLongAsAnybodyHoldsIt) {
  EXPECT_EQ(getBrokerManager(), nullptr);
  auto first = boost::make_shared<ZR::ZRBroker>();
  const boost::weak_ptr<ZR::ZRBroker> watched = first;
  setBrokerManager(first);
  EXPECT_EQ(watched.use_count(), 2);
  first.reset();
  setBrokerManager(getBrokerManager());
  EXPECT_EQ(watched.use_count(), 1);
  auto copy = getBrokerManager();
  setBrokerManager(boost::make_shared<ZR::ZRBroker>());
  EXPECT_NE(getBrokerManager(), copy);
  EXPECT_EQ(watched.use_count(), 1);
  copy.reset();
  EXPECT_TRUE(watched.expired());
  setBrokerManager(nullptr);
  EXPECT_EQ(getBrokerManager(), nullptr);
}

TEST(Registry, SlotsStartEmptyAndHoldWhatWasStoredLast) {
  EXPECT_EQ(getTorvexManager(), nullptr);
  EXPECT_EQ(getAttrFullNameManager(), nullptr);
  EXPECT_EQ(getTimedCommandManager(), nullptr);
  Torvex torvex[2];
  AttrFullName names[2];
  TimedCommandManager managers[2];
  for (const int i : {0, 1}) {
    setTorvexManager(&torvex[i]);
    setAttrFullNameManager(&names[i]);
    setTimedCommandManager(&managers[i]);
    EXPECT_EQ(getTorvexManager(), &torvex[i]);
    EXPECT_EQ(getAttrFullNameManager(), &names[i]);
    EXPECT_EQ(getTimedCommandManager(), &managers[i]);
  }
  setTorvexManager(nullptr);
  setAttrFullNameManager(nullptr);
  setTimedCommandManager(nullptr);
  EXPECT_EQ(getTorvexManager(), nullptr);
  EXPECT_EQ(getAttrFullNameManager(), nullptr);
  EXPECT_EQ(getTimedCommandManager(), nullptr);
}
