/*
 * What msdpd shows at its control endpoint.
 */
#include <gtest/gtest.h>

#include "daemons/msdpd/control.h"
#include "daemons/msdpd/status.h"
#include "tests/daemons/control_table.h"
#include "tests/daemons/msdpd_lab.h"

using namespace msdpd;
using namespace msdpd_test;
using namespace control_test;
using mcastd::ControlField;
using mcastd::ControlFields;

namespace
{

class MsdpdControl : public testing::Test
{
protected:
    MsdpdControl()
        : lab({1, 200}, [](Config &config) { config.peers.at(peer_address(200)).mesh_group = "m"; })
    {
        offer_control(server, *lab.speaker, [] { return ProcessStatus{true, 3, 0}; });
    }
    static ControlField address(Ipv4 address)
    {
        return ControlField::address(to_record(address));
    }

    Lab lab;
    mcastd::Reactor reactor;
    mcastd::ControlServer server{reactor};
};

} // namespace

TEST_F(MsdpdControl, PeersShowTheirStateAndEntries)
{
    lab.establish(1);
    lab.announce(1, {pair(1, 1), pair(2, 1)});
    lab.pass(5);
    EXPECT_EQ(table(server.registry(), mcastd::MSDP_PEER_TABLE, 1),
              (std::vector<ControlFields>{
                  {address(peer_address(1)), address(peer_address(100)), ControlField::text("established"),
                   ControlField::seconds(5), ControlField::number(2), ControlField::number(100000),
                   ControlField(), ControlField()},
                  {address(peer_address(200)), address(peer_address(100)), ControlField::text("connecting"),
                   ControlField::seconds(5), ControlField::number(0), ControlField::number(100000),
                   ControlField::text("m"), ControlField()},
              }));
}

TEST_F(MsdpdControl, TheCacheIsShownInPiecesFromAnyPosition)
{
    lab.establish(1);
    for (unsigned group = 1; group <= 3; ++group) {
        lab.announce(1, {pair(1, group), pair(2, group)});
    }
    lab.pass(50);
    const std::vector<ControlFields> rows = table(server.registry(), mcastd::MSDP_CACHE_TABLE, 1);

    ASSERT_EQ(rows.size(), 6u);
    EXPECT_EQ(rows[3], (ControlFields{address(pair(2, 2).group), address(pair(2, 2).source),
                                      address(peer_address(1)), address(peer_address(1)),
                                      ControlField::seconds(50), ControlField::seconds(100)}));
    const ControlFields key = {address(pair(2, 2).group), address(pair(2, 2).source)};

    EXPECT_EQ(row(server.registry(), mcastd::MSDP_CACHE_TABLE, key), rows[3]);
    EXPECT_EQ(table(server.registry(), mcastd::MSDP_CACHE_TABLE, 0, key).size(), 2u);
    EXPECT_EQ(table(server.registry(), mcastd::MSDP_CACHE_TABLE, 0,
                    {address(pair(0, 2).group), address({0xc0000201})})
                  .size(),
              3u);
    EXPECT_TRUE(row(server.registry(), mcastd::MSDP_CACHE_TABLE, {key[0], address({0x01020304})}).empty());
    MCAST_ADDR_S ipv6{MCAST_FAMILY_IPV6, 0, {0xff, 0x0e}};

    EXPECT_TRUE(table(server.registry(), mcastd::MSDP_CACHE_TABLE, 0, {ControlField::address(ipv6)}).empty());
}

TEST_F(MsdpdControl, CountersAreShownForEachPeerAndTogether)
{
    lab.establish({1, 200});
    lab.input(1, build_keepalive());
    lab.input(200, build_keepalive());
    const auto total = [this](const char *name) {
        const ControlFields found = row(
            server.registry(), mcastd::COUNTER_TABLE,
            {ControlField::family(MCAST_FAMILY_IPV4), ControlField::interface(0), ControlField::text(name)});

        return found.empty() ? ~uint64_t{0} : found[3].as_number();
    };

    EXPECT_EQ(row(server.registry(), mcastd::MSDP_COUNTER_TABLE,
                  {address(peer_address(200)), ControlField::text("received_keepalives")})[2]
                  .as_number(),
              1u);
    EXPECT_EQ(total("received_keepalives"), 2u);
    EXPECT_EQ(total("mrib_connects"), 3u);
    EXPECT_EQ(total("refused_connections"), 0u);
    EXPECT_EQ(table(server.registry(), mcastd::MSDP_COUNTER_TABLE, 1).size(), 6u)
        << "connections, sent and received keepalives of two peers";
}

TEST_F(MsdpdControl, OriginatorsAreShownWithTheirRpfPeerFromAnyPosition)
{
    lab.establish({1, 200});
    lab.announce(1, {pair(1, 1), pair(2, 1)});
    lab.announce(200, peer_address(30), {pair(3, 1)}); // of the mesh group, so whoever the originator is
    const std::vector<ControlFields> rows = table(server.registry(), mcastd::MSDP_RPF_TABLE, 1);

    EXPECT_EQ(rows, (std::vector<ControlFields>{
                        {address(peer_address(1)), address(peer_address(1)), ControlField::text("originator"),
                         ControlField::number(2)},
                        {address(peer_address(30)), ControlField(), ControlField::text("none"),
                         ControlField::number(1)},
                    }));
    EXPECT_EQ(row(server.registry(), mcastd::MSDP_RPF_TABLE, {address(peer_address(30))}), rows[1]);
    EXPECT_TRUE(table(server.registry(), mcastd::MSDP_RPF_TABLE, 0, {address(peer_address(30))}).empty());
    MCAST_ADDR_S ipv6{MCAST_FAMILY_IPV6, 0, {0x20}};

    EXPECT_TRUE(table(server.registry(), mcastd::MSDP_RPF_TABLE, 0, {ControlField::address(ipv6)}).empty());
}

TEST_F(MsdpdControl, TheCacheIsClearedWholeOrByGroup)
{
    const auto clear = [this](const ControlFields &arguments) {
        return command(server.registry(), mcastd::COMMAND_CLEAR_MSDP_CACHE, arguments).status;
    };
    lab.establish(1);
    lab.announce(1, {pair(1, 1), pair(1, 2), pair(2, 2)});
    EXPECT_EQ(clear({address(pair(0, 2).group)}), mcastd::ControlStatus::Done);
    EXPECT_EQ(lab.cache(), "1>1");
    for (const ControlFields &wrong :
         {ControlFields{address(peer_address(1))}, ControlFields{ControlField::number(1)},
          ControlFields{address(pair(0, 1).group), address(pair(0, 1).group)},
          ControlFields{ControlField::address({MCAST_FAMILY_IPV6, 0, {0xff, 0x0e}})}}) {
        EXPECT_EQ(clear(wrong), mcastd::ControlStatus::BadValue);
    }
    EXPECT_EQ(lab.cache(), "1>1");
    EXPECT_EQ(clear({}), mcastd::ControlStatus::Done);
    EXPECT_EQ(lab.cache(), "");
}

TEST_F(MsdpdControl, TheStatusShowsPeersSourcesAndTheCache)
{
    lab.settings(1).description = "north";
    lab.configure();
    lab.establish(1);
    lab.mrib.local = {pair(9, 9)};
    lab.announce(1, {pair(1, 1)});
    lab.pass(5);
    EXPECT_EQ(status_text(*lab.speaker, {}), R"({
  "daemon": "msdpd",
  "mrib_connected": false,
  "mrib_connects": 0,
  "mrib_pending_messages": 0,
  "refused_connections": 0,
  "postponed_accepts": 0,
  "peers": [
    {
      "peer": "10.0.0.1",
      "local_address": "10.0.0.100",
      "state": "established",
      "since_s": 5,
      "description": "north",
      "entries": 1,
      "sa_limit": 100000,
      "bytes_waiting": 0,
      "counters": {
        "connections": 1,
        "received_source_active": 1,
        "received_entries": 1,
        "sent_keepalives": 1
      }
    },
    {
      "peer": "10.0.0.200",
      "local_address": "10.0.0.100",
      "state": "connecting",
      "since_s": 5,
      "mesh_group": "m",
      "entries": 0,
      "sa_limit": 100000,
      "bytes_waiting": 0,
      "counters": {}
    }
  ],
  "local_sources": [
    {"source": "192.0.2.9", "group": "239.0.0.9", "originator": "10.0.0.100"}
  ],
  "rpf": [
    {"originator": "10.0.0.1", "peer": "10.0.0.1", "rule": "originator", "entries": 1}
  ],
  "entries": 1,
  "cache": [
    {"source": "192.0.2.1", "group": "239.0.0.1", "originator": "10.0.0.1", "peer": "10.0.0.1", "age_s": 5, "expires_s": 145}
  ]
}
)");
}
