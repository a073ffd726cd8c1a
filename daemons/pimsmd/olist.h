/*
 * The sets and conditions of RFC 7761 (sections 4.1.2 to 4.1.6, 4.4.1, 4.5 and 4.6) that decide where packets go, what is asked
 * upstream, and for which links this router stands in an election.
 */
#ifndef DAEMONS_PIMSMD_OLIST_H
#define DAEMONS_PIMSMD_OLIST_H

#include <cstdint>

namespace pimsmd
{

// A set of links, a bit for each: the kernel serves at most 32 in an instance.
using Links = uint32_t;

constexpr unsigned MOST_LINKS = 32;

// What the machines of (*,G) and the hosts say, each as the links of which it holds.
struct StarState {
    Links joins = 0;     // downstream: Join or PrunePending
    Links receivers = 0; // hosts want the group
    Links lost = 0;      // of the (*,G) assert: another router won
    Links won = 0;       // this one won
    Links rpf = 0;       // the one link to the RP, or none

    bool operator==(const StarState &other) const = default;
};

// The same of (S,G) and (S,G,rpt).
struct SourceState {
    Links joins = 0;
    Links receivers = 0;  // hosts want the source
    Links excluded = 0;   // hosts want the group but for the source
    Links rpt_prunes = 0; // downstream (S,G,rpt): Prune or PruneTmp
    Links lost = 0;       // of the (S,G) assert
    Links lost_to_better =
        0; // of these: the winner's terms are better than this router's over the source's tree
    Links won = 0;
    Links rpf = 0;          // the one link to the source, or none
    bool spt_bit = false;   // packets come over the source's tree
    bool keepalive = false; // and came not long ago
    bool connected = false; // the source is on the link
    bool remote = false;    // this router is the RP, and another domain's told of the source

    bool operator==(const SourceState &other) const = default;
};

// Where this router is designated.
struct LinkRoles {
    Links dr = 0;
};

// Outputs that (*,G) has of itself, and what joins it upstream.
Links immediate_olist(const StarState &star, LinkRoles roles);
bool join_desired(const StarState &star, LinkRoles roles);

// Links for which this router forwards over the shared tree, and those on which it matters to it who does.
Links could_assert(const StarState &star, LinkRoles roles);
Links tracks_assert(const StarState &star, LinkRoles roles);

// A source of a group, for whose (*,G) there may be no state: an empty one with its rpf.
class SourceView
{
public:
    SourceView(const StarState &star, const SourceState &source, LinkRoles roles)
        : star_(star), source_(source), roles_(roles)
    {
    }

    // Outputs that (S,G) has of itself; outputs of the source over the shared tree; both.
    Links immediate_olist() const;
    Links inherited_olist_rpt() const;
    Links inherited_olist() const;

    bool join_desired() const;

    // Links on which hosts get the source from this router.
    Links hosts() const;

    // Whether the source is not to come over the shared tree. same_upstream says that one neighbour is asked for both
    // trees: RPF'(*,G) is RPF'(S,G).
    bool prune_desired_rpt(bool same_upstream) const;

    // Links for which this router forwards over the source's tree, and those on which it matters to it who does.
    Links could_assert() const;
    Links tracks_assert() const;

    // Whether packets of the source go to the RP in Registers.
    bool could_register() const;

private:
    Links include() const;
    Links star_hosts() const;
    Links shared_tree() const;

    const StarState &star_;
    const SourceState &source_;
    LinkRoles roles_;
};

} // namespace pimsmd

#endif
