/*
 * The parser on literal packets: each message of both families as it must be read, and each way in which a
 * packet can be wrong with the one counter that says so.
 */
#include <gtest/gtest.h>

#include "daemons/gmpd/packet_parse.h"
#include "tests/daemons/gmpd_packets.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

constexpr uint16_t IPV4 = MCAST_FAMILY_IPV4;
constexpr uint16_t IPV6 = MCAST_FAMILY_IPV6;

// The packet is copied to a block of its very size, so that a sanitizer sees every byte read behind its end.
// The blocks stay, because a message points into its packet.
Count parse(uint16_t family, const Bytes &packet, Message &out)
{
    static std::vector<std::unique_ptr<uint8_t[]>> blocks;
    blocks.emplace_back(new uint8_t[packet.size()]);
    std::copy(packet.begin(), packet.end(), blocks.back().get());
    return parse_packet(family, std::span<const uint8_t>(blocks.back().get(), packet.size()), out);
}

std::string reason(uint16_t family, const Bytes &packet)
{
    Message message;
    const Count drop = parse(family, packet, message);
    return drop == NO_DROP ? "good" : count_name(drop);
}

Message good(uint16_t family, const Bytes &packet)
{
    Message message;
    const Count drop = parse(family, packet, message);
    EXPECT_EQ(drop, NO_DROP) << (drop == NO_DROP ? "" : count_name(drop));
    return message;
}

const Bytes QUERY_V2 = {0x11, 100, 0, 0, 0, 0, 0, 0};
const Bytes REPORT_V2 = Bytes{0x16, 0, 0, 0} + addr("239.1.2.3");
const Bytes QUERY_V3 =
    Bytes{0x11, 10, 0, 0} + addr("239.1.2.3") + Bytes{0x0a, 125, 0, 2} + addr("10.0.0.9") + addr("10.0.0.8");
const Bytes REPORT_V3 = Bytes{0x22, 0, 0, 0, 0, 0, 0, 2} + Bytes{4, 1, 0, 0} + addr("239.1.1.1") +
                        Bytes{9, 9, 9, 9} + Bytes{6, 0, 0, 1} + addr("239.1.1.2") + addr("10.0.0.7");

const char *const ROUTER = "10.0.0.1";
const char *const HOST = "10.0.0.2";
const char *const ALL = "224.0.0.1";
const char *const V3 = "224.0.0.22";
const char *const ROUTER6 = "fe80::1";
const char *const HOST6 = "fe80::2";
const char *const ALL6 = "ff02::1";
const char *const V3_6 = "ff02::16";

const Bytes MLD_QUERY_V1 = Bytes{130, 0, 0, 0, 0x27, 0x10, 0, 0} + addr("::");
const Bytes MLD_REPORT_V1 = Bytes{131, 0, 0, 0, 0, 0, 0, 0} + addr("ff1e::1");
const Bytes MLD_REPORT_V2 =
    Bytes{143, 0, 0, 0, 0, 0, 0, 1} + Bytes{3, 0, 0, 1} + addr("ff1e::1") + addr("2001:db8::7");

} // namespace

TEST(GmpdParse, ReadsIgmpVersion1QueryByItsZeroTimeWithoutRouterAlert)
{
    const Message query = good(IPV4, ipv4(ROUTER, ALL, igmp({0x11, 0, 0, 0, 0, 0, 0, 0}), false));
    EXPECT_EQ(query.kind, MessageKind::Query);
    EXPECT_EQ(query.version, 1);
    EXPECT_EQ(query.max_response_ms, 10000u);
    EXPECT_TRUE(is_unspecified(query.group));
}

TEST(GmpdParse, ReadsIgmpVersion2Query)
{
    const Message query = good(IPV4, igmp_packet(ROUTER, ALL, QUERY_V2));
    EXPECT_EQ(query.version, 2);
    EXPECT_EQ(query.max_response_ms, 10000u);
    EXPECT_EQ(to_text(query.sender), ROUTER);
}

TEST(GmpdParse, ReadsIgmpVersion3QueryWithFlagsIntervalAndSources)
{
    const Message query = good(IPV4, igmp_packet(ROUTER, "239.1.2.3", QUERY_V3));
    EXPECT_EQ(query.version, 3);
    EXPECT_EQ(query.max_response_ms, 1000u);
    EXPECT_TRUE(query.suppress);
    EXPECT_EQ(query.robustness, 2);
    EXPECT_EQ(query.query_interval_s, 125u);
    ASSERT_EQ(query.sources.count(), 2u);
    EXPECT_EQ(to_text(query.sources.at(0)), "10.0.0.9");
    EXPECT_EQ(to_text(query.sources.at(1)), "10.0.0.8");
}

TEST(GmpdParse, ReadsFloatingPointTimes)
{
    Bytes query = QUERY_V3;

    query[1] = 0xff; // (15 + 16) << 10 tenths
    query[9] = 0x80; // 16 << 3 seconds
    const Message message = good(IPV4, igmp_packet(ROUTER, "239.1.2.3", query));

    EXPECT_EQ(message.max_response_ms, 3174400u);
    EXPECT_EQ(message.query_interval_s, 128u);
}

TEST(GmpdParse, ReadsIgmpVersion1ReportWithAndWithoutRouterAlert)
{
    const Bytes report = igmp(Bytes{0x12, 0, 0, 0} + addr("239.1.2.3"));

    for (bool router_alert : {true, false}) {
        const Message message = good(IPV4, ipv4(HOST, "239.1.2.3", report, router_alert));

        EXPECT_EQ(message.kind, MessageKind::Report);
        EXPECT_EQ(message.version, 1);
        EXPECT_EQ(to_text(message.group), "239.1.2.3");
    }
}

TEST(GmpdParse, ReadsIgmpVersion2ReportAndLeave)
{
    const Message report = good(IPV4, igmp_packet(HOST, "239.1.2.3", REPORT_V2));
    const Message leave =
        good(IPV4, igmp_packet(HOST, "224.0.0.2", Bytes{0x17, 0, 0, 0} + addr("239.1.2.3")));
    EXPECT_EQ(report.kind, MessageKind::Report);
    EXPECT_EQ(report.version, 2);
    EXPECT_EQ(leave.kind, MessageKind::Leave);
    EXPECT_EQ(to_text(leave.group), "239.1.2.3");
}

TEST(GmpdParse, ReadsIgmpVersion3ReportPastAuxiliaryData)
{
    const Message report = good(IPV4, igmp_packet("0.0.0.0", V3, REPORT_V3));
    Reader records = report.records;
    Record record;
    bool lies = true;
    ASSERT_EQ(report.record_count, 2);
    ASSERT_TRUE(next_record(records, IPV4, record, lies));
    EXPECT_EQ(record.type, RecordType::ToExclude);
    EXPECT_EQ(record.sources.count(), 0u);
    ASSERT_TRUE(next_record(records, IPV4, record, lies));
    EXPECT_EQ(record.type, RecordType::Block);
    EXPECT_EQ(to_text(record.group), "239.1.1.2");
    ASSERT_EQ(record.sources.count(), 1u);
    EXPECT_EQ(to_text(record.sources.at(0)), "10.0.0.7");
    EXPECT_FALSE(next_record(records, IPV4, record, lies));
}

TEST(GmpdParse, IgnoresLinkPaddingBehindAPacketAndBytesBehindTheRecords)
{
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, "239.1.2.3", REPORT_V2) + Bytes(18, 0xee)), "good");
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, V3, REPORT_V3 + Bytes{1, 2, 3})), "good");
    EXPECT_EQ(reason(IPV6, mld_packet(HOST6, V3_6, MLD_REPORT_V2) + Bytes(4, 0xee)), "good");
}

TEST(GmpdParse, ReadsMldVersion1QueryReportAndDone)
{
    const Message query = good(IPV6, mld_packet(ROUTER6, ALL6, MLD_QUERY_V1));
    const Message report = good(IPV6, mld_packet(HOST6, "ff1e::1", MLD_REPORT_V1));
    const Message done =
        good(IPV6, mld_packet(HOST6, "ff02::2", Bytes{132, 0, 0, 0, 0, 0, 0, 0} + addr("ff1e::1")));
    EXPECT_EQ(query.version, 2);
    EXPECT_EQ(query.max_response_ms, 10000u);
    EXPECT_EQ(report.kind, MessageKind::Report);
    EXPECT_EQ(to_text(report.group), "ff1e::1");
    EXPECT_EQ(done.kind, MessageKind::Leave);
}

TEST(GmpdParse, ReadsMldVersion2QueryAndReport)
{
    const Bytes tail = Bytes{0x0b, 125, 0, 1} + addr("2001:db8::9");
    const Message query = good(
        IPV6, mld_packet(ROUTER6, "ff1e::1", Bytes{130, 0, 0, 0, 0x80, 0, 0, 0} + addr("ff1e::1") + tail));
    const Message report = good(IPV6, mld_packet(HOST6, V3_6, MLD_REPORT_V2));
    EXPECT_EQ(query.version, 3);
    EXPECT_EQ(query.max_response_ms, 32768u);
    EXPECT_TRUE(query.suppress);
    EXPECT_EQ(query.robustness, 3);
    ASSERT_EQ(query.sources.count(), 1u);
    EXPECT_EQ(to_text(query.sources.at(0)), "2001:db8::9");
    EXPECT_EQ(report.kind, MessageKind::Report);
    EXPECT_EQ(report.record_count, 1);
}

TEST(GmpdParse, CountsEveryWrongIpv4Header)
{
    const Bytes right = igmp_packet(HOST, "239.1.2.3", REPORT_V2);
    const auto spoiled = [&](size_t at, uint8_t value) {
        Bytes packet = right;

        packet[at] = value;
        put16(packet, 10, 0);
        const size_t header = std::clamp<size_t>((packet[0] & 0x0fu) * 4, 20, packet.size());

        put16(packet, 10, internet_checksum(std::span(packet).first(header)));
        return packet;
    };

    EXPECT_EQ(reason(IPV4, right), "good");
    EXPECT_EQ(reason(IPV4, Bytes()), "dropped_short_packet");
    EXPECT_EQ(reason(IPV4, Bytes(right.begin(), right.begin() + 19)), "dropped_short_packet");
    EXPECT_EQ(reason(IPV4, spoiled(0, 0x66)), "dropped_ip_version");
    EXPECT_EQ(reason(IPV4, spoiled(0, 0x44)), "dropped_header_length");
    EXPECT_EQ(reason(IPV4, spoiled(0, 0x4f)), "dropped_header_length");
    EXPECT_EQ(reason(IPV4, spoiled(3, 33)), "dropped_total_length");
    EXPECT_EQ(reason(IPV4, spoiled(3, 23)), "dropped_total_length");
    EXPECT_EQ(reason(IPV4, spoiled(6, 0x20)), "dropped_fragment");
    EXPECT_EQ(reason(IPV4, spoiled(7, 1)), "dropped_fragment");
    EXPECT_EQ(reason(IPV4, spoiled(6, 0x40)), "good") << "do not fragment is no fragment";
    EXPECT_EQ(reason(IPV4, spoiled(8, 2)), "dropped_hop_limit");
    EXPECT_EQ(reason(IPV4, spoiled(8, 0)), "dropped_hop_limit");
    EXPECT_EQ(reason(IPV4, spoiled(9, 17)), "dropped_protocol");
    EXPECT_EQ(reason(IPV4, spoiled(21, 1)), "dropped_header_length") << "an option shorter than its header";
    EXPECT_EQ(reason(IPV4, spoiled(21, 5)), "dropped_header_length") << "an option past the header";
    EXPECT_EQ(reason(IPV4, spoiled(20, 0x07)), "dropped_router_alert");
    EXPECT_EQ(reason(IPV4, spoiled(23, 1)), "dropped_router_alert") << "a router alert for something else";
    Bytes wrong_sum = right;

    wrong_sum[10] ^= 1;
    EXPECT_EQ(reason(IPV4, wrong_sum), "dropped_header_checksum");
}

TEST(GmpdParse, FindsTheRouterAlertAmongOtherOptions)
{
    const auto with_options = [](const Bytes &options) {
        const Bytes plain = igmp_packet(HOST, "239.1.2.3", REPORT_V2);
        Bytes packet(plain.begin(), plain.begin() + 20);
        append(packet, options);
        append(packet, Bytes(plain.begin() + 24, plain.end()));
        packet[0] = static_cast<uint8_t>(0x40 | (20 + options.size()) / 4);
        packet[3] = static_cast<uint8_t>(packet.size());
        fix_ipv4_header(packet);
        return packet;
    };
    EXPECT_EQ(reason(IPV4, with_options({1, 0x94, 4, 0, 0, 1, 1, 0})), "good") << "between fillings";
    EXPECT_EQ(reason(IPV4, with_options({7, 3, 4, 1, 0x94, 4, 0, 0})), "good") << "behind another one";
    EXPECT_EQ(reason(IPV4, with_options({1, 1, 0, 0, 0x94, 4, 0, 0})), "dropped_router_alert")
        << "behind the end";
}

TEST(GmpdParse, CountsWrongIpv4Sources)
{
    for (const char *source : {"127.0.0.1", "0.0.0.1", "224.0.0.1", "239.1.1.1", "255.255.255.255"}) {
        EXPECT_EQ(reason(IPV4, igmp_packet(source, "239.1.2.3", REPORT_V2)), "dropped_source_address")
            << source;
    }
}

TEST(GmpdParse, RequiresRouterAlertFromVersion2On)
{
    EXPECT_EQ(reason(IPV4, ipv4(HOST, "239.1.2.3", igmp(REPORT_V2), false)), "dropped_router_alert");
    EXPECT_EQ(reason(IPV4, ipv4(HOST, V3, igmp(REPORT_V3), false)), "dropped_router_alert");
    EXPECT_EQ(reason(IPV4, ipv4(ROUTER, ALL, igmp(QUERY_V2), false)), "dropped_router_alert");
    EXPECT_EQ(reason(IPV6, ipv6(HOST6, "ff1e::1", mld(HOST6, "ff1e::1", MLD_REPORT_V1), {})),
              "dropped_router_alert");
    EXPECT_EQ(
        reason(IPV6, ipv6(HOST6, "ff1e::1", mld(HOST6, "ff1e::1", MLD_REPORT_V1), {58, 0, 1, 4, 0, 0, 0, 0})),
        "dropped_router_alert");
}

TEST(GmpdParse, CountsWrongMessages)
{
    Bytes wrong_sum = igmp(REPORT_V2);
    wrong_sum[2] ^= 1;
    EXPECT_EQ(reason(IPV4, ipv4(HOST, "239.1.2.3", wrong_sum)), "dropped_checksum");
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, "239.1.2.3", Bytes{0x16, 0, 0, 0, 239, 1, 2})),
              "dropped_short_message");
    EXPECT_EQ(reason(IPV4, ipv4(HOST, "239.1.2.3", {})), "dropped_short_message");
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, "239.1.2.3", Bytes{0x13, 0, 0, 0, 0, 0, 0, 0})),
              "dropped_message_type");
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, "10.1.2.3", Bytes{0x16, 0, 0, 0} + addr("10.1.2.3"))),
              "dropped_group_address");
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, "239.9.9.9", REPORT_V2)), "dropped_destination");
    for (size_t extra = 1; extra < 4; ++extra) {
        EXPECT_EQ(reason(IPV4, igmp_packet(ROUTER, ALL, QUERY_V2 + Bytes(extra, 0))),
                  "dropped_message_length");
    }
}

TEST(GmpdParse, CountsQueriesThatAreMisaddressed)
{
    EXPECT_EQ(reason(IPV4, igmp_packet(ROUTER, "10.0.0.3", QUERY_V2)), "dropped_unicast_query");
    EXPECT_EQ(reason(IPV4, igmp_packet(ROUTER, "224.0.0.5", QUERY_V2)), "dropped_destination");
    EXPECT_EQ(reason(IPV4, igmp_packet(ROUTER, "239.1.2.4", QUERY_V3)), "dropped_destination");
    EXPECT_EQ(reason(IPV4, igmp_packet(ROUTER, ALL, Bytes{0x11, 10, 0, 0} + addr("10.0.0.9"))),
              "dropped_group_address");
    EXPECT_EQ(reason(IPV6, mld_packet(ROUTER6, "fe80::3", MLD_QUERY_V1)), "dropped_unicast_query");
}

TEST(GmpdParse, CountsLyingCounts)
{
    Bytes query = QUERY_V3;
    Bytes report = REPORT_V3;
    query[11] = 3;
    EXPECT_EQ(reason(IPV4, igmp_packet(ROUTER, "239.1.2.3", query)), "dropped_source_count");
    put16(query, 10, 65535);
    EXPECT_EQ(reason(IPV4, igmp_packet(ROUTER, "239.1.2.3", query)), "dropped_source_count");
    report[7] = 3;
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, V3, report)), "dropped_record_count");
    put16(report, 6, 65535);
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, V3, report)), "dropped_record_count");
    report = REPORT_V3;
    put16(report, 22, 2);
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, V3, report)), "dropped_source_count");
    put16(report, 22, 65535);
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, V3, report)), "dropped_source_count");
    report = REPORT_V3;
    report[21] = 255; // auxiliary words of the last record
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, V3, report)), "dropped_source_count");
    report = MLD_REPORT_V2;
    put16(report, 10, 65535);
    EXPECT_EQ(reason(IPV6, mld_packet(HOST6, V3_6, report)), "dropped_source_count");
}

TEST(GmpdParse, CountsARecordForWhatIsNoGroup)
{
    const Bytes report = Bytes{0x22, 0, 0, 0, 0, 0, 0, 1} + Bytes{4, 0, 0, 0} + addr("10.1.1.1");
    EXPECT_EQ(reason(IPV4, igmp_packet(HOST, V3, report)), "dropped_group_address");
}

TEST(GmpdParse, CountsEveryWrongIpv6Header)
{
    const Bytes right = mld_packet(HOST6, "ff1e::1", MLD_REPORT_V1);
    const auto spoiled = [&](size_t at, uint8_t value) {
        Bytes packet = right;

        packet[at] = value;
        return packet;
    };

    EXPECT_EQ(reason(IPV6, right), "good");
    EXPECT_EQ(reason(IPV6, Bytes(right.begin(), right.begin() + 39)), "dropped_short_packet");
    EXPECT_EQ(reason(IPV6, Bytes(right.begin(), right.begin() + 40)), "dropped_total_length");
    EXPECT_EQ(reason(IPV6, spoiled(0, 0x40)), "dropped_ip_version");
    EXPECT_EQ(reason(IPV6, spoiled(5, 33)), "dropped_total_length");
    EXPECT_EQ(reason(IPV6, spoiled(4, 255)), "dropped_total_length");
    EXPECT_EQ(reason(IPV6, spoiled(5, 4)), "dropped_extension_header");
    EXPECT_EQ(reason(IPV6, spoiled(6, 44)), "dropped_fragment");
    EXPECT_EQ(reason(IPV6, spoiled(6, 6)), "dropped_protocol");
    EXPECT_EQ(reason(IPV6, spoiled(7, 2)), "dropped_hop_limit");
    EXPECT_EQ(reason(IPV6, spoiled(40, 6)), "dropped_protocol");
    EXPECT_EQ(reason(IPV6, spoiled(40, 44)), "dropped_fragment");
    EXPECT_EQ(reason(IPV6, spoiled(41, 255)), "dropped_extension_header");
    EXPECT_EQ(reason(IPV6, spoiled(43, 9)), "dropped_extension_header") << "an option past the header";
    EXPECT_EQ(reason(IPV6, spoiled(42, 0xc2)), "dropped_extension_header") << "an option not to be skipped";
    EXPECT_EQ(reason(IPV6, spoiled(45, 1)), "dropped_router_alert") << "a router alert for something else";
    EXPECT_EQ(reason(IPV6, spoiled(50, 0xff)), "dropped_checksum");
}

TEST(GmpdParse, CountsMldFromAnythingButALinkLocalAddress)
{
    for (const char *source : {"::", "2001:db8::1", "ff02::1", "::1"}) {
        EXPECT_EQ(reason(IPV6, mld_packet(source, "ff1e::1", MLD_REPORT_V1)), "dropped_source_address")
            << source;
    }
}

TEST(GmpdParse, CountsMldMessagesOfWrongLength)
{
    for (size_t length : {8u, 16u, 23u}) {
        const Bytes query(MLD_QUERY_V1.begin(), MLD_QUERY_V1.begin() + static_cast<long>(length));
        const Bytes report(MLD_REPORT_V1.begin(), MLD_REPORT_V1.begin() + static_cast<long>(length));

        EXPECT_EQ(reason(IPV6, mld_packet(ROUTER6, ALL6, query)), "dropped_message_length") << length;
        EXPECT_EQ(reason(IPV6, mld_packet(HOST6, "ff1e::1", report)), "dropped_message_length") << length;
    }
    for (size_t extra = 1; extra < 4; ++extra) {
        EXPECT_EQ(reason(IPV6, mld_packet(ROUTER6, ALL6, MLD_QUERY_V1 + Bytes(extra, 0))),
                  "dropped_message_length");
    }
}

TEST(GmpdParse, StaysWithinEveryPrefixOfEveryPacket)
{
    const Bytes ipv4_packets[] = {igmp_packet(ROUTER, "239.1.2.3", QUERY_V3),
                                  igmp_packet(HOST, V3, REPORT_V3)};
    const Bytes ipv6_packets[] = {mld_packet(HOST6, V3_6, MLD_REPORT_V2),
                                  mld_packet(ROUTER6, ALL6, MLD_QUERY_V1)};
    for (const Bytes &packet : ipv4_packets) {
        for (size_t length = 0; length < packet.size(); ++length) {
            EXPECT_NE(reason(IPV4, Bytes(packet.begin(), packet.begin() + static_cast<long>(length))),
                      "good");
        }
    }
    for (const Bytes &packet : ipv6_packets) {
        for (size_t length = 0; length < packet.size(); ++length) {
            EXPECT_NE(reason(IPV6, Bytes(packet.begin(), packet.begin() + static_cast<long>(length))),
                      "good");
        }
    }
}
