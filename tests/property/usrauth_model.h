/*
 * What the user authentication ought to do, in maps: one after the other, with no thought of speed. It takes
 * messages as what they say, not as bytes, and notes the callbacks that are due as the fixture notes them.
 */
#ifndef TESTS_PROPERTY_USRAUTH_MODEL_H
#define TESTS_PROPERTY_USRAUTH_MODEL_H

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/usrauth_messages.h"

namespace usrauth_test
{

struct ModelUser {
    UserSpec spec; /* as last applied */
    uint32_t if_index = 0;
    uint32_t flags = 0;
    std::string name;
    size_t name_room = 0;
    bool in_tree = false;
    std::map<std::pair<uint8_t, uint8_t>, bool> entries; /* (group, source) -> seen */
};

class UsrAuthModel
{
public:
    using Key = std::pair<uint16_t, uint32_t>; /* node, user ID */
    using NodeKind = std::pair<uint16_t, uint32_t>;

    std::map<Key, ModelUser> users;
    std::map<NodeKind, std::vector<uint32_t>> kinds; /* user IDs in the order of their coming */
    std::map<uint32_t, Key> interfaces;
    std::set<NodeKind> refreshes;
    std::vector<NodeKind> timers; /* oldest first */
    std::map<Key, std::array<uint32_t, 5>> details;
    uint32_t detail_limit = 512;
    std::array<uint32_t, 50> statistics = {};
    std::vector<std::string> told;
    std::function<uint32_t(const Key &)> interface_of;
    bool filter_drops = false;

    void Read()
    {
        ++statistics[0];
    }

    void Announce(const UserSpec &spec)
    {
        if (filter_drops) {
            return;
        }
        Count(spec.kind, 0, {spec.node, spec.user_id});
        if (spec.kind < 1 || spec.kind > 4) {
            return;
        }
        const Key key = {spec.node, spec.user_id};

        if (users.count(key) != 0) {
            Update(key, spec, true);
            return;
        }
        const bool is_first = kinds[{spec.node, spec.kind}].empty();
        ModelUser &user = users[key];

        user.spec = spec;
        user.name_room = spec.name.empty() ? 1 : spec.name.size() + 1;
        user.flags = kNew | (refreshes.count({spec.node, spec.kind}) != 0 ? kRefreshed : 0);
        kinds[{spec.node, spec.kind}].push_back(spec.user_id);
        Apply(&user, spec);
        if (is_first) {
            TellKind(spec.node, spec.kind, true);
        }
    }

    void Withdraw(const UserSpec &spec)
    {
        const Key key = {spec.node, spec.user_id};
        Count(spec.kind, 1, key);
        if (users.count(key) == 0) {
            return;
        }
        Remove(key);
        if (spec.kind < 7 && kinds[{spec.node, spec.kind}].empty()) {
            TellKind(spec.node, spec.kind, false);
        }
    }

    void UpdateMessage(const UserSpec &spec)
    {
        const Key key = {spec.node, spec.user_id};
        if (filter_drops) {
            return;
        }
        Count(spec.kind, 2, key);
        if (spec.kind >= 1 && spec.kind <= 4 && users.count(key) != 0) {
            Update(key, spec, false);
        }
    }

    void List(const UserSpec &who, const std::vector<Pair> &pairs)
    {
        if (filter_drops) {
            return;
        }
        Count(who.kind, 3, {who.node, who.user_id});
        auto user = users.find({who.node, who.user_id});

        if (user != users.end()) {
            Add(&user->second, pairs);
        }
    }

    void ListEnd(const UserSpec &who)
    {
        const Key key = {who.node, who.user_id};

        Count(who.kind, 4, key);
        if (users.count(key) == 0) {
            return;
        }
        ModelUser &user = users[key];
        const bool is_new = (user.flags & kNew) != 0;
        uint32_t if_index = 0;

        if (std::erase_if(user.entries, [](const auto &entry) { return !entry.second; }) > 0 && !is_new) {
            user.flags |= 1u << 24;
        }
        for (auto &[pair, seen] : user.entries) {
            seen = false;
        }
        if (is_new) {
            told.push_back("online " + Name(key));
            if_index = interface_of(key);
        }
        const uint32_t mask =
            (user.flags >> 31 & 1) | (user.flags >> 24 & 1) << 1 | (user.flags >> 25 & 1) << 2;

        if (mask != 0) {
            told.push_back("changed " + Name(key) + " " + std::to_string(mask));
        }
        if (is_new) {
            if (user.spec.kind != 2) {
                user.if_index = if_index;
            }
            user.in_tree = user.if_index != 0 && interfaces.emplace(user.if_index, key).second;
        }
        user.flags &= 0x00ffffff;
    }

    void RefreshBegin(uint16_t node, uint32_t kind)
    {
        CountKind(kind, 5);
        if (kind >= 1 && kind <= 4) {
            refreshes.insert({node, kind});
        }
    }

    void RefreshEnd(uint16_t node, uint32_t kind)
    {
        CountKind(kind, 6);
        if (kind < 1 || kind > 4) {
            return;
        }
        Sweep(node, kind, true);
        refreshes.erase({node, kind});
        told.push_back("refreshed " + std::to_string(node) + " " + std::to_string(kind));
    }

    void RemoveNode(uint16_t node)
    {
        for (uint32_t kind : {3u, 4u, 2u}) {
            Sweep(node, kind, false);
        }
    }

    /* The oldest timer fires. */
    void FireTimer()
    {
        const NodeKind fired = timers.front();
        std::vector<uint32_t> marked;
        timers.erase(timers.begin());
        for (uint32_t id : kinds[fired]) {
            if ((users[{fired.first, id}].flags & kMarked) != 0 && marked.size() < 8) {
                marked.push_back(id);
            }
        }
        for (uint32_t id : marked) {
            Remove({fired.first, id});
            if (kinds[fired].empty()) {
                TellKind(fired.first, fired.second, false);
            }
        }
        if (marked.size() == 8 && HasUsers(fired.first)) {
            timers.push_back(fired);
        }
    }

    void Degrade()
    {
        users.clear();
        kinds.clear();
        interfaces.clear();
        refreshes.clear();
        timers.clear();
        details.clear();
        detail_limit = 512;
        statistics = {};
    }

    /* Nodes go in the order of their hash, which here is that of their numbers. */
    void ClearAllUsers()
    {
        for (const auto &[node_kind, ids] : kinds) {
            for (uint32_t id : ids) {
                TellOffline({node_kind.first, id});
            }
        }
        users.clear();
        kinds.clear();
        interfaces.clear();
        timers.clear();
    }

private:
    static constexpr uint32_t kRefreshed = 1, kMarked = 2, kNew = 1u << 28, kRecreate = 1u << 29;

    static std::string Name(const Key &key)
    {
        return std::to_string(key.first) + "/" + std::to_string(key.second);
    }

    void TellKind(uint16_t node, uint32_t kind, bool up)
    {
        told.push_back("kind " + std::to_string(node) + " " + std::to_string(kind) + (up ? " up" : " down"));
    }

    void TellOffline(const Key &key)
    {
        if (users[key].if_index != 0) {
            told.push_back("offline " + Name(key));
        }
    }

    void CountKind(uint32_t kind, uint32_t type)
    {
        if (kind < 7) {
            ++statistics[1 + 7 * kind + type];
        }
    }

    void Count(uint32_t kind, uint32_t type, const Key &key)
    {
        CountKind(kind, type);
        if (details.count(key) != 0 || details.size() < detail_limit) {
            ++details[key][type];
        }
    }

    bool HasUsers(uint16_t node) const
    {
        auto first = users.lower_bound({node, 0});
        return first != users.end() && first->first.first == node;
    }

    void Remove(const Key &key)
    {
        ModelUser &user = users[key];
        TellOffline(key);
        if (user.in_tree) {
            interfaces.erase(user.if_index);
        }
        std::erase(kinds[{key.first, user.spec.kind}], key.second);
        users.erase(key);
        if (!HasUsers(key.first)) {
            std::erase_if(timers, [&](const NodeKind &timer) { return timer.first == key.first; });
        }
    }

    static void Add(ModelUser *user, const std::vector<Pair> &pairs)
    {
        for (const Pair &pair : pairs) {
            user->entries[{pair.group, pair.source}] = true;
        }
    }

    void Apply(ModelUser *user, const UserSpec &spec)
    {
        if (user->spec.kind != spec.kind) {
            std::erase(kinds[{spec.node, user->spec.kind}], spec.user_id);
            kinds[{spec.node, spec.kind}].push_back(spec.user_id);
        }
        user->spec = spec;
        if (spec.kind == 2) {
            user->if_index = spec.access_if_index;
        }
        if (!spec.name.empty()) {
            user->name = spec.name.substr(0, user->name_room - 1);
        }
        Add(user, spec.pairs);
    }

    static uint32_t Differences(const ModelUser &user, const UserSpec &now)
    {
        const UserSpec &was = user.spec;
        uint32_t flags = 0;
        if (user.if_index == 0) {
            return 0;
        }
        if (was.access_if_index != now.access_if_index || was.attribute_32 != now.attribute_32 ||
            was.attribute_34 != now.attribute_34 || was.attribute_80 != now.attribute_80 ||
            was.attribute_84 != now.attribute_84) {
            flags |= 1u << 30 | kRecreate;
        }
        if (was.vrf_index != now.vrf_index || was.kind != now.kind) {
            flags |= kRecreate;
        }
        if (was.attribute_40 != now.attribute_40) {
            flags |= 1u << 31;
        }
        if (was.attribute_24 != now.attribute_24) {
            flags |= 1u << 25;
        }
        return flags;
    }

    void Update(const Key &key, const UserSpec &spec, bool announced)
    {
        ModelUser &user = users[key];
        if (announced && refreshes.count({spec.node, spec.kind}) != 0) {
            user.flags |= kRefreshed;
        }
        user.flags |= Differences(user, spec);
        if ((user.flags & kRecreate) != 0 || (announced && (user.flags & kMarked) != 0)) {
            TellOffline(key);
            user.flags &= ~kMarked;
            user.flags = (user.flags & 0x1cffffff) | kNew;
            if (user.in_tree) {
                interfaces.erase(user.if_index);
                user.in_tree = false;
            }
            if (user.spec.kind != 2) {
                user.if_index = 0;
            }
        }
        Apply(&user, spec);
    }

    void Sweep(uint16_t node, uint32_t kind, bool spares)
    {
        bool any = false;

        for (uint32_t id : kinds[{node, kind}]) {
            ModelUser &user = users[{node, id}];

            if (spares && (user.flags & kRefreshed) != 0) {
                user.flags &= ~kRefreshed;
            } else {
                user.flags |= kMarked;
                any = true;
            }
        }
        if (any && std::find(timers.begin(), timers.end(), NodeKind{node, kind}) == timers.end()) {
            timers.push_back({node, kind});
        }
    }
};

} // namespace usrauth_test

#endif
