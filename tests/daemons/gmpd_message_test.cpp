/*
 * Whole packets through parser and state machine: what a record's list becomes, and which groups and sources
 * are not listened to.
 */
#include <gtest/gtest.h>

#include "daemons/gmpd/packet_parse.h"
#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

void receive(Lab &lab, const Bytes &packet)
{
    Message message;
    const Count drop = parse_packet(lab.process.config.family, packet, message);
    ASSERT_EQ(drop, NO_DROP) << (drop == NO_DROP ? "" : count_name(drop));
    handle_message(*lab.interface, message);
}

Bytes igmp_report(const Bytes &records, uint8_t count)
{
    return igmp_packet("10.0.0.200", "224.0.0.22", Bytes{0x22, 0, 0, 0, 0, 0, 0, count} + records);
}

} // namespace

TEST(GmpdMessage, RecordsOfOneReportAreAppliedInOrder)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.start();
    receive(lab, igmp_report(Bytes{5, 0, 0, 2} + addr("239.1.1.1") + addr("192.0.2.2") + addr("192.0.2.1") +
                                 Bytes{4, 0, 0, 0} + addr("239.1.1.2"),
                             2));
    EXPECT_EQ(lab.recorder.told(), "join G1 1; join G1 2; join G2");
    EXPECT_EQ(lab.interface->counters[Count::ReportsV3], 1u);
}

TEST(GmpdMessage, SourcesThatRepeatCountOnce)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.start();
    receive(lab, igmp_report(Bytes{4, 0, 0, 3} + addr("239.1.1.1") + addr("192.0.2.1") + addr("192.0.2.1") +
                                 addr("192.0.2.1"),
                             1));
    EXPECT_EQ(lab.state(), "EXCLUDE {} {1} 260");
}

TEST(GmpdMessage, SourcesThatCannotSendAreSkippedAndCounted)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.start();
    receive(lab, igmp_report(Bytes{5, 0, 0, 3} + addr("239.1.1.1") + addr("0.0.0.0") + addr("239.2.2.2") +
                                 addr("192.0.2.1"),
                             1));
    EXPECT_EQ(lab.state(), "INCLUDE {1:260}");
    EXPECT_EQ(lab.interface->counters[Count::BadSource], 2u);
}

TEST(GmpdMessage, UnknownRecordTypesAreSkippedAndTheRestIsRead)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.start();
    receive(lab, igmp_report(Bytes{7, 0, 0, 0} + addr("239.1.1.1") + Bytes{0, 0, 0, 0} + addr("239.1.1.1") +
                                 Bytes{2, 0, 0, 0} + addr("239.1.1.2"),
                             3));
    EXPECT_EQ(lab.recorder.told(), "join G2");
    EXPECT_EQ(lab.interface->counters[Count::RecordType], 2u);
}

TEST(GmpdMessage, GroupsThatNeverLeaveALinkMakeNoState)
{
    Lab lab4(MCAST_FAMILY_IPV4);

    lab4.start();
    receive(lab4, igmp_report(Bytes{4, 0, 0, 0} + addr("224.0.0.251"), 1));
    receive(lab4, igmp_packet("10.0.0.200", "224.0.0.5", Bytes{0x16, 0, 0, 0} + addr("224.0.0.5")));
    EXPECT_EQ(lab4.recorder.told(), "");
    EXPECT_EQ(lab4.interface->counters[Count::LinkScopeGroup], 2u);
    Lab lab6(MCAST_FAMILY_IPV6);

    lab6.start();
    receive(lab6, mld_packet("fe80::1:c8", "ff02::16",
                             Bytes{143, 0, 0, 0, 0, 0, 0, 1} + Bytes{4, 0, 0, 0} + addr("ff02::1:ff00:1")));
    EXPECT_EQ(lab6.recorder.told(), "");
    EXPECT_EQ(lab6.interface->counters[Count::LinkScopeGroup], 1u);
}

TEST(GmpdMessage, HostsWithoutAnAddressAreHeard)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.start();
    lab.interface->prefixes = {Prefix{from_text("10.0.0.100"), 24}};
    receive(lab, igmp_packet("0.0.0.0", "239.1.1.1", Bytes{0x16, 0, 0, 0} + addr("239.1.1.1")));
    EXPECT_EQ(lab.recorder.told(), "join G1");
}

TEST(GmpdMessage, MldReportsOfBothVersionsAreHeard)
{
    Lab lab(MCAST_FAMILY_IPV6);
    lab.start();
    receive(lab, mld_packet("fe80::1:c8", "ff1e::1:1", Bytes{131, 0, 0, 0, 0, 0, 0, 0} + addr("ff1e::1:1")));
    receive(lab, mld_packet("fe80::1:c8", "ff02::16",
                            Bytes{143, 0, 0, 0, 0, 0, 0, 1} + Bytes{5, 0, 0, 1} + addr("ff1e::1:2") +
                                addr("2001:db8::1:9")));
    EXPECT_EQ(lab.recorder.told(), "join G1; join G2 9");
}
