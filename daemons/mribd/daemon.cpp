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
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "daemons/common/control.h"
#include "daemons/common/frame.h"
#include "daemons/common/log.h"
#include "daemons/common/options.h"
#include "daemons/common/service_start.h"
#include "daemons/common/services.h"
#include "daemons/common/timer_loop.h"
#include "daemons/mribd/address.h"
#include "daemons/mribd/control.h"
#include "daemons/mribd/host_environment.h"
#include "daemons/mribd/plane.h"
#include "mcast/service.h"

namespace mribd
{
namespace
{

using Planes = std::vector<std::unique_ptr<Plane>>;

HostEnvironment::Events events_for(const Planes &planes)
{
    HostEnvironment::Events events;
    events.links_changed = [&planes] {
        for (const auto &plane : planes) {
            plane->links_changed();
        }
    };
    events.link_renamed = [&planes](uint32_t if_index) {
        for (const auto &plane : planes) {
            plane->link_renamed(if_index);
        }
    };
    events.link_removed = [&planes](uint32_t if_index) {
        for (const auto &plane : planes) {
            plane->link_removed(if_index);
        }
    };
    events.routes_changed = [&planes](uint8_t family, const uint8_t *prefix, unsigned length) {
        for (const auto &plane : planes) {
            const uint8_t own = plane->family();
            if (family == own) {
                plane->routes_changed(make_address(own, prefix), length);
            } else if (family == 0) {
                plane->routes_changed(any_address(own), 0);
            }
        }
    };
    return events;
}

// A family that the kernel does not route is left out; anything else that is wrong ends the start.
bool open_planes(mcastd::Frame &frame, MCAST_TMR_S *timers, const PlaneSettings &settings,
                 const HostEnvironment &environment, Planes *planes)
{
    for (const uint8_t family : {uint8_t{MCAST_FAMILY_IPV4}, uint8_t{MCAST_FAMILY_IPV6}}) {
        auto plane = std::make_unique<Plane>(family, settings, frame.reactor(), timers, environment);
        const auto result = plane->open();
        if (result == KernelMroute::OpenResult::Failed) {
            return false;
        }
        if (result == KernelMroute::OpenResult::Ready) {
            planes->push_back(std::move(plane));
        }
    }
    if (planes->empty()) {
        mcastd::log_error("there is no family to serve");
    }
    return !planes->empty();
}

// Nothing of a file that is wrong counts, which is logged; config then stays as it was.
bool load(const std::string &path, Config *config)
{
    Config fresh;
    std::string error;
    const auto read = [&fresh](mcastd::ConfigTable &table) { fresh = read_config(table); };
    if (!mcastd::load_config(path.c_str(), "mribd", read, &error)) {
        mcastd::log_error("%s", error.c_str());
        return false;
    }
    for (const auto &[vrf_index, instance] : fresh.instances) {
        if (MCAST_VrfIsExist(vrf_index) != MCAST_TRUE) {
            mcastd::log_warning(
                "instance %u of [[mribd.instance]] is no [[vpn]]: the clients are told of it, "
                "but nothing can be in it",
                unsigned{vrf_index});
        }
    }
    *config = std::move(fresh);
    return true;
}

void configure(const Config &config, const Planes &planes)
{
    for (const auto &plane : planes) {
        plane->configure(config);
    }
}

void attach(mcastd::Frame &frame, mcastd::TimerLoop &timers, const std::string &config_path,
            const Planes &planes)
{
    frame.on_resynchronise([&planes] {
        for (const auto &plane : planes) {
            plane->resynchronise();
        }
    });
    if (!config_path.empty()) {
        frame.on_reload([&config_path, &planes] {
            Config config;
            if (load(config_path, &config)) {
                configure(config, planes);
            } else {
                mcastd::log_warning("the configuration stays as it was");
            }
        });
    }
    frame.on_status([&planes] {
        std::string text;
        for (const auto &plane : planes) {
            text += plane->status();
        }
        return text;
    });
    frame.reactor().set_background([&timers, &planes] {
        bool more = false;
        for (const auto &plane : planes) {
            more |= plane->settle();
        }
        timers.set_wake_up();
        return more;
    });
}

bool open_control(mcastd::ControlServer &control, const Planes &planes)
{
    std::vector<const ChannelServer *> families;
    for (const auto &plane : planes) {
        families.push_back(&plane->server());
    }
    offer_control(control, std::move(families));
    return control.open(mcastd::CONTROL_PORT_MRIBD);
}

int serve(const mcastd::Options &options, mcastd::Frame &frame, const Settings &settings)
{
    mcastd::TimerLoop timers(frame.reactor());
    HostEnvironment environment;
    Planes planes;
    Config config;
    if (!timers.open() || !environment.open(frame.reactor().descriptor(), events_for(planes)) ||
        (!settings.config_path.empty() && !load(settings.config_path, &config))) {
        return EXIT_FAILURE;
    }
    mcastd::start_forwarding();
    if (!open_planes(frame, timers.manager(), settings.plane, environment, &planes) ||
        !options.start_trace()) {
        return EXIT_FAILURE;
    }
    if (!settings.config_path.empty()) {
        configure(config, planes);
    }
    mcastd::ControlServer control(frame.reactor());
    if (!open_control(control, planes)) {
        return EXIT_FAILURE;
    }
    attach(frame, timers, settings.config_path, planes);
    mcastd::log_info("ready");
    const int code = frame.run();
    frame.on_status(nullptr);
    frame.on_reload(nullptr);
    frame.on_resynchronise(nullptr);
    frame.reactor().set_background(nullptr);
    return code;
}

} // namespace

void add_options(mcastd::Options &options, Settings &settings)
{
    options.app()
        .add_option("--idle-timeout", settings.plane.idle_period_s,
                    "Seconds without a packet after which a forwarding entry is removed")
        ->check(CLI::Range(1u, 86400u))
        ->capture_default_str();
    options.app()
        .add_option("--max-entries", settings.plane.entry_limit,
                    "Most forwarding entries of a family in an instance")
        ->check(CLI::Range(1u, 16777216u))
        ->capture_default_str();
    options.app()
        .add_option("--hold-time", settings.plane.hold_s,
                    "Seconds for which what a GMP daemon wanted is kept when it vanished, so that its "
                    "successor finds forwarding as it was; 0: not at all")
        ->check(CLI::Range(0u, 86400u))
        ->capture_default_str();
    options.app().add_option("--config", settings.config_path,
                             "Configuration file (TOML), read again on SIGHUP; none is needed");
}

int run_daemon(const mcastd::Options &options, const Settings &settings)
{
    mcastd::Frame frame(options);
    return frame.open() ? serve(options, frame, settings) : EXIT_FAILURE;
}

} // namespace mribd
