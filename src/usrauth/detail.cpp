/*
 * What was received, counted twice: by kind and type for the operator's overview, and for each user that a
 * message names.
 *
 * The second counts also messages about users that the store does not hold; those are the ones that an
 * operator looks for. An agent can name any number of users, so records are made only up to a limit that the
 * daemon sets; users beyond it are counted in the overview alone. Records stay until they are cleared,
 * whatever becomes of the user.
 */
#include "usrauth/detail.h"

#include <stdlib.h>

using namespace mcast::usrauth;

namespace
{

using Detail = MCAST_USRAUTH_MSG_DETAIL_S;

struct DetailKey {
    uint16_t node;
    uint32_t user_id;
};

int32_t OrderOf(const Detail &first, uint16_t node, uint32_t user_id)
{
    if (first.node != node) {
        return first.node < node ? -1 : 1;
    }
    return mcast::usrauth::Order(first.user_id, user_id);
}

int32_t CompareKey(const void *record, const void *key)
{
    const DetailKey *wanted = static_cast<const DetailKey *>(key);
    return OrderOf(*static_cast<const Detail *>(record), wanted->node, wanted->user_id);
}

Detail *FindDetail(const DetailKey &key)
{
    return g_store.open ? static_cast<Detail *>(AVL_Get(g_store.details, &key, CompareKey)) : nullptr;
}

/* The first record after the pair, which need not have one. */
Detail *DetailAfter(const DetailKey &key)
{
    Detail probe = {};
    probe.node = key.node;
    probe.user_id = key.user_id;
    return g_store.open ? static_cast<Detail *>(AVL_GetNext(g_store.details, &probe)) : nullptr;
}

Detail *CreateDetail(const DetailKey &key)
{
    Detail *detail = nullptr;
    if (AVL_Count(g_store.details) < g_store.detail_limit) {
        detail = static_cast<Detail *>(calloc(1, sizeof(*detail)));
    }
    if (detail == nullptr) {
        return nullptr;
    }
    detail->node = key.node;
    detail->user_id = key.user_id;
    if (AVL_Insert(g_store.details, detail) != 0) {
        free(detail);
        return nullptr;
    }
    return detail;
}

} // namespace

namespace mcast::usrauth
{

int32_t CompareDetails(const void *first, const void *second)
{
    const Detail *other = static_cast<const Detail *>(second);
    return OrderOf(*static_cast<const Detail *>(first), other->node, other->user_id);
}

void CountRead()
{
    g_store.statistics.receive_count += g_store.open ? 1 : 0;
}

void CountMessage(uint32_t kind, uint16_t type)
{
    if (kind < kKinds) {
        ++g_store.statistics.messages[kind][type];
    }
}

void CountDetail(uint16_t node, uint32_t user_id, uint16_t type)
{
    const DetailKey key = {node, user_id};
    Detail *detail = FindDetail(key);
    if (detail == nullptr) {
        detail = CreateDetail(key);
    }
    if (detail != nullptr) {
        ++detail->counts[type];
    }
}

} // namespace mcast::usrauth

/* The callback may free records, so the walk goes on from the pair that it was at. */
MCAST_STATUS MCAST_USRAUTH_WalkAllUserMsgDetail(const MCAST_USRAUTH_DETAIL_FILTER_S *filter,
                                                MCAST_USRAUTH_DETAIL_CALLBACK callback, void *argument)
{
    if (filter == nullptr || callback == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    const bool onwards = filter->mode == MCAST_USRAUTH_DETAIL_FROM;
    DetailKey key = {filter->node, filter->user_id};
    Detail *detail = FindDetail(key);

    if (detail == nullptr && onwards) {
        detail = DetailAfter(key);
    }
    while (detail != nullptr) {
        key = {detail->node, detail->user_id};
        if (callback(detail, argument) != 0) {
            return MCAST_ERR_STOPPED;
        }
        detail = onwards ? DetailAfter(key) : nullptr;
    }
    return MCAST_OK;
}

uint32_t MCAST_USRAUTH_UserMsgDetailCount(void)
{
    return g_store.open ? AVL_Count(g_store.details) : 0;
}

MCAST_STATUS MCAST_USRAUTH_ClearRecord(void)
{
    if (g_store.open) {
        AVL_FreeAll(g_store.details);
    }
    return MCAST_OK;
}

MCAST_STATUS MCAST_USRAUTH_SetMsgDetailLimit(uint32_t limit)
{
    g_store.detail_limit = limit;
    return MCAST_OK;
}

MCAST_STATUS MCAST_USRAUTH_GetStatistics(MCAST_USRAUTH_STATISTICS_S *out)
{
    if (out == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    *out = g_store.statistics;
    return MCAST_OK;
}

MCAST_STATUS MCAST_USRAUTH_ClearStatistics(void)
{
    g_store.statistics = {};
    return MCAST_OK;
}
