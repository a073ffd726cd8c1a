/*
 * The state of the link table: what the kernel's messages make of it and the events that follow.
 */
#ifndef HOST_SRC_LINK_TABLE_H
#define HOST_SRC_LINK_TABLE_H

#include <map>
#include <vector>
#include <linux/netlink.h>

#include "mcasthost/link.h"

namespace host
{

struct LinkEntry {
    HOST_LINK_S link;
    std::vector<HOST_ADDRESS_S> addresses;
};

using LinkMap = std::map<uint32_t, LinkEntry>;

class LinkState
{
public:
    using Sink = void (*)(const HOST_LINK_EVENT_S &event, void *context);

    LinkState(Sink sink, void *context) : sink_(sink), context_(context)
    {
    }

    void set_link(const HOST_LINK_S &link);
    void remove_link(uint32_t if_index);
    void set_address(const HOST_ADDRESS_S &address);
    void remove_address(const HOST_ADDRESS_S &address);

    // Makes the state equal to what was read anew, with an event for every difference.
    void become(const LinkMap &fresh);

    const LinkMap &links() const
    {
        return links_;
    }

private:
    void emit(uint32_t kind, const HOST_LINK_S &link, const HOST_LINK_S *old_link,
              const HOST_ADDRESS_S *address);
    void change_link(LinkEntry *entry, const HOST_LINK_S &link);

    Sink sink_;
    void *context_;
    LinkMap links_;
};

// Makes the change that a route netlink message tells of; others change nothing.
void apply_message(const nlmsghdr *message, LinkState *state);

// Whether both are the same address of a link, whatever its flags.
bool same_address(const HOST_ADDRESS_S &first, const HOST_ADDRESS_S &second);

} // namespace host

#endif
