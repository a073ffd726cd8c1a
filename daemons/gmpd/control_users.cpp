/*
 * The users at the control endpoint. The library walks its store in the order of the users' interfaces and
 * its message details in the order of nodes and IDs, which are the keys of the tables here.
 */
#include "daemons/common/user_messages.h"
#include "daemons/gmpd/control.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/user_service.h"
#include "mcast/usrauth_wire.h"

namespace gmpd
{
namespace
{

using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::ControlRows;

// What the walks' callbacks need.
struct Listing {
    const UserService &service;
    uint16_t family;
    ControlRows &rows;
};

uint32_t taken(bool more)
{
    return more ? MCAST_OK : MCAST_ERR_STOPPED;
}

// The interface of the position, from which a walk over users starts.
uint32_t first_interface(const ControlRows &rows)
{
    return rows.key().empty() ? 0 : rows.key()[0].as_interface();
}

uint32_t joined_groups(const User *user)
{
    return user != nullptr && user->memberships != nullptr ? MRT_CountTable(user->memberships->groups) : 0;
}

uint32_t list_user(MCAST_USRAUTH_USER_S *record, MCAST_USRAUTH_ENTRY_S *, MTABLE_GROUP_S *, void *argument)
{
    const Listing &listing = *static_cast<Listing *>(argument);
    const User *user = listing.service.table().find(record);
    const bool named = record->name != nullptr && record->name[0] != '\0';
    return taken(listing.rows.add({
        ControlField::interface(record->if_index),
        ControlField::family(listing.family),
        ControlField::number(record->user_id),
        ControlField::number(MCAST_USRAUTH_GetNode(record)),
        ControlField::number(record->kind),
        ControlField::interface(record->access_if_index),
        user != nullptr ? ControlField::address(user->info.address) : ControlField(),
        named ? ControlField::text(std::string(record->name).substr(0, ControlField::TEXT_MAX))
              : ControlField(),
        ControlField::number(record->groups.source_count),
        ControlField::number(joined_groups(user)),
    }));
}

// Whether the user has joined what the entry permits, or for one that permits all sources any part of it.
bool has_joined(const User *user, const Address &group, const Address &source)
{
    const GroupState *state =
        user != nullptr && user->memberships != nullptr ? find_group(*user->memberships, group) : nullptr;

    if (state == nullptr || is_unspecified(source)) {
        return state != nullptr;
    }
    const SourceState *found = find_source(*state, source);

    return found != nullptr ? found->timer.running() : state->exclude;
}

uint32_t list_right(MCAST_USRAUTH_USER_S *record, MCAST_USRAUTH_ENTRY_S *entry, MTABLE_GROUP_S *group,
                    void *argument)
{
    const Listing &listing = *static_cast<Listing *>(argument);
    const ControlFields key = {ControlField::interface(record->if_index),
                               ControlField::address(group->address),
                               ControlField::address(entry->head.address)};

    if (!listing.rows.wants(key)) {
        return taken(!listing.rows.full());
    }
    const User *user = listing.service.table().find(record);

    return taken(
        listing.rows.add({key[0], key[1], key[2],
                          ControlField::truth(has_joined(user, group->address, entry->head.address))}));
}

void list_users(Listing listing)
{
    const MCAST_USRAUTH_USER_FILTER_S filter = {MCAST_USRAUTH_WALK_FROM, first_interface(listing.rows), 0,
                                                nullptr, nullptr};
    MCAST_USRAUTH_WalkAllUserByIfIndex(&filter, list_user, nullptr, &listing);
}

void list_rights(Listing listing)
{
    const MCAST_USRAUTH_USER_FILTER_S filter = {MCAST_USRAUTH_WALK_FROM_ENTRIES,
                                                first_interface(listing.rows), 0, nullptr, nullptr};
    MCAST_USRAUTH_WalkAllUserByIfIndex(&filter, nullptr, list_right, &listing);
}

uint32_t list_detail(MCAST_USRAUTH_MSG_DETAIL_S *record, void *argument)
{
    const Listing &listing = *static_cast<Listing *>(argument);
    ControlFields row = {ControlField::family(listing.family), ControlField::number(record->node),
                         ControlField::number(record->user_id)};
    for (const uint32_t count : record->counts) {
        row.push_back(ControlField::counter(count));
    }
    return taken(listing.rows.add(row));
}

void list_details(Listing listing)
{
    const ControlFields &key = listing.rows.key();
    MCAST_USRAUTH_DETAIL_FILTER_S filter{};
    if (!listing.rows.wants({ControlField::family(listing.family)})) {
        return;
    }
    filter.mode = MCAST_USRAUTH_DETAIL_FROM;
    filter.node = key.size() > 1 ? static_cast<uint16_t>(key[1].as_number()) : 0;
    filter.user_id = key.size() > 2 ? static_cast<uint32_t>(key[2].as_number()) : 0;
    MCAST_USRAUTH_WalkAllUserMsgDetail(&filter, list_detail, &listing);
}

void list_statistics(Listing listing)
{
    MCAST_USRAUTH_STATISTICS_S statistics{};

    MCAST_USRAUTH_GetStatistics(&statistics);
    for (uint32_t kind = 0; kind < std::size(statistics.messages); ++kind) {
        for (uint32_t type = 0; type < USRAUTH_MSG_TYPES; ++type) {
            const uint32_t count = statistics.messages[kind][type];

            if (count != 0) {
                listing.rows.add({ControlField::family(listing.family), ControlField::number(kind),
                                  ControlField::number(type),
                                  ControlField::text(mcastd::USER_MESSAGE_NAMES[type]),
                                  ControlField::counter(count)});
            }
        }
    }
}

mcastd::ControlOutcome without_users()
{
    return {mcastd::ControlStatus::Failed, mcastd::CONTROL_NO_INDEX, "it was started without --user-auth"};
}

mcastd::ControlOutcome clear_counters(const UserService *service)
{
    if (service == nullptr) {
        return without_users();
    }
    MCAST_USRAUTH_ClearRecord();
    MCAST_USRAUTH_ClearStatistics();
    return {};
}

mcastd::ControlOutcome clear_users(UserService *service, const ControlFields &arguments)
{
    if (service == nullptr) {
        return without_users();
    }
    if (arguments.size() > 1 || (!arguments.empty() && (!arguments[0].is(mcastd::FieldType::Number) ||
                                                        arguments[0].as_number() > UINT16_MAX))) {
        return {mcastd::ControlStatus::BadValue, 0, "a node is a number from 0 to 65535"};
    }
    if (arguments.empty()) {
        service->clear();
        return {};
    }
    service->remove_node(static_cast<uint16_t>(arguments[0].as_number()));
    return {};
}

} // namespace

void offer_user_control(mcastd::ControlServer &server, const Process &process, UserService *service)
{
    mcastd::ControlRegistry &registry = server.registry();
    const auto offer = [&](const mcastd::ControlSchema &schema, void (*list)(Listing)) {
        registry.add_table(schema, [&process, service, list](ControlRows &rows) {
            if (service != nullptr) {
                list(Listing{*service, process.config.family, rows});
            }
        });
    };
    offer(mcastd::USER_TABLE, list_users);
    offer(mcastd::USER_RIGHT_TABLE, list_rights);
    offer(mcastd::USER_MESSAGE_TABLE, list_details);
    offer(mcastd::USER_STATISTICS_TABLE, list_statistics);
    registry.add_command(mcastd::COMMAND_CLEAR_USER_COUNTERS,
                         [service](const ControlFields &) { return clear_counters(service); });
    registry.add_command(mcastd::COMMAND_CLEAR_USERS, [service](const ControlFields &arguments) {
        return clear_users(service, arguments);
    });
}

} // namespace gmpd
