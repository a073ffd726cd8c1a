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
#include "daemons/common/frame.h"
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

// The parts in the order in which they are made; each needs only those above it, and ends before them.
class Daemon
{
public:
    Daemon(const mcastd::Options &options, const Config &config)
        : options_(options), frame_(options), timers_(frame_.reactor()), receiver_(router_),
          mrib_(router_, frame_.reactor()), outputs_(sender_, mrib_), links_(router_, receiver_),
          control_(frame_.reactor())
    {
        router_.config = config;
        router_.outputs = &outputs_;
    }

    // Each step says in the log why it fails. A second gmpd is stopped by the control port before it has said
    // anything to the links or to the MRIB process.
    bool open()
    {
        return open_process() && open_users() && open_control() && open_network();
    }

    int run()
    {
        follow_reloads();
        frame_.reactor().set_background([this] {
            work_off();
            return false;
        });
        work_off();
        const int result = frame_.run();

        links_.close();
        mrib_.flush();
        return result;
    }

private:
    const Config &config() const
    {
        return router_.config;
    }
    int32_t loop()
    {
        return frame_.reactor().descriptor();
    }

    // The lists come before the traces, which may be filtered by one of them.
    bool open_process()
    {
        if ((!config().file.empty() && !load_lists(config().file)) || !options_.start_trace() ||
            !frame_.open() || !timers_.open()) {
            return false;
        }
        router_.timers = timers_.manager();
        return true;
    }

    bool open_users()
    {
        if (config().user_auth) {
            if (!indexes_.open(config().family)) {
                return false;
            }
            users_.emplace(router_,
                           [this](const User &user, bool present) { mrib_.tell_user(user, present); });
        }
        return true;
    }

    bool open_network()
    {
        if (!sender_.open(config().family) || !receiver_.open()) {
            return false;
        }
        if (config().start_mribd) {
            mcastd::start_service("mribd", mcastd::SERVICE_MRIBD, mcastd::CONTROL_PORT_MRIBD);
        }
        return mrib_.open() && (!users_ || users_->open(loop())) && links_.open(loop()) &&
               frame_.reactor().add(receiver_.descriptor(), EPOLLIN,
                                    [this](uint32_t) { receiver_.read_some(); });
    }

    bool open_control()
    {
        frame_.on_status([this] { return status_text(router_, process()); });
        offer_control(control_, router_, [this] { return process(); });
        offer_user_control(control_, router_, users());
        return control_.open(config().family == MCAST_FAMILY_IPV4 ? mcastd::CONTROL_PORT_GMPD_IPV4
                                                                  : mcastd::CONTROL_PORT_GMPD_IPV6);
    }

    void follow_reloads()
    {
        if (config().file.empty()) {
            return;
        }
        frame_.on_reload([this] {
            if (load_lists(config().file)) {
                mrib_.policy().lists_changed();
            } else {
                mcastd::log_warning("the configuration stays as it was");
            }
        });
    }

    void work_off()
    {
        if (users_) {
            users_->settle();
        }
        mrib_.flush();
        timers_.set_wake_up();
    }

    UserService *users()
    {
        return users_ ? &*users_ : nullptr;
    }
    ProcessStatus process()
    {
        return ProcessStatus{
            mrib_.connected(),        mrib_.connects(),          mrib_.pending(), mrib_.held(),
            receiver_.kernel_drops(), mrib_.policy().replayed(), users()};
    }

    const mcastd::Options &options_;
    mcastd::Frame frame_;
    mcastd::TimerLoop timers_;
    Router router_;
    Sender sender_;
    Receiver receiver_;
    UserIndexes indexes_; // needed until the last user is gone
    MribLink mrib_;
    DaemonOutputs outputs_;
    Links links_;
    std::optional<UserService> users_;
    mcastd::ControlServer control_;
};

} // namespace

int run_daemon(const mcastd::Options &options, const Config &config)
{
    std::set_new_handler(mcastd::out_of_memory);
    Daemon daemon(options, config);

    return daemon.open() ? daemon.run() : EXIT_FAILURE;
}

} // namespace gmpd
