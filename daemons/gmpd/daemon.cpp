/*
 * One thread, one event loop: signals, the packet socket, the MRIB channel, timers and link notifications
 * take turns in it. After each turn what it changed is flushed to the MRIB process.
 */
#include "daemons/gmpd/daemon.h"

#include <new>
#include <optional>

#include <sys/epoll.h>

#include "daemons/common/config_file.h"
#include "daemons/common/control.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/common/service_start.h"
#include "daemons/common/services.h"
#include "daemons/common/timer_loop.h"
#include "daemons/gmpd/control.h"
#include "daemons/gmpd/links.h"
#include "daemons/gmpd/mrib_link.h"
#include "daemons/gmpd/receiver.h"
#include "daemons/gmpd/sender.h"
#include "daemons/gmpd/status.h"
#include "daemons/gmpd/user_service.h"

namespace gmpd
{

namespace
{

// Where the state machine's effects go.
class DaemonOutputs final : public Outputs
{
public:
    DaemonOutputs(Sender &sender, MribLink &mrib) : sender_(sender), mrib_(mrib)
    {
    }
    void send_query(Interface &interface, const Query &query) override
    {
        sender_.send(interface, query);
    }
    void tell_running(const Interface &interface, bool running) override
    {
        mrib_.tell_running(interface, running);
    }
    void tell_querier(const Interface &interface, bool elected) override
    {
        mrib_.tell_querier(interface, elected);
    }
    void tell_member(const Interface &interface, const Address &group, const Address *source, bool join,
                     bool blocked) override
    {
        mrib_.tell_member(interface, group, source, join, blocked);
    }

private:
    Sender &sender_;
    MribLink &mrib_;
};

// Reads the access lists. False when the file is wrong, which is logged; what was read before then stays.
bool load_lists(const std::string &path)
{
    std::string error;

    if (!mcastd::load_config(
            path.c_str(), "gmpd", [](mcastd::ConfigTable &) {}, &error)) {
        mcastd::log_error("%s", error.c_str());
        return false;
    }
    return true;
}

} // namespace

int run_daemon(const mcastd::Options &options, const Config &config)
{
    mcastd::Frame frame(options);
    mcastd::TimerLoop timers(frame.reactor());
    Router router;
    Sender sender;
    Receiver receiver(router);

    std::set_new_handler(mcastd::out_of_memory);
    if (!config.file.empty() && !load_lists(config.file)) {
        return EXIT_FAILURE;
    }
    if (!options.start_trace() || !frame.open() || !timers.open()) {
        return EXIT_FAILURE;
    }
    router.config = config;
    router.timers = timers.manager();
    if (!sender.open(config.family) || !receiver.open()) {
        return EXIT_FAILURE;
    }
    UserIndexes indexes; // needed until the last user is gone
    if (config.user_auth && !indexes.open(config.family)) {
        return EXIT_FAILURE;
    }
    MribLink mrib(router, frame.reactor());
    DaemonOutputs outputs(sender, mrib);
    Links links(router, receiver);

    router.outputs = &outputs;
    std::optional<UserService> users;
    if (config.user_auth) {
        users.emplace(router, [&](const User &user, bool present) { mrib.tell_user(user, present); });
    }
    if (config.start_mribd) {
        mcastd::start_service("mribd", mcastd::SERVICE_MRIBD, mcastd::CONTROL_PORT_MRIBD);
    }
    if (!mrib.open() || (users && !users->open(frame.reactor().descriptor())) ||
        !links.open(frame.reactor().descriptor()) ||
        !frame.reactor().add(receiver.descriptor(), EPOLLIN, [&](uint32_t) { receiver.read_some(); })) {
        return EXIT_FAILURE;
    }
    const auto process = [&] {
        return ProcessStatus{mrib.connected(),        mrib.connects(),          mrib.pending(),
                             receiver.kernel_drops(), mrib.policy().replayed(), users ? &*users : nullptr};
    };
    frame.on_status([&] { return status_text(router, process()); });
    mcastd::ControlServer control(frame.reactor());
    offer_control(control, router, process);
    offer_user_control(control, router, users ? &*users : nullptr);
    if (!control.open(config.family == MCAST_FAMILY_IPV4 ? mcastd::CONTROL_PORT_GMPD_IPV4
                                                         : mcastd::CONTROL_PORT_GMPD_IPV6)) {
        return EXIT_FAILURE;
    }
    if (!config.file.empty()) {
        frame.on_reload([&] {
            if (load_lists(config.file)) {
                mrib.policy().lists_changed();
            } else {
                mcastd::log_warning("the configuration stays as it was");
            }
        });
    }
    frame.reactor().set_background([&] {
        if (users) {
            users->settle();
        }
        mrib.flush();
        timers.set_wake_up();
        return false;
    });
    mrib.flush();
    timers.set_wake_up();
    const int result = frame.run();

    links.close();
    mrib.flush();
    return result;
}

} // namespace gmpd
