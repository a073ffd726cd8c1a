/*
 * A day of a link within seconds: real packets, the real state machine and the library's timers, on a clock
 * that the test moves. Eighty hosts of all versions join, answer, lose an answer, leave and vanish; another
 * router is the querier now and then. Every second is compared with a model without timers. Four times a
 * day everybody is gone, and everything that was taken for the hosts must be back.
 *
 * The clock starts so that milliseconds since boot pass 2^32 within the first day. GMPD_CLOCK_DAYS sets the
 * number of days, GMPD_RANDOM_SEED repeats a run.
 */
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <malloc.h>
#include <queue>
#include <random>
#include <tuple>

#include "daemons/gmpd/packet_parse.h"
#include "tests/daemons/gmpd_clock_model.h"
#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

constexpr Moment SECOND = 1000;
constexpr Moment HOUR = 3600 * SECOND;
constexpr Moment START = (Moment{1} << 32) - 9 * HOUR + 437; // in the middle of a second
constexpr Moment SHIFT = 6 * HOUR;                           // until everybody is gone for a while
constexpr Moment QUIET = 300 * SECOND;                       // longer than a membership lasts
constexpr Times OTHERS = {60000, 5000};
constexpr unsigned OTHER_ROUTER = 1;
constexpr unsigned HOSTS = 80;
constexpr unsigned ANY_SOURCE_GROUPS = 30; // numbered from 1; the source-specific ones follow
constexpr unsigned GROUPS = 50;
constexpr unsigned SOURCES = 5;
constexpr size_t MEMORY_NOISE = 32768; // what malloc keeps for the next to come; a day's joins take far more

unsigned long setting(const char *name, unsigned long otherwise)
{
    const char *text = getenv(name);
    return text != nullptr ? strtoul(text, nullptr, 10) : otherwise;
}

struct Host {
    Membership wants; // group 0: nothing
    unsigned version = 3;
    uint64_t joins = 0; // how often it has joined; an event of an earlier membership is void
};

class Link final : public QuerySink, public MribSink
{
public:
    Link(uint8_t family, unsigned long seed) : random_(seed), lab_(family), hosts_(HOSTS)
    {
        lab_.process.queries = this;
        lab_.process.mrib = this;
        scripted_timer::platform.now_ms = START;
        model_.start(START);
        interface_start(*lab_.interface, lab_.neighbour(100));
        second_ = ClockModel::first_second_from(START);
        shift_began_ = second_;
    }

    void run(Moment duration)
    {
        for (const Moment end = second_ + duration; second_ < end && fault().empty(); second_ += SECOND) {
            run_second();
        }
    }

    const std::string &fault() const
    {
        return model_.fault();
    }
    // When the fault happened, for a message.
    double hours() const
    {
        return static_cast<double>(second_ - START) / static_cast<double>(HOUR);
    }
    // What was counted differs from what was said and heard: the names of such counters.
    std::string wrong_counters() const
    {
        std::string wrong;

        for (size_t i = 0; i < static_cast<size_t>(Count::Total); ++i) {
            const auto count = static_cast<Count>(i);

            if (lab_.interface->counters[count] != sent_[count]) {
                wrong += std::string(count_name(count)) + " ";
            }
        }
        return wrong;
    }
    uint64_t events() const
    {
        return events_;
    }
    uint64_t rests() const
    {
        return rests_;
    }

    void send_query(gmpd::Interface &, const Query &query) override
    {
        const unsigned group = is_unspecified(query.group) ? 0 : number_of(query.group);
        std::vector<unsigned> sources;
        for (const Address &source : query.sources) {
            sources.push_back(number_of(source));
        }
        ++sent_[group == 0 ? Count::SentGeneral : sources.empty() ? Count::SentGroup : Count::SentSources];
        model_.own_query(now(), group, sources, query.suppress);
        ask_hosts(group, sources, query.max_response_ms);
    }
    void tell_running(const gmpd::Interface &, bool) override
    {
    }
    void tell_querier(const gmpd::Interface &, bool elected) override
    {
        model_.note(elected == model_.elected(), "the querier is somebody else");
    }
    void tell_member(const gmpd::Interface &, const Address &group, const Address *source, bool join,
                     bool blocked) override
    {
        const Membership one = {number_of(group), source != nullptr ? number_of(*source) : 0};
        model_.note(!blocked, "a source was blocked");
        model_.note(join ? told_.insert(one).second : told_.erase(one) == 1, "told what was known");
    }

private:
    struct Event {
        Moment at;
        uint64_t order;
        std::function<void()> act;

        bool operator>(const Event &other) const
        {
            return std::tie(at, order) > std::tie(other.at, other.order);
        }
    };

    using EventQueue = std::priority_queue<Event, std::vector<Event>, std::greater<>>;

    // The queue takes no memory later, which would count as the router's.
    static std::vector<Event> with_room()
    {
        std::vector<Event> room;
        room.reserve(4096);
        return room;
    }
    static unsigned number_of(const Address &address)
    {
        return address.address[address_size(address.family) - 1];
    }
    static Moment now()
    {
        return scripted_timer::platform.now_ms;
    }
    Moment below(Moment bound)
    {
        return random_() % bound;
    }
    bool is_ipv4() const
    {
        return lab_.process.config.family == MCAST_FAMILY_IPV4;
    }
    void later(Moment delay, std::function<void()> act)
    {
        events_queue_.push({now() + delay, events_++, std::move(act)});
    }

    // One second of the link: what is due at its beginning, then what hosts do in it.
    void run_second()
    {
        scripted_timer::platform.now_ms = second_;
        model_.second(second_);
        wake_up();
        model_.second_done(second_);
        compare();
        if (second_ == shift_began_) {
            begin_shift();
        } else if (second_ == shift_began_ + SHIFT - QUIET) {
            everybody_vanishes();
        }
        while (!events_queue_.empty() && events_queue_.top().at < second_ + SECOND) {
            const Event event = events_queue_.top();

            events_queue_.pop();
            scripted_timer::platform.now_ms = event.at;
            event.act();
        }
        if (second_ + SECOND == shift_began_ + SHIFT) {
            end_shift();
        }
    }

    // What the daemons' loop does at the beginning of a second in which a timer is due. The timer that the
    // library armed would have come within that second.
    void wake_up()
    {
        const auto *top = static_cast<const MCAST_TMR_NODE_S *>(MCAST_MinHeapTop(lab_.process.timers->heap));

        if (top == nullptr) {
            model_.note(false, "no timer at all");
            return;
        }
        const scripted_timer::Timer &armed = scripted_timer::Only();

        model_.note(armed.armed && armed.due_ms < (Moment{top->expiry} + 1) * SECOND,
                    "the platform's timer comes too late");
        if (Moment{top->expiry} * SECOND <= second_) {
            MCAST_TMR_ProcExpires(lab_.process.timers);
        }
    }

    void compare()
    {
        const bool changed = told_ != compared_;
        if (changed || second_ % (60 * SECOND) == 0 || model_.ends().size() != compared_.size()) {
            compared_ = told_;
            model_.note(told_ == model_.memberships(), "memberships differ from the model's");
            for (const auto &[membership, end] : model_.ends()) {
                compare_timers(membership, end);
            }
        }
    }
    void compare_timers(const Membership &membership, Moment end)
    {
        const GroupState *group = find_group(lab_.interface->memberships, lab_.group(membership.group));
        const SourceState *source = group != nullptr && membership.source != 0
                                        ? find_source(*group, lab_.source(membership.source))
                                        : nullptr;
        const Moment ends = source != nullptr  ? ends_at(source->timer)
                            : group != nullptr ? ends_at(group->timer)
                                               : 0;
        model_.note((source != nullptr) == (membership.source != 0) && ends == end,
                    "a membership ends at another moment than the model's");
        if (group != nullptr && membership.source == 0) {
            model_.note(ends_at(group->v1_host) == model_.older_until(membership.group, 1) &&
                            ends_at(group->v2_host) == model_.older_until(membership.group, 2),
                        "older hosts are believed present for another time");
        }
    }
    static Moment ends_at(const mcastd::Timer &timer)
    {
        return timer.running() ? Moment{timer.node->expiry} * SECOND : 0;
    }

    static Moment ends_at(const gmpd::Deadline &deadline)
    {
        return deadline.running() ? Moment{deadline.end_s()} * SECOND : 0;
    }

    // Hosts come within the first minutes; in the second shift of a day another router asks now and then.
    void begin_shift()
    {
        for (Host &host : hosts_) {
            later(below(20 * 60 * SECOND), [this, &host] { join(host); });
        }
        if (shifts_++ % 4 == 1) {
            for (Moment at = HOUR / 2; at < SHIFT - HOUR; at += HOUR / 4) {
                other_asks_for(at + below(60 * SECOND), below(10) * OTHERS.query_interval);
            }
        }
    }

    void other_asks_for(Moment from, Moment duration)
    {
        for (Moment at = from; at <= from + duration; at += OTHERS.query_interval) {
            later(at, [this] { other_query(0, {}); });
        }
    }

    void everybody_vanishes()
    {
        while (!events_queue_.empty()) {
            events_queue_.pop();
        }
        for (Host &host : hosts_) {
            host.wants = {};
        }
    }

    // Nobody is left, nor is anything of what was taken for them since the first shift.
    void end_shift()
    {
        model_.note(told_.empty() && MRT_CountTable(lab_.interface->memberships.groups) == 0,
                    "groups without hosts");
        model_.note(lab_.process.timers->heap->count == 1, "timers other than that of the general query");
        const size_t used = mallinfo2().uordblks;

        rest_memory_ = rests_++ == 0 ? used : rest_memory_;
        model_.note(used < rest_memory_ + MEMORY_NOISE, "memory is not given back");
        shift_began_ += SHIFT;
    }

    void join(Host &host)
    {
        host.wants.group = 1 + static_cast<unsigned>(below(GROUPS));
        host.wants.source = 0;
        host.version = 3;
        if (host.wants.group > ANY_SOURCE_GROUPS) {
            host.wants.source = 1 + static_cast<unsigned>(below(SOURCES));
        } else if (below(2) == 0) {
            host.version = is_ipv4() && below(4) == 0 ? 1 : 2;
        }
        ++host.joins;
        report(host, true);
        const bool says_so = host.version > 1 && below(3) != 0;

        later(SECOND + below(90 * 60 * SECOND), [this, &host, says_so] { depart(host, says_so); });
    }

    void depart(Host &host, bool says_so)
    {
        const Membership had = std::exchange(host.wants, {});
        if (says_so) {
            leave(had, host.version);
        }
        later(SECOND + below(40 * 60 * SECOND), [this, &host] { join(host); });
    }

    void ask_hosts(unsigned group, const std::vector<unsigned> &sources, Moment response)
    {
        for (Host &host : hosts_) {
            const bool meant =
                group == 0 ||
                (host.wants.group == group &&
                 (sources.empty() || std::ranges::find(sources, host.wants.source) != sources.end()));

            if (host.wants.group != 0 && meant && below(8) != 0) {
                later(below(response), [this, &host, joins = host.joins] {
                    if (host.wants.group != 0 && host.joins == joins) {
                        report(host, false);
                    }
                });
            }
        }
    }

    void report(const Host &host, bool change)
    {
        static constexpr Count COUNTS[] = {Count::ReportsV1, Count::ReportsV2, Count::ReportsV3};
        const bool any = host.wants.source == 0;

        model_.report(now(), host.wants, host.version);
        ++sent_[COUNTS[host.version - 1]];
        if (host.version == 3) {
            const RecordType type = any ? (change ? RecordType::ToExclude : RecordType::IsExclude)
                                        : (change ? RecordType::Allow : RecordType::IsInclude);

            receive_record(type, host.wants);
        } else {
            receive_old(host.version, host.wants.group, to_text(lab_.group(host.wants.group)));
        }
    }

    void leave(const Membership &had, unsigned version)
    {
        const bool ignored = model_.ends().contains(had) && model_.older_until(had.group, 1) != 0;

        model_.leave(now(), had);
        sent_[Count::OldHostPresent] += ignored;
        ++sent_[version == 3 ? Count::ReportsV3 : Count::Leaves];
        if (version == 3) {
            receive_record(had.source == 0 ? RecordType::ToInclude : RecordType::Block, had);
        } else {
            receive_old(0, had.group, is_ipv4() ? "224.0.0.2" : "ff02::2");
        }
        if (!model_.elected()) {
            const std::vector<unsigned> sources =
                had.source != 0 ? std::vector<unsigned>{had.source} : std::vector<unsigned>{};

            for (Moment delay : {Moment{5}, ClockModel::LAST_MEMBER_INTERVAL + 5}) {
                later(delay, [this, had, sources] { other_query(had.group, sources); });
            }
        }
    }

    // The other router's query.
    void other_query(unsigned group, const std::vector<unsigned> &sources)
    {
        const Moment response = group == 0 ? OTHERS.response : ClockModel::LAST_MEMBER_INTERVAL;
        const auto code = static_cast<uint16_t>(is_ipv4() ? response / 100 : response);
        Bytes message =
            is_ipv4()
                ? Bytes{0x11, static_cast<uint8_t>(code), 0, 0}
                : Bytes{130, 0, 0, 0, static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code), 0, 0};
        const std::string about =
            to_text(group == 0 ? any_address(lab_.process.config.family) : lab_.group(group));
        append(message, addr(about.c_str()));
        append(message, {ClockModel::ROBUSTNESS, OTHERS.query_interval / SECOND, 0,
                         static_cast<uint8_t>(sources.size())});
        for (unsigned source : sources) {
            append(message, addr(to_text(lab_.source(source)).c_str()));
        }
        model_.other_query(now(), OTHERS, group, sources);
        ++sent_[Count::QueriesV3];
        receive(OTHER_ROUTER, group != 0 ? about : is_ipv4() ? "224.0.0.1" : "ff02::1", message);
        ask_hosts(group, sources, response);
    }

    void receive_record(RecordType type, const Membership &about)
    {
        Bytes message = {static_cast<uint8_t>(is_ipv4() ? 0x22 : 143), 0, 0, 0, 0, 0, 0, 1};
        append(message, {static_cast<uint8_t>(type), 0, 0, static_cast<uint8_t>(about.source != 0)});
        append(message, addr(to_text(lab_.group(about.group)).c_str()));
        if (about.source != 0) {
            append(message, addr(to_text(lab_.source(about.source)).c_str()));
        }
        receive(200, is_ipv4() ? "224.0.0.22" : "ff02::16", message);
    }

    // A message of an older version; version 0 is a leave.
    void receive_old(unsigned version, unsigned group, const std::string &to)
    {
        static constexpr uint8_t IGMP[] = {0x17, 0x12, 0x16};
        Bytes message = is_ipv4()
                            ? Bytes{IGMP[version], 0, 0, 0}
                            : Bytes{static_cast<uint8_t>(version == 0 ? 132 : 131), 0, 0, 0, 0, 0, 0, 0};
        append(message, addr(to_text(lab_.group(group)).c_str()));
        receive(200, to, message);
    }

    void receive(unsigned neighbour, const std::string &to, const Bytes &message)
    {
        const std::string from = to_text(lab_.neighbour(neighbour));
        const Bytes packet = is_ipv4() ? igmp_packet(from.c_str(), to.c_str(), message)
                                       : mld_packet(from.c_str(), to.c_str(), message);
        Message parsed;
        model_.note(parse_packet(lab_.process.config.family, packet, parsed) == NO_DROP,
                    "a packet was refused");
        handle_message(*lab_.interface, parsed);
    }

    std::mt19937_64 random_;
    ClockModel model_;
    std::set<Membership> told_;     // what the MRIB was told
    std::set<Membership> compared_; // the same when it was last compared
    Lab lab_;
    std::vector<Host> hosts_;
    EventQueue events_queue_{std::greater<>(), with_room()};
    Counters sent_;
    uint64_t events_ = 0;
    uint64_t shifts_ = 0;
    uint64_t rests_ = 0;
    size_t rest_memory_ = 0;
    Moment second_ = 0;
    Moment shift_began_ = 0;
};

void run(uint8_t family)
{
    const unsigned long seed = setting("GMPD_RANDOM_SEED", std::random_device()());
    const unsigned long days = setting("GMPD_CLOCK_DAYS", 1);
    Link link(family, seed);
    link.run(days * 24 * HOUR);
    EXPECT_EQ(link.fault(), "") << "after " << link.hours() << " hours, GMPD_RANDOM_SEED=" << seed;
    EXPECT_EQ(link.wrong_counters(), "") << "GMPD_RANDOM_SEED=" << seed;
    EXPECT_EQ(link.rests(), 4 * days);
    EXPECT_GT(link.events(), 10000 * days) << "the hosts did next to nothing";
}

} // namespace

TEST(GmpdClock, ADayOfIgmpEndsWhereItShould)
{
    run(MCAST_FAMILY_IPV4);
}

TEST(GmpdClock, ADayOfMldEndsWhereItShould)
{
    run(MCAST_FAMILY_IPV6);
}
