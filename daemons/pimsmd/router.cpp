/*
 * Links come and go, neighbours with them; routes, RPs and neighbours decide whom entries ask. All entries are looked at when
 * that may be other, which takes a moment when there are many: so not for a neighbour over which no way leads, and once in
 * a while at most however much changes.
 */
#include "daemons/pimsmd/router.h"

#include <algorithm>
#include <bit>

#include "daemons/common/log.h"
#include "mcast/acl_filter.h"

namespace pimsmd
{
namespace
{

bool same_ranges(const std::vector<GroupRange> &first, const std::vector<GroupRange> &second)
{
    return std::equal(
        first.begin(), first.end(), second.begin(), second.end(),
        [](const GroupRange &one, const GroupRange &other) { return one.prefix == other.prefix; });
}

bool same_candidate(const std::optional<bsr::Weight> &first, const std::optional<bsr::Weight> &second)
{
    return first && second
               ? first->priority == second->priority && same_address(first->address, second->address)
               : first.has_value() == second.has_value();
}

bool same_rp(const std::optional<Address> &first, const std::optional<Address> &second)
{
    return first && second ? same_address(*first, *second) : first.has_value() == second.has_value();
}

bool same_election(const BsrSettings &first, const BsrSettings &second)
{
    return same_candidate(first.candidate, second.candidate) &&
           first.hash_mask_length == second.hash_mask_length && first.period_ms == second.period_ms;
}

bool same_candidate_rp(const BsrSettings &first, const BsrSettings &second)
{
    return same_rp(first.rp, second.rp) && first.rp_priority == second.rp_priority &&
           first.rp_holdtime_s == second.rp_holdtime_s && same_ranges(first.rp_ranges, second.rp_ranges);
}

MRIB_GMP_VRF_KEY_S key_of(uint16_t family)
{
    return {static_cast<uint8_t>(family), 0};
}

} // namespace

Router::Router(uint16_t family, MsQueue &queue, Transmitter &transmitter, UnicastRoutes &routes,
               Random random, const Config &config)
    : family_(family), queue_(queue), transmitter_(transmitter), random_(std::move(random)), config_(config),
      rpf_(routes), buffer_(MAX_MESSAGE_SIZE), rp_set_(family, queue, *this, counters_),
      trees_(family, queue, *this, counters_, config.trees)
{
    rp_set_.set_static(config_.rps);
    bsr_ = std::make_unique<Bsr>(family, queue, static_cast<BsrSurroundings &>(*this), rp_set_, counters_,
                                 config_.bsr);
}

Router::~Router() = default;

void Router::configure(const Config &config)
{
    const BsrSettings before = config_.bsr;
    config_ = config;
    trees_.set(config.trees);
    rp_set_.set_static(config.rps);
    configure_bsr(before);
    for (const std::unique_ptr<Link> &one : links_) {
        if (one != nullptr) {
            one->set(one->state(), settings_of(one->state()));
        }
    }
    reroute_wanted_ = true; // lists may say other RPs
}

// The RPs that are known stay until their holdtimes end, or the next Bootstrap says others.
void Router::configure_bsr(const BsrSettings &before)
{
    const BsrSettings &now = config_.bsr;
    if (!same_candidate_rp(now, before)) {
        bsr_->set_candidate_rp(now);
    }
    if (!same_election(now, before)) {
        if (!now.candidate) {
            bsr_->resign();
        }
        bsr_.reset();
        bsr_ = std::make_unique<Bsr>(family_, queue_, static_cast<BsrSurroundings &>(*this), rp_set_,
                                     counters_, now);
    }
}

HelloSettings Router::settings_of(const LinkState &state) const
{
    HelloSettings settings;
    const auto own = config_.interfaces.find(state.name);
    const InterfaceConfig of_link = own != config_.interfaces.end() ? own->second : InterfaceConfig{};
    settings.hello_s = of_link.hello_s.value_or(config_.hello_s);
    settings.dr_priority = of_link.dr_priority.value_or(config_.dr_priority);
    settings.lan_delay = {false, config_.propagation_ms, config_.override_ms};
    settings.most_neighbours = config_.most_neighbours;
    return settings;
}

void Router::set_dr_priority(unsigned link, uint32_t priority)
{
    if (links_[link] != nullptr) {
        HelloSettings settings = links_[link]->settings();
        settings.dr_priority = priority;
        links_[link]->set(links_[link]->state(), settings);
    }
}

std::optional<unsigned> Router::link_of(uint32_t if_index) const
{
    const auto found = by_index_.find(if_index);
    return found != by_index_.end() ? std::optional(found->second) : std::nullopt;
}

bool Router::link_up(const LinkState &state)
{
    if (const auto number = link_of(state.if_index)) {
        Link &known = *links_[*number];

        if (known.state() == state) {
            return true;
        }
        if (same_address(known.state().address, state.address)) {
            known.set(state, settings_of(state));
            return true;
        }
        // To its neighbours another address is another router.
        take_down(*number);
        set_up(*number, state);
        return true;
    }
    const auto free = std::find(links_.begin(), links_.end(), nullptr);
    if (free == links_.end()) {
        mcastd::log_warning("%s: PIM does not run there, for it runs on %u interfaces", state.name.c_str(),
                            MOST_PIM_LINKS);
        return false;
    }
    set_up(static_cast<unsigned>(free - links_.begin()), state);
    return true;
}

void Router::set_up(unsigned number, const LinkState &state)
{
    by_index_[state.if_index] = number;
    links_[number] = std::make_unique<Link>(number, queue_, transmitter_, static_cast<LinkOwner &>(*this),
                                            state, settings_of(state));
    mcastd::log_info("%s: PIM runs, from %s", state.name.c_str(), to_text(state.address).c_str());
    trees_.set_dr(number, links_[number]->neighbours().is_dr());
    if (mrib_ != nullptr) {
        mrib_->link_came(number);
    }
    forget_ways();
    reroute_wanted_ = true;
}

void Router::link_down(uint32_t if_index)
{
    if (const auto number = link_of(if_index)) {
        take_down(*number);
        reroute_wanted_ = true;
    }
}

// What was on its way to the link's neighbours is of no use any more.
void Router::take_down(unsigned number)
{
    const std::unique_ptr<Link> gone = std::move(links_[number]);
    const uint32_t if_index = gone->state().if_index;
    gone->say_goodbye();
    by_index_.erase(if_index);
    std::erase_if(outgoing_, [number](const auto &one) { return one.first.first == number; });
    forget_ways();
    trees_.forget_link(number);
    roles_stale_ &= ~(Links{1} << number);
    std::erase_if(restarted_, [number](const PackerKey &one) { return one.first == number; });
    std::erase_if(gone_, [number](const PackerKey &one) { return one.first == number; });
    mcastd::log_info("%s: PIM does not run any more", gone->state().name.c_str());
    if (mrib_ != nullptr) {
        mrib_->link_gone(number, if_index);
    }
}

void Router::set_own(std::set<Address, AddressLess> own)
{
    own_ = std::move(own);
    routes_changed();
}

void Router::routes_changed()
{
    forget_ways();
    reroute_wanted_ = true;
}

bool Router::has_walks() const
{
    return reroute_wanted_ || roles_stale_ != 0 || !restarted_.empty() || !gone_.empty();
}

// One of the things that concern all entries.
void Router::walk()
{
    if (roles_stale_ != 0) {
        const auto number = static_cast<unsigned>(std::countr_zero(roles_stale_));
        const Link *on = link(number);

        roles_stale_ &= roles_stale_ - 1;
        if (on != nullptr) {
            trees_.set_dr(number, on->neighbours().is_dr());
        }
        if (on != nullptr && mrib_ != nullptr) {
            mrib_->dr_changed(number);
        }
    } else if (!gone_.empty()) {
        const PackerKey who = gone_.extract(gone_.begin()).value();
        trees_.neighbour_gone(who.first, who.second);
    } else if (!restarted_.empty()) {
        const PackerKey who = restarted_.extract(restarted_.begin()).value();
        trees_.neighbour_restarted(who.first, who.second);
    } else if (reroute_wanted_) {
        reroute_wanted_ = false;
        trees_.routes_changed();
    }
}

bool Router::settle()
{
    while (has_walks() && !pause_.running()) {
        walk();
        walked_ += trees_.entries() + 1;
        if (walked_ >= WALKED_AT_ONCE) {
            walked_ = 0;
            queue_.start(
                pause_, WALK_PAUSE_MS, [](void *) {}, nullptr);
        }
    }
    const bool more = trees_.settle(SETTLED_AT_ONCE);
    flush();
    return more;
}

void Router::close()
{
    flush();
    bsr_->close();
    for (const std::unique_ptr<Link> &one : links_) {
        if (one != nullptr) {
            one->say_goodbye();
        }
    }
}

std::optional<Address> Router::rp_of(const Address &group)
{
    const MRIB_GMP_VRF_KEY_S key = key_of(family_);
    if (MCAST_IsSSMGrp(&key, config_.ssm_list, &group) == MCAST_TRUE) {
        return std::nullopt;
    }
    return rp_set_.rp_of(group);
}

Route Router::route_to(const Address &address)
{
    Route route;
    route.neighbour = any_address(family_);
    const std::optional<UnicastRoute> &found = rpf_.look_up(address);
    if (found && found->local) {
        route.preference = route.metric = 0;
        return route;
    }
    const auto number = found ? link_of(found->if_index) : std::nullopt;
    if (!number) {
        return route;
    }
    const Neighbour *neighbour = links_[*number]->neighbours().owner_of(found->next_hop);
    route.link = static_cast<int>(*number);
    route.preference = found->preference;
    route.metric = found->metric;
    route.connected = found->connected;
    if (neighbour != nullptr) {
        route.neighbour = neighbour->address;
        asked_.insert({*number, neighbour->address});
    }
    return route;
}

std::optional<Address> Router::source_towards(const Address &address)
{
    const std::optional<UnicastRoute> &found = rpf_.look_up(address);
    if (!found) {
        return std::nullopt;
    }
    return found->local ? address : found->source;
}

LinkFacts Router::facts_of(unsigned number)
{
    LinkFacts facts;
    facts.own = any_address(family_);
    if (const Link *on = link(number)) {
        const Neighbours &neighbours = on->neighbours();

        facts.own = on->state().address;
        facts.prune_delay_ms = neighbours.size() > 1 ? neighbours.join_prune_override_ms() : 0;
        facts.override_ms = neighbours.override_ms();
        facts.suppresses = neighbours.suppresses_joins();
    }
    return facts;
}

bool Router::is_own(const Address &address)
{
    return own_.contains(address);
}

bool Router::switches_to_spt(const Address &group, const Address &source)
{
    const MRIB_GMP_VRF_KEY_S key = key_of(family_);
    return config_.spt_switch == SptSwitch::Immediate &&
           (config_.spt_list == MCAST_NONE ||
            MCAST_IsAclPermit(&key, config_.spt_list, &source, &group) == MCAST_TRUE);
}

uint32_t Router::random(uint32_t most)
{
    return random_(most);
}

uint32_t Router::draw(uint32_t most)
{
    return random_(most);
}

void Router::outputs_changed(const Address &group, const Address &source)
{
    if (mrib_ != nullptr) {
        mrib_->entry_changed(group, source);
    }
}

void Router::rps_changed(const Prefix &)
{
    reroute_wanted_ = true;
}

void Router::forget_ways()
{
    rpf_.forget();
    asked_.clear();
}

} // namespace pimsmd
