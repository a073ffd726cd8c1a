/*
 * mribd: the multicast routing information base process of the reference router. It serves the MRIB channel,
 * keeps what its clients report, and programs the kernel's multicast forwarding, IPv4 and IPv6.
 *
 *     clients --channel--> ChannelServer --> Session --> Router --> MemberTable, GmpState
 *     kernel  --upcalls--> KernelMroute  ------------->    |
 *     links, routes -----> HostEnvironment ----------->    +------> VifTable, Forwarding --> KernelMroute
 *     configuration -----> CurrentView, MsdpExchange --> Session --channel--> clients
 *
 * A Plane holds this chain for one family, from Router on once for each instance. All of it runs on one
 * thread in the daemon frame's event loop; what an event changes is worked off by settle after each round, a
 * bounded amount at a time.
 */
#include "daemons/mribd/daemon.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <utility>
#include <vector>

#include "daemons/common/frame.h"
#include "daemons/common/log.h"
#include "daemons/common/service_start.h"
#include "daemons/common/services.h"
#include "daemons/mribd/address.h"
#include "daemons/mribd/control.h"
#include "daemons/mribd/host_environment.h"
#include "daemons/mribd/plane.h"
#include "daemons/mribd/status.h"
#include "mcast/service.h"

namespace mribd
{
namespace
{

void warn_of_missing_vpns(const Config &config)
{
    for (const auto &[vrf_index, instance] : config.instances) {
        if (MCAST_VrfIsExist(vrf_index) != MCAST_TRUE) {
            mcastd::log_warning("instance %u of [[mribd.instance]] is not a [[vpn]]: the clients are told "
                                "of it, but no interface can belong to it",
                                unsigned{vrf_index});
        }
    }
}

class Mribd final : public mcastd::Daemon
{
public:
    Mribd(mcastd::Frame &frame, const PlaneSettings &settings) : frame_(frame), settings_(settings)
    {
    }

    TakeOver read_config(mcastd::ConfigTable &table) override
    {
        return [this, config = mribd::read_config(table)] {
            warn_of_missing_vpns(config);
            for (const auto &plane : planes_) {
                plane->configure(config);
            }
        };
    }

    bool open() override
    {
        if (!environment_.open(frame_.reactor().descriptor(), events())) {
            return false;
        }
        mcastd::start_forwarding();
        return open_planes() && open_control();
    }

    bool start() override
    {
        mcastd::log_info("ready");
        return true;
    }

    bool round() override
    {
        bool more = false;
        environment_.settle();
        for (const auto &plane : planes_) {
            more |= plane->settle();
        }
        return more;
    }

    mcastd::TextParts status() override
    {
        std::vector<FamilyStatus> families;
        for (const auto &plane : planes_) {
            families.push_back(plane->status());
        }
        return status_parts(std::move(families));
    }

    bool resynchronise() override
    {
        for (const auto &plane : planes_) {
            plane->resynchronise();
        }
        return true;
    }

private:
    HostEnvironment::Events events()
    {
        HostEnvironment::Events events;
        events.links_changed = [this] {
            for (const auto &plane : planes_) {
                plane->links_changed();
            }
        };
        events.link_renamed = [this](uint32_t if_index) {
            for (const auto &plane : planes_) {
                plane->link_renamed(if_index);
            }
        };
        events.link_removed = [this](uint32_t if_index) {
            for (const auto &plane : planes_) {
                plane->link_removed(if_index);
            }
        };
        events.routes_changed = [this](uint8_t family, const uint8_t *prefix, unsigned length) {
            routes_changed(family, prefix, length);
        };
        return events;
    }

    // Family 0: of both, all of them.
    void routes_changed(uint8_t family, const uint8_t *prefix, unsigned length)
    {
        for (const auto &plane : planes_) {
            const uint8_t own = plane->family();
            if (family == own) {
                plane->routes_changed(make_address(own, prefix), length);
            } else if (family == 0) {
                plane->routes_changed(any_address(own), 0);
            }
        }
    }

    // A family that the kernel does not route is left out; anything else that is wrong ends the start.
    bool open_planes()
    {
        for (const uint8_t family : {uint8_t{MCAST_FAMILY_IPV4}, uint8_t{MCAST_FAMILY_IPV6}}) {
            auto plane =
                std::make_unique<Plane>(family, settings_, frame_.reactor(), frame_.timers(), environment_);
            const KernelMroute::OpenResult result = plane->open();
            if (result == KernelMroute::OpenResult::Failed) {
                return false;
            }
            if (result == KernelMroute::OpenResult::Ready) {
                planes_.push_back(std::move(plane));
            }
        }
        if (planes_.empty()) {
            mcastd::log_error("there is no family to serve");
        }
        return !planes_.empty();
    }

    bool open_control()
    {
        std::vector<const ChannelServer *> families;
        for (const auto &plane : planes_) {
            families.push_back(&plane->server());
        }
        offer_control(frame_.control(), std::move(families));
        return frame_.control().open(mcastd::CONTROL_PORT_MRIBD);
    }

    mcastd::Frame &frame_;
    const PlaneSettings settings_;
    HostEnvironment environment_;
    std::vector<std::unique_ptr<Plane>> planes_;
};

} // namespace

void add_options(mcastd::Options &options, PlaneSettings &settings)
{
    options.app()
        .add_option("--idle-timeout", settings.idle_period_s,
                    "Seconds without a packet after which a forwarding entry is removed")
        ->check(CLI::Range(1u, 86400u))
        ->capture_default_str();
    options.app()
        .add_option("--max-entries", settings.entry_limit,
                    "Most forwarding entries of a family in an instance")
        ->check(CLI::Range(1u, 16777216u))
        ->capture_default_str();
    options.app()
        .add_option("--max-members", settings.member_limit,
                    "Most memberships of a family that clients may report, all instances together; a client "
                    "may have seven eighths of them, an interface half")
        ->check(CLI::Range(16u, 16777216u))
        ->capture_default_str();
    options.app()
        .add_option("--hold-time", settings.hold_s,
                    "Seconds for which what a GMP daemon wanted is kept when it vanished, so that its "
                    "successor finds forwarding as it was; 0: not at all")
        ->check(CLI::Range(0u, 86400u))
        ->capture_default_str();
    options.add_config("Configuration file (TOML), read again on SIGHUP; none is needed",
                       mcastd::Options::Config::Optional);
}

int run_daemon(const mcastd::Options &options, const PlaneSettings &settings)
{
    return mcastd::run_in_frame<Mribd>(options, settings);
}

} // namespace mribd
