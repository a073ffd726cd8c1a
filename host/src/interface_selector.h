// Selectors as this platform lays them out.
#ifndef HOST_SRC_INTERFACE_SELECTOR_H
#define HOST_SRC_INTERFACE_SELECTOR_H

#include <vector>

#include "mcasthost/link.h"
#include "platform/interface.h"

namespace host
{

// Whether the record has been made a selector.
bool is_selector(const IF_SELECTOR_S *selector);

// Leaves the links that are in the selector. Those given are all that there are.
std::vector<HOST_LINK_S> selected(const IF_SELECTOR_S &selector, const std::vector<HOST_LINK_S> &links);

} // namespace host

#endif
