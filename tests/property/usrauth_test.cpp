/*
 * The user authentication beside its model: the same random messages and calls to both, with callbacks,
 * users, entries, interfaces, details, statistics and timers compared after each.
 */
#include <cstring>

#include "property/usrauth_model.h"
#include "support/property.h"
#include "unit/usrauth/usrauth_fixture.h"
#include "usrauth/node.h"
#include "usrauth/user.h"

namespace usrauth_test
{
namespace
{

constexpr uint16_t kNodes = 2;
constexpr uint32_t kUsers = 24; /* on each, most of one kind: more than a batch deletes */

class UsrAuthProperty : public UsrAuthTest
{
protected:
    void Run(uint16_t family, uint64_t seed)
    {
        random_ = property::Random(seed);
        family_ = family;
        model_.interface_of = [](const UsrAuthModel::Key &key) { return Interface(key); };
        interface_of = [](MCAST_USRAUTH_USER_S *user) {
            return Interface({MCAST_USRAUTH_GetNode(user), user->user_id});
        };
        Start(family);
        for (uint64_t left = property::Operations(10000); left > 0; --left) {
            ASSERT_NO_FATAL_FAILURE(Step());
            ASSERT_NO_FATAL_FAILURE(Compare()) << left << " operations before the end";
        }
    }

    /* Interfaces that some users share and others lack. */
    static uint32_t Interface(const UsrAuthModel::Key &key)
    {
        return key.second % 5 == 0 ? 0 : 100 + (key.second + key.first) % 9;
    }

    void Step()
    {
        filter_result = random_.OneIn(10) ? MCAST_USRAUTH_FILTER_DROP : 0;
        model_.filter_drops = filter_result != 0;
        switch (random_.Below(40)) {
        case 0:
            MCAST_USRAUTH_RefreshAllUserByNodeRemove(Node());
            model_.RemoveNode(last_node_);
            break;
        case 1:
            if (random_.OneIn(20)) {
                MCAST_USRAUTH_Degrade();
                model_.Degrade();
            }
            break;
        case 2:
            if (random_.OneIn(20)) {
                expect_lock_free = false;
                MCAST_USRAUTH_ClearAllUsers();
                expect_lock_free = true;
                model_.ClearAllUsers();
            }
            break;
        case 3:
            model_.detail_limit = random_.Below(50);
            MCAST_USRAUTH_SetMsgDetailLimit(model_.detail_limit);
            break;
        case 4:
        case 5:
        case 6:
            FireOldest();
            break;
        default:
            Read();
        }
    }

    uint16_t Node()
    {
        return last_node_ = static_cast<uint16_t>(1 + random_.Below(kNodes));
    }

    /* One to four messages in one read. */
    void Read()
    {
        Bytes data;
        for (uint32_t left = 1 + random_.Below(4); left > 0; --left) {
            AddMessage(&data);
        }
        if (!data.empty()) {
            model_.Read();
            Receive(data);
        }
    }

    void AddMessage(Bytes *data)
    {
        const UserSpec spec = Spec();
        const std::vector<Pair> pairs = Pairs();
        switch (random_.Below(12)) {
        case 0:
        case 1:
        case 2:
            *data = *data + spec.Announce();
            return model_.Announce(spec);
        case 3:
            *data = *data + spec.Withdraw();
            return model_.Withdraw(spec);
        case 4:
        case 5:
            *data = *data + spec.Update();
            return model_.UpdateMessage(spec);
        case 6:
            *data = *data + spec.List(pairs);
            return model_.List(spec, pairs);
        case 7:
        case 8:
        case 9:
            *data = *data + spec.ListEnd();
            return model_.ListEnd(spec);
        case 10:
            *data = *data + RefreshBegin(spec.node, spec.kind);
            return model_.RefreshBegin(spec.node, spec.kind);
        default:
            if (random_.OneIn(2)) {
                *data = *data + RefreshEnd(spec.node, spec.kind);
                model_.RefreshEnd(spec.node, spec.kind);
            }
        }
    }

    /* Mostly what was said before of the user, so that most comparisons find nothing. */
    UserSpec Spec()
    {
        const uint32_t kinds[] = {0, 2, 2, 3, 3, 3, 3, 4, 9};
        UserSpec spec;
        spec.family = family_;
        spec.node = Node();
        spec.user_id = 1 + random_.Below(kUsers);
        spec.kind = random_.OneIn(10)       ? kinds[random_.Below(9)]
                    : spec.user_id % 3 == 0 ? 1 + spec.user_id % 4
                                            : 3;
        spec.access_if_index = 200 + spec.user_id % 7 + (random_.OneIn(20) ? 1 : 0);
        spec.address = static_cast<uint8_t>(random_.Below(3));
        spec.attribute_24 = random_.OneIn(10) ? 1 : 24;
        spec.attribute_32 = random_.OneIn(20) ? 1 : 32;
        spec.attribute_34 = random_.OneIn(30) ? 1 : 34;
        spec.attribute_36 = random_.Below(100);
        spec.attribute_40 = random_.OneIn(10) ? 1 : 40;
        spec.attribute_80 = random_.OneIn(30) ? 1 : 80;
        spec.attribute_84 = random_.OneIn(30) ? 1 : 84;
        spec.vrf_index = random_.OneIn(20) ? 1 : 5;
        spec.name = std::string(random_.Below(6), 'n');
        spec.pairs = Pairs();
        return spec;
    }

    std::vector<Pair> Pairs()
    {
        std::vector<Pair> pairs(random_.Below(5));
        for (Pair &pair : pairs) {
            pair = {static_cast<uint8_t>(random_.Below(3)), static_cast<uint8_t>(random_.Below(4))};
        }
        return pairs;
    }

    void FireOldest()
    {
        auto &timers = scripted_timer::platform.timers;

        if (!timers.empty()) {
            const TIMER_ID id = timers.begin()->first;
            scripted_timer::Timer fired = timers.begin()->second;

            fired.handler(fired.parameters);
            timers.erase(id);
            model_.FireTimer();
        }
    }

    void Compare()
    {
        ASSERT_STREQ(StoreFault(), nullptr);
        ASSERT_EQ(Told(), std::exchange(model_.told, {}));
        ASSERT_EQ(scripted_timer::platform.timers.size(), model_.timers.size());
        for (uint16_t node = 1; node <= kNodes; ++node) {
            for (uint32_t id = 1; id <= kUsers; ++id) {
                ASSERT_NO_FATAL_FAILURE(CompareUser({node, id})) << node << "/" << id;
            }
        }
        CompareOnline();
        CompareCounters();
    }

    void CompareUser(const UsrAuthModel::Key &key)
    {
        const MCAST_USRAUTH_USER_S *user = mcast::usrauth::FindUser(key.first, key.second);
        auto found = model_.users.find(key);

        ASSERT_EQ(user != nullptr, found != model_.users.end());
        if (user == nullptr) {
            return;
        }
        const ModelUser &expected = found->second;

        ASSERT_EQ(user->kind, expected.spec.kind);
        ASSERT_EQ(user->flags, expected.flags);
        ASSERT_EQ(user->if_index, expected.if_index);
        ASSERT_EQ(user->in_interface_tree != 0, expected.in_tree);
        ASSERT_EQ(user->access_if_index, expected.spec.access_if_index);
        ASSERT_EQ(user->address.address[family_ == MCAST_FAMILY_IPV4 ? 3 : 15], expected.spec.address);
        ASSERT_EQ(user->attribute_24, expected.spec.attribute_24);
        ASSERT_EQ(user->attribute_36, expected.spec.attribute_36);
        ASSERT_EQ(user->attribute_40, expected.spec.attribute_40);
        ASSERT_EQ(user->vrf_index, expected.spec.vrf_index);
        ASSERT_EQ(user->name, expected.name);
        ASSERT_EQ(Entries(key.first, key.second), EntriesOf(expected));
    }

    std::string EntriesOf(const ModelUser &user) const
    {
        const bool is_ipv4 = family_ == MCAST_FAMILY_IPV4;
        std::string text;
        const auto tail = [](uint8_t last) {
            return last == 0 ? std::string("") : std::string(1, static_cast<char>('0' + last));
        };
        for (const auto &[pair, seen] : user.entries) {
            text += text.empty() ? "" : " ";
            text += is_ipv4
                        ? "239.0.0." + std::to_string(pair.first) + "/10.0.0." + std::to_string(pair.second)
                        : "ff0e::" + tail(pair.first) + "/2001::" + tail(pair.second);
            text += seen ? "!" : "";
        }
        return text;
    }

    void CompareOnline()
    {
        std::string expected;
        for (const auto &[if_index, key] : model_.interfaces) {
            expected += (expected.empty() ? "" : " ") + std::to_string(if_index) + ":" +
                        std::to_string(key.first) + "/" + std::to_string(key.second);
            ASSERT_EQ(MCAST_USRAUTH_GetVrfIndexAndUserIDByIfIndex(if_index, nullptr, nullptr), key.second);
        }
        ASSERT_EQ(Online(), expected);
    }

    void CompareCounters()
    {
        MCAST_USRAUTH_STATISTICS_S statistics;
        std::map<UsrAuthModel::Key, std::array<uint32_t, 5>> details;
        const MCAST_USRAUTH_DETAIL_FILTER_S all = {MCAST_USRAUTH_DETAIL_FROM, 0, 0, 0};

        MCAST_USRAUTH_GetStatistics(&statistics);
        ASSERT_EQ(memcmp(&statistics, model_.statistics.data(), sizeof(statistics)), 0);
        MCAST_USRAUTH_WalkAllUserMsgDetail(
            &all,
            [](MCAST_USRAUTH_MSG_DETAIL_S *record, void *to) {
                auto &counts = (*static_cast<decltype(details) *>(to))[{record->node, record->user_id}];

                std::copy_n(record->counts, 5, counts.begin());
                return MCAST_OK;
            },
            &details);
        ASSERT_EQ(details, model_.details);
    }

    UsrAuthModel model_;
    property::Random random_{0};
    uint16_t family_ = 0;
    uint16_t last_node_ = 0;
};

TEST_F(UsrAuthProperty, AgreesWithTheModelForIpv4)
{
    Run(MCAST_FAMILY_IPV4, property::Seed("usrauth ipv4"));
}

TEST_F(UsrAuthProperty, AgreesWithTheModelForIpv6)
{
    Run(MCAST_FAMILY_IPV6, property::Seed("usrauth ipv6"));
}

} // namespace
} // namespace usrauth_test
