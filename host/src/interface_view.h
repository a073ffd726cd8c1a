/*
 * The links as the interface service sees them, from any thread: a copy of the process's link table when
 * there is exactly one, and otherwise the kernel's own answer for the calling thread's network namespace.
 */
#ifndef HOST_SRC_INTERFACE_VIEW_H
#define HOST_SRC_INTERFACE_VIEW_H

#include <cerrno>
#include <cstdint>
#include <functional>
#include <map>
#include <new>
#include <vector>

#include "mcasthost/link.h"

namespace host
{

// A link table's share in the view. The table's thread feeds it before it reports the change.
class InterfaceFeed
{
public:
    InterfaceFeed();
    ~InterfaceFeed();
    InterfaceFeed(const InterfaceFeed &) = delete;
    InterfaceFeed &operator=(const InterfaceFeed &) = delete;

    void apply(const HOST_LINK_EVENT_S &event) noexcept;

    // What has been applied is the whole table.
    void complete();

private:
    friend struct InterfaceFeeds;

    // All guarded by the lock of the feeds.
    std::map<uint32_t, HOST_LINK_S> links_;
    bool complete_ = false;
    bool broken_ = false; // memory was short once; the kernel is asked from then on
    InterfaceFeed *next_ = nullptr;
};

// False when there is none or the kernel cannot be asked; *link is then untouched. May throw std::bad_alloc.
bool find_interface(uint32_t if_index, HOST_LINK_S *link);
bool find_interface(const char *name, HOST_LINK_S *link);

// The link with the lowest index for which wanted is true. Calls it under the view's lock, so it must not ask
// the view.
bool find_interface(const std::function<bool(const HOST_LINK_S &)> &wanted, HOST_LINK_S *link);

// find_interface for C callers: throws nothing and leaves errno alone.
template <typename Key> bool find_interface_quietly(const Key &key, HOST_LINK_S *link)
{
    const int saved = errno;
    bool found = false;
    try {
        found = find_interface(key, link);
    } catch (const std::bad_alloc &) {
        found = false;
    }
    errno = saved;
    return found;
}

// Every link, in the order of their indexes. False when the kernel cannot be asked. May throw std::bad_alloc.
bool all_interfaces(std::vector<HOST_LINK_S> *links);

} // namespace host

#endif
