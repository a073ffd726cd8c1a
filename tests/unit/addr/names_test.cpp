#include <gtest/gtest.h>
#include <map>
#include <string>

#include "mcast/addr.h"

namespace
{

TEST(RouteType, NamesTheKnownKindsAndCallsTheRestUnicast)
{
    const std::map<int, std::string> named = {
        {1, "unicast (direct)"},  {4, "igp"},    {5, "igp"}, {6, "igp"}, {10, "egp"},
        {17, "multicast static"}, {200, "mbgp"},
    };

    for (int type = 0; type < 256; ++type) {
        auto found = named.find(type);

        EXPECT_EQ(MCAST_GetRouteType(static_cast<uint8_t>(type)),
                  found != named.end() ? found->second : "unicast")
            << type;
    }
}

TEST(ModuleIdentifier, MapsThePairsThereAndBackAndNothingElse)
{
    const std::map<uint32_t, uint32_t> to_six = {{2, 3}, {4, 5}, {6, 7}};
    const std::map<uint32_t, uint32_t> to_four = {{3, 2}, {5, 4}, {7, 6}};
    for (uint32_t mid :
         {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 258u, 0x10002u, 0xfffffffeu, 0xffffffffu}) {
        EXPECT_EQ(MCAST_Mid4ToMid6(mid), to_six.count(mid) != 0 ? to_six.at(mid) : mid);
        EXPECT_EQ(MCAST_Mid6ToMid4(mid), to_four.count(mid) != 0 ? to_four.at(mid) : mid);
    }
}

} // namespace
