// One family's channel of "watch" beside an mribd that is slow to read, played by this process.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "daemons/common/descriptor.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/services.h"
#include "daemons/mcastctl/watch_member.h"
#include "mcast/mrib_message.h"
#include "mcast/mrib_wire.h"
#include "tests/daemons/runtime_folder.h"

using namespace mcastctl;
using mcastd::Descriptor;

namespace
{

class WatchMemberTest : public testing::Test
{
protected:
    WatchMemberTest()
    {
        watch_.events = {&watched_events()[0]}; // instances
        watch_.changes_alone = true;
        const Descriptor listener(mcastd::listen_local(MRIB_PORT_IPV4));
        EXPECT_TRUE(member.open());
        mribd_ = Descriptor(mcastd::accept_next(listener.get()));
        EXPECT_EQ(datagrams(), 1u) << "its registration";
    }

    // A message of so many records of the type.
    template <typename Value> bool say(uint16_t type, const Value *value, unsigned count)
    {
        const uint16_t size = value != nullptr ? sizeof(Value) : 0;
        std::vector<uint8_t> message(MRIB_MSG_RECV_MAX);
        uint32_t used = MRIB_MsgReset(message.data(), mcastd::COMPONENT_MRIBD);
        for (unsigned i = 0; i < count; ++i) {
            void *const room = MRIB_MsgAppend(message.data(), &used, message.size(), type, size);
            if (value != nullptr) {
                memcpy(room, value, size);
            }
        }
        return send(mribd_.get(), message.data(), used, 0) == static_cast<ssize_t>(used);
    }
    // How many datagrams wait for mribd; it reads them.
    unsigned datagrams() const
    {
        char message[MRIB_MSG_RECV_MAX];
        unsigned count = 0;
        while (recv(mribd_.get(), message, sizeof(message), MSG_DONTWAIT) > 0) {
            ++count;
        }
        return count;
    }

    mcastd::Reactor reactor;
    std::vector<std::string> lines;

private:
    Watch watch_;

protected:
    WatchMember member{reactor, MCAST_FAMILY_IPV4, watch_,
                       [this](const std::string &line) { lines.push_back(line); }};

private:
    RuntimeFolder folder_;
    Descriptor mribd_;
};

TEST_F(WatchMemberTest, WhatTheSocketDoesNotTakeIsSentWhenItHasRoomAndTheRestIsHeard)
{
    constexpr unsigned MESSAGES = 20;
    constexpr unsigned QUESTIONS = 1000; // which each is answered with; together more than a socket takes
    const MRIB_VRF_STATE_S enabled{{}, 5, 1};
    for (unsigned i = 0; i < MESSAGES; ++i) {
        ASSERT_TRUE(say<char>(MRIB_TLV_SMOOTH_START, nullptr, QUESTIONS));
    }
    ASSERT_TRUE(reactor.run_once(0));
    const unsigned at_once = datagrams();
    EXPECT_GT(at_once, 0u);
    EXPECT_LT(at_once, MESSAGES * QUESTIONS);
    ASSERT_TRUE(reactor.run_once(0));
    EXPECT_GT(datagrams(), 0u) << "what did not find room";
    const size_t before = lines.size();
    ASSERT_TRUE(say(MRIB_TLV_VRF_STATE, &enabled, 1));
    ASSERT_TRUE(reactor.run_once(0));
    ASSERT_EQ(lines.size(), before + 1);
    EXPECT_EQ(lines.back(), "ipv4: instance 5: enabled");
}

} // namespace
