#include "unit/mrib/msdp_fixture.h"

namespace mrib_test
{
namespace
{

TEST_F(Msdp, SendersWriteTheirRecordsByteForByte)
{
    const Bytes data = {9, 8, 7};
    struct Row {
        std::function<uint64_t()> send;
        Bytes record;
    };
    const Row rows[] = {
        {[] { return MRIB_MSDP_SendRequestSAEnable(0xf0102, 3); },
         Record(22, Bytes{2, 0} + Host16(0x0102) + Bytes{3, 0, 0, 0})},
        {[] { return MRIB_MSDP_SendEncapDataEnable(0x0102, 1); },
         Record(21, Bytes{2, 0} + Host16(0x0102) + Bytes{1, 0, 0, 0})},
        {[&] { return MRIB_MSDP_SendRemoteOneSG(0x0102, 1, kGroup1, kRp1, 6, data.data(), 3); },
         Record(20, Bytes{2, 0} + Host16(0x0102) + Bytes{1, 6} + Host16(3) +
                        Bytes{239, 1, 1, 1, 10, 0, 0, 1, 9, 8, 7})},
        {[] { return MRIB_MSDP_SendRemoteOneSG(1, 1, kGroup1, kRp1, 6, nullptr, 2); },
         Record(20,
                Bytes{2, 0} + Host16(1) + Bytes{1, 6} + Host16(2) + Bytes{239, 1, 1, 1, 10, 0, 0, 1, 0, 0})},
        {[] { return MRIB_MSDP_SendDelOneGrpRemoteSG(1, kGroup1); },
         Record(20, Bytes{2, 0} + Host16(1) + Bytes{0, 0, 0, 0, 239, 1, 1, 1, 0, 0, 0, 0})},
        {[] { return MRIB_MSDP_SendDelAllRemoteSG(1); }, Record(20, Bytes{2, 0} + Host16(1) + Zeros(12))},
        {MRIB_MSDP_SendSmoothRemoteSGBegin, Record(24, {2, 0, 0, 0, 0, 0})},
        {MRIB_MSDP_SendSmoothRemoteSGEnd, Record(25, {2, 0, 0, 0, 0, 0})},
        {MRIB_MSDP_SendSmoothRequestEnableBegin, Record(26, {2, 0, 0, 0, 0, 0})},
        {MRIB_MSDP_SendSmoothRequestEnableEnd, Record(27, {2, 0, 0, 0, 0, 0})},
        {MRIB_MSDP_SendSmoothEncapDataBegin, Record(28, {2, 0, 0, 0, 0, 0})},
        {MRIB_MSDP_SendSmoothEncapDataEnd, Record(29, {2, 0, 0, 0, 0, 0})},
        {MRIB_MSDP_SendSmoothLocalSrcRequest, Record(23, {2, 0, 0, 0, 0, 0})},
    };

    Connect();
    for (const Row &row : rows) {
        SCOPED_TRACE(row.record[0] + row.record[1]);
        sent.clear();
        EXPECT_EQ(row.send(), 0u);
        ASSERT_EQ(sent.size(), 1u) << "sent at once";
        EXPECT_EQ(Bytes(sent[0].begin() + 12, sent[0].end()), row.record);
        send_result = -1;
        EXPECT_EQ(row.send(), 0x40010001u);
        send_result = 1;
        EXPECT_EQ(MRIB_GMP_SendAtOnce(), 0u);
    }
    MRIB_GMP_CloseConnection();
    for (const Row &row : rows) {
        EXPECT_EQ(row.send(), 0x40010001u);
    }
}

TEST_F(Msdp, RemoteSourceThatFitsNoMessageFails)
{
    const Bytes data(65535);
    Connect(MCAST_FAMILY_IPV4, 2, 1400);
    EXPECT_EQ(MRIB_MSDP_SendRemoteOneSG(1, 1, kGroup1, kRp1, 0, data.data(), 1400 - 12 - 20 + 1),
              0x40010001u);
    EXPECT_EQ(MRIB_MSDP_SendRemoteOneSG(1, 1, kGroup1, kRp1, 0, data.data(), 1400 - 12 - 20), 0u);
    Connect(MCAST_FAMILY_IPV4, 2, 200000);
    sent.clear();
    EXPECT_EQ(MRIB_MSDP_SendRemoteOneSG(1, 1, kGroup1, kRp1, 0, data.data(), 65535 - 15), 0x40010001u)
        << "a value holds 65535 bytes";
    EXPECT_EQ(MRIB_MSDP_SendRemoteOneSG(1, 1, kGroup1, kRp1, 0, data.data(), 65535 - 16), 0u);
    EXPECT_EQ(sent.size(), 1u);
}

TEST_F(Msdp, ListOfRemoteSourcesSendsOneRecordEach)
{
    const MRIB_MSDP_SG_S pairs[] = {{kGroup1, kRp1}, {kGroup2, kRp2}};
    const uint16_t entries[] = {0x0105, 0x0207};
    Connect();
    EXPECT_EQ(MRIB_MSDP_SendRemoteSG(1, 1, pairs, entries, 2, nullptr, 0), 0u);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0][21], 5) << "the low byte";
    EXPECT_EQ(sent[1][21], 7);
    EXPECT_EQ(Bytes(sent[1].begin() + 24, sent[1].end()), (Bytes{239, 1, 1, 2, 10, 0, 0, 2}));
    sent.clear();
    EXPECT_EQ(MRIB_MSDP_SendRemoteSG(1, 1, nullptr, nullptr, 0, nullptr, 0), 0u);
    EXPECT_TRUE(sent.empty());
    send_result = -1;
    EXPECT_EQ(MRIB_MSDP_SendRemoteSG(1, 1, pairs, entries, 2, nullptr, 0), 0x40010001u);
}

TEST_F(Msdp, RequestWithoutTheCapabilityDoesNothing)
{
    callbacks.msdp_local_source = nullptr;
    Connect();
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    EXPECT_EQ(MRIB_MSDP_SendSmoothLocalSrcRequest(), 0u);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 0u);
    EXPECT_EQ(EndReplay(), 0u);
    EXPECT_EQ(Count(kRp1), 1u) << "nothing was marked";
}

TEST_F(Msdp, RequestThatIsNotSentMarksNothing)
{
    Connect();
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    send_result = -1;
    EXPECT_EQ(MRIB_MSDP_SendSmoothLocalSrcRequest(), 0x40010001u);
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 0u);
    EXPECT_EQ(EndReplay(), 0u);
    EXPECT_EQ(Count(kRp1), 1u);
}

TEST_F(Msdp, SmoothStartAsksForLocalSourcesToo)
{
    Connect();
    EXPECT_EQ(Receive(Message(1, Record(MRIB_TLV_SMOOTH_START, {}) + Zeros(4))), 0u);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(Bytes(sent[2].begin() + 12, sent[2].begin() + 14), Host16(23));
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 7u);
}

} // namespace
} // namespace mrib_test
