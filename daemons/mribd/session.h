/*
 * One client's conversation: takes its messages, tells the router what they say, and answers.
 */
#ifndef DAEMONS_MRIBD_SESSION_H
#define DAEMONS_MRIBD_SESSION_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "daemons/common/memory.h"
#include "daemons/common/pim_records.h"
#include "daemons/common/trace.h"
#include "daemons/mribd/address.h"
#include "daemons/mribd/client_queue.h"
#include "daemons/mribd/current_view.h"
#include "daemons/mribd/msdp_exchange.h"
#include "daemons/mribd/routers.h"
#include "daemons/mribd/user_registry.h"
#include "mcast/mrib_message.h"

namespace mribd
{

// Why a record was not acted on.
enum class Fault {
    UnknownType,   // a type no client sends
    NotServed,     // a type of a function that this router does not have
    Short,         // the value is shorter than its layout
    NotRegistered, // the client has not introduced itself
    Family,        // not the family of the port
    Instance,      // an instance that is not served
    Interface,     // interface index 0
    Group,         // not a group that is routed
    Source,        // not a usable source, or none where one is needed
    Flags,         // an unknown flag, selector or component, or an end marker without its begin
    Limit,         // one membership, interface, remote source or user too many
    Memory,        // there was no memory for what it says
    Count
};

// The fault's name in the status and in the counters.
const char *fault_name(Fault fault);

// Counted over all clients of a port.
struct ChannelCounters {
    uint64_t clients = 0; // ever accepted
    uint64_t messages = 0;
    uint64_t records = 0;
    uint64_t malformed_messages = 0; // too short, too long, or with records that do not fit
    uint64_t overflows = 0;          // times that a client's queue was dropped
    std::array<uint64_t, static_cast<size_t>(Fault::Count)> faults{};
};

// The value of a record at least as long as its layout; NULL for a shorter one.
template <typename Value> const Value *value_of(const MRIB_RECORD_S &record)
{
    return record.length < sizeof(Value) ? nullptr : reinterpret_cast<const Value *>(record.value);
}

// What the sessions of one family work on.
struct Backend {
    Routers &routers;
    CurrentView &current_view;
    MsdpExchange &msdp;
    UserRegistry &users;
    const MemberBudget &budget;
};

class Session
{
public:
    Session(ClientId id, const Backend &backend, ChannelCounters &counters);
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

    // The event classes that the client subscribed to, MRIB_CAP_VRF and so on.
    uint64_t events() const
    {
        return capabilities_;
    }

    ClientQueue &queue()
    {
        return queue_;
    }
    const ClientQueue &queue() const
    {
        return queue_;
    }

    // Acts on one message of size bytes; truncated when the datagram was longer than the buffer.
    void take_message(const uint8_t *message, size_t size, bool truncated);

    // Whether memory ended in the middle of a record, or of what it is told: this side and the client's may differ in
    // anything then, until it connects anew.
    bool missed() const
    {
        return missed_;
    }

    // Whether a membership was refused since the client was asked for all of them, and asks it when there is room.
    bool has_refused() const
    {
        return refused_.has_value();
    }
    void ask_refused_again();

    // The view changed; this is the one before.
    void tell_changes(const View &before);

    void tell_local_source(const MsdpExchange::LocalSource &change);

    // Has an MSDP daemon ask its peers about the group. Left out while much waits for the client: peers
    // announce what they have again and again.
    void tell_request(const MCAST_ADDR_S &group);

    // See PimListener. Whether the client is told.
    bool tell_member(const Router &router, uint32_t if_index, const MCAST_ADDR_S &group,
                     const MCAST_ADDR_S &source, bool exclude, const HostWish &wish);
    bool tell_source(const Router &router, const Entry &entry, mcastd::PimSourceState state,
                     uint32_t if_index);
    void tell_instance(const Router &router, bool served);
    void tell_remote_source(const MsdpExchange::RemoteSource &change);

    // Whether it is registered for one of these classes of events, and takes records.
    bool is_told(uint64_t events) const
    {
        return wants(events) && !queue_.has_overflowed();
    }

    // Sends the state of the instances to a client that keeps the view, and has every client that is told
    // anything ask for the rest. Also what takes a queue into use again that overflowed, once the socket
    // takes messages.
    void start_afresh();

    // Goes on with an answer that is too long to wait in the queue whole. Whether it added anything.
    bool continue_replay();

private:
    // Messages that may wait before a replay or a request adds to them; far below the queue's bound, which other
    // records need too.
    static constexpr size_t REPLAY_WAITING = 8;

    // What became of a record. Ignored: it failed a check, which is counted.
    enum class Taken { Done, Ignored };

    Taken take_record(const MRIB_RECORD_S &record);
    Taken take_interface_alert(const MRIB_RECORD_S &record);
    Taken take_join_prune(const MRIB_RECORD_S &record);
    Taken take_delete_member(const MRIB_RECORD_S &record);
    bool wants(uint64_t events) const
    {
        return registered_ && (capabilities_ & events) != 0;
    }
    Router *router_for(uint8_t family, uint16_t vrf_index, uint32_t if_index);
    Taken refuse(Fault fault);
    // What there is no memory for is missed.
    template <typename Tell> void tell(const Tell &tell)
    {
        missed_ |= !mcastd::memory_unit("what a client is told", tell);
    }
    Taken refuse_member(const Router &router, uint32_t if_index, Fault fault);
    template <typename... Arguments>
    void trace_channel(std::type_identity_t<mcastd::LineFormat<Arguments...>> format,
                       Arguments... arguments) const
    {
        mcastd::trace(mcastd::TraceCategory::Channel, instance_key(routers_.family()), format, arguments...);
    }

    // session_answers.cpp
    Taken take_register(const MRIB_RECORD_S &record);
    Taken take_change_of_events(const MRIB_RECORD_S &record);
    Taken take_request(const MRIB_RECORD_S &record);
    void answer(uint16_t request);

    // session_msdp.cpp
    Taken take_remote_source(const MRIB_RECORD_S &record);
    Taken take_msdp_enable(const MRIB_RECORD_S &record);
    Taken take_bracket(const MRIB_RECORD_S &record);
    Taken judge(MsdpExchange::Result result);

    // session_pim.cpp
    Taken take_pim(const MRIB_RECORD_S &record);
    Taken take_pim_interface(const mcastd::PimInterface &value);
    Taken take_tree(const mcastd::PimTree &value);
    Taken take_assert(const mcastd::PimAssert &value);
    Taken take_registered(const mcastd::PimRegistered &value);
    Taken take_pim_bracket(const MRIB_RECORD_S &record);
    Taken judge(TreeTable::Result result);

    // session_pim_tell.cpp
    Taken take_pim_request(const mcastd::PimReplay &value);
    bool continue_pim_replay();
    bool is_replay_full() const;
    bool replay_instances();
    bool replay_members();
    bool replay_sources();
    bool replay_remote();
    bool replay_step(uint64_t event);

    // session_users.cpp
    Taken take_user(const MRIB_RECORD_S &record);

    ClientId id_;
    Routers &routers_;
    CurrentView &current_view_;
    MsdpExchange &msdp_;
    UserRegistry &users_;
    ChannelCounters &counters_;
    ClientQueue queue_;
    bool registered_ = false;
    uint8_t component_ = 0;
    uint64_t capabilities_ = 0;
    struct Refused {
        uint16_t vrf_index;
        uint32_t if_index;
    };
    bool pim_report_ = false;        // a full report of a PIM client goes on
    std::optional<Refused> refused_; // the last membership that was, since all were asked for
    bool missed_ = false;            // memory ended in the middle of a record, or of what it is told
    // Where a replay for PIM goes on: in an instance, at a group and source or behind them, and behind an interface.
    struct PimCursor {
        uint64_t asked = 0; // classes of events
        uint64_t left = 0;
        uint16_t vrf_index = 0;
        bool is_within = false; // an instance: group, source and if_index count
        MCAST_ADDR_S group{};
        MCAST_ADDR_S source{};
        uint32_t if_index = 0;
        SgTable::Cursor remote;
    };
    std::optional<PimCursor> pim_replay_;
    std::optional<SgTable::Cursor> local_replay_; // while local sources are being replayed
};

} // namespace mribd

#endif
