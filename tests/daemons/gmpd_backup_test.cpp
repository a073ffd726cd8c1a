/*
 * The backup: its messages, who has which index, and the two ends of the connection on local sockets.
 */
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/socket.h>

#include "daemons/common/descriptor.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "daemons/common/reactor.h"
#include "daemons/gmpd/backup_message.h"
#include "daemons/gmpd/backup_server.h"
#include "daemons/gmpd/standby.h"
#include "mcast/interface_registry.h"
#include "platform/local_socket.h"
#include "support/scripted_timer.h"
#include "tests/daemons/runtime_folder.h"

using namespace gmpd;

namespace
{

constexpr uint32_t FIRST = 0xD0000000; // index of the first IPv4 user
constexpr uint16_t PORT = 2205;

using Bytes = std::vector<uint8_t>;

const Bytes TWO_USERS = {1,    2,    0,    2,                                      // version, kind, records
                         0,    0,    0x12, 0x34, 0xab, 0xcd, 0, 0, 0xd0, 0, 0, 7,  // user, node, zero, index
                         0xff, 0xff, 0xff, 0xff, 0,    0,    0, 0, 0,    0, 0, 0}; // one who is gone

Bytes changed(size_t offset, uint8_t value)
{
    Bytes bytes = TWO_USERS;
    bytes[offset] = value;
    return bytes;
}

TEST(GmpdBackupMessage, BytesAreAsDocumented)
{
    const BackupMessage users{BackupKind::Users, {{{0xabcd, 0x1234}, FIRST + 7}, {{0, 0xffffffff}, 0}}};
    EXPECT_EQ(encode(users), TWO_USERS);
    EXPECT_EQ(decode_backup(TWO_USERS), users);
    EXPECT_EQ(encode({BackupKind::Begin, {}}), (Bytes{1, 1, 0, 0}));
    EXPECT_EQ(decode_backup(Bytes{1, 3, 0, 0}), (BackupMessage{BackupKind::End, {}}));
}

TEST(GmpdBackupMessage, WhatIsNotExactlyAMessageIsRefused)
{
    for (size_t length = 0; length < TWO_USERS.size(); ++length) {
        EXPECT_FALSE(decode_backup(std::span(TWO_USERS).first(length))) << length;
    }
    Bytes longer = TWO_USERS;

    longer.push_back(0);
    EXPECT_FALSE(decode_backup(longer));
    EXPECT_FALSE(decode_backup(changed(0, 2))) << "version";
    EXPECT_FALSE(decode_backup(changed(1, 0))) << "kind";
    EXPECT_FALSE(decode_backup(changed(1, 4))) << "kind";
    EXPECT_FALSE(decode_backup(changed(1, 1))) << "users at the begin";
    EXPECT_FALSE(decode_backup(changed(3, 1))) << "count";
    EXPECT_FALSE(decode_backup(changed(3, 3))) << "count";
    EXPECT_FALSE(decode_backup(changed(11, 1))) << "what must be zero";
    EXPECT_FALSE(decode_backup(changed(12, 0x80))) << "an interface of the platform";
    EXPECT_FALSE(decode_backup(changed(12, 0xcc))) << "an NBMA interface";
    EXPECT_FALSE(decode_backup(Bytes{1, 2, 0, 0})) << "users without users";
}

TEST(GmpdBackupMessage, MoreThanTheMostRecordsAreRefused)
{
    BackupMessage message{BackupKind::Users, std::vector<BackupRecord>(BACKUP_RECORDS_MAX)};
    Bytes bytes = encode(message);
    EXPECT_EQ(bytes.size(), BACKUP_MESSAGE_MAX);
    EXPECT_EQ(decode_backup(bytes), message);
    bytes.resize(bytes.size() + 12);
    ++bytes[3];
    EXPECT_FALSE(decode_backup(bytes));
}

class GmpdUserIndexes : public testing::Test
{
protected:
    GmpdUserIndexes() : indexes([this](const UserKey &user) { told += std::to_string(user.user_id) + " "; })
    {
        mcastd::log_open("gmpd", mcastd::LogLevel::Error);
        EXPECT_TRUE(indexes.open(MCAST_FAMILY_IPV4));
    }

    std::string told;
    UserIndexes indexes;
};

TEST_F(GmpdUserIndexes, EveryChangeIsTold)
{
    EXPECT_EQ(indexes.take({1, 7}), FIRST);
    EXPECT_EQ(indexes.take({2, 7}), FIRST + 1) << "the same number on another node";
    indexes.give_back({1, 7});
    indexes.give_back({1, 7});
    EXPECT_EQ(told, "7 7 7 ");
    EXPECT_EQ(indexes.assigned(), (UserIndexMap{{{2, 7}, FIRST + 1}}));
    EXPECT_EQ(indexes.take({1, 9}), FIRST) << "a free index is given out again";
}

TEST_F(GmpdUserIndexes, AfterASwitchOverEachUserTakesTheIndexThatHeHad)
{
    indexes.take({1, 50}); // of a daemon that was active once
    told.clear();
    indexes.keep({{{1, 7}, FIRST + 3}, {{1, 8}, FIRST}});
    const uint32_t new_one = indexes.take({1, 9});

    EXPECT_NE(new_one, 0u);
    EXPECT_TRUE(new_one != FIRST && new_one != FIRST + 3) << "who is new gets what nobody else has";
    EXPECT_EQ(indexes.take({1, 8}), FIRST);
    EXPECT_EQ(indexes.take({1, 7}), FIRST + 3);
    EXPECT_EQ(told, "9 ") << "what was kept is no change";
    EXPECT_EQ(indexes.assigned().size(), 3u);
}

TEST_F(GmpdUserIndexes, IndexesThatNobodyTookAreFreeInTheEnd)
{
    indexes.keep({{{1, 7}, FIRST}, {{1, 8}, FIRST + 1}});
    EXPECT_EQ(indexes.take({1, 8}), FIRST + 1);
    EXPECT_EQ(indexes.assigned().size(), 2u) << "also those are backed up";
    told.clear();
    indexes.release_untaken();
    EXPECT_EQ(told, "7 ");
    EXPECT_EQ(indexes.assigned(), (UserIndexMap{{{1, 8}, FIRST + 1}}));
    indexes.release_untaken();
    EXPECT_EQ(indexes.assigned().size(), 1u);
    EXPECT_EQ(MCAST_ReserveIf(FIRST), MCAST_OK) << "it is free in the registry";
}

TEST_F(GmpdUserIndexes, IndexesThatCannotBeKeptAreLeftOut)
{
    indexes.keep({{{1, 7}, FIRST}, {{1, 8}, FIRST}, {{1, 9}, 0xD2000000}, {{1, 10}, 12}});
    EXPECT_EQ(indexes.assigned(), (UserIndexMap{{{1, 7}, FIRST}}));
    EXPECT_EQ(indexes.take({1, 9}), FIRST + 1);
}

// Active daemon and standbys in one loop.
class GmpdBackup : public GmpdUserIndexes
{
protected:
    GmpdBackup() : standby(reactor)
    {
        scripted_timer::Reset();
        const uint64_t parameters[4] = {reinterpret_cast<uint64_t>(&timers)};

        timers = MCAST_TMR_Create(
            scripted_timer::Service(),
            [](uint64_t values[4]) { MCAST_TMR_ProcExpires(*reinterpret_cast<MCAST_TMR_S **>(values[0])); },
            parameters);
        start_active();
    }
    ~GmpdBackup() override
    {
        standby.stop();
        server.reset();
        MCAST_TMR_Destroy(timers);
    }

    void start_active()
    {
        server.emplace(reactor, active_indexes);
        ASSERT_TRUE(server->open(PORT));
    }
    void start_standby(uint32_t patience = 0)
    {
        standby.start(timers, PORT, patience);
    }
    void serve(int rounds = 20)
    {
        for (int round = 0; round < rounds; ++round) {
            reactor.run_once(0);
            if (server) {
                server->flush();
            }
        }
    }
    void pass(uint32_t seconds)
    {
        for (uint32_t i = 0; i < seconds; ++i) {
            scripted_timer::Advance(1);
            scripted_timer::FireIfDue();
        }
        serve();
    }
    void take_many(uint32_t count)
    {
        for (uint32_t user = 0; user < count; ++user) {
            indexes.take({static_cast<uint16_t>(user % 3), user});
        }
    }
    // A connection to the active one that is no standby.
    mcastd::Descriptor connection() const
    {
        LOCAL_SOCKET_ADDR_S address{};
        mcastd::Descriptor fd(socket(LOCAL_SOCKET_FAMILY, SOCK_DGRAM, LOCAL_SOCKET_PROTOCOL));
        address.family = LOCAL_SOCKET_FAMILY;
        address.port_be = htons(PORT);
        address.node = LOCAL_SOCKET_NODE;
        EXPECT_EQ(connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        return fd;
    }

    mcastd::Reactor reactor;
    RuntimeFolder folder;
    MCAST_TMR_S *timers = nullptr;
    const UserIndexes &active_indexes = indexes;
    std::optional<BackupServer> server;
    Standby standby;
};

TEST_F(GmpdBackup, AStandbyHearsEverythingAndThenWhatChanges)
{
    take_many(1000);
    start_standby();
    serve();
    EXPECT_TRUE(standby.synchronised());
    EXPECT_EQ(standby.indexes(), indexes.assigned());
    EXPECT_EQ(server->synchronised(), 1u);

    indexes.give_back({0, 0});
    server->index_changed({0, 0});
    indexes.take({9, 9});
    server->index_changed({9, 9});
    EXPECT_EQ(server->synchronised(), 0u) << "it does not know that yet";
    serve();
    EXPECT_EQ(standby.indexes(), indexes.assigned());
    EXPECT_EQ(server->synchronised(), 1u);
}

TEST_F(GmpdBackup, AStandbyOfADaemonWithoutUsersIsSynchronisedToo)
{
    start_standby();
    serve();
    EXPECT_TRUE(standby.synchronised());
    EXPECT_TRUE(standby.has_heard());
    EXPECT_TRUE(standby.indexes().empty());
}

TEST_F(GmpdBackup, WhenTheActiveOneEndsItIsGoneAndWhatItSaidStays)
{
    take_many(5);
    start_standby();
    serve();
    server.reset();
    serve();
    EXPECT_TRUE(standby.active_is_gone());
    EXPECT_FALSE(standby.synchronised());
    EXPECT_EQ(standby.indexes(), indexes.assigned());
}

TEST_F(GmpdBackup, CutOffInTheMiddleAStandbyKnowsAPart)
{
    take_many(200000);
    start_standby();
    serve(5);
    EXPECT_FALSE(standby.synchronised());
    server.reset();
    serve(1000);
    EXPECT_TRUE(standby.active_is_gone());
    EXPECT_FALSE(standby.synchronised());
    EXPECT_GT(standby.indexes().size(), 0u);
    EXPECT_LT(standby.indexes().size(), indexes.assigned().size());
    for (const auto &[user, index] : standby.indexes()) {
        ASSERT_EQ(indexes.assigned().at(user), index);
    }
}

TEST_F(GmpdBackup, ASlowStandbyIsToldInTheEnd)
{
    take_many(200000);
    start_standby();
    serve(5);
    EXPECT_EQ(server->synchronised(), 0u);
    indexes.give_back({0, 0}); // told already
    server->index_changed({0, 0});
    indexes.give_back({2, 199997}); // not told yet
    server->index_changed({2, 199997});
    serve(4000);
    EXPECT_TRUE(standby.synchronised());
    EXPECT_EQ(standby.indexes(), indexes.assigned());
}

TEST_F(GmpdBackup, WithoutAnActiveOneItIsGoneAtOnceOrWhenPatienceHasRunOut)
{
    server.reset();
    start_standby();
    EXPECT_TRUE(standby.active_is_gone());
    EXPECT_FALSE(standby.has_heard());
    start_standby(2);
    pass(1);
    EXPECT_FALSE(standby.active_is_gone());
    pass(1);
    EXPECT_TRUE(standby.active_is_gone());
}

TEST_F(GmpdBackup, AnActiveOneThatComesMeanwhileIsFound)
{
    server.reset();
    start_standby(3);
    pass(1);
    start_active();
    pass(1);
    EXPECT_TRUE(standby.synchronised());
    server.reset();
    serve();
    EXPECT_TRUE(standby.active_is_gone()) << "patience was for the one that came";
}

TEST_F(GmpdBackup, WhoStoppedWatchingLooksNoMore)
{
    server.reset();
    start_standby(3);
    EXPECT_TRUE(standby.watching());
    standby.stop();
    EXPECT_FALSE(standby.watching());
    start_active();
    pass(5);
    EXPECT_FALSE(standby.has_heard());
    EXPECT_EQ(server->synchronised(), 0u);
}

TEST_F(GmpdBackup, WhoIsToldAnewForgetsWhatHeKnew)
{
    take_many(5);
    standby.remember({{{7, 7}, FIRST + 100}});
    EXPECT_TRUE(standby.has_heard());
    start_standby();
    EXPECT_EQ(standby.indexes().size(), 1u);
    serve();
    EXPECT_EQ(standby.indexes(), indexes.assigned());
}

TEST_F(GmpdBackup, StandbysBeyondTheMostAreTurnedAwayAndTryAgainLater)
{
    std::vector<mcastd::Descriptor> others;
    for (size_t i = 0; i < BackupServer::MOST_STANDBYS; ++i) {
        others.push_back(connection());
    }
    serve();
    start_standby();
    serve();
    EXPECT_FALSE(standby.synchronised());
    EXPECT_FALSE(standby.active_is_gone());
    others.pop_back();
    serve();
    pass(2);
    EXPECT_TRUE(standby.synchronised());
}

TEST_F(GmpdBackup, WhoSpeaksToTheActiveOneIsNoStandby)
{
    const mcastd::Descriptor stranger = connection();
    serve();
    EXPECT_EQ(server->synchronised(), 1u);
    EXPECT_EQ(send(stranger.get(), "x", 1, 0), 1);
    serve();
    EXPECT_EQ(server->synchronised(), 0u);
}

TEST_F(GmpdBackup, WhatIsNotUnderstoodEndsTheConnectionForASecond)
{
    server.reset();
    const mcastd::Descriptor listener(mcastd::listen_local(PORT));

    start_standby();
    const mcastd::Descriptor active(accept(listener.get(), nullptr, nullptr));

    EXPECT_EQ(send(active.get(), "garbage", 7, 0), 7);
    serve();
    EXPECT_FALSE(standby.active_is_gone());
    uint8_t byte;
    EXPECT_EQ(recv(active.get(), &byte, 1, MSG_DONTWAIT), 0) << "it hung up";
    EXPECT_LT(accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK), 0) << "not at once again";
    pass(2);
    const mcastd::Descriptor again(accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK));

    EXPECT_TRUE(again.valid());
}

TEST_F(GmpdBackup, ARoundHearsSoManyMessagesAndThenOthersHaveTheirTurn)
{
    server.reset();
    const mcastd::Descriptor listener(mcastd::listen_local(PORT));
    start_standby();
    const mcastd::Descriptor active(accept(listener.get(), nullptr, nullptr));
    const auto tell = [&active](const BackupMessage &message) {
        const Bytes bytes = encode(message);
        EXPECT_EQ(send(active.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    };
    tell({BackupKind::Begin, {}});
    for (uint32_t user = 0; user < 100; ++user) {
        tell({BackupKind::Users, {{{1, user}, FIRST + user}}});
    }
    reactor.run_once(0);
    EXPECT_EQ(standby.indexes().size(), 63u) << "64 messages, the first of them without users";
    reactor.run_once(0);
    EXPECT_EQ(standby.indexes().size(), 100u);
}

TEST_F(GmpdBackup, OnlyOneCanBeActive)
{
    BackupServer second(reactor, indexes);
    EXPECT_FALSE(second.open(PORT));
    server->close();
    EXPECT_TRUE(second.open(PORT));
}

} // namespace
