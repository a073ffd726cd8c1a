/*
 * Commands as operators write them, right ones and wrong ones.
 */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <net/if.h>
#include <unistd.h>

#include "daemons/uagent/command.h"

using namespace uagent;

namespace
{

struct Outcome {
    bool good = false;
    Command command;
    std::string error;
};

Outcome parse(const std::string &line, uint16_t family = MCAST_FAMILY_IPV4)
{
    Outcome outcome;
    outcome.good = parse_command(split_words(line), family, &outcome.command, &outcome.error);
    return outcome;
}

std::string error_of(const std::string &line, uint16_t family = MCAST_FAMILY_IPV4)
{
    const Outcome outcome = parse(line, family);
    return outcome.good ? "accepted" : outcome.error;
}

class TemporaryFile
{
public:
    explicit TemporaryFile(const std::string &text)
    {
        char path[] = "/tmp/uagent-test-XXXXXX";
        close(mkstemp(path));
        path_ = path;
        std::ofstream(path_) << text;
    }
    ~TemporaryFile()
    {
        remove(path_.c_str());
    }
    const std::string &path() const
    {
        return path_;
    }

private:
    std::string path_;
};

const std::string USER = "id=7 node=3 kind=1 ";
const std::string RECORD = "announce " + USER + "interface=lo address=10.2.0.2 ";

} // namespace

TEST(UagentCommand, EveryWordOfAnAnnouncementIsRead)
{
    const Outcome outcome =
        parse(RECORD + "second-address=10.9.0.1 vrf=5 hardware-address=02:a1:00:00:fF:09 name=alice "
                       "attribute-24=24 attribute-32=32 attribute-34=34 attribute-36=36 "
                       "attribute-40=40 attribute-70=70 attribute-80=0x80 attribute-84=84 "
                       "group=239.1.1.1 group=10.1.0.2,239.1.2.1 group=0.0.0.0,239.1.3.1 open=yes");
    ASSERT_TRUE(outcome.good) << outcome.error;
    const Command &command = outcome.command;
    EXPECT_EQ(command.verb, Verb::Announce);
    EXPECT_EQ(command.user_id, 7u);
    EXPECT_EQ(command.node, 3);
    EXPECT_EQ(command.kind, 1u);
    EXPECT_EQ(command.access_if_index, if_nametoindex("lo"));
    EXPECT_EQ(std::memcmp(command.address.address, "\x0a\x02\x00\x02\0\0\0\0\0\0\0\0\0\0\0\0", 16), 0);
    EXPECT_EQ(std::memcmp(command.second_address.address, "\x0a\x09\x00\x01", 4), 0);
    EXPECT_EQ(command.vrf_index, 5);
    EXPECT_EQ(command.hardware_address, (std::array<uint8_t, 6>{0x02, 0xa1, 0, 0, 0xff, 0x09}));
    EXPECT_EQ(command.name, "alice");
    EXPECT_EQ(command.attribute_24, 24u);
    EXPECT_EQ(command.attribute_32, 32);
    EXPECT_EQ(command.attribute_34, 34);
    EXPECT_EQ(command.attribute_36, 36u);
    EXPECT_EQ(command.attribute_40, 40);
    EXPECT_EQ(command.attribute_70, 70);
    EXPECT_EQ(command.attribute_80, 0x80u);
    EXPECT_EQ(command.attribute_84, 84u);
    ASSERT_EQ(command.permissions.size(), 3u);
    EXPECT_EQ(std::memcmp(command.permissions[0].source.address, "\0\0\0\0", 4), 0);
    EXPECT_EQ(std::memcmp(command.permissions[0].group.address, "\xef\x01\x01\x01", 4), 0);
    EXPECT_EQ(std::memcmp(command.permissions[1].source.address, "\x0a\x01\x00\x02", 4), 0);
    EXPECT_EQ(std::memcmp(command.permissions[2].group.address, "\xef\x01\x03\x01", 4), 0);
    EXPECT_TRUE(command.open);
}

TEST(UagentCommand, TheOtherVerbsNeedNoMoreThanTheyShow)
{
    EXPECT_EQ(parse("withdraw " + USER).command.verb, Verb::Withdraw);
    EXPECT_EQ(parse("groups " + USER).command.verb, Verb::Groups);
    EXPECT_EQ(parse("refresh-begin node=3 kind=4").command.verb, Verb::RefreshBegin);
    EXPECT_EQ(parse("refresh-end node=3 kind=4").command.kind, 4u);
    EXPECT_TRUE(parse("update " + USER + "interface=lo address=10.2.0.2").good);
}

TEST(UagentCommand, WrongWordsAreNamed)
{
    const struct {
        std::string line;
        const char *error;
    } rows[] = {
        {"", "there is no command"},
        {"# nothing", "there is no command"},
        {"anounce id=7", "anounce: no command of that name; did you mean announce?"},
        {"publish id=7", "publish: no command of that name"},
        {"withdraw id=7 kind=1", "withdraw: node= is missing"},
        {"announce " + USER + "address=10.2.0.2", "announce: interface= is missing"},
        {"withdraw " + USER + "id=8", "withdraw: id=8: given twice"},
        {"withdraw " + USER + "group=239.1.1.1", "withdraw: group=239.1.1.1: does not go with this verb"},
        {"refresh-begin node=3 kind=1 id=7", "refresh-begin: id=7: does not go with this verb"},
        {"withdraw " + USER + "loud", "withdraw: loud: not of the form key=value"},
        {"withdraw " + USER + "user=1", "withdraw: user=1: unknown key"},
        {"withdraw " + USER + "knid=1", "withdraw: knid=1: unknown key; did you mean kind?"},
        {"withdraw " + USER + "grop=1", "withdraw: grop=1: unknown key"}, // group does not go with it
        {"withdraw id=-1 node=3 kind=1", "withdraw: id=-1: no number from 0 to 4294967295"},
        {"withdraw id=4294967296 node=3 kind=1", "withdraw: id=4294967296: no number from 0 to 4294967295"},
        {"withdraw id=7x node=3 kind=1", "withdraw: id=7x: no number from 0 to 4294967295"},
        {"withdraw id= node=3 kind=1", "withdraw: id=: no number from 0 to 4294967295"},
        {"withdraw id=0x node=3 kind=1", "withdraw: id=0x: no number from 0 to 4294967295"},
        {"withdraw id=99999999999999999999 node=3 kind=1",
         "withdraw: id=99999999999999999999: no number from 0 to 4294967295"},
        {"withdraw id=7 node=65536 kind=1", "withdraw: node=65536: no number from 0 to 65535"},
        {"withdraw id=7 node=3 kind=5", "withdraw: kind=5: no number from 1 to 4"},
        {"withdraw id=7 node=3 kind=0", "withdraw: kind=0: no number from 1 to 4"},
        {RECORD + "attribute-40=65536", "announce: attribute-40=65536: no number from 0 to 65535"},
        {RECORD + "name=", "announce: name=: not 1 to 255 bytes"},
        {RECORD + "open=maybe", "announce: open=maybe: neither yes nor no"},
        {RECORD + "group-file=/nowhere/at/all", "announce: group-file=/nowhere/at/all: cannot be read"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(error_of(row.line), row.error);
    }
}

TEST(UagentCommand, AddressesAreThoseThatTheLibraryAccepts)
{
    for (const char *address : {"224.0.0.1", "0.0.0.0", "127.0.0.1", "10.2.0", "fe80::1", "ten"}) {
        const std::string word = std::string("address=") + address;
        EXPECT_EQ(error_of("announce " + USER + "interface=lo " + word),
                  "announce: " + word + ": no unicast IPv4 address");
    }
    for (const char *address : {"ff02::1", "::", "::1", "10.2.0.2", "fe80::1%lo"}) {
        const std::string word = std::string("address=") + address;
        EXPECT_EQ(error_of("announce " + USER + "interface=lo " + word, MCAST_FAMILY_IPV6),
                  "announce: " + word + ": no unicast IPv6 address");
    }
    EXPECT_TRUE(parse("announce " + USER + "interface=lo address=fe80::1", MCAST_FAMILY_IPV6).good)
        << "hosts report from link-local addresses";
}

TEST(UagentCommand, GroupsAreRoutedOnesAndSourcesUnicast)
{
    for (const char *group :
         {"224.0.0.5", "10.0.0.1", "ff1e::1", "239.1.1.1,", ",", "", "239.1.1.1,10.1.0.2"}) {
        EXPECT_NE(error_of("groups " + USER + "group=" + group), "accepted") << group;
    }
    EXPECT_EQ(error_of("groups " + USER + "group=224.0.0.5"),
              "groups: group=224.0.0.5: no IPv4 group that is routed, nor SOURCE,GROUP");
    EXPECT_EQ(error_of("groups " + USER + "group=239.1.1.1,239.1.1.2"),
              "groups: group=239.1.1.1,239.1.1.2: what precedes the comma is no unicast IPv4 source");
    EXPECT_EQ(error_of("groups " + USER + "group=ff02::5", MCAST_FAMILY_IPV6),
              "groups: group=ff02::5: no IPv6 group that is routed, nor SOURCE,GROUP");
    EXPECT_TRUE(parse("groups " + USER + "group=::,ff1e::1 group=fd00::1,ff1e::1", MCAST_FAMILY_IPV6).good);
}

TEST(UagentCommand, InterfacesAreNamesIndexesAndTheLibrarysOwn)
{
    const auto index = [](const char *interface, uint16_t family) {
        const std::string address = family == MCAST_FAMILY_IPV4 ? "10.2.0.2" : "fd00::2";
        const Outcome outcome =
            parse("announce " + USER + "interface=" + interface + " address=" + address, family);
        return outcome.good ? outcome.command.access_if_index : 0;
    };
    EXPECT_EQ(index("lo", MCAST_FAMILY_IPV4), if_nametoindex("lo"));
    EXPECT_EQ(index("0x2a", MCAST_FAMILY_IPV4), 42u);
    EXPECT_EQ(index("Multicast-UA5", MCAST_FAMILY_IPV4), 0xD0000005u);
    EXPECT_EQ(index("multi5", MCAST_FAMILY_IPV6), 0xD2000005u);
    for (const char *wrong : {"nosuch0", "", "0x0", "0x", "0x1g", "0x100000000"}) {
        EXPECT_EQ(index(wrong, MCAST_FAMILY_IPV4), 0u) << wrong;
    }
    EXPECT_EQ(error_of("announce " + USER + "interface=nosuch0 address=10.2.0.2"),
              "announce: interface=nosuch0: no interface of this machine, or more than one");
}

TEST(UagentCommand, HardwareAddressesAreSixWholeBytes)
{
    for (const char *wrong : {"02:00:00:00:00", "02:00:00:00:00:0", "02:00:00:00:00:001", "02-00-00-00-00-01",
                              "0g:00:00:00:00:01", "02:00:00:00:00:01:", "+2:00:00:00:00:01", ""}) {
        EXPECT_NE(error_of(RECORD + "hardware-address=" + wrong), "accepted") << wrong;
    }
}

TEST(UagentCommand, AGroupFileIsReadLineByLine)
{
    const TemporaryFile good("239.1.1.1 # the news\n\n# more\n10.1.0.2,239.1.2.1   239.1.3.1");
    const Outcome outcome = parse("groups " + USER + "group=239.1.9.9 group-file=" + good.path());
    ASSERT_TRUE(outcome.good) << outcome.error;
    EXPECT_EQ(outcome.command.permissions.size(), 4u);
    const std::string twice = "group-file=" + good.path() + " group-file=" + good.path();
    EXPECT_EQ(parse("groups " + USER + twice).command.permissions.size(), 6u) << "several files";

    const TemporaryFile bad("239.1.1.1\n\n239.1.1.300\n");
    EXPECT_EQ(error_of("groups " + USER + "group-file=" + bad.path()),
              "groups: group-file=" + bad.path() +
                  ": line 3: 239.1.1.300: no IPv4 group that is routed, nor SOURCE,GROUP");
    EXPECT_EQ(error_of("groups " + USER + "group-file=/tmp"),
              "groups: group-file=/tmp: cannot be read to its end");
}

TEST(UagentCommand, ANameHasAtMostItsLength)
{
    EXPECT_TRUE(parse(RECORD + "name=" + std::string(NAME_MAX_LENGTH, 'n')).good);
    EXPECT_FALSE(parse(RECORD + "name=" + std::string(NAME_MAX_LENGTH + 1, 'n')).good);
}
