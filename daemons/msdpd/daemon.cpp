/*
 * One thread, one event loop: signals, the peers' sockets, the MRIB channel, timers and route notifications
 * take turns in it. After each turn what it caused is flushed to the MRIB process and to the peers.
 */
#include "daemons/msdpd/daemon.h"

#include <utility>

#include "daemons/common/frame.h"
#include "daemons/common/log.h"
#include "daemons/common/memory_return.h"
#include "daemons/common/services.h"
#include "daemons/msdpd/control.h"
#include "daemons/msdpd/host_routes.h"
#include "daemons/msdpd/mrib_link.h"
#include "daemons/msdpd/status.h"
#include "daemons/msdpd/tcp.h"

namespace msdpd
{
namespace
{

// The parts in the order in which they are made; each needs only those above it.
class Msdpd final : public mcastd::Daemon
{
public:
    explicit Msdpd(mcastd::Frame &frame)
        : frame_(frame), tcp_(frame.reactor()), mrib_(frame.reactor()),
          speaker_(frame.timers(), tcp_, mrib_, routes_)
    {
    }
    ~Msdpd() override
    {
        mrib_.close(); // before the speaker goes
    }

    TakeOver read_config(mcastd::ConfigTable &table) override
    {
        return [this, config = msdpd::read_config(table)] {
            speaker_configure(speaker_, config);
            mrib_.tell_requests();
        };
    }

    bool open() override
    {
        offer_control(frame_.control(), speaker_, [this] { return process(); });
        frame_.reactor().add_each_second([this] { speaker_tend(speaker_); });
        return routes_.open(frame_.reactor().descriptor()) && tcp_.open(speaker_) &&
               frame_.control().open(mcastd::CONTROL_PORT_MSDPD);
    }

    bool start() override
    {
        if (!mrib_.open(speaker_)) {
            return false;
        }
        mcastd::log_info("ready");
        return true;
    }

    bool round() override
    {
        mrib_.flush();
        memory_.round(speaker_.cache.size());
        return tcp_.flush();
    }

    mcastd::TextParts status() override
    {
        return mcastd::one_part(status_text(speaker_, process()));
    }

    void close() override
    {
        mrib_.close();
    }

private:
    ProcessStatus process() const
    {
        const mcastd::MribChannel &channel = mrib_.channel();
        return {channel.connected(), channel.connects(), channel.pending()};
    }

    mcastd::Frame &frame_;
    HostRoutes routes_;
    Tcp tcp_;
    MribLink mrib_;
    Speaker speaker_;
    mcastd::MemoryReturn memory_;
};

} // namespace

int run_daemon(const mcastd::Options &options)
{
    return mcastd::run_in_frame<Msdpd>(options);
}

} // namespace msdpd
