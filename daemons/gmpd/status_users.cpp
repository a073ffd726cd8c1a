#include <algorithm>
#include <string>

#include "daemons/common/user_messages.h"
#include "daemons/gmpd/status.h"
#include "daemons/gmpd/user_service.h"
#include "mcast/interface_name.h"
#include "mcast/usrauth_wire.h"
#include "mcasthost/local_socket.h"

namespace gmpd
{

using mcastd::Json;

namespace
{

// The name of a message as one word.
std::string message_name(uint32_t type)
{
    std::string name = mcastd::USER_MESSAGE_NAMES[type];
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

std::string name_of(uint32_t if_index)
{
    char name[MCAST_IF_NAME_SIZE] = "";
    MCAST_GetIfNameOrIndex(if_index, name);
    return name;
}

void write_statistics(Json &json)
{
    MCAST_USRAUTH_STATISTICS_S statistics{};
    MCAST_USRAUTH_GetStatistics(&statistics);
    json.number("reads", statistics.receive_count);
    json.open("messages", '[');
    for (uint32_t kind = 0; kind < std::size(statistics.messages); ++kind) {
        for (uint32_t type = 0; type < USRAUTH_MSG_TYPES; ++type) {
            if (statistics.messages[kind][type] != 0) {
                json.open(nullptr, '{', true);
                json.text("message", message_name(type));
                json.number("kind", kind);
                json.number("count", statistics.messages[kind][type]);
                json.close('}');
            }
        }
    }
    json.close(']');
}

void open_user(Json &json, const User &user)
{
    json.open(nullptr, '{');
    json.number("user", user.info.user_id);
    json.number("node", user.node);
    json.number("kind", user.kind);
    if (!user.name.empty()) {
        json.text("name", user.name);
    }
    json.text("interface", name_of(user.info.access_if_index));
    json.text("address", to_text(user.info.address));
    json.text("user_interface", name_of(user.if_index));
}

struct Search {
    const UserTable &table;
    const User *found;
};

uint32_t find_user(MCAST_USRAUTH_USER_S *record, MCAST_USRAUTH_ENTRY_S *, MTABLE_GROUP_S *, void *argument)
{
    Search &search = *static_cast<Search *>(argument);
    search.found = search.table.find(record);
    return search.found != nullptr ? MCAST_ERR_STOPPED : MCAST_OK;
}

// The user of the interface, or the first one after it; NULL when there is none.
const User *user_from(const UserService *service, uint32_t if_index)
{
    if (service == nullptr) {
        return nullptr;
    }
    Search search{service->table(), nullptr};
    const MCAST_USRAUTH_USER_FILTER_S filter = {MCAST_USRAUTH_WALK_FROM, if_index, 0, nullptr, nullptr};
    MCAST_USRAUTH_WalkAllUserByIfIndex(&filter, find_user, nullptr, &search);
    return search.found;
}

void open_users(Json &json, const UserService &service)
{
    const UserCounters &counters = service.counters();
    json.open("user_authentication", '{');
    write_statistics(json);
    json.number("users_named", MCAST_USRAUTH_UserMsgDetailCount());
    json.number("users_found", MCAST_USRAUTH_UserCount());
    json.number("users_online", counters.online);
    json.number("users_offline", counters.offline);
    json.number("users_changed", counters.changed);
    json.number("users_of_other_instance", counters.other_instance);
    json.number("users_without_index", counters.no_index);
    json.number("users_over_limit", counters.over_limit);
    json.number("agents_over_limit", HOST_LocalSocketOverLimit());
    json.number("refreshes", counters.refreshes);
    json.open("users", '[');
}

} // namespace

// The rest of the user at next_, or nothing more when that one is gone. Whether it is complete.
bool StatusUsers::write_user(Json &json, const UserService *service, size_t &budget)
{
    const User *user = user_from(service, next_);
    const bool there = user != nullptr && user->if_index == next_;
    const Memberships *memberships = there ? user->memberships.get() : nullptr;
    if (in_list_) {
        if (!groups_.write(json, memberships != nullptr ? memberships->groups : nullptr,
                           StatusGroups::Kind::OfHosts, budget)) {
            return false;
        }
        json.close(']');
        in_list_ = false;
        if (memberships != nullptr) {
            write_counters(json, user->memberships->counters());
        }
    }
    json.close('}');
    return true;
}

bool StatusUsers::write(Json &json, const UserService *service, size_t &budget)
{
    if (!begun_) {
        if (service == nullptr) {
            return true;
        }
        open_users(json, *service);
        begun_ = true;
    }
    for (;;) {
        if (!in_user_) {
            const User *user = user_from(service, next_);
            if (user == nullptr) {
                json.close(']');
                json.close('}');
                return true;
            }
            if (budget == 0) {
                return false;
            }
            --budget;
            next_ = user->if_index;
            in_user_ = true;
            open_user(json, *user);
            in_list_ = user->memberships != nullptr;
            if (in_list_) {
                json.open("groups", '[');
            }
        }
        if (!write_user(json, service, budget)) {
            return false;
        }
        in_user_ = false;
        ++next_;
    }
}

} // namespace gmpd
