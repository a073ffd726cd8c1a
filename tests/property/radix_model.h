/*
 * A naive model of the radix tree: prefixes in a sorted vector, and walks as positions among them. It knows
 * no nodes; what it says follows from the meaning of prefixes alone.
 */
#ifndef TESTS_PROPERTY_RADIX_MODEL_H
#define TESTS_PROPERTY_RADIX_MODEL_H

#include <algorithm>
#include <compare>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "property/radix_oracle.h"

namespace radix_model
{

using radix_oracle::Bytes;
using radix_oracle::Oracle;

/* A prefix: key bytes with everything beyond the length cleared. Tree order is (key, length). */
struct Prefix {
    Bytes key;
    unsigned length;

    auto operator<=>(const Prefix &) const = default;
};

inline Prefix MakePrefix(const Bytes &key, unsigned length)
{
    Prefix prefix = {{}, length};
    memcpy(prefix.key.data(), key.data(), length / 8);
    if (length % 8 != 0) {
        prefix.key[length / 8] = static_cast<uint8_t>(key[length / 8] & (0xff00u >> (length % 8)));
    }
    return prefix;
}

/* Whether the first bits of two keys agree. */
inline bool Agree(const Bytes &a, const Bytes &b, unsigned bits)
{
    return MakePrefix(a, bits).key == MakePrefix(b, bits).key;
}

inline bool Covers(const Prefix &shorter, const Prefix &longer)
{
    return shorter.length <= longer.length && Agree(shorter.key, longer.key, shorter.length);
}

/* The order of a walk. Reverse: an entry before what it covers, otherwise greater addresses first. */
inline bool Before(const Prefix &a, const Prefix &b, bool reverse)
{
    if (!reverse) {
        return a < b;
    }
    if (Covers(a, b)) {
        return a.length < b.length;
    }
    return !Covers(b, a) && a.key > b.key;
}

/* A walk's position: the prefix that it yields next, and the bits that it never leaves. */
struct Cursor {
    bool reverse;
    unsigned bound;
    std::optional<Prefix> current;
};

class Model
{
public:
    using Item = std::pair<Prefix, void *>;

    /* Sets the entry of a prefix and gives the one that it had, or NULL. */
    void *Put(const Prefix &prefix, void *entry)
    {
        auto place = Find(prefix);
        if (place != items.end() && place->first == prefix) {
            return std::exchange(place->second, entry);
        }
        items.insert(place, {prefix, entry});
        return nullptr;
    }

    void *Remove(const Prefix &prefix)
    {
        auto place = Find(prefix);
        void *entry = place->second;
        items.erase(place);
        return entry;
    }

    void *Get(const Prefix &prefix)
    {
        auto place = Find(prefix);
        return place != items.end() && place->first == prefix ? place->second : nullptr;
    }

    /* The entry after a prefix, whether or not that is present. */
    void *After(const Prefix &prefix) const
    {
        auto next = std::upper_bound(items.begin(), items.end(), prefix,
                                     [](const Prefix &key, const Item &item) { return key < item.first; });
        return next == items.end() ? nullptr : next->second;
    }

    /* The entries covering the first bits of a key within a length, longest first. */
    std::vector<void *> Chain(const Bytes &key, unsigned length) const
    {
        std::vector<void *> chain;
        const Prefix target = MakePrefix(key, length);
        for (auto item = items.rbegin(); item != items.rend(); ++item) {
            if (Covers(item->first, target)) {
                chain.push_back(item->second);
            }
        }
        return chain;
    }

    /* The first prefix of at least length bits under a key, in forward order. */
    std::optional<Prefix> FirstUnder(const Bytes &key, unsigned length) const
    {
        for (const Item &item : items) {
            if (item.first.length >= length && Agree(item.first.key, key, length)) {
                return item.first;
            }
        }
        return std::nullopt;
    }

    /* What follows the cursor's prefix in its order, within its bound. */
    std::optional<Prefix> Following(const Cursor &cursor) const
    {
        const Prefix *next = nullptr;
        for (const Item &item : items) {
            if (Before(*cursor.current, item.first, cursor.reverse) &&
                (next == nullptr || Before(item.first, *next, cursor.reverse))) {
                next = &item.first;
            }
        }
        if (next == nullptr || next->length < cursor.bound ||
            !Agree(next->key, cursor.current->key, cursor.bound)) {
            return std::nullopt;
        }
        return *next;
    }

    std::vector<Item> items;

private:
    std::vector<Item>::iterator Find(const Prefix &prefix)
    {
        return std::lower_bound(items.begin(), items.end(), prefix,
                                [](const Item &item, const Prefix &key) { return item.first < key; });
    }
};

} // namespace radix_model

#endif
