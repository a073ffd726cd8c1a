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

void write_user(Json &json, const User &user)
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
    if (user.memberships != nullptr) {
        write_groups(json, *user.memberships);
        write_counters(json, user.memberships->counters());
    }
    json.close('}');
}

} // namespace

void write_users(Json &json, const UserService &service)
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
    service.table().visit_users([&](const User &user) { write_user(json, user); });
    json.close(']');
    json.close('}');
}

} // namespace gmpd
