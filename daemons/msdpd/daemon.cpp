/*
 * One thread, one event loop: signals, the peers' sockets, the MRIB channel, timers and route notifications
 * take turns in it. After each turn what it caused is flushed to the MRIB process and to the peers.
 */
#include "daemons/msdpd/daemon.h"

#include <new>

#include "daemons/common/config_file.h"
#include "daemons/common/control.h"
#include "daemons/common/frame.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/common/services.h"
#include "daemons/common/timer_loop.h"
#include "daemons/msdpd/control.h"
#include "daemons/msdpd/host_routes.h"
#include "daemons/msdpd/mrib_link.h"
#include "daemons/msdpd/status.h"
#include "daemons/msdpd/tcp.h"

namespace msdpd
{
namespace
{

// False when the file is wrong, which is logged; nothing of it counts then.
bool load(const std::string &path, Config *config)
{
    std::string error;
    Config fresh;
    if (!mcastd::load_config(
            path.c_str(), "msdpd", [&fresh](mcastd::ConfigTable &table) { fresh = read_config(table); },
            &error)) {
        mcastd::log_error("%s", error.c_str());
        return false;
    }
    *config = std::move(fresh);
    return true;
}

ProcessStatus process_status(const MribLink &mrib)
{
    const mcastd::MribChannel &channel = mrib.channel();
    return {channel.connected(), channel.connects(), channel.pending()};
}

void attach(mcastd::Frame &frame, const std::string &config_path, Speaker &speaker, MribLink &mrib)
{
    frame.on_status([&] { return status_text(speaker, process_status(mrib)); });
    frame.on_reload([&] {
        Config config;

        if (load(config_path, &config)) {
            speaker_configure(speaker, config);
            mrib.tell_requests();
        } else {
            mcastd::log_warning("the configuration stays as it was");
        }
    });
}

// Runs the event loop until a signal ends it.
int serve(mcastd::Frame &frame, mcastd::TimerLoop &timers, Tcp &tcp, MribLink &mrib)
{
    frame.reactor().set_background([&] {
        mrib.flush();
        const bool more = tcp.flush();

        timers.set_wake_up();
        return more;
    });
    timers.set_wake_up();
    mcastd::log_info("ready");
    return frame.run();
}

} // namespace

int run_daemon(const mcastd::Options &options, const std::string &config_path)
{
    mcastd::Frame frame(options);
    mcastd::TimerLoop timers(frame.reactor());
    Config config;

    std::set_new_handler(mcastd::out_of_memory);
    if (!load(config_path, &config) || !options.start_trace() || !frame.open() || !timers.open()) {
        return EXIT_FAILURE;
    }
    HostRoutes routes;
    Tcp tcp(frame.reactor());
    MribLink mrib(frame.reactor());
    Speaker speaker(timers.manager(), tcp, mrib, routes);

    mcastd::ControlServer control(frame.reactor());

    offer_control(control, speaker, [&mrib] { return process_status(mrib); });
    if (!routes.open(frame.reactor().descriptor()) || !tcp.open(speaker) ||
        !control.open(mcastd::CONTROL_PORT_MSDPD)) {
        return EXIT_FAILURE;
    }
    speaker_configure(speaker, config);
    attach(frame, config_path, speaker, mrib);
    const int result = mrib.open(speaker) ? serve(frame, timers, tcp, mrib) : EXIT_FAILURE;

    mrib.close(); // before the speaker goes
    return result;
}

} // namespace msdpd
