#include "unit/mrib/msdp_fixture.h"

namespace mrib_test
{
namespace
{

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

/* Has the local-source record say that so many bytes of data follow. */
void Say(Bytes *record, uint32_t length)
{
    memcpy(record->data() + 20, &length, sizeof(length));
}

TEST_F(Msdp, MalformedLocalSourcesAreIgnored)
{
    Connect();
    Bytes other_family = LocalSource(1, kRp1, kGroup1, 1);
    Bytes other_vrf = other_family;
    Bytes lying = LocalSource(1, kRp1, kGroup1, 1, {1, 2, 3});
    Bytes valid = other_family;

    other_family[2] = 10;
    other_vrf[4] = other_vrf[5] = 2;
    Say(&lying, 4);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, other_family), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, other_vrf), 0u);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, lying), 0u);
    Say(&lying, 0xffffffff);
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, lying), 0u);
    valid.pop_back();
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_LOCAL_SRC, valid), 0u) << "23 bytes";
    EXPECT_EQ(Count(0), 0u);
    EXPECT_TRUE(calls.empty());
    Say(&lying, 2);
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

TEST_F(Msdp, DisabledInstanceAndDelDataLoseTheirSources)
{
    Connect();
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_VRF_STATE, VrfState(1, 0)), 0u);
    EXPECT_EQ(Count(0), 0u);
    ASSERT_EQ(Add(kRp1, kGroup1, 1), 0u);
    EXPECT_EQ(MRIB_GMP_DelData(), 0u);
    EXPECT_EQ(Count(0), 0u);
}

TEST_F(Msdp, RequestForRemoteSourcesReachesTheClientAndReturnsItsResult)
{
    const Bytes value = Bytes{0, 0, 2, 0} + Host16(1) + Bytes{0, 0, 239, 1, 1, 1};
    Bytes other_family = value;
    Bytes other_vrf = value;
    remote_source_result = 99;
    Connect();
    EXPECT_EQ(ReceiveRecord(MRIB_TLV_MSDP_REQ_REMOTE_SRC, value), 99u);
    EXPECT_EQ(calls, std::vector<std::string>{"remote source request 2 1 " + std::to_string(kGroup1)});
    other_family[2] = 10;
    other_vrf[4] = other_vrf[5] = 2;
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

} // namespace
} // namespace mrib_test
