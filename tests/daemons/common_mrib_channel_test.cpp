/*
 * A daemon's connection to the MRIB process, with this process in the place of that one. What happens a second after
 * a connection broke is the simulation's to show.
 */
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <sys/socket.h>

#include "daemons/common/descriptor.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "daemons/common/mrib_channel.h"
#include "daemons/common/reactor.h"
#include "daemons/common/timer_loop.h"
#include "mcast/mrib_wire.h"
#include "tests/daemons/runtime_folder.h"

using namespace mcastd;

namespace
{

class MribChannelTest : public testing::Test
{
protected:
    MribChannelTest()
    {
        log_open("test", static_cast<LogLevel>(-1)); // broken connections are warned of
        EXPECT_TRUE(timers_.open());
        listener_ = Descriptor(listen_local(MRIB_PORT_IPV4));
    }
    ~MribChannelTest() override
    {
        channel.close();
    }

    bool open()
    {
        return channel.open(timers_.manager(), {COMPONENT, MCAST_FAMILY_IPV4, 1}, {});
    }
    // The end of the next connection that waits.
    Descriptor accepted() const
    {
        return Descriptor(accept_next(listener_.get()));
    }
    static bool is_closed(const Descriptor &end)
    {
        char message[MRIB_MSG_RECV_MAX];
        ssize_t size;
        while ((size = recv(end.get(), message, sizeof(message), MSG_DONTWAIT)) > 0) {
        }
        return size == 0;
    }

    Reactor reactor;
    unsigned reports = 0;
    std::function<void()> report = [this] { ++reports; };
    MribChannel channel{reactor, [this] { report(); }};

private:
    static constexpr uint8_t COMPONENT = 9;

    RuntimeFolder folder_;
    TimerLoop timers_{reactor};
    Descriptor listener_;
};

TEST_F(MribChannelTest, AConnectionBeginsWithEverything)
{
    ASSERT_TRUE(open());
    EXPECT_TRUE(channel.connected());
    EXPECT_EQ(reports, 1u);
    EXPECT_TRUE(accepted().valid());
}

TEST_F(MribChannelTest, ClosingEndsTheConnection)
{
    ASSERT_TRUE(open());
    const Descriptor end = accepted();
    EXPECT_FALSE(is_closed(end));
    channel.close();
    EXPECT_FALSE(channel.connected());
    EXPECT_TRUE(is_closed(end));
    channel.close();
}

TEST_F(MribChannelTest, StartingOverDropsTheConnectionAndSaysEverythingAnew)
{
    ASSERT_TRUE(open());
    const Descriptor first = accepted();
    channel.start_over();
    EXPECT_TRUE(is_closed(first));
    EXPECT_TRUE(channel.connected());
    EXPECT_FALSE(is_closed(accepted()));
    EXPECT_EQ(channel.connects(), 2u);
    EXPECT_EQ(reports, 2u);
}

TEST_F(MribChannelTest, ReopeningConnectsAnewWithTheOtherNumberOfInstances)
{
    ASSERT_TRUE(open());
    const Descriptor first = accepted();
    ASSERT_TRUE(channel.reopen(3));
    EXPECT_TRUE(is_closed(first));
    EXPECT_TRUE(channel.connected());
    EXPECT_EQ(channel.instance_count(), 3u);
    EXPECT_EQ(reports, 2u);
}

TEST_F(MribChannelTest, WhoGoesAwayIsNoticed)
{
    ASSERT_TRUE(open());
    accepted();
    ASSERT_TRUE(reactor.run_once(0));
    EXPECT_FALSE(channel.connected());
}

TEST_F(MribChannelTest, WhatThereIsNoMemoryToTellEndsTheConnection)
{
    report = [] { throw std::bad_alloc(); };
    ASSERT_TRUE(open());
    EXPECT_FALSE(channel.connected());
    EXPECT_TRUE(is_closed(accepted()));
}

} // namespace
