/*
 * Local sources are those from which packets come over a link where this router has an address of their
 * subnet. The forwarding entries know them; they are kept here once more, while there is a rendezvous point,
 * in a table whose walk can be interrupted: a replay of many goes out as the client reads.
 *
 * Remote sources and switches outlive the connection of the client that reported them, so that a restart of
 * the MSDP daemon interrupts nothing; its re-send in brackets drops what is no longer true.
 */
#include "daemons/mribd/msdp_exchange.h"

#include <utility>

#include "daemons/common/log.h"

namespace mribd
{

MsdpExchange::MsdpExchange(Router &router, uint32_t remote_limit)
    : router_(router), remote_limit_(remote_limit)
{
    add_instance(PUBLIC_INSTANCE);
    registered_.on_erased([this](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note) {
        if (pim_runs_ && local_.erase(group, source)) {
            tell_local(group, source, note, false);
        }
    });
    router_.on_local_source([this](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, bool present) {
        take_local(group, source, present);
    });
}

MsdpExchange::~MsdpExchange()
{
    router_.on_local_source(nullptr);
}

void MsdpExchange::on_local_source(std::function<void(const LocalSource &)> told)
{
    told_ = std::move(told);
}

void MsdpExchange::on_remote_source(std::function<void(const RemoteSource &)> told)
{
    remote_told_ = std::move(told);
}

MsdpExchange::Reported &MsdpExchange::add_instance(uint16_t vrf_index)
{
    const auto [place, is_new] = instances_.try_emplace(vrf_index);
    if (is_new) {
        place->second.remote.on_erased(
            [this, vrf_index](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t) {
                if (remote_told_) {
                    remote_told_({vrf_index, group, source, false});
                }
            });
    }
    return place->second;
}

void MsdpExchange::on_request(std::function<void(const MCAST_ADDR_S &group)> requested)
{
    requested_ = std::move(requested);
}

void MsdpExchange::group_wanted(const MCAST_ADDR_S &group) const
{
    if (requested_ && instances_.at(PUBLIC_INSTANCE).request_enable.enable) {
        requested_(group);
    }
}

void MsdpExchange::tell_local(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note,
                              bool present) const
{
    if (told_) {
        told_({group, source, rp_be(note), present});
    }
}

void MsdpExchange::tell_all(bool present) const
{
    SgTable::Cursor cursor;
    local_.visit(&cursor, [&](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note) {
        tell_local(group, source, note, present);
        return true;
    });
}

void MsdpExchange::configure(const Config &config)
{
    std::erase_if(instances_, [&config](const auto &known) {
        return known.first != PUBLIC_INSTANCE && !config.instances.contains(known.first);
    });
    for (const auto &[vrf_index, instance] : config.instances) {
        add_instance(vrf_index);
    }
    const auto found = config.instances.find(PUBLIC_INSTANCE);
    const bool serves = found != config.instances.end() && found->second.enabled;
    const uint32_t rp_be = serves ? found->second.rp_be : 0;
    if (rp_be == rp_be_) {
        return;
    }
    if (!pim_runs_) {
        tell_all(false);
        local_.clear();
    }
    rp_be_ = rp_be;
    router_.watch_sources(rp_be != 0);
    take_all_local();
}

void MsdpExchange::take_all_local()
{
    lacks_local_ = false;
    if (pim_runs_) {
        take_registered();
    } else if (rp_be_ != 0) {
        router_.visit_local_sources([this](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source) {
            take_local(group, source, true);
        });
    }
}

void MsdpExchange::take_local(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, bool present)
{
    if (rp_be_ == 0 || pim_runs_) {
        return;
    }
    if (present) {
        const SgTable::Result result = local_.set(group, source);
        if (result == SgTable::Result::NoMemory) {
            ++refused_;
            lacks_local_ = true;
        }
        if (result != SgTable::Result::Added) {
            return;
        }
    } else if (!local_.erase(group, source)) {
        return;
    }
    tell_local(group, source, 0, present);
}

MsdpExchange::Reported *MsdpExchange::find(uint16_t vrf_index)
{
    const auto found = instances_.find(vrf_index);
    return found == instances_.end() ? nullptr : &found->second;
}

uint32_t MsdpExchange::remote_count() const
{
    uint32_t count = 0;
    for (const auto &[vrf_index, instance] : instances_) {
        count += instance.remote.size();
    }
    return count;
}

MsdpExchange::Result MsdpExchange::add_remote(uint16_t vrf_index, const MCAST_ADDR_S &group,
                                              const MCAST_ADDR_S &source, uint8_t entry)
{
    Reported *instance = find(vrf_index);
    if (instance == nullptr) {
        return Result::UnknownInstance;
    }
    const bool fits = remote_count() < remote_limit_ || instance->remote.contains(group, source);
    if (!fits) {
        if (refused_++ == 0) {
            mcastd::log_warning("remote sources beyond %u are not kept (option --max-entries)",
                                remote_limit_);
        }
        return Result::Refused;
    }
    const SgTable::Result result = instance->remote.set(group, source, entry);
    if (result == SgTable::Result::NoMemory) {
        ++refused_;
        return Result::NoMemory;
    }
    if (result == SgTable::Result::Added && remote_told_) {
        remote_told_({vrf_index, group, source, true});
    }
    return Result::Done;
}

MsdpExchange::Result MsdpExchange::remove_remote(uint16_t vrf_index, const MCAST_ADDR_S &group,
                                                 const MCAST_ADDR_S &source)
{
    Reported *instance = find(vrf_index);
    if (instance == nullptr) {
        return Result::UnknownInstance;
    }
    instance->remote.erase_matching(group, source);
    return Result::Done;
}

MsdpExchange::Result MsdpExchange::set_enable(Bracket kind, uint16_t vrf_index, bool enable)
{
    Reported *instance = find(vrf_index);
    if (instance == nullptr) {
        return Result::UnknownInstance;
    }
    (kind == Bracket::RequestEnables ? instance->request_enable : instance->encap_enable) = {enable, false};
    return Result::Done;
}

void MsdpExchange::begin(Bracket kind, ClientId client)
{
    owners_[static_cast<size_t>(kind)] = client;
    for (auto &[vrf_index, instance] : instances_) {
        if (kind == Bracket::RemoteSources) {
            instance.remote.mark_stale();
        } else {
            (kind == Bracket::RequestEnables ? instance.request_enable : instance.encap_enable).stale = true;
        }
    }
}

MsdpExchange::Result MsdpExchange::end(Bracket kind, ClientId client)
{
    if (owners_[static_cast<size_t>(kind)] != client) {
        return Result::Refused;
    }
    owners_[static_cast<size_t>(kind)] = 0;
    for (auto &[vrf_index, instance] : instances_) {
        if (kind == Bracket::RemoteSources) {
            swept_ += instance.remote.sweep();
            continue;
        }
        Switch &known = kind == Bracket::RequestEnables ? instance.request_enable : instance.encap_enable;
        if (known.stale) {
            known = {};
        }
    }
    return Result::Done;
}

void MsdpExchange::drop_client(ClientId client)
{
    for (ClientId &owner : owners_) {
        owner = owner == client ? 0 : owner;
    }
}

} // namespace mribd
