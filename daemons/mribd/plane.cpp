#include "daemons/mribd/plane.h"

#include "daemons/common/log.h"
#include "daemons/mribd/address.h"
#include "daemons/mribd/status.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <sys/epoll.h>

namespace mribd
{
namespace
{

// What one wake-up reads of the routing socket, and what a round serves, before timers and clients have their
// turn. Reading is far cheaper than serving, and makes room in the kernel.
constexpr unsigned READ_PER_WAKE = 1024;
constexpr unsigned SERVED_PER_ROUND = 256;

} // namespace

Plane::Plane(uint8_t family, const PlaneSettings &settings, mcastd::Reactor &reactor,
             const HostEnvironment &environment)
    : reactor_(reactor), kernel_(family),
      timers_(settings.idle_period_s, [this](Entry *entry) { router_.check_idle(entry); }),
      router_(family, kernel_, environment, timers_, settings.entry_limit), policy_(router_),
      msdp_(router_, settings.entry_limit), lost_clients_(router_, settings.hold_s),
      server_(reactor, Backend{router_, policy_, msdp_, users_})
{
}

Plane::~Plane()
{
    if (kernel_.descriptor() >= 0) {
        reactor_.remove(kernel_.descriptor());
    }
    // First of all, in one step: what the clients leave behind needs no withdrawing one by one any more.
    kernel_.shut();
}

KernelMroute::OpenResult Plane::open(TIMER_SERVICE timers)
{
    const char *family = family_name(router_.family());
    // Before the kernel's table: a second mribd is then told that there is a first.
    if (!server_.open()) {
        return KernelMroute::OpenResult::Failed;
    }
    std::string reason;
    const KernelMroute::OpenResult result = kernel_.open(&reason);
    if (result == KernelMroute::OpenResult::NotSupported) {
        mcastd::log_warning("%s is not served: %s", family, reason.c_str());
        return result;
    }
    if (result == KernelMroute::OpenResult::Failed) {
        mcastd::log_error("%s: %s", family, reason.c_str());
        return result;
    }
    if (!timers_.open(timers) || !lost_clients_.open(timers)) {
        mcastd::log_error("%s: cannot create a timer", family);
        return KernelMroute::OpenResult::Failed;
    }
    if (!reactor_.add(kernel_.descriptor(), EPOLLIN, [this](uint32_t) { receive(); })) {
        mcastd::log_error("%s: cannot watch the routing socket: %s", family, std::strerror(errno));
        return KernelMroute::OpenResult::Failed;
    }
    return result;
}

void Plane::configure(const Config &config)
{
    policy_.configure(config);
    if (router_.family() == MCAST_FAMILY_IPV4) {
        msdp_.configure(config);
    }
}

void Plane::receive()
{
    kernel_.receive(READ_PER_WAKE);
    report_losses();
}

// Once per doubling, so that a flood of sources does not become a flood of messages.
void Plane::report_losses()
{
    const uint64_t lost = kernel_.lost_upcalls();
    if (lost > 2 * reported_losses_) {
        reported_losses_ = lost;
        mcastd::log_warning("%s: the kernel dropped %" PRIu64
                            " reports of new sources so far; they are repeated "
                            "with the sources' next packets",
                            family_name(router_.family()), reported_losses_);
    }
}

bool Plane::settle()
{
    bool more =
        kernel_.serve(SERVED_PER_ROUND, [this](const Upcall &upcall) { router_.take_upcall(upcall); });
    more |= router_.settle();
    server_.flush();
    return more;
}

std::string Plane::status() const
{
    return status_text(server_, kernel_.lost_upcalls());
}

} // namespace mribd
