// The receiver without a link that it could hear: no right or interface of the machine is needed.
#include <gtest/gtest.h>

#include "daemons/common/log.h"
#include "daemons/gmpd/receiver.h"
#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

constexpr uint32_t NO_LINK = 0x7ffffff0;

TEST(GmpdReceiver, WhatIsNotHeardLosesNothing)
{
    mcastd::log_open("test", static_cast<mcastd::LogLevel>(-1)); // that it is not heard is said
    Lab lab(MCAST_FAMILY_IPV4);
    mcastd::Reactor reactor;
    Receiver receiver(lab.process, reactor);
    receiver.join(NO_LINK);
    EXPECT_EQ(receiver.kernel_drops(), 0u);
    receiver.leave(NO_LINK);
    receiver.leave(NO_LINK);
    EXPECT_EQ(receiver.kernel_drops(), 0u);
    mcastd::log_open("daemon", mcastd::LogLevel::Info);
}

} // namespace
