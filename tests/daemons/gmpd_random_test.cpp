/*
 * Random records, leaves, queries and pauses; after each, the state holds together and the MRIB believes what
 * the state says. GMPD_RANDOM_STEPS sets the number of steps, GMPD_RANDOM_SEED repeats a run.
 */
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>

#include "tests/daemons/gmpd_lab.h"
#include "tests/daemons/gmpd_mirror.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

constexpr unsigned GROUPS = 4;
constexpr unsigned SOURCES = 6;

unsigned long setting(const char *name, unsigned long otherwise)
{
    const char *text = getenv(name);
    return text != nullptr ? strtoul(text, nullptr, 10) : otherwise;
}

class Chance
{
public:
    explicit Chance(unsigned long seed) : engine_(seed)
    {
    }
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

private:
    std::mt19937_64 engine_;
};

void step(Lab &lab, Chance &chance)
{
    const unsigned group = 1 + chance.below(GROUPS);
    switch (chance.below(12)) {
    case 0:
        lab.pass_ms(chance.below(1500));
        break;
    case 1:
        lab.pass(chance.below(300));
        break;
    case 2:
        lab.old_report(lab.process.config.family == MCAST_FAMILY_IPV4 && chance.below(4) == 0 ? 1 : 2, group);
        break;
    case 3:
        lab.leave(group);
        break;
    case 4:
        lab.query(chance.below(40) == 0 ? 50 : 150, 3, group, chance.sources(), chance.below(2) == 0);
        break;
    default:
        lab.record(static_cast<RecordType>(1 + chance.below(6)), chance.sources(), group);
        break;
    }
}

void run(uint8_t family, bool immediate_leave, unsigned max_sources)
{
    const unsigned long seed = setting("GMPD_RANDOM_SEED", std::random_device()());
    Mirror mirror; // outlives the lab, which reports to it
    Config config;

    config.immediate_leave = immediate_leave;
    config.max_sources = max_sources;
    Lab lab(family, config);
    Chance chance(seed);

    lab.process.queries = &mirror;

    lab.process.mrib = &mirror;
    lab.start();
    for (unsigned long left = setting("GMPD_RANDOM_STEPS", 20000); left > 0; --left) {
        step(lab, chance);
        ASSERT_EQ(mirror.check(*lab.interface), "")
            << "GMPD_RANDOM_SEED=" << seed << ", " << left << " steps left";
    }
}

} // namespace

TEST(GmpdRandom, TheMribBelievesTheStateIpv4)
{
    run(MCAST_FAMILY_IPV4, false, 1024);
}

TEST(GmpdRandom, TheMribBelievesTheStateIpv6)
{
    run(MCAST_FAMILY_IPV6, false, 1024);
}

TEST(GmpdRandom, TheMribBelievesTheStateWithImmediateLeave)
{
    run(MCAST_FAMILY_IPV4, true, 1024);
}

TEST(GmpdRandom, TheMribBelievesTheStateAtTheSourceLimit)
{
    run(MCAST_FAMILY_IPV6, false, 3);
}
