/*
 * An instance's table in the kernel:
 *
 *     public instance      the kernel's default table
 *     has a VRF device     the number of the device's routing table, where the kernel looks for its ports
 *     other instances      the instance's index; the two numbers that are default tables of the kernel, 253 for
 *                          IPv4 and 254 for IPv6, are replaced by the first number that no index can be
 */
#include "daemons/mribd/instance.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <sys/epoll.h>
#include <linux/rtnetlink.h>

#include "daemons/common/log.h"
#include "daemons/mribd/address.h"

namespace mribd
{
namespace
{

// What one wake-up reads of the routing socket, and what a round serves, before timers and clients have their
// turn. Reading is far cheaper than serving, and makes room in the kernel.
constexpr unsigned READ_PER_WAKE = 1024;
constexpr unsigned SERVED_PER_ROUND = 256;

constexpr uint32_t TABLE_RETRY_MS = 10000;

uint32_t table_of(uint16_t vrf_index, const HostEnvironment &environment)
{
    if (vrf_index == 0) {
        return 0;
    }
    if (const uint32_t table = environment.device_of(vrf_index).table) {
        return table;
    }
    const bool is_default = vrf_index == RT_TABLE_DEFAULT || vrf_index == RT_TABLE_MAIN;
    return is_default ? UINT16_MAX + 1u + vrf_index : vrf_index;
}

} // namespace

Instance::Instance(const MRIB_GMP_VRF_KEY_S &key, const PlaneSettings &settings, mcastd::Reactor &reactor,
                   MCAST_TMR_S *timers, MemberBudget &budget, const HostEnvironment &environment,
                   TableRules &rules, RegisterNumbers &registers)
    : reactor_(reactor), environment_(environment), timers_(timers),
      kernel_(rules, table_of(key.vrf_index, environment)),
      router_(key, kernel_, environment, budget, timers,
              {settings.entry_limit, settings.idle_period_s, &registers}),
      lost_clients_(router_, timers, settings.hold_s)
{
}

Instance::~Instance()
{
    mcastd::timer_stop(timers_, table_retry_);
    shut();
}

void Instance::shut()
{
    if (kernel_.descriptor() >= 0) {
        reactor_.remove(kernel_.descriptor());
    }
    kernel_.shut();
}

KernelMroute::OpenResult Instance::open()
{
    const std::string name = instance_name(router_.key());
    std::string reason;
    const KernelMroute::OpenResult result = kernel_.open(&reason);
    if (result == KernelMroute::OpenResult::NotSupported) {
        mcastd::log_warning("%s is not served: %s", name.c_str(), reason.c_str());
        return result;
    }
    if (result == KernelMroute::OpenResult::Failed) {
        mcastd::log_error("%s: %s", name.c_str(), reason.c_str());
        return result;
    }
    if (!reactor_.add(kernel_.descriptor(), EPOLLIN, [this](uint32_t) { receive(); })) {
        mcastd::log_error("%s: cannot watch the routing socket: %s", name.c_str(), std::strerror(errno));
        kernel_.shut();
        return KernelMroute::OpenResult::Failed;
    }
    return result;
}

void Instance::links_changed()
{
    const uint32_t table = table_of(router_.vrf_index(), environment_);
    if (table != kernel_.table()) {
        mcastd::log_info("%s: its multicast table is now %u", instance_name(router_.key()).c_str(), table);
        router_.leave_kernel();
        shut();
        kernel_.choose_table(table);
        move_to_table();
    }
    router_.links_changed();
}

// Until then nothing is forwarded; what the clients tell is kept.
void Instance::move_to_table()
{
    if (open() == KernelMroute::OpenResult::Ready) {
        mcastd::timer_stop(timers_, table_retry_);
    }
}

void Instance::try_table_again()
{
    move_to_table();
    router_.links_changed();
}

void Instance::receive()
{
    kernel_.receive(READ_PER_WAKE);
    report_losses();
}

// Once per doubling, so that a flood of sources does not become a flood of messages.
void Instance::report_losses()
{
    const uint64_t lost = kernel_.lost_upcalls();
    if (lost > 2 * reported_losses_) {
        reported_losses_ = lost;
        mcastd::log_warning("%s: the kernel dropped %" PRIu64
                            " reports of new sources so far; they are repeated "
                            "with the sources' next packets",
                            instance_name(router_.key()).c_str(), reported_losses_);
    }
}

bool Instance::settle()
{
    if (kernel_.descriptor() < 0) {
        const auto due = [](void *owner) { static_cast<Instance *>(owner)->try_table_again(); };
        if (!table_retry_.running()) {
            mcastd::timer_try_start(timers_, table_retry_, TABLE_RETRY_MS, due, this);
        }
        router_.tell_instance();
        return false; // there is nothing to settle with
    }
    const bool more =
        kernel_.serve(SERVED_PER_ROUND, [this](const Upcall &upcall) { router_.take_upcall(upcall); });
    return router_.settle() || more;
}

} // namespace mribd
