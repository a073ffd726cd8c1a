#include "intf/registry.h"

#include "mcast/interface_registry.h"

namespace mcast
{

Registry g_registry = {};

} // namespace mcast

namespace
{

using mcast::g_registry;
using mcast::IndexPool;

/* Indexes at hand: a daemon makes many interfaces at once, simple interfaces are few. */
constexpr uint32_t kInterfacesAtHand = 16384;
constexpr uint32_t kSimpleInterfacesAtHand = 128;

bool Open(uint32_t type)
{
    uint32_t base = MCAST_IF_PRIVATE_FIRST | type << MCAST_IF_TYPE_SHIFT;
    if (!mcast::OpenJoinGroups() ||
        !OpenPool(&g_registry.interfaces, base, base + MCAST_IF_NUMBER_MASK, kInterfacesAtHand) ||
        !OpenPool(&g_registry.simple_interfaces, MCAST_IF_SIMPLE_FIRST, MCAST_IF_SIMPLE_LAST,
                  kSimpleInterfacesAtHand)) {
        return false;
    }
    g_registry.open = pthread_mutex_init(&g_registry.lock.posix, nullptr) == 0;
    return g_registry.open;
}

/* The pool of the index, or NULL. */
IndexPool *PoolOf(uint32_t if_index)
{
    if (Serves(&g_registry.interfaces, if_index)) {
        return &g_registry.interfaces;
    }
    return Serves(&g_registry.simple_interfaces, if_index) ? &g_registry.simple_interfaces : nullptr;
}

uint64_t Result(bool success)
{
    return success ? MCAST_OK : MCAST_ERR_GENERAL;
}

} // namespace

uint64_t MCAST_IF_Init(uint32_t type)
{
    if (type < MCAST_IF_TYPE_NBMA_FIRST || type > MCAST_IF_TYPE_MUA_IPV6) {
        return MCAST_ERR_GENERAL;
    }
    MCAST_IF_Fini();
    if (!Open(type)) {
        MCAST_IF_Fini();
        return MCAST_ERR_GENERAL;
    }
    return MCAST_OK;
}

uint64_t MCAST_IF_Fini(void)
{
    ClosePool(&g_registry.interfaces);
    ClosePool(&g_registry.simple_interfaces);
    mcast::CloseJoinGroups();
    if (g_registry.open) {
        pthread_mutex_destroy(&g_registry.lock.posix);
        g_registry.open = false;
    }
    return MCAST_OK;
}

uint64_t MCAST_CreateIf(void)
{
    return TakeIndex(&g_registry.interfaces);
}

uint64_t MCAST_CreateSimplyIf(void)
{
    return TakeIndex(&g_registry.simple_interfaces);
}

void MCAST_DestroyIf(uint32_t if_index)
{
    IndexPool *pool = PoolOf(if_index);
    if (pool != nullptr) {
        GiveIndex(pool, if_index);
    }
}

uint64_t MCAST_IF_Degrade(void)
{
    if (!g_registry.open) {
        return MCAST_ERR_GENERAL;
    }

    bool interfaces = ResetPool(&g_registry.interfaces);
    bool simple_interfaces = ResetPool(&g_registry.simple_interfaces);

    return Result(interfaces && simple_interfaces);
}

uint64_t MCAST_ReserveIf(uint32_t if_index)
{
    IndexPool *pool = PoolOf(if_index);
    return Result(pool != nullptr && ReserveIndex(pool, if_index));
}

uint64_t MCAST_IF_ReserveFinish(void)
{
    FillCache(&g_registry.interfaces);
    FillCache(&g_registry.simple_interfaces);
    return MCAST_OK;
}
