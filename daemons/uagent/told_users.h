/*
 * What the agent has told: the users as a daemon that heard every command knows them, and the commands that
 * bring a daemon that knows nothing to the same.
 */
#ifndef DAEMONS_UAGENT_TOLD_USERS_H
#define DAEMONS_UAGENT_TOLD_USERS_H

#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "daemons/uagent/command.h"

namespace uagent
{

class ToldUsers
{
public:
    // The command is told.
    void note(const Command &command);

    // Everything again. Refreshes that have not ended are begun again, between the users that have not been
    // announced since and those that have.
    std::vector<Command> again() const;

    size_t count() const
    {
        return users_.size();
    }

private:
    using Node = uint16_t;

    struct User {
        Command command;                 // an announcement with the last whole list of groups
        std::vector<Permission> growing; // of the list that has not ended
        bool has_list = false;           // a list has ended
        bool refreshed = false;          // announced since the refresh began that has not ended
    };

    void note_groups(User &user, const Command &command);
    void end_refresh(Node node, uint32_t kind);
    void add_user(const User &user, std::vector<Command> *commands) const;

    std::map<std::pair<Node, uint32_t>, User> users_;
    std::set<std::pair<Node, uint32_t>> refreshes_; // node and kind of those that have not ended
};

} // namespace uagent

#endif
