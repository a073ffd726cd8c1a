#include "unit/mrib/records_fixture.h"

namespace mrib_test
{
namespace
{

using BoundaryRecords = Records;

TEST_F(BoundaryRecords, BoundaryBlocksGroupsWithinItsRangeOnly)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 1, 0xff, 0xff), 16), 0u) << "bits past the length do not count";

    EXPECT_EQ(Passes(Ipv4(239, 1, 0, 0)), 0u);
    EXPECT_EQ(Passes(Ipv4(239, 1, 255, 255)), 0u);
    EXPECT_EQ(Passes(Ipv4(239, 2, 0, 0)), 1u);
    EXPECT_EQ(Passes(Ipv4(239, 0, 255, 255)), 1u);
    EXPECT_EQ(calls, std::vector<std::string>{Told(2, 1, "boundary")});
}

TEST_F(BoundaryRecords, WiderRangeReplacesTheRangesInsideIt)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 1, 2, 0), 24), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 1, 3, 0), 24), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 2, 0, 0), 24), 0u);
    ASSERT_EQ(Ranges(), 3u);

    ASSERT_EQ(AddRange(Ipv4(239, 1, 0, 0), 16), 0u);

    EXPECT_EQ(Ranges(), 2u);
    EXPECT_EQ(Passes(Ipv4(239, 1, 9, 9)), 0u);
    EXPECT_EQ(Passes(Ipv4(239, 2, 0, 9)), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 1, 2, 0), 24), 0u);
    EXPECT_EQ(Ranges(), 3u) << "a narrower one is kept beside the wider";
}

TEST_F(BoundaryRecords, SameRangeAgainIsASuccess)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 1, 0, 0), 16), 0u);
    EXPECT_EQ(AddRange(Ipv4(239, 1, 0, 0), 16), 0u);
    EXPECT_EQ(Ranges(), 1u);
}

TEST_F(BoundaryRecords, SameRangeAgainRemovesTheRangesInsideIt)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 1, 0, 0), 16), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 1, 2, 0), 24), 0u);
    ASSERT_EQ(Ranges(), 2u);
    EXPECT_EQ(AddRange(Ipv4(239, 1, 0, 0), 16), 0u);
    EXPECT_EQ(Ranges(), 1u);
}

TEST_F(BoundaryRecords, RangeOfEveryLengthIsAccepted)
{
    Connect();
    for (unsigned length = 0; length <= 255; ++length) {
        ASSERT_EQ(AddRange(Ipv4(239, 1, 2, 3), static_cast<uint8_t>(length)), 0u);
        EXPECT_EQ(Passes(Ipv4(239, 1, 2, 3)), 0u) << length;
        ASSERT_EQ(Remove({.length = 0, .address = Ipv4(0, 0, 0, 0)}), 0u);
        EXPECT_EQ(PeekInterface(1, kIf), nullptr);
    }
}

TEST_F(BoundaryRecords, RemovingARangeRemovesAllWithinIt)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 1, 2, 0), 24), 0u);
    ASSERT_EQ(AddRange(Ipv4(239, 2, 2, 0), 24), 0u);
    ASSERT_EQ(AddRange(Ipv4(224, 2, 2, 0), 24), 0u);
    calls.clear();

    ASSERT_EQ(Remove({.length = 8, .address = Ipv4(239, 0, 0, 0)}), 0u);

    EXPECT_EQ(Ranges(), 1u);
    EXPECT_EQ(calls, std::vector<std::string>{Told(2, 0, "boundary")});
}

TEST_F(BoundaryRecords, RemoveAllTakesRangesAndScope)
{
    Connect(MCAST_FAMILY_IPV6);
    ASSERT_EQ(AddRange(Ipv6({0xff, 5}), 16), 0u);
    ASSERT_EQ(SetScope(5), 0u);

    ASSERT_EQ(Remove({.remove_all = 1}), 0u);

    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
}

TEST_F(BoundaryRecords, RemoveAllKeepsTheDesignatedRouter)
{
    Connect(MCAST_FAMILY_IPV6);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0u);
    ASSERT_EQ(SetScope(5), 0u);
    ASSERT_EQ(Remove({.remove_all = 1}), 0u);
    ASSERT_NE(PeekInterface(1, kIf), nullptr);
    EXPECT_EQ(PeekInterface(1, kIf)->scope, 0);
    EXPECT_EQ(IsDr(), 1u);
}

TEST_F(BoundaryRecords, RemovingFromAnUnknownInterfaceOnlyTellsTheClient)
{
    Connect();
    EXPECT_EQ(Remove({.remove_all = 1}), 0u);
    EXPECT_EQ(Remove({.length = 8, .address = Ipv4(239, 0, 0, 0)}), 0u);
    EXPECT_EQ(Remove({.scope_flag = 1}), 0u);
    EXPECT_EQ(calls.size(), 3u);
    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
}

TEST_F(BoundaryRecords, OperationOtherThanOneRemovesAndIsToldAsItCame)
{
    Connect();
    ASSERT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0u);
    calls.clear();
    ASSERT_EQ(Apply({.operation = 2, .length = 8, .address = Ipv4(239, 0, 0, 0)}), 0u);
    EXPECT_EQ(Ranges(), 0u);
    EXPECT_EQ(calls, std::vector<std::string>{Told(2, 2, "boundary")});
}

TEST_F(BoundaryRecords, ScopeTellsWhetherMoreIsBlockedThanBefore)
{
    Connect(MCAST_FAMILY_IPV6);
    ASSERT_EQ(SetScope(5), 0u);
    ASSERT_EQ(SetScope(8), 0u);
    ASSERT_EQ(SetScope(8), 0u);
    ASSERT_EQ(SetScope(4), 0u);
    EXPECT_EQ(calls, (std::vector<std::string>{Told(10, 1, "boundary"), Told(10, 1, "boundary"),
                                               Told(10, 1, "boundary"), Told(10, 0, "boundary")}));
    ASSERT_EQ(Remove({.scope_flag = 1}), 0u);
    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
}

TEST_F(BoundaryRecords, MeaninglessScopeLeavesNoRecordBehind)
{
    Connect(MCAST_FAMILY_IPV6);
    for (uint8_t scope : {uint8_t{0}, uint8_t{2}, uint8_t{16}, uint8_t{255}}) {
        EXPECT_EQ(SetScope(scope), 0u);
        EXPECT_EQ(PeekInterface(1, kIf), nullptr);
    }
}

TEST_F(BoundaryRecords, ScopeBlocksGroupsOfItsOwnAndSmallerScopes)
{
    struct Row {
        uint8_t boundary;
        uint8_t group;
        uint64_t passes;
    };
    const Row rows[] = {
        {5, 5, 0}, {4, 5, 1}, {15, 3, 0},  {3, 3, 0},   {5, 2, 1},   {15, 2, 1},
        {8, 5, 0}, {5, 8, 1}, {14, 15, 0}, {13, 15, 1}, {15, 15, 0}, {14, 14, 0},
    };

    Connect(MCAST_FAMILY_IPV6);
    for (const Row &row : rows) {
        ASSERT_EQ(SetScope(row.boundary), 0u);
        EXPECT_EQ(Passes(Ipv6({0xff, static_cast<uint8_t>(0x70 | row.group)})), row.passes)
            << int{row.boundary} << " " << int{row.group};
    }
}

TEST_F(BoundaryRecords, ScopeDoesNotBlockIpv4Groups)
{
    Connect();
    ASSERT_EQ(SetScope(15), 0u);
    EXPECT_EQ(Passes(Ipv4(239, 5, 5, 5)), 1u);
}

TEST_F(BoundaryRecords, Ipv6RangeBlocksByAllItsBits)
{
    Connect(MCAST_FAMILY_IPV6);
    ASSERT_EQ(AddRange(Ipv6({0xff, 0x0e, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}), 127), 0u);
    EXPECT_EQ(PeekInterface(1, kIf)->tree_index, 1);
    EXPECT_EQ(Passes(Ipv6({0xff, 0x0e, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15})), 0u);
    EXPECT_EQ(Passes(Ipv6({0xff, 0x0e, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16})), 1u);
}

TEST_F(BoundaryRecords, FailedBoundaryLeavesTheViewAsItWas)
{
    Connect();
    EXPECT_EQ(fault::ForEveryAllocation([&](unsigned long) {
                  uint64_t result = AddRange(Ipv4(239, 1, 0, 0), 16);

                  EXPECT_EQ(result, fault::Fired() ? 0x40010001u : 0u);
                  EXPECT_EQ(PeekInterface(1, kIf) == nullptr, fault::Fired());
              }),
              2u)
        << "interface record and range";
    calls.clear();
    platform::Fail(platform::Operation::kPrefixInsert, 1);
    EXPECT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0x40010001u);
    EXPECT_EQ(Ranges(), 1u) << "the range inside is still there";
    EXPECT_EQ(Passes(Ipv4(239, 1, 1, 1)), 0u);
    EXPECT_TRUE(calls.empty());
}

TEST_F(BoundaryRecords, FailedInsertDeletesAnInterfaceRecordItHasMade)
{
    Connect();
    platform::Fail(platform::Operation::kPrefixInsert, 1);
    EXPECT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0x40010001u);
    EXPECT_EQ(PeekInterface(1, kIf), nullptr);
    ASSERT_EQ(ReceiveRecord(MRIB_TLV_PIM_DR, PimDr(1, 1)), 0u);
    platform::Fail(platform::Operation::kPrefixInsert, 1);
    EXPECT_EQ(AddRange(Ipv4(239, 0, 0, 0), 8), 0x40010001u);
    EXPECT_EQ(IsDr(), 1u) << "the record was there before";
}

} // namespace
} // namespace mrib_test
