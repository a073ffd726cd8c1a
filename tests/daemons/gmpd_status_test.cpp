/*
 * gmpd's status: what it shows, and that a long one is made in parts which stay a whole text.
 */
#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "daemons/gmpd/status.h"
#include "tests/daemons/gmpd_lab.h"
#include "tests/daemons/whole_text.h"

using namespace gmpd;
using namespace gmpd_test;

static std::string status_of(const Process &process, const DaemonStatus &daemon)
{
    return whole_text(status_parts(process, [&daemon] { return daemon; }));
}

TEST(GmpdStatus, ShowsGroupsSourcesTimersAndCounters)
{
    Lab lab(MCAST_FAMILY_IPV4);

    lab.start();
    lab.record(RecordType::IsExclude, {1, 2});
    lab.record(RecordType::Allow, {2});
    lab.interface->counters[Count::RouterAlert] = 3;
    const std::string text = status_of(lab.process, DaemonStatus{true, 2, 0, 0, 5});

    for (const char *part :
         {"\"family\": \"ipv4\"", "\"mrib_connected\": true", "\"packets_lost_in_kernel\": 5",
          "\"interface\": \"lab\"", "\"group\": \"239.1.1.1\", \"mode\": \"exclude\", \"expires_s\": 260",
          "\"source\": \"192.0.2.1\", \"wanted\": false", "\"source\": \"192.0.2.2\", \"wanted\": true",
          "\"dropped_router_alert\": 3", "\"this_router\": true"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part << " is missing in\n" << text;
    }
    EXPECT_EQ(text.find("dropped_checksum"), std::string::npos) << "counters at 0 are left out";
    EXPECT_EQ(std::count(text.begin(), text.end(), '{'), std::count(text.begin(), text.end(), '}'));
    EXPECT_EQ(std::count(text.begin(), text.end(), '['), std::count(text.begin(), text.end(), ']'));
}

TEST(GmpdStatus, BeginsWithWhatTheDaemonIs)
{
    Lab lab(MCAST_FAMILY_IPV4);
    Lab lab6(MCAST_FAMILY_IPV6);
    DaemonStatus standby;
    standby.active = false;
    standby.backed_up = 7;
    EXPECT_TRUE(status_of(lab.process, {})
                    .starts_with("{\n"
                                 "  \"daemon\": \"gmpd\",\n"
                                 "  \"family\": \"ipv4\",\n"
                                 "  \"protocol_version\": 3,\n"
                                 "  \"role\": \"active\",\n"
                                 "  \"standbys\": 0,\n"
                                 "  \"mrib_connected\": false,\n"
                                 "  \"mrib_connects\": 0,\n"
                                 "  \"mrib_pending_messages\": 0,\n"
                                 "  \"mrib_held_changes\": 0,\n"
                                 "  \"mrib_replayed\": false,\n"
                                 "  \"packets_lost_in_kernel\": 0,\n"
                                 "  \"interfaces\": [\n"))
        << status_of(lab.process, {});
    EXPECT_TRUE(status_of(lab6.process, standby)
                    .starts_with("{\n"
                                 "  \"daemon\": \"gmpd\",\n"
                                 "  \"family\": \"ipv6\",\n"
                                 "  \"protocol_version\": 2,\n"
                                 "  \"role\": \"standby\",\n"
                                 "  \"synchronised\": false,\n"
                                 "  \"users_backed_up\": 7,\n"
                                 "  \"mrib_connected\": false,\n"))
        << status_of(lab6.process, standby);
}

TEST(GmpdStatus, EscapesWhateverAnInterfaceIsCalled)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.interface->name = "a\"b\\c\n\xff";
    EXPECT_NE(status_of(lab.process, {}).find("\"a\\\"b\\\\c\\u000a\\u00ff\""), std::string::npos);
}

constexpr unsigned SOURCES = 30;

static void fill(Lab &lab, unsigned groups)
{
    std::vector<unsigned> sources;
    for (unsigned source = 1; source <= SOURCES; ++source) {
        sources.push_back(source);
    }
    for (unsigned group = 1; group <= groups; ++group) {
        lab.record(RecordType::Allow, sources, group);
    }
}

// Groups that take two parts.
constexpr unsigned GROUPS = 2 * STATUS_PART / (SOURCES + 1) - 20;
static_assert(GROUPS < 256 && GROUPS * (SOURCES + 1) > STATUS_PART);

static size_t count(const std::string &text, const std::string &what)
{
    size_t found = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++found;
    }
    return found;
}

TEST(GmpdStatus, ALongOneIsMadeInPartsAndSaysSo)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.start();
    fill(lab, GROUPS);
    const auto parts = status_parts(lab.process, [] { return DaemonStatus(); });
    std::string text;
    size_t made = 0;
    for (bool more = true; more;) {
        std::string part;
        more = parts(&part);
        ++made;
        EXPECT_LE(count(part, "\"group\": ") + count(part, "\"source\": "), STATUS_PART) << "part " << made;
        text += part;
    }
    EXPECT_EQ(made, 2u);
    EXPECT_EQ(count(text, "\"group\": "), GROUPS);
    EXPECT_EQ(count(text, "\"source\": "), SOURCES * GROUPS);
    EXPECT_TRUE(text.ends_with("  \"of_one_moment\": false\n}\n")) << text.substr(text.size() - 200);
    EXPECT_EQ(std::count(text.begin(), text.end(), '{'), std::count(text.begin(), text.end(), '}'));
    EXPECT_EQ(std::count(text.begin(), text.end(), '['), std::count(text.begin(), text.end(), ']'));
}

TEST(GmpdStatus, AShortOneIsOfOneMoment)
{
    Lab lab(MCAST_FAMILY_IPV4);
    lab.start();
    fill(lab, 3);
    std::string text;
    EXPECT_FALSE(status_parts(lab.process, [] { return DaemonStatus(); })(&text));
    EXPECT_EQ(text.find("of_one_moment"), std::string::npos);
}

// Between two parts the group and the source that were written last, their group or the whole interface may go.
TEST(GmpdStatus, StaysAWholeTextWhateverGoesBetweenItsParts)
{
    for (const int gone : {0, 1, 2}) {
        Lab lab(MCAST_FAMILY_IPV4);
        lab.start();
        fill(lab, GROUPS);
        const auto parts = status_parts(lab.process, [] { return DaemonStatus(); });
        std::string text;
        ASSERT_TRUE(parts(&text));
        if (gone == 0) {
            for_each_group(lab.interface->memberships, [](GroupState &group) { remove_group(group); });
        } else if (gone == 1) {
            interface_stop(*lab.interface);
        } else {
            lab.process.interfaces.clear();
        }
        ASSERT_FALSE(parts(&text)) << gone;
        EXPECT_EQ(std::count(text.begin(), text.end(), '{'), std::count(text.begin(), text.end(), '}'))
            << gone;
        EXPECT_EQ(std::count(text.begin(), text.end(), '['), std::count(text.begin(), text.end(), ']'))
            << gone;
        EXPECT_TRUE(text.ends_with("  \"of_one_moment\": false\n}\n")) << gone;
    }
}
