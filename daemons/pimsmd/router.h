/*
 * PIM of one family and instance, without the machine around it: links with their neighbours, the trees, the RPs and the
 * election of the BSR, put together. Messages come in through received and leave through a Transmitter; interfaces,
 * routes and the configuration are told from outside.
 *
 *      received ──► Link      neighbours, DR ────────────┐
 *              ├──► Trees     joins, asserts, Registers ◄┴── routes, RPs
 *              └──► Bsr ────► RpSet ─────────────────────────────┘
 *
 * What the parts want done waits for settle, which is to be called after everything that came and after timers ran: entries
 * settle, and what one neighbour is asked for leaves in as few messages as hold it.
 */
#ifndef DAEMONS_PIMSMD_ROUTER_H
#define DAEMONS_PIMSMD_ROUTER_H

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "daemons/pimsmd/config.h"
#include "daemons/pimsmd/link.h"
#include "daemons/pimsmd/mrib_side.h"
#include "daemons/pimsmd/rpf.h"

namespace pimsmd
{

// The kernel serves 32 interfaces in an instance, of which one is that of Registers.
constexpr unsigned MOST_PIM_LINKS = MOST_LINKS - 1;

// Entries that are looked at for what neighbours and routes do before there is a pause, and its milliseconds.
constexpr uint32_t WALKED_AT_ONCE = 65536;
constexpr uint32_t WALK_PAUSE_MS = 200;

// Looks at entries in one round.
constexpr size_t SETTLED_AT_ONCE = 8192;

class Router final : private Surroundings, private BsrSurroundings, private RpSetEvents, private LinkOwner
{
public:
    // A random number from 0 to its argument.
    using Random = std::function<uint32_t(uint32_t)>;

    // All of them outlive it but the configuration.
    Router(uint16_t family, MsQueue &queue, Transmitter &transmitter, UnicastRoutes &routes, Random random,
           const Config &config);
    ~Router();
    Router(const Router &) = delete;
    Router &operator=(const Router &) = delete;

    // Who is told of entries and links; NULL for nobody. To be called before there are any.
    void set_mrib(MribSide *mrib)
    {
        mrib_ = mrib;
    }

    // Takes another configuration.
    void configure(const Config &config);

    // PIM runs on the interface, which is new, or other than it was. False when there are too many.
    bool link_up(const LinkState &state);

    // PIM does not run there any more.
    void link_down(uint32_t if_index);

    // The machine's own addresses of the family are these.
    void set_own(std::set<Address, AddressLess> own);

    // Unicast routes may be others now.
    void routes_changed();

    // A message that came in from the interface, or of a type that is sent to one router, 0: from anywhere.
    void received(uint32_t if_index, const Envelope &envelope, std::span<const uint8_t> bytes);

    // Works off what came, a bounded amount, and sends. Whether there is more to do.
    bool settle();

    // Says goodbye as candidate RP and BSR, and on all links.
    void close();

    // The link of the interface; nothing when PIM does not run there.
    std::optional<unsigned> link_of(uint32_t if_index) const;

    // The link of the number, or NULL.
    const Link *link(unsigned number) const
    {
        return number < links_.size() ? links_[number].get() : nullptr;
    }

    Trees &trees()
    {
        return trees_;
    }
    const RpSet &rp_set() const
    {
        return rp_set_;
    }
    const Bsr &bsr() const
    {
        return *bsr_;
    }
    uint16_t family() const
    {
        return family_;
    }
    const Config &config() const
    {
        return config_;
    }
    const Rpf &rpf() const
    {
        return rpf_;
    }
    // Until the link's settings are read again.
    void set_dr_priority(unsigned link, uint32_t priority);

    // Forgets the RPs that a BSR told of.
    void forget_learnt_rps()
    {
        rp_set_.forget_learnt();
    }

    // What no link is to blame for.
    Counters &counters()
    {
        return counters_;
    }
    // The address from which this router would send to another one; nothing when there is no way.
    std::optional<Address> source_towards(const Address &address);

    // The way to a source or an RP, as the trees see it.
    Route route_to(const Address &address) override;

private:
    // Where wishes go.
    using PackerKey = std::pair<unsigned, Address>;
    struct PackerLess {
        bool operator()(const PackerKey &first, const PackerKey &second) const
        {
            return first.first != second.first ? first.first < second.first
                                               : address_less(first.second, second.second);
        }
    };

    // What a neighbour is asked for in this round. Wishes of one group leave together, in one record.
    struct Outgoing {
        Packer packer;
        Address group{};
        std::vector<Wish> wishes;

        void add(const Address &of, const Wish &wish);
        void put();
    };

    // Of several bases.
    std::optional<Address> rp_of(const Address &group) override;
    LinkFacts facts_of(unsigned link) override;
    bool is_own(const Address &address) override;
    bool switches_to_spt(const Address &group, const Address &source) override;
    uint32_t random(uint32_t most) override;
    void send(unsigned link, const Address &neighbour, const Address &group,
              std::span<const Wish> wishes) override;
    void send_assert(unsigned link, const Address &group, const Address &source,
                     const asserts::Metric &metric) override;
    void send_null_register(const Address &rp, const Address &group, const Address &source) override;
    void send_register_stop(const Address &from, const Address &to, const Address &group,
                            const Address &source) override;
    void outputs_changed(const Address &group, const Address &source) override;
    bool is_neighbour(unsigned link, const Address &address) override;
    void forward(const Bootstrap &message) override;
    void send_bootstrap(const Bootstrap &message, std::span<const BootstrapRangeOut> ranges) override;
    void send_bootstrap_to(unsigned link, const Address &neighbour, const Bootstrap &message,
                           std::span<const BootstrapRangeOut> ranges) override;
    void send_candidate(const Address &bsr, const CandidateRp &message,
                        std::span<const GroupRange> ranges) override;
    void rps_changed(const Prefix &range) override;
    void neighbour_came(unsigned link, const Neighbour &neighbour) override;
    void neighbour_restarted(unsigned link, const Neighbour &neighbour) override;
    void neighbour_left(unsigned link, const Neighbour &neighbour) override;
    void dr_changed(unsigned link) override;
    uint32_t draw(uint32_t most) override;

    void forget_ways();
    void set_up(unsigned number, const LinkState &state);
    void take_down(unsigned number);
    void configure_bsr(const BsrSettings &before);
    HelloSettings settings_of(const LinkState &state) const;
    Count take(Link &link, const Envelope &envelope, const Message &message);
    Count take_hello(Link &link, const Address &sender, const Hello &hello);
    static bool is_designated_but_for(const Link &link, const Address &newcomer);
    Count take_unicast(const Envelope &envelope, const Message &message);
    bool has_walks() const;
    void walk();
    void rejoin_link(const Link &link, const Neighbour &neighbour);
    void flush();
    void pieces_to(const Link &link, const Address *neighbour, const Bootstrap &message,
                   std::span<const BootstrapRangeOut> ranges);
    void send_unicast(const Address &to, const std::optional<Address> &from,
                      const std::function<size_t(const Envelope &)> &write);
    std::span<uint8_t> buffer()
    {
        return buffer_;
    }

    uint16_t family_;
    MsQueue &queue_;
    Transmitter &transmitter_;
    Random random_;
    Config config_;
    Counters counters_;
    MribSide *mrib_ = nullptr;
    std::set<Address, AddressLess> own_;
    Rpf rpf_;
    std::vector<uint8_t> buffer_; // of the message that is being written
    std::array<std::unique_ptr<Link>, MOST_PIM_LINKS> links_;
    std::map<uint32_t, unsigned> by_index_;
    std::map<PackerKey, Outgoing, PackerLess> outgoing_;
    RpSet rp_set_;
    Trees trees_;
    std::unique_ptr<Bsr> bsr_;
    std::span<const uint8_t> receiving_;    // the Bootstrap that is being read
    std::set<PackerKey, PackerLess> asked_; // neighbours that a way leads over
    // What all entries are to be looked at for.
    bool reroute_wanted_ = false;
    Links roles_stale_ = 0;
    std::set<PackerKey, PackerLess> restarted_;
    std::set<PackerKey, PackerLess> gone_;
    uint32_t walked_ = 0;   // entries, since the pause
    MsTimer pause_;         // runs while enough were looked at
    bool newcomer_ = false; // the Hello that is being read is of one that knows nothing
};

} // namespace pimsmd

#endif
