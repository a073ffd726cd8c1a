/*
 * Queries byte by byte, the codes of times, and how many sources fit.
 */
#include <array>
#include <gtest/gtest.h>

#include "daemons/gmpd/float_code.h"
#include "daemons/gmpd/packet_build.h"
#include "daemons/gmpd/packet_parse.h"
#include "tests/daemons/gmpd_packets.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

Bytes build(const Query &query)
{
    Bytes buffer(65535, 0xaa);
    buffer.resize(build_query(query, buffer));
    return buffer;
}

Query general(uint16_t family, uint8_t version)
{
    Query query;
    query.version = version;
    query.group = any_address(family);
    query.max_response_ms = 10000;
    query.robustness = 2;
    query.query_interval_s = 125;
    return query;
}

} // namespace

TEST(GmpdBuild, IgmpGeneralQueriesOfEachVersion)
{
    EXPECT_EQ(build(general(MCAST_FAMILY_IPV4, 1)), (Bytes{0x11, 0, 0xee, 0xff, 0, 0, 0, 0}));
    EXPECT_EQ(build(general(MCAST_FAMILY_IPV4, 2)), (Bytes{0x11, 100, 0xee, 0x9b, 0, 0, 0, 0}));
    EXPECT_EQ(build(general(MCAST_FAMILY_IPV4, 3)),
              (Bytes{0x11, 100, 0xec, 0x1e, 0, 0, 0, 0, 0x02, 125, 0, 0}));
}

TEST(GmpdBuild, MldGeneralQueriesOfEachVersionLeaveTheChecksumToTheKernel)
{
    EXPECT_EQ(build(general(MCAST_FAMILY_IPV6, 2)), (Bytes{130, 0, 0, 0, 0x27, 0x10, 0, 0} + addr("::")));
    EXPECT_EQ(build(general(MCAST_FAMILY_IPV6, 3)),
              (Bytes{130, 0, 0, 0, 0x27, 0x10, 0, 0} + addr("::") + Bytes{0x02, 125, 0, 0}));
}

TEST(GmpdBuild, GroupAndSourceSpecificQuery)
{
    const std::array<Address, 2> sources = {from_text("10.0.0.1"), from_text("10.0.0.2")};
    Query query = general(MCAST_FAMILY_IPV4, 3);

    query.group = from_text("239.1.2.3");
    query.max_response_ms = 1000;
    query.suppress = true;
    query.sources = sources;
    const Bytes message = build(query);

    EXPECT_EQ(message, igmp(Bytes{0x11, 10, 0, 0} + addr("239.1.2.3") + Bytes{0x0a, 125, 0, 2} +
                            addr("10.0.0.1") + addr("10.0.0.2")));
    EXPECT_EQ(to_text(query_destination(query)), "239.1.2.3");
    EXPECT_EQ(to_text(query_destination(general(MCAST_FAMILY_IPV6, 3))), "ff02::1");
}

TEST(GmpdBuild, WhatIsBuiltIsWhatIsRead)
{
    Query query = general(MCAST_FAMILY_IPV4, 3);
    Message message;
    const Bytes packet = ipv4("10.0.0.1", "224.0.0.1", build(query));
    ASSERT_EQ(parse_packet(MCAST_FAMILY_IPV4, packet, message), NO_DROP);
    EXPECT_EQ(message.version, 3);
    EXPECT_EQ(message.max_response_ms, 10000u);
    EXPECT_EQ(message.robustness, 2);
    EXPECT_EQ(message.query_interval_s, 125u);
}

TEST(GmpdBuild, ARobustnessThatDoesNotFitGoesOutAsUnknown)
{
    Query query = general(MCAST_FAMILY_IPV4, 3);
    query.robustness = 8;
    EXPECT_EQ(build(query)[8], 0);
    query.robustness = 7;
    EXPECT_EQ(build(query)[8], 7);
}

TEST(GmpdBuild, Version2NeverSendsTheTimeOfVersion1)
{
    Query query = general(MCAST_FAMILY_IPV4, 2);
    query.max_response_ms = 50;
    EXPECT_EQ(build(query)[1], 1);
    query.max_response_ms = 60000;
    EXPECT_EQ(build(query)[1], 255);
}

TEST(GmpdBuild, ABufferThatIsTooSmallGivesNothing)
{
    std::array<uint8_t, 27> buffer;
    EXPECT_EQ(build_query(general(MCAST_FAMILY_IPV6, 3), buffer), 0u);
    EXPECT_EQ(build_query(general(MCAST_FAMILY_IPV6, 2), buffer), 24u);
}

TEST(GmpdBuild, SourcesThatFitTheLink)
{
    EXPECT_EQ(sources_per_query(MCAST_FAMILY_IPV4, 1500), 366u);
    EXPECT_EQ(sources_per_query(MCAST_FAMILY_IPV6, 1500), 89u);
    EXPECT_EQ(sources_per_query(MCAST_FAMILY_IPV6, 1280), 75u);
    EXPECT_EQ(sources_per_query(MCAST_FAMILY_IPV4, 0), 1u);
}

TEST(GmpdFloatCode, RoundsDownAndUpToWhatACodeCanSay)
{
    EXPECT_EQ(encode_float_down(127, SHORT_MANTISSA), 127u);
    EXPECT_EQ(encode_float_down(128, SHORT_MANTISSA), 0x80u);
    EXPECT_EQ(encode_float_down(135, SHORT_MANTISSA), 0x80u);
    EXPECT_EQ(encode_float_up(129, SHORT_MANTISSA), 0x81u);
    EXPECT_EQ(encode_float_up(255, SHORT_MANTISSA), 0x90u) << "carries into the exponent";
    EXPECT_EQ(encode_float_down(31744, SHORT_MANTISSA), 0xffu);
    EXPECT_EQ(encode_float_down(0xffffffff, SHORT_MANTISSA), 0xffu);
    EXPECT_EQ(encode_float_up(0xffffffff, SHORT_MANTISSA), 0xffu);
    EXPECT_EQ(encode_float_down(32768, LONG_MANTISSA), 0x8000u);
    EXPECT_EQ(decode_float(0xffff, LONG_MANTISSA), 8387584u);
}

TEST(GmpdFloatCode, EveryCodeReadsBackAsItself)
{
    for (uint32_t code = 0; code < 256; ++code) {
        EXPECT_EQ(encode_float_down(decode_float(code, SHORT_MANTISSA), SHORT_MANTISSA), code);
        EXPECT_EQ(encode_float_up(decode_float(code, SHORT_MANTISSA), SHORT_MANTISSA), code);
    }
    for (uint32_t code = 0; code < 65536; ++code) {
        EXPECT_EQ(encode_float_down(decode_float(code, LONG_MANTISSA), LONG_MANTISSA), code);
    }
}
