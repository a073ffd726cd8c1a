/*
 * Random records of three users of one link, users that come and go, and rights that change. After each step
 * the MRIB believes what the users want together, and while a step is told no source that is wanted before
 * and after is ever cut off, nor one let through that is wanted neither before nor after. GMPD_RANDOM_STEPS
 * sets the number of steps, GMPD_RANDOM_SEED repeats a run.
 */
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <set>

#include "tests/daemons/gmpd_users_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

constexpr unsigned USERS = 3;
constexpr unsigned GROUPS = 2;
constexpr unsigned SOURCES = 4;
constexpr unsigned UNHEARD_SOURCE = 200; // stands for all that nobody names

using Pair = std::pair<unsigned, unsigned>; // group, source

// What the MRIB believes, as it is told.
class Believer final : public QuerySink, public MribSink
{
public:
    void send_query(Interface &, const Query &) override
    {
    }
    void tell_running(const Interface &, bool) override
    {
    }
    void tell_querier(const Interface &, bool) override
    {
    }
    void tell_member(const Interface &, const Address &group, const Address *source, bool join,
                     bool blocked) override
    {
        const Pair pair(last(group), source != nullptr ? last(*source) : UsersLab::ANY);
        std::set<Pair> &known = blocked ? blocks_ : joins_;
        EXPECT_TRUE(join ? known.insert(pair).second : known.erase(pair) == 1) << "said twice";
        snapshots.push_back(wanted());
    }
    std::set<Pair> wanted() const
    {
        std::set<Pair> pairs;

        for (unsigned group = 1; group <= GROUPS; ++group) {
            for (const unsigned source : {1u, 2u, 3u, 4u, UNHEARD_SOURCE}) {
                const bool any = joins_.count({group, UsersLab::ANY}) != 0;

                if (joins_.count({group, source}) != 0 || (any && blocks_.count({group, source}) == 0)) {
                    pairs.insert({group, source});
                }
            }
        }
        return pairs;
    }

    std::vector<std::set<Pair>> snapshots;

private:
    static unsigned last(const Address &address)
    {
        return address.address[address_size(address.family) - 1];
    }

    std::set<Pair> joins_;
    std::set<Pair> blocks_;
};

unsigned long setting(const char *name, unsigned long otherwise)
{
    const char *text = getenv(name);
    return text != nullptr ? strtoul(text, nullptr, 10) : otherwise;
}

class Run
{
public:
    Run(uint8_t family, unsigned long seed) : engine_(seed), users_(family)
    {
        users_.lab.process.queries = &believer_;
        users_.lab.process.mrib = &believer_;
    }
    ~Run()
    {
        users_.lab.process.queries = &users_.lab.recorder;
        users_.lab.process.mrib = &users_.lab.recorder;
    }
    void step()
    {
        const unsigned user = 1 + below(USERS);
        const unsigned group = 1 + below(GROUPS);
        const unsigned source = below(SOURCES + 1);
        const std::set<Pair> before = believer_.wanted();
        bool one_change = true; // not a time in which things may come and go
        believer_.snapshots.clear();
        switch (below(16)) {
        case 0:
            users_.lab.pass(below(200));
            one_change = false;
            break;
        case 1:
            users_.withdraw(user);
            break;
        case 2:
        case 3:
            users_.revoke(user, group, source);
            break;
        case 4:
        case 5:
        case 6:
            users_.permit(user, group, source);
            break;
        default:
            announce_once(user);
            users_.record(user, static_cast<RecordType>(1 + below(6)), sources(), group);
            break;
        }
        check(before, one_change);
    }

private:
    unsigned below(unsigned bound)
    {
        return static_cast<unsigned>(engine_() % bound);
    }
    std::vector<unsigned> sources()
    {
        std::vector<unsigned> chosen;
        for (unsigned number = 1; number <= SOURCES; ++number) {
            if (below(3) == 0) {
                chosen.push_back(number);
            }
        }
        return chosen;
    }
    void announce_once(unsigned user)
    {
        if (users_.table.find(UsersLab::key_of(user)) == nullptr) {
            users_.announce(user);
        }
    }
    void check(const std::set<Pair> &before, bool one_change)
    {
        const std::set<Pair> after = believer_.wanted();
        std::set<Pair> asked;

        for (unsigned user = 1; user <= USERS; ++user) {
            for (unsigned group = 1; group <= GROUPS; ++group) {
                for (const unsigned source : {1u, 2u, 3u, 4u, UNHEARD_SOURCE}) {
                    if (users_.wants(user, group, source)) {
                        const Address address = users_.lab.source(source);

                        asked.insert({group, source});
                        EXPECT_TRUE(users_.may_join(0xD0000000u + user, users_.lab.group(group), &address));
                    }
                }
            }
        }
        ASSERT_EQ(after, asked);
        for (const std::set<Pair> &moment :
             one_change ? believer_.snapshots : std::vector<std::set<Pair>>()) {
            for (const Pair &pair : moment) {
                ASSERT_TRUE(before.count(pair) + after.count(pair) > 0) << "let through for a moment";
            }
            for (const Pair &pair : before) {
                ASSERT_TRUE(after.count(pair) == 0 || moment.count(pair) != 0) << "cut off for a moment";
            }
        }
    }

    std::mt19937_64 engine_;
    Believer believer_; // outlives the users, who report to it
    UsersLab users_;
};

void run(uint8_t family)
{
    const unsigned long seed = setting("GMPD_RANDOM_SEED", std::random_device()());
    Run run(family, seed);
    for (unsigned long left = setting("GMPD_RANDOM_STEPS", 20000); left > 0; --left) {
        run.step();
        ASSERT_FALSE(testing::Test::HasFailure())
            << "GMPD_RANDOM_SEED=" << seed << ", " << left << " steps left";
    }
}

} // namespace

TEST(GmpdUsersRandom, TheMribBelievesWhatTheUsersWantTogetherIpv4)
{
    run(MCAST_FAMILY_IPV4);
}

TEST(GmpdUsersRandom, TheMribBelievesWhatTheUsersWantTogetherIpv6)
{
    run(MCAST_FAMILY_IPV6);
}
