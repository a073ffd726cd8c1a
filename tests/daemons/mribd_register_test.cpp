/*
 * The register interface in the running kernel, and the numbers that those of several instances have.
 */
#include <gtest/gtest.h>

#include "daemons/common/pim_records.h"
#include "daemons/mribd/host_environment.h"
#include "daemons/mribd_kernel_support.h"

using namespace mribd;
using namespace mribd_test;
using mcastd::PIM_REGISTER_INTERFACE;

namespace
{

class RegisterTest : public testing::TestWithParam<Family>
{
protected:
    bool is_v4() const
    {
        return family.family == MCAST_FAMILY_IPV4;
    }
    std::string device(const std::string &table) const
    {
        return (is_v4() ? "pimreg" : "pim6reg") + table;
    }
    static bool exists(const std::string &name)
    {
        return if_nametoindex(name.c_str()) != 0;
    }
    bool is_led(const std::string &name, const std::string &table) const
    {
        const std::string list = is_v4() ? "ip mrule list" : "ip -6 mrule list";
        return system((list + " | grep -q 'iif " + name + " lookup " + table + "'").c_str()) == 0;
    }

    const Family family = GetParam();
    TableRules rules{GetParam().family};
};

TEST_P(RegisterTest, ComesWithItsDeviceAndItsRuleAndGoesWithThem)
{
    IN_FRESH_NAMESPACE([this] {
        std::string reason;
        KernelMroute common(rules);
        KernelMroute red(rules, 5);
        ASSERT_EQ(common.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        ASSERT_EQ(red.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        EXPECT_EQ(common.add_vif(31, PIM_REGISTER_INTERFACE), 0);
        EXPECT_NE(common.add_vif(30, PIM_REGISTER_INTERFACE), 0);
        EXPECT_EQ(red.add_vif(7, PIM_REGISTER_INTERFACE), 0);
        EXPECT_TRUE(exists(device("")) && exists(device("5")));
        EXPECT_TRUE(is_led(device("5"), "5"));
        EXPECT_EQ(red.delete_vif(7), 0);
        EXPECT_FALSE(is_led(device("5"), "5"));
        EXPECT_EQ(red.add_vif(8, PIM_REGISTER_INTERFACE), 0);
        red.shut();
        EXPECT_FALSE(is_led(device("5"), "5"));
        EXPECT_TRUE(exists(device("")));
    });
}

TEST_P(RegisterTest, WholePacketsAreKeptFromTheRoutingSocketAndWrongInterfacesAreNot)
{
    IN_FRESH_NAMESPACE([this] {
        make_link("in");
        make_link("other");
        std::string reason;
        KernelMroute kernel(rules);
        ASSERT_EQ(kernel.open(&reason), KernelMroute::OpenResult::Ready) << reason;
        ASSERT_EQ(kernel.add_vif(0, if_nametoindex("in")), 0);
        ASSERT_EQ(kernel.add_vif(1, if_nametoindex("other")), 0);
        ASSERT_EQ(kernel.add_vif(9, PIM_REGISTER_INTERFACE), 0);
        const MCAST_ADDR_S source = address(family.source);
        const MCAST_ADDR_S group = address(family.group);
        ASSERT_TRUE(put_until_told(kernel, "in_wire", family));
        served(kernel);
        ASSERT_EQ(kernel.set_entry(source, group, 0, 1u << 9), 0);
        for (int tries = 0; tries < 1000 && kernel.counters(source, group)->packets < 20; ++tries) {
            put_on_wire("in_wire", family);
        }
        pollfd waiting{kernel.descriptor(), POLLIN, 0};
        EXPECT_EQ(poll(&waiting, 1, 0), 0);
        ASSERT_TRUE(put_until_told(kernel, "other_wire", family)) << "it is no output";
        kernel.receive(64);
        const auto upcalls = served(kernel);
        ASSERT_EQ(upcalls.size(), 1u);
        EXPECT_EQ(upcalls[0].kind, UpcallKind::WrongInterface);
        EXPECT_EQ(upcalls[0].vif, 1u);
        EXPECT_GE(kernel.counters(source, group)->packets, 20u);
        EXPECT_EQ(kernel.lost_upcalls(), 0u);
        // Without PIM those of an output are reported still.
        ASSERT_EQ(kernel.set_entry(source, group, 0, 1u << 1), 0);
        ASSERT_EQ(kernel.delete_vif(9), 0);
        ASSERT_EQ(kernel.delete_entry(source, group), 0);
        ASSERT_EQ(kernel.set_entry(source, group, 0, 1u << 1), 0);
        EXPECT_TRUE(put_until_told(kernel, "other_wire", family));
    });
}

INSTANTIATE_TEST_SUITE_P(Families, RegisterTest,
                         testing::Values(Family{MCAST_FAMILY_IPV4, "10.9.1.2", "239.5.5.5"},
                                         Family{MCAST_FAMILY_IPV6, "2001:db8:9::1:2", "ff1e::5"}),
                         [](const auto &family) { return std::string(family_name(family.param.family)); });

// Written by this thread, because /proc/sys/net shows the writer's namespace.
void set_rp_filter(const char *of, char value)
{
    FILE *file = fopen((std::string("/proc/sys/net/ipv4/conf/") + of + "/rp_filter").c_str(), "w");
    ASSERT_NE(file, nullptr);
    fputc(value, file);
    fclose(file);
}

TEST(RegisterObstacle, ReversePathFilterIsNamed)
{
    IN_FRESH_NAMESPACE([] {
        const HostEnvironment environment;
        const auto obstacle = [&environment](uint8_t family) {
            return environment.obstacle(family, PIM_REGISTER_INTERFACE);
        };
        set_rp_filter("all", '0');
        set_rp_filter("default", '0');
        EXPECT_EQ(obstacle(MCAST_FAMILY_IPV4), "");
        set_rp_filter("default", '2');
        EXPECT_EQ(obstacle(MCAST_FAMILY_IPV4).substr(0, 36), "net/ipv4/conf/default/rp_filter is 2");
        set_rp_filter("all", '1');
        EXPECT_EQ(obstacle(MCAST_FAMILY_IPV4).substr(0, 32), "net/ipv4/conf/all/rp_filter is 1");
        EXPECT_EQ(obstacle(MCAST_FAMILY_IPV6), "");
    });
}

// The wanted interfaces of two instances, over one kernel each.
TEST(RegisterNumber, IsUniqueOverTheInstancesOfAFamily)
{
    mcastd::log_open("mribd", mcastd::LogLevel::Error);
    TableEnvironment environment;
    RecordingKernel kernels[3];
    RegisterNumbers numbers;
    std::vector<std::unique_ptr<VifTable>> tables;
    const auto vacated = [](uint32_t) {};
    for (uint16_t i = 0; i < 3; ++i) {
        tables.push_back(std::make_unique<VifTable>(instance_key(MCAST_FAMILY_IPV6, i), kernels[i],
                                                    environment, &numbers));
        EXPECT_TRUE(tables[i]->refresh({PIM_REGISTER_INTERFACE, 1, 2}, vacated));
    }
    EXPECT_EQ(tables[0]->find(PIM_REGISTER_INTERFACE), 31);
    EXPECT_EQ(tables[1]->find(PIM_REGISTER_INTERFACE), 30);
    EXPECT_EQ(tables[2]->find(PIM_REGISTER_INTERFACE), 29);
    tables[0]->refresh({1, 2}, vacated);
    EXPECT_EQ(tables[0]->find(PIM_REGISTER_INTERFACE), -1);
    tables[1].reset();
    EXPECT_TRUE(tables[0]->refresh({PIM_REGISTER_INTERFACE, 1, 2}, vacated));
    EXPECT_EQ(tables[0]->find(PIM_REGISTER_INTERFACE), 31);
    EXPECT_EQ(numbers.taken, 1u << 31 | 1u << 29);
}

TEST(RegisterNumber, TakesThatOfALinkWhichGetsAnother)
{
    mcastd::log_open("mribd", mcastd::LogLevel::Error);
    TableEnvironment environment;
    RecordingKernel kernel;
    RegisterNumbers numbers{~(1u << 3)}; // others have all but one
    VifTable table(instance_key(MCAST_FAMILY_IPV6), kernel, environment, &numbers);
    uint32_t vacated = 0;
    const auto vacate = [&vacated](uint32_t bits) { vacated |= bits; };
    table.refresh({11, 12, 13, 14, 15}, vacate);
    ASSERT_EQ(table.if_index(3), 14u);
    EXPECT_TRUE(table.refresh({PIM_REGISTER_INTERFACE, 11, 12, 13, 14, 15}, vacate));
    EXPECT_EQ(vacated, 1u << 3);
    EXPECT_EQ(table.find(PIM_REGISTER_INTERFACE), 3);
    EXPECT_EQ(table.find(14), 5);
    EXPECT_EQ(kernel.vifs.at(3), PIM_REGISTER_INTERFACE);

    RegisterNumbers none{~0u};
    VifTable other(instance_key(MCAST_FAMILY_IPV6, 1), kernel, environment, &none);
    other.refresh({PIM_REGISTER_INTERFACE}, vacate);
    EXPECT_EQ(other.find(PIM_REGISTER_INTERFACE), -1);
    EXPECT_TRUE(other.is_incomplete());
}

} // namespace
