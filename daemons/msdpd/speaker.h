/*
 * The MSDP speaker: all its state in one record, and the interfaces to what is outside: TCP, the MRIB process
 * and the unicast routes.
 */
#ifndef DAEMONS_MSDPD_SPEAKER_H
#define DAEMONS_MSDPD_SPEAKER_H

#include <map>
#include <memory>

#include "daemons/msdpd/advertise.h"
#include "daemons/msdpd/config.h"
#include "daemons/msdpd/peer.h"
#include "daemons/msdpd/routes.h"
#include "daemons/msdpd/rpf_prefixes.h"
#include "daemons/msdpd/sa_cache.h"
#include "mcast/msdp.h"

namespace msdpd
{

// The MRIB process as the speaker sees it.
class Mrib
{
public:
    virtual ~Mrib() = default;

    // The next local sources of the group (0: of all groups) that pass the ACL, as MRIB_MSDP_GetLocalSrc
    // gives them. Whether there are more.
    virtual bool next_local(uint32_t acl, Ipv4 group, MRIB_MSDP_CURSOR_S *cursor,
                            MRIB_MSDP_BATCH_S *batch) = 0;

    // How many local sources there are.
    virtual uint32_t local_count() = 0;

    // Whether the group is in the source-specific range.
    virtual bool is_source_specific(Ipv4 group) = 0;
};

struct Speaker {
    // The manager, the transport, the MRIB and the routes must outlive the speaker.
    Speaker(MCAST_TMR_S *manager, Transport &tcp, Mrib &channel, Routes &unicast)
        : timers(manager), transport(tcp), mrib(channel), routes(unicast), cache(manager)
    {
    }
    ~Speaker();
    Speaker(const Speaker &) = delete;
    Speaker &operator=(const Speaker &) = delete;

    MCAST_TMR_S *timers;
    Transport &transport;
    Mrib &mrib;
    Routes &routes;
    Config config;
    RpfPrefixes rpf_prefixes; // of the configuration
    SaCache cache;
    std::map<Ipv4, std::unique_ptr<Peer>> peers;
    Advertisement advertisement;
    uint64_t refused_connections = 0; // that no peer of the configuration may make
    uint64_t postponed_accepts = 0;   // times that a connection had to wait for a descriptor or memory
};

// Takes over a configuration: peers come, go and change; then as speaker_check_cache. Access lists may be
// others than before though config names the same.
void speaker_configure(Speaker &speaker, const Config &config);

// To be called each second: what a lack of memory left without its timer goes on.
void speaker_tend(Speaker &speaker);

// Forgets the entries that would not be accepted any more, and those above a peer's limit.
void speaker_check_cache(Speaker &speaker);

// The peer of the address, or NULL.
Peer *speaker_find_peer(const Speaker &speaker, Ipv4 address);

} // namespace msdpd

#endif
