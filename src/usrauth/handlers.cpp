/*
 * One handler for each type of message. All follow one order: read the message whole, count it, check its
 * kind, change the store under the write lock, tell the daemon without it.
 *
 * The daemon's filter sees messages that bring something (announcement, update, group list) before they
 * count, and may drop them. It is the daemon's code and may do anything, up to ending the store: so the
 * store is looked at again after it. Withdrawals, ends of lists and refreshes cannot be dropped, since
 * without them what the store holds would never end.
 *
 * A message that does not fit is ignored, not answered: an unknown user, a kind that is none, entries that
 * lie outside the message. Agents that lost track repeat everything in a refresh.
 */
#include "usrauth/handlers.h"

#include "event/guards.h"
#include "event/table_by_type.h"
#include "usrauth/detail.h"
#include "usrauth/entries.h"
#include "usrauth/node.h"
#include "usrauth/refresh.h"
#include "usrauth/user.h"

namespace mcast::usrauth
{
namespace
{

bool FilterDrops(const Message &message)
{
    return g_store.callbacks.message_filter != nullptr &&
           g_store.callbacks.message_filter(message.descriptor, message.value, message.length) ==
               MCAST_USRAUTH_FILTER_DROP;
}

template <typename Named> void Count(const Message &message, const Named &named)
{
    CountMessage(named.kind, message.type);
    CountDetail(named.node, named.user_id, message.type);
}

void AnnounceNew(const UserMessage &message)
{
    const bool is_first = !HasUserOfKind(message.node, message.kind);
    User *user = nullptr;
    {
        WriteGuard guard(g_stUsrAuthRWLock);

        user = CreateUser(message);
        if (user != nullptr && IsRefreshOpen(message.node, message.kind)) {
            user->flags |= MCAST_USRAUTH_REFRESHED;
        }
    }
    if (user != nullptr && is_first) {
        TellNodeKind(message.node, message.kind, 1);
    }
}

void OnAnnounce(const Message &message)
{
    UserMessage announced;

    ReadUser(message, g_store.family, &announced);
    Count(message, announced);
    if (!IsUserKind(announced.kind)) {
        return;
    }
    User *user = FindUser(announced.node, announced.user_id);

    if (user != nullptr) {
        UpdateUser(user, announced, Update::kAnnounced);
    } else {
        AnnounceNew(announced);
    }
}

void OnWithdraw(const Message &message)
{
    UserMessage withdrawn;

    ReadUser(message, g_store.family, &withdrawn);
    Count(message, withdrawn);
    User *user = FindUser(withdrawn.node, withdrawn.user_id);

    if (user != nullptr) {
        RemoveUser(user);
        TellIfKindIsGone(withdrawn.node, withdrawn.kind);
    }
}

/* No user may get a kind that has no refresh and perhaps no list. */
void OnUpdate(const Message &message)
{
    UserMessage updated;

    ReadUser(message, g_store.family, &updated);
    Count(message, updated);
    User *user = IsUserKind(updated.kind) ? FindUser(updated.node, updated.user_id) : nullptr;

    if (user != nullptr) {
        UpdateUser(user, updated, Update::kPlain);
    }
}

void OnGroupList(const Message &message)
{
    GroupListMessage list;

    if (!ReadGroupList(message, g_store.family, &list)) {
        return;
    }
    Count(message, list);
    User *user = FindUser(list.node, list.user_id);

    if (user != nullptr) {
        WriteGuard guard(g_stUsrAuthRWLock);

        AddEntries(&user->groups, list.entries);
    }
}

void OnGroupListEnd(const Message &message)
{
    GroupListMessage end;

    if (!ReadGroupList(message, g_store.family, &end)) {
        return;
    }
    Count(message, end);
    User *user = FindUser(end.node, end.user_id);

    if (user != nullptr) {
        EndGroupList(user);
    }
}

void OnRefreshBegin(const Message &message)
{
    RefreshMessage begin;
    if (!ReadRefresh(message, &begin)) {
        return;
    }
    CountMessage(begin.kind, message.type);
    if (IsUserKind(begin.kind)) {
        OpenRefresh(begin.node, begin.kind);
    }
}

void OnRefreshEnd(const Message &message)
{
    RefreshMessage end;
    if (!ReadRefresh(message, &end)) {
        return;
    }
    CountMessage(end.kind, message.type);
    if (!IsUserKind(end.kind)) {
        return;
    }
    SweepKind(end.node, end.kind, Sweep::kKeepRefreshed);
    CloseRefresh(end.node, end.kind);
    if (g_store.callbacks.refresh_ended != nullptr) {
        g_store.callbacks.refresh_ended(end.node, end.kind);
    }
}

struct Handler {
    bool filtered;
    void (*handle)(const Message &message);
};

constexpr auto kHandlers = MakeTableByType<USRAUTH_MSG_TYPES, Handler>({
    {USRAUTH_MSG_ANNOUNCE, {true, OnAnnounce}},
    {USRAUTH_MSG_WITHDRAW, {false, OnWithdraw}},
    {USRAUTH_MSG_UPDATE, {true, OnUpdate}},
    {USRAUTH_MSG_GROUP_LIST, {true, OnGroupList}},
    {USRAUTH_MSG_GROUP_LIST_END, {false, OnGroupListEnd}},
    {USRAUTH_MSG_REFRESH_BEGIN, {false, OnRefreshBegin}},
    {USRAUTH_MSG_REFRESH_END, {false, OnRefreshEnd}},
});

} // namespace

/* The filter may end the store. */
void HandleMessage(const Message &message)
{
    const Handler *handler = kHandlers.Find(message.type);
    if (handler != nullptr && !(handler->filtered && FilterDrops(message)) && g_store.open) {
        handler->handle(message);
    }
}

} // namespace mcast::usrauth
