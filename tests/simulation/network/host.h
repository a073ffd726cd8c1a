/*
 * A host as the RFCs describe it: what it wants of each group, the reports when that changes, the answers to
 * queries after a while of its own choice, and older messages while an older querier is heard.
 *
 *     join, leave ──► wants ──► change reports, repeated         queries ──► answer later, from what it wants then
 *
 * Who speaks version 1 or 2 does not repeat what another host reported meanwhile, and leaves without a word when
 * another one was the last to report. Version 1 never says that it leaves; it has no twin in MLD, where it is 2.
 */
#ifndef TESTS_SIMULATION_NETWORK_HOST_H
#define TESTS_SIMULATION_NETWORK_HOST_H

#include <map>
#include <set>

#include "tests/simulation/network/link.h"
#include "tests/simulation/network/membership_message.h"

namespace sim
{

// Sources of a group: those named, or all but those named.
struct Filter {
    bool exclude = false;
    std::set<Address> sources;

    bool operator==(const Filter &) const = default;
    bool is_nothing() const
    {
        return !exclude && sources.empty();
    }
    bool wants(const Address &source) const
    {
        return sources.contains(source) != exclude;
    }
};

class Host
{
public:
    struct Addresses {
        Address ipv4;
        Address ipv6; // link-local
    };

    Host(Kernel &kernel, Link &link, std::string name, uint64_t number, const Addresses &addresses,
         unsigned version);
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    const std::string name;
    const unsigned version;
    bool is_silent = false; // neither reports nor answers

    // Wants that of the group from now on, and says so.
    void listen(const Address &group, const Filter &filter);
    // Wants nothing more and says nothing.
    void vanish();

    uint64_t number() const
    {
        return number_;
    }
    const Link &link() const
    {
        return link_;
    }
    const Address &address(int family) const
    {
        return family == AF_INET ? addresses_.ipv4 : addresses_.ipv6;
    }
    const std::map<Address, Filter> &wants() const
    {
        return wants_;
    }
    bool wants(const Address &source, const Address &group) const;
    // When what it wants of the group changed last; 0 when it never did.
    Ns changed(const Address &group) const;
    // Since when it has wanted this source without a gap, whatever changed besides; NEVER when it does not.
    Ns wanted_since(const Address &source, const Address &group) const;
    // When it last said anything about the group.
    Ns reported(const Address &group) const;

    void hear(const Packet &packet);

    // The version in which it speaks now.
    unsigned spoken(int family) const;

private:
    void report_change(const Address &group, const Filter &before, const Filter &after);
    void answer(int family, const Query &query, Ns asked);
    void answer_old(int family, const Query &query, Ns asked);
    void say(const Address &group, Bytes packet);
    void say_again(Ns within, const Address &group, const Bytes &packet);
    void hear_query(int family, const Query &query);
    bool was_reported_since(const Address &group, Ns when) const;
    Ns draw(Ns limit)
    {
        return kernel_.draw.below(Stream::Host, number_, limit);
    }

    Kernel &kernel_;
    Link &link_;
    uint64_t number_;
    Addresses addresses_;
    std::map<Address, Filter> wants_;
    std::map<Address, Ns> changed_;
    std::map<Address, std::vector<std::pair<Ns, Filter>>> before_; // until when it wanted what, of late
    std::map<Address, Ns> reported_;
    std::map<Address, Ns> heard_; // when another host reported the group in an older version
    std::map<int, std::pair<unsigned, Ns>> older_querier_; // by family: its version, and until when
};

} // namespace sim

#endif
