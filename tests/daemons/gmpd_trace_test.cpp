/*
 * What the state machine says of its decisions, on the lab's one interface of 0x7ffffff0, an index that no
 * interface has.
 */
#include "tests/daemons/gmpd_lab.h"
#include "tests/daemons/trace_capture.h"

using namespace gmpd;
using namespace gmpd_test;
using daemon_test::traced;
using daemon_test::Tracing;

namespace
{

using Lines = std::vector<std::string>;

class GmpdTrace : public testing::Test
{
protected:
    explicit GmpdTrace(const Config &config = {}) : lab(MCAST_FAMILY_IPV4, config)
    {
        lab.interface->index = 0x7ffffff0;
        lab.start();
        group = to_text(lab.group(1));
        source = to_text(lab.source(1));
    }

    Lab lab;
    std::string group;
    std::string source;
};

TEST_F(GmpdTrace, SaysHowLongAGroupLivesAndWhenItEnds)
{
    const Tracing tracing("group");
    EXPECT_EQ(traced([&] { lab.old_report(2); }),
              (Lines{group + " on 0x7ffffff0 begins", "(*, " + group + ") on 0x7ffffff0 wanted for 260 s",
                     group + " on 0x7ffffff0: hosts of version 2 for 260 s"}));
    EXPECT_EQ(
        traced([&] { lab.pass(261); }),
        (Lines{group + " on 0x7ffffff0: nobody wants any source any more", group + " on 0x7ffffff0 ends"}));
}

TEST_F(GmpdTrace, SaysHowLongASourceLivesAndWhenItEnds)
{
    const Tracing tracing("group");
    const std::string pair = "(" + source + ", " + group + ") on 0x7ffffff0";
    EXPECT_EQ(traced([&] { lab.record(RecordType::Allow, {1}); }),
              (Lines{group + " on 0x7ffffff0 begins", pair + " wanted for 260 s"}));
    EXPECT_EQ(traced([&] { lab.pass(261); }),
              (Lines{pair + ": nobody wants it any more", group + " on 0x7ffffff0 ends"}));
}

TEST_F(GmpdTrace, SaysWhatALeaveAsksAbout)
{
    lab.record(RecordType::ToExclude, {});
    const Tracing tracing("all");
    const Lines lines = traced([&] { lab.leave(); });
    const std::string sender = to_text(lab.neighbour(200));
    EXPECT_EQ(lines,
              (Lines{"leave from " + sender + " of " + group + " on 0x7ffffff0",
                     group + " on 0x7ffffff0: the group and 0 sources end in 2 s unless somebody answers",
                     "query of version 3 about " + group + " on 0x7ffffff0, 0 sources"}));
}

TEST_F(GmpdTrace, SaysWhoIsTheQuerier)
{
    const Tracing tracing("querier");
    const std::string lower = to_text(lab.neighbour(1));
    const std::string higher = to_text(lab.neighbour(101));
    EXPECT_EQ(traced([&] { lab.query(101, 3); }),
              Lines{"query of " + higher + " on 0x7ffffff0: this router's address is lower"});
    EXPECT_EQ(traced([&] { lab.query(1, 3); }), Lines{lower + " is the querier on 0x7ffffff0 for 255 s"});
    EXPECT_EQ(traced([&] { lab.pass(256); }),
              (Lines{"this router is the querier on 0x7ffffff0", "general query of version 3 on 0x7ffffff0",
                     "next general query on 0x7ffffff0 in 125 s"}));
}

TEST_F(GmpdTrace, SaysWhyAMessageIsRefused)
{
    const Tracing tracing("packet");
    const std::string own = to_text(lab.interface->address);
    EXPECT_EQ(traced([&] { lab.query(100, 3); }),
              (Lines{"general query of version 3 from " + own + " on 0x7ffffff0",
                     "message from " + own + " on 0x7ffffff0: dropped_own_address"}));
}

class GmpdTraceLimits : public GmpdTrace
{
protected:
    static Config limited()
    {
        Config config;
        config.max_groups = 1;
        config.max_sources = 1;
        return config;
    }
    GmpdTraceLimits() : GmpdTrace(limited())
    {
    }
};

TEST_F(GmpdTraceLimits, SaysWhatALimitRefuses)
{
    lab.record(RecordType::Allow, {1});
    const Tracing tracing("group");
    EXPECT_EQ(traced([&] { lab.record(RecordType::Allow, {2}); }),
              Lines{"(" + to_text(lab.source(2)) + ", " + group + ") on 0x7ffffff0: refused_source_limit"});
    EXPECT_EQ(traced([&] { lab.record(RecordType::Allow, {1}, 2); }),
              Lines{to_text(lab.group(2)) + " on 0x7ffffff0: refused_group_limit"});
}

TEST_F(GmpdTrace, OffSaysNothing)
{
    EXPECT_EQ(traced([&] {
                  lab.old_report(2);
                  lab.query(1, 3);
                  lab.pass(600);
              }),
              Lines{});
}

} // namespace
