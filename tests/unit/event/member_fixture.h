/*
 * Member channels on scripted system calls: the fixture plays the kernel, keeps every datagram that is sent
 * and the calls that open and close, and finds leaks of memory and descriptors when it ends.
 */
#ifndef TESTS_UNIT_EVENT_MEMBER_FIXTURE_H
#define TESTS_UNIT_EVENT_MEMBER_FIXTURE_H

#include <bit>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "mcast/event.h"
#include "mcast/member_channel.h"
#include "support/fault.h"
#include "support/scripted_libc.h"

namespace member_test
{

using Bytes = std::vector<uint8_t>;

inline constexpr uint32_t kIpv4 = 2;
inline constexpr uint32_t kIpv6 = 10;
inline constexpr uint32_t kEpoll = 55;
inline constexpr uint64_t kContext = 0x1122334455667788;
inline constexpr uint8_t kModule = 9;

inline Bytes operator+(Bytes first, const Bytes &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline Bytes Number(uint64_t value, size_t size)
{
    const size_t skipped = std::endian::native == std::endian::big ? sizeof(value) - size : 0;
    Bytes bytes(size);
    memcpy(bytes.data(), reinterpret_cast<const uint8_t *>(&value) + skipped, size);
    return bytes;
}

/* One message: header and payload. */
inline Bytes Message(uint16_t type, const Bytes &payload)
{
    return Number(type, 2) + Number(payload.size(), 2) + payload;
}

/* A datagram of count messages. */
inline Bytes Datagram(uint8_t module, uint32_t count, const Bytes &messages)
{
    return Bytes{module, 0, 0, 0} + Number(count, 4) + Number(messages.size(), 4) + messages;
}

class MemberTest : public testing::Test
{
protected:
    static constexpr int kFirstSocket = 1000;

    MemberTest() : live(fault::LiveBlocks()), counted(g_stMbrLibStat)
    {
        scripted::socket = [this](int, int, int) {
            ++open;
            return next_socket++;
        };
        scripted::connect = [](auto...) { return 0; };
        scripted::setsockopt = [](auto...) { return 0; };
        scripted::epoll_ctl = [](auto...) { return 0; };
        scripted::close = [this](int) {
            --open;
            return 0;
        };
        scripted::send = [this](int socket, const void *data, size_t length, int flags) {
            return Take(socket, static_cast<const uint8_t *>(data), length, flags);
        };
    }

    ~MemberTest() override
    {
        fault::FailAllocation(0);
        MBR_LIB_Fini(kIpv4);
        MBR_LIB_Fini(kIpv6);
        scripted::Reset();
        EXPECT_EQ(open, 0) << "a socket is left open";
        EXPECT_EQ(fault::LiveBlocks(), live);
    }

    uint32_t Init(uint32_t family = kIpv4)
    {
        return MBR_LIB_Init(family, kModule, kEpoll, kContext);
    }

    /* A message of length bytes of one value, to the IPv4 channel. */
    MCAST_STATUS Say(uint8_t value, uint16_t length, uint16_t flush = 0, uint16_t type = 100)
    {
        return MBR_LIB_SendMsg(kIpv4, type, length, Bytes(length, value).data(), flush);
    }

    MCAST_STATUS Flush(uint32_t family = kIpv4)
    {
        return MBR_LIB_SendMsg(family, 0, 0, nullptr, 1);
    }

    long Blocks() const
    {
        return fault::LiveBlocks() - live;
    }

    uint32_t SendFailures() const
    {
        return g_stMbrLibStat.send_failures - counted.send_failures;
    }

    uint32_t Refused() const
    {
        return g_stMbrLibStat.refused - counted.refused;
    }

    std::vector<Bytes> sent;
    std::vector<int> sent_on;
    long takes = -1;             /* datagrams that the socket still takes; -1: any number */
    ssize_t refusal_result = -1; /* what send gives for the others, with EAGAIN */
    int next_socket = kFirstSocket;
    int open = 0;

private:
    ssize_t Take(int socket, const uint8_t *data, size_t length, int flags)
    {
        EXPECT_EQ(flags, MSG_DONTWAIT);
        if (takes == 0) {
            errno = EAGAIN;
            return refusal_result;
        }
        takes -= takes > 0 ? 1 : 0;
        sent.emplace_back(data, data + length);
        sent_on.push_back(socket);
        return static_cast<ssize_t>(length);
    }

    long live;
    MBR_LIB_STAT_S counted;
};

} // namespace member_test

#endif
