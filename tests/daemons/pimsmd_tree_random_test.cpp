/*
 * Random steps of the trees (pimsmd_random_trees.h); after each their outputs and wishes are what the sets of RFC 7761 make of
 * the inputs.
 *
 * Without asserts it is also known at every moment which neighbour was asked for what, and that nobody else was.
 */
#include "tests/daemons/pimsmd_random_trees.h"

using namespace pimsmd_test;

namespace
{

class Router final : public RandomTrees
{
public:
    using RandomTrees::RandomTrees;

    void check()
    {
        std::set<std::string> joins;
        std::set<std::string> prunes;
        std::set<std::string> unsure;
        for (const std::string &group : GROUPS) {
            check_group(group, joins);
            for (const std::string &source : SOURCES) {
                check_source(group, source, joins, prunes, unsure);
            }
        }
        if (!with_asserts_) {
            EXPECT_EQ(TreeLab::held(lab_.joins), joins);
            std::set<std::string> held = TreeLab::held(lab_.prunes);

            std::erase_if(held, [&](const std::string &key) { return !joined_star(key); });
            // What was unsure stays so until a Join(*,G) says it anew.
            std::erase_if(unsure_,
                          [&](const std::string &key) { return held.contains(key) == prunes.contains(key); });
            unsure_.insert(unsure.begin(), unsure.end());
            for (const std::string &key : unsure_) {
                held.erase(key);
                prunes.erase(key);
            }
            EXPECT_EQ(held, prunes);
        }
        check_told();
    }

private:
    // "link neighbour group ", where something can be asked; empty where not.
    std::string asked(const std::string &to, const std::string &group)
    {
        const pimsmd::Route &route = lab_.routes[to];
        if (route.link == pimsmd::NO_LINK || is_unspecified(route.neighbour)) {
            return "";
        }
        return std::to_string(route.link) + " " + address_text(route.neighbour) + " " + group + " ";
    }

    bool joined_star(const std::string &key) const
    {
        const auto found = lab_.joins.find(key.substr(0, key.rfind(' ')) + " *");
        return found != lab_.joins.end() && found->second;
    }

    void check_group(const std::string &name, std::set<std::string> &joins)
    {
        const Model m = model(name, SOURCES[0]);
        const pimsmd::GroupEntry *entry = lab_.trees.find(addr(name.c_str()));
        const std::string to = asked(address_text(TreeLab::rp()), name);

        if (join_desired_star(m) && !to.empty()) {
            joins.insert(to + "*");
        }
        if (entry == nullptr) {
            EXPECT_EQ(immediate_star(m), Set());
            return;
        }
        EXPECT_EQ(immediate_olist(entry->words, lab_.trees.roles()), bits(immediate_star(m)));
        EXPECT_EQ(could_assert(entry->words, lab_.trees.roles()), bits(could_assert_star(m)));
        EXPECT_EQ(entry->machine.joined(), join_desired_star(m));
        for (const auto &[link, on] : entry->links) {
            const auto state = on->assertion.state();

            EXPECT_TRUE(state != pimsmd::asserts::State::Winner ||
                        could_assert_star(m).contains(static_cast<int>(link)));
            EXPECT_TRUE(state != pimsmd::asserts::State::Loser ||
                        tracks_star(m).contains(static_cast<int>(link)));
        }
    }

    void check_source(const std::string &group, const std::string &name, std::set<std::string> &joins,
                      std::set<std::string> &prunes, std::set<std::string> &unsure)
    {
        const Model m = model(group, name);
        const pimsmd::SourceEntry *entry = lab_.trees.find(addr(group.c_str()), addr(name.c_str()));
        const std::string to = asked(name, group);
        NaiveRegister &registering = registers_[{group, name}];

        registering.could(could_register(m) && !lab_.is_rp);
        EXPECT_EQ((lab_.nulls[{group, name}]), registering.nulls());
        EXPECT_EQ(entry != nullptr && entry->registers_to().has_value(), registering.registers());
        const std::string over_rp = asked(address_text(TreeLab::rp()), group);
        const bool same =
            lab_.routes[name].link == lab_.routes[address_text(TreeLab::rp())].link &&
            same_address(lab_.routes[name].neighbour, lab_.routes[address_text(TreeLab::rp())].neighbour);

        if (join_desired_source(m) && !to.empty()) {
            joins.insert(to + name);
        }
        if (entry == nullptr) {
            EXPECT_EQ(immediate_source(m), Set());
            EXPECT_EQ(m.prunes(), Set());
            return;
        }
        if (prune_desired(m, same) && !over_rp.empty()) {
            prunes.insert(over_rp + name);
        }
        // Where one neighbour serves both trees, and the source has no outputs over the shared one, the RFC has a Prune sent
        // when that begins (section 4.5.7), but not with the Joins(*,G) that follow (4.5.6).
        if (m.spt_bit && same) {
            unsure.insert(over_rp + name);
        }
        EXPECT_EQ(entry->view().immediate_olist(), bits(immediate_source(m)));
        EXPECT_EQ(entry->view().inherited_olist_rpt(), bits(inherited_rpt(m)));
        EXPECT_EQ(entry->view().inherited_olist(), bits(inherited_source(m)));
        EXPECT_EQ(entry->view().could_assert(), bits(could_assert_source(m)));
        EXPECT_EQ(entry->view().could_register(), could_register(m));
        EXPECT_EQ(entry->view().hosts() != 0, has_hosts(m));
        EXPECT_EQ(entry->machine.joined(), join_desired_source(m));
        for (const auto &[link, on] : entry->links) {
            const auto state = on->assertion.state();

            EXPECT_TRUE(state != pimsmd::asserts::State::Winner ||
                        could_assert_source(m).contains(static_cast<int>(link)));
            EXPECT_TRUE(state != pimsmd::asserts::State::Loser ||
                        tracks_source(m).contains(static_cast<int>(link)));
        }
    }

    // Whoever was told of every change knows the outputs of every entry.
    void check_told()
    {
        std::map<std::pair<std::string, std::string>, pimsmd::Links> now;
        for (const std::string &group : GROUPS) {
            const pimsmd::GroupEntry *star = lab_.trees.find(addr(group.c_str()));

            if (star != nullptr) {
                now[{group, "0.0.0.0"}] = immediate_olist(star->words, lab_.trees.roles());
            }
            for (const std::string &source : SOURCES) {
                const pimsmd::SourceEntry *entry = lab_.trees.find(addr(group.c_str()), addr(source.c_str()));

                if (entry != nullptr) {
                    now[{group, source}] = entry->view().inherited_olist();
                }
            }
        }
        for (const auto &key : lab_.changes) {
            if (now.contains(key)) {
                told_[key] = now[key];
            } else {
                told_.erase(key);
            }
        }
        lab_.changes.clear();
        std::erase_if(told_, [](const auto &one) { return one.second == 0; });
        std::erase_if(now, [](const auto &one) { return one.second == 0; });
        EXPECT_EQ(told_, now);
    }

    std::map<std::pair<std::string, std::string>, pimsmd::Links> told_;
    std::set<std::string> unsure_;
};

// Each router lives for a while, so that all begin with nothing once.
void run(const char *name, bool with_asserts)
{
    constexpr uint64_t LIFE = 150;
    const uint64_t seed = property::Seed(name);
    const uint64_t steps = property::Operations(2100);
    for (uint64_t begun = 0; begun < steps; begun += LIFE) {
        Router router(seed + begun, with_asserts);

        for (uint64_t step = 0; step < LIFE; ++step) {
            router.step();
            router.check();
            if (testing::Test::HasFailure()) {
                FAIL() << "step " << begun + step;
            }
        }
    }
}

} // namespace

TEST(PimTreeRandom, OutputsAndWishesAreWhatTheSetsSay)
{
    run("tree", false);
}

TEST(PimTreeRandom, OutputsAreWhatTheSetsSayWithAsserts)
{
    run("tree with asserts", true);
}
