#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "mcast/addr.h"
#include "support/addresses.h"

namespace
{

/* The sum word by word in memory order, as the definition counts it. */
class WordSum
{
public:
    void Add(const void *bytes, size_t length)
    {
        const uint8_t *byte = static_cast<const uint8_t *>(bytes);
        for (; length >= 2; length -= 2, byte += 2) {
            AddWord(byte[0], byte[1]);
        }
        if (length == 1) {
            AddWord(byte[0], 0);
        }
    }

    uint32_t Complement() const
    {
        uint64_t sum = sum_;
        while (sum > 0xffff) {
            sum = (sum & 0xffff) + (sum >> 16);
        }
        return ~static_cast<uint32_t>(sum);
    }

private:
    void AddWord(uint8_t first, uint8_t second)
    {
        const uint8_t bytes[2] = {first, second};
        uint16_t word;
        std::memcpy(&word, bytes, sizeof(word));
        sum_ += word;
    }

    uint64_t sum_ = 0;
};

struct Header {
    MCAST_ADDR_S src = Addr("fe80::1234:5678:9abc:def0");
    MCAST_ADDR_S dst = Addr("ff02::16");
    uint32_t upper_length = 0;
    uint32_t next_header = 58;
};

uint32_t Expected(const uint8_t *data, size_t length, const Header &header)
{
    WordSum sum;
    uint32_t upper_length = htonl(header.upper_length);
    const uint8_t last[2] = {0, static_cast<uint8_t>(header.next_header % 256)};
    sum.Add(header.src.address, 16);
    sum.Add(header.dst.address, 16);
    sum.Add(&upper_length, 4);
    sum.Add(last, 2);
    sum.Add(data, length);
    return sum.Complement();
}

uint32_t Actual(const uint8_t *data, size_t length, const Header &header)
{
    return MCAST_Inet6Cksum(reinterpret_cast<const uint16_t *>(data), static_cast<uint32_t>(length),
                            &header.src, &header.dst, header.upper_length, header.next_header);
}

std::vector<uint8_t> RandomBytes(std::mt19937 &random, size_t length)
{
    std::vector<uint8_t> bytes(length);
    for (uint8_t &byte : bytes) {
        byte = static_cast<uint8_t>(random());
    }
    return bytes;
}

TEST(Checksum, OfAListenerReportIsTheOneOnTheWire)
{
    /* An MLDv2 report for ff05::1:3, its checksum field zero; the checksum was worked out by hand. */
    const uint8_t report[] = {143, 0, 0, 0, 0, 0, 0, 1, 4, 0, 0, 0, 0xff, 0x05,
                              0,   0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0,    3};
    Header header;

    header.src = Addr("fe80::1");
    header.dst = Addr("ff02::16");
    header.upper_length = sizeof(report);
    uint32_t result = Actual(report, sizeof(report), header);

    /* fe80+1 + ff02+16 + 1c + 3a + 8f00+1+400+ff05+1+3 = 38ff9, folded 8ffc. */
    EXPECT_EQ(ntohs(static_cast<uint16_t>(result)), 0xffff - 0x8ffc);
    EXPECT_EQ(result >> 16, 0xffffu);
}

TEST(Checksum, OfAMessageThatCarriesItsChecksumIsZero)
{
    std::mt19937 random(11);
    std::vector<uint8_t> data = RandomBytes(random, 300);
    Header header;

    header.upper_length = 300;
    data[2] = data[3] = 0;
    uint16_t stored = static_cast<uint16_t>(Actual(data.data(), data.size(), header));

    std::memcpy(&data[2], &stored, sizeof(stored));
    EXPECT_EQ(Actual(data.data(), data.size(), header) & 0xffff, 0u);
}

TEST(Checksum, AgreesWithTheDefinitionForEveryShortLengthAtEveryAlignment)
{
    std::mt19937 random(12);
    std::vector<uint8_t> data = RandomBytes(random, 400);
    Header header;
    for (size_t start = 0; start < 32; ++start) {
        for (size_t length = 0; length <= 300; ++length) {
            header.upper_length = static_cast<uint32_t>(length);
            ASSERT_EQ(Actual(&data[start], length, header), Expected(&data[start], length, header))
                << "start " << start << " length " << length;
        }
    }
}

TEST(Checksum, AgreesWithTheDefinitionForRandomLengths)
{
    std::mt19937 random(13);
    std::vector<uint8_t> data = RandomBytes(random, 10100);

    for (int i = 0; i < 2000; ++i) {
        size_t start = random() % 64;
        size_t length = random() % 10001;
        Header header;

        for (int byte = 0; byte < 16; ++byte) {
            header.src.address[byte] = static_cast<uint8_t>(random());
            header.dst.address[byte] = static_cast<uint8_t>(random());
        }
        header.upper_length = static_cast<uint32_t>(random());
        header.next_header = static_cast<uint32_t>(random());
        ASSERT_EQ(Actual(&data[start], length, header), Expected(&data[start], length, header))
            << "start " << start << " length " << length;
    }
}

TEST(Checksum, CarriesRightWhenEveryByteIsOnes)
{
    std::vector<uint8_t> data(70000, 0xff);
    Header header;
    std::memset(header.src.address, 0xff, 16);
    std::memset(header.dst.address, 0xff, 16);
    header.upper_length = 0xffffffff;
    header.next_header = 0xff;
    for (size_t length = 0; length <= data.size(); length += length < 300 ? 1 : 997) {
        ASSERT_EQ(Actual(data.data(), length, header), Expected(data.data(), length, header)) << length;
    }
}

TEST(Checksum, StaysExactOverMoreThanTheLanesHold)
{
    std::mt19937 random(14);
    std::vector<uint8_t> ones(3 * 1024 * 1024 + 77, 0xff);
    std::vector<uint8_t> mixed = RandomBytes(random, ones.size());
    constexpr size_t kEdge = 0x1000 * 16;
    for (size_t length :
         {kEdge - 32, kEdge - 31, kEdge - 16, kEdge, kEdge + 1, 2 * kEdge - 64, 2 * kEdge, ones.size()}) {
        EXPECT_EQ(Actual(ones.data(), length, Header()), Expected(ones.data(), length, Header())) << length;
        EXPECT_EQ(Actual(mixed.data(), length, Header()), Expected(mixed.data(), length, Header())) << length;
    }
}

TEST(Checksum, OfNothingButZerosIsAllOnes)
{
    const uint8_t zeros[40] = {};
    Header header;
    header.src = header.dst = g_stMcastDefSrcAddr6;
    header.next_header = 0;
    EXPECT_EQ(Actual(zeros, sizeof(zeros), header), 0xffffffffu);
    EXPECT_EQ(Actual(nullptr, 0, header), 0xffffffffu);
}

TEST(Checksum, TakesAnOddLastByteAsTheFirstOfAZeroPaddedWord)
{
    std::vector<uint8_t> odd = {1, 2, 3, 4, 5};
    std::vector<uint8_t> padded = {1, 2, 3, 4, 5, 0};
    EXPECT_EQ(Actual(odd.data(), odd.size(), Header()), Actual(padded.data(), padded.size(), Header()));
}

TEST(Checksum, CountsBothHalvesOfTheUpperLength)
{
    Header plain, high, low;
    high.upper_length = 0x00020000;
    low.upper_length = 0x00000002;
    EXPECT_EQ(Actual(nullptr, 0, high), Expected(nullptr, 0, high));
    EXPECT_EQ(Actual(nullptr, 0, high), Actual(nullptr, 0, low));
    EXPECT_NE(Actual(nullptr, 0, high), Actual(nullptr, 0, plain));
}

TEST(Checksum, CountsTheNextHeaderModulo256)
{
    Header plain, large;
    large.next_header = 0xabcdef00 + plain.next_header;
    EXPECT_EQ(Actual(nullptr, 0, large), Actual(nullptr, 0, plain));
}

TEST(Checksum, CountsAllSixteenBytesOfAnIpv4Record)
{
    Header header;
    header.src = Addr("10.1.2.3");
    header.src.address[15] = 9;
    EXPECT_EQ(Actual(nullptr, 0, header), Expected(nullptr, 0, header));
}

TEST(Checksum, ReadsNoByteBehindTheData)
{
    for (size_t length = 1; length < 100; ++length) {
        std::vector<uint8_t> exact(length, 0x5a);
        std::vector<uint8_t> block(exact);

        block.push_back(0xff);
        ASSERT_EQ(Actual(exact.data(), length, Header()), Actual(block.data(), length, Header())) << length;
    }
}

} // namespace
