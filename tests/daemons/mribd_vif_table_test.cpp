#include <gtest/gtest.h>
#include <numeric>

#include "daemons/mribd_support.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

std::vector<uint32_t> range(uint32_t first, uint32_t count)
{
    std::vector<uint32_t> result(count);
    std::iota(result.begin(), result.end(), first);
    return result;
}

class VifTableTest : public testing::Test
{
protected:
    bool refresh(const std::vector<uint32_t> &wanted)
    {
        return table.refresh(wanted, [this](uint32_t bits) { vacated |= bits; });
    }

    RecordingKernel kernel;
    TableEnvironment environment;
    VifTable table{instance_key(MCAST_FAMILY_IPV4), kernel, environment};
    uint32_t vacated = 0;
};

TEST_F(VifTableTest, GivesFreesAndReusesNumbers)
{
    EXPECT_TRUE(refresh({5, 6, 7}));
    EXPECT_EQ(table.count(), 3u);
    EXPECT_FALSE(refresh({7, 6, 5}));
    const int given = table.find(6);
    ASSERT_GE(given, 0);
    EXPECT_TRUE(refresh({5, 7}));
    EXPECT_EQ(vacated, 1u << given);
    EXPECT_EQ(table.find(6), -1);
    EXPECT_TRUE(refresh({5, 7, 8}));
    EXPECT_EQ(table.find(8), given);
    EXPECT_EQ(kernel.vifs.at(static_cast<unsigned>(given)), 8u);
}

TEST_F(VifTableTest, ServesTheFirst32AndCountsTheRest)
{
    EXPECT_TRUE(refresh(range(1, 40)));
    EXPECT_EQ(table.count(), MAX_VIFS);
    EXPECT_EQ(table.find(32), 31);
    EXPECT_EQ(table.find(33), -1);
    EXPECT_EQ(table.refused(), 8u);
    EXPECT_EQ(table.refusals(), 8u);
    refresh(range(1, 40));
    EXPECT_EQ(table.refusals(), 8u);
    refresh(range(2, 32));
    EXPECT_EQ(table.refused(), 0u);
    EXPECT_GE(table.find(33), 0);
}

TEST_F(VifTableTest, InterfaceTheKernelRefusesIsTriedAgainWithTheNextRefresh)
{
    kernel.refused_interfaces = {5};
    refresh({5, 6});
    EXPECT_EQ(table.find(5), -1);
    EXPECT_GE(table.find(6), 0);
    EXPECT_EQ(table.failures(), 1u);
    kernel.refused_interfaces.clear();
    EXPECT_TRUE(refresh({5, 6}));
    EXPECT_GE(table.find(5), 0);
}

TEST_F(VifTableTest, ForgettingAnUnknownInterfaceDoesNothing)
{
    refresh({5});
    EXPECT_FALSE(table.forget(6, [](uint32_t) { FAIL(); }));
    EXPECT_FALSE(table.forget(0, [](uint32_t) { FAIL(); }));
    EXPECT_EQ(table.find(0), -1);
    EXPECT_EQ(table.if_index(40), 0u);
}

// Who gets one of the 32 when more want one.
TEST(VifDemand, NoVirtualInterfaceWithoutNeedAndAllOnceSomebodyListens)
{
    Bench bench;
    bench.settle();
    EXPECT_EQ(bench.router.vifs().count(), 0u);
    bench.router.set_enabled(1, 2, true);
    bench.settle();
    EXPECT_EQ(bench.router.vifs().count(), 1u);
    EXPECT_GE(bench.router.vifs().find(2), 0);
    bench.join(1, 3, "239.1.1.1");
    EXPECT_EQ(bench.router.vifs().count(), 4u);
    bench.prune(1, 3, "239.1.1.1");
    EXPECT_EQ(bench.router.vifs().count(), 1u);
    bench.router.drop_client(1);
    bench.settle();
    EXPECT_EQ(bench.router.vifs().count(), 0u);
}

TEST(VifDemand, KnownSourceKeepsItsInterfaceWhenReceiversExceedTheLimit)
{
    Bench bench;
    bench.environment.routes["10.0.0.5"] = {60, false};
    bench.environment.interfaces = {1, 60};
    bench.join(1, 1, "239.1.1.1");
    bench.packet(60, "10.0.0.5", "239.1.1.1");
    for (const uint32_t if_index : range(1, 59)) {
        bench.environment.interfaces.insert(if_index);
        bench.join(1, if_index, "239.1.1.1");
    }
    EXPECT_EQ(bench.takes_from("10.0.0.5", "239.1.1.1"), 60u);
    EXPECT_EQ(bench.forwards("10.0.0.5", "239.1.1.1").size(), 31u);
    EXPECT_EQ(bench.router.vifs().refused(), 28u);
    EXPECT_EQ(bench.kernel.dangling, 0);
    bench.prune(1, 3, "239.1.1.1"); // goes on with a place kept for sources
    EXPECT_EQ(bench.forwards("10.0.0.5", "239.1.1.1").size(), 30u);
    EXPECT_GE(bench.router.vifs().find(3), 0);
}

TEST(VifDemand, ReceiversNeverTakeTheLastPlaces)
{
    Bench bench;
    for (const uint32_t if_index : range(1, 60)) {
        bench.environment.interfaces.insert(if_index);
    }
    for (const uint32_t if_index : range(1, 50)) {
        bench.join(1, if_index, "239.1.1.1");
    }
    unsigned receiving = 0;
    for (const auto &[vif, if_index] : bench.kernel.vifs) {
        receiving += if_index <= 50 ? 1 : 0;
    }
    EXPECT_EQ(bench.router.vifs().count(), MAX_VIFS);
    EXPECT_EQ(receiving, MAX_VIFS - 2);
}

TEST(VifDemand, AmongEqualsTheFirstVirtualInterfaceKeepsItsPlaceToo)
{
    Bench bench;
    bench.environment.interfaces.clear();
    for (const uint32_t if_index : range(2, MAX_VIFS + 1)) {
        bench.environment.interfaces.insert(if_index);
        bench.router.set_enabled(1, if_index, true);
    }
    bench.settle();
    ASSERT_EQ(bench.router.vifs().find(2), 0);
    bench.environment.interfaces.insert(1);
    bench.router.set_enabled(1, 1, true);
    bench.settle();
    EXPECT_EQ(bench.router.vifs().find(1), -1);
    EXPECT_EQ(bench.router.vifs().find(2), 0);
}

} // namespace
