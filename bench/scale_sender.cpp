#include "scale_sender.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>

#include "scale_support.h"

namespace scale
{
namespace
{

void sleep_until(double when_s)
{
    const time_t seconds = static_cast<time_t>(when_s);
    const timespec when = {seconds, static_cast<long>((when_s - static_cast<double>(seconds)) * 1e9)};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &when, nullptr);
}

} // namespace

Sender::Sender(const Family &family, const Plan &plan)
    : plan_(plan), socket_(socket(AF_PACKET, SOCK_DGRAM, 0))
{
    for (uint32_t first = 0; first < plan.joins; first += plan.records) {
        packets_.push_back(report_packet(family, first, std::min(plan.records, plan.joins - first)));
    }
    sent_at_.resize(packets_.size());
    to_.sll_family = AF_PACKET;
    to_.sll_protocol = htons(family.ethertype);
    to_.sll_ifindex = static_cast<int>(if_nametoindex(plan.interface.c_str()));
    to_.sll_halen = ETH_ALEN;
    std::memcpy(to_.sll_addr, family.reported.data(), ETH_ALEN);
    if (socket_ < 0 || to_.sll_ifindex == 0) {
        fail("packet socket");
    }
}

void Sender::run()
{
    const double start = now_s();
    const double apart_s = plan_.rate == 0 ? 0 : static_cast<double>(plan_.records) / plan_.rate;
    for (size_t i = 0; i < packets_.size(); ++i) {
        const double due = start + static_cast<double>(i) * apart_s;
        if (apart_s > 0 && now_s() < due) {
            sleep_until(due);
        }
        sent_at_[i] = now_s();
        send(packets_[i]);
    }
    done_at_ = now_s();
}

void Sender::send(const std::vector<uint8_t> &packet) const
{
    while (sendto(socket_, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr *>(&to_),
                  sizeof(to_)) < 0) {
        if (errno != ENOBUFS && errno != EINTR) {
            fail("sending a report");
        }
    }
}

} // namespace scale
