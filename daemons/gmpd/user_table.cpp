/*
 * A report names its sender by the source address alone, and addresses are unique on a link only. So a user is
 * found by access interface and address; the owner of a link, which may have many hosts behind it, by the
 * interface, when no other user of the link has the address.
 *
 * Two users may be announced at one place, by mistake or because a new one takes over before the old one is
 * withdrawn. The older one counts until it is gone.
 *
 * Hosts repeat what they want when they are asked. Without a query a user that was just announced, or that may
 * join more than before, would wait for the next general one. So hosts are asked soon, at most once a second
 * however many users were announced.
 */
#include "daemons/gmpd/user_table.h"

#include <algorithm>

#include "daemons/common/log.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/querier.h"

namespace gmpd
{
namespace
{

constexpr uint32_t ASK_AFTER_MS = 1000;

std::string bytes_of(const Address &address)
{
    return std::string(reinterpret_cast<const char *>(address.address), sizeof(address.address));
}

} // namespace

UserTable::UserTable(Process &process, Rights rights, Told told)
    : process_(process), rights_(std::move(rights)), told_(std::move(told))
{
    process_.users = this;
}

UserTable::~UserTable()
{
    forget();
    process_.users = nullptr;
}

void UserTable::forget()
{
    for (auto &[key, record] : users_) {
        end_memberships(record.user);
    }
    by_place_.clear();
    by_id_.clear();
    users_.clear();
    refused_.clear();
    to_ask_.clear();
    mcastd::timer_stop(process_.timers, ask_);
}

UserTable::Place UserTable::place_of(const User &user)
{
    return Place(user.info.access_if_index, user.owns_link ? std::string() : bytes_of(user.info.address));
}

User &UserTable::add(Key key, uint32_t user_id, User user)
{
    remove(key);
    User &added = users_.emplace(key, Record{user_id, std::move(user)}).first->second.user;

    by_id_.emplace(user_id, &added);
    return added;
}

void UserTable::place(User &user, const MCAST_USRAUTH_INFO_S &info)
{
    const Place before = place_of(user);
    const bool placed = user.placed;

    if (placed && memcmp(&user.info, &info, sizeof(info)) == 0) {
        return;
    }
    User moved;
    moved.owns_link = user.owns_link;
    moved.info = info;
    if (!placed || place_of(moved) != before) {
        leave_place(user);
        user.info = info;
        user.placed = true;
        const Place place = place_of(user);

        if (by_place_.count(place) != 0) {
            mcastd::log_warning("user %u of node %u is announced at the address of another user, which keeps "
                                "counting until it is withdrawn",
                                user.info.user_id, user.node);
        }
        by_place_.emplace(place, &user);
        ask_soon(info.access_if_index);
    }
    user.info = info;
    told_(user, true);
}

void UserTable::leave_place(User &user)
{
    if (!user.placed) {
        return;
    }
    end_memberships(user);
    const auto [first, last] = by_place_.equal_range(place_of(user));
    const auto found = std::find_if(first, last, [&](const auto &entry) { return entry.second == &user; });

    if (found != last) {
        by_place_.erase(found);
    }
    user.placed = false;
}

bool UserTable::remove(Key key)
{
    const auto found = users_.find(key);

    if (found == users_.end()) {
        return false;
    }
    User &user = found->second.user;

    if (user.placed) {
        leave_place(user);
        told_(user, false);
    }
    const auto [first, last] = by_id_.equal_range(found->second.user_id);

    by_id_.erase(std::find_if(first, last, [&](const auto &entry) { return entry.second == &user; }));
    users_.erase(found);
    return true;
}

void UserTable::end_memberships(User &user)
{
    if (user.memberships != nullptr) {
        for_each_group(*user.memberships, remove_group);
        user.memberships.reset();
    }
}

void UserTable::apply_rights(User &user)
{
    if (user.memberships == nullptr) {
        return;
    }
    for_each_group(*user.memberships, [&](GroupState &group) {
        const Address address = *group.entry->address;

        if (group.exclude && !rights_(user.if_index, address, nullptr)) {
            group_include(group);
        }
        if (!group.exclude) {
            for_each_source(group, [&](SourceState &source) {
                if (!rights_(user.if_index, address, source.entry->address)) {
                    source.doomed = true;
                    group.dirty = true;
                }
            });
        }
        settle_group(group);
    });
}

std::vector<User *> UserTable::find(uint32_t user_id) const
{
    const auto [first, last] = by_id_.equal_range(user_id);
    std::vector<User *> users;
    std::for_each(first, last, [&](const auto &entry) { users.push_back(entry.second); });
    return users;
}

const User *UserTable::find(Key key) const
{
    const auto found = users_.find(key);
    return found == users_.end() ? nullptr : &found->second.user;
}

void UserTable::visit_users(const std::function<void(const User &user)> &visitor) const
{
    for (const auto &[place, user] : by_place_) {
        visitor(*user);
    }
}

User *UserTable::find_reporter(uint32_t if_index, const Address &sender) const
{
    auto found = by_place_.find(Place(if_index, bytes_of(sender)));
    if (found == by_place_.end()) {
        found = by_place_.find(Place(if_index, std::string()));
    }
    return found == by_place_.end() ? nullptr : found->second;
}

Memberships *UserTable::member(Interface &link, const Address &sender)
{
    User *user = find_reporter(link.index, sender);
    if (user == nullptr) {
        return nullptr;
    }
    if (user->memberships == nullptr) {
        user->memberships = std::make_unique<Memberships>(link, user->if_index,
                                                          "user " + std::to_string(user->info.user_id) +
                                                              " of node " + std::to_string(user->node));
    }
    return user->memberships.get();
}

bool UserTable::permits(const Memberships &user, const Address &group, const Address *source) const
{
    return rights_(user.user_index, group, source);
}

void UserTable::join_refused(const Interface &link)
{
    refused_.insert(link.index);
}

void UserTable::rights_may_have_grown(const User &user)
{
    if (user.placed && refused_.count(user.info.access_if_index) != 0) {
        ask_soon(user.info.access_if_index);
    }
}

void UserTable::ask_soon(uint32_t if_index)
{
    to_ask_.insert(if_index);
    if (!ask_.running()) {
        mcastd::timer_start(process_.timers, ask_, ASK_AFTER_MS, on_ask, this);
    }
}

void UserTable::on_ask(void *owner)
{
    UserTable &table = *static_cast<UserTable *>(owner);

    for (const uint32_t if_index : std::exchange(table.to_ask_, {})) {
        const auto link = table.process_.interfaces.find(if_index);

        table.refused_.erase(if_index);
        if (link != table.process_.interfaces.end() && link->second->users_union != nullptr) {
            querier_ask_again(*link->second);
        }
    }
}

void UserTable::visit(const Interface &link, const std::function<void(Memberships &)> &visitor) const
{
    const auto last = by_place_.lower_bound(Place(link.index + 1, std::string()));

    for (auto entry = by_place_.lower_bound(Place(link.index, std::string())); entry != last; ++entry) {
        Memberships *memberships = entry->second->memberships.get();

        if (memberships != nullptr) {
            visitor(*memberships);
        }
    }
}

void UserTable::link_stopped(const Interface &link)
{
    const auto last = by_place_.lower_bound(Place(link.index + 1, std::string()));
    for (auto entry = by_place_.lower_bound(Place(link.index, std::string())); entry != last; ++entry) {
        entry->second->memberships.reset();
    }
    refused_.erase(link.index);
}

void UserTable::tell_everything() const
{
    for (const auto &[place, user] : by_place_) {
        told_(*user, true);
    }
}

} // namespace gmpd
