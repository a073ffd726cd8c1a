/*
 * The exchange with the MSDP daemon, IPv4: the local sources that it is to announce for the rendezvous point
 * of the configuration, or where PIM runs those that PIM says are registered, and the remote sources and switches
 * that it reports, for each instance.
 */
#ifndef DAEMONS_MRIBD_MSDP_EXCHANGE_H
#define DAEMONS_MRIBD_MSDP_EXCHANGE_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "daemons/mribd/router.h"
#include "daemons/mribd/sg_table.h"
#include "daemons/mribd/view.h"

namespace mribd
{

// A full re-send of one kind, between its begin and end markers.
enum class Bracket { RemoteSources, RequestEnables, EncapEnables, Count };

class MsdpExchange
{
public:
    // A local source came or went.
    struct LocalSource {
        const MCAST_ADDR_S &group;
        const MCAST_ADDR_S &source;
        uint32_t rp_be;
        bool present;
    };

    // router must outlive the exchange. Of all instances together at most remote_limit remote sources are
    // kept.
    MsdpExchange(Router &router, uint32_t remote_limit);
    ~MsdpExchange();
    MsdpExchange(const MsdpExchange &) = delete;
    MsdpExchange &operator=(const MsdpExchange &) = delete;

    void on_local_source(std::function<void(const LocalSource &)> told);

    // Called with each remote source that comes or goes.
    struct RemoteSource {
        uint16_t vrf_index;
        const MCAST_ADDR_S &group;
        const MCAST_ADDR_S &source;
        bool present;
    };
    void on_remote_source(std::function<void(const RemoteSource &)> told);

    // Called with a group of the public instance about whose sources the MSDP daemon is to ask its peers.
    void on_request(std::function<void(const MCAST_ADDR_S &group)> requested);

    // Somebody joined any source of a group that nobody had joined so. Asked about while requests are
    // enabled.
    void group_wanted(const MCAST_ADDR_S &group) const;

    // Takes over the rendezvous point; a change of it is told as removals and additions. What was reported
    // for instances that the configuration does not know any more is forgotten.
    void configure(const Config &config);

    // The rendezvous point of a local source, by its note.
    uint32_t rp_be(uint8_t note) const
    {
        return note == 0 ? rp_be_ : registered_rps_[note - 1u];
    }
    const SgTable &local_sources() const
    {
        return local_;
    }

    enum class Result { Done, UnknownInstance, Refused, NoMemory };

    // What a PIM client reports of the public instance: (source, group) is registered with the rendezvous point, or no longer.
    // Refused: the limit of remote sources holds for these too, or there are too many rendezvous points.
    static constexpr size_t MOST_REGISTERED_RPS = 255;
    Result set_registered(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint32_t rp_be,
                          bool present);
    void begin_registered();
    void end_registered();

    // To be called after each round: takes over whether PIM runs in the public instance.
    void follow_pim();

    // Whether a local source found no memory since all of them were looked at, and looks at all of them again.
    bool lacks_local() const
    {
        return lacks_local_;
    }
    void take_all_local();

    // What a client reports. Refused: the limit is reached.
    Result add_remote(uint16_t vrf_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                      uint8_t entry);
    Result remove_remote(uint16_t vrf_index, const MCAST_ADDR_S &group, const MCAST_ADDR_S &source);
    Result set_enable(Bracket kind, uint16_t vrf_index, bool enable);

    // A begin marker marks all of its kind, in every instance; the client's end marker drops what was not
    // sent again. An end without its client's begin is refused.
    void begin(Bracket kind, ClientId client);
    Result end(Bracket kind, ClientId client);

    // Ends the client's brackets without dropping anything: it will report again.
    void drop_client(ClientId client);

    struct Switch {
        bool enable = false;
        bool stale = false;
    };
    // What was reported for one instance.
    struct Reported {
        SgTable remote;
        Switch request_enable;
        Switch encap_enable;
    };
    const std::map<uint16_t, Reported> &instances() const
    {
        return instances_;
    }

    uint32_t remote_count() const;

    uint64_t refused() const
    {
        return refused_;
    }
    uint64_t swept() const
    {
        return swept_;
    }

private:
    Reported *find(uint16_t vrf_index);
    void take_local(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, bool present);
    void tell_all(bool present) const;
    void tell_local(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note, bool present) const;
    Reported &add_instance(uint16_t vrf_index);
    uint8_t note_of_rp(uint32_t rp_be);
    void take_registered();

    Router &router_;
    uint32_t remote_limit_;
    uint32_t rp_be_ = 0;
    SgTable local_;      // noted: the rendezvous point, see rp_be
    SgTable registered_; // noted in the same way; local_ holds them while PIM runs
    std::vector<uint32_t> registered_rps_;
    bool pim_runs_ = false;
    bool lacks_local_ = false;
    std::map<uint16_t, Reported> instances_;
    std::array<ClientId, static_cast<size_t>(Bracket::Count)> owners_{}; // of the open brackets, 0: none
    std::function<void(const LocalSource &)> told_;
    std::function<void(const RemoteSource &)> remote_told_;
    std::function<void(const MCAST_ADDR_S &group)> requested_;
    uint64_t refused_ = 0;
    uint64_t swept_ = 0;
};

} // namespace mribd

#endif
