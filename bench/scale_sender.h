/*
 * The sending half of the scale run's load: reports through a packet socket on the link.
 */
#ifndef BENCH_SCALE_SENDER_H
#define BENCH_SCALE_SENDER_H

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>
#include <linux/if_packet.h>

#include "scale_joins.h"

namespace scale
{

class Sender
{
public:
    struct Plan {
        std::string interface = "eth0";
        uint32_t joins = 1000;
        uint32_t records = 1; // joins in a report
        uint32_t rate = 0;    // joins a second; 0: as fast as they can be sent
    };

    // Makes all packets. Ends the program when the link cannot be sent on.
    Sender(const Family &family, const Plan &plan);

    // Sends the reports at their rate, or one after the other, and notes when each left.
    void run();

    // 0 while it sends; from any thread.
    double done_at() const
    {
        return done_at_;
    }

    // When the call that sent the join's report began; after run.
    double sent_at(uint32_t join) const
    {
        return sent_at_[join / plan_.records];
    }

    size_t packet_count() const
    {
        return packets_.size();
    }

private:
    void send(const std::vector<uint8_t> &packet) const;

    Plan plan_;
    std::vector<std::vector<uint8_t>> packets_;
    std::vector<double> sent_at_;
    std::atomic<double> done_at_ = 0;
    sockaddr_ll to_{};
    int socket_;
};

} // namespace scale

#endif
