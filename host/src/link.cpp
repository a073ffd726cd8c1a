/*
 * The link table. Notifications arrive on one netlink socket, dumps are asked for on another, so that the two
 * never mix. The notification socket is opened first: whatever changes while a dump runs is told after it,
 * and a notification of something that the dump shows already changes nothing.
 *
 * When the kernel had to drop notifications the order of what remains is worthless: an old one could undo
 * what the new dump shows. So the queue is emptied before the dump, and the differences are reported as
 * events; a user of the table cannot tell a lost notification from a late one. A dump that fails is tried
 * again a second later.
 *
 * One wake-up reads a bounded number of notifications and lets the loop serve others.
 */
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <sys/socket.h>
#include <linux/rtnetlink.h>

#include "interface_view.h"
#include "link_message.h"
#include "link_table.h"
#include "loop_objects.h"
#include "netlink.h"
#include "platform/timer.h"

struct HOST_LINK_TABLE_S {
    HOST_LINK_TABLE_S(int32_t loop_descriptor, HOST_LINK_CALLBACK user_callback, void *user_context)
        : loop(loop_descriptor), callback(user_callback), context(user_context)
    {
    }
    ~HOST_LINK_TABLE_S();

    int32_t loop;
    HOST_LINK_CALLBACK callback;
    void *context;
    host::Netlink notifications;
    host::Netlink requests;
    host::LinkState state{tell, this};
    host::InterfaceFeed feed;
    uint64_t resyncs = 0;
    TIMER_ID retry = TIMER_NONE; // of a dump that failed; with a service, that of the loop
    bool stale = false;          // a dump is due
    bool delivering = false;     // the callback may be running
    bool closed = false;         // by the callback; freed when it has returned

    static void tell(const HOST_LINK_EVENT_S &event, void *self);
};

namespace
{

using host::LinkMap;
using host::Netlink;

constexpr int DATAGRAMS_PER_WAKE_UP = 64;
constexpr int DUMP_ATTEMPTS = 10;
constexpr uint32_t DUMP_RETRY_MS = 1000;

host::LoopObjects<HOST_LINK_TABLE_S> g_tables;

void apply(const nlmsghdr *message, void *context)
{
    host::apply_message(message, &static_cast<HOST_LINK_TABLE_S *>(context)->state);
}

void collect(const nlmsghdr *message, void *context)
{
    LinkMap &links = *static_cast<LinkMap *>(context);
    HOST_LINK_S link;
    HOST_ADDRESS_S address;
    if (message->nlmsg_type == RTM_NEWLINK && host::read_link(message, &link)) {
        links.try_emplace(link.if_index, host::LinkEntry{link, {}});
    } else if (message->nlmsg_type == RTM_NEWADDR && host::read_address(message, &address)) {
        auto entry = links.find(address.if_index);
        if (entry != links.end()) {
            entry->second.addresses.push_back(address);
        }
    }
}

bool dump(Netlink *requests, uint16_t type, LinkMap *links)
{
    alignas(nlmsghdr) char buffer[MNL_ALIGN(sizeof(nlmsghdr)) + sizeof(ifinfomsg)] = {};
    nlmsghdr *header = mnl_nlmsg_put_header(buffer);
    header->nlmsg_type = type;
    header->nlmsg_flags = NLM_F_DUMP;
    mnl_nlmsg_put_extra_header(header, type == RTM_GETLINK ? sizeof(ifinfomsg) : sizeof(ifaddrmsg));
    return requests->request(header, collect, links);
}

// A dump that the kernel changed under our reading is read again. False with errno set.
bool read_everything(Netlink *requests, LinkMap *links)
{
    for (int attempt = 0; attempt < DUMP_ATTEMPTS; ++attempt) {
        links->clear();
        if (dump(requests, RTM_GETLINK, links) && dump(requests, RTM_GETADDR, links)) {
            return true;
        }
        if (errno != EINTR) {
            return false;
        }
    }
    return false;
}

// Leaves the table stale when the dump fails.
bool resynchronise(HOST_LINK_TABLE table)
{
    LinkMap fresh;
    table->stale = !read_everything(&table->requests, &fresh);
    if (!table->stale) {
        table->state.become(fresh);
    }
    return !table->stale;
}

void serve(HOST_LINK_TABLE table)
{
    for (int i = 0; i < DATAGRAMS_PER_WAKE_UP && !table->closed; ++i) {
        Netlink::Received received = table->notifications.receive(apply, table);
        if (received == Netlink::Received::Overrun) {
            ++table->resyncs;
            table->stale = true;
        }
        if (table->stale && !table->closed) {
            resynchronise(table);
        }
        if (received != Netlink::Received::Messages) {
            return;
        }
    }
}

void attend(HOST_LINK_TABLE table);

void on_retry(uint64_t parameters[4])
{
    HOST_LINK_TABLE table = reinterpret_cast<HOST_LINK_TABLE>(parameters[0]);
    table->retry = TIMER_NONE; // which deletes itself
    attend(table);
}

// The kernel may have nothing to tell for long: the next notification is not waited for.
void retry_later(HOST_LINK_TABLE table)
{
    const uint64_t parameters[4] = {reinterpret_cast<uint64_t>(table), 0, 0, 0};
    if (table->retry == TIMER_NONE) {
        table->retry = Timer_Create(HOST_LoopTimerService(table->loop), TIMER_KIND_ONE_SHOT, DUMP_RETRY_MS,
                                    on_retry, parameters);
    }
}

void attend(HOST_LINK_TABLE table)
{
    table->delivering = true;
    try {
        serve(table);
    } catch (const std::bad_alloc &) {
        table->stale = true;
    }
    table->delivering = false;
    if (table->closed) {
        delete table;
    } else if (table->stale) {
        retry_later(table);
    }
}

uint64_t on_notification(uint32_t, int32_t fd)
{
    if (HOST_LINK_TABLE table = g_tables.find(fd)) {
        attend(table);
    }
    return 0;
}

uint32_t give(const host::LinkEntry &entry, HOST_LINK_S *link)
{
    *link = entry.link;
    return 0;
}

const host::LinkEntry *entry_of(HOST_LINK_TABLE table, uint32_t if_index)
{
    if (table == nullptr) {
        return nullptr;
    }
    auto entry = table->state.links().find(if_index);
    return entry == table->state.links().end() ? nullptr : &entry->second;
}

bool open_table(HOST_LINK_TABLE table)
{
    table->delivering = true;
    bool opened = table->notifications.open(Netlink::Kind::Notifications,
                                            {RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR}) &&
                  table->requests.open(Netlink::Kind::Requests) &&
                  g_tables.add(table->loop, table->notifications.descriptor(), on_notification, table) &&
                  resynchronise(table);
    table->delivering = false;
    if (opened) {
        table->feed.complete();
    }
    return opened;
}

} // namespace

HOST_LINK_TABLE_S::~HOST_LINK_TABLE_S()
{
    int saved = errno;
    if (retry != TIMER_NONE) {
        Timer_Delete(HOST_LoopTimerService(loop), retry);
    }
    if (notifications.valid()) {
        g_tables.remove(loop, notifications.descriptor());
    }
    errno = saved;
}

void HOST_LINK_TABLE_S::tell(const HOST_LINK_EVENT_S &event, void *self)
{
    HOST_LINK_TABLE table = static_cast<HOST_LINK_TABLE>(self);
    table->feed.apply(event);
    if (table->callback != nullptr && !table->closed) {
        table->callback(table, &event, table->context);
    }
}

extern "C" {

HOST_LINK_TABLE HOST_LinkOpen(int32_t loop, HOST_LINK_CALLBACK callback, void *context)
{
    try {
        auto table = std::make_unique<HOST_LINK_TABLE_S>(loop, callback, context);
        return open_table(table.get()) ? table.release() : nullptr;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

void HOST_LinkClose(HOST_LINK_TABLE table)
{
    if (table != nullptr && table->delivering) {
        table->closed = true;
    } else {
        delete table;
    }
}

uint32_t HOST_LinkGetByIndex(HOST_LINK_TABLE table, uint32_t if_index, HOST_LINK_S *link)
{
    const host::LinkEntry *entry = entry_of(table, if_index);
    return entry == nullptr || link == nullptr ? HOST_FAILED : give(*entry, link);
}

uint32_t HOST_LinkGetByName(HOST_LINK_TABLE table, const char *name, HOST_LINK_S *link)
{
    if (table == nullptr || name == nullptr || link == nullptr) {
        return HOST_FAILED;
    }
    for (const auto &[if_index, entry] : table->state.links()) {
        if (strcmp(entry.link.name, name) == 0) {
            return give(entry, link);
        }
    }
    return HOST_FAILED;
}

uint32_t HOST_LinkGetNext(HOST_LINK_TABLE table, uint32_t after, HOST_LINK_S *link)
{
    if (table == nullptr || link == nullptr) {
        return HOST_FAILED;
    }
    auto next = table->state.links().upper_bound(after);
    return next == table->state.links().end() ? HOST_FAILED : give(next->second, link);
}

uint32_t HOST_LinkGetAddress(HOST_LINK_TABLE table, uint32_t if_index, uint32_t position,
                             HOST_ADDRESS_S *address)
{
    const host::LinkEntry *entry = entry_of(table, if_index);
    if (entry == nullptr || address == nullptr || position >= entry->addresses.size()) {
        return HOST_FAILED;
    }
    *address = entry->addresses[position];
    return 0;
}

uint32_t HOST_LinkGetSourceAddress(HOST_LINK_TABLE table, uint32_t if_index, uint8_t family,
                                   HOST_ADDRESS_S *address)
{
    const host::LinkEntry *entry = entry_of(table, if_index);
    if (entry == nullptr || address == nullptr) {
        return HOST_FAILED;
    }
    for (const HOST_ADDRESS_S &each : entry->addresses) {
        bool suitable = family == AF_INET ? (each.flags & HOST_ADDRESS_SECONDARY) == 0
                                          : (each.flags & HOST_ADDRESS_LINK_LOCAL) != 0 &&
                                                (each.flags & HOST_ADDRESS_TENTATIVE) == 0;
        if (each.family == family && suitable) {
            *address = each;
            return 0;
        }
    }
    return HOST_FAILED;
}

uint64_t HOST_LinkResyncCount(HOST_LINK_TABLE table)
{
    return table == nullptr ? 0 : table->resyncs;
}

} // extern "C"
