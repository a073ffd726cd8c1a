#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "daemons/common/config_file.h"
#include "platform/acl.h"

using namespace mcastd;

namespace
{

struct Settings {
    int64_t interval = 10;
    bool strict = false;
    std::vector<std::string> interfaces;
    std::vector<int64_t> ports;
    std::string mode = "none";

    void read(ConfigTable &table)
    {
        interval = table.optional_integer("interval", 1, 60).value_or(10);
        strict = table.optional_boolean("strict").value_or(false);
        for (const ConfigString &name : table.strings("interfaces")) {
            interfaces.push_back(name.text);
        }
        ports = table.integers("ports", 1, 65535);
        ConfigTable policy = table.table("policy");
        if (policy.present()) {
            mode = policy.choice("mode", {"open", "closed"}) == 0 ? "open" : "closed";
            policy.finish();
        }
    }
};

class ConfigFile : public testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/mcast-config-XXXXXX";
        const int fd = mkstemp(name);
        ASSERT_GE(fd, 0);
        close(fd);
        path_ = name;
    }
    void TearDown() override
    {
        EXPECT_EQ(load(""), "");
        unlink(path_.c_str());
    }
    // The error without the path, empty when the text was taken; then settings_ is what it says.
    std::string load(const std::string &text)
    {
        std::ofstream(path_) << text;
        Settings fresh;
        std::string error = "untouched";
        const bool loaded = load_config(
            path_.c_str(), "mribd", [&](ConfigTable &table) { fresh.read(table); }, &error);
        if (loaded) {
            settings_ = fresh;
            return "";
        }
        EXPECT_EQ(error.rfind(path_, 0), 0u) << error;
        return error.substr(path_.size());
    }
    std::string path_;
    Settings settings_;
};

constexpr const char *LIST = "[[acl]]\nnumber = 2001\nfamily = 'ipv4'\n";

TEST_F(ConfigFile, TheDaemonsTableIsReadBesideTheHostPlatforms)
{
    EXPECT_EQ(
        load(std::string("[mribd]\ninterval = 5\nstrict = true\ninterfaces = ['a', 'b']\nports = [1, 65535]\n"
                         "[mribd.policy]\nmode = 'closed'\n[gmpd]\nanything = 1\n") +
             LIST),
        "");
    EXPECT_EQ(settings_.interval, 5);
    EXPECT_TRUE(settings_.strict);
    EXPECT_EQ(settings_.interfaces, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(settings_.ports, (std::vector<int64_t>{1, 65535}));
    EXPECT_EQ(settings_.mode, "closed");
    EXPECT_NE(ACL_GetGroupTypeByIndex(ACL_FAMILY_IPV4, 2001), 0u);
}

TEST_F(ConfigFile, AFileWithoutTheTableGivesTheDefaults)
{
    EXPECT_EQ(load("[mribd]\ninterval = 5\n"), "");
    EXPECT_EQ(load(""), "");
    EXPECT_EQ(settings_.interval, 10);
    EXPECT_EQ(settings_.mode, "none");
}

TEST_F(ConfigFile, ErrorsNameTheirPlaceAndTheHostPlatformKeepsWhatItHad)
{
    ASSERT_EQ(load(LIST), "");
    const struct {
        const char *text;
        const char *error;
    } rows[] = {
        {"[mribd]\ninterval = 61\n", ":2:12: interval is 61; allowed: 1 to 60"},
        {"[mribd]\ninterval = true\n", ":2:12: interval is a truth value; allowed: an integer, 1 to 60"},
        {"[mribd]\nstrict = 1\n", ":2:10: strict is an integer; allowed: true, false"},
        {"[mribd]\nports = 5\n", ":2:9: ports is an integer; allowed: a list of integers, 1 to 65535"},
        {"[mribd]\nports = [5, 0]\n", ":2:13: in ports there is 0; allowed: 1 to 65535"},
        {"[mribd]\npolicy = 5\n", ":2:10: policy is an integer; allowed: a table, [mribd.policy]"},
        {"[mribd.policy]\n", ":1:1: [mribd.policy] lacks the key mode"},
        {"[mribd.policy]\nmode = 'ajar'\n", ":2:8: mode is \"ajar\"; allowed: open, closed"},
        {"[mribd.policy]\nmode = 'open'\nx = 1\n",
         ":3:1: unknown key \"x\" in [mribd.policy]; allowed: mode"},
        {"[mribd]\nintervall = 1\n", ":2:1: unknown key \"intervall\" in [mribd]; allowed: interval, strict, "
                                     "interfaces, ports, policy"},
        {"[mribd]\ninterval = 6\n[[acl]]\nnumber = 1\n", ":4:10: number is 1; allowed: 2000 to 3999"},
        {"[mribdd]\n",
         ":1:2: unknown key \"mribdd\"; allowed: vpn, acl, node, service, gmpd, mribd, msdpd, pimsmd"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(load(row.text), row.error) << row.text;
        EXPECT_EQ(settings_.interval, 10);
        EXPECT_NE(ACL_GetGroupTypeByIndex(ACL_FAMILY_IPV4, 2001), 0u);
    }
}

TEST_F(ConfigFile, AnAbsentFileIsAnError)
{
    std::string error;
    bool asked = false;
    EXPECT_FALSE(load_config(
        "/nowhere/at.all", "mribd", [&](ConfigTable &) { asked = true; }, &error));
    EXPECT_EQ(error, "/nowhere/at.all: No such file or directory");
    EXPECT_FALSE(asked);
}

} // namespace
