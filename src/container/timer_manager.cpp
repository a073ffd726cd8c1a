/*
 * The timer manager: many one-shot timers on one platform timer.
 *
 * The timers stand in a min-heap by expiry in whole seconds since boot. The platform timer is armed for the
 * top whenever the top came closer; when the top went away or became later it is left alone, fires early, and
 * the processing that follows finds nothing due and arms it again. So adding, refreshing or cancelling a
 * timer that is not the first costs no call of the platform beyond reading the time. When the platform
 * refuses to arm, the manager remembers it, and the next add, refresh or processing tries again.
 *
 * A timer is freed at one of two places: in DeleteNode while it stands in the heap, or in ProcExpires after
 * its callback. Between extraction and that free the callback runs, and it may hold a pointer to its own
 * timer whose recorded position now belongs to another one. DeleteNode and RefreshNode therefore touch the
 * heap only when the slot at the recorded position holds the very timer they were given.
 *
 * Moving a timer down the heap compares two timers a level, and timers lie scattered in memory. The manager
 * therefore keeps a copy of every expiry in an array beside the heap's slots: the children of a position
 * stand next to each other there, sixteen expiries to a line, and no timer is read to find its place, only
 * written to be told its position.
 *
 * Two oddities of the delay are kept: what is already due is armed for a whole second, and a distance too
 * long for 32 bits of milliseconds is passed on as seconds, so that the platform timer fires early and
 * processing arms it anew.
 */
#include <stdlib.h>
#include <string.h>

#include "container/heap_core.h"
#include "mcast/timer.h"
#include "probe/probe.h"

namespace
{

constexpr uint32_t kNever = 0xFFFFFFFFu;
constexpr uint32_t kOverdueDelayMs = 1000;
constexpr uint32_t kMostSecondsInMs = 4294966; /* a longer distance is passed on as seconds */
constexpr uint64_t kHeapCapacity = 16;

static_assert(kMostSecondsInMs <= kNever / 1000, "milliseconds fit 32 bits");

/* The manager as allocated: the stated record, then what only this file knows. */
struct Manager {
    MCAST_TMR_S stated;
    uint32_t *expiries; /* of the timer at each position; entry 0 is not used */
    uint64_t room;      /* positions that expiries has entries for */
    bool arming_failed; /* the platform timer may be stopped, or armed for too late */
};

Manager *Private(MCAST_TMR_S *manager)
{
    return reinterpret_cast<Manager *>(manager);
}

/* Timers compared by the expiries beside the slots. */
struct ExpiryView {
    struct Item {
        MCAST_TMR_NODE_S *node;
        uint32_t expiry;
    };

    void **slots;
    uint32_t *expiries;

    Item At(uint64_t position) const
    {
        return {static_cast<MCAST_TMR_NODE_S *>(slots[position - 1]), expiries[position]};
    }

    void Set(uint64_t position, Item item) const
    {
        slots[position - 1] = item.node;
        expiries[position] = item.expiry;
    }

    void Put(uint64_t position, Item item) const
    {
        Set(position, item);
        item.node->position = position;
    }

    static int64_t Compare(Item first, Item second)
    {
        return int64_t{first.expiry} - int64_t{second.expiry};
    }

    /* The expiries three levels down stand in one or two lines, the slots from there in twice as many. */
    [[gnu::always_inline]] void Prefetch(uint64_t child, uint64_t count) const
    {
        uint64_t below = 8 * child;
        if (below <= count) {
            __builtin_prefetch(&expiries[below]);
            __builtin_prefetch(&slots[below - 1]);
        }
    }
};

struct ExpiryKeeper {
    Manager *manager;
    MCAST_MINHEAP_S *heap;

    explicit ExpiryKeeper(MCAST_TMR_S *stated) : manager(Private(stated)), heap(stated->heap)
    {
    }

    ExpiryView View() const
    {
        return {heap->slots, manager->expiries};
    }

    bool Reserve() const
    {
        return mcast::HeapReserve(heap) && (heap->count < manager->room || Fit());
    }

    void Shrink() const
    {
        mcast::HeapShrink(heap);
        if (heap->capacity < manager->room) {
            Fit();
        }
    }

    /* Gives the expiries as many entries as the heap has slots; false when memory is short. */
    bool Fit() const
    {
        size_t bytes = (heap->capacity + 1) * sizeof(*manager->expiries);
        uint32_t *expiries = static_cast<uint32_t *>(realloc(manager->expiries, bytes));
        if (expiries == nullptr) {
            return false;
        }
        manager->expiries = expiries;
        manager->room = heap->capacity;
        return true;
    }
};

/* The order and the position as the heap record states them. */
int64_t CompareNodes(const void *first, const void *second)
{
    uint32_t one = static_cast<const MCAST_TMR_NODE_S *>(first)->expiry;
    uint32_t other = static_cast<const MCAST_TMR_NODE_S *>(second)->expiry;
    return (one > other) - (one < other);
}

void SetNodeIndex(void *node, const uint64_t *position)
{
    static_cast<MCAST_TMR_NODE_S *>(node)->position = *position;
}

uint32_t Now()
{
    uint32_t seconds = 0;
    uint32_t sub_seconds = 0;
    TIME_GetSystemBootTime(&seconds, &sub_seconds);
    return seconds;
}

uint32_t ExpiryAfter(uint32_t seconds)
{
    uint32_t now = Now();
    return kNever - seconds > now ? now + seconds : kNever;
}

uint32_t EarliestExpiry(MCAST_TMR_S *manager)
{
    return manager->heap->count != 0 ? Private(manager)->expiries[1] : kNever;
}

/* True while node stands in the heap; false for a node whose own callback is running. */
bool IsPending(const MCAST_MINHEAP_S *heap, const MCAST_TMR_NODE_S *node)
{
    return mcast::HeapHas(heap, node->position) && heap->slots[node->position - 1] == node;
}

uint32_t DelayUntil(uint32_t expiry, uint32_t now)
{
    if (expiry <= now) {
        return kOverdueDelayMs;
    }
    uint32_t distance_s = expiry - now;

    return distance_s <= kMostSecondsInMs ? distance_s * 1000 : distance_s;
}

/* Arms the platform timer for expiry; the platform's code when it refuses. */
MCAST_STATUS Arm(const MCAST_TMR_S *manager, uint32_t expiry)
{
    TIMER_ATTR_S attributes = {};
    uint32_t status = Timer_GetAttr(manager->service, manager->timer, &attributes, 0);

    if (status != 0) {
        return status;
    }
    uint32_t delay_ms = DelayUntil(expiry, Now());

    if (attributes.state == 0) {
        status = Timer_SetStatus(manager->service, manager->timer, TIMER_STATE_ENABLE, 0);
        if (status != 0) {
            return status;
        }
    }
    return Timer_SetStatus(manager->service, manager->timer, TIMER_STATE_ARM, delay_ms);
}

/* Arms the platform timer for the earliest expiry, and remembers a failure for the next that may try. */
MCAST_STATUS Rearm(MCAST_TMR_S *manager)
{
    MCAST_STATUS status = Arm(manager, EarliestExpiry(manager));
    Private(manager)->arming_failed = status != MCAST_OK;
    return status;
}

/* After an add or a refresh: arms when the earliest expiry asks for it or an earlier attempt failed. */
MCAST_STATUS RearmIf(MCAST_TMR_S *manager, bool needed)
{
    return needed || (Private(manager)->arming_failed && manager->heap->count != 0) ? Rearm(manager)
                                                                                    : MCAST_OK;
}

/* Creates the platform timer, stopped; TIMER_NONE when it cannot be made or stopped. */
TIMER_ID CreateStopped(TIMER_SERVICE service, TIMER_HANDLER handler, const uint64_t *parameters)
{
    TIMER_ID timer = Timer_Create(service, TIMER_KIND_ARMED_LATER, TIMER_NO_PERIOD, handler, parameters);
    if (timer != TIMER_NONE && Timer_SetStatus(service, timer, TIMER_STATE_STOP, 0) != 0) {
        Timer_Delete(service, timer);
        timer = TIMER_NONE;
    }
    return timer;
}

void FreeNode(void *node, void *)
{
    free(node);
}

} // namespace

MCAST_TMR_S *MCAST_TMR_Create(TIMER_SERVICE service, TIMER_HANDLER handler, const uint64_t parameters[4])
{
    if (service == nullptr || handler == nullptr) {
        return nullptr;
    }
    Manager *made = static_cast<Manager *>(calloc(1, sizeof(*made)));

    if (made == nullptr) {
        return nullptr;
    }
    MCAST_TMR_S *manager = &made->stated;

    manager->service = service;
    manager->timer = TIMER_NONE;
    if (parameters != nullptr) {
        memcpy(manager->parameters, parameters, sizeof(manager->parameters));
    }
    manager->heap = MCAST_MinHeapCreate(kHeapCapacity, CompareNodes, SetNodeIndex);
    if (manager->heap != nullptr && ExpiryKeeper(manager).Fit()) {
        manager->timer = CreateStopped(service, handler, parameters);
    }
    if (manager->timer == TIMER_NONE) {
        MCAST_TMR_Destroy(manager);
        return nullptr;
    }
    return manager;
}

void MCAST_TMR_Destroy(MCAST_TMR_S *manager)
{
    if (manager == nullptr) {
        return;
    }
    if (manager->timer != TIMER_NONE) {
        Timer_Delete(manager->service, manager->timer);
    }
    MCAST_HeapWalk(manager->heap, FreeNode, nullptr);
    MCAST_MinHeapDestory(manager->heap);
    free(Private(manager)->expiries);
    free(manager);
}

MCAST_TMR_NODE_S *MCAST_TMR_AddNode(MCAST_TMR_S *manager, uint32_t seconds, MCAST_TMR_CALLBACK callback,
                                    const uint64_t data[4])
{
    if (manager == nullptr) {
        return nullptr;
    }
    MCAST_TMR_NODE_S *node = static_cast<MCAST_TMR_NODE_S *>(malloc(sizeof(*node)));

    if (node == nullptr) {
        return nullptr;
    }
    *node = MCAST_TMR_NODE_S{0, ExpiryAfter(seconds), callback, {}};
    if (data != nullptr) {
        memcpy(node->data, data, sizeof(node->data));
    }
    uint32_t earliest = EarliestExpiry(manager);

    if (!mcast::HeapInsert(ExpiryKeeper(manager), ExpiryView::Item{node, node->expiry})) {
        free(node);
        return nullptr;
    }
    RearmIf(manager, EarliestExpiry(manager) != earliest);
    return node;
}

MCAST_STATUS MCAST_TMR_RefreshNode(MCAST_TMR_S *manager, MCAST_TMR_NODE_S *node, uint32_t seconds)
{
    if (manager == nullptr || node == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    ExpiryView view = ExpiryKeeper(manager).View();
    uint32_t earliest = EarliestExpiry(manager);
    uint32_t previous = node->expiry;

    /* What the move reads first comes in while the clock is read. */
    __builtin_prefetch(&view.slots[node->position - 1]);
    __builtin_prefetch(&view.expiries[node->position]);
    node->expiry = ExpiryAfter(seconds);
    if (node->expiry == previous || !IsPending(manager->heap, node)) {
        return RearmIf(manager, false);
    }
    view.expiries[node->position] = node->expiry;
    if (node->expiry > previous) {
        mcast::HeapMoveDown<false>(view, node->position, manager->heap->count);
    } else {
        mcast::HeapMoveUp(view, node->position);
    }
    return RearmIf(manager, EarliestExpiry(manager) < earliest);
}

void MCAST_TMR_DeleteNode(MCAST_TMR_S *manager, MCAST_TMR_NODE_S *node)
{
    if (manager != nullptr && node != nullptr && IsPending(manager->heap, node)) {
        mcast::HeapRemove(ExpiryKeeper(manager), node->position);
        free(node);
    }
}

MCAST_STATUS MCAST_TMR_ProcExpires(MCAST_TMR_S *manager)
{
    if (manager == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    Timer_SetStatus(manager->service, manager->timer, TIMER_STATE_STOP, 0);
    Private(manager)->arming_failed = false;
    const MCAST_MINHEAP_S *heap = manager->heap;
    uint32_t now = Now();

    while (heap->count != 0 && EarliestExpiry(manager) <= now) {
        MCAST_TMR_NODE_S *node = static_cast<MCAST_TMR_NODE_S *>(mcast::HeapExtract(ExpiryKeeper(manager)));

        mcast::probe::TimerFired(manager, node, now);
        if (node->callback != nullptr) {
            node->callback(node->data);
        }
        free(node);
    }
    return heap->count != 0 ? Rearm(manager) : MCAST_OK;
}

MCAST_STATUS MCAST_TMR_GetParam(const MCAST_TMR_S *manager, uint64_t out[4])
{
    if (manager == nullptr || out == nullptr) {
        return MCAST_ERR_GENERAL;
    }
    memcpy(out, manager->parameters, sizeof(manager->parameters));
    return MCAST_OK;
}
