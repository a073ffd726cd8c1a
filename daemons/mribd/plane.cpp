#include "daemons/mribd/plane.h"

#include <algorithm>
#include <fcntl.h>
#include <new>
#include <sys/resource.h>

#include "daemons/common/descriptor.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/mribd/address.h"

namespace mribd
{
namespace
{

constexpr uint32_t SERVE_RETRY_MS = 10000;
// How often refused memberships are asked for while there is room.
constexpr uint32_t ASK_AGAIN_MS = 10000;
constexpr uint32_t RULES_RETRY_MS = 1000;

// Descriptors that instances leave for clients, or a quarter of all when that is less.
constexpr rlim_t LEFT_FOR_CLIENTS = 64;

// The kernel gives out the lowest number that is free.
bool only_few_descriptors_left()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) {
        return false;
    }
    const mcastd::Descriptor lowest(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const rlim_t left = std::min(LEFT_FOR_CLIENTS, limit.rlim_cur / 4);
    return !lowest.valid() || static_cast<rlim_t>(lowest.get()) >= limit.rlim_cur - left;
}

} // namespace

Plane::Plane(uint8_t family, const PlaneSettings &settings, mcastd::Reactor &reactor, MCAST_TMR_S *timers,
             const HostEnvironment &environment)
    : settings_(settings), reactor_(reactor), timers_(timers), environment_(environment),
      budget_(settings.member_limit), rules_(family),
      common_(instance_key(family), settings, reactor, timers, budget_, environment, rules_, registers_),
      routers_(common_.router()), current_view_(routers_), msdp_(routers_.common(), settings.entry_limit),
      server_(reactor, Backend{routers_, current_view_, msdp_, users_, budget_}),
      answer_clock_(reactor, [this] { routers_.pass_answer_tick(); })
{
    common_.router().await_answers(true);
}

Plane::~Plane()
{
    mcastd::timer_stop(timers_, serve_retry_);
    mcastd::timer_stop(timers_, ask_again_);
    mcastd::timer_stop(timers_, rules_retry_);
    // First of all: what the clients leave behind needs no withdrawing one by one any more.
    common_.shut();
    for (const auto &[vrf_index, instance] : others_) {
        instance->shut();
    }
}

KernelMroute::OpenResult Plane::open()
{
    // Before the kernel's table: a second mribd is then told that there is a first.
    if (!server_.open()) {
        return KernelMroute::OpenResult::Failed;
    }
    const KernelMroute::OpenResult result = common_.open();
    if (result == KernelMroute::OpenResult::Ready) {
        rules_.begin();
    }
    return result;
}

// Begins to serve the instance. What Failed may be possible later.
KernelMroute::OpenResult Plane::serve(uint16_t vrf_index)
{
    auto instance = std::make_unique<Instance>(instance_key(family(), vrf_index), settings_, reactor_,
                                               timers_, budget_, environment_, rules_, registers_);
    KernelMroute::OpenResult result = KernelMroute::OpenResult::Failed;
    if (only_few_descriptors_left()) {
        mcastd::log_warning("%s is not served: there are too few descriptors (ulimit -n)",
                            instance_name(instance_key(family(), vrf_index)).c_str());
    } else {
        result = instance->open();
    }
    if (result == KernelMroute::OpenResult::Ready) {
        const auto place = others_.insert_or_assign(vrf_index, std::move(instance)).first;
        try {
            routers_.add(place->second->router());
            place->second->router().await_answers(true);
        } catch (const std::bad_alloc &) {
            others_.erase(place);
            throw;
        }
    }
    return result;
}

void Plane::configure_again()
{
    configure(Config(config_));
}

void Plane::configure(const Config &config)
{
    config_ = config;
    mcastd::timer_stop(timers_, serve_retry_);
    lacks_instance_ = true; // should memory end on the way
    for (auto next = others_.begin(); next != others_.end();) {
        const auto current = next++;
        if (!config.instances.contains(current->first)) {
            routers_.remove(current->first);
            others_.erase(current);
        }
    }
    constexpr auto READY = KernelMroute::OpenResult::Ready;
    Config served = config;
    bool lacks_one = false;
    for (auto &[vrf_index, instance] : served.instances) {
        const auto result = routers_.find(vrf_index) == nullptr ? serve(vrf_index) : READY;
        lacks_one |= result == KernelMroute::OpenResult::Failed;
        if (result != READY) {
            instance.enabled = false; // as the clients are to see it
        }
    }
    current_view_.configure(served);
    if (family() == MCAST_FAMILY_IPV4) {
        msdp_.configure(config);
    }
    // The file says which interfaces are in an instance, and so by which a source can be reached.
    links_changed();
    routes_changed(any_address(family()), 0);
    lacks_instance_ = lacks_one;
}

void Plane::links_changed()
{
    common_.links_changed();
    for (const auto &[vrf_index, instance] : others_) {
        instance->links_changed();
    }
    current_view_.touch();
}

void Plane::link_renamed(uint32_t if_index)
{
    for (const auto &[vrf_index, router] : routers_.all()) {
        router->link_renamed(if_index);
    }
    links_changed();
}

void Plane::link_removed(uint32_t if_index)
{
    for (const auto &[vrf_index, router] : routers_.all()) {
        router->link_removed(if_index);
    }
    links_changed();
}

void Plane::routes_changed(const MCAST_ADDR_S &prefix, unsigned length)
{
    for (const auto &[vrf_index, router] : routers_.all()) {
        router->routes_changed(prefix, length);
    }
}

bool Plane::settle()
{
    bool more = common_.settle();
    size_t held = budget_.taken() + common_.router().forwarding().entry_count();
    for (const auto &[vrf_index, instance] : others_) {
        more |= instance->settle();
        held += instance->router().forwarding().entry_count();
    }
    server_.flush();
    if (routers_.awaits_answers() && !answer_clock_.start()) {
        routers_.pass_answer_tick(); // without a clock nobody waits longer than for two rounds
        more = true;
    }
    memory_.round(held);
    try_again_later();
    return more;
}

// As long as something is left to be done the next round starts its timer again.
void Plane::try_again_later()
{
    if ((server_.has_refused() || msdp_.lacks_local()) && !ask_again_.running()) {
        const auto due = [](void *owner) { static_cast<Plane *>(owner)->ask_refused_again(); };
        mcastd::timer_try_start(timers_, ask_again_, ASK_AGAIN_MS, due, this);
    }
    if (lacks_instance_ && !serve_retry_.running()) {
        const auto due = [](void *owner) { static_cast<Plane *>(owner)->configure_again(); };
        mcastd::timer_try_start(timers_, serve_retry_, SERVE_RETRY_MS, due, this);
    }
    if (rules_.has_left() && !rules_retry_.running()) {
        const auto due = [](void *owner) { static_cast<Plane *>(owner)->rules_.remove_left(); };
        mcastd::timer_try_start(timers_, rules_retry_, RULES_RETRY_MS, due, this);
    }
}

void Plane::ask_refused_again()
{
    if (msdp_.lacks_local() && !mcastd::memory_is_short()) {
        msdp_.take_all_local();
    }
    server_.ask_refused_again();
}

FamilyStatus Plane::status() const
{
    return FamilyStatus(server_);
}

} // namespace mribd
