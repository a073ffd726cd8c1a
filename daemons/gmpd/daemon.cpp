/*
 * One thread, one event loop: signals, the packet socket, the MRIB channel, timers and link notifications
 * take turns in it. After each turn what it changed is flushed to the MRIB process.
 *
 * The daemon is active or a standby, and changes between the two:
 *
 *                     both                         the active one alone
 *      registry of indexes, MRIB channel,      backup port, sockets, links,
 *      user authentication                     agents' port, control port
 *
 * The backup port comes first and goes last: who has it is the active one, and its end is what the standby
 * waits for. The library's parts begin, switch over and end in one order whatever becomes of the daemon:
 *
 *      begin         MCAST_IF_Init, MRIB_GMP_Init, MRIB_GMP_OpenConnect, MCAST_USRAUTH_Init
 *      active        MCAST_USRAUTH_Upgrade
 *      switch over   MCAST_IF_Degrade, MCAST_ReserveIf for each user, MCAST_IF_ReserveFinish,
 *                    MCAST_USRAUTH_Degrade
 *      end           MCAST_USRAUTH_StopServer, MCAST_USRAUTH_Fini, MRIB_GMP_CloseConnection, MRIB_GMP_Fini,
 *                    MCAST_IF_Fini
 *
 * A switch-over is the same on both sides, before the one becomes active and when the other ceases to be. The
 * daemon that ceases forgets its memberships without withdrawing them; the MRIB process keeps them for the
 * hold time that it was given, and the new one learns them from the hosts.
 */
#include "daemons/gmpd/daemon.h"

#include <optional>
#include <utility>

#include "daemons/common/frame.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/common/memory_return.h"
#include "daemons/common/service_start.h"
#include "daemons/common/services.h"
#include "daemons/common/timer.h"
#include "daemons/gmpd/backup_server.h"
#include "daemons/gmpd/control.h"
#include "daemons/gmpd/links.h"
#include "daemons/gmpd/mrib_link.h"
#include "daemons/gmpd/receiver.h"
#include "daemons/gmpd/sender.h"
#include "daemons/gmpd/standby.h"
#include "daemons/gmpd/status.h"
#include "daemons/gmpd/user_service.h"
#include "mcast/acl_filter.h"

namespace gmpd
{
namespace
{

// How often a daemon that handed over looks for the new active one, once a second, before it is active again.
constexpr uint32_t HAND_OVER_PATIENCE = 3;

void warn_of_missing_group_list(const Config &config)
{
    if (config.group_list != MCAST_NONE &&
        MCAST_IsAclValid(&config.family, config.group_list) != MCAST_TRUE) {
        mcastd::log_warning(
            "--group-list %u: there is no such list, or it has no rules; every group may be joined",
            config.group_list);
    }
}

// The parts in the order in which they are made; each needs only those above it, and ends before them.
class Gmpd final : public mcastd::Daemon
{
public:
    Gmpd(mcastd::Frame &frame, const Config &config)
        : frame_(frame), receiver_(process_, frame_.reactor()), backup_(frame_.reactor(), indexes_),
          indexes_([this](const UserKey &user) { backup_.index_changed(user); }),
          mrib_(process_, frame_.reactor()), links_(process_, receiver_), standby_(frame_.reactor())
    {
        process_.config = config;
        process_.timers = frame_.timers();
        process_.queries = &sender_;
        process_.mrib = &mrib_;
    }

    // gmpd has no table of its own; it uses the access lists and instances of the file.
    TakeOver read_config(mcastd::ConfigTable &table) override
    {
        return [this, queriers = read_config_table(table)] {
            process_.config.queriers = queriers;
            warn_of_missing_group_list(config());
            links_.instances_changed();
            mrib_.policy().lists_changed();
        };
    }

    // Each step says in the log why it fails. A second gmpd is stopped by the backup port before it has said
    // anything to the links or to the MRIB process.
    bool open() override
    {
        if (!config().standby && !backup_.open(backup_port())) {
            mcastd::log_error("start it with --standby to let it wait for the end of the other one");
            return false;
        }
        if (!open_parts()) {
            return false;
        }
        offer();
        return true;
    }

    bool start() override
    {
        frame_.reactor().add_each_second([this] { tend_standby(); });
        if (config().standby) {
            standby_.start(frame_.timers(), backup_port(), 0);
            return true;
        }
        return open_active();
    }

    bool round() override
    {
        links_.settle();
        if (users_) {
            users_->settle();
        }
        if (std::exchange(hand_over_, false)) {
            hand_over();
        } else if (standby_.watching() && standby_.active_is_gone()) {
            take_over();
        }
        backup_.flush();
        mrib_.flush();
        memory_.round(process_.use.entries);
        return false;
    }

    mcastd::TextParts status() override
    {
        return status_parts(process_, [this] { return daemon_status(); });
    }

    // Where a standby goes on at once, nothing is withdrawn.
    void close() override
    {
        mrib_.be_silent(backup_.synchronised() > 0);
        links_.close();
        mrib_.flush();
    }

private:
    const Config &config() const
    {
        return process_.config;
    }
    int32_t loop()
    {
        return frame_.reactor().descriptor();
    }

    uint16_t backup_port() const
    {
        return config().family == MCAST_FAMILY_IPV4 ? mcastd::BACKUP_PORT_GMPD_IPV4
                                                    : mcastd::BACKUP_PORT_GMPD_IPV6;
    }
    uint16_t control_port() const
    {
        return config().family == MCAST_FAMILY_IPV4 ? mcastd::CONTROL_PORT_GMPD_IPV4
                                                    : mcastd::CONTROL_PORT_GMPD_IPV6;
    }

    // What active daemon and standby have.
    bool open_parts()
    {
        if (config().user_auth && !indexes_.open(config().family)) {
            return false;
        }
        if (config().start_mribd) {
            mcastd::start_service("mribd", mcastd::SERVICE_MRIBD, mcastd::CONTROL_PORT_MRIBD);
        }
        if (!mrib_.open()) {
            return false;
        }
        frame_.brake_timers([this] { return mrib_.behind(); });
        if (config().user_auth) {
            users_.emplace(process_, indexes_,
                           [this](const User &user, bool present) { mrib_.tell_user(user, present); });
        }
        return !users_ || users_->open(loop());
    }

    void offer()
    {
        offer_control(frame_.control(), process_, [this] { return daemon_status(); });
        offer_user_control(frame_.control(), process_, users());
        offer_switch_over(frame_.control(), [this] {
            hand_over_ = backup_.synchronised() > 0;
            return hand_over_;
        });
    }

    // False when a step fails, which is logged; nothing of it is open then. The links are last, for they are
    // what the MRIB process hears of.
    bool open_active()
    {
        active_ = sender_.open(config().family) && receiver_.open() && (!users_ || users_->upgrade()) &&
                  frame_.control().open(control_port()) && links_.open(loop());
        if (!active_) {
            close_active();
            backup_.close();
        }
        return active_;
    }

    void close_active()
    {
        active_ = false;
        frame_.control().close();
        links_.close();
        if (users_) {
            users_->stop_server();
        }
        receiver_.close();
        sender_.close();
    }

    // What a lack of memory interrupted between the one and the other.
    void tend_standby()
    {
        if (!active_ && !standby_.watching()) {
            standby_.start(frame_.timers(), backup_port(), 1);
        }
        standby_.tend();
    }

    // Whether it is active now; nothing of that is open otherwise.
    bool try_to_take_over()
    {
        const bool done = mcastd::memory_unit("taking over", [this] {
            // First of all, for another standby may be faster.
            if (!backup_.open(backup_port())) {
                return;
            }
            if (users_ && standby_.has_heard()) {
                users_->switch_over(standby_.indexes());
            }
            open_active();
        });
        if (!done) {
            close_active();
            backup_.close();
        }
        return active_;
    }

    void take_over()
    {
        standby_.stop();
        if (!try_to_take_over()) {
            mcastd::log_warning("this standby is not active yet, looking every second");
            standby_.start(frame_.timers(), backup_port(), 1);
            return;
        }
        mcastd::log_info("active from now on, with the indexes of %zu users", indexes_.assigned().size());
        // As long as a membership lasts: a user that has not been announced again by then is gone.
        const uint32_t wait_s = config().robustness * config().query_interval_s + config().response_s;

        mcastd::timer_start(
            frame_.timers(), release_, wait_s * 1000,
            [](void *owner) { static_cast<UserIndexes *>(owner)->release_untaken(); }, &indexes_);
    }

    void hand_over()
    {
        mcastd::log_info("handing over to the standby");
        mcastd::timer_stop(frame_.timers(), release_);
        mrib_.be_silent(true);
        links_.close();
        mcastd::memory_unit("handing over", [this] {
            standby_.remember(indexes_.assigned());
            if (users_) {
                users_->switch_over(standby_.indexes());
            }
        });
        close_active();
        mrib_.be_silent(false);
        mrib_.start_over();
        backup_.close();
        standby_.start(frame_.timers(), backup_port(), HAND_OVER_PATIENCE);
    }

    UserService *users()
    {
        return users_ ? &*users_ : nullptr;
    }
    DaemonStatus daemon_status()
    {
        DaemonStatus status;
        status.mrib_connected = mrib_.connected();
        status.mrib_connects = mrib_.connects();
        status.mrib_pending = mrib_.pending();
        status.mrib_held = mrib_.held();
        status.kernel_drops = receiver_.kernel_drops();
        status.mrib_replayed = mrib_.policy().replayed();
        status.users = users();
        status.active = active_;
        status.standbys = backup_.synchronised();
        status.synchronised = standby_.synchronised();
        status.backed_up = standby_.indexes().size();
        return status;
    }

    mcastd::Frame &frame_;
    Process process_;
    Sender sender_;
    Receiver receiver_;
    BackupServer backup_; // its end lets the standby begin
    UserIndexes indexes_; // needed until the last user is gone
    MribLink mrib_;
    Links links_;
    std::optional<UserService> users_;
    Standby standby_;
    mcastd::Timer release_; // of the indexes that nobody took after a switch-over
    bool active_ = false;
    mcastd::MemoryReturn memory_;
    bool hand_over_ = false; // asked for, and done when the round ends
};

} // namespace

int run_daemon(const mcastd::Options &options, const Config &config)
{
    return mcastd::run_in_frame<Gmpd>(options, config);
}

} // namespace gmpd
