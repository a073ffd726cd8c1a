#include <algorithm>
#include <gtest/gtest.h>
#include <map>

#include "daemons/pimsmd/bsr_fragments.h"
#include "daemons/pimsmd/bsr_pieces.h"
#include "tests/daemons/pimsmd_messages.h"
#include "tests/support/property.h"

using namespace pimsmd_test;
using pimsmd::Bootstrap;
using pimsmd::BootstrapPiece;
using pimsmd::BootstrapRangeOut;
using pimsmd::BootstrapRp;
using pimsmd::Prefix;

namespace
{

Address numbered(uint8_t first, unsigned number)
{
    const uint8_t bytes[] = {first, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number), 0};
    return pimsmd::make_address(MCAST_FAMILY_IPV4, bytes);
}

// The message of a piece.
Bytes message_of(const BootstrapPiece &piece)
{
    Bootstrap message;
    message.fragment_tag = 7;
    message.bsr = addr("10.9.0.1");
    Bytes bytes(pimsmd::MAX_MESSAGE_SIZE);
    bytes.resize(pimsmd::write_bootstrap(bytes, envelope(MCAST_FAMILY_IPV4), message, piece));
    return bytes;
}

} // namespace

// A head of 14 bytes, 12 of a range, 10 of an RP.
TEST(PimBsrPieces, AreCutBetweenRps)
{
    const std::vector<BootstrapRp> rps(3, {addr("10.0.0.1"), 150, 0});
    const std::vector<BootstrapRangeOut> ranges = {{{Prefix::parse("239.0.0.0/8").value()}, 3, rps},
                                                   {{Prefix::parse("238.0.0.0/8").value()}, 0, {}}};
    const auto shape = [&](size_t size) {
        std::string text;
        for (const BootstrapPiece &piece : pimsmd::cut_bootstrap(MCAST_FAMILY_IPV4, ranges, size)) {
            text += "|";
            for (const BootstrapRangeOut &one : piece) {
                text += std::to_string(one.rps.size());
            }
            EXPECT_LE(message_of(piece).size(), std::max<size_t>(size, 36));
        }
        return text;
    };
    EXPECT_EQ(shape(68), "|30");
    EXPECT_EQ(shape(67), "|3|0");
    EXPECT_EQ(shape(56), "|3|0");
    EXPECT_EQ(shape(55), "|2|10");
    EXPECT_EQ(shape(36), "|1|1|1|0");
    EXPECT_EQ(shape(0), "|1|1|1|0");
    EXPECT_EQ(pimsmd::cut_bootstrap(MCAST_FAMILY_IPV4, {}, 100).size(), 1u);
}

TEST(PimBsrPieces, PutTogetherInAnyOrderAreWhatWasCut)
{
    property::Random random(property::Seed("bsr_pieces"));
    for (uint64_t round = 0; round < property::Operations(300); ++round) {
        std::vector<std::vector<BootstrapRp>> rps(1 + random.Below(5));
        std::vector<BootstrapRangeOut> ranges;
        std::map<Prefix, size_t> found;
        for (unsigned i = 0; i < rps.size(); ++i) {
            for (uint64_t count = random.Below(40); count > 0; --count) {
                rps[i].push_back({numbered(10, static_cast<unsigned>(count)), 150, 0});
            }
            ranges.push_back(
                {{Prefix::of(numbered(239, i), 24)}, static_cast<uint8_t>(rps[i].size()), rps[i]});
        }
        const size_t size = 36 + random.Below(300);
        std::vector<BootstrapPiece> pieces = pimsmd::cut_bootstrap(MCAST_FAMILY_IPV4, ranges, size);
        pimsmd::Counters counters;
        pimsmd::BsrFragments fragments(counters);
        for (size_t left = pieces.size(); left > 0; --left) {
            std::swap(pieces[left - 1], pieces[random.Below(static_cast<uint32_t>(left))]);
            const Bytes bytes = message_of(pieces[left - 1]);
            Message read;
            ASSERT_LE(bytes.size(), size);
            ASSERT_EQ(pimsmd::read_message(envelope(MCAST_FAMILY_IPV4), bytes, &read), NO_DROP);
            fragments.take(std::get<Bootstrap>(read),
                           [&](const Prefix &range, std::span<const BootstrapRp> all) {
                               EXPECT_TRUE(found.emplace(range, all.size()).second);
                           });
        }
        ASSERT_EQ(fragments.kept(), 0u);
        ASSERT_EQ(found.size(), ranges.size());
        for (const BootstrapRangeOut &range : ranges) {
            ASSERT_EQ(found.at(range.range.prefix), range.rps.size());
        }
    }
}
