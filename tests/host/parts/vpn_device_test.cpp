// VPN instances out of the kernel's messages: what the notifications say goes through the parser, the link
// table and the view of it that answers the platform's questions. The messages are made here, because few
// kernels at hand have VRF devices.
#include <cerrno>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <net/if.h>
#include <string>
#include <vector>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "interface_view.h"
#include "link_message.h"
#include "link_table.h"
#include "mcasthost/config.h"
#include "platform/vpn.h"
#include "vpn_instance.h"

namespace
{

// A link as the kernel's messages describe it. Attributes that are empty or 0 are left out.
struct Device {
    uint32_t index = 0;
    std::string name;
    std::string kind;
    uint32_t master = 0;
    std::vector<uint8_t> table; // the bytes of attribute 1 of the kind's data
};

std::vector<uint8_t> bytes_of(uint32_t value)
{
    const auto *first = reinterpret_cast<const uint8_t *>(&value);
    return {first, first + sizeof(value)};
}

// A route netlink message about a link.
class LinkMessage
{
public:
    LinkMessage(uint16_t type, const Device &device)
    {
        header_ = mnl_nlmsg_put_header(buffer_);
        header_->nlmsg_type = type;
        auto *info = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(header_, sizeof(ifinfomsg)));
        info->ifi_index = static_cast<int>(device.index);
        info->ifi_flags = IFF_UP | IFF_BROADCAST;
        mnl_attr_put_strz(header_, IFLA_IFNAME, device.name.c_str());
        if (device.master != 0) {
            mnl_attr_put_u32(header_, IFLA_MASTER, device.master);
        }
        nlattr *link_info = mnl_attr_nest_start(header_, IFLA_LINKINFO);
        if (!device.kind.empty()) {
            mnl_attr_put_strz(header_, IFLA_INFO_KIND, device.kind.c_str());
        }
        nlattr *data = mnl_attr_nest_start(header_, IFLA_INFO_DATA);
        if (!device.table.empty()) {
            mnl_attr_put(header_, IFLA_VRF_TABLE, device.table.size(), device.table.data());
        }
        mnl_attr_nest_end(header_, data);
        mnl_attr_nest_end(header_, link_info);
    }

    const nlmsghdr *header() const
    {
        return header_;
    }

private:
    alignas(nlmsghdr) char buffer_[512] = {};
    nlmsghdr *header_;
};

uint32_t parsed_table(const Device &device)
{
    HOST_LINK_S link;
    EXPECT_TRUE(host::read_link(LinkMessage(RTM_NEWLINK, device).header(), &link));
    return link.vrf_table;
}

TEST(VrfMessage, NamesTheTableOfAVrfDevice)
{
    EXPECT_EQ(parsed_table({7, "red", "vrf", 0, bytes_of(100)}), 100u);
    EXPECT_EQ(parsed_table({7, "red", "vrf", 0, bytes_of(0xfffffffe)}), 0xfffffffeu);
}

TEST(VrfMessage, OtherKindsHaveNoTable)
{
    EXPECT_EQ(parsed_table({7, "m0", "macvlan", 0, bytes_of(4)}), 0u) << "its mode has the same number";
    EXPECT_EQ(parsed_table({7, "x", "", 0, bytes_of(4)}), 0u);
    EXPECT_EQ(parsed_table({7, "red", "vrf0", 0, bytes_of(4)}), 0u);
}

TEST(VrfMessage, TableOfAnotherLengthOrNoneIsNone)
{
    EXPECT_EQ(parsed_table({7, "red", "vrf", 0, {}}), 0u);
    EXPECT_EQ(parsed_table({7, "red", "vrf", 0, {100, 0}}), 0u);
    EXPECT_EQ(parsed_table({7, "red", "vrf", 0, {100, 0, 0, 0, 0, 0, 0, 0}}), 0u);
}

// What an instance is asked for.
constexpr int NO_INSTANCE = -1;

class VrfDevices : public testing::Test
{
protected:
    void SetUp() override
    {
        load("");
        say({1, "lo", "", 0, {}});
        feed_.complete();
    }
    void TearDown() override
    {
        load("");
    }

    static void load(const std::string &text)
    {
        char error[HOST_CONFIG_ERROR_SIZE];
        ASSERT_EQ(HOST_ConfigLoadText("f", text.data(), text.size(), nullptr, error, sizeof(error)), 0u)
            << error;
    }

    void say(const Device &device)
    {
        host::apply_message(LinkMessage(RTM_NEWLINK, device).header(), &state_);
    }
    void gone(const Device &device)
    {
        host::apply_message(LinkMessage(RTM_DELLINK, device).header(), &state_);
    }

    static int instance_of(uint32_t if_index)
    {
        uint16_t vrf_index = 9999;
        errno = EXDEV;
        const bool found = L3VPN_GetVrfIndexByIfIndex(if_index, &vrf_index) == 0;
        EXPECT_EQ(errno, EXDEV);
        EXPECT_TRUE(found || vrf_index == 9999) << "touched on failure";
        return found ? vrf_index : NO_INSTANCE;
    }

    // "-" when there is no such instance.
    static std::string name_of(uint16_t vrf_index)
    {
        char name[L3VPN_NAME_SIZE];
        errno = EXDEV;
        const bool found = L3VPN_GetNameByVrfIndex(vrf_index, sizeof(name), name) == 0;
        EXPECT_EQ(errno, EXDEV);
        return found ? name : "-";
    }

    const Device red_{7, "red", "vrf", 0, bytes_of(100)};
    const Device port_{3, "eth1", "", 7, {}};
    host::InterfaceFeed feed_;
    host::LinkState state_{[](const HOST_LINK_EVENT_S &event, void *feed) {
                               static_cast<host::InterfaceFeed *>(feed)->apply(event);
                           },
                           &feed_};
};

TEST_F(VrfDevices, DeviceWithoutAnEntryIsTheInstanceOfItsTable)
{
    say(red_);
    say(port_);
    say({4, "eth2", "", 0, {}});
    EXPECT_EQ(instance_of(7), 100);
    EXPECT_EQ(instance_of(3), 100);
    EXPECT_EQ(instance_of(4), 0);
    EXPECT_EQ(name_of(100), "red");
    EXPECT_EQ(name_of(7), "-");
    EXPECT_EQ(name_of(0), "");
}

TEST_F(VrfDevices, NothingIsConfiguredBeforeTheFirstLoad)
{
    HOST_LINK_S device{};
    ASSERT_TRUE(host::read_link(LinkMessage(RTM_NEWLINK, red_).header(), &device));
    HOST_LINK_S port{};
    ASSERT_TRUE(host::read_link(LinkMessage(RTM_NEWLINK, port_).header(), &port));
    EXPECT_EQ(host::instance_of_device(nullptr, device), 100);
    EXPECT_EQ(host::instance_of_link(nullptr, port, &device), 100);
    EXPECT_EQ(host::instance_of_link(nullptr, port, nullptr), 0);
}

TEST_F(VrfDevices, DeviceNamedLikeAnEntryIsThatInstance)
{
    load("[[vpn]]\nname = 'red'\nindex = 5\ninterfaces = ['eth2']\n");
    say(red_);
    say(port_);
    say({4, "eth2", "", 0, {}});
    EXPECT_EQ(instance_of(7), 5);
    EXPECT_EQ(instance_of(3), 5);
    EXPECT_EQ(instance_of(4), 5);
    EXPECT_EQ(name_of(5), "red");
    EXPECT_EQ(name_of(100), "-");
    load("");
    EXPECT_EQ(instance_of(3), 100);
    EXPECT_EQ(instance_of(4), 0);
    EXPECT_EQ(name_of(5), "-");
}

TEST_F(VrfDevices, KernelGoesBeforeTheFileAboutAnInterface)
{
    load("[[vpn]]\nname = 'green'\nindex = 5\ninterfaces = ['eth1', 'red']\n");
    say(red_);
    say(port_);
    EXPECT_EQ(instance_of(3), 100);
    EXPECT_EQ(instance_of(7), 100);
    say({3, "eth1", "", 0, {}});
    EXPECT_EQ(instance_of(3), 5);
}

TEST_F(VrfDevices, TableThatIsNoIndexGivesNoInstance)
{
    say(port_);
    for (const uint32_t table : {0u, 65536u, 65536u + 100, 0xffffffffu}) {
        say({7, "red", "vrf", 0, bytes_of(table)});
        EXPECT_EQ(instance_of(7), NO_INSTANCE) << table;
        EXPECT_EQ(instance_of(3), NO_INSTANCE) << "not the public one either";
        EXPECT_EQ(name_of(static_cast<uint16_t>(table)), table % 65536 == 0 ? "" : "-");
    }
    say({7, "red", "vrf", 0, bytes_of(65535)});
    EXPECT_EQ(instance_of(3), 65535);
}

TEST_F(VrfDevices, TableThatIsAnEntrysIndexGivesNoInstance)
{
    load("[[vpn]]\nname = 'green'\nindex = 100\n");
    say(red_);
    say(port_);
    EXPECT_EQ(instance_of(7), NO_INSTANCE);
    EXPECT_EQ(instance_of(3), NO_INSTANCE);
    EXPECT_EQ(name_of(100), "green");
    load("");
    EXPECT_EQ(instance_of(3), 100);
}

TEST_F(VrfDevices, PortsOfOtherDevicesAreNotAffected)
{
    say({7, "br0", "bridge", 0, bytes_of(100)});
    say(port_);
    EXPECT_EQ(instance_of(3), 0);
    load("[[vpn]]\nname = 'green'\nindex = 5\ninterfaces = ['eth1']\n");
    EXPECT_EQ(instance_of(3), 5);
}

TEST_F(VrfDevices, PortOfAnUnknownDeviceBelongsToNone)
{
    say(port_);
    EXPECT_EQ(instance_of(3), NO_INSTANCE);
}

TEST_F(VrfDevices, NotificationsAreFollowed)
{
    load("[[vpn]]\nname = 'green'\nindex = 5\n");
    say({3, "eth1", "", 0, {}});
    EXPECT_EQ(instance_of(3), 0);
    say(red_);
    EXPECT_EQ(name_of(100), "red");
    say(port_);
    EXPECT_EQ(instance_of(3), 100);
    say({7, "green", "vrf", 0, bytes_of(100)});
    EXPECT_EQ(instance_of(3), 5) << "renamed";
    EXPECT_EQ(name_of(100), "-");
    say({7, "blue", "vrf", 0, bytes_of(200)});
    EXPECT_EQ(instance_of(3), 200) << "renamed, with another table";
    say({3, "eth1", "", 0, {}});
    EXPECT_EQ(instance_of(3), 0) << "released";
    gone({7, "blue", "vrf", 0, bytes_of(200)});
    EXPECT_EQ(name_of(200), "-");
    EXPECT_EQ(instance_of(7), NO_INSTANCE);
}

TEST_F(VrfDevices, DevicesOfOneTableAreOneInstanceNamedByTheFirst)
{
    say({9, "second", "vrf", 0, bytes_of(100)});
    say(red_);
    say(port_);
    say({4, "eth2", "", 9, {}});
    EXPECT_EQ(instance_of(3), 100);
    EXPECT_EQ(instance_of(4), 100);
    EXPECT_EQ(name_of(100), "red");
    gone(red_);
    EXPECT_EQ(name_of(100), "second");
}

TEST_F(VrfDevices, NameIsCutToTheCapacity)
{
    say(red_);
    char name[4] = "...";
    EXPECT_EQ(L3VPN_GetNameByVrfIndex(100, 4, name), 0u);
    EXPECT_STREQ(name, "red");
    EXPECT_NE(L3VPN_GetNameByVrfIndex(100, 3, name), 0u);
    EXPECT_STREQ(name, "re");
    EXPECT_NE(L3VPN_GetNameByVrfIndex(100, 0, name), 0u);
    EXPECT_NE(L3VPN_GetNameByVrfIndex(100, 4, nullptr), 0u);
    EXPECT_NE(L3VPN_GetVrfIndexByIfIndex(7, nullptr), 0u);
}

} // namespace
