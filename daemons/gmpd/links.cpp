/*
 * Every event leads to the same question: given what the link table says now, must the protocol run on this
 * interface, and from which address? The answer is compared with what runs. Nothing depends on the order of
 * events, so that interfaces may come, go, change their names, indexes and addresses in any order.
 *
 * An interface is followed while it is up, can do multicast, is no loopback and no part of a bridge, bond or
 * the like (interfaces named with --interface are allowed to be one; a VRF port does not count as one), and is in
 * an instance. It runs while it also has an address of the family, and stops to move to another instance. A
 * lost carrier does not end memberships: they end in time when it does not return. When it returns, hosts are
 * asked at once.
 */
#include "daemons/gmpd/links.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/gmpd/group_expiry.h"
#include "daemons/gmpd/querier.h"
#include "mcast/service.h"

namespace gmpd
{
namespace
{

// Whether reports on the interface of that name count for announced users alone.
bool requires_user(const Config &config, const std::string &name)
{
    const std::vector<std::string> &names = config.user_auth_interfaces;
    return config.user_auth && (names.empty() || std::find(names.begin(), names.end(), name) != names.end());
}

bool is_vrf(const HOST_LINK_S &link)
{
    return link.vrf_table != 0;
}

// The prefixes of the family that are on the link.
std::vector<Prefix> prefixes_of(HOST_LINK_TABLE table, uint32_t if_index, uint16_t family)
{
    std::vector<Prefix> prefixes;
    HOST_ADDRESS_S address;
    for (uint32_t at = 0; HOST_LinkGetAddress(table, if_index, at, &address) == 0; ++at) {
        if (address.family == family) {
            prefixes.push_back(Prefix::of(make_address(family, address.peer), address.prefix_length));
        }
    }
    return prefixes;
}

} // namespace

Links::~Links()
{
    close();
}

bool Links::open(int32_t loop)
{
    table_ = HOST_LinkOpen(loop, on_event, this);
    if (table_ == nullptr) {
        mcastd::log_error("cannot read the network interfaces: %s", strerror(errno));
        return false;
    }
    update_all(table_);
    report_missing_names();
    return true;
}

void Links::close()
{
    HOST_LinkClose(table_);
    table_ = nullptr;
    process_.interfaces.clear();
}

void Links::report_missing_names() const
{
    for (const std::string &name : process_.config.interfaces) {
        HOST_LINK_S link;

        if (HOST_LinkGetByName(table_, name.c_str(), &link) != 0) {
            mcastd::log_warning("there is no interface %s yet, waiting for it", name.c_str());
        }
    }
}

bool Links::is_wanted(HOST_LINK_TABLE table, const HOST_LINK_S &link) const
{
    constexpr uint32_t NEEDED = HOST_LINK_UP | HOST_LINK_MULTICAST;
    const std::vector<std::string> &names = process_.config.interfaces;
    HOST_LINK_S master;
    if ((link.flags & NEEDED) != NEEDED || (link.flags & HOST_LINK_LOOPBACK) != 0) {
        return false;
    }
    const bool is_part = link.master_index != 0 &&
                         (HOST_LinkGetByIndex(table, link.master_index, &master) != 0 || !is_vrf(master));
    return names.empty() ? !is_part : std::find(names.begin(), names.end(), link.name) != names.end();
}

void Links::update(HOST_LINK_TABLE table, const HOST_LINK_S &link)
{
    const uint16_t family = process_.config.family;
    HOST_ADDRESS_S source;

    uint16_t vrf_index;

    if (!is_wanted(table, link) || MCAST_GetVrfIndexByIfIndex(link.if_index, &vrf_index) != MCAST_OK) {
        remove(link.if_index);
        return;
    }
    auto found = process_.interfaces.find(link.if_index);
    if (found == process_.interfaces.end()) {
        auto fresh = std::make_unique<Interface>(process_, link.if_index, link.name);
        found = process_.interfaces.emplace(link.if_index, std::move(fresh)).first;
    }
    const std::unique_ptr<Interface> &interface = found->second;
    receiver_.join(link.if_index); // which does nothing where it listens
    interface->name = link.name;
    interface_move(*interface, vrf_index);
    interface_authenticate(*interface, requires_user(process_.config, link.name));
    interface->mtu = link.mtu;
    interface->prefixes = prefixes_of(table, link.if_index, family);
    if (HOST_LinkGetSourceAddress(table, link.if_index, static_cast<uint8_t>(family), &source) == 0) {
        interface_start(*interface, make_address(family, source.address));
    } else {
        interface_stop(*interface);
    }
}

void Links::update_all(HOST_LINK_TABLE table)
{
    HOST_LINK_S link{};
    while (HOST_LinkGetNext(table, link.if_index, &link) == 0) {
        update(table, link);
    }
}

void Links::remove(uint32_t if_index)
{
    if (process_.interfaces.erase(if_index) > 0) {
        receiver_.leave(if_index);
    }
}

void Links::on_event(HOST_LINK_TABLE table, const HOST_LINK_EVENT_S *event, void *context)
{
    Links &links = *static_cast<Links *>(context);
    if (links.table_ == nullptr) {
        return; // still opening: all are looked at once they are known, without asking the kernel about each
    }
    links.missed_ |=
        !mcastd::memory_unit("a change of an interface", [&] { links.take_event(table, *event); });
}

void Links::settle()
{
    if (missed_ && table_ != nullptr && !mcastd::memory_is_short()) {
        update_all(table_);
        missed_ = false;
    }
    for (const auto &[index, interface] : process_.interfaces) {
        resume_ends(*interface);
    }
}

void Links::take_event(HOST_LINK_TABLE table, const HOST_LINK_EVENT_S &event)
{
    const HOST_LINK_S &link = *event.link;
    switch (event.kind) {
    case HOST_LINK_EVENT_REMOVED:
        remove(link.if_index);
        return;
    case HOST_LINK_EVENT_RENAMED:
        mcastd::log_info("%s: is now %s", event.old_link->name, link.name);
        break;
    default:
        break;
    }
    if (is_vrf(link)) {
        update_all(table); // its ports may be in another instance now
    }
    update(table, link);
    if (event.kind == HOST_LINK_EVENT_CHANGED && (event.old_link->flags & HOST_LINK_RUNNING) == 0 &&
        (link.flags & HOST_LINK_RUNNING) != 0) {
        const auto found = process_.interfaces.find(link.if_index);

        if (found != process_.interfaces.end()) {
            querier_ask_again(*found->second);
        }
    }
}

} // namespace gmpd
