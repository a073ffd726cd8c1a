/*
 * Open addressing with linear probing, at most half full:
 *
 *   keys   | 0 | 1007 | 1039 | 0 | 0 | 1003 | ...    interfaces, 0 = free
 *   users  | - |  *   |  *   | - | - |  *   | ...    in the same places
 *
 * A search reads keys alone until it has found its place, so it touches little memory. A user is
 * taken out by moving back those that had to give way to it: no mark is left, and chains never grow.
 *
 * Agents choose the interfaces of some users. So that none can choose them to meet in one place, the place of
 * an interface is its product with a random number, drawn anew for each index.
 */
#include "usrauth/interface_index.h"

#include <bit>
#include <stdlib.h>

#include "mcast/event.h"
#include "usrauth/interface_tree.h"

namespace mcast::usrauth
{
namespace
{

constexpr uint32_t kSmallest = 64;
constexpr uint32_t kLargest = 1u << 30;

/* An odd number that nobody can foresee, and a fixed one when there are no random bytes. */
uint64_t DrawMultiplier()
{
    const uint64_t upper = MCAST_Rand(0xffffffffu);
    return 0x9e3779b97f4a7c15ull ^ upper << 32 ^ (MCAST_Rand(0xffffffffu) & ~1u);
}

uint32_t HomeOf(const InterfaceIndex &index, uint32_t if_index)
{
    return static_cast<uint32_t>(if_index * index.multiplier >> index.shift);
}

/* Where the interface is, or the free place where it would go. */
uint32_t PlaceOf(const InterfaceIndex &index, uint32_t if_index)
{
    uint32_t place = HomeOf(index, if_index);
    while (index.keys[place] != 0 && index.keys[place] != if_index) {
        place = (place + 1) & index.mask;
    }
    return place;
}

void Put(const InterfaceIndex &index, uint32_t if_index, User *user)
{
    const uint32_t place = PlaceOf(index, if_index);
    index.keys[place] = if_index;
    index.users[place] = user;
}

/* An empty index of the capacity, a power of two; none when it is too large or memory is short. */
InterfaceIndex Create(uint32_t capacity)
{
    InterfaceIndex index = kNoIndex;
    if (capacity > kLargest) {
        return index;
    }
    index.users = static_cast<User **>(calloc(capacity, sizeof(*index.users) + sizeof(*index.keys)));
    if (index.users != nullptr) {
        index.keys = reinterpret_cast<uint32_t *>(index.users + capacity);
        index.mask = capacity - 1;
        index.shift = 64 - static_cast<uint32_t>(std::countr_zero(capacity));
        index.multiplier = DrawMultiplier();
    }
    return index;
}

/* Makes the index with the users of the tree, which are count. */
void Build(uint32_t count) MCAST_REQUIRES(g_stUsrAuthRWLock)
{
    uint32_t capacity = kSmallest;
    while (capacity < 4 * uint64_t{count} && capacity <= kLargest) {
        capacity *= 2;
    }
    g_store.index = Create(capacity);
    if (HasIndex()) {
        for (User *user = FirstAfterInterface(0); user != nullptr;
             user = FirstAfterInterface(user->if_index)) {
            Put(g_store.index, user->if_index, user);
        }
    }
}

/* Makes the index larger. */
void Grow() MCAST_REQUIRES(g_stUsrAuthRWLock)
{
    const InterfaceIndex old = g_store.index;
    const InterfaceIndex larger = Create(2 * (old.mask + 1));
    for (uint32_t place = 0; larger.users != nullptr && place <= old.mask; ++place) {
        if (old.keys[place] != 0) {
            Put(larger, old.keys[place], old.users[place]);
        }
    }
    EndIndex();
    g_store.index = larger;
}

/* Whether number is 1, 2, 4, 8 ... */
bool IsPowerOfTwo(uint32_t number)
{
    return (number & (number - 1)) == 0;
}

} // namespace

void EndIndex()
{
    free(g_store.index.users);
    g_store.index = kNoIndex;
}

bool HasIndex()
{
    return g_store.index.users != nullptr;
}

void IndexUser(User *user)
{
    const uint32_t count = AVL_Count(g_store.interfaces);
    if (!HasIndex()) {
        if (IsPowerOfTwo(count)) {
            Build(count);
        }
        return;
    }
    if (count > g_store.index.mask / 2) {
        Grow();
    }
    if (HasIndex()) {
        Put(g_store.index, user->if_index, user);
    }
}

void UnindexUser(const User *user)
{
    const InterfaceIndex &index = g_store.index;

    if (!HasIndex()) {
        return;
    }
    uint32_t hole = PlaceOf(index, user->if_index);
    uint32_t place = hole;

    while (index.keys[place = (place + 1) & index.mask] != 0) {
        const uint32_t home = HomeOf(index, index.keys[place]);

        /* It may move back unless its home lies behind the hole. */
        if (((place - home) & index.mask) >= ((place - hole) & index.mask)) {
            index.keys[hole] = index.keys[place];
            index.users[hole] = index.users[place];
            hole = place;
        }
    }
    index.keys[hole] = 0;
    index.users[hole] = nullptr;
}

User *FindInIndex(uint32_t if_index)
{
    return if_index == 0 ? nullptr : g_store.index.users[PlaceOf(g_store.index, if_index)];
}

} // namespace mcast::usrauth
