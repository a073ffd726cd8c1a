/*
 * Writing PIM messages. Every function fills out from its front and returns the message's size with the checksum in
 * it, or 0 when out is too small or a list too long to be counted, with out in any state. Fields that wire.h gives a
 * smaller range than their type are taken within it.
 */
#ifndef DAEMONS_PIMSMD_WIRE_WRITE_H
#define DAEMONS_PIMSMD_WIRE_WRITE_H

#include "daemons/pimsmd/wire.h"

namespace pimsmd
{

// The addresses are of the envelope's family; those of hello itself are not looked at.
size_t write_hello(std::span<uint8_t> out, const Envelope &envelope, const Hello &hello,
                   std::span<const Address> addresses);

// A Register with the packet, or with null a null Register, whose packet is made here of source and group.
size_t write_register(std::span<uint8_t> out, const Envelope &envelope, const Register &message);

size_t write_register_stop(std::span<uint8_t> out, const Envelope &envelope, const RegisterStop &message);

size_t write_assert(std::span<uint8_t> out, const Envelope &envelope, const Assert &message);

// A range with the RPs of this fragment.
struct BootstrapRangeOut {
    GroupRange range;
    uint8_t rp_count; // of all fragments
    std::span<const BootstrapRp> rps;
};

// The ranges of message itself are not looked at.
size_t write_bootstrap(std::span<uint8_t> out, const Envelope &envelope, const Bootstrap &message,
                       std::span<const BootstrapRangeOut> ranges);

// The ranges of message itself are not looked at.
size_t write_candidate(std::span<uint8_t> out, const Envelope &envelope, const CandidateRp &message,
                       std::span<const GroupRange> ranges);

// Writes a Join/Prune into out, group for group.
class JoinPruneWriter
{
public:
    // What the counts of groups and of sources can say.
    static constexpr size_t MOST_GROUPS = 255;
    static constexpr size_t MOST_SOURCES = 65535;

    // Bytes before the first group, and of a group with so many sources.
    static constexpr size_t head_size(uint16_t family)
    {
        return PIM_HEADER_SIZE + encoded_unicast_size(family) + 4;
    }
    static constexpr size_t group_size(uint16_t family, size_t sources)
    {
        return encoded_group_size(family) + 4 + sources * encoded_source_size(family);
    }

    JoinPruneWriter(std::span<uint8_t> out, const Address &upstream, uint16_t holdtime_s);

    // Adds a group; false, with nothing added, when there is no room or count for it.
    bool add(const GroupRange &range, std::span<const TreeSource> joins, std::span<const TreeSource> prunes);

    // Bytes that are left for groups.
    size_t room() const;

    size_t groups() const
    {
        return groups_;
    }

    // Completes the message and returns its size. Nothing may be added after it.
    size_t finish(const Envelope &envelope);

private:
    std::span<uint8_t> out_;
    uint16_t family_;
    size_t size_ = 0;
    size_t groups_ = 0;
};

} // namespace pimsmd

#endif
