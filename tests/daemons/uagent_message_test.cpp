/*
 * The bytes of each message, and how long lists are cut.
 */
#include <gtest/gtest.h>
#include <net/if.h>

#include "daemons/uagent/describe.h"
#include "daemons/uagent/message.h"

using namespace uagent;

namespace
{

using Bytes = std::vector<uint8_t>;

constexpr size_t READ_MAX = 1400;
constexpr size_t LIST_HEAD = 4 + 20;

Command parse(const std::string &line, uint16_t family = MCAST_FAMILY_IPV4)
{
    Command command;
    std::string error;
    EXPECT_TRUE(parse_command(split_words(line), family, &command, &error)) << error;
    return command;
}

// A command with so many permissions.
Command with_groups(const std::string &line, size_t count)
{
    Command command = parse(line);
    for (size_t i = 0; i < count; ++i) {
        Permission permission;
        permission.source.family = MCAST_FAMILY_IPV4;
        permission.group.family = MCAST_FAMILY_IPV4;
        permission.group.address[0] = 239;
        permission.group.address[2] = static_cast<uint8_t>(i >> 8);
        permission.group.address[3] = static_cast<uint8_t>(i);
        command.permissions.push_back(permission);
    }
    return command;
}

uint32_t number(const Bytes &bytes, size_t offset, size_t size)
{
    uint32_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        value = value << 8 | bytes.at(offset + i);
    }
    return value;
}

std::vector<uint16_t> types_of(const std::vector<Message> &messages)
{
    std::vector<uint16_t> types;
    for (const Message &message : messages) {
        types.push_back(message.type);
    }
    return types;
}

const std::string USER = "id=0x01020304 node=0x0506 kind=2 ";

} // namespace

TEST(UagentMessage, AnAnnouncementHasEveryFieldAtItsPlace)
{
    const Command command =
        parse("announce " + USER +
              "interface=0x11121314 address=10.2.0.2 second-address=10.9.0.1 vrf=0x2122 name=al "
              "hardware-address=31:32:33:34:35:36 attribute-24=0x41424344 attribute-32=0x5152 "
              "attribute-34=0x5354 attribute-36=0x61626364 attribute-40=0x7172 attribute-70=0x7374 "
              "attribute-80=0x81828384 attribute-84=0x91929394");
    const Bytes expected = {
        0,    0,    0,    91,                                                   // head
        1,    2,    3,    4,    0x11, 0x12, 0x13, 0x14,                         // ID, interface
        10,   2,    0,    2,    0,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0, // address
        0x41, 0x42, 0x43, 0x44, 0,    0,    0,    2,                            // 24, kind
        0x51, 0x52, 0x53, 0x54, 0x61, 0x62, 0x63, 0x64,                         // 32, 34, 36
        0x71, 0x72, 0x21, 0x22, 5,    6,    0,    3,                            // 40, VRF, node, name length
        10,   9,    0,    1,    0,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0, // second address
        0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x73, 0x74,                         // hardware address, 70
        0,    0,    0,    0,    0,    88,   0,    32,                           // no entries, name offset
        0x81, 0x82, 0x83, 0x84, 0x91, 0x92, 0x93, 0x94,                         // 80, 84
        'a',  'l',  0,                                                          // name
    };
    const auto messages = build_messages(command);
    EXPECT_EQ(types_of(messages), (std::vector<uint16_t>{0, 4}));
    EXPECT_EQ(messages[0].bytes, expected);
}

TEST(UagentMessage, AGroupListCarriesSourceThenGroup)
{
    const auto messages =
        build_messages(parse("groups " + USER + "group=10.1.0.2,239.1.2.1 group=239.1.1.1"));
    Bytes expected = {
        0,  3, 0, 84,                           // head
        1,  2, 3, 4,  5, 6,  0, 0,  0, 0, 0, 2, // ID, node, kind
        0,  0, 0, 2,  0, 20, 0, 32,             // count, offset, stride
        10, 1, 0, 2,  0, 0,  0, 0,  0, 0, 0, 0, 0, 0, 0, 0, 239, 1, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0,  0, 0, 0,  0, 0,  0, 0,  0, 0, 0, 0, 0, 0, 0, 0, 239, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    };
    ASSERT_EQ(types_of(messages), (std::vector<uint16_t>{3, 4}));
    EXPECT_EQ(messages[0].bytes, expected);
    EXPECT_EQ(messages[1].bytes,
              (Bytes{0, 4, 0, 20, 1, 2, 3, 4, 5, 6, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 20, 0, 32}));
}

TEST(UagentMessage, IPv6AddressesFillTheirSixteenBytes)
{
    const auto messages =
        build_messages(parse("groups " + USER + "group=fd00::2,ff1e::1", MCAST_FAMILY_IPV6));
    const Bytes &bytes = messages[0].bytes;
    EXPECT_EQ(number(bytes, LIST_HEAD, 4), 0xfd000000u);
    EXPECT_EQ(number(bytes, LIST_HEAD + 12, 4), 2u);
    EXPECT_EQ(number(bytes, LIST_HEAD + 16, 4), 0xff1e0000u);
    EXPECT_EQ(number(bytes, LIST_HEAD + 28, 4), 1u);
}

TEST(UagentMessage, RefreshesNameNodeAndKindAlone)
{
    EXPECT_EQ(build_messages(parse("refresh-begin node=0x0506 kind=4"))[0].bytes,
              (Bytes{0, 5, 0, 8, 5, 6, 0, 0, 0, 0, 0, 4}));
    EXPECT_EQ(build_messages(parse("refresh-end node=0x0506 kind=4"))[0].bytes,
              (Bytes{0, 6, 0, 8, 5, 6, 0, 0, 0, 0, 0, 4}));
}

TEST(UagentMessage, AWithdrawalNamesTheUser)
{
    const auto messages = build_messages(parse("withdraw " + USER));
    ASSERT_EQ(types_of(messages), std::vector<uint16_t>{1});
    EXPECT_EQ(messages[0].bytes.size(), 4u + 88u);
    EXPECT_EQ(number(messages[0].bytes, 4, 4), 0x01020304u);
    EXPECT_EQ(number(messages[0].bytes, 4 + 44, 2), 0x0506u);
    EXPECT_EQ(number(messages[0].bytes, 4 + 28, 4), 2u);
}

TEST(UagentMessage, LongListsAreCutSoThatEachPartFitsOneRead)
{
    for (const size_t count : {0u, 1u, 42u, 43u, 44u, 86u, 87u, 1000u}) {
        const Command command = with_groups("announce " + USER + "interface=lo address=10.2.0.2", count);
        const auto messages = build_messages(command);
        size_t next = 0;
        ASSERT_EQ(messages.size(), 2 + (count + 42) / 43) << count;
        EXPECT_EQ(messages.front().type, 0);
        EXPECT_EQ(messages.back().type, 4);
        for (const Message &message : messages) {
            EXPECT_LE(message.bytes.size(), READ_MAX);
            EXPECT_EQ(number(message.bytes, 2, 2), message.bytes.size() - 4);
            if (message.type == 3) {
                EXPECT_EQ(message.first_permission, next);
                EXPECT_EQ(number(message.bytes, 4 + 12, 4), message.permission_count);
                EXPECT_EQ(message.bytes.size(), LIST_HEAD + 32 * message.permission_count);
                EXPECT_EQ(number(message.bytes, LIST_HEAD + 16 + 2, 2), next)
                    << "the first group of the part";
                next += message.permission_count;
            }
        }
        EXPECT_EQ(next, count);
    }
    EXPECT_EQ(build_messages(with_groups("groups " + USER, 43))[0].bytes.size(), READ_MAX)
        << "not a byte is lost";
}

TEST(UagentMessage, AnOpenListHasNoEnd)
{
    EXPECT_EQ(types_of(build_messages(parse("groups " + USER + "group=239.1.1.1 open=yes"))),
              std::vector<uint16_t>{3});
    EXPECT_EQ(types_of(build_messages(parse("groups " + USER))), std::vector<uint16_t>{4});
}

TEST(UagentDescribe, EachMessageIsALine)
{
    const Command command =
        parse("update id=7 node=3 kind=1 interface=lo address=10.2.0.2 name=a\"b vrf=5 "
              "hardware-address=02:00:00:00:00:01 attribute-40=4 group=10.1.0.2,239.1.2.1 "
              "group=239.1.1.1");
    const auto messages = build_messages(command);
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(describe(command, messages[0]),
              "update user 7 node 3 kind 1 interface lo address 10.2.0.2 vrf 5 "
              "hardware-address 02:00:00:00:00:01 name a\"b attribute-40 4");
    EXPECT_EQ(describe(command, messages[1]),
              "group list user 7 node 3 kind 1 (10.1.0.2, 239.1.2.1) (*, 239.1.1.1)");
    EXPECT_EQ(describe(command, messages[2]), "group list end user 7 node 3 kind 1");
    EXPECT_EQ(
        describe_json(command, messages[0]),
        R"({"message": "update", "user": 7, "node": 3, "kind": 1, "interface": "lo", "address": "10.2.0.2", )"
        R"("vrf": 5, "hardware-address": "02:00:00:00:00:01", "name": "a\"b", "attribute-40": 4})");
    EXPECT_EQ(describe_json(command, messages[1]),
              R"({"message": "group list", "user": 7, "node": 3, "kind": 1, "groups": [)"
              R"({"source": "10.1.0.2", "group": "239.1.2.1"}, {"source": "*", "group": "239.1.1.1"}]})");
}

TEST(UagentDescribe, ARefreshHasNoUser)
{
    const Command command = parse("refresh-begin node=3 kind=1");
    EXPECT_EQ(describe(command, build_messages(command)[0]), "refresh begin node 3 kind 1");
}
