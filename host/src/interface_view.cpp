/*
 * Names are wanted on any thread, one for each line of trace, while a link table belongs to the thread that
 * runs its loop. So a table feeds a copy, and readers of the copy share its lock:
 *
 *     kernel ── notifications ──► link table ── events ──► feed (links by index)
 *                                                            ▲ shared lock
 *     IF_ calls of any thread ───────────────────────────────┘
 *              └── no table, or several ──► a request of the kernel, in the caller's network namespace
 *
 * With several tables the process may serve several network namespaces, and a copy cannot tell which of them
 * the caller is in; the kernel can. A feed counts only when its table is completely read: until then the
 * kernel knows more.
 */
#include "interface_view.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <net/if.h>
#include <new>
#include <shared_mutex>
#include <linux/rtnetlink.h>

#include "link_message.h"
#include "netlink.h"

namespace host
{

struct InterfaceFeeds {
    std::shared_mutex mutex;
    InterfaceFeed *first = nullptr; // guarded by mutex, like the feeds

    // The links of the one table, NULL when the kernel is to be asked. The caller holds the mutex.
    const std::map<uint32_t, HOST_LINK_S> *links() const
    {
        const bool usable =
            first != nullptr && first->next_ == nullptr && first->complete_ && !first->broken_;
        return usable ? &first->links_ : nullptr;
    }
    void add(InterfaceFeed *feed)
    {
        const std::lock_guard<std::shared_mutex> lock(mutex);
        feed->next_ = first;
        first = feed;
    }
    void remove(InterfaceFeed *feed)
    {
        const std::lock_guard<std::shared_mutex> lock(mutex);
        InterfaceFeed **place = &first;
        while (*place != feed) {
            place = &(*place)->next_;
        }
        *place = feed->next_;
    }
};

} // namespace host

namespace
{

using host::InterfaceFeeds;
using host::Netlink;

constexpr int DUMP_ATTEMPTS = 10;

// Never destroyed: threads may ask while the process ends.
union Immortal {
    constexpr Immortal() : feeds()
    {
    }
    ~Immortal()
    {
    }
    InterfaceFeeds feeds;
};

constinit Immortal g_immortal;

void collect(const nlmsghdr *message, void *context)
{
    HOST_LINK_S link;
    if (message->nlmsg_type == RTM_NEWLINK && host::read_link(message, &link)) {
        static_cast<std::vector<HOST_LINK_S> *>(context)->push_back(link);
    }
}

// Asks for one link by index, by name when the index is 0, or for all of them when there is no name either.
bool ask_kernel(uint32_t if_index, const char *name, std::vector<HOST_LINK_S> *links)
{
    Netlink requests;
    if (!requests.open(Netlink::Kind::Requests)) {
        return false;
    }
    for (int attempt = 0; attempt < DUMP_ATTEMPTS; ++attempt) {
        alignas(nlmsghdr) char buffer[128] = {};
        nlmsghdr *header = mnl_nlmsg_put_header(buffer);
        header->nlmsg_type = RTM_GETLINK;
        header->nlmsg_flags = if_index == 0 && name == nullptr ? NLM_F_DUMP : 0;
        auto *info = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(header, sizeof(ifinfomsg)));
        info->ifi_index = static_cast<int>(if_index);
        if (name != nullptr) {
            mnl_attr_put_strz(header, IFLA_IFNAME, name);
        }
        links->clear();
        if (requests.request(header, collect, links)) {
            return true;
        }
        if (errno != EINTR) {
            return false;
        }
    }
    return false;
}

// Reads the copy with the function, which gets its links. False when there is none to read.
template <typename Read> bool read_copy(Read read)
{
    InterfaceFeeds &feeds = g_immortal.feeds;
    const std::shared_lock<std::shared_mutex> lock(feeds.mutex);
    const auto *links = feeds.links();
    if (links != nullptr) {
        read(*links);
    }
    return links != nullptr;
}

bool take_first(const std::vector<HOST_LINK_S> &links, HOST_LINK_S *link)
{
    if (!links.empty()) {
        *link = links.front();
    }
    return !links.empty();
}

} // namespace

namespace host
{

InterfaceFeed::InterfaceFeed()
{
    g_immortal.feeds.add(this);
}

InterfaceFeed::~InterfaceFeed()
{
    g_immortal.feeds.remove(this);
}

void InterfaceFeed::apply(const HOST_LINK_EVENT_S &event) noexcept
{
    if (event.address != nullptr) {
        return;
    }
    const std::lock_guard<std::shared_mutex> lock(g_immortal.feeds.mutex);
    if (event.kind == HOST_LINK_EVENT_REMOVED) {
        links_.erase(event.link->if_index);
        return;
    }
    try {
        links_.insert_or_assign(event.link->if_index, *event.link);
    } catch (const std::bad_alloc &) {
        broken_ = true;
    }
}

void InterfaceFeed::complete()
{
    const std::lock_guard<std::shared_mutex> lock(g_immortal.feeds.mutex);
    complete_ = true;
}

bool find_interface(uint32_t if_index, HOST_LINK_S *link)
{
    if (if_index == 0 || if_index > INT_MAX) {
        return false;
    }
    bool found = false;
    const bool copied = read_copy([&](const std::map<uint32_t, HOST_LINK_S> &links) {
        const auto place = links.find(if_index);
        found = place != links.end();
        if (found) {
            *link = place->second;
        }
    });
    std::vector<HOST_LINK_S> answer;
    return copied ? found : ask_kernel(if_index, nullptr, &answer) && take_first(answer, link);
}

bool find_interface(const char *name, HOST_LINK_S *link)
{
    if (name[0] == '\0' || strnlen(name, IF_NAMESIZE) == IF_NAMESIZE) {
        return false;
    }
    bool found = false;
    const bool copied = read_copy([&](const std::map<uint32_t, HOST_LINK_S> &links) {
        const auto place = std::find_if(links.begin(), links.end(), [name](const auto &entry) {
            return strcmp(entry.second.name, name) == 0;
        });
        found = place != links.end();
        if (found) {
            *link = place->second;
        }
    });
    std::vector<HOST_LINK_S> answer;
    return copied ? found : ask_kernel(0, name, &answer) && take_first(answer, link);
}

bool find_interface(const std::function<bool(const HOST_LINK_S &)> &wanted, HOST_LINK_S *link)
{
    bool found = false;
    const bool copied = read_copy([&](const std::map<uint32_t, HOST_LINK_S> &links) {
        const auto place = std::find_if(links.begin(), links.end(),
                                        [&wanted](const auto &entry) { return wanted(entry.second); });
        found = place != links.end();
        if (found) {
            *link = place->second;
        }
    });
    std::vector<HOST_LINK_S> answer;
    if (copied || !all_interfaces(&answer)) {
        return found;
    }
    const auto place = std::find_if(answer.begin(), answer.end(), wanted);
    if (place != answer.end()) {
        *link = *place;
    }
    return place != answer.end();
}

bool all_interfaces(std::vector<HOST_LINK_S> *links)
{
    links->clear();
    const bool copied = read_copy([links](const std::map<uint32_t, HOST_LINK_S> &copy) {
        for (const auto &[if_index, link] : copy) {
            links->push_back(link);
        }
    });
    if (!copied && !ask_kernel(0, nullptr, links)) {
        return false;
    }
    std::sort(links->begin(), links->end(), [](const HOST_LINK_S &left, const HOST_LINK_S &right) {
        return left.if_index < right.if_index;
    });
    return true;
}

} // namespace host
