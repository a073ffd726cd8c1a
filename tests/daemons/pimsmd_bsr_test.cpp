#include <gtest/gtest.h>
#include <map>
#include <utility>

#include "daemons/common/log.h"
#include "daemons/pimsmd/bsr.h"
#include "tests/daemons/pimsmd_messages.h"

using namespace pimsmd_test;
using pimsmd::Bootstrap;
using pimsmd::BootstrapRangeOut;
using pimsmd::BootstrapRp;
using pimsmd::Bsr;
using pimsmd::BsrSettings;
using pimsmd::CandidateRp;
using pimsmd::GroupRange;
using pimsmd::Prefix;
using pimsmd::RpSet;
using pimsmd::bsr::Weight;

namespace
{

using Lines = std::vector<std::string>;

BootstrapRp mapping(const char *address, uint16_t holdtime_s = 150, uint8_t priority = 0)
{
    return {addr(address), holdtime_s, priority};
}

struct Said {
    const char *range;
    uint8_t count;
    std::vector<BootstrapRp> rps;
};

// A Bootstrap as it comes from the wire, whose bytes it keeps.
struct Heard {
    Heard(const char *bsr, uint8_t priority, uint16_t tag, const std::vector<Said> &said,
          bool no_forward = false)
    {
        const Envelope from = envelope(MCAST_FAMILY_IPV4);
        std::vector<BootstrapRangeOut> ranges;
        Bootstrap out;
        Message read;
        out.no_forward = no_forward;
        out.fragment_tag = tag;
        out.hash_mask_length = 30;
        out.priority = priority;
        out.bsr = addr(bsr);
        for (const Said &one : said) {
            ranges.push_back({{Prefix::parse(one.range).value(), false, zone}, one.count, one.rps});
        }
        bytes.resize(pimsmd::MAX_MESSAGE_SIZE);
        bytes.resize(pimsmd::write_bootstrap(bytes, from, out, ranges));
        EXPECT_EQ(pimsmd::read_message(from, bytes, &read), NO_DROP);
        message = std::get<Bootstrap>(read);
    }
    static inline bool zone = false;
    Bytes bytes;
    Bootstrap message;
};

// A router with neighbours 10.0.0.2 and 10.0.0.3 on link 0; the way to every BSR is over the first.
struct BsrLab final : pimsmd::BsrSurroundings, pimsmd::RpSetEvents {
    explicit BsrLab(const BsrSettings &settings = {})
        : set(MCAST_FAMILY_IPV4, queue, *this, counters),
          bsr(MCAST_FAMILY_IPV4, queue, *this, set, counters, settings)
    {
        mcastd::log_open("pimsmd", mcastd::LogLevel::Error);
    }
    void rps_changed(const Prefix & /*range*/) override
    {
    }
    pimsmd::Route route_to(const Address & /*address*/) override
    {
        pimsmd::Route route;
        route.link = 0;
        route.neighbour = addr("10.0.0.2");
        return route;
    }
    bool is_neighbour(unsigned link, const Address &address) override
    {
        const std::string name = pimsmd::to_text(address);
        return link == 0 && (name == "10.0.0.2" || name == "10.0.0.3");
    }
    bool is_own(const Address &address) override
    {
        return pimsmd::to_text(address) == "10.0.0.1";
    }
    uint32_t random(uint32_t most) override
    {
        return most / 2;
    }
    void forward(const Bootstrap &message) override
    {
        lines.push_back("forward " + pimsmd::to_text(message.bsr));
    }
    static std::string text_of(const Bootstrap &message, std::span<const BootstrapRangeOut> ranges)
    {
        std::string text = pimsmd::to_text(message.bsr) + " " + std::to_string(message.priority);
        for (const BootstrapRangeOut &one : ranges) {
            text += " " + one.range.prefix.text() + "=" + std::to_string(one.rp_count);
            for (const BootstrapRp &rp : one.rps) {
                text += " " + pimsmd::to_text(rp.address);
            }
        }
        return text;
    }
    void send_bootstrap(const Bootstrap &message, std::span<const BootstrapRangeOut> ranges) override
    {
        tags.push_back(message.fragment_tag);
        lines.push_back("send " + text_of(message, ranges));
    }
    void send_bootstrap_to(unsigned /*link*/, const Address &neighbour, const Bootstrap &message,
                           std::span<const BootstrapRangeOut> ranges) override
    {
        lines.push_back("tell " + pimsmd::to_text(neighbour) + " " + text_of(message, ranges));
    }
    void send_candidate(const Address &to, const CandidateRp &message,
                        std::span<const GroupRange> ranges) override
    {
        lines.push_back("candidate to " + pimsmd::to_text(to) + " " + pimsmd::to_text(message.rp) + " " +
                        std::to_string(ranges.size()));
    }
    Count hear(const Heard &heard, const char *from = "10.0.0.2", bool unicast = false)
    {
        return bsr.bootstrap(0, addr(from), unicast, heard.message);
    }
    Count offer(const char *address, uint16_t holdtime_s = 150)
    {
        CandidateRp message;
        message.holdtime_s = holdtime_s;
        message.rp = addr(address);
        return bsr.candidate_rp(message);
    }
    void pass(uint64_t ms)
    {
        now += ms;
        queue.run_due(SIZE_MAX);
    }
    std::string rp_of(const char *group)
    {
        const std::optional<Address> rp = set.rp_of(addr(group));
        return rp ? pimsmd::to_text(*rp) : "none";
    }
    Lines taken()
    {
        return std::exchange(lines, {});
    }

    uint64_t now = 1000;
    pimsmd::MsQueue queue{[this] { return now; }};
    pimsmd::Counters counters;
    Lines lines;
    std::vector<uint16_t> tags;
    RpSet set;
    Bsr bsr;
};

BsrSettings candidate(uint8_t priority)
{
    BsrSettings settings;
    settings.candidate = Weight{priority, addr("10.0.0.1")};
    settings.hash_mask_length = 30;
    return settings;
}

// The only candidate waits 5 s.
constexpr uint64_t ALONE_MS = 5000;

template <typename Table>
void expect_cells(const Table &table, const std::vector<const char *> &states, const char *const *names,
                  const std::map<std::string, std::string> &transcript)
{
    const char *const events[] = {"preferred", "other", "gave up", "timer"};
    const char *const actions[] = {"forward", "store", "timeout", "override", "period", "originate"};
    using Kind = std::remove_cvref_t<decltype(table.cells[0][0].kind)>;
    size_t cells = 0;
    for (size_t state = 0; state < states.size(); ++state) {
        EXPECT_STREQ(states[state], names[state]);
        for (size_t event = 0; event < 4; ++event, ++cells) {
            const auto &cell = table.cells[state][event];
            std::string text = cell.kind == Kind::Never     ? "impossible"
                               : cell.kind == Kind::Missing ? "missing"
                                                            : "";
            if (cell.kind == Kind::Go) {
                text = names[static_cast<size_t>(cell.next)];
            }
            for (size_t bit = 0; bit < 6; ++bit) {
                if ((cell.actions & 1 << bit) != 0) {
                    text += (text.empty() ? "" : " ") + std::string(actions[bit]);
                }
            }
            const std::string key = std::string(states[state]) + ": " + events[event];
            const auto expected = transcript.find(key);

            ASSERT_NE(expected, transcript.end()) << key;
            EXPECT_EQ(text, expected->second) << key;
        }
    }
    EXPECT_EQ(cells, transcript.size());
}

} // namespace

TEST(PimBsrMachine, TheCandidatesIsThatOfTheRfc)
{
    expect_cells(pimsmd::bsr::CANDIDATE_TABLE, {"Candidate", "Pending", "Elected"},
                 pimsmd::bsr::CANDIDATE_NAMES,
                 {
                     {"Candidate: preferred", "forward store timeout"},
                     {"Candidate: other", ""},
                     {"Candidate: gave up", "Pending override"},
                     {"Candidate: timer", "Pending override"},
                     {"Pending: preferred", "Candidate forward store timeout"},
                     {"Pending: other", ""},
                     {"Pending: gave up", "impossible"},
                     {"Pending: timer", "Elected period originate"},
                     {"Elected: preferred", "Candidate forward store timeout"},
                     {"Elected: other", "period originate"},
                     {"Elected: gave up", "impossible"},
                     {"Elected: timer", "period originate"},
                 });
}

TEST(PimBsrMachine, TheListenersIsThatOfTheRfc)
{
    expect_cells(pimsmd::bsr::LISTENER_TABLE, {"AcceptAny", "AcceptPreferred"}, pimsmd::bsr::LISTENER_NAMES,
                 {
                     {"AcceptAny: preferred", "AcceptPreferred forward store timeout"},
                     {"AcceptAny: other", "impossible"},
                     {"AcceptAny: gave up", "impossible"},
                     {"AcceptAny: timer", "impossible"},
                     {"AcceptPreferred: preferred", "forward store timeout"},
                     {"AcceptPreferred: other", ""},
                     {"AcceptPreferred: gave up", ""},
                     {"AcceptPreferred: timer", "AcceptAny"},
                 });
}

TEST(PimBsrMachine, TheBetterWaitsLess)
{
    const auto wait = [](uint8_t own, const char *own_address, uint8_t best, const char *best_address) {
        return pimsmd::bsr::override_ms({own, addr(own_address)}, {best, addr(best_address)});
    };
    EXPECT_EQ(wait(0, "10.0.0.1", 0, "10.0.0.1"), 5000u);
    EXPECT_EQ(wait(0, "10.0.0.1", 0, "10.0.0.4"), 5125u);       // log2(4) / 16
    EXPECT_EQ(wait(0, "64.0.0.0", 1, "10.0.0.4"), 8500u);       // 2 log2(2) + 2 - 2^30 / 2^31
    EXPECT_EQ(wait(0, "128.0.0.0", 255, "10.0.0.4"), 22000u);   // 2 log2(256) + 2 - 1
    EXPECT_EQ(wait(0, "2001:db8::1", 0, "2001:db8::4"), 5031u); // log2(4) / 64
    EXPECT_EQ(wait(0, "4000::", 3, "2001:db8::4"), 10500u);     // 2 log2(4) + 2 - 2^126 / 2^127
}

TEST(PimBsr, AListenerTakesAnyAndThenTheSameOrABetterOne)
{
    BsrLab lab;
    EXPECT_STREQ(lab.bsr.state_name(), "AcceptAny");
    EXPECT_EQ(lab.hear({"10.9.0.1", 5, 1, {{"239.0.0.0/8", 1, {mapping("10.255.0.1")}}}}), NO_DROP);
    EXPECT_EQ(lab.taken(), Lines{"forward 10.9.0.1"});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.255.0.1");
    EXPECT_EQ(lab.hear({"10.9.0.9", 4, 1, {{"239.0.0.0/8", 1, {mapping("10.255.0.9")}}}}), NO_DROP);
    EXPECT_EQ(lab.hear({"10.9.0.1", 4, 2, {{"239.0.0.0/8", 1, {mapping("10.255.0.9")}}}}), NO_DROP);
    EXPECT_EQ(lab.taken(), Lines{});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.255.0.1");
    lab.hear({"10.9.0.2", 5, 1, {{"239.0.0.0/8", 1, {mapping("10.255.0.2")}}}});
    EXPECT_EQ(lab.taken(), Lines{"forward 10.9.0.2"});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.255.0.2");
    lab.pass(129999);
    EXPECT_STREQ(lab.bsr.state_name(), "AcceptPreferred");
    lab.pass(1);
    EXPECT_STREQ(lab.bsr.state_name(), "AcceptAny");
    EXPECT_FALSE(lab.bsr.elected());
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.255.0.2"); // until its holdtime
    lab.hear({"10.9.0.1", 0, 3, {}});
    EXPECT_EQ(pimsmd::to_text(lab.bsr.elected()->address), "10.9.0.1");
}

TEST(PimBsr, OnlyTheWayToTheBsrBringsBootstraps)
{
    BsrLab lab;
    const Heard heard("10.9.0.1", 5, 1, {});
    EXPECT_EQ(lab.hear(heard, "10.0.0.3"), Count::BootstrapRpf);
    EXPECT_EQ(lab.hear(heard, "10.0.0.4"), Count::BootstrapSender);
    EXPECT_EQ(lab.bsr.bootstrap(1, addr("10.0.0.2"), false, heard.message), Count::BootstrapSender);
    EXPECT_EQ(lab.hear({"10.0.0.1", 5, 1, {}}), Count::BootstrapOwn);
    EXPECT_FALSE(lab.bsr.elected());
    EXPECT_EQ(lab.taken(), Lines{});
    EXPECT_EQ(lab.hear({"10.0.0.2", 5, 1, {}}), NO_DROP);
    Heard::zone = true;
    const Heard of_zone("10.9.0.1", 5, 1, {{"239.0.0.0/8", 0, {}}});
    Heard::zone = false;
    EXPECT_EQ(lab.hear(of_zone), Count::BootstrapZone);
}

TEST(PimBsr, MessagesForRoutersThatJustStartedCountForThoseAlone)
{
    BsrLab lab;
    const Heard no_forward("10.9.0.1", 5, 1, {{"239.0.0.0/8", 1, {mapping("10.255.0.1")}}}, true);
    const Heard usual("10.9.0.1", 5, 1, {});
    EXPECT_EQ(lab.hear(no_forward, "10.0.0.3"), NO_DROP); // whoever sends it
    EXPECT_EQ(lab.taken(), Lines{});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.255.0.1");
    EXPECT_EQ(lab.hear(no_forward), Count::BootstrapLate);
    EXPECT_EQ(lab.hear(usual, "10.0.0.3", true), Count::BootstrapLate);

    BsrLab unicast;
    unicast.pass(60000);
    EXPECT_EQ(unicast.hear(usual, "10.0.0.3", true), NO_DROP);
    EXPECT_EQ(unicast.taken(), Lines{});
    BsrLab late;
    late.pass(60001);
    EXPECT_EQ(late.hear(usual, "10.0.0.3", true), Count::BootstrapLate);
}

TEST(PimBsr, RangesAreLearntWhenAllTheirPiecesCame)
{
    BsrLab lab;
    lab.hear({"10.9.0.1", 5, 7, {{"239.0.0.0/8", 3, {mapping("10.255.0.1"), mapping("10.255.0.2")}}}});
    lab.hear({"10.9.0.1", 5, 7, {{"239.0.0.0/8", 3, {mapping("10.255.0.2")}}}}); // again
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "none");
    lab.hear({"10.9.0.1",
              5,
              7,
              {{"239.0.0.0/8", 3, {mapping("10.255.0.3")}}, {"238.0.0.0/8", 2, {mapping("10.255.0.4")}}}});
    EXPECT_EQ(lab.set.learnt().rps(), 3u);
    EXPECT_EQ(lab.rp_of("238.1.1.1"), "none");
    lab.hear({"10.9.0.1", 5, 8, {{"238.0.0.0/8", 2, {mapping("10.255.0.5")}}}});
    EXPECT_EQ(lab.counters[Count::BootstrapIncomplete], 1u);
    EXPECT_EQ(lab.rp_of("238.1.1.1"), "none"); // pieces of two Bootstraps
    EXPECT_EQ(lab.set.learnt().rps(), 3u);
    lab.hear({"10.9.0.1", 5, 9, {{"239.0.0.0/8", 0, {}}}});
    EXPECT_EQ(lab.set.learnt().rps(), 0u);
}

TEST(PimBsr, PiecesThatNeverCompleteHaveALimit)
{
    pimsmd::Counters counters;
    pimsmd::BsrFragments fragments(counters, 3);
    unsigned complete = 0;
    const auto count = [&](const Prefix & /*range*/, std::span<const BootstrapRp> /*rps*/) { ++complete; };
    fragments.take(
        Heard("10.9.0.1", 5, 7, {{"239.0.0.0/8", 9, {mapping("10.0.0.1"), mapping("10.0.0.2")}}}).message,
        count);
    fragments.take(
        Heard("10.9.0.1", 5, 7, {{"238.0.0.0/8", 9, {mapping("10.0.0.1"), mapping("10.0.0.2")}}}).message,
        count);
    EXPECT_EQ(fragments.kept(), 2u);
    EXPECT_EQ(counters[Count::BootstrapKept], 1u);
    fragments.take(Heard("10.9.0.1", 5, 7, {{"238.0.0.0/8", 1, {mapping("10.0.0.1")}}}).message, count);
    EXPECT_EQ(complete, 1u);
    fragments.take(Heard("10.9.0.2", 5, 7, {}).message, count);
    EXPECT_EQ(fragments.kept(), 0u);
    EXPECT_EQ(counters[Count::BootstrapIncomplete], 1u);
}

TEST(PimBsr, ACandidateAloneIsElectedAndTellsEveryMinute)
{
    BsrLab lab(candidate(9));
    lab.pass(ALONE_MS - 1);
    EXPECT_STREQ(lab.bsr.state_name(), "Pending");
    lab.pass(1);
    EXPECT_TRUE(lab.bsr.is_elected());
    EXPECT_EQ(lab.taken(), Lines{"send 10.0.0.1 9"});
    lab.pass(59999);
    EXPECT_EQ(lab.taken(), Lines{});
    lab.pass(1);
    EXPECT_EQ(lab.taken(), Lines{"send 10.0.0.1 9"});
    EXPECT_NE(lab.tags[0], lab.tags[1]);
    EXPECT_EQ(lab.hear({"10.9.0.1", 8, 1, {}}), NO_DROP); // is told who is better
    EXPECT_EQ(lab.hear({"10.9.0.1", 8, 1, {}}), NO_DROP);
    lab.pass(9999);
    EXPECT_EQ(lab.taken(), Lines{});
    lab.pass(1);
    EXPECT_EQ(lab.taken(), Lines{"send 10.0.0.1 9"});
    lab.bsr.neighbour_up(0, addr("10.0.0.3"));
    EXPECT_EQ(lab.taken(), Lines{"tell 10.0.0.3 10.0.0.1 9"});
    lab.hear({"10.9.0.1", 9, 1, {}});
    EXPECT_STREQ(lab.bsr.state_name(), "Candidate");
    EXPECT_EQ(lab.taken(), Lines{"forward 10.9.0.1"});
    lab.bsr.neighbour_up(0, addr("10.0.0.3"));
    EXPECT_EQ(lab.taken(), Lines{"tell 10.0.0.3 10.9.0.1 9"}); // of another one what is known
}

TEST(PimBsr, ACandidateTakesOverWhenTheElectedOneIsSilentOrGivesUp)
{
    BsrLab lab(candidate(9));
    lab.hear({"10.9.0.1", 9, 1, {}});
    lab.pass(129999);
    EXPECT_STREQ(lab.bsr.state_name(), "Candidate");
    lab.pass(1);
    EXPECT_STREQ(lab.bsr.state_name(), "Pending");
    lab.hear({"10.9.0.1", 9, 2, {}});
    EXPECT_STREQ(lab.bsr.state_name(), "Candidate");
    lab.hear({"10.9.0.2", 8, 3, {}});
    EXPECT_STREQ(lab.bsr.state_name(), "Candidate");
    lab.hear({"10.9.0.1", 8, 3, {}});
    EXPECT_STREQ(lab.bsr.state_name(), "Pending");
    lab.pass(7000);
    EXPECT_TRUE(lab.bsr.is_elected());
}

TEST(PimBsr, CandidateRpsAreToldAtOnceButNotOftenerThanEveryTenSeconds)
{
    BsrLab lab(candidate(9));
    EXPECT_EQ(lab.offer("10.255.0.1"), Count::CandidateNotBsr);
    lab.pass(ALONE_MS);
    lab.taken();
    EXPECT_EQ(lab.offer("10.255.0.1", 100), NO_DROP);
    lab.offer("10.255.0.2", 150);
    lab.pass(9999);
    EXPECT_EQ(lab.taken(), Lines{});
    lab.pass(1);
    EXPECT_EQ(lab.taken(), Lines{"send 10.0.0.1 9 224.0.0.0/4=2 10.255.0.1 10.255.0.2"});
    EXPECT_EQ(lab.set.learnt().rps(), 2u); // it learns from itself
    lab.offer("10.255.0.1", 100);          // nothing new
    lab.pass(59999);
    EXPECT_EQ(lab.taken(), Lines{});
    lab.pass(1);
    EXPECT_EQ(lab.taken(), Lines{"send 10.0.0.1 9 224.0.0.0/4=2 10.255.0.1 10.255.0.2"});
    lab.pass(39999);
    EXPECT_EQ(lab.taken(), Lines{});
    lab.pass(1); // the first one's holdtime
    lab.queue.run_due(SIZE_MAX);
    EXPECT_EQ(lab.taken(), Lines{"send 10.0.0.1 9 224.0.0.0/4=1 10.255.0.2"});
    lab.pass(10000);
    lab.offer("10.255.0.2", 0); // says goodbye
    lab.pass(0);
    EXPECT_EQ(lab.taken(), Lines{"send 10.0.0.1 9 224.0.0.0/4=0"});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "none");
    lab.pass(60000);
    EXPECT_EQ(lab.taken(), Lines{"send 10.0.0.1 9"});
}

TEST(PimBsr, ACandidateRpTellsTheBsrEveryMinute)
{
    BsrSettings settings;
    settings.rp = addr("10.0.0.1");
    settings.rp_ranges = {{Prefix::parse("239.0.0.0/8").value()}};
    BsrLab lab(settings);
    lab.pass(10000);
    EXPECT_EQ(lab.taken(), Lines{});
    lab.hear({"10.9.0.1", 5, 1, {}});
    EXPECT_EQ(lab.taken(), Lines{"forward 10.9.0.1"});
    lab.pass(1500); // half of three seconds, by the draw
    EXPECT_EQ(lab.taken(), Lines{"candidate to 10.9.0.1 10.0.0.1 1"});
    lab.pass(59999);
    EXPECT_EQ(lab.taken(), Lines{});
    lab.pass(1);
    EXPECT_EQ(lab.taken(), Lines{"candidate to 10.9.0.1 10.0.0.1 1"});
    lab.hear({"10.9.0.2", 5, 1, {}});
    lab.taken();
    lab.pass(1500);
    EXPECT_EQ(lab.taken(), Lines{"candidate to 10.9.0.2 10.0.0.1 1"});
}

TEST(PimBsr, ACandidateRpTellsTheBsrTwiceWithinAShortHoldtime)
{
    BsrSettings settings;
    settings.rp = addr("10.0.0.1");
    settings.rp_holdtime_s = 3;
    BsrLab lab(settings);
    lab.hear({"10.9.0.1", 5, 1, {}});
    lab.pass(1500);
    lab.taken();
    lab.pass(1199);
    EXPECT_EQ(lab.taken(), Lines{});
    for (int i = 0; i < 3; ++i) {
        lab.pass(i == 0 ? 1 : 1200);
        EXPECT_EQ(lab.taken(), Lines{"candidate to 10.9.0.1 10.0.0.1 0"}) << i;
    }
}

TEST(PimBsr, TheElectedOneIsItsOwnCandidateRp)
{
    BsrSettings settings = candidate(9);
    settings.rp = addr("10.0.0.1");
    BsrLab lab(settings);
    lab.pass(ALONE_MS);
    lab.pass(0);
    lab.taken();
    lab.pass(10000);
    EXPECT_EQ(lab.taken(), Lines{"send 10.0.0.1 9 224.0.0.0/4=1 10.0.0.1"});
    EXPECT_EQ(lab.rp_of("239.1.1.1"), "10.0.0.1");
}
