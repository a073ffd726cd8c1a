#include "daemons/uagent/told_users.h"

namespace uagent
{

// A list that goes on in a later command adds to the last whole one until it ends.
void ToldUsers::note_groups(User &user, const Command &command)
{
    user.growing.insert(user.growing.end(), command.permissions.begin(), command.permissions.end());
    if (!command.open) {
        user.command.permissions = std::exchange(user.growing, {});
        user.has_list = true;
    }
}

void ToldUsers::note(const Command &command)
{
    const std::pair key(command.node, command.user_id);
    const std::pair refresh(command.node, command.kind);
    const auto known = users_.find(key);

    switch (command.verb) {
    case Verb::Announce:
    case Verb::Update:
        if (known != users_.end() || command.verb == Verb::Announce) {
            User &user = users_[key];
            const std::vector<Permission> before = std::move(user.command.permissions);

            user.command = command;
            user.command.verb = Verb::Announce;
            user.command.open = false;
            user.command.permissions = before;
            user.refreshed |= command.verb == Verb::Announce && refreshes_.contains(refresh);
            note_groups(user, command);
        }
        break;
    case Verb::Groups:
        if (known != users_.end()) {
            note_groups(known->second, command);
        }
        break;
    case Verb::Withdraw:
        users_.erase(key);
        break;
    case Verb::RefreshBegin:
        refreshes_.insert(refresh);
        break;
    case Verb::RefreshEnd:
        end_refresh(command.node, command.kind);
        break;
    }
}

void ToldUsers::end_refresh(Node node, uint32_t kind)
{
    refreshes_.erase({node, kind});
    for (auto next = users_.begin(); next != users_.end();) {
        const auto current = next++;
        const bool concerned = current->first.first == node && current->second.command.kind == kind;

        if (concerned && !std::exchange(current->second.refreshed, false)) {
            users_.erase(current);
        }
    }
}

void ToldUsers::add_user(const User &user, std::vector<Command> *commands) const
{
    commands->push_back(user.command);
    if (!user.has_list) {
        commands->back().permissions = user.growing;
        commands->back().open = true;
    } else if (!user.growing.empty()) {
        Command more = user.command;

        more.verb = Verb::Groups;
        more.permissions = user.growing;
        more.open = true;
        commands->push_back(more);
    }
}

std::vector<Command> ToldUsers::again() const
{
    std::vector<Command> commands;

    for (const auto &[key, user] : users_) {
        if (!user.refreshed) {
            add_user(user, &commands);
        }
    }
    for (const auto &[node, kind] : refreshes_) {
        Command &begin = commands.emplace_back();

        begin.verb = Verb::RefreshBegin;
        begin.node = node;
        begin.kind = kind;
    }
    for (const auto &[key, user] : users_) {
        if (user.refreshed) {
            add_user(user, &commands);
        }
    }
    return commands;
}

} // namespace uagent
