/*
 * The connection to the MRIB process, against a socket that plays that process: what a connection begins
 * with, how it survives the peer's death, a full socket and a lost record.
 */
#include <arpa/inet.h>
#include <deque>
#include <gtest/gtest.h>
#include <optional>
#include <poll.h>

#include "daemons/common/descriptor.h"
#include "daemons/gmpd/mrib_link.h"
#include "mcast/mrib_message.h"
#include "mcast/mrib_wire.h"
#include "platform/local_socket.h"
#include "tests/daemons/gmpd_lab.h"
#include "tests/daemons/runtime_folder.h"

using namespace gmpd;
using namespace gmpd_test;
using mcastd::Descriptor;

namespace
{

// A record as text: its type, then what a membership record says.
std::string record_text(uint16_t type, const uint8_t *value)
{
    const std::string text = std::to_string(type);
    if (type == 1 || type == 2) {
        return text + "=" + std::to_string(value[0]);
    }
    if (type != 3) {
        return text;
    }
    return (value[7] != 0 ? "join" : "prune") + std::string(value[8] != 0 ? "-exclude " : " ") +
           std::to_string(value[28]) + "<" + std::to_string(value[12]);
}

// The MRIB process's end.
class Peer
{
public:
    Peer() : listener_(socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL))
    {
        LOCAL_SOCKET_ADDR_S address{};
        address.family = LOCAL_SOCKET_FAMILY;
        address.port_be = htons(2182);
        address.node = LOCAL_SOCKET_NODE;
        EXPECT_EQ(bind(listener_.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener_.get(), 4), 0);
    }
    void accept_one()
    {
        client_ = Descriptor(accept(listener_.get(), nullptr, nullptr));
        EXPECT_TRUE(client_.valid());
    }
    void hang_up()
    {
        client_ = Descriptor();
    }
    // Says how busy the process is; 0 is not at all.
    void say_busy(uint16_t value)
    {
        uint8_t message[64];
        uint32_t used = MRIB_MsgReset(message, 0);
        auto *record = static_cast<MRIB_FLOW_CONTROL_S *>(MRIB_MsgAppend(
            message, &used, sizeof(message), MRIB_TLV_FLOW_CONTROL, sizeof(MRIB_FLOW_CONTROL_S)));
        record->busy = value;
        EXPECT_EQ(send(client_.get(), message, used, 0), static_cast<ssize_t>(used));
    }
    // The records that have arrived, joined by blanks; their number alone when that is all that matters.
    std::string records()
    {
        std::string all;
        read_all([&](uint16_t type, const uint8_t *value) {
            all += (all.empty() ? "" : " ") + record_text(type, value);
        });
        return all;
    }
    unsigned count_memberships()
    {
        unsigned count = 0;
        read_all([&](uint16_t type, const uint8_t *) { count += type == 3 ? 1 : 0; });
        return count;
    }

private:
    template <typename Visit> void read_all(Visit visit)
    {
        uint8_t message[MRIB_MSG_RECV_MAX];
        ssize_t size;

        while ((size = recv(client_.get(), message, sizeof(message), MSG_DONTWAIT)) > 0) {
            size_t at = sizeof(MRIB_MSG_HEADER_S);

            while (at + 4 <= static_cast<size_t>(size)) {
                uint16_t head[2];

                memcpy(head, message + at, sizeof(head));
                visit(head[0], message + at + 4);
                at += 4u + head[1];
            }
        }
    }

    Descriptor listener_;
    Descriptor client_;
};

class GmpdMribLink : public testing::Test
{
protected:
    GmpdMribLink()
    {
        lab.emplace(MCAST_FAMILY_IPV4);
        link.emplace(lab->process, reactor);
        lab->process.mrib = &*link;
        lab->start();
    }
    ~GmpdMribLink() override
    {
        lab->process.interfaces.clear();
        link.reset();
        lab.reset();
    }
    // Lets the loop handle what is ready.
    void run()
    {
        for (int i = 0; i < 8; ++i) {
            reactor.run_once(0);
            link->flush();
        }
    }

    RuntimeFolder folder;
    mcastd::Reactor reactor;
    std::optional<Lab> lab;
    std::optional<MribLink> link;
};

const char *const BEGIN = "0 4 14 18 1=1 2=1 ";

} // namespace

TEST_F(GmpdMribLink, AConnectionBeginsWithTheUsersToo)
{
    std::string told;
    {
        UserTable users(
            lab->process, [](uint32_t, const Address &, const Address *) { return true; },
            [&told](const User &user, bool present) {
                told += (present ? "+" : "-") + std::to_string(user.info.user_id);
            });
        int key = 0;
        MCAST_USRAUTH_INFO_S info{};
        info.user_id = 7;
        users.place(users.add(&key, 7, User()), info);
        told.clear();
        Peer peer;
        ASSERT_TRUE(link->open());
        run();
        EXPECT_EQ(told, "+7");
    }
}

TEST_F(GmpdMribLink, AConnectionBeginsWithEverything)
{
    Peer peer;
    lab->record(RecordType::IsExclude, {9});
    lab->record(RecordType::Allow, {3}, 2);
    ASSERT_TRUE(link->open());
    link->flush();
    peer.accept_one();
    EXPECT_EQ(peer.records(), std::string(BEGIN) + "join-exclude 1<9 join 1<0 join 2<3");
    EXPECT_TRUE(link->connected());
}

TEST_F(GmpdMribLink, ChangesGoOutWithTheFlush)
{
    Peer peer;
    ASSERT_TRUE(link->open());
    link->flush();
    peer.accept_one();
    peer.records();
    lab->old_report(2);
    EXPECT_EQ(peer.records(), "");
    link->flush();
    EXPECT_EQ(peer.records(), "join 1<0");
    lab->pass(260);
    link->flush();
    EXPECT_EQ(peer.records(), "prune 1<0");
    interface_stop(*lab->interface);
    link->flush();
    EXPECT_EQ(peer.records(), "13 1=0");
}

TEST_F(GmpdMribLink, AProcessIsBehindUntilItHasReadMostOfWhatTheSocketHolds)
{
    Peer peer;
    const Address group = lab->group(1);
    ASSERT_TRUE(link->open());
    link->flush();
    EXPECT_FALSE(link->behind()) << "what is in the socket is little";
    peer.accept_one();
    peer.records();
    for (int change = 0; change < 1000; ++change) {
        link->tell_member(*lab->interface, group, nullptr, change % 2 == 0, false);
    }
    link->flush();
    EXPECT_EQ(link->pending(), 0u) << "the socket takes it all";
    EXPECT_TRUE(link->behind());
    peer.records();
    EXPECT_FALSE(link->behind());
}

TEST_F(GmpdMribLink, AMissingProcessIsTriedEverySecond)
{
    ASSERT_TRUE(link->open()) << "that nobody listens is no failure";
    lab->old_report(2);
    EXPECT_FALSE(link->connected());
    lab->pass(3);
    EXPECT_FALSE(link->connected());
    Peer peer;

    lab->pass(1);
    EXPECT_TRUE(link->connected());
    link->flush();
    peer.accept_one();
    EXPECT_EQ(peer.records(), std::string(BEGIN) + "join 1<0");
}

TEST_F(GmpdMribLink, ABrokenConnectionIsMadeAnewWithEverything)
{
    Peer peer;
    lab->old_report(2);
    ASSERT_TRUE(link->open());
    link->flush();
    peer.accept_one();
    peer.hang_up();
    run();
    EXPECT_FALSE(link->connected());
    lab->old_report(2, 2);
    lab->pass(1);
    EXPECT_TRUE(link->connected());
    EXPECT_EQ(link->connects(), 2u);
    link->flush();
    peer.accept_one();
    EXPECT_EQ(peer.records(), std::string(BEGIN) + "join 1<0 join 2<0");
}

TEST_F(GmpdMribLink, WhoStartsOverWithdrawsNothingAndConnectsAtOnce)
{
    Peer peer;
    lab->old_report(2);
    ASSERT_TRUE(link->open());
    link->flush();
    peer.accept_one();
    peer.records();
    link->tell_member(*lab->interface, lab->group(1), nullptr, false, false); // waits, and is dropped
    lab->process.mrib = &lab->recorder;                                       // who hands over is silent
    lab->process.interfaces.clear();
    link->start_over();
    EXPECT_EQ(peer.records(), "") << "not a word more on the first connection";
    EXPECT_TRUE(link->connected());
    EXPECT_EQ(link->connects(), 2u);
    link->flush();
    peer.accept_one();
    EXPECT_EQ(peer.records(), "0 4 14 18") << "and nothing is wanted on the second";
    lab->pass(3);
    EXPECT_EQ(link->connects(), 2u);
}

TEST_F(GmpdMribLink, StartingOverWithoutAConnectionKeepsTrying)
{
    ASSERT_TRUE(link->open());
    link->start_over();
    EXPECT_FALSE(link->connected());
    Peer peer;

    lab->pass(1);
    EXPECT_TRUE(link->connected());
    EXPECT_EQ(link->connects(), 1u);
}

TEST_F(GmpdMribLink, WhatAFullSocketDoesNotTakeWaitsAndArrives)
{
    constexpr unsigned RECORDS = 20000;
    Peer peer;
    const Address group = lab->group(1);

    ASSERT_TRUE(link->open());
    for (unsigned i = 0; i < RECORDS; ++i) {
        link->tell_member(*lab->interface, group, nullptr, i % 2 == 0, false);
    }
    run();
    peer.accept_one();
    EXPECT_GT(link->pending(), 0u);
    unsigned arrived = 0;

    for (int round = 0; round < 1000 && arrived < RECORDS; ++round) {
        arrived += peer.count_memberships();
        run();
    }
    EXPECT_EQ(arrived, RECORDS);
    EXPECT_EQ(link->pending(), 0u);
    EXPECT_TRUE(link->connected());
}

TEST_F(GmpdMribLink, ALostRecordStartsTheConnectionOver)
{
    Peer peer;
    const Address group = lab->group(1);
    lab->old_report(2);
    ASSERT_TRUE(link->open());
    peer.accept_one();
    for (unsigned i = 0; i < 9000u * 144u; ++i) {
        link->tell_member(*lab->interface, group, nullptr, true, false);
    }
    link->flush();
    EXPECT_FALSE(link->connected());
    peer.hang_up();
    lab->pass(1);
    EXPECT_TRUE(link->connected());
    link->flush();
    peer.accept_one();
    EXPECT_EQ(peer.records(), std::string(BEGIN) + "join 1<0");
}

TEST_F(GmpdMribLink, ABusyProcessIsToldTheLastWordsOnceItIsNot)
{
    Peer peer;
    const Address group = lab->group(1);
    const Address source = lab->source(9);
    ASSERT_TRUE(link->open());
    link->flush();
    peer.accept_one();
    peer.records();
    peer.say_busy(2);
    run();
    link->tell_member(*lab->interface, group, &source, true, true);
    link->tell_member(*lab->interface, group, nullptr, true, false);
    link->tell_member(*lab->interface, group, &source, true, false);
    link->tell_member(*lab->interface, group, &source, false, true);
    run();
    EXPECT_EQ(peer.records(), "");
    EXPECT_EQ(link->held(), 3u);
    peer.say_busy(0);
    run();
    EXPECT_EQ(peer.records(), "join 1<0 join 1<9 prune-exclude 1<9");
    EXPECT_EQ(link->held(), 0u);
    link->tell_member(*lab->interface, group, nullptr, false, false);
    run();
    EXPECT_EQ(peer.records(), "prune 1<0");
}

TEST_F(GmpdMribLink, AnInstanceBeyondTheViewOpensTheChannelAgain)
{
    Peer peer;
    ASSERT_TRUE(link->open());
    link->flush();
    peer.accept_one();
    peer.records();
    interface_move(*lab->interface, 1023);
    lab->start();
    link->flush();
    EXPECT_EQ(link->connects(), 1u);
    EXPECT_EQ(peer.records(), "13 1=0 1=1 2=1");
    interface_move(*lab->interface, 65535);
    lab->start();
    lab->old_report(2);
    link->flush();
    EXPECT_EQ(link->connects(), 2u);
    EXPECT_EQ(g_stMribGmpVrfInfo.count, 65536u);
    peer.accept_one();
    EXPECT_EQ(peer.records(), std::string(BEGIN) + "join 1<0");
    EXPECT_FALSE(link->policy().replayed());
}

TEST_F(GmpdMribLink, WhatIsHeldOfAnInterfaceThatStopsIsForgotten)
{
    Peer peer;
    const Address group = lab->group(1);
    ASSERT_TRUE(link->open());
    link->flush();
    peer.accept_one();
    peer.records();
    peer.say_busy(1);
    run();
    link->tell_member(*lab->interface, group, nullptr, true, false);
    interface_stop(*lab->interface);
    run();
    EXPECT_EQ(peer.records(), "13 1=0");
    peer.say_busy(0);
    run();
    EXPECT_EQ(peer.records(), "");
}

TEST_F(GmpdMribLink, ANewConnectionBeginsWithEverythingInsteadOfWhatWasHeld)
{
    Peer peer;
    ASSERT_TRUE(link->open());
    link->flush();
    peer.accept_one();
    peer.say_busy(1);
    run();
    lab->old_report(2);
    run();
    EXPECT_EQ(link->held(), 1u);
    peer.hang_up();
    run();
    lab->pass(1);
    link->flush();
    peer.accept_one();
    EXPECT_EQ(peer.records(), std::string(BEGIN) + "join 1<0");
    EXPECT_EQ(link->held(), 0u);
}

TEST_F(GmpdMribLink, WhatIsHeldIsForgottenByWhoStartsOver)
{
    Peer peer;
    ASSERT_TRUE(link->open());
    link->flush();
    peer.accept_one();
    peer.say_busy(1);
    run();
    link->tell_member(*lab->interface, lab->group(1), nullptr, true, false);
    EXPECT_EQ(link->held(), 1u);
    link->start_over();
    EXPECT_EQ(link->held(), 0u);
    link->flush();
    peer.accept_one();
    EXPECT_EQ(peer.records(), "0 4 14 18 1=1 2=1");
}

TEST(HeldMembers, WishesBeyondTheLimitAreNotHeld)
{
    HeldMembers held;
    MemberChange change{};
    for (uint32_t i = 0; i < HeldMembers::LIMIT; ++i) {
        change.if_index = i;
        ASSERT_TRUE(held.hold(change));
    }
    EXPECT_TRUE(held.hold(change)) << "the last word of a wish that has its place";
    change.blocked = true;
    EXPECT_FALSE(held.hold(change));
    EXPECT_EQ(held.size(), HeldMembers::LIMIT);
    held.forget(7);
    EXPECT_TRUE(held.hold(change));
    held.clear();
    EXPECT_EQ(held.size(), 0u);
}
