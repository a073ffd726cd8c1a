/*
 * MSDP's sources where PIM runs: those that PIM registered are announced, those of other domains are told to it.
 */
#include <gtest/gtest.h>
#include <set>

#include "daemons/mribd_pim_support.h"

using namespace mribd;
using namespace mribd_test;
using namespace mcastd;

namespace
{

using Lines = std::vector<std::string>;

class PimMsdpTest : public PimBench
{
protected:
    PimMsdpTest()
    {
        clients.configure("[[mribd.instance]]\nvrf = 0\nrp = '10.255.0.1'\n");
        member.emplace(7, clients.backend, counters);
        take(*member, Message().add_register(family, PIM_EVENT_REMOTE));
        clients.msdp.on_local_source([this](const MsdpExchange::LocalSource &change) {
            const std::string rp = text_or_star(make_address(MCAST_FAMILY_IPV4, &change.rp_be));
            lines.push_back((change.present ? "local " : "no local ") + text_or_star(change.source) + " of " +
                            rp);
        });
        clients.msdp.on_remote_source(
            [this](const MsdpExchange::RemoteSource &change) { member->tell_remote_source(change); });
    }
    ~PimMsdpTest() override
    {
        clients.msdp.on_local_source(nullptr);
        clients.msdp.on_remote_source(nullptr);
    }

    void registered(const std::string &of, bool present, const std::string &rp = "10.255.0.9")
    {
        PimRegistered value{};
        value.family = family;
        value.present = present ? 1 : 0;
        put(value.rp, rp);
        put(value.source, of);
        put(value.group, group);
        take(*pim, Message().add(PIM_TLV_REGISTERED, value));
    }
    void remote(Session &session, const std::string &of, bool present)
    {
        MRIB_MSDP_REMOTE_SG_S value{};
        value.family = family;
        value.operation = present ? 1 : 0;
        std::memcpy(&value.source_be, address(of).address, 4);
        std::memcpy(&value.group_be, address(group).address, 4);
        take(session, Message().add(MRIB_TLV_MSDP_REMOTE_SG, value));
    }
    Lines told()
    {
        clients.msdp.follow_pim();
        return std::exchange(lines, {});
    }
    // What the member is told of remote sources: the sources, those that are gone with a minus; 68 is "end".
    Lines remote_told()
    {
        Lines result;
        for (const Record &record : take_all(member->queue())) {
            const auto *value = pim_value<PimRemote>(
                {record.type, static_cast<uint16_t>(record.value.size()), record.value.data()});
            const bool is_remote = record.type == PIM_TLV_REMOTE && value != nullptr;
            result.push_back(!is_remote ? "end"
                                        : (value->present ? "" : "-") +
                                              text_or_star(make_address(family, value->source)));
        }
        return result;
    }

    Lines lines;
    std::optional<Session> member;
};

TEST_P(PimMsdpTest, RegisteredSourcesTakeThePlaceOfThoseOnLinks)
{
    bench.environment.on_link.insert({1, source});
    bench.packet(1, source, group);
    EXPECT_EQ(told(), Lines{"local 10.0.0.5 of 10.255.0.1"});
    interfaces(PIM_RUNS);
    EXPECT_EQ(told(), Lines{"no local 10.0.0.5 of 10.255.0.1"});
    registered(other_source, true);
    EXPECT_EQ(told(), Lines{"local 10.0.0.6 of 10.255.0.9"});
    registered(other_source, true);
    EXPECT_EQ(told(), Lines{});
    registered(other_source, true, "10.255.0.8");
    EXPECT_EQ(told(), (Lines{"no local 10.0.0.6 of 10.255.0.9", "local 10.0.0.6 of 10.255.0.8"}));
    registered(source, true);
    registered(other_source, false);
    EXPECT_EQ(told(), (Lines{"local 10.0.0.5 of 10.255.0.9", "no local 10.0.0.6 of 10.255.0.8"}));
    pim.reset();
    EXPECT_EQ(told(), (Lines{"no local 10.0.0.5 of 10.255.0.9", "local 10.0.0.5 of 10.255.0.1"}));
}

TEST_P(PimMsdpTest, FullReportSweepsWhatWasRegisteredBefore)
{
    LostClients lost(bench.router, bench.timers.manager(), 210);
    interfaces(PIM_RUNS);
    registered(source, true);
    registered(other_source, true);
    told();
    pim.reset();
    EXPECT_EQ(told(), Lines{});
    pim.emplace(3, clients.backend, counters);
    introduce(*pim);
    bracket(*pim, PIM_TLV_BEGIN);
    interfaces(PIM_RUNS);
    registered(source, true);
    EXPECT_EQ(told(), Lines{});
    bracket(*pim, PIM_TLV_END);
    EXPECT_EQ(told(), Lines{"no local 10.0.0.6 of 10.255.0.9"});
}

TEST_P(PimMsdpTest, RegisteredSourcesHaveTheLimitOfRemoteOnes)
{
    interfaces(PIM_RUNS);
    for (int i = 1; i <= 6; ++i) {
        registered("10.0.1." + std::to_string(i), true);
    }
    EXPECT_EQ(told().size(), 5u);
    EXPECT_EQ(fault(Fault::Limit), 1u);
    registered("10.0.1.1", false);
    registered("10.0.1.6", true);
    EXPECT_EQ(told().size(), 2u);
}

TEST_P(PimMsdpTest, RendezvousPointsAreBounded)
{
    interfaces(PIM_RUNS);
    for (int i = 1; i <= 300; ++i) {
        registered(source, true, "10.9." + std::to_string(i / 100) + "." + std::to_string(i % 100 + 1));
    }
    EXPECT_EQ(fault(Fault::Limit), 300u - MsdpExchange::MOST_REGISTERED_RPS);
    EXPECT_EQ(told().back(), "local 10.0.0.5 of 10.9.2.56");
}

TEST_P(PimMsdpTest, RemoteSourcesAreToldAndReplayed)
{
    Session msdp(11, clients.backend, counters);
    introduce(msdp);
    remote(msdp, source, true);
    remote(msdp, source, true);
    remote(msdp, other_source, true);
    EXPECT_EQ(remote_told(), (Lines{"10.0.0.5", "10.0.0.6"}));
    remote(msdp, source, false);
    EXPECT_EQ(remote_told(), Lines{"-10.0.0.5"});
    PimReplay value{};
    value.family = family;
    value.events = PIM_EVENTS;
    take(*member, Message().add(PIM_TLV_REQUEST, value));
    EXPECT_EQ(remote_told(), (Lines{"10.0.0.6", "end"}));
    bracket(msdp, MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_BEGIN);
    bracket(msdp, MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_END);
    EXPECT_EQ(remote_told(), Lines{"-10.0.0.6"});
}

INSTANTIATE_TEST_SUITE_P(Ipv4, PimMsdpTest, testing::Values(MCAST_FAMILY_IPV4));

} // namespace
