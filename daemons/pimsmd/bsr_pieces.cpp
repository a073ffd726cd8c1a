#include "daemons/pimsmd/bsr_pieces.h"

#include <algorithm>

namespace pimsmd
{
namespace
{

// Tag, mask length and priority before the BSR; counts behind a range; holdtime, priority and a reserved byte of an RP.
constexpr size_t FIELDS = 4;

} // namespace

std::vector<BootstrapPiece> cut_bootstrap(uint16_t family, std::span<const BootstrapRangeOut> ranges,
                                          size_t message_size)
{
    const size_t head = PIM_HEADER_SIZE + FIELDS + encoded_unicast_size(family);
    const size_t range_size = encoded_group_size(family) + FIELDS;
    const size_t rp_size = encoded_unicast_size(family) + FIELDS;
    const size_t most = std::max(message_size, head + range_size + rp_size) - head;
    std::vector<BootstrapPiece> pieces(1);
    size_t left = most;
    for (const BootstrapRangeOut &range : ranges) {
        size_t done = 0;
        do {
            const size_t rest = range.rps.size() - done;
            if (left < range_size + (rest > 0 ? rp_size : 0)) {
                pieces.emplace_back();
                left = most;
            }
            const size_t here = std::min(rest, (left - range_size) / rp_size);
            pieces.back().push_back({range.range, range.rp_count, range.rps.subspan(done, here)});
            left -= range_size + here * rp_size;
            done += here;
        } while (done < range.rps.size());
    }
    return pieces;
}

} // namespace pimsmd
