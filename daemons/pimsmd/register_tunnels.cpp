#include "daemons/pimsmd/register_tunnels.h"

#include <linux/rtnetlink.h>

namespace pimsmd
{
namespace
{

class MCAST_TSA(scoped_lockable) Writing
{
public:
    explicit Writing(MCAST_RWLOCK_S &lock) MCAST_ACQUIRE(lock) : lock_(lock)
    {
        pthread_rwlock_wrlock(&lock_.posix);
    }
    ~Writing() MCAST_RELEASE()
    {
        pthread_rwlock_unlock(&lock_.posix);
    }
    Writing(const Writing &) = delete;
    Writing &operator=(const Writing &) = delete;

private:
    MCAST_RWLOCK_S &lock_;
};

class MCAST_TSA(scoped_lockable) Reading
{
public:
    explicit Reading(MCAST_RWLOCK_S &lock) MCAST_ACQUIRE_SHARED(lock) : lock_(lock)
    {
        pthread_rwlock_rdlock(&lock_.posix);
    }
    ~Reading() MCAST_TSA(release_generic_capability())
    {
        pthread_rwlock_unlock(&lock_.posix);
    }
    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;

private:
    MCAST_RWLOCK_S &lock_;
};

// Reports name the default table by its number.
uint32_t reported_table(uint16_t family, uint32_t table)
{
    if (family == MCAST_FAMILY_IPV6) {
        return 0;
    }
    return table == 0 ? uint32_t{RT_TABLE_DEFAULT} : table;
}

} // namespace

bool RegisterTunnels::Key::operator<(const Key &other) const
{
    if (instance != other.instance) {
        return instance < other.instance;
    }
    const int order = mcastd::compare_address(group, other.group);
    return order != 0 ? order < 0 : address_less(source, other.source);
}

RegisterTunnels::~RegisterTunnels()
{
    pthread_rwlock_destroy(&lock_.posix);
}

void RegisterTunnels::set_instance(uint16_t instance, uint32_t table, uint32_t vif)
{
    remove_instance(instance);
    const Writing writing(lock_);
    instances_[{reported_table(family_, table), vif}] = instance;
}

void RegisterTunnels::remove_instance(uint16_t instance)
{
    const Writing writing(lock_);
    std::erase_if(instances_, [instance](const auto &one) { return one.second == instance; });
}

void RegisterTunnels::put(uint16_t instance, const Address &group, const Address &source,
                          const Tunnel &tunnel)
{
    const Writing writing(lock_);
    tunnels_.insert_or_assign({instance, group, source}, tunnel);
}

void RegisterTunnels::remove(uint16_t instance, const Address &group, const Address &source)
{
    const Writing writing(lock_);
    tunnels_.erase({instance, group, source});
}

void RegisterTunnels::clear()
{
    const Writing writing(lock_);
    tunnels_.clear();
}

std::optional<Tunnel> RegisterTunnels::find(const RegisterReport &report) const
{
    const Reading reading(lock_);
    const auto instance = instances_.find({report.table, report.vif});
    if (instance == instances_.end()) {
        return std::nullopt;
    }
    const auto found = tunnels_.find({instance->second, report.group, report.source});
    return found != tunnels_.end() ? std::optional(found->second) : std::nullopt;
}

size_t RegisterTunnels::size() const
{
    const Reading reading(lock_);
    return tunnels_.size();
}

} // namespace pimsmd
