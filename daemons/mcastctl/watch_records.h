/*
 * What mribd tells a member, as lines for an operator.
 */
#ifndef DAEMONS_MCASTCTL_WATCH_RECORDS_H
#define DAEMONS_MCASTCTL_WATCH_RECORDS_H

#include <cstdint>
#include <span>
#include <string>

#include "mcast/mrib_message.h"

namespace mcastctl
{

// A class of events that can be watched.
struct WatchedEvents {
    const char *name;
    const char *help;
    uint64_t flag;    // MRIB_CAP_VRF and so on
    uint16_t request; // the record that asks for what holds now
    bool ipv4_alone;
};

std::span<const WatchedEvents> watched_events();

// The line for a record that came on the channel of the family, without a newline. Empty when the line is
// about an interface and if_filter is another one; 0 lets all pass.
std::string watch_line(uint8_t family, const MRIB_RECORD_S &record, uint32_t if_filter);

} // namespace mcastctl

#endif
