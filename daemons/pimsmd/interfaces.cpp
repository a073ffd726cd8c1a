/*
 * Every event leads to the same question: given what the link table says now, must PIM run on this interface, and from which
 * address? The answer is compared with what runs, so that nothing depends on the order of events.
 *
 * PIM runs while the interface is up, can do multicast, has an address of the family, and is named by the configuration; when
 * that names none, on each that is no loopback and no part of a bridge, bond or the like. A lost carrier ends nothing:
 * neighbours end in time when it does not return.
 */
#include "daemons/pimsmd/interfaces.h"

#include <cerrno>
#include <cstring>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/common/services.h"
#include "mcast/service.h"

namespace pimsmd
{

Interfaces::~Interfaces()
{
    close();
}

bool Interfaces::open(int32_t loop)
{
    table_ = HOST_LinkOpen(loop, on_event, this);
    if (table_ == nullptr) {
        mcastd::log_error("cannot read the network interfaces: %s", strerror(errno));
        return false;
    }
    settle();
    update_all();
    report_missing_names();
    return true;
}

void Interfaces::close()
{
    HOST_LinkClose(table_);
    table_ = nullptr;
}

void Interfaces::configured()
{
    if (table_ != nullptr) {
        update_all();
        report_missing_names();
    }
}

void Interfaces::report_missing_names() const
{
    for (const auto &[name, settings] : router_.config().interfaces) {
        HOST_LINK_S link;

        if (HOST_LinkGetByName(table_, name.c_str(), &link) != 0) {
            mcastd::log_warning("there is no interface %s yet, waiting for it", name.c_str());
        }
    }
}

bool Interfaces::is_wanted(const HOST_LINK_S &link) const
{
    constexpr uint32_t NEEDED = HOST_LINK_UP | HOST_LINK_MULTICAST;
    const auto &names = router_.config().interfaces;
    uint16_t instance = 0;
    if ((link.flags & NEEDED) != NEEDED || (link.flags & HOST_LINK_LOOPBACK) != 0 ||
        MCAST_GetVrfIndexByIfIndex(link.if_index, &instance) != MCAST_OK ||
        instance != mcastd::PUBLIC_INSTANCE) {
        return false;
    }
    return names.empty() ? link.master_index == 0 : names.contains(link.name);
}

void Interfaces::update(const HOST_LINK_S &link)
{
    const uint16_t family = router_.family();
    HOST_ADDRESS_S address;

    if (!is_wanted(link) ||
        HOST_LinkGetSourceAddress(table_, link.if_index, static_cast<uint8_t>(family), &address) != 0) {
        remove(link.if_index);
        return;
    }
    LinkState state;
    state.if_index = link.if_index;
    state.name = link.name;
    state.mtu = link.mtu;
    state.address = make_address(family, address.address);
    for (uint32_t at = 0; HOST_LinkGetAddress(table_, link.if_index, at, &address) == 0; ++at) {
        const Address one = make_address(family, address.address);

        if (address.family == family && !same_address(one, state.address)) {
            state.others.push_back(one);
        }
    }
    sockets_.join(link.if_index, state.name);
    if (!router_.link_up(state)) {
        sockets_.leave(link.if_index);
    }
}

void Interfaces::update_all()
{
    HOST_LINK_S link{};
    while (HOST_LinkGetNext(table_, link.if_index, &link) == 0) {
        update(link);
    }
}

// The goodbye needs the socket.
void Interfaces::remove(uint32_t if_index)
{
    if (router_.link_of(if_index)) {
        router_.link_down(if_index);
        sockets_.leave(if_index);
    }
}

void Interfaces::read_own_addresses()
{
    std::set<Address, AddressLess> own;
    HOST_LINK_S link{};
    HOST_ADDRESS_S address;
    while (HOST_LinkGetNext(table_, link.if_index, &link) == 0) {
        for (uint32_t at = 0; HOST_LinkGetAddress(table_, link.if_index, at, &address) == 0; ++at) {
            if (address.family == router_.family()) {
                own.insert(make_address(router_.family(), address.address));
            }
        }
    }
    router_.set_own(std::move(own));
}

void Interfaces::settle()
{
    if (table_ == nullptr || mcastd::memory_is_short()) {
        return;
    }
    if (missed_) {
        missed_ = false;
        own_stale_ = true;
        update_all();
    }
    if (own_stale_) {
        own_stale_ = false;
        read_own_addresses();
    }
}

void Interfaces::on_event(HOST_LINK_TABLE table, const HOST_LINK_EVENT_S *event, void *context)
{
    auto &self = *static_cast<Interfaces *>(context);
    if (self.table_ == nullptr) {
        return; // still opening: all are looked at once they are known
    }
    self.own_stale_ = self.own_stale_ || event->address != nullptr || event->kind == HOST_LINK_EVENT_REMOVED;
    const bool taken = mcastd::memory_unit("a change of an interface", [&] {
        HOST_LINK_S link;

        if (event->kind == HOST_LINK_EVENT_REMOVED ||
            HOST_LinkGetByIndex(table, event->link->if_index, &link) != 0) {
            self.remove(event->link->if_index);
        } else {
            self.update(link);
        }
    });
    self.missed_ = self.missed_ || !taken;
}

} // namespace pimsmd
