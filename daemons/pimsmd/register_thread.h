/*
 * Sends Registers, on a thread of its own, so that protocol timers are on time whatever the hosts of a link send.
 *
 *      entry with the register interface        tunnels (register_tunnels.h)
 *      among its outputs                            ▲ trees, event loop's thread
 *           │                                       │
 *      kernel ── report to all who listen ──► thread: find, prepare, Register header ──► raw socket ──► RP
 *
 * What comes too fast is lost and counted; nobody waits for it.
 */
#ifndef DAEMONS_PIMSMD_REGISTER_THREAD_H
#define DAEMONS_PIMSMD_REGISTER_THREAD_H

#include <array>
#include <atomic>
#include <pthread.h>
#include <vector>

#include "daemons/common/counters.h"
#include "daemons/common/descriptor.h"
#include "daemons/pimsmd/rate_limit.h"
#include "daemons/pimsmd/register_tunnels.h"

namespace pimsmd
{
namespace register_thread
{

#define PIMSMD_REGISTER_COUNTERS(ROW)                                                                        \
    ROW(Sent, "registers_sent")                                                                              \
    ROW(Bytes, "register_bytes_sent")                                                                        \
    ROW(NoTunnel, "dropped_packets_no_rp")                                                                   \
    ROW(Rate, "dropped_packets_register_rate")                                                               \
    ROW(Malformed, "dropped_packets_malformed")                                                              \
    ROW(TimeToLive, "dropped_packets_ttl")                                                                   \
    ROW(TooLong, "dropped_packets_too_long")                                                                 \
    ROW(Refused, "refused_registers")                                                                        \
    ROW(Overruns, "register_overruns")

MCASTD_COUNTS(PIMSMD_REGISTER_COUNTERS)

using Counts = mcastd::CounterSet<Count>;

} // namespace register_thread

using RegisterCount = register_thread::Count;

class RegisterThread
{
public:
    // The tunnels outlive it.
    RegisterThread(uint16_t family, RegisterTunnels &tunnels);
    ~RegisterThread();
    RegisterThread(const RegisterThread &) = delete;
    RegisterThread &operator=(const RegisterThread &) = delete;

    // Opens the sockets and starts the thread, which sends at most so many Registers a second, and an eighth of them of
    // one source. False when that fails, which is logged; nothing is left open then.
    bool open(uint32_t registers_per_s);

    // The same rate from now on.
    void set_rate(uint32_t registers_per_s)
    {
        wanted_rate_ = registers_per_s;
    }

    // Ends the thread and closes the sockets; harmless when it is not open.
    void close();

    bool is_open() const
    {
        return running_;
    }

    // What was sent and lost since the object was made. Any thread.
    register_thread::Counts counts() const;

    // The kernel's number of the thread, 0 before it runs.
    uint32_t thread_id() const
    {
        return thread_id_;
    }

private:
    bool open_reports();
    bool open_sender();
    bool start();
    static void *run(void *self);
    void serve();
    bool receive();
    void take(std::span<uint8_t> bytes);
    void send(const Tunnel &tunnel, std::span<const uint8_t> packet);
    void count(RegisterCount what, uint64_t by = 1);

    uint16_t family_;
    RegisterTunnels &tunnels_;
    std::atomic<uint32_t> wanted_rate_{0};
    uint32_t rate_per_s_ = 0; // that rate_ has
    SharedRateLimit rate_{0};
    mcastd::Descriptor reports_; // of the kernel
    mcastd::Descriptor sender_;
    mcastd::Descriptor epoll_;
    mcastd::Descriptor end_; // readable once the thread is to end
    std::vector<uint8_t> buffer_;
    pthread_t thread_{};
    bool running_ = false;
    std::atomic<bool> ending_{false};
    std::atomic<uint32_t> thread_id_{0};
    std::array<std::atomic<uint64_t>, static_cast<size_t>(RegisterCount::Total)> counts_{};
};

} // namespace pimsmd

#endif
