#include <cstring>
#include <functional>
#include <set>

#include "mcast/msdp.h"
#include "platform/acl.h"
#include "support/scripted_acl.h"
#include "unit/mrib/channel_fixture.h"

namespace mrib_test
{
namespace
{

/* Addresses in network order as they stand in memory on a little-endian machine. */
constexpr uint32_t Be(uint32_t a, uint32_t b, uint32_t c, uint32_t d)
{
    return a | b << 8 | c << 16 | d << 24;
}

Bytes BytesOf(uint32_t address_be)
{
    Bytes bytes(4);

    memcpy(bytes.data(), &address_be, 4);
    return bytes;
}

const uint32_t kRp1 = Be(10, 0, 0, 1);
const uint32_t kRp2 = Be(10, 0, 0, 2);
const uint32_t kGroup1 = Be(239, 1, 1, 1);
const uint32_t kGroup2 = Be(239, 1, 1, 2);

using Pair = std::pair<uint32_t, uint32_t>;

class Msdp : public ChannelTest
{
protected:
    ~Msdp() override
    {
        scripted::ResetAcl();
    }

    /* The value of a local-source record. */
    static Bytes LocalSource(uint8_t operation, uint32_t rp, uint32_t group, uint32_t source,
                             const Bytes &data = {})
    {
        return Bytes{0xff, 0xff, 2, operation, 1, 0, 0xff, 0xff} + BytesOf(source) + BytesOf(group) +
               BytesOf(rp) + BytesOf(static_cast<uint32_t>(data.size())) + data;
    }

    uint64_t Add(uint32_t rp, uint32_t group, uint32_t source)
    {
        return ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, LocalSource(1, rp, group, source));
    }

    uint64_t Remove(uint32_t rp, uint32_t group, uint32_t source)
    {
        return ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, LocalSource(0, rp, group, source));
    }

    uint64_t EndReplay()
    {
        return Receive(Message(1, Record(MRIB_TLV_MSDP_LOCAL_SRC_END, {}) + Zeros(4)));
    }

    static uint32_t Count(uint32_t rp)
    {
        uint32_t count = 777;

        return MRIB_MSDP_GetSGCntOfOneRP(1, rp, &count) == 0 ? count : 0;
    }

    static MRIB_MSDP_FILTER_S Everything(uint32_t limit = 255)
    {
        return {1, MCAST_NONE, limit, 0};
    }

    /* Permits by list number: the function gets the first and second address in host order. */
    static void Permit(std::function<bool(uint32_t list, uint32_t first, uint32_t second)> permits)
    {
        scripted::acl_group_type = [](uint32_t, uint32_t list) {
            return list < 3000 ? ACL_GROUP_SINGLE_IPV4 : 2u;
        };
        scripted::acl_rule_count = [](uint32_t, uint32_t) { return 1u; };
        scripted::acl_match = [permits](uint32_t, uint32_t list, const void *info, uint32_t, uint32_t *,
                                        uint32_t *action) {
            const auto *packet = static_cast<const ACL_PACKET_INFO4_S *>(info);

            EXPECT_EQ(packet->vrf_index, 1);
            *action = permits(list, packet->first, packet->second) ? ACL_ACTION_PERMIT : ACL_ACTION_DENY;
            return 0u;
        };
    }

    /* Walks all RPs; every pair that comes, in order. */
    std::vector<Pair> ReadAll(const MRIB_MSDP_FILTER_S &filter, std::vector<uint64_t> *batches = nullptr)
    {
        MRIB_MSDP_CURSOR_S cursor = {};
        MRIB_MSDP_BATCH_S batch;
        std::vector<Pair> pairs;

        do {
            MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch);
            for (uint64_t i = 0; i < batch.count; ++i) {
                pairs.emplace_back(batch.pairs[i].group_be, batch.pairs[i].source_be);
            }
            if (batches != nullptr) {
                batches->push_back(batch.count);
            }
        } while (cursor.rp_be != 0);
        return pairs;
    }
};

TEST_F(Msdp, SendersWriteTheirRecordsByteForByte)
{
    const Bytes data = {9, 8, 7};
    struct Row {
        std::function<uint64_t()> send;
        Bytes record;
    };
    const Row rows[] = {
        {[] { return MRIB_MSDP_SendRequestSAEnable(0xf0102, 3); }, {22, 0, 8, 0, 2, 0, 2, 1, 3, 0, 0, 0}},
        {[] { return MRIB_MSDP_SendEncapDataEnable(0x0102, 1); }, {21, 0, 8, 0, 2, 0, 2, 1, 1, 0, 0, 0}},
        {[&] { return MRIB_MSDP_SendRemoteOneSG(0x0102, 1, kGroup1, kRp1, 6, data.data(), 3); },
         {20, 0, 19, 0, 2, 0, 2, 1, 1, 6, 3, 0, 239, 1, 1, 1, 10, 0, 0, 1, 9, 8, 7}},
        {[] { return MRIB_MSDP_SendRemoteOneSG(1, 1, kGroup1, kRp1, 6, nullptr, 2); },
         {20, 0, 18, 0, 2, 0, 1, 0, 1, 6, 2, 0, 239, 1, 1, 1, 10, 0, 0, 1, 0, 0}},
        {[] { return MRIB_MSDP_SendDelOneGrpRemoteSG(1, kGroup1); },
         {20, 0, 16, 0, 2, 0, 1, 0, 0, 0, 0, 0, 239, 1, 1, 1, 0, 0, 0, 0}},
        {[] { return MRIB_MSDP_SendDelAllRemoteSG(1); },
         {20, 0, 16, 0, 2, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {MRIB_MSDP_SendSmoothRemoteSGBegin, {24, 0, 6, 0, 2, 0, 0, 0, 0, 0}},
        {MRIB_MSDP_SendSmoothRemoteSGEnd, {25, 0, 6, 0, 2, 0, 0, 0, 0, 0}},
        {MRIB_MSDP_SendSmoothRequestEnableBegin, {26, 0, 6, 0, 2, 0, 0, 0, 0, 0}},
        {MRIB_MSDP_SendSmoothRequestEnableEnd, {27, 0, 6, 0, 2, 0, 0, 0, 0, 0}},
        {MRIB_MSDP_SendSmoothEncapDataBegin, {28, 0, 6, 0, 2, 0, 0, 0, 0, 0}},
        {MRIB_MSDP_SendSmoothEncapDataEnd, {29, 0, 6, 0, 2, 0, 0, 0, 0, 0}},
        {MRIB_MSDP_SendSmoothLocalSrcRequest, {23, 0, 6, 0, 2, 0, 0, 0, 0, 0}},
    };

    Connect();
    for (const Row &row : rows) {
        SCOPED_TRACE(int{row.record[0]});
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

TEST_F(Msdp, AddedSourceIsKeptAndTold)
{
    Connect();

    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, LocalSource(1, kRp1, kGroup1, Be(192, 0, 2, 1), {5, 6})),
              0u);
    EXPECT_EQ(Add(kRp1, kGroup1, Be(192, 0, 2, 2)), 0u);

    EXPECT_EQ(Count(kRp1), 2u);
    EXPECT_EQ(Count(0), 2u) << "0 is the first RP";
    EXPECT_EQ(Count(kRp2), 0u);
    auto told = [](uint32_t source, const char *data) {
        return "local source 2 1 " + std::to_string(kRp1) + " " + std::to_string(kGroup1) + " " +
               std::to_string(source) + data;
    };

    EXPECT_EQ(calls,
              (std::vector<std::string>{told(Be(192, 0, 2, 1), " 2 6"), told(Be(192, 0, 2, 2), " 0 -1")}));
}

TEST_F(Msdp, KnownSourceAddedAgainIsCountedOnce)
{
    Connect();
    EXPECT_EQ(Add(kRp1, kGroup1, 1), 0u);
    EXPECT_EQ(Add(kRp1, kGroup1, 1), 0u);
    EXPECT_EQ(Count(kRp1), 1u);
    EXPECT_EQ(calls.size(), 2u) << "told each time";
}

TEST_F(Msdp, RemovalTakesThePairFromTheFirstRpThatHasItAndIsNotTold)
{
    Connect();
    ASSERT_EQ(Add(kRp2, kGroup1, 1), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    ASSERT_EQ(Add(kRp1, kGroup2, 1), 0u);
    calls.clear();

    EXPECT_EQ(Remove(kRp2, kGroup1, 1), 0u) << "the RP named does not matter";

    EXPECT_EQ(Count(kRp1), 1u);
    EXPECT_EQ(Count(kRp2), 1u);
    EXPECT_EQ(Remove(0, kGroup1, 1), 0u);
    EXPECT_EQ(Count(kRp2), 0u);
    EXPECT_EQ(Remove(0, kGroup1, 1), 0u) << "nothing has it";
    EXPECT_TRUE(calls.empty());
}

TEST_F(Msdp, LastSourceTakesItsRpAlong)
{
    uint32_t count = 5;

    Connect();
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    ASSERT_EQ(Remove(kRp1, kGroup1, 1), 0u);
    EXPECT_EQ(MRIB_MSDP_GetSGCntOfOneRP(1, kRp1, &count), 0x40010001u);
    EXPECT_EQ(MRIB_MSDP_GetSGCntOfOneRP(1, 0, &count), 0x40010001u);
    EXPECT_EQ(MRIB_MSDP_GetSGCntOfOneRP(9, 0, &count), 0x40010001u);
    EXPECT_EQ(count, 5u);
}

TEST_F(Msdp, MalformedLocalSourcesAreIgnored)
{
    Connect();
    Bytes other_family = LocalSource(1, kRp1, kGroup1, 1);
    Bytes other_vrf = other_family;
    Bytes lying = LocalSource(1, kRp1, kGroup1, 1, {1, 2, 3});
    Bytes valid = other_family;

    other_family[2] = 10;
    other_vrf[4] = 2;
    lying[20] = 4;
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, other_family), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, other_vrf), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, lying), 0u);
    lying[20] = lying[21] = lying[22] = lying[23] = 0xff;
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, lying), 0u);
    valid.pop_back();
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, valid), 0u) << "23 bytes";
    EXPECT_EQ(Count(0), 0u);
    EXPECT_TRUE(calls.empty());
    lying[20] = 2;
    lying[21] = lying[22] = lying[23] = 0;
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, lying), 0u) << "bytes behind the data do not matter";
    EXPECT_EQ(calls.size(), 1u);
}

TEST_F(Msdp, EveryFailedCreationLeavesNoEmptyNode)
{
    Connect();
    unsigned long needed = fault::ForEveryAllocation([&](unsigned long) {
        calls.clear();
        uint64_t result = Add(kRp1, kGroup1, 1);

        EXPECT_EQ(result, fault::Fired() ? 0x40010001u : 0u);
        EXPECT_EQ(Count(kRp1), fault::Fired() ? 0u : 1u);
        EXPECT_EQ(calls.size(), fault::Fired() ? 0u : 1u);
    });

    EXPECT_EQ(needed, 3u) << "RP, group and source";
}

TEST_F(Msdp, EveryRefusalOfTheTreesLeavesNoEmptyNode)
{
    const std::pair<platform::Operation, unsigned long> refusals[] = {
        {platform::Operation::kTreeInit, 2},   /* groups of the RP, sources of the group */
        {platform::Operation::kTreeInsert, 3}, /* RP, group, source */
    };

    Connect();
    const long trees = platform::LiveTrees();

    for (const auto &[operation, count] : refusals) {
        for (unsigned long nth = 1; nth <= count; ++nth) {
            platform::Fail(operation, nth);
            EXPECT_EQ(Add(kRp1, kGroup1, 1), 0x40010001u);
            EXPECT_EQ(Count(kRp1), 0u);
            EXPECT_EQ(platform::LiveTrees(), trees);
        }
    }
    EXPECT_EQ(Add(kRp1, kGroup1, 1), 0u);
}

TEST_F(Msdp, FailedAdditionBesideOthersTakesBackOnlyItsOwnLevels)
{
    Connect();
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    fault::FailAllocation(2); /* group, then source */
    EXPECT_EQ(Add(kRp1, kGroup2, 1), 0x40010001u);
    fault::FailAllocation(1);
    EXPECT_EQ(Add(kRp1, kGroup1, 2), 0x40010001u);
    fault::FailAllocation(0);
    EXPECT_EQ(ReadAll(Everything()), (std::vector<Pair>{{kGroup1, 1}}));
}

TEST_F(Msdp, ReplayKeepsWhatIsToldAgainAndDropsTheRest)
{
    Connect();
    for (uint32_t rp : {kRp1, kRp2}) {
        for (uint32_t group : {kGroup1, kGroup2}) {
            for (uint32_t source : {Be(1, 0, 0, 0), Be(2, 0, 0, 0)}) {
                ASSERT_EQ(Add(rp, group, source), 0u);
            }
        }
    }
    ASSERT_EQ(MRIB_MSDP_SendSmoothLocalSrcRequest(), 0u);
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 4u);
    ASSERT_EQ(Add(kRp1, kGroup2, Be(2, 0, 0, 0)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup2, Be(3, 0, 0, 0)), 0u);
    calls.clear();

    EXPECT_EQ(EndReplay(), 0u);

    EXPECT_EQ(ReadAll(Everything()),
              (std::vector<Pair>{{kGroup2, Be(2, 0, 0, 0)}, {kGroup2, Be(3, 0, 0, 0)}}));
    EXPECT_EQ(calls, std::vector<std::string>{"smooth finished"});
    EXPECT_EQ(EndReplay(), 0u) << "nothing is stale any more";
    EXPECT_EQ(Count(kRp1), 2u);
}

TEST_F(Msdp, SourceRemovedDuringAReplayLeavesNoEmptyNodes)
{
    Connect();
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, 2), 0u);
    ASSERT_EQ(MRIB_MSDP_SendSmoothLocalSrcRequest(), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    ASSERT_EQ(Remove(kRp1, kGroup1, 1), 0u);
    EXPECT_EQ(EndReplay(), 0u);
    EXPECT_EQ(Count(kRp1), 0u);
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
    EXPECT_EQ(sent[2][12], 23);
    EXPECT_EQ(g_ulMribGmpSmoothEndFlag, 7u);
}

TEST_F(Msdp, DisabledInstanceAndDelDataLoseTheirSources)
{
    Connect();
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, {0, 0, 0, 1, 0, 0}), 0u);
    EXPECT_EQ(Count(0), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    EXPECT_EQ(MRIB_GMP_DelData(), 0u);
    EXPECT_EQ(Count(0), 0u);
}

TEST_F(Msdp, RequestForRemoteSourcesReachesTheClientAndReturnsItsResult)
{
    const Bytes value = {0, 0, 2, 0, 1, 0, 0, 0, 239, 1, 1, 1};
    Bytes other_family = value;
    Bytes other_vrf = value;

    remote_source_result = 99;
    Connect();
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_REQ_REMOTE_SRC, value), 99u);
    EXPECT_EQ(calls, std::vector<std::string>{"remote source request 2 1 " + std::to_string(kGroup1)});
    other_family[2] = 10;
    other_vrf[4] = 2;
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_REQ_REMOTE_SRC, other_family), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_REQ_REMOTE_SRC, other_vrf), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_REQ_REMOTE_SRC, Bytes(value.begin(), value.end() - 1)), 0u);
    EXPECT_EQ(calls.size(), 1u);
    g_stMRIBComponent.callbacks.msdp_remote_source_request = nullptr;
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_REQ_REMOTE_SRC, value), 0u);
}

TEST_F(Msdp, EncapsulatedDataIsHandedOverWhole)
{
    const Bytes value = {0, 0, 2, 0, 5, 6, 7};
    Bytes other_family = value;

    Connect();
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_ENCAP_REPORT, value), 0u);
    EXPECT_EQ(calls, std::vector<std::string>{"encap report 7 7"});
    other_family[2] = 3;
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_ENCAP_REPORT, other_family), 0u);
    EXPECT_EQ(MRIB_MSDP_ProcEncapdataReportTlv(3, value.data()), 0u);
    EXPECT_EQ(calls.size(), 1u);
}

TEST_F(Msdp, HandlersTakeNoValueWhenThereIsNone)
{
    Connect();
    EXPECT_EQ(MRIB_MSDP_ProcLocalSrcChgTlv(0, nullptr), 0u);
    EXPECT_EQ(MRIB_MSDP_ProcPimRequestRemoteSourceTlv(0, nullptr), 0u);
    EXPECT_EQ(MRIB_MSDP_ProcEncapdataReportTlv(0, nullptr), 0u);
    EXPECT_EQ(MRIB_MSDP_ProcLocalSrcSmoothEndTlv(0, nullptr), 0u);
}

TEST_F(Msdp, SsmRangeWithoutAnAclIs232)
{
    Connect();
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(1, Be(232, 1, 1, 1)), 1u);
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(1, Be(233, 0, 0, 1)), 0u);
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(99, Be(232, 1, 1, 1)), 1u) << "no such instance, no ACL";
}

TEST_F(Msdp, SsmRangeWithAnAclIsWhatItPermits)
{
    Connect();
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_SSM_POLICY, {0, 0, 0, 1, 0, 0xd0, 0x07, 0, 0}), 0u);
    Permit([](uint32_t list, uint32_t first, uint32_t) { return list == 2000 && first >> 8 == 0xef0101; });
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(1, kGroup1), 1u);
    EXPECT_EQ(MRIB_MSDP_IsSSMGroup(1, Be(232, 1, 1, 1)), 0u);
}

TEST_F(Msdp, ReadingComesInOrderOfRpGroupAndSource)
{
    MRIB_MSDP_CURSOR_S cursor = {};
    MRIB_MSDP_BATCH_S batch;
    const MRIB_MSDP_FILTER_S filter = Everything();

    Connect();
    ASSERT_EQ(Add(kRp2, kGroup1, Be(1, 0, 0, 1)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup2, Be(2, 0, 0, 1)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, Be(10, 0, 0, 2)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, Be(9, 0, 0, 3)), 0u);

    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    EXPECT_EQ(batch.rp_be, kRp1);
    ASSERT_EQ(batch.count, 3u);
    EXPECT_EQ(batch.pairs[0].source_be, Be(9, 0, 0, 3));
    EXPECT_EQ(batch.pairs[1].source_be, Be(10, 0, 0, 2));
    EXPECT_EQ(batch.pairs[2].group_be, kGroup2);
    EXPECT_EQ(cursor.rp_be, kRp2);
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    EXPECT_EQ(batch.rp_be, kRp2);
    EXPECT_EQ(batch.count, 1u);
    EXPECT_EQ(cursor.rp_be, 0u) << "the walk is over";
}

TEST_F(Msdp, FullBatchGoesOnWithoutLossOrRepetition)
{
    Connect();
    for (uint32_t i = 0; i < 30; ++i) {
        ASSERT_EQ(Add(i % 2 == 0 ? kRp1 : kRp2, Be(239, 0, 0, i % 5), Be(10, 0, i, 1)), 0u);
    }
    for (uint32_t limit : {1u, 2u, 3u, 7u, 15u, 16u, 255u, 1000u}) {
        std::vector<uint64_t> batches;
        std::vector<Pair> pairs = ReadAll(Everything(limit), &batches);

        EXPECT_EQ(pairs.size(), 30u) << limit;
        EXPECT_EQ(std::set<Pair>(pairs.begin(), pairs.end()).size(), 30u) << limit;
        for (uint64_t count : batches) {
            EXPECT_LE(count, limit);
        }
    }
}

TEST_F(Msdp, LimitAboveTheBatchIsTheBatch)
{
    Connect();
    for (uint32_t i = 0; i < 300; ++i) {
        ASSERT_EQ(Add(kRp1, kGroup1, Be(10, 0, i / 256, i % 256)), 0u);
    }
    std::vector<uint64_t> batches;

    EXPECT_EQ(ReadAll(Everything(0xffffffff), &batches).size(), 300u);
    EXPECT_EQ(batches, (std::vector<uint64_t>{255, 45}));
}

TEST_F(Msdp, ResumedWalkVisitsAgainThePairAtWhichItStopped)
{
    MRIB_MSDP_CURSOR_S cursor = {};
    MRIB_MSDP_BATCH_S batch;
    const MRIB_MSDP_FILTER_S filter = Everything(2);

    Connect();
    for (uint32_t source = 1; source <= 3; ++source) {
        ASSERT_EQ(Add(kRp1, kGroup1, Be(10, 0, 0, source)), 0u);
    }
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0x60010022u);
    EXPECT_EQ(batch.count, 2u);
    EXPECT_EQ(cursor.rp_be, kRp1);
    EXPECT_EQ(cursor.group_be, kGroup1);
    EXPECT_EQ(cursor.source_be, Be(10, 0, 0, 3));
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    ASSERT_EQ(batch.count, 1u);
    EXPECT_EQ(batch.pairs[0].source_be, Be(10, 0, 0, 3));
}

TEST_F(Msdp, FullBatchStopsAlsoAtAGroupThatWouldBeLeftOut)
{
    MRIB_MSDP_CURSOR_S cursor = {};
    MRIB_MSDP_BATCH_S batch;
    const MRIB_MSDP_FILTER_S filter = Everything(1);

    Connect();
    ASSERT_EQ(Add(kRp1, Be(231, 1, 1, 1), 1), 0u);
    ASSERT_EQ(Add(kRp1, Be(232, 1, 1, 1), 1), 0u);
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0x60010022u);
    EXPECT_EQ(cursor.group_be, Be(232, 1, 1, 1));
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    EXPECT_EQ(batch.count, 0u);
}

TEST_F(Msdp, GroupFilterReadsThatGroupAloneAlsoInPieces)
{
    Connect();
    for (uint32_t rp : {kRp1, kRp2}) {
        for (uint32_t i = 0; i < 5; ++i) {
            ASSERT_EQ(Add(rp, kGroup1, Be(10, 0, i, rp >> 24)), 0u);
            ASSERT_EQ(Add(rp, kGroup2, Be(10, 0, i, rp >> 24)), 0u);
        }
    }
    for (uint32_t limit : {1u, 2u, 5u, 255u}) {
        for (uint32_t group : {kGroup1, kGroup2}) {
            MRIB_MSDP_FILTER_S filter = Everything(limit);

            filter.group_be = group;
            std::vector<Pair> pairs = ReadAll(filter);

            EXPECT_EQ(pairs.size(), 10u) << limit;
            for (const Pair &pair : pairs) {
                EXPECT_EQ(pair.first, group);
            }
        }
    }
}

TEST_F(Msdp, SsmGroupsAndWhatTheAclDeniesAreLeftOut)
{
    Connect();
    ASSERT_EQ(Add(kRp1, Be(232, 1, 1, 1), Be(10, 0, 0, 1)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, Be(10, 0, 0, 1)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, Be(10, 0, 0, 2)), 0u);
    ASSERT_EQ(Add(kRp1, kGroup2, Be(10, 0, 0, 2)), 0u);
    EXPECT_EQ(ReadAll(Everything()).size(), 3u);
    Permit([](uint32_t list, uint32_t source, uint32_t group) {
        return list == 3001 && source == 0x0a000002 && group == 0xef010101;
    });
    MRIB_MSDP_FILTER_S filter = Everything();

    filter.acl_number = 3001;
    EXPECT_EQ(ReadAll(filter), (std::vector<Pair>{{kGroup1, Be(10, 0, 0, 2)}}));
}

TEST_F(Msdp, CursorWhoseRpIsGoneGoesOnWithTheNextRpFromItsStart)
{
    MRIB_MSDP_CURSOR_S cursor = {kRp1, kGroup2, Be(99, 0, 0, 0)};
    MRIB_MSDP_BATCH_S batch;
    const MRIB_MSDP_FILTER_S filter = Everything();

    Connect();
    ASSERT_EQ(Add(kRp2, kGroup1, 1), 0u);
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    EXPECT_EQ(batch.rp_be, kRp2);
    EXPECT_EQ(batch.count, 1u);
    cursor = {Be(10, 0, 0, 9), kGroup2, 1};
    EXPECT_EQ(MRIB_MSDP_GetLocalSrc(1, &filter, &cursor, &batch), 0u);
    EXPECT_EQ(batch.count, 0u);
    EXPECT_EQ(cursor.rp_be, 0u);
    EXPECT_EQ(cursor.group_be, 0u);
}

TEST_F(Msdp, EmptyTableAndUnknownInstanceEndTheWalkAtOnce)
{
    MRIB_MSDP_FILTER_S filter = Everything();

    filter.group_be = kGroup1;
    Connect();
    for (uint32_t vrf_index : {1u, 2u, 77u}) {
        MRIB_MSDP_CURSOR_S cursor = {kRp1, 1, 1};
        MRIB_MSDP_BATCH_S batch;

        batch.count = 9;
        EXPECT_EQ(MRIB_MSDP_GetLocalSrc(vrf_index, &filter, &cursor, &batch), 0u);
        EXPECT_EQ(batch.count, 0u);
        EXPECT_EQ(cursor.rp_be, 0u);
        EXPECT_EQ(cursor.group_be, kGroup1);
        EXPECT_EQ(cursor.source_be, 0u);
    }
}

} // namespace
} // namespace mrib_test
