/*
 * What the router says of memberships, upcalls and entries. The interfaces are 1 to 4, called as the machine
 * calls those of the same index.
 */
#include "daemons/mribd_support.h"
#include "tests/daemons/trace_capture.h"

using namespace mribd;
using namespace mribd_test;
using daemon_test::traced;
using daemon_test::Tracing;

namespace
{

using Lines = std::vector<std::string>;

constexpr const char *SOURCE = "10.1.1.2";
constexpr const char *GROUP = "239.1.1.1";

std::string name(uint32_t if_index)
{
    return mcastd::formatted("%I", if_index);
}

class MribdTrace : public testing::Test
{
protected:
    MribdTrace() : bench(MCAST_FAMILY_IPV4, 1)
    {
        bench.environment.routes[SOURCE] = {1, false};
    }
    Bench bench;
};

TEST_F(MribdTrace, SaysWhichMembershipsChange)
{
    const Tracing tracing("group");
    EXPECT_EQ(traced([&] { bench.join(1, 2, GROUP); }), Lines{"(*, 239.1.1.1) wanted on " + name(2)});
    EXPECT_EQ(traced([&] { bench.join(1, 2, GROUP); }), Lines{}) << "nothing changes";
    EXPECT_EQ(traced([&] { bench.set(1, 2, GROUP, SOURCE, MemberTable::Kind::Block, true); }),
              Lines{"(10.1.1.2, 239.1.1.1) blocked on " + name(2)});
    EXPECT_EQ(traced([&] { bench.prune(1, 2, GROUP); }),
              Lines{"(*, 239.1.1.1) no longer wanted on " + name(2)});
    EXPECT_EQ(traced([&] { bench.router.drop_client(1); }), Lines{"client 1 wants nothing more"});
}

TEST_F(MribdTrace, FollowsAnEntryFromTheUpcallToItsEnd)
{
    const Tracing tracing("route");
    const std::string pair = "(10.1.1.2, 239.1.1.1)";
    bench.join(1, 2, GROUP);
    EXPECT_EQ(traced([&] { bench.packet(1, SOURCE, GROUP); }),
              (Lines{"upcall: packets of " + pair + " arrive on " + name(1) + ", no entry",
                     pair + ": packets are to come from " + name(1),
                     "entry " + pair + " installed: from " + name(1) + " to if2"}));
    EXPECT_EQ(traced([&] { bench.packet(3, SOURCE, GROUP, UpcallKind::WrongInterface); }),
              Lines{"upcall: packets of " + pair + " arrive on " + name(3) + ", the wrong interface"});
    EXPECT_EQ(traced([&] { bench.join(1, 3, GROUP); }),
              Lines{"entry " + pair + " replaced: from " + name(1) + " to if3 if2"});
    EXPECT_EQ(traced([&] { bench.packet(1, "10.1.1.3", GROUP); }),
              (Lines{"upcall: packets of (10.1.1.3, 239.1.1.1) arrive on " + name(1) + ", no entry",
                     "(10.1.1.3, 239.1.1.1) refused: 1 entries are the limit"}));
    EXPECT_EQ(traced([&] { bench.pass_idle_period(); }),
              (Lines{pair + " expires: no packet in a period",
                     "entry " + pair + " withdrawn: from " + name(1) + " to if3 if2"}));
}

TEST_F(MribdTrace, EntryThatWasWithdrawnIsWithdrawnOnceAndInstalledAnew)
{
    const Tracing tracing("route");
    const std::string entry = "entry (10.1.1.2, 239.1.1.1) ";
    const auto becomes = [&](bool has_route) {
        bench.environment.interfaces.erase(1);
        if (has_route) {
            bench.environment.interfaces.insert(1);
        }
        return traced([&] {
            bench.router.links_changed();
            bench.router.routes_changed(any_address(MCAST_FAMILY_IPV4), 0);
            bench.settle();
        });
    };
    const auto count = [](const Lines &lines, const std::string &line) {
        return std::count(lines.begin(), lines.end(), line);
    };
    bench.join(1, 2, GROUP);
    bench.packet(1, SOURCE, GROUP);
    const std::string outputs = ": from " + name(1) + " to if2";
    EXPECT_EQ(count(becomes(false), entry + "withdrawn" + outputs), 1);
    for (const std::string &line : becomes(false)) {
        EXPECT_EQ(line.find(entry), std::string::npos) << line;
    }
    EXPECT_EQ(count(becomes(true), entry + "installed" + outputs), 1);
}

TEST_F(MribdTrace, SaysThatASourceHasNoRoute)
{
    const Tracing tracing("route");
    bench.join(1, 2, GROUP);
    const Lines lines = traced([&] { bench.packet(1, "192.0.2.1", GROUP); });
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "(192.0.2.1, 239.1.1.1): no usable route to the source");
    EXPECT_EQ(lines[2], "entry (192.0.2.1, 239.1.1.1) installed: from " + name(1) + " to nowhere");
}

TEST_F(MribdTrace, OffSaysNothing)
{
    EXPECT_EQ(traced([&] {
                  bench.join(1, 2, GROUP);
                  bench.packet(1, SOURCE, GROUP);
                  bench.pass_idle_period();
              }),
              Lines{});
}

} // namespace
