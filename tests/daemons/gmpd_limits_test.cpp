/*
 * How much hosts can make the daemon hold: limits of the process, of an interface and of a host, and the share that each
 * interface has whatever the others hold.
 */
#include <gtest/gtest.h>
#include <malloc.h>
#include <numeric>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

Config with_limits(uint32_t all, uint32_t interface, uint32_t host)
{
    Config config;
    config.max_entries = all;
    config.max_interface_entries = interface;
    config.max_host_entries = host;
    return config;
}

// A lab with a second interface that runs.
class LimitsLab
{
public:
    LimitsLab(uint32_t all, uint32_t interface, uint32_t host)
        : lab(MCAST_FAMILY_IPV4, with_limits(all, interface, host))
    {
        lab.process.interfaces[9] = std::make_unique<Interface>(lab.process, 9, "second");
        lab.start();
        interface_start(second(), lab.neighbour(101));
    }
    Interface &second()
    {
        return *lab.process.interfaces.at(9);
    }
    // Version 2 reports of so many groups from the host. The number of groups that the interface then has.
    uint32_t join(Interface &interface, unsigned host, unsigned count, unsigned first = 0)
    {
        for (unsigned number = first; number < first + count; ++number) {
            Message report;
            report.kind = MessageKind::Report;
            report.version = 2;
            report.sender = lab.neighbour(host);
            report.group = from_text("239.2.0.0");
            report.group.address[2] = static_cast<uint8_t>(number >> 8);
            report.group.address[3] = static_cast<uint8_t>(number);
            handle_message(interface, report);
        }
        return MRT_CountTable(interface.memberships.groups);
    }

    Lab lab;
};

} // namespace

TEST(GmpdLimits, AHostHasItsOwn)
{
    LimitsLab limits(1000, 500, 20);
    EXPECT_EQ(limits.join(*limits.lab.interface, 201, 30), 20u);
    EXPECT_EQ(limits.lab.interface->counters[Count::HostLimit], 10u);
    EXPECT_EQ(limits.join(*limits.lab.interface, 202, 15, 100), 35u) << "another host finds room";
    EXPECT_EQ(limits.join(*limits.lab.interface, 201, 20), 35u) << "what it has it may confirm";
    EXPECT_EQ(limits.lab.interface->counters[Count::HostLimit], 10u);
}

TEST(GmpdLimits, AnInterfaceHasItsOwn)
{
    LimitsLab limits(1000, 50, 40);
    limits.join(*limits.lab.interface, 201, 40);
    EXPECT_EQ(limits.join(*limits.lab.interface, 202, 40, 100), 50u);
    EXPECT_EQ(limits.lab.interface->counters[Count::InterfaceLimit], 30u);
    EXPECT_EQ(limits.join(limits.second(), 201, 40), 40u);
}

TEST(GmpdLimits, OneInterfaceCannotTakeTheShareOfTheOther)
{
    LimitsLab limits(100, 100, 100);
    EXPECT_EQ(limits.join(*limits.lab.interface, 201, 100), 75u) << "half is guaranteed, in two parts";
    EXPECT_EQ(limits.lab.interface->counters[Count::TotalLimit], 25u);
    EXPECT_EQ(limits.join(limits.second(), 201, 100), 25u);
    EXPECT_EQ(limits.lab.process.use.entries, 100u);
}

TEST(GmpdLimits, SourcesCountAsGroupsDo)
{
    LimitsLab limits(1000, 10, 1000);
    limits.lab.record(RecordType::Allow, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    EXPECT_EQ(limits.lab.interface->use.entries, 10u);
    EXPECT_EQ(limits.lab.interface->counters[Count::InterfaceLimit], 3u);
}

TEST(GmpdLimits, BytesHaveALimitToo)
{
    Config config;
    config.max_memory_mib = 1;
    Lab lab(MCAST_FAMILY_IPV4, config);
    lab.start();
    for (unsigned group = 1; group < 200; ++group) {
        lab.record(RecordType::Allow, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, group);
    }
    EXPECT_GT(lab.interface->counters[Count::TotalLimit], 0u);
    EXPECT_LE(lab.process.use.bytes, 1u << 20);
}

TEST(GmpdLimits, WhatEndsMakesRoom)
{
    LimitsLab limits(1000, 50, 50);
    limits.join(*limits.lab.interface, 201, 60);
    limits.lab.pass(261);
    EXPECT_EQ(limits.lab.process.use.entries, 0u);
    EXPECT_EQ(limits.lab.process.use.bytes, 0u);
    EXPECT_TRUE(limits.lab.interface->use.hosts.empty());
    EXPECT_EQ(limits.join(*limits.lab.interface, 201, 60, 100), 50u);
    interface_stop(*limits.lab.interface);
    EXPECT_EQ(limits.lab.process.use.entries, 0u);
    EXPECT_EQ(limits.join(limits.second(), 201, 60, 100), 50u);
    limits.lab.process.interfaces.erase(9);
    EXPECT_EQ(limits.lab.process.use.entries, 0u);
}

// What is in use for each of count entries that make() makes, without what the lab writes down meanwhile.
template <typename Make> static size_t bytes_for_each(Lab &lab, size_t count, const Make &make)
{
    lab.recorder.told();
    lab.recorder.queries();
    const size_t before = mallinfo2().uordblks;
    make();
    lab.recorder.told();
    lab.recorder.queries();
    return (mallinfo2().uordblks - before) / count;
}

TEST(GmpdLimits, AnEntryTakesNoMoreThanIsCountedForIt)
{
    constexpr unsigned COUNT = 4000;
    constexpr unsigned SOURCES = 200;
    LimitsLab limits(100000, 100000, 100000);
    const uint64_t &counted = limits.lab.process.use.bytes;
    const size_t group =
        bytes_for_each(limits.lab, COUNT, [&] { limits.join(*limits.lab.interface, 201, COUNT); });
    if (group == 0) {
        GTEST_SKIP() << "the sanitizer's allocator tells nothing";
    }
    RecordProperty("bytes_of_a_group", static_cast<int>(group));
    EXPECT_LE(group, counted / COUNT);
    EXPECT_GE(group, counted / COUNT / 3);
    const uint64_t before = counted;
    std::vector<unsigned> sources(SOURCES);
    std::iota(sources.begin(), sources.end(), 1);
    const size_t source =
        bytes_for_each(limits.lab, SOURCES, [&] { limits.lab.record(RecordType::Allow, sources, 77); });
    RecordProperty("bytes_of_a_source", static_cast<int>(source));
    EXPECT_LE(source, (counted - before) / SOURCES);
    EXPECT_GE(source, (counted - before) / SOURCES / 3);
}

TEST(GmpdLimits, ManyGroupsAndManySourcesAreWarnedOfOnce)
{
    Config config;
    config.max_groups = 20;
    config.max_sources = 20;
    Lab lab(MCAST_FAMILY_IPV4, config);
    lab.start();
    mcastd::log_open("gmpd", mcastd::LogLevel::Warning);
    testing::internal::CaptureStderr();
    for (unsigned number = 1; number <= 20; ++number) {
        lab.record(RecordType::Allow, {number});
        lab.record(RecordType::Allow, {1}, number);
    }
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "gmpd: warning: lab: group 239.1.1.1 has 18 sources, the limit is 20 (--max-sources); is that "
        "what the hosts want?\n"
        "gmpd: warning: lab: 18 groups, the limit is 20 (--max-groups); is that what the hosts want?\n");
    mcastd::log_open("daemon", mcastd::LogLevel::Info);
}

// In a process of its own, which is short of memory for good.
TEST(GmpdLimits, AnOlderHostForWhichThereIsNoMemoryIsCounted)
{
    const auto refused = [] {
        Lab lab(MCAST_FAMILY_IPV4);
        lab.start();
        lab.record(RecordType::IsExclude, {});
        if (!mcastd::memory_open() || !mcastd::memory_lend()) {
            _Exit(1);
        }
        lab.old_report(2);
        _Exit(lab.interface->counters[Count::NoMemory] == 1 ? 0 : 2);
    };
    EXPECT_EXIT(refused(), testing::ExitedWithCode(0), "");
}

TEST(GmpdLimits, AreTheDocumentedOnesUnlessTold)
{
    const Config config;
    EXPECT_EQ(config.max_groups, 65536u);
    EXPECT_EQ(config.max_sources, 1024u);
    EXPECT_EQ(config.max_entries, 262144u);
    EXPECT_EQ(config.max_interface_entries, 131072u);
    EXPECT_EQ(config.max_host_entries, 65536u);
    EXPECT_EQ(config.max_memory_mib, 256u);
    EXPECT_EQ(config.max_users, 65536u);
    EXPECT_EQ(config.max_agents, 64u);
    EXPECT_EQ(config.group_queries_per_s, 100u);
    EXPECT_EQ(config.most_querier_robustness, 7u);
    EXPECT_EQ(config.most_querier_response_s, 25u);
    EXPECT_EQ(config.most_querier_silence_s, 255u);
}
