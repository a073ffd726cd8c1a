// The configuration file: what is refused and how it is told, how loads replace each other, VPN instances.
#include <atomic>
#include <fstream>
#include <net/if.h>
#include <thread>
#include <vector>

#include "config_support.h"
#include "namespace.h"
#include "platform/vpn.h"

namespace
{

using host_test::load;
using host_test::load_error;
using host_test::match;
using host_test::one_rule;
using host_test::OTHER_TABLES;

class Config : public host_test::ConfigTest
{
};

class TemporaryFile
{
public:
    explicit TemporaryFile(const std::string &text)
    {
        char name[] = "/tmp/mcasthost-config-XXXXXX";
        const int fd = mkstemp(name);
        EXPECT_GE(fd, 0);
        close(fd);
        path_ = name;
        write(text);
    }
    ~TemporaryFile()
    {
        unlink(path_.c_str());
    }
    void write(const std::string &text) const
    {
        std::ofstream(path_) << text;
    }
    const char *path() const
    {
        return path_.c_str();
    }

private:
    std::string path_;
};

struct ErrorRow {
    std::string text;
    std::string error;
};

void expect_errors(const std::vector<ErrorRow> &rows)
{
    load(one_rule("ipv4", 2000, "id = 1\naction = 'permit'"));
    for (const ErrorRow &row : rows) {
        EXPECT_EQ(load_error(row.text), row.error) << row.text;
        EXPECT_TRUE(match(2000, "ipv4", "1.1.1.1").permitted()) << row.text; // still in force
    }
}

TEST_F(Config, ErrorsInTheFileNameTheirPlaceAndWhatIsAllowed)
{
    expect_errors({
        {"[acl]\nnumber = 2001\n", "f:1:1: acl is a table; allowed: tables, each under [[acl]]"},
        {"acl = [\n 5 ]", "f:2:2: in acl there is an integer; allowed: tables, each under [[acl]]"},
        {"\n[[acls]]\n",
         "f:2:3: unknown key \"acls\"; allowed: vpn, acl, node, service, gmpd, mribd, msdpd, pimsmd"},
        {"mribd = 5\n", "f:1:9: mribd is an integer; allowed: a table, [mribd]"},
        {"\"a\\nb\" = 5\n",
         "f:1:1: unknown key \"a?b\"; allowed: vpn, acl, node, service, gmpd, mribd, msdpd, pimsmd"},
    });
    // Where the text is not TOML the words are the parser's, on one line.
    for (const char *text : {"\n\n[[acl]\n", "\n\nacl = \n", "\n\na = 1\na = 2", "\n\nx = '\xff'"}) {
        const std::string error = load_error(text);
        EXPECT_TRUE(error.rfind("f:3:", 0) == 0 || error.rfind("f:4:", 0) == 0) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
}

TEST_F(Config, ErrorsInListsNameTheirPlaceAndWhatIsAllowed)
{
    expect_errors({
        {"[[acl]]\nfamily = 'ipv4'\n", "f:1:1: [[acl]] lacks the key number"},
        {"[[acl]]\nnumber = 2001\n", "f:1:1: [[acl]] lacks the key family"},
        {"[[acl]]\nnumber = '2001'\n", "f:2:10: number is a string; allowed: an integer, 2000 to 3999"},
        {"[[acl]]\nnumber = 2001.5\n",
         "f:2:10: number is a number with a fraction; allowed: an integer, 2000 to 3999"},
        {"[[acl]]\nnumber = 1999\n", "f:2:10: number is 1999; allowed: 2000 to 3999"},
        {"[[acl]]\nnumber = 4000\n", "f:2:10: number is 4000; allowed: 2000 to 3999"},
        {"[[acl]]\nnumber = -2001\n", "f:2:10: number is -2001; allowed: 2000 to 3999"},
        {"[[acl]]\nnumber = 2001\nfamily = 'IPv4'\n", "f:3:10: family is \"IPv4\"; allowed: ipv4, ipv6"},
        {"[[acl]]\nnumber = 2001\nfamily = 4\n", "f:3:10: family is an integer; allowed: a string"},
        {"[[acl]]\nnumber = 2001\nfamily = 'ipv4'\nname = ''\n",
         "f:4:8: name has 0 characters; allowed: 1 to 63"},
        {"[[acl]]\nnumber = 2001\nfamily = 'ipv4'\nnam = 'x'\n",
         "f:4:1: unknown key \"nam\" in [[acl]]; allowed: number, family, name, rule"},
        {"[[acl]]\nnumber = 2001\nfamily = 'ipv4'\n[[acl]]\nnumber = 2001\nfamily = 'ipv4'\n",
         "f:5:10: the family has another list 2001; allowed: a number of its own"},
        {"[[acl]]\nnumber = 2001\nfamily = 'ipv4'\nname = 'a'\n[[acl]]\nnumber = 2002\nfamily = 'ipv4'\nname "
         "= 'a'\n",
         "f:8:8: the family has another list named \"a\"; allowed: a name of its own"},
        {"[[acl]]\nnumber = 2001\nfamily = 'ipv4'\nrule = 'permit'\n",
         "f:4:8: rule is a string; allowed: tables, each under [[acl.rule]]"},
    });
}

TEST_F(Config, ErrorsInRulesNameTheirPlaceAndWhatIsAllowed)
{
    const std::string good = "id = 5\naction = 'deny'\n";
    const char *ipv4_forms = "; allowed: any, an IPv4 address, ADDRESS/LENGTH (0 to 32), ADDRESS WILDCARD "
                             "(10.0.0.0 0.255.255.255)";
    expect_errors({
        {one_rule("ipv4", 2001, "action = 'deny'\n"), "f:4:1: [[acl.rule]] lacks the key id"},
        {one_rule("ipv4", 2001, "id = 5\n"), "f:4:1: [[acl.rule]] lacks the key action"},
        {one_rule("ipv4", 2001, "id = -1\n"), "f:5:6: id is -1; allowed: 0 to 65535"},
        {one_rule("ipv4", 2001, "id = 65536\n"), "f:5:6: id is 65536; allowed: 0 to 65535"},
        {one_rule("ipv4", 2001, "id = 5\naction = 'alow'\n"),
         "f:6:10: action is \"alow\"; allowed: permit, deny"},
        {one_rule("ipv4", 2001, good + "sorce = 'any'\n"),
         "f:7:1: unknown key \"sorce\" in [[acl.rule]]; allowed: id, action, source, vrf"},
        {one_rule("ipv4", 2001, good + "destination = 'any'\n"),
         "f:7:1: unknown key \"destination\" in [[acl.rule]]; allowed: id, action, source, vrf"},
        {one_rule("ipv4", 3001, good + "dest = 'any'\n"),
         "f:7:1: unknown key \"dest\" in [[acl.rule]]; allowed: id, action, source, destination, vrf"},
        {one_rule("ipv4", 2001, good + "[[acl.rule]]\nid = 5\naction = 'deny'\n"),
         "f:8:6: the list has another rule 5; allowed: an id of its own"},
        {one_rule("ipv4", 2001, good + "source = 10\n"), "f:7:10: source is an integer; allowed: a string"},
        {one_rule("ipv4", 3001, good + "destination = '1.1.1/24'\n"),
         std::string("f:7:15: destination is \"1.1.1/24\"") + ipv4_forms},
        {one_rule("ipv4", 2001, good + "vrf = 'red'\n"),
         "f:7:7: vrf is \"red\"; allowed: the name or index of a [[vpn]], or 0"},
        {one_rule("ipv4", 2001, good + "vrf = 5\n"),
         "f:7:7: vrf is 5; allowed: the name or index of a [[vpn]], or 0"},
        {one_rule("ipv4", 2001, good + "vrf = 65536\n"), "f:7:7: vrf is 65536; allowed: 0 to 65535"},
        {one_rule("ipv4", 2001, good + "vrf = true\n"),
         "f:7:7: vrf is a truth value; allowed: an integer, 0 to 65535"},
    });
}

TEST_F(Config, TextThatIsNoPatternIsRefused)
{
    const char *ipv4[] = {"",
                          " ",
                          "Any",
                          "10.0.0.0/",
                          "10.0.0.0/33",
                          "10.0.0.0/-1",
                          "10.0.0.0/+1",
                          "10.0.0.0/8 ",
                          "10.0.0.0/ 8",
                          " 10.0.0.0",
                          "10.0.0.0 ",
                          "10.0.0.0  0.0.0.255",
                          "10.0.0.0 8",
                          "10.0.0.0/255.0.0.0",
                          "10.0.0.256",
                          "10.0.0",
                          "::1",
                          "10.0.0.0/08x",
                          "10.0.0.0/4294967304",
                          "/8",
                          "10.0.0.1\\u0000",
                          "10.0.0.0 0.0.0.1 0.0.0.2"};
    for (const char *text : ipv4) {
        const std::string error = load_error(
            one_rule("ipv4", 2001, std::string("id = 1\naction = 'deny'\nsource = \"") + text + "\""));
        EXPECT_EQ(error.rfind("f:7:10: source is \"", 0), 0u) << text << ": " << error;
        EXPECT_NE(error.find("an IPv4 address"), std::string::npos) << error;
    }
    for (const char *text : {"10.0.0.1", "ff0e::/129", "fe80::1%lo", "ff0e::1::", "ff0e:: 0.0.0.1"}) {
        const std::string error = load_error(
            one_rule("ipv6", 3001, std::string("id = 1\naction = 'deny'\nsource = '") + text + "'"));
        EXPECT_NE(error.find("an IPv6 address"), std::string::npos) << text << ": " << error;
    }
}

TEST_F(Config, ErrorsInInstancesNameTheirPlaceAndWhatIsAllowed)
{
    const std::string red = "[[vpn]]\nname = 'red'\nindex = 5\ninterfaces = ['e1']\n";
    const char *name_rule = "; allowed: 1 to 31 printable ASCII characters without spaces";
    expect_errors({
        {"[[vpn]]\nindex = 5\n", "f:1:1: [[vpn]] lacks the key name"},
        {"[[vpn]]\nname = 'red'\n", "f:1:1: [[vpn]] lacks the key index"},
        {"[[vpn]]\nname = ''\n", std::string("f:2:8: name is \"\"") + name_rule},
        {"[[vpn]]\nname = 'a b'\n", std::string("f:2:8: name is \"a b\"") + name_rule},
        {"[[vpn]]\nname = '12345678901234567890123456789012'\n",
         std::string("f:2:8: name is \"12345678901234567890123456789012\"") + name_rule},
        {"[[vpn]]\nname = 'red'\nindex = 0\n", "f:3:9: index is 0; allowed: 1 to 65535"},
        {"[[vpn]]\nname = 'red'\nindex = 65536\n", "f:3:9: index is 65536; allowed: 1 to 65535"},
        {red + "[[vpn]]\nname = 'red'\nindex = 6\n",
         "f:6:8: there is another instance named red; allowed: a name of its own"},
        {red + "[[vpn]]\nname = 'blue'\nindex = 5\n",
         "f:7:9: index 5 is instance red's; allowed: an index of its own"},
        {red + "[[vpn]]\nname = 'blue'\nindex = 6\ninterfaces = ['e2', 'e1']\n",
         "f:8:21: interface e1 is already in instance red; allowed: one instance an interface, and once"},
        {"[[vpn]]\nname = 'red'\nindex = 5\ninterfaces = 'e1'\n",
         "f:4:14: interfaces is a string; allowed: a list of strings"},
        {"[[vpn]]\nname = 'red'\nindex = 5\ninterfaces = [1]\n",
         "f:4:15: in interfaces there is an integer; allowed: strings"},
        {"[[vpn]]\nname = 'red'\nindex = 5\ninterfaces = ['sixteen-letters-']\n",
         "f:4:15: \"sixteen-letters-\" is no interface name; allowed: 1 to 15 printable ASCII characters "
         "without spaces and slashes"},
        {"[[vpn]]\nname = 'red'\nindex = 5\ncolour = 1\n",
         "f:4:1: unknown key \"colour\" in [[vpn]]; allowed: name, index, interfaces"},
    });
}

TEST_F(Config, TablesOfOtherProgramsAreLeftToThemWhenWhoLoadsKnowsThem)
{
    load("[mribd]\nanything = [1, 'x']\n[mribd.more]\nx = 1\n[gmpd]\n");
    const char text[] = "\n[mribd]\n";
    char error[HOST_CONFIG_ERROR_SIZE];
    EXPECT_EQ(HOST_ConfigLoadText("f", text, sizeof(text) - 1, nullptr, error, sizeof(error)), HOST_FAILED);
    EXPECT_STREQ(error, "f:2:2: unknown key \"mribd\"; allowed: vpn, acl, node, service");
}

TEST_F(Config, AFileIsLoadedAndReloadedAsAWhole)
{
    TemporaryFile file(one_rule("ipv4", 2001, "id = 1\naction = 'permit'"));
    char error[HOST_CONFIG_ERROR_SIZE] = "untouched";
    ASSERT_EQ(HOST_ConfigLoad(file.path(), OTHER_TABLES, error, sizeof(error)), 0u);
    EXPECT_STREQ(error, "");
    EXPECT_TRUE(match(2001, "ipv4", "1.1.1.1").permitted());

    // The first list of the broken file is good; it does not come into force either.
    file.write(one_rule("ipv4", 2001, "id = 1\naction = 'deny'\n") +
               one_rule("ipv4", 2002, "id = 1\naction = 'nothing'\n"));
    EXPECT_EQ(HOST_ConfigLoad(file.path(), OTHER_TABLES, error, sizeof(error)), HOST_FAILED);
    EXPECT_EQ(std::string(error),
              std::string(file.path()) + ":12:10: action is \"nothing\"; allowed: permit, deny");
    EXPECT_TRUE(match(2001, "ipv4", "1.1.1.1").permitted());
    EXPECT_EQ(match(2002, "ipv4", "1.1.1.1").code, ACL_ERR_NO_ACL);

    file.write(one_rule("ipv4", 2002, "id = 1\naction = 'permit'\n"));
    EXPECT_EQ(HOST_ConfigLoad(file.path(), OTHER_TABLES, error, sizeof(error)), 0u);
    EXPECT_EQ(match(2001, "ipv4", "1.1.1.1").code, ACL_ERR_NO_ACL);
    EXPECT_TRUE(match(2002, "ipv4", "1.1.1.1").permitted());
}

TEST_F(Config, AFileThatCannotBeReadChangesNothing)
{
    load(one_rule("ipv4", 2001, "id = 1\naction = 'permit'"));
    char error[HOST_CONFIG_ERROR_SIZE];
    EXPECT_EQ(HOST_ConfigLoad("/nowhere/at.all", OTHER_TABLES, error, sizeof(error)), HOST_FAILED);
    EXPECT_STREQ(error, "/nowhere/at.all: No such file or directory");
    EXPECT_EQ(HOST_ConfigLoad("/tmp", OTHER_TABLES, error, sizeof(error)), HOST_FAILED);
    EXPECT_STREQ(error, "/tmp: is a folder, not a file");
    EXPECT_EQ(HOST_ConfigLoad("/dev/zero", OTHER_TABLES, error, sizeof(error)), HOST_FAILED);
    EXPECT_STREQ(error, "/dev/zero: is no ordinary file");
    EXPECT_TRUE(match(2001, "ipv4", "1.1.1.1").permitted());
}

TEST_F(Config, AnErrorIsCutToTheBufferThatThereIs)
{
    const char text[] = "unknown = 1";
    char error[4] = "xxx";
    EXPECT_EQ(HOST_ConfigLoadText("name", text, sizeof(text) - 1, nullptr, error, sizeof(error)),
              HOST_FAILED);
    EXPECT_STREQ(error, "nam");
    EXPECT_EQ(HOST_ConfigLoadText("name", text, sizeof(text) - 1, nullptr, error, 1), HOST_FAILED);
    EXPECT_STREQ(error, "");
    EXPECT_EQ(HOST_ConfigLoadText("name", text, sizeof(text) - 1, nullptr, nullptr, 0), HOST_FAILED);
    EXPECT_EQ(HOST_ConfigLoadText("name", nullptr, 0, nullptr, nullptr, 0), 0u);
}

TEST_F(Config, TheExampleOfTheDocumentationLoads)
{
    char error[HOST_CONFIG_ERROR_SIZE];
    ASSERT_EQ(HOST_ConfigLoad(EXAMPLE_CONFIG, OTHER_TABLES, error, sizeof(error)), 0u) << error;
    EXPECT_TRUE(match(2001, "ipv4", "239.1.1.1", nullptr, 5).permitted());
    EXPECT_FALSE(match(2001, "ipv4", "239.1.1.1", nullptr, 6).permitted());
    EXPECT_TRUE(match(2001, "ipv4", "233.1.1.1").permitted());
    EXPECT_TRUE(match(3001, "ipv4", "10.1.77.1", "232.1.1.1").permitted());
    EXPECT_FALSE(match(3001, "ipv4", "10.1.78.1", "232.1.1.1").permitted());
    EXPECT_TRUE(match(2001, "ipv6", "ff35::", nullptr, 0).permitted());
    EXPECT_FALSE(match(2001, "ipv6", "ff45::", nullptr, 0).permitted());
    EXPECT_FALSE(match(2001, "ipv6", "ff35::", nullptr, 5).permitted());
    EXPECT_TRUE(match(2001, "ipv6", "ff3e::1", nullptr, 5).permitted());
}

// Every load says the same in both lists, one time permit and one time deny: readers see one of the two.
TEST_F(Config, ReadersOnOtherThreadsSeeOneConfigurationOrTheOtherAndNeverNone)
{
    constexpr int LOADS = 600;
    const auto text = [](const char *action) {
        const std::string rule = std::string("id = 1\naction = '") + action + "'\n";
        return "[[vpn]]\nname = '" + std::string(action) + "'\nindex = 7\n" + one_rule("ipv4", 2001, rule) +
               one_rule("ipv6", 3001, rule);
    };
    const std::string permit = text("permit");
    const std::string deny = text("deny");
    load(permit);
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> wrong{0};
    std::atomic<uint64_t> asked{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!stop) {
                char name[L3VPN_NAME_SIZE];
                bool good = match(2001, "ipv4", "232.1.1.1").code == 0 &&
                            match(3001, "ipv6", "2001:db8::1", "ff3e::1").code == 0 &&
                            ACL_GetRuleTotalNumber(ACL_FAMILY_IPV4, 2001) == 1 &&
                            L3VPN_GetNameByVrfIndex(7, sizeof(name), name) == 0 &&
                            (name == std::string("permit") || name == std::string("deny"));
                wrong += good ? 0 : 1;
                ++asked;
            }
        });
    }
    for (int i = 0; i < LOADS; ++i) {
        const std::string &next = i % 2 == 0 ? deny : permit;
        EXPECT_EQ(HOST_ConfigLoadText("f", next.data(), next.size(), nullptr, nullptr, 0), 0u);
        if (i % 16 < 2) { // seldom, because asking synchronises this thread with the others
            EXPECT_EQ(match(2001, "ipv4", "232.1.1.1").permitted(), i % 2 != 0); // in force when it returns
        }
        if (i % 3 == 0) {
            EXPECT_EQ(HOST_ConfigLoadText("f", "[", 1, nullptr, nullptr, 0), HOST_FAILED);
        }
    }
    while (asked < 100) {
        std::this_thread::yield();
    }
    stop = true;
    for (std::thread &reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong, 0u);
}

TEST_F(Config, NamesOfInstancesAreThoseOfTheFile)
{
    char name[L3VPN_NAME_SIZE] = "untouched";
    EXPECT_EQ(L3VPN_GetNameByVrfIndex(0, sizeof(name), name), 0u);
    EXPECT_STREQ(name, "");
    EXPECT_EQ(L3VPN_GetNameByVrfIndex(5, sizeof(name), name), HOST_FAILED);
    load("[[vpn]]\nname = '1234567890123456789012345678901'\nindex = 5\n");
    EXPECT_EQ(L3VPN_GetNameByVrfIndex(5, sizeof(name), name), 0u);
    EXPECT_STREQ(name, "1234567890123456789012345678901");
    EXPECT_NE(L3VPN_GetNameByVrfIndex(5, sizeof(name) - 1, name), 0u);
    EXPECT_STREQ(name, "123456789012345678901234567890");
    EXPECT_NE(L3VPN_GetNameByVrfIndex(5, 0, name), 0u);
    EXPECT_NE(L3VPN_GetNameByVrfIndex(5, 1, nullptr), 0u);
    EXPECT_EQ(L3VPN_GetNameByVrfIndex(0, 1, name), 0u);
    EXPECT_STREQ(name, "");
}

// What a table of the process has read is what the answers come from; without one the kernel is asked.
TEST_F(Config, VrfDeviceIsAnInstanceWithItsPorts)
{
    IN_FRESH_NAMESPACE([] {
        if (system("ip link add red type vrf table 77 2>/dev/null") != 0) {
            GTEST_SKIP() << "the kernel has no VRF devices";
        }
        host_test::shell("ip link add left0 type veth peer name right0 && ip link set left0 master red");
        uint16_t vrf = 99;
        char name[L3VPN_NAME_SIZE];
        EXPECT_EQ(L3VPN_GetVrfIndexByIfIndex(if_nametoindex("left0"), &vrf), 0u);
        EXPECT_EQ(vrf, 77u);
        EXPECT_EQ(L3VPN_GetVrfIndexByIfIndex(if_nametoindex("right0"), &vrf), 0u);
        EXPECT_EQ(vrf, 0u);
        EXPECT_EQ(L3VPN_GetNameByVrfIndex(77, sizeof(name), name), 0u);
        EXPECT_STREQ(name, "red");
    });
}

TEST_F(Config, AnInterfaceIsInTheInstanceThatListsItOtherwiseInThePublicOne)
{
    const uint32_t loopback = if_nametoindex("lo");
    uint16_t vrf = 99;
    EXPECT_EQ(L3VPN_GetVrfIndexByIfIndex(loopback, &vrf), 0u);
    EXPECT_EQ(vrf, 0u);
    load("[[vpn]]\nname = 'red'\nindex = 5\ninterfaces = ['eth9', 'lo']\n");
    EXPECT_EQ(L3VPN_GetVrfIndexByIfIndex(loopback, &vrf), 0u);
    EXPECT_EQ(vrf, 5u);
    vrf = 99;
    errno = 0;
    for (uint32_t absent : {0u, 0x7ffffff0u, 0xc0000001u}) {
        EXPECT_EQ(L3VPN_GetVrfIndexByIfIndex(absent, &vrf), HOST_FAILED);
    }
    EXPECT_EQ(vrf, 99u);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(L3VPN_GetVrfIndexByIfIndex(loopback, nullptr), HOST_FAILED);
    load("");
    EXPECT_EQ(L3VPN_GetVrfIndexByIfIndex(loopback, &vrf), 0u);
    EXPECT_EQ(vrf, 0u);
}

} // namespace
