/*
 * The register machine of a source whose designated router this one is.
 */
#ifndef DAEMONS_PIMSMD_TREE_REGISTER_H
#define DAEMONS_PIMSMD_TREE_REGISTER_H

#include "daemons/pimsmd/address.h"
#include "daemons/pimsmd/register.h"

namespace pimsmd
{

struct SourceEntry;

// It is there while this router could register the source with an RP that is another router.
struct SourceRegister final : registers::Owner {
    SourceRegister(SourceEntry &of, const Address &with);
    SourceRegister(const SourceRegister &) = delete;
    SourceRegister &operator=(const SourceRegister &) = delete;

    void set_tunnel(bool on) override;
    void update_tunnel() override;
    void send_null_register() override;
    uint32_t draw_suppression_ms() override;
    uint32_t probe_ms() override;

    SourceEntry &source;
    Address rp;
    registers::Runner machine;
};

} // namespace pimsmd

#endif
