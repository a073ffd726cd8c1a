/*
 * Three facts about the store shape what follows:
 *
 *  - A user can be found by its interface only after user_online has returned. So the callback notes the user,
 *    and settle asks for its information.
 *  - No callback tells that an address changed. So the message filter notes the IDs of all users that messages
 *    name, and settle asks for their information again.
 *  - No callback tells that a group list grew either; the hosts of such a user whose joins were refused are
 *    asked again.
 *
 * A callback tells that a list lost entries, and what the user has no right to any more ends within it.
 */
#include "daemons/gmpd/user_service.h"

#include <arpa/inet.h>
#include <cstring>
#include <sys/resource.h>
#include <utility>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/common/services.h"
#include "daemons/gmpd/process.h"
#include "mcast/usrauth_wire.h"
#include "mcasthost/local_socket.h"
#include "mcasthost/loop.h"

namespace gmpd
{
namespace
{

using mcastd::PUBLIC_INSTANCE;
constexpr uint32_t FILTER_PASS = 0;

// What a user takes, roughly.
constexpr size_t USER_BYTES = 1024;

UserService *the_service;

// The pair that is looked for in a user's list.
struct Sought {
    const Address &group;
    const Address &source;
    bool found = false;
};

// Called for the user, and then for the first entry that is not before the pair.
uint32_t compare_entry(MCAST_USRAUTH_USER_S *, MCAST_USRAUTH_ENTRY_S *entry, MTABLE_GROUP_S *group,
                       void *argument)
{
    Sought &sought = *static_cast<Sought *>(argument);
    sought.found =
        same_address(group->address, sought.group) && same_address(entry->head.address, sought.source);
    return MCAST_ERR_STOPPED;
}

bool has_entry(uint32_t if_index, const Address &group, const Address &source)
{
    Address group_cursor = group;
    Address source_cursor = source;
    const MCAST_USRAUTH_USER_FILTER_S filter = {MCAST_USRAUTH_WALK_ONE_ENTRIES, if_index, 0, &group_cursor,
                                                &source_cursor};
    Sought sought{group, source};
    MCAST_USRAUTH_WalkAllUserByIfIndex(&filter, nullptr, compare_entry, &sought);
    return sought.found;
}

// An entry of the all-zero source permits all sources.
bool may_join(uint32_t if_index, const Address &group, const Address *source)
{
    if (MCAST_USRAUTH_CanPassGroupList(if_index, &group) != MCAST_TRUE) {
        return false;
    }
    return has_entry(if_index, group, any_address(group.family)) ||
           (source != nullptr && has_entry(if_index, group, *source));
}

// Each agent takes a descriptor; the soft limit is made for programs with a few.
void allow_many_descriptors()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace

UserService::UserService(Process &process, UserIndexes &indexes, UserTable::Told told)
    : process_(process), indexes_(indexes), table_(process, may_join, std::move(told))
{
    the_service = this;
}

UserService::~UserService()
{
    if (open_) {
        MCAST_USRAUTH_StopServer();
        MCAST_USRAUTH_Fini();
    }
    the_service = nullptr;
}

bool UserService::open(int32_t loop)
{
    const auto family = static_cast<uint8_t>(process_.config.family);
    const MCAST_USRAUTH_CALLBACKS_S callbacks = {on_online,        on_offline,   on_changed,
                                                 on_refresh_ended, on_node_kind, on_message};
    allow_many_descriptors();
    if (MCAST_USRAUTH_Init(family, loop, HOST_LoopTimerService(loop), &callbacks) != MCAST_OK) {
        mcastd::log_error("cannot set up the user authentication");
        return false;
    }
    loop_ = loop;
    open_ = true;
    return true;
}

bool UserService::upgrade()
{
    const uint16_t port = process_.config.family == MCAST_FAMILY_IPV4 ? USRAUTH_PORT_IPV4 : USRAUTH_PORT_IPV6;
    if (HOST_LocalSocketLimit(port, process_.config.max_agents) != 0) {
        mcastd::log_warning("there is no memory to keep --max-agents");
    }
    if (MCAST_USRAUTH_Upgrade(static_cast<uint8_t>(process_.config.family), loop_) != MCAST_OK) {
        mcastd::log_error(
            "cannot listen for authentication agents: does another gmpd of the family run here?");
        return false;
    }
    return true;
}

// The store forgets its users without calling back; so the table forgets them first.
void UserService::switch_over(const UserIndexMap &kept)
{
    table_.forget();
    touched_.clear();
    indexes_.keep(kept);
    MCAST_USRAUTH_Degrade();
}

void UserService::stop_server()
{
    MCAST_USRAUTH_StopServer();
}

// The index by which the user is found, or 0.
uint32_t UserService::online(const MCAST_USRAUTH_USER_S &record)
{
    if (record.vrf_index != PUBLIC_INSTANCE) {
        ++counters_.other_instance;
        return 0;
    }
    if (!mcastd::memory_permits(USER_BYTES)) {
        ++counters_.over_limit;
        return 0;
    }
    if (table_.count() >= process_.config.max_users && table_.find(&record) == nullptr) {
        ++counters_.over_limit;
        mcastd::log_warning("user %u of node %u is refused: %u users are the limit (--max-users)",
                            record.user_id, MCAST_USRAUTH_GetNode(&record), process_.config.max_users);
        return 0;
    }
    User user;

    user.node = MCAST_USRAUTH_GetNode(&record);
    user.owns_link = record.kind == USRAUTH_KIND_INTERFACE;
    user.if_index =
        user.owns_link ? record.access_if_index : indexes_.take(UserKey{user.node, record.user_id});
    if (user.if_index == 0) {
        ++counters_.no_index;
        return 0;
    }
    user.kind = record.kind;
    user.name = record.name != nullptr ? record.name : "";
    mcastd::log_debug("user %u of node %u is online", record.user_id, user.node);
    ++counters_.online;
    touched_.push_back(record.user_id);
    return table_.add(&record, record.user_id, std::move(user)).if_index;
}

void UserService::on_online(MCAST_USRAUTH_USER_S *record, uint32_t *if_index)
{
    *if_index = 0;
    mcastd::memory_unit("a user", [=] { *if_index = the_service->online(*record); });
}

void UserService::on_offline(MCAST_USRAUTH_USER_S *record)
{
    mcastd::memory_unit("the end of a user", [record] { the_service->offline(*record); });
}

void UserService::offline(const MCAST_USRAUTH_USER_S &record)
{
    const User *user = table_.find(&record);

    if (user == nullptr) {
        return;
    }
    const bool has_index = !user->owns_link;
    const UserKey key{user->node, record.user_id};

    table_.remove(&record);
    if (has_index) {
        indexes_.give_back(key);
    }
    ++counters_.offline;
    mcastd::log_debug("user %u is offline", record.user_id);
}

void UserService::on_changed(MCAST_USRAUTH_USER_S *record, uint32_t change_mask)
{
    User *user = the_service->table_.find(record);
    ++the_service->counters_.changed;
    if (user != nullptr && (change_mask & MCAST_USRAUTH_CHANGED_LIST) != 0) {
        mcastd::memory_unit("a user's rights", [user] { the_service->table_.apply_rights(*user); });
    }
}

void UserService::on_refresh_ended(uint16_t node, uint32_t kind)
{
    ++the_service->counters_.refreshes;
    mcastd::log_debug("the refresh of kind %u on node %u has ended", kind, node);
}

void UserService::on_node_kind(uint16_t node, uint32_t kind, uint32_t up)
{
    mcastd::log_info("node %u now has %s of kind %u", node, up == 1 ? "users" : "no users", kind);
}

uint32_t UserService::on_message(int32_t, const void *value, uint16_t length)
{
    uint32_t user_id_be;
    // Announcements, updates and group lists all begin with the user's ID.
    if (length >= sizeof(user_id_be)) {
        memcpy(&user_id_be, value, sizeof(user_id_be));
        mcastd::memory_unit("news of a user", [=] { the_service->touched_.push_back(ntohl(user_id_be)); });
    }
    return FILTER_PASS;
}

// The library holds its lock meanwhile: what is called back here must not ask it anything.
void UserService::clear()
{
    MCAST_USRAUTH_ClearAllUsers();
}

void UserService::remove_node(uint16_t node)
{
    MCAST_USRAUTH_RefreshAllUserByNodeRemove(node);
}

void UserService::settle()
{
    for (const uint32_t user_id : std::exchange(touched_, {})) {
        for (User *user : table_.find(user_id)) {
            MCAST_USRAUTH_INFO_S info;

            MCAST_USRAUTH_GetInfoByIfIndex(user->if_index, &info);
            // A user that the store could not enter, or another one that has the interface, is not this one.
            if (info.user_id == user_id) {
                table_.place(*user, info);
                table_.rights_may_have_grown(*user);
            }
        }
    }
}

} // namespace gmpd
