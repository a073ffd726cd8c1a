// What the command line of gmpd sets.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "daemons/common/options.h"
#include "daemons/gmpd/daemon.h"

using namespace gmpd;

namespace
{

Config config_of(std::vector<std::string> words)
{
    mcastd::Options options("gmpd", "a daemon");
    Config config;
    words.insert(words.begin(), "gmpd");
    std::vector<char *> arguments;
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    add_options(options, config);
    EXPECT_FALSE(options.parse(static_cast<int>(words.size()), arguments.data()));
    return config;
}

TEST(GmpdOptions, FlagsAreOffUnlessGiven)
{
    const Config plain = config_of({});
    EXPECT_FALSE(plain.immediate_leave || plain.standby || plain.start_mribd);
    EXPECT_TRUE(config_of({"--immediate-leave"}).immediate_leave);
    EXPECT_TRUE(config_of({"--standby"}).standby);
    EXPECT_TRUE(config_of({"--start-mribd"}).start_mribd);
}

TEST(GmpdOptions, NumbersAreTaken)
{
    const Config config =
        config_of({"--group-query-rate=7", "--max-groups=20", "--max-entries=21",
                   "--max-interface-entries=22", "--max-host-entries=23", "--max-users=24"});
    EXPECT_EQ(config.group_queries_per_s, 7u);
    EXPECT_EQ(config.max_groups, 20u);
    EXPECT_EQ(config.max_entries, 21u);
    EXPECT_EQ(config.max_interface_entries, 22u);
    EXPECT_EQ(config.max_host_entries, 23u);
    EXPECT_EQ(config.max_users, 24u);
}

} // namespace
