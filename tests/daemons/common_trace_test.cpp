#include <cerrno>
#include <gtest/gtest.h>
#include <net/if.h>
#include <string>
#include <vector>

#include "daemons/common/address.h"
#include "daemons/common/log.h"
#include "daemons/common/options.h"
#include "daemons/common/trace.h"
#include "mcasthost/config.h"

using namespace mcastd;

namespace
{

constexpr MRIB_GMP_VRF_KEY_S IPV4{MCAST_FAMILY_IPV4, 0};
constexpr MRIB_GMP_VRF_KEY_S IPV6{MCAST_FAMILY_IPV6, 0};
// An index that no interface has; its text is the index.
constexpr uint32_t ABSENT = 0x7ffffff0;

// Permits any source of 239.1.0.0/16, and sources of 10.0.0.0/8 in the basic list.
constexpr const char *LISTS = R"(
[[acl]]
number = 3001
family = "ipv4"
[[acl.rule]]
id = 1
action = "permit"
destination = "239.1.0.0/16"
[[acl]]
number = 2001
family = "ipv4"
[[acl.rule]]
id = 1
action = "permit"
source = "10.0.0.0/8"
[[acl]]
number = 3002
family = "ipv6"
[[acl.rule]]
id = 1
action = "permit"
[[acl]]
number = 3003
family = "ipv4"
[[vpn]]
name = "red"
index = 5
)";

MCAST_ADDR_S ipv4(const char *text)
{
    return parse_address(text).value();
}

class TraceTest : public testing::Test
{
protected:
    void SetUp() override
    {
        log_open("testd", LogLevel::Info);
        load(LISTS);
        forget();
    }
    void TearDown() override
    {
        load("");
        forget();
    }

    static void load(const std::string &text)
    {
        char error[HOST_CONFIG_ERROR_SIZE];
        ASSERT_EQ(HOST_ConfigLoadText("f", text.data(), text.size(), nullptr, error, sizeof(error)), 0u)
            << error;
    }

    static void forget()
    {
        std::string error;
        ASSERT_TRUE(trace_switch("all", false, &error));
        ASSERT_TRUE(trace_filter_acl(MCAST_NONE, &error));
        ASSERT_TRUE(trace_filter_interface("", &error));
    }

    static void on(const char *category)
    {
        std::string error;
        ASSERT_TRUE(trace_switch(category, true, &error)) << error;
    }

    // What a trace line prints.
    template <typename Line> static std::string printed(const Line &line)
    {
        testing::internal::CaptureStderr();
        line();
        return testing::internal::GetCapturedStderr();
    }

    static std::string member(const char *source, const char *group, uint32_t if_index = ABSENT)
    {
        const MCAST_ADDR_S from = ipv4(source);
        const MCAST_ADDR_S to = ipv4(group);
        return printed([&] { trace(TraceCategory::Group, IPV4, "(%M, %N) on %P", &from, &to, if_index); });
    }
};

constexpr LineArgument ADDRESS_AND_NUMBER[] = {LineArgument::Address, LineArgument::Integer};

static_assert(line_format_fits("%-15A on %I", ADDRESS_AND_NUMBER, 2));
static_assert(line_format_fits("%M 100%% %08x%%", ADDRESS_AND_NUMBER, 2));
static_assert(line_format_fits("no conversion", ADDRESS_AND_NUMBER, 0));
static_assert(!line_format_fits("%M", ADDRESS_AND_NUMBER, 2), "an argument too many");
static_assert(!line_format_fits("%M %d %d", ADDRESS_AND_NUMBER, 2), "an argument too few");
static_assert(!line_format_fits("%d %M", ADDRESS_AND_NUMBER, 2), "the wrong order");
static_assert(!line_format_fits("%M %zu", ADDRESS_AND_NUMBER, 2), "a modifier that drops its text");
static_assert(!line_format_fits("%M %ld", ADDRESS_AND_NUMBER, 2), "no 64-bit integers");
static_assert(!line_format_fits("%M %d %", ADDRESS_AND_NUMBER, 2), "no letter");
static_assert(!line_format_fits("%M %", ADDRESS_AND_NUMBER, 1), "no letter");
static_assert(line_argument_of<uint64_t>() == LineArgument::None);
static_assert(line_argument_of<uint8_t>() == LineArgument::Integer);
static_assert(line_argument_of<MCAST_ADDR_S *>() == LineArgument::Address);
static_assert(line_argument_of<char *>() == LineArgument::Text);

TEST(Formatted, GivesTheLibrarysText)
{
    const MCAST_ADDR_S address = ipv4("10.1.1.1");
    EXPECT_EQ(formatted("%A on %I, %s", &address, ABSENT, "x"), "10.1.1.1 on 0x7ffffff0, x");
    EXPECT_EQ(formatted(""), "");
    EXPECT_EQ(formatted("%s", std::string(4000, 'x').c_str()), std::string(LINE_TEXT_MAX, 'x'));
}

TEST_F(TraceTest, CategoriesAreOffUntilSwitchedOn)
{
    EXPECT_EQ(member("10.1.1.1", "239.1.1.1"), "");
    on("packet");
    EXPECT_EQ(member("10.1.1.1", "239.1.1.1"), "");
    on("group");
    EXPECT_EQ(member("10.1.1.1", "239.1.1.1"), "testd: trace: (10.1.1.1, 239.1.1.1) on 0x7ffffff0\n");
}

TEST_F(TraceTest, EveryCategoryHasItsNameAndItsBit)
{
    const std::pair<const char *, TraceCategory> rows[] = {
        {"packet", TraceCategory::Packet},   {"group", TraceCategory::Group},
        {"querier", TraceCategory::Querier}, {"channel", TraceCategory::Channel},
        {"route", TraceCategory::Route},     {"user", TraceCategory::User},
    };
    ASSERT_EQ(trace_category_names().size(), std::size(rows));
    for (const auto &[name, category] : rows) {
        forget();
        on(name);
        EXPECT_EQ(trace_settings().categories, static_cast<uint32_t>(category)) << name;
        EXPECT_TRUE(tracing(category));
    }
    on("all");
    for (const auto &[name, category] : rows) {
        std::string error;
        EXPECT_TRUE(trace_switch(name, false, &error));
        EXPECT_FALSE(tracing(category)) << name;
    }
    EXPECT_EQ(trace_settings().categories, 0u);
}

TEST_F(TraceTest, UnknownCategoryIsRefusedAndChangesNothing)
{
    std::string error;
    on("route");
    EXPECT_FALSE(trace_switch("routes", true, &error));
    EXPECT_EQ(error, "no trace category \"routes\"; allowed: all, packet, group, querier, channel, "
                     "route, user");
    EXPECT_EQ(trace_settings().categories, static_cast<uint32_t>(TraceCategory::Route));
}

TEST_F(TraceTest, AdvancedListIsAskedAboutSourceAndGroup)
{
    std::string error;
    on("group");
    ASSERT_TRUE(trace_filter_acl(3001, &error)) << error;
    EXPECT_NE(member("10.1.1.1", "239.1.1.1"), "");
    EXPECT_EQ(member("10.1.1.1", "239.2.1.1"), "");
    const MCAST_ADDR_S other = ipv4("239.2.1.1");
    EXPECT_EQ(printed([&] { trace(TraceCategory::Group, IPV4, "%N", &other); }), "");
    EXPECT_NE(printed([&] { trace(TraceCategory::Group, IPV4, "%A", &other); }), "")
        << "an address that is neither source nor group";
}

TEST_F(TraceTest, BasicListIsAskedAboutTheSource)
{
    std::string error;
    on("group");
    ASSERT_TRUE(trace_filter_acl(2001, &error)) << error;
    EXPECT_NE(member("10.1.1.1", "239.1.1.1"), "");
    EXPECT_EQ(member("11.1.1.1", "239.1.1.1"), "");
}

TEST_F(TraceTest, ListThatIsAbsentOrWithoutRulesIsRefusedAndChangesNothing)
{
    std::string error;
    ASSERT_TRUE(trace_filter_acl(3002, &error)) << "the list of one family is enough";
    EXPECT_FALSE(trace_filter_acl(3099, &error));
    EXPECT_EQ(error, "no access list 3099 with rules is configured");
    EXPECT_FALSE(trace_filter_acl(3003, &error));
    EXPECT_EQ(trace_settings().acl, 3002u);
    EXPECT_TRUE(trace_filter_acl(MCAST_NONE, &error));
    EXPECT_EQ(trace_settings().acl, MCAST_NONE);
}

TEST_F(TraceTest, OtherInterfacesAreLeftOutAndLinesWithoutOneStay)
{
    std::string error;
    on("group");
    const uint32_t loopback = if_nametoindex("lo");
    ASSERT_TRUE(trace_filter_interface("LO", &error)) << "the platform's spelling counts: " << error;
    EXPECT_EQ(trace_settings().if_index, loopback);
    EXPECT_EQ(member("10.1.1.1", "239.1.1.1", loopback), "testd: trace: (10.1.1.1, 239.1.1.1) on lo\n");
    EXPECT_EQ(member("10.1.1.1", "239.1.1.1"), "");
    EXPECT_EQ(printed([] { trace(TraceCategory::Group, IPV4, "%s", "no interface"); }),
              "testd: trace: no interface\n");
}

TEST_F(TraceTest, AbsentInterfaceIsRefusedAndChangesNothing)
{
    std::string error;
    ASSERT_TRUE(trace_filter_interface("lo", &error)) << error;
    for (const std::string &name : {std::string("absent0"), std::string(4096, 'x')}) {
        EXPECT_FALSE(trace_filter_interface(name, &error));
        EXPECT_EQ(error, "there is no interface " + name);
    }
    EXPECT_EQ(trace_settings().if_index, if_nametoindex("lo"));
    EXPECT_TRUE(trace_filter_interface("", &error));
    EXPECT_EQ(trace_settings().if_index, 0u);
}

TEST_F(TraceTest, LineSaysTheInstance)
{
    on("channel");
    EXPECT_EQ(printed([] { trace(TraceCategory::Channel, IPV6, "%d", 1); }), "testd: trace: IPv6: 1\n");
    EXPECT_EQ(printed([] {
                  trace(TraceCategory::Channel, {MCAST_FAMILY_IPV4, 5}, "%d", 1);
              }),
              "testd: trace: (red): 1\n");
    EXPECT_EQ(printed([] {
                  trace(TraceCategory::Channel, {MCAST_FAMILY_IPV6, 5}, "%d", 1);
              }),
              "testd: trace: IPv6 (red): 1\n");
}

TEST_F(TraceTest, LongLineIsCutAndEnds)
{
    on("channel");
    const std::string text(4000, 'x');
    const std::string line = printed([&] { trace(TraceCategory::Channel, IPV4, "%s", text.c_str()); });
    EXPECT_EQ(line.size(), 1024u);
    EXPECT_EQ(line.back(), '\n');
}

TEST_F(TraceTest, ErrnoIsKept)
{
    on("all");
    errno = ENOTEMPTY;
    EXPECT_NE(printed([] {
                  errno = ENOTEMPTY;
                  trace(TraceCategory::Group, IPV4, "on %P", ABSENT);
                  EXPECT_EQ(errno, ENOTEMPTY);
              }),
              "");
}

// The words of a command line, which its parser wants writable.
std::optional<int> parse(Options &options, std::vector<std::string> words)
{
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    return options.parse(static_cast<int>(words.size()), argv.data());
}

TEST_F(TraceTest, CommandLineSetsEverything)
{
    Options options("testd", "a daemon");
    ASSERT_EQ(parse(options, {"testd", "--debug", "group", "--debug=route", "--debug-acl", "3001",
                              "--debug-interface", "lo"}),
              std::nullopt);
    EXPECT_EQ(trace_settings().categories, 0u) << "not before the configuration is read";
    ASSERT_TRUE(options.start_trace());
    EXPECT_TRUE(tracing(TraceCategory::Group));
    EXPECT_TRUE(tracing(TraceCategory::Route));
    EXPECT_FALSE(tracing(TraceCategory::Packet));
    EXPECT_EQ(trace_settings().acl, 3001u);
    EXPECT_EQ(trace_settings().if_index, if_nametoindex("lo"));
}

TEST_F(TraceTest, CommandLineWithoutTracingTracesNothing)
{
    Options options("testd", "a daemon");
    ASSERT_EQ(parse(options, {"testd"}), std::nullopt);
    ASSERT_TRUE(options.start_trace());
    EXPECT_EQ(trace_settings().categories, 0u);
    EXPECT_EQ(trace_settings().acl, MCAST_NONE);
    EXPECT_EQ(trace_settings().if_index, 0u);
}

TEST_F(TraceTest, CommandLineRefusesWhatDoesNotExist)
{
    for (const char *wrong : {"--debug=groups", "--debug-acl=x", "--debug-acl=-1"}) {
        Options options("testd", "a daemon");
        EXPECT_NE(printed([&] { EXPECT_TRUE(parse(options, {"testd", wrong})) << wrong; }), "");
    }
    const std::pair<const char *, const char *> rows[] = {
        {"--debug-acl=3999", "testd: error: no access list 3999 with rules is configured\n"},
        {"--debug-interface=absent0", "testd: error: there is no interface absent0\n"},
    };
    for (const auto &[wrong, said] : rows) {
        Options options("testd", "a daemon");
        ASSERT_EQ(parse(options, {"testd", wrong, "--debug=all"}), std::nullopt);
        EXPECT_EQ(printed([&] { EXPECT_FALSE(options.start_trace()); }), said);
        EXPECT_EQ(trace_settings().categories, 0u);
    }
}

} // namespace
