/*
 * The listening half of the scale run's load: what the router's kernel says of its forwarding entries.
 */
#ifndef BENCH_SCALE_KERNEL_H
#define BENCH_SCALE_KERNEL_H

#include <array>
#include <cstdint>
#include <functional>
#include <libmnl/libmnl.h>
#include <optional>
#include <string>
#include <linux/netlink.h>

#include "scale_joins.h"

namespace scale
{

// A forwarding entry of the kernel.
struct Entry {
    bool forwards = false;        // it has an outgoing interface
    std::optional<uint32_t> join; // that asked for it
};

class Kernel
{
public:
    using Take = std::function<void(const Entry &entry)>;

    // Opens its sockets in the router's namespace, whose file is named. Ends the program on failure.
    Kernel(const Family &family, const std::string &router);

    // Waits a moment for a notification, and hands over the entries that it tells of.
    void listen(const Take &take);

    // Hands over all entries that the kernel has.
    void dump(const Take &take);

    // How often notifications were lost because they were not read fast enough.
    uint64_t overruns() const
    {
        return overruns_;
    }

private:
    Entry entry_of(const nlmsghdr *message) const;
    bool visit(ssize_t size, const Take &take) const;

    const Family &family_;
    mnl_socket *notifications_ = nullptr;
    mnl_socket *requests_ = nullptr;
    uint64_t overruns_ = 0;
    alignas(nlmsghdr) std::array<uint8_t, 65536> buffer_{};
};

} // namespace scale

#endif
