#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "mcast/interface_registry.h"
#include "support/scripted_interface.h"

namespace
{

using Calls = std::vector<std::pair<char, uint32_t>>;

const std::vector<std::pair<uint32_t, std::string>> kLayer3 = {
    {1, "analogmodem"},
    {2, "async"},
    {4, "atm"},
    {6, "bri"},
    {10, "dialer"},
    {16, "loopback"},
    {22, "ethernet_l3"},
    {23, "gigabitethernet_l3"},
    {24, "virtual-ethernet_l3"},
    {25, "ten-gigabitethernet_l3"},
    {27, "mfr"},
    {29, "mp-group"},
    {31, "pos"},
    {35, "serial"},
    {41, "vlan-interface"},
    {42, "virtual-template"},
    {47, "wlan-ethernet"},
    {55, "rpr-router"},
    {67, "route-aggregation"},
    {70, "fortygige_l3"},
    {71, "hundredgige_l3"},
    {39, "tunnel"},
    {89, "twentygige_l3"},
    {97, "efm"},
    {86, "hdlc-bundle"},
    {105, "ve-l3vpn"},
    {110, "reth"},
    {111, "vsi-interface"},
};

class Selector : public testing::Test
{
protected:
    IF_SELECTOR_S selector;
    uint32_t hidden = 0;
    uint32_t answer = 0;

    void SetUp() override
    {
        std::memset(&selector, 0xa5, sizeof(selector));
        scripted::if_type_data = [this](uint32_t type, uint32_t item, void *data) {
            EXPECT_EQ(type, 5u);
            EXPECT_EQ(item, 23u);
            uint32_t before = 1;

            std::memcpy(&before, data, sizeof(before));
            EXPECT_EQ(before, 0u);
            std::memcpy(data, &hidden, sizeof(hidden));
            asked_after = scripted::selector_calls.size();
            return answer;
        };
    }

    void TearDown() override
    {
        scripted::ResetInterface();
    }

    size_t asked_after = 0; /* selector calls made when type 5 was asked about */

    /* What the hook is to call, up to its own types. */
    static Calls Common()
    {
        Calls calls = {{'i', 5}, {'p', 8}};
        for (const auto &row : kLayer3) {
            calls.emplace_back('t', row.first);
        }
        return calls;
    }

    void ExpectCalls(const Calls &expected)
    {
        ASSERT_EQ(scripted::selector_calls.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(scripted::selector_calls[i].call, expected[i].first) << i;
            EXPECT_EQ(scripted::selector_calls[i].value, expected[i].second) << i;
            EXPECT_EQ(scripted::selector_calls[i].selector, &selector) << i;
        }
    }
};

template <size_t count>
std::vector<std::pair<uint32_t, std::string>> Rows(const MCAST_IF_TYPE_ROW_S (&table)[count])
{
    std::vector<std::pair<uint32_t, std::string>> rows;
    for (size_t i = 0; i + 1 < count; ++i) {
        rows.emplace_back(table[i].type, table[i].name);
    }
    EXPECT_EQ(table[count - 1].type, 0u);
    EXPECT_EQ(table[count - 1].name, nullptr);
    return rows;
}

TEST_F(Selector, TablesHoldTheirTypesInTheirOrder)
{
    EXPECT_EQ(Rows(g_astMcastL3If), kLayer3);

    std::vector<std::pair<uint32_t, std::string>> ethernet;
    std::vector<std::pair<uint32_t, std::string>> auth;

    for (uint32_t type : {22u, 23u, 24u, 25u, 42u, 67u, 70u, 71u, 89u, 105u, 110u, 111u}) {
        for (const auto &row : kLayer3) {
            if (row.first != type) {
                continue;
            }
            auth.push_back(row);
            if (type != 42) {
                ethernet.push_back(row);
            }
        }
    }
    EXPECT_EQ(Rows(g_astAuthL3If), auth);
    EXPECT_EQ(Rows(g_astMcastL3EthVsiIf), ethernet);
    ethernet.pop_back();
    EXPECT_EQ(Rows(g_astMcastL3EthernetIf), ethernet);
}

TEST_F(Selector, ForConfigurationAddsTypeThreeThenTypeFiveUnlessHidden)
{
    Calls expected = Common();

    expected.emplace_back('t', 3);
    hidden = 1;
    EXPECT_EQ(MCAST_IF_HookForCfg(&selector), 0u);
    ExpectCalls(expected);
    EXPECT_EQ(asked_after, expected.size());

    scripted::selector_calls.clear();
    hidden = 0;
    EXPECT_EQ(MCAST_IF_HookForCfg(&selector), 0u);
    EXPECT_EQ(asked_after, expected.size());
    expected.emplace_back('t', 5);
    ExpectCalls(expected);
}

TEST_F(Selector, ForQueryAddsFiveTypesThenTypeFiveUnlessHidden)
{
    Calls expected = Common();

    for (uint32_t type : {57u, 51u, 3u, 11u, 40u}) {
        expected.emplace_back('t', type);
    }
    hidden = 0xffffffff;
    EXPECT_EQ(MCAST_IF_HookForQuery(&selector), 0u);
    ExpectCalls(expected);
    EXPECT_EQ(asked_after, expected.size());

    scripted::selector_calls.clear();
    hidden = 0;
    EXPECT_EQ(MCAST_IF_HookForQuery(&selector), 0u);
    expected.emplace_back('t', 5);
    ExpectCalls(expected);
}

TEST_F(Selector, ResultIsThatOfTheLastPlatformCall)
{
    scripted::selector_result = [](const scripted::SelectorCall &call) -> uint32_t {
        return call.call == 't' && call.value == 5 ? 0x12345678 : 99;
    };
    answer = 0x55;
    EXPECT_EQ(MCAST_IF_HookForCfg(&selector), 0x12345678u);
    EXPECT_EQ(MCAST_IF_HookForQuery(&selector), 0x12345678u);
    hidden = 1;
    EXPECT_EQ(MCAST_IF_HookForCfg(&selector), 0x55u);
    EXPECT_EQ(MCAST_IF_HookForQuery(&selector), 0x55u);
}

TEST_F(Selector, TypeFiveIsSelectedWhenThePlatformSaysNothing)
{
    scripted::if_type_data = nullptr;
    EXPECT_EQ(MCAST_IF_HookForCfg(&selector), 0u);
    EXPECT_EQ(scripted::selector_calls.back().value, 5u);
}

} // namespace
