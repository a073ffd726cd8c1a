/*
 * One thread, one event loop: signals, the sockets of PIM, timers, link and route notifications take turns in it. After each
 * turn what it caused settles and is sent.
 */
#include "daemons/pimsmd/daemon.h"

#include <sys/epoll.h>

#include "daemons/common/frame.h"
#include "daemons/common/json.h"
#include "daemons/common/log.h"
#include "daemons/common/services.h"
#include "daemons/pimsmd/config.h"

namespace pimsmd
{
namespace
{

// Timers that a round of the event loop serves; those that are left are due in the next.
constexpr size_t TIMERS_PER_ROUND = 4096;

// The parts in the order in which they are made; each needs only those above it.
class Pimsmd final : public mcastd::Daemon
{
public:
    Pimsmd(mcastd::Frame &frame, uint8_t family) : frame_(frame), family_(family), queue_(monotonic_ms)
    {
    }
    ~Pimsmd() override
    {
        if (wakeup_.descriptor() >= 0) {
            frame_.reactor().remove(wakeup_.descriptor());
        }
    }

    TakeOver read_config(mcastd::ConfigTable &table) override
    {
        return [this, config = pimsmd::read_config(table, family_)] { config_ = config; };
    }

    bool open() override
    {
        // Readable while a timer is due: the round that follows serves it.
        if (!frame_.reactor().add(wakeup_.descriptor(), EPOLLIN, [](uint32_t) {})) {
            mcastd::log_error("cannot make the timers");
            return false;
        }
        return frame_.control().open(family_ == MCAST_FAMILY_IPV4 ? mcastd::CONTROL_PORT_PIMSMD_IPV4
                                                                  : mcastd::CONTROL_PORT_PIMSMD_IPV6);
    }

    bool start() override
    {
        mcastd::log_info("ready");
        return true;
    }

    bool round() override
    {
        const bool more = queue_.run_due(TIMERS_PER_ROUND);
        wakeup_.arm(queue_);
        return more;
    }

    mcastd::TextParts status() override
    {
        mcastd::Json json;
        json.open(nullptr, '{');
        json.text("daemon", "pimsmd");
        json.text("family", mcastd::family_name(family_));
        json.close('}');
        return mcastd::one_part(json.take());
    }

private:
    mcastd::Frame &frame_;
    uint8_t family_;
    Config config_;
    MsQueue queue_;
    MsWakeup wakeup_;
};

} // namespace

int run_daemon(const mcastd::Options &options)
{
    return mcastd::run_in_frame<Pimsmd>(options, options.family());
}

} // namespace pimsmd
