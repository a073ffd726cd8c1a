// What the interface service says of links, in network namespaces of its own.
//
//     left0 ===== right0     veth pairs, both ends in the namespace, beside its loopback
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <net/if.h>
#include <string>
#include <thread>

#include "interface_support.h"
#include "mcast/interface_name.h"
#include "mcast/interface_registry.h"
#include "mcasthost/link.h"

namespace
{

using namespace host_test;

// The text of an item, or "-" when the call fails; whatever it does, no byte past the name is written.
std::string text_item(uint32_t if_index, uint32_t item)
{
    char buffer[IF_NAME_SIZE];
    memset(buffer, '#', sizeof(buffer));
    uint32_t result = IF_GetDataByIfIndex(if_index, item, buffer);
    if (result != 0) {
        EXPECT_EQ(std::count(buffer, buffer + sizeof(buffer), '#'), IF_NAME_SIZE);
        return "-";
    }
    size_t length = strnlen(buffer, sizeof(buffer));
    EXPECT_EQ(std::count(buffer, buffer + sizeof(buffer), '#'), static_cast<long>(IF_NAME_SIZE - length - 1));
    return std::string(buffer, length);
}

uint32_t type_of(const char *name)
{
    uint32_t type = 0;
    EXPECT_EQ(IF_GetDataByIfIndex(if_nametoindex(name), IF_ITEM_TYPE, &type), 0u) << name;
    return type;
}

TEST(InterfaceData, GivesNamesTypesAndIndexesWithoutALinkTable)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        uint32_t left = if_nametoindex("left0");
        EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "left0");
        EXPECT_EQ(text_item(left, IF_ITEM_SHORT_NAME), "left0");
        EXPECT_EQ(type_of("left0"), VIRTUAL_ETHERNET);
        EXPECT_EQ(type_of("lo"), LOOPBACK);
        EXPECT_EQ(IF_GetIfIndexByFullName("left0"), left);
        EXPECT_EQ(IF_GetIfIndexByFullName("lo"), if_nametoindex("lo"));
        uint32_t hidden = 7;
        EXPECT_EQ(IF_GetDataByIfIndex(left, IF_TYPE_ITEM_HIDDEN, &hidden), 0u);
        EXPECT_EQ(hidden, 0u);
        shell("ip link set left0 name west0");
        EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "west0");
        EXPECT_EQ(IF_GetIfIndexByFullName("left0"), 0u);
        EXPECT_EQ(IF_GetIfIndexByFullName("west0"), left);
        shell("ip link del west0");
        EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "-");
    });
}

TEST(InterfaceData, MapsTheKernelsKindsToTypeCodes)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        const struct {
            const char *command;
            uint32_t type;
        } rows[] = {
            {"link add x type dummy", LOOPBACK},
            {"link add x link left0 type macvlan", VIRTUAL_ETHERNET},
            {"link add x link left0 type macsec", 22},
            {"tuntap add x mode tun", 39},
            {"tuntap add x mode tap", 39},
            {"link add x type gre local 10.9.0.1 remote 10.9.0.2", 39},
            {"link add x type vxlan id 7 dstport 4789", 39},
            {"link add x type wireguard", 39},
            {"link add x link left0 type vlan id 7", 41},
            {"link add x type bond", 67},
            {"link add x type bridge", 111},
            {"link add x type vrf table 7", 128},
            {"link add x type ifb", 128},
        };
        std::string tried;
        for (const auto &row : rows) {
            if (system((std::string("ip ") + row.command + " 2>/dev/null").c_str()) == 0) {
                EXPECT_EQ(type_of("x"), row.type) << row.command;
                tried += std::string(" ip ") + row.command + ";";
                shell("ip link del x");
            }
        }
        std::cout << "this kernel makes:" << tried << "\n"; // the rest cannot be tried here
    });
}

TEST(InterfaceData, GivesTheLongestNameWhole)
{
    IN_FRESH_NAMESPACE([] {
        make_pair("fifteen-bytes-0");
        uint32_t index = if_nametoindex("fifteen-bytes-0");
        EXPECT_EQ(text_item(index, IF_ITEM_FULL_NAME), "fifteen-bytes-0");
        EXPECT_EQ(text_item(index, IF_ITEM_SHORT_NAME), "fifteen-bytes-0");
        EXPECT_EQ(IF_GetIfIndexByFullName("fifteen-bytes-0"), index);
        EXPECT_EQ(IF_GetIfIndexByFullName("fifteen-bytes-01"), 0u);
    });
}

TEST(InterfaceData, RefusesUnknownIndexesItemsAndNoBuffer)
{
    IN_FRESH_NAMESPACE([] {
        uint32_t lo = if_nametoindex("lo");
        uint32_t value = 7;
        errno = EXDEV;
        for (uint32_t index : {0u, lo + 1000, 0x7fffffffu, 0x80000000u, 0xd0000007u, UINT32_MAX}) {
            EXPECT_NE(IF_GetDataByIfIndex(index, IF_ITEM_TYPE, &value), 0u) << index;
        }
        EXPECT_NE(IF_GetDataByIfIndex(lo, 0, &value), 0u);
        EXPECT_NE(IF_GetDataByIfIndex(lo, 12, &value), 0u);
        EXPECT_EQ(value, 7u);
        EXPECT_NE(IF_GetDataByIfIndex(lo, IF_ITEM_FULL_NAME, nullptr), 0u);
        EXPECT_EQ(IF_GetIfIndexByFullName(nullptr), 0u);
        EXPECT_EQ(IF_GetIfIndexByFullName(""), 0u);
        EXPECT_EQ(IF_GetIfIndexByFullName(std::string(4096, 'x').c_str()), 0u);
        EXPECT_EQ(errno, EXDEV);
    });
}

TEST(InterfaceData, TellsWhichTypesMayBeSelected)
{
    uint32_t hidden = 7;
    EXPECT_EQ(IF_GetDataByIfType(5, IF_TYPE_ITEM_HIDDEN, &hidden), 0u);
    EXPECT_EQ(hidden, 0u);
    EXPECT_EQ(IF_GetDataByIfType(128, IF_TYPE_ITEM_HIDDEN, &hidden), 0u);
    EXPECT_EQ(hidden, 1u);
    EXPECT_NE(IF_GetDataByIfType(0, IF_TYPE_ITEM_HIDDEN, &hidden), 0u);
    EXPECT_NE(IF_GetDataByIfType(129, IF_TYPE_ITEM_HIDDEN, &hidden), 0u);
    EXPECT_NE(IF_GetDataByIfType(5, 12, &hidden), 0u);
    EXPECT_NE(IF_GetDataByIfType(5, IF_TYPE_ITEM_HIDDEN, nullptr), 0u);
    EXPECT_EQ(hidden, 1u);
}

TEST(InterfaceData, TellsHowTypesAreCalled)
{
    const struct {
        uint32_t type;
        const char *full;
        const char *brief;
    } rows[] = {
        {16, "loopback", "loop"},
        {22, "ethernet_l3", "eth"},
        {24, "virtual-ethernet_l3", "veth"},
        {35, "serial", "ser"},
        {39, "tunnel", "tun"},
        {41, "vlan-interface", "vlan"},
        {67, "route-aggregation", "ragg"},
        {110, "reth", "reth"},
        {111, "vsi-interface", "vsi"},
    };
    for (const auto &row : rows) {
        char full[IF_NAME_SIZE];
        char brief[IF_SHORT_NAME_SIZE];
        uint32_t type = 0;
        EXPECT_EQ(IF_GetDataByIfType(row.type, IF_ITEM_FULL_NAME, full), 0u);
        EXPECT_STREQ(full, row.full);
        EXPECT_EQ(IF_GetDataByIfType(row.type, IF_ITEM_SHORT_NAME, brief), 0u);
        EXPECT_STREQ(brief, row.brief);
        EXPECT_EQ(IF_GetDataByIfType(row.type, IF_ITEM_TYPE, &type), 0u);
        EXPECT_EQ(type, row.type);
    }
}

// The library's selectors go by the same names.
TEST(InterfaceData, CallsTypesAsTheLibraryDoes)
{
    unsigned named = 0;
    for (const MCAST_IF_TYPE_ROW_S *row = g_astMcastL3If; row->name != nullptr; ++row) {
        char full[IF_NAME_SIZE];
        if (IF_GetDataByIfType(static_cast<uint32_t>(row->type), IF_ITEM_FULL_NAME, full) == 0) {
            EXPECT_STREQ(full, row->name);
            ++named;
        }
    }
    EXPECT_EQ(named, 9u) << "every type that the host gives to a link is one of the library's";
}

TEST(InterfaceData, TypesThatNoLinkHasAreWithoutNames)
{
    char name[IF_NAME_SIZE] = "untouched";
    for (const uint32_t type : {0u, 1u, 5u, 127u, 128u, 129u, UINT32_MAX}) {
        EXPECT_NE(IF_GetDataByIfType(type, IF_ITEM_FULL_NAME, name), 0u) << type;
        EXPECT_NE(IF_GetDataByIfType(type, IF_ITEM_SHORT_NAME, name), 0u) << type;
    }
    EXPECT_STREQ(name, "untouched");
    uint32_t code = 7;
    for (const uint32_t type : {0u, 129u, UINT32_MAX}) {
        EXPECT_NE(IF_GetDataByIfType(type, IF_ITEM_TYPE, &code), 0u) << type;
    }
    EXPECT_EQ(code, 7u);
    EXPECT_EQ(IF_GetDataByIfType(128, IF_ITEM_TYPE, &code), 0u);
    EXPECT_EQ(code, 128u);
    EXPECT_NE(IF_GetDataByIfType(22, IF_ITEM_FULL_NAME, nullptr), 0u);
}

// With a table the answers change when its loop has served the kernel's notification, not before: they are
// the table's.
TEST(InterfaceData, FollowsTheLinkTableWhenOneIsOpen)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        uint32_t left = if_nametoindex("left0");
        int loop = HOST_LoopCreate();
        HOST_LINK_TABLE table = HOST_LinkOpen(loop, nullptr, nullptr);
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "left0");
        EXPECT_EQ(type_of("left0"), VIRTUAL_ETHERNET);
        shell("ip link set left0 name west0");
        EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "left0");
        EXPECT_EQ(IF_GetIfIndexByFullName("west0"), 0u);
        while (HOST_LoopRunOnce(loop, 0) == 1) {
        }
        EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "west0");
        EXPECT_EQ(IF_GetIfIndexByFullName("west0"), left);
        EXPECT_EQ(fill("w0"), "west0");
        std::thread([left] { EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "west0"); }).join();
        shell("ip link del west0");
        while (HOST_LoopRunOnce(loop, 0) == 1) {
        }
        EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "-");
        EXPECT_EQ(fill("w0"), "-");
        HOST_LinkClose(table);
        EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
    });
}

TEST(InterfaceData, AsksTheKernelAgainWhenTheTableIsClosedOrNotTheOnlyOne)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        uint32_t left = if_nametoindex("left0");
        int loop = HOST_LoopCreate();
        HOST_LINK_TABLE first = HOST_LinkOpen(loop, nullptr, nullptr);
        HOST_LINK_TABLE second = HOST_LinkOpen(loop, nullptr, nullptr);
        shell("ip link set left0 name west0");
        EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "west0");
        HOST_LinkClose(first);
        EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "left0");
        HOST_LinkClose(second);
        EXPECT_EQ(text_item(left, IF_ITEM_FULL_NAME), "west0");
        EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
    });
}

void check_inside(HOST_LINK_TABLE, const HOST_LINK_EVENT_S *event, void *context)
{
    bool there = event->kind != HOST_LINK_EVENT_REMOVED;
    EXPECT_EQ(text_item(event->link->if_index, IF_ITEM_FULL_NAME), there ? event->link->name : "-");
    ++*static_cast<int *>(context);
}

TEST(InterfaceData, ShowsAChangeToTheTablesCallback)
{
    IN_FRESH_NAMESPACE([] {
        int events = 0;
        int loop = HOST_LoopCreate();
        HOST_LINK_TABLE table = HOST_LinkOpen(loop, check_inside, &events);
        EXPECT_GE(events, 1);
        make_pair();
        shell("ip link set left0 name west0");
        shell("ip link del west0");
        while (HOST_LoopRunOnce(loop, 0) == 1) {
        }
        EXPECT_GE(events, 6);
        HOST_LinkClose(table);
        EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
    });
}

TEST(InterfaceData, ServesThreadsWhileTheTableChanges)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        int loop = HOST_LoopCreate();
        HOST_LINK_TABLE table = HOST_LinkOpen(loop, nullptr, nullptr);
        std::atomic<bool> stop{false};
        std::thread reader([&] {
            uint32_t right = IF_GetIfIndexByFullName("right0");
            while (!stop) {
                EXPECT_EQ(text_item(right, IF_ITEM_FULL_NAME), "right0");
                EXPECT_EQ(fill("r0"), "right0");
            }
        });
        for (int i = 0; i < 20; ++i) {
            shell("ip link set left0 name " + std::string(i % 2 == 0 ? "west0" : "left0") +
                  (i % 2 == 0 ? "" : " 2>/dev/null || ip link set west0 name left0"));
            while (HOST_LoopRunOnce(loop, 0) == 1) {
            }
        }
        stop = true;
        reader.join();
        HOST_LinkClose(table);
        EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
    });
}

TEST(InterfaceWithLibrary, NamesAndIndexesGoBothWays)
{
    IN_FRESH_NAMESPACE([] {
        make_pair();
        char name[MCAST_IF_NAME_SIZE] = "";
        EXPECT_EQ(MCAST_GetIfIndexByIfName("LEF", "0", name), if_nametoindex("left0"));
        EXPECT_STREQ(name, "left0");
        MCAST_GetIfNameOrIndex(if_nametoindex("right0"), name);
        EXPECT_STREQ(name, "right0");
        MCAST_GetIfNameOrIndex(0x1234, name);
        EXPECT_STREQ(name, "0x1234");
        EXPECT_EQ(MCAST_GetIfTypeByIfIndex(if_nametoindex("lo")), LOOPBACK);
        EXPECT_EQ(MCAST_IF_CanMibSet(if_nametoindex("left0")), 0u);
        EXPECT_NE(MCAST_IF_CanMibSet(0x1234), 0u);
    });
}

} // namespace
