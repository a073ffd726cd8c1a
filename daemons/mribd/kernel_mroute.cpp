/*
 * The kernel forwards multicast by tables that one socket each controls: options of a raw IGMP or ICMPv6
 * socket set virtual interfaces and entries, and upcalls come back on it. Three things about it are easy
 * to get wrong:
 *
 *     - The socket also hears every packet of its protocol. A filter lets upcalls alone in, so that a
 *       flood of reports does not crowd them out of the receive buffer.
 *     - A table other than the default one is chosen before the socket becomes a multicast router, and
 *       gets packets only by rules that lead an interface's packets there. A rule lives as long as the
 *       interface's virtual one.
 *     - The kernel holds the packets of a new source in a list with the newest in front, and searches it
 *       for every answer. So upcalls are read as they come, kept, and answered newest first.
 *
 * The families differ in option names and records alone: FamilyCalls (kernel_calls.h) holds the
 * difference, so that the class is written once. Closing the socket makes the kernel forget everything, also when the process is
 * killed.
 */
#include "daemons/mribd/kernel_mroute.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <linux/sock_diag.h>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/common/pim_records.h"
#include "daemons/mribd/kernel_calls.h"

namespace mribd
{
namespace
{

constexpr int RECEIVE_BUFFER = 8 << 20;

// Upcalls that wait to be served.
constexpr size_t WAITING_LIMIT = 16384;
constexpr size_t WAITING_WITHOUT_MEMORY = 256;

} // namespace

KernelMroute::KernelMroute(TableRules &rules, uint32_t table)
    : calls_(rules.family() == MCAST_FAMILY_IPV4 ? CALLS_IPV4 : CALLS_IPV6), rules_(rules), table_(table)
{
}

KernelMroute::~KernelMroute()
{
    shut();
}

KernelMroute::OpenResult KernelMroute::open_failed(const char *step, int error, std::string *reason)
{
    shut();
    *reason = std::string(step) + ": " + std::strerror(error);
    switch (error) {
    case EADDRINUSE:
        if (table_ != 0) {
            *reason +=
                "; another process, or another instance, has multicast table " + std::to_string(table_);
            return OpenResult::Failed;
        }
        *reason += "; another process is this network namespace's multicast router. Only one may be: end the "
                   "other routing daemon, or run mribd in a namespace of its own";
        return OpenResult::Failed;
    case EPERM:
    case EACCES:
        *reason += "; mribd needs CAP_NET_ADMIN and CAP_NET_RAW";
        return OpenResult::Failed;
    case ENOPROTOOPT:
    case EOPNOTSUPP:
    case EAFNOSUPPORT:
        *reason += std::string("; the kernel lacks ") + calls_.kernel_option +
                   (table_ != 0 ? "_MULTIPLE_TABLES" : "");
        return OpenResult::NotSupported;
    default:
        return OpenResult::Failed;
    }
}

KernelMroute::OpenResult KernelMroute::open(std::string *reason)
{
    fd_ = socket(calls_.domain, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, calls_.protocol);
    if (fd_ < 0) {
        return open_failed("raw socket", errno, reason);
    }
    prepare_receiving();
    // Before it becomes a multicast router, which it then is of that table.
    int error = table_ == 0 ? 0 : set_option(fd_, calls_.level, calls_.table, &table_, sizeof(table_));
    if (error != 0) {
        return open_failed("choosing a multicast table", error, reason);
    }
    const int one = 1;
    error = set_option(fd_, calls_.level, calls_.init, &one, sizeof(one));
    if (error != 0) {
        return open_failed("becoming the multicast router", error, reason);
    }
    // Without it the kernel says nothing about packets on a wrong interface.
    error = set_option(fd_, calls_.level, calls_.assert, &one, sizeof(one));
    if (error != 0) {
        return open_failed("asking for wrong-interface reports", error, reason);
    }
    return OpenResult::Ready;
}

void KernelMroute::prepare_receiving()
{
    const int size = RECEIVE_BUFFER;
    if (set_option(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0) {
        set_option(fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
        mcastd::log_warning("cannot force a receive buffer of %d bytes; bursts of new sources may be lost",
                            size);
    }
    calls_.quieten(fd_);
}

void KernelMroute::shut()
{
    given_up_ = lost_upcalls() + waiting_.size();
    if (fd_ >= 0) {
        set_option(fd_, calls_.level, calls_.done, nullptr, 0);
        close(fd_);
        fd_ = -1;
    }
    register_vif_ = -1;
    for (unsigned vif = 0; vif < MAX_VIFS; ++vif) {
        lead_no_more(vif);
    }
    waiting_.clear(); // told of virtual interfaces that are gone
}

void KernelMroute::receive(unsigned limit)
{
    std::array<uint8_t, 256> bytes; // an upcall is 20 to 60 bytes; the packet behind it is of no interest
    const size_t most = mcastd::memory_is_short() ? WAITING_WITHOUT_MEMORY : WAITING_LIMIT;
    for (unsigned count = 0; count < limit; ++count) {
        const ssize_t size = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (size < 0) {
            return;
        }
        if (const auto upcall = parse_upcall(rules_.family(), bytes.data(), static_cast<size_t>(size))) {
            waiting_.push_back(*upcall);
        }
        while (waiting_.size() > most) {
            waiting_.pop_front();
            ++given_up_;
        }
    }
}

// The kernel looks for the packets that wait for an entry in a list with the newest in front: in a burst of
// new sources, answering the oldest first would cost a walk over the whole list each time.
bool KernelMroute::serve(unsigned limit, const std::function<void(const Upcall &)> &take)
{
    for (; limit > 0 && !waiting_.empty(); --limit) {
        const Upcall upcall = waiting_.back();
        waiting_.pop_back();
        take(upcall);
    }
    return !waiting_.empty();
}

uint64_t KernelMroute::lost_upcalls() const
{
    std::array<uint32_t, SK_MEMINFO_VARS> info{};
    socklen_t size = sizeof(info);
    if (fd_ < 0) {
        return given_up_;
    }
    getsockopt(fd_, SOL_SOCKET, SO_MEMINFO, info.data(), &size);
    return given_up_ + info[SK_MEMINFO_DROPS];
}

// The register interface comes with its virtual one.
int KernelMroute::lead(unsigned vif, uint32_t if_index)
{
    char name[IF_NAMESIZE];
    if (table_ == 0 || vif >= MAX_VIFS) {
        return 0;
    }
    if (!led_[vif].empty()) {
        return EADDRINUSE;
    }
    if (if_index == mcastd::PIM_REGISTER_INTERFACE) {
        return lead(vif, calls_.register_device + std::to_string(table_));
    }
    return if_indextoname(if_index, name) == nullptr ? errno : lead(vif, std::string(name));
}

int KernelMroute::lead(unsigned vif, const std::string &name)
{
    const int error = rules_.lead(name, table_);
    if (error == 0) {
        led_[vif] = name;
    }
    return error;
}

void KernelMroute::lead_no_more(unsigned vif)
{
    if (vif < MAX_VIFS && !led_[vif].empty()) {
        rules_.lead_no_more(std::exchange(led_[vif], {}), table_);
    }
}

// PIM off also switches the reports of packets on a wrong interface off.
int KernelMroute::switch_pim(bool on)
{
    const int value = on ? 1 : 0;
    const int one = 1;
    const int error = set_option(fd_, calls_.level, calls_.pim, &value, sizeof(value));
    return on ? error : set_option(fd_, calls_.level, calls_.assert, &one, sizeof(one));
}

// The rule comes first and goes last: in between the packets would be told to a table that does not know
// their interface.
int KernelMroute::add_vif(unsigned vif, uint32_t if_index)
{
    const bool is_register = if_index == mcastd::PIM_REGISTER_INTERFACE;
    int error = fd_ < 0 ? ENOTCONN : lead(vif, if_index);
    if (error != 0) {
        return error;
    }
    error = is_register ? switch_pim(true) : 0;
    error = error != 0 ? error : calls_.add_vif(fd_, vif, if_index);
    if (error != 0) {
        if (is_register) {
            switch_pim(false);
        }
        lead_no_more(vif);
    } else if (is_register) {
        register_vif_ = static_cast<int>(vif);
    }
    return error;
}

int KernelMroute::delete_vif(unsigned vif)
{
    const int error = fd_ < 0 ? ENOTCONN : calls_.delete_vif(fd_, vif);
    if (static_cast<int>(vif) == register_vif_) {
        register_vif_ = -1;
        switch_pim(false);
    }
    lead_no_more(vif);
    return error;
}

int KernelMroute::set_entry(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group, unsigned parent,
                            uint32_t outgoing)
{
    return fd_ < 0 ? ENOTCONN : calls_.change_entry(fd_, true, source, group, parent, outgoing);
}

int KernelMroute::delete_entry(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group)
{
    return fd_ < 0 ? ENOTCONN : calls_.change_entry(fd_, false, source, group, 0, 0);
}

std::optional<EntryCounters> KernelMroute::counters(const MCAST_ADDR_S &source, const MCAST_ADDR_S &group)
{
    EntryCounters result;
    if (fd_ < 0 || calls_.counters(fd_, source, group, &result) != 0) {
        return std::nullopt;
    }
    return result;
}

} // namespace mribd
