/*
 * One thread, one event loop: signals, the packet socket, the MRIB channel, the platform timer and the link
 * notifications take turns in it. After each turn what it changed is flushed to the MRIB process.
 */
#include "daemons/gmpd/daemon.h"

#include <cerrno>
#include <cstring>
#include <new>

#include <sys/epoll.h>

#include "daemons/common/log.h"
#include "daemons/gmpd/links.h"
#include "daemons/gmpd/memory.h"
#include "daemons/gmpd/mrib_link.h"
#include "daemons/gmpd/receiver.h"
#include "daemons/gmpd/sender.h"
#include "daemons/gmpd/status.h"
#include "mcasthost/loop.h"

namespace gmpd
{

namespace
{

// The daemon's timers, on the timer service of its loop.
class Timers
{
public:
    Timers() = default;
    ~Timers()
    {
        MCAST_TMR_Destroy(manager_);
    }
    Timers(const Timers &) = delete;
    Timers &operator=(const Timers &) = delete;

    bool open(int loop)
    {
        const uint64_t parameters[4] = {reinterpret_cast<uint64_t>(this), 0, 0, 0};

        manager_ = MCAST_TMR_Create(HOST_LoopTimerService(loop), fired, parameters);
        if (manager_ == nullptr) {
            mcastd::log_error("cannot set up timers: %s", strerror(errno));
        }
        return manager_ != nullptr;
    }
    MCAST_TMR_S *manager() const
    {
        return manager_;
    }

private:
    static void fired(uint64_t parameters[4])
    {
        MCAST_TMR_ProcExpires(reinterpret_cast<Timers *>(parameters[0])->manager_);
    }

    MCAST_TMR_S *manager_ = nullptr;
};

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

} // namespace

int run_daemon(const mcastd::Options &options, const Config &config)
{
    mcastd::Frame frame(options);
    Timers timers;
    Router router;
    Sender sender;
    Receiver receiver(router);

    std::set_new_handler(out_of_memory);
    if (!frame.open() || !timers.open(frame.reactor().descriptor())) {
        return EXIT_FAILURE;
    }
    router.config = config;
    router.timers = timers.manager();
    if (!sender.open(config.family) || !receiver.open()) {
        return EXIT_FAILURE;
    }
    MribLink mrib(router, frame.reactor());
    DaemonOutputs outputs(sender, mrib);
    Links links(router, receiver);

    router.outputs = &outputs;
    if (!mrib.open() || !links.open(frame.reactor().descriptor()) ||
        !frame.reactor().add(receiver.descriptor(), EPOLLIN, [&](uint32_t) { receiver.read_some(); })) {
        return EXIT_FAILURE;
    }
    frame.on_status([&] {
        return status_text(router, ProcessStatus{mrib.connected(), mrib.connects(), mrib.pending(),
                                                 receiver.kernel_drops()});
    });
    frame.reactor().set_background([&] {
        mrib.flush();
        return false;
    });
    mrib.flush();
    const int result = frame.run();

    links.close();
    mrib.flush();
    return result;
}

} // namespace gmpd
