/*
 * A Bootstrap cut into messages that fit a link: between RPs, never within one, so that each piece is of use alone (RFC
 * 5059, section 3.4.1). bsr_fragments.h puts them together again.
 */
#ifndef DAEMONS_PIMSMD_BSR_PIECES_H
#define DAEMONS_PIMSMD_BSR_PIECES_H

#include <vector>

#include "daemons/pimsmd/wire_write.h"

namespace pimsmd
{

using BootstrapPiece = std::vector<BootstrapRangeOut>;

// The ranges in as few messages as hold them in their order, each of at most so many bytes from the PIM header on; at least
// one message. The pieces are views of the ranges' RPs. A size in which not even one range with one RP finds room is taken as
// one in which it just does.
std::vector<BootstrapPiece> cut_bootstrap(uint16_t family, std::span<const BootstrapRangeOut> ranges,
                                          size_t message_size);

} // namespace pimsmd

#endif
