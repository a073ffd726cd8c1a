/*
 * The library's user authentication at work: agents connect to it, it calls back, and the table of users
 * follows.
 */
#ifndef DAEMONS_GMPD_USER_SERVICE_H
#define DAEMONS_GMPD_USER_SERVICE_H

#include <cstdint>
#include <vector>

#include "daemons/gmpd/user_indexes.h"
#include "daemons/gmpd/user_table.h"
#include "mcast/usrauth.h"

namespace gmpd
{

// What agents' messages led to.
struct UserCounters {
    uint64_t online = 0;
    uint64_t offline = 0;
    uint64_t changed = 0;
    uint64_t other_instance = 0; // users of an instance that is not served
    uint64_t over_limit = 0;     // users beyond Config::max_users
    uint64_t no_index = 0;       // users for which no index was left
    uint64_t refreshes = 0;      // that ended
};

// One object per process, like the service that it runs.
class UserService
{
public:
    // The indexes must be open and outlive the service.
    UserService(Process &process, UserIndexes &indexes, UserTable::Told told);
    ~UserService();
    UserService(const UserService &) = delete;
    UserService &operator=(const UserService &) = delete;

    // Sets the user authentication up, on the host loop. False on failure, which is logged.
    bool open(int32_t loop);

    // Becomes the active one: begins to listen for agents. False on failure, which is logged.
    bool upgrade();

    // Switch-over, to this daemon or away from it: every user is forgotten, the MRIB is not told, and
    // these indexes are kept for users to come.
    void switch_over(const UserIndexMap &kept);

    // Ends listening and the agents' connections; they are to connect to the active one.
    void stop_server();

    // Brings the table in line with the store; to be called once after everything that a wake-up brought.
    void settle();

    // Forgets every user at once, or lets those of a node that is gone be deleted, except kind 1. Agents
    // announce them again.
    void clear();
    void remove_node(uint16_t node);

    const UserTable &table() const
    {
        return table_;
    }
    const UserCounters &counters() const
    {
        return counters_;
    }

private:
    static void on_online(MCAST_USRAUTH_USER_S *record, uint32_t *if_index);
    static void on_offline(MCAST_USRAUTH_USER_S *record);
    static void on_changed(MCAST_USRAUTH_USER_S *record, uint32_t change_mask);
    static void on_refresh_ended(uint16_t node, uint32_t kind);
    static void on_node_kind(uint16_t node, uint32_t kind, uint32_t up);
    static uint32_t on_message(int32_t descriptor, const void *value, uint16_t length);

    void offline(const MCAST_USRAUTH_USER_S &record);
    uint32_t online(const MCAST_USRAUTH_USER_S &record);

    Process &process_;
    UserIndexes &indexes_;
    UserTable table_;
    UserCounters counters_;
    std::vector<uint32_t> touched_; // IDs of users that messages named since the last settle
    int32_t loop_ = -1;
    bool open_ = false;
};

} // namespace gmpd

#endif
