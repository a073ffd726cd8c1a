/*
 * The member channel beside a list of accepted messages, under random messages, flushes, registrations, ends
 * and starts, with a peer that takes some datagrams, and with memory that runs short. What the peer took is,
 * read back message by message, the accepted ones in order, and every datagram's header is right.
 */
#include "mcast/member_channel.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "mcast/mrib_wire.h"
#include "support/fault.h"
#include "support/property.h"
#include "support/scripted_libc.h"

namespace
{

struct Message {
    uint16_t type;
    std::string payload;

    bool operator==(const Message &) const = default;
};

class Daemon
{
public:
    Daemon(uint64_t seed, uint32_t chosen_family) : random(seed), family(chosen_family)
    {
        scripted::socket = [](auto...) { return 1000; };
        scripted::connect = [](auto...) { return 0; };
        scripted::setsockopt = [](auto...) { return 0; };
        scripted::epoll_ctl = [](auto...) { return 0; };
        scripted::close = [](auto...) { return 0; };
        scripted::send = [this](int, const void *data, size_t length, int) {
            return Take(std::string(static_cast<const char *>(data), length));
        };
    }

    ~Daemon()
    {
        fault::FailAllocation(0);
        MBR_LIB_Fini(family);
        scripted::Reset();
    }

    void Step()
    {
        DrawFortune();
        uint32_t kind = random.Below(200);

        if (kind == 0 && random.OneIn(30)) {
            MBR_LIB_Fini(family);
            is_open = false;
            mask = 0;
            waiting.clear();
        } else if (kind < 4) {
            Init();
        } else if (kind < 20) {
            Register(random.OneIn(2));
        } else if (kind < 50) {
            Send({static_cast<uint16_t>(random.Below(65536)), ""}, true);
        } else {
            Send(AnyMessage(), random.OneIn(5));
        }
        EXPECT_EQ(MBR_LIB_IsAlreadyReg(family), is_open ? 1u : 0u);
    }

private:
    /*
     * What happens to sends and allocations until the next step. A peer that stops reading does so for long
     * and is sent long messages, so that the queue reaches its end.
     */
    void DrawFortune()
    {
        if (random.OneIn(6000)) {
            peer_reads = !peer_reads;
        }
        takes = !peer_reads && !random.OneIn(500) ? 0 : random.OneIn(8) ? random.Below(6) : 2000;
        fault::FailAllocation(random.OneIn(20) ? 1 : 0);
    }

    ssize_t Take(const std::string &datagram)
    {
        if (takes == 0) {
            errno = EAGAIN;
            return random.OneIn(2) ? -1 : 0;
        }
        --takes;
        Read(datagram);
        return static_cast<ssize_t>(datagram.size());
    }

    void Read(const std::string &datagram)
    {
        MRIB_MSG_HEADER_S header;
        size_t next = sizeof(header);
        uint32_t count = 0;

        ASSERT_GT(datagram.size(), sizeof(header) + sizeof(MRIB_TLV_HEADER_S));
        ASSERT_LE(datagram.size(), 1400u);
        memcpy(&header, datagram.data(), sizeof(header));
        for (; next < datagram.size(); ++count) {
            MRIB_TLV_HEADER_S record;

            ASSERT_LE(next + sizeof(record), datagram.size());
            memcpy(&record, &datagram[next], sizeof(record));
            ASSERT_LE(next + sizeof(record) + record.length, datagram.size());
            ASSERT_FALSE(waiting.empty()) << "more than was accepted";
            ASSERT_EQ(waiting.front(),
                      (Message{record.type, datagram.substr(next + sizeof(record), record.length)}));
            waiting.pop_front();
            next += sizeof(record) + record.length;
        }
        ASSERT_EQ(header.component, module);
        ASSERT_EQ(header.reserved, 0);
        ASSERT_EQ(header.unused[0] + header.unused[1], 0);
        uint32_t stated_count = header.record_count;
        uint32_t stated_length = header.body_length;

        ASSERT_EQ(stated_count, count);
        ASSERT_EQ(stated_length, datagram.size() - sizeof(header));
    }

    void Init()
    {
        uint8_t drawn = static_cast<uint8_t>(random.Below(17));
        uint32_t socket = MBR_LIB_Init(family, drawn, 5, 1);
        if (!is_open && !fault::Fired()) {
            is_open = true;
            module = drawn;
        }
        EXPECT_EQ(socket, is_open ? 1000u : MCAST_NONE);
    }

    Message AnyMessage()
    {
        bool is_long = peer_reads ? random.OneIn(3) : !random.OneIn(3);
        uint32_t length = 1 + random.Below(is_long ? 1400 : 60);
        Message message = {static_cast<uint16_t>(random.Below(65536)), std::string(length, 0)};
        for (char &byte : message.payload) {
            byte = static_cast<char>(random.Below(256));
        }
        return message;
    }

    void Send(const Message &message, bool flush)
    {
        MBR_LIB_STAT_S before = g_stMbrLibStat;
        size_t length = message.payload.size();
        bool had_waiting = !waiting.empty();

        /* Listed first, as the call itself may bring it to the peer; taken back when it was refused. */
        if (is_open && length != 0 && length < 1384) {
            waiting.push_back(message);
        }
        MCAST_STATUS status = MBR_LIB_SendMsg(family, message.type, static_cast<uint16_t>(length),
                                              message.payload.data(), flush ? 1 : 0);

        if (!is_open) {
            EXPECT_EQ(status, 0x2001000eu);
            return;
        }
        EXPECT_EQ(g_stMbrLibStat.refused - before.refused, status == 0x4001000b ? 1u : 0u);
        if (status == 0x4001000b) {
            if (length < 1384) {
                EXPECT_TRUE(had_waiting && g_stMbrLibStat.send_failures > before.send_failures);
                ASSERT_FALSE(waiting.empty());
                ASSERT_EQ(waiting.back(), message);
                waiting.pop_back();
            }
            return;
        }
        EXPECT_LT(length, 1384u);
        EXPECT_EQ(status, flush && !waiting.empty() ? 0x40010009u : 0u);
        if (status != 0) {
            EXPECT_GT(g_stMbrLibStat.send_failures, before.send_failures);
        }
    }

    void Register(bool add)
    {
        uint64_t events = uint64_t{1} << random.Below(3);
        uint64_t wanted = add ? mask | events : mask & ~events;
        uint32_t refused = g_stMbrLibStat.refused;
        std::string payload = {static_cast<char>(family), static_cast<char>(module)};

        payload.append(reinterpret_cast<const char *>(&wanted), sizeof(wanted));
        if (is_open && wanted != mask) {
            waiting.push_back({static_cast<uint16_t>(add && mask == 0 ? 0 : 15), payload});
        }
        MCAST_STATUS status = add ? MBR_LIB_RegEvt(family, events) : MBR_LIB_DeRegEvt(family, events);

        if (!is_open || wanted == mask) {
            EXPECT_EQ(status, is_open ? 0u : 0x40010001u);
            return;
        }
        if (g_stMbrLibStat.refused != refused) {
            waiting.pop_back();
            EXPECT_EQ(status, 0x40010001u);
        } else {
            EXPECT_EQ(status, waiting.empty() ? 0u : 0x40010001u);
        }
        mask = status == 0 ? wanted : mask;
    }

    property::Random random;
    uint32_t family;
    bool is_open = false;
    uint8_t module = 0;
    uint64_t mask = 0;
    std::deque<Message> waiting; /* accepted and not yet with the peer */
    bool peer_reads = true;
    uint32_t takes = 0;
};

TEST(MemberChannelProperty, WhatReachesThePeerIsWhatWasAcceptedInOrder)
{
    uint64_t seed = property::Seed("member channel");
    uint64_t operations = property::Operations(200000);
    long live = fault::LiveBlocks();

    for (uint32_t family : {2u, 10u}) {
        Daemon daemon(seed + family, family);

        for (uint64_t operation = 0; operation < operations / 2; ++operation) {
            daemon.Step();
            if (testing::Test::HasFailure()) {
                FAIL() << "family " << family << ", operation " << operation;
            }
        }
    }
    EXPECT_EQ(fault::LiveBlocks(), live);
}

} // namespace
