#include <gtest/gtest.h>
#include <vector>

#include "daemons/mribd/address.h"
#include "daemons/mribd/upcall.h"

using namespace mribd;

namespace
{

// As the kernel writes them: what would be the IP header, type 1, protocol 0, virtual interface, addresses.
const std::vector<uint8_t> NO_ENTRY4 = {0x45, 0, 0, 28, 0, 0, 0, 0, 1, 0, 3, 0, 10, 0, 0, 5, 239, 1, 1, 1};

std::vector<uint8_t> no_entry6()
{
    std::vector<uint8_t> bytes = {0, 1, 3, 0, 0, 0, 0, 0};
    const std::vector<uint8_t> source = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5};
    const std::vector<uint8_t> group = {0xff, 0x1e, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    bytes.insert(bytes.end(), source.begin(), source.end());
    bytes.insert(bytes.end(), group.begin(), group.end());
    return bytes;
}

TEST(Upcall, ReadsANewSourceOfEachFamily)
{
    const auto four = parse_upcall(MCAST_FAMILY_IPV4, NO_ENTRY4.data(), NO_ENTRY4.size());
    ASSERT_TRUE(four);
    EXPECT_EQ(four->kind, UpcallKind::NoEntry);
    EXPECT_EQ(four->vif, 3u);
    EXPECT_EQ(text_or_star(four->source), "10.0.0.5");
    EXPECT_EQ(text_or_star(four->group), "239.1.1.1");
    const auto bytes = no_entry6();
    const auto six = parse_upcall(MCAST_FAMILY_IPV6, bytes.data(), bytes.size());
    ASSERT_TRUE(six);
    EXPECT_EQ(six->vif, 3u);
    EXPECT_EQ(text_or_star(six->source), "2001:db8::5");
    EXPECT_EQ(text_or_star(six->group), "ff1e::1");
}

TEST(Upcall, TellsAWrongInterfaceFromANewSource)
{
    auto bytes = NO_ENTRY4;
    bytes[8] = 2;
    EXPECT_EQ(parse_upcall(MCAST_FAMILY_IPV4, bytes.data(), bytes.size())->kind, UpcallKind::WrongInterface);
    auto bytes6 = no_entry6();
    bytes6[1] = 2;
    EXPECT_EQ(parse_upcall(MCAST_FAMILY_IPV6, bytes6.data(), bytes6.size())->kind,
              UpcallKind::WrongInterface);
}

TEST(Upcall, ReadsTheHighByteOfTheVirtualInterface)
{
    auto bytes = NO_ENTRY4;
    bytes[11] = 1;
    EXPECT_EQ(parse_upcall(MCAST_FAMILY_IPV4, bytes.data(), bytes.size())->vif, 0x103u);
}

TEST(Upcall, IgnoresPacketsOtherKindsAndShortOnes)
{
    auto packet = NO_ENTRY4;
    packet[9] = 2; // IGMP
    EXPECT_FALSE(parse_upcall(MCAST_FAMILY_IPV4, packet.data(), packet.size()));
    auto report = no_entry6();
    report[0] = 143; // MLDv2 report
    EXPECT_FALSE(parse_upcall(MCAST_FAMILY_IPV6, report.data(), report.size()));
    auto whole = NO_ENTRY4;
    whole[8] = 3;
    EXPECT_FALSE(parse_upcall(MCAST_FAMILY_IPV4, whole.data(), whole.size()));
    for (size_t size = 0; size < NO_ENTRY4.size(); ++size) {
        const std::vector<uint8_t> part(NO_ENTRY4.begin(), NO_ENTRY4.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_FALSE(parse_upcall(MCAST_FAMILY_IPV4, part.data(), part.size()));
    }
    const auto full = no_entry6();
    for (size_t size = 0; size < full.size(); ++size) {
        const std::vector<uint8_t> part(full.begin(), full.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_FALSE(parse_upcall(MCAST_FAMILY_IPV6, part.data(), part.size()));
    }
}

} // namespace
