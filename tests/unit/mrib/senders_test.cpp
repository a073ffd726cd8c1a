#include <cstring>
#include <functional>

#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

const MRIB_GMP_VRF_KEY_S kKey = {MCAST_FAMILY_IPV4, 0x0102};
const MRIB_MEMBER_SELECTOR_S kSelector = {0x11223344, 0x55};
const MRIB_SMOOTH_RECORD_S kSmooth = {{1, 2, 3, 4, 5}};
const uint8_t kBlock[16] = {0xe0, 0xe1, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7,
                            0xe8, 0xe9, 0xea, 0xeb, 0xec, 0xed, 0xee, 0xef};
constexpr uint32_t kIf = 0xa1a2a3a4;

MCAST_USRAUTH_INFO_S User()
{
    MCAST_USRAUTH_INFO_S user = {};
    user.access_if_index = 0x01020304;
    user.user_id = 0x05060708;
    user.attribute_32 = 0x090a;
    user.attribute_34 = 0x0b0c;
    user.attribute_36 = 0x0d0e0f10;
    user.hardware_address_first = 0x11121314;
    user.hardware_address_last = 0x1516;
    user.attribute_80 = 0x1718191a;
    user.attribute_84 = 0x1b1c1d1e;
    return user;
}

uint64_t SendSmoothRequire(uint16_t type) MCAST_NO_LOCK_ANALYSIS
{
    pthread_mutex_lock(&g_stMribConnectInfo.lock.posix);
    uint64_t result = MRIB_GMP_SendSmoothRequire(&g_stMribConnectInfo, type);

    pthread_mutex_unlock(&g_stMribConnectInfo.lock.posix);
    return result;
}

/* A sender, the record it makes, and when it sends. */
struct Row {
    const char *name;
    std::function<uint64_t(uint32_t send_now)> send;
    Bytes record;
    enum { kWhenAsked, kAlways, kNever } sending;
};

std::vector<Row> Rows()
{
    static const MCAST_ADDR_S group = Ipv4(239, 1, 2, 3);
    static const MCAST_ADDR_S source = Ipv4(10, 0, 0, 9);
    static const MCAST_USRAUTH_INFO_S user = User();
    const Bytes place = Host16(kKey.vrf_index) + Host32(kIf);
    return {
        {"gmp enable", [](uint32_t now) { return MRIB_GMP_SendGmpEnableAlert(&kKey, kIf, 0x1234, now); },
         Record(1, Bytes{0x34, 2} + place), Row::kWhenAsked},
        {"querier change",
         [](uint32_t now) { return MRIB_GMP_SendQuerierChangeAlert(&kKey, kIf, 0x2ff, now); },
         Record(2, Bytes{0xff, 2} + place), Row::kWhenAsked},
        {"join with source",
         [](uint32_t) { return MRIB_GMP_SendGmpJoinPrune(&kKey, kIf, &group, &source, 0x81, 0x82); },
         Record(3, Bytes{2} + place + Bytes{0x81, 0x82, 10, 0, 0, 9} + Zeros(12) + Bytes{239, 1, 2, 3} +
                       Zeros(12) + Zeros(26)),
         Row::kNever},
        {"join without source",
         [](uint32_t) { return MRIB_GMP_SendGmpJoinPrune(&kKey, kIf, &group, nullptr, 1, 0); },
         Record(3, Bytes{2} + place + Bytes{1, 0} + Zeros(16) + Bytes{239, 1, 2, 3} + Zeros(12) + Zeros(26)),
         Row::kNever},
        {"delete if member", [](uint32_t) { return MRIB_GMP_SendDeleteIfMember(&kKey, kIf, &kSelector); },
         Record(13, Bytes{2} + place + Host32(0x11223344) + Bytes{0x55}), Row::kAlways},
        {"host enable", [](uint32_t now) { return MRIB_GMP_SendHostEnableAlert(&kKey, kIf, 1, now); },
         Record(45, Bytes{2, 1} + place), Row::kWhenAsked},
        {"host enable 2 is 0", [](uint32_t now) { return MRIB_GMP_SendHostEnableAlert(&kKey, kIf, 2, now); },
         Record(45, Bytes{2, 0} + place), Row::kWhenAsked},
        {"proxy enable", [](uint32_t now) { return MRIB_GMP_SendProxyEnableAlert(&kKey, kIf, 1, now); },
         Record(39, Bytes{2, 1} + place), Row::kWhenAsked},
        {"proxy enable 255 is 0",
         [](uint32_t now) { return MRIB_GMP_SendProxyEnableAlert(&kKey, kIf, 255, now); },
         Record(39, Bytes{2, 0} + place), Row::kWhenAsked},
        {"proxy forwarding 2 stays 2",
         [](uint32_t now) { return MRIB_GMP_ProxyForwardingAlert(&kKey, kIf, 2, now); },
         Record(40, Bytes{2, 2} + place), Row::kWhenAsked},
        {"proxy multipath", [](uint32_t now) { return MRIB_GMP_SendProxyMultipathAlert(&kKey, 0x107, now); },
         Record(41, Bytes{2, 7} + Host16(kKey.vrf_index)), Row::kWhenAsked},
        {"user",
         [](uint32_t now) {
             return MRIB_GMP_SendMAuthUserInfo(&kKey, &user, kIf, kBlock, 0xb1, 0xb2,
                                               static_cast<uint16_t>(now));
         },
         Record(42, Bytes{0xb2, 2} + place + Host32(0x01020304) + Host32(0x05060708) + Host32(0x0d0e0f10) +
                        Bytes(kBlock, kBlock + 16) + Host16(0x090a) + Host16(0x0b0c) + Bytes{0xb1} +
                        Host32(0x11121314) + Host16(0x1516) + Host32(0x1718191a) + Host32(0x1b1c1d1e)),
         Row::kWhenAsked},
        {"smooth alert", [](uint32_t) { return MRIB_GMP_SendSmoothAlert(10, 0x1234, &kSmooth); },
         Record(0x1234, {10, 1, 2, 3, 4, 5}), Row::kAlways},
        {"smooth request", [](uint32_t) { return SendSmoothRequire(MRIB_TLV_REQ_PIM_DR); },
         Record(5, {2, 0, 0, 0, 0, 0}), Row::kAlways},
    };
}

using Senders = ChannelTest;

TEST_F(Senders, EachWritesItsRecordByteForByte)
{
    Connect();
    for (const Row &row : Rows()) {
        SCOPED_TRACE(row.name);
        sent.clear();
        DirtyOutBuffer();
        EXPECT_EQ(row.send(1), 0u);
        EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(sent[0], SentMessage(1, static_cast<uint32_t>(row.record.size()), row.record));
    }
}

TEST_F(Senders, EachSendsExactlyWhenItShould)
{
    Connect();
    for (const Row &row : Rows()) {
        for (uint32_t now : {0u, 1u, 2u, 0x10001u, 0x10000u, 0xffff0001u}) {
            SCOPED_TRACE(std::string(row.name) + ", send-now " + std::to_string(now));
            bool asked = (now & 0xffff) == 1;

            sent.clear();
            EXPECT_EQ(row.send(now), 0u);
            EXPECT_EQ(sent.size(), row.sending == Row::kAlways || (row.sending == Row::kWhenAsked && asked));
            MRIB_GMP_SendAtOnce();
        }
    }
}

TEST_F(Senders, EachFailsAndBuffersNothingWhileNotConnected)
{
    ASSERT_EQ(Init(), 0u);
    for (const Row &row : Rows()) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.send(1), 0x40010001u);
        EXPECT_EQ(Peek().used, 12u);
    }
    EXPECT_TRUE(sent.empty());
}

TEST_F(Senders, EachFailsWhenNothingCanBeQueued)
{
    Connect(MCAST_FAMILY_IPV4, 1, 12 + 71);
    for (const Row &row : Rows()) {
        SCOPED_TRACE(row.name);
        ASSERT_NE(GetOutBuffer(71), nullptr);
        send_result = -1;
        fault::FailAllocation(1);
        EXPECT_EQ(row.send(0), 0x40010001u);
        fault::FailAllocation(0);
        EXPECT_EQ(Peek().failed, 1);
        send_result = 1;
        MRIB_GMP_SendAtOnce();
    }
}

TEST_F(Senders, FailedSendIsReportedAndTheRecordStaysBatched)
{
    Connect();
    for (const Row &row : Rows()) {
        SCOPED_TRACE(row.name);
        sent.clear();
        send_result = -1;
        EXPECT_EQ(row.send(1), row.sending == Row::kNever ? 0u : 0x40010001u);
        send_result = 1;
        EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);
        EXPECT_EQ(sent.size(), 1u);
    }
}

TEST_F(Senders, ThreeJoinsAndAFlushMakeOneDatagram)
{
    const MCAST_ADDR_S group = Ipv6({0xff, 0x05, 1});
    const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV6, 1};

    Connect(MCAST_FAMILY_IPV6);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(MRIB_GMP_SendGmpJoinPrune(&key, 3, &group, nullptr, 1, 0), 0u);
    }
    EXPECT_TRUE(sent.empty());

    EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);

    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].size(), 225u);
    EXPECT_EQ(Bytes(sent[0].begin() + 4, sent[0].begin() + 12), Host32(3) + Host32(213));
}

TEST_F(Senders, Ipv6JoinCarriesAllSixteenBytes)
{
    const MCAST_ADDR_S group = Ipv6({0xff, 0x05, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34});
    const MCAST_ADDR_S source = Ipv6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7});
    const MRIB_GMP_VRF_KEY_S key = {MCAST_FAMILY_IPV6, 0};

    Connect(MCAST_FAMILY_IPV6);
    ASSERT_EQ(MRIB_GMP_SendGmpJoinPrune(&key, 1, &group, &source, 1, 0), 0u);
    ASSERT_EQ(MRIB_GMP_SendAtOnce(), 0u);

    EXPECT_EQ(sent.at(0), SentMessage(1, 71,
                                      Record(3, Bytes{10} + Host16(0) + Host32(1) + Bytes{1, 0} +
                                                    Bytes(source.address, source.address + 16) +
                                                    Bytes(group.address, group.address + 16) + Zeros(26))));
}

TEST_F(Senders, ReservedBytesAreZeroInAReusedBuffer)
{
    const MCAST_ADDR_S group = Ipv4(239, 1, 1, 1);

    Connect();
    void *record = GetOutBuffer(71);

    memset(record, 0xff, 71);
    ASSERT_EQ(MRIB_GMP_SendAtOnce(), 0u);
    ASSERT_EQ(MRIB_GMP_SendGmpJoinPrune(&kKey, 1, &group, nullptr, 0, 0), 0u);
    ASSERT_EQ(MRIB_GMP_SendAtOnce(), 0u);

    EXPECT_EQ(Bytes(sent.at(1).end() - 26, sent.at(1).end()), Zeros(26));
}

} // namespace
} // namespace mrib_test
