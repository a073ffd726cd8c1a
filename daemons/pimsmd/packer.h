/*
 * Packs what one upstream neighbour is asked for into as few Join/Prune messages as its link's MTU allows.
 */
#ifndef DAEMONS_PIMSMD_PACKER_H
#define DAEMONS_PIMSMD_PACKER_H

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "daemons/pimsmd/wire.h"
#include "daemons/pimsmd/wire_write.h"

namespace pimsmd
{

// A Join or a Prune of a group.
struct Wish {
    TreeSource source;
    bool join;
};

class Packer
{
public:
    // Takes a complete message; the bytes are valid during the call.
    using Send = std::function<void(std::span<const uint8_t>)>;

    // Messages go to the destination of the envelope and ask the upstream neighbour. They have at most room bytes, the
    // MTU without IP's header, but see add.
    Packer(const Envelope &envelope, const Address &upstream, uint16_t holdtime_s, size_t room, Send send);

    // Adds all wishes of the group, each once, in any order. Those that cannot be apart and have no room together make
    // a longer message, which IP cuts into fragments.
    void add(const Address &group, std::span<const Wish> wishes);

    // Sends what is left. More may be added after it.
    void finish();

    // Prunes (S,G,rpt) that did not fit even into the longest message beside their Join(*,G).
    uint64_t left_out() const
    {
        return left_out_;
    }

private:
    // The wishes of a group in the order in which a message has them.
    struct Sorted {
        std::vector<TreeSource> joins;
        std::vector<TreeSource> prunes;

        size_t size() const
        {
            return joins.size() + prunes.size();
        }
    };

    void put(const Address &group, std::span<const TreeSource> joins, std::span<const TreeSource> prunes);
    void put_together(const Address &group);
    void put_apart(const Address &group);
    void send_alone(const Address &group);

    Envelope envelope_;
    Address upstream_;
    uint16_t holdtime_s_;
    Send send_;
    std::vector<uint8_t> buffer_;
    JoinPruneWriter writer_;
    Sorted together_; // of the group that is being added: what must be in one record
    Sorted apart_;    // and what may be anywhere
    uint64_t left_out_ = 0;
};

} // namespace pimsmd

#endif
