#include <gtest/gtest.h>

#include "daemons/msdpd/wire.h"

using namespace msdpd;

namespace
{

// Two entries for the originator 10.0.0.1: (192.0.2.1, 239.1.1.1) and (192.0.2.2, 239.1.1.2).
const Bytes TWO_ENTRIES = {1,   0, 32, 2, 10, 0, 0, 1,  0,   0, 0, 32, 239, 1, 1, 1,
                           192, 0, 2,  1, 0,  0, 0, 32, 239, 1, 1, 2,  192, 0, 2, 2};

Tlv tlv_of(const Bytes &bytes)
{
    Tlv tlv{};
    EXPECT_EQ(next_tlv(bytes, &tlv), Framing::Complete);
    return tlv;
}

std::string entries_of(const Bytes &bytes)
{
    SourceActive message;
    std::string line;
    if (!parse_source_active(tlv_of(bytes).value, &message)) {
        return "malformed";
    }
    line = to_text(message.rp);
    for (const Pair &pair : message.pairs) {
        line += " " + to_text(pair);
    }
    return line;
}

Bytes with(Bytes bytes, size_t at, uint8_t value)
{
    bytes.at(at) = value;
    return bytes;
}

} // namespace

TEST(MsdpdWire, BuildsTheBytesOfASourceActive)
{
    const Pair pairs[] = {{{0xef010101}, {0xc0000201}}, {{0xef010102}, {0xc0000202}}};
    EXPECT_EQ(build_source_active(TLV_SOURCE_ACTIVE, {0x0a000001}, pairs), TWO_ENTRIES);
    EXPECT_EQ(build_source_active(TLV_RESPONSE, {0x0a000001}, pairs), with(TWO_ENTRIES, 0, 3));
}

TEST(MsdpdWire, BuildsTheBytesOfRequestAndKeepalive)
{
    EXPECT_EQ(build_request({0xef010101}), (Bytes{2, 0, 8, 0, 239, 1, 1, 1}));
    EXPECT_EQ(build_keepalive(), (Bytes{4, 0, 3}));
}

TEST(MsdpdWire, ReadsEntries)
{
    EXPECT_EQ(entries_of(TWO_ENTRIES), "10.0.0.1 (192.0.2.1, 239.1.1.1) (192.0.2.2, 239.1.1.2)");
    EXPECT_EQ(entries_of({1, 0, 8, 0, 10, 0, 0, 1}), "10.0.0.1");
}

TEST(MsdpdWire, ReservedBytesAreIgnored)
{
    EXPECT_EQ(entries_of(with(with(TWO_ENTRIES, 8, 255), 10, 7)), entries_of(TWO_ENTRIES));
}

TEST(MsdpdWire, EntriesWithAnotherPrefixLengthAreCountedAndLeftOut)
{
    SourceActive message;
    ASSERT_TRUE(parse_source_active(tlv_of(with(TWO_ENTRIES, 11, 24)).value, &message));
    EXPECT_EQ(message.ignored_entries, 1u);
    ASSERT_EQ(message.pairs.size(), 1u);
    EXPECT_EQ(to_text(message.pairs[0]), "(192.0.2.2, 239.1.1.2)");
}

TEST(MsdpdWire, WhatFollowsTheEntriesIsData)
{
    SourceActive message;
    ASSERT_TRUE(parse_source_active(tlv_of(with(TWO_ENTRIES, 3, 1)).value, &message));
    EXPECT_EQ(message.pairs.size(), 1u);
    EXPECT_EQ(message.data_size, 12u);
}

TEST(MsdpdWire, ACountBeyondTheMessageIsMalformed)
{
    EXPECT_EQ(entries_of(with(TWO_ENTRIES, 3, 3)), "malformed");
    EXPECT_EQ(entries_of(with(TWO_ENTRIES, 3, 255)), "malformed");
    EXPECT_EQ(entries_of({1, 0, 7, 0, 10, 0, 0}), "malformed");
    EXPECT_EQ(entries_of({1, 0, 3}), "malformed");
}

TEST(MsdpdWire, ARequestHasOneLength)
{
    Ipv4 group;
    EXPECT_TRUE(parse_request(tlv_of({2, 0, 8, 9, 239, 1, 1, 1}).value, &group));
    EXPECT_EQ(to_text(group), "239.1.1.1");
    EXPECT_FALSE(parse_request(tlv_of({2, 0, 7, 0, 239, 1, 1}).value, &group));
    EXPECT_FALSE(parse_request(tlv_of({2, 0, 9, 0, 239, 1, 1, 1, 0}).value, &group));
    EXPECT_FALSE(parse_request(tlv_of({2, 0, 3}).value, &group));
}

TEST(MsdpdWire, AMessageIsCompleteWithItsLastByte)
{
    Tlv tlv{};

    for (size_t size = 0; size < TWO_ENTRIES.size(); ++size) {
        EXPECT_EQ(next_tlv(std::span(TWO_ENTRIES).first(size), &tlv), Framing::Incomplete) << size;
    }
    Bytes more = TWO_ENTRIES;

    more.push_back(4);
    EXPECT_EQ(tlv_of(more).size, TWO_ENTRIES.size());
}

TEST(MsdpdWire, LengthsThatNoMessageHasAreFoundAtOnce)
{
    Tlv tlv{};
    EXPECT_EQ(next_tlv(Bytes{9, 0, 2}, &tlv), Framing::BadLength);
    EXPECT_EQ(next_tlv(Bytes{9, 0, 0}, &tlv), Framing::BadLength);
    EXPECT_EQ(next_tlv(Bytes{1, 9193 >> 8, 9193 & 255}, &tlv), Framing::BadLength);
    EXPECT_EQ(next_tlv(Bytes{1, 9192 >> 8, 9192 & 255}, &tlv), Framing::Incomplete);
    EXPECT_EQ(next_tlv(Bytes{9, 0, 3}, &tlv), Framing::Complete);
}
