/*
 * One client's conversation: takes its messages, tells the router what they say, and answers.
 */
#ifndef DAEMONS_MRIBD_SESSION_H
#define DAEMONS_MRIBD_SESSION_H

#include "daemons/mribd/outbox.h"
#include "daemons/mribd/router.h"
#include "mcast/mrib_message.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace mribd
{

// Why a record was not acted on.
enum class Fault {
    UnknownType,   // a type no client sends
    NotServed,     // a type of a function that this router does not have
    Short,         // the value is shorter than its layout
    NotRegistered, // the client has not introduced itself
    Family,        // not the family of the port
    Instance,      // an instance other than the public one
    Interface,     // interface index 0
    Group,         // not a group that is routed
    Source,        // not a usable source, or none where one is needed
    Flags,         // an unknown flag or selector
    Count
};

// How the fault is called in the status.
const char *fault_name(Fault fault);

// Counted over all clients of a port.
struct ChannelCounters {
    uint64_t clients = 0; // ever accepted
    uint64_t messages = 0;
    uint64_t records = 0;
    uint64_t malformed_messages = 0; // too short, too long, or with records that do not fit
    uint64_t overflows = 0;          // times that a client's outbox was dropped
    std::array<uint64_t, static_cast<size_t>(Fault::Count)> faults{};
};

class Session
{
public:
    Session(ClientId id, Router &router, ChannelCounters &counters);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    ClientId id() const
    {
        return id_;
    }

    bool is_registered() const
    {
        return registered_;
    }

    uint8_t component() const
    {
        return component_;
    }

    Outbox &outbox()
    {
        return outbox_;
    }
    const Outbox &outbox() const
    {
        return outbox_;
    }

    // Acts on one message of size bytes; truncated when the datagram was longer than the buffer. False when
    // state was lost for lack of memory: the client must be disconnected, so that it reports again.
    bool take_message(const uint8_t *message, size_t size, bool truncated);

    // Whether this router is the designated router of the interface changed.
    void tell_designated_router(uint32_t if_index, bool is_designated);

    // To be called once the outbox overflowed and the socket takes messages again: sends the whole state and
    // has the client ask for the rest.
    void start_afresh();

private:
    bool take_record(const MRIB_RECORD_S &record);
    bool take_interface_alert(const MRIB_RECORD_S &record);
    bool take_join_prune(const MRIB_RECORD_S &record);
    bool take_delete_member(const MRIB_RECORD_S &record);
    bool take_request(const MRIB_RECORD_S &record);
    bool take_register(const MRIB_RECORD_S &record);
    bool is_ours(uint8_t family, uint16_t vrf_index, uint32_t if_index);
    bool refuse(Fault fault);
    void put_designated_router(uint32_t if_index, bool is_designated);
    void put_vrf_state();
    void put_ssm_policy();

    ClientId id_;
    Router &router_;
    ChannelCounters &counters_;
    Outbox outbox_;
    bool registered_ = false;
    uint8_t component_ = 0;
    uint64_t capabilities_ = 0;
};

} // namespace mribd

#endif
