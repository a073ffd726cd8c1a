/*
 * What the MRIB process says: what hosts want on each interface, which sources send, which are known in other domains, which
 * kernel table an instance has. It keeps what hosts want, on interfaces without PIM too: links come later than that.
 *
 * A replay says all of it again. What it left out goes once it has ended and a while has passed, in which the MRIB process, if
 * it has just started, hears from its other clients.
 */
#ifndef DAEMONS_PIMSMD_MRIB_LISTENER_H
#define DAEMONS_PIMSMD_MRIB_LISTENER_H

#include <map>
#include <set>

#include "daemons/common/limit_watch.h"
#include "daemons/common/pim_records.h"
#include "daemons/pimsmd/mrib_teller.h"

namespace pimsmd
{

// What hosts want: groups and sources of interfaces, and excluded sources; sources of other domains.
constexpr uint32_t MOST_WANTED = 524288;
constexpr uint32_t MOST_REMOTE = 131072;

// Milliseconds after the end of a replay until what it left out goes.
constexpr uint32_t SWEEP_DELAY_MS = 10000;

class ListenerSurroundings
{
public:
    // The link of the interface; nothing when PIM does not run there.
    virtual std::optional<unsigned> link_of(uint32_t if_index) const = 0;

protected:
    ~ListenerSurroundings() = default;
};

struct ListenerCounts {
    uint64_t records = 0;
    uint64_t wrong = 0;          // records that break the rules of their kind
    uint64_t other_instance = 0; // records about an instance that this process does not serve
    uint64_t refused = 0;        // wishes and remote sources beyond the limits, or without memory
};

class MribListener
{
public:
    // All of them outlive it.
    MribListener(uint16_t instance, MsQueue &queue, Trees &trees, ListenerSurroundings &surroundings,
                 MribTeller &teller, RegisterTunnels &tunnels);
    MribListener(const MribListener &) = delete;
    MribListener &operator=(const MribListener &) = delete;

    // A replay begins, as at each new connection.
    void replay_begins();

    // Takes a record. Whether it was the one that asks for a replay.
    bool take(const MRIB_RECORD_S &record);

    // PIM runs on the link from now on.
    void link_came(unsigned link, uint32_t if_index);

    // Drops some of what the last replay left out, when it is time. Whether there is more of it.
    bool sweep(size_t most);

    // Whether something was refused that a further replay would bring, now that there is room.
    bool wants_replay() const;

    const ListenerCounts &counts() const
    {
        return counts_;
    }
    size_t wanted() const
    {
        return wanted_.size();
    }
    size_t remote() const
    {
        return remote_.size();
    }

private:
    struct Wish {
        uint32_t if_index;
        Address group;
        Address source; // unspecified: of all
        bool exclude;

        bool operator<(const Wish &other) const;
    };
    struct Remote {
        Address group;
        Address source;

        bool operator<(const Remote &other) const;
    };
    using Wanted = std::map<Wish, uint32_t>; // with the replay that said it last
    using RemoteSources = std::map<Remote, uint32_t>;

    template <typename Value, typename Take> void take_value(const MRIB_RECORD_S &record, Take take);
    void take_member(const MRIB_JOIN_PRUNE_S &value);
    void take_source(const mcastd::PimSource &value);
    void take_remote(const mcastd::PimRemote &value);
    void take_instance(const mcastd::PimInstance &value);
    void apply(const Wish &wish, bool wanted);
    bool has_room(size_t used, uint32_t limit);
    static void sweep_due(void *self);

    uint16_t instance_;
    uint16_t family_;
    MsQueue &queue_;
    Trees &trees_;
    ListenerSurroundings &surroundings_;
    MribTeller &teller_;
    RegisterTunnels &tunnels_;
    Wanted wanted_;
    RemoteSources remote_;
    uint32_t replay_ = 0;
    MsTimer sweep_delay_;
    bool sweeping_ = false;
    Wanted::iterator swept_;
    RemoteSources::iterator swept_remote_;
    bool refused_ = false; // since the last replay
    ListenerCounts counts_;
    mcastd::LimitWatch<90, 80> limit_watch_;
};

} // namespace pimsmd

#endif
