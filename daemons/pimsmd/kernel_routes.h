/*
 * The kernel's unicast routes.
 */
#ifndef DAEMONS_PIMSMD_KERNEL_ROUTES_H
#define DAEMONS_PIMSMD_KERNEL_ROUTES_H

#include <functional>
#include <utility>

#include "daemons/pimsmd/unicast_routes.h"
#include "mcasthost/route.h"

namespace pimsmd
{

class KernelRoutes final : public UnicastRoutes
{
public:
    explicit KernelRoutes(uint16_t family) : family_(family)
    {
    }
    ~KernelRoutes();
    KernelRoutes(const KernelRoutes &) = delete;
    KernelRoutes &operator=(const KernelRoutes &) = delete;

    // Follows the routes from the event loop; changed is called when any may be another. False on failure, which is logged.
    bool open(int loop, std::function<void()> changed);

    std::optional<UnicastRoute> look_up(const Address &address) override;

    // Whether, since the last call, the kernel could not be asked and nothing was answered: the answer may be another later.
    bool take_unanswered()
    {
        return std::exchange(unanswered_, false);
    }

private:
    uint16_t family_;
    std::function<void()> changed_;
    HOST_ROUTE_LOOKUP lookup_ = nullptr;
    HOST_ROUTE_WATCH watch_ = nullptr;
    bool unanswered_ = false;
};

} // namespace pimsmd

#endif
