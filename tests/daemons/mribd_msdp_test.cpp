#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <set>

#include "daemons/mribd/msdp_exchange.h"
#include "daemons/mribd_messages.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

constexpr uint8_t FAMILY = MCAST_FAMILY_IPV4;
constexpr const char *WITH_RP = "[[mribd.instance]]\nrp = '10.0.0.1'\n";

uint32_t be(const std::string &text)
{
    uint32_t result;
    std::memcpy(&result, address(text).address, sizeof(result));
    return result;
}

class MsdpTest : public testing::Test
{
protected:
    MsdpTest()
    {
        clients.msdp.on_local_source([this](const MsdpExchange::LocalSource &change) {
            told.push_back((change.present ? "+" : "-") + text_or_star(change.source) + " rp " +
                           std::to_string(ntohl(change.rp_be) & 0xff));
            session.tell_local_source(change);
        });
        take(Message().add_register(FAMILY, MRIB_CAP_BASE | MRIB_CAP_MSDP_LOCAL_SRC));
    }

    void take(const Message &message)
    {
        const auto bytes = message.bytes();
        session.take_message(bytes.data(), bytes.size(), false);
    }

    static MRIB_MSDP_REMOTE_SG_S pair(const std::string &group, const std::string &source,
                                      uint8_t operation = 1, uint16_t vrf_index = 0)
    {
        return {FAMILY,
                0,
                vrf_index,
                operation,
                7,
                0,
                group.empty() ? 0 : be(group),
                source.empty() ? 0 : be(source)};
    }

    void remote(const std::string &group, const std::string &source, uint8_t operation = 1,
                uint16_t vrf_index = 0)
    {
        take(Message().add(MRIB_TLV_MSDP_REMOTE_SG, pair(group, source, operation, vrf_index)));
    }

    void mark(uint16_t type)
    {
        take(Message().add(type, MRIB_SMOOTH_ALERT_S{FAMILY, {}}));
    }

    std::set<std::string> remotes(uint16_t vrf_index = 0) const
    {
        std::set<std::string> result;
        SgTable::Cursor cursor;
        clients.msdp.instances().at(vrf_index).remote.visit(
            &cursor, [&](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t) {
                result.insert(text_or_star(source) + ">" + text_or_star(group));
                return true;
            });
        return result;
    }

    uint64_t fault(Fault kind) const
    {
        return counters.faults[static_cast<size_t>(kind)];
    }

    using Set = std::set<std::string>;
    using List = std::vector<std::string>;
    Bench bench;
    ClientBench clients{bench.router};
    ChannelCounters counters;
    Session session{1, clients.backend, counters};
    List told;
};

TEST_F(MsdpTest, LocalSourcesAreToldWhileThereIsARendezvousPoint)
{
    bench.join(1, 2, "239.1.1.0");
    bench.show_local_source(1);
    EXPECT_TRUE(told.empty());
    clients.configure(WITH_RP);
    EXPECT_EQ(told, List{"+10.1.0.1 rp 1"});
    bench.show_local_source(2);
    clients.configure("[[mribd.instance]]\nrp = '10.0.0.2'\n");
    EXPECT_EQ(told, (List{"+10.1.0.1 rp 1", "+10.1.0.2 rp 1", "-10.1.0.1 rp 1", "-10.1.0.2 rp 1",
                          "+10.1.0.1 rp 2", "+10.1.0.2 rp 2"}));
    told.clear();
    bench.pass_idle_period();
    EXPECT_EQ(Set(told.begin(), told.end()), (Set{"-10.1.0.1 rp 2", "-10.1.0.2 rp 2"}));
    EXPECT_EQ(told.size(), 2u);
    EXPECT_EQ(clients.msdp.local_sources().size(), 0u);
}

TEST_F(MsdpTest, DisabledInstanceHasNoLocalSources)
{
    clients.configure(WITH_RP);
    bench.show_local_source(1);
    clients.configure("[[mribd.instance]]\nenabled = false\nrp = '10.0.0.1'\n");
    EXPECT_EQ(clients.msdp.local_sources().size(), 0u);
    clients.configure(WITH_RP);
    EXPECT_EQ(told, (List{"+10.1.0.1 rp 1", "-10.1.0.1 rp 1", "+10.1.0.1 rp 1"}));
}

TEST_F(MsdpTest, TheFirstJoinOfAnySourceIsAskedAboutWhileRequestsAreEnabled)
{
    Session other{2, clients.backend, counters};
    const auto asked = [&] { return types_of(take_all(session.queue())); };
    const auto report = [&](uint8_t join, const std::string &group, const std::string &source) {
        const auto bytes = Message().add_register(FAMILY).add_join(FAMILY, 2, group, source, join).bytes();
        other.take_message(bytes.data(), bytes.size(), false);
    };
    clients.msdp.on_request([this](const MCAST_ADDR_S &group) { session.tell_request(group); });
    take(Message().add_register(FAMILY, MRIB_CAP_BASE | MRIB_CAP_MSDP_REMOTE_SRC));
    asked();
    report(1, "239.1.1.1", "0.0.0.0");
    EXPECT_EQ(asked(), std::vector<uint16_t>{}) << "not enabled";
    take(Message().add(MRIB_TLV_MSDP_REQ_SA_ENABLE, MRIB_MSDP_ENABLE_S{FAMILY, 0, 0, 1, {}}));
    report(1, "239.1.1.1", "0.0.0.0");
    report(1, "239.1.1.2", "10.1.0.1");
    EXPECT_EQ(asked(), std::vector<uint16_t>{}) << "joined before, or by name";
    report(1, "239.1.1.2", "0.0.0.0");
    const auto records = take_all(session.queue());
    ASSERT_EQ(types_of(records), std::vector<uint16_t>{MRIB_TLV_MSDP_REQ_REMOTE_SRC});
    EXPECT_EQ(records[0].value, (std::vector<uint8_t>{0, 0, 2, 0, 0, 0, 0, 0, 239, 1, 1, 2}));
    report(0, "239.1.1.2", "0.0.0.0");
    report(1, "239.1.1.2", "0.0.0.0");
    EXPECT_EQ(asked(), std::vector<uint16_t>{MRIB_TLV_MSDP_REQ_REMOTE_SRC}) << "the first again";
    clients.msdp.on_request(nullptr);
}

TEST_F(MsdpTest, LocalSourceRecordIsLaidOutForTheClient)
{
    clients.configure(WITH_RP);
    take_all(session.queue());
    bench.show_local_source(1);
    const auto records = take_all(session.queue());
    ASSERT_EQ(types_of(records), std::vector<uint16_t>{MRIB_TLV_MSDP_LOCAL_SRC});
    EXPECT_EQ(records[0].value, (std::vector<uint8_t>{0,   0, 2, 1, 0,  0, 0, 0, 10, 1, 0, 1,
                                                      239, 1, 1, 0, 10, 0, 0, 1, 0,  0, 0, 0}));
}

TEST_F(MsdpTest, ReplayNamesEveryLocalSourceAndEnds)
{
    clients.configure(WITH_RP);
    bench.show_local_source(1);
    bench.show_local_source(2);
    take_all(session.queue());
    take(Message().add_request(MRIB_TLV_REQ_LOCAL_SRC, FAMILY));
    EXPECT_EQ(types_of(take_all(session.queue())),
              (std::vector<uint16_t>{MRIB_TLV_MSDP_LOCAL_SRC, MRIB_TLV_MSDP_LOCAL_SRC,
                                     MRIB_TLV_MSDP_LOCAL_SRC_END}));
}

TEST_F(MsdpTest, ClientWithoutTheCapabilityIsNotToldOfLocalSources)
{
    Session plain(2, clients.backend, counters);
    const auto bytes = Message().add_register(FAMILY, MRIB_CAP_BASE).bytes();
    plain.take_message(bytes.data(), bytes.size(), false);
    const MCAST_ADDR_S group = address("239.1.1.1");
    const MCAST_ADDR_S source = address("10.1.0.1");
    plain.tell_local_source({group, source, 1, true});
    EXPECT_TRUE(plain.queue().empty());
}

TEST_F(MsdpTest, RemoteSourcesAreKeptAndDeletedByPairGroupAndAll)
{
    remote("239.1.1.1", "10.9.0.1");
    remote("239.1.1.1", "10.9.0.2");
    remote("239.1.1.2", "10.9.0.1");
    remote("239.1.1.3", "10.9.0.3");
    remote("239.1.1.3", "10.9.0.3");
    EXPECT_EQ(clients.msdp.remote_count(), 4u);
    remote("239.1.1.1", "10.9.0.2", 0);
    EXPECT_EQ(remotes(), (Set{"10.9.0.1>239.1.1.1", "10.9.0.1>239.1.1.2", "10.9.0.3>239.1.1.3"}));
    remote("239.1.1.2", "", 0);
    EXPECT_EQ(remotes(), (Set{"10.9.0.1>239.1.1.1", "10.9.0.3>239.1.1.3"}));
    remote("", "10.9.0.3", 0);
    EXPECT_EQ(remotes(), (Set{"10.9.0.1>239.1.1.1"}));
    remote("", "", 0);
    EXPECT_EQ(remotes(), Set());
}

TEST_F(MsdpTest, BracketDropsWhatItLeavesOut)
{
    remote("239.1.1.1", "10.9.0.1");
    remote("239.1.1.1", "10.9.0.2");
    remote("239.1.1.2", "10.9.0.3");
    mark(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_BEGIN);
    remote("239.1.1.1", "10.9.0.2");
    remote("239.1.1.4", "10.9.0.4");
    EXPECT_EQ(clients.msdp.remote_count(), 4u);
    mark(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_END);
    EXPECT_EQ(remotes(), (Set{"10.9.0.2>239.1.1.1", "10.9.0.4>239.1.1.4"}));
    EXPECT_EQ(clients.msdp.swept(), 2u);
}

TEST_F(MsdpTest, EndWithoutItsBeginDropsNothing)
{
    remote("239.1.1.1", "10.9.0.1");
    mark(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_END);
    mark(MRIB_TLV_MSDP_SMOOTH_REQ_ENABLE_BEGIN);
    mark(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_END);
    EXPECT_EQ(clients.msdp.remote_count(), 1u);
    EXPECT_EQ(fault(Fault::Flags), 2u);
}

TEST_F(MsdpTest, RemoteSourcesOutliveTheirClientUntilTheNextBracket)
{
    remote("239.1.1.1", "10.9.0.2");
    {
        Session other(2, clients.backend, counters);
        const auto bytes = Message()
                               .add_register(FAMILY)
                               .add(MRIB_TLV_MSDP_REMOTE_SG, pair("239.1.1.1", "10.9.0.1"))
                               .add(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_BEGIN, MRIB_SMOOTH_ALERT_S{FAMILY, {}})
                               .bytes();
        other.take_message(bytes.data(), bytes.size(), false);
    }
    EXPECT_EQ(clients.msdp.remote_count(), 2u);
    mark(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_END); // of a bracket that the other client began
    EXPECT_EQ(clients.msdp.remote_count(), 2u);
    mark(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_BEGIN);
    mark(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_END);
    EXPECT_EQ(clients.msdp.remote_count(), 0u);
}

TEST_F(MsdpTest, BracketEndsWithItsOwnClientAlone)
{
    remote("239.1.1.1", "10.9.0.1");
    clients.msdp.begin(Bracket::RemoteSources, 1);
    clients.msdp.drop_client(2);
    EXPECT_EQ(clients.msdp.end(Bracket::RemoteSources, 1), MsdpExchange::Result::Done);
    EXPECT_EQ(remotes(), Set());
    remote("239.1.1.1", "10.9.0.1");
    clients.msdp.begin(Bracket::RemoteSources, 1);
    clients.msdp.drop_client(1);
    EXPECT_EQ(clients.msdp.end(Bracket::RemoteSources, 1), MsdpExchange::Result::Refused);
    EXPECT_EQ(remotes(), Set{"10.9.0.1>239.1.1.1"});
}

TEST_F(MsdpTest, SwitchesAreKeptPerInstanceAndKind)
{
    clients.configure("[[mribd.instance]]\nvrf = 5\n");
    const auto enable = [this](uint16_t type, uint16_t vrf_index, uint8_t value) {
        take(Message().add(type, MRIB_MSDP_ENABLE_S{FAMILY, 0, vrf_index, value, {}}));
    };
    enable(MRIB_TLV_MSDP_REQ_SA_ENABLE, 5, 1);
    enable(MRIB_TLV_MSDP_ENCAP_ENABLE, 0, 1);
    enable(MRIB_TLV_MSDP_ENCAP_ENABLE, 0, 2);
    enable(MRIB_TLV_MSDP_ENCAP_ENABLE, 9, 1);
    EXPECT_EQ(fault(Fault::Flags), 1u);
    EXPECT_EQ(fault(Fault::Instance), 1u);
    const auto &instances = clients.msdp.instances();
    EXPECT_TRUE(instances.at(5).request_enable.enable);
    EXPECT_FALSE(instances.at(5).encap_enable.enable);
    EXPECT_TRUE(instances.at(0).encap_enable.enable);
    mark(MRIB_TLV_MSDP_SMOOTH_ENCAP_BEGIN);
    mark(MRIB_TLV_MSDP_SMOOTH_ENCAP_END);
    EXPECT_FALSE(instances.at(0).encap_enable.enable);
    EXPECT_TRUE(instances.at(5).request_enable.enable);
    mark(MRIB_TLV_MSDP_SMOOTH_REQ_ENABLE_BEGIN);
    enable(MRIB_TLV_MSDP_REQ_SA_ENABLE, 5, 1);
    mark(MRIB_TLV_MSDP_SMOOTH_REQ_ENABLE_END);
    EXPECT_TRUE(instances.at(5).request_enable.enable);
}

TEST_F(MsdpTest, InstanceThatIsConfiguredNoLongerLosesItsRemoteSources)
{
    clients.configure("[[mribd.instance]]\nvrf = 5\n");
    remote("239.1.1.1", "10.9.0.1", 1, 5);
    EXPECT_EQ(remotes(5).size(), 1u);
    clients.configure("");
    EXPECT_EQ(clients.msdp.remote_count(), 0u);
    remote("239.1.1.1", "10.9.0.1", 1, 5);
    EXPECT_EQ(fault(Fault::Instance), 1u);
}

TEST_F(MsdpTest, RemoteSourcesAreBounded)
{
    for (int i = 1; i <= 7; ++i) {
        remote("239.1.1.1", "10.9.0." + std::to_string(i));
    }
    EXPECT_EQ(clients.msdp.remote_count(), 5u);
    EXPECT_EQ(fault(Fault::Limit), 2u);
    remote("239.1.1.1", "10.9.0.1"); // known: no new place
    EXPECT_EQ(fault(Fault::Limit), 2u);
}

TEST_F(MsdpTest, RecordsThatFailACheckChangeNothing)
{
    remote("239.1.1.1", "");
    remote("", "10.9.0.1");
    remote("10.1.1.1", "10.9.0.1");
    remote("239.1.1.1", "239.1.1.1");
    auto lying = pair("239.1.1.1", "10.9.0.1");
    lying.data_length = 1;
    take(Message().add(MRIB_TLV_MSDP_REMOTE_SG, lying));
    auto other_family = pair("239.1.1.1", "10.9.0.1");
    other_family.family = MCAST_FAMILY_IPV6;
    take(Message().add(MRIB_TLV_MSDP_REMOTE_SG, other_family));
    take(Message()
             .add(MRIB_TLV_MSDP_SMOOTH_REMOTE_SG_BEGIN, uint8_t{FAMILY})
             .add(MRIB_TLV_MSDP_ENCAP_ENABLE, uint8_t{FAMILY}));
    EXPECT_EQ(fault(Fault::Source), 2u);
    EXPECT_EQ(fault(Fault::Group), 2u);
    EXPECT_EQ(fault(Fault::Short), 3u);
    EXPECT_EQ(fault(Fault::Family), 1u);
    EXPECT_EQ(clients.msdp.remote_count(), 0u);
}

} // namespace
