#include "tests/simulation/network/agent.h"

#include <algorithm>
#include <array>

namespace sim
{
namespace
{

constexpr Ns LOOKS_EVERY = SECOND;
constexpr unsigned OPENED_AT_ONCE = 80; // more than a gmpd takes
constexpr std::array<int, 2> FAMILIES = {AF_INET, AF_INET6};

uint16_t port_of(int family)
{
    return family == AF_INET ? 2195 : 2192;
}

bool is_sent(const Bytes &packet, LocalEnd &end)
{
    return end.send(packet.data(), packet.size()) > 0;
}

} // namespace

void Agent::allow(const Host &host, std::set<Permission> permissions)
{
    users_[host.number()] = {&host, {true, std::move(permissions), kernel_.clock.now()}};
    for (const int family : FAMILIES) {
        Connection &connection = connections_[family];
        const User &user = users_[host.number()].second;
        if (connection.end != nullptr && !tell(family, connection, host, user)) {
            connection.end = nullptr;
        }
    }
    if (!ticking_) {
        ticking_ = true;
        tick();
    }
}

void Agent::forbid(const Host &host)
{
    users_[host.number()] = {&host, {false, {}, kernel_.clock.now()}};
    for (const int family : FAMILIES) {
        Connection &connection = connections_[family];
        connection.told.erase(&host);
        if (connection.end != nullptr &&
            !is_sent(withdraw_message(static_cast<uint32_t>(host.number())), *connection.end)) {
            connection.end = nullptr;
        }
    }
}

bool Agent::permits(const Host &host, const Address &source, const Address &group) const
{
    const auto found = users_.find(host.number());
    if (found == users_.end() || !found->second.second.is_user) {
        return false;
    }
    const std::set<Permission> &permissions = found->second.second.permissions;
    const auto wish = host.wants().find(group);
    const bool names_sources = wish != host.wants().end() && !wish->second.exclude;
    return permissions.contains({{}, group}) || (names_sources && permissions.contains({source, group}));
}

Ns Agent::changed(const Host &host) const
{
    const auto found = users_.find(host.number());
    return found == users_.end() ? 0 : found->second.second.changed;
}

bool Agent::tell(int family, Connection &connection, const Host &host, const User &user)
{
    const auto id = static_cast<uint32_t>(host.number());
    const uint32_t if_index = host.link().if_index_of(machine_);
    std::set<Permission> of_family;
    for (const Permission &permission : user.permissions) {
        if (permission.second.family == family) {
            of_family.insert(permission);
        }
    }
    connection.told[&host] = if_index;
    return is_sent(announce_message({id, if_index, host.address(family)}), *connection.end) &&
           is_sent(groups_message(id, of_family), *connection.end);
}

// Who is not named between begin and end is forgotten over there.
void Agent::tell_all(int family, Connection &connection)
{
    connection.told.clear();
    bool good = is_sent(refresh_message(true), *connection.end);
    for (const auto &[number, user] : users_) {
        if (good && user.second.is_user) {
            good = tell(family, connection, *user.first, user.second);
        }
    }
    if (!good || !is_sent(refresh_message(false), *connection.end)) {
        connection.end = nullptr;
    }
}

// Whether the users are told with the interfaces that their links have now.
bool Agent::is_told(const Connection &connection) const
{
    return std::all_of(connection.told.begin(), connection.told.end(), [this](const auto &each) {
        return each.first->link().if_index_of(machine_) == each.second;
    });
}

void Agent::tick()
{
    for (const int family : FAMILIES) {
        Connection &connection = connections_[family];
        const bool is_up = connection.end != nullptr && (connection.end->ready() & EPOLLHUP) == 0;
        if (is_up && is_told(connection)) {
            continue;
        }
        if (!is_up) {
            int error = 0;
            connection.end = connect_local(machine_, port_of(family), &error);
        }
        if (connection.end != nullptr) {
            tell_all(family, connection);
        }
    }
    std::erase_if(silent_, [](const auto &end) { return (end->ready() & EPOLLHUP) != 0; });
    kernel_.clock.after(LOOKS_EVERY, [this] { tick(); });
}

void Agent::stop_sending()
{
    for (const int family : FAMILIES) {
        if (std::shared_ptr<LocalEnd> &end = connections_[family].end; end != nullptr) {
            end->stop_sending();
            silent_.push_back(std::move(end));
            end = nullptr;
        }
    }
}

void Agent::send_nonsense()
{
    for (const int family : FAMILIES) {
        int error = 0;
        const auto end = connect_local(machine_, port_of(family), &error);
        if (end == nullptr) {
            continue;
        }
        is_sent({0, 3, 0xff, 0xff, 1, 2, 3}, *end);
        is_sent({0, 99, 0, 4, 1, 2, 3, 4}, *end);
        is_sent(groups_message(UINT32_MAX - 1, {}), *end);
        kernel_.clock.after(LOOKS_EVERY, [end] {});
    }
}

void Agent::open_and_leave()
{
    for (const int family : FAMILIES) {
        for (unsigned i = 0; i < OPENED_AT_ONCE; ++i) {
            int error = 0;
            if (auto end = connect_local(machine_, port_of(family), &error)) {
                kernel_.clock.after(LOOKS_EVERY, [end = std::move(end)] {});
            }
        }
    }
}

} // namespace sim
