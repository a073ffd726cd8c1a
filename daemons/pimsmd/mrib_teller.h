/*
 * Tells the MRIB process what the trees are: keeps for every entry what was told of it, and says what is other now. However
 * often an entry changes between two looks, one record of each kind says what became of it.
 *
 *      trees ── entry_changed ──► node of the entry: what was told ──► queue ┐
 *      links ── link_came, dr_changed, link_gone ────────────────────────────┤
 *      a new source ── answer ──► queue of those who wait                    ▼
 *                                                         tell: as much as the records take
 *
 * A new connection knows nothing: a number that grows says for each node whether what it remembers is of this connection, and
 * of which interfaces it is void. So nothing has to be gone through at once.
 */
#ifndef DAEMONS_PIMSMD_MRIB_TELLER_H
#define DAEMONS_PIMSMD_MRIB_TELLER_H

#include <array>
#include <map>
#include <optional>
#include <set>

#include "daemons/common/pim_records.h"
#include "daemons/pimsmd/mrib_side.h"
#include "daemons/pimsmd/register_tunnels.h"
#include "daemons/pimsmd/tree.h"

namespace pimsmd
{

// Takes records of the channel.
class MribRecords
{
public:
    // Whether more may be said now; what is said all the same waits.
    virtual bool has_room() = 0;

    // A record of pim_records.h with its value.
    virtual void append(uint16_t type, std::span<const uint8_t> value) = 0;

    // A record of join/prune; the flags are those of membership.h.
    virtual void join_prune(uint32_t if_index, const Address &group, const Address &source, uint8_t join,
                            uint8_t exclude) = 0;

protected:
    ~MribRecords() = default;
};

// What the teller has to know beside the trees.
class TellerSurroundings
{
public:
    // The interface of a link; 0 when there is none.
    virtual uint32_t interface_of(unsigned link) const = 0;

    // How a Register to the RP leaves, of a source on the link; nothing when there is no way.
    virtual std::optional<Tunnel> tunnel_to(const Address &rp, unsigned link) = 0;

protected:
    ~TellerSurroundings() = default;
};

class MribTeller final : public MribSide
{
public:
    // All of them outlive it.
    MribTeller(uint16_t instance, Trees &trees, TellerSurroundings &surroundings, RegisterTunnels &tunnels);
    MribTeller(const MribTeller &) = delete;
    MribTeller &operator=(const MribTeller &) = delete;

    void link_came(unsigned link) override;
    void dr_changed(unsigned link) override;
    void link_gone(unsigned link, uint32_t if_index) override;
    void entry_changed(const Address &group, const Address &source) override;

    // A source's first packet waits for what is said of it.
    void answer(const Address &group, const Address &source);

    // Nothing is told yet: everything is to be said, within brackets.
    void start_over();

    // Says at most so many entries, fewer when there is no room. Whether some are left that there would be room for.
    bool tell(MribRecords &records, size_t most);

    // Says of every link that PIM ends there.
    void take_leave(MribRecords &records);

    // Whether all that was there at start_over has been said.
    bool is_complete() const
    {
        return !walking_ && !missed_;
    }

    // Entries that wait to be looked at.
    size_t waiting() const
    {
        return waiting_;
    }
    // Entries of which something is told.
    size_t entries() const
    {
        return nodes_.size();
    }

private:
    struct Key {
        Address group;
        Address source; // unspecified: of all
    };
    struct KeyLess {
        bool operator()(const Key &first, const Key &second) const
        {
            const int order = mcastd::compare_address(first.group, second.group);
            return order != 0 ? order < 0 : address_less(first.source, second.source);
        }
    };

    // What holds of an entry, or was told of it. Nothing but zeroes is an entry of which nothing is said.
    struct Said {
        Links joins = 0;
        Links blocks = 0;
        Links lost = 0;
        Links won = 0;
        uint32_t from_interface = 0;
        uint32_t awaited = 0; // interface over which a packet would show that the source's own tree works
        uint16_t flags = 0;
        uint8_t from = mcastd::PIM_FROM_UNSAID;
        bool rp_is_own = false;
        Address registered_at{}; // the RP, family 0 where it is not registered

        bool operator==(const Said &other) const;
    };

    class NodeList;

    struct Node {
        Key key;
        Said told;
        uint64_t serial = 0; // when it was told
        Node *next = nullptr;
        Node *previous = nullptr;
        NodeList *list = nullptr; // in which it waits
        bool answer = false;
        bool tunnelled = false;
    };

    // Nodes that wait, each in one list at most, without memory of its own.
    class NodeList
    {
    public:
        void push_back(Node &node);
        void remove(Node &node);
        Node *first() const
        {
            return first_;
        }

    private:
        Node *first_ = nullptr;
        Node *last_ = nullptr;
    };

    struct LinkTold {
        uint32_t if_index = 0;
        uint8_t state = mcastd::PIM_GONE;
        uint64_t serial = 0;
    };

    using Nodes = std::map<Key, Node, KeyLess>;

    Node &node_of(const Address &group, const Address &source);
    void queue(Node &node, NodeList &list);
    void queue_sources(const Address &group);
    void tell_links(MribRecords &records);
    void say_link(MribRecords &records, uint32_t if_index, uint8_t state) const;
    bool tell_next(MribRecords &records);
    void tell_node(MribRecords &records, Node &node);
    void see_all();
    void forget_void(Node &node) const;
    uint32_t interface_of(Links rpf) const;
    Said now(const Key &key);
    Said of_group(const GroupEntry &group);
    Said of_source(const SourceEntry &source);
    bool tunnel(const Key &key, bool was);
    void say_asserts(MribRecords &records, const Key &key, const Said &before, const Said &after) const;
    void say_joins(MribRecords &records, const Key &key, Links before, Links after, uint8_t exclude) const;
    void say_tree(MribRecords &records, const Key &key, const Said &after, uint16_t more) const;
    void say_registered(MribRecords &records, const Key &key, const Address &rp, bool present) const;

    uint16_t instance_;
    Trees &trees_;
    TellerSurroundings &surroundings_;
    RegisterTunnels &tunnels_;
    Nodes nodes_;
    NodeList urgent_;
    NodeList changed_;
    size_t waiting_ = 0;
    uint64_t serial_ = 1;
    uint64_t started_ = 1;                       // the serial of the last start
    uint64_t newest_gone_ = 0;                   // of the links, the serial when one went last
    std::array<uint64_t, MOST_LINKS> gone_at_{}; // and of each
    std::array<LinkTold, MOST_LINKS> links_{};
    std::set<uint32_t> gone_; // interfaces of which it has to be told
    bool walking_ = false;    // through all nodes, which have to be told again
    std::optional<Key> walked_;
    bool missed_ = false; // there was no memory for a change
};

} // namespace pimsmd

#endif
