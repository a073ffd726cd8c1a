#include "tests/simulation/kernel/routing_socket.h"

#include <cstring>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <linux/mroute.h>
#include <linux/mroute6.h>
#include <linux/sock_diag.h>

#include "tests/simulation/kernel/packet_build.h"

namespace sim
{
namespace
{

// What a receive buffer of 8 MiB holds of small messages.
constexpr size_t MOST_UPCALLS = 10000;

// Both families number their options alike, counted from a base that is the same too.
static_assert(MRT_BASE == MRT6_BASE && MRT_INIT == MRT6_INIT && MRT_DONE == MRT6_DONE &&
              MRT_ADD_VIF == MRT6_ADD_MIF && MRT_DEL_VIF == MRT6_DEL_MIF && MRT_ADD_MFC == MRT6_ADD_MFC &&
              MRT_DEL_MFC == MRT6_DEL_MFC && MRT_TABLE == MRT6_TABLE);
constexpr int LAST_OPTION = MRT_BASE + 11;
constexpr int BEHIND_RECORDS = MRT_DEL_MFC + 1;

Address address_of(const sockaddr_in6 &name)
{
    return sim::address_of(AF_INET6, &name.sin6_addr);
}

} // namespace

RoutingSocket::RoutingSocket(Process &process, int family)
    : process_(process), machine_(process.machine()), family_(family)
{
    ++process.routing_sockets;
}

RoutingSocket::~RoutingSocket()
{
    if (MulticastTable *table = owned()) {
        table->end();
    }
}

MulticastTable *RoutingSocket::owned() const
{
    MulticastTable &table = machine_.multicast_table(family_, table_);
    return table.owner() == this ? &table : nullptr;
}

uint32_t RoutingSocket::ready() const
{
    return events_if(!upcalls_.empty(), EPOLLIN) | EPOLLOUT;
}

int RoutingSocket::set_option(int level, int option, const void *value, socklen_t size)
{
    const bool multicast = level == (family_ == AF_INET ? +IPPROTO_IP : +IPPROTO_IPV6) &&
                           option >= MRT_BASE && option <= LAST_OPTION;
    if (level == SOL_SOCKET && option == SO_ATTACH_FILTER) {
        return -process_.refused(Call::AttachFilter);
    }
    return multicast ? set_multicast_option(option, value, size) : 0;
}

int RoutingSocket::set_multicast_option(int option, const void *value, socklen_t size)
{
    if (option == MRT_INIT) {
        const int refused = process_.refused(Call::MulticastInit);
        return refused != 0 ? -refused : machine_.multicast_table(family_, table_).begin(this);
    }
    if (option == MRT_TABLE) {
        if (size != sizeof(table_)) {
            return -EINVAL;
        }
        if (owned() != nullptr) {
            return -EBUSY;
        }
        memcpy(&table_, value, sizeof(table_));
        return 0;
    }
    // Whoever may administer the network may change a table, but only its owner ends it.
    MulticastTable &table = machine_.multicast_table(family_, table_);
    if (option != MRT_DONE && option < BEHIND_RECORDS && size < size_of(option)) {
        return -EINVAL;
    }
    switch (option) {
    case MRT_DONE:
        if (table.owner() != this) {
            return -EACCES;
        }
        table.end();
        return 0;
    case MRT_ADD_VIF:
        return add_vif(table, value);
    case MRT_DEL_VIF:
        return delete_vif(table, value);
    case MRT_ADD_MFC:
    case MRT_DEL_MFC:
        return change_entry(table, option == MRT_ADD_MFC, value);
    default:
        return 0;
    }
}

size_t RoutingSocket::size_of(int option) const
{
    switch (option) {
    case MRT_ADD_VIF:
        return family_ == AF_INET ? sizeof(vifctl) : sizeof(mif6ctl);
    case MRT_DEL_VIF:
        return family_ == AF_INET ? sizeof(vifctl) : sizeof(mifi_t);
    default:
        return family_ == AF_INET ? sizeof(mfcctl) : sizeof(mf6cctl);
    }
}

int RoutingSocket::add_vif(MulticastTable &table, const void *value)
{
    unsigned vif;
    uint32_t if_index;
    if (family_ == AF_INET) {
        vifctl control;
        memcpy(&control, value, sizeof(control));
        vif = control.vifc_vifi;
        if_index = static_cast<uint32_t>(control.vifc_lcl_ifindex);
    } else {
        mif6ctl control;
        memcpy(&control, value, sizeof(control));
        vif = control.mif6c_mifi;
        if_index = control.mif6c_pifi;
    }
    const int refused = process_.refused(Call::MulticastAddVif);
    if (refused != 0) {
        return -refused;
    }
    return table.add_vif(vif, machine_.find(if_index) == nullptr ? 0 : if_index);
}

int RoutingSocket::delete_vif(MulticastTable &table, const void *value)
{
    unsigned vif;
    if (family_ == AF_INET) {
        vifctl control;
        memcpy(&control, value, sizeof(control));
        vif = control.vifc_vifi;
    } else {
        mifi_t mif;
        memcpy(&mif, value, sizeof(mif));
        vif = mif;
    }
    return table.delete_vif(vif);
}

int RoutingSocket::change_entry(MulticastTable &table, bool add, const void *value)
{
    MulticastTable::Key key;
    unsigned parent;
    uint32_t outgoing = 0;
    if (family_ == AF_INET) {
        mfcctl control;
        memcpy(&control, value, sizeof(control));
        key = {sim::address_of(AF_INET, &control.mfcc_origin),
               sim::address_of(AF_INET, &control.mfcc_mcastgrp)};
        parent = control.mfcc_parent;
        for (unsigned vif = 0; vif < MAXVIFS; ++vif) {
            outgoing |= control.mfcc_ttls[vif] != 0 && control.mfcc_ttls[vif] < 255 ? 1u << vif : 0;
        }
    } else {
        mf6cctl control;
        memcpy(&control, value, sizeof(control));
        key = {address_of(control.mf6cc_origin), address_of(control.mf6cc_mcastgrp)};
        parent = control.mf6cc_parent;
        outgoing = control.mf6cc_ifset.ifs_bits[0];
    }
    if (!add) {
        return table.delete_entry(key);
    }
    if (!table.entries().contains(key)) { // an entry that is there needs no memory
        const int refused = process_.refused(Call::MulticastAddEntry);
        if (refused != 0) {
            return -refused;
        }
    }
    process_.kernel().trace.note(outgoing);
    return table.set_entry(key, parent, outgoing);
}

int RoutingSocket::get_option(int level, int option, void *value, socklen_t *size)
{
    if (level != SOL_SOCKET && option == MRT_VERSION) {
        const int version = 0x0305;
        memcpy(value, &version, std::min<size_t>(*size, sizeof(version)));
        return 0;
    }
    if (level != SOL_SOCKET || option != SO_MEMINFO) {
        return -ENOPROTOOPT;
    }
    uint32_t info[SK_MEMINFO_VARS] = {};
    info[SK_MEMINFO_DROPS] = lost_;
    memcpy(value, info, std::min<size_t>(*size, sizeof(info)));
    return 0;
}

int RoutingSocket::control(unsigned long request, void *argument)
{
    MulticastTable *table = owned();
    const auto fill = [table](const MulticastTable::Key &key, auto *record) {
        const auto found = table->entries().find(key);
        if (found == table->entries().end()) {
            return -EADDRNOTAVAIL;
        }
        record->pktcnt = found->second.packets;
        record->bytecnt = found->second.packets * 100;
        record->wrong_if = found->second.wrong_interface;
        return 0;
    };
    if (table == nullptr) {
        return -EADDRNOTAVAIL;
    }
    if (family_ == AF_INET && request == SIOCGETSGCNT) {
        auto *record = static_cast<sioc_sg_req *>(argument);
        return fill({sim::address_of(AF_INET, &record->src), sim::address_of(AF_INET, &record->grp)}, record);
    }
    if (family_ == AF_INET6 && request == SIOCGETSGCNT_IN6) {
        auto *record = static_cast<sioc_sg_req6 *>(argument);
        return fill({address_of(record->src), address_of(record->grp)}, record);
    }
    return -EINVAL;
}

ssize_t RoutingSocket::send_message(const msghdr &message)
{
    const cmsghdr *control = CMSG_FIRSTHDR(&message);
    uint32_t if_index = 0;
    Address source;
    Address destination;
    if (control == nullptr) {
        return -EDESTADDRREQ;
    }
    if (family_ == AF_INET) {
        in_pktinfo info;
        sockaddr_in to;
        memcpy(&info, CMSG_DATA(control), sizeof(info));
        memcpy(&to, message.msg_name, sizeof(to));
        if_index = static_cast<uint32_t>(info.ipi_ifindex);
        source = sim::address_of(AF_INET, &info.ipi_spec_dst);
        destination = sim::address_of(AF_INET, &to.sin_addr);
    } else {
        in6_pktinfo info;
        sockaddr_in6 to;
        memcpy(&info, CMSG_DATA(control), sizeof(info));
        memcpy(&to, message.msg_name, sizeof(to));
        if_index = info.ipi6_ifindex;
        source = sim::address_of(AF_INET6, &info.ipi6_addr);
        destination = address_of(to);
    }
    const Interface *interface = machine_.find(if_index);
    if (interface == nullptr) {
        return -ENODEV;
    }
    if (!interface->is_up) {
        return -ENETUNREACH;
    }
    if (!machine_.may_send_from(source, if_index)) {
        return family_ == AF_INET ? -ENETUNREACH : -EINVAL;
    }
    const auto *bytes = static_cast<const uint8_t *>(message.msg_iov->iov_base);
    const Bytes body(bytes, bytes + message.msg_iov->iov_len);
    const Packet packet{family_, build_packet(source, destination, body)};
    ++process_.traffic[if_index].sent;
    if (interface->wire != nullptr) {
        interface->wire->carry(machine_, if_index, packet);
    }
    return static_cast<ssize_t>(body.size());
}

ssize_t RoutingSocket::receive(void *buffer, size_t size, int flags, sockaddr *)
{
    if (upcalls_.empty()) {
        return -EAGAIN;
    }
    const Bytes message = std::move(upcalls_.front());
    upcalls_.pop_front();
    return hand_over(message, buffer, size, flags);
}

bool RoutingSocket::upcall(int kind, unsigned vif, const MulticastTable::Key &key)
{
    ++told_;
    if (upcalls_.size() >= MOST_UPCALLS) {
        ++lost_;
        return false;
    }
    Bytes bytes;
    if (family_ == AF_INET) {
        igmpmsg message{};
        message.im_msgtype = static_cast<uint8_t>(kind);
        message.im_vif = static_cast<uint8_t>(vif);
        memcpy(&message.im_src, key.first.bytes.data(), 4);
        memcpy(&message.im_dst, key.second.bytes.data(), 4);
        bytes.resize(sizeof(message));
        memcpy(bytes.data(), &message, sizeof(message));
    } else {
        mrt6msg message{};
        message.im6_msgtype = static_cast<uint8_t>(kind);
        message.im6_mif = static_cast<uint16_t>(vif);
        memcpy(&message.im6_src, key.first.bytes.data(), 16);
        memcpy(&message.im6_dst, key.second.bytes.data(), 16);
        bytes.resize(sizeof(message));
        memcpy(bytes.data(), &message, sizeof(message));
    }
    upcalls_.push_back(std::move(bytes));
    return true;
}

} // namespace sim
