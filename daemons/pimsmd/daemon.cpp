/*
 * One thread, one event loop: signals, the sockets of PIM, timers, link and route notifications take turns in it. After each
 * turn what it caused settles and is sent.
 */
#include "daemons/pimsmd/daemon.h"

#include <sys/epoll.h>

#include "daemons/common/frame.h"
#include "daemons/common/log.h"
#include "daemons/common/memory_return.h"
#include "daemons/common/services.h"
#include "daemons/pimsmd/config.h"
#include "daemons/pimsmd/control.h"
#include "daemons/pimsmd/interfaces.h"
#include "daemons/pimsmd/kernel_routes.h"
#include "daemons/pimsmd/mrib_link.h"
#include "daemons/pimsmd/register_thread.h"
#include "daemons/pimsmd/router.h"
#include "daemons/pimsmd/sockets.h"
#include "daemons/pimsmd/status.h"
#include "platform/random.h"

namespace pimsmd
{
namespace
{

// Timers that a round of the event loop serves; those that are left are due in the next.
constexpr size_t TIMERS_PER_ROUND = 4096;

// A random number from 0 to most; most itself when the system has none.
uint32_t draw(uint32_t most)
{
    uint32_t number = most;
    FIPS_rand_bytes(reinterpret_cast<uint8_t *>(&number), sizeof(number));
    return most == UINT32_MAX ? number : number % (most + 1);
}

// Neighbours say all Joins again in a period, after the Hello that each of them is owed.
constexpr uint32_t relearn_s(const TreeSettings &trees)
{
    return trees.join_period_s + trees.join_period_s / 4;
}

// The MRIB process looks once in a keepalive whether packets came, and says when none did. Until then no source is silent.
constexpr uint32_t watched_keepalive_s(uint32_t keepalive_s)
{
    return 2 * keepalive_s + 30;
}

// The parts in the order in which they are made; each needs only those above it.
class Pimsmd final : public mcastd::Daemon
{
public:
    Pimsmd(mcastd::Frame &frame, uint8_t family)
        : frame_(frame), family_(family), queue_(monotonic_ms), routes_(family),
          sockets_(family, frame.reactor()), router_(family, queue_, sockets_, routes_, draw, Config{}),
          tunnels_(family), registers_(family, tunnels_), mrib_(frame.reactor(), queue_, router_, tunnels_),
          interfaces_(router_, sockets_)
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
        return [this, config = pimsmd::read_config(table, family_)]() mutable {
            config.trees.keepalive_s = watched_keepalive_s(config.trees.keepalive_s);
            router_.configure(config);
            registers_.set_rate(config.trees.registers_per_s);
            interfaces_.configured();
        };
    }

    bool open() override
    {
        // Readable while a timer is due: the round that follows serves it.
        if (!frame_.reactor().add(wakeup_.descriptor(), EPOLLIN, [](uint32_t) {})) {
            mcastd::log_error("cannot make the timers");
            return false;
        }
        frame_.reactor().add_each_second([this] { tend(); });
        offer_control(frame_.control(), {router_, &sockets_, &registers_, &mrib_});
        return routes_.open(loop(), [this] { router_.routes_changed(); }) &&
               sockets_.open(
                   [this](uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> bytes) {
                       router_.received(if_index, envelope, bytes);
                   }) &&
               frame_.control().open(family_ == MCAST_FAMILY_IPV4 ? mcastd::CONTROL_PORT_PIMSMD_IPV4
                                                                  : mcastd::CONTROL_PORT_PIMSMD_IPV6);
    }

    bool start() override
    {
        const TreeSettings &trees = router_.config().trees;
        if (!interfaces_.open(loop()) || !registers_.open(trees.registers_per_s) ||
            !mrib_.open(frame_.timers(), relearn_s(trees))) {
            return false;
        }
        mcastd::log_info("ready");
        return true;
    }

    bool round() override
    {
        bool more = queue_.run_due(TIMERS_PER_ROUND);
        interfaces_.settle();
        more |= mrib_.work();
        more |= router_.settle();
        more |= mrib_.flush();
        wakeup_.arm(queue_);
        memory_.round(router_.trees().entries());
        return more;
    }

    mcastd::TextParts status() override
    {
        return mcastd::one_part(status_text(router_, sockets_));
    }

    void close() override
    {
        mrib_.close();
        registers_.close();
        interfaces_.close();
        router_.close();
        sockets_.close();
    }

private:
    int32_t loop()
    {
        return frame_.reactor().descriptor();
    }

    void tend()
    {
        sockets_.tend();
        if (routes_.take_unanswered()) {
            router_.routes_changed();
        }
    }

    mcastd::Frame &frame_;
    uint8_t family_;
    MsQueue queue_;
    MsWakeup wakeup_;
    KernelRoutes routes_;
    Sockets sockets_;
    Router router_;
    RegisterTunnels tunnels_;
    RegisterThread registers_;
    MribLink mrib_;
    Interfaces interfaces_;
    mcastd::MemoryReturn memory_;
};

} // namespace

int run_daemon(const mcastd::Options &options)
{
    return mcastd::run_in_frame<Pimsmd>(options, options.family());
}

} // namespace pimsmd
